// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// Locks for objects that are too many, or too seldom shared, for one of their own.
#pragma once

#include "orv/orv_object.h"

namespace ORV_3_30 {

/// The same one for an object each time; others may have it too. Never destroyed: a client may drop its last object at
/// exit. Nothing that takes another shared lock may be done under it.
ILock* sharedLock(void const* object);

} // namespace ORV_3_30
