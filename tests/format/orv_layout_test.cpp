// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
#include "format/orv_elf_layout.h"
#include "format/orv_elf_relocations.h"
#include "format/orv_fflelf.h"
#include "support/orv_elf_builder.h"
#include "support/orv_modern.h"
#include "support/orv_test_support.h"

#include <algorithm>
#include <map>
#include <random>

using namespace orv_test;
using namespace std::string_literals;

namespace {

std::uint64_t const k_codeFlags = SHF_ALLOC | SHF_EXECINSTR;
std::uint64_t const k_dataFlags = SHF_ALLOC | SHF_WRITE;

SymMgrObjectPtr<ElfHelper> helperOf(std::string const& path, reading_t wanted = reading_Modern,
                                    ElfHelper const* module = nullptr) {
    return SymMgrObjectPtr<ElfHelper>(
        new ElfHelper(IModuleImage::create(path.c_str(), arch_Unknown, false), wanted, module));
}

ElfBuilder object(ElfClass elfClass = ElfClass::Elf64) {
    ElfBuilder elf(elfClass);
    elf.type = ET_REL;
    return elf;
}

std::string symbolsOf(std::string const& path) {
    return orv_test::symbolsOf(*bankOf(path, load_flags_NewLoader), k_allKinds);
}

std::string hex(unsigned long long value) {
    std::ostringstream text;
    text << std::hex << value;
    return text.str();
}

/// "name@address" of all sections that are loaded.
std::string placesOf(ElfHelper const& helper) {
    std::string text;
    for (unsigned int i = 0; i < helper.sectionCount(); ++i) {
        if ((helper.sectionHeader(i)->sh_flags & SHF_ALLOC) != 0) {
            text += (text.empty() ? "" : " ") + std::string(helper.sectionName(i)) + "@" +
                    hex(helper.sectionHeader(i)->sh_addr);
        }
    }
    return text;
}

/// A relocation of a section of zeroes, against a symbol whose value is 0x1234.
struct Patch {
    std::uint64_t type;
    std::uint64_t offset;
    std::uint64_t addend;
};

/// The bytes of a section after its relocations.
std::string relocated(TempDir const& dir, std::uint16_t machine, std::string bytes, std::vector<Patch> const& patches,
                      LogCapture const* log = nullptr) {
    ElfBuilder elf = object();
    elf.machine = machine;
    elf.section(".text", SHT_PROGBITS, k_codeFlags, 0, std::string(0x2000, 'x'));
    std::uint32_t const target = elf.section(".debug_info", SHT_PROGBITS, 0, 0, bytes);
    unsigned int const symbol = elf.symbol("", STB_LOCAL, STT_SECTION, 0x1234, 0, 1);
    std::string entries;
    for (Patch const& patch : patches) {
        entries += elf.relocation(true, patch.offset, symbol, patch.type, patch.addend);
    }
    elf.section(".rela", SHT_RELA, 0, 0, entries, 0, elf.symbolSection() + 1, target);
    SymMgrObjectPtr<ElfHelper> const helper = helperOf(dir.file("m.o", elf.bytes()));
    EXPECT_TRUE(helper->valid());
    SymMgrObjectPtr<ElfFileFormatHelper> const view(new ElfFileFormatHelper(helper.get()));
    for (int i = 0; i < (log != nullptr ? 2 : 1); ++i) { // a second time for what is said but once
        SymMgrObjectPtr<RelocationAddends> addends;
        view->relocations(addends, target);
        for (RelocationAddends::Entry const& entry : addends->entries()) {
            addends->apply(reinterpret_cast<unsigned char*>(bytes.data()), i == 0 ? bytes.size() : 0, entry);
        }
    }
    return bytes;
}

std::string fieldOf(std::uint64_t value, unsigned int width) {
    std::string text;
    ElfBuilder::put(text, value, width);
    return text;
}

} // namespace

