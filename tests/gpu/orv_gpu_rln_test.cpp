// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// Program files of the RLN compiler: what is one, what it says of each kernel, and what is said of broken ones.

#include "gpu/orv_dilvex_rln_utils.h"
#include "support/orv_program_file.h"

using namespace orv_test;

namespace {

using Parser = SymMgrObjectPtr<IVexDebugInfoParser>;

// Offsets in the header.
constexpr std::size_t k_stringTableSize = 12;
constexpr std::size_t k_fileTableBlockSize = 20;
constexpr std::size_t k_numberOfKernels = 36;
constexpr std::size_t k_kernelDataCount = 40;
constexpr std::size_t k_strings = 44;

Parser parserOf(std::string const& bytes) {
    Parser parser;
    rln_utils::createRlnParser(parser, blockOf(bytes).get());
    return parser;
}

using Answer = LinesAnswer;
Answer linesOf(std::string const& bytes, std::string const& kernel) {
    return askForLines([&] { return parserOf(bytes); }, kernel);
}

constexpr char k_boundOfStrings[] = "(size_t)((uint8_t*)strings - (uint8_t*)m_header) <= m_debugInfo->size()";
constexpr char k_boundOfTable[] = "(size_t)(strings - stringTableEncoding) <= m_header->StringTableSize";
constexpr char k_boundOfEntry[] =
    "(size_t)((uint8_t*)(lineTableEntry + 1) - 1 - (uint8_t*)m_header) <= m_debugInfo->size()";

/// Two kernels with lines and one without a record.
constexpr char k_text[] = "dirs /src\nfiles unknown.cl foo.h\nkernels first second none\n"
                          "record 0\n0 3 1 0\n16 4 2 1\nrecord 1\n0 16 7 0\n0x20 0xFFFFFF 255 1\n0x30 1 0 0\n";

} // namespace

TEST(RlnFile, IsToldByTheFieldsOfItsHeader) {
    EXPECT_EQ(rln_utils::headerSize(), 44U);
    struct {
        char const* field;
        std::size_t offset;
        std::uint32_t value;
        bool isTaken;
    } const cases[] = {
        {"signature", 0, 0, true},
        {"formatVersion", 4, 1020, true},
        {"formatVersion", 4, 1019, false},
        {"formatVersion", 4, 0xFFFFFFFF, true},
        {"limitA", 24, 1024, true},
        {"limitA", 24, 1025, false},
        {"limitB", 28, 1024, true},
        {"limitB", 28, 1025, false},
        {"powerOfTwoField", 32, 0, true},
        {"powerOfTwoField", 32, 1, true},
        {"powerOfTwoField", 32, 3, false},
        {"powerOfTwoField", 32, 1024, true},
        {"powerOfTwoField", 32, 2048, false},
        {"NumberOfKernels", k_numberOfKernels, 1024, true},
        {"NumberOfKernels", k_numberOfKernels, 1025, false},
        {"NumberOfKernels", k_numberOfKernels, 1, false}, // below kernelDataCount
        {"kernelDataCount", k_kernelDataCount, 3, true},
        {"kernelDataCount", k_kernelDataCount, 4, false},
    };
    std::string const header = rlnFile(k_text).substr(0, 44);
    for (auto const& c : cases) {
        EXPECT_EQ(rln_utils::canParse(blockOf(withWord(header, c.offset, c.value)).get()), c.isTaken)
            << c.field << ' ' << c.value;
    }
    EXPECT_FALSE(rln_utils::canParse(blockOf(header.substr(0, 43)).get()));
    EXPECT_FALSE(rln_utils::canParse(nullptr));
    EXPECT_FALSE(parserOf(withWord(rlnFile(k_text), 4, 1019)));
}

TEST(RlnFile, GivesKernelsFilesAndLines) {
    Parser const parser = parserOf(rlnFile(k_text));
    ASSERT_TRUE(parser);
    std::vector<std::string> names{"before"};
    EXPECT_EQ(parser->kernelCount(), 3U);
    EXPECT_EQ(parser->kernelNames(names), status_Ok);
    EXPECT_EQ(textOf(names), "before first second none");
    for (char const* const kernel : {"first", "no kernel"}) {
        std::vector<std::string> files;
        EXPECT_EQ(parser->sourceFiles(kernel, files), status_Ok);
        EXPECT_EQ(textOf(files), "unknown.cl foo.h") << kernel;
    }
    struct {
        char const* kernel;
        status_t status;
        char const* lines;
    } const cases[] = {
        {"first", status_Ok, "0:3:1:0 16:4:2:1"},
        {"second", status_Ok, "0:16:7:0 32:16777215:255:1 48:1:0:0"},
        {"none", status_NotFound, ""},
        {"unknown.cl", status_NotFound, ""},
        {"", status_InvalidArg, ""},
    };
    for (auto const& c : cases) {
        Answer const answer = linesOf(rlnFile(k_text), c.kernel);
        EXPECT_EQ(answer.status, c.status) << c.kernel;
        EXPECT_EQ(answer.lines, c.lines) << c.kernel;
        EXPECT_EQ(answer.said, std::vector<std::string>()) << c.kernel;
    }
}

