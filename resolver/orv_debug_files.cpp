#include "resolver/orv_debug_files.h"

#include "core/orv_trace.h"
#include "image/orv_path.h"

namespace ORV_3_30 {

BinaryWithDWARFInfo::BinaryWithDWARFInfo(char const* moduleFile, long long ordinal, IFileFormatHelper* helper,
                                         ILock* lock)
    : SymMgrObject(lock), m_ffHelper(helper), m_ordinal(ordinal), m_lock(lock) {
    if (moduleFile != nullptr) {
        fullPath(m_moduleFile, moduleFile, false);
        validateSymbolFile(m_moduleFile.c_str());
    }
}

long long BinaryWithDWARFInfo::validateSymbolFile(char const* resolvedSymFile) {
    LockGuard guard(m_lock);
    if (!ORV_ASSERT(resolvedSymFile != nullptr, "resolvedSymFile != 0L")) {
        return 0;
    }
    std::string offered;
    fullPath(offered, resolvedSymFile, false);
    long long result = -1;
    if (offered == m_moduleFile) {
        if (!ORV_ASSERT(m_ffHelper, "m_ffHelper != 0L")) {
            return -1;
        }
        SymMgrObjectPtr<ISectionData> debugInfo;
        m_ffHelper->sectionData(debugInfo, section_role_DebugInfo);
        if (debugInfo) {
            m_resolvedFile = m_moduleFile;
            m_validity = symbolFileValid;
            result = m_ordinal;
        } else {
            m_validity = symbolFileRefused;
        }
    }
    ORV_INFO("Symbol file: " << resolvedSymFile << " validity: " << static_cast<unsigned int>(m_validity));
    return result;
}

} // namespace ORV_3_30
