// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// Program files of the QDC compiler: what is one, both parts of a kernel, and what is said of broken ones.

#include "gpu/orv_dilvex_qdc_utils.h"
#include "support/orv_qdc_file.h"

using namespace orv_test;

namespace {

using Said = std::vector<std::string>;
using Parser = SymMgrObjectPtr<IVexDebugInfoParser>;

Parser parserOf(std::string const& bytes) {
    Parser parser;
    qdc_utils::createQdcParser(parser, blockOf(bytes).get(), "program.clpdb");
    return parser;
}

std::string kernelsOf(std::string const& bytes) {
    std::vector<std::string> names;
    Parser const parser = parserOf(bytes);
    return parser && parser->kernelNames(names) == status_Ok ? textOf(names) : "refused";
}

using Answer = LinesAnswer;
Answer linesOf(std::string const& bytes, std::string const& kernel = "k") {
    return askForLines([&] { return parserOf(bytes); }, kernel);
}

struct MapAnswer {
    status_t walked;
    status_t asked;
    std::string map; ///< "instruction,offset" of each pair.
    Said said;
};
MapAnswer mapOf(std::string const& blob, std::string const& kernel = "k") {
    LogCapture const log(log4cplus::WARN_LOG_LEVEL);
    SymMgrObjectPtr<IQdcDbgParser> parser;
    MapAnswer answer{createQdcDbgParser(parser, blockOf(blob).get()), status_NotInitialized, "", {}};
    InstructionMap map{{7, 7}}; // is cleared
    if (parser) {
        answer.asked = parser->instructionMap(kernel, map);
        for (auto const& [instruction, offset] : map) {
            answer.map += (answer.map.empty() ? "" : " ") + std::to_string(instruction) + ',' + std::to_string(offset);
        }
    }
    answer.said = saidIn(log);
    return answer;
}

/// One of everything that a blob may hold.
constexpr char k_everything[] =
    "kernel other 1\nfirst 2\nmap 1,1\nvar x 1\n"
    "kernel k\nfirst 1\nmap 2,16 5,32 0xFFFFFFFF,0xFFFFFFFE\nvar count 2\nvar i 0\nvar y 3\n"
    "sub helper 1\nsub g 0\nlive 2 - 1\nregs 1 0 2\nregs 3\n"
    "kernel bare\n";

std::string const& miraOf() {
    static std::string const image = miraImage("files unknown.cl\n0 1 3 1\n5 1 9 2\nend 8\n");
    return image;
}
std::string blobOf(std::string const& text = "kernel k\nmap 2,16 5,32 7,48\n") { return qdcBlob(text).bytes(); }

} // namespace

TEST(QdcFile, IsToldByTheFieldsOfItsHeader) {
    EXPECT_EQ(qdc_utils::headerSize(), 28U);
    struct {
        char const* field;
        std::size_t offset;
        std::uint32_t value;
        bool isTaken;
    } const cases[] = {
        {"signature", 0, 0, true},           {"formatVersion", 4, 1020, true},     {"formatVersion", 4, 1019, false},
        {"totalSize", 8, 0xFFFFFFFF, true},  {"limitA", 12, 1024, true},           {"limitA", 12, 1025, false},
        {"limitB", 16, 1024, true},          {"limitB", 16, 1025, false},          {"powerOfTwoField", 20, 0, true},
        {"powerOfTwoField", 20, 3, false},   {"powerOfTwoField", 20, 1024, true},  {"powerOfTwoField", 20, 2048, false},
        {"NumberOfKernels", 24, 1024, true}, {"NumberOfKernels", 24, 1025, false},
    };
    std::string const header = qdcFile({});
    for (auto const& c : cases) {
        EXPECT_EQ(qdc_utils::canParse(blockOf(withWord(header, c.offset, c.value)).get()), c.isTaken)
            << c.field << ' ' << c.value;
    }
    EXPECT_FALSE(qdc_utils::canParse(blockOf(header.substr(0, 27)).get()));
    EXPECT_FALSE(qdc_utils::canParse(nullptr));
    EXPECT_EQ(kernelsOf(header), "");
    EXPECT_EQ(kernelsOf(withWord(header, 4, 1019)), "refused");
    LogCapture const log(log4cplus::WARN_LOG_LEVEL);
    Parser none;
    qdc_utils::createQdcParser(none, nullptr, nullptr);
    EXPECT_FALSE(none);
    EXPECT_EQ(kernelsOf(header.substr(0, 27)), "refused");
    EXPECT_EQ(saidIn(log), (Said{"m_debugInfo", "(ptr - m_debugInfo->data()) + sizeof(SProgramDebugDataHeaderQDC) <= "
                                                "m_debugInfo->size()"}));
}

