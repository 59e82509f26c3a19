// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// Compilation units (DWARF version 4, 3.1.1 and 7.5.1.1).
///
/// A unit knows where its entries stand and how to read them, what its own entry tells of language and
/// compiler, and the files of its line table, whose program it runs on demand. Clients see it as
/// ICompUnitDetails.
#pragma once

#include "dwarf/orv_dwarf_abbrev.h"
#include "dwarf/orv_dwarf_die.h"
#include "dwarf/orv_dwarf_producer.h"
#include "orv/orv_source.h"
#include "symbols/orv_accepted_ranges.h"

#include <atomic>
#include <deque>
#include <string>
#include <unordered_map>
#include <vector>

namespace ORV_3_30 {

class DWARFDebugInfoLoader;

/// What a type comes to for a variable of it.
struct TypeInfo {
    std::uint64_t size;
    std::uint64_t structOffset; ///< Of the class, structure or union; all ones for other types.
    std::uint32_t tag;
    bool isInteger;
    bool isSized; ///< False: nothing is known of its size.
};

/// Lives as long as its loader. What its own entry tells is written in the first load and read after
/// it; the files and the state of the line program are guarded by the line resolver's run lock.
class DWARFCompilationUnit final : public ICompUnitDetails, public SymMgrObjectImpl {
public:
    struct Header {
        std::uint64_t offset;   ///< Of the unit in .debug_info: its key.
        std::uint64_t length;   ///< With the length field itself.
        std::uint64_t firstDie; ///< In the section.
    };
    DWARFCompilationUnit(DWARFDebugInfoLoader* loader, Header const& header, FormContext const& forms,
                         AbbrevTable const& abbrevs);

    unsigned long long id() override { return m_header.offset; }
    ISourceFile* mainSourceFile() override;
    ISourceFile* sourceFileByName(char const* name) override;
    unsigned int reserved4() override { return 0; }
    char const* compilationDirectory() override { return m_compDir; }
    char const* compileOptions() override { return m_compileOptions; }
    char const* optReportFile() override {
        return m_compiler.optReportFile.empty() ? nullptr : m_compiler.optReportFile.c_str();
    }
    char const* compilerName() override;
    unsigned int compilerMajorVersion() override { return m_compiler.major; }
    unsigned int compilerMinorVersion() override { return m_compiler.minor; }
    unsigned int language() override { return m_language; }
    void* reserved12() override { return nullptr; }

    /// Takes in what the unit's entry tells. Once: clients hold on to the texts.
    void readDetails(AttrBindings& entry);
    /// Takes in the options that a part of the unit was compiled with.
    void mergeOptions(char const* newText);
    bool hasDetails() const { return m_hasDetails; }

    /// Runs the line program, once; later calls give the first one's status. Without a filter all its
    /// rows are taken. To be called under the resolver's run lock.
    status_t runLineProgram(RangeFilter* filter);

    DWARFDebugInfoLoader* loader() const { return m_loader; }
    FormContext const& forms() const { return m_forms; }
    AbbrevTable const& abbrevs() const { return m_abbrevs; }
    Header const& header() const { return m_header; }
    bool holds(std::uint64_t offset) const { return offset - m_header.offset < m_header.length; }
    bool isFortran() const { return m_language == language_Fortran; }
    compiler_kind_t compilerKind() const { return m_compiler.kind; }
    /// Only some compilers are known to get DW_AT_sibling right.
    bool trustsSiblings() const { return m_compiler.kind != compiler_Unknown && m_compiler.kind != compiler_Gnu296; }
    std::uint64_t baseAddress() const { return m_baseAddress; }
    char const* compDir() const { return m_compDir; }
    char const* unitName() const { return m_name; }
    bool hasLineInfo() const { return m_hasLineInfo; }
    std::uint64_t lineOffset() const { return m_lineOffset; }
    /// A walker over all of .debug_info, with the unit's address size.
    DwarfWalker sectionWalker() const;
    /// The same, which ends with the unit.
    DwarfWalker unitWalker() const;

    /// Reads the attributes of the entry at an offset of the unit. False if there is none, or if a form of it is
    /// refused.
    bool readEntry(std::uint64_t offset, DieAttributes& out) const;

    /// Passes over the attributes of an entry, from behind its code. False at a form that is refused.
    /// sibling: where the next entry of its list stands, if the entry tells; otherwise 0.
    bool skipEntry(DwarfWalker& walker, AbbrevEntry const& entry, std::uint64_t& sibling) const;
    /// Passes over the children of an entry, from behind its attributes.
    void skipChildren(DwarfWalker& walker, std::uint64_t sibling) const;

    /// Ids of the source files, in the order of the unit's file table: file number n stands at n - 1.
    std::vector<int>& sourceFileIds() { return m_sourceFileIds; }

    /// Answers of the type lookup that were given before.
    std::unordered_map<std::uint64_t, TypeInfo>& knownTypes() { return m_knownTypes; }

private:
    enum language_t : unsigned int { language_Ada = 1, language_C = 3, language_Cpp = 4, language_Fortran = 5 };
    static language_t languageOf(std::uint64_t code);
    status_t runLineProgramOnce(RangeFilter* filter);

    DWARFDebugInfoLoader* m_loader; ///< Not counted: it owns the unit.
    Header m_header;
    FormContext m_forms;
    AbbrevTable const& m_abbrevs;
    bool m_hasDetails = false;
    bool m_hasLineInfo = false;
    language_t m_language = language_C;
    std::uint64_t m_lineOffset = 0;
    std::uint64_t m_baseAddress = 0;
    char const* m_compDir = "";
    char const* m_name = "";
    char const* m_producer = "";
    std::atomic<char const*> m_compileOptions{""};
    std::deque<std::string> m_mergedOptions; ///< With those of parts. Earlier texts stay, for who holds them.
    Compiler m_compiler;
    ISourceFile* m_mainFile = nullptr;
    std::vector<int> m_sourceFileIds;
    status_t m_lineStatus = status_NotInitialized;
    std::unordered_map<std::uint64_t, TypeInfo> m_knownTypes;
};

} // namespace ORV_3_30
