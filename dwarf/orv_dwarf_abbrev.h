// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// Abbreviation tables (DWARF version 4, 7.5.3): what stands in an entry, by its code.
#pragma once

#include "core/orv_paged_array.h"
#include "dwarf/orv_dwarf_form.h"

#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <tuple>
#include <vector>

namespace ORV_3_30 {

/// One attribute of an abbreviation. Codes beyond the fields' width are known to nobody and come to
/// their greatest value, forms to 0, which is refused.
struct AbbrevSpec {
    std::uint32_t attr;
    std::uint16_t form;
    std::int64_t constant; ///< Of DW_FORM_implicit_const.
};

/// One step in reading an entry for the attributes that matter. Others of fixed size are passed over
/// together, and those of no size are gone: however long an abbreviation is, an entry costs no more than
/// its bytes and a few steps.
struct AbbrevStep {
    std::uint32_t skipBefore;
    std::uint16_t form;
    std::uint8_t slot;      ///< Where DieAttributes keeps it; 0 for nowhere.
    std::uint32_t constant; ///< The number of the value that stands here in place of the entry.
};

/// One abbreviation.
struct AbbrevEntry {
    static constexpr std::uint32_t k_variable = ~std::uint32_t{0};

    std::uint32_t tag;
    std::uint8_t hasChildren; ///< As read.
    std::uint32_t firstStep;
    std::uint32_t stepCount;
    std::uint32_t tailSize;    ///< Bytes behind the last step.
    std::uint32_t skipSize;    ///< Bytes of all attributes together; k_variable if that depends on them.
    std::uint32_t siblingAt;   ///< Distance of DW_AT_sibling from the first attribute, if it is fixed there.
    std::uint16_t siblingForm; ///< 0 without one.
    /// DW_AT_location can be a block, as that of a variable with one address is, or may stand in an origin.
    bool mayBeStatic;
    bool tellsPlace;    ///< It has a low or a high address, or ranges.
    bool isDeclaration; ///< It says so.
};

/// The abbreviations of a unit, by code. Units whose tables are the same share one.
class AbbrevTable {
public:
    /// Reads a table from .debug_abbrev. Returns the bytes that it took.
    std::uint64_t read(DwarfWalker walker, FormContext const& context);

    /// Null for a code that is not there.
    AbbrevEntry const* find(std::uint64_t code) const {
        std::uint32_t const index = m_abbrevsMap.find(code);
        return index != 0 ? &m_entries[index - 1] : nullptr;
    }
    std::uint64_t constant(AbbrevStep const& step) const { return m_constants[step.constant]; }
    AbbrevStep const* steps(AbbrevEntry const& entry) const { return m_steps.data() + entry.firstStep; }

private:
    void readSpecs(DwarfWalker& walker, FormContext const& context, AbbrevEntry& entry);
    void makeSteps(FormContext const& context, AbbrevEntry& entry);

    PagedArray<std::uint32_t> m_abbrevsMap; ///< Code to index of the entry plus 1.
    std::vector<AbbrevEntry> m_entries;
    std::vector<AbbrevSpec> m_specs; ///< Of the entry that is being read.
    std::vector<AbbrevStep> m_steps;
    std::vector<std::uint64_t> m_constants;
};

/// All tables of a file. Lives as long as the reader.
class AbbrevTables {
public:
    /// The table at an offset, for units of one shape. An empty one where units and tables that lie in
    /// one another would make the reading endless: all together it reads a section a few times at most,
    /// beside the first time.
    AbbrevTable const& at(std::uint64_t offset, DwarfWalker const& section, FormContext const& context);

private:
    /// Offset, address size, offset size and whether references take an address.
    using Key = std::tuple<std::uint64_t, unsigned int, bool, bool>;

    std::map<Key, std::unique_ptr<AbbrevTable>> m_tables;
    std::uint64_t m_bytesRead = 0;
};

} // namespace ORV_3_30
