// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// The symbols that distributions leave in a stripped program: an ELF file packed by xz, in its section .gnu_debugdata,
/// whose symbol table has the functions that .dynsym lacks.
#pragma once

#include "core/orv_once.h"
#include "format/orv_elf_helper.h"

#include <mutex>

namespace ORV_3_30 {

/// A symbol table and its names; both or neither.
struct ElfSymbolTables {
    SymMgrObjectPtr<ISectionData> symbols;
    SymMgrObjectPtr<ISectionData> names;
};

/// Belongs to a file's loader. Any thread may ask: the first one unpacks, and those who want the same wait for it.
class PackedSymbols {
public:
    /// Neither where the file has none, or none that can be read, which has been logged then. The tables are copies of
    /// their own and stay as long as this; what else is in the packed file is let go. Throws std::bad_alloc.
    ElfSymbolTables const& of(ElfHelper const& file);

private:
    std::mutex m_lock;
    Once<ElfSymbolTables> m_tables;
};

} // namespace ORV_3_30
