// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
#include "format/orv_elf_helper.h"
#include "format/orv_unpack.h"
#include "support/orv_pack.h"
#include "support/orv_test_support.h"

#include <random>

using namespace orv_test;

namespace {

constexpr std::uint32_t k_zlib = 1;
constexpr std::uint32_t k_zstd = 2;
std::string const k_cannot = "this build can't read";

/// Text of a small alphabet, which packs to some half.
std::string someText(std::size_t size) {
    std::mt19937 random(1);
    std::string text(size, '\0');
    for (char& c : text) {
        c = static_cast<char>('a' + random() % 16);
    }
    return text;
}

ElfBuilder program(ElfClass elfClass = ElfClass::Elf64) {
    ElfBuilder elf(elfClass);
    elf.load(PF_R | PF_X, 0x400000, 0x1000);
    elf.section(".text", SHT_PROGBITS, SHF_ALLOC | SHF_EXECINSTR, 0x400200, std::string(0x200, '\x90'));
    return elf;
}

/// A section's bytes; "(none)" for those that can't be taken out.
std::string bytesOf(ISectionData& data) {
    std::string const bytes(reinterpret_cast<char*>(data.data()), data.size());
    EXPECT_EQ(data.data()[data.size()], 0) << "strings end with the section";
    EXPECT_TRUE(!data.isStillPacked() || bytes.empty());
    return data.isStillPacked() ? "(none)" : bytes;
}

std::string unpackedBy(reading_t reading, ElfClass elfClass, std::string const& section) {
    TempDir const dir;
    ElfBuilder elf = program(elfClass);
    std::uint32_t const index = elf.section(".debug_info", SHT_PROGBITS, SHF_COMPRESSED, 0, section);
    SymMgrObjectPtr<ElfHelper> const helper(
        new ElfHelper(IModuleImage::create(dir.file("m", elf.bytes()).c_str(), arch_Unknown, false), reading));
    SymMgrObjectPtr<ISectionData> const data(new ElfSectionData(index, helper.get()));
    return bytesOf(*data);
}

std::string unpackedFlagged(std::string const& section) {
    SectionBytes out;
    Unpacked const result = uncompressFlaggedSection(reinterpret_cast<unsigned char const*>(section.data()),
                                                     section.size(), true, reading_Modern, out);
    EXPECT_EQ(out.bytes != nullptr, result == Unpacked::Done);
    return result == Unpacked::Done ? std::string(reinterpret_cast<char*>(out.bytes.get()), out.size) : "(none)";
}

/// Each beginning, and each byte changed: what comes out is all or nothing.
template <typename Unpack>
void spoil(std::string const& name, std::string const& packed, std::string const& content, Unpack const& unpack) {
    ASSERT_EQ(unpack(packed), content) << name;
    for (std::size_t i = 0; i < packed.size(); ++i) {
        EXPECT_EQ(unpack(packed.substr(0, i)), "(none)") << name << " cut at " << i;
        std::string changed = packed;
        changed[i] = static_cast<char>(changed[i] ^ (1 << i % 8));
        std::string const out = unpack(changed);
        EXPECT_TRUE(out == "(none)" || out == content) << name << " changed at " << i;
    }
}

} // namespace

