// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// The id tables of a DEX file: everything that it names, once each and in the order that the format asks for.
///
/// Names are UTF-16 here, since that is how DEX files sort them. Numbers stand once number() has been called.
#pragma once

#include "support/orv_oat_text.h"

#include <map>
#include <tuple>

namespace orv_test {

class DexIds {
public:
    using Name = std::u16string;
    struct Proto {
        Name result;
        std::vector<Name> parameters;
        bool operator<(Proto const& other) const {
            return std::tie(result, parameters) < std::tie(other.result, other.parameters);
        }
    };
    using Field = std::tuple<Name, Name, Name>;   ///< Class, name, type.
    using Method = std::tuple<Name, Name, Proto>; ///< Class, name, prototype.

    explicit DexIds(OatDexText const& dex);

    std::map<Name, std::uint32_t> strings{};
    std::map<Name, std::uint32_t> types{};
    std::map<Proto, std::uint32_t> protos{};
    std::map<Field, std::uint32_t> fields{};
    std::map<Method, std::uint32_t> methods{};

    static Proto protoOf(std::string const& signature);
    static Name shortyOf(Proto const& proto);
    static Method methodOf(OatClassText const& one, OatMethodText const& method);
    static Field fieldOf(OatClassText const& one, OatFieldText const& field);

private:
    void addString(std::string const& text);
    void addType(Name const& name);
    void addClass(OatClassText const& one);
    void addMethod(OatClassText const& one, OatMethodText const& method);
};

} // namespace orv_test
