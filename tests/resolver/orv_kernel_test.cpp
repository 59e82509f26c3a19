// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// A kernel's list of symbols: which file it is, what it says of the kernel's place, and the names in it.

#include "resolver/orv_kernel_files.h"
#include "support/orv_elf_builder.h"
#include "support/orv_test_support.h"

#include <map>
#include <random>

using namespace orv_test;

namespace {

using Candidates = SymMgrObjectPtr<IIterator<SymMgrObjectPtr<ISymbolFileToResolve>>>;

/// Offers one file to all candidates.
class Named final : public ISymbolFileResolver {
public:
    explicit Named(std::string path) : m_path(std::move(path)) {}
    long long resolveSymbolFile(Candidates& candidates) override {
        long long index = -1;
        forEach(candidates, [&](ISymbolFileToResolve& candidate) {
            index = index < 0 ? candidate.validateSymbolFile(m_path.c_str()) : index;
        });
        return index;
    }

private:
    std::string m_path;
};

/// A kernel that has no file, with a list.
SymMgrObjectPtr<IModuleSymbolBank> kernelWith(std::string const& listPath, char const* name = "vmlinux") {
    SymMgrObjectPtr<ISymbolManager> manager;
    ISymbolManager::create(manager);
    SymMgrObjectPtr<IModuleSymbolBank> bank;
    Named resolver(listPath);
    EXPECT_EQ(manager->loadSymbolsFromModuleEx(name, &resolver, bank, arch_Unknown, load_flags_NewLoader, ""),
              status_Ok);
    return bank;
}

/// "base size", and the symbols, each with kind and visibility; in front, what a failed load says.
std::string answerOf(IModuleSymbolBank& bank, symbol_kind_t mask = k_allKinds) {
    std::ostringstream text;
    RangeIterator ranges;
    if (status_t const status = bank.originalSymbolRanges(ranges, mask, nullptr, nullptr); failed(status)) {
        text << (status == status_BadDebugInfo ? "bad: " : toUString(status));
        bank.originalSymbolRanges(ranges, mask, nullptr, nullptr);
    }
    text << std::hex << bank.preferredLoadAddress() << ' ' << bank.imageSize();
    forEach(ranges, [&](ISymbolRange& range) {
        text << ' ' << range.symbol()->name() << '@' << startOf(range) << '+' << range.size() << ' '
             << range.symbol()->kind() << range.symbol()->visibility();
    });
    return text.str();
}

// --- What the text of a list says, by streams.

constexpr unsigned long long k_wideBase = 0xFFFFFFFF80000000;

bool readDigits(std::istream& in, unsigned long long& out) {
    char digits[9] = {};
    in.read(digits, 8);
    out = std::strtoull(digits, nullptr, 16);
    return in.good() && std::string(digits).find_first_not_of("0123456789abcdefABCDEF") == std::string::npos;
}

bool readAddress(std::istream& in, bool is64, unsigned long long& out) {
    unsigned long long low = 0;
    bool const isRead = readDigits(in, out) && (!is64 || readDigits(in, low));
    out = is64 ? out << 32 | low : out;
    return isRead;
}

/// Type, name, and what is white behind it; hasMore: not up to the line's end.
bool readSymbol(std::istream& in, char& type, std::string& name, bool& hasMore) {
    if (!(in >> type >> name)) {
        return false;
    }
    hasMore = true;
    for (int c = in.peek(); c != EOF && std::isspace(c) != 0; c = in.peek()) {
        hasMore = hasMore && c != '\n';
        in.get();
    }
    return true;
}

void finishLine(std::istream& in, bool hasMore) {
    std::string rest;
    if (hasMore) {
        std::getline(in, rest);
    }
    while (in.good() && std::isspace(in.peek()) != 0) {
        in.get();
    }
}

bool isAtEnd(std::istream& in) { return !in.good() || in.peek() == EOF; }

/// The same as answerOf for a kernel of 32 or 64 bits by its name.
std::string modelOf(std::string const& text, bool is64, symbol_kind_t mask) {
    unsigned long long base = is64 ? k_wideBase : 0x80000000;
    unsigned long long size = 0x7FFFFFFF;
    std::vector<unsigned long long> segments{base};
    unsigned long long address = 0;
    char type = 0;
    std::string name;
    bool hasMore = false;
    std::istringstream scan(text);
    while (!isAtEnd(scan) && address <= base) {
        if (!readAddress(scan, is64, address) || !readSymbol(scan, type, name, hasMore)) {
            break;
        }
        if (!is64 && type >= '0' && type <= '9') {
            is64 = true;
            base = k_wideBase;
            size = 0x7FFFFFFF;
            if (!readSymbol(scan, type, name, hasMore)) {
                break;
            }
            segments.push_back(k_wideBase);
        }
        if (type == 'A' || type == 'T' || type == 't') {
            if (address == base) {
                break;
            }
            if (address > base) {
                size = size + base - address;
                base = address;
                break;
            }
        }
        if (scan.peek() == '[') {
            break;
        }
        finishLine(scan, hasMore);
    }
    std::multimap<unsigned long long, std::string> symbols;
    std::istringstream load(text);
    bool isBad = false;
    while (!isAtEnd(load)) {
        isBad = !readAddress(load, is64, address) || !readSymbol(load, type, name, hasMore);
        if (isBad || load.peek() == '[') {
            break;
        }
        std::string const kinds = "TtDdGg";
        std::size_t const at = kinds.find(type);
        unsigned int const kind = at == std::string::npos ? 0 : at < 2 ? 1 : at < 4 ? 4 : 8;
        bool const isInside = std::any_of(segments.begin(), segments.end(), [&](unsigned long long start) {
            return address >= start && address - start <= 0x7FFFFFFF;
        });
        if ((kind & mask) != 0 && isInside) {
            std::ostringstream symbol;
            symbol << std::hex << ' ' << name << '@' << address << "+0 " << kind << (kind == 8 ? 2 : 1);
            symbols.emplace(address, symbol.str());
        }
        finishLine(load, hasMore);
    }
    std::ostringstream out;
    out << (isBad ? "bad: " : "") << std::hex << base << ' ' << size;
    for (auto const& symbol : symbols) {
        out << symbol.second;
    }
    return out.str();
}

} // namespace

