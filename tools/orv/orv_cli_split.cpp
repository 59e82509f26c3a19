// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
// Listens to the library's warnings of files of split units.
#include "orv_cli_split.h"

#include <log4cplus/appender.h>
#include <log4cplus/loglevel.h>
#include <log4cplus/spi/loggingevent.h>

namespace orv_cli {
namespace {

constexpr char k_warning[] = "Split debug information not found: ";
constexpr char k_end[] = ", unit ";

log4cplus::Logger logger() { return log4cplus::Logger::getInstance(LOG4CPLUS_TEXT("ORV")); }

} // namespace

class MissingSplitFiles::Listener final : public log4cplus::Appender {
public:
    ~Listener() override { destructorImpl(); }
    void close() override { closed = true; }

    std::string first;
    unsigned int count = 0;

protected:
    void append(log4cplus::spi::InternalLoggingEvent const& event) override {
        std::string const& text = event.getMessage();
        if (text.rfind(k_warning, 0) == 0) {
            std::size_t const begin = sizeof(k_warning) - 1;
            first = count == 0 ? text.substr(begin, text.rfind(k_end) - begin) : first;
            ++count;
        }
    }
};

MissingSplitFiles::MissingSplitFiles(CommonOptions const& options) : m_options(options) {
    if (options.logLevel == "off" && !options.quiet) {
        m_listener = log4cplus::SharedAppenderPtr(new Listener);
        m_levelBefore = logger().getLogLevel();
        logger().addAppender(m_listener);
        logger().setLogLevel(log4cplus::WARN_LOG_LEVEL);
    }
}

MissingSplitFiles::~MissingSplitFiles() {
    if (m_listener) {
        logger().removeAppender(m_listener);
        logger().setLogLevel(m_levelBefore);
    }
}

void MissingSplitFiles::tell(std::string const& module) {
    auto const* const listener = static_cast<Listener*>(m_listener.get());
    if (listener != nullptr && listener->count != 0) {
        std::string const others = listener->count > 1 ? " and " + std::to_string(listener->count - 1) + " more" : "";
        note(module + ": the debug information of units is in files of its own, which were not found: " +
                 listener->first + others + ": say where by --debug-root, or put them beside the module",
             m_options);
    }
}

} // namespace orv_cli
