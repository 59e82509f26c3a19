// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
// The tags that make symbols, and what of their attributes (DWARF version 4, 3.3, 3.5, 3.6 and 4.1); fed with the
// entries of a unit, or with the nodes of one level of a function.
#include "dwarf/orv_dwarf_symbols.h"

#include "core/orv_trace.h"
#include "dwarf/orv_dildwarf.h"
#include "dwarf/orv_dwarf_scope.h"
#include "dwarf/orv_dwarf_types.h"
#include "symbols/orv_symboltable.h"

#include <algorithm>
#include <cstring>

namespace ORV_3_30 {
namespace {

/// Until it is known where a function stands.
constexpr char k_toBeNamed[] = "";

} // namespace

DieTreeWalk::DieTreeWalk(DWARFDebugInfoLoader& loader, Target const& target)
    : m_loader(loader), m_target(target), m_ownTable(dynamic_cast<SymbolTable*>(target.table)),
      m_isModern(loader.reader().isModern()), m_chain(loader.search()) {}

void DieTreeWalk::walkUnit(DwarfUnit& unit, unsigned int mask) {
    m_unit = &unit;
    m_mask = m_target.table != nullptr ? mask : 0;
    m_walker = unit.unitWalker();
    m_walker.seek(unit.header().firstDie);
    step();
    run();
}

/// Entries below others come first, as in the walk over a unit.
void DieTreeWalk::walkLevel(DWARFScope& scope, InlineTree const& tree, InlineTree::Id level, unsigned int mask) {
    m_unit = &scope.unit().entries();
    m_mask = mask;
    InlineTree::Id const behind = tree.node(level).behind;
    if (level == InlineTree::k_root) { // ahead of all that lies in it
        mergeOptionsOf(tree);
    }
    std::vector<InlineTree::Id> ends; // of those that wait
    auto const addUpTo = [&](InlineTree::Id id) {
        while (!ends.empty() && ends.back() <= id) {
            Opened const opened = std::move(m_waiting.back());
            m_waiting.pop_back();
            ends.pop_back();
            add(opened);
        }
    };
    for (InlineTree::Id id = level + 1; id < behind;) {
        addUpTo(id);
        InlineTree::Node const& node = tree.node(id);
        Children const children = actOn(tree, node);
        id = children == Children::Enter ? id + 1 : node.behind;
        if (m_opened.name != nullptr) {
            ends.push_back(node.behind);
            m_waiting.push_back(std::move(m_opened));
            m_opened = {};
        }
    }
    addUpTo(behind);
}

void DieTreeWalk::mergeOptionsOf(InlineTree const& tree) {
    for (std::uint64_t const dieOffset : tree.options()) {
        if (readAt(dieOffset)) {
            mergeOptions();
        }
    }
}

/// Reads the attributes of an entry that the tree has passed.
bool DieTreeWalk::readAt(std::uint64_t dieOffset) {
    return m_unit->readEntry(dieOffset, m_chain.start(*m_unit, dieOffset));
}

DieTreeWalk::Children DieTreeWalk::actOn(InlineTree const& tree, InlineTree::Node const& node) {
    m_opened.name = nullptr;
    m_opened.ranges.clear();
    if (node.tag == DW_TAG_inlined_subroutine) {
        if ((m_mask & symbol_kind_Function) == 0) {
            return Children::Enter;
        }
        if (node.body != InlineTree::k_none) {
            openBody(tree.body(node.body));
        }
        return Children::Skip; // its own scope goes there when it is asked
    }
    if (needsAttributes(node.tag) && !readAt(node.dieOffset)) {
        return Children::Skip;
    }
    return act(node.tag, node.dieOffset);
}

void DieTreeWalk::openBody(InlineTree::Body const& body) {
    m_opened.name = body.name;
    m_opened.token = body.node;
    m_opened.start = body.address;
    m_opened.end = body.address;
    m_opened.kind = symbol_kind_Function;
    m_opened.visibility = body.isExternal ? symbol_visibility_Global : symbol_visibility_Local;
    m_opened.isInline = true;
    if (body.ranges.size() == 1 && body.ranges[0].start == body.address) {
        m_opened.end = body.ranges[0].end;
        return;
    }
    for (std::size_t i = 0; i < body.ranges.size(); ++i) {
        m_opened.ranges.emplace_back(body.ranges[i].start, body.ranges[i].end);
    }
}

void DieTreeWalk::run() {
    while (!m_levels.empty()) {
        if (!step()) {
            bool const hasOpened = m_levels.back();
            m_levels.pop_back();
            m_functionLevel = m_levels.size() < m_functionLevel ? 0 : m_functionLevel;
            if (hasOpened) {
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
    Children children = Children::Skip;
    std::uint64_t sibling = 0;
    m_opened.name = nullptr;
    m_opened.ranges.clear();
    if (m_isModern && makesNothing(*entry)) {
        if (!m_unit->skipEntry(m_walker, *entry, sibling)) {
            return false;
        }
        bool const isBody = entry->tag == DW_TAG_subprogram && !entry->isDeclaration && m_mask != 0;
        children = isBody ? Children::Enter : Children::Skip; // an abstract one may have others in it
    } else if (needsAttributes(entry->tag)) {
        DieAttributes& attributes = m_chain.start(*m_unit, offset);
        if (!attributes.read(m_walker, m_unit->forms(), abbrevs, *entry)) {
            return false;
        }
        sibling = attributes.number(DieAttributes::slot_Sibling);
        children = act(entry->tag, offset);
    } else if (entry->tag == DW_TAG_compile_unit || entry->tag == DW_TAG_skeleton_unit) {
        if (!enterUnit(*entry, offset)) {
            return false;
        }
        children = Children::Enter;
    } else if (!m_unit->skipEntry(m_walker, *entry, sibling)) {
        return false;
    } else if (act(entry->tag, offset) == Children::Enter) {
        children = Children::Enter;
    }
    if (entry->hasChildren == 0) {
        add(m_opened);
    } else if (children == Children::Enter) {
        enterChildren(entry->tag);
    } else {
        m_unit->skipChildren(m_walker, sibling);
        add(m_opened);
    }
    return true;
}

void DieTreeWalk::enterChildren(std::uint32_t tag) {
    bool const hasOpened = m_opened.name != nullptr;
    m_levels.push_back(hasOpened);
    if (hasOpened) {
        m_waiting.push_back(std::move(m_opened));
        m_opened = {};
    }
    if (m_isModern && tag == DW_TAG_subprogram && m_functionLevel == 0) {
        m_functionLevel = m_levels.size();
    }
}

/// True for a declaration, and for a variable that stands nowhere of its own: most entries of classes and functions.
bool DieTreeWalk::makesNothing(AbbrevEntry const& entry) {
    return (entry.tag == DW_TAG_subprogram && !entry.tellsPlace) ||
           (entry.tag == DW_TAG_variable && !entry.mayBeStatic);
}

/// The tags that make something under the present mask.
bool DieTreeWalk::needsAttributes(std::uint32_t tag) const {
    switch (tag) {
    case DW_TAG_subprogram: return (m_mask & symbol_kind_Function) != 0 || entersFunctions();
    case DW_TAG_entry_point: return (m_mask & symbol_kind_FunctionAlt) != 0;
    case DW_TAG_label: return makesLabels();
    case DW_TAG_variable: return (m_mask & symbol_kind_Data) != 0;
    case DW_TAG_inlined_subroutine: return !m_isModern;
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
        return entersFunctions() && !m_chain.isDeclaration() ? Children::Enter : Children::Skip;
    case DW_TAG_entry_point:
        return (m_mask & symbol_kind_FunctionAlt) != 0 ? openFunction(symbol_kind_FunctionAlt, offset) : Children::Skip;
    case DW_TAG_inlined_subroutine: // no definition stands in one
        return m_isModern || m_chain.isDeclaration() ? Children::Skip : Children::Enter;
    case DW_TAG_label: return makesLabels() ? openLabel(offset) : Children::Skip;
    case DW_TAG_variable: return (m_mask & symbol_kind_Data) != 0 ? openVariable(offset) : Children::Skip;
    case DW_TAG_unit_options: return mergeOptions();
    default: return m_isModern && m_mask != 0 && isContainer(tag) ? Children::Enter : Children::Skip;
    }
}

bool DieTreeWalk::enterUnit(AbbrevEntry const& entry, std::uint64_t offset) {
    if (m_unit->hasDetails()) {
        std::uint64_t sibling = 0;
        return m_unit->skipEntry(m_walker, entry, sibling);
    }
    DieAttributes& attributes = m_chain.start(*m_unit, offset);
    bool const isRead = attributes.read(m_walker, m_unit->forms(), m_unit->abbrevs(), entry);
    if (isRead) {
        m_unit->readDetails(m_chain, m_loader.search());
    }
    return isRead;
}

DieTreeWalk::Children DieTreeWalk::mergeOptions() {
    if (char const* const text = m_chain.text(DieAttributes::slot_Options)) {
        m_loader.viewOf(*m_unit).mergeOptions(text);
    }
    return Children::Enter;
}

/// Without the bit of functions, what lies in them is entered for the sake of variables.
bool DieTreeWalk::entersFunctions() const {
    return (m_isModern || m_unit->isFortran()) && (m_mask & symbol_kind_Data) != 0;
}

/// Those in functions are for who asks what lies there, but for Fortran, as ever.
bool DieTreeWalk::makesLabels() const {
    return (m_mask & symbol_kind_DataAlt) != 0 && (m_functionLevel == 0 || m_unit->isFortran());
}

/// A name that no unit has in full is the symbol table's, where it has the same stretch.
char const* DieTreeWalk::nameOf(unsigned long long start, unsigned long long end) {
    if (m_isModern && start < end && !m_chain.linkageName().place) {
        char const* const plain = m_chain.plainName().text;
        bool const isKnown = plain == nullptr || m_loader.mayRead(plain);
        char const* const symbol = isKnown ? m_loader.symbolNameOf(start, end, plain != nullptr ? plain : "") : nullptr;
        if (symbol != nullptr) {
            return symbol;
        }
    }
    return m_loader.reader().names().of(m_chain);
}

bool DieTreeWalk::accepts(unsigned long long start, unsigned long long end) const {
    return m_target.filter == nullptr || m_target.filter->accept(start, end);
}

/// A function's place is its own entry's: an origin tells of another one.
DieTreeWalk::Children DieTreeWalk::openFunction(symbol_kind_t kind, std::uint64_t offset) {
    DieAttributes const& own = m_chain.first();
    if (m_chain.isDeclaration()) {
        return Children::Skip;
    }
    Children const children = m_isModern || m_unit->isFortran() ? Children::Enter : Children::Skip;
    if (!own.hasPlace()) {
        return children; // an abstract one
    }
    if (!m_isModern && nameOf(0, 0) == nullptr) {
        return Children::Skip;
    }
    if (AttrValue const* const ranges = own.get(DieAttributes::slot_Ranges)) {
        open(k_toBeNamed, kind, offset, 0, 0);
        takeRanges(*ranges);
        nameFunction();
        return children;
    }
    unsigned long long low = 0;
    unsigned long long high = 0;
    if (!rangeOfEntry(own.get(DieAttributes::slot_LowPc), own.get(DieAttributes::slot_HighPc), low, high)) {
        return children;
    }
    bool const isAccepted = accepts(low, high);
    if (isAccepted && !m_unit->isDropped(low)) {
        open(k_toBeNamed, kind, offset, low, high);
        nameFunction();
    }
    return isAccepted || m_isModern ? children : Children::Skip;
}

/// Where a function stands tells what the symbol table calls it. One in several pieces begins with the first.
void DieTreeWalk::nameFunction() {
    if (m_opened.name == nullptr) {
        return;
    }
    bool const isWhole = m_opened.ranges.empty();
    char const* const name = isWhole ? nameOf(m_opened.start, m_opened.end)
                                     : nameOf(m_opened.ranges.front().first, m_opened.ranges.front().second);
    m_opened.name = name != nullptr ? shortened(name) : nullptr;
}

/// One range needs no scope of its own, unless the symbol's address is another: it goes by the base.
void DieTreeWalk::takeRanges(AttrValue const& list) {
    m_opened.start = readRanges(*m_unit, &list, nullptr, m_opened.ranges);
    leaveOutDropped();
    m_opened.end = m_opened.start;
    if (m_opened.ranges.size() == 1 && m_opened.ranges.front().first == m_opened.start) {
        m_opened.end = m_opened.ranges.front().second;
        m_opened.ranges.clear();
    } else if (m_opened.ranges.empty()) {
        m_opened.name = nullptr; // nowhere: a table has no place for it
    }
}

void DieTreeWalk::leaveOutDropped() {
    AddressPairs& ranges = m_opened.ranges;
    auto const isDropped = [&](auto const& range) { return m_unit->isDropped(range.first); };
    auto const kept = std::remove_if(ranges.begin(), ranges.end(), isDropped);
    if (kept == ranges.end()) {
        return;
    }
    ranges.erase(kept, ranges.end());
    auto const lowest = std::min_element(ranges.begin(), ranges.end());
    m_opened.start = lowest != ranges.end() ? lowest->first : 0;
}

DieTreeWalk::Children DieTreeWalk::openLabel(std::uint64_t offset) {
    char const* const name = m_chain.text(DieAttributes::slot_Name);
    AttrValue const* const low = m_chain.find(DieAttributes::slot_LowPc);
    bool const isDropped = low != nullptr && m_unit->isDropped(low->value);
    if (name != nullptr && !isDropped && (low == nullptr || accepts(low->value, low->value))) {
        unsigned long long const address = low != nullptr ? low->value : 0;
        open(name, symbol_kind_DataAlt, offset, address, address);
    }
    return Children::Enter;
}

DieTreeWalk::Children DieTreeWalk::openVariable(std::uint64_t offset) {
    AttrValue const* const location = m_chain.find(DieAttributes::slot_Location);
    std::uint64_t address = 0;
    if (location == nullptr || !isStaticLocation(*location, m_unit->forms(), address)) {
        return Children::Enter;
    }
    DwarfPlace const type = m_chain.target(DieAttributes::slot_Type);
    TypeInfo info{};
    bool const isSized = lookUpType(*m_unit, type, m_loader.search(), info);
    unsigned long long const end = address + (isSized ? info.size : 0);
    char const* const name = nameOf(address, end);
    if (end < address || !accepts(address, end) || name == nullptr || m_unit->isDropped(address)) {
        return Children::Enter;
    }
    open(name, symbol_kind_Data, offset, address, end);
    return Children::Enter;
}

/// Compilers of Fortran put an underscore behind the names of procedures.
char const* DieTreeWalk::shortened(char const* name) {
    if (!m_unit->isFortran() || !m_loader.mayRead(name)) {
        return name;
    }
    std::size_t const size = std::strlen(name);
    bool const isMarked = name[size - 1] == '_' && std::strcmp(name, "_BLNK_") != 0;
    return isMarked ? m_loader.keepShortened(name, size) : name;
}

void DieTreeWalk::open(char const* name, symbol_kind_t kind, std::uint64_t offset, unsigned long long start,
                       unsigned long long end) {
    m_opened.name = name;
    m_opened.token = m_loader.views().tokenOf({m_unit, offset});
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
                              opened.token);
    } else {
        addAsScope(opened);
    }
}

void DieTreeWalk::addAsScope(Opened const& opened) {
    IScopeMaker& maker = opened.isInline ? m_loader.inlineMaker() : m_loader;
    RangeRecord record(MergeSide{opened.name, opened.start, opened.end, false, opened.visibility, opened.kind});
    record.token = opened.token;
    SymMgrObjectPtr<Scope> const scope(maker.makeScope(record, m_target.parent));
    bool const isPlaced = !scope->ranges().empty();
    for (std::size_t i = 0; !isPlaced && i < opened.ranges.size(); ++i) {
        scope->addRange(opened.ranges[i].first, opened.ranges[i].second);
    }
    if (scope->ranges().empty()) {
        scope->addRange(opened.start, opened.end);
    }
    bool const isRejected =
        m_target.filter != nullptr && scope->hasSeveralRanges() && !m_target.filter->acceptScope(*scope);
    if (!isRejected) {
        m_target.table->addScope(scope.get());
    }
}

} // namespace ORV_3_30