TEST(KernelLists, TheirNames) {
    TempDir const dir;
    dir.file("System.map-5", "");
    dir.file("kallsyms", "");
    dir.file("vmlinuz-copy", "");
    std::string const d = dir.path() + "/";
    struct {
        std::string kernel;
        std::string map;
        std::string kallsyms;
    } const rows[] = {
        {d + "vmlinuz-5", d + "System.map-5 1", d + "kallsyms-5 4"},
        {d + "vmlinux", d + "System.map 4", d + "kallsyms 1"},
        {"/a/vmlinuz/vmlinux/vmlinuz/vmlinux", "/a/vmlinuz/vmlinux/System.map/vmlinux 4",
         "/a/vmlinuz/vmlinux/kallsyms/vmlinux 4"},
        {"/a/vmlinux/vmlinux-x", "/a/vmlinux/System.map-x 4", "/a/vmlinux/kallsyms-x 4"},
        {"/a/vmlinu", " 0", " 0"},
    };
    for (auto const& row : rows) {
        SymMgrObjectPtr<IFileFormatLoader> const loader = loaderOf(row.kernel);
        Candidates list;
        ASSERT_EQ(loader->symbolFiles(list), status_Ok);
        std::vector<std::string> found;
        forEach(list, [&](ISymbolFileToResolve& candidate) {
            found.push_back(std::string(candidate.symbolFileName()) + " " + std::to_string(candidate.validity()));
            EXPECT_EQ(candidate.moduleFileName(), row.kernel);
            EXPECT_EQ(candidate.symbolFileFormat(), symbolFormatSystemMap);
            EXPECT_EQ(candidate.candidateClassFlag(), 0U);
        });
        EXPECT_EQ(found, (std::vector<std::string>{row.map, row.kallsyms})) << row.kernel;
    }
    // What is found later leaves the validity as it was.
    SymMgrObjectPtr<SystemMap> const map(
        new SystemMap((d + "vmlinuz-6").c_str(), SystemMap::map_kind_Kallsyms, 7, nullptr));
    EXPECT_EQ(map->validateSymbolFile((d + "vmlinuz-copy").c_str()), -1);
    EXPECT_EQ(map->validateSymbolFile((d + "missing").c_str()), -1);
    EXPECT_EQ(map->validateSymbolFile(nullptr), -1);
    EXPECT_EQ(map->symbolFileName(), d + "kallsyms-6");
    EXPECT_EQ(map->validateSymbolFile((d + "System.map-5").c_str()), 7);
    EXPECT_EQ(map->symbolFileName(), d + "System.map-5");
    EXPECT_EQ(map->validateSymbolFile(dir.file("a-vmlinuz", "").c_str()), 7) << "its name does not begin so";
    EXPECT_EQ(map->validity(), symbolFileNotFound);
}

