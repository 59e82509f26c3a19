// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// Where a lack of memory becomes a status.
#pragma once

#include "core/orv_trace.h"
#include "orv/orv_status.h"

#include <new>
#include <stdexcept>

namespace ORV_3_30 {

/// No exception of the library's reaches a client.
template <typename Query> status_t guarded(Query query) {
    try {
        return query();
    } catch (std::bad_alloc const&) {
        ORV_ERROR("Out of memory");
    } catch (std::length_error const&) { // more than any memory holds
        ORV_ERROR("Out of memory");
    }
    return status_OutOfMemory;
}

} // namespace ORV_3_30
