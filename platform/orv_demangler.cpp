// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
// The demangler's forms, from libiberty's tree of components (Itanium C++ ABI, 5.1 "External Names"). A mangled name
// refers back to what it has spelled out, so its text can grow exponentially: the printer's sink stops it at a bound.
#include "platform/orv_demangler.h"

#include <cstdlib>
#include <cstring>
#define HAVE_DECL_BASENAME 1 // libiberty would declare it with another type than <cstring> does
#include <algorithm>
#include <cstdint>
#include <libiberty/demangle.h>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>

namespace ORV_3_30 {
namespace {

constexpr unsigned int k_withoutParameters = 1;
/// No demangled name that anybody reads is longer.
constexpr std::size_t k_longestText = std::size_t{1} << 18;
constexpr int k_signature = DMGL_PARAMS | DMGL_TYPES;
constexpr int k_nameAlone = 0;

/// Nothing for what is no mangled name, and for a text past the bound.
using Text = std::optional<std::string>;

struct TooLong {};

void append(char const* piece, std::size_t size, void* text) {
    auto& result = *static_cast<std::string*>(text);
    if (size > k_longestText - result.size()) {
        throw TooLong();
    }
    result.append(piece, size);
}

/// What a printer of libiberty's gives, which is called with a sink and what the sink takes.
template <typename Printer> Text collect(Printer const& print) {
    std::string text;
    try {
        return print(&append, &text) != 0 ? Text(std::move(text)) : std::nullopt;
    } catch (TooLong const&) {
        return std::nullopt;
    }
}

/// The components of a mangled name.
class NameTree {
public:
    NameTree(std::string const& name, int options)
        : m_top(cplus_demangle_v3_components(name.c_str(), options, &m_memory)) {}
    NameTree(NameTree const&) = delete;
    NameTree& operator=(NameTree const&) = delete;
    ~NameTree() { std::free(m_memory); }

    /// False for none at all, and for more than the printer may have to look through for a pack: components are shared,
    /// so that a few bytes may stand for any number.
    bool isSearchable() const {
        constexpr std::uint64_t k_most = 1U << 16;
        std::unordered_map<Node const*, std::uint64_t> known;
        return m_top != nullptr && sizeOf(m_top, known) <= k_most;
    }

    /// Its last one.
    Text base() {
        return m_top == nullptr ? std::nullopt : collect([top = baseOf(m_top)](auto sink, auto text) {
            return cplus_demangle_print_callback(k_nameAlone, top, sink, text);
        });
    }

private:
    using Node = demangle_component;

    /// Of all that lies in a component, as often as it does.
    static std::uint64_t sizeOf(Node const* node, std::unordered_map<Node const*, std::uint64_t>& known) {
        if (node == nullptr) {
            return 0;
        }
        auto const at = known.find(node);
        if (at != known.end()) {
            return at->second;
        }
        std::uint64_t size = 1;
        switch (node->type) {
        case DEMANGLE_COMPONENT_NAME:
        case DEMANGLE_COMPONENT_SUB_STD:
        case DEMANGLE_COMPONENT_BUILTIN_TYPE:
        case DEMANGLE_COMPONENT_OPERATOR:
        case DEMANGLE_COMPONENT_CHARACTER:
        case DEMANGLE_COMPONENT_NUMBER:
        case DEMANGLE_COMPONENT_TEMPLATE_PARAM:
        case DEMANGLE_COMPONENT_FUNCTION_PARAM:
        case DEMANGLE_COMPONENT_UNNAMED_TYPE:
        case DEMANGLE_COMPONENT_FIXED_TYPE: break;
        case DEMANGLE_COMPONENT_CTOR: size += sizeOf(node->u.s_ctor.name, known); break;
        case DEMANGLE_COMPONENT_DTOR: size += sizeOf(node->u.s_dtor.name, known); break;
        case DEMANGLE_COMPONENT_EXTENDED_OPERATOR: size += sizeOf(node->u.s_extended_operator.name, known); break;
        case DEMANGLE_COMPONENT_LAMBDA:
        case DEMANGLE_COMPONENT_DEFAULT_ARG: size += sizeOf(node->u.s_unary_num.sub, known); break;
        default: {
            constexpr std::uint64_t k_enough = std::uint64_t{1} << 40; // that the sum stays in bounds
            std::uint64_t const left = sizeOf(node->u.s_binary.left, known);
            size += std::min(left + sizeOf(node->u.s_binary.right, known), k_enough);
        }
        }
        return known[node] = size;
    }

