// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// Optimisation remarks: tables written from rows, read from sections, asked for by address.

#include "optreport/orv_optreportreader.h"
#include "resolver/orv_debug_sections.h"
#include "support/orv_elf_builder.h"
#include "support/orv_test_support.h"

#include <random>

using namespace orv_test;

namespace {

/// Seven bits a byte, low first; the last has no high bit.
std::string packed(std::string const& text) {
    std::string out;
    for (std::size_t bit = 0; bit < 8 * text.size(); bit += 7) {
        unsigned int group = 0;
        for (std::size_t i = bit; i < bit + 7 && i < 8 * text.size(); ++i) {
            group |= (static_cast<unsigned char>(text[i / 8]) >> i % 8 & 1U) << (i - bit);
        }
        out += static_cast<char>(group | (bit + 7 < 8 * text.size() ? 0x80 : 0));
    }
    return out;
}

struct Row {
    std::string name;
    unsigned long long anchor;
    std::string value; ///< Behind length and tag.
    unsigned int length = 0;
    unsigned int tag = 0x10;
};

Row report(unsigned long long anchor, std::string const& text) {
    return {"optimization_report", anchor, packed(text), static_cast<unsigned int>(text.size())};
}

Row versionRow(unsigned int version) {
    return {"optimization_report_version", 0, std::string(1, static_cast<char>(version)), 1};
}

struct Table {
    std::vector<Row> rows;
    unsigned int version = 0x0101;
    unsigned int flags = 8;
    unsigned int headerSize = 44;
    unsigned int lessNames = 0; ///< Bytes that the sizes leave out.
    unsigned int lessData = 0;

    /// Header, entries, names, data.
    std::string bytes() const {
        std::string names;
        std::string data;
        std::string entries;
        for (Row const& row : rows) {
            ElfBuilder::put(entries, row.anchor, 8);
            ElfBuilder::put(entries, names.size(), 4);
            ElfBuilder::put(entries, data.size(), 4);
            names += row.name + '\0';
            data += static_cast<char>(row.length);
            data += static_cast<char>(row.tag) + row.value;
        }
        std::string out(".zvk_notify_tab", 16);
        std::size_t const namesOffset = headerSize + entries.size();
        ElfBuilder::put(out, version, 2);
        ElfBuilder::put(out, headerSize, 2);
        ElfBuilder::put(out, rows.size(), 4);
        ElfBuilder::put(out, namesOffset, 4);
        ElfBuilder::put(out, names.size() - lessNames, 4);
        ElfBuilder::put(out, namesOffset + names.size(), 4);
        ElfBuilder::put(out, data.size() - lessData, 4);
        ElfBuilder::put(out, flags, 4);
        out.resize(std::max<std::size_t>(out.size(), headerSize), 'h');
        return out + entries + names + data + std::string(20, '\0'); // entries want more behind them
    }
};

class Bytes final : public SymMgrObject<IBuffer> {
public:
    explicit Bytes(std::string bytes) : m_bytes(std::move(bytes)) {}
    unsigned long long size() override { return m_bytes.size(); }
    unsigned char* data() override { return reinterpret_cast<unsigned char*>(m_bytes.data()); }

private:
    std::string m_bytes;
};

std::string textOf(IOptReportEntry& entry) {
    auto const [text, size] = entry.text();
    std::ostringstream out;
    out << std::hex << entry.address() << std::dec << ' ' << entry.version() << ' ' << std::string(text).substr(0, size)
        << '/' << size << ' ';
    return out.str();
}

std::string hexOf(unsigned long long value) {
    std::ostringstream out;
    out << std::hex << value;
    return out.str();
}

std::string read(std::string const& bytes, unsigned long long address = 0x2000) {
    OptReportReader reader(SymMgrObjectPtr<IBuffer>(new Bytes(bytes)), address);
    std::string all;
    for (reader.reset(); reader.current() != nullptr; reader.next()) {
        all += textOf(*reader.current());
    }
    EXPECT_FALSE(reader.next()) << "the end stays the end";
    EXPECT_EQ(reader.current(), nullptr);
    return all;
}

ElfBuilder module() {
    ElfBuilder elf;
    elf.load(PF_R | PF_X, 0x1000, 0x1000);
    elf.section(".text", SHT_PROGBITS, SHF_ALLOC | SHF_EXECINSTR, 0x1000, std::string(0x100, 'x'));
    return elf;
}

} // namespace

