// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
// Lays out OAT data: header, DEX entries, DEX files, classes, mapping tables and code, one behind the other, and puts
// them into an ELF file. Two passes: the first one finds how long the data are, which some places count from.
#include "support/orv_oat_writer.h"

#include "support/orv_dex_writer.h"
#include "support/orv_elf_builder.h"

#include <stdexcept>

namespace orv_test {
namespace {
constexpr char k_junk = '\x7B'; ///< In fields that a reader has no use for.
constexpr char k_code = '\x1E'; ///< Read as anything else it ends soon.
constexpr std::uint64_t k_codeHeader = 16;

void put32(std::string& out, std::uint64_t value) { ElfBuilder::put(out, value, 4); }
void putJunk(std::string& out, std::size_t size) { out.append(size, k_junk); }

std::string mappingTable(OatMapping const& mapping, bool hasUnsignedDex) {
    if (mapping.raw) {
        return *mapping.raw;
    }
    std::string table;
    putUleb(table, mapping.total.value_or(static_cast<std::uint32_t>(mapping.toDex.size() + mapping.fromDex.size())));
    putUleb(table, mapping.toDexSize.value_or(static_cast<std::uint32_t>(mapping.toDex.size())));
    std::uint32_t dex = 0; // goes on from the one table into the other
    for (std::vector<OatPair> const* pairs : {&mapping.toDex, &mapping.fromDex}) {
        std::uint32_t native = 0;
        for (OatPair const& pair : *pairs) {
            putUleb(table, pair.native - native);
            if (hasUnsignedDex) {
                putUleb(table, pair.dex - dex);
            } else {
                putSleb(table, static_cast<std::int32_t>(pair.dex - dex));
            }
            native = pair.native;
            dex = pair.dex;
        }
    }
    return table;
}

class OatLayout {
public:
    OatLayout(OatDescription const& oat, OatExtent const& extent)
        : m_oat(oat), m_extent(extent), m_version(oat.versionNumber()) {}

    OatFile lay() {
        writeHeader();
        writeDexEntries();
        writeDexFiles();
        eachClass([this](OatClassText const& one, std::string const& name, std::size_t) { writeClass(one, name); });
        eachCompiled([this](OatMethodText const& method, std::string const& name) { writeMapping(method, name); });
        beginCode();
        eachCompiled([this](OatMethodText const& method, std::string const& name) { writeCode(method, name); });
        alignTo(data(), 4);
        data() += m_oat.tail;
        data().append(m_oat.tail.size() < 4 ? 4 - m_oat.tail.size() : 0, '\0');
        return std::move(m_file);
    }

private:
    std::string& data() { return m_file.data; }
    void mark(std::string const& name) { m_file.places[name] = data().size(); }
    static std::string nameOf(std::size_t dex) { return "dex" + std::to_string(dex); }

    template <typename Visit> void eachClass(Visit const& visit) {
        for (std::size_t d = 0; d < m_oat.dex.size(); ++d) {
            for (std::size_t c = 0; c < m_oat.dex[d].classes.size(); ++c) {
                m_order = &m_file.order[d][c];
                visit(m_oat.dex[d].classes[c], nameOf(d) + ".class" + std::to_string(c), d);
            }
        }
    }
    /// Methods with an entry, in the order of the entries.
    template <typename Visit> void eachCompiled(Visit const& visit) {
        eachClass([&](OatClassText const& one, std::string const& name, std::size_t) {
            for (std::size_t const m : *m_order) {
                if (one.hasEntry(one.methods[m])) {
                    visit(one.methods[m], name + ".method" + std::to_string(m));
                }
            }
        });
    }

