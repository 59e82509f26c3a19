// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// Bytes of sections, read on first use and held until released.
#pragma once

#include "core/orv_byte_buffer.h"
#include "core/orv_shared_object.h"
#include "orv/orv_section.h"

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <new>
#include <utility>

namespace ORV_3_30 {

class ElfHelper;

/// A section's name, and what keeps it. The whole table of names is shared: a file with many sections may name them all
/// by one long string, which must not be copied for each.
struct SectionName {
    std::shared_ptr<void const> keeper; ///< Null for a name that stays by itself.
    char const* text;
};

/// A section's bytes in memory. Banks may share a module's loader, so that threads hold the same object.
class ISectionData : public SharedObject<SymMgrObjectImpl> {
public:
    /// Null when the bytes can't be read. Owned by this object.
    virtual unsigned char* data() = 0;
    virtual unsigned long long size() = 0;
    /// All ones when the bytes are not tied to a section.
    virtual unsigned int sectionIndex() = 0;
    /// Added to values read from the section to get module addresses.
    virtual unsigned long long addressDelta() = 0;
    /// True if the section has bytes that can't be taken out of their compression; there are none then.
    virtual bool isStillPacked() { return false; }

    /// Runs what relocates the bytes, unless that has been done: they may be shared, and what was added once must not
    /// be added again, nor be read half done. What fails ahead of the first change is run again at the next call.
    template <typename Relocate> void relocateOnce(Relocate const& relocate) {
        std::lock_guard<std::mutex> const guard(m_relocating);
        if (!m_isRelocated) {
            relocate();
            m_isRelocated = true;
        }
    }

private:
    std::mutex m_relocating;
    bool m_isRelocated = false;
};

constexpr unsigned int k_noSection = 0xFFFFFFFF;

/// Reads through an ISection. A failed read is not tried again. Belongs to one thread. Required of this layer, though
/// nothing in the library makes one.
class SectionData final : public ISectionData {
public:
    SectionData(unsigned int index, unsigned long long addressDelta, ISection* section)
        : m_index(index), m_addressDelta(addressDelta), m_section(section) {}

    unsigned char* data() override;
    unsigned long long size() override;
    unsigned int sectionIndex() override { return m_index; }
    unsigned long long addressDelta() override { return m_addressDelta; }

private:
    void load();

    unsigned int m_index;
    unsigned long long m_addressDelta;
    SymMgrObjectPtr<IBuffer> m_buffer;
    SymMgrObjectPtr<ISection> m_section;
    bool m_read = false;
};

/// Large blocks stand in large pages, which cost far less to fill.
constexpr std::size_t k_largePage = std::size_t{1} << 21;

struct SectionBlockDelete {
    bool isLarge = false;
    void operator()(unsigned char* block) const {
        if (isLarge) {
            ::operator delete[](block, std::align_val_t{k_largePage});
        } else {
            delete[] block;
        }
    }
};

/// An owned block of section bytes with one zero byte behind the last, so that a string that the
/// section fails to end, ends there.
struct SectionBytes {
    std::unique_ptr<unsigned char[], SectionBlockDelete> bytes;
    std::uint64_t size = 0;
    bool isStillPacked = false; ///< An empty block stands for bytes that can't be taken out of their compression.
};

/// A block of size bytes and the closing zero; no bytes if there is no memory.
SectionBytes tryAllocateSectionBytes(std::uint64_t size);
/// The same, but reports and throws std::bad_alloc if there is no memory.
SectionBytes allocateSectionBytes(std::uint64_t size);

/// Reads through an ElfHelper, which it does not count: whoever makes one keeps the helper alive. A
/// failed read is tried again by the next call. Compressed sections come out uncompressed. Any thread may
/// ask; the first one reads, and those who want the same section wait for it.
class ElfSectionData final : public ISectionData {
public:
    ElfSectionData(unsigned int index, ElfHelper const* helper) : m_index(index), m_helper(helper) {}
    /// Takes over bytes that have been read already.
    ElfSectionData(SectionBytes bytes, unsigned long long addressDelta)
        : m_bytes(std::move(bytes)), m_isRead(m_bytes.bytes != nullptr), m_addressDelta(addressDelta) {}

    unsigned char* data() override;
    unsigned long long size() override;
    unsigned int sectionIndex() override { return m_index; }
    unsigned long long addressDelta() override { return m_addressDelta; }
    bool isStillPacked() override { return load() && m_bytes.isStillPacked; }

private:
    /// False if there are no bytes.
    bool load();

    std::mutex m_loadLock;
    SectionBytes m_bytes;
    std::atomic<bool> m_isRead{false}; ///< The bytes are there, and stay as they are.
    unsigned int m_index = k_noSection;
    ElfHelper const* m_helper = nullptr;
    unsigned long long m_addressDelta = 0;
};

} // namespace ORV_3_30
