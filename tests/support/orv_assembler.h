// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// Modules made of assembler text, so that a test shows the debug information that it is about.
///
///     DwarfText text;
///     text.unit({}, entry(DW_TAG_compile_unit, {{DW_AT_name, DW_FORM_string, "a.c"}},
///                         entry(DW_TAG_subprogram, {{DW_AT_low_pc, DW_FORM_addr, "code + 4"}})));
///     Assembled program(text.source());        // an ELF program; its code is 0x1000..0x2000
#pragma once

#include "dwarf/orv_dwarf_constants.h"
#include "support/orv_test_support.h"

#include <cstdio>
#include <cstdlib>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

namespace orv_test {

inline std::string number(long long value) { return std::to_string(value); }

/// One attribute of an entry: its name, its form, and its value in the assembler's words.
struct Attr {
    unsigned int name;
    unsigned int form;
    std::string value = "";
    bool isDirective = false; ///< The value is said with its directives, whatever the form is.

    std::string text() const {
        if (isDirective) {
            return value + "\n";
        }
        switch (form) {
        case DW_FORM_addr:
        case DW_FORM_data8:
        case DW_FORM_ref8: return ".8byte " + value + "\n";
        case DW_FORM_data2: return ".2byte " + value + "\n";
        case DW_FORM_data1:
        case DW_FORM_flag: return ".byte " + value + "\n";
        case DW_FORM_sdata: return ".sleb128 " + value + "\n";
        case DW_FORM_string: return ".asciz \"" + value + "\"\n";
        case DW_FORM_flag_present: return "";
        case DW_FORM_block1: return ".byte 9f - 8f\n8: " + value + "\n9:\n";
        case DW_FORM_exprloc: return ".uleb128 9f - 8f\n8: " + value + "\n9:\n";
        default: return ".4byte " + value + "\n";
        }
    }
};
using Attrs = std::vector<Attr>;

inline Attr nameAttr(std::string const& name) { return {DW_AT_name, DW_FORM_string, name}; }
inline Attr lowAttr(int offset) { return {DW_AT_low_pc, DW_FORM_addr, "code + " + number(offset)}; }

/// Of a function: its name, its place behind "code", its size, and what else there is to say.
inline Attrs functionAttrs(std::string const& name, int start, int size, Attrs const& more = {}) {
    Attrs attrs = {nameAttr(name), lowAttr(start), {DW_AT_high_pc, DW_FORM_data4, number(size)}};
    attrs.insert(attrs.end(), more.begin(), more.end());
    return attrs;
}

/// Where something was declared.
inline Attrs declaredAttrs(int file, int line) {
    return {{DW_AT_decl_file, DW_FORM_data1, number(file)}, {DW_AT_decl_line, DW_FORM_data1, number(line)}};
}

enum class Children { None, Follow };
/// Behind the children of an entry.
constexpr char const* k_end = ".byte 0\n";

/// An entry as text. Its abbreviation goes where those are, unless an equal one is there: it is known by its contents.
inline std::string entry(unsigned int tag, Attrs const& attrs, Children children = Children::None) {
    bool const hasChildren = children == Children::Follow;
    std::string label = ".Labbrev_" + number(tag) + (hasChildren ? "c" : "");
    std::string specs;
    std::string values;
    for (Attr const& attr : attrs) {
        label += "_" + number(attr.name) + "_" + number(attr.form);
        specs += ".uleb128 " + number(attr.name) + ", " + number(attr.form) + "\n";
        values += attr.text();
    }
    return ".ifndef " + label + "\n.set .Lcode, .Lcode + 1\n.set " + label + ", .Lcode\n.pushsection .debug_abbrev\n" +
           ".uleb128 .Lcode, " + number(tag) + "\n.byte " + number(hasChildren) + "\n" + specs +
           ".byte 0, 0\n.popsection\n.endif\n.uleb128 " + label + "\n" + values;
}
inline std::string entry(unsigned int tag, Attrs const& attrs, std::string const& children) {
    return entry(tag, attrs, Children::Follow) + children + k_end;
}

/// Sections .debug_info and .debug_abbrev as text. What other sections a test needs it adds as they are.
class DwarfText {
public:
    struct Unit {
        unsigned int version = 4;
        unsigned int addrSize = 8;
        bool is64 = false;
        unsigned int type = DW_UT_compile; ///< From version 5 on.
        char const* more = "";             ///< What stands behind the header for units of that type.
    };
    using Specs = std::vector<std::pair<unsigned int, unsigned int>>;

