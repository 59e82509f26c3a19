// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// The optimisation remarks in the bytes of one section: any number of notification tables, with any bytes around them.
///
///     OptReportReader reader(buffer, section->address());
///     for (reader.reset(); reader.current() != nullptr; reader.next()) ...
#pragma once

#include "core/orv_cursor.h"
#include "core/orv_shared_object.h"
#include "orv/orv_iterator.h"
#include "orv/orv_optreport.h"
#include "orv/orv_section.h"
#include "orv/orv_status.h"

#include <cstdint>
#include <string>

namespace ORV_3_30 {

class OptReportEntry final : public IOptReportEntry {
public:
    OptReportEntry() = default;
    OptReportEntry(unsigned short version, unsigned long long address, std::string text)
        : m_version(version), m_address(address), m_text(std::move(text)) {}

    unsigned short version() override { return m_version; }
    unsigned long long address() override { return m_address; }
    std::pair<char const*, unsigned long> text() override { return {m_text.data(), m_text.size()}; }
    bool isBelow(unsigned long long address) const { return m_address < address; }
    friend bool operator<(OptReportEntry const& a, OptReportEntry const& b) { return a.m_address < b.m_address; }

private:
    unsigned short m_version = 0;
    unsigned long long m_address = 0;
    std::string m_text;
};

/// Belongs to one thread. The entry that it gives is its own, and changes with each step.
class OptReportReader final : public SymMgrObject<IIterator<IOptReportEntry*>> {
public:
    /// sectionAddress: what anchors may be relative to.
    OptReportReader(SymMgrObjectPtr<IBuffer> data, unsigned long long sectionAddress)
        : m_data(std::move(data)), m_sectionAddress(sectionAddress), m_cursor(m_data->data(), m_data->size()) {}

    IOptReportEntry* current() override { return m_current; }
    bool next() override;
    void reset() override;

private:
    struct Table {
        std::uint64_t start = 0;
        std::uint32_t entryCount = 0;
        std::uint32_t namesOffset = 0;
        std::uint32_t namesSize = 0;
        std::uint32_t dataOffset = 0;
        std::uint32_t dataSize = 0;
        std::uint32_t flags = 0;
    };
    struct Row {
        std::int64_t anchor = 0;
        std::uint32_t nameOffset = 0;
        std::uint32_t valueOffset = 0;
    };
    enum class Name { Report, Version, Other };
    enum class Found { Report, Nothing, Corrupt };

    /// False if none is left.
    bool findTable();
    bool readTable(std::uint64_t start);
    status_t readReport();
    Found readEntry();
    bool readRow(Row& row);
    bool nameOf(Row const& row, Name& name) const;
    Found readValue(Row const& row, Name name);
    /// To an absolute position, which may lie behind the end: then no table is left.
    void moveTo(std::uint64_t position);

    SymMgrObjectPtr<IBuffer> m_data;
    unsigned long long m_sectionAddress;
    ByteCursor m_cursor;
    Table m_table;
    bool m_hasTable = false;
    std::uint32_t m_counter = 0; ///< Entries of the table that were taken.
    std::uint16_t m_version = 0; ///< In force.
    status_t m_status = status_Ok;
    OptReportEntry m_entry;
    IOptReportEntry* m_current = nullptr;
};

} // namespace ORV_3_30
