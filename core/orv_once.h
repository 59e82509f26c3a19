// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// A value that is made at the first question for it.
///
///     Once<Table> m_table;
///     Table& table() { return m_table.get(m_lock, [&] { return std::make_unique<Table>(this); }); }
#pragma once

#include <atomic>
#include <memory>
#include <mutex>

namespace ORV_3_30 {

/// Any thread may ask. A value that could not be made is made at the next question; one that was stays where it is
/// until this goes, or until somebody takes it.
template <typename T> class Once {
public:
    Once() = default;
    Once(Once const&) = delete;
    Once& operator=(Once const&) = delete;
    ~Once() { delete m_value.load(std::memory_order_acquire); }

    /// Null as long as nobody has asked.
    T* made() const { return m_value.load(std::memory_order_acquire); }

    /// Under a lock, for what is dear. make gives a std::unique_ptr.
    template <typename Lock, typename Make> T& get(Lock& lock, Make const& make) {
        if (T* const known = made()) {
            return *known;
        }
        std::lock_guard<Lock> const guard(lock);
        return get(make);
    }

    /// Of threads that make it at the same time the first to finish gives it.
    template <typename Make> T& get(Make const& make) {
        T* known = made();
        if (known == nullptr) {
            std::unique_ptr<T> fresh(make());
            if (m_value.compare_exchange_strong(known, fresh.get(), std::memory_order_acq_rel)) {
                known = fresh.release();
            }
        }
        return *known;
    }

    /// For who takes values down in an order of his own, or has them made anew. Nobody else asks meanwhile.
    std::unique_ptr<T> take() { return std::unique_ptr<T>(m_value.exchange(nullptr)); }

private:
    std::atomic<T*> m_value{nullptr};
};

} // namespace ORV_3_30