TEST(Layout, EachLoadedSectionHasItsPlace) {
    TempDir const dir;
    Reading const modern(reading_Modern);
    for (ElfClass const elfClass : {ElfClass::Elf32, ElfClass::Elf64}) {
        ElfBuilder elf = object(elfClass);
        elf.section(".text", SHT_PROGBITS, k_codeFlags, 0, std::string(0x21, 't'));
        elf.section(".rel.text", SHT_REL, SHF_INFO_LINK, 0, "");
        std::uint32_t const init = elf.section(".init.text", SHT_PROGBITS, k_codeFlags, 0, std::string(0x40, 'i'));
        elf.align(init, 0x100);
        elf.section(".data", SHT_PROGBITS, k_dataFlags, 0x777, std::string(0x10, 'd')); // an address counts for nothing
        elf.section(".bss", SHT_NOBITS, k_dataFlags, 0, "", 0x100);
        elf.section(".rodata", SHT_PROGBITS, SHF_ALLOC, 0, std::string(8, 'r'));
        elf.section(".tdata", SHT_PROGBITS, k_dataFlags | SHF_TLS, 0, std::string(8, 'h'));
        elf.section(".comment", SHT_PROGBITS, 0, 0, "none");
        elf.symbol("f", STB_GLOBAL, STT_FUNC, 1, 0x20, 1);
        elf.symbol("init", STB_GLOBAL, STT_FUNC, 1, 0x3F, init);
        elf.symbol("beyond", STB_GLOBAL, STT_FUNC, 0x22, 0x10, 1);
        elf.symbol("d", STB_GLOBAL, STT_OBJECT, 8, 8, 4);
        elf.symbol("b", STB_GLOBAL, STT_OBJECT, 0xFF, 1, 5);
        elf.symbol("common", STB_GLOBAL, STT_OBJECT, 16, 4, SHN_COMMON);
        elf.symbol("remark", STB_LOCAL, STT_NOTYPE, 0x10000000, 0, 8);
        std::string const path = dir.file("m.ko", elf.bytes());
        EXPECT_EQ(placesOf(*helperOf(path)), ".text@10000000 .init.text@10000100 .data@10000150 .bss@10000170 "
                                             ".rodata@10000280 .tdata@10000290");
        EXPECT_EQ(symbolsOf(path), "f[268435457,268435489) init[268435713,268435776) d[268435800,268435808) "
                                   "b[268436079,268436080)");
        SymMgrObjectPtr<IFileFormatLoader> const loader = loaderOf(path);
        EXPECT_EQ(loader->preferredLoadAddress(), 0x10000000U);
        EXPECT_EQ(loader->imageSize(), 0x298U);
        std::string segments;
        for (unsigned int i = 0; ISegment* const segment = loader->segmentByIndex(i); ++i) {
            SymMgrObjectPtr<IIterator<SymMgrObjectPtr<ISection>>> inside;
            segment->sections(inside, false);
            segments += segment->name() + std::to_string(segment->type()) + "+" + hex(segment->rva());
            forEach(inside, [&](ISection& section) { segments += std::string("=") + section.name(); });
            segments += " ";
        }
        EXPECT_EQ(segments, ".text1+0=.text .init.text1+100=.init.text .data2+150=.data .bss2+170 "
                            ".rodata2+280=.rodata .tdata2+290=.tdata ");
        SymMgrObjectPtr<IAddress> address;
        ASSERT_EQ(loader->addressByValue(address, 0x10000103), status_Ok);
        SymMgrObjectPtr<IBuffer> byte;
        ASSERT_EQ(loader->readBytes(address->fileOffset(), 1, byte), status_Ok);
        EXPECT_EQ(byte->data()[0], 'i') << "where the file has it";
        EXPECT_NE(loader->addressByValue(address, 0x10000050), status_Ok) << "between two sections";
    }
}

