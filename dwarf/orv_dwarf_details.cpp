// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
// Options that are merged, source files that the line program names, and the run of that program into the line table.
#include "dwarf/orv_dwarf_details.h"

#include "core/orv_trace.h"
#include "dwarf/orv_dildwarf.h"
#include "dwarf/orv_dwarf_line_program.h"

#include <cstring>
#include <optional>
#include <string_view>

namespace ORV_3_30 {
namespace {

/// True if the last occurrence of a name in a path ends where the path does.
bool endsWith(std::string_view path, std::string_view name) {
    return name.size() <= path.size() && path.substr(path.size() - name.size()) == name;
}

/// The file table of a unit, as the program and its header fill it.
class UnitFiles final : public LineFiles {
public:
    UnitFiles(DwarfUnit const& unit, DWARFLineResolver& resolver, UnitFileIds& ids)
        : m_unit(unit), m_resolver(resolver), m_ids(ids) {}

    void addDirectory(std::string_view directory) override { m_directories.push_back({directory, k_unknown}); }
    void addFile(LineFileEntry const& entry) override {
        m_ids.add(m_resolver.addFileIn(directoryOf(entry), entry.name, entry.modificationTime, entry.length));
    }
    void setFirstFile(unsigned int number) override { m_ids.setFirst(number); }

private:
    static constexpr std::uint32_t k_unknown = ~std::uint32_t{0};
    struct Directory {
        std::string_view text;
        std::uint32_t number;
    };

    /// The number of the directory that an entry's name is to be joined with.
    std::uint32_t directoryOf(LineFileEntry const& entry) {
        if (!entry.name.empty() && entry.name.front() == '/') {
            return m_resolver.addDirectory("");
        }
        if (entry.directory == 0) {
            return compilationDirectory();
        }
        if (!ORV_ASSERT(entry.directory <= m_directories.size(), "incDirectory")) {
            return m_resolver.addDirectory("");
        }
        Directory& directory = m_directories[entry.directory - 1];
        if (directory.number == k_unknown) {
            directory.number = m_resolver.addDirectory(fullName(directory.text));
        }
        return directory.number;
    }
    /// Empty where texts have become too dear: units may share one that is long.
    std::string fullName(std::string_view directory) {
        bool const isWhole = !directory.empty() && directory.front() == '/';
        std::string_view const parent = isWhole ? std::string_view() : parentDirectory();
        if (!m_texts.spend(parent.size() + directory.size() + 1)) {
            return {};
        }
        std::string full(parent);
        if (!full.empty() && full.back() != '/') {
            full += '/';
        }
        return full.append(directory);
    }
    std::string_view parentDirectory() {
        if (!m_parent) {
            m_parent = m_texts.isSpent() ? "" : m_unit.compDir();
        }
        return *m_parent;
    }
    std::uint32_t compilationDirectory() {
        if (m_compilation == k_unknown) {
            std::string_view const own = parentDirectory();
            m_compilation = m_resolver.addDirectory(m_texts.settle(own.size()) ? std::string(own) : std::string());
        }
        return m_compilation;
    }

    DwarfUnit const& m_unit;
    DWARFLineResolver& m_resolver;
    UnitFileIds& m_ids;
    std::vector<Directory> m_directories;
    Budget& m_texts = m_unit.reader().budgets().textBytes;
    std::optional<std::string_view> m_parent;
    std::uint32_t m_compilation = k_unknown;
};

/// Makes table entries of rows: an entry is the stretch from one row to the next.
class Stretches {
public:
    Stretches(DwarfUnit const& unit, LineTable& table, IFileFormatHelper& helper, UnitFileIds const& ids,
              RangeFilter* filter)
        : m_unit(unit), m_table(table), m_helper(helper), m_ids(ids), m_filter(filter), m_bias(unit.forms().loadBias) {}

    void add(LineState const& row) {
        if (m_hasPrevious && row.address >= m_previous.address) {
            close(row.address);
        }
        m_isDropped = m_hasPrevious ? m_isDropped : m_unit.isDropped(row.address + m_bias);
        m_hasPrevious = !row.endSequence;
        if (m_hasPrevious) {
            m_previous = static_cast<LineRow const&>(row);
        }
    }

private:
    void close(std::uint64_t end) {
        std::uint64_t const start = m_previous.address + m_bias;
        std::uint64_t const size = end - m_previous.address;
        if (m_filter != nullptr && !m_filter->holds(start, start + size)) {
            return;
        }
        int const file = m_ids.idOf(m_previous.file);
        if (file < 0) {
            return;
        }
        if (m_isDropped || !m_helper.isLoadedAddress(m_previous.address)) {
            return;
        }
        m_table.addLine(m_unit.header().offset, static_cast<unsigned int>(file),
                        static_cast<unsigned int>(m_previous.line), static_cast<unsigned int>(m_previous.column), start,
                        size, m_previous.discriminator);
    }

