// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
// The rule of symbols that go by name and range alone, and the comparison of names: in chunks, the first of which is
// free (FNV-1a for the numbers).
#include "symbols/orv_merge.h"

#include "symbols/orv_scope_maker.h"

#include <cstring>

namespace ORV_3_30 {
namespace {

constexpr std::size_t k_usualName = 4096;

std::uint64_t mix(std::uint64_t hash, unsigned char const* bytes, std::size_t size) {
    for (std::size_t i = 0; i < size; ++i) {
        hash = (hash ^ bytes[i]) * 0x100000001B3ULL;
    }
    return hash;
}

std::uint64_t mixNumber(std::uint64_t hash, std::uint64_t number) {
    return mix(hash, reinterpret_cast<unsigned char const*>(&number), sizeof(number));
}

} // namespace

bool NameBudget::isUsual(char const* name) { return ::strnlen(name, k_usualName) < k_usualName; }

bool NameBudget::areSame(char const* a, char const* b) {
    for (std::size_t done = 0; a != b; done += k_usualName) {
        if ((done != 0 && !m_budget.settle(k_usualName)) || std::strncmp(a + done, b + done, k_usualName) != 0) {
            return false;
        }
        if (::strnlen(a + done, k_usualName) < k_usualName) {
            return true;
        }
    }
    return true;
}

std::uint64_t NameBudget::hashOf(char const* name) {
    std::uint64_t hash = 0xCBF29CE484222325ULL;
    for (char const* at = name;; at += k_usualName) {
        std::size_t const size = ::strnlen(at, k_usualName);
        hash = mix(hash, reinterpret_cast<unsigned char const*>(at), size);
        if (size < k_usualName) {
            return hash;
        }
        if (!m_budget.settle(k_usualName)) {
            return mixNumber(hash, reinterpret_cast<std::uintptr_t>(name));
        }
    }
}

IScopeMaker& PlainScopeMaker::ofClients() {
    static auto& maker = *new PlainScopeMaker; // never destroyed, as a client may go on until the very end
    return maker;
}

/// The same name and the same end make the same thing. A label at the start of something of its name is that thing,
/// wherever it ends.
unsigned int PlainScopeMaker::mergeRule(MergeSide const& mine, MergeSide const& other, MergeNext const& /*next*/) {
    bool const endsMatter = mine.isPoint() || !other.isPoint();
    if (endsMatter && mine.lastEnd != other.lastEnd) {
        return merge_Different;
    }
    return areSameNames(mine.name, other.name) ? merge_Same : merge_Different;
}

bool PlainScopeMaker::areSameNames(char const* a, char const* b) { return a == b || std::strcmp(a, b) == 0; }

void PlainScopeMaker::matchKeys(MergeSide const& side, MatchRole role, MatchKeys& out) {
    std::uint64_t const name = hashOfName(side.name);
    out.add(mixNumber(name, side.lastEnd));
    bool const isLabelForAny = role == MatchRole::Newcomer && side.isPoint();
    bool const isForLabels = role == MatchRole::Rival && !side.isPoint();
    if (isLabelForAny || isForLabels) {
        out.add(name);
    }
}

std::uint64_t PlainScopeMaker::hashOfName(char const* name) { return NameBudget().hashOf(name); }

} // namespace ORV_3_30
