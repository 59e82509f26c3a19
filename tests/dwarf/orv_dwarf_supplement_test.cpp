// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// What a file refers to in its supplementary file and in partial units of its own, and files that are not the one.

#include "fuzz/orv_fuzz_input.h"
#include "support/orv_assembler.h"
#include "support/orv_modern.h"

#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <random>

using namespace orv_test;
namespace fs = std::filesystem;

namespace {

constexpr unsigned int DW_TAG_imported_unit = 0x3D;
constexpr unsigned int DW_AT_const_value = 0x1C;
constexpr unsigned int DW_AT_import = 0x18;

std::string const k_note("\4\0\0\0\4\0\0\0\3\0\0\0GNU\0\1\2\3\4", 20);
std::string const k_debugSup("\5\0\1\0\4\1\2\3\4", 9); ///< Of a supplementary file.
std::string altLink(std::string const& name, std::string const& bytes = "1, 2, 3, 4") {
    return ".asciz \"" + name + "\"\n.byte " + bytes + "\n";
}
std::string debugSup(bool isSupplement, std::string const& name, std::string const& bytes = "1, 2, 3, 4") {
    return ".2byte 5\n.byte " + number(isSupplement ? 1 : 0) + "\n.asciz \"" + name + "\"\n.byte 4, " + bytes + "\n";
}

/// An entry without a meaning that ends at an offset of the section.
std::string upTo(std::string const& offset) {
    return entry(DW_TAG_base_type,
                 {{DW_AT_const_value, DW_FORM_block4, ".4byte 9f - 8f\n8: .org .Linfo + " + offset + "\n9:", true}});
}
Attr referTo(unsigned int attr, std::string const& label) { return {attr, DW_FORM_ref_addr, label + " - .Linfo"}; }
Attr supplementAttr(unsigned int attr, unsigned long long offset) {
    return {attr, DW_FORM_GNU_ref_alt, std::to_string(offset)};
}

/// One of each that others refer to, at labels beginning "sup_".
std::string supplementSource() {
    Attr const intType = referTo(DW_AT_type, "sup_int");
    auto const member = [&](std::string const& name, int offset) {
        Attrs attrs = declaredAttrs(1, 3 + offset);
        attrs.insert(attrs.begin(),
                     {nameAttr(name), intType, {DW_AT_data_member_location, DW_FORM_data1, number(offset)}});
        return entry(DW_TAG_member, attrs);
    };
    auto const labelled = [](std::string const& label, std::string const& text) { return label + ":\n" + text; };
    std::string const entries =
        upTo("0x200") +
        labelled("sup_int", entry(DW_TAG_base_type, {nameAttr("int"), {DW_AT_byte_size, DW_FORM_data1, "4"}})) +
        labelled("sup_struct", entry(DW_TAG_structure_type, {nameAttr("S"), {DW_AT_byte_size, DW_FORM_data1, "8"}},
                                     member("a", 0) + member("b", 4))) +
        labelled("sup_inlined", entry(DW_TAG_subprogram, {nameAttr("_Z7inlinedv"),
                                                          {DW_AT_inline, DW_FORM_data1, "1"},
                                                          {DW_AT_decl_file, DW_FORM_data1, "2"},
                                                          {DW_AT_decl_line, DW_FORM_data1, "42"}})) +
        labelled("sup_declared", entry(DW_TAG_subprogram, {{DW_AT_linkage_name, DW_FORM_strp, ".Lname - .Lstr"},
                                                           {DW_AT_decl_file, DW_FORM_data1, "1"},
                                                           {DW_AT_decl_line, DW_FORM_data1, "7"}})) +
        labelled("sup_chained", entry(DW_TAG_subprogram, {referTo(DW_AT_specification, "sup_declared")})) +
        labelled("sup_ring", entry(DW_TAG_subprogram, {referTo(DW_AT_specification, "sup_ring2")})) +
        labelled("sup_ring2", entry(DW_TAG_subprogram, {referTo(DW_AT_specification, "sup_ring")})) +
        labelled("sup_typering", entry(DW_TAG_typedef, {nameAttr("t"), referTo(DW_AT_type, "sup_typering")})) +
        labelled("sup_further", entry(DW_TAG_subprogram, {supplementAttr(DW_AT_specification, 0x200)})) +
        entry(DW_TAG_subprogram, functionAttrs("not_code", 0x100, 8)); // no place of the module
    DwarfText text;
    text.unit({},
              entry(DW_TAG_partial_unit,
                    {{DW_AT_stmt_list, DW_FORM_sec_offset, "0"}, {DW_AT_comp_dir, DW_FORM_string, "/sup"}}, entries));
    return text.section(".debug_line", lineTable({}, setAddress(0x10) + k_copyRow + k_endSequence))
        .section(".debug_str", ".Lstr: .asciz \"x\"\nsup_text: .asciz \"_Z4textv\"\n.Lname: .asciz \"_Z8declaredv\"\n")
        .source();
}

/// A supplementary file with the id 01020304, in a section that no linker would leave.
struct Supplement : Assembled {
    explicit Supplement(std::string const& section = ".note.gnu.build-id", std::string const& bytes = k_note)
        : Assembled(supplementSource()) {
        edit("objcopy --add-section " + section + "=" + dir().file("id", bytes));
    }
};

/// The offsets of the labels in a linked file.
class Labels {
public:
    explicit Labels(Assembled const& file) {
        std::string const list = file.dir().path() + "/labels";
        if (std::system(("nm " + file.path() + " > " + list).c_str()) != 0) {
            throw std::runtime_error("nm has failed");
        }
        std::ifstream in(list);
        std::string value;
        std::string kind;
        std::string name;
        while (in >> value >> kind >> name) {
            m_values[name] = std::stoull(value, nullptr, 16);
        }
    }
    unsigned long long operator[](std::string const& name) const { return m_values.at(name); }

private:
    std::map<std::string, unsigned long long> m_values;
};

/// Functions of 16 bytes, one for each kind of reference, and a variable. A const type and an abstract function stand
/// where the supplementary file has what they refer to.
std::string mainSource(Labels const& at, std::string const& section, std::string const& link) {
    auto const function = [](int index, Attrs attrs, std::string const& inner = "") {
        attrs.push_back(lowAttr(index * 16));
        attrs.push_back({DW_AT_high_pc, DW_FORM_data1, "16"});
        return entry(DW_TAG_subprogram, attrs, inner);
    };
    auto const variable = [](std::string const& name, int place, Attr const& type) {
        std::string const location = ".byte 3\n.8byte code + " + number(place);
        return entry(DW_TAG_variable, {nameAttr(name), {DW_AT_location, DW_FORM_exprloc, location}, type});
    };
    std::string const body = entry(
        DW_TAG_inlined_subroutine,
        {supplementAttr(DW_AT_abstract_origin, at["sup_inlined"]), lowAttr(4), {DW_AT_high_pc, DW_FORM_data1, "4"}});
    std::string const entries =
        entry(DW_TAG_imported_unit, {supplementAttr(DW_AT_import, 0xB)}) +
        entry(DW_TAG_imported_unit, {referTo(DW_AT_import, ".Lunit0")}) +
        function(0, {supplementAttr(DW_AT_specification, at["sup_declared"])}, body) +
        function(1, {{DW_AT_linkage_name, DW_FORM_GNU_strp_alt, std::to_string(at["sup_text"])}}) +
        function(2, {supplementAttr(DW_AT_abstract_origin, at["sup_chained"])}) +
        function(3, {{DW_AT_specification, DW_FORM_ref_sup4, std::to_string(at["sup_inlined"])}}) +
        function(4, {{DW_AT_linkage_name, DW_FORM_strp_sup, std::to_string(at["sup_text"])}}) +
        upTo(std::to_string(at["sup_struct"])) + ".Lconst:\n" +
        entry(DW_TAG_const_type, {supplementAttr(DW_AT_type, at["sup_struct"])}) +
        upTo(std::to_string(at["sup_declared"])) + ".Labstract:\n" +
        entry(DW_TAG_subprogram,
              {supplementAttr(DW_AT_specification, at["sup_declared"]), {DW_AT_inline, DW_FORM_data1, "1"}}) +
        function(5, {referTo(DW_AT_abstract_origin, ".Labstract")}) +
        variable("v", 0x100, referTo(DW_AT_type, ".Lconst")) +
        variable("w", 0x110, supplementAttr(DW_AT_type, at["sup_typering"])) +
        // What is wild is not there; what else the entry says is.
        function(6, {nameAttr("pastEnd"), supplementAttr(DW_AT_specification, 0x7FFFFFFF)}) +
        function(7, {nameAttr("own"), {DW_AT_linkage_name, DW_FORM_GNU_strp_alt, "0x7FFFFFFF"}}) +
        function(8, {nameAttr("ring"), supplementAttr(DW_AT_specification, at["sup_ring"])}) +
        function(9, {nameAttr("further"), supplementAttr(DW_AT_specification, at["sup_further"])}) +
        function(10, {supplementAttr(DW_AT_specification, at["sup_further"])});
    std::string const unit =
        entry(DW_TAG_compile_unit,
              {nameAttr("a.c"), {DW_AT_comp_dir, DW_FORM_string, "/main"}, {DW_AT_stmt_list, DW_FORM_sec_offset, "0"}},
              entries);
    DwarfText whole;
    whole.unit({}, unit).section(".debug_line",
                                 lineTable({}, setAddress(0) + k_copyRow + ".byte 2, 16\n" + k_endSequence));
    return whole.section(section, link).source();
}

constexpr char const* k_allSymbols =
    "_Z8declaredv[1000,1010)l _Z4textv[1010,1020)l _Z8declaredv[1020,1030)l _Z7inlinedv[1030,1040)l "
    "_Z4textv[1040,1050)l _Z8declaredv[1050,1060)l pastEnd[1060,1070)l ring[1080,1090)l further[1090,10a0)l "
    "v[1100,1108)l w[1110,1110)l";
/// Without the supplementary file.
constexpr char const* k_ownSymbols =
    "pastEnd[1060,1070)l ring[1080,1090)l further[1090,10a0)l v[1100,1100)l w[1110,1110)l";

/// "path:line" of where a symbol was declared.
std::string declared(ISymbol& symbol) {
    SymMgrObjectPtr<ISourceLine> line;
    return symbol.sourceLine(line) != status_Ok
               ? "none"
               : std::string(line->location()->sourceFile()->path()) + ":" + std::to_string(line->location()->line());
}
std::string declared(IModuleSymbolBank& bank, unsigned long long address) {
    SymMgrObjectPtr<ISymbolRange> const range = rangeIn(bank, address, symbol_kind_Function);
    return range ? declared(*range->symbol()) : "none";
}

} // namespace

