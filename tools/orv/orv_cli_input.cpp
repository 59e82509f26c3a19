// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
// Lines of standard input, by the block.
#include "orv_cli_input.h"

#include "orv_cli_output.h"

#include <cerrno>
#include <unistd.h>

namespace orv_cli {
namespace {

constexpr std::size_t k_chunkSize = std::size_t{1} << 18;

} // namespace

bool InputLines::next(std::vector<std::string_view>& lines) {
    lines.clear();
    m_buffer.erase(0, m_position);
    m_position = 0;
    for (std::size_t scanned = 0; m_buffer.find('\n', scanned) == std::string::npos && !m_isAtEnd;) {
        scanned = m_buffer.size();
        fill();
    }
    std::string_view const text(m_buffer);
    for (std::size_t end = text.find('\n'); end != std::string_view::npos; end = text.find('\n', m_position)) {
        lines.push_back(text.substr(m_position, end - m_position));
        m_position = end + 1;
    }
    if (m_isAtEnd && m_position < text.size()) {
        lines.push_back(text.substr(m_position));
        m_position = text.size();
    }
    return !lines.empty();
}

void InputLines::fill() {
    finishOutput();
    std::size_t const size = m_buffer.size();
    m_buffer.resize(size + k_chunkSize);
    ssize_t count = 0;
    do {
        count = ::read(STDIN_FILENO, m_buffer.data() + size, k_chunkSize);
    } while (count < 0 && errno == EINTR);
    m_buffer.resize(size + (count > 0 ? static_cast<std::size_t>(count) : 0));
    m_isAtEnd = count <= 0;
}

} // namespace orv_cli
