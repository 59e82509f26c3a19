// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
#include "core/orv_cursor.h"
#include "format/orv_elf_relocations.h"
#include "format/orv_fflelf.h"
#include "support/orv_elf_builder.h"
#include "support/orv_test_support.h"

#include <random>
#include <zlib.h>

using namespace orv_test;

namespace {

std::string const k_code(0x200, '\x90');

/// One code and one data section in two loads.
ElfBuilder program(ElfClass elfClass = ElfClass::Elf64) {
    ElfBuilder elf(elfClass);
    elf.load(PF_R | PF_X, 0x400123, 0x1000);
    elf.load(PF_R | PF_W, 0x600000, 0x1000);
    elf.section(".text", SHT_PROGBITS, SHF_ALLOC | SHF_EXECINSTR, 0x400200, k_code);
    elf.section(".data", SHT_PROGBITS, SHF_ALLOC | SHF_WRITE, 0x600000, std::string(0x100, 'd'));
    return elf;
}

SymMgrObjectPtr<ElfHelper> helperOf(std::string const& path) {
    return SymMgrObjectPtr<ElfHelper>(new ElfHelper(IModuleImage::create(path.c_str(), arch_Unknown, false)));
}

std::string symbolsOf(std::string const& path, unsigned int mask = 31) {
    return orv_test::symbolsOf(*bankOf(path), static_cast<symbol_kind_t>(mask));
}

std::string zdebug(std::string const& content, std::uint64_t claimedSize) {
    std::string out = "ZLIB";
    for (int shift = 56; shift >= 0; shift -= 8) {
        out += static_cast<char>(claimedSize >> shift);
    }
    uLongf size = compressBound(content.size());
    std::string packed(size, '\0');
    compress(reinterpret_cast<Bytef*>(packed.data()), &size, reinterpret_cast<Bytef const*>(content.data()),
             content.size());
    return out + packed.substr(0, size);
}

} // namespace

TEST(ElfHelper, BothClassesComeToOneForm) {
    TempDir const dir;
    for (auto const& [elfClass, gap] :
         {std::pair(ElfClass::Elf32, 0U), std::pair(ElfClass::Elf64, 0U), std::pair(ElfClass::Elf64, 24U)}) {
        ElfBuilder elf = program(elfClass);
        elf.headerGap = gap;
        elf.section(".zdebug_line", SHT_PROGBITS, 0, 0, "first");
        elf.section(".debug_line", SHT_PROGBITS, 0, 0, "second");
        elf.section("x.debug_info", SHT_PROGBITS, 0, 0, "no");
        SymMgrObjectPtr<ElfHelper> const helper = helperOf(dir.file("m", elf.bytes()));
        ASSERT_TRUE(helper->valid());
        EXPECT_EQ(helper->architecture(), elfClass == ElfClass::Elf32 ? arch_X86 : arch_X86_64);
        EXPECT_EQ(helper->getImageBase(), 0x400000U) << "the first load's address without its low 12 bits";
        EXPECT_EQ(helper->imageSize(), 0x1000U);
        EXPECT_TRUE(helper->isCodeAddress(0x4003FF));
        EXPECT_FALSE(helper->isCodeAddress(0x400400)) << "the next section lies in another load";
        EXPECT_FALSE(helper->isDataAddress(0x400200));
        EXPECT_TRUE(helper->isDataAddress(0x6000FF));
        EXPECT_STREQ(helper->sectionName(99), "");
        EXPECT_EQ(helper->sectionHeaderByName(".none"), nullptr);
        EXPECT_EQ(helper->sectionIndex(ElfHelper::role_DebugLine), 3U) << "the first section of a role wins";
        EXPECT_EQ(helper->sectionIndex(ElfHelper::role_DebugInfo), k_noSection);
    }
}

