// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
// A pool of striped locks, for counts alone: an object's place says which is its.
#include "core/orv_shared_lock.h"

#include <array>
#include <cstdint>

namespace ORV_3_30 {

ILock* sharedLock(void const* object) {
    static auto& locks = *new std::array<OrvLock, 32>;
    return &locks[(reinterpret_cast<std::uintptr_t>(object) >> 5) % locks.size()];
}

} // namespace ORV_3_30
