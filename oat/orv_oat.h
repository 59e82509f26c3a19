// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// The debug info loader of Android OAT files: a symbol for each compiled method, and Java lines of native code.
///
/// What is asked first loads both: lines come with the symbols. The header is read once.
#pragma once

#include "oat/orv_oat_dex_debug.h"
#include "oat/orv_oat_line_resolver.h"
#include "oat/orv_oat_symbols.h"

#include <mutex>
#include <string>

namespace ORV_3_30 {

class OATDebugInfoLoader final : public DebugInfoLoader {
public:
    /// buffer: the OAT data, from oatDataStart on; oatDataExec: of the native code in them.
    OATDebugInfoLoader(IFileFormatLoader* loader, std::string symFileName, SymMgrObjectPtr<IBuffer> buffer,
                       SymMgrObjectPtr<IAddress> oatDataStart, SymMgrObjectPtr<IAddress> oatDataExec)
        : DebugInfoLoader(loader), m_symFileName(std::move(symFileName)),
          m_reader(std::move(buffer), std::move(oatDataStart), std::move(oatDataExec)) {}

    char const* symFileName() override { return m_symFileName.c_str(); }
    unsigned int symFileFormat() override { return symbolFormatOat; }
    /// Adds methods whatever the mask. What the last class came to, or the header: status_Ok; status_False without a
    /// DEX file; status_InvalidPointer, status_BadFileFormat, status_UnsupportedFileVersion, with all in the table that
    /// could be read.
    status_t loadSymbols(ISymbolTable* table, AcceptedRanges* filter, unsigned int mask,
                         ISrcLineResolver* resolver) override;
    ISrcLineResolver* srcLineResolver(Scope* scope, ILock* lock) override;
    status_t findStackVariable(ISymbol* /*symbol*/, unsigned long long /*pc*/, unsigned long long /*address*/,
                               SymMgrObjectPtr<IStackFrameContext>& /*context*/, SymMgrObjectPtr<ISymbol>& /*out*/,
                               bool* /*isInteger*/) override {
        return status_False;
    }

private:
    std::string m_symFileName;
    std::mutex m_loadLock; ///< Guards the reader and what loads add, for as long as a load.
    OatReader m_reader;
    Once<status_t> m_header;   ///< What the reading of the header came to, which the first load tells.
    std::mutex m_resolverLock; ///< Guards the making of the resolver.
    SymMgrObjectPtr<OATSrcLineResolver> m_lineResolver;
};

} // namespace ORV_3_30
