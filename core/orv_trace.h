// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// What happens inside is told to one log4cplus logger named "ORV".
///
///     status_t SymbolManager::load(char const* name) {
///         ORV_TRACE("load");                            // "ENTER: load" here, "EXIT:  load" on return
///         ORV_TRACE_INPUT("load", "name", name);        // "load: [IN] name = ..."
///         if (!ORV_ASSERT(name != nullptr, "name")) return status_InvalidArg;
///         ORV_ERROR("could not open file");             // ..., at file: manager/x.cpp:12
///
/// An assertion stops nothing: it reports, and gives the condition back. Its text is a part of the
/// log's contract, so it is written out rather than taken from the source.
#pragma once

#include <new>
#include <sstream>
#include <string>

namespace ORV_3_30::trace {

enum Level : int { level_Trace = 0, level_Debug = 10000, level_Info = 20000, level_Warn = 30000, level_Error = 40000 };

/// True if a record of that level would reach somebody. Without a configured appender it is false,
/// so that a tool that has configured no logging hears nothing, complaints included.
bool enabled(Level level);
/// Decides whether records of a level and those below are wanted, for as long as it lives and on its thread: for work
/// that would ask for each of many thousands.
class DecidedOnce {
public:
    explicit DecidedOnce(Level level);
    ~DecidedOnce();
    DecidedOnce(DecidedOnce const&) = delete;
    DecidedOnce& operator=(DecidedOnce const&) = delete;

private:
    int m_before;
};

void write(Level level, std::string const& message, char const* file, int line);
/// Writes the message with ", at file: " and the place behind it.
void report(Level level, std::string const& message, char const* file, int line);
void reportAssertion(char const* condition, char const* file, int line);

/// Writes "ENTER: " and "EXIT:  " records round a scope.
class MethodTrace {
public:
    MethodTrace(char const* name, char const* file, int line) : m_name(name), m_file(file), m_line(line) {
        m_isTraced = note("ENTER: ");
    }
    ~MethodTrace() {
        if (m_isTraced) {
            note("EXIT:  ");
        }
    }
    MethodTrace(MethodTrace const&) = delete;
    MethodTrace& operator=(MethodTrace const&) = delete;

private:
    /// Without memory for the record there is no record: it must not end the operation, least of all
    /// on its way out. False if nobody listens.
    bool note(char const* what) const noexcept {
        try {
            if (!enabled(level_Trace)) {
                return false;
            }
            write(level_Trace, std::string(what) + m_name, m_file, m_line);
        } catch (...) { // NOLINT(bugprone-empty-catch)
        }
        return true;
    }

    char const* m_name;
    char const* m_file;
    int m_line;
    bool m_isTraced = false;
};

inline bool verify(bool holds, char const* condition, char const* file, int line) {
    if (!holds) {
        reportAssertion(condition, file, line);
    }
    return holds;
}

} // namespace ORV_3_30::trace

#define ORV_TRACE(name) ::ORV_3_30::trace::MethodTrace const orvMethodTrace((name), __FILE__, __LINE__)

// NOLINTBEGIN(bugprone-macro-parentheses): a stream expression must stand bare.
// As in MethodTrace, a record that there is no memory for is dropped.
#define ORV_LOG_AS(how, level, stream)                                                                                 \
    do {                                                                                                               \
        try {                                                                                                          \
            if (::ORV_3_30::trace::enabled(level)) {                                                                   \
                std::ostringstream orvMessage;                                                                         \
                orvMessage << stream;                                                                                  \
                ::ORV_3_30::trace::how(level, orvMessage.str(), __FILE__, __LINE__);                                   \
            }                                                                                                          \
        } catch (std::bad_alloc const&) {                                                                              \
        }                                                                                                              \
    } while (false)

// NOLINTEND(bugprone-macro-parentheses)

#define ORV_TRACE_INPUT(operation, parameter, value)                                                                   \
    ORV_LOG_AS(write, ::ORV_3_30::trace::level_Trace, (operation) << ": [IN] " << (parameter) << " = " << (value))
#define ORV_DEBUG(stream) ORV_LOG_AS(write, ::ORV_3_30::trace::level_Debug, stream)
#define ORV_INFO(stream) ORV_LOG_AS(write, ::ORV_3_30::trace::level_Info, stream)
#define ORV_WARN(stream) ORV_LOG_AS(report, ::ORV_3_30::trace::level_Warn, stream)
#define ORV_ERROR(stream) ORV_LOG_AS(report, ::ORV_3_30::trace::level_Error, stream)

#define ORV_ASSERT(condition, text) ::ORV_3_30::trace::verify(static_cast<bool>(condition), (text), __FILE__, __LINE__)