/// Whatever sizes and alignments claim: no two sections overlap, none leaves the addresses of its class, and what can
/// have a place has one.
TEST(Layout, HostileSizesAndAlignments) {
    std::uint64_t const k_high = std::uint64_t{1} << 63;
    struct {
        char const* name;
        bool is64;
        std::vector<std::pair<std::uint64_t, std::uint64_t>> sections; ///< Size and alignment.
        std::size_t refused;
    } const rows[] = {
        {"an alignment that leaves no room", true, {{16, k_high}, {16, k_high}, {16, 16}}, 0},
        {"alignments that are no powers", true, {{16, 3}, {16, ~0ULL}, {16, 0}}, 0},
        {"sizes that wrap", true, {{~0ULL, 1}, {k_high, 1}, {16, 1}, {k_high - 1, 1}}, 3},
        {"sizes that add up", true, {{k_high / 2, 1}, {k_high / 2, 1}, {k_high / 4, 1}, {16, 1}}, 1},
        {"all that there is", true, {{INT64_MAX - k_firstLaidOutAddress - 1, 1}, {0, 1}, {0, 1}}, 2},
        {"all that there is in 32 bits", false, {{UINT32_MAX, 1}, {0xE0000000, 1}, {0x10000000, 1}, {16, 1}}, 2},
        {"none of them", false, {}, 0},
    };
    for (auto const& row : rows) {
        std::vector<Elf64_Shdr> sections;
        for (auto const& [size, alignment] : row.sections) {
            Elf64_Shdr& section = sections.emplace_back();
            section.sh_type = SHT_NOBITS;
            section.sh_flags = k_codeFlags;
            section.sh_size = size;
            section.sh_addralign = alignment;
        }
        LaidOutSections const space = layOutSections(sections, row.is64);
        EXPECT_EQ(space.refused, row.refused) << row.name;
        std::uint64_t end = space.start;
        for (Elf64_Shdr const& section : sections) {
            if ((section.sh_flags & SHF_ALLOC) == 0) {
                EXPECT_EQ(section.sh_addr, 0U) << row.name;
                continue;
            }
            EXPECT_GE(section.sh_addr, end) << row.name;
            EXPECT_LE(section.sh_size, (row.is64 ? INT64_MAX : UINT32_MAX) - section.sh_addr) << row.name;
            end = section.sh_addr + section.sh_size;
        }
        EXPECT_EQ(space.size, end - space.start) << row.name;
    }
}

TEST(Layout, SectionsWithoutAPlaceAreToldOfAndHaveNoSymbols) {
    ElfBuilder elf = object();
    std::uint32_t const huge = elf.section(".huge", SHT_NOBITS, k_codeFlags, 0, "", ~0ULL - 8);
    std::uint32_t const text = elf.section(".text", SHT_PROGBITS, k_codeFlags, 0, std::string(0x20, 't'));
    elf.symbol("lost", STB_GLOBAL, STT_FUNC, 0x10000008, 4, static_cast<std::uint16_t>(huge));
    elf.symbol("kept", STB_GLOBAL, STT_FUNC, 8, 4, static_cast<std::uint16_t>(text));
    TempDir const dir;
    Reading const modern(reading_Modern);
    LogCapture log(30000);
    std::string const path = dir.file("m.o", elf.bytes());
    EXPECT_EQ(symbolsOf(path), "kept[268435464,268435468)");
    EXPECT_EQ(log.count("File " + path + " has 1 sections without a place"), 1U);
}

