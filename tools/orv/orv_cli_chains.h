/// Which inlined bodies hold an address of a function.
#pragma once

#include "orv_cli_module.h"

#include <vector>

namespace orv_cli {

/// The ranges at an address from a function's inward: the function's own, then those of the inlined bodies that hold
/// it. Bodies without extent hold nothing: compilers leave the calls behind of which no code has stayed.
void followInlines(ISymbolRange& function, IAddress& where, std::vector<SymMgrObjectPtr<ISymbolRange>>& out);

} // namespace orv_cli
