// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// The units of a loader as clients and symbols see them, and the numbers by which a symbol table knows entries.
#pragma once

#include "dwarf/orv_dwarf_details.h"

#include <memory>
#include <mutex>
#include <unordered_map>
#include <vector>

namespace ORV_3_30 {

class DwarfReader;

/// Made in the first load, and those of a supplementary file when somebody asks, on any thread: a file that many
/// programs share has many units, of which one needs few. All live as long as the loader.
class UnitViews {
public:
    /// Makes those of the loader's own file.
    void open(DWARFDebugInfoLoader& loader);
    bool empty() const { return m_units.empty(); }
    /// Of the loader's own file, by offset.
    std::vector<SymMgrObjectPtr<DWARFCompilationUnit>> const& units() const { return m_units; }
    DWARFCompilationUnit& of(DwarfUnit& unit);

    /// A number for an entry; the offset for those of the loader's own file.
    std::uint64_t tokenOf(DwarfPlace const& place) const;
    /// The entry that it is the number of.
    DwarfPlace placeOf(std::uint64_t token) const;

private:
    using View = SymMgrObjectPtr<DWARFCompilationUnit>;

    DWARFDebugInfoLoader* m_loader = nullptr;
    std::vector<View> m_units;
    std::mutex m_lock;
    std::unordered_map<DwarfUnit const*, View> m_supplement;
};

} // namespace ORV_3_30
