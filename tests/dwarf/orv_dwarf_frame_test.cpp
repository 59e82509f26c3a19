// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// Call frame information: against readelf, each encoding from text, and damaged.

#include "dwarf/orv_dwarf_frame.h"
#include "dwarf/orv_dwarf_frame_constants.h"
#include "format/orv_ffl.h"
#include "support/orv_assembler.h"

#include <array>
#include <cctype>
#include <map>
#include <random>

using namespace orv_test;

namespace {

/// The frames of one section of a file.
class FramesOf {
public:
    FramesOf(std::string const& path, section_role_t role, std::uint64_t dataBase = 0) {
        bool isElf = false;
        m_helper = openFileFormatHelper(path.c_str(), reading_Modern, isElf);
        m_helper->sectionData(m_data, role);
        SymMgrObjectPtr<ISection> header;
        if (m_data && m_data->data() != nullptr) {
            m_helper->sectionByIndex(header, m_data->sectionIndex());
            section = {{m_data->data(), m_data->size()}, header->address(), 0, dataBase, 8,
                       role == section_role_EhFrame};
            frames.add(section, nullptr);
        }
    }

    /// "7+8" for a register and an offset, "exp" for an expression, "-" for nothing.
    std::string at(std::uint64_t pc) const { return textAt(frames, pc); }
    static std::string textAt(CallFrames const& frames, std::uint64_t pc) {
        Budget search(nullptr, std::uint64_t{1} << 40);
        FrameRule rule{};
        unsigned int addrSize = 0;
        if (!frames.ruleAt(pc, search, rule, addrSize)) {
            return "-";
        }
        std::string const sign = rule.offset < 0 ? "" : "+";
        return rule.kind == FrameRule::kind_Expression
                   ? "exp"
                   : number(static_cast<long long>(rule.registerNumber)) + sign + number(rule.offset);
    }

