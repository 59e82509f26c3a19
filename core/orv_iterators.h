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
    bool next() override { return m_position != m_end && ++m_position != m_end; }
    void reset() override { m_position = m_first; }

private:
    typename Map::iterator m_position;
    typename Map::iterator m_first;
    typename Map::iterator m_end;
    Filter m_filter;
};

/// Walks what is found by its index, and sees what is there at each call.
template <typename T> class IndexIterator : public SymMgrObject<IIterator<T>> {
public:
    T current() override { return m_index < size() ? at(m_index) : T(); }
    bool next() override {
        m_index += m_index < size() ? 1 : 0;
        return m_index < size();
    }
    void reset() override { m_index = 0; }

private:
    virtual std::size_t size() const = 0;
    virtual T at(std::size_t index) const = 0;

    std::size_t m_index = 0;
};

/// Walks a live vector.
template <typename Vector, typename T> class VectorIteratorWrapper final : public IndexIterator<T> {
public:
    explicit VectorIteratorWrapper(Vector const& vector) : m_vector(&vector) {}

private:
    std::size_t size() const override { return m_vector->size(); }
    T at(std::size_t index) const override { return T((*m_vector)[index]); }

    Vector const* m_vector;
};

} // namespace ORV_3_30
