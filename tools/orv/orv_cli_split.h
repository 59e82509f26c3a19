// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// Files of split units that the library has looked for in vain, as its log has them.
#pragma once

#include "orv_cli_module.h"

#include <log4cplus/logger.h>

#include <string>

namespace orv_cli {

/// Listens while it lives, unless the log goes to standard error anyway.
class MissingSplitFiles {
public:
    explicit MissingSplitFiles(CommonOptions const& options);
    ~MissingSplitFiles();
    MissingSplitFiles(MissingSplitFiles const&) = delete;
    MissingSplitFiles& operator=(MissingSplitFiles const&) = delete;

    /// Says on standard error what was missing for a module, if anything was.
    void tell(std::string const& module);

private:
    class Listener;

    CommonOptions const& m_options;
    log4cplus::SharedAppenderPtr m_listener; ///< Null: none.
    int m_levelBefore = log4cplus::NOT_SET_LOG_LEVEL;
};

} // namespace orv_cli