TEST(ElfHelper, SectionsReachTheirNeighbourInsideOneLoad) {
    ElfBuilder elf;
    elf.load(PF_R | PF_X, 0x1000, 0x1000);
    elf.section(".init", SHT_PROGBITS, SHF_ALLOC | SHF_EXECINSTR, 0x1000, "1234");
    elf.section(".text", SHT_PROGBITS, SHF_ALLOC | SHF_EXECINSTR, 0x1010, "1234");
    elf.section(".bss", SHT_NOBITS, SHF_ALLOC | SHF_WRITE, 0x1800, "", 0x10);
    TempDir const dir;
    SymMgrObjectPtr<ElfHelper> const helper = helperOf(dir.file("m", elf.bytes()));
    ASSERT_TRUE(helper->valid());
    EXPECT_TRUE(helper->isCodeAddress(0x100F));
    EXPECT_TRUE(helper->isCodeAddress(0x17FF));
    EXPECT_TRUE(helper->isDataAddress(0x1800)) << ".bss is never checked against the file";
}

TEST(ElfHelper, RefusesWithTheRightWords) {
    std::string const good = program().bytes();
    auto const patched = [&](std::size_t at, char value) {
        std::string bytes = good;
        bytes[at] = value;
        return bytes;
    };
    auto const withCut = [](char const* section, bool isSecond) {
        ElfBuilder elf = program();
        if (isSecond) {
            elf.section(section, SHT_PROGBITS, 0, 0, "x");
        }
        elf.section(section, SHT_PROGBITS, 0, 0, "y", 0x10000);
        return elf.bytes();
    };
    ElfBuilder headless = program();
    headless.withSectionHeaders = false;
    std::string bigEndianOf31 = patched(EI_DATA, ELFDATA2MSB);
    bigEndianOf31[18] = 31;
    char const* const assertion = "ASSERTION FAILED: 'false'";
    char const* const truncated = "Section .debug_infoin file %has incorrect size or file is truncated";
    struct {
        char const* name;
        std::string bytes;
        bool isValid;
        char const* message; ///< With "%" for the file's name.
    } const rows[] = {
        {"as built", good, true, nullptr},
        {"big-endian", patched(EI_DATA, ELFDATA2MSB), false, assertion},
        {"unknown machine", patched(18, EM_MIPS), false, assertion},
        {"machine 31, big-endian", bigEndianOf31, false, assertion},
        {"class 3", patched(EI_CLASS, 3), false, "File %has neither ELFCLASS32 nor ELFCLASS64"},
        {"header cut", good.substr(0, 40), false, assertion},
        {"identification cut", good.substr(0, 10), false, assertion},
        {"no section headers", headless.bytes(), true, nullptr},
        {"section headers beyond the file", good.substr(0, good.size() - 1), false, nullptr},
        {"names beyond the file", patched(62, 99), false, "Failed to read string table for file%"},
        {"short section entries", patched(58, 8), false, nullptr},
        {"program headers beyond the file", patched(33, 0x7F), false, nullptr},
        {"truncated .debug_info", withCut(".debug_info", false), false, truncated},
        {"truncated .comment", withCut(".comment", false), true, nullptr},
        {"second .debug_info is another's business", withCut(".debug_info", true), true, nullptr},
    };
    TempDir const dir;
    for (auto const& row : rows) {
        std::string const path = dir.file("m", row.bytes);
        LogCapture log(30000);
        EXPECT_EQ(helperOf(path)->valid(), row.isValid) << row.name;
        if (row.message == nullptr) {
            EXPECT_TRUE(log.messages().empty()) << row.name << ": " << log.messages()[0];
        } else {
            std::string expected = row.message;
            std::size_t const at = expected.find('%');
            expected = at != std::string::npos ? expected.replace(at, 1, path) : expected;
            EXPECT_EQ(log.count(expected), 1U) << row.name;
        }
        SymMgrObjectPtr<IModuleSymbolBank> bank;
        EXPECT_EQ(loadBank(path, bank), row.isValid ? status_Ok : status_BadFileFormat) << row.name;
    }
}

