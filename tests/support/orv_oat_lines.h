// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// The lines of one method as a reader must find them: its mapping table and its debug program, put together.
#pragma once

#include "support/orv_oat_model.h"

#include <functional>

namespace orv_test {

/// The bytes of OAT data from one place on; what is not there is not read.
class OatBytes {
public:
    OatBytes(std::string const& data, std::uint64_t offset) : m_data(data), m_offset(offset) {}
    std::uint64_t left() const { return m_offset < m_data.size() ? m_data.size() - m_offset : 0; }
    std::optional<std::uint8_t> byte();
    std::optional<std::uint32_t> uleb();
    std::optional<std::uint32_t> sleb();

private:
    std::string const& m_data;
    std::uint64_t m_offset;
};

/// A pair of a mapping table; native counts from the start of the OAT data.
struct OatMapElement {
    std::uint32_t dex;
    std::uint32_t native;
};
using OatMap = std::vector<OatMapElement>;

OatMap mapOf(OatMapping const& mapping, std::uint32_t codeOffset);
OatMap readMap(std::string const& data, std::uint32_t offset, std::uint32_t codeOffset, bool hasUnsignedDex);

/// A debug program with what matters of it: pcs, lines and file names.
struct OatProgram {
    struct Step {
        std::uint8_t code;
        std::uint32_t operand = 0;
        std::optional<std::string> file{}; ///< Nothing where the string cannot be read.
    };
    bool hasHead = true; ///< Else not even the first line and the parameters could be read.
    std::uint32_t line = 0;
    std::vector<Step> steps{};
    std::uint32_t status = oatOk; ///< After the last step.
};
using OatStrings = std::function<std::optional<std::string>(std::uint32_t index)>;

OatProgram programOf(DexDebug const& debug, OatStrings const& strings);
OatProgram readProgram(OatBytes bytes, OatStrings const& strings);

struct OatCode {
    std::uint64_t address;
    std::uint64_t size;
    OatMap map;
    std::uint32_t codeStart; ///< As the header has it.
    std::uint64_t execAddress;
};

/// Adds the rows of a method, and tells the program's status.
std::uint32_t addRows(OatCode const& code, OatProgram const& program, std::string const& source,
                      std::vector<OatLineRow>& rows);

} // namespace orv_test
