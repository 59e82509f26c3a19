// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// Programs with object files of split units, and packages of those, built by a compiler.
#pragma once

#include "support/orv_elf_builder.h"
#include "support/orv_modern.h"
#include "support/orv_test_support.h"

#include <cstring>
#include <elf.h>
#include <fstream>
#include <iterator>
#include <map>
#include <stdexcept>

namespace orv_test {

inline std::string contentOf(std::string const& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

/// The bytes of a file's sections that have some, by name.
inline std::map<std::string, std::string> sectionsOf(std::string const& file) {
    Elf64_Ehdr header;
    std::memcpy(&header, file.data(), sizeof(header));
    auto const sectionAt = [&](std::size_t index) {
        Elf64_Shdr section;
        std::memcpy(&section, file.data() + header.e_shoff + index * sizeof(section), sizeof(section));
        return section;
    };
    std::size_t const names = sectionAt(header.e_shstrndx).sh_offset;
    std::map<std::string, std::string> found;
    for (std::size_t i = 1; i < header.e_shnum; ++i) {
        Elf64_Shdr const section = sectionAt(i);
        if (section.sh_type != SHT_NOBITS && section.sh_size != 0) {
            found[file.data() + names + section.sh_name] = file.substr(section.sh_offset, section.sh_size);
        }
    }
    return found;
}

/// An object file of nothing but these.
inline std::string fileOf(std::map<std::string, std::string> const& sections) {
    ElfBuilder elf;
    elf.type = ET_REL;
    for (auto const& [name, bytes] : sections) {
        elf.section(name, SHT_PROGBITS, 0, 0, bytes);
    }
    return elf.bytes();
}

/// "u0", "u1" and so on: in each a function of that name, which has another one inlined twice.
class SplitProgram {
public:
    /// compiler: with its options.
    explicit SplitProgram(std::string const& compiler, unsigned int units = 2) {
        std::string command = "cd " + m_dir.path();
        std::string objects;
        for (unsigned int i = 0; i < units; ++i) {
            std::string const name = "u" + std::to_string(i);
            m_dir.file(name + ".cpp", "struct S { short a; int b[3]; } s" + std::to_string(i) +
                                          ";\nstatic inline int twice(int x) { volatile int y = x; return y * 2; }\n"
                                          "int " +
                                          name + "(int x) {\n  if (x > 3) return twice(x);\n  s" + std::to_string(i) +
                                          ".a = x;\n  return twice(twice(x)) + 1;\n}\n");
            command += " && " + compiler + " -O2 -g -gsplit-dwarf -c " + name + ".cpp";
            objects += " " + name + ".o";
        }
        command += " && ld -e 0x1000 -Ttext=0x1000 -o program" + objects;
        if (std::system(command.c_str()) != 0) {
            throw std::runtime_error(command + " has failed");
        }
    }
    std::string path() const { return m_dir.path() + "/program"; }
    std::string splitFile(unsigned int unit) const { return m_dir.path() + "/u" + std::to_string(unit) + ".dwo"; }
    TempDir const& dir() const { return m_dir; }
    static std::string functionOf(unsigned int unit) { return "_Z2u" + std::to_string(unit) + "i"; }

private:
    TempDir m_dir;
};

/// The length of the chain of inlined calls at an address; 0 for what has no unit.
inline unsigned int chainAt(IModuleSymbolBank& bank, unsigned long long address) {
    SymMgrObjectPtr<ISymbolRange> range = rangeIn(bank, address, symbol_kind_Function);
    ICompUnitDetails* unit = nullptr;
    if (!range || range->symbol()->compUnitDetails(unit) != status_Ok) {
        return 0;
    }
    unsigned int length = 1;
    for (;; ++length) {
        SymMgrObjectPtr<ISymbolRange> inner;
        range->innerRangeByAddress(inner, addressIn(bank, address).get());
        if (!inner || inner->inlineInstance() == nullptr) {
            return length;
        }
        range = inner;
    }
}

/// The longest chain in a function; 0 if it has no unit.
inline unsigned int longestChainOf(IModuleSymbolBank& bank, std::string const& function) {
    unsigned int longest = 0;
    RangeIterator ranges;
    bank.originalSymbolRanges(ranges, symbol_kind_Function, nullptr, nullptr);
    forEach(ranges, [&](ISymbolRange& range) {
        for (unsigned long long at = 0; range.symbol()->name() == function && at < range.size(); ++at) {
            longest = std::max(longest, chainAt(bank, startOf(range) + at));
        }
    });
    return longest;
}

} // namespace orv_test
