// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// Reads OAT data without a module round them.
#pragma once

#include "core/orv_address.h"
#include "core/orv_byte_buffer.h"
#include "oat/orv_oat.h"
#include "support/orv_elf_builder.h"
#include "support/orv_oat_writer.h"
#include "support/orv_test_support.h"

#include <cstring>
#include <map>

namespace orv_test {

/// Of an ELF file that holds no more than the addresses.
inline SymMgrObjectPtr<IFileFormatLoader> const& emptyLoader() {
    static SymMgrObjectPtr<IFileFormatLoader> const loader = [] {
        ElfBuilder elf;
        elf.load(PF_R, 0, 0x10000000);
        TempDir const folder;
        return loaderOf(folder.file("m", elf.bytes()));
    }();
    return loader;
}

/// A reader of OAT data alone, with a table and a resolver. Of an ELF file it needs the loader, and nothing in it.
class Reader {
public:
    Reader(std::string const& data, unsigned long long start, unsigned long long exec)
        : m_loader(emptyLoader()),
          m_reader(new OATDebugInfoLoader(m_loader.get(), "x.oat", bufferOf(data), addressOf(start), addressOf(exec))),
          m_resolver(m_reader->srcLineResolver(nullptr, nullptr)) {}
    explicit Reader(OatFile const& file) : Reader(file.data, file.dataAddress, file.execAddress) {}

    status_t load(bool withLines = true) {
        return m_reader->loadSymbols(m_table.get(), nullptr, symbol_kind_Function, withLines ? m_resolver : nullptr);
    }
    /// "name[start,end)", in the order of the table.
    std::string symbols() {
        RangeIterator ranges;
        m_table->symbolRanges(ranges, 0, ~0ULL, symbol_kind_Function);
        return allRanges(ranges);
    }
    /// "file:line[start,end)", by the names of files.
    std::string lines() {
        std::map<std::string, std::string> byFile;
        for (unsigned int id = 0; ISourceFile* const file = m_resolver->sourceFileById(id); ++id) {
            LineIterator rows;
            file->sourceLines(rows, ~0ULL, nullptr, nullptr);
            std::ostringstream text;
            forEach(rows, [&](ISourceLine& line) {
                text << ' ' << file->path() << ':' << line.location()->line() << '[' << startOf(line) << ','
                     << startOf(line) + line.size() << ')';
            });
            byFile[file->path()] = text.str();
        }
        std::string all;
        for (auto const& [name, text] : byFile) {
            all += text;
        }
        return all.substr(all.empty() ? 0 : 1);
    }
    ISrcLineResolver& resolver() { return *m_resolver; }

private:
    static SymMgrObjectPtr<IBuffer> bufferOf(std::string const& data) {
        SymMgrObjectPtr<IBuffer> buffer(new ByteBuffer(data.size()));
        std::memcpy(buffer->data(), data.data(), data.size());
        return buffer;
    }
    SymMgrObjectPtr<IAddress> addressOf(unsigned long long value) {
        return SymMgrObjectPtr<IAddress>(new Address(m_loader.get(), value));
    }

    SymMgrObjectPtr<IFileFormatLoader> m_loader;
    SymMgrObjectPtr<OATDebugInfoLoader> m_reader;
    SymMgrObjectPtr<ISymbolTable> m_table = ISymbolTable::create(nullptr);
    ISrcLineResolver* m_resolver;
};

/// The code of all files here begins at 4096, the data at 0, so that numbers can be read.
inline std::string withHead(std::string const& version, std::string const& rest) {
    return "oat " + version + " base=0 exec=4096\n" + rest;
}

inline void put(std::string& data, std::uint64_t offset, std::uint64_t value, unsigned int width) {
    std::memcpy(&data[offset], &value, width);
}

constexpr char const* k_smallOat = "dex\n"
                                   "class a.Foo\n"
                                   "  method direct f()V code=16\n"
                                   "    map 0:0 4:2 8:3\n"
                                   "    debug 10 : step 0 0; step 2 1; step 1 2; end\n"
                                   "  method virtual g()V code=8\n"
                                   "    map 0:0\n"
                                   "    debug 20 : step 0 0; end\n";

} // namespace orv_test
