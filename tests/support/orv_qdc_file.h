// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// Program files of the QDC compiler from a few words, part by part.
///
///     qdcFile({{"k", miraImage("files unknown.cl\n0 1 3 1\n5 1 9 1\nend 8\n"),     // instruction, file, line, column
///               qdcBlob("kernel k\nmap 2,16 5,32\n").bytes()}});
#pragma once

#include "support/orv_assembler.h"
#include "support/orv_program_file.h"

#include <fstream>
#include <optional>
#include <string>
#include <vector>

namespace orv_test {

// --- The program file

struct QdcKernel {
    std::string name;
    std::string mira;
    std::string isa;
    std::optional<std::uint32_t> nameSize{}; ///< Where it is not that of the name with its zero byte.
};

inline CheckedBytes checkedQdcFile(std::vector<QdcKernel> const& kernels) {
    auto const bound = [](std::string const& what) {
        return std::vector<std::string>{"(ptr - m_debugInfo->data()) + " + what + " <= m_debugInfo->size()"};
    };
    CheckedBytes out;
    for (unsigned long long const word :
         {0x434451ULL, 1020ULL, 0ULL, 1024ULL, 1024ULL, 1024ULL, static_cast<unsigned long long>(kernels.size())}) {
        out.number(word, 4);
    }
    for (QdcKernel const& kernel : kernels) {
        std::uint32_t const nameSize = kernel.nameSize.value_or(static_cast<std::uint32_t>(kernel.name.size()) + 1);
        std::string room = kernel.name;
        room.resize((std::size_t{nameSize} + 3) / 4 * 4, '\0');
        out.check(12, bound("sizeof(SKernelDebugDataHeaderQDC)"));
        out.number(nameSize, 4);
        out.number(kernel.mira.size(), 4);
        out.number(kernel.isa.size(), 4);
        out.check(room.size(), bound("kernelNameSizeAligned"));
        out.raw(room);
        out.check(kernel.mira.size(), bound("kernelHeader->SizeMiraDbgInBytes"));
        out.raw(kernel.mira);
        out.check(kernel.isa.size(), bound("kernelHeader->SizeVexIsaDbgInBytes"));
        out.raw(kernel.isa);
    }
    return out;
}
inline std::string qdcFile(std::vector<QdcKernel> const& kernels) { return checkedQdcFile(kernels).bytes(); }

// --- The blob that maps instructions to machine code

/// Lines of a blob's text: "kernel NAME [RELOCATION]", and of that kernel: "first COUNT" elements that are passed over;
/// "map I,OFFSET ..."; "var NAME INTERVALS"; "sub NAME INTERVALS"; "live COUNT|- COUNT|- COUNT|-"; "regs COUNT ..."
/// once or twice, each a table of records with so many entries.
class QdcBlobWriter {
public:
    static CheckedBytes write(std::string const& text) {
        std::vector<Kernel> kernels;
        forEachLine(text, [&](std::string const& what, std::vector<std::string> const& words) {
            if (what == "kernel") {
                kernels.emplace_back();
                kernels.back().words = words;
            } else {
                kernels.back().parts.emplace_back(what, words);
            }
        });
        QdcBlobWriter writer;
        writer.m_out.number(0xDEADD010, 4);
        writer.number(kernels.size(), 2, false);
        for (Kernel const& kernel : kernels) {
            writer.kernel(kernel);
        }
        return writer.m_out;
    }

private:
    using Words = std::vector<std::string>;
    struct Kernel {
        Words words;
        std::vector<std::pair<std::string, Words>> parts;

        std::vector<Words> all(std::string const& what) const {
            std::vector<Words> found;
            for (auto const& [name, its] : parts) {
                if (name == what) {
                    found.push_back(its);
                }
            }
            return found;
        }
        Words first(std::string const& what) const {
            std::vector<Words> const found = all(what);
            return found.empty() ? Words() : found.front();
        }
    };

