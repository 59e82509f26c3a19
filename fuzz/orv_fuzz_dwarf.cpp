// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// DWARF as a whole: an ELF program round debug sections that are the input's, through every query.
///
/// The input is a row of sections: a byte for which, two for the length, the bytes. Those with bit 6 set go into a
/// supplementary file. The last byte says what else is done: bit 0, an address is announced; bit 1, it is read the
/// modern way, as it is wherever there is a supplementary file.

#include "dwarf/orv_dwarf_constants.h"
#include "orv_fuzz_input.h"
#include "support/orv_elf_builder.h"

#include <algorithm>
#include <iterator>

using namespace orv_fuzz;
using orv_test::ElfBuilder;
using orv_test::ElfClass;

namespace {

constexpr char const* k_sections[] = {".debug_info",     ".debug_abbrev",      ".debug_str",         ".debug_line",
                                      ".debug_ranges",   ".debug_loc",         ".note.gnu.build-id", ".gnu_debuglink",
                                      ".debug_line_str", ".debug_str_offsets", ".debug_addr",        ".debug_rnglists",
                                      ".debug_loclists", ".eh_frame",          ".debug_frame"};
constexpr std::size_t k_exceptionFrames = 13;
constexpr unsigned long long k_framesAddress = 0x8000; ///< What stands there counts from itself.

constexpr std::uint8_t k_inSupplement = 0x40;
constexpr char k_id[] = "\1\2\3\4";

struct Files {
    std::string module;
    std::string supplement; ///< Empty if no section is for it.
};

Files filesOf(std::uint8_t const* data, std::size_t size, std::string const& supplementPath) {
    bool const is32 = size > 0 && (data[0] & 0x80) != 0;
    ElfBuilder elf(is32 ? ElfClass::Elf32 : ElfClass::Elf64);
    elf.load(PF_R | PF_X, 0x1000, 0x10000);
    elf.section(".text", SHT_PROGBITS, SHF_ALLOC | SHF_EXECINSTR, 0x1000, std::string(0x400, '\x90'));
    elf.symbol("f", STB_GLOBAL, STT_FUNC, 0x1000, 0x20);
    elf.symbol("_ZN1AC1Ev", STB_GLOBAL, STT_FUNC, 0x1040, 0x20);
    ElfBuilder supplement;
    supplement.section(".note.gnu.build-id", SHT_NOTE, 0, 0, std::string("\4\0\0\0\4\0\0\0\3\0\0\0GNU\0", 16) + k_id);
    bool hasSupplement = false;
    for (std::size_t at = 0; at + 3 <= size;) {
        std::size_t const length = std::min<std::size_t>(data[at + 1] | data[at + 2] << 8, size - at - 3);
        bool const isInSupplement = (data[at] & k_inSupplement) != 0;
        hasSupplement |= isInSupplement;
        std::size_t const which = (data[at] & 0x3F) % std::size(k_sections);
        (isInSupplement ? supplement : elf)
            .section(k_sections[which], SHT_PROGBITS, 0, which == k_exceptionFrames ? k_framesAddress : 0,
                     std::string(reinterpret_cast<char const*>(data + at + 3), length));
        at += 3 + length;
    }
    if (hasSupplement) {
        elf.section(".gnu_debugaltlink", SHT_PROGBITS, 0, 0, supplementPath + '\0' + k_id);
    }
    return {elf.bytes(), hasSupplement ? supplement.bytes() : std::string()};
}

/// Everything inside a range, level by level, as far as a few steps reach.
void goInside(ISymbolRange& range, unsigned int depth) {
    if (IInlineInstance* const instance = range.inlineInstance()) {
        SymMgrObjectPtr<ISourceLocation> call;
        instance->callSite(call);
        instance->symbol()->name();
    }
    constexpr unsigned int k_deepest = 6;
    constexpr unsigned int k_most = 40;
    Ranges inner;
    range.innerRanges(inner);
    unsigned int count = 0;
    for (auto at = inner ? inner->current() : SymMgrObjectPtr<ISymbolRange>(); at && count < k_most;
         at = inner->current(), ++count) {
        if (depth < k_deepest) {
            goInside(*at, depth + 1);
        }
        inner->next();
    }
}

void askStack(IModuleSymbolBank& bank, unsigned long long pc) {
    SymMgrObjectPtr<IAddress> where;
    SymMgrObjectPtr<ISymbolRange> range;
    if (bank.addressByValue(pc, where) != status_Ok) {
        return;
    }
    SymMgrObjectPtr<IStackFrameContext> context = IStackFrameContext::create();
    context->setRegister(0, 0x7000);
    context->setRegister(1, 0x7040);
    for (unsigned long long address = 0x6FF0; address < 0x7060; address += 7) {
        SymMgrObjectPtr<ISymbol> variable;
        bool isInteger = false;
        bank.findStackVariable(where.get(), address, context, variable, &isInteger);
        if (variable) {
            SymMgrObjectPtr<ISourceLine> line;
            variable->sourceLine(line);
        }
    }
    if (bank.symbolRangeByAddress(where.get(), range, k_allKinds, nullptr) != status_Ok) {
        return;
    }
    goInside(*range, 0);
    for (auto inner = range; inner; range = inner) {
        inner = nullptr;
        range->innerRangeByAddress(inner, where.get());
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
    static InputFile const file;
    static InputFile const supplementFile;
    Files const files = filesOf(data, size, supplementFile.path());
    if (!file.write(files.module.data(), files.module.size()) ||
        !supplementFile.write(files.supplement.data(), files.supplement.size())) {
        return 0;
    }
    bool const isModern = !files.supplement.empty() || (size > 3 && (data[size - 1] & 2) != 0);
    setReading(isModern ? reading_Modern : reading_Classic);
    SymMgrObjectPtr<ISymbolManager> manager;
    ISymbolManager::create(manager);
    SymMgrObjectPtr<IModuleSymbolBank> bank;
    if (manager->loadSymbolsFromModule(file.path(), nullptr, bank, arch_Unknown, true, "") != status_Ok) {
        std::abort(); // broken debug information never fails a load
    }
    bool const isAnnounced = size > 3 && (data[size - 1] & 1) != 0;
    if (isAnnounced) {
        bank->prefetcher()->putRVA(0x10);
    }
    askAt(*bank, 0x1000);
    Ranges it;
    bank->originalSymbolRanges(it, k_allKinds, nullptr, nullptr);
    walk(it);
    bank->nonOverlappedSymbolRanges(it, k_allKinds, nullptr, nullptr, nullptr);
    walk(it);
    for (unsigned long long address = 0x1000; address < 0x1400; address += 0x33) {
        askAt(*bank, address);
        askStack(*bank, address);
    }
    return 0;
}