TEST(SectionData, UncompressesOrServesRaw) {
    std::string const content(5000, 'q');
    struct {
        char const* name;
        char const* section;
        std::string data;
        std::string expected;
    } const rows[] = {
        {"good", ".zdebug_info", zdebug(content, content.size()), content},
        {"roomy header", ".zdebug_info", zdebug(content, content.size() + 100), content},
        {"twelve bytes", ".zdebug_info", std::string("ZLIB\0\0\0\0\0\0\0\1", 12), "raw"},
        {"wrong magic", ".zdebug_info", "ZLIX" + zdebug(content, 5000).substr(4), "raw"},
        {"broken stream", ".zdebug_info", zdebug(content, 5000).substr(0, 20), "raw"},
        {"header too small", ".zdebug_info", zdebug(content, 10), "raw"},
        {"header beyond reason", ".zdebug_info", zdebug(content, ~0ULL / 2), "raw"},
        {"name inside another", ".a.zdebug_info", zdebug(content, 5000), "raw"},
    };
    TempDir const dir;
    for (auto const& row : rows) {
        ElfBuilder elf = program();
        std::uint32_t const index = elf.section(row.section, SHT_PROGBITS, 0, 0, row.data);
        SymMgrObjectPtr<ElfHelper> const helper = helperOf(dir.file("m", elf.bytes()));
        SymMgrObjectPtr<ISectionData> const data(new ElfSectionData(index, helper.get()));
        std::string const& expected = row.expected == "raw" ? row.data : row.expected;
        ASSERT_EQ(data->size(), expected.size()) << row.name;
        EXPECT_EQ(std::string(reinterpret_cast<char*>(data->data()), data->size()), expected) << row.name;
        EXPECT_EQ(data->data()[data->size()], 0) << row.name << ": strings end with the section";
    }
}

TEST(SectionData, WhatIsNotThereIsEmpty) {
    EXPECT_EQ(SymMgrObjectPtr<ByteBuffer>(new ByteBuffer(~0ULL))->size(), 0U);
    LogCapture log(40000);
    SymMgrObjectPtr<ISectionData> const none(new SectionData(1, 0, nullptr));
    EXPECT_EQ(none->size(), 0U);
    EXPECT_EQ(none->data(), nullptr);
    EXPECT_EQ(log.count("ASSERTION FAILED: 'm_section'"), 1U) << "not tried again";
    EXPECT_THROW(allocateSectionBytes(~0ULL), std::bad_alloc);
    EXPECT_EQ(log.count("can't allocate memory: 18446744073709551615"), 1U);
}

