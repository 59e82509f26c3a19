// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
// The index of a crowded key: a hash table from match keys to records, each bucket in list order.
#include "symbols/orv_key_group.h"

#include <algorithm>

namespace ORV_3_30 {

void KeyGroup::enter(RangeRecord* record, MergeSide const& side, IScopeMaker& maker) {
    if (std::find(m_makers.begin(), m_makers.end(), &maker) == m_makers.end()) {
        m_makers.push_back(&maker);
    }
    MatchKeys keys;
    if (side.name != nullptr) {
        maker.matchKeys(side, MatchRole::Rival, keys);
    }
    m_all.insert(record);
    m_keysOf[record] = keys;
    if (!record->isSymbol()) {
        m_ofScope[record->scope] = record;
    }
    for (std::uint64_t const key : keys) {
        m_byKey[key].insert(record);
    }
}

void KeyGroup::leave(RangeRecord* record) {
    auto const known = m_keysOf.find(record);
    if (known == m_keysOf.end()) {
        return;
    }
    for (std::uint64_t const key : known->second) {
        auto const alike = m_byKey.find(key);
        if (alike != m_byKey.end()) {
            alike->second.erase(record);
            if (alike->second.empty()) {
                m_byKey.erase(alike);
            }
        }
    }
    m_keysOf.erase(known);
    m_ofScope.erase(record->scope);
    m_all.erase(record);
}

RangeRecord* KeyGroup::previous(RangeRecord* record) const {
    auto const at = m_all.lower_bound(record);
    return at != m_all.begin() ? *std::prev(at) : nullptr;
}

} // namespace ORV_3_30