TEST(KernelLists, StandBehindTheModuleItself) {
    ElfBuilder elf;
    elf.load(PF_R | PF_X, 0xFFFFFFFF81000000, 0x1000);
    elf.section(".text", SHT_PROGBITS, SHF_ALLOC | SHF_EXECINSTR, 0xFFFFFFFF81000000, std::string(0x20, 'x'));
    elf.section(".debug_info", SHT_PROGBITS, 0, 0, "x");
    TempDir const dir;
    std::string const path = dir.file("vmlinux", elf.bytes());
    std::string const map = dir.file("System.map", "ffffffff81000000 T _text\n");
    Candidates list;
    SymMgrObjectPtr<IFileFormatLoader> const loader = loaderOf(path);
    loader->symbolFiles(list);
    std::string text;
    forEach(list, [&](ISymbolFileToResolve& candidate) {
        text += std::to_string(candidate.symbolFileFormat()) + std::to_string(candidate.validity()) + ":" +
                std::to_string(candidate.validateSymbolFile(map.c_str())) + " ";
    });
    EXPECT_EQ(text, "11:-1 11:-1 41:2 44:3 ");
    SymMgrObjectPtr<IDebugInfoLoader> lists;
    ASSERT_EQ(loader->debugInfoLoader(lists, 2, 0), status_Ok);
    EXPECT_EQ(lists->symFileName(), map);
    EXPECT_EQ(lists->symFileFormat(), 4U);
    EXPECT_EQ(lists->srcLineResolver(nullptr, nullptr), nullptr);
    SymMgrObjectPtr<IStackFrameContext> context;
    SymMgrObjectPtr<ISymbol> variable;
    EXPECT_EQ(lists->findStackVariable(nullptr, 0, 0, context, variable, nullptr), status_False);
    // A load takes what stands in the file by then, and names that have not changed are those of before.
    auto const nameIn = [&] {
        SymMgrObjectPtr<ISymbolTable> const table = ISymbolTable::create(nullptr);
        SymMgrObjectPtr<ISymbolRange> range;
        EXPECT_EQ(lists->loadSymbols(table.get(), nullptr, symbol_kind_Function, nullptr), status_Ok);
        table->symbolRangeByAddress(range, 0xFFFFFFFF81000000, symbol_kind_Function, nullptr);
        return range ? range->symbol()->name() : nullptr;
    };
    char const* const first = nameIn();
    EXPECT_STREQ(first, "_text");
    EXPECT_EQ(nameIn(), first);
    dir.file("System.map", "ffffffff81000000 T other\n");
    EXPECT_STREQ(nameIn(), "other");
    SymMgrObjectPtr<ISymbolTable> const table = ISymbolTable::create(nullptr);
    std::filesystem::remove(map);
    EXPECT_EQ(lists->loadSymbols(table.get(), nullptr, k_allKinds, nullptr), status_BadDebugInfo);
    std::filesystem::create_symlink("/proc/self/mem", map); // which opens, and can't be read
    EXPECT_EQ(lists->loadSymbols(table.get(), nullptr, k_allKinds, nullptr), status_BadDebugInfo);
}

