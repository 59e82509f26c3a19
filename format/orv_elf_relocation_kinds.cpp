// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
// Tables of relocations by processor: the supplements of the System V ABI for each of them, "Relocation Types", and
// "RISC-V ELF Specification", "Relocations".
#include "format/orv_elf_relocation_kinds.h"

#include "core/orv_cursor.h"

#include <elf.h>
#include <iterator>

namespace ORV_3_30 {
namespace {

using Operation = RelocationOperation;

// Newer than some <elf.h>.
constexpr unsigned int k_riscvPlt32 = 59;
constexpr unsigned int k_riscvSetUleb128 = 60;
constexpr unsigned int k_riscvSubUleb128 = 61;

struct KnownKind {
    unsigned int type;
    RelocationKind kind;
};

constexpr RelocationKind k_nothing{};
constexpr RelocationKind absolute(unsigned char width) { return {Operation::Store, width, false}; }
constexpr RelocationKind relative(unsigned char width) { return {Operation::Store, width, true}; }
constexpr RelocationKind add(unsigned char width) { return {Operation::Add, width, false}; }
constexpr RelocationKind subtract(unsigned char width) { return {Operation::Subtract, width, false}; }

/// Also those of the two offload processors, which use the same numbers.
constexpr KnownKind k_x86_64[] = {
    {R_X86_64_NONE, k_nothing},    {R_X86_64_64, absolute(8)},       {R_X86_64_PC32, relative(4)},
    {R_X86_64_PLT32, relative(4)}, {R_X86_64_32, absolute(4)},       {R_X86_64_32S, absolute(4)},
    {R_X86_64_16, absolute(2)},    {R_X86_64_PC16, relative(2)},     {R_X86_64_8, absolute(1)},
    {R_X86_64_PC8, relative(1)},   {R_X86_64_DTPOFF64, absolute(8)}, {R_X86_64_DTPOFF32, absolute(4)},
    {R_X86_64_PC64, relative(8)},
};
constexpr KnownKind k_x86[] = {
    {R_386_NONE, k_nothing},   {R_386_32, absolute(4)}, {R_386_PC32, relative(4)}, {R_386_16, absolute(2)},
    {R_386_PC16, relative(2)}, {R_386_8, absolute(1)},  {R_386_PC8, relative(1)},  {R_386_TLS_LDO_32, absolute(4)},
};
constexpr KnownKind k_arm[] = {
    {R_ARM_NONE, k_nothing},   {R_ARM_ABS32, absolute(4)},   {R_ARM_REL32, relative(4)},     {R_ARM_ABS16, absolute(2)},
    {R_ARM_ABS8, absolute(1)}, {R_ARM_TARGET1, absolute(4)}, {R_ARM_TLS_LDO32, absolute(4)},
};
constexpr KnownKind k_em50[] = {
    {R_IA64_NONE, k_nothing},          {R_IA64_DIR32LSB, absolute(4)},   {R_IA64_DIR64LSB, absolute(8)},
    {R_IA64_PCREL32LSB, relative(4)},  {R_IA64_PCREL64LSB, relative(8)}, {R_IA64_SECREL32LSB, absolute(4)},
    {R_IA64_SECREL64LSB, absolute(8)},
};
constexpr KnownKind k_aarch64[] = {
    {R_AARCH64_NONE, k_nothing},     {R_AARCH64_ABS64, absolute(8)},      {R_AARCH64_ABS32, absolute(4)},
    {R_AARCH64_ABS16, absolute(2)},  {R_AARCH64_PREL64, relative(8)},     {R_AARCH64_PREL32, relative(4)},
    {R_AARCH64_PREL16, relative(2)}, {R_AARCH64_TLS_DTPREL, absolute(8)},
};
constexpr KnownKind k_riscv64[] = {
    {R_RISCV_NONE, k_nothing},
    {R_RISCV_32, absolute(4)},
    {R_RISCV_64, absolute(8)},
    {R_RISCV_TLS_DTPREL32, absolute(4)},
    {R_RISCV_TLS_DTPREL64, absolute(8)},
    {R_RISCV_ADD8, add(1)},
    {R_RISCV_ADD16, add(2)},
    {R_RISCV_ADD32, add(4)},
    {R_RISCV_ADD64, add(8)},
    {R_RISCV_SUB8, subtract(1)},
    {R_RISCV_SUB16, subtract(2)},
    {R_RISCV_SUB32, subtract(4)},
    {R_RISCV_SUB64, subtract(8)},
    {R_RISCV_ALIGN, k_nothing},
    {R_RISCV_RELAX, k_nothing},
    {R_RISCV_SUB6, {Operation::Subtract6, 1, false}},
    {R_RISCV_SET6, {Operation::Set6, 1, false}},
    {R_RISCV_SET8, absolute(1)},
    {R_RISCV_SET16, absolute(2)},
    {R_RISCV_SET32, absolute(4)},
    {R_RISCV_32_PCREL, relative(4)},
    {k_riscvPlt32, relative(4)},
    {k_riscvSetUleb128, {Operation::SetUleb128, 0, false}},
    {k_riscvSubUleb128, {Operation::SubtractUleb128, 0, false}},
};
constexpr KnownKind k_ppc64[] = {
    {R_PPC64_NONE, k_nothing},       {R_PPC64_ADDR64, absolute(8)},  {R_PPC64_UADDR64, absolute(8)},
    {R_PPC64_ADDR32, absolute(4)},   {R_PPC64_UADDR32, absolute(4)}, {R_PPC64_ADDR16, absolute(2)},
    {R_PPC64_UADDR16, absolute(2)},  {R_PPC64_REL64, relative(8)},   {R_PPC64_REL32, relative(4)},
    {R_PPC64_DTPREL64, absolute(8)},
};

constexpr unsigned int k_lowSix = 0x3F;
/// As many bytes as a number of 64 bits takes at most.
constexpr unsigned int k_mostUlebBytes = 10;

std::uint64_t combined(Operation operation, std::uint64_t old, std::uint64_t value) {
    switch (operation) {
    case Operation::Add: return old + value;
    case Operation::Subtract:
    case Operation::SubtractUleb128: return old - value;
    case Operation::Set6: return (old & ~std::uint64_t{k_lowSix}) | (value & k_lowSix);
    case Operation::Subtract6: return (old & ~std::uint64_t{k_lowSix}) | ((old - value) & k_lowSix);
    default: return value;
    }
}

/// The number keeps its length: bytes that it does not need stay.
void changeUleb(unsigned char* bytes, std::uint64_t size, std::uint64_t offset, Operation operation,
                std::uint64_t value) {
    ByteCursor cursor(bytes, size);
    std::uint64_t old = 0;
    unsigned int count = 0;
    for (std::uint8_t byte = 0x80; byte >= 0x80; ++count) {
        if ((count == 0 && !cursor.seek(offset)) || count == k_mostUlebBytes || !cursor.read(byte)) {
            return;
        }
        old |= std::uint64_t{byte & 0x7FU} << (7 * count);
    }
    std::uint64_t left = combined(operation, old, value);
    for (unsigned int i = 0; i < count; ++i, left >>= 7) {
        bytes[offset + i] = static_cast<unsigned char>((left & 0x7F) | (i + 1 < count ? 0x80 : 0));
    }
}

} // namespace

bool findRelocationKind(arch_t arch, std::uint64_t type, RelocationKind& out) {
    auto const find = [&](auto const& kinds) {
        for (KnownKind const& row : kinds) {
            if (row.type == type) {
                out = row.kind;
                return true;
            }
        }
        return false;
    };
    switch (arch) {
    case arch_X86_64:
    case arch_Em180:
    case arch_Em181: return find(k_x86_64);
    case arch_X86: return find(k_x86);
    case arch_Arm: return find(k_arm);
    case arch_Em50: return find(k_em50);
    case arch_Aarch64: return find(k_aarch64);
    case arch_Riscv64: return find(k_riscv64);
    case arch_Ppc64le: return find(k_ppc64);
    default: return false;
    }
}

void applyRelocation(unsigned char* bytes, std::uint64_t size, std::uint64_t offset, RelocationKind const& kind,
                     std::uint64_t value) {
    if (kind.operation == Operation::SetUleb128 || kind.operation == Operation::SubtractUleb128) {
        changeUleb(bytes, size, offset, kind.operation, value);
        return;
    }
    ByteCursor field(bytes, size);
    std::uint64_t old = 0;
    if (kind.width == 0 || !field.seek(offset) || !field.readWord(kind.width, old)) {
        return;
    }
    std::uint64_t const changed = combined(kind.operation, old, value);
    for (unsigned int i = 0; i < kind.width; ++i) {
        bytes[offset + i] = static_cast<unsigned char>(changed >> (8 * i));
    }
}

} // namespace ORV_3_30
