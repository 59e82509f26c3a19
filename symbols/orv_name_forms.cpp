// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
// A striped cache of demangled names, by the place of the raw one.
#include "symbols/orv_name_forms.h"

#include "platform/orv_demangler.h"

#include <cstdint>

namespace ORV_3_30 {
namespace {

/// Names of a few hundred bytes may stand for a thousand times as much.
constexpr std::size_t k_mostBytes = std::size_t{1} << 27;

} // namespace

NameForms::Forms NameForms::of(char const* name) {
    if (standsForItself(name)) {
        return {name, name};
    }
    Shelf& shelf = m_shelves[reinterpret_cast<std::uintptr_t>(name) * 0x9E3779B97F4A7C15ULL >> 60];
    std::lock_guard<std::mutex> const guard(shelf.lock);
    auto known = shelf.texts.find(name);
    if (known == shelf.texts.end()) {
        SymMgrObjectPtr<ISymbolNameDemangler> const demangler = ISymbolNameDemangler::create(name, exec_format_Elf);
        std::string const demangled = demangler->demangledName(0);
        Texts const texts = demangled != demangler->name() ? Texts{demangled, demangler->shortName()} : Texts();
        std::size_t const size = texts.demangled.size() + texts.shortName.size();
        if (size > k_mostBytes / m_shelves.size() - shelf.bytes) {
            return {name, name};
        }
        known = shelf.texts.emplace(name, texts).first;
        shelf.bytes += size;
    }
    bool const isItself = known->second.demangled.empty();
    return isItself ? Forms{name, name} : Forms{known->second.demangled.c_str(), known->second.shortName.c_str()};
}

} // namespace ORV_3_30
