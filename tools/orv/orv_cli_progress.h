// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// A sign of life for people while something takes long.
#pragma once

#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>

namespace orv_cli {

/// Shows a line on standard error from half a second on, and takes it away at the end. Does nothing where
/// standard error is no terminal.
class Progress {
public:
    explicit Progress(std::string const& what);
    ~Progress();
    Progress(Progress const&) = delete;
    Progress& operator=(Progress const&) = delete;

private:
    void show(std::string const& what);

    std::thread m_thread;
    std::mutex m_lock;
    std::condition_variable m_ended;
    bool m_isEnded = false;
};

} // namespace orv_cli