TEST(Unpack, FlaggedSectionsByReading) {
    std::string const content = someText(5000);
    std::string const zlib = zlibOf(content);
#ifdef ORV_HAS_ZSTD
    std::string const zstd = zstdOf(content);
    std::string const half = zstdOf(content.substr(0, 2500));
    std::string const halves = half + zstdOf(content.substr(2500));
    std::string const older = half + "\x27\xB5\x2F\xFD" + half.substr(4); // the magic of a forerunner
    std::string const fromZstd = content;
    std::string const why = "compressed by zstd, and damaged";
#else
    std::string const zstd = "a stream", halves = zstd, older = zstd;
    std::string const fromZstd = "(none)";
    std::string const why = "compressed by zstd, which " + k_cannot;
#endif
    constexpr std::uint64_t k_lie = ~0ULL / 2;
    for (ElfClass const elfClass : {ElfClass::Elf32, ElfClass::Elf64}) {
        struct {
            char const* name;
            std::string section;
            std::string classic; ///< What comes out; empty: the bytes as they are.
            std::string modern;
            std::string log; ///< Of the modern reading.
        } const rows[] = {
            {"zlib", flagged(elfClass, k_zlib, 5000, zlib), content, content, ""},
            {"zlib, a larger size", flagged(elfClass, k_zlib, 6000, zlib), content, content, ""},
            {"zlib, a smaller size", flagged(elfClass, k_zlib, 4999, zlib), "", "(none)", "zlib, and damaged"},
            {"zlib, cut", flagged(elfClass, k_zlib, 5000, zlib.substr(0, 20)), "", "(none)", "zlib, and damaged"},
            {"zstd", flagged(elfClass, k_zstd, 5000, zstd), "", fromZstd, fromZstd == content ? "" : why},
            {"zstd, two frames", flagged(elfClass, k_zstd, 5000, halves), "", fromZstd, fromZstd == content ? "" : why},
            {"zstd, a larger size", flagged(elfClass, k_zstd, 6000, zstd), "", fromZstd,
             fromZstd == content ? "" : why},
            {"zstd, a smaller size", flagged(elfClass, k_zstd, 4999, zstd), "", "(none)", why},
            {"zstd, size 0", flagged(elfClass, k_zstd, 0, zstd), "", "(none)", why},
            {"zstd, a size beyond reason", flagged(elfClass, k_zstd, k_lie, zstd), "", "(none)", why},
            {"zstd, something behind it", flagged(elfClass, k_zstd, 5000, zstd + "."), "", "(none)", why},
            {"zstd, a forerunner's frame", flagged(elfClass, k_zstd, 5000, older), "", "(none)", why},
            {"type 7", flagged(elfClass, 7, 5000, zlib), "", "(none)", "by a method that is not known, 7"},
            {"a cut header", flagged(elfClass, k_zlib, 5000, "").substr(0, 8), "", "(none)", "zlib, and damaged"},
            {"three bytes", "abc", "", "(none)", "too short"},
        };
        for (auto const& row : rows) {
            EXPECT_EQ(unpackedBy(reading_Classic, elfClass, row.section),
                      row.classic.empty() ? row.section : row.classic)
                << row.name;
            LogCapture log(40000);
            EXPECT_EQ(unpackedBy(reading_Modern, elfClass, row.section), row.modern) << row.name;
            EXPECT_EQ(log.count("Section .debug_info in file "), row.log.empty() ? 0U : 1U) << row.name;
            std::string const last = log.messages().empty() ? "" : log.messages().back();
            EXPECT_NE(last.find(row.log), std::string::npos) << row.name << ": " << last;
        }
    }
}

TEST(Unpack, SpoiledStreamsGiveAllOrNothing) {
    std::string const content = someText(600);
    // A change of the size alone, of the alignment or of what is reserved, does no harm.
    auto const behindHeader = [&](std::uint32_t type) {
        return [&content, type](std::string const& stream) {
            return unpackedFlagged(flagged(ElfClass::Elf64, type, content.size(), stream));
        };
    };
    spoil("zlib", zlibOf(content), content, behindHeader(k_zlib));
#ifdef ORV_HAS_ZSTD
    spoil("zstd", zstdOf(content), content, behindHeader(k_zstd));
#endif
#ifdef ORV_HAS_LZMA
    spoil("xz", xzOf(content), content, [](std::string const& stream) {
        SectionBytes out;
        Unpacked const result = unpackXz(reinterpret_cast<unsigned char const*>(stream.data()), stream.size(), out);
        return result == Unpacked::Done ? std::string(reinterpret_cast<char*>(out.bytes.get()), out.size) : "(none)";
    });
#endif
#if !defined(ORV_HAS_ZSTD) || !defined(ORV_HAS_LZMA)
    GTEST_SKIP() << "zstd or xz: not built in";
#endif
}