/// A companion may have lost sections of the module, or have some that the module has not.
TEST(Layout, ACompanionStandsWhereItsModuleDoes) {
    ElfBuilder module = object();
    module.section(".note", SHT_NOTE, SHF_ALLOC, 0, "note");
    module.section(".text.f", SHT_PROGBITS, k_codeFlags, 0, std::string(0x30, 'f'));
    module.section(".text.f", SHT_PROGBITS, k_codeFlags, 0, std::string(0x10, 'g'));
    module.section(".data", SHT_PROGBITS, k_dataFlags, 0, std::string(0x10, 'd'));
    ElfBuilder companion = object();
    companion.section(".other", SHT_NOBITS, k_codeFlags, 0, "", 0x10);
    companion.section(".data", SHT_NOBITS, k_dataFlags, 0, "", 0x18); // of another build
    companion.section(".text.f", SHT_NOBITS, k_codeFlags, 0, "", 0x30);
    companion.section(".text.f", SHT_NOBITS, k_codeFlags, 0, "", 0x10);
    companion.symbol("first", STB_GLOBAL, STT_FUNC, 4, 4, 3);
    companion.symbol("second", STB_GLOBAL, STT_FUNC, 4, 4, 4);
    companion.symbol("lost", STB_GLOBAL, STT_FUNC, 4, 4, 1);
    TempDir const dir;
    SymMgrObjectPtr<ElfHelper> const own = helperOf(dir.file("m.ko", module.bytes()));
    SymMgrObjectPtr<ElfHelper> const other =
        helperOf(dir.file("m.debug", companion.bytes()), reading_Modern, own.get());
    EXPECT_EQ(placesOf(*own), ".note@10000000 .text.f@10000010 .text.f@10000050 .data@10000070");
    EXPECT_EQ(placesOf(*other), ".text.f@10000010 .text.f@10000050");
    own->copySymbolTablesFrom(*other);
    ElfSymbolReader reader(*own, ElfHelper::role_Symtab, ElfHelper::role_Strtab, 31);
    std::string symbols;
    for (RawSymbol symbol{}; reader.next(symbol);) {
        symbols += symbol.name + std::string("@") + hex(symbol.address) + " ";
    }
    EXPECT_EQ(symbols, "first@10000014 second@10000054 ");
}

TEST(Machines, AreReadUnderTheReadingThatKnowsThem) {
    struct {
        char const* name;
        std::uint16_t machine;
        ElfClass elfClass;
        arch_t classic;
        arch_t modern;
    } const rows[] = {
        {"x86-64", EM_X86_64, ElfClass::Elf64, arch_X86_64, arch_X86_64},
        {"x32", EM_X86_64, ElfClass::Elf32, arch_X86_64, arch_X86_64},
        {"ARM", EM_ARM, ElfClass::Elf32, arch_Arm, arch_Arm},
        {"AArch64", EM_AARCH64, ElfClass::Elf64, arch_Unknown, arch_Aarch64},
        {"AArch64 in 32 bits", EM_AARCH64, ElfClass::Elf32, arch_Unknown, arch_Unknown},
        {"RISC-V", EM_RISCV, ElfClass::Elf64, arch_Unknown, arch_Riscv64},
        {"RISC-V in 32 bits", EM_RISCV, ElfClass::Elf32, arch_Unknown, arch_Unknown},
        {"PowerPC", EM_PPC64, ElfClass::Elf64, arch_Unknown, arch_Ppc64le},
        {"s390", EM_S390, ElfClass::Elf64, arch_Unknown, arch_Unknown},
    };
    TempDir const dir;
    for (auto const& row : rows) {
        ElfBuilder elf(row.elfClass);
        elf.machine = row.machine;
        elf.load(PF_R | PF_X, 0x1000, 0x100);
        std::string const path = dir.file("m", elf.bytes());
        for (reading_t const asked : {reading_Classic, reading_Modern}) {
            Reading const guard(asked);
            arch_t const expected = asked == reading_Modern ? row.modern : row.classic;
            status_t status = status_Ok;
            SymMgrObjectPtr<IFileFormatLoader> const loader = loaderOf(path, &status);
            EXPECT_EQ(status, expected != arch_Unknown ? status_Ok : status_BadFileFormat) << row.name << asked;
            EXPECT_EQ(loader->architecture(), expected) << row.name << asked;
        }
    }
}