/// The room of a name is rounded up; behind it stand the parts.
TEST(QdcFile, RoundsTheRoomOfNamesUp) {
    for (std::uint32_t size = 0; size < 10; ++size) {
        std::string const name = std::string("abcdefghi").substr(0, size);
        std::string const file = qdcFile({{name, "mira", "isa", size}, {"z", "", "i"}});
        EXPECT_EQ(kernelsOf(file), size == 0 ? " z" : name + " z") << size;
        EXPECT_EQ(kernelsOf(qdcFile({{"n", "", "", size + 1}, {"z", "", ""}})), "n z")
            << size; // ends ahead of its room
    }
    // What wraps leaves no room either: the next record stands behind the header.
    for (std::uint32_t const size : {0xFFFFFFFDU, 0xFFFFFFFEU, 0xFFFFFFFFU}) {
        EXPECT_EQ(kernelsOf(withWord(qdcFile({{"", "", "", 0}, {"z", "", ""}}), 28, size)), " z") << size;
    }
    EXPECT_EQ(kernelsOf(withWord(qdcFile({{"", "", "", 0}, {"z", "", ""}}), 28, 0xFFFFFFFC)), "refused");
}

TEST(QdcFile, SaysWhichTestFailsWhereTheFileIsCut) {
    CheckedBytes const file = checkedQdcFile({{"first", "mira", "blob"}, {"k", "", "b"}, {"last", "m", ""}});
    for (std::size_t size = 28; size <= file.bytes().size(); ++size) {
        LogCapture const log(log4cplus::WARN_LOG_LEVEL);
        bool const isTaken = static_cast<bool>(parserOf(file.bytes().substr(0, size)));
        EXPECT_EQ(isTaken, size == file.bytes().size()) << size;
        EXPECT_EQ(saidIn(log), file.saidOf(size)) << size;
    }
    for (std::size_t const part : {32U, 36U}) { // near 2^32, in a record that nothing stands behind
        EXPECT_EQ(kernelsOf(withWord(qdcFile({{"k", "mira", "blob"}}), part, 0xFFFFFFFF)), "refused");
    }
}

TEST(QdcFile, TakesTheLastOfKernelsOfOneName) {
    std::string const file = qdcFile({{"k", "", ""}, {"k", miraOf(), blobOf()}});
    EXPECT_EQ(kernelsOf(file), "k");
    EXPECT_EQ(parserOf(file)->kernelCount(), 2U);
    EXPECT_EQ(linesOf(file).lines, "0:3:1:0 32:9:2:0");
    EXPECT_EQ(linesOf(file, "m").status, status_NotFound);
    std::vector<std::string> files;
    EXPECT_EQ(parserOf(file)->sourceFiles("m", files), status_NotFound);
}