    void writeHeader() {
        mark("magic");
        data() = "oat\n";
        mark("version");
        data() += m_oat.version.substr(0, 4);
        data().resize(8, '\0');
        putJunk(data(), m_version >= 14 ? 12 : 8);
        mark("dexFileCount");
        put32(data(), m_oat.dex.size());
        mark("executableOffset");
        put32(data(), m_oat.codeStartField.value_or(static_cast<std::uint32_t>(m_extent.codeStart)));
        mark("trampolines");
        putJunk(data(), m_version < 14 ? 28 : m_version < 22 ? 36 : 40);
        putJunk(data(), 4);
        mark("imageDataBegin");
        putJunk(data(), 4);
        mark("trailerSize");
        put32(data(), m_oat.trailerSize);
        mark("trailer");
        putJunk(data(), m_oat.trailerSize);
    }

    void writeDexEntries() {
        for (std::size_t d = 0; d < m_oat.dex.size(); ++d) {
            OatDexText const& dex = m_oat.dex[d];
            mark(nameOf(d) + ".locationSize");
            put32(data(), dex.location.size());
            data() += dex.location;
            putJunk(data(), 4);
            mark(nameOf(d) + ".dexFileOffset");
            put32(data(), 0);
            mark(nameOf(d) + ".classOffsets");
            data().append(4 * dex.classes.size(), '\0');
        }
    }

    void writeDexFiles() {
        for (std::size_t d = 0; d < m_oat.dex.size(); ++d) {
            alignTo(data(), 4);
            mark(nameOf(d));
            OatExtent extent = m_extent;
            extent.dexStart = data().size();
            DexImage image = writeDex(m_oat.dex[d], extent);
            patch(data(), m_file.places[nameOf(d) + ".dexFileOffset"], extent.dexStart, 4);
            for (auto const& [name, place] : image.places) {
                bool const isNumber = name.size() > 6 && name.compare(name.size() - 6, 6, ".index") == 0;
                m_file.places[nameOf(d) + "." + name] = isNumber ? place : place + extent.dexStart;
            }
            m_file.order.push_back(std::move(image.order));
            data() += image.bytes;
            m_file.dex.push_back(std::move(image.bytes));
        }
    }

    /// One bit a method in the order of the class data, in whole words.
    std::string bitmapOf(OatClassText const& one) const {
        std::string bitmap((one.methods.size() + 31) / 32 * 4, '\0');
        for (std::size_t i = 0; i < m_order->size(); ++i) {
            bool const isCompiled = one.methods[(*m_order)[i]].isCompiled;
            bitmap[i / 8] = static_cast<char>(bitmap[i / 8] | (isCompiled ? 1 << i % 8 : 0));
        }
        return one.bitmap.value_or(bitmap);
    }

    void writeClass(OatClassText const& one, std::string const& name) {
        alignTo(data(), 4);
        std::uint64_t const start = data().size();
        mark(name);
        ElfBuilder::put(data(), 10, 2); // status: initialised
        mark(name + ".type");
        ElfBuilder::put(data(), one.type, 2);
        if (one.type == oatClassSome) {
            std::string const bitmap = bitmapOf(one);
            mark(name + ".bitmapSize");
            put32(data(), bitmap.size());
            mark(name + ".bitmap");
            data() += bitmap;
        }
        mark(name + ".entries");
        for (std::size_t const m : *m_order) {
            if (one.hasEntry(one.methods[m])) {
                mark(name + ".method" + std::to_string(m) + ".entry");
                put32(data(), 0);
                putJunk(data(), m_version < 22 ? 24 : 16);
            }
        }
        std::size_t const dot = name.find('.');
        std::uint64_t const index = std::stoull(name.substr(dot + 6));
        patch(data(), m_file.places[name.substr(0, dot) + ".classOffsets"] + 4 * index,
              one.offset ? m_extent.at(*one.offset) : start, 4);
    }

    void writeMapping(OatMethodText const& method, std::string const& name) {
        if (method.mapping) {
            mark(name + ".map");
            data() += mappingTable(*method.mapping, m_version == 7);
        }
        if (m_version < 22) {
            std::uint64_t const table = method.mapping ? m_file.places[name + ".map"] : 0;
            patch(data(), m_file.places[name + ".entry"] + 16, method.mapWord ? m_extent.at(*method.mapWord) : table,
                  4);
        }
    }

