// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
// Symbols: a borrowed name, and its demangled forms once somebody asks.
#include "symbols/orv_symbol.h"

#include "core/orv_address.h"
#include "core/orv_shared_lock.h"
#include "core/orv_trace.h"
#include "orv/orv_fileformatloader.h"
#include "orv/orv_source.h"
#include "platform/orv_demangler.h"
#include "symbols/orv_name_forms.h"
#include "symbols/orv_scope.h"
#include "symbols/orv_scope_iterators.h"

#include <new>
#include <string>

namespace ORV_3_30 {

int symbolPriorityByKind(symbol_kind_t kind) {
    switch (kind) {
    case symbol_kind_FunctionAlt: return 0;
    case symbol_kind_Function: return 1;
    case symbol_kind_DataAlt: return 2;
    case symbol_kind_Other: return 3;
    case symbol_kind_Data: return 4;
    default: return 10;
    }
}

/// A name with its demangler. Older ones stay, for clients that hold their strings.
struct NamedSymbol::Forms {
    std::string text; ///< The copy of the name, where it had to be copied.
    SymMgrObjectPtr<ISymbolNameDemangler> demangler;
    std::unique_ptr<Forms> older;
};

NamedSymbol::NamedSymbol(IFileFormatLoader* owner, SymbolName name, symbol_visibility_t visibility, symbol_kind_t kind,
                         unsigned long long compUnitId)
    : SymMgrObject(sharedLock(this)), m_owner(owner), m_compUnitId(compUnitId), m_name(name.text()),
      m_visibility(visibility), m_kind(kind) {
    if (!name.isBorrowed()) {
        keepName(name.text());
    }
}

NamedSymbol::~NamedSymbol() = default;

ILock* NamedSymbol::lock() const { return sharedLock(static_cast<SymMgrObject<ISymbol> const*>(this)); }

void NamedSymbol::keepName(char const* name) {
    auto forms = std::make_unique<Forms>();
    forms->text = name != nullptr ? name : "";
    forms->older = std::move(m_forms);
    m_name.store(forms->text.c_str(), std::memory_order_release);
    m_forms = std::move(forms);
}

NamedSymbol::Forms& NamedSymbol::forms() {
    if (m_forms == nullptr) {
        m_forms = std::make_unique<Forms>();
    }
    if (!m_forms->demangler) {
        exec_format_t const format = m_owner != nullptr ? m_owner->fileFormat() : exec_format_Foreign;
        m_forms->demangler = ISymbolNameDemangler::create(nameUnlocked(), format);
    }
    return *m_forms;
}

/// What make gives of the name's demangler.
template <typename Make> char const* NamedSymbol::form(Make const& make) {
    char const* const name = nameUnlocked();
    if (NameForms::standsForItself(name)) {
        return name;
    }
    Forms& names = forms();
    return ORV_ASSERT(names.demangler, "m_demangler") ? make(*names.demangler) : "";
}

char const* NamedSymbol::demangledName(unsigned int options) {
    LockGuard guard(lock());
    return form([&](ISymbolNameDemangler& demangler) { return demangler.demangledName(options); });
}

char const* NamedSymbol::shortName() {
    LockGuard guard(lock());
    return shortNameUnlocked();
}

char const* NamedSymbol::baseName() {
    LockGuard guard(lock());
    return form([](ISymbolNameDemangler& demangler) { return demangler.baseName(); });
}

char const* NamedSymbol::shortNameUnlocked() {
    return form([](ISymbolNameDemangler& demangler) { return demangler.shortName(); });
}

char const* NamedSymbol::demangledNameUnlocked() {
    return form([](ISymbolNameDemangler& demangler) { return demangler.demangledName(0); });
}

void NamedSymbol::sourceLines(SymMgrObjectPtr<IIterator<SymMgrObjectPtr<ISourceLine>>>& out) { out = nullptr; }

void NamedSymbol::sourceLineByAddress(SymMgrObjectPtr<ISourceLine>& out, IAddress* /*address*/) { out = nullptr; }

void NamedSymbol::setName(char const* name) {
    LockGuard guard(lock());
    keepName(name);
}

void NamedSymbol::borrowName(char const* name) {
    LockGuard guard(lock());
    if (m_forms != nullptr) { // those of the name before stay, for who holds them
        auto forms = std::make_unique<Forms>();
        forms->older = std::move(m_forms);
        m_forms = std::move(forms);
    }
    m_name.store(name, std::memory_order_release);
}

void NamedSymbol::setVisibility(symbol_visibility_t visibility) {
    LockGuard guard(lock());
    m_visibility = visibility;
}

void NamedSymbol::forgetOwner() {
    LockGuard guard(lock());
    m_owner = nullptr;
    if (m_forms == nullptr || m_forms->text.empty()) {
        try {
            keepName(nameUnlocked());
        } catch (std::bad_alloc const&) { // on the way out nothing may fail: it goes without its name
            m_name.store("", std::memory_order_release);
        }
    }
}

void ScopeRelatedSymbol::ranges(SymMgrObjectPtr<IIterator<SymMgrObjectPtr<ISymbolRange>>>& out) {
    out = m_scope != nullptr ? new RelRangeIterator(m_scope) : nullptr;
}

void ScopeRelatedSymbol::thunks(SymMgrObjectPtr<IIterator<SymMgrObjectPtr<ISymbolRange>>>& out) {
    out = m_scope != nullptr ? new ThunkRangeIterator(m_scope) : nullptr;
}

void Symbol::sourceLinesIn(SymMgrObjectPtr<IIterator<SymMgrObjectPtr<ISourceLine>>>& out, unsigned long long /*start*/,
                           unsigned long long /*end*/) {
    out = nullptr;
}

status_t Symbol::address(SymMgrObjectPtr<IAddress>& out) {
    if (owner() == nullptr) {
        return status_Fail;
    }
    out = new Address(owner(), m_address);
    return status_Ok;
}

} // namespace ORV_3_30
