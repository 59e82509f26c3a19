// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// Call frame information of a module, by address.
///
///     CallFrames frames;
///     frames.add(section, keeper);
///     FrameRule rule{};
///     unsigned int addrSize = 0;
///     if (frames.ruleAt(pc, search, rule, addrSize)) ...    // where the canonical frame address is
///
/// Filled once, in time near linear in the sections; then a question takes the reading of one function's entry.
#pragma once

#include "core/orv_budget.h"
#include "dwarf/orv_dwarf_frame_rows.h"
#include "orv/orv_object.h"

#include <memory>
#include <vector>

namespace ORV_3_30 {

/// Not changed once filled: any thread may ask.
class CallFrames {
public:
    /// Sections are asked in the order in which they come. keeper: keeps the bytes.
    void add(FrameSection const& section, std::shared_ptr<void const> keeper);

    /// The rule for the canonical frame address. False where nothing is known of pc. search: pays for the instructions.
    bool ruleAt(std::uint64_t pc, Budget& search, FrameRule& out, unsigned int& addrSize) const;

private:
    struct Function {
        std::uint64_t start;
        std::uint64_t end;
        std::uint64_t at; ///< The entry, in its section.
    };
    struct Part {
        FrameSection section;
        std::shared_ptr<void const> keeper;
        std::vector<Function> functions; ///< By address.
    };
    static void index(Part& part);
    static bool ruleIn(Part const& part, std::uint64_t pc, Budget& search, FrameRule& out, unsigned int& addrSize);

    std::vector<Part> m_parts;
};

} // namespace ORV_3_30
