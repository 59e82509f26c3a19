// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// The reader of DWARF debug information, versions 2 to 4.
///
/// A load reads the header and the top of every unit, and hands each function, label and static variable
/// to the symbol table. What lies inside a function is read when somebody asks for it, and line programs
/// run at the first line question. No tree of entries stays in memory.
#pragma once

#include "dwarf/orv_dwarf_line_resolver.h"
#include "dwarf/orv_dwarf_merge.h"
#include "dwarf/orv_dwarf_origins.h"
#include "dwarf/orv_dwarf_stackvar.h"
#include "dwarf/orv_dwarf_unit.h"
#include "format/orv_elf_relocations.h"
#include "format/orv_ffl.h"
#include "lines/orv_dil.h"
#include "symbols/orv_scope_maker.h"

#include <atomic>
#include <string>
#include <unordered_map>
#include <vector>

namespace ORV_3_30 {

class DWARFDebugInfoLoader final : public DebugInfoLoader, public IScopeMaker {
public:
    /// loadBias: what is added to an address of the symbol file to get one of the module.
    DWARFDebugInfoLoader(IFileFormatLoader* loader, std::string symFileName, IFileFormatHelper* helper,
                         unsigned long long loadBias);

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

    using Units = std::vector<SymMgrObjectPtr<DWARFCompilationUnit>>;
    Units const& units() const { return m_units; }
    /// By exact offset, once a load has read the units. Null if there is none.
    DWARFCompilationUnit* unitById(unsigned long long offset);
    /// The unit that holds an offset in .debug_info; null if none does.
    DWARFCompilationUnit* findUnitByOffset(std::uint64_t offset) const;
    DWARFLineResolver* lineResolver() const { return m_lineResolver.get(); }
    IFileFormatHelper* fileFormatHelper() const { return m_fileFormatHelper.get(); }
    IFileFormatLoader* moduleLoader() const { return loader(); }
    status_t lineStatus() const { return m_lineStatus; }
    void setLineStatus(status_t status) { m_lineStatus = status; }

    DwarfWalker infoWalker(unsigned int addrSize) const { return walkerOf(m_debugInfo, addrSize); }
    bool hasDebugLine() const { return static_cast<bool>(m_debugLine.data); }
    DwarfWalker lineWalker(unsigned int addrSize) const { return walkerOf(m_debugLine, addrSize); }
    DwarfWalker rangesWalker(unsigned int addrSize) const { return walkerOf(m_debugRanges, addrSize); }
    /// Over .debug_loc, which is read when it is first needed. Under the load lock.
    DwarfWalker locationsWalker(unsigned int addrSize);
    bool isInSegment(unsigned long long address) const {
        return loader() != nullptr && loader()->segmentByAddress(address) != nullptr;
    }

    OriginTable& origins() { return m_origins; }

