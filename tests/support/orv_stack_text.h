// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// Functions with variables as assembler text, and frames in which they are asked for.
///
///     FakeFrame frame(withUnit(function(variable("v", placed(8)))));
///     frame.at(k_framePointer + 8)                          // "v!": an integer
#pragma once

#include "support/orv_assembler.h"
#include "support/orv_modern.h"

namespace orv_test {

constexpr unsigned long long k_stackPointer = 0x7000;
constexpr unsigned long long k_framePointer = 0x8000;
constexpr unsigned int k_parameterTag = 0x05;

inline Attr typeAttr(std::string const& type) { return {DW_AT_type, DW_FORM_ref4, ".Lt_" + type + " - .Lunit0"}; }
inline Attr block(unsigned int name, std::string const& bytes) { return {name, DW_FORM_block1, bytes}; }
inline Attr place(std::string const& bytes) { return block(DW_AT_location, bytes); }
inline Attr placeList(std::string const& offset) { return {DW_AT_location, DW_FORM_data4, offset}; }
inline Attr placed(int offset) { return place(".byte 0x91\n.sleb128 " + number(offset)); }
inline Attr staticPlace(std::string const& offset) { return place(".byte 3\n.8byte code + " + offset); }

/// A function over [0x1000, 0x1040] with its base, the frame pointer if none is given.
inline std::string function(std::string const& inner, Attr const& base = block(DW_AT_frame_base, ".byte 0x56")) {
    return entry(DW_TAG_subprogram, {nameAttr("f"), lowAttr(0), {DW_AT_high_pc, DW_FORM_addr, "code + 0x40"}, base},
                 inner);
}

inline std::string variable(std::string const& name, Attr const& location, std::string const& type = "int",
                            unsigned int tag = DW_TAG_variable) {
    Attrs attrs = declaredAttrs(1, 3);
    attrs.insert(attrs.begin(), {nameAttr(name), location, typeAttr(type)});
    return entry(tag, attrs);
}

// Types have a label, by which others speak of them.

inline std::string label(std::string const& type) { return ".Lt_" + type + ": "; }

inline std::string sized(unsigned int tag, std::string const& type, std::string const& name, int size,
                         Children children = Children::None) {
    return label(type) + entry(tag, {nameAttr(name), {DW_AT_byte_size, DW_FORM_data2, number(size)}}, children);
}
inline std::string base(std::string const& type, std::string const& name, int size) {
    return sized(DW_TAG_base_type, type, name, size);
}
inline std::string structure(std::string const& name, int size, std::string const& members,
                             unsigned int tag = DW_TAG_structure_type) {
    return sized(tag, name, name, size, Children::Follow) + members + k_end;
}
inline std::string member(std::string const& name, std::string const& type, int at) {
    return entry(DW_TAG_member,
                 {nameAttr(name), typeAttr(type), {DW_AT_data_member_location, DW_FORM_data1, number(at)}});
}
inline std::string otherName(std::string const& type, std::string const& of, unsigned int tag = DW_TAG_typedef) {
    return label(type) + entry(tag, {typeAttr(of)});
}
inline std::string array(std::string const& type, std::vector<char const*> const& bounds) {
    std::string ranges;
    for (char const* const bound : bounds) {
        ranges += entry(DW_TAG_subrange_type, {{DW_AT_upper_bound, DW_FORM_sdata, bound}});
    }
    return label(type) + entry(DW_TAG_array_type, {typeAttr("int")}, ranges);
}

/// A module with one function whose frame is made up: 0x7000 in the stack pointer, 0x8000 in the frame pointer.
class FakeFrame {
public:
    explicit FakeFrame(DwarfText const& text, std::string const& more = "", reading_t asked = reading_Classic)
        : m_file(text.source() + more), m_reading(asked) {
        m_context->setRegister(0, k_stackPointer);
        m_context->setRegister(1, k_framePointer);
    }
    std::string path() const { return m_file.path(); }
    IModuleSymbolBank& bank() { return *m_bank; }
    IStackFrameContext& context() { return *m_context; }
    SymMgrObjectPtr<ISymbol> const& symbol() const { return m_symbol; }

    status_t ask(unsigned long long pc, unsigned long long address, bool* isInteger) {
        m_symbol = nullptr;
        return m_bank->findStackVariable(addressIn(*m_bank, pc).get(), address, m_context, m_symbol, isInteger);
    }
    /// The name, with "!" behind it for an integer; "-" for none, "?" for a failure.
    std::string at(unsigned long long address, unsigned long long pc = 0x1010) {
        bool isInteger = false;
        status_t const status = ask(pc, address, &isInteger);
        return failed(status)           ? "?"
               : status == status_False ? "-"
                                        : m_symbol->name() + std::string(isInteger ? "!" : "");
    }
    /// Where a variable of 4 bytes starts among likely places; 0 if at none.
    unsigned long long find() {
        for (unsigned long long const near : {0ULL, k_stackPointer, k_framePointer, 0x10ULL, 0x9000ULL}) {
            for (long long offset = -64; offset <= 64; offset += 4) {
                unsigned long long const address = near + static_cast<unsigned long long>(offset);
                if (at(address) == "v!" && at(address - 1) == "-" && at(address + 3) == "v!" &&
                    at(address + 4) == "-") {
                    return address;
                }
            }
        }
        return 0;
    }

private:
    Assembled m_file;
    Reading m_reading;
    SymMgrObjectPtr<IModuleSymbolBank> m_bank = bankOf(m_file.path(), load_flags_NewLoader);
    SymMgrObjectPtr<IStackFrameContext> m_context = IStackFrameContext::create();
    SymMgrObjectPtr<ISymbol> m_symbol;
};

/// One variable in a function.
inline std::string oneVariable() { return function(variable("v", placed(8))); }

inline DwarfText withUnit(std::string const& entries, std::string const& locations = "") {
    DwarfText text;
    text.unit({3, 8, false},
              entry(DW_TAG_compile_unit, {nameAttr("a.c"), lowAttr(0)}, base("int", "int", 4) + entries));
    text.section(".debug_loc", ".Lloc:\n" + locations);
    return text;
}

} // namespace orv_test
