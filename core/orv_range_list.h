// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// The address ranges of one scope, by start.
///
///     RangeList list;
///     list.add(20, 30);              // the main range: where the scope is entered
///     list.add(30, 40);              // touches: list is [20,40)
///     list.add(10, 20);              // comes in front: the main range keeps its identity
#pragma once

#include <cstddef>
#include <memory>
#include <vector>

namespace ORV_3_30 {

/// Most scopes have one range, which needs no allocation. No lock: written in a load, read after.
class RangeList {
public:
    RangeList() = default;
    RangeList(RangeList&&) = default;
    RangeList& operator=(RangeList&&) = default;
    RangeList(RangeList const& other)
        : m_one(other.m_one), m_many(other.m_many ? std::make_unique<Many>(*other.m_many) : nullptr),
          m_hasOne(other.m_hasOne) {}
    RangeList& operator=(RangeList const& other) { return *this = RangeList(other); }
    ~RangeList() = default;

    struct Range {
        unsigned long long start;
        unsigned long long end;
    };

    /// Adds [start, end). Ranges that overlap or touch become one, but the main range is never
    /// swallowed by one that starts below it.
    void add(unsigned long long start, unsigned long long end);
    /// Takes out the range with exactly that start. False if there is none.
    bool remove(unsigned long long start);

    std::size_t size() const { return m_many ? m_many->ranges.size() : m_hasOne ? 1 : 0; }
    bool empty() const { return size() == 0; }
    Range const& operator[](std::size_t index) const { return m_many ? m_many->ranges[index] : m_one; }
    /// The last range that starts at or below an address; null if there is none.
    Range const* floor(unsigned long long address) const;
    /// Index of the first range that can hold an address or stand behind it.
    std::size_t firstFrom(unsigned long long address) const;

private:
    struct Many {
        std::vector<Range> ranges;
        std::size_t main = 0;               ///< Index of the main range; out of bounds once it was removed.
        unsigned long long longestOver = 0; ///< No range that reaches over the next one's start was ever longer.
    };
    static void place(Many& many, std::size_t next, unsigned long long start, unsigned long long end);
    /// Lets a range take in its successors, as far as they touch it and are not the main range.
    static void absorb(Many& many, std::size_t index);

    Range m_one{};
    std::unique_ptr<Many> m_many; ///< Set as soon as there have been two ranges.
    bool m_hasOne = false;
};

} // namespace ORV_3_30