    static std::vector<std::string> said(std::string const& what, bool isPiece) {
        std::vector<std::string> texts{"ptr - m_debugInfo->data() + " + what + " <= m_debugInfo->size()"};
        if (isPiece) {
            texts.push_back("status == status_Ok");
        }
        return texts;
    }
    void number(unsigned long long value, unsigned int width, bool isPiece) {
        m_out.check(width, said("sizeof(uint" + std::to_string(8 * width) + "_t)", isPiece));
        m_out.number(value, width);
    }
    /// What the reader passes over.
    void filler(std::uint64_t size, std::string const& what, bool isPiece) {
        m_out.check(size, said("(size_t)" + what, isPiece));
        m_out.raw(std::string(size, '\xEE'));
    }
    void name(std::string const& text, char const* what, bool isPiece) {
        number(text.size(), 1, isPiece);
        m_out.check(text.size(), said(std::string("(size_t)") + what, isPiece));
        m_out.raw(text);
    }
    void intervals(std::string const& count, unsigned int size, char const* what) {
        number(valueOf(count), 2, true);
        filler(valueOf(count) * size, std::string("numIntervals*") + what, true);
    }
    void map(std::size_t count, bool isFiller) {
        number(count, 4, false);
        if (isFiller) {
            filler(count * 8, "numElements*CISAMapSize", false);
        } else {
            m_out.check(count * 8, said("(size_t)numElements*CISAMapSize", false));
        }
    }
    void kernel(Kernel const& kernel) {
        name(kernel.words.at(0), "kernelNameLen", false);
        number(kernel.words.size() > 1 ? valueOf(kernel.words[1]) : 0, 4, false);
        Words const first = kernel.first("first");
        map(first.empty() ? 0 : valueOf(first.front()), true);
        Words const pairs = kernel.first("map");
        map(pairs.size(), false);
        for (std::string const& pair : pairs) {
            m_out.number(valueOf(pair), 4);
            m_out.number(valueOf(pair.substr(pair.find(',') + 1)), 4);
        }
        names(kernel.all("var"), 4, 0);
        names(kernel.all("sub"), 2, 2);
        number(0xEEEE, 2, false);
        rest(kernel);
    }
    /// Variables, or subroutines, which have some words more.
    void names(std::vector<Words> const& all, unsigned int width, unsigned int wordCount) {
        number(all.size(), width, false);
        for (Words const& words : all) {
            name(words.at(0), "varNameLen", true);
            for (unsigned int i = 0; i < wordCount; ++i) {
                number(0xEEEEEEEE, 4, false);
            }
            intervals(words.at(1), 10, "LiveIntervalMIRASize");
        }
    }
    void rest(Kernel const& kernel) {
        Words live = kernel.first("live");
        live.resize(3, "-");
        for (std::string const& count : live) {
            number(count != "-" ? 0x80 : 0, 1, false);
            if (count != "-") {
                intervals(count, 14, "LiveIntervalVexISASize");
            }
        }
        std::vector<Words> tables = kernel.all("regs");
        tables.resize(2);
        for (Words const& table : tables) {
            number(table.size(), 2, false);
            for (std::string const& count : table) {
                number(0xEEEEEEEE, 4, true);
                number(valueOf(count), 2, true);
                filler(valueOf(count) * 9, "numEntries*RegInfoMappingSize", true);
            }
        }
    }

    CheckedBytes m_out;
};
inline CheckedBytes qdcBlob(std::string const& text) { return QdcBlobWriter::write(text); }

// --- The ELF image with the lines of virtual instructions

/// "files NAME ...", then for each row "INSTRUCTION FILE LINE COLUMN", and behind the rows of a sequence "end
/// INSTRUCTION"; "unit" ahead of each further unit's; "base ADDRESS", from which instructions count; "objcopy ARGUMENT
/// ..." for what is done to the image in the end; "buildid" for one that has one.
class MiraWriter {
public:
    std::string write(std::string const& text) {
        std::vector<std::string> edits;
        bool hasBuildId = false;
        std::string base = "0";
        forEachLine(text, [&](std::string const& what, std::vector<std::string> const& words) {
            if (what == "objcopy") {
                edits.push_back("objcopy");
                for (std::string const& word : words) {
                    edits.back() += ' ' + word;
                }
            } else if (what == "buildid") {
                hasBuildId = true;
            } else if (what == "base") {
                base = words.at(0);
            } else {
                line(what, words);
            }
        });
        endUnit();
        m_dwarf.section(".debug_line", m_tables);
        Assembled const image(m_dwarf.source(), Assembled::Kind::Program, false, "image", base);
        if (hasBuildId) {
            std::string const note("\4\0\0\0\4\0\0\0\3\0\0\0GNU\0\1\2\3\4", 20);
            image.edit("objcopy --add-section .note.gnu.build-id=" + image.dir().file("note", note));
        }
        for (std::string const& edit : edits) {
            image.edit(edit);
        }
        std::ifstream in(image.path(), std::ios::binary);
        return {std::istreambuf_iterator<char>(in), {}};
    }

private:
    void line(std::string const& what, std::vector<std::string> const& words) {
        if (what == "unit") {
            endUnit();
        } else if (what == "files") {
            for (std::string const& file : words) {
                m_files += ".asciz \"" + file + "\"\n.byte 0, 0, 0\n";
            }
        } else if (what == "end") {
            m_program += setAddress(std::stoll(words.at(0))) + k_endSequence;
            m_line = 1;
        } else {
            long long const next = std::stoll(words.at(1));
            m_program += setAddress(std::stoll(what)) + ".byte 4\n.uleb128 " + words.at(0) + "\n.byte 3\n.sleb128 " +
                         number(next - m_line) + "\n.byte 5\n.uleb128 " + words.at(2) + "\n" + k_copyRow;
            m_line = next;
        }
    }
    void endUnit() {
        LineHeader header;
        header.directories = "";
        header.files = m_files;
        std::string const label = "table" + number(++m_unitCount);
        m_tables += label + ":\n" + lineTable(header, m_program);
        m_dwarf.unit({}, entry(DW_TAG_compile_unit, {nameAttr("k"), {DW_AT_stmt_list, DW_FORM_sec_offset, label}}));
        m_files.clear();
        m_program.clear();
        m_line = 1;
    }

    DwarfText m_dwarf;
    std::string m_tables;
    std::string m_files;
    std::string m_program;
    long long m_line = 1;
    int m_unitCount = 0;
};
inline std::string miraImage(std::string const& text) { return MiraWriter().write(text); }

} // namespace orv_test
