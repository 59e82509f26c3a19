// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// The image of a file as it stands on the disk.
#pragma once

#include "core/orv_shared_object.h"
#include "image/orv_file.h"
#include "orv/orv_moduleimage.h"

namespace ORV_3_30 {

/// A whole file, or a slice of one that begins at imageOffset.
class FileImage final : public SharedObject<SymMgrObject<IModuleImage>> {
public:
    FileImage(char const* name, unsigned long long imageOffset, arch_t architecture)
        : m_file(name), m_imageOffset(imageOffset), m_architecture(architecture) {}

    unsigned long long read(unsigned long long offset, unsigned long long size, void* buffer) override {
        unsigned long long const position = offset + m_imageOffset;
        if (position < offset || position > static_cast<unsigned long long>(INT64_MAX)) {
            return k_fileError;
        }
        // Banks that share the module read at once.
        return m_file.readAt(static_cast<std::int64_t>(position), size, buffer);
    }
    unsigned long long size() override {
        unsigned long long const fileSize = m_file.size();
        return m_imageOffset < fileSize ? fileSize - m_imageOffset : 0;
    }
    char const* fileName() override { return m_file.path(); }
    unsigned long long imageOffset() override { return m_imageOffset; }
    arch_t architecture() override { return m_architecture; }

private:
    File m_file;
    unsigned long long m_imageOffset;
    arch_t m_architecture;
};

} // namespace ORV_3_30