TEST(RlnFile, SaysWhichTestFailsWhereTheFileIsCut) {
    CheckedBytes const file = checkedRlnFile(k_text);
    for (std::size_t size = 0; size <= file.bytes().size(); ++size) {
        Answer const answer = linesOf(file.bytes().substr(0, size), "second");
        if (size < k_strings) {
            EXPECT_EQ(answer.said, std::vector<std::string>()) << size;
            EXPECT_EQ(answer.status, status_NotInitialized) << size;
            continue;
        }
        EXPECT_EQ(answer.said, file.saidOf(size)) << size;
        if (answer.status != status_NotInitialized) {
            EXPECT_EQ(answer.status, size == file.bytes().size() ? status_Ok : status_BadFileFormat) << size;
        }
        EXPECT_EQ(answer.lines.empty(), size != file.bytes().size()) << size;
    }
}

TEST(RlnFile, TestsRecordsInTheirOrder) {
    std::string const three = "kernels a b c\n";
    std::string const lines = "0 1 0 0\n8 2 0 0\n16 3 0 0\n";
    struct {
        char const* name;
        std::string text;
        char const* kernel;
        status_t status;
        char const* lines;
        std::vector<std::string> said;
    } const cases[] = {
        {"goes down, but not below its place",
         three + "record 2\n0 1 0 0\nrecord 1\n0 2 0 0\n",
         "b",
         status_Ok,
         "0:2:0:0",
         {}},
        {"below its place",
         three + "record 1\n0 1 0 0\nrecord 0\n0 2 0 0\n",
         "a",
         status_BadFileFormat,
         "",
         {"i <= kernelDataHeader->KernelIndex"}},
        {"found ahead of what is wrong",
         three + "record 1\n0 1 0 0\nrecord 0\n0 2 0 0\n",
         "b",
         status_Ok,
         "0:1:0:0",
         {}},
        {"no such kernel",
         three + "record 3\n0 1 0 0\n",
         "a",
         status_BadFileFormat,
         "",
         {"kernelDataHeader->KernelIndex < m_header->NumberOfKernels"}},
        {"two of one name", "kernels a a\nrecord 0\n0 1 0 0\nrecord 1\n0 2 0 0\n", "a", status_Ok, "0:1:0:0", {}},
        {"two records of one kernel", three + "record 1\n0 1 0 0\nrecord 1\n0 2 0 0\n", "b", status_Ok, "0:1:0:0", {}},
        {"no records", three, "a", status_NotFound, "", {}},
        {"no lines, with something behind", three + "record 0\nrecord 1\n0 1 0 0\n", "a", status_Ok, "", {}},
        {"no lines at the end", three + "record 0\n", "a", status_BadFileFormat, "", {k_boundOfEntry}},
        {"an empty name", "kernels a\nrecord 0\n" + lines, "", status_InvalidArg, "", {}},
    };
    for (auto const& c : cases) {
        Answer const answer = linesOf(rlnFile(c.text), c.kernel);
        EXPECT_EQ(answer.status, c.status) << c.name;
        EXPECT_EQ(answer.lines, c.lines) << c.name;
        EXPECT_EQ(answer.said, c.said) << c.name;
    }
}

/// Counts and sizes near 2^32 neither allocate nor lead out of the file.
TEST(RlnFile, DoesNotBelieveItsCounts) {
    std::string const file = rlnFile("dirs d\nfiles unknown.cl\nkernels k m\nrecord 0\n0 1 0 0\nrecord 1\n0 2 0 0\n");
    constexpr std::size_t k_stringsSize = sizeof("d\0unknown.cl\0k\0m");
    std::size_t const directories = k_strings + k_stringsSize;
    std::size_t const files = directories + 4;
    std::size_t const record = file.size() - 2 * 28;
    Answer const plain{status_Ok, "0:2:0:0", {}};
    struct {
        char const* name;
        std::string bytes;
        Answer expected;
    } const cases[] = {
        {"as it is", file, plain},
        {"a string more than the table has",
         withWord(file, directories, 2),
         {status_NotInitialized, "", {k_boundOfTable}}},
        {"a kernel more than the table has",
         withWord(file, k_numberOfKernels, 3),
         {status_NotInitialized, "", {k_boundOfTable}}},
        {"as many files as can be", withWord(file, files, 0xFFFFFF00), {status_NotInitialized, "", {k_boundOfStrings}}},
        {"as many directories as can be",
         withWord(file, directories, 0xFFFFFFFB),
         {status_NotInitialized, "", {k_boundOfStrings}}},
        // All counts together come to 4 again, and those ahead of the kernels to 2.
        {"counts that wrap", withWord(withWord(file, directories, 0xFFFFFFFF), files, 3), plain},
        {"a table that wraps",
         withWord(file, k_stringTableSize, 0xFFFFFFFF),
         {status_NotInitialized,
          "",
          {"(size_t)((uint8_t*)(m_dirTableHeader + 1) - 1 - (uint8_t*)m_header) <= "
           "m_debugInfo->size()"}}},
        {"records behind the file",
         withWord(file, k_fileTableBlockSize, 0xFFFFFFFF),
         {status_BadFileFormat,
          "",
          {"(size_t)((uint8_t*)(kernelDataHeader + 1) - 1 - (uint8_t*)m_header) <= "
           "m_debugInfo->size()"}}},
        {"a table of lines ahead that goes on",
         withWord(file, record + 12, 0xFFFFFFFF),
         {status_BadFileFormat,
          "",
          {"(size_t)((uint8_t*)(kernelDataHeader + 1) - 1 - (uint8_t*)m_header) <= "
           "m_debugInfo->size()"}}},
        {"a table of lines ahead that wraps", // in 32 bits it has 8 bytes
         withWord(file, record + 12, 0x15555556),
         {status_BadFileFormat,
          "",
          {"(size_t)((uint8_t*)(kernelDataHeader + 1) - 1 - (uint8_t*)m_header) <= "
           "m_debugInfo->size()"}}},
        {"its table of lines wraps", withWord(file, record + 28 + 12, 0x15555556), {status_BadFileFormat, "", {}}},
        {"its table of lines goes on", withWord(file, record + 28 + 12, 0xFFFFFFFF), {status_BadFileFormat, "", {}}},
        {"a line more than there is", withWord(file, record + 28 + 12, 2), {status_BadFileFormat, "", {}}},
    };
    for (auto const& c : cases) {
        Answer const answer = linesOf(c.bytes, "m");
        EXPECT_EQ(answer.status, c.expected.status) << c.name;
        EXPECT_EQ(answer.lines, c.expected.lines) << c.name;
        EXPECT_EQ(answer.said, c.expected.said) << c.name;
    }
}