TEST(OptReports, ReadsTables) {
    Table relative{{report(0xFFFFFFF0, "near")}, 0x0101, 0x0D};
    Table few{{report(0x10, "a")}};
    Table skipped{{report(0x10, "no")}, 0x0205};
    Table unflagged{{report(0x10, "no")}, 0x0101, 7};
    Table endless{{}, 0x0205, 8, 0};
    Table old{{report(0x10, "no")}, 0x0001};
    Table wide{{versionRow(0x34), report(0x10, "a")}};
    wide.rows[0].value = "\xB4\x24"; // 0x1234
    wide.rows[0].length = 2;
    Table nested{{report(0x10, "a"), {"other", 0, few.bytes(), 9}}};
    Table const several{{versionRow(3), report(0x1000, "abc"), {"other", 1, "x", 9}, report(0x0FF0, "before")}};
    Table const endsOnAnother{{report(0x20, "one"), versionRow(7)}};
    struct Case {
        char const* what;
        std::string bytes;
        std::string reports;
    };
    for (auto const& [what, bytes, reports] : {
             Case{"absolute", few.bytes(), "10 0 a/16 "},
             Case{"relative, 4 bytes, negative", std::string(0x100, 'j') + relative.bytes(), "20f0 0 near/16 "},
             Case{"another version and another kind are passed over", skipped.bytes() + unflagged.bytes() + few.bytes(),
                  "10 0 a/16 "},
             Case{"a version stays for later tables", several.bytes() + "junk" + few.bytes(),
                  "1000 3 abc/16 ff0 3 before/16 10 3 a/16 "},
             Case{"what ends on another entry gives the last once more", endsOnAnother.bytes() + few.bytes(),
                  "20 0 one/16 20 0 one/16 10 7 a/16 "},
             Case{"no entries", few.bytes() + Table{}.bytes(), "10 0 a/16 10 0 a/16 "},
             Case{"no entries, and none before", Table{}.bytes(), "0 0 /0 "},
             Case{"a header of no size", endless.bytes() + few.bytes(), "10 0 a/16 "},
             Case{"as short as a table can be", Table{}.bytes().substr(0, 49), "0 0 /0 "},
             Case{"one byte short of that", Table{}.bytes().substr(0, 48), ""},
             Case{"another version with a short header",
                  endless.bytes().substr(0, 18) + std::string("\x14\0", 2) + few.bytes(), "10 0 a/16 "},
             Case{"a major version of 0", old.bytes() + few.bytes(), "10 0 a/16 "},
             Case{"a version of two bytes", wide.bytes(), "10 4660 a/16 "},
             Case{"a signature in the data of a table", nested.bytes() + few.bytes(), "10 0 a/16 10 0 a/16 10 0 a/16 "},
             Case{"two tables at two distances", relative.bytes() + relative.bytes(),
                  "1ff0 0 near/16 " + hexOf(0x1ff0 + relative.bytes().size()) + " 0 near/16 "},
             Case{"nothing", "", ""},
         }) {
        EXPECT_EQ(read(bytes), reports) << what;
    }
}

/// A table with a report whose name and value stand in front of its entry, which ends so many bytes ahead of the
/// section.
std::string entryLast(std::size_t behind) {
    std::string const names("other", 6);
    std::string const data = "x";
    std::string out(".zvk_notify_tab", 16);
    ElfBuilder::put(out, 0x0101, 2);
    ElfBuilder::put(out, 44 + names.size() + data.size(), 2);
    for (std::size_t const value :
         {std::size_t{1}, std::size_t{44}, names.size(), 44 + names.size(), data.size(), std::size_t{8}}) {
        ElfBuilder::put(out, value, 4);
    }
    out += names + data;
    ElfBuilder::put(out, 0x10, 8);
    ElfBuilder::put(out, 0, 8);
    return out + std::string(behind, '\0');
}