TEST(ElfSymbols, WhatCountsAsASymbol) {
    struct {
        char const* name;
        unsigned char binding;
        unsigned char type;
        std::uint64_t value;
        std::uint16_t section;
        unsigned int mask; ///< The kinds for which it must show, 0 for none. Rows stand by address.
    } const rows[] = {
        {"local_function", STB_LOCAL, STT_FUNC, 0x400200, 1, 1 | 16},
        {"weak_function", STB_WEAK, STT_FUNC, 0x400210, 1, 1 | 16},
        {"data_in_code", STB_GLOBAL, STT_OBJECT, 0x400220, 1, 2 | 4},
        {"label", STB_LOCAL, STT_NOTYPE, 0x400230, 1, 31},
        {"absolute", STB_GLOBAL, STT_FUNC, 0x400240, SHN_ABS, 1 | 16},
        {"undefined", STB_GLOBAL, STT_FUNC, 0x400250, SHN_UNDEF, 0},
        {"file", STB_LOCAL, STT_FILE, 0x400260, SHN_ABS, 0},
        {"ifunc", STB_GLOBAL, 10, 0x400270, 1, 0},
        {"", STB_GLOBAL, STT_FUNC, 0x400280, 1, 0},
        {"data", STB_GLOBAL, STT_OBJECT, 0x600000, 2, 2 | 4},
        {"label_in_data", STB_LOCAL, STT_NOTYPE, 0x600010, 2, 31},
        {"function_in_data", STB_GLOBAL, STT_FUNC, 0x600020, 2, 0},
        {"common", STB_GLOBAL, STT_OBJECT, 0x600030, SHN_COMMON, 0},
        {"unique", 10, STT_OBJECT, 0x600040, 2, 0},
        {"tls", STB_GLOBAL, STT_TLS, 0x600050, 2, 0},
        {"section", STB_LOCAL, STT_SECTION, 0x600060, 2, 0},
        {"data_nowhere", STB_GLOBAL, STT_OBJECT, 0x700000, 2, 0},
    };
    TempDir const dir;
    for (ElfClass const elfClass : {ElfClass::Elf32, ElfClass::Elf64}) {
        for (bool const isDynamic : {false, true}) {
            ElfBuilder elf = program(elfClass);
            elf.dynamicSymbols = isDynamic;
            for (auto const& row : rows) {
                elf.symbol(row.name, row.binding, row.type, row.value, 4, row.section);
            }
            elf.rawSymbol(0xFFFFFF, STB_GLOBAL << 4 | STT_FUNC, 1, 0x400300, 4); // name outside the strings
            std::string const path = dir.file("m", elf.bytes());
            for (unsigned int const asked : {1U, 2U, 4U, 8U, 16U}) {
                // The kinds loaded decide what is there; a mask of all shows it.
                SymMgrObjectPtr<IFileFormatLoader> const loader = loaderOf(path);
                SymMgrObjectPtr<ISymbolTable> const table = ISymbolTable::create(nullptr);
                ASSERT_EQ(loader->loadSymbols(table.get(), nullptr, asked), status_Ok);
                RangeIterator it;
                table->symbolRanges(it, 0, ~0ULL, k_allKinds);
                std::string names;
                forEach(it, [&](ISymbolRange& range) { names += range.symbol()->name() + std::string(" "); });
                std::string expected;
                for (auto const& row : rows) {
                    expected += (row.mask & asked) != 0 ? row.name + std::string(" ") : "";
                }
                EXPECT_EQ(names, expected) << "kinds " << asked;
            }
        }
    }
}

TEST(ElfSymbols, RanksAndDuplicates) {
    ElfBuilder elf = program();
    elf.symbol("first", STB_LOCAL, STT_FUNC, 0x400200, 0x20);
    elf.symbol("weak", STB_WEAK, STT_FUNC, 0x400200, 0x20);
    elf.symbol("global", STB_GLOBAL, STT_FUNC, 0x400200, 0x20);
    elf.symbol("first", STB_GLOBAL, STT_FUNC, 0x400200, 0x20);
    elf.symbol("inner", STB_GLOBAL, STT_OBJECT, 0x400208, 4);
    TempDir const dir;
    auto const bank = bankOf(dir.file("m", elf.bytes()));
    EXPECT_EQ(symbolAt(*bank, 0x400209), "weak@400200+32") << "global over local, the first of equals, code over data";
    EXPECT_EQ(symbolAt(*bank, 0x400209, symbol_kind_Data), "inner@400208+4");
    EXPECT_EQ(symbolAt(*bank, 0x400220), "none");
}

TEST(ElfSymbols, NamesEndWithTheirSection) {
    ElfBuilder elf = program();
    elf.symbol("abc", STB_GLOBAL, STT_FUNC, 0x400200, 4);
    std::string bytes = elf.bytes();
    std::size_t const at = bytes.find(std::string("\0abc\0", 5));
    ASSERT_NE(at, std::string::npos);
    // .strtab comes to end ahead of the NUL: its size is what says 5 in the section headers.
    std::size_t size = bytes.size() - 2 * 64 + 32;
    ASSERT_EQ(bytes[size], 5);
    bytes[size] = 4;
    TempDir const dir;
    EXPECT_EQ(symbolsOf(dir.file("m", bytes)), "abc[4194816,4194820)");
}

