// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// Lines that come in by standard input.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace orv_cli {

/// Lines in batches: as many as have come in. Output is flushed before we wait for more, so that
/// a tool may hold a conversation with us, and no more often than that.
class InputLines {
public:
    /// False at the end of the input. They are valid until the next call.
    bool next(std::vector<std::string_view>& lines);

private:
    void fill();

    std::string m_buffer;
    std::size_t m_position = 0;
    bool m_isAtEnd = false;
};

} // namespace orv_cli
