// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
// Call frame information by address: one pass over both sections, then binary search (DWARF version 5, 6.4; LSB Core,
// "Exception Frames").
#include "dwarf/orv_dwarf_frame.h"

#include "core/orv_trace.h"

#include <algorithm>
#include <unordered_map>

namespace ORV_3_30 {
namespace {

constexpr std::uint64_t k_lengthField = 4;

} // namespace

void CallFrames::add(FrameSection const& section, std::shared_ptr<void const> keeper) {
    Part part{section, std::move(keeper), {}};
    index(part);
    m_parts.push_back(std::move(part));
}

void CallFrames::index(Part& part) {
    struct Known {
        bool isGood;
        FrameCommon common;
    };
    std::unordered_map<std::uint64_t, Known> commons;
    std::uint64_t unknown = 0;
    std::uint64_t at = 0;
    for (FrameEntry entry{}; nextFrameEntry(part.section, at, entry);) {
        if (entry.isCommon) {
            continue;
        }
        auto const [known, isNew] = commons.try_emplace(entry.common);
        if (isNew) {
            known->second.isGood = readCommon(part.section, entry.common, known->second.common);
        }
        FrameFunction function{};
        if (!known->second.isGood) {
            ++unknown;
        } else if (readFunction(part.section, entry, known->second.common, function)) {
            part.functions.push_back({function.start, function.end, entry.at});
        }
    }
    if (unknown != 0) {
        ORV_WARN("Call frames in a form that is not known: " << unknown);
    }
    if (part.section.bytes.size - at >= k_lengthField) {
        ORV_WARN("Call frame information breaks off at " << at);
    }
    std::stable_sort(part.functions.begin(), part.functions.end(),
                     [](Function const& a, Function const& b) { return a.start < b.start; });
}

bool CallFrames::ruleAt(std::uint64_t pc, Budget& search, FrameRule& out, unsigned int& addrSize) const {
    return std::any_of(m_parts.begin(), m_parts.end(),
                       [&](Part const& part) { return ruleIn(part, pc, search, out, addrSize); });
}

bool CallFrames::ruleIn(Part const& part, std::uint64_t pc, Budget& search, FrameRule& out, unsigned int& addrSize) {
    auto const after = std::upper_bound(part.functions.begin(), part.functions.end(), pc,
                                        [](std::uint64_t address, Function const& f) { return address < f.start; });
    if (after == part.functions.begin() || pc >= std::prev(after)->end) {
        return false;
    }
    std::uint64_t at = std::prev(after)->at;
    FrameEntry entry{};
    FrameCommon common{};
    FrameFunction function{};
    if (!nextFrameEntry(part.section, at, entry) || !readCommon(part.section, entry.common, common) ||
        !readFunction(part.section, entry, common, function)) {
        return false;
    }
    if (!search.spend((common.end - common.program) + (function.programEnd - function.program))) {
        return false;
    }
    addrSize = common.addrSize;
    if (!runFramePrograms(part.section, common, function, pc, out)) {
        ORV_WARN("Damaged call frame information for " << pc);
        return false;
    }
    return true;
}

} // namespace ORV_3_30