TEST(ElfThunks, StubsTakeTheNamesOfTheirImports) {
    TempDir const dir;
    for (ElfClass const elfClass : {ElfClass::Elf32, ElfClass::Elf64}) {
        bool const isRela = elfClass == ElfClass::Elf64;
        ElfBuilder elf = program(elfClass);
        std::uint32_t const plt =
            elf.section(".plt", SHT_PROGBITS, SHF_ALLOC | SHF_EXECINSTR, 0x400500, std::string(0x60, '\xCC'));
        unsigned int const puts = elf.symbol("puts", STB_GLOBAL, STT_FUNC, 0, 0, SHN_UNDEF);
        unsigned int const file = elf.symbol("file.c", STB_LOCAL, STT_FILE, 0, 0, SHN_ABS);
        unsigned int const exit = elf.symbol("exit", STB_GLOBAL, STT_FUNC, 0, 0, SHN_UNDEF);
        std::string const entries =
            elf.relocation(isRela, 0x600010, puts, 7) + elf.relocation(isRela, 0x600018, file, 7) +
            elf.relocation(isRela, 0x600010, exit, 7) + elf.relocation(isRela, 0x600020, 99, 7) +
            elf.relocation(isRela, 0x600008, exit, 7) + std::string(3, 'x');
        std::uint32_t const symbols = elf.symbolSection() + 1;
        elf.section(isRela ? ".rela.plt" : ".rel.plt", isRela ? SHT_RELA : SHT_REL, 0, 0, entries, 0, symbols, plt);
        std::string const path = dir.file("m", elf.bytes());
        auto const bank = bankOf(path);
        RangeIterator it;
        bank->originalSymbolRanges(it, symbol_kind_Function, nullptr, nullptr);
        // The third has the first one's offset, the second and the fourth are passed over.
        EXPECT_EQ(allRanges(it), "puts[4195600,4195616) exit[4195664,4195680)");
        it->reset();
        SymMgrObjectPtr<ISymbolRange> const range = it->current();
        ASSERT_NE(range->thunk(), nullptr);
        EXPECT_TRUE(range->thunk()->isImport());
        EXPECT_EQ(symbolsOf(path, symbol_kind_Data), "") << "thunks come with functions only";
    }
    ElfBuilder other = program();
    other.section(".plt", SHT_PROGBITS, SHF_ALLOC | SHF_EXECINSTR, 0x400500, std::string(0x60, '\xCC'));
    unsigned int const puts = other.symbol("puts", STB_GLOBAL, STT_FUNC, 0, 0, SHN_UNDEF);
    std::string const entry = other.relocation(true, 0x600010, puts, 7);
    other.section(".rela.plt", SHT_RELA, 0, 0, entry, 0, other.symbolSection() + 1, 2);
    EXPECT_EQ(symbolsOf(dir.file("m", other.bytes())), "") << "relocations for another section";
}