TEST(DwarfSupplement, NamesOriginsTypesAndDeclarations) {
    Reading const modern(reading_Modern);
    Supplement const supplement;
    Labels const at(supplement);
    Assembled const program(mainSource(at, ".gnu_debugaltlink", altLink(supplement.path())));
    EXPECT_EQ(dwarfSymbols(program.path()), k_allSymbols);

    auto const bank = bankOf(program.path());
    EXPECT_EQ(declared(*bank, 0x1000), "/sup/a.c:7");
    EXPECT_EQ(declared(*bank, 0x1020), "/sup/a.c:7");
    EXPECT_EQ(declared(*bank, 0x1030), "/sup/inc/b.h:42");
    SymMgrObjectPtr<ISymbolRange> const function = rangeIn(*bank, 0x1004, symbol_kind_Function);
    SymMgrObjectPtr<ISymbolRange> const variable = rangeIn(*bank, 0x1100, symbol_kind_Data);
    ASSERT_TRUE(function && variable);
    EXPECT_EQ(symbolsIn(*function), "_Z7inlinedv[4100,4104)");
    EXPECT_EQ(symbolsIn(*variable), "a[4352,4356) b[4356,4360)");
    RangeIterator members;
    variable->innerRanges(members);
    ASSERT_TRUE(members && members->current());
    ICompUnitDetails* unit = nullptr;
    ASSERT_EQ(members->current()->symbol()->compUnitDetails(unit), status_Ok);
    EXPECT_EQ(unit->id(), 0U);
    EXPECT_STREQ(unit->compilationDirectory(), "/main");
    EXPECT_EQ(declared(*members->current()->symbol()), "/sup/a.c:3");

    // Its rows are nobody's, and files that only declarations name are in no list.
    PlainDebugInfo info(program.path());
    EXPECT_EQ(info.rows(), "1000+10 /main/a.c:1:0");
    EXPECT_EQ(info.resolver().sourceFileCount(), 4U);
}