/// Counts that wrap may leave fewer strings than there are kernels: the files are what is there, and no kernel has a
/// name.
TEST(RlnFile, MayHaveFewerStringsThanItSays) {
    std::string const file = rlnFile("files a\nkernels b\nrecord 0\n0 1 0 300\n");
    EXPECT_EQ(linesOf(file, "b").lines, "0:1:0:300");
    Parser const parser = parserOf(withWord(withWord(file, k_numberOfKernels, 4), k_strings + 4 + 4, 0xFFFFFFFE));
    ASSERT_TRUE(parser);
    std::vector<std::string> files{"before"};
    EXPECT_EQ(parser->sourceFiles("b", files), status_Ok);
    EXPECT_EQ(textOf(files), "before a b");
    std::vector<VexLineEntry> lines{{1, 2, 3, 4}};
    EXPECT_EQ(parser->lineInfo("a", lines), status_NotFound);
    EXPECT_EQ(parserOf(file)->lineInfo("b", lines), status_Ok);
    EXPECT_EQ(textOf(lines), "1:2:3:4 0:1:0:300"); // appended
}

/// A string may end where the file does, and not a byte further.
TEST(RlnFile, FindsTheEndOfItsStrings) {
    std::string const file = rlnFile("files f\nkernels k\n");
    std::size_t const files = k_strings + 4 + 4;
    std::size_t const zeros = file.size() - file.find("neither");
    std::string const behind = file.substr(0, file.find("neither"));
    for (auto const& [bytes, said] : {
             std::pair{behind + std::string(zeros, '\0'), k_boundOfTable},
             std::pair{behind + std::string(zeros, 'x'), k_boundOfStrings},
             std::pair{behind + std::string(zeros - 1, 'x') + '\0', k_boundOfTable},
         }) {
        // Behind the two names, the words of both counts make seven strings. The tenth is what lies behind them.
        Answer const answer = linesOf(withWord(bytes, files, 10 - 1), "k");
        EXPECT_EQ(answer.said, std::vector<std::string>{said});
    }
}

/// They are passed over by its number of lines, and the last one's is nobody's to miss.
TEST(RlnFile, PassesOverRecordsOfOtherKernels) {
    std::string const file = rlnFile("files unknown.cl\nkernels k m\nrecord 0\n0 1 0 0\nrecord 1\n0 2 0 0\n");
    std::string const longer = withWord(file, file.size() - 28 + 12, 0xFFFFFFFF);
    EXPECT_EQ(linesOf(longer, "k").lines, "0:1:0:0");
    EXPECT_EQ(linesOf(longer, "m").status, status_BadFileFormat);
    EXPECT_EQ(linesOf(longer, "n").status, status_NotFound);
    // Directories and files that come to more than 32 bits leave no name of a file, where the kernels' still stand.
    for (auto const& [directories, files] : {std::pair{0xFFFFFFFFU, 2U}, std::pair{2U, 0xFFFFFFFFU}}) {
        std::string const wrapped = withWord(withWord(file, 44 + 15, directories), 44 + 15 + 4, files);
        std::vector<std::string> none;
        EXPECT_EQ(parserOf(wrapped)->sourceFiles("m", none), status_Ok) << files;
        EXPECT_TRUE(none.empty()) << files;
        EXPECT_EQ(linesOf(wrapped, "m").lines, "0:2:0:0") << files;
    }
}