TEST(ElfRelocations, PatchTheirFieldAndNothingElse) {
    struct {
        char const* name;
        ElfClass elfClass;
        bool isRela;
        std::uint64_t type;
        std::uint64_t addend;
        unsigned int width;
        std::uint64_t expected; ///< In the field; the bytes before are 0x11 each.
    } const rows[] = {
        {"64 bits", ElfClass::Elf64, true, R_X86_64_64, 0x10, 8, 0x1234567900001010},
        {"32 bits of 64", ElfClass::Elf64, true, R_X86_64_32, 0x10, 4, 0x00001010},
        {"16 bits of 64", ElfClass::Elf64, true, R_X86_64_16, 0x10, 2, 0x1010},
        {"8 bits of 64", ElfClass::Elf64, true, R_X86_64_8, 0x10, 1, 0x10},
        {"16 bits in place", ElfClass::Elf32, false, R_386_16, 0, 2, 0x2111},
        {"8 bits in place", ElfClass::Elf32, false, R_386_PC8, 0, 1, 0x11},
        {"unknown type", ElfClass::Elf64, true, 200, 0x10, 8, 0x1234567900001010},
        {"32-bit file", ElfClass::Elf32, true, R_386_32, 0x10, 4, 0x00001010},
        {"addend in place", ElfClass::Elf32, false, R_386_32, 0, 4, 0x11112111},
    };
    TempDir const dir;
    for (auto const& row : rows) {
        ElfBuilder elf(row.elfClass);
        elf.type = ET_REL;
        std::uint64_t const value = row.elfClass == ElfClass::Elf64 ? 0x1234567900001000 : 0x1000;
        std::uint32_t const target = elf.section(".debug_info", SHT_PROGBITS, 0, 0, std::string(16, '\x11'));
        unsigned int const symbol = elf.symbol("", STB_LOCAL, STT_SECTION, value, 0);
        std::string const entries = elf.relocation(row.isRela, 4, symbol, row.type, row.addend) +
                                    elf.relocation(row.isRela, 17 - row.width, symbol, row.type, row.addend) +
                                    elf.relocation(row.isRela, ~0ULL, symbol, row.type, row.addend);
        elf.section(".rel", row.isRela ? SHT_RELA : SHT_REL, 0, 0, entries, 0, elf.symbolSection() + 1, target);
        SymMgrObjectPtr<ElfHelper> const helper = helperOf(dir.file("m", elf.bytes()));
        ASSERT_TRUE(helper->valid()) << row.name;
        SymMgrObjectPtr<ElfFileFormatHelper> const view(new ElfFileFormatHelper(helper.get()));
        SymMgrObjectPtr<RelocationAddends> addends;
        view->relocations(addends, target);
        ASSERT_TRUE(addends) << row.name;
        std::string bytes(16, '\x11');
        for (RelocationAddends::Entry const& entry : addends->entries()) {
            addends->apply(reinterpret_cast<unsigned char*>(bytes.data()), bytes.size(), entry);
        }
        std::string expected(4, '\x11');
        ElfBuilder::put(expected, row.expected, row.width);
        expected.resize(16, '\x11');
        EXPECT_EQ(bytes, expected) << row.name;
    }
}

TEST(ElfFileLoader, RelocatableFilesGetTheirLayoutFromSections) {
    ElfBuilder elf;
    elf.type = ET_REL;
    elf.section(".note", SHT_NOTE, SHF_ALLOC, 0, "note");
    elf.section(".text", SHT_PROGBITS, SHF_ALLOC | SHF_EXECINSTR, 0x100, k_code);
    elf.section(".data", SHT_PROGBITS, SHF_ALLOC | SHF_WRITE, 0x400, "data");
    elf.section(".late", SHT_PROGBITS, SHF_ALLOC, 0x100, k_code);
    elf.symbol("f", STB_GLOBAL, STT_FUNC, 0x110, 0x10, 2);
    elf.symbol("d", STB_GLOBAL, STT_OBJECT, 0x400, 4, 3);
    TempDir const dir;
    std::string const path = dir.file("m.ko", elf.bytes());
    SymMgrObjectPtr<IFileFormatLoader> const loader = loaderOf(path);
    EXPECT_EQ(loader->preferredLoadAddress(), 0x100U);
    EXPECT_EQ(loader->imageSize(), k_code.size());
    auto const segmentAt = [&](unsigned long long address) {
        ISegment* const segment = loader->segmentByAddress(address);
        return segment != nullptr ? segment->name() + std::to_string(segment->type()) : "none";
    };
    EXPECT_EQ(segmentAt(0), ".note0");
    EXPECT_EQ(segmentAt(0x100), ".text1") << "an untyped one does not displace it";
    EXPECT_EQ(segmentAt(0x400), ".data2");
    EXPECT_EQ(symbolsOf(path), "f[272,288) d[1024,1028)");
    // All sections of an object begin at 0: what is no segment beside the code is no data either.
    ElfBuilder object;
    object.type = ET_REL;
    object.section(".text", SHT_PROGBITS, SHF_ALLOC | SHF_EXECINSTR, 0, k_code);
    object.section(".data", SHT_PROGBITS, SHF_ALLOC | SHF_WRITE, 0, std::string(0x400, 'd'));
    object.symbol("f", STB_GLOBAL, STT_FUNC, 0x10, 0x10);
    object.symbol("d", STB_GLOBAL, STT_OBJECT, 0x300, 4, 2);
    EXPECT_EQ(symbolsOf(dir.file("m.o", object.bytes())), "f[16,32)");
}

