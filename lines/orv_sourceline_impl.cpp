// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
// Source files, locations and lines, as clients hold them.
#include "lines/orv_sourceline_impl.h"

#include "core/orv_address.h"
#include "orv/orv_fileformatloader.h"

namespace ORV_3_30 {

SourceFile::~SourceFile() = default;

bool SourceFile::sourceLines(SymMgrObjectPtr<IIterator<SymMgrObjectPtr<ISourceLine>>>& out, unsigned long long unit,
                             IAddress* start, IAddress* end) {
    unsigned long long const from = start != nullptr ? start->pseudoAddr() : 0;
    unsigned long long const to = end != nullptr ? end->pseudoAddr() : ~0ULL;
    m_resolver->sourceLines(out, unit, m_id, from, to, nullptr);
    return !out;
}

void SourceLine::address(SymMgrObjectPtr<IAddress>& out) { out = new Address(m_loader, m_start); }

unsigned long long SourceLine::relativeAddress() { return m_start - m_loader->preferredLoadAddress(); }

} // namespace ORV_3_30
