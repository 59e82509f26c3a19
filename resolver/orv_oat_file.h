// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// The candidate of an Android OAT file, which holds its debug information itself.
#pragma once

#include "core/orv_shared_object.h"
#include "orv/orv_symbolfileresolver.h"

#include <string>

namespace ORV_3_30 {

/// Always valid, and nothing changes it.
class OATSymbolFileToResolve final : public SharedObject<SymMgrObject<ISymbolFileToResolve>> {
public:
    OATSymbolFileToResolve(std::string moduleFile, long long ordinal)
        : m_moduleFile(std::move(moduleFile)), m_ordinal(ordinal) {}

    char const* symbolFileName() override { return m_moduleFile.c_str(); }
    char const* moduleFileName() override { return m_moduleFile.c_str(); }
    symbol_file_format_t symbolFileFormat() override { return symbolFormatOat; }
    symbol_file_validity_t validity() override { return symbolFileValid; }
    /// Accepts whatever it is given, and stays with the module.
    long long validateSymbolFile(char const* /*resolvedSymFile*/) override { return m_ordinal; }
    unsigned int candidateClassFlag() override { return 1; }

private:
    std::string m_moduleFile;
    long long m_ordinal;
};

} // namespace ORV_3_30
