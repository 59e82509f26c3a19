// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// The candidates for a module's debug information: what they find, what they accept, and who decides.

#include "support/orv_assembler.h"

#include "resolver/orv_debug_sections.h"

using namespace orv_test;

namespace {

using Candidates = SymMgrObjectPtr<IIterator<SymMgrObjectPtr<ISymbolFileToResolve>>>;

/// A program with a function, and with what else the text says.
std::string programText(std::string const& more) {
    return ".text\n.globl code\n.type code, @function\ncode: .fill 0x20, 1, 0x90\n.size code, .-code\n" + more;
}

// The linker drops links, and notes that are broken: both get their names in the end.

std::string buildIdNote(std::string const& id, unsigned int size, unsigned int nameSize = 4, unsigned int type = 3,
                        std::string const& name = "GNU") {
    return ".section .id,\"a\",@progbits\n.4byte " + std::to_string(nameSize) + ", " + std::to_string(size) + ", " +
           std::to_string(type) + "\n.asciz \"" + name + "\"\n.byte " + id + "\n";
}

std::string debugLink(std::string const& name, std::string const& crc) {
    return ".section .link,\"\",@progbits\n.asciz \"" + name + "\"\n.balign 4\n.4byte " + crc + "\n";
}

/// A module under a name of its own.
class Placed : public Assembled {
public:
    Placed(std::string const& text, std::string const& name) : Assembled(text, Kind::Program, false, name) {
        edit("objcopy --rename-section .link=.gnu_debuglink --rename-section .id=.note.gnu.build-id");
    }
};

std::string crcText(std::string const& path) { return std::to_string(fileCrc(path.c_str())); }

/// "name validity" of each candidate.
std::string listOf(std::string const& path) {
    auto const loader = loaderOf(path);
    Candidates list;
    loader->symbolFiles(list);
    std::string text;
    forEach(list, [&](ISymbolFileToResolve& candidate) {
        text += (text.empty() ? "" : ", ") + std::string(candidate.symbolFileName()) + " " +
                std::to_string(candidate.validity());
    });
    return text;
}

SymMgrObjectPtr<ISymbolFileToResolve> candidateAt(IFileFormatLoader& loader, int index) {
    Candidates list;
    loader.symbolFiles(list);
    for (; index > 0; --index) {
        list->next();
    }
    return list->current();
}

/// Copies a file, and makes the folders that it takes.
void place(std::string const& file, std::string const& path) {
    std::filesystem::create_directories(std::filesystem::path(path).parent_path());
    std::filesystem::copy(file, path, std::filesystem::copy_options::overwrite_existing);
}

std::string symbolFileOf(std::string const& path, ISymbolFileResolver& resolver) {
    auto const bank = bankOf(path, load_flags_NewLoader, &resolver);
    return std::to_string(bank->symFileFormat()) + " " + bank->symFileName();
}

/// Gives an index of its own, whatever there is.
class FixedChoice final : public ISymbolFileResolver {
public:
    explicit FixedChoice(long long index) : m_index(index) {}
    long long resolveSymbolFile(Candidates& /*candidates*/) override { return m_index; }

private:
    long long m_index;
};

constexpr char const* k_debugInfo = ".section .debug_info,\"\",@progbits\n.byte 0\n";

} // namespace

TEST(Candidates, BuildIdNotes) {
    struct Row {
        char const* name;
        std::string note;
        std::string id; ///< Empty: no candidate.
    };
    for (Row const& row : {
             Row{"three bytes and one of padding", buildIdNote("0xAB, 0xcd, 0x01, 0xEE", 3), "ab/cd01ee"},
             Row{"the first of two notes",
                 buildIdNote("1, 2, 3, 4", 4) + ".4byte 4, 4, 3\n.asciz \"GNU\"\n.byte 9, 9, 9, 9\n", "01/020304"},
             Row{"another type", buildIdNote("1, 2, 3, 4", 4, 4, 1), ""},
             Row{"another owner", buildIdNote("1, 2, 3, 4", 4, 4, 3, "GNV"), ""},
             Row{"a long name", buildIdNote("1, 2, 3, 4, 5, 6, 7, 8", 4, 8), ""},
             Row{"no id", buildIdNote("1, 2, 3, 4", 0), ""},
             Row{"an id that is not there", buildIdNote("1, 2, 3, 4", 5), ""},
             Row{"sizes near 2^32", buildIdNote("1, 2, 3, 4", 0xFFFFFFFD, 0xFFFFFFFE), ""},
             Row{"too short", ".section .id,\"a\",@progbits\n.4byte 4, 4\n.byte 3, 0, 0\n", ""},
         }) {
        Placed const module(programText(row.note), "module");
        std::string const wanted = row.id.empty() ? "" : ".build-id/" + row.id + ".debug 4";
        EXPECT_EQ(listOf(module.path()), wanted) << row.name;
    }
}

