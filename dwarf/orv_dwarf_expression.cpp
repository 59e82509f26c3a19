// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
// A stack machine without jumps and memory (DWARF version 5, 2.5.1): one pass over the bytes.
#include "dwarf/orv_dwarf_expression.h"

#include "dwarf/orv_dwarf_constants.h"

#include <array>
#include <utility>

namespace ORV_3_30 {
namespace {

/// Compilers' expressions hold two or three values at a time.
constexpr std::size_t k_deepestStack = 32;
constexpr unsigned int k_numbered = 32; ///< Operations that have a number in themselves.

class ExpressionMachine {
public:
    ExpressionMachine(DwarfBytes const& bytes, FormContext const& forms, ExpressionOf use, IExpressionFrame& frame)
        : m_walker(bytes.data, bytes.size, forms.addrSize), m_forms(forms), m_use(use), m_frame(frame) {}

    bool run(std::uint64_t& out) {
        unsigned char operation = 0;
        while (m_walker.getUnsigned1(operation) == status_Ok) {
            if (!step(operation)) {
                return false;
            }
        }
        if (m_count == 0) {
            return false;
        }
        out = top();
        return true;
    }

private:
    /// Those with a number in themselves, of which there are 32 each.
    bool step(unsigned char operation) {
        auto const isOneOf = [&](unsigned int first) { return operation >= first && operation < first + k_numbered; };
        if (isOneOf(DW_OP_lit0)) {
            return push(operation - static_cast<unsigned int>(DW_OP_lit0));
        }
        if (isOneOf(DW_OP_reg0)) {
            return content(operation - static_cast<unsigned int>(DW_OP_reg0));
        }
        if (isOneOf(DW_OP_breg0)) {
            return relative(operation - static_cast<unsigned int>(DW_OP_breg0));
        }
        return pushOperation(operation);
    }

    bool pushOperation(unsigned char operation) {
        std::uint64_t value = 0;
        switch (operation) {
        case DW_OP_addr: return address();
        case DW_OP_addrx:
        case DW_OP_GNU_addr_index:
            return unsignedOperand(value) && m_forms.tables != nullptr && push(m_forms.addressAt(value));
        case DW_OP_const1u: return fixed<std::uint8_t>();
        case DW_OP_const1s: return fixed<std::int8_t>();
        case DW_OP_const2u: return fixed<std::uint16_t>();
        case DW_OP_const2s: return fixed<std::int16_t>();
        case DW_OP_const4u: return fixed<std::uint32_t>();
        case DW_OP_const4s: return fixed<std::int32_t>();
        case DW_OP_const8u:
        case DW_OP_const8s: return fixed<std::uint64_t>();
        case DW_OP_constu: return unsignedOperand(value) && push(value);
        case DW_OP_consts: return signedOperand(value) && push(value);
        case DW_OP_regx: return unsignedOperand(value) && content(value);
        case DW_OP_bregx: return unsignedOperand(value) && relative(value);
        case DW_OP_fbreg: return frameOffset();
        case DW_OP_call_frame_cfa: return m_frame.callFrame(value) && push(value);
        case DW_OP_dup: return m_count >= 1 && push(top());
        case DW_OP_over: return m_count >= 2 && push(m_stack[m_count - 2]);
        default: return changeTop(operation);
        }
    }

    /// What leaves the stack as high as it was, or lower.
    bool changeTop(unsigned char operation) {
        std::uint64_t value = 0;
        if (operation == DW_OP_nop) {
            return true;
        }
        if (m_count == 0) {
            return false;
        }
        switch (operation) {
        case DW_OP_drop: --m_count; return true;
        case DW_OP_neg: top() = 0 - top(); return true;
        case DW_OP_not: top() = ~top(); return true;
        case DW_OP_plus_uconst:
            if (!unsignedOperand(value)) {
                return false;
            }
            top() += value;
            return true;
        // One piece that is the whole.
        case DW_OP_piece: return unsignedOperand(value) && m_walker.atEnd();
        default: return combine(operation);
        }
    }

