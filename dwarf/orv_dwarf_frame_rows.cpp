// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
// Call frame instructions (DWARF version 5, 6.4.2), as far as they change where the frame is.
#include "dwarf/orv_dwarf_frame_rows.h"

#include "dwarf/orv_dwarf_frame_constants.h"

#include <array>

namespace ORV_3_30 {
namespace {

/// Compilers remember one rule at a time.
constexpr std::size_t k_mostRemembered = 64;
constexpr unsigned int k_inItself = 0xC0; ///< The bits of an instruction that has an operand in its others.
constexpr unsigned int k_operand = 0x3F;

class FrameMachine {
public:
    FrameMachine(FrameSection const& section, FrameCommon const& common, FrameFunction const& function,
                 std::uint64_t pc)
        : m_section(section), m_common(common), m_at(function.start), m_pc(pc) {}

    /// False for damage.
    bool run(std::uint64_t from, std::uint64_t end) {
        m_walker = DwarfWalker(m_section.bytes.data, m_section.bytes.size, m_common.addrSize);
        m_walker.limit(end);
        m_walker.seek(from);
        unsigned char instruction = 0;
        while (!m_isPast && m_walker.getUnsigned1(instruction) == status_Ok) {
            if (!step(instruction)) {
                return false;
            }
        }
        return true;
    }
    FrameRule const& rule() const { return m_rule; }

private:
    bool step(unsigned int instruction) {
        switch (instruction & k_inItself) {
        case DW_CFA_advance_loc: return advance(instruction & k_operand);
        case DW_CFA_offset: m_walker.skipLeb(); return true;
        case DW_CFA_restore: return true;
        default: break;
        }
        std::uint64_t operand = 0;
        switch (instruction) {
        case DW_CFA_set_loc: return readFramePointer(m_section, m_common, m_walker, operand) && moveTo(operand);
        case DW_CFA_advance_loc1: return m_walker.getUnsigned1(operand) == status_Ok && advance(operand);
        case DW_CFA_advance_loc2: return m_walker.getUnsigned2(operand) == status_Ok && advance(operand);
        case DW_CFA_advance_loc4: return m_walker.getUnsigned4(operand) == status_Ok && advance(operand);
        case DW_CFA_MIPS_advance_loc8: return m_walker.getUnsigned8(operand) == status_Ok && advance(operand);
        case DW_CFA_remember_state:
            if (m_count == k_mostRemembered) {
                return false;
            }
            m_remembered[m_count++] = m_rule;
            return true;
        case DW_CFA_restore_state:
            if (m_count == 0) {
                return false;
            }
            m_rule = m_remembered[--m_count];
            return true;
        default: return define(instruction);
        }
    }

    /// What says where the frame is.
    bool define(unsigned int instruction) {
        switch (instruction) {
        case DW_CFA_def_cfa:
        case DW_CFA_def_cfa_sf:
            m_rule = {FrameRule::kind_Register, m_walker.unsignedLeb(), 0, {}};
            m_rule.offset = instruction == DW_CFA_def_cfa ? plainOffset() : factoredOffset();
            return true;
        case DW_CFA_def_cfa_register:
            m_rule.registerNumber = m_walker.unsignedLeb();
            return m_rule.kind == FrameRule::kind_Register;
        case DW_CFA_def_cfa_offset: m_rule.offset = plainOffset(); return m_rule.kind == FrameRule::kind_Register;
        case DW_CFA_def_cfa_offset_sf: m_rule.offset = factoredOffset(); return m_rule.kind == FrameRule::kind_Register;
        case DW_CFA_def_cfa_expression:
            m_rule = {FrameRule::kind_Expression, 0, 0, {}};
            return block(m_rule.expression);
        default: return passOver(instruction);
        }
    }

    /// What says where other registers are.
    bool passOver(unsigned int instruction) {
        DwarfBytes ignored;
        switch (instruction) {
        case DW_CFA_nop:
        case DW_CFA_GNU_window_save:
        case DW_CFA_AARCH64_negate_ra_state_with_pc: return true;
        case DW_CFA_restore_extended:
        case DW_CFA_undefined:
        case DW_CFA_same_value:
        case DW_CFA_GNU_args_size: m_walker.skipLeb(); return true;
        case DW_CFA_offset_extended:
        case DW_CFA_register:
        case DW_CFA_offset_extended_sf:
        case DW_CFA_val_offset:
        case DW_CFA_val_offset_sf:
        case DW_CFA_GNU_negative_offset_extended:
            m_walker.skipLeb();
            m_walker.skipLeb();
            return true;
        case DW_CFA_expression:
        case DW_CFA_val_expression: m_walker.skipLeb(); return block(ignored);
        default: return false;
        }
    }

    bool advance(std::uint64_t count) { return moveTo(m_at + count * m_common.codeFactor); }
    /// Rows only go up.
    bool moveTo(std::uint64_t address) {
        if (address < m_at) {
            return false;
        }
        m_at = address;
        m_isPast = m_pc < address;
        return true;
    }
    std::int64_t plainOffset() { return static_cast<std::int64_t>(m_walker.unsignedLeb()); }
    std::int64_t factoredOffset() {
        auto const count = static_cast<std::uint64_t>(m_walker.signedLeb());
        return static_cast<std::int64_t>(count * static_cast<std::uint64_t>(m_common.dataFactor));
    }
    bool block(DwarfBytes& out) {
        std::uint64_t const length = m_walker.unsignedLeb();
        out = {m_walker.current(), length};
        bool const isWhole = length <= m_walker.remaining();
        m_walker.skip(length);
        return isWhole;
    }

    FrameSection const& m_section;
    FrameCommon const& m_common;
    DwarfWalker m_walker;
    std::uint64_t m_at;
    std::uint64_t m_pc;
    bool m_isPast = false; ///< The row that comes next begins behind pc.
    FrameRule m_rule{};
    std::array<FrameRule, k_mostRemembered> m_remembered{};
    std::size_t m_count = 0;
};

} // namespace

bool runFramePrograms(FrameSection const& section, FrameCommon const& common, FrameFunction const& function,
                      std::uint64_t pc, FrameRule& out) {
    FrameMachine machine(section, common, function, pc);
    if (!machine.run(common.program, common.end) || !machine.run(function.program, function.programEnd)) {
        return false;
    }
    out = machine.rule();
    return out.kind != FrameRule::kind_None;
}

} // namespace ORV_3_30