TEST(DwarfSupplement, ClassicReadingKnowsNone) {
    Supplement const supplement;
    Labels const at(supplement);
    Assembled const program(mainSource(at, ".gnu_debugaltlink", altLink(supplement.path())));
    LogCapture const log;
    EXPECT_EQ(dwarfSymbols(program.path()).find("_Z4textv"), std::string::npos);
    EXPECT_EQ(log.count("supplementary"), 0U);
}

TEST(DwarfSupplement, PlacesAndIds) {
    Reading const modern(reading_Modern);
    Supplement const byNote;
    Supplement const bySection(".debug_sup", k_debugSup);
    Labels const at(byNote);
    struct Row {
        char const* what;
        Assembled const& supplement;
        char const* copiedTo; ///< Below the program's folder. Null: nowhere.
        std::string section;
        std::string link;
        char const* wanted;
    };
    Row const rows[] = {
        {"beside", byNote, "sup", ".gnu_debugaltlink", altLink("sup"), k_allSymbols},
        {"below", byNote, "x/sup", ".gnu_debugaltlink", altLink("./x/../x/sup"), k_allSymbols},
        {"by .debug_sup", bySection, "sup", ".debug_sup", debugSup(false, "sup"), k_allSymbols},
        {"by both", byNote, "sup", ".debug_sup", debugSup(false, "sup"), k_allSymbols},
        {"link to one with .debug_sup", bySection, "sup", ".gnu_debugaltlink", altLink("sup"), k_allSymbols},
        {"nowhere", byNote, nullptr, ".gnu_debugaltlink", altLink("/nowhere/sup"), k_ownSymbols},
        {"another id", byNote, "sup", ".gnu_debugaltlink", altLink("sup", "1, 2, 3, 5"), k_ownSymbols},
        {"a shorter id", byNote, "sup", ".gnu_debugaltlink", altLink("sup", "1, 2, 3"), k_ownSymbols},
        {"a longer id", byNote, "sup", ".gnu_debugaltlink", altLink("sup", "1, 2, 3, 4, 0"), k_ownSymbols},
        {"no id", byNote, "sup", ".gnu_debugaltlink", ".asciz \"sup\"\n", k_ownSymbols},
        {"no end of the name", byNote, "sup", ".gnu_debugaltlink", ".ascii \"sup\"\n", k_ownSymbols},
        {"another checksum", bySection, "sup", ".debug_sup", debugSup(false, "sup", "1, 2, 3, 5"), k_ownSymbols},
        {"a supplementary file itself", bySection, "sup", ".debug_sup", debugSup(true, "sup"), k_ownSymbols},
        {"a version to come", bySection, "sup", ".debug_sup", ".byte 6\n" + debugSup(false, "sup"), k_ownSymbols},
        {"a folder", byNote, "sup/file", ".gnu_debugaltlink", altLink("sup"), k_ownSymbols},
        {"itself", byNote, nullptr, ".gnu_debugaltlink", altLink("module"), k_ownSymbols},
    };
    for (Row const& row : rows) {
        Assembled const program(mainSource(at, row.section, row.link));
        if (row.copiedTo != nullptr) {
            fs::path const copy = fs::path(program.dir().path()) / row.copiedTo;
            fs::create_directories(copy.parent_path());
            fs::copy_file(row.supplement.path(), copy);
        }
        EXPECT_EQ(dwarfSymbols(program.path()), row.wanted) << row.what;
        EXPECT_NE(symbolAt(*bankOf(program.path()), 0x1ff0), "none") << row.what; // raw symbols answer
    }
    Assembled const program(mainSource(at, ".gnu_debugaltlink", altLink(byNote.path(), "1, 2, 3, 5")));
    LogCapture const log;
    dwarfSymbols(program.path());
    EXPECT_EQ(log.count("Supplementary file " + byNote.path() + " is not the one of " + program.path()), 1U);
    EXPECT_EQ(log.count("No supplementary file " + byNote.path() + " with the id 01020305"), 1U);
}

