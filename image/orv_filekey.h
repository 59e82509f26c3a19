// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// A file as it stands on disk: what makes two loads of a module the same load.
#pragma once

#include "orv/orv_moduleimage.h"
#include "orv/orv_reading.h"

#include <cstdint>
#include <string>

namespace ORV_3_30 {

/// Reads the file's size and modification time when it is built; they are not looked at again.
class FileKey {
public:
    /// A null path is the empty one. Without a file, size and time are 0.
    FileKey(char const* path, std::uint64_t imageOffset, arch_t architecture, reading_t reading = reading_Classic);

    /// By size, then time; different paths by their bytes, the same path by offset, architecture and reading. Two
    /// spellings of one path are the same path.
    friend bool operator<(FileKey const& a, FileKey const& b);

    std::string const& path() const { return m_path; }

private:
    std::int64_t m_modificationTime = 0;
    std::uint64_t m_fileSize = 0;
    std::string m_path;
    std::string m_normalizedPath; ///< What samePath would compare, made once.
    std::uint64_t m_imageOffset;
    arch_t m_architecture;
    reading_t m_reading;
};

} // namespace ORV_3_30