TEST(KernelLists, WhatALineSays) {
    TempDir const dir;
    struct {
        char const* what;
        char const* list;
        char const* answer;
    } const rows[] = {
        {"the line after which a list is known as wide", "ffffffff81000000 T _text\nffffffff81000010 T next\n",
         "ffffffff81000010 7effffef _text@ffffffff81000000+0 11 next@ffffffff81000010+0 11"},
        {"a narrow one", "c0100000 T _text\nc0100010 G g\nc0100010 g h\n",
         "c0100000 3fefffff _text@c0100000+0 11 g@c0100010+0 82 h@c0100010+0 82"},
        {"letters in the ninth place", "ffffffffa1000000 T _text\n", "80000000 7fffffff"},
        {"the base itself", "80000000 A start\nc0100000 T _text\n", "80000000 7fffffff _text@c0100000+0 11"},
        {"another type in front of the text", "c0000000 D d\nc0100000 T _text\n",
         "80000000 7fffffff d@c0000000+0 41 _text@c0100000+0 11"},
        {"a absolute", "90000000 a a\n80000010 t t\n", "80000000 7fffffff t@80000010+0 11"},
        {"the module part", "c0100000 T _text\nc0100008 t foo\t[mod]\nc0100010 t bar\n",
         "c0100000 3fefffff _text@c0100000+0 11"},
        {"the module part ends the scan too", "7fffff00 t foo\t[mod]\nc0100000 T _text\n", "80000000 7fffffff"},
        {"in front of anything else", "c0100000 T _text\n[\n", "c0100000 3fefffff"},
        {"more behind the name", "c0100000 T _text and [more]\nc0100008 t foo", // no end of line
         "c0100000 3fefffff _text@c0100000+0 11 foo@c0100008+0 11"},
        {"a broken line", "c0100000 T _text\nc010000 t foo\n", "bad: c0100000 3fefffff _text@c0100000+0 11"},
        {"a name that is missing", "c0100000 T _text\nc0100008 t", "bad: c0100000 3fefffff _text@c0100000+0 11"},
        {"a sign, a prefix, a blank", " c010000 T _text\n", "bad: 80000000 7fffffff"},
        {"outside the segment", "7fffffff T below\nffffffff T end\n", "ffffffff 0 end@ffffffff+0 11"},
        {"nothing", "", "80000000 7fffffff"},
        {"all hidden", "00000000 T a\n00000000 t b\n", "80000000 7fffffff"},
    };
    for (auto const& row : rows) {
        EXPECT_EQ(answerOf(*kernelWith(dir.file("list", row.list))), row.answer) << row.what;
    }
    EXPECT_EQ(answerOf(*kernelWith(dir.file("l", "ffffffffa1000000 T _text\n"), "vmlinux-x86_64")),
              "ffffffffa1000000 5effffff _text@ffffffffa1000000+0 11");
}

TEST(KernelLists, BesideACompressedKernel) {
    // Headers and one segment, which the file has no more than the headers of.
    ElfBuilder elf;
    elf.withSectionHeaders = false;
    elf.load(PF_R | PF_X, 0xFFFFFFFF81000000, 0x100000, 64 + 56, 100);
    std::string const headers = elf.bytes().substr(0, 64 + 56);
    TempDir const dir;
    dir.file("System.map", "ffffffff81000000 T _text\nffffffff81000010 T next\nffffffff90000000 T outside\n");
    SymMgrObjectPtr<IModuleSymbolBank> bank;
    ASSERT_EQ(loadBank(dir.file("vmlinuz", headers + "...\x1F\x8B\x08" + std::string(94, '.')), bank), status_Ok);
    EXPECT_EQ(answerOf(*bank), "ffffffff81000000 100000 _text@ffffffff81000000+0 11 next@ffffffff81000010+0 11");
    EXPECT_EQ(bank->symFileName(), dir.path() + "/System.map");
    // A file that is no ELF file has the headers that are made up for it.
    ASSERT_EQ(loadBank(dir.file("vmlinuz", "MZ, and a kernel of today"), bank), status_Ok);
    EXPECT_EQ(answerOf(*bank), "ffffffff81000010 7effffef _text@ffffffff81000000+0 11 next@ffffffff81000010+0 11 "
                               "outside@ffffffff90000000+0 11");
}