TEST(Candidates, DebugLinkNames) {
    TempDir const away;
    std::string const absolute = away.file("absolute", "x");
    struct Row {
        char const* name;
        std::string section;
        std::string wanted;
    };
    for (Row const& row : {
             Row{"no such file", debugLink("none.debug", "0"), "none.debug 4"},
             Row{"another CRC", debugLink("c.debug", "0"), "c.debug 3"},
             Row{"an absolute path", debugLink(absolute, "0"), absolute + " 4"},
             Row{"a folder", debugLink(".", "0"), ". 4"},
             Row{"out of the folder", debugLink("../c", "0"), "../c 4"},
             Row{"an empty name", debugLink("", "0"), ""},
             Row{"a device", debugLink("../../../../../../dev/zero", "1"), "../../../../../../dev/zero 3"},
             Row{"no end", ".section .link,\"\",@progbits\n.ascii \"c.debug\"\n", ""},
             Row{"no CRC", ".section .link,\"\",@progbits\n.asciz \"c.debug\"\n.byte 1, 2\n", ""},
         }) {
        Placed const module(programText(row.section), "module");
        module.dir().file("c.debug", "another");
        EXPECT_EQ(listOf(module.path()), row.wanted) << row.name;
    }
}

TEST(Candidates, DebugLinksLeadToTwoPlaces) {
    // The CRC stands behind a name of 8 bytes, its NUL and what fills up to 12.
    Placed const companion(programText(k_debugInfo), "companion");
    Placed const module(programText(debugLink("cc.debug", crcText(companion.path()))), "module");
    std::string const beside = module.dir().file("cc.debug", "another");
    std::string const below = module.dir().path() + "/.debug/cc.debug";
    place(companion.path(), below);
    EXPECT_EQ(listOf(module.path()), below + " 1") << "a wrong file does not end the search";
    place(companion.path(), beside);
    EXPECT_EQ(listOf(module.path()), beside + " 1");
}

TEST(Candidates, StandForTheModuleItself) {
    Placed const module(programText(k_debugInfo), "module");
    EXPECT_EQ(listOf(module.path()), module.path() + " 1, " + module.path() + " 1");
    // With a link that leads nowhere the module is still reached.
    Placed const linked(programText(k_debugInfo + debugLink("c.debug", "1")), "module");
    EXPECT_EQ(listOf(linked.path()), "c.debug 4, " + linked.path() + " 1");
    auto const loader = loaderOf(linked.path());
    EXPECT_EQ(candidateAt(*loader, 1)->validateSymbolFile(module.path().c_str()), -1);
    EXPECT_EQ(candidateAt(*loader, 1)->validateSymbolFile((linked.dir().path() + "/./module").c_str()), 1);
    EXPECT_EQ(candidateAt(*loader, 1)->validateSymbolFile(nullptr), 0) << "nothing offered is no refusal";
    EXPECT_EQ(candidateAt(*loader, 0)->candidateClassFlag(), 1U);
    EXPECT_EQ(candidateAt(*loader, 1)->candidateClassFlag(), 0U);
}

TEST(Candidates, AcceptOnlyTheirOwn) {
    std::string const note = buildIdNote("1, 2, 3, 4", 4);
    Placed const companion(programText(note + k_debugInfo), "companion");
    Placed const other(programText(buildIdNote("1, 2, 3, 5", 4)), "other");
    Placed const module(programText(note + debugLink("c.debug", crcText(companion.path()))), "module");
    std::string const noElf = module.dir().file("text", "no ELF file");
    std::string const folder = module.dir().path();
    auto const loader = loaderOf(module.path());
    LogCapture const log;
    for (int index : {0, 1}) {
        auto const candidate = candidateAt(*loader, index);
        std::string const before = candidate->symbolFileName();
        for (std::string const& path : {other.path(), noElf, folder, folder + "/none", std::string()}) {
            EXPECT_EQ(candidate->validateSymbolFile(path.c_str()), -1) << path;
        }
        EXPECT_EQ(candidate->validateSymbolFile(nullptr), -1);
        EXPECT_EQ(candidate->symbolFileName(), before); // a refusal changes nothing
        EXPECT_EQ(candidate->validateSymbolFile(companion.path().c_str()), index);
        EXPECT_EQ(candidate->symbolFileName(), companion.path());
        EXPECT_EQ(candidate->validity(), symbolFileValid);
    }
    EXPECT_EQ(log.count("validating Build ID for symbol file candidate: " + noElf), 1U);
    EXPECT_EQ(log.count("cannot create ffHelper for " + noElf), 1U);
    EXPECT_EQ(log.count("validation passed for symbol file: " + companion.path()), 1U);
    // The file that a candidate holds is not read again.
    std::ofstream(companion.path()) << "changed";
    EXPECT_EQ(candidateAt(*loader, 0)->validateSymbolFile(companion.path().c_str()), 0);
    EXPECT_EQ(candidateAt(*loader, 1)->validateSymbolFile(companion.path().c_str()), 1);
}