TEST(Machines, MarksOfTheAssemblerAreNoSymbols) {
    struct {
        std::uint16_t machine;
        reading_t asked;
        char const* expected; ///< The names that are left of all below.
    } const rows[] = {
        {EM_ARM, reading_Classic, "$a $d.1 $x $xrv64i $dollar $ .L0 f "},
        {EM_ARM, reading_Modern, "$x $xrv64i $dollar $ .L0 f "},
        {EM_X86_64, reading_Modern, "$a $d.1 $x $xrv64i $dollar $ .L0 f "},
        {EM_AARCH64, reading_Modern, "$a $xrv64i $dollar $ .L0 f "},
        {EM_RISCV, reading_Modern, "$a $dollar $ f "},
    };
    TempDir const dir;
    for (auto const& row : rows) {
        Reading const guard(row.asked);
        ElfBuilder elf;
        elf.machine = row.machine;
        elf.load(PF_R | PF_X, 0x1000, 0x100);
        elf.section(".text", SHT_PROGBITS, k_codeFlags, 0x1000, std::string(0x100, 'x'));
        unsigned int at = 0x1000;
        for (char const* const name : {"$a", "$d.1", "$x", "$xrv64i", "$dollar", "$", ".L0"}) {
            elf.symbol(name, STB_LOCAL, STT_NOTYPE, at++, 0);
        }
        elf.symbol("f", STB_LOCAL, STT_FUNC, at, 4);
        SymMgrObjectPtr<ElfHelper> const helper = helperOf(dir.file("m", elf.bytes()), row.asked);
        ElfSymbolReader reader(*helper, ElfHelper::role_Symtab, ElfHelper::role_Strtab, 31);
        std::string names;
        for (RawSymbol symbol{}; reader.next(symbol);) {
            names += symbol.name + std::string(" ");
        }
        EXPECT_EQ(names, row.expected) << row.machine << " " << row.asked;
    }
}

TEST(Relocations, OfEachProcessorCountFromTheLayout) {
    constexpr std::uint64_t k_symbol = 0x10001234;
    struct {
        char const* name;
        std::uint16_t machine;
        std::string before;
        std::vector<Patch> patches;
        std::string after;
    } const rows[] = {
        {"x86-64",
         EM_X86_64,
         std::string(14, '\1'),
         {{R_X86_64_64, 0, 5}, {R_X86_64_PC32, 8, 4}},
         fieldOf(k_symbol + 5, 8) + fieldOf(k_symbol + 4 - 8, 4) + "\1\1"},
        {"AArch64",
         EM_AARCH64,
         std::string(14, '\1'),
         {{R_AARCH64_ABS64, 0, 5}, {R_AARCH64_ABS32, 8, 6}, {R_AARCH64_ABS16, 12, 7}},
         fieldOf(k_symbol + 5, 8) + fieldOf(k_symbol + 6, 4) + fieldOf(k_symbol + 7, 2)},
        {"PowerPC",
         EM_PPC64,
         std::string(13, '\1'),
         {{R_PPC64_ADDR64, 0, 5}, {R_PPC64_ADDR32, 8, 6}},
         fieldOf(k_symbol + 5, 8) + fieldOf(k_symbol + 6, 4) + '\1'},
        {"RISC-V",
         EM_RISCV,
         std::string(13, '\1'),
         {{R_RISCV_64, 0, 5}, {R_RISCV_32, 8, 6}},
         fieldOf(k_symbol + 5, 8) + fieldOf(k_symbol + 6, 4) + '\1'},
        {"distances of RISC-V",
         EM_RISCV,
         std::string(15, '\1'),
         {{R_RISCV_SUB64, 0, 2},
          {R_RISCV_ADD64, 0, 9},
          {R_RISCV_ADD32, 8, 9},
          {R_RISCV_SUB32, 8, 2},
          {R_RISCV_SET16, 12, 9},
          {R_RISCV_SUB16, 12, 2},
          {R_RISCV_SET8, 14, 0x10},
          {R_RISCV_SUB8, 14, 2},
          {R_RISCV_ADD8, 14, 1}},
         fieldOf(0x0101010101010108, 8) + fieldOf(0x01010108, 4) + fieldOf(7, 2) + fieldOf(0x44 - 0x36 + 0x35, 1)},
        {"six bits keep the others",
         EM_RISCV,
         "\x41\x81",
         {{R_RISCV_SET6, 0, 0x0C}, {R_RISCV_SUB6, 0, 0}, {R_RISCV_SUB6, 1, 0}},
         "\x4C\x8D"},
        {"numbers keep their length",
         EM_RISCV,
         "\x80\x80\x00\x05\x83\x00"s,
         {{60, 0, 0x90}, {61, 0, 0}, {60, 3, 8}, {61, 3, 1}, {60, 4, 0}},
         "\x90\x81\x00\x07\xB4\x24"s},
        {"numbers without an end stay",
         EM_RISCV,
         std::string(12, '\x80'),
         {{60, 0, 0}, {61, 4, 0}},
         std::string(12, '\x80')},
        {"fields beyond the end",
         EM_RISCV,
         "\1\1\1\1",
         {{R_RISCV_32, 1, 0},
          {R_RISCV_64, 0, 0},
          {R_RISCV_ADD8, 4, 0},
          {R_RISCV_SET6, ~0ULL, 0},
          {60, ~0ULL, 0},
          {60, 4, 0}},
         "\1\1\1\1"},
    };
    TempDir const dir;
    for (auto const& row : rows) {
        std::string const before(row.before);
        EXPECT_EQ(relocated(dir, row.machine, before, row.patches), row.after) << row.name;
    }
}

