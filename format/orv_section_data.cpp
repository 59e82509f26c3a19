// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
// Bytes of sections: plain, inflated by zlib, or behind a header of their own (System V ABI, "Section Compression").
#include "format/orv_section_data.h"

#include "core/orv_cursor.h"
#include "core/orv_trace.h"
#include "format/orv_elf_helper.h"

#include <cstring>
#include <elf.h>
#include <new>
#include <sys/mman.h>
#include <zlib.h>

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

namespace {

bool uncompress(unsigned char const* stream, std::uint64_t size, std::uint64_t uncompressedSize, SectionBytes& out) {
    // deflate can't do better than 1 : 1032, so a larger size in the header is a lie (RFC 1951).
    constexpr std::uint64_t k_largestRatio = 1032;
    if (uncompressedSize / k_largestRatio > size) {
        ORV_ERROR("error while uncompressing ZLIB section data");
        return false;
    }
    SectionBytes result = tryAllocateSectionBytes(uncompressedSize);
    if (result.bytes == nullptr) {
        ORV_ERROR("Out of memory");
        throw std::bad_alloc();
    }
    uLongf produced = uncompressedSize;
    if (::uncompress(result.bytes.get(), &produced, stream, size) != Z_OK) {
        ORV_ERROR("error while uncompressing ZLIB section data");
        return false;
    }
    result.size = produced;
    result.bytes[produced] = 0;
    out = std::move(result);
    return true;
}

} // namespace

bool uncompressZlibSection(unsigned char const* in, std::uint64_t size, SectionBytes& out) {
    constexpr std::uint64_t k_headerSize = 12;
    out = SectionBytes();
    if (in == nullptr || size <= k_headerSize || std::memcmp(in, "ZLIB", 4) != 0) {
        return false;
    }
    std::uint64_t uncompressedSize = 0;
    for (std::size_t i = 4; i < k_headerSize; ++i) {
        uncompressedSize = uncompressedSize << 8 | in[i];
    }
    return uncompress(in + k_headerSize, size - k_headerSize, uncompressedSize, out);
}

bool uncompressFlaggedSection(unsigned char const* in, std::uint64_t size, bool is64, SectionBytes& out) {
    out = SectionBytes();
    ByteCursor header(in, size);
    std::uint32_t type = 0;
    std::uint64_t uncompressedSize = 0;
    unsigned int const word = is64 ? 8 : 4;
    bool const isWhole = header.read(type) && header.skip(word - 4) && header.readWord(word, uncompressedSize) &&
                         header.skip(word); // ch_reserved, ch_size, ch_addralign
    return isWhole && type == ELFCOMPRESS_ZLIB &&
           uncompress(in + header.position(), header.remaining(), uncompressedSize, out);
}

} // namespace ORV_3_30