TEST(Unpack, RoomGrowsWithWhatComesOut) {
    // What packs a thousandfold takes several rooms; sizes about their borders.
    for (std::size_t const size : {std::size_t{0}, std::size_t{1}, std::size_t{1} << 16, (std::size_t{1} << 16) + 1,
                                   (std::size_t{1} << 18) + 17, (std::size_t{1} << 24) - 1}) {
        std::string content = someText(std::min<std::size_t>(size, 300));
        content.resize(size, 'x');
#ifdef ORV_HAS_ZSTD
        EXPECT_TRUE(unpackedFlagged(flagged(ElfClass::Elf64, k_zstd, size, zstdOf(content))) == content) << size;
#endif
#ifdef ORV_HAS_LZMA
        std::string const xz = xzOf(content, 0);
        SectionBytes out;
        ASSERT_EQ(unpackXz(reinterpret_cast<unsigned char const*>(xz.data()), xz.size(), out), Unpacked::Done) << size;
        EXPECT_TRUE(std::string(reinterpret_cast<char*>(out.bytes.get()), out.size) == content) << size;
#endif
    }
}

TEST(Unpack, WhatWouldExhaustMemoryIsRefused) {
    constexpr std::size_t k_most = std::size_t{1} << 26;
    ASSERT_EQ(mostUnpacked(100), k_most);
    ASSERT_EQ(mostUnpacked(k_most), k_most * 1032);
#ifdef ORV_HAS_ZSTD
    // Blocks of four bytes that stand for 128 KiB each: a frame header without a size, and a window of 128 KiB.
    auto const blocks = [](unsigned int count) {
        std::string frame = "\x28\xB5\x2F\xFD" + std::string(1, '\0') + "\x38";
        for (unsigned int i = 0; i < count; ++i) {
            ElfBuilder::put(frame, (1U << 17) << 3 | 1U << 1 | (i + 1 == count ? 1 : 0), 3);
            frame += 'z';
        }
        return frame;
    };
    std::string const few = unpackedFlagged(flagged(ElfClass::Elf64, k_zstd, std::uint64_t{511} << 17, blocks(511)));
    EXPECT_EQ(few.size(), std::size_t{511} << 17);
    EXPECT_EQ(unpackedFlagged(flagged(ElfClass::Elf64, k_zstd, std::uint64_t{513} << 17, blocks(513))), "(none)");
    EXPECT_EQ(unpackedFlagged(flagged(ElfClass::Elf64, k_zstd, k_most, blocks(513))), "(none)");
#endif
#ifdef ORV_HAS_LZMA
    std::string xz = xzOf(std::string(k_most + 1, 'z'), 0);
    SectionBytes out;
    auto const unpack = [&] { return unpackXz(reinterpret_cast<unsigned char const*>(xz.data()), xz.size(), out); };
    EXPECT_EQ(unpack(), Unpacked::Damaged) << "a byte too many";
    // A dictionary larger than any preset's.
    lzma_options_lzma options;
    ::lzma_lzma_preset(&options, 0);
    options.dict_size = 1U << 28;
    lzma_filter filters[] = {{LZMA_FILTER_LZMA2, &options}, {LZMA_VLI_UNKNOWN, nullptr}};
    xz.assign(1000, '\0');
    std::size_t size = 0;
    std::uint8_t const text[] = "text";
    ASSERT_EQ(::lzma_stream_buffer_encode(filters, LZMA_CHECK_CRC32, nullptr, text, sizeof(text),
                                          reinterpret_cast<std::uint8_t*>(xz.data()), &size, xz.size()),
              LZMA_OK);
    xz.resize(size);
    EXPECT_EQ(unpack(), Unpacked::Damaged);
#endif
}