TEST(DwarfSupplement, RootsOfCompanions) {
    Reading const modern(reading_Modern);
    Supplement const supplement;
    Labels const at(supplement);
    constexpr char const* k_byId = ".build-id/01/020304.debug";
    struct Row {
        char const* what;
        std::string companion; ///< Below the root.
        char const* supplement;
        std::string link;
    };
    Row const rows[] = {
        {"by the build id", ".build-id/aa/bbccdd.debug", k_byId, "/nowhere/sup"},
        {"in a copy of the distributions' root", ".build-id/aa/bbccdd.debug", ".dwz/sup", "/usr/lib/debug/.dwz/sup"},
        {"beside a link to the companion", "real/c.debug", "real/sup", "sup"},
        {"by the module's folder", "", k_byId, "/nowhere/sup"},
    };
    for (Row const& row : rows) {
        TempDir const root;
        std::string const link = altLink(row.link);
        Assembled const debug(mainSource(at, ".gnu_debugaltlink", link));
        debug.edit("objcopy --add-section .note.gnu.build-id=" +
                   root.file("id", std::string("\4\0\0\0\4\0\0\0\3\0\0\0GNU\0\xaa\xbb\xcc\xdd", 20)));
        Assembled const program(".text\n.globl code\ncode: .fill 0x1000, 1, 0x90\n");
        program.edit("objcopy --add-section .note.gnu.build-id=" + root.path() + "/id");
        std::string companion = row.companion;
        if (companion.empty()) {
            companion = program.dir().path().substr(1) + "/c.debug";
        }
        auto const put = [&](std::string const& from, std::string const& to) {
            fs::create_directories(fs::path(root.path() + "/" + to).parent_path());
            fs::copy_file(from, root.path() + "/" + to);
        };
        put(debug.path(), companion);
        put(supplement.path(), row.supplement);
        if (row.companion.empty()) {
            program.edit("objcopy --remove-section .note.gnu.build-id --add-gnu-debuglink=" + root.path() + "/" +
                         companion);
        } else if (companion.compare(0, 4, "real") == 0) {
            fs::create_directories(root.path() + "/.build-id/aa");
            fs::create_symlink("../../" + companion, root.path() + "/.build-id/aa/bbccdd.debug");
        }
        DebugRootsResolver resolver({root.path()});
        auto const bank = bankOf(program.path(), load_flags_NewLoader, &resolver);
        EXPECT_EQ(symbolAt(*bank, 0x1024, symbol_kind_Function), "_Z8declaredv@1020+16") << row.what;
    }
}

