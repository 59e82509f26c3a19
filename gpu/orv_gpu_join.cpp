// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
// The join of source lines and code offsets over the instructions that both name: a galloping search for each pair.
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

/// The line that each instruction belongs to. Instructions go up, by and large: each search begins where the last one
/// has ended, in steps that double.
class LineSearch {
public:
    explicit LineSearch(std::vector<VexLineEntry> const& unique) : m_lines(unique) {}

    /// The first line stands also for what lies ahead of it, but where it is the only one; null then.
    VexLineEntry const* lineOf(std::uint32_t instruction) {
        auto const isBehind = [&](VexLineEntry const& line) { return line.address > instruction; };
        std::size_t begin = isBehind(m_lines[m_behind - 1]) ? 1 : m_behind;
        std::size_t end = begin;
        for (std::size_t step = 1; end < m_lines.size() && !isBehind(m_lines[end]); step *= 2) {
            begin = end + 1;
            end += step;
        }
        auto const at = [&](std::size_t index) { return m_lines.begin() + static_cast<std::ptrdiff_t>(index); };
        auto const found = std::partition_point(at(begin), at(std::min(end, m_lines.size())),
                                                [&](VexLineEntry const& line) { return !isBehind(line); });
        m_behind = static_cast<std::size_t>(found - m_lines.begin());
        VexLineEntry const& line = m_lines[m_behind - 1];
        return m_behind < m_lines.size() || !isBehind(line) ? &line : nullptr;
    }

private:
    std::vector<VexLineEntry> const& m_lines;
    std::size_t m_behind = 1; ///< The first line, from the second on, that begins behind the last instruction.
};

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
    LineSearch search(miraLineInfo);
    VexLineEntry const* previous = nullptr;
    for (auto const& [instruction, offset] : isaLineInfo) {
        VexLineEntry const* const line = search.lineOf(instruction);
        if (line != nullptr && line != previous) {
            out.push_back({offset, line->line, line->column, line->fileId});
        }
        previous = line;
    }
    return status_Ok;
}

} // namespace ORV_3_30