    CallFrames frames;
    FrameSection section;

private:
    SymMgrObjectPtr<IFileFormatHelper> m_helper;
    SymMgrObjectPtr<ISectionData> m_data;
};

std::string outputOf(std::string const& command) {
    std::string text;
    FILE* const pipe = popen(command.c_str(), "r");
    std::array<char, 65536> block{};
    for (std::size_t count = 0; (count = fread(block.data(), 1, block.size(), pipe)) != 0;) {
        text.append(block.data(), count);
    }
    pclose(pipe);
    return text;
}

/// As readelf has the names of registers.
std::string numbered(std::string const& rule) {
    static std::map<std::string, int> const k_numbers = {
        {"rax", 0}, {"rdx", 1}, {"rcx", 2},  {"rbx", 3},  {"rsi", 4},  {"rdi", 5},  {"rbp", 6},  {"rsp", 7},
        {"r8", 8},  {"r9", 9},  {"r10", 10}, {"r11", 11}, {"r12", 12}, {"r13", 13}, {"r14", 14}, {"r15", 15}};
    std::size_t const sign = rule.find_first_of("+-");
    auto const found = k_numbers.find(rule.substr(0, sign));
    return found == k_numbers.end() ? rule : number(found->second) + rule.substr(sign);
}

/// Holds each row of each function against readelf's; returns how many there were.
int compareWithReadelf(std::string const& path, char const* dump, section_role_t role) {
    FramesOf const mine(path, role);
    std::istringstream lines(outputOf("readelf --debug-dump=frames-interp " + path + " 2>/dev/null"));
    bool isWanted = false;
    bool isFunction = false;
    std::uint64_t end = 0;
    std::string last;
    std::uint64_t lastStart = 0;
    int rows = 0;
    auto const check = [&](std::uint64_t until) {
        // Both ends of the row.
        for (std::uint64_t const pc : {lastStart, until - 1}) {
            if (!last.empty() && lastStart < until) {
                EXPECT_EQ(mine.at(pc), last) << path << " at " << std::hex << pc;
                ++rows;
            }
        }
        last.clear();
    };
    for (std::string line; std::getline(lines, line);) {
        if (line.find("Contents of the ") == 0) {
            isWanted = line.find(dump) != std::string::npos;
            continue;
        }
        std::size_t const stretch = line.find(" pc="); // of a function: "pc=START..END"
        bool const isShared = line.find(" CIE ") != std::string::npos;
        if (isShared || stretch != std::string::npos) {
            check(end);
            isFunction = isWanted && !isShared;
            std::size_t const dots = line.find("..", stretch);
            end = isFunction ? std::stoull(line.substr(dots + 2), nullptr, 16) : 0;
            // A function without a row of its own has that of what it shares.
            lastStart = isFunction ? std::stoull(line.substr(stretch + 4), nullptr, 16) : 0;
        } else if (isFunction && line.size() > 17 && std::isxdigit(line[0]) != 0 && line[16] == ' ') {
            std::uint64_t const start = std::stoull(line, nullptr, 16);
            check(start);
            lastStart = start;
            last = numbered(line.substr(17, line.find(' ', 17) - 17));
        }
    }
    check(end);
    return rows;
}

/// A module whose frames are told of by directives.
std::string withDirectives(std::string const& sections) {
    return ".cfi_sections " + sections + R"(
.text
.globl code
code:
.cfi_startproc
 nop
.cfi_def_cfa_offset 16
 push %rbp
.cfi_offset 6, -16
.cfi_def_cfa_register 6
.cfi_remember_state
 .fill 100, 1, 0x90
.cfi_def_cfa 7, 8
.cfi_undefined 3
.cfi_same_value 12
.cfi_register 13, 14
 .fill 300, 1, 0x90
.cfi_restore_state
.cfi_restore 6
.cfi_rel_offset 3, 8
 .fill 70000, 1, 0x90
.cfi_escape 0x0f, 3, 0x77, 8, 0x06
 nop
.cfi_escape 0x12, 7, 0x7c
.cfi_escape 0x10, 3, 2, 0x77, 0
.cfi_escape 0x16, 3, 2, 0x77, 0
.cfi_escape 0x2e, 16
 nop
.cfi_escape 0x13, 0x7e
 nop
.cfi_adjust_cfa_offset 24
 ret
.cfi_endproc
.fill 5, 1, 0xcc
.cfi_startproc simple
.cfi_def_cfa 12, 32
 nop
.cfi_endproc
.cfi_startproc
.cfi_signal_frame
.cfi_personality 0x1b, code
.cfi_lsda 0x1b, code
 nop
.cfi_def_cfa_offset 4096
 ret
.cfi_endproc
.fill 0x1000, 1, 0x90
)";
}

/// What functions share and one function, in .eh_frame, over [code + 0x10, code + 0x20) unless said otherwise.
struct ByteFrames {
    std::string letters = "zR";
    std::string augmentation = ".byte 0x1b\n"; ///< Behind the letters' length.
    std::string start = ".4byte code + 0x10 - .\n";
    std::string size = ".4byte 0x10\n";
    std::string program = ".byte 0x42, 0x0e, 16\n"; ///< From the second byte on 16, before it 8.
    std::string version = "1";
    std::string fields = ".byte 1, 0x78, 16\n";
    bool isWide = false;

    std::string source() const {
        bool const isAugmented = !letters.empty();
        std::string const wide = isWide ? ".4byte 0xffffffff\n.8byte " : ".4byte ";
        return ".text\n.globl code\ncode: .fill 0x1000, 1, 0x90\n.section .frames,\"a\",@progbits\n.Lcommon: " + wide +
               "2f - 1f\n1: .4byte 0\n.byte " + version + "\n.asciz \"" + letters + "\"\n" + fields +
               (isAugmented ? ".uleb128 4f - 3f\n3: " + augmentation + "4:\n" : "") + ".byte 0x0c, 7, 8\n2: " + wide +
               "6f - 5f\n5: .4byte 5b - .Lcommon\n" + start + size + (isAugmented ? ".byte 0\n" : "") + program +
               "6: .4byte 0\n";
    }
};

