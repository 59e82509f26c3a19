// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// Modules made of assembler text, so that a test shows the debug information that it is about.
///
///     DwarfText text;
///     text.abbrev(1, DW_TAG_compile_unit, true, {{DW_AT_name, DW_FORM_string}});
///     text.unit({}, ".uleb128 1\n.asciz \"a.c\"\n.byte 0\n");
///     Assembled program(text.source());        // an ELF program; its code is 0x1000..0x2000
#pragma once

#include "support/orv_test_support.h"

#include <cstdio>
#include <cstdlib>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

namespace orv_test {

/// Sections .debug_info and .debug_abbrev as text. What other sections a test needs it adds as they are.
class DwarfText {
public:
    struct Unit {
        unsigned int version = 4;
        unsigned int addrSize = 8;
        bool is64 = false;
    };
    using Specs = std::vector<std::pair<unsigned int, unsigned int>>;

    DwarfText& abbrev(unsigned int code, unsigned int tag, bool hasChildren, Specs const& specs) {
        m_abbrevs << ".uleb128 " << code << ", " << tag << "\n.byte " << hasChildren << "\n";
        for (auto const& [attr, form] : specs) {
            m_abbrevs << ".uleb128 " << attr << ", " << form << "\n";
        }
        m_abbrevs << ".byte 0, 0\n";
        return *this;
    }
    /// Text in the abbreviation section, as it is.
    DwarfText& abbrevText(std::string const& text) {
        m_abbrevs << text;
        return *this;
    }
    /// A unit with its header. In the text, ".Lunit0" and so on stand at the units' beginnings.
    DwarfText& unit(Unit const& unit, std::string const& entries) {
        std::string const label = std::to_string(m_unitCount++);
        std::string const offset = unit.is64 ? ".8byte " : ".4byte ";
        m_info << ".Lunit" << label << ":\n"
               << (unit.is64 ? ".4byte 0xffffffff\n" : "") << offset << ".Lend" << label << " - .Lbegin" << label
               << "\n"
               << ".Lbegin" << label << ":\n.2byte " << unit.version << "\n"
               << offset << ".Labbrev\n.byte " << unit.addrSize << "\n"
               << entries << ".Lend" << label << ":\n";
        return *this;
    }
    DwarfText& section(std::string const& name, std::string const& text) {
        m_others << ".section " << name << ",\"\",@progbits\n" << text;
        return *this;
    }
    std::string source() const {
        return ".text\n.globl code\ncode: .fill 0x1000, 1, 0x90\n.section .debug_abbrev,\"\",@progbits\n.Labbrev:\n" +
               m_abbrevs.str() + ".byte 0\n.section .debug_info,\"\",@progbits\n.Linfo:\n" + m_info.str() +
               m_others.str();
    }

private:
    std::ostringstream m_abbrevs;
    std::ostringstream m_info;
    std::ostringstream m_others;
    unsigned int m_unitCount = 0;
};

/// An ELF file made of assembler text.
class Assembled {
public:
    enum class Kind { Program, Object };

    explicit Assembled(std::string const& source, Kind kind = Kind::Program, bool is32 = false) {
        m_dir.file("a.s", source);
        std::string const object = m_dir.path() + "/a.o";
        run(std::string("as ") + (is32 ? "--32" : "--64") + " -o " + object + " " + m_dir.path() + "/a.s");
        if (kind == Kind::Program) {
            run(std::string("ld ") + (is32 ? "-m elf_i386 " : "") + "-e 0x1000 -Ttext=0x1000 -o " + path() + " " +
                object);
        } else {
            std::rename(object.c_str(), path().c_str());
        }
    }
    std::string path() const { return m_dir.path() + "/module"; }
    /// The assembler writes some debug sections by itself.
    void remove(std::string const& section) const { run("objcopy -R " + section + " " + path()); }

private:
    static void run(std::string const& command) {
        if (std::system(command.c_str()) != 0) {
            throw std::runtime_error(command + " has failed");
        }
    }

    TempDir m_dir;
};

/// All symbols of a bank that have a unit, as "name[start,end)" with "l" behind local ones, in table order.
inline std::string dwarfSymbols(std::string const& path, symbol_kind_t mask = k_allKinds, status_t* status = nullptr) {
    SymMgrObjectPtr<IModuleSymbolBank> bank;
    if (loadBank(path, bank, load_flags_NewLoader) != status_Ok) {
        return "not loaded";
    }
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