TEST(Resolvers, ThatFindNothing) {
    Placed const module(programText(k_debugInfo), "module");
    for (long long const index : {-1LL, -2LL, 2LL, 1LL << 40}) {
        FixedChoice choice(index);
        EXPECT_EQ(symbolFileOf(module.path(), choice), "0 " + module.path()) << index;
    }
    TempDir const empty;
    DebugRootsResolver roots({empty.path()});
    EXPECT_EQ(symbolFileOf(module.path(), roots), "1 " + module.path()) << "the default order";
    auto const loader = loaderOf(module.path());
    EXPECT_EQ(wantedBuildId(*candidateAt(*loader, 0)), "");
}

TEST(Resolvers, TheSecondLoadFindsTheSame) {
    std::string const note = buildIdNote("0xAB, 2, 3, 4", 4);
    Placed const companion(programText(note), "companion");
    Placed const module(programText(note + debugLink("c.debug", crcText(companion.path()))), "module");
    TempDir const root;
    DebugRootsResolver roots({root.path()});
    std::string const byId = root.path() + "/.build-id/ab/020304.debug";
    std::string const byLink = root.path() + module.dir().path() + "/c.debug";
    place(companion.path(), byId);
    place(companion.path(), byLink);
    auto const manager = symbolManager();
    auto const loadFrom = [&](std::string const& path) { return bankOf(path, load_flags_None, &roots); };
    auto const load = [&] { return loadFrom(module.path()); };
    auto const first = load();
    EXPECT_EQ(first->symFileName(), byId);
    EXPECT_TRUE(load() == first);
    // A companion that was replaced is read anew, and who holds the old bank keeps it.
    Placed const longer(programText(note + ".data\n.fill 100, 1, 0\n"), "longer");
    place(longer.path(), byId);
    auto const second = load();
    EXPECT_EQ(second->symFileName(), byId);
    EXPECT_FALSE(second == first);
    EXPECT_EQ(symbolAt(*first, 0x1004), "code@1000+32");
    EXPECT_EQ(symbolAt(*second, 0x1004), "code@1000+32");
    // One that has gone gives way to the next.
    std::filesystem::remove(byId);
    EXPECT_EQ(load()->symFileName(), byLink);
    std::filesystem::remove(byLink);
    EXPECT_EQ(load()->symFileName(), module.path()); // its own symbols alone
    place(companion.path(), byId);
    EXPECT_EQ(load()->symFileName(), byId);
    // Nor does one stay beside the module that has gone under a root meanwhile.
    Placed const linked(programText(debugLink("c.debug", crcText(companion.path()))), "module");
    std::string const beside = linked.dir().path() + "/c.debug";
    place(companion.path(), beside);
    auto const held = loadFrom(linked.path());
    EXPECT_EQ(held->symFileName(), beside);
    place(beside, root.path() + beside);
    std::filesystem::remove(beside);
    EXPECT_EQ(loadFrom(linked.path())->symFileName(), root.path() + beside);
}

TEST(Resolvers, ARelativeNameIsSoughtAgainToo) {
    Placed const companion(programText(k_debugInfo), "companion");
    Placed const module(programText(debugLink("c.debug", crcText(companion.path()))), "module");
    TempDir const root;
    DebugRootsResolver roots({root.path()});
    std::string const path = root.path() + module.dir().path() + "/c.debug";
    std::filesystem::path const before = std::filesystem::current_path();
    std::filesystem::current_path(module.dir().path());
    SymMgrObjectPtr<IFileFormatLoader> const loader = loaderOf("module");
    std::filesystem::current_path(before);
    SymMgrObjectPtr<IIterator<SymMgrObjectPtr<ISymbolFileToResolve>>> candidates;
    auto const resolve = [&] {
        std::filesystem::current_path(module.dir().path());
        loader->symbolFiles(candidates);
        long long const index = roots.resolveSymbolFile(candidates);
        std::filesystem::current_path(before);
        return index;
    };
    place(companion.path(), path);
    EXPECT_EQ(resolve(), 0);
    std::filesystem::remove(path);
    EXPECT_EQ(resolve(), -1);
    place(companion.path(), path);
    EXPECT_EQ(resolve(), 0);
}

TEST(Resolvers, ACompanionWithoutDwarfGivesItsSymbols) {
    // The module is stripped, and the companion has nothing but symbols.
    Placed const companion(".globl hidden\n.type hidden, @function\nhidden: .fill 16, 1, 0x90\n.size hidden, 16\n",
                           "c");
    Placed const module(programText(debugLink("c.debug", crcText(companion.path()))), "module");
    module.edit("strip -s");
    place(companion.path(), module.dir().path() + "/c.debug");
    auto const bank = bankOf(module.path());
    EXPECT_EQ(bank->symFileName(), module.dir().path() + "/c.debug");
    EXPECT_EQ(bank->symFileFormat(), 0U);
    EXPECT_EQ(symbolAt(*bank, 0x1004), "hidden@1000+16");
    EXPECT_EQ(bank->memoryEstimate(), std::filesystem::file_size(companion.path()) * 8);
    std::filesystem::remove(module.dir().path() + "/c.debug");
    EXPECT_EQ(bank->memoryEstimate(), std::filesystem::file_size(module.path()) * 8) << "the companion has gone";
}
