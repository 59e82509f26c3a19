// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// The frame that every debug information format fills.
///
/// A format derives its loader from DebugInfoLoader, which puts symbols into the module's table, and
/// its line resolver from SrcLineResolver, which owns or reaches a line table and knows the source files
/// by id. The iterators and the choice of a line come from here. EmptyDebugInfoLoader has neither.
#pragma once

#include "lines/orv_linetable_impl.h"
#include "orv/orv_fileformatloader.h"
#include "symbols/orv_globalscope.h"

#include <string>

namespace ORV_3_30 {

/// Formats as symFileFormat tells them; the same numbers as those of symbol_file_format_t.
constexpr unsigned int k_noSymbolFileFormat = 0;

/// Stands for a symbol file without debug information: it reports the file's name, and loads nothing.
class EmptyDebugInfoLoader final : public SymMgrObject<IDebugInfoLoader> {
public:
    /// Banks share it, so its count has a lock of its own. The name comes ready-made: a counted object that
    /// can't be finished would leave that lock behind.
    explicit EmptyDebugInfoLoader(std::string name) : SymMgrObject(true), m_name(std::move(name)) {}

    char const* symFileName() override { return m_name.c_str(); }
    unsigned int symFileFormat() override { return k_noSymbolFileFormat; }
    status_t loadSymbols(ISymbolTable* /*table*/, AcceptedRanges* /*filter*/, unsigned int /*mask*/,
                         ISrcLineResolver* /*resolver*/) override {
        return status_Ok;
    }
    ISrcLineResolver* srcLineResolver(Scope* /*scope*/, ILock* /*lock*/) override { return nullptr; }
    status_t findStackVariable(ISymbol* /*symbol*/, unsigned long long /*pc*/, unsigned long long /*address*/,
                               SymMgrObjectPtr<IStackFrameContext>& /*context*/, SymMgrObjectPtr<ISymbol>& /*out*/,
                               bool* /*isInteger*/) override {
        return status_False;
    }
    void sectionByIndex(SymMgrObjectPtr<ISection>& out, unsigned int /*index*/) override { out = nullptr; }

private:
    std::string m_name;
};

/// Base of the loaders that have a format. Banks share a loader, so its count has a lock of its own; the
/// constructors of those that derive from it allocate nothing, as in EmptyDebugInfoLoader.
class DebugInfoLoader : public SymMgrObject<IDebugInfoLoader> {
public:
    explicit DebugInfoLoader(IFileFormatLoader* loader) : SymMgrObject(true), m_loader(loader) {}

    void sectionByIndex(SymMgrObjectPtr<ISection>& out, unsigned int /*index*/) override { out = nullptr; }

protected:
    IFileFormatLoader* loader() const { return m_loader; }

private:
    /// Not counted: the file format loader keeps this one in its cache, and a count would tie the two
    /// together for ever. Whoever holds this one holds that one too.
    IFileFormatLoader* m_loader;
};

/// Base of the line resolvers: the one place where overlapping lines are settled.
class SrcLineResolver : public SymMgrObject<ISrcLineResolver>, public IScopeUser {
public:
    /// scope: where symbols are looked for if a question names no scope. Not counted, may be null. Threads
    /// share a resolver, so its count has a lock of its own.
    explicit SrcLineResolver(Scope* scope) : SymMgrObject(true), m_scope(scope) {}

    status_t sourceLocationByAddress(SymMgrObjectPtr<ISourceLocation>& out, unsigned long long address,
                                     unsigned long long unit, Scope* scope, ISourceLocationChooser* chooser) override;
    status_t sourceLines(SymMgrObjectPtr<SourceLines>& out, unsigned long long unit, unsigned int fileId,
                         unsigned long long start, unsigned long long end, Scope* scope) override;
    status_t addressRequested(unsigned long long /*address*/) override { return status_Ok; }
    status_t requestsCleared() override { return status_Ok; }

    /// Told by a scope on its way out: questions without a scope find symbols in none from then on.
    void leaveScope(Scope const* scope) override {
        if (m_scope == scope) {
            m_scope = nullptr;
        }
    }

    virtual void lineTable(SymMgrObjectPtr<ILineTable>& out) = 0;
    /// Makes the iterator that all line questions go through; null with a status where there is none.
    virtual status_t sourceLineIterator(SymMgrObjectPtr<SourceLines>& out, unsigned long long start,
                                        unsigned long long end, unsigned long long unit, unsigned int fileId,
                                        Scope* scope);

protected:
    /// The table that holds all there is to know of an address, filled, where the format's iterators are
    /// those of this class; null with status_Ok where they are not, or with what kept it from being
    /// filled. It lets a question for one address do without iterators.
    virtual SymMgrObjectPtr<LineTable> flatTable(status_t& status, Scope* /*scope*/) {
        status = status_Ok;
        return {};
    }
    Scope* scope() const { return m_scope; }
    void setScope(Scope* scope) { m_scope = scope; }

private:
    Scope* m_scope;
};

} // namespace ORV_3_30
