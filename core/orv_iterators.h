// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// Iterators over the loaders' own maps and vectors. Neither keeps its collection alive.
#pragma once

#include "orv/orv_iterator.h"

#include <cstddef>

namespace ORV_3_30 {

/// Carries a filter value with an iterator. It selects nothing: every element comes out.
template <typename T, typename Arg> class CFilter {
public:
    explicit CFilter(Arg value) : m_value(value) {}
    Arg value() const { return m_value; }

private:
    Arg m_value;
};

/// Walks the values of a live map.
template <typename Map, typename T, typename Filter, typename FilterArg> class MapIteratorWrapper final
    : public SymMgrObject<IIterator<T>> {
public:
    MapIteratorWrapper(Map& map, FilterArg filter)
        : m_position(map.begin()), m_first(map.begin()), m_end(map.end()), m_filter(filter) {}

    T current() override { return m_position == m_end ? T() : T(m_position->second); }
    bool next() override {
        if (m_position == m_end) {
            return false;
        }
        return ++m_position != m_end;
    }
    void reset() override { m_position = m_first; }

private:
    typename Map::iterator m_position;
    typename Map::iterator m_first;
    typename Map::iterator m_end;
    Filter m_filter;
};

/// Walks a live vector, and sees what it holds at each call.
template <typename Vector, typename T> class VectorIteratorWrapper final : public SymMgrObject<IIterator<T>> {
public:
    explicit VectorIteratorWrapper(Vector const& vector) : m_vector(&vector) {}

    T current() override { return m_position < m_vector->size() ? T((*m_vector)[m_position]) : T(); }
    bool next() override {
        if (m_position >= m_vector->size()) {
            return false;
        }
        return ++m_position < m_vector->size();
    }
    void reset() override { m_position = 0; }

private:
    std::size_t m_position = 0;
    Vector const* m_vector;
};

} // namespace ORV_3_30