TEST(QdcBlob, HasTheMapBehindWhatIsPassedOver) {
    std::string const map = "0,0 2,16 5,32 4294967295,4294967294";
    struct {
        char const* name;
        std::string text;
        char const* kernel;
        status_t asked;
        std::string map;
    } const cases[] = {
        {"everything", k_everything, "k", status_Ok, map},
        {"no map", k_everything, "bare", status_Ok, "0,0"},
        {"relocated", k_everything, "other", status_NotFound, ""},
        {"unknown", k_everything, "helper", status_NotFound, ""},
        {"no kernel at all", "", "k", status_Ok, ""},
        {"none that counts", "kernel k 0x80000000\nmap 1,1\n", "k", status_Ok, ""},
        {"the same name, relocated", "kernel k 1\nmap 1,1\nkernel k\nmap 2,2\n", "k", status_Ok, "0,0 2,2"},
    };
    for (auto const& c : cases) {
        MapAnswer const answer = mapOf(blobOf(c.text), c.kernel);
        EXPECT_EQ(answer.walked, status_Ok) << c.name;
        EXPECT_EQ(answer.asked, c.asked) << c.name;
        EXPECT_EQ(answer.map, c.map) << c.name;
        EXPECT_EQ(answer.said, Said()) << c.name;
    }
    SymMgrObjectPtr<IQdcDbgParser> parser;
    ASSERT_EQ(createQdcDbgParser(parser, blockOf(blobOf(k_everything)).get()), status_Ok);
    std::vector<std::string> names;
    EXPECT_EQ(parser->kernelNames(names), status_Ok);
    EXPECT_EQ(textOf(names), "bare k");
    EXPECT_EQ(parser->kernelCount(), 2U);
}

TEST(QdcBlob, SaysWhichTestFailsWhereItIsCut) {
    CheckedBytes const blob = qdcBlob(k_everything);
    for (std::size_t size = 0; size < blob.bytes().size(); ++size) {
        MapAnswer const answer = mapOf(blob.bytes().substr(0, size));
        EXPECT_EQ(answer.walked, status_BadFileFormat) << size;
        EXPECT_EQ(answer.said, size < 4 ? Said() : blob.saidOf(size)) << size;
    }
    for (std::uint32_t const magic : {0xDEADD011U, 0xDEADD012U, 0xDEADD110U, 0x5EADD010U}) {
        EXPECT_EQ(mapOf(withWord(blob.bytes(), 0, magic)).walked, status_BadFileFormat) << magic;
    }
    MapAnswer const twice = mapOf(blobOf("kernel k\nkernel k\n"));
    EXPECT_EQ(twice.walked, status_BadFileFormat);
    EXPECT_EQ(twice.said, Said{"m_kernels.count(kernel) == 0"});
}

/// Counts near their greatest end the walk, and neither allocate nor go on without bytes.
TEST(QdcBlob, DoesNotBelieveItsCounts) {
    std::string const blob = blobOf("kernel k\nmap 1,1\n");
    // Behind magic, count, length, name and relocation field: count; count, pair; variables.
    for (std::size_t const count : {12U, 16U, 28U}) {
        for (std::uint32_t const value : {0xFFFFFFFFU, 0x20000000U, 0x20000001U}) { // times 8 it wraps
            MapAnswer const answer = mapOf(withWord(blob, count, value));
            EXPECT_EQ(answer.walked, status_BadFileFormat) << count;
            EXPECT_FALSE(answer.said.empty()) << count;
        }
    }
    std::string kernels = blob;
    kernels[4] = kernels[5] = '\xFF';
    EXPECT_EQ(mapOf(kernels).walked, status_BadFileFormat);
}

/// As much as the fields hold: of more than 127 bytes of a name, 255 of anything, 64 KiB of elements of one kind.
TEST(QdcBlob, MayHoldALot) {
    std::string const name(255, 'n');
    std::string const behind = "kernel " + name + "\nmap 70000,0x10000 4294967295,0xFFFFFFFF\n";
    std::string manyKernels;
    std::string manyVariables;
    std::string manyRegisters = "regs";
    for (int i = 0; i < 300; ++i) {
        manyKernels += "kernel k" + std::to_string(i) + "\n";
        manyVariables += "var v 0\n";
        manyRegisters += " 1";
    }
    for (std::string const& ahead :
         {std::string("var x 6554\n"), std::string("sub x 6554\n"), std::string("live 4682 - 4682\n"),
          std::string("regs 7282\nregs 65535\n"), std::string("first 9000\n"), "var " + name + " 1\n", manyVariables,
          manyRegisters + "\n", manyKernels}) {
        MapAnswer const answer = mapOf(blobOf("kernel ahead\n" + ahead + behind), name);
        EXPECT_EQ(answer.map, "0,0 70000,65536 4294967295,4294967295") << ahead.substr(0, 20);
        EXPECT_EQ(answer.said, Said()) << ahead.substr(0, 20);
    }
}