TEST(DwarfSupplement, PartialUnitsOfTheFileItself) {
    Reading const modern(reading_Modern);
    std::string const shared = ".Linlined:\n" +
                               entry(DW_TAG_subprogram, {nameAttr("_Z7inlinedv"),
                                                         {DW_AT_inline, DW_FORM_data1, "1"},
                                                         {DW_AT_decl_file, DW_FORM_data1, "2"},
                                                         {DW_AT_decl_line, DW_FORM_data1, "42"}}) +
                               // Fortran, as is the unit that asks: elements are counted from 1.
                               ".Larray:\n" +
                               entry(DW_TAG_array_type, {referTo(DW_AT_type, ".Lint")},
                                     entry(DW_TAG_subrange_type, {{DW_AT_upper_bound, DW_FORM_sdata, "10"}})) +
                               ".Lint:\n" +
                               entry(DW_TAG_base_type, {nameAttr("integer"), {DW_AT_byte_size, DW_FORM_data1, "4"}});
    auto const partial = [](std::string const& import, std::string const& more) {
        return entry(DW_TAG_partial_unit,
                     {{DW_AT_stmt_list, DW_FORM_sec_offset, "0"}, {DW_AT_comp_dir, DW_FORM_string, "/d"}},
                     entry(DW_TAG_imported_unit, {referTo(DW_AT_import, import)}) + more);
    };
    DwarfText text;
    text.unit({}, partial(".Lunit1", shared)).unit({}, partial(".Lunit0", "")); // a cycle
    text.unit({}, entry(DW_TAG_compile_unit,
                        {nameAttr("a.c"),
                         {DW_AT_comp_dir, DW_FORM_string, "/d"},
                         {DW_AT_language, DW_FORM_data1, "8"},
                         {DW_AT_stmt_list, DW_FORM_sec_offset, "0"}},
                        entry(DW_TAG_imported_unit, {referTo(DW_AT_import, ".Lunit0")}) +
                            entry(DW_TAG_subprogram, {referTo(DW_AT_abstract_origin, ".Linlined"),
                                                      lowAttr(0),
                                                      {DW_AT_high_pc, DW_FORM_data1, "16"}}) +
                            entry(DW_TAG_variable, {nameAttr("v"),
                                                    referTo(DW_AT_type, ".Larray"),
                                                    {DW_AT_location, DW_FORM_exprloc, ".byte 3\n.8byte code + 256"}})));
    text.section(".debug_line", lineTable({}, setAddress(0) + k_copyRow + ".byte 2, 16\n" + k_endSequence));
    Assembled const program(text.source());
    EXPECT_EQ(dwarfSymbols(program.path()), "_Z7inlinedv[1000,1010)l v[1100,1128)l");
    EXPECT_EQ(declared(*bankOf(program.path()), 0x1000), "/d/inc/b.h:42");

    PlainDebugInfo info(program.path());
    EXPECT_EQ(info.rows(), "1000+10 /d/a.c:1:0"); // once
    EXPECT_EQ(info.resolver().sourceFileCount(), 4U);
    EXPECT_EQ(info.resolver().compUnitDetailsById(0), nullptr);
}