TEST(Unpack, ADamagedSectionHasAStatusAndSymbolsAnswer) {
    TempDir const dir;
    ElfBuilder elf = program();
    elf.section(".debug_info", SHT_PROGBITS, SHF_COMPRESSED, 0, flagged(ElfClass::Elf64, 7, 100, "packed"));
    elf.symbol("f", STB_GLOBAL, STT_FUNC, 0x400200, 0x20);
    std::string const path = dir.file("m", elf.bytes());
    Reading const modern(reading_Modern);
    auto const bank = bankOf(path);
    SymMgrObjectPtr<ISymbolRange> range;
    EXPECT_EQ(bank->symbolRangeByAddress(addressIn(*bank, 0x400200).get(), range, k_allKinds, nullptr),
              status_BadFileFormat);
    EXPECT_EQ(symbolAt(*bank, 0x400200), "f@400200+32");
}

// --- The file of symbols in .gnu_debugdata

namespace {

/// A stripped program with "exported" in .dynsym.
std::string stripped(std::string const& packed, ElfClass elfClass = ElfClass::Elf64, bool isRelocatable = false) {
    ElfBuilder elf = program(elfClass);
    elf.type = isRelocatable ? ET_REL : ET_EXEC;
    elf.section(".gnu_debugdata", SHT_PROGBITS, 0, 0, packed);
    elf.dynamicSymbols = true;
    elf.symbol("exported", STB_GLOBAL, STT_FUNC, 0x400200, 0x20);
    return elf.bytes();
}

constexpr char k_exported[] = "exported[4194816,4194848)";

#ifdef ORV_HAS_LZMA

/// What is packed in it, with sections that have no bytes.
ElfBuilder packedFile(ElfClass elfClass = ElfClass::Elf64) {
    ElfBuilder elf(elfClass);
    elf.section(".text", SHT_NOBITS, SHF_ALLOC | SHF_EXECINSTR, 0x400200, "", 0x200);
    elf.symbol("hidden", STB_LOCAL, STT_FUNC, 0x400240, 0x20);
    elf.symbol("exported", STB_GLOBAL, STT_FUNC, 0x400200, 0x20);
    elf.symbol("elsewhere", STB_GLOBAL, STT_FUNC, 0x500000, 0x20);
    return elf;
}

constexpr char k_both[] = "exported[4194816,4194848) hidden[4194880,4194912)";

#endif

} // namespace

#ifndef ORV_HAS_LZMA

TEST(PackedSymbols, AreNamedWhereTheyCantBeRead) {
    Reading const modern(reading_Modern);
    TempDir const dir;
    LogCapture log(40000);
    EXPECT_EQ(symbolsOf(*bankOf(dir.file("m", stripped("packed")))), k_exported);
    ASSERT_FALSE(log.messages().empty());
    EXPECT_NE(log.messages().back().find("it is compressed by xz, which " + k_cannot), std::string::npos);
}

#else

TEST(PackedSymbols, AnswerWhereATableIsMissing) {
    std::string const good = packedFile().bytes();
    ElfBuilder other = packedFile();
    other.machine = EM_ARM;
    ElfBuilder withoutTable;
    withoutTable.section(".text", SHT_NOBITS, SHF_ALLOC, 0x400200, "", 0x200);
    // Section headers stand at the end: .symtab, .strtab, .shstrtab, of 64 bytes each.
    auto const changed = [&](std::size_t fromEnd, char value) {
        std::string bytes = good;
        bytes[bytes.size() - fromEnd] = value;
        return bytes;
    };
    constexpr std::size_t k_table = 192;
    constexpr std::size_t k_strings = 128;
    struct {
        char const* name;
        std::string packed;
        std::string expected;
        char const* log;
    } const rows[] = {
        {"good", xzOf(good), k_both, nullptr},
        {"something behind it", xzOf(good) + std::string(5, '\0'), k_both, nullptr},
        {"of 32 bits", xzOf(packedFile(ElfClass::Elf32).bytes()), k_exported, "no ELF file for the same machine"},
        {"of another machine", xzOf(other.bytes()), k_exported, "no ELF file for the same machine"},
        {"no ELF file", xzOf("text"), k_exported, "no ELF file for the same machine"},
        {"headers behind the end", xzOf(good.substr(0, good.size() - 1)), k_exported,
         "no ELF file for the same machine"},
        {"no table", xzOf(withoutTable.bytes()), k_exported, "has no symbol table"},
        {"a compressed table", xzOf(changed(k_table - 9, SHF_COMPRESSED >> 8)), k_exported, "has no symbol table"},
        {"compressed names", xzOf(changed(k_strings - 9, SHF_COMPRESSED >> 8)), k_exported, "has no symbol table"},
        {"a table behind the end", xzOf(changed(k_table - 26, 1)), k_exported, "has no symbol table"},
        {"names in no section", xzOf(changed(k_table - 40, 99)), k_exported, "has no symbol table"},
        {"names that are none", xzOf(changed(k_strings - 4, SHT_PROGBITS)), k_exported, "has no symbol table"},
        {"not packed", good, k_exported, "no xz stream"},
    };
    TempDir const dir;
    for (auto const& row : rows) {
        std::string const path = dir.file("m", stripped(row.packed));
        EXPECT_EQ(symbolsOf(*bankOf(path)), k_exported) << row.name << ", by the classic reading";
        Reading const modern(reading_Modern);
        LogCapture log(30000);
        EXPECT_EQ(symbolsOf(*bankOf(path)), row.expected) << row.name;
        EXPECT_EQ(log.count("Section .gnu_debugdata in file " + path + " can't be read: "),
                  row.log != nullptr ? 1U : 0U);
        EXPECT_TRUE(row.log == nullptr || log.messages().back().find(row.log) != std::string::npos) << row.name;
    }
}

