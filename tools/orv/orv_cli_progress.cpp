// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
// A sign of life on a terminal while a load takes long.
#include "orv_cli_progress.h"

#include <chrono>
#include <cstdio>
#include <unistd.h>

namespace orv_cli {

Progress::Progress(std::string const& what) {
    if (::isatty(STDERR_FILENO) != 0) {
        m_thread = std::thread(show, what, m_end.get_future());
    }
}

Progress::~Progress() {
    if (m_thread.joinable()) {
        m_end.set_value();
        m_thread.join();
    }
}

void Progress::show(std::string const& what, std::future<void> const& end) {
    using namespace std::chrono_literals;
    if (end.wait_for(500ms) == std::future_status::ready) {
        return;
    }
    for (unsigned int tenths = 5;; tenths += 1) {
        std::fprintf(stderr, "\r%s: %u.%u s", what.c_str(), tenths / 10, tenths % 10);
        std::fflush(stderr);
        if (end.wait_for(100ms) == std::future_status::ready) {
            break;
        }
    }
    std::fputs("\r\033[K", stderr);
    std::fflush(stderr);
}

} // namespace orv_cli
