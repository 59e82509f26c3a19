// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// A block of bytes for those who must see that memory is short.
#pragma once

#include "orv/orv_object.h"
#include "orv/orv_section.h"

#include <cstdint>
#include <cstdlib>

namespace ORV_3_30 {

/// A plain block from the C allocator, not zeroed. If the bytes can't be had, size is 0: that is how
/// callers see that memory is short.
class ByteBuffer final : public SymMgrObject<IBuffer> {
public:
    /// No block above this is asked for: no module is that large, and a size that came from a broken
    /// file must not strain the allocator.
    static constexpr std::uint64_t k_largest = std::uint64_t{1} << 40;

    explicit ByteBuffer(unsigned long long size)
        : m_data(size <= k_largest ? static_cast<unsigned char*>(std::malloc(size + 1)) : nullptr),
          m_size(m_data != nullptr ? size : 0) {}
    ~ByteBuffer() override { std::free(m_data); }

    unsigned long long size() override { return m_size; }
    unsigned char* data() override { return m_data; }

private:
    unsigned char* m_data;
    unsigned long long m_size;
};

} // namespace ORV_3_30
