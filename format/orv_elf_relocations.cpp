// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
// Relocations as a sorted list of addends (System V ABI, "Relocation"), and the stubs that they name.
#include "format/orv_elf_relocations.h"

#include "core/orv_cursor.h"
#include "core/orv_trace.h"

#include <algorithm>

namespace ORV_3_30 {
namespace {

/// What stands in front of the first stub leads to the resolver; every stub has this size on every architecture that is
/// read.
constexpr unsigned long long k_stubSize = 16;

/// Relocations of a processor that patch another width than its addresses have.
struct PatchedWidth {
    std::uint64_t type;
    unsigned int width;
};

/// Also those of the two offload processors, which use the same numbers.
constexpr PatchedWidth k_x86_64Widths[] = {
    {R_X86_64_NONE, 0},
    {R_X86_64_64, 8},
    {R_X86_64_16, 2},
    {R_X86_64_PC16, 2},
    {R_X86_64_8, 1},
    {R_X86_64_PC8, 1},
    {R_X86_64_PC32, 4},
    {R_X86_64_GOT32, 4},
    {R_X86_64_PLT32, 4},
    {R_X86_64_GLOB_DAT, 8},
    {R_X86_64_JUMP_SLOT, 8},
    {R_X86_64_RELATIVE, 8},
    {R_X86_64_GOTPCREL, 4},
    {R_X86_64_32, 4},
    {R_X86_64_32S, 4},
    {R_X86_64_DTPMOD64, 8},
    {R_X86_64_DTPOFF64, 8},
    {R_X86_64_TPOFF64, 8},
    {R_X86_64_TLSGD, 4},
    {R_X86_64_TLSLD, 4},
    {R_X86_64_DTPOFF32, 4},
    {R_X86_64_GOTTPOFF, 4},
    {R_X86_64_TPOFF32, 4},
    {R_X86_64_PC64, 8},
    {R_X86_64_GOTOFF64, 8},
    {R_X86_64_GOTPC32, 4},
    {R_X86_64_SIZE32, 4},
    {R_X86_64_SIZE64, 8},
    {R_X86_64_GOTPC32_TLSDESC, 4},
    {R_X86_64_GOTPCRELX, 4},
    {R_X86_64_REX_GOTPCRELX, 4},
};
constexpr PatchedWidth k_x86Widths[] = {{R_386_16, 2}, {R_386_PC16, 2}, {R_386_8, 1}, {R_386_PC8, 1}};
constexpr PatchedWidth k_armWidths[] = {{R_ARM_ABS16, 2}, {R_ARM_ABS8, 1}};
constexpr PatchedWidth k_em50Widths[] = {
    {R_IA64_NONE, 0},      {R_IA64_DIR32LSB, 4},   {R_IA64_DIR64LSB, 8},    {R_IA64_GPREL32LSB, 4},
    {R_IA64_FPTR32LSB, 4}, {R_IA64_PCREL32LSB, 4}, {R_IA64_SEGREL32LSB, 4}, {R_IA64_SECREL32LSB, 4},
    {R_IA64_REL32LSB, 4},  {R_IA64_LTV32LSB, 4},   {R_IA64_DTPREL32LSB, 4}, {R_IA64_LTOFF_FPTR32LSB, 4},
};

/// Bytes that a relocation patches, by its type; the address size where the type is not known. Where sections are not
/// laid out every relocation is one that stores.
unsigned int patchedWidth(ElfHelper const& helper, std::uint64_t type) {
    auto const find = [&](auto const& widths) {
        for (PatchedWidth const& row : widths) {
            if (row.type == type) {
                return row.width;
            }
        }
        return helper.is64() ? 8U : 4U;
    };
    switch (helper.architecture()) {
    case arch_X86_64:
    case arch_Em180:
    case arch_Em181: return find(k_x86_64Widths);
    case arch_Em50: return find(k_em50Widths);
    case arch_X86: return find(k_x86Widths);
    case arch_Arm: return find(k_armWidths);
    default: return helper.is64() ? 8 : 4;
    }
}

class RELARelocationAddends final : public RelocationAddends {
public:
    using RelocationAddends::RelocationAddends;
    bool readEntry(ByteCursor& reader, std::uint64_t& offset, std::uint64_t& info, std::uint64_t& addend) override {
        return reader.readWord(wordSize(), offset) && reader.readWord(wordSize(), info) &&
               reader.readWord(wordSize(), addend);
    }
    void apply(unsigned char* bytes, std::uint64_t size, Entry const& entry) override {
        applyRelocation(bytes, size, entry.offset, entry.kind, entry.value);
    }
};

/// The addend stands in the bytes that are patched.
class RELRelocationAddends final : public RelocationAddends {
public:
    using RelocationAddends::RelocationAddends;
    bool readEntry(ByteCursor& reader, std::uint64_t& offset, std::uint64_t& info, std::uint64_t& addend) override {
        addend = 0;
        return reader.readWord(wordSize(), offset) && reader.readWord(wordSize(), info);
    }
    void apply(unsigned char* bytes, std::uint64_t size, Entry const& entry) override {
        RelocationKind kind = entry.kind;
        kind.operation = kind.operation == RelocationOperation::Store ? RelocationOperation::Add : kind.operation;
        applyRelocation(bytes, size, entry.offset, kind, entry.value);
    }
};

/// False for a relocation that is passed over.
bool plainKind(ElfHelper const& helper, std::uint64_t symbolIndex, Elf64_Sym const& symbol, std::uint64_t type,
               RelocationKind& out) {
    // Section symbols count: relocatable files refer to their own sections through them.
    if (symbolIndex != 0 && ELF64_ST_TYPE(symbol.st_info) >= STT_FILE) {
        return false;
    }
    out.width = static_cast<unsigned char>(patchedWidth(helper, type));
    return true;
}

/// The same where sections have places of their own: a field that counts from itself comes out right there. One line
/// for a file tells of the first kind that is not known.
bool laidOutKind(ElfHelper const& helper, unsigned int section, std::uint64_t type, RelocationKind& out) {
    if (findRelocationKind(helper.architecture(), type, out)) {
        return true;
    }
    if (helper.isFirstUnknownRelocation()) {
        ORV_WARN("Relocations of type " << type << " in section " << helper.sectionName(section) << " of file "
                                        << helper.image()->fileName() << " are not known and left out");
    }
    return false;
}

using Sections = std::pair<SymMgrObjectPtr<ISectionData>, SymMgrObjectPtr<ISectionData>>;

/// The symbols that a relocation section refers to, and their names.
Sections referredBy(ElfHelper const& helper, unsigned int link) {
    for (auto const& [symbols, strings] : {std::pair{ElfHelper::role_Symtab, ElfHelper::role_Strtab},
                                           std::pair{ElfHelper::role_Dynsym, ElfHelper::role_Dynstr}}) {
        if (link == helper.sectionIndex(symbols)) {
            return {helper.sectionData(symbols), helper.sectionData(strings)};
        }
    }
    return {SymMgrObjectPtr<ISectionData>(new ElfSectionData(link, &helper)), {}};
}

} // namespace

void RelocationAddends::setEntries(std::vector<Entry> entries, SymMgrObjectPtr<ISectionData> const& strings,
                                   SameOffset sameOffset) {
    auto const byOffset = [](Entry const& a, Entry const& b) { return a.offset < b.offset; };
    auto const isSame = [](Entry const& a, Entry const& b) { return a.offset == b.offset; };
    std::stable_sort(entries.begin(), entries.end(), byOffset);
    if (sameOffset == SameOffset::FirstCounts) {
        entries.erase(std::unique(entries.begin(), entries.end(), isSame), entries.end());
    }
    m_entries = std::move(entries);
    m_strings = strings;
}

SymMgrObjectPtr<RelocationAddends> relocationAddends(ElfHelper const& helper, unsigned int section) {
    unsigned int const index = helper.relocationSectionOf(section);
    Elf64_Shdr const* const header = helper.sectionHeader(index);
    if (header == nullptr) {
        return {};
    }
    bool const is64 = helper.is64();
    SymMgrObjectPtr<RelocationAddends> result;
    if (header->sh_type == SHT_RELA) {
        result = new RELARelocationAddends(is64, index);
    } else {
        result = new RELRelocationAddends(is64, index);
    }
    if (header->sh_link >= helper.sectionCount()) {
        return result;
    }
    auto const [symbols, strings] = referredBy(helper, header->sh_link);
    Elf64_Shdr const* const target = helper.sectionHeader(section);
    std::uint64_t const place = target != nullptr ? target->sh_addr : 0;
    SectionBytes const bytes = helper.readSectionBytes(index);
    ByteCursor reader(bytes.bytes.get(), bytes.size);
    std::uint64_t const symbolSize = is64 ? sizeof(Elf64_Sym) : sizeof(Elf32_Sym);
    std::vector<RelocationAddends::Entry> entries;
    std::uint64_t offset = 0;
    std::uint64_t info = 0;
    std::uint64_t addend = 0;
    // Every relocation counts towards the ordinal, skipped ones too: it is the number of the stub.
    for (unsigned int ordinal = 0; result->readEntry(reader, offset, info, addend); ++ordinal) {
        std::uint64_t const symbol = is64 ? info >> 32 : info >> 8;
        std::uint64_t const type = is64 ? info & 0xFFFFFFFF : info & 0xFF;
        Elf64_Sym entry{};
        if (!readElfSymbol(is64, symbols->data(), symbols->size(), symbol * symbolSize, entry)) {
            continue;
        }
        std::uint64_t value = addend + entry.st_value;
        RelocationKind kind;
        if (!(helper.isLaidOut() ? laidOutKind(helper, section, type, kind)
                                 : plainKind(helper, symbol, entry, type, kind))) {
            continue;
        }
        value -= kind.isRelative ? place + offset : 0;
        entries.push_back({offset, entry.st_name, value, ordinal, kind, strings.get()});
    }
    // Several may change one field in turn, such as the two ends of a distance.
    result->setEntries(std::move(entries), strings,
                       helper.isLaidOut() ? RelocationAddends::SameOffset::AllCount
                                          : RelocationAddends::SameOffset::FirstCounts);
    return result;
}

void PLTEntryCallBack::addend(RelocationAddends::Entry const& entry) {
    unsigned long long const stub = m_firstStub + entry.ordinal * k_stubSize;
    bool const isNamed = entry.strings != nullptr && entry.nameOffset < entry.strings->size();
    char const* const name =
        isNamed ? reinterpret_cast<char const*>(entry.strings->data()) + entry.nameOffset : nullptr;
    m_symbols.thunk({name, stub, k_stubSize, symbol_visibility_Global, symbol_kind_Function});
}

} // namespace ORV_3_30