TEST(KernelLists, AgreeWithTheirText) {
    std::mt19937 random(5);
    TempDir const dir;
    auto const pick = [&](auto const& items) { return items[random() % std::size(items)]; };
    for (int round = 0; round < 600; ++round) {
        bool const isWide = random() % 2 == 0;
        unsigned long long address = random() % 3 == 0 ? 0 : isWide ? 0xFFFFFFFF7FFFFF00 : 0x7FFFFF00;
        std::ostringstream list;
        for (unsigned int line = random() % 12; line > 0; --line) {
            std::ostringstream digits;
            digits << std::hex << address;
            list << std::string((isWide ? 16 : 8) - digits.str().size(), '0') << digits.str();
            list << pick(std::vector<std::string>{" ", " ", " ", "\t ", ""}) << "TtTtDdGgAaBb1"[random() % 13]
                 << pick(std::vector<std::string>{" ", " ", " ", "  ", "\n"}) << "name" << line
                 << pick(std::vector<std::string>{"\n", "\n", "\n", "\n", "\n", " more\n", "\n\n ", "\t[mod]\n", "",
                                                  "\r\n", " \v\n"});
            unsigned long long const next =
                address + 1 + (random() % 2 == 0 ? random() % 0x400 : random() % 0x40000000);
            address = isWide || next <= 0xFFFFFFFF ? std::max(next, address) : 0xFFFFFFFF; // sometimes twice
        }
        std::string text = list.str();
        if (random() % 4 == 0 && !text.empty()) {
            text[random() % text.size()] = "0f [Tz\n"[random() % 7];
        }
        bool const isWideName = random() % 2 == 0;
        auto const mask =
            static_cast<symbol_kind_t>(random() % 2 == 0 ? 31U : static_cast<unsigned int>(random()) % 32 | 1);
        EXPECT_EQ(answerOf(*kernelWith(dir.file("list", text), isWideName ? "vmlinux-x86_64" : "vmlinux"), mask),
                  modelOf(text, isWideName, mask))
            << text << "\nwide name: " << isWideName << " mask " << mask;
    }
}

TEST(KernelLists, NamesOutliveTheTextAndAreKeptOnce) {
    TempDir const dir;
    std::string text;
    for (int i = 0; i < 3000; ++i) {
        char line[64];
        std::snprintf(line, sizeof(line), "%08x T name%d%s\n", 0xC0000000U + i * 16, i,
                      i % 1000 == 7 ? std::string(40, 'x').c_str() : "");
        text += line;
    }
    text += "c1000000 T " + std::string(100000, 'y') + "\nc1000010 T z\n";
    std::string const path = dir.file("list", text);
    auto const bank = kernelWith(path);
    char const* const before = rangeIn(*bank, 0xC0000010, symbol_kind_Function)->symbol()->name();
    EXPECT_EQ(symbolAt(*bank, 0xC1000008).size(), 100000U + std::string("@c1000000+0").size());
    // The list is read again for each prefetched address, and has changed in between.
    dir.file("list", "c0000000 T other\n" + text.substr(text.find('\n') + 1));
    for (int i = 0; i < 3; ++i) {
        bank->prefetcher()->putPseudoAddress(0xC0000010 + i * 16);
        EXPECT_EQ(symbolAt(*bank, 0xC0000010 + i * 16), "name" + std::to_string(1 + i) + "@" +
                                                            (i == 0   ? "c0000010+0"
                                                             : i == 1 ? "c0000020+0"
                                                                      : "c0000030+0"));
    }
    // Of what lies below a prefetched address the closest comes, and nothing else.
    auto const few = kernelWith(dir.file("falling", "c0000030 T d\nc0000020 T c\nc0000010 T b\nc0000000 T _text\n"));
    few->prefetcher()->putPseudoAddress(0xC0000020);
    EXPECT_EQ(answerOf(*few), "c0000030 3fffffcf b@c0000010+0 11 c@c0000020+0 11 d@c0000030+0 11");
    EXPECT_STREQ(before, "name1");
    EXPECT_EQ(rangeIn(*bank, 0xC0000010, symbol_kind_Function)->symbol()->name(), before);
}
