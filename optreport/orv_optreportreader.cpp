// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
// Tables are found by a scan for their signature; their texts are numbers in base 128, least significant byte first.
#include "optreport/orv_optreportreader.h"

#include "core/orv_trace.h"

#include <algorithm>
#include <cstring>
#include <string_view>

namespace ORV_3_30 {
namespace {

constexpr char k_signature[16] = ".zvk_notify_tab";
constexpr std::uint64_t k_leastTable = 49; ///< Bytes that must remain for one.
constexpr std::uint64_t k_rowSize = 16;
constexpr std::uint8_t k_tag = 0x10;

constexpr std::uint32_t k_anchorsAreRelative = 1;
constexpr std::uint32_t k_anchorsAreShort = 4;
constexpr std::uint32_t k_holdsReports = 8;

std::uint64_t uleb(ByteCursor& cursor) {
    std::uint64_t value = 0;
    std::uint8_t byte = 0;
    for (unsigned int shift = 0; shift < 64 && cursor.read(byte); shift += 7) {
        value |= std::uint64_t{byte & 0x7FU} << shift;
        if (byte < 0x80) {
            break;
        }
    }
    return value;
}

/// length: what sizes the buffer, and nothing else. Short texts keep their padding, and what a text counts beyond the
/// buffer is not there.
std::string unpack(ByteCursor cursor, std::uint8_t length) {
    constexpr std::size_t k_least = 16;
    std::size_t const capacity = std::max<std::size_t>(std::size_t{length} + 4, k_least);
    std::string text(capacity, '\0');
    std::size_t count = 0;
    if (cursor.remaining() < 2) {
        count = 1;
    } else {
        unsigned int shift = 0;
        std::uint8_t byte = 0x80;
        while ((byte & 0x80) != 0 && count < capacity + 4 && cursor.read(byte)) {
            unsigned int const bits = (byte & 0x7FU) << shift;
            for (std::size_t at = count; at < count + 2 && at < capacity; ++at) {
                text[at] =
                    static_cast<char>(static_cast<unsigned char>(text[at]) | (bits >> (8 * (at - count)) & 0xFF));
            }
            shift += 7;
            if (shift > 8) {
                shift -= 8;
                ++count;
            }
        }
    }
    text.resize(std::min(std::max(count, k_least), capacity));
    return text;
}

} // namespace

void OptReportReader::reset() {
    m_cursor.seek(0);
    m_hasTable = false;
    m_counter = 0;
    m_version = 0;
    m_status = status_Ok;
    m_entry = {};
    m_current = nullptr;
    next();
}

bool OptReportReader::next() {
    if (m_status != status_Ok) {
        return false;
    }
    status_t const st = m_hasTable || findTable() ? readReport() : status_False;
    if (st != status_False) {
        m_status = st;
    }
    ORV_ASSERT(st == status_Ok || st == status_False, "(status_Ok == st) || (st == status_False)");
    m_current = st == status_Ok ? &m_entry : nullptr;
    return st == status_Ok;
}

void OptReportReader::moveTo(std::uint64_t position) {
    if (!m_cursor.seek(position)) {
        m_cursor.seek(m_data->size());
    }
}

bool OptReportReader::findTable() {
    while (m_cursor.remaining() >= k_leastTable) {
        std::uint64_t const start = m_cursor.position();
        if (std::memcmp(m_data->data() + start, k_signature, sizeof(k_signature)) != 0) {
            m_cursor.skip(1);
        } else if (readTable(start)) {
            return true;
        }
    }
    return false;
}

/// Moves behind the header. False for a table that is passed over.
bool OptReportReader::readTable(std::uint64_t start) {
    std::uint16_t version = 0;
    std::uint16_t headerSize = 0;
    m_cursor.skip(sizeof(k_signature));
    m_cursor.read(version);
    m_cursor.read(headerSize);
    m_table.start = start;
    m_cursor.read(m_table.entryCount);
    m_cursor.read(m_table.namesOffset);
    m_cursor.read(m_table.namesSize);
    m_cursor.read(m_table.dataOffset);
    m_cursor.read(m_table.dataSize);
    m_cursor.read(m_table.flags);
    moveTo(start + std::max<std::uint64_t>(headerSize, 1)); // never the same signature once more
    m_hasTable = version >> 8 == 1 && (m_table.flags & k_holdsReports) != 0;
    m_counter = 0;
    return m_hasTable;
}

/// A table that ends on something else than a report gives the one before once more, on purpose.
status_t OptReportReader::readReport() {
    Found found = Found::Nothing;
    while (found == Found::Nothing && m_counter < m_table.entryCount) {
        found = readEntry();
    }
    if (found == Found::Corrupt) {
        return status_BadFileFormat;
    }
    if (m_counter == m_table.entryCount) {
        std::uint64_t const end = m_table.start + m_table.dataOffset + m_table.dataSize;
        moveTo(std::max(end, m_cursor.position()));
        m_hasTable = false;
    }
    return status_Ok;
}

OptReportReader::Found OptReportReader::readEntry() {
    ++m_counter;
    Row row;
    Name name = Name::Other;
    if (!readRow(row) || !nameOf(row, name)) {
        return Found::Corrupt;
    }
    return name != Name::Other ? readValue(row, name) : Found::Nothing;
}

bool OptReportReader::readRow(Row& row) {
    if (m_cursor.remaining() <= k_rowSize) {
        return false;
    }
    std::uint64_t anchor = 0;
    m_cursor.read(anchor);
    m_cursor.read(row.nameOffset);
    m_cursor.read(row.valueOffset);
    bool const isShort = (m_table.flags & k_anchorsAreShort) != 0;
    row.anchor = isShort ? static_cast<std::int32_t>(anchor) : static_cast<std::int64_t>(anchor);
    return true;
}

bool OptReportReader::nameOf(Row const& row, Name& name) const {
    std::uint64_t const position = m_table.start + m_table.namesOffset + row.nameOffset;
    if (position >= m_data->size() || row.nameOffset >= m_table.namesSize) {
        return false;
    }
    auto const* const bytes = reinterpret_cast<char const*>(m_data->data()) + position;
    auto const is = [&](std::string_view wanted) {
        return m_data->size() - position > wanted.size() && std::memcmp(bytes, wanted.data(), wanted.size() + 1) == 0;
    };
    if (is("optimization_report")) {
        name = Name::Report;
    } else if (is("optimization_report_version")) {
        name = Name::Version;
    }
    return true;
}

OptReportReader::Found OptReportReader::readValue(Row const& row, Name name) {
    std::uint64_t const position = m_table.start + m_table.dataOffset + row.valueOffset;
    if (row.valueOffset >= m_table.dataSize || position >= m_data->size()) {
        return Found::Corrupt;
    }
    // As much as the entries have left, and no more than there is.
    ByteCursor value(m_data->data() + position,
                     std::min<std::uint64_t>(m_cursor.remaining(), m_data->size() - position));
    std::uint8_t length = 0;
    std::uint8_t tag = 0;
    if (!value.read(length) || !value.read(tag) || length == 0 || tag != k_tag) {
        return Found::Corrupt;
    }
    if (name == Name::Version) {
        m_version = static_cast<std::uint16_t>(uleb(value));
        return Found::Nothing;
    }
    auto address = static_cast<std::uint64_t>(row.anchor);
    if ((m_table.flags & k_anchorsAreRelative) != 0) {
        address += m_table.start + m_sectionAddress;
        ORV_ASSERT(static_cast<std::int64_t>(address) >= 0, "anchor_address >= 0");
    }
    ByteCursor const payload(m_data->data() + position + value.position(), value.remaining());
    m_entry = OptReportEntry(m_version, address, unpack(payload, length));
    return Found::Report;
}

} // namespace ORV_3_30
