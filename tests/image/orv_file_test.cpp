// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
#include "image/orv_file.h"
#include "image/orv_path.h"
#include "support/orv_test_support.h"

#include <sys/stat.h>
#include <unistd.h>

using namespace orv_test;

TEST(File, ReadsToTheEndAndSaysSo) {
    TempDir const dir;
    EXPECT_EQ(File("").status(), fosInvalidArg);
    EXPECT_EQ(File((dir.path() + "/missing").c_str()).status(), fosNotFound);
    File file(dir.file("f", "12345").c_str());
    char buffer[8] = {};
    EXPECT_EQ(file.read(0, buffer), 0U);
    EXPECT_EQ(file.status(), fosOK);
    EXPECT_EQ(file.seek(3), 0);
    EXPECT_EQ(file.read(8, buffer), 2U);
    EXPECT_EQ(file.status(), fosShortRead);
    EXPECT_STREQ(buffer, "45");
    EXPECT_EQ(file.seek(0), 5) << "seek gives the position before the move";
    EXPECT_EQ(file.seek(-1), 0);
    EXPECT_EQ(file.status(), fosInvalidArg);
    File closed(nullptr);
    EXPECT_EQ(closed.status(), fosInvalidArg);
    EXPECT_EQ(closed.seek(1), -1);
    EXPECT_EQ(closed.read(1, buffer), k_fileError);
}

TEST(File, WritesAreAppendedOrPlaced) {
    TempDir const dir;
    std::string const path = dir.path() + "/w";
    {
        FileModifiable file(path.c_str(), true);
        EXPECT_TRUE(file.append(5, "hello"));
        EXPECT_TRUE(file.writeAt(1, 1, "a"));
        EXPECT_FALSE(file.writeAt(-1, 1, "a"));
        EXPECT_TRUE(file.append(1, "!"));
    }
    char buffer[7] = {};
    EXPECT_EQ(File(path.c_str()).read(6, buffer), 6U);
    EXPECT_STREQ(buffer, "hallo!");
    EXPECT_FALSE(FileModifiable((dir.path() + "/none").c_str(), false).append(1, "x"));
}

TEST(Path, ExistenceIsReadabilityAndNoDirectory) {
    TempDir const dir;
    EXPECT_TRUE(fileExists(dir.file("f", "").c_str()));
    EXPECT_FALSE(fileExists(dir.path().c_str()));
    EXPECT_FALSE(isDirectory(nullptr));
    EXPECT_FALSE(fileExists(nullptr));
    std::string const pipe = dir.path() + "/pipe";
    ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
    fileExists(pipe.c_str()); // must come back, though nobody writes to it
    // Copying does not extend the target, so that there is nothing to copy into.
    std::string const target = dir.path() + "/to";
    EXPECT_FALSE(copyFile(target.c_str(), dir.file("from", "bytes").c_str()));
    EXPECT_EQ(pathFileSize(target.c_str()), 0U);
}

TEST(Path, SamePathLooksThroughDetours) {
    std::string here;
    currentDirectory(here);
    EXPECT_TRUE(samePath("a/../b", (here + "./b").c_str()));
    EXPECT_FALSE(samePath("a", "b"));
    EXPECT_FALSE(samePath(nullptr, nullptr));
}

TEST(Path, RemovesDirectoriesAsFarAsItGoes) {
    TempDir const dir;
    std::string const top = dir.path() + "/top";
    EXPECT_EQ(makeDirectory(top.c_str()), fosOK);
    EXPECT_EQ(makeDirectory(top.c_str()), fosAlreadyExists);
    EXPECT_EQ(makeDirectory((top + "/a/b").c_str()), fosNotFound);
    EXPECT_EQ(makeDirectory((top + "/sub").c_str()), fosOK);
    EXPECT_TRUE(createEmptyFile((top + "/sub/file").c_str()));
    ASSERT_EQ(::symlink("/", (top + "/link").c_str()), 0);
    EXPECT_FALSE(removeDirectory(top.c_str(), false));
    EXPECT_TRUE(removeDirectory(top.c_str(), true)) << "a link to a directory goes as a link";
    EXPECT_FALSE(isDirectory(top.c_str()));
    EXPECT_FALSE(removeDirectory(top.c_str(), true));
}

TEST(ModuleImage, ReadsTheFileOrNothing) {
    LogCapture log(30000);
    EXPECT_FALSE(IModuleImage::create(nullptr, arch_Unknown, false));
    EXPECT_EQ(log.count("IModuleImage::create: wrong parameter. binFileName should not be empty, at file: "), 1U);

    char buffer[4] = {};
    SymMgrObjectPtr<IModuleImage> image = IModuleImage::create("", arch_Arm, false);
    ASSERT_TRUE(image) << "an empty name gives an image that reads nothing";
    EXPECT_EQ(image->read(0, 1, buffer), ~0ULL);

    TempDir const dir;
    image = IModuleImage::create(dir.file("m", "abcdef").c_str(), arch_Unknown, false);
    EXPECT_EQ(image->read(2, 3, buffer), 3U);
    EXPECT_STREQ(buffer, "cde");
    EXPECT_EQ(image->read(4, 3, buffer), 2U);
    EXPECT_EQ(image->read(~0ULL - 1, 1, buffer), ~0ULL);
    EXPECT_EQ(image->size(), 6U);
}
