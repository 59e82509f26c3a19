// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
// Bytes of sections, in blocks that end with a zero byte.
#include "format/orv_section_data.h"

#include "core/orv_trace.h"
#include "format/orv_elf_helper.h"

#include <new>
#include <sys/mman.h>

namespace ORV_3_30 {

unsigned char* SectionData::data() {
    load();
    return m_buffer ? m_buffer->data() : nullptr;
}

unsigned long long SectionData::size() {
    load();
    return m_buffer ? m_buffer->size() : 0;
}

void SectionData::load() {
    if (m_read) {
        return;
    }
    m_read = true;
    if (!ORV_ASSERT(m_section, "m_section")) {
        return;
    }
    m_section->read(m_buffer);
    ORV_ASSERT(m_buffer, "m_buffer");
}

SectionBytes tryAllocateSectionBytes(std::uint64_t size) {
    SectionBytes result;
    if (size >= k_largePage / 2 && size < ByteBuffer::k_largest) {
        constexpr std::align_val_t k_alignment{k_largePage};
        auto* const block = static_cast<unsigned char*>(::operator new[](size + 1, k_alignment, std::nothrow));
        result.bytes = std::unique_ptr<unsigned char[], SectionBlockDelete>(block, {true});
        if (block != nullptr) {
            ::madvise(block, size + 1, MADV_HUGEPAGE); // no more than a wish
        }
    } else if (size < ByteBuffer::k_largest) {
        result.bytes.reset(new (std::nothrow) unsigned char[size + 1]);
    }
    if (result.bytes != nullptr) {
        result.bytes[size] = 0;
        result.size = size;
    }
    return result;
}

SectionBytes allocateSectionBytes(std::uint64_t size) {
    SectionBytes result = tryAllocateSectionBytes(size);
    if (result.bytes == nullptr) {
        ORV_ERROR("can't allocate memory: " << size);
        throw std::bad_alloc();
    }
    return result;
}

unsigned char* ElfSectionData::data() { return load() ? m_bytes.bytes.get() : nullptr; }

unsigned long long ElfSectionData::size() { return load() ? m_bytes.size : 0; }

bool ElfSectionData::load() {
    if (m_isRead.load(std::memory_order_acquire) || m_helper == nullptr) {
        return m_isRead;
    }
    std::lock_guard<std::mutex> const guard(m_loadLock);
    if (!m_isRead) {
        SectionBytes bytes = m_helper->readSectionBytes(m_index);
        if (bytes.bytes != nullptr) {
            m_bytes = std::move(bytes);
            m_isRead.store(true, std::memory_order_release);
        }
    }
    return m_isRead;
}

} // namespace ORV_3_30
