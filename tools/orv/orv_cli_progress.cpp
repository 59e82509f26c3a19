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
        m_thread = std::thread([this, what] { show(what); });
    }
}

Progress::~Progress() {
    if (!m_thread.joinable()) {
        return;
    }
    {
        std::lock_guard<std::mutex> const guard(m_lock);
        m_isEnded = true;
    }
    m_ended.notify_one();
    m_thread.join();
}

void Progress::show(std::string const& what) {
    using namespace std::chrono_literals;
    std::unique_lock<std::mutex> guard(m_lock);
    if (m_ended.wait_for(guard, 500ms, [this] { return m_isEnded; })) {
        return;
    }
    for (unsigned int tenths = 5;; tenths += 1) {
        std::fprintf(stderr, "\r%s: %u.%u s", what.c_str(), tenths / 10, tenths % 10);
        std::fflush(stderr);
        if (m_ended.wait_for(guard, 100ms, [this] { return m_isEnded; })) {
            break;
        }
    }
    std::fputs("\r\033[K", stderr);
    std::fflush(stderr);
}

} // namespace orv_cli