    /// A name without its last character, as long as the loader lives; the name itself where too many
    /// have been kept.
    char const* keepShortened(char const* name, std::size_t size);
    /// To be called where a load begins: of all units, or of what lies in one scope.
    void refillBudgets();
    void refillScopeBudgets();
    /// False if more was read than the section can justify: units may share what they read, but not
    /// without an end.
    bool spendLineBytes(std::uint64_t bytes) { return spendIfEnough(m_lineBytes, bytes); }
    /// The same for what stands ahead of the programs. Asked before it is read, told after.
    bool canReadLineHeader() const { return m_lineHeaderBytes.load(std::memory_order_relaxed) != 0; }
    void spendLineHeader(std::uint64_t bytes) { spend(m_lineHeaderBytes, bytes); }
    bool spendRangePair() { return spend(m_rangePairs, 1); }
    /// For texts that are made of what is in the sections.
    bool spendTextBytes(std::uint64_t bytes) { return spend(m_textBytes, bytes); }
    /// For the search of texts that entries may share.
    bool spendSearchBytes(std::uint64_t bytes) { return spend(m_searchBytes, bytes); }
    bool canSearch() const { return m_searchBytes.load(std::memory_order_relaxed) != 0; }
    /// False if a name is so long that reading it costs more than a load may spend: many may share their text.
    bool mayRead(char const* name);
    /// For the entries of location lists: many variables may share one.
    bool spendLocation() { return spend(m_locations, 1); }
    /// For what is kept of the entries in functions, which may lie in each other.
    bool spendTreeNode() {
        std::uint64_t left = m_treeNodes.load(std::memory_order_relaxed);
        while (left != 0) { // exact, since they come back
            if (m_treeNodes.compare_exchange_weak(left, left - 1, std::memory_order_relaxed)) {
                return true;
            }
        }
        return false;
    }
    void returnTreeNodes(std::size_t count) { m_treeNodes += count; }
    /// For the members of variables, which are kept: many may share a type. Refilled as well.
    bool spendMember() { return spend(m_members, 1); }

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
    /// A section in memory, as long as the loader lives.
    struct HeldSection {
        SymMgrObjectPtr<ISectionData> data;
        unsigned char const* bytes = nullptr;
        std::uint64_t size = 0;
    };
    static DwarfWalker walkerOf(HeldSection const& section, unsigned int addrSize) {
        return {section.bytes, section.size, addrSize};
    }
    /// Threads may spend at the same time, and lose count of a little.
    using Budget = std::atomic<std::uint64_t>;
    static bool spend(Budget& budget, std::uint64_t amount) {
        std::uint64_t const left = budget.load(std::memory_order_relaxed);
        bool const isEnough = amount <= left;
        budget.store(isEnough ? left - amount : 0, std::memory_order_relaxed);
        return isEnough;
    }

    /// Refuses what is too dear, and nothing after it.
    static bool spendIfEnough(Budget& budget, std::uint64_t amount) {
        bool const isEnough = amount <= budget.load(std::memory_order_relaxed);
        return isEnough && spend(budget, amount);
    }

    HeldSection holdSection(unsigned int role, bool isRelocated);
    void holdSections();
    std::uint64_t textsSize() const { return m_debugInfo.size + m_debugStr.size + m_debugLine.size; }
    /// Finds the variable at a stack address that no question has found before.
    status_t searchStack(ISymbol* symbol, unsigned long long pc, unsigned long long address,
                         IStackFrameContext& context, StackAnswers::Answer const*& answer);
    status_t scanUnits();
    status_t scanUnit(DwarfWalker& walker);

    std::string m_symFileName;
    SymMgrObjectPtr<IFileFormatHelper> m_fileFormatHelper;
    unsigned long long m_loadBias;
    bool m_hasDebugInfo;   ///< The section is there, whether or not it was read.
    bool m_symbolsEnabled; ///< From the environment.
    status_t m_status = status_Ok;
    std::atomic<status_t> m_lineStatus{status_NotInitialized};
    HeldSection m_debugInfo;
    HeldSection m_debugAbbrev;
    HeldSection m_debugStr;
    HeldSection m_debugLine;
    HeldSection m_debugRanges;
    HeldSection m_debugLoc;
    bool m_hasReadLocations = false;
    Budget m_lineBytes{0}; ///< What may still be read.
    Budget m_lineHeaderBytes{0};
    Budget m_rangePairs{0};  ///< The same.
    Budget m_textBytes{0};   ///< The same.
    Budget m_searchBytes{0}; ///< The same.
    Budget m_members{0};     ///< The same.
    Budget m_treeNodes{0};   ///< What may still be kept.
    Budget m_locations{0};
    Budget m_mostLocations{0}; ///< What one load may spend, once it is known how many there are.
    AbbrevTables m_abbrevTables;
    Units m_units;                       ///< By offset.
    std::atomic<bool> m_hasUnits{false}; ///< They have been read in full.
    SymMgrObjectPtr<DWARFLineResolver> m_lineResolver;
    InlineMaker m_inlineMaker{*this};
    ShortNames m_shortNames;
    OriginTable m_origins;
    OrvLock m_stackLock; ///< Of the answers. Taken ahead of the load lock.
    StackAnswers m_stackAnswers;
    std::unordered_map<char const*, std::string> m_shortened; ///< By the name that they were made of.
};

} // namespace ORV_3_30
