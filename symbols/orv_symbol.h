// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// The class chain of symbols.
///
/// A symbol belongs to a scope, which knows its ranges. Tens of thousands of them are made in a
/// load, so a symbol holds no more than it must: its name stands in the module's string section, the
/// demangler is made when a form of the name is first asked for, and its lock is one of a few that
/// all symbols share.
#pragma once

#include "orv/orv_moduleimage.h"
#include "orv/orv_symbol.h"
#include "orv/orv_symbolrange.h"

#include <atomic>
#include <memory>

namespace ORV_3_30 {

class IFileFormatLoader;
class RowsAtAddress;
class Scope;
struct RowAt;

constexpr unsigned long long k_noCompUnit = ~0ULL;

/// A name given to a symbol, and whether it stays where it is for as long as the symbol's bank does.
class SymbolName {
public:
    static SymbolName copied(char const* text) { return {text, false}; }
    static SymbolName borrowed(char const* text) { return {text, true}; }

    char const* text() const { return m_text; }
    bool isBorrowed() const { return m_isBorrowed; }

private:
    SymbolName(char const* text, bool isBorrowed) : m_text(text), m_isBorrowed(isBorrowed) {}
    char const* m_text;
    bool m_isBorrowed;
};

/// A symbol that has a name, a kind and a visibility.
class NamedSymbol : public SymMgrObject<ISymbol> {
public:
    NamedSymbol(IFileFormatLoader* owner, SymbolName name, symbol_visibility_t visibility, symbol_kind_t kind,
                unsigned long long compUnitId);
    ~NamedSymbol() override;

    status_t sourceLine(SymMgrObjectPtr<ISourceLine>& /*out*/) override { return status_False; }
    status_t compUnitDetails(ICompUnitDetails*& /*out*/) override { return status_False; }
    char const* name() override { return nameUnlocked(); }
    char const* demangledName(unsigned int options) override;
    char const* shortName() override;
    char const* baseName() override;
    symbol_kind_t kind() override { return m_kind; }
    symbol_visibility_t visibility() override { return m_visibility; }
    void sourceLines(SymMgrObjectPtr<IIterator<SymMgrObjectPtr<ISourceLine>>>& out) override;
    void sourceLineByAddress(SymMgrObjectPtr<ISourceLine>& out, IAddress* address) override;

    /// Copies the name. Names handed out before stay valid as long as the symbol.
    virtual void setName(char const* name);
    /// The same for one that stays where it is for as long as the symbol's bank.
    void borrowName(char const* name);
    virtual void setCompUnitId(unsigned long long id) { m_compUnitId = id; }
    /// The forms for a caller that holds the symbol's lock.
    virtual char const* nameUnlocked() { return m_name.load(std::memory_order_acquire); }
    virtual char const* shortNameUnlocked();
    virtual char const* demangledNameUnlocked();

    void setKind(symbol_kind_t kind) { m_kind = kind; }
    void setVisibility(symbol_visibility_t visibility);
    unsigned long long compUnitId() const { return m_compUnitId; }

protected:
    IFileFormatLoader* owner() const { return m_owner; }
    /// For a symbol that outlives its bank: what it borrowed is copied, and the loader forgotten.
    void forgetOwner();

private:
    struct Forms;

    ILock* lock() const;
    Forms& forms();
    template <typename Make> char const* form(Make const& make);
    void keepName(char const* name);

    IFileFormatLoader* m_owner; ///< Not counted. Null once the bank is gone.
    unsigned long long m_compUnitId;
    std::atomic<char const*> m_name;
    std::unique_ptr<Forms> m_forms; ///< Null until a form or a copy of the name is needed.
    std::atomic<symbol_visibility_t> m_visibility;
    std::atomic<symbol_kind_t> m_kind;
};

/// A symbol that takes its ranges from the scope that owns it.
class ScopeRelatedSymbol : public NamedSymbol {
public:
    ScopeRelatedSymbol(IFileFormatLoader* owner, SymbolName name, Scope* scope, symbol_visibility_t visibility,
                       symbol_kind_t kind, unsigned long long compUnitId)
        : NamedSymbol(owner, name, visibility, kind, compUnitId), m_scope(scope) {}

    void ranges(SymMgrObjectPtr<IIterator<SymMgrObjectPtr<ISymbolRange>>>& out) override;
    void thunks(SymMgrObjectPtr<IIterator<SymMgrObjectPtr<ISymbolRange>>>& out) override;

    Scope* scope() const { return m_scope; }
    void setScope(Scope* scope) { m_scope = scope; }
    /// Called by the scope on its way out, for a symbol that a client still holds.
    void leaveScope() {
        m_scope = nullptr;
        forgetOwner();
    }

private:
    Scope* m_scope; ///< Not counted: the scope owns the symbol.
};

/// A symbol at an address.
class Symbol : public ScopeRelatedSymbol {
public:
    Symbol(IFileFormatLoader* owner, SymbolName name, unsigned long long address, Scope* scope,
           symbol_visibility_t visibility, symbol_kind_t kind, unsigned long long compUnitId)
        : ScopeRelatedSymbol(owner, name, scope, visibility, kind, compUnitId), m_address(address) {}

    /// status_Ok; status_Fail once the bank is gone.
    status_t address(SymMgrObjectPtr<IAddress>& out) override;
    unsigned long long addressValue() const { return m_address; }
    /// What sourceLines gives, restricted to [start, end); start equal to end asks for one address.
    virtual void sourceLinesIn(SymMgrObjectPtr<IIterator<SymMgrObjectPtr<ISourceLine>>>& out, unsigned long long start,
                               unsigned long long end);
    /// Of the lines that sourceLinesIn gives for one address the one that starts last, of several such the first; null
    /// if there is none. rows: those over the address.
    virtual RowAt const* latestLineAt(RowsAtAddress const& /*rows*/) { return nullptr; }

private:
    unsigned long long m_address;
};

} // namespace ORV_3_30
