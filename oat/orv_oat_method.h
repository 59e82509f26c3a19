// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// Compiled classes and methods of an OAT file: where native code lies, and what of it came of which instruction.
///
///     std::optional<OatMethod> method = oatMethodByIndex(oatClass, methodIndex, version);
///     if (method && method->codeOffset() != 0) { OatMappings map; readMappingTable(*method, data, version, map); }
///
/// Offsets count from the start of the OAT data; that of ARM's Thumb code is odd. Plain values over bytes of others,
/// which must stay.
#pragma once

#include "core/orv_cursor.h"
#include "orv/orv_status.h"

#include <cstdint>
#include <optional>
#include <vector>

namespace ORV_3_30 {

/// What became of the methods of a class.
enum oat_class_type_t : std::uint16_t {
    oat_class_AllCompiled = 0,
    oat_class_SomeCompiled = 1,
    oat_class_NoneCompiled = 2
};

struct OatClass {
    ByteCursor data;   ///< All of the OAT file.
    ByteCursor bitmap; ///< Which methods were compiled. Without a size but for some compiled.
    std::uint16_t type;
    std::uint64_t methods; ///< Where the entries begin. 0 for none compiled.
    std::uint32_t executableOffset;
};

/// The class that is described at an offset. False if the data end first.
bool readOatClass(ByteCursor data, std::uint32_t offset, std::uint32_t executableOffset, OatClass& out);

/// A method that is empty, with a code offset of 0, was not compiled.
class OatMethod {
public:
    static constexpr unsigned long long k_unknownSize = ~0ULL;

    OatMethod() = default;
    /// From its entry. mappingTableOffset: below version 22, from where on it stands in front of the code.
    OatMethod(ByteCursor data, std::uint32_t codeOffset, std::uint32_t mappingTableOffset, int version);

    std::uint32_t codeOffset() const { return m_codeOffset; }
    /// In bytes; k_unknownSize if the code lies behind the data.
    unsigned long long codeSize() const { return m_codeSize; }
    std::uint32_t mappingTableOffset() const { return m_mappingTableOffset; }

private:
    std::uint32_t m_codeOffset = 0;
    std::uint32_t m_mappingTableOffset = 0;
    unsigned long long m_codeSize = k_unknownSize;
};

/// methodIndex counts the methods of a class in the order of the DEX file. Nothing for an index behind the data.
std::optional<OatMethod> oatMethodByIndex(OatClass const& oatClass, std::uint32_t methodIndex, int version);

/// One instruction of native code, and the DEX instruction that it belongs to.
struct OatMapping {
    std::uint32_t dexPc;
    std::uint32_t nativeOffset;
};
/// By dexPc, equal ones as they came.
using OatMappings = std::vector<OatMapping>;

/// What stands in front of a mapping table. status_False for a method without one.
struct OatMappingHead {
    ByteCursor pairs;
    std::uint32_t totalSize;  ///< Pairs of both tables.
    std::uint32_t pc2DexSize; ///< Those of the first; the second has the rest.

    /// No more than so many can be read.
    std::uint64_t mostPairs() const;
};
status_t readMappingHead(OatMethod const& method, ByteCursor data, OatMappingHead& out);
/// Adds the pairs of both tables, as far as the data reach: status_Ok, or status_BadFileFormat with what was read.
status_t readMappings(OatMethod const& method, OatMappingHead const& head, int version, OatMappings& out);

} // namespace ORV_3_30
