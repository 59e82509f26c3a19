// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
// Runs debug programs over mapping tables, one step after the other (Dalvik executable format, "debug_info_item").
#include "support/orv_oat_lines.h"

#include "support/orv_dex_writer.h"

#include <algorithm>
#include <set>

namespace orv_test {
namespace {
constexpr std::uint32_t k_none = 0xFFFFFFFF;

/// What becomes of the program's lines.
class LineState {
public:
    LineState(OatCode const& code, std::vector<OatLineRow>& rows) : m_code(code), m_map(code.map), m_rows(rows) {
        std::stable_sort(m_map.begin(), m_map.end(), [](auto const& a, auto const& b) { return a.dex < b.dex; });
    }

    void setFile(std::string const& file) { m_file = file; }

    void take(std::uint32_t pc, std::uint32_t line) {
        m_firstLine = m_firstLine == k_none ? line : m_firstLine;
        for (; m_current < m_map.size() && m_map[m_current].dex <= pc; ++m_current) {
            OatMapElement const& element = m_map[m_current];
            if (element.dex == pc) {
                addMapped(element.native, line);
                m_lastLine = line;
            } else if (m_lastLine != k_none) {
                addMapped(element.native, m_lastLine);
            }
        }
        m_lastLine = line;
    }

    /// The rest of the method is of its first line.
    void fillGaps() {
        if (!m_file || m_firstLine == k_none) {
            return;
        }
        m_addresses.insert(m_code.address + m_code.size);
        std::uint64_t from = m_code.address;
        for (std::uint64_t const address : m_addresses) {
            if (from < address) {
                m_rows.push_back({*m_file, m_firstLine, from, address - from});
            }
            from = address + 1;
        }
    }

private:
    void addMapped(std::uint32_t native, std::uint32_t line) {
        std::uint64_t const address = native - std::uint64_t(m_code.codeStart) + m_code.execAddress;
        m_rows.push_back({*m_file, line, address, 1});
        m_addresses.insert(address);
    }

