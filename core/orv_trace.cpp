// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
// Log records and assertions, over log4cplus.
#include "core/orv_trace.h"

#include "platform/orv_log_setup.h"

#include <algorithm>
#include <log4cplus/logger.h>

namespace ORV_3_30::trace {
namespace {

log4cplus::Logger& logger() {
    static log4cplus::Logger instance = [] {
        vorplex_1::log::configureComponentLogger("ORV");
        return log4cplus::Logger::getInstance(LOG4CPLUS_TEXT("ORV"));
    }();
    return instance;
}

// Sets the logger up when the library is loaded.
log4cplus::Logger const& g_atLoadTime = logger();

/// Records up to this level were found to reach nobody.
thread_local int t_unwanted = -1;

bool reachesAnAppender() {
    log4cplus::Logger current = logger();
    while (current.getAllAppenders().empty()) {
        if (!current.getAdditivity() || current.getName() == log4cplus::Logger::getRoot().getName()) {
            return false;
        }
        current = current.getParent();
    }
    return true;
}

} // namespace

bool enabled(Level level) { return level > t_unwanted && logger().isEnabledFor(level) && reachesAnAppender(); }

DecidedOnce::DecidedOnce(Level level) : m_before(t_unwanted) {
    t_unwanted = enabled(level) ? m_before : std::max<int>(m_before, level);
}

DecidedOnce::~DecidedOnce() { t_unwanted = m_before; }

void write(Level level, std::string const& message, char const* file, int line) {
    logger().forcedLog(level, message, file, line);
}

void report(Level level, std::string const& message, char const* file, int line) {
    std::ostringstream record;
    record << message << ", at file: " << file << ':' << line;
    write(level, record.str(), file, line);
}

void reportAssertion(char const* condition, char const* file, int line) {
    try {
        if (enabled(level_Error)) {
            std::ostringstream message;
            message << "ASSERTION FAILED: '" << condition << "', at file: " << file << ':' << line << '\n';
            report(level_Error, message.str(), file, line);
        }
    } catch (std::bad_alloc const&) { // NOLINT(bugprone-empty-catch): as for any record
    }
}

} // namespace ORV_3_30::trace
