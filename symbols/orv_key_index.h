/// The boundary addresses of a symbol table in order, each with the records that start there.
///
///     KeyIndex keys;
///     KeyIndex::Position at = keys.insert(keys.lowerBound(0x1000), 0x1000);
///     keys.setRecords(at, record);
///     keys.forEachSpanning(at, [](RangeRecord& r) { ... });   // started earlier, still alive at 0x1000
///
/// A sorted array cut into chunks: inserting moves at most one chunk, and stepping is an increment.
/// Each key and each chunk know the greatest end among their records, and each key a bound on the
/// ends ahead of it, so that a search for what is alive at an address looks at its neighbourhood
/// alone.
#pragma once

#include "symbols/orv_range_record.h"

#include <algorithm>
#include <cstddef>
#include <vector>

namespace ORV_3_30 {

/// Positions are valid until the next insertion or erasure. No lock: the table guards it.
class KeyIndex {
public:
    struct Position {
        std::size_t chunk = 0;
        std::size_t slot = 0;
        friend bool operator==(Position a, Position b) { return a.chunk == b.chunk && a.slot == b.slot; }
        friend bool operator!=(Position a, Position b) { return !(a == b); }
    };

    bool empty() const { return m_chunks.empty(); }
    Position begin() const { return {}; }
    Position end() const { return {m_chunks.size(), 0}; }
    bool isEnd(Position at) const { return at.chunk >= m_chunks.size(); }

    unsigned long long address(Position at) const { return key(at).address; }
    RangeRecord* records(Position at) const { return key(at).records; }

    Position next(Position at) const {
        ++at.slot;
        return at.slot < m_chunks[at.chunk].keys.size() ? at : Position{at.chunk + 1, 0};
    }

    /// The first key at or above an address; end if there is none.
    Position lowerBound(unsigned long long address) const {
        if (!empty() && m_chunks.back().keys.back().address < address) {
            return end(); // the usual case while addresses come in ascending order
        }
        auto const chunk = std::upper_bound(m_chunks.begin(), m_chunks.end(), address,
                                            [](unsigned long long a, Chunk const& c) { return a < c.firstAddress; });
        if (chunk == m_chunks.begin()) {
            return begin();
        }
        Position at{static_cast<std::size_t>(chunk - m_chunks.begin()) - 1, 0};
        std::vector<Key> const& keys = m_chunks[at.chunk].keys;
        at.slot = static_cast<std::size_t>(
            std::lower_bound(keys.begin(), keys.end(), address,
                             [](Key const& k, unsigned long long a) { return k.address < a; }) -
            keys.begin());
        return at.slot < keys.size() ? at : Position{at.chunk + 1, 0};
    }
    Position upperBound(unsigned long long address) const {
        Position const at = lowerBound(address);
        return !isEnd(at) && this->address(at) == address ? next(at) : at;
    }
    /// The last key at or below an address; end if there is none.
    Position floor(unsigned long long address) const {
        Position const after = upperBound(address);
        if (after == begin()) {
            return end();
        }
        return after.slot > 0 ? Position{after.chunk, after.slot - 1}
                              : Position{after.chunk - 1, m_chunks[after.chunk - 1].keys.size() - 1};
    }

    /// Makes a key ahead of the first one above it, as lowerBound has found it.
    Position insert(Position at, unsigned long long address) {
        if (m_chunks.empty()) {
            Chunk first;
            first.keys.push_back({address, 0, 0, nullptr});
            first.firstAddress = address;
            m_chunks.push_back(std::move(first));
            return begin();
        }
        if (at.slot == 0 && at.chunk > 0) {
            --at.chunk; // behind the last of the chunk before
            at.slot = m_chunks[at.chunk].keys.size();
        }
        if (m_chunks[at.chunk].keys.size() == k_chunkSize) {
            if (at.slot == k_chunkSize && at.chunk + 1 == m_chunks.size()) {
                return append(address);
            }
            at = split(at);
        }
        Chunk& chunk = m_chunks[at.chunk];
        chunk.keys.insert(chunk.keys.begin() + static_cast<std::ptrdiff_t>(at.slot),
                          Key{address, 0, endBefore(at), nullptr});
        chunk.firstAddress = chunk.keys[0].address;
        return at;
    }

