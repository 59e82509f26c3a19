// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// What the candidates for a module's symbol file have in common.
///
/// They belong to the module's loader, whose lock guards the checks. Loads on several threads share them: what they
/// hand out takes no lock, and lives as long as they do.
#pragma once

#include "core/orv_shared_object.h"
#include "orv/orv_symbolfileresolver.h"

#include <atomic>
#include <set>
#include <string>

namespace ORV_3_30 {

class SymbolFileCandidate : public SharedObject<SymMgrObject<ISymbolFileToResolve>> {
public:
    char const* symbolFileName() override { return m_symbolFile.load(std::memory_order_acquire); }
    char const* moduleFileName() override { return m_moduleFile.c_str(); }
    symbol_file_validity_t validity() override { return m_validity; }

protected:
    /// A null name stands for no module: the candidate does nothing.
    SymbolFileCandidate(char const* moduleFile, long long ordinal, ILock* lock)
        : m_moduleFile(moduleFile != nullptr ? moduleFile : ""), m_ordinal(ordinal), m_lock(lock) {}

    /// Under the lock, as soon as others know the candidate.
    void setSymbolFile(std::string const& name);
    long long ordinal() const { return m_ordinal; }
    ILock* lock() const { return m_lock; }

    std::string m_moduleFile;
    std::atomic<symbol_file_validity_t> m_validity{symbolFileUnchecked};

private:
    std::set<std::string> m_names; ///< All that were ever handed out. The present one is one of them.
    std::atomic<char const*> m_symbolFile{""};
    long long m_ordinal;
    ILock* m_lock;
};

} // namespace ORV_3_30
