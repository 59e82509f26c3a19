// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
// A sorted array in chunks and blocks of chunks, each with the greatest end in it.
#include "symbols/orv_key_index.h"

namespace ORV_3_30 {

KeyIndex::Position KeyIndex::lowerBound(unsigned long long address) const {
    if (empty() || m_chunks.back().keys.back().address < address) {
        return end(); // the usual case while addresses come in ascending order
    }
    auto const chunk = std::upper_bound(m_chunks.begin(), m_chunks.end(), address,
                                        [](unsigned long long a, Chunk const& c) { return a < c.firstAddress; });
    if (chunk == m_chunks.begin()) {
        return begin();
    }
    Position at{static_cast<std::size_t>(chunk - m_chunks.begin()) - 1, 0};
    std::vector<Key> const& keys = m_chunks[at.chunk].keys;
    at.slot =
        static_cast<std::size_t>(std::lower_bound(keys.begin(), keys.end(), address,
                                                  [](Key const& k, unsigned long long a) { return k.address < a; }) -
                                 keys.begin());
    return at.slot < keys.size() ? at : Position{at.chunk + 1, 0};
}

KeyIndex::Position KeyIndex::insert(Position at, unsigned long long address, std::uint32_t born) {
    if (at.slot == 0 && at.chunk > 0) {
        --at.chunk; // behind the last of the chunk before
        at.slot = m_chunks[at.chunk].keys.size();
    }
    bool const isFull = !empty() && m_chunks[at.chunk].keys.size() == k_chunkSize;
    if (empty() || (isFull && at.slot == k_chunkSize && at.chunk + 1 == m_chunks.size())) {
        return append(address, born);
    }
    if (isFull) {
        at = split(at);
    }
    Chunk& chunk = m_chunks[at.chunk];
    unsigned long long endBefore = 0;
    if (at.slot > 0) {
        Key const& previous = chunk.keys[at.slot - 1];
        endBefore = std::max(previous.endBefore, previous.greatestEnd);
    }
    chunk.keys.insert(chunk.keys.begin() + static_cast<std::ptrdiff_t>(at.slot),
                      Key{address, 0, endBefore, nullptr, born});
    chunk.firstAddress = chunk.keys[0].address;
    chunk.oldest = std::min(chunk.oldest, born);
    noteChange(at.chunk);
    return at;
}

/// Starts a chunk behind the last one: keys that come in ascending order leave full ones behind.
KeyIndex::Position KeyIndex::append(unsigned long long address, std::uint32_t born) {
    Chunk last;
    if (!empty()) {
        last.keys.reserve(k_chunkSize); // more of the same to come
        last.endBefore = m_chunks.back().boundBehind();
    }
    last.keys.push_back({address, 0, 0, nullptr, born});
    last.firstAddress = address;
    last.oldest = born;
    m_blocks.reserve(m_blocks.size() + 1);
    m_chunks.push_back(std::move(last));
    m_blocks.resize((m_chunks.size() + k_blockSize - 1) / k_blockSize);
    noteChange(m_chunks.size() - 1);
    return {m_chunks.size() - 1, 0};
}

/// Cuts a full chunk in two; returns where the position went.
KeyIndex::Position KeyIndex::split(Position at) {
    constexpr std::size_t k_middle = k_chunkSize / 2;
    Chunk upper;
    upper.keys.assign(m_chunks[at.chunk].keys.begin() + k_middle, m_chunks[at.chunk].keys.end());
    upper.summarize();
    m_blocks.reserve(m_blocks.size() + 1);
    m_chunks.insert(m_chunks.begin() + static_cast<std::ptrdiff_t>(at.chunk) + 1, std::move(upper));
    m_chunks[at.chunk].keys.resize(k_middle);
    m_chunks[at.chunk].summarize();
    m_chunks[at.chunk + 1].endBefore = m_chunks[at.chunk].boundBehind();
    summarizeBlocks(at.chunk);
    return at.slot <= k_middle ? at : Position{at.chunk + 1, at.slot - k_middle};
}

std::uint32_t KeyIndex::oldestBehind(Position after, Position to) const {
    std::uint32_t oldest = ~std::uint32_t{0};
    for (std::size_t chunk = after.chunk; chunk <= to.chunk; ++chunk) {
        std::vector<Key> const& keys = m_chunks[chunk].keys;
        std::size_t const begin = chunk == after.chunk ? after.slot + 1 : 0;
        std::size_t const end = chunk == to.chunk ? to.slot + 1 : keys.size();
        if (begin == 0 && end == keys.size()) {
            oldest = std::min(oldest, m_chunks[chunk].oldest);
            continue;
        }
        for (std::size_t slot = begin; slot < end; ++slot) {
            oldest = std::min(oldest, keys[slot].born);
        }
    }
    return oldest;
}

void KeyIndex::erase(Position at) {
    Chunk& chunk = m_chunks[at.chunk];
    chunk.keys.erase(chunk.keys.begin() + static_cast<std::ptrdiff_t>(at.slot));
    if (chunk.keys.empty()) {
        m_chunks.erase(m_chunks.begin() + static_cast<std::ptrdiff_t>(at.chunk));
        summarizeBlocks(at.chunk);
    } else {
        chunk.summarize();
        noteChange(at.chunk);
    }
}

bool KeyIndex::Chunk::eraseDeserted(unsigned long long from, unsigned long long to, unsigned long long end) {
    auto const behind = std::remove_if(keys.begin(), keys.end(), [&](Key const& key) {
        bool const isDeserted = key.records == nullptr && end <= key.address && from <= key.address && key.address < to;
        end = std::max(end, key.greatestEnd);
        return isDeserted;
    });
    bool const isAny = behind != keys.end();
    keys.erase(behind, keys.end());
    if (isAny && !keys.empty()) {
        summarize();
    }
    return isAny;
}

/// Passes over blocks and chunks at each key of which something is alive.
void KeyIndex::eraseDeserted(unsigned long long from, unsigned long long to) {
    unsigned long long end = 0; // of all that starts in front
    bool hasEmptied = false;
    for (std::size_t block = 0; block < m_blocks.size() && m_chunks[block * k_blockSize].firstAddress < to; ++block) {
        if (m_chunks[behindBlock(block) - 1].keys.back().address >= from && coverOf(block).isBareBehind(end)) {
            hasEmptied |= eraseFromBlock(block, from, to, end);
        }
        end = std::max(end, m_blocks[block].greatestEnd);
    }
    if (hasEmptied) {
        auto const isEmpty = [](Chunk const& chunk) { return chunk.keys.empty(); };
        m_chunks.erase(std::remove_if(m_chunks.begin(), m_chunks.end(), isEmpty), m_chunks.end());
        summarizeBlocks(0);
    }
}

/// True if it leaves chunks without keys behind.
bool KeyIndex::eraseFromBlock(std::size_t block, unsigned long long from, unsigned long long to,
                              unsigned long long end) {
    bool hasEmptied = false;
    for (std::size_t i = block * k_blockSize; i < behindBlock(block) && m_chunks[i].firstAddress < to; ++i) {
        Chunk& chunk = m_chunks[i];
        if (chunk.ownCover().isBareBehind(end) && chunk.eraseDeserted(from, to, end)) {
            noteChange(i);
            hasEmptied |= chunk.keys.empty();
        }
        end = std::max(end, chunk.greatestEnd);
    }
    return hasEmptied;
}

void KeyIndex::setRecords(Position at, RangeRecord* head) {
    Chunk& chunk = m_chunks[at.chunk];
    Key& changed = chunk.keys[at.slot];
    unsigned long long const before = changed.greatestEnd;
    // The list is sorted by end, the greatest first.
    unsigned long long const end = head != nullptr ? head->end.load(std::memory_order_relaxed) : 0;
    changed.records = head;
    changed.greatestEnd = end;
    if (end < before) {
        chunk.summarize();
        summarizeBlock(at.chunk / k_blockSize);
        return;
    }
    // The bounds ascend, so each of these stops at the first that has heard of a greater end.
    for (std::size_t slot = at.slot + 1; slot < chunk.keys.size() && chunk.keys[slot].endBefore < end; ++slot) {
        chunk.keys[slot].endBefore = end;
    }
    chunk.greatestEnd = std::max(chunk.greatestEnd, end);
    for (std::size_t i = at.chunk + 1; i < m_chunks.size() && m_chunks[i].endBefore < end; ++i) {
        m_chunks[i].endBefore = end;
    }
    noteChange(at.chunk);
}

void KeyIndex::Cover::append(Cover const& next) {
    if (next.isBareBehind(greatestEnd)) {
        lastBare = next.lastBare;
    }
    greatestEnd = std::max(greatestEnd, next.greatestEnd);
}

void KeyIndex::Chunk::summarize() {
    cover.reset();
    firstAddress = keys.front().address;
    greatestEnd = 0;
    oldest = ~std::uint32_t{0};
    for (Key& key : keys) {
        oldest = std::min(oldest, key.born);
        key.endBefore = greatestEnd;
        greatestEnd = std::max(greatestEnd, key.greatestEnd);
    }
}

KeyIndex::Cover const& KeyIndex::Chunk::ownCover() {
    if (!cover) {
        cover = Cover{};
        for (Key const& key : keys) {
            cover->append({key.greatestEnd, key.records == nullptr ? std::optional(key.address) : std::nullopt});
        }
    }
    return *cover;
}

KeyIndex::Cover const& KeyIndex::coverOf(std::size_t block) {
    std::optional<Cover>& cover = m_blocks[block].cover;
    if (!cover) {
        cover = Cover{};
        for (std::size_t chunk = block * k_blockSize; chunk < behindBlock(block); ++chunk) {
            cover->append(m_chunks[chunk].ownCover());
        }
    }
    return *cover;
}

/// A key has come, changed or gone, and no end is lower than before.
void KeyIndex::noteChange(std::size_t chunk) {
    Block& block = m_blocks[chunk / k_blockSize];
    block.greatestEnd = std::max(block.greatestEnd, m_chunks[chunk].greatestEnd);
    block.cover.reset();
    m_chunks[chunk].cover.reset();
}

void KeyIndex::summarizeBlock(std::size_t block) {
    m_blocks[block] = {};
    for (std::size_t chunk = block * k_blockSize; chunk < behindBlock(block); ++chunk) {
        m_blocks[block].greatestEnd = std::max(m_blocks[block].greatestEnd, m_chunks[chunk].greatestEnd);
    }
}

void KeyIndex::summarizeBlocks(std::size_t fromChunk) {
    m_blocks.resize((m_chunks.size() + k_blockSize - 1) / k_blockSize);
    for (std::size_t block = fromChunk / k_blockSize; block < m_blocks.size(); ++block) {
        summarizeBlock(block);
    }
}

} // namespace ORV_3_30
