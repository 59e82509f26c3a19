// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
// What a unit's own entry tells (DWARF version 4, 3.1.1), and the way past entries.
#include "dwarf/orv_dwarf_unit.h"

#include "core/orv_trace.h"
#include "dwarf/orv_dildwarf.h"
#include "dwarf/orv_dwarf_line_resolver.h"

#include <cstring>

namespace ORV_3_30 {
namespace {

/// What stands behind this in a producer's text is not looked at.
constexpr std::size_t k_longestProducer = std::size_t{1} << 16;

char const* textOf(AttrBinding const* binding) {
    bool const isText =
        binding != nullptr && (binding->form == DW_FORM_string || binding->form == DW_FORM_strp) && binding->data;
    return isText ? reinterpret_cast<char const*>(binding->data) : "";
}

/// True if the last occurrence of a name in a path ends where the path does.
bool endsWith(char const* path, char const* name) {
    std::size_t const pathSize = std::strlen(path);
    std::size_t const nameSize = std::strlen(name);
    return nameSize <= pathSize && std::strcmp(path + (pathSize - nameSize), name) == 0;
}

} // namespace

DWARFCompilationUnit::DWARFCompilationUnit(DWARFDebugInfoLoader* loader, Header const& header, FormContext const& forms,
                                           AbbrevTable const& abbrevs)
    : m_loader(loader), m_header(header), m_forms(forms), m_abbrevs(abbrevs) {}

DwarfWalker DWARFCompilationUnit::sectionWalker() const { return m_loader->infoWalker(m_forms.addrSize); }

DwarfWalker DWARFCompilationUnit::unitWalker() const {
    DwarfWalker walker = sectionWalker();
    walker.limit(m_header.offset + m_header.length);
    return walker;
}

bool DWARFCompilationUnit::readEntry(std::uint64_t offset, DieAttributes& out) const {
    DwarfWalker walker = unitWalker();
    walker.seek(offset);
    AbbrevEntry const* const entry = m_abbrevs.find(walker.unsignedLeb());
    return entry != nullptr && out.read(walker, m_forms, m_abbrevs, *entry);
}

/// Codes of later versions of the format are not known here: their units count as C, on purpose.
DWARFCompilationUnit::language_t DWARFCompilationUnit::languageOf(std::uint64_t code) {
    switch (code) {
    case DW_LANG_C_plus_plus: return language_Cpp;
    case DW_LANG_Fortran77:
    case DW_LANG_Fortran90:
    case DW_LANG_Fortran95: return language_Fortran;
    case DW_LANG_Ada83: return language_Ada;
    default: return language_C;
    }
}

void DWARFCompilationUnit::readDetails(AttrBindings& entry) {
    AttrBinding const* const language = entry.attribute(DW_AT_language);
    m_language = languageOf(language != nullptr ? language->value : std::uint64_t{DW_LANG_C});
    m_producer = textOf(entry.attribute(DW_AT_producer));
    std::uint64_t const searched = ::strnlen(m_producer, k_longestProducer);
    if (m_loader->spendSearchBytes(searched)) {
        m_compiler = parseProducer(std::string(m_producer, searched).c_str());
    }
    if (!m_compiler.optReportFile.empty() && !m_loader->spendTextBytes(m_compiler.optReportFile.size())) {
        m_compiler.optReportFile.clear();
    }
    m_compDir = textOf(entry.attribute(DW_AT_comp_dir));
    m_name = textOf(entry.attribute(DW_AT_name));
    m_compileOptions = textOf(entry.attribute(DW_AT_unit_options));
    AttrBinding const* base = entry.attribute(DW_AT_low_pc);
    if (base == nullptr) {
        base = entry.attribute(DW_AT_entry_pc);
    }
    m_baseAddress = base != nullptr ? base->value : 0;
    if (AttrBinding const* const lines = entry.attribute(DW_AT_stmt_list)) {
        m_hasLineInfo = true;
        m_lineOffset = lines->value;
    }
    m_hasDetails = true;
}

void DWARFCompilationUnit::mergeOptions(char const* newText) {
    std::string merged = compileOptions();
    if (!m_loader->spendSearchBytes(merged.size() + std::strlen(newText))) {
        return;
    }
    std::size_t const before = merged.size();
    ORV_3_30::mergeOptions(merged, newText);
    if (merged.size() != before) {
        m_mergedOptions.push_back(std::move(merged));
        m_compileOptions = m_mergedOptions.back().c_str();
    }
}

char const* DWARFCompilationUnit::compilerName() {
    if (*m_producer != '\0') {
        return m_producer;
    }
    switch (m_compiler.kind) {
    case compiler_Gnu:
    case compiler_Gnu296: return "GNU";
    case compiler_VarkoOld:
    case compiler_Varko: return "Varko(R)";
    default: return "";
    }
}

ISourceFile* DWARFCompilationUnit::mainSourceFile() {
    DWARFLineResolver* const resolver = m_loader->lineResolver();
    if (resolver == nullptr) {
        return m_mainFile;
    }
    LockGuard guard(resolver->runLock());
    if (m_mainFile != nullptr) {
        return m_mainFile;
    }
    runLineProgram(nullptr);
    for (int const id : m_sourceFileIds) {
        ISourceFile* const file = resolver->sourceFileById(static_cast<unsigned int>(id));
        if (file != nullptr && *m_name != '\0' && endsWith(file->path(), m_name)) {
            m_mainFile = file;
            return m_mainFile;
        }
    }
    if (!m_sourceFileIds.empty()) {
        m_mainFile = resolver->sourceFileById(static_cast<unsigned int>(m_sourceFileIds.front()));
    }
    return m_mainFile;
}

ISourceFile* DWARFCompilationUnit::sourceFileByName(char const* name) {
    if (!ORV_ASSERT(name != nullptr, "false")) {
        return nullptr;
    }
    DWARFLineResolver* const resolver = m_loader->lineResolver();
    unsigned int id = 0;
    return resolver != nullptr && resolver->fileIdByName(name, id, nullptr) ? resolver->sourceFileById(id) : nullptr;
}

status_t DWARFCompilationUnit::runLineProgram(RangeFilter* filter) {
    if (m_lineStatus == status_NotInitialized) {
        m_lineStatus = status_OutOfMemory; // it stays, if that is how the run ends
        m_lineStatus = runLineProgramOnce(filter);
    }
    return m_lineStatus;
}

// --- Passing over entries

bool DWARFCompilationUnit::skipEntry(DwarfWalker& walker, AbbrevEntry const& entry, std::uint64_t& sibling) const {
    sibling = 0;
    bool const wantsSibling = entry.hasChildren != 0 && entry.siblingForm != 0 && trustsSiblings();
    if (entry.skipSize != AbbrevEntry::k_variable) {
        if (wantsSibling) {
            DwarfWalker at = walker;
            at.skip(entry.siblingAt);
            AttrValue value{};
            if (readForm(at, m_forms, entry.siblingForm, value)) {
                sibling = value.value;
            }
        }
        walker.skip(entry.skipSize);
        return true;
    }
    AbbrevStep const* const steps = m_abbrevs.steps(entry);
    for (std::uint32_t i = 0; i < entry.stepCount; ++i) {
        walker.skip(steps[i].skipBefore);
        if (walker.atEnd() && steps[i].form != DW_FORM_flag_present) {
            return mayBeMissing(walker, m_forms, steps[i].form); // the rest of the entry is not there
        }
        if (wantsSibling && steps[i].slot == DieAttributes::slot_Sibling) {
            AttrValue value{};
            if (!readForm(walker, m_forms, steps[i].form, value)) {
                return false;
            }
            sibling = value.value;
        } else if (!skipForm(walker, m_forms, steps[i].form)) {
            return false;
        }
    }
    walker.skip(entry.tailSize);
    return true;
}

void DWARFCompilationUnit::skipChildren(DwarfWalker& walker, std::uint64_t sibling) const {
    // One that leads back would have us walk for ever.
    if (sibling > walker.offset() && trustsSiblings()) {
        walker.seek(sibling);
        return;
    }
    for (std::uint64_t depth = 1; depth != 0;) {
        std::uint64_t const code = walker.unsignedLeb();
        AbbrevEntry const* const entry = code != 0 ? m_abbrevs.find(code) : nullptr;
        if (entry == nullptr) {
            ORV_ASSERT(code == 0, "false");
            --depth;
        } else if (!skipEntry(walker, *entry, sibling)) {
            --depth;
        } else if (entry->hasChildren != 0) {
            if (sibling > walker.offset()) {
                walker.seek(sibling);
            } else {
                ++depth;
            }
        }
    }
}

} // namespace ORV_3_30