/// Whatever the bytes are, questions have answers; the sanitizers are the judges.
TEST(DwarfSupplement, FlippedAndCutFiles) {
    Reading const modern(reading_Modern);
    Supplement const supplement;
    Labels const at(supplement);
    Assembled const program(mainSource(at, ".gnu_debugaltlink", altLink(supplement.path())));
    auto const bytesOf = [](std::string const& path) {
        std::ifstream in(path, std::ios::binary);
        return std::string{std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
    };
    std::mt19937 chance(16);
    for (Assembled const* const file : {static_cast<Assembled const*>(&supplement), &program}) {
        std::string const good = bytesOf(file->path());
        std::size_t const from = 0x2000; // behind headers and code
        for (int i = 0; i < 150; ++i) {
            std::string bad = good;
            std::size_t const at = from + chance() % (good.size() - from);
            bad[at] = static_cast<char>(chance());
            if (i % 10 == 0 && file == &supplement) {
                bad.resize(at);
            }
            std::ofstream(file->path(), std::ios::binary) << bad;
            SymMgrObjectPtr<IModuleSymbolBank> bank;
            if (loadBank(program.path(), bank, load_flags_NewLoader) != status_Ok) {
                EXPECT_EQ(file, &program); // its own headers are flipped too
                continue;
            }
            RangeIterator ranges;
            bank->originalSymbolRanges(ranges, k_allKinds, nullptr, nullptr);
            orv_fuzz::walk(ranges);
            for (unsigned long long address = 0x1000; address < 0x1120; address += 7) {
                orv_fuzz::askAt(*bank, address);
            }
        }
        std::ofstream(file->path(), std::ios::binary) << good;
    }
    EXPECT_EQ(dwarfSymbols(program.path()), k_allSymbols);
}