    /// The last component without its template arguments. "vtable for ns::A<int>" becomes "vtable for A".
    static Node* baseOf(Node* node) {
        for (;; node = node->u.s_binary.left) {
            switch (node->type) {
            case DEMANGLE_COMPONENT_QUAL_NAME:
            case DEMANGLE_COMPONENT_LOCAL_NAME: return baseOf(node->u.s_binary.right);
            case DEMANGLE_COMPONENT_DEFAULT_ARG: return baseOf(node->u.s_unary_num.sub);
            case DEMANGLE_COMPONENT_TEMPLATE: {
                Node* const base = baseOf(node->u.s_binary.left);
                if (base->type != DEMANGLE_COMPONENT_CONVERSION) {
                    return base;
                }
                node->u.s_binary.left = base; // its type may be an argument
                return node;
            }
            case DEMANGLE_COMPONENT_VTABLE:
            case DEMANGLE_COMPONENT_VTT:
            case DEMANGLE_COMPONENT_CONSTRUCTION_VTABLE:
            case DEMANGLE_COMPONENT_THUNK:
            case DEMANGLE_COMPONENT_VIRTUAL_THUNK:
            case DEMANGLE_COMPONENT_COVARIANT_THUNK:
            case DEMANGLE_COMPONENT_GUARD:
            case DEMANGLE_COMPONENT_TLS_INIT:
            case DEMANGLE_COMPONENT_TLS_WRAPPER:
            case DEMANGLE_COMPONENT_REFTEMP:
            case DEMANGLE_COMPONENT_HIDDEN_ALIAS:
            case DEMANGLE_COMPONENT_TRANSACTION_CLONE:
            case DEMANGLE_COMPONENT_NONTRANSACTION_CLONE:
                node->u.s_binary.left = baseOf(node->u.s_binary.left);
                return node;
            case DEMANGLE_COMPONENT_TYPED_NAME:
            case DEMANGLE_COMPONENT_CLONE:
            case DEMANGLE_COMPONENT_CONST_THIS:
            case DEMANGLE_COMPONENT_VOLATILE_THIS:
            case DEMANGLE_COMPONENT_RESTRICT_THIS:
            case DEMANGLE_COMPONENT_REFERENCE_THIS:
            case DEMANGLE_COMPONENT_RVALUE_REFERENCE_THIS: break; // the name is to the left
            default: return node;
            }
        }
    }

    void* m_memory = nullptr;
    Node* m_top;
};

class SymbolNameDemangler final : public SymMgrObject<ISymbolNameDemangler> {
public:
    explicit SymbolNameDemangler(char const* name) : m_name(name != nullptr ? name : "") {}

    char const* name() override { return m_name.c_str(); }
    char const* demangledName(unsigned int options) override {
        if (full() == nullptr) {
            return m_name.c_str();
        }
        return (options & k_withoutParameters) != 0 ? shortName() : full();
    }
    // Without its parameters a name is read only so far: what is none as a whole stands for itself in each form.
    char const* shortName() override {
        return full() != nullptr ? kept(m_short, [this] { return spell(k_nameAlone); }) : m_name.c_str();
    }
    char const* baseName() override {
        return full() != nullptr ? kept(m_base, [this] { return NameTree(m_name, k_nameAlone).base(); })
                                 : m_name.c_str();
    }

private:
    using Form = std::unique_ptr<std::string>;

    /// Null for a name that stands for itself.
    char const* full() {
        if (!m_isRead) {
            Text text = spell(k_signature);
            m_full = text ? std::make_unique<std::string>(std::move(*text)) : nullptr;
            m_isRead = true;
        }
        return m_full != nullptr ? m_full->c_str() : nullptr;
    }

    template <typename Make> char const* kept(Form& form, Make const& make) {
        if (form == nullptr) {
            form = std::make_unique<std::string>(make().value_or(*m_full));
        }
        return form->c_str();
    }

    Text spell(int options) const {
        // The printer takes none that are longer. The tree would, and goes as deep as they are long.
        constexpr std::size_t k_longestName = 1024;
        if (m_name.compare(0, 2, "_Z") != 0 || m_name.size() > k_longestName ||
            (mayHavePack() && !NameTree(m_name, options).isSearchable())) {
            return std::nullopt;
        }
        return collect(
            [&](auto sink, auto text) { return cplus_demangle_v3_callback(m_name.c_str(), options, sink, text); });
    }

    /// For a pack expansion, or the size of a pack, the printer searches through what it prints.
    bool mayHavePack() const {
        for (char const* const mark : {"Dp", "sp", "sZ", "sP"}) {
            if (m_name.find(mark) != std::string::npos) {
                return true;
            }
        }
        return false;
    }

    std::string m_name;
    bool m_isRead = false;
    Form m_full;
    Form m_short;
    Form m_base;
};

} // namespace

SymMgrObjectPtr<ISymbolNameDemangler> ISymbolNameDemangler::create(char const* name, exec_format_t /*format*/) {
    return SymMgrObjectPtr<ISymbolNameDemangler>(new SymbolNameDemangler(name));
}

} // namespace ORV_3_30