    bool combine(unsigned char operation) {
        constexpr std::uint64_t k_bits = 64;
        if (m_count < 2) {
            return false;
        }
        if (operation == DW_OP_swap) {
            std::swap(m_stack[m_count - 1], m_stack[m_count - 2]);
            return true;
        }
        std::uint64_t const second = m_stack[--m_count];
        std::uint64_t& first = top();
        switch (operation) {
        case DW_OP_and: first &= second; return true;
        case DW_OP_or: first |= second; return true;
        case DW_OP_xor: first ^= second; return true;
        case DW_OP_plus: first += second; return true;
        case DW_OP_minus: first -= second; return true;
        case DW_OP_mul: first *= second; return true;
        case DW_OP_shl: first = second < k_bits ? first << second : 0; return true;
        case DW_OP_shr: first = second < k_bits ? first >> second : 0; return true;
        default: return false;
        }
    }

    std::uint64_t& top() { return m_stack[m_count - 1]; }
    bool push(std::uint64_t value) {
        if (m_count == k_deepestStack) {
            return false;
        }
        m_stack[m_count++] = m_forms.addrSize == 4 ? value & 0xFFFFFFFF : value;
        return true;
    }
    bool unsignedOperand(std::uint64_t& out) {
        if (m_walker.atEnd()) {
            return false;
        }
        out = m_walker.unsignedLeb();
        return true;
    }
    bool signedOperand(std::uint64_t& out) {
        if (m_walker.atEnd()) {
            return false;
        }
        out = static_cast<std::uint64_t>(m_walker.signedLeb());
        return true;
    }
    template <typename T> bool fixed() {
        T value = 0;
        return takeFixed(value) && push(static_cast<std::uint64_t>(static_cast<std::int64_t>(value)));
    }
    template <typename T> bool takeFixed(T& out) {
        if constexpr (sizeof(T) == 1) {
            return m_walker.getUnsigned1(out) == status_Ok;
        } else if constexpr (sizeof(T) == 2) {
            return m_walker.getUnsigned2(out) == status_Ok;
        } else if constexpr (sizeof(T) == 4) {
            return m_walker.getUnsigned4(out) == status_Ok;
        } else {
            return m_walker.getUnsigned8(out) == status_Ok;
        }
    }
    bool address() {
        unsigned int const size = m_forms.addrSize;
        return (size == 4 || size == 8) && m_walker.remaining() >= size && push(m_walker.address() + m_forms.loadBias);
    }
    /// A register by itself, with nothing round it.
    bool content(std::uint64_t number) {
        std::uint64_t value = 0;
        return m_use == ExpressionOf::FrameBase && m_count == 0 && m_walker.atEnd() &&
               m_frame.registerValue(number, value) && push(value);
    }
    bool relative(std::uint64_t number) {
        std::uint64_t value = 0;
        std::uint64_t offset = 0;
        return signedOperand(offset) && m_frame.registerValue(number, value) && push(value + offset);
    }
    bool frameOffset() {
        std::uint64_t value = 0;
        std::uint64_t offset = 0;
        return signedOperand(offset) && m_frame.frameBase(value) && push(value + offset);
    }

    DwarfWalker m_walker;
    FormContext const& m_forms;
    ExpressionOf m_use;
    IExpressionFrame& m_frame;
    std::array<std::uint64_t, k_deepestStack> m_stack{};
    std::size_t m_count = 0;
};

} // namespace

bool evaluateExpression(DwarfBytes const& expression, FormContext const& forms, ExpressionOf use,
                        IExpressionFrame& frame, std::uint64_t& out) {
    if (!ExpressionMachine(expression, forms, use, frame).run(out)) {
        return false;
    }
    out = forms.addrSize == 4 ? out & 0xFFFFFFFF : out;
    return true;
}

} // namespace ORV_3_30