/// A module of those. The linker edits what has the section's name, so that it gets its name afterwards.
class ByteModule : public Assembled {
public:
    explicit ByteModule(ByteFrames const& frames) : Assembled(frames.source()) {
        edit("objcopy --rename-section .frames=.eh_frame");
    }
};

} // namespace

TEST(CallFrames, AgreeWithReadelf) {
    for (auto const& [sections, dump, role] : {std::tuple{".eh_frame", ".eh_frame", section_role_EhFrame},
                                               std::tuple{".debug_frame", ".debug_frame", section_role_DebugFrame}}) {
        Assembled const module(withDirectives(sections));
        EXPECT_GE(compareWithReadelf(module.path(), dump, role), 20) << sections;
    }
}

TEST(CallFrames, AgreeWithReadelfOnALibrary) {
    std::ifstream maps("/proc/self/maps");
    std::string path;
    for (std::string line; path.empty() && std::getline(maps, line);) {
        if (line.find("/libgcc_s.so") != std::string::npos) {
            path = line.substr(line.find('/'));
        }
    }
    ASSERT_NE(path, "");
    EXPECT_GE(compareWithReadelf(path, ".eh_frame", section_role_EhFrame), 1000);
}

TEST(CallFrames, EncodingsAndVersions) {
    struct Row {
        char const* name;
        ByteFrames frames;
        bool isKnown = true;
    };
    auto const encoded = [](char const* encoding, char const* start, char const* size) {
        ByteFrames frames;
        frames.augmentation = std::string(".byte ") + encoding + "\n";
        frames.start = start;
        frames.size = size;
        return frames;
    };
    auto const lettered = [](char const* letters, char const* augmentation) {
        ByteFrames frames;
        frames.letters = letters;
        frames.augmentation = augmentation;
        return frames;
    };
    auto const versioned = [](char const* version, char const* fields) {
        ByteFrames frames;
        frames.version = version;
        frames.fields = fields;
        return frames;
    };
    ByteFrames plain;
    plain.letters = "";
    plain.start = ".8byte code + 0x10\n";
    plain.size = ".8byte 0x10\n";
    ByteFrames wide;
    wide.isWide = true;
    char const* const here = ".4byte code + 0x10 - .\n";
    for (Row const& row : {
             Row{"relative to itself", {}},
             Row{"an address", encoded("0", ".8byte code + 0x10\n", ".8byte 0x10\n")},
             Row{"unsigned in two bytes", encoded("2", ".2byte code + 0x10\n", ".2byte 0x10\n")},
             Row{"unsigned in four", encoded("3", ".4byte code + 0x10\n", ".4byte 0x10\n")},
             Row{"unsigned in eight", encoded("4", ".8byte code + 0x10\n", ".8byte 0x10\n")},
             Row{"signed in two", encoded("0x0a", ".2byte code + 0x10\n", ".2byte 0x10\n")},
             Row{"signed in eight, relative to itself", encoded("0x1c", ".8byte code + 0x10 - .\n", ".8byte 0x10\n")},
             Row{"of any length", encoded("1", ".uleb128 0x1010\n", ".uleb128 0x10\n")},
             Row{"signed, of any length", encoded("9", ".sleb128 0x1010\n", ".sleb128 0x10\n")},
             Row{"relative to data", encoded("0x3b", ".4byte code + 0x10 - 0x500\n", ".4byte 0x10\n")},
             Row{"relative to text", encoded("0x2b", here, ".4byte 0x10\n"), false},
             Row{"relative to the function", encoded("0x4b", here, ".4byte 0x10\n"), false},
             Row{"aligned", encoded("0x50", ".8byte code + 0x10\n", ".8byte 0x10\n"), false},
             Row{"indirect", encoded("0x9b", here, ".4byte 0x10\n"), false},
             Row{"no such format", encoded("0x1d", here, ".4byte 0x10\n"), false},
             Row{"no size", encoded("0x1b", here, ".4byte 0\n"), false},
             Row{"nothing further", plain},
             Row{"a routine and data of its own", lettered("zPLR", ".byte 0x9b\n.4byte 0\n.byte 0x1b, 0x1b\n")},
             Row{"no routine", lettered("zPR", ".byte 0xff, 0x1b\n")},
             Row{"a signal's frame", lettered("zRS", ".byte 0x1b\n")},
             Row{"signed return addresses", lettered("zRB", ".byte 0x1b\n")},
             Row{"more than the letters say", lettered("zR", ".byte 0x1b, 1, 2, 3\n")},
             Row{"less than the letters say", lettered("zLR", ".byte 0x1b\n"), false},
             Row{"a letter that is not known", lettered("zQR", ".byte 0x1b, 0x1b\n"), false},
             Row{"letters without a length", lettered("eh", ".byte 0x1b\n"), false},
             Row{"version 3", versioned("3", ".byte 1, 0x78\n.uleb128 300\n")},
             Row{"version 4", versioned("4", ".byte 8, 0, 1, 0x78, 16\n")},
             Row{"version 4 with segments", versioned("4", ".byte 8, 4, 1, 0x78, 16\n"), false},
             Row{"version 4 of odd addresses", versioned("4", ".byte 3, 0, 1, 0x78, 16\n"), false},
             Row{"version 2", versioned("2", ".byte 1, 0x78, 16\n"), false},
             Row{"a number without an end", versioned("1", ".byte 1, 0x78, 16\n.fill 300, 1, 0x80\n"), false},
             Row{"a long length", wide},
         }) {
        ByteModule const module(row.frames);
        FramesOf const frames(module.path(), section_role_EhFrame, 0x500);
        EXPECT_EQ(frames.at(0x1011), row.isKnown ? "7+8" : "-") << row.name;
        EXPECT_EQ(frames.at(0x1012), row.isKnown ? "7+16" : "-") << row.name;
        EXPECT_EQ(frames.at(0x100F), "-") << row.name;
        EXPECT_EQ(frames.at(0x1020), "-") << row.name;
    }
}