TEST(ElfFileLoader, SectionsByNameAndIndexDiffer) {
    ElfBuilder elf = program();
    std::uint32_t const bss = elf.section(".bss", SHT_NOBITS, SHF_ALLOC | SHF_WRITE, 0x600200, "", 0x40);
    std::uint32_t const flagged = elf.section(".flagged", SHT_PROGBITS, 8, 0, "abcd");
    TempDir const dir;
    SymMgrObjectPtr<IFileFormatLoader> const loader = loaderOf(dir.file("m", elf.bytes()));
    SymMgrObjectPtr<ISection> section;
    SymMgrObjectPtr<IBuffer> buffer;
    loader->sectionByName(section, ".bss");
    EXPECT_EQ(section->isEmptyInFile(), 1U);
    EXPECT_EQ(section->read(buffer), status_False);
    loader->sectionByIndex(section, bss);
    EXPECT_EQ(section->isEmptyInFile(), 0U) << "by index the flag counts, not the type";
    loader->sectionByIndex(section, flagged);
    EXPECT_EQ(section->isEmptyInFile(), 1U);
    loader->sectionByName(section, ".flagged");
    ASSERT_EQ(section->readAt(1, 2, buffer), status_Ok);
    EXPECT_EQ(std::string(reinterpret_cast<char*>(buffer->data()), 2), "bc");
    loader->sectionByIndex(section, 999);
    EXPECT_FALSE(section);
    // The iterator's limit is the segment's size, so only sections near the file's start pass.
    elf = ElfBuilder();
    elf.load(PF_R | PF_X, 0x1000, 0x1000, 0, 0x180);
    elf.section(".text", SHT_PROGBITS, SHF_ALLOC | SHF_EXECINSTR, 0x1100, std::string(0x40, 'x'));
    elf.section(".rodata", SHT_PROGBITS, SHF_ALLOC, 0x1140, std::string(0x40, 'x'));
    elf.section(".last", SHT_NOBITS, SHF_ALLOC, 0x1180, "", 0x88); // up to the limit
    elf.section(".more", SHT_PROGBITS, SHF_ALLOC, 0x1180, std::string(0x400, 'x'));
    SymMgrObjectPtr<IFileFormatLoader> const small = loaderOf(dir.file("s", elf.bytes()));
    for (bool const codeOnly : {false, true}) {
        SymMgrObjectPtr<IIterator<SymMgrObjectPtr<ISection>>> it;
        small->segmentByIndex(0)->sections(it, codeOnly);
        std::string names;
        forEach(it, [&](ISection& found) { names += found.name(); });
        EXPECT_EQ(names, codeOnly ? ".text" : ".text.rodata.last");
    }
}

