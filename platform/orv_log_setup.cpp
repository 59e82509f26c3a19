// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
// Leaves a logger as the tool has configured it.
#include "platform/orv_log_setup.h"

#include <log4cplus/initializer.h>
#include <log4cplus/logger.h>

namespace vorplex_1::log {

void configureComponentLogger(std::string const& name) {
    // The library may be loaded before the static initialisers of log4cplus have run.
    log4cplus::initialize();
    // Registers the name, so that configurations that walk the known loggers find it.
    log4cplus::Logger::getInstance(name);
}

} // namespace vorplex_1::log
