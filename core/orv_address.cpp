// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
// An address asked of its loader: segment by search, RVA and file offset by subtraction.
#include "core/orv_address.h"

#include "orv/orv_fileformatloader.h"

namespace ORV_3_30 {
namespace {
constexpr unsigned long long k_none = ~0ULL;
}

unsigned long long Address::rva() { return m_value - m_loader->preferredLoadAddress(); }

ISegment* Address::segment() { return m_loader->segmentByAddress(m_value); }

unsigned long long Address::segmentOffset() {
    ISegment* const holder = segment();
    return holder != nullptr ? rva() - holder->rva() : k_none;
}

unsigned long long Address::fileOffset() {
    if (m_fileOffset != k_none) {
        return m_fileOffset;
    }
    unsigned long long offset = 0;
    unsigned long long limit = 0;
    if (ISegment* const holder = segment()) {
        offset = rva() - holder->rva() + holder->fileOffset();
        limit = holder->fileOffset() + holder->fileSize();
    } else if (ISection* const section = m_loader->sectionByAddress(m_value)) {
        offset = rva() - section->address() + section->fileOffset();
        limit = section->fileOffset() + section->size();
    } else {
        return k_none;
    }
    // The limit itself is accepted: the end of a segment has a place in the file.
    if (offset <= limit) {
        m_fileOffset = offset;
    }
    return m_fileOffset;
}

} // namespace ORV_3_30
