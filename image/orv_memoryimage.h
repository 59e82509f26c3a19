// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// The image of a module that lies inside something that is in memory already.
#pragma once

#include "core/orv_cursor.h"
#include "core/orv_shared_object.h"
#include "orv/orv_moduleimage.h"
#include "orv/orv_section.h"

#include <cstring>
#include <string>

namespace ORV_3_30 {

/// Holds the whole block. What the module's loader reads of it comes from here, and nothing from the file
/// whose name it has. A companion that it names is a file all the same.
class MemoryImage final : public SharedObject<SymMgrObject<IModuleImage>> {
public:
    /// One that does not lie in the block is empty.
    MemoryImage(IBuffer* block, unsigned long long offset, unsigned long long size, std::string name)
        : m_block(block), m_name(std::move(name)) {
        if (contains(block->size(), offset, size)) {
            m_offset = offset;
            m_size = size;
        }
    }

    /// 0 for what reaches behind the end.
    unsigned long long read(unsigned long long offset, unsigned long long size, void* buffer) override {
        if (!contains(m_size, offset, size)) {
            return 0;
        }
        if (size != 0) {
            std::memcpy(buffer, m_block->data() + m_offset + offset, size);
        }
        return size;
    }
    unsigned long long size() override { return m_size; }
    char const* fileName() override { return m_name.c_str(); }
    unsigned long long imageOffset() override { return 0; }
    arch_t architecture() override { return arch_Unknown; }

private:
    SymMgrObjectPtr<IBuffer> m_block;
    std::string m_name;
    unsigned long long m_offset = 0;
    unsigned long long m_size = 0;
};

} // namespace ORV_3_30
