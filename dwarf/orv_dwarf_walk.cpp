// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
#include "dwarf/orv_dwarf_walk.h"

#include "core/orv_trace.h"
#include "dwarf/orv_dildwarf.h"
#include "dwarf/orv_dwarf_scope.h"
#include "dwarf/orv_dwarf_types.h"
#include "symbols/orv_symboltable.h"

#include <cstring>

namespace ORV_3_30 {
namespace {

/// What is made below an inlined body on the way past it: nothing, as it matches no kind. Its own scope
/// reads it when it is asked. Only option texts count there too.
constexpr unsigned int k_maskBelowInline = 0x20;

} // namespace

DieTreeWalk::DieTreeWalk(DWARFDebugInfoLoader& loader, Target const& target)
    : m_loader(loader), m_target(target), m_ownTable(dynamic_cast<SymbolTable*>(target.table)) {}

void DieTreeWalk::walkUnit(DWARFCompilationUnit& unit, unsigned int mask) {
    m_unit = &unit;
    m_mask = m_target.table != nullptr ? mask : 0;
    m_walker = unit.unitWalker();
    m_walker.seek(unit.header().firstDie);
    step();
    run();
}

void DieTreeWalk::walkChildren(DWARFScope& function, std::uint64_t childOffset, unsigned int mask) {
    m_unit = &function.unit();
    m_mask = mask;
    m_walker = m_unit->unitWalker();
    m_walker.seek(childOffset);
    m_function = &function;
    m_loader.refillScopeBudgets();
    m_levels.push_back({mask, false});
    run();
}

void DieTreeWalk::run() {
    while (!m_levels.empty()) {
        if (!step()) {
            Level const level = m_levels.back();
            m_levels.pop_back();
            m_mask = level.mask;
            if (level.hasOpened) {
                Opened const opened = std::move(m_waiting.back());
                m_waiting.pop_back();
                add(opened);
            }
        }
    }
}

bool DieTreeWalk::step() {
    std::uint64_t const offset = m_walker.offset();
    std::uint64_t const code = m_walker.unsignedLeb();
    if (code == 0) {
        return false;
    }
    AbbrevTable const& abbrevs = m_unit->abbrevs();
    AbbrevEntry const* const entry = abbrevs.find(code);
    if (!ORV_ASSERT(entry != nullptr, "false")) {
        return false;
    }
    unsigned int const mask = m_mask;
    Children children = Children::Skip;
    std::uint64_t sibling = 0;
    m_opened.name = nullptr;
    m_opened.ranges.clear();
    if (needsAttributes(entry->tag)) {
        DieAttributes& attributes = m_chain.start(*m_unit, offset);
        if (!attributes.read(m_walker, m_unit->forms(), abbrevs, *entry)) {
            return false;
        }
        sibling = attributes.number(DieAttributes::slot_Sibling);
        children = act(entry->tag, offset);
    } else if (entry->tag == DW_TAG_compile_unit) {
        if (!enterUnit(*entry, offset)) {
            return false;
        }
        children = Children::Enter;
    } else if (!m_loader.skipEntry(m_walker, *m_unit, *entry, sibling)) {
        return false;
    } else if (act(entry->tag, offset) == Children::Enter) {
        children = Children::Enter;
    }
    if (entry->hasChildren == 0) {
        m_mask = mask;
        add(m_opened);
    } else if (children == Children::Enter) {
        bool const hasOpened = m_opened.name != nullptr;
        m_levels.push_back({mask, hasOpened});
        if (hasOpened) {
            m_waiting.push_back(std::move(m_opened));
            m_opened = {};
        }
    } else {
        m_mask = mask;
        skipChildren(*entry, offset, sibling);
        add(m_opened);
    }
    return true;
}

void DieTreeWalk::skipChildren(AbbrevEntry const& entry, std::uint64_t offset, std::uint64_t sibling) {
    // Bodies lie in bodies: to pass over all of them at each level would be quadratic.
    bool const isBody = entry.tag == DW_TAG_inlined_subroutine && m_function != nullptr;
    std::uint64_t const end = isBody ? m_function->endOfBody(offset) : 0;
    if (end != 0) {
        m_walker.seek(end);
    } else {
        m_loader.skipChildren(m_walker, *m_unit, sibling);
    }
}

/// The tags that make something under the present mask.
bool DieTreeWalk::needsAttributes(std::uint32_t tag) const {
    switch (tag) {
    case DW_TAG_subprogram: return (m_mask & symbol_kind_Function) != 0 || entersFortran();
    case DW_TAG_entry_point: return (m_mask & symbol_kind_FunctionAlt) != 0;
    case DW_TAG_label: return (m_mask & symbol_kind_DataAlt) != 0;
    case DW_TAG_variable: return (m_mask & symbol_kind_Data) != 0;
    case DW_TAG_inlined_subroutine:
    case DW_TAG_unit_options: return true;
    default: return false;
    }
}

/// What an entry makes, and whether its children are walked. Where attributes are needed they have been
/// read.
DieTreeWalk::Children DieTreeWalk::act(std::uint32_t tag, std::uint64_t offset) {
    switch (tag) {
    case DW_TAG_common_block:
    case DW_TAG_module:
    case DW_TAG_lexical_block:
    case DW_TAG_try_block: return Children::Enter;
    case DW_TAG_subprogram:
        if ((m_mask & symbol_kind_Function) != 0) {
            return openFunction(symbol_kind_Function, offset);
        }
        return entersFortran() && !isDeclaration() ? Children::Enter : Children::Skip;
    case DW_TAG_entry_point:
        return (m_mask & symbol_kind_FunctionAlt) != 0 ? openFunction(symbol_kind_FunctionAlt, offset) : Children::Skip;
    case DW_TAG_inlined_subroutine:
        if (isDeclaration()) {
            return Children::Skip;
        }
        if (m_function != nullptr && (m_mask & symbol_kind_Function) != 0) {
            openInline(offset);
            m_mask = k_maskBelowInline;
            return m_unit->abbrevs().hasUnitOptions() ? Children::Enter : Children::Skip;
        }
        return Children::Enter;
    case DW_TAG_label: return (m_mask & symbol_kind_DataAlt) != 0 ? openLabel(offset) : Children::Skip;
    case DW_TAG_variable: return (m_mask & symbol_kind_Data) != 0 ? openVariable(offset) : Children::Skip;
    case DW_TAG_unit_options: return mergeOptions();
    default: return Children::Skip;
    }
}

bool DieTreeWalk::enterUnit(AbbrevEntry const& entry, std::uint64_t offset) {
    if (m_unit->hasDetails()) {
        std::uint64_t sibling = 0;
        return m_loader.skipEntry(m_walker, *m_unit, entry, sibling);
    }
    SymMgrObjectPtr<AttrBindings> const die(new AttrBindings(m_unit, nullptr));
    m_walker.seek(offset);
    bool const isRead = die->readDie(m_walker);
    if (isRead) {
        m_unit->readDetails(*die);
    }
    return isRead;
}

DieTreeWalk::Children DieTreeWalk::mergeOptions() {
    if (char const* const text = m_chain.text(DieAttributes::slot_Options)) {
        m_unit->mergeOptions(text);
    }
    return Children::Enter;
}

/// Without the bit of functions, what lies in those of Fortran is entered for the sake of variables.
bool DieTreeWalk::entersFortran() const { return m_unit->isFortran() && (m_mask & symbol_kind_Data) != 0; }

/// True for a function or body that says neither where it stands nor that it is inlined elsewhere.
bool DieTreeWalk::isDeclaration() {
    DieAttributes const& own = m_chain.first();
    bool const hasPlace = own.has(DieAttributes::slot_LowPc) || own.has(DieAttributes::slot_HighPc) ||
                          own.has(DieAttributes::slot_Ranges);
    return !hasPlace && m_chain.find(DieAttributes::slot_Inline) == nullptr;
}

bool DieTreeWalk::accepts(unsigned long long start, unsigned long long end) const {
    return m_target.filter == nullptr || m_target.filter->accept(start, end);
}

bool DieTreeWalk::rangeOf(unsigned long long& low, unsigned long long& high) {
    AttrValue const* const lowValue = m_chain.find(DieAttributes::slot_LowPc);
    AttrValue const* const highValue = m_chain.find(DieAttributes::slot_HighPc);
    return rangeOfEntry(lowValue, highValue, low, high);
}

DieTreeWalk::Children DieTreeWalk::openFunction(symbol_kind_t kind, std::uint64_t offset) {
    DieAttributes const& own = m_chain.first();
    bool const hasPlace = own.has(DieAttributes::slot_LowPc) || own.has(DieAttributes::slot_HighPc) ||
                          own.has(DieAttributes::slot_Ranges);
    if (isDeclaration()) {
        return Children::Skip;
    }
    Children const children = m_unit->isFortran() ? Children::Enter : Children::Skip;
    if (!hasPlace && children == Children::Skip) {
        return children; // an abstract one: nothing can come of it
    }
    unsigned long long low = 0;
    unsigned long long high = 0;
    // Of the functions that a filter keeps out, most go before a name is looked for.
    bool const isPlain = own.has(DieAttributes::slot_LowPc) && own.has(DieAttributes::slot_HighPc) &&
                         !own.has(DieAttributes::slot_Ranges) && own.has(DieAttributes::slot_Name);
    if (isPlain && rangeOf(low, high) && !accepts(low, high)) {
        return Children::Skip;
    }
    char const* const name = m_chain.symbolName();
    if (name == nullptr) {
        return Children::Skip;
    }
    if (AttrValue const* const ranges = m_chain.find(DieAttributes::slot_Ranges)) {
        open(shortened(name), kind, offset, 0, 0);
        takeRanges(*ranges, nullptr);
        return children;
    }
    if (!rangeOf(low, high)) {
        return children;
    }
    if (!isPlain && !accepts(low, high)) {
        return Children::Skip;
    }
    open(shortened(name), kind, offset, low, high);
    return children;
}

/// One range needs no scope of its own, unless the symbol's address is another: it goes by the base.
void DieTreeWalk::takeRanges(AttrValue const& list, std::uint64_t const* baseOverride) {
    unsigned long long const lowest = readRanges(*m_unit, &list, baseOverride, m_opened.ranges);
    m_opened.start = lowest;
    m_opened.end = lowest;
    if (m_opened.ranges.size() == 1 && m_opened.ranges.front().first == lowest) {
        m_opened.end = m_opened.ranges.front().second;
        m_opened.ranges.clear();
    } else if (m_opened.ranges.empty()) {
        m_opened.name = nullptr; // nowhere: a table has no place for it
    }
}

void DieTreeWalk::openInline(std::uint64_t offset) {
    AttrValue const* const low = m_chain.find(DieAttributes::slot_LowPc);
    AttrValue const* const high = m_chain.find(DieAttributes::slot_HighPc);
    AttrValue const* const ranges = m_chain.find(DieAttributes::slot_Ranges);
    bool const hasList = (low == nullptr || high == nullptr) && ranges != nullptr;
    char const* const name = m_chain.originName();
    if ((low == nullptr && high == nullptr && !hasList) || name == nullptr || m_target.parent == nullptr) {
        return;
    }
    unsigned long long start = 0;
    unsigned long long end = 0;
    if (!hasList) {
        rangeOf(start, end);
    }
    open(name, symbol_kind_Function, offset, start, std::max(start, end));
    m_opened.isInline = true;
    if (hasList) {
        std::uint64_t const parentStart = m_target.parent->firstStart();
        bool const isOverridden = m_unit->compilerKind() == compiler_Varko && m_target.parent->symbol() != nullptr;
        takeRanges(*ranges, isOverridden ? &parentStart : nullptr);
    }
    if (!isInSegment(m_opened.start)) {
        m_opened.name = nullptr;
    }
}

bool DieTreeWalk::isInSegment(unsigned long long address) const {
    IFileFormatLoader* const loader = m_loader.moduleLoader();
    return loader != nullptr && loader->segmentByAddress(address) != nullptr;
}

DieTreeWalk::Children DieTreeWalk::openLabel(std::uint64_t offset) {
    char const* const name = m_chain.text(DieAttributes::slot_Name);
    AttrValue const* const low = m_chain.find(DieAttributes::slot_LowPc);
    if (name != nullptr && (low == nullptr || accepts(low->value, low->value))) {
        unsigned long long const address = low != nullptr ? low->value : 0;
        open(name, symbol_kind_DataAlt, offset, address, address);
    }
    return Children::Enter;
}

DieTreeWalk::Children DieTreeWalk::openVariable(std::uint64_t offset) {
    AttrValue const* const location = m_chain.find(DieAttributes::slot_Location);
    if (location == nullptr || !isStaticLocation(*location)) {
        return Children::Enter;
    }
    DwarfWalker operand(location->data + 1, location->value - 1, m_unit->forms().addrSize);
    unsigned long long const address = operand.address() + m_unit->forms().loadBias;
    DWARFCompilationUnit* unit = m_unit;
    AttrValue const* const type = m_chain.find(DieAttributes::slot_Type, unit);
    TypeInfo info{};
    bool const isSized = type != nullptr && lookUpType(*unit, type->value, info);
    unsigned long long const end = address + (isSized ? info.size : 0);
    char const* const name = m_chain.symbolName();
    if (end < address || !accepts(address, end) || name == nullptr) {
        return Children::Enter;
    }
    open(name, symbol_kind_Data, offset, address, end);
    return Children::Enter;
}

/// Compilers of Fortran put an underscore behind the names of procedures.
char const* DieTreeWalk::shortened(char const* name) {
    std::size_t const size = std::strlen(name);
    bool const isMarked = m_unit->isFortran() && name[size - 1] == '_' && std::strcmp(name, "_BLNK_") != 0;
    return isMarked ? m_loader.keepShortened(name, size) : name;
}

void DieTreeWalk::open(char const* name, symbol_kind_t kind, std::uint64_t offset, unsigned long long start,
                       unsigned long long end) {
    m_opened.name = name;
    m_opened.dieOffset = offset;
    m_opened.start = start;
    m_opened.end = end;
    m_opened.kind = kind;
    m_opened.isInline = false;
    bool const isExternal = m_chain.find(DieAttributes::slot_External) != nullptr;
    m_opened.visibility = isExternal ? symbol_visibility_Global : symbol_visibility_Local;
}

void DieTreeWalk::add(Opened const& opened) {
    if (opened.name == nullptr) {
        return;
    }
    if (m_target.table == nullptr) {
        m_target.table = m_target.parent->symbolTable();
        m_ownTable = dynamic_cast<SymbolTable*>(m_target.table);
    }
    if (opened.ranges.empty() && m_ownTable != nullptr) {
        m_ownTable->addSymbol(opened.isInline ? m_loader.inlineMaker() : m_loader,
                              {opened.name, opened.start, opened.end, false, opened.visibility, opened.kind},
                              opened.dieOffset);
    } else {
        addAsScope(opened);
    }
}

void DieTreeWalk::addAsScope(Opened const& opened) {
    MergeSide const symbol{opened.name, opened.start, opened.end, false, opened.visibility, opened.kind};
    SymMgrObjectPtr<Scope> const scope(childScope(*m_unit, opened.dieOffset, symbol, m_target.parent));
    bool const isNew = scope->ranges().empty();
    for (auto const& [start, end] : opened.ranges) {
        if (isNew) {
            scope->addRange(start, end);
        }
    }
    if (isNew && opened.ranges.empty()) {
        scope->addRange(opened.start, opened.end);
    }
    bool const isRejected =
        m_target.filter != nullptr && scope->hasSeveralRanges() && !m_target.filter->acceptScope(*scope);
    if (!isRejected) {
        m_target.table->addScope(scope.get());
    }
}

// --- Passing over entries

bool DWARFDebugInfoLoader::skipEntry(DwarfWalker& walker, DWARFCompilationUnit const& unit, AbbrevEntry const& entry,
                                     std::uint64_t& sibling) const {
    sibling = 0;
    bool const wantsSibling = entry.hasChildren != 0 && entry.siblingForm != 0 && unit.trustsSiblings();
    if (entry.skipSize != AbbrevEntry::k_variable) {
        if (wantsSibling) {
            DwarfWalker at = walker;
            at.skip(entry.siblingAt);
            AttrValue value{};
            if (readForm(at, unit.forms(), entry.siblingForm, value)) {
                sibling = value.value;
            }
        }
        walker.skip(entry.skipSize);
        return true;
    }
    AbbrevStep const* const steps = unit.abbrevs().steps(entry);
    for (std::uint32_t i = 0; i < entry.stepCount; ++i) {
        walker.skip(steps[i].skipBefore);
        if (walker.atEnd() && steps[i].form != DW_FORM_flag_present) {
            return true; // the rest of the entry is not there
        }
        if (wantsSibling && steps[i].slot == DieAttributes::slot_Sibling) {
            AttrValue value{};
            if (!readForm(walker, unit.forms(), steps[i].form, value)) {
                return false;
            }
            sibling = value.value;
        } else if (!skipForm(walker, unit.forms(), steps[i].form)) {
            return false;
        }
    }
    walker.skip(entry.tailSize);
    return true;
}

void DWARFDebugInfoLoader::skipChildren(DwarfWalker& walker, DWARFCompilationUnit const& unit,
                                        std::uint64_t sibling) const {
    // One that leads back would have us walk for ever.
    if (sibling > walker.offset() && unit.trustsSiblings()) {
        walker.seek(sibling);
        return;
    }
    for (std::uint64_t depth = 1; depth != 0;) {
        std::uint64_t const code = walker.unsignedLeb();
        AbbrevEntry const* const entry = code != 0 ? unit.abbrevs().find(code) : nullptr;
        if (entry == nullptr) {
            ORV_ASSERT(code == 0, "false");
            --depth;
        } else if (!skipEntry(walker, unit, *entry, sibling)) {
            --depth;
        } else if (entry->hasChildren != 0) {
            if (sibling > walker.offset()) {
                walker.seek(sibling);
            } else {
                ++depth;
            }
        }
    }
}

} // namespace ORV_3_30