TEST(QdcLines, SayWhatKeepsThemFromBeingJoined) {
    std::string const k_notOk = "status == status_Ok";
    std::string const twoFiles = miraImage("files unknown.cl a.h\n0 1 3 0\n2 2 1 0\n4 1 5 0\nend 6\n");
    std::string const noLines = miraImage("files unknown.cl\n");
    std::string const noPrograms = miraImage("files unknown.cl\nobjcopy --remove-section .debug_line\n");
    std::string const withBuildId = miraImage("buildid\nfiles unknown.cl\n0 1 3 1\nend 8\n");
    std::string const noDebugInfo = miraImage("files unknown.cl\nobjcopy --strip-debug\n");
    // Unit behind unit, whatever their addresses are; and from another address than 0, of which 32 bits are kept.
    std::string const twoUnits = "files unknown.cl\n0 1 3 1\nend 2\nunit\nfiles unknown.cl\n5 1 9 2\nend 8\n";
    std::string const unitsThatMix =
        miraImage("files unknown.cl\n0 1 3 1\n6 1 4 1\nend 8\nunit\nfiles unknown.cl\n3 1 9 2\nend 5\n");
    std::string const sameInstruction = miraImage("files unknown.cl\n0 1 3 1\n0 1 4 0\n5 1 9 2\nend 8\n");
    struct {
        char const* name;
        std::string mira;
        std::string isa;
        Answer expected;
    } const cases[] = {
        {"both parts", miraOf(), blobOf(), {status_Ok, "0:3:1:0 32:9:2:0", {}}},
        {"no ELF image", "text", blobOf(), {status_Fail, "", {k_notOk}}},
        {"nothing in its place", "", blobOf(), {status_Fail, "", {"false", k_notOk}}},
        {"no rows", noLines, blobOf(), {status_Fail, "", {"miraLineInfo.size() > 0"}}},
        {"no debug information", noDebugInfo, blobOf(), {status_Fail, "", {"miraLineInfo.size() > 0"}}},
        {"two units", miraImage(twoUnits), blobOf(), {status_Ok, "0:3:1:0 32:9:2:0", {}}},
        {"two units that mix", unitsThatMix, blobOf(), {status_Fail, "", {k_notOk}}},
        {"another base",
         miraImage("base 0x1000\n" + twoUnits),
         blobOf("kernel k\nmap 4096,16 4101,32\n"),
         {status_Ok, "0:3:1:0 32:9:2:0", {}}},
        {"a base beyond 32 bits",
         miraImage("base 0x100001000\n" + twoUnits),
         blobOf("kernel k\nmap 4096,16 4101,32\n"),
         {status_Ok, "0:3:1:0 32:9:2:0", {}}},
        {"no ELF image, and no blob", "text", "", {status_Fail, "", {k_notOk}}},
        {"no rows, and no such kernel", noLines, blobOf("kernel m\n"), {status_Fail, "", {"miraLineInfo.size() > 0"}}},
        {"no line programs", noPrograms, blobOf(), {status_NoDebugInfo, "", {k_notOk}}},
        {"a build id, whose file nobody looks for",
         withBuildId,
         blobOf(),
         {status_Fail, "", {"false", "m_imageBase >= elfHelper->getImageBase()", "miraLineInfo.size() > 0"}}},
        {"rows of a header between", twoFiles, blobOf(), {status_Fail, "", {k_notOk}}},
        {"two rows of one instruction",
         sameInstruction,
         blobOf(),
         {status_Ok,
          "0:3:1:0 32:9:2:0",
          {"QDC DBG Line Info: MIRA instruction 0 pointed to different source lines: 3, 4"}}},
        {"no blob", miraOf(), "", {status_BadFileFormat, "", {}}},
        {"another magic", miraOf(), withWord(blobOf(), 0, 1), {status_BadFileFormat, "", {}}},
        {"no such kernel in the blob", miraOf(), blobOf("kernel m\n"), {status_NotFound, "", {k_notOk}}},
        {"no kernel in the blob", miraOf(), blobOf(""), {status_Fail, "", {"isaLineInfo.size() > 0"}}},
        {"two of one name in the blob",
         miraOf(),
         blobOf("kernel k\nkernel k\n"),
         {status_BadFileFormat, "", {"m_kernels.count(kernel) == 0"}}},
        {"offsets that stay", miraOf(), blobOf("kernel k\nmap 1,0\n"), {status_Fail, "", {k_notOk}}},
    };
    for (auto const& c : cases) {
        Answer const answer = linesOf(qdcFile({{"k", c.mira, c.isa}}));
        EXPECT_EQ(answer.status, c.expected.status) << c.name;
        EXPECT_EQ(answer.lines, c.expected.lines) << c.name;
        EXPECT_EQ(answer.said, c.expected.said) << c.name;
    }
}

