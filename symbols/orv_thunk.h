// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// The small companions of symbols: thunks and inline instances.
#pragma once

#include "core/orv_shared_lock.h"
#include "core/orv_shared_object.h"
#include "orv/orv_symbol.h"
#include "orv/orv_symbolrange.h"

namespace ORV_3_30 {

class Scope;

/// A stub that leads to the symbol of a scope. Belongs to that scope.
class Thunk : public SharedObject<SymMgrObject<IThunk>> {
public:
    Thunk(Scope* scope, unsigned long long address, unsigned long long size)
        : m_scope(scope), m_address(address), m_size(size) {}

    unsigned long long address() const { return m_address; }
    unsigned long long size() const { return m_size; }
    bool contains(unsigned long long address) const { return address >= m_address && address - m_address < m_size; }
    Scope* scope() const { return m_scope; }
    void setScope(Scope* scope) { m_scope = scope; }

private:
    Scope* m_scope; ///< Not counted. Set anew when the thunk moves to another scope.
    unsigned long long m_address;
    unsigned long long m_size;
};

/// A stub that calls into another module. Its name follows the name of the scope's symbol.
class ImportThunk final : public Thunk {
public:
    using Thunk::Thunk;
    char const* name() override;
    bool isImport() override { return true; }
};

/// One inlined call, bound to the scope of the inlined body. A client may hold it longer than that: it then tells
/// nothing any more.
class InlineInstance : public SymMgrObject<IInlineInstance> {
public:
    explicit InlineInstance(Scope* scope) : SymMgrObject(sharedLock(this)), m_scope(scope) {}
    void leaveScope() { m_scope = nullptr; }

    ISymbol* symbol() override;
    virtual void ranges(SymMgrObjectPtr<IIterator<SymMgrObjectPtr<ISymbolRange>>>& out);

protected:
    Scope* scope() const { return m_scope; }

private:
    Scope* m_scope; ///< Not counted: the scope owns the instance. Null once it is gone.
};

} // namespace ORV_3_30