TEST(OptReports, CorruptTablesEndTheirSection) {
    EXPECT_EQ(read(entryLast(1)), "0 0 /0 "); // what ends on another entry gives the last one, of which there is none
    EXPECT_EQ(read(entryLast(0)), "") << "an entry wants more behind it";
    auto const with = [](Row const& bad) { return Table{{report(0x10, "good"), bad, report(0x20, "behind")}}; };
    Row length = report(0x18, "x");
    length.length = 0;
    Row tag = report(0x18, "x");
    tag.tag = 0x11;
    Table names = with(report(0x18, "x"));
    names.lessNames = 20; // the last one's begins outside
    Table data = with(report(0x18, "x"));
    data.lessData = 9;
    std::string const whole = with(report(0x18, "x")).bytes();
    struct Case {
        char const* what;
        std::string bytes;
        std::string reports;
    };
    for (auto const& [what, bytes, reports] : {
             Case{"nothing wrong", whole, "10 0 good/16 18 0 x/16 20 0 behind/16 "},
             Case{"a length of 0", with(length).bytes(), "10 0 good/16 "},
             Case{"a wrong tag", with(tag).bytes(), "10 0 good/16 "},
             Case{"a name behind the names", names.bytes(), "10 0 good/16 18 0 x/16 "},
             Case{"a value behind the data", data.bytes(), "10 0 good/16 18 0 x/16 "},
             Case{"entries that end with the section", whole.substr(0, 44 + 32), ""},
         }) {
        LogCapture const log;
        bool const isWhole = bytes == whole;
        std::string const later = isWhole ? "99 0 later/16 " : ""; // what is corrupt ends the reading
        EXPECT_EQ(read(bytes + Table{{report(0x99, "later")}}.bytes()), reports + later) << what;
        EXPECT_EQ(log.count("ASSERTION FAILED: '(status_Ok == st) || (st == status_False)'"), isWhole ? 0U : 1U)
            << what;
    }
}

/// The decoder as it is told, on a buffer that is large enough for all that it may count.
std::string decoded(std::string const& payload, unsigned int length) {
    std::size_t const size = std::max<std::size_t>(length + 4, 16);
    std::string buffer(size + 600, '\0');
    std::size_t count = payload.size() < 2 ? 1 : 0;
    unsigned int bit = 0;
    for (std::size_t i = 0, at = 0; payload.size() >= 2 && i < payload.size() && count < size + 4; ++i) {
        auto const byte = static_cast<unsigned char>(payload[i]);
        for (unsigned int b = 0; b < 7; ++b) {
            std::size_t const to = 8 * at + bit + b;
            buffer[to / 8] = static_cast<char>(buffer[to / 8] | ((byte >> b & 1) << to % 8));
        }
        bit += 7;
        if (bit > 8) {
            ++at;
            bit -= 8;
            ++count;
        }
        if (byte < 0x80) {
            break;
        }
    }
    return buffer.substr(0, std::min(std::max<std::size_t>(16, count), size));
}

TEST(OptReports, TextsOfAllLengths) {
    std::mt19937 random(5);
    for (unsigned int i = 0; i < 3000; ++i) {
        Row row = report(0x10, std::string(1 + random() % 262, '\0')); // up to 300 bytes as they are packed
        row.length = std::min(row.length, 255U);
        for (char& c : row.value) {
            c = static_cast<char>(random() % 60 == 0 ? random() & 0x7F : random() | 0x80);
        }
        row.length = i % 3 == 0 ? 1 + random() % 255 : row.length;
        Table const table{{row}};
        OptReportReader reader(SymMgrObjectPtr<IBuffer>(new Bytes(table.bytes())), 0);
        reader.reset();
        ASSERT_NE(reader.current(), nullptr);
        auto const [text, size] = reader.current()->text();
        // The value may go on into what stands behind it, as far as the entries have left.
        std::string const behind = row.value + std::string(20, '\0');
        ASSERT_EQ(std::string(text, size), decoded(behind, row.length)) << i;
    }
}