    OatCode const& m_code;
    OatMap m_map;
    std::vector<OatLineRow>& m_rows;
    std::size_t m_current = 0;
    std::uint32_t m_firstLine = k_none;
    std::uint32_t m_lastLine = k_none;
    std::optional<std::string> m_file{};
    std::set<std::uint64_t> m_addresses{};
};
} // namespace

std::optional<std::uint8_t> OatBytes::byte() {
    return left() == 0 ? std::nullopt : std::optional<std::uint8_t>(m_data[m_offset++]);
}

std::optional<std::uint32_t> OatBytes::uleb() {
    std::uint64_t value = 0;
    for (unsigned int shift = 0;; shift += 7) {
        auto const one = byte();
        if (!one) {
            return std::nullopt;
        }
        value |= shift < 64 ? std::uint64_t(*one & 0x7F) << shift : 0;
        if ((*one & 0x80) == 0) {
            return static_cast<std::uint32_t>(value);
        }
    }
}

std::optional<std::uint32_t> OatBytes::sleb() {
    std::uint64_t value = 0;
    for (unsigned int shift = 0;;) {
        auto const one = byte();
        if (!one) {
            return std::nullopt;
        }
        value |= shift < 64 ? std::uint64_t(*one & 0x7F) << shift : 0;
        shift += 7;
        if ((*one & 0x80) == 0) {
            bool const isNegative = (*one & 0x40) != 0 && shift < 64;
            return static_cast<std::uint32_t>(isNegative ? value | ~std::uint64_t(0) << shift : value);
        }
    }
}

OatMap mapOf(OatMapping const& mapping, std::uint32_t codeOffset) {
    OatMap map;
    for (std::vector<OatPair> const* pairs : {&mapping.toDex, &mapping.fromDex}) {
        for (OatPair const& pair : *pairs) {
            map.push_back({pair.dex, codeOffset + pair.native});
        }
    }
    return map;
}

OatMap readMap(std::string const& data, std::uint32_t offset, std::uint32_t codeOffset, bool hasUnsignedDex) {
    OatBytes bytes(data, offset);
    OatMap map;
    std::optional<std::uint32_t> const total = bytes.uleb();
    std::optional<std::uint32_t> const toDexSize = bytes.uleb();
    if (offset == 0 || !toDexSize || *toDexSize > *total) {
        return map;
    }
    std::uint32_t dex = 0;
    std::uint32_t native = codeOffset;
    for (std::uint32_t i = 0; i < *total; ++i) {
        native = i == *toDexSize ? codeOffset : native;
        auto const nativeDelta = bytes.uleb();
        auto const dexDelta = hasUnsignedDex ? bytes.uleb() : bytes.sleb();
        if (!nativeDelta || !dexDelta) {
            return map;
        }
        native += *nativeDelta;
        dex += *dexDelta;
        map.push_back({dex, native});
    }
    return map;
}

OatProgram programOf(DexDebug const& debug, OatStrings const& strings) {
    OatProgram program;
    program.line = debug.line;
    for (DexDebugOp const& op : debug.program) {
        OatProgram::Step step{op.code, op.operands.empty() ? 0 : static_cast<std::uint32_t>(op.operands[0])};
        if (op.file) {
            std::u16string const units = utf16(*op.file);
            step.operand = 1;
            step.file = units.empty() ? std::nullopt : std::optional(mutf8(units).substr(0, units.size()));
        } else if (op.code == 9 && step.operand != 0) {
            step.file = strings(step.operand - 1);
        }
        program.steps.push_back(step);
        if (op.code == 0) {
            break;
        }
    }
    return program;
}

OatProgram readProgram(OatBytes bytes, OatStrings const& strings) {
    constexpr unsigned int k_operands[] = {0, 1, 1, 3, 4, 1, 1, 0, 0, 1};
    OatProgram program;
    auto const line = bytes.uleb();
    auto const parameters = bytes.uleb();
    program.hasHead = line && parameters;
    for (std::uint32_t i = 0; program.hasHead && i < *parameters; ++i) {
        program.hasHead = bytes.uleb().has_value();
    }
    program.status = program.hasHead ? oatOk : oatIncorrectFile;
    program.line = line.value_or(0);
    while (program.hasHead && bytes.left() >= 2) {
        OatProgram::Step step{*bytes.byte()};
        for (unsigned int i = 0; step.code < 10 && i < k_operands[step.code]; ++i) {
            auto const operand = step.code == 2 ? bytes.sleb() : bytes.uleb();
            if (!operand) {
                program.status = oatIncorrectFile;
                return program;
            }
            step.operand = i == 0 ? *operand : step.operand;
        }
        if (step.code == 9 && step.operand != 0) {
            step.file = strings(step.operand - 1);
        }
        program.steps.push_back(step);
        if (step.code == 0) {
            break;
        }
    }
    return program;
}

std::uint32_t addRows(OatCode const& code, OatProgram const& program, std::string const& source,
                      std::vector<OatLineRow>& rows) {
    LineState state(code, rows);
    if (!program.hasHead) {
        return program.status;
    }
    state.setFile(source);
    std::uint32_t status = program.status;
    std::uint32_t pc = 0;
    std::uint32_t line = program.line;
    for (OatProgram::Step const& step : program.steps) {
        if (step.code >= 10) {
            pc += (step.code - 10) / 15;
            line += static_cast<std::uint32_t>((step.code - 10) % 15 - 4);
            state.take(pc, line);
        } else if (step.code == 1) {
            pc += step.operand;
        } else if (step.code == 2) {
            line += step.operand;
        } else if (step.code == 9 && step.operand == 0) {
            status = oatFalse;
            break;
        } else if (step.code == 9 && step.file) {
            state.setFile(*step.file);
        }
    }
    state.fillGaps();
    return status;
}

} // namespace orv_test
