// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
#include "platform/orv_demangler.h"

#include "platform/orv_demangled_parts.h"
#include "platform/orv_mangled_size.h"

#include <cstdlib>
#include <cstring>
#include <cxxabi.h>
#include <memory>
#include <string>

namespace ORV_3_30 {
namespace {

constexpr unsigned int k_withoutParameters = 1;
/// No demangled name that anybody reads is longer. A few hundred mangled bytes can stand for more
/// text than the machine has memory.
constexpr std::size_t k_longestName = std::size_t{1} << 20;

class SymbolNameDemangler final : public SymMgrObject<ISymbolNameDemangler> {
public:
    explicit SymbolNameDemangler(char const* name) : m_name(name != nullptr ? name : "") {}

    char const* name() override { return m_name.c_str(); }
    char const* demangledName(unsigned int options) override {
        if (full() == nullptr) {
            return m_name.c_str();
        }
        return (options & k_withoutParameters) != 0 ? cached(m_withoutParameters, &DemangledParts::withoutParameters)
                                                    : full();
    }
    char const* shortName() override {
        return full() != nullptr ? cached(m_shortName, &DemangledParts::shortName) : m_name.c_str();
    }
    char const* baseName() override {
        return full() != nullptr ? cached(m_baseName, &DemangledParts::baseName) : m_name.c_str();
    }

private:
    using Form = std::unique_ptr<std::string>;

    /// The full signature; null for a name that stands for itself.
    char const* full() {
        if (!m_isDemangled) {
            m_isDemangled = true;
            if (std::strncmp(m_name.c_str(), "_Z", 2) == 0 && mangledSizeBound(m_name) <= k_longestName) {
                int status = 0;
                m_full.reset(abi::__cxa_demangle(m_name.c_str(), nullptr, nullptr, &status));
            }
        }
        return m_full.get();
    }

    char const* cached(Form& form, std::string (DemangledParts::*make)() const) {
        if (form == nullptr) {
            form = std::make_unique<std::string>((DemangledParts(full()).*make)());
        }
        return form->c_str();
    }

    struct Free {
        void operator()(char* text) const { std::free(text); }
    };

    std::string m_name;
    bool m_isDemangled = false;
    std::unique_ptr<char, Free> m_full;
    Form m_withoutParameters;
    Form m_shortName;
    Form m_baseName;
};

} // namespace

SymMgrObjectPtr<ISymbolNameDemangler> ISymbolNameDemangler::create(char const* name, exec_format_t /*format*/) {
    return SymMgrObjectPtr<ISymbolNameDemangler>(new SymbolNameDemangler(name));
}

} // namespace ORV_3_30
