// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
// File tables by their offset (DWARF version 5, 6.2.4), kept as they stand; paths are put together when they are asked
// for.
#include "dwarf/orv_dwarf_declared_files.h"

#include "dwarf/orv_dwarf_line_program.h"
#include "dwarf/orv_dwarf_reader.h"

#include <string_view>
#include <vector>

namespace ORV_3_30 {

/// As it stands in .debug_line.
class DeclaredFiles::Table final : public LineFiles {
public:
    explicit Table(Budget& entries) : m_entries(entries) {}
    void addDirectory(std::string_view directory) override;
    void addFile(LineFileEntry const& entry) override;
    void setFirstFile(unsigned int number) override { m_first = number; }

    LineFileEntry const* file(std::uint64_t number) const {
        return number >= m_first && number - m_first < m_files.size() ? &m_files[number - m_first] : nullptr;
    }
    /// Of a file, with that of the compilation. Empty for a name that stands alone. False for what is too long.
    bool directoryOf(LineFileEntry const& file, DwarfUnit const& unit, std::string& out) const;

private:
    Budget& m_entries;
    unsigned int m_first = 1;
    std::vector<std::string_view> m_directories;
    std::vector<LineFileEntry> m_files;
};

DeclaredFiles::DeclaredFiles() = default;
DeclaredFiles::~DeclaredFiles() = default;

void DeclaredFiles::Table::addDirectory(std::string_view directory) {
    if (m_entries.spend(1)) {
        m_directories.push_back(directory);
    }
}

void DeclaredFiles::Table::addFile(LineFileEntry const& entry) {
    if (m_entries.spend(1)) {
        m_files.push_back(entry);
    }
}

bool DeclaredFiles::Table::directoryOf(LineFileEntry const& file, DwarfUnit const& unit, std::string& out) const {
    bool const standsAlone = (!file.name.empty() && file.name.front() == '/') || file.directory > m_directories.size();
    if (standsAlone) {
        return true;
    }
    Budget& texts = unit.reader().budgets().textBytes;
    std::string_view const own = file.directory != 0 ? m_directories[file.directory - 1] : std::string_view();
    std::string_view const parent =
        texts.isSpent() || (!own.empty() && own.front() == '/') ? std::string_view() : unit.compDir();
    if (!texts.spend(parent.size() + own.size() + 1)) {
        return false;
    }
    out = parent;
    if (!out.empty() && out.back() != '/' && !own.empty()) {
        out += '/';
    }
    out += own;
    return true;
}

DeclaredFiles::Table const& DeclaredFiles::tableOf(DwarfUnit const& unit) {
    std::pair<DwarfReader const*, std::uint64_t> const key(&unit.reader(), unit.lineOffset());
    auto const known = m_tables.find(key);
    if (known != m_tables.end()) {
        return *known->second;
    }
    constexpr std::uint64_t k_leastEntries = 1024;
    constexpr std::uint64_t k_leastBytes = 4; // of an entry: an offset, or a name of one letter with its numbers
    auto const [budget, isNew] = m_entries.try_emplace(key.first, "files of declarations");
    if (isNew) {
        budget->second.refill(k_leastEntries + unit.reader().lineWalker(0).size() / k_leastBytes);
    }
    Table& table = *m_tables.emplace(key, std::make_unique<Table>(budget->second)).first->second;
    LineHeader header;
    DwarfWalker program;
    openLineProgram(unit, table, header, program); // a table without a program is all that is wanted
    return table;
}

bool DeclaredFiles::find(DwarfUnit const& unit, std::uint64_t number, File& out) {
    if (!unit.hasLineInfo()) {
        return false;
    }
    Table const& table = tableOf(unit);
    LineFileEntry const* const file = table.file(number);
    if (file == nullptr || file->name.empty() || !table.directoryOf(*file, unit, out.path) ||
        !unit.reader().budgets().textBytes.spend(file->name.size())) {
        return false;
    }
    if (!out.path.empty() && out.path.back() != '/') {
        out.path += '/';
    }
    out.path += file->name;
    out.modificationTime = file->modificationTime;
    out.length = file->length;
    return true;
}

} // namespace ORV_3_30