    /// An abbreviation with a code of its own, below 64, for entries that are written out.
    DwarfText& abbrev(unsigned int code, unsigned int tag, bool hasChildren, Specs const& specs) {
        m_abbrevs += ".uleb128 " + number(code) + ", " + number(tag) + "\n.byte " + number(hasChildren) + "\n";
        for (auto const& [attr, form] : specs) {
            m_abbrevs += ".uleb128 " + number(attr) + ", " + number(form) + "\n";
        }
        m_abbrevs += ".byte 0, 0\n";
        return *this;
    }
    /// Text in the abbreviation section, as it is.
    DwarfText& abbrevText(std::string const& text) {
        m_abbrevs += text;
        return *this;
    }
    /// A unit with its header. In the text, ".Lunit0" and so on stand at the units' beginnings.
    DwarfText& unit(Unit const& unit, std::string const& entries) {
        std::string const label = number(m_unitCount++);
        std::string const offset = unit.is64 ? ".8byte " : ".4byte ";
        std::string const size = ".byte " + number(unit.addrSize) + "\n";
        bool const isTyped = unit.version >= 5;
        m_info += ".Lunit" + label + ":\n" + (unit.is64 ? ".4byte 0xffffffff\n" : "") + offset + ".Lend" + label +
                  " - .Lbegin" + label + "\n.Lbegin" + label + ":\n.2byte " + number(unit.version) + "\n" +
                  (isTyped ? ".byte " + number(unit.type) + "\n" + size : "") + offset + ".Labbrev\n" +
                  (isTyped ? "" : size) + unit.more + entries + ".Lend" + label + ":\n";
        return *this;
    }
    DwarfText& section(std::string const& name, std::string const& text) {
        m_others += ".section " + name + ",\"\",@progbits\n" + text;
        return *this;
    }
    std::string source() const {
        std::string const abbrevs = ".section .debug_abbrev,\"\",@progbits\n";
        return ".text\n.globl code\ncode: .fill 0x1000, 1, 0x90\n.set .Lcode, 63\n" + abbrevs + ".Labbrev:\n" +
               m_abbrevs + ".section .debug_info,\"\",@progbits\n.Linfo:\n" + m_info + m_others + abbrevs + ".byte 0\n";
    }

private:
    std::string m_abbrevs;
    std::string m_info;
    std::string m_others;
    unsigned int m_unitCount = 0;
};

/// What stands in a line table's header.
struct LineHeader {
    unsigned int version = 2;
    unsigned int minimumInstructionLength = 1;
    unsigned int defaultIsStmt = 1;
    int lineBase = -5;
    unsigned int lineRange = 14;
    unsigned int opcodeBase = 13;
    bool is64 = false;
    std::string directories = ".asciz \"inc\"\n.asciz \"/abs\"\n";
    std::string files = ".asciz \"a.c\"\n.byte 0, 0, 0\n.asciz \"b.h\"\n.byte 1\n.uleb128 300, 70000\n"
                        ".asciz \"c.h\"\n.byte 2, 0, 0\n.asciz \"/d/e.h\"\n.byte 1, 0, 0\n";
};

/// A line table as text.
inline std::string lineTable(LineHeader const& header, std::string const& program) {
    // Its labels are local ones of the assembler.
    std::ostringstream text;
    std::string const offset = header.is64 ? ".8byte " : ".4byte ";
    text << (header.is64 ? ".4byte 0xffffffff\n" : "") << offset << "94f - 91f\n91: .2byte " << header.version << "\n"
         << offset << "93f - 92f\n92: .byte " << header.minimumInstructionLength << "\n"
         << (header.version >= 4 ? ".byte 1\n" : "") << ".byte " << header.defaultIsStmt << "\n.byte "
         << header.lineBase << ", " << header.lineRange << ", " << header.opcodeBase << "\n.fill "
         << (header.opcodeBase != 0 ? header.opcodeBase - 1 : 0) << ", 1, 1\n"
         << header.directories << ".byte 0\n"
         << header.files << ".byte 0\n93:\n"
         << program << "94:\n";
    return text.str();
}
inline std::string setAddress(long long offset) { return ".byte 0, 9, 2\n.8byte code + " + number(offset) + "\n"; }
constexpr char const* k_copyRow = ".byte 1\n";
constexpr char const* k_endSequence = ".byte 0, 1, 1\n";

/// An ELF file made of assembler text.
class Assembled {
public:
    enum class Kind { Program, Object };