TEST(OptReports, ByAddressAndRange) {
    TempDir const dir;
    ElfBuilder elf = module();
    elf.section(".debug_opt_report.1", SHT_PROGBITS, 0, 0,
                Table{{report(0x1010, "first"), report(0x1030, "third"), report(0x1010, "second")}}.bytes());
    elf.section(".debug_opt_report1", SHT_PROGBITS, 0, 0, Table{{report(0x1011, "no")}}.bytes());
    elf.section(".debug_optional", SHT_PROGBITS, 0, 0, Table{{report(0x1012, "no")}}.bytes());
    elf.section(".debug_o", SHT_PROGBITS, 0, 0, Table{{report(0x1020, "other"), {"x", 0, "", 0, 0}}}.bytes());
    std::string const path = dir.file("m", elf.bytes());
    SymMgrObjectPtr<IModuleSymbolBank> bank;
    ASSERT_EQ(loadBank(path, bank), status_Ok);
    auto const range = [&](IAddress* begin, unsigned long long size, status_t* status = nullptr) {
        SymMgrObjectPtr<IIterator<IOptReportEntry*>> it;
        status_t const answer = bank->optReports(it, SymMgrObjectPtr<IAddress>(begin), size);
        if (status != nullptr) {
            *status = answer;
        }
        std::string all;
        for (; it && it->current() != nullptr; it->next()) {
            all += textOf(*it->current());
        }
        return all;
    };
    std::string const everything = "1010 0 first/16 1010 0 second/16 1020 0 other/16 1020 0 other/16 1030 0 third/16 ";
    status_t status = status_Ok;
    EXPECT_EQ(range(nullptr, 0), everything) << "no begin, no bound";
    EXPECT_EQ(range(addressIn(*bank, 0x1010).get(), 0, &status), "");
    EXPECT_EQ(status, status_False);
    EXPECT_EQ(range(addressIn(*bank, 0x1010).get(), 0x10), "1010 0 first/16 1010 0 second/16 ");
    EXPECT_EQ(range(addressIn(*bank, 0x1011).get(), ~0ULL), "") << "an end below the start is the start";
    EXPECT_EQ(range(addressIn(*bank, 0x1011).get(), 0x20), "1020 0 other/16 1020 0 other/16 1030 0 third/16 ");
    IOptReportEntry* entry = nullptr;
    ASSERT_EQ(bank->optReportByAddress(addressIn(*bank, 0x1010), entry), status_Ok);
    EXPECT_EQ(textOf(*entry), "1010 0 first/16 ") << "of several the first";
    EXPECT_EQ(bank->optReportByAddress(addressIn(*bank, 0x1011), entry), status_False);
    EXPECT_EQ(bank->optReportByAddress(SymMgrObjectPtr<IAddress>(), entry), status_False);
    SymMgrObjectPtr<IIterator<IOptReportEntry*>> it;
    ASSERT_EQ(bank->optReports(it, addressIn(*bank, 0x1020), 1), status_Ok);
    bank = nullptr; // what it gave stays
    it->reset();
    EXPECT_EQ(textOf(*it->current()), "1010 0 first/16 ") << "to the first of all";
}

TEST(OptReports, OfTheSymbolFileWhereTheModuleHasNone) {
    TempDir const dir;
    ElfBuilder companion = module();
    companion.section(".debug_info", SHT_PROGBITS, 0, 0, std::string(11, '\0'));
    companion.section(".debug_o", SHT_PROGBITS, 0, 0, Table{{report(0x1004, "aside")}}.bytes());
    std::string const path = dir.file("c.debug", companion.bytes());
    std::string link("c.debug", 8);
    ElfBuilder::put(link, fileCrc(path.c_str()), 4);
    for (bool const hasOwn : {false, true}) {
        ElfBuilder elf = module();
        elf.section(".gnu_debuglink", SHT_PROGBITS, 0, 0, link);
        if (hasOwn) {
            elf.section(".debug_o", SHT_PROGBITS, 0, 0, Table{{report(0x1008, "own")}}.bytes());
        }
        SymMgrObjectPtr<IModuleSymbolBank> bank;
        ASSERT_EQ(loadBank(dir.file(hasOwn ? "own" : "none", elf.bytes()), bank), status_Ok);
        SymMgrObjectPtr<IIterator<IOptReportEntry*>> it;
        ASSERT_EQ(bank->optReports(it, SymMgrObjectPtr<IAddress>(), 0), status_Ok);
        EXPECT_EQ(textOf(*it->current()), hasOwn ? "1008 0 own/16 " : "1004 0 aside/16 ");
        EXPECT_FALSE(it->next());
    }
}

