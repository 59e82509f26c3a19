// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// Whether the ranges of a symbol cover given stretches of a module.
#pragma once

#include "orv/orv_symbolrange.h"

namespace ORV_3_30 {

/// True if the symbol of a range counts as covering all stretches (RVA and size), by its own ranges
/// or, where thunks are accepted and the range is no inlined body, by these and its thunks.
/// stopAtInline: an inlined body covers nothing.
bool coversRanges(ISymbolRange& range, IRanges const& stretches, bool stopAtInline, bool acceptThunks);

} // namespace ORV_3_30
