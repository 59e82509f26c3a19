// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// Forms of a symbol's name, as the closed demangler companion declares them.
///
/// Our stand-in works on GNU's libiberty (Itanium C++ ABI, 5.1 "External Names"):
///
///     name()             the raw name as given
///     demangledName(0)   the full signature: "int std::max<int>(int, int)"
///     demangledName(1)   the name alone: "std::max<int>"
///     shortName()        the same
///     baseName()         its last component without template arguments: "max"
///
/// What does not begin with "_Z", or can't be demangled, stands for itself in every form. Each form
/// is computed when it is first asked for and kept.
#pragma once

#include "orv/orv_moduleimage.h"
#include "orv/orv_object.h"

namespace ORV_3_30 {

/// One mangled name. Strings live as long as the object. No lock: its owner guards it.
class ISymbolNameDemangler : public ISymMgrObject {
public:
    /// A null name counts as the empty one.
    static SymMgrObjectPtr<ISymbolNameDemangler> create(char const* name, exec_format_t format);

    virtual char const* name() = 0;
    virtual char const* demangledName(unsigned int options) = 0;
    virtual char const* shortName() = 0;
    virtual char const* baseName() = 0;

protected:
    ~ISymbolNameDemangler() = default;
};

} // namespace ORV_3_30
