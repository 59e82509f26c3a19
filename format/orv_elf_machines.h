// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// What sets the processors of ELF files apart for who reads symbols of them (processor supplements of the System V
/// ABI).
#pragma once

#include "orv/orv_moduleimage.h"
#include "orv/orv_reading.h"

#include <elf.h>

namespace ORV_3_30 {

/// arch_Unknown for a machine that is not read, or not under this reading.
arch_t architectureOf(Elf64_Ehdr const& header, bool is64, reading_t reading);

/// Bytes of the procedure linkage table in front of the first stub.
unsigned int sizeOfPltHead(arch_t arch);

/// True for a local symbol without a type that tells of no place that anybody named: what kind of bytes begin there, or
/// a label of an assembler that leaves distances to the linker.
bool isMappingSymbol(arch_t arch, Elf64_Sym const& symbol, char const* name);

} // namespace ORV_3_30
