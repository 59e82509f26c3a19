// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// The loader of DWARF debug information: it joins what the reader gives to symbols, scopes and lines.
///
/// A load reads the header and the top of every unit, and hands each function, label and static variable
/// to the symbol table. What lies inside a function is read when somebody asks for it, and line programs
/// run at the first line question. No tree of entries stays in memory.
#pragma once

#include "dwarf/orv_dwarf_details.h"
#include "dwarf/orv_dwarf_line_resolver.h"
#include "dwarf/orv_dwarf_merge.h"
#include "dwarf/orv_dwarf_reader.h"
#include "dwarf/orv_dwarf_split.h"
#include "dwarf/orv_dwarf_stackvar.h"
#include "dwarf/orv_dwarf_views.h"
#include "lines/orv_dil.h"
#include "symbols/orv_scope_maker.h"

#include <atomic>
#include <string>
#include <unordered_map>
#include <vector>

namespace ORV_3_30 {

class DWARFDebugInfoLoader final : public DebugInfoLoader, public IScopeMaker {
public:
    /// loadBias: what is added to an address of the symbol file to get one of the module. splitFiles: where the files
    /// of split units may lie; null if they are left alone.
    DWARFDebugInfoLoader(IFileFormatLoader* loader, std::string symFileName, IFileFormatHelper* helper,
                         unsigned long long loadBias, reading_t reading, std::unique_ptr<ISplitFiles> splitFiles);

    char const* symFileName() override { return m_symFileName.c_str(); }
    unsigned int symFileFormat() override { return 1; }
    status_t loadSymbols(ISymbolTable* table, AcceptedRanges* filter, unsigned int mask,
                         ISrcLineResolver* resolver) override;
    ISrcLineResolver* srcLineResolver(Scope* scope, ILock* lock) override;
    status_t findStackVariable(ISymbol* symbol, unsigned long long pc, unsigned long long address,
                               SymMgrObjectPtr<IStackFrameContext>& context, SymMgrObjectPtr<ISymbol>& out,
                               bool* isInteger) override;
    void sectionByIndex(SymMgrObjectPtr<ISection>& out, unsigned int index) override {
        m_fileFormatHelper->sectionByIndex(out, index);
    }

    Scope* makeScope(RangeRecord const& record, Scope* parent) override;
    unsigned int mergeRule(MergeSide const& mine, MergeSide const& other, MergeNext const& next) override;
    void matchKeys(MergeSide const& side, MatchRole role, MatchKeys& out) override;
    bool looksAhead() const override { return true; }
    bool givesUnits() const override { return true; }
    bool givesInlines() const override { return false; }
    /// Who makes the scopes of inlined bodies.
    IScopeMaker& inlineMaker() { return m_inlineMaker; }

    DwarfReader& reader() { return m_reader; }
    UnitViews& views() { return m_views; }
    /// A unit as clients see it.
    DWARFCompilationUnit& viewOf(DwarfUnit& unit) { return m_views.of(unit); }
    /// By exact offset, once a load has read the units. Null if there is none, and for a partial one.
    DWARFCompilationUnit* unitById(unsigned long long offset);
    DWARFLineResolver* lineResolver() const { return m_lineResolver.get(); }
    IFileFormatHelper* fileFormatHelper() const { return m_fileFormatHelper.get(); }
    IFileFormatLoader* moduleLoader() const { return loader(); }
    status_t lineStatus() const { return m_lineStatus; }
    void setLineStatus(status_t status) { m_lineStatus = status; }

    /// What the module's symbol table calls a stretch; null if it has none.
    char const* symbolNameOf(unsigned long long start, unsigned long long end, char const* own) {
        return m_moduleNames != nullptr ? m_moduleNames->symbolNameOf(start, end, own) : nullptr;
    }
    /// What the load that is on may search. Under the load lock.
    Budget& search() { return m_search; }
    /// Where a load begins.
    void refillSearch() { m_search.refill(m_reader.budgets().searchBytes()); }
    /// False if a name is so long that reading it costs more than a load may spend: many may share their text.
    bool mayRead(char const* name);
    /// A name without its last character, as long as the loader lives; the name itself where too many
    /// have been kept.
    char const* keepShortened(char const* name, std::size_t size);

private:
    /// Inlined bodies rank below what is no inlined body; apart from that they are like other entries.
    class InlineMaker final : public IScopeMaker {
    public:
        explicit InlineMaker(DWARFDebugInfoLoader& loader) : m_loader(loader) {}
        Scope* makeScope(RangeRecord const& record, Scope* parent) override;
        unsigned int mergeRule(MergeSide const& mine, MergeSide const& other, MergeNext const& next) override {
            return m_loader.mergeRule(mine, other, next);
        }
        void matchKeys(MergeSide const& side, MatchRole role, MatchKeys& out) override {
            m_loader.matchKeys(side, role, out);
        }
        bool looksAhead() const override { return true; }
        bool givesUnits() const override { return true; }
        bool givesInlines() const override { return true; }

    private:
        DWARFDebugInfoLoader& m_loader;
    };
    struct StackQuestion {
        ISymbol* symbol;
        unsigned long long pc;
        unsigned long long address;
        IStackFrameContext& context;
        StackAnswers::Frame frame;
    };
    /// wantsCallFrames: there is no answer as long as they have not been made.
    status_t askStack(StackQuestion const& question, SymMgrObjectPtr<ISymbol>& out, bool* isInteger,
                      bool& wantsCallFrames);
    /// Finds the variable at a stack address that no question has found before.
    status_t searchStack(StackQuestion const& question, StackAnswers::Answer const*& answer, bool& wantsCallFrames);
    status_t readUnits();
    void openSupplement();
    /// What no walk over entries reads.
    void readDetailsOfPartialUnits();
    void walkUnits(ISymbolTable* table, AcceptedRanges* filter, unsigned int mask);
    /// The unit that has the entries of one: itself, or its split unit. Null for one that a load does not need.
    DwarfUnit* entriesOf(DwarfUnit& unit, std::vector<bool> const& needed);

    std::string m_symFileName;
    SymMgrObjectPtr<IFileFormatHelper> m_fileFormatHelper;
    DwarfReader m_reader;
    DwarfSplits m_splits;
    FileFormatLoader* m_moduleNames; ///< Null for a module that a client has implemented.
    bool m_hasDebugInfo;             ///< The section is there, whether or not it was read.
    bool m_symbolsEnabled;           ///< From the environment.
    status_t m_status = status_Ok;
    std::atomic<status_t> m_lineStatus{status_NotInitialized};
    Budget m_search{"texts, types and origins"};
    UnitViews m_views;
    std::atomic<bool> m_hasUnits{false}; ///< They have been read in full.
    SymMgrObjectPtr<DWARFLineResolver> m_lineResolver;
    InlineMaker m_inlineMaker{*this};
    ShortNames m_shortNames;
    OrvLock m_stackLock; ///< Of the answers. Taken ahead of the load lock.
    StackAnswers m_stackAnswers;
    std::unordered_map<char const*, std::string> m_shortened; ///< By the name that they were made of.
};

} // namespace ORV_3_30