TEST(OptReports, SectionsOneByOne) {
    TempDir const dir;
    auto const readAll = [&](std::string const& bytes) {
        SymMgrObjectPtr<IModuleSymbolBank> bank;
        EXPECT_EQ(loadBank(dir.file("m" + std::to_string(bytes.size()), bytes), bank), status_Ok);
        SymMgrObjectPtr<IIterator<IOptReportEntry*>> it;
        bank->optReports(it, SymMgrObjectPtr<IAddress>(), 0);
        std::vector<std::string> all;
        for (; it && it->current() != nullptr; it->next()) {
            all.push_back(textOf(*it->current()));
        }
        return all;
    };
    // Those of one address stay as they came; an anchor may count from where its section stands.
    ElfBuilder elf = module();
    Table many;
    std::vector<std::string> wanted{"10 0 first of all/17 "};
    for (int i = 10; i < 50; ++i) {
        many.rows.push_back(report(0x1000, std::to_string(i)));
        wanted.push_back("1000 0 " + std::to_string(i) + "/16 ");
    }
    many.rows.push_back(report(~0ULL, "last"));
    elf.section(".debug_o", SHT_PROGBITS, 0, 0, many.bytes());
    elf.section(".debug_o", SHT_PROGBITS, 0, 0, Table{{report(0x10, "first of all")}}.bytes());
    elf.section(".debug_o", SHT_PROGBITS, 0, 0x3000, Table{{report(0x20, "placed")}, 0x0101, 0x0D}.bytes());
    wanted.emplace_back("3020 0 placed/16 ");
    wanted.emplace_back("ffffffffffffffff 0 last/16 ");
    wanted.front() = "10 0 first of all/16 ";
    EXPECT_EQ(readAll(elf.bytes()), wanted);
    // One that can't be read ends the reading.
    ElfBuilder cut = module();
    for (unsigned int i = 0; i < 3; ++i) {
        cut.section(".debug_o", SHT_PROGBITS, 0, 0, Table{{report(i, "x")}}.bytes(), i == 1 ? 0x100000 : 0);
    }
    EXPECT_EQ(readAll(cut.bytes()), std::vector<std::string>{"0 0 x/16 "});
    // Sections that lie over each other are read as far as a file of that size can have them.
    ElfBuilder shared = module();
    for (unsigned int i = 0; i < 60; ++i) {
        shared.section(".debug_o", SHT_PROGBITS, 0, 0, i == 0 ? many.bytes() : "");
    }
    std::string bytes = shared.bytes();
    std::size_t const headers = bytes.size() - 64 * (2 + 60 + 1);
    for (std::size_t i = 3; i < 2 + 60; ++i) {
        bytes.replace(headers + 64 * i + 24, 16, bytes, headers + 64 * 2 + 24, 16); // offset and size
    }
    std::size_t const read = readAll(bytes).size();
    EXPECT_GE(read, 41U);
    EXPECT_LE(read, 41 * bytes.size() / many.bytes().size());
    EXPECT_LT(read, 41 * 10U);
}

TEST(OptReports, NothingOutside) {
    std::mt19937 random(7);
    std::string const whole = Table{{report(0x10, "one"), versionRow(3), report(0x20, "two")}}.bytes();
    for (int i = 0; i < 5000; ++i) {
        std::string bytes = whole.substr(0, 49 + random() % (whole.size() - 48));
        for (unsigned int changes = 1 + random() % 3; changes > 0; --changes) {
            // Offsets and sizes above all: near, huge, or with one bit changed.
            std::size_t const at = 16 + random() % std::min<std::size_t>(bytes.size() - 16, 80);
            bytes[at] = static_cast<char>(random() % 3 == 0 ? 0xFF : random() % 2 == 0 ? random() : bytes[at] ^ 1);
        }
        OptReportReader reader(SymMgrObjectPtr<IBuffer>(new Bytes(bytes)), 0);
        std::size_t found = 0;
        for (reader.reset(); reader.current() != nullptr; reader.next()) {
            found += reader.current()->text().second >= 16 || reader.current()->text().second == 0 ? 1 : 0;
        }
        EXPECT_LE(found, bytes.size() / 16) << i;
    }
}
