// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
#include "core/orv_trace.h"
#include "support/orv_test_support.h"

#include <log4cplus/hierarchy.h>
#include <log4cplus/nullappender.h>

using namespace orv_test;

TEST(Status, TextsAndTheHole) {
    struct {
        unsigned int value;
        char const* text;
    } const rows[] = {
        {0, "\"Operation succeeded\""},
        {1, "\"Operation succeeded and return logical FALSE\""},
        {2, "<Unknown status>"},
        {0x10000001, "\"Unspecified error\""},
        {0x10000006, "\"Invalid pointer\""},
        {0x1000000D, "\"File format is incorrect\""},
        {0x10000012, "\"Not found\""},
        {0x10000013, "<Unknown status>"},
        {0x10000014, "\"File was changed\""},
        {0x1000001A, "\"Unsupported version of file format\""},
        {0x1000001B, "<Unknown status>"},
    };
    for (auto const& row : rows) {
        EXPECT_STREQ(toUString(static_cast<status_t>(row.value)), row.text) << std::hex << row.value;
        std::ostringstream out;
        out << static_cast<status_t>(row.value);
        EXPECT_EQ(out.str(), row.text);
    }
}

TEST(Trace, RecordsHaveTheirForms) {
    LogCapture log;
    int line = 0;
    {
        ORV_TRACE("operation");
        ORV_TRACE_INPUT("operation", "rva", 12ULL);
        ORV_WARN("careful");
        line = __LINE__ + 1;
        EXPECT_FALSE(ORV_ASSERT(line == 0, "m_ffl"));
        EXPECT_TRUE(ORV_ASSERT(line != 0, "line"));
    }
    std::string const place = "tests/core/orv_trace_test.cpp:";
    std::string const at = ", at file: " + place + std::to_string(line);
    ASSERT_EQ(log.messages().size(), 5U);
    EXPECT_EQ(log.messages()[0], "ENTER: operation");
    EXPECT_EQ(log.messages()[1], "operation: [IN] rva = 12");
    EXPECT_EQ(log.messages()[2], "careful, at file: " + place + std::to_string(line - 2));
    EXPECT_EQ(log.messages()[3], "ASSERTION FAILED: 'm_ffl'" + at + '\n' + at) << "path and line stand twice";
    EXPECT_EQ(log.messages()[4], "EXIT:  operation");
}

TEST(Trace, BuildsNoTextForLevelsThatAreOff) {
    LogCapture log(trace::level_Error);
    int evaluations = 0;
    auto const text = [&] {
        ++evaluations;
        return "text";
    };
    ORV_TRACE("operation");
    ORV_WARN(text());
    EXPECT_EQ(evaluations, 0);
    ORV_ERROR(text());
    EXPECT_EQ(evaluations, 1);
    EXPECT_EQ(log.messages().size(), 1U);
}

/// A tool that has configured nothing hears nothing: not even that appenders are missing, also after
/// it has thrown its configuration away.
TEST(Trace, SilentWithoutConfiguration) {
    testing::internal::CaptureStderr();
    ORV_ERROR("nobody listens");
    log4cplus::Logger::getDefaultHierarchy().resetConfiguration();
    ORV_ERROR("still nobody");
    log4cplus::Logger tool = log4cplus::Logger::getInstance("tool");
    tool.addAppender(log4cplus::SharedAppenderPtr(new log4cplus::NullAppender));
    ORV_ERROR("somebody listens to something else");
    tool.removeAllAppenders();
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}
