/// Finding what a word of the command line names.
#pragma once

#include "orv_cli_module.h"

#include <vector>

namespace orv_cli {

using Ranges = SymMgrObjectPtr<IIterator<SymMgrObjectPtr<ISymbolRange>>>;

unsigned long long startOf(ISymbolRange& range);
/// The functions that a word names: those of that name, mangled or not, or the one at that address. Throws Failure if
/// there is none.
std::vector<SymMgrObjectPtr<ISymbolRange>> findFunctions(Module& module, std::string const& word);

} // namespace orv_cli
