// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// The boundary addresses of a symbol table in order, each with the records that start there.
///
///     KeyIndex keys;
///     KeyIndex::Position at = keys.insert(keys.lowerBound(0x1000), 0x1000);
///     keys.setRecords(at, record);
///     keys.anySpanning(at, [](RangeRecord& r) { ... });       // started earlier, still alive at 0x1000
///
/// A sorted array cut into chunks, and the chunks into blocks: inserting moves at most one chunk, and
/// stepping is an increment. Keys, chunks and blocks know the greatest end among their records, so
/// that a search for what is alive at an address passes over what ended before it, however many keys
/// lie between.
#pragma once

#include "symbols/orv_range_record.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

namespace ORV_3_30 {

/// Positions are valid until the next insertion or erasure. No lock: the table guards it. An
/// operation that finds no memory leaves it as it was.
class KeyIndex {
public:
    struct Position {
        std::size_t chunk = 0;
        std::size_t slot = 0;
        friend bool operator==(Position a, Position b) { return a.chunk == b.chunk && a.slot == b.slot; }
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
    Position lowerBound(unsigned long long address) const;
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

    /// When a key was made.
    std::uint32_t born(Position at) const { return key(at).born; }
    /// The birth of the oldest key in (after, to].
    std::uint32_t oldestBehind(Position after, Position to) const;

    /// Makes a key ahead of the first one above it, as lowerBound has found it. born: the arrival that it is made for.
    Position insert(Position at, unsigned long long address, std::uint32_t born);
    /// Takes a key without records out.
    void erase(Position at);
    /// Takes the keys in [from, to) out at which nothing is alive. Positions are valid no longer.
    void eraseDeserted(unsigned long long from, unsigned long long to);
    /// Sets the list of the records that start at a key. Also to be called when an end has changed.
    void setRecords(Position at, RangeRecord* head);

    /// Visits the records that start below a key and end above it, in no particular order, until one is what is looked
    /// for. True if one is.
    template <typename Visitor> bool anySpanning(Position at, Visitor visit) const {
        unsigned long long const address = this->address(at);
        if (visitChunk(m_chunks[at.chunk], at.slot, address, visit)) {
            return true;
        }
        if (m_chunks[at.chunk].endBefore <= address) {
            return false;
        }
        std::size_t const ownBlock = at.chunk / k_blockSize;
        bool isFound = visitChunks(ownBlock * k_blockSize, at.chunk, address, visit);
        for (std::size_t block = 0; block < ownBlock && !isFound; ++block) {
            isFound = m_blocks[block].greatestEnd > address &&
                      visitChunks(block * k_blockSize, (block + 1) * k_blockSize, address, visit);
        }
        return isFound;
    }

private:
    static constexpr std::size_t k_chunkSize = 64; ///< Keys.
    static constexpr std::size_t k_blockSize = 64; ///< Chunks.

    struct Key {
        unsigned long long address;
        unsigned long long greatestEnd; ///< 0 without records.
        unsigned long long endBefore;   ///< The greatest end of earlier keys in the chunk.
        RangeRecord* records;
        std::uint32_t born;
    };
    /// What a stretch of keys says about where something is alive.
    struct Cover {
        unsigned long long greatestEnd = 0;
        std::optional<unsigned long long> lastBare; ///< The last key at which nothing of the stretch is alive.

        /// Takes in what follows.
        void append(Cover const& next);
        /// True if nothing is alive at one of the keys, where what starts in front of them ends by then.
        bool isBareBehind(unsigned long long end) const { return lastBare && *lastBare >= end; }
    };
    struct Chunk {
        std::vector<Key> keys; ///< Never empty.
        unsigned long long firstAddress = 0;
        unsigned long long greatestEnd = 0;
        unsigned long long endBefore = 0;         ///< No record of an earlier chunk ends above this.
        std::uint32_t oldest = ~std::uint32_t{0}; ///< The least birth of its keys.

        std::optional<Cover> cover; ///< As long as no key changes.

        unsigned long long boundBehind() const { return std::max(endBefore, greatestEnd); }
        /// Works out what follows from the keys.
        void summarize();
        Cover const& ownCover();
        /// Takes keys out as KeyIndex does; end is that of what starts in front of the chunk. True if any went.
        bool eraseDeserted(unsigned long long from, unsigned long long to, unsigned long long end);
    };
    struct Block {
        unsigned long long greatestEnd = 0;
        std::optional<Cover> cover; ///< As long as no key changes.
    };

    template <typename Visitor>
    bool visitChunks(std::size_t from, std::size_t to, unsigned long long address, Visitor& visit) const {
        return std::any_of(m_chunks.data() + from, m_chunks.data() + to, [&](Chunk const& chunk) {
            return chunk.greatestEnd > address && visitChunk(chunk, chunk.keys.size(), address, visit);
        });
    }

    /// Visits the records of a chunk's first keys that end above an address.
    template <typename Visitor>
    static bool visitChunk(Chunk const& chunk, std::size_t count, unsigned long long address, Visitor& visit) {
        if (count < chunk.keys.size() && chunk.keys[count].endBefore <= address) {
            return false;
        }
        for (std::size_t slot = 0; slot < count; ++slot) {
            if (chunk.keys[slot].greatestEnd <= address) {
                continue;
            }
            // Sorted by end, the greatest first.
            for (RangeRecord* r = chunk.keys[slot].records; r != nullptr && r->end > address; r = r->next) {
                if (visit(*r)) {
                    return true;
                }
            }
        }
        return false;
    }

    Key const& key(Position at) const { return m_chunks[at.chunk].keys[at.slot]; }
    Position append(unsigned long long address, std::uint32_t born);
    Position split(Position at);
    void noteChange(std::size_t chunk);
    void summarizeBlock(std::size_t block);
    void summarizeBlocks(std::size_t fromChunk);
    Cover const& coverOf(std::size_t block);
    bool eraseFromBlock(std::size_t block, unsigned long long from, unsigned long long to, unsigned long long end);
    std::size_t behindBlock(std::size_t block) const { return std::min((block + 1) * k_blockSize, m_chunks.size()); }

    std::vector<Chunk> m_chunks;
    std::vector<Block> m_blocks; ///< Each of so many chunks.
};

} // namespace ORV_3_30
