/// The files that may hold the DWARF of an ELF module.
#pragma once

#include "format/orv_ffl.h"
#include "orv/orv_symbolfileresolver.h"

#include <string>

namespace ORV_3_30 {

/// The module itself, if it has debug information. It accepts no other file.
class BinaryWithDWARFInfo final : public SymMgrObject<ISymbolFileToResolve> {
public:
    /// lock guards the checks and the count; it belongs to the module's loader, which owns this.
    BinaryWithDWARFInfo(char const* moduleFile, long long ordinal, IFileFormatHelper* helper, ILock* lock);

    char const* symbolFileName() override { return m_resolvedFile.c_str(); }
    char const* moduleFileName() override { return m_moduleFile.c_str(); }
    symbol_file_format_t symbolFileFormat() override { return symbolFormatDwarf; }
    symbol_file_validity_t validity() override { return m_validity; }
    long long validateSymbolFile(char const* resolvedSymFile) override;
    unsigned int candidateClassFlag() override { return 0; }

private:
    std::string m_moduleFile; ///< In canonical form.
    SymMgrObjectPtr<IFileFormatHelper> m_ffHelper;
    std::string m_resolvedFile;
    symbol_file_validity_t m_validity = symbolFileUnchecked;
    long long m_ordinal;
    ILock* m_lock;
};

} // namespace ORV_3_30