/// In the order of the ids that lines have, whether or not lines were asked for before. All is appended.
TEST(QdcLines, NameTheirFiles) {
    std::string const file =
        qdcFile({{"k", miraImage("files sub/a.h unknown.cl\n0 2 3 0\nend 6\n"), blobOf()},
                 {"m", miraOf(), blobOf("kernel m\nmap 1,1\n")},
                 {"none", "text", ""},
                 {"no programs", miraImage("files unknown.cl\nobjcopy --remove-section .debug_line\n"), ""},
                 {"no debug information", miraImage("objcopy --strip-debug\n"), ""}});
    auto const filesOf = [&](Parser const& parser, char const* kernel) {
        std::vector<std::string> files{"before"};
        status_t const status = parser->sourceFiles(kernel, files);
        return (status == status_Ok ? "" : toUString(status)) + textOf(files);
    };
    struct {
        char const* kernel;
        char const* files;
    } const cases[] = {{"k", "before sub/a.h unknown.cl"},
                       {"m", "before unknown.cl"},
                       {"none", "\"Unspecified error\"before"},
                       {"no programs", "before"},
                       {"no debug information", "before"}};
    Parser const asked = parserOf(file);
    std::vector<VexLineEntry> lines{{1, 2, 3, 4}};
    EXPECT_EQ(asked->lineInfo("k", lines), status_Ok);
    EXPECT_EQ(asked->lineInfo("m", lines), status_Ok);
    EXPECT_EQ(textOf(lines), "1:2:3:4 0:3:0:1 0:3:1:0");
    for (auto const& c : cases) {
        EXPECT_EQ(filesOf(parserOf(file), c.kernel), c.files) << c.kernel;
        EXPECT_EQ(filesOf(asked, c.kernel), c.files) << c.kernel;
    }
    EXPECT_EQ(asked->lineInfo("k", lines), status_Ok);
    EXPECT_EQ(filesOf(asked, "k"), cases[0].files);
    std::vector<std::string> names{"before"};
    EXPECT_EQ(asked->kernelNames(names), status_Ok);
    EXPECT_EQ(textOf(names), "before k m no debug information no programs none");
}

/// The image has the program file's name, so that what it names is beside that.
TEST(QdcLines, MayBeInACompanionBesideTheFile) {
    TempDir const dir;
    std::string const whole = dir.file("whole", miraOf());
    std::string const stripped = dir.path() + "/stripped";
    ASSERT_EQ(std::system(("cd " + dir.path() +
                           " && objcopy --only-keep-debug whole m.debug && objcopy --strip-debug "
                           "--add-gnu-debuglink=m.debug whole stripped")
                              .c_str()),
              0);
    std::ifstream in(stripped, std::ios::binary);
    std::string const file = qdcFile({{"k", {std::istreambuf_iterator<char>(in), {}}, blobOf()}});
    for (auto const& [name, expected] :
         {std::pair{dir.path() + "/p.clpdb", "0:3:1:0 32:9:2:0"}, std::pair{dir.path() + "/elsewhere/p.clpdb", ""}}) {
        Parser parser;
        qdc_utils::createQdcParser(parser, blockOf(file).get(), name.c_str());
        std::vector<VexLineEntry> lines;
        parser->lineInfo("k", lines);
        EXPECT_EQ(textOf(lines), expected) << name;
    }
}