TEST(Relocations, UnknownOnesAreSaidOnceAndTheRestIsApplied) {
    TempDir const dir;
    for (std::uint16_t const machine : {EM_AARCH64, EM_RISCV, EM_PPC64, EM_X86_64}) {
        std::map<std::uint16_t, std::uint64_t> const known = {{EM_AARCH64, R_AARCH64_ABS32},
                                                              {EM_RISCV, R_RISCV_32},
                                                              {EM_PPC64, R_PPC64_ADDR32},
                                                              {EM_X86_64, R_X86_64_32}};
        LogCapture log(30000);
        std::string const bytes =
            relocated(dir, machine, std::string(12, '\1'), {{250, 0, 0}, {known.at(machine), 4, 0}, {251, 8, 0}}, &log);
        EXPECT_EQ(bytes, "\1\1\1\1" + fieldOf(0x10001234, 4) + "\1\1\1\1") << machine;
        EXPECT_EQ(log.count("Relocations of type 250 in section .debug_info of file "), 1U) << machine;
        EXPECT_EQ(log.messages().size(), 1U) << machine;
    }
}

/// A status, never a crash: the sanitizers watch.
TEST(Layout, TruncatedAndFlipped) {
    ElfBuilder elf = object();
    elf.machine = EM_RISCV;
    elf.section(".text", SHT_PROGBITS, k_codeFlags, 0, std::string(0x40, 't'));
    elf.section(".text.f", SHT_PROGBITS, k_codeFlags, 0, std::string(0x40, 'f'));
    std::uint32_t const target = elf.section(".debug_info", SHT_PROGBITS, 0, 0, std::string(0x40, '\x80'));
    unsigned int const symbol = elf.symbol("f", STB_GLOBAL, STT_FUNC, 4, 4, 2);
    std::string entries;
    for (unsigned int type : {1U, 2U, 33U, 37U, 52U, 53U, 54U, 60U, 61U}) {
        entries += elf.relocation(true, type, symbol, type, 7);
    }
    elf.section(".rela", SHT_RELA, 0, 0, entries, 0, elf.symbolSection() + 1, target);
    std::string const good = elf.bytes();
    TempDir const dir;
    Reading const modern(reading_Modern);
    auto const tryAll = [&](std::string const& bytes) {
        std::string const path = dir.file("m.o", bytes);
        SymMgrObjectPtr<IModuleSymbolBank> bank;
        status_t const status = loadBank(path, bank, load_flags_NewLoader);
        ASSERT_TRUE(status == status_Ok || status == status_BadFileFormat) << toUString(status);
        if (status == status_Ok) {
            orv_test::symbolsOf(*bank, k_allKinds);
            SymMgrObjectPtr<ISourceLocation> line;
            bank->sourceLocationByAddress(addressIn(*bank, 0x10000004).get(), line, ~0ULL, nullptr);
        }
    };
    std::mt19937 random(16);
    for (std::size_t size = 0; size < good.size(); size += 37) {
        tryAll(good.substr(0, size));
    }
    for (int i = 0; i < 300; ++i) {
        std::string bytes = good;
        for (int flips = 0; flips < 3; ++flips) {
            bytes[random() % bytes.size()] = static_cast<char>(random());
        }
        tryAll(bytes);
    }
}
