/// How a symbol of debug information takes in others that start where it does.
#pragma once

#include "symbols/orv_merge.h"

namespace ORV_3_30 {

unsigned int dwarfMergeRule(MergeSide const& mine, MergeSide const& other, MergeNext const& next);

/// True if two mangled names differ in nothing but the variant of a constructor or destructor, and in
/// what a compiler puts behind the names of a function's parts and clones: their short names are the same.
/// False says nothing.
bool areVariantsOfOneName(char const* a, char const* b);

} // namespace ORV_3_30
