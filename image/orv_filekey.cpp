// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
// Files in order: by size, time and path.
#include "image/orv_filekey.h"

#include "image/orv_path.h"

#include <sys/stat.h>

namespace ORV_3_30 {

FileKey::FileKey(char const* path, std::uint64_t imageOffset, arch_t architecture)
    : m_path(path != nullptr ? path : ""), m_imageOffset(imageOffset), m_architecture(architecture) {
    fullPath(m_normalizedPath, m_path.c_str(), false);
    struct stat64 info {};
    if (!m_path.empty() && ::stat64(m_path.c_str(), &info) == 0) {
        m_modificationTime = info.st_mtime;
        m_fileSize = static_cast<std::uint64_t>(info.st_size);
    }
}

bool operator<(FileKey const& a, FileKey const& b) {
    if (a.m_fileSize != b.m_fileSize) {
        return a.m_fileSize < b.m_fileSize;
    }
    if (a.m_modificationTime != b.m_modificationTime) {
        return a.m_modificationTime < b.m_modificationTime;
    }
    // Equality goes by the normalised paths, the order of different ones by the raw strings.
    if (a.m_normalizedPath != b.m_normalizedPath) {
        return a.m_path < b.m_path;
    }
    if (a.m_imageOffset != b.m_imageOffset) {
        return a.m_imageOffset < b.m_imageOffset;
    }
    return a.m_architecture < b.m_architecture;
}

} // namespace ORV_3_30