TEST(ElfFileLoader, AdoptsSymbolTables) {
    TempDir const dir;
    ElfBuilder stripped;
    stripped.load(PF_R | PF_X, 0x500000, 0x1000);
    stripped.section(".text", SHT_PROGBITS, SHF_ALLOC | SHF_EXECINSTR, 0x500200, k_code);
    ElfBuilder companion = program();
    companion.symbol("f", STB_GLOBAL, STT_FUNC, 0x400210, 0x10);
    SymMgrObjectPtr<ElfHelper> const module = helperOf(dir.file("module", stripped.bytes()));
    SymMgrObjectPtr<ElfHelper> const other = helperOf(dir.file("companion", companion.bytes()));
    module->copySymbolTablesFrom(*module);
    EXPECT_EQ(module->sectionData(ElfHelper::role_Symtab), nullptr);
    module->copySymbolTablesFrom(*other);
    ASSERT_NE(module->sectionData(ElfHelper::role_Symtab), nullptr);
    ElfSymbolReader reader(*module, ElfHelper::role_Symtab, ElfHelper::role_Strtab, 31);
    RawSymbol symbol{};
    ASSERT_TRUE(reader.next(symbol));
    EXPECT_EQ(symbol.address, 0x500210U) << "moved by the distance of the image bases";
    EXPECT_FALSE(reader.next(symbol));
    LogCapture log(40000);
    other->copySymbolTablesFrom(*module);
    EXPECT_EQ(log.count("ASSERTION FAILED: 'm_imageBase >= elfHelper->getImageBase()'"), 1U);
}

/// A status, never a crash: the sanitizers watch.
TEST(ElfHostile, TruncatedAndFlipped) {
    ElfBuilder elf = program();
    std::uint32_t const plt =
        elf.section(".plt", SHT_PROGBITS, SHF_ALLOC | SHF_EXECINSTR, 0x400500, std::string(0x60, '\xCC'));
    elf.section(".zdebug_info", SHT_PROGBITS, 0, 0, zdebug("debug information", 17));
    for (int i = 0; i < 40; ++i) {
        elf.symbol("symbol" + std::to_string(i), STB_GLOBAL, i % 3 == 0 ? STT_NOTYPE : STT_FUNC,
                   0x400200 + static_cast<unsigned int>(i) * 8, static_cast<unsigned int>(i % 5) * 8);
    }
    std::string const entry = elf.relocation(true, 0x600010, 3, 7);
    elf.section(".rela.plt", SHT_RELA, 0, 0, entry, 0, elf.symbolSection() + 1, plt);
    std::string const good = elf.bytes();
    TempDir const dir;
    auto const tryAll = [&](std::string const& bytes, std::string const& what) {
        SCOPED_TRACE(what);
        std::string const path = dir.file("m", bytes);
        SymMgrObjectPtr<IModuleSymbolBank> bank;
        status_t const status = loadBank(path, bank, load_flags_NewLoader);
        ASSERT_TRUE(status == status_Ok || status == status_BadFileFormat) << toUString(status);
        if (status != status_Ok) {
            return;
        }
        RangeIterator it;
        bank->nonOverlappedSymbolRanges(it, k_allKinds, nullptr, nullptr, nullptr);
        allRanges(it);
        for (auto const address : {0ULL, 0x400208ULL, 0x600000ULL, ~0ULL}) {
            symbolAt(*bank, address);
        }
        SymMgrObjectPtr<IIterator<ISegment*>> segments;
        if (bank->segments(segments) == status_Ok) {
            SymMgrObjectPtr<IBuffer> buffer;
            segments->current()->read(buffer);
        }
    };
    for (std::size_t size = 0; size < good.size(); ++size) {
        tryAll(good.substr(0, size), "cut to " + std::to_string(size));
    }
    std::mt19937 random(2026);
    for (int i = 0; i < 3000; ++i) {
        std::string bytes = good;
        // Headers are where the harm is.
        std::size_t const headers = bytes.size() - 64 * 9;
        std::size_t const at = i % 3 == 0   ? random() % 176
                               : i % 3 == 1 ? headers + random() % (64 * 9)
                                            : random() % bytes.size();
        bytes[at] = static_cast<char>(random());
        tryAll(bytes, "byte " + std::to_string(at) + " in round " + std::to_string(i));
    }
}
