// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// What work may cost, so that a small file can't ask for a great deal of it.
///
///     Budget search("search");
///     search.refill(size * 64);
///     if (!search.spend(bytes)) return;    // too dear; what costs less is still had
#pragma once

#include "core/orv_trace.h"

#include <atomic>
#include <cstdint>

namespace ORV_3_30 {

/// Exact, whatever threads spend at the same time.
class Budget {
public:
    /// of: what is spent, for the log, which is told once that it runs out; null for one of many.
    explicit Budget(char const* of, std::uint64_t amount = 0) : m_of(of), m_left(amount) {}

    void refill(std::uint64_t amount) { m_left.store(amount, std::memory_order_relaxed); }
    bool isSpent() const { return m_left.load(std::memory_order_relaxed) == 0; }
    /// Asked ahead of the work: refuses what is too dear, and nothing after it.
    bool spend(std::uint64_t amount) {
        std::uint64_t left = m_left.load(std::memory_order_relaxed);
        while (amount <= left) {
            if (m_left.compare_exchange_weak(left, left - amount, std::memory_order_relaxed)) {
                return true;
            }
        }
        tellOnce();
        return false;
    }
    /// For work whose price shows afterwards. False if it was more than there was.
    bool settle(std::uint64_t amount) {
        std::uint64_t left = m_left.load(std::memory_order_relaxed);
        while (!m_left.compare_exchange_weak(left, amount <= left ? left - amount : 0, std::memory_order_relaxed)) {
        }
        if (amount > left) {
            tellOnce();
        }
        return amount <= left;
    }
    /// For what is kept no more.
    void giveBack(std::uint64_t amount) { m_left.fetch_add(amount, std::memory_order_relaxed); }

private:
    void tellOnce() {
        if (m_of != nullptr && !m_isTold.exchange(true, std::memory_order_relaxed)) {
            ORV_INFO("Budget spent: " << m_of);
        }
    }

    char const* m_of;
    std::atomic<std::uint64_t> m_left;
    std::atomic<bool> m_isTold{false};
};

} // namespace ORV_3_30
