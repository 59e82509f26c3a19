// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
// The join of source lines and code offsets over the instructions that both name: binary search for each pair.
#include "gpu/orv_gpu_join.h"

#include "core/orv_trace.h"

#include <algorithm>

namespace ORV_3_30 {
namespace {

/// Leaves one line for each instruction, in place. False where they go down.
bool makeUnique(std::vector<VexLineEntry>& lines) {
    std::size_t last = 0;
    for (std::size_t i = 1; i < lines.size(); ++i) {
        if (lines[i].address < lines[last].address) {
            return false;
        }
        if (lines[i].address > lines[last].address) {
            lines[++last] = lines[i];
        } else if (lines[i].line != lines[last].line) {
            ORV_WARN("QDC DBG Line Info: MIRA instruction "
                     << lines[i].address << " pointed to different source lines: " << lines[last].line << ", "
                     << lines[i].line);
        }
    }
    lines.resize(last + 1);
    return true;
}

bool doOffsetsGrow(InstructionMap const& map) {
    auto const isNotAbove = [](auto const& before, auto const& behind) { return behind.second <= before.second; };
    return std::adjacent_find(map.begin(), map.end(), isNotAbove) == map.end();
}

/// The first line stands also for what lies ahead of it, but where it is the only one; null then.
VexLineEntry const* lineOf(std::vector<VexLineEntry> const& unique, std::uint32_t instruction) {
    auto const behind = std::upper_bound(unique.begin() + 1, unique.end(), instruction,
                                         [](std::uint32_t i, VexLineEntry const& line) { return i < line.address; });
    VexLineEntry const& found = *std::prev(behind);
    return behind != unique.end() || found.address <= instruction ? &found : nullptr;
}

} // namespace

bool areInterleaved(std::vector<VexLineEntry> const& miraLineInfo) {
    return !std::is_sorted(miraLineInfo.begin(), miraLineInfo.end(),
                           [](VexLineEntry const& a, VexLineEntry const& b) { return a.address < b.address; });
}

status_t joinLines(std::vector<VexLineEntry> miraLineInfo, InstructionMap const& isaLineInfo,
                   std::vector<VexLineEntry>& out) {
    if (!ORV_ASSERT(!isaLineInfo.empty(), "isaLineInfoSize > 0") ||
        !ORV_ASSERT(!miraLineInfo.empty(), "miraLineInfoSize > 0") || !makeUnique(miraLineInfo) ||
        !doOffsetsGrow(isaLineInfo)) {
        return status_Fail;
    }
    out.reserve(out.size() + std::min(miraLineInfo.size(), isaLineInfo.size()));
    VexLineEntry const* previous = nullptr;
    for (auto const& [instruction, offset] : isaLineInfo) {
        VexLineEntry const* const line = lineOf(miraLineInfo, instruction);
        if (line != nullptr && line != previous) {
            out.push_back({offset, line->line, line->column, line->fileId});
        }
        previous = line;
    }
    return status_Ok;
}

} // namespace ORV_3_30
