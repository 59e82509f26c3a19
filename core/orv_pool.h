// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// Records of one type, allocated in chunks and freed together.
#pragma once

#include <algorithm>
#include <cstddef>
#include <memory>
#include <type_traits>
#include <utility>
#include <vector>

namespace ORV_3_30 {

/// Addresses stay valid as long as the pool. Chunks double in size, so that a pool of few records
/// stays small. No lock.
template <typename T> class Pool {
    static_assert(std::is_trivially_destructible_v<T>, "records are dropped, not destroyed");

public:
    template <typename... Args> T* make(Args&&... args) {
        if (m_used == m_capacity) {
            std::size_t const wanted = m_capacity == 0 ? k_firstChunk : std::min(m_capacity * 2, k_largestChunk);
            std::unique_ptr<Storage[]> chunk(new Storage[wanted]);
            m_chunks.push_back(std::move(chunk));
            // Only now: nothing has changed if there was no memory.
            m_capacity = wanted;
            m_used = 0;
        }
        return new (&m_chunks.back()[m_used++]) T(std::forward<Args>(args)...);
    }

private:
    static constexpr std::size_t k_firstChunk = 4;
    static constexpr std::size_t k_largestChunk = 4096;
    using Storage = std::aligned_storage_t<sizeof(T), alignof(T)>;

    std::vector<std::unique_ptr<Storage[]>> m_chunks;
    std::size_t m_capacity = 0;
    std::size_t m_used = 0;
};

} // namespace ORV_3_30
