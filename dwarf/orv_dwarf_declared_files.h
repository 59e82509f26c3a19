// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// The file tables of partial units. Their programs are not run: they are those of other units, or have no rows. What
/// is left of them is the numbers that declarations name.
#pragma once

#include "core/orv_budget.h"

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <utility>

namespace ORV_3_30 {

class DwarfReader;
class DwarfUnit;

/// Each table is read once, however many units share it. Guarded by its owner.
class DeclaredFiles {
public:
    DeclaredFiles();
    ~DeclaredFiles();

    struct File {
        std::string path;
        std::uint64_t modificationTime = 0;
        std::uint64_t length = 0;
    };
    /// The file that a unit knows by a number. False for a number that no file has, and where texts have become too
    /// dear.
    bool find(DwarfUnit const& unit, std::uint64_t number, File& out);

private:
    class Table;
    Table const& tableOf(DwarfUnit const& unit);

    std::map<std::pair<DwarfReader const*, std::uint64_t>, std::unique_ptr<Table>> m_tables; ///< By file and offset.
    /// Tables that do not lie in one another have no more than so many.
    std::map<DwarfReader const*, Budget> m_entries;
};

} // namespace ORV_3_30