TEST(CallFrames, InstructionsThatAreBroken) {
    struct Row {
        char const* name;
        char const* program;
        char const* wanted; ///< At the function's last byte.
    };
    for (Row const& row : {
             Row{"an address that is set", ".byte 1\n.4byte code + 0x18 - .\n.byte 0x0e, 24\n", "7+24"},
             Row{"one that leads back", ".byte 0x48, 1\n.4byte code + 0x14 - .\n.byte 0x0e, 24\n", "-"},
             Row{"one that breaks off", ".byte 1, 2\n", "-"},
             Row{"steps of each size", ".byte 2, 1, 3, 1, 0, 4, 1, 0, 0, 0, 0x1d, 1, 0, 0, 0, 0, 0, 0, 0, 0x0e, 24\n",
                 "7+24"},
             Row{"no such instruction", ".byte 0x3f\n", "-"},
             Row{"one behind the end of the rows", ".byte 0x50, 0x3f\n", "7+8"},
             Row{"what was never remembered", ".byte 0x0b\n", "-"},
             Row{"remembered too often", ".fill 65, 1, 0x0a\n", "-"},
             Row{"remembered often", ".fill 64, 1, 0x0a\n.byte 0x0e, 24, 0x0b\n", "7+8"},
             Row{"an offset of an expression", ".byte 0x0f, 1, 0x9c, 0x0e, 8\n", "-"},
             Row{"an expression that breaks off", ".byte 0x0f, 100, 0x9c\n", "-"},
             Row{"registers of all kinds",
                 ".byte 0x83, 1, 0xc3, 5, 3, 1, 6, 3, 7, 3, 8, 3, 9, 3, 4, 0x11, 3, 0x7f, 0x14, 3, 1, 0x15, 3, 0x7f, "
                 "0x2d, 0x2c, 0x2f, 3, 1, 0x10, 3, 1, 0x9c, 0x16, 3, 1, 0x9c, 0x0d, 6\n",
                 "6+8"},
         }) {
        ByteFrames frames;
        frames.program = row.program;
        ByteModule const module(frames);
        EXPECT_EQ(FramesOf(module.path(), section_role_EhFrame).at(0x101F), row.wanted) << row.name;
    }
}

