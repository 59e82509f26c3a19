// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// A sign of life for people while something takes long.
#pragma once

#include <future>
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
    static void show(std::string const& what, std::future<void> const& end);

    std::thread m_thread;
    std::promise<void> m_end;
};

} // namespace orv_cli
