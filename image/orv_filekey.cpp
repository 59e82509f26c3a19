// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
// Files in order: by size, time and path.
#include "image/orv_filekey.h"

#include "image/orv_path.h"

#include <sys/stat.h>
#include <tuple>

namespace ORV_3_30 {

FileKey::FileKey(char const* path, std::uint64_t imageOffset, arch_t architecture, reading_t reading)
    : m_path(path != nullptr ? path : ""), m_imageOffset(imageOffset), m_architecture(architecture),
      m_reading(reading) {
    fullPath(m_normalizedPath, m_path.c_str(), false);
    struct stat64 info {};
    if (!m_path.empty() && ::stat64(m_path.c_str(), &info) == 0) {
        m_modificationTime = info.st_mtime;
        m_fileSize = static_cast<std::uint64_t>(info.st_size);
    }
}

bool operator<(FileKey const& a, FileKey const& b) {
    auto const onDisk = [](FileKey const& key) { return std::tie(key.m_fileSize, key.m_modificationTime); };
    if (onDisk(a) != onDisk(b)) {
        return onDisk(a) < onDisk(b);
    }
    // Equality goes by the normalised paths, the order of different ones by the raw strings.
    if (a.m_normalizedPath != b.m_normalizedPath) {
        return a.m_path < b.m_path;
    }
    return std::tie(a.m_imageOffset, a.m_architecture, a.m_reading) <
           std::tie(b.m_imageOffset, b.m_architecture, b.m_reading);
}

} // namespace ORV_3_30
