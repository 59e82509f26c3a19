// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// Mangled names through all forms.

#include "platform/orv_demangler.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

using namespace ORV_3_30;

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
    std::string const text(reinterpret_cast<char const*>(data), size);
    for (std::string const& name : {text, "_Z" + text}) {
        SymMgrObjectPtr<ISymbolNameDemangler> const demangler =
            ISymbolNameDemangler::create(name.c_str(), exec_format_Elf);
        // Nothing that is asked for costs more than a few times the bound.
        if (std::strlen(demangler->demangledName(0)) > (std::size_t{4} << 20)) {
            std::abort();
        }
        demangler->demangledName(1);
        demangler->shortName();
        demangler->baseName();
    }
    return 0;
}
