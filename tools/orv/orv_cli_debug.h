// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// The debug information of a module below the bank: units, source files and rows of the line table.
#pragma once

#include "orv_cli_module.h"

#include <vector>

namespace orv_cli {

/// A reader of its own beside the bank's: the bank tells of a unit whose id is known, while this finds
/// them all.
class DebugInfo {
public:
    /// The debug information that the module's resolver finds. Throws Failure if there is none, or if it
    /// can't be read.
    DebugInfo(Module& module, CommonOptions const& common);

    /// All compilation units, by id.
    std::vector<ICompUnitDetails*> units();
    /// All source files, by id. Runs the line programs.
    std::vector<ISourceFile*> files();
    /// False for a GPU kernel, whose source was compiled from memory.
    bool hasFiles();
    /// The rows of such a source, by address.
    SymMgrObjectPtr<IIterator<SymMgrObjectPtr<ISourceLine>>> linesWithoutFile(unsigned long long unit, IAddress* from,
                                                                              IAddress* to);

private:
    bool isOat() { return m_loader->symFileFormat() == symbolFormatOat; }
    /// The bytes of .debug_info, uncompressed.
    SymMgrObjectPtr<IBuffer> unitBytes();

    Module& m_module;
    SymMgrObjectPtr<IDebugInfoLoader> m_loader;
    SymMgrObjectPtr<ISymbolTable> m_symbols; ///< Of an OAT file, whose lines come with them.
    ISrcLineResolver* m_resolver = nullptr;
};

char const* nameOfLanguage(unsigned int language);
unsigned long long startOf(ISourceLine& line);
/// "path:line" of a declaration; the empty string where it is not known.
std::string declarationOf(ISymbol& symbol);

} // namespace orv_cli
