// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
// Encodes methods (Dalvik executable format, "code_item" and "debug_info_item").
#include "support/orv_dex_code.h"

#include "support/orv_dex_writer.h"
#include "support/orv_elf_builder.h"

#include <algorithm>

namespace orv_test {
namespace {
/// 16-bit units up to the last dex pc that the program reaches, and a return.
std::uint32_t insnsOf(OatMethodText const& method) {
    std::int64_t pc = 0;
    for (DexDebugOp const& op : method.debug ? method.debug->program : std::vector<DexDebugOp>()) {
        if (!op.raw) {
            pc += op.code == 1 ? op.operands[0] : op.code >= 10 ? (op.code - 10) / 15 : 0;
        }
    }
    return method.insns.value_or(static_cast<std::uint32_t>(std::clamp<std::int64_t>(pc + 1, 1, 0x1000)));
}

std::string encoded(DexDebugOp const& op, DexIds const& ids) {
    if (op.raw) {
        return *op.raw;
    }
    std::string result(1, static_cast<char>(op.code));
    if (op.file) {
        putUleb(result, ids.strings.at(utf16(*op.file)) + 1);
    }
    for (std::int64_t const operand : op.operands) {
        if (op.code == 2) {
            putSleb(result, static_cast<std::int32_t>(operand));
        } else {
            putUleb(result, static_cast<std::uint32_t>(operand));
        }
    }
    return result;
}

} // namespace

std::uint32_t accessOf(OatMethodText const& method) {
    std::uint32_t const kind = !method.isDirect            ? accPublic
                               : method.name == "<init>"   ? accPublic | accConstructor
                               : method.name == "<clinit>" ? accStatic | accConstructor
                                                           : accPublic | accStatic;
    return method.access.value_or(kind | (method.hasCodeItem ? 0U : accNative));
}

std::string debugInfo(OatMethodText const& method, DexIds const& ids) {
    std::string out;
    putUleb(out, method.debug->line);
    std::size_t const count = DexIds::protoOf(method.signature).parameters.size();
    auto const parameters =
        method.debug->parameters.value_or(std::vector<std::optional<std::string>>(count, std::nullopt));
    putUleb(out, static_cast<std::uint32_t>(parameters.size()));
    for (auto const& parameter : parameters) {
        putUleb(out, parameter ? ids.strings.at(utf16(*parameter)) + 1 : 0);
    }
    for (DexDebugOp const& op : method.debug->program) {
        out += encoded(op, ids);
    }
    return out;
}

std::string codeItem(OatMethodText const& method, std::uint32_t debugOffset) {
    std::uint32_t ins = (accessOf(method) & accStatic) != 0 ? 0 : 1;
    for (std::u16string const& parameter : DexIds::protoOf(method.signature).parameters) {
        ins += parameter == u"J" || parameter == u"D" ? 2 : 1;
    }
    std::string out;
    ElfBuilder::put(out, ins + 16, 2); // locals of the debug programs fit
    ElfBuilder::put(out, ins, 2);
    ElfBuilder::put(out, 0, 4); // nothing is called, nothing caught
    ElfBuilder::put(out, debugOffset, 4);
    std::uint32_t const count = insnsOf(method);
    ElfBuilder::put(out, method.insnsField.value_or(count), 4);
    for (std::uint32_t i = 1; i <= count; ++i) {
        ElfBuilder::put(out, i == count ? 0x0E : 0, 2); // nop, and return-void
    }
    return out;
}

} // namespace orv_test
