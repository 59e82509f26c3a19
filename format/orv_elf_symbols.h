/// Raw symbols of an ELF file (System V ABI, "Symbol Table").
#pragma once

#include "format/orv_elf_helper.h"
#include "orv/orv_scope.h"
#include "symbols/orv_symbol.h"

#include <cstdint>

namespace ORV_3_30 {

/// One symbol that the reader has accepted.
struct ElfSymbol {
    char const* name; ///< In the string section. Null where the name lies outside it.
    unsigned long long address;
    unsigned long long size;
    symbol_visibility_t visibility;
    symbol_kind_t kind;
};

/// Walks a symbol section, and passes over what is no symbol of the module: undefined and common
/// ones, foreign bindings and types, kinds that are not wanted, and addresses in no code or data.
class ElfSymbolReader {
public:
    /// kinds: a mask; untyped symbols come along with any. Reads the sections' bytes.
    ElfSymbolReader(ElfHelper const& helper, ISectionData& symbols, ISectionData& strings, unsigned int kinds);

    /// The next accepted symbol; false at the end.
    bool next(ElfSymbol& out);

private:
    /// False for an entry that is passed over.
    bool accept(Elf64_Sym const& entry, ElfSymbol& out) const;

    ElfHelper const& m_helper;
    unsigned int m_kinds;
    unsigned char const* m_data;
    std::uint64_t m_size;
    char const* m_names;
    std::uint64_t m_namesSize;
    unsigned long long m_delta;
    std::uint64_t m_entrySize;
    std::uint64_t m_position = 0;
};

/// Reads one entry, in the file's class, into the 64-bit form. False if it lies outside the bytes.
bool readElfSymbol(bool is64, unsigned char const* data, std::uint64_t size, std::uint64_t position, Elf64_Sym& out);

class ISymbolCallBack {
public:
    virtual void symbol(SymbolName name, unsigned long long address, unsigned long long size,
                        symbol_visibility_t visibility, symbol_kind_t kind) = 0;

protected:
    ~ISymbolCallBack() = default;
};

/// Makes a scope for each symbol and puts it in a table.
class SymbolCallBack : public ISymbolCallBack {
public:
    SymbolCallBack(IFileFormatLoader* loader, ISymbolTable* table) : m_loader(loader), m_table(table) {}

    void symbol(SymbolName name, unsigned long long address, unsigned long long size, symbol_visibility_t visibility,
                symbol_kind_t kind) override;
    /// Binds the scope to its place.
    virtual void attach(Scope& scope, unsigned long long address, unsigned long long size) = 0;

protected:
    ~SymbolCallBack() = default;

private:
    IFileFormatLoader* m_loader;
    ISymbolTable* m_table;
};

/// The place is a range of the scope.
class RegularSymbolCallBack final : public SymbolCallBack {
public:
    using SymbolCallBack::SymbolCallBack;
    void attach(Scope& scope, unsigned long long address, unsigned long long size) override;
};

} // namespace ORV_3_30