    /// Takes a key without records out.
    void erase(Position at) {
        Chunk& chunk = m_chunks[at.chunk];
        chunk.keys.erase(chunk.keys.begin() + static_cast<std::ptrdiff_t>(at.slot));
        if (chunk.keys.empty()) {
            m_chunks.erase(m_chunks.begin() + static_cast<std::ptrdiff_t>(at.chunk));
        } else {
            chunk.firstAddress = chunk.keys[0].address;
        }
    }

    /// Sets the list of the records that start at a key. Also to be called when an end has changed.
    void setRecords(Position at, RangeRecord* head) {
        Key& changed = m_chunks[at.chunk].keys[at.slot];
        unsigned long long const before = changed.greatestEnd;
        changed.records = head;
        changed.greatestEnd = 0;
        for (RangeRecord const* record = head; record != nullptr; record = record->next) {
            changed.greatestEnd = std::max(changed.greatestEnd, record->end);
        }
        Chunk& chunk = m_chunks[at.chunk];
        if (changed.greatestEnd >= chunk.greatestEnd) {
            chunk.greatestEnd = changed.greatestEnd;
        } else if (before == chunk.greatestEnd) {
            chunk.summarize();
        }
        // The bounds ascend, so this stops at the first key that has heard of a greater end.
        unsigned long long const end = changed.greatestEnd;
        for (Position i = next(at); !isEnd(i) && key(i).endBefore < end; i = next(i)) {
            m_chunks[i.chunk].keys[i.slot].endBefore = end;
        }
    }

    /// Visits the records that start below a key and end above it, in no particular order.
    template <typename Visitor> void forEachSpanning(Position at, Visitor visit) const {
        unsigned long long const address = this->address(at);
        while (key(at).endBefore > address) {
            if (at.slot > 0) {
                --at.slot;
            } else if (at.chunk > 0) {
                --at.chunk;
                bool const isPassedOver = m_chunks[at.chunk].greatestEnd <= address;
                at.slot = isPassedOver ? 0 : m_chunks[at.chunk].keys.size() - 1;
            } else {
                return;
            }
            // Sorted by end, the greatest first.
            for (RangeRecord* r = key(at).records; r != nullptr && r->end > address; r = r->next) {
                visit(*r);
            }
        }
    }

private:
    static constexpr std::size_t k_chunkSize = 64;

    struct Key {
        unsigned long long address;
        unsigned long long greatestEnd; ///< 0 without records.
        unsigned long long endBefore;   ///< No record of an earlier key ends above this.
        RangeRecord* records;
    };
    struct Chunk {
        std::vector<Key> keys;
        unsigned long long firstAddress = 0;
        unsigned long long greatestEnd = 0;
        void summarize() {
            firstAddress = keys.empty() ? 0 : keys[0].address;
            greatestEnd = 0;
            for (Key const& key : keys) {
                greatestEnd = std::max(greatestEnd, key.greatestEnd);
            }
        }
    };

    /// The bound for a key that is to stand at a position.
    unsigned long long endBefore(Position at) const {
        if (at.slot > 0) {
            Key const& previous = m_chunks[at.chunk].keys[at.slot - 1];
            return std::max(previous.endBefore, previous.greatestEnd);
        }
        if (at.chunk > 0) {
            Key const& previous = m_chunks[at.chunk - 1].keys.back();
            return std::max(previous.endBefore, previous.greatestEnd);
        }
        return 0;
    }

    Key const& key(Position at) const { return m_chunks[at.chunk].keys[at.slot]; }

    /// Starts a chunk behind the last one: keys that come in ascending order leave full ones behind.
    Position append(unsigned long long address) {
        Position const at = end();
        Chunk last;
        last.keys.reserve(k_chunkSize); // more of the same to come
        last.keys.push_back({address, 0, endBefore(at), nullptr});
        last.firstAddress = address;
        m_chunks.push_back(std::move(last));
        return at;
    }

    /// Cuts a full chunk in two; returns where the position went.
    Position split(Position at) {
        constexpr std::size_t k_middle = k_chunkSize / 2;
        Chunk upper;
        upper.keys.assign(m_chunks[at.chunk].keys.begin() + k_middle, m_chunks[at.chunk].keys.end());
        upper.summarize();
        m_chunks.insert(m_chunks.begin() + static_cast<std::ptrdiff_t>(at.chunk) + 1, std::move(upper));
        m_chunks[at.chunk].keys.resize(k_middle);
        m_chunks[at.chunk].summarize();
        return at.slot <= k_middle ? at : Position{at.chunk + 1, at.slot - k_middle};
    }

    std::vector<Chunk> m_chunks; ///< None is empty.
};

} // namespace ORV_3_30
