// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
// Collects and numbers what a DEX file names (Dalvik executable format, "File layout", for the order of each table).
#include "support/orv_dex_ids.h"

#include "support/orv_dex_writer.h"

#include <stdexcept>

namespace orv_test {
namespace {
template <typename Key> void numberAll(std::map<Key, std::uint32_t>& table) {
    std::uint32_t next = 0;
    for (auto& entry : table) {
        entry.second = next++;
    }
}
} // namespace

DexIds::DexIds(OatDexText const& dex) {
    for (OatClassText const& one : dex.classes) {
        addClass(one);
    }
    numberAll(strings);
    numberAll(types);
    numberAll(protos);
    numberAll(fields);
    numberAll(methods);
}

void DexIds::addString(std::string const& text) { strings.emplace(utf16(text), 0); }

void DexIds::addType(Name const& name) {
    strings.emplace(name, 0);
    types.emplace(name, 0);
}

void DexIds::addClass(OatClassText const& one) {
    addType(utf16(one.descriptor));
    addType(u"Ljava/lang/Object;");
    if (one.source) {
        addString(*one.source);
    }
    for (OatFieldText const& field : one.fields) {
        addType(utf16(field.type));
        addString(field.name);
        if (!fields.emplace(fieldOf(one, field), 0).second) {
            throw std::runtime_error("twice: " + one.descriptor + " " + field.name);
        }
    }
    for (OatMethodText const& method : one.methods) {
        addMethod(one, method);
    }
}

void DexIds::addMethod(OatClassText const& one, OatMethodText const& method) {
    Proto const proto = protoOf(method.signature);
    addString(method.name);
    strings.emplace(shortyOf(proto), 0);
    addType(proto.result);
    for (Name const& parameter : proto.parameters) {
        addType(parameter);
    }
    protos.emplace(proto, 0);
    if (!methods.emplace(methodOf(one, method), 0).second) {
        throw std::runtime_error("twice: " + one.descriptor + " " + method.name + method.signature);
    }
    if (!method.debug) {
        return;
    }
    for (auto const& parameter : method.debug->parameters.value_or(std::vector<std::optional<std::string>>())) {
        if (parameter) {
            addString(*parameter);
        }
    }
    for (DexDebugOp const& op : method.debug->program) {
        if (op.file) {
            addString(*op.file);
        }
    }
}

DexIds::Proto DexIds::protoOf(std::string const& signature) {
    Name const text = utf16(signature);
    std::vector<Name> found;
    std::size_t i = 1;
    while (i < text.size()) {
        std::size_t const start = i;
        if (text[i] == u')') {
            ++i;
            continue;
        }
        while (i < text.size() && text[i] == u'[') {
            ++i;
        }
        i = i < text.size() && text[i] == u'L' ? text.find(u';', i) : i;
        if (i >= text.size()) {
            throw std::runtime_error("not a signature: " + signature);
        }
        ++i;
        found.push_back(text.substr(start, i - start));
    }
    if (found.empty() || text.size() < found.back().size() + 2 || text[text.size() - found.back().size() - 1] != u')') {
        throw std::runtime_error("not a signature: " + signature);
    }
    Proto proto{found.back(), found};
    proto.parameters.pop_back();
    return proto;
}

DexIds::Name DexIds::shortyOf(Proto const& proto) {
    auto const one = [](Name const& type) { return type[0] == u'[' ? u'L' : type[0]; };
    Name shorty(1, one(proto.result));
    for (Name const& parameter : proto.parameters) {
        shorty += one(parameter);
    }
    return shorty;
}

DexIds::Method DexIds::methodOf(OatClassText const& one, OatMethodText const& method) {
    return {utf16(one.descriptor), utf16(method.name), protoOf(method.signature)};
}

DexIds::Field DexIds::fieldOf(OatClassText const& one, OatFieldText const& field) {
    return {utf16(one.descriptor), utf16(field.name), utf16(field.type)};
}

} // namespace orv_test