TEST(CallFrames, DamageEndsWhereItIs) {
    // Two good functions; the second one's length leads out of the section.
    Assembled const module(withDirectives(".eh_frame"));
    FramesOf whole(module.path(), section_role_EhFrame);
    std::string const good(reinterpret_cast<char const*>(whole.section.bytes.data), whole.section.bytes.size);
    auto const askAll = [&](std::string const& bytes) {
        CallFrames frames;
        FrameSection section = whole.section;
        section.bytes = {reinterpret_cast<unsigned char const*>(bytes.data()), bytes.size()};
        frames.add(section, nullptr);
        std::string text;
        for (std::uint64_t pc = 0x1000; pc < 0x13000; pc += 0x1FF) {
            text += FramesOf::textAt(frames, pc);
        }
        return text;
    };
    std::string const wanted = askAll(good);
    LogCapture const log;
    for (std::size_t size = 0; size < good.size(); ++size) {
        askAll(std::string(good.data(), size));
    }
    EXPECT_GE(log.count("Call frame information breaks off at "), good.size() / 2);
    std::mt19937 random(7);
    int differ = 0;
    for (int i = 0; i < 4000; ++i) {
        std::string bytes = good;
        bytes[random() % bytes.size()] = static_cast<char>(random());
        differ += askAll(bytes) != wanted ? 1 : 0;
    }
    EXPECT_GE(differ, 400);
}

TEST(CallFrames, ManyOfThemAreIndexedOnce) {
    // Each of 100,000 functions shares with an entry of its own what nobody can read in full: letters without an end.
    std::string const shared = "\x40\0\0\0\0\0\0\0\1zzzzzzzz";
    std::string bytes = std::string("\xfc\xff\x0f\0\0\0\0\0\1", 9) + std::string((1 << 20) - 9, 'z');
    std::string const function("\x10\0\0\0", 4);
    for (std::uint32_t i = 0; i < 100000; ++i) {
        auto const distance = static_cast<std::uint32_t>(bytes.size() + 4);
        bytes += function;
        bytes.append(reinterpret_cast<char const*>(&distance), 4);
        bytes.append(12, '\1');
    }
    CallFrames frames;
    FrameSection section;
    section.bytes = {reinterpret_cast<unsigned char const*>(bytes.data()), bytes.size()};
    section.isForExceptions = true;
    LogCapture const log;
    frames.add(section, nullptr);
    EXPECT_EQ(log.count("Call frames in a form that is not known: 100000"), 1U);
    EXPECT_EQ(FramesOf::textAt(frames, 0x101010101010101), "-");
}

TEST(CallFrames, LongProgramsArePaidFor) {
    ByteFrames bytes;
    bytes.program = ".fill 100000, 1, 0\n";
    ByteModule const module(bytes);
    FramesOf const frames(module.path(), section_role_EhFrame);
    Budget search("instructions", 150000);
    FrameRule rule{};
    unsigned int addrSize = 0;
    EXPECT_TRUE(frames.frames.ruleAt(0x1010, search, rule, addrSize));
    EXPECT_FALSE(frames.frames.ruleAt(0x1010, search, rule, addrSize));
}
