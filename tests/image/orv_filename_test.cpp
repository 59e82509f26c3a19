// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
#include "image/orv_filename.h"
#include "image/orv_path.h"

#include <gtest/gtest.h>

using namespace ORV_3_30;

namespace {

std::string normalized(char const* path, int kind) {
    std::string out;
    Filename(path, kind, false).normalized(out);
    return out;
}

} // namespace

TEST(Filename, Normalizes) {
    struct {
        int kind;
        char const* path;
        char const* expected;
    } const rows[] = {
        {k_kindUnix, "/a/b/../c", "/a/c"},
        {k_kindUnix, "/a/./b", "/a/b"},
        {k_kindUnix, "/a/.", "/a/"},
        {k_kindUnix, "//a///b//", "/a/b/"},
        {k_kindUnix, "/..", ""},
        {k_kindUnix, "/a/../../b", ""},
        {k_kindUnix, "../a", "../a"},
        {k_kindUnix, "../../a/../b", "../../b"},
        {k_kindUnix, "a/../x", "./x"},
        {k_kindUnix, "/a/..", "/"},
        {k_kindUnix, "/", "/"},
        {k_kindUnix, "", ""},
        {k_kindUnix, "a\\b/c", "a\\b/c"},
        {k_kindUnix, "a/..x/b", "./b"},
        {k_kindUnix, "a/.x/b", "a/.x/b"},
        {k_kindWindows, "C:\\a/b\\..\\c", "C:\\a\\c"},
        {k_kindWindows, "C:\\..\\c", ""},
        {k_kindWindows, "a/./b/c.cpp", "a\\b\\c.cpp"},
        {k_kindWindows, "\\\\server\\share\\..\\x", "\\\\server\\x"},
    };
    for (auto const& row : rows) {
        EXPECT_EQ(normalized(row.path, row.kind), row.expected) << row.path;
    }
}

TEST(Filename, TakesPathsApart) {
    struct {
        int kind;
        char const* path;
        char const* directory;
        char const* name;
    } const rows[] = {
        {k_kindUnix, "b", "", "b"},
        {k_kindUnix, "/a/..", "/a/../", ""},
        {k_kindUnix, "/a/.b", "/a/", ".b"},
        {k_kindUnix, "/", "/", ""},
        {k_kindWindows, "C:\\a\\b", "C:\\a\\", "b"},
        {k_kindWindows, "C:b", "C:\\", "b"},
        {k_kindWindows, "\\\\s\\x", "\\\\s\\", "x"},
        {k_kindUnix, "C:\\a\\b", "", "C:\\a\\b"},
    };
    for (auto const& row : rows) {
        std::string directory;
        std::string name;
        Filename const path(row.path, row.kind, false);
        path.directory(directory);
        path.name(name);
        EXPECT_EQ(directory, row.directory) << row.path;
        EXPECT_EQ(name, row.name) << row.path;
    }
}

TEST(Filename, AbsoluteAndJoined) {
    EXPECT_TRUE(Filename("/", k_kindDefault, false).isAbsolute());
    EXPECT_FALSE(Filename("", k_kindUnix, false).isAbsolute());
    EXPECT_FALSE(Filename("\\\\", k_kindWindows, false).isAbsolute()) << "two characters are not yet a UNC path";
    EXPECT_TRUE(Filename("\\\\s", k_kindWindows, false).isAbsolute());

    std::string out;
    Filename("x/../y", k_kindUnix, false).absolute(out, "/base");
    EXPECT_EQ(out, "/base/y");
    Filename("/a/../b", k_kindUnix, false).absolute(out, "/base");
    EXPECT_EQ(out, "/b");
    out = "untouched";
    Filename("", k_kindUnix, false).absolute(out, "/base");
    EXPECT_EQ(out, "untouched");
    joinPath(out, "name", "");
    EXPECT_EQ(out, "name");

    EXPECT_EQ(Filename("a/", k_kindUnix, true).path(), "a/");
    EXPECT_EQ(Filename("a", k_kindUnix, true).path(), "a/");
    Filename unknown("/a", 9, true);
    unknown.append("b");
    EXPECT_EQ(unknown.path(), "") << "of no kind";
    EXPECT_NE(Filename("a", k_kindUnix, false), Filename("a", k_kindWindows, false));
}