    /// base: where the code of a program begins.
    explicit Assembled(std::string const& source, Kind kind = Kind::Program, bool is32 = false,
                       std::string const& name = "module", std::string const& base = "0x1000")
        : m_path(m_dir.path() + "/" + name) {
        m_dir.file("a.s", source);
        std::string const object = m_dir.path() + "/a.o";
        run(std::string("as ") + (is32 ? "--32" : "--64") + " -o " + object + " " + m_dir.path() + "/a.s");
        if (kind == Kind::Program) {
            run(std::string("ld ") + (is32 ? "-m elf_i386 " : "") + "-e " + base + " -Ttext=" + base + " -o " + path() +
                " " + object);
        } else {
            std::rename(object.c_str(), path().c_str());
        }
    }
    std::string const& path() const { return m_path; }
    TempDir const& dir() const { return m_dir; }
    /// Has it changed by a program of the binutils.
    void edit(std::string const& command) const { run(command + " " + m_path); }

private:
    static void run(std::string const& command) {
        if (std::system(command.c_str()) != 0) {
            throw std::runtime_error(command + " has failed");
        }
    }

    TempDir m_dir;
    std::string m_path;
};

/// All symbols of a bank that have a unit, as "name[start,end)" with "l" behind local ones, in table order.
inline std::string dwarfSymbols(std::string const& path, symbol_kind_t mask = k_allKinds, status_t* status = nullptr) {
    SymMgrObjectPtr<IModuleSymbolBank> const bank = bankOf(path, load_flags_NewLoader);
    RangeIterator ranges;
    status_t const result = bank->originalSymbolRanges(ranges, mask, nullptr, nullptr);
    if (status != nullptr) {
        *status = result;
    }
    std::ostringstream text;
    forEach(ranges, [&](ISymbolRange& range) {
        ICompUnitDetails* unit = nullptr;
        if (range.symbol()->compUnitDetails(unit) == status_Ok) {
            text << (text.str().empty() ? "" : " ") << range.symbol()->name() << std::hex << '[' << startOf(range)
                 << ',' << startOf(range) + range.size() << ')'
                 << (range.symbol()->visibility() == symbol_visibility_Local ? "l" : "");
        }
    });
    return text.str();
}

/// The debug information of a file below a bank: its resolver has no scope, so that rows come out as they
/// are.
class PlainDebugInfo {
public:
    explicit PlainDebugInfo(std::string const& path) : m_ffl(loaderOf(path)) {
        SymMgrObjectPtr<IIterator<SymMgrObjectPtr<ISymbolFileToResolve>>> candidates;
        m_ffl->symbolFiles(candidates);
        m_ffl->debugInfoLoader(m_loader, 0, 0);
        if (m_loader) {
            m_resolver = m_loader->srcLineResolver(nullptr, nullptr);
            status = m_loader->loadSymbols(nullptr, nullptr, 0, m_resolver);
        }
    }
    ISrcLineResolver& resolver() { return *m_resolver; }
    IDebugInfoLoader& loader() { return *m_loader; }
    bool isThere() const { return static_cast<bool>(m_loader); }

    /// "start-end name:line:column.discriminator" of all rows, file by file.
    std::string rows(unsigned long long unit = ~0ULL) {
        std::ostringstream text;
        LineIterator lines;
        linesStatus = m_resolver->sourceLines(lines, unit, 0, 0, 0, nullptr);
        for (unsigned int id = 0; lines && id < m_resolver->sourceFileCount(); ++id) {
            ISourceFile* const file = m_resolver->sourceFileById(id);
            file->sourceLines(lines, unit, nullptr, nullptr);
            forEach(lines, [&](ISourceLine& line) {
                ISourceLocation& place = *line.location();
                text << (text.str().empty() ? "" : " ") << std::hex << startOf(line) << '+' << line.size() << ' '
                     << file->path() << std::dec << ':' << place.line() << ':' << place.column();
                if (place.discriminator() != 0) {
                    text << '.' << place.discriminator();
                }
            });
        }
        return text.str();
    }

    status_t status = status_NoDebugInfo;
    status_t linesStatus = status_Ok;

private:
    SymMgrObjectPtr<IFileFormatLoader> m_ffl;
    SymMgrObjectPtr<IDebugInfoLoader> m_loader;
    ISrcLineResolver* m_resolver = nullptr;
};

} // namespace orv_test
