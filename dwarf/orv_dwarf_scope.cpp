// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
#include "dwarf/orv_dwarf_scope.h"

#include "core/orv_trace.h"
#include "dwarf/orv_dildwarf.h"
#include "dwarf/orv_dwarf_inline.h"
#include "dwarf/orv_dwarf_inline_index.h"
#include "dwarf/orv_dwarf_members.h"
#include "dwarf/orv_dwarf_types.h"
#include "dwarf/orv_dwarf_walk.h"
#include "lines/orv_caller_lines.h"
#include "lines/orv_source.h"
#include "symbols/orv_symbolrange.h"
#include "symbols/orv_symboltable.h"

#include <array>
#include <mutex>

namespace ORV_3_30 {
namespace {

std::uint64_t numberOf(AttrBindings& die, unsigned int attr) {
    AttrBinding const* const binding = die.attribute(attr);
    return binding != nullptr ? binding->value : 0;
}

} // namespace

// --- DeclLocation

bool DeclLocation::readDeclaration(DWARFCompilationUnit& unit, std::uint64_t dieOffset, DeclLocation& out) {
    DwarfWalker walker = unit.sectionWalker();
    walker.seek(dieOffset);
    AttrBindings entry(&unit, nullptr);
    entry.readDie(walker);
    AttrBindings* const die = entry.tag() == DW_TAG_inlined_subroutine ? entry.resolveOrigin() : &entry;
    if (die == nullptr || numberOf(*die, DW_AT_decl_file) == 0 || numberOf(*die, DW_AT_decl_line) == 0) {
        return false;
    }
    // The number is one of the table of the unit that has it: an origin may stand in another one.
    out = {numberOf(*die, DW_AT_decl_file), numberOf(*die, DW_AT_decl_line), numberOf(*die, DW_AT_decl_column),
           numberOf(*die, DW_AT_GNU_discriminator), die->holderOf(DW_AT_decl_file)->unit()};
    return true;
}

bool DeclLocation::readCall(DWARFCompilationUnit& unit, std::uint64_t dieOffset, DeclLocation& out) {
    DieAttributes attributes;
    if (!unit.readEntry(dieOffset, attributes)) {
        return false;
    }
    out = {attributes.number(DieAttributes::slot_CallFile), attributes.number(DieAttributes::slot_CallLine),
           attributes.number(DieAttributes::slot_CallColumn), attributes.number(DieAttributes::slot_Discriminator),
           &unit};
    return out.file != 0 && out.line != 0;
}

int DeclLocation::sourceFileId() const {
    DWARFLineResolver* const resolver = unit->loader()->lineResolver();
    return resolver != nullptr ? resolver->fileIdOfNumber(file, *unit) : -1;
}

SourceLocation* DeclLocation::locationIn(int fileId, unsigned long long unitKey) const {
    return new SourceLocation(unit->loader()->lineResolver(),
                              {unitKey, static_cast<unsigned int>(fileId), static_cast<unsigned int>(line),
                               static_cast<unsigned int>(column), extra});
}

// --- DWARFSymbol

DWARFSymbol::DWARFSymbol(DWARFCompilationUnit& unit, std::uint64_t dieOffset, MergeSide const& symbol, Scope* scope)
    : Symbol(unit.loader()->moduleLoader(), SymbolName::borrowed(symbol.name), symbol.firstStart, scope,
             symbol.visibility, symbol.kind, unit.id()),
      m_unit(unit), m_dieOffset(dieOffset) {}

int DWARFSymbol::declaredFileId() {
    int id = m_declaredFileId.load(std::memory_order_relaxed);
    if (id == k_notLookedUp) {
        DeclLocation declaration{};
        id = DeclLocation::readDeclaration(m_unit, m_dieOffset, declaration) ? declaration.sourceFileId() : -1;
        m_declaredFileId.store(id, std::memory_order_relaxed);
    }
    return id;
}

status_t DWARFSymbol::sourceLine(SymMgrObjectPtr<ISourceLine>& out) {
    out = nullptr;
    DeclLocation declaration{};
    if (owner() == nullptr || declaredFileId() < 0 ||
        !DeclLocation::readDeclaration(m_unit, m_dieOffset, declaration)) {
        return status_False;
    }
    SymMgrObjectPtr<ISourceLocation> const location(declaration.locationIn(declaredFileId(), compUnitId()));
    out = new SourceLine(owner(), location.get(), addressValue(), addressValue());
    return status_Ok;
}

status_t DWARFSymbol::compUnitDetails(ICompUnitDetails*& out) {
    if (owner() == nullptr) {
        return status_False;
    }
    out = &m_unit;
    return status_Ok;
}

int DWARFSymbol::fileIdAtAddress() {
    int id = m_fileIdAtAddress.load(std::memory_order_relaxed);
    if (id != k_notLookedUp) {
        return id;
    }
    // What a question for the line there comes to while no symbol over the address has lines of its own:
    // to ask them too would lead from one to the next, and back.
    SrcLocator row{};
    unsigned long long unit = 0;
    DWARFLineResolver& resolver = *m_unit.loader()->lineResolver();
    bool const isFound =
        resolver.table().latestAt({compUnitId(), k_allFiles, addressValue(), addressValue()}, row, unit);
    bool const hasFile = isFound && ORV_ASSERT(resolver.sourceFileById(row.fileId) != nullptr, "srcFile != 0L");
    id = hasFile ? static_cast<int>(row.fileId) : -1;
    m_fileIdAtAddress.store(id, std::memory_order_relaxed);
    return id;
}

bool DWARFSymbol::linesOfFile(SymMgrObjectPtr<IIterator<SymMgrObjectPtr<ISourceLine>>>& out, int fileId,
                              unsigned long long start, unsigned long long end) {
    if (fileId < 0) {
        return false;
    }
    out = new SymbolSourceLineIterator(*scope(), m_unit.loader()->lineResolver()->table(),
                                       {compUnitId(), static_cast<unsigned int>(fileId), start, end});
    return static_cast<bool>(out->current());
}

void DWARFSymbol::sourceLinesIn(SymMgrObjectPtr<IIterator<SymMgrObjectPtr<ISourceLine>>>& out, unsigned long long start,
                                unsigned long long end) {
    out = nullptr;
    if (owner() == nullptr || scope() == nullptr || m_unit.loader()->lineResolver() == nullptr) {
        return;
    }
    bool const isFound = !scope()->ranges().empty() && (linesOfFile(out, declaredFileId(), start, end) ||
                                                        linesOfFile(out, fileIdAtAddress(), start, end));
    if (!isFound) {
        out = nullptr;
    }
}

bool DWARFSymbol::latestLineAt(unsigned long long address, SrcLocator& row) {
    if (owner() == nullptr || scope() == nullptr || m_unit.loader()->lineResolver() == nullptr) {
        return false;
    }
    LineTable const& table = m_unit.loader()->lineResolver()->table();
    auto const find = [&](int fileId) {
        unsigned long long unit = 0;
        return fileId >= 0 &&
               table.latestAt({compUnitId(), static_cast<unsigned int>(fileId), address, address}, row, unit);
    };
    return scope()->holds(address) && (find(declaredFileId()) || find(fileIdAtAddress()));
}

void DWARFSymbol::sourceLines(SymMgrObjectPtr<IIterator<SymMgrObjectPtr<ISourceLine>>>& out) {
    if (owner() != nullptr && m_unit.loader()->lineResolver() != nullptr) {
        m_unit.loader()->lineResolver()->ensureLines(nullptr);
    }
    sourceLinesIn(out, 0, ~0ULL);
}

void DWARFSymbol::sourceLineByAddress(SymMgrObjectPtr<ISourceLine>& out, IAddress* address) {
    out = nullptr;
    if (address == nullptr || owner() == nullptr || m_unit.loader()->lineResolver() == nullptr) {
        return;
    }
    SymMgrObjectPtr<ISourceLocation> location;
    m_unit.loader()->lineResolver()->sourceLocationByAddress(location, address->pseudoAddr(), compUnitId(), scope(),
                                                             nullptr);
    if (location) {
        out = new SourceLine(owner(), location.get(), address->pseudoAddr(), address->pseudoAddr());
    }
}

// --- DWARFScope

DWARFScope::DWARFScope(DWARFCompilationUnit& unit, std::uint64_t dieOffset, Scope* parent)
    : SymbolScope(unit.loader()->moduleLoader(), parent), m_unit(unit), m_dieOffset(dieOffset) {}

DWARFScope::~DWARFScope() {
    if (m_body == InlineIndex::k_root) {
        delete m_index.load();
    }
}

void DWARFScope::useIndex(InlineIndex& index, std::uint32_t body) {
    m_body = body;
    m_index.store(&index, std::memory_order_release);
}

/// Null for a scope that has none.
InlineIndex* DWARFScope::inlineIndex() {
    InlineIndex* index = m_index.load(std::memory_order_acquire);
    if (index != nullptr || m_hasNoIndex.load(std::memory_order_acquire)) {
        return index;
    }
    // No load: threads that ask for different functions read at the same time.
    static auto& locks = *new std::array<std::mutex, 64>; // never destroyed, as a client may go on until the very end
    std::lock_guard<std::mutex> const guard(
        locks[reinterpret_cast<std::uintptr_t>(this) / sizeof(*this) % locks.size()]);
    index = m_index.load(std::memory_order_acquire);
    if (index == nullptr && !m_hasNoIndex) {
        m_unit.loader()->refillScopeBudgets();
        index = InlineIndex::read(*this).release();
        m_index.store(index, std::memory_order_release);
        m_hasNoIndex.store(index == nullptr, std::memory_order_release);
    }
    return index;
}

DWARFScope* DWARFScope::indexedChild(std::uint64_t dieOffset) {
    InlineIndex* const index = m_isStepped ? nullptr : m_index.load(std::memory_order_acquire);
    InlineIndex::BodyId const body =
        index != nullptr && index->isPlain(m_body) ? index->bodyAt(m_body, dieOffset) : InlineIndex::k_none;
    return body != InlineIndex::k_none ? index->scopeOf(body, this) : nullptr;
}

std::uint64_t DWARFScope::endOfBody(std::uint64_t dieOffset) const {
    InlineIndex const* const index = m_index.load(std::memory_order_acquire);
    InlineIndex::BodyId const body = index != nullptr ? index->bodyAt(m_body, dieOffset) : InlineIndex::k_none;
    return body != InlineIndex::k_none ? index->childrenEnd(body) : 0;
}

void DWARFScope::lendIndex(DWARFScope& child) {
    InlineIndex* const index = m_index.load(std::memory_order_acquire);
    InlineIndex::BodyId const body = index != nullptr ? index->bodyAt(m_body, child.dieOffset()) : InlineIndex::k_none;
    if (body != InlineIndex::k_none) {
        child.useIndex(*index, body);
    } else if (m_hasNoIndex) {
        child.m_hasNoIndex = true; // it would be as long in reading, and come to the same
    }
}

/// The index, if it gives what the table would: for bodies that were asked for in the first place, at a plain level.
InlineIndex* DWARFScope::answeringIndex(symbol_kind_t mask, ISymbolChooser* resolver) {
    if (resolver != nullptr || (mask & symbol_kind_Function) == 0 || m_isStepped) {
        return nullptr;
    }
    InlineIndex* const index = inlineIndex();
    if (index == nullptr || !index->isPlain(m_body)) {
        return nullptr;
    }
    unsigned int first = m_firstKinds.load(std::memory_order_relaxed);
    if (first == 0 && m_firstKinds.compare_exchange_strong(first, mask)) {
        first = mask;
    }
    return (mask & ~first) == 0 && (first & symbol_kind_Function) != 0 ? index : nullptr;
}

status_t DWARFScope::symbolRangeByAddress(SymMgrObjectPtr<ISymbolRange>& out, unsigned long long address,
                                          symbol_kind_t mask, ISymbolChooser* resolver) {
    InlineIndex* const index = answeringIndex(mask, resolver);
    if (index == nullptr) {
        return Scope::symbolRangeByAddress(out, address, mask, resolver);
    }
    InlineIndex::Hit hit{};
    out = index->find(m_body, address, hit)
              ? new SymbolRange(hit.start, hit.end, index->scopeOf(hit.body, this), nullptr)
              : nullptr;
    return out ? status_Ok : status_False;
}

status_t DWARFScope::symbolRanges(SymMgrObjectPtr<SymbolRangeIterator>& out, unsigned long long start,
                                  unsigned long long end, symbol_kind_t mask) {
    // Without a mask the kinds count that somebody has asked for.
    return Scope::symbolRanges(out, start, end,
                               mask != 0 ? mask : static_cast<symbol_kind_t>(loadedKinds() | m_firstKinds));
}

status_t DWARFScope::ensureKinds(unsigned int mask) {
    if ((mask & ~loadedKinds().load(std::memory_order_acquire)) == 0) {
        return status_Ok;
    }
    LockGuard guard(rootLoadLock());
    // What the index has answered counts as loaded in one step.
    unsigned int first = 0;
    if (!m_firstKinds.compare_exchange_strong(first, mask) && loadedKinds() == 0) {
        Scope::ensureKinds(first);
    }
    if ((mask & ~m_firstKinds) != 0) {
        m_isStepped = true;
    }
    return Scope::ensureKinds(mask);
}

status_t DWARFScope::loadKinds(unsigned int mask) {
    inlineIndex(); // ahead of the table, so that both have the same scopes
    DwarfWalker walker = m_unit.unitWalker();
    walker.seek(m_dieOffset);
    AbbrevEntry const* const entry = m_unit.abbrevs().find(walker.unsignedLeb());
    if (entry == nullptr) {
        return status_NoDebugInfo;
    }
    if ((mask & symbol_kind_Data) != 0 && (entry->tag == DW_TAG_variable || entry->tag == DW_TAG_member)) {
        return loadMembers();
    }
    if (entry->hasChildren != 0) {
        std::uint64_t sibling = 0;
        m_unit.loader()->skipEntry(walker, m_unit, *entry, sibling);
        DieTreeWalk walk(*m_unit.loader(), {nullptr, nullptr, this});
        walk.walkChildren(*this, walker.offset(), mask);
    }
    return status_Ok;
}

status_t DWARFScope::loadMembers() {
    m_unit.loader()->refillScopeBudgets();
    DieChain chain;
    DWARFCompilationUnit* unit = &m_unit;
    AttrValue const* const type = m_unit.readEntry(m_dieOffset, chain.start(m_unit, m_dieOffset))
                                      ? chain.find(DieAttributes::slot_Type, unit)
                                      : nullptr;
    TypeInfo info{};
    if (type == nullptr || !lookUpType(*unit, type->value, info) || !leadsToMembers(info.tag)) {
        return status_Ok;
    }
    for (auto const& [start, member] : membersOf(*unit, info.structOffset, firstStart(), lastEnd())) {
        ownTable().addSymbol(*m_unit.loader(),
                             {member.name, start, member.end, false, symbol_visibility_Local, symbol_kind_Data},
                             member.dieOffset);
    }
    return status_Ok;
}

IScopeMaker& DWARFScope::maker() { return *m_unit.loader(); }

void DWARFScope::takeIn(MergeSide const& other, unsigned int flags, Scope* whole) {
    if ((flags & merge_TakeName) != 0) {
        symbolImpl()->setName(other.name);
    }
    if ((flags & merge_TakeSymbolData) != 0) {
        symbolImpl()->setVisibility(other.visibility);
        symbolImpl()->setKind(other.kind);
    }
    if ((flags & merge_ReplaceEnd) != 0 && whole != nullptr) {
        replaceRanges(whole->ranges());
    } else if ((flags & (merge_ReplaceEnd | merge_ReplaceScope)) != 0) {
        RangeList only;
        only.add(firstStart(), other.lastEnd);
        replaceRanges(std::move(only));
    }
}

DWARFScope* childScope(DWARFCompilationUnit& unit, std::uint64_t dieOffset, MergeSide const& symbol, Scope* parent) {
    auto* const around = dynamic_cast<DWARFScope*>(parent);
    DWARFScope* const indexed = around != nullptr ? around->indexedChild(dieOffset) : nullptr;
    if (indexed != nullptr) {
        return indexed;
    }
    DWARFScope* const made = makeDwarfScope(unit, dieOffset, symbol, parent);
    if (around != nullptr) {
        around->lendIndex(*made);
    }
    return made;
}

DWARFScope* makeDwarfScope(DWARFCompilationUnit& unit, std::uint64_t dieOffset, MergeSide const& symbol,
                           Scope* parent) {
    DwarfWalker walker = unit.unitWalker();
    walker.seek(dieOffset);
    AbbrevEntry const* const entry = unit.abbrevs().find(walker.unsignedLeb());
    bool const isInline = entry != nullptr && entry->tag == DW_TAG_inlined_subroutine;
    std::unique_ptr<DWARFScope> scope(isInline ? new DWARFInlineInstanceScope(unit, dieOffset, parent)
                                               : new DWARFScope(unit, dieOffset, parent));
    scope->setSymbol(new DWARFSymbol(unit, dieOffset, symbol, scope.get()));
    return scope.release();
}

} // namespace ORV_3_30