TEST(PackedSymbols, AreOnlyTakenWhereTheyBelong) {
    Reading const modern(reading_Modern);
    TempDir const dir;
    std::string const packed = xzOf(packedFile().bytes());
    LogCapture log(30000);
    ElfBuilder whole = program();
    whole.section(".gnu_debugdata", SHT_PROGBITS, 0, 0, packed);
    whole.symbol("own", STB_GLOBAL, STT_FUNC, 0x400280, 0x20);
    EXPECT_EQ(symbolsOf(*bankOf(dir.file("whole", whole.bytes()))), "own[4194944,4194976)");
    EXPECT_EQ(symbolsOf(*bankOf(dir.file("m.o", stripped(packed, ElfClass::Elf64, true)))), k_exported);
    std::string const narrow = xzOf(packedFile(ElfClass::Elf32).bytes());
    EXPECT_EQ(symbolsOf(*bankOf(dir.file("narrow", stripped(narrow, ElfClass::Elf32)))), k_both);
    EXPECT_TRUE(log.messages().empty());
    // One that reaches behind the end is none, and the file stays good.
    ElfBuilder cut = program();
    cut.section(".gnu_debugdata", SHT_PROGBITS, 0, 0, packed, 0x10000);
    cut.dynamicSymbols = true;
    cut.symbol("exported", STB_GLOBAL, STT_FUNC, 0x400200, 0x20);
    EXPECT_EQ(symbolsOf(*bankOf(dir.file("cut", cut.bytes()))), k_exported);
}

TEST(PackedSymbols, SpoiledOnesLeaveTheOthers) {
    Reading const modern(reading_Modern);
    TempDir const dir;
    // Both what is packed and the file in it, whose bytes no checksum guards then.
    std::string const inner = packedFile().bytes();
    std::string const packed = xzOf(inner);
    for (std::size_t i = 0; i < std::max(packed.size(), inner.size()); ++i) {
        std::vector<std::string> spoiled;
        if (i < packed.size()) {
            spoiled.push_back(packed.substr(0, i == 0 ? 1 : i));
            spoiled.push_back(packed);
            spoiled.back()[i] = static_cast<char>(spoiled.back()[i] ^ 0x10);
        }
        if (i < inner.size()) {
            std::string changed = inner;
            changed[i] = static_cast<char>(~changed[i]);
            spoiled.push_back(xzOf(changed, 0));
        }
        for (std::string const& bytes : spoiled) {
            std::string const symbols = symbolsOf(*bankOf(dir.file("m", stripped(bytes)), load_flags_NewLoader));
            EXPECT_NE(symbols.find(k_exported), std::string::npos) << i;
        }
    }
}

#endif
