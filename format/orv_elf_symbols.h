// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// Raw symbols of an ELF file (System V ABI, "Symbol Table").
#pragma once

#include "format/orv_elf_helper.h"
#include "orv/orv_scope.h"
#include "symbols/orv_range_record.h"
#include "symbols/orv_symbol.h"

#include <cstdint>
#include <vector>

namespace ORV_3_30 {

class SymbolTable;

/// Walks a symbol section, and passes over what is no symbol of the module: undefined and common
/// ones, foreign bindings and types, kinds that are not wanted, and addresses in no code or data.
class ElfSymbolReader {
public:
    /// kinds: a mask; untyped symbols come along with any. Both sections must be there.
    ElfSymbolReader(ElfHelper const& helper, ElfHelper::Role symbols, ElfHelper::Role strings, unsigned int kinds);

    /// Entries in the section.
    std::uint64_t count() const { return m_size / m_entrySize; }
    /// The next accepted symbol; false at the end. Its name is null where it lies outside the strings.
    bool next(RawSymbol& out);

private:
    /// False for an entry that is passed over.
    bool accept(Elf64_Sym const& entry, RawSymbol& out) const;

    ElfHelper const& m_helper;
    unsigned int m_kinds;
    unsigned char const* m_entries;
    std::uint64_t m_size;
    std::uint64_t m_entrySize;
    std::uint64_t m_position = 0;
    char const* m_names;
    std::uint64_t m_namesSize;
    unsigned long long m_delta;
};

/// Reads one entry, in the file's class, into the 64-bit form. False if it lies outside the bytes.
bool readElfSymbol(bool is64, unsigned char const* data, std::uint64_t size, std::uint64_t position, Elf64_Sym& out);

/// Told of each symbol of a module.
class ISymbolCallBack {
public:
    virtual void symbol(RawSymbol const& symbol) = 0;

protected:
    ~ISymbolCallBack() = default;
};

/// Makes a scope for each symbol and puts it in a table.
class SymbolCallBack : public ISymbolCallBack {
public:
    SymbolCallBack(IFileFormatLoader* loader, ISymbolTable* table) : m_loader(loader), m_table(table) {}

    /// A symbol without a name is passed over.
    void symbol(RawSymbol const& symbol) override;
    /// Binds the scope to its place.
    virtual void attach(Scope& scope, unsigned long long address, unsigned long long size) = 0;

protected:
    ~SymbolCallBack() = default;
    IFileFormatLoader* loader() const { return m_loader; }

private:
    IFileFormatLoader* m_loader;
    ISymbolTable* m_table;
};

/// The place is a range of the scope. A table of our own takes such symbols all at once, and makes a
/// scope only for those that somebody asks for; the result is the same.
class RegularSymbolCallBack final : public SymbolCallBack {
public:
    /// expected: no more than so many symbols will come.
    RegularSymbolCallBack(IFileFormatLoader* loader, ISymbolTable* table, std::size_t expected);
    void symbol(RawSymbol const& symbol) override;
    void attach(Scope& scope, unsigned long long address, unsigned long long size) override;
    /// Hands over what was collected. To be called once, after the last symbol.
    void finish();

private:
    SymbolTable* m_ownTable; ///< Null for a table that somebody else has implemented.
    std::size_t m_expected;
    RawSymbolBatch m_collected;
};

} // namespace ORV_3_30