    void beginCode() {
        alignTo(data(), 16);
        std::uint64_t const start = m_oat.codeStart.value_or(static_cast<std::uint32_t>(data().size()));
        if (start < data().size()) {
            throw std::runtime_error("the tables reach beyond where the code is to begin");
        }
        data().resize(start, '\0');
        mark("code");
    }

    void writeCode(OatMethodText const& method, std::string const& name) {
        std::uint64_t const entry = m_file.places[name + ".entry"];
        if (method.codeOffset) {
            patch(data(), entry, m_extent.at(*method.codeOffset), 4);
            return;
        }
        alignTo(data(), 16);
        std::uint64_t const start = data().size() + k_codeHeader;
        std::uint64_t const back = method.mapping ? start - m_file.places[name + ".map"] : start; // all the way: none
        putJunk(data(), 4);
        put32(data(), method.mapWord ? m_extent.at(*method.mapWord) : back);
        putJunk(data(), 4);
        put32(data(), method.codeSizeField.value_or(method.codeSize));
        mark(name + ".code");
        patch(data(), entry, start + (method.isThumb ? 1 : 0), 4);
        data().append(method.codeSize, k_code);
    }

    OatDescription const& m_oat;
    OatExtent m_extent;
    long m_version;
    std::vector<std::size_t> const* m_order = nullptr;
    OatFile m_file{};
};

std::string elfOf(OatDescription const& oat, OatFile& file) {
    ElfBuilder elf(oat.is32 ? ElfClass::Elf32 : ElfClass::Elf64);
    elf.type = ET_DYN;
    elf.machine = oat.machine.value_or(oat.is32 ? EM_ARM : EM_X86_64);
    elf.dynamicSymbols = true;
    elf.symbolGap = elf.machine == 31 ? 4 : 0;
    std::uint64_t const headers = oat.is32 ? 52 + 2 * 32 : 64 + 2 * 56;
    if (oat.fileOffset < headers) {
        throw std::runtime_error("the file's headers reach to " + std::to_string(headers));
    }
    std::uint64_t const code = file.places.at("code");
    std::uint64_t const codeSize = file.data.size() - code;
    file.dataOffset = oat.fileOffset;
    file.dataAddress = oat.base;
    file.execAddress = oat.base + code;
    elf.load(PF_R, oat.base, code, oat.fileOffset, code);
    elf.load(PF_R | PF_X, file.execAddress, codeSize, oat.fileOffset + code, codeSize);
    if (oat.fileOffset > headers) {
        elf.section(".comment", SHT_PROGBITS, 0, 0, std::string(oat.fileOffset - headers, '\0'));
    }
    std::uint32_t const tables = elf.section(".rodata", SHT_PROGBITS, SHF_ALLOC, oat.base, file.data.substr(0, code));
    elf.section(".text", SHT_PROGBITS, SHF_ALLOC | SHF_EXECINSTR, file.execAddress, file.data.substr(code));
    auto const symbol = [&](std::string const& name, std::uint64_t value, std::uint64_t size, bool isCode) {
        elf.symbol(name, STB_GLOBAL, STT_OBJECT, value, size, static_cast<std::uint16_t>(tables + (isCode ? 1 : 0)));
    };
    for (unsigned int i = 0; i < oat.decoys; ++i) {
        symbol("decoy" + std::to_string(i), oat.base + 4 * std::uint64_t(i), 4, false);
    }
    symbol("oatdata", oat.base, code, false);
    symbol("oatexec", file.execAddress, codeSize, true);
    symbol("oatlastword", oat.base + file.data.size() - 4, 4, true);
    return elf.bytes();
}
} // namespace

OatFile writeOat(OatDescription const& description) {
    OatFile const draft = OatLayout(description, {}).lay();
    OatFile file = OatLayout(description, {draft.data.size(), draft.places.at("code"), 0}).lay();
    if (file.data.size() != draft.data.size()) {
        throw std::runtime_error("the data change their length with the places in them");
    }
    file.elf = elfOf(description, file);
    return file;
}

OatFile writeOat(std::string const& text) { return writeOat(parseOat(text)); }

} // namespace orv_test