    DwarfUnit const& m_unit;
    LineTable& m_table;
    IFileFormatHelper& m_helper;
    UnitFileIds const& m_ids;
    RangeFilter* m_filter;
    std::uint64_t m_bias;
    LineRow m_previous;
    bool m_hasPrevious = false;
    bool m_isDropped = false; ///< The sequence, as its first row shows.
};

} // namespace

void DWARFCompilationUnit::mergeOptions(char const* newText) {
    Budget& search = entries().reader().budgets().options;
    char const* const options = compileOptions();
    if (search.isSpent() || !search.settle(std::strlen(options) + std::strlen(newText))) {
        return;
    }
    std::string merged = options;
    std::size_t const before = merged.size();
    ORV_3_30::mergeOptions(merged, newText);
    if (merged.size() != before) {
        m_mergedOptions.push_front(std::move(merged));
        m_compileOptions = m_mergedOptions.front().c_str();
    }
}

char const* DWARFCompilationUnit::compilerName() {
    if (*entries().producer() != '\0') {
        return entries().producer();
    }
    switch (entries().compiler().kind) {
    case compiler_Gnu:
    case compiler_Gnu296: return "GNU";
    case compiler_VarkoOld:
    case compiler_Varko: return "Varko(R)";
    default: return "";
    }
}

ISourceFile* DWARFCompilationUnit::mainSourceFile() {
    DWARFLineResolver* const resolver = m_loader.lineResolver();
    if (resolver == nullptr) {
        return m_mainFile;
    }
    LockGuard guard(resolver->runLock());
    if (m_mainFile != nullptr) {
        return m_mainFile;
    }
    runLineProgram(nullptr);
    std::string_view const name = entries().name();
    for (int const id : m_sourceFileIds.all()) {
        ISourceFile* const file = resolver->sourceFileById(static_cast<unsigned int>(id));
        if (file != nullptr && !name.empty() && endsWith(file->path(), name)) {
            m_mainFile = file;
            return m_mainFile;
        }
    }
    if (!m_sourceFileIds.all().empty()) {
        m_mainFile = resolver->sourceFileById(static_cast<unsigned int>(m_sourceFileIds.all().front()));
    }
    return m_mainFile;
}

ISourceFile* DWARFCompilationUnit::sourceFileByName(char const* name) {
    if (!ORV_ASSERT(name != nullptr, "false")) {
        return nullptr;
    }
    DWARFLineResolver* const resolver = m_loader.lineResolver();
    unsigned int id = 0;
    return resolver != nullptr && resolver->fileIdByName(name, id, nullptr) ? resolver->sourceFileById(id) : nullptr;
}

status_t DWARFCompilationUnit::runLineProgram(RangeFilter* filter) {
    DWARFLineResolver* const resolver = m_loader.lineResolver();
    if (m_lineStatus != status_NotInitialized) {
        return m_lineStatus;
    }
    if (resolver == nullptr || m_unit.isPartial()) {
        m_lineStatus = status_NoDebugInfo;
        return m_lineStatus;
    }
    std::uint32_t const rows = resolver->table().rowCount();
    try {
        m_lineStatus = runLineProgramOnce(*resolver, filter);
    } catch (...) {
        m_sourceFileIds.clear();
        resolver->table().cutTo(rows);
        throw;
    }
    return m_lineStatus;
}

status_t DWARFCompilationUnit::runLineProgramOnce(DWARFLineResolver& resolver, RangeFilter* filter) {
    UnitFiles files(m_unit, resolver, m_sourceFileIds);
    LineHeader header;
    DwarfWalker program;
    status_t const status = openLineProgram(m_unit, files, header, program);
    if (status != status_Ok) {
        return status;
    }
    LineMachine machine(program, header);
    Stretches stretches(m_unit, resolver.table(), *m_loader.fileFormatHelper(), m_sourceFileIds, filter);
    auto const defineFile = [&](LineFileEntry const& entry) {
        ORV_ASSERT(!entry.name.empty(), "fileName && strlen(fileName) > 0");
        files.addFile(entry);
    };
    machine.run([&](LineState const& row) { stretches.add(row); }, defineFile);
    return status_Ok;
}

} // namespace ORV_3_30
