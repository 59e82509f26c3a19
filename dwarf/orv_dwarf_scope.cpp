// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
// Symbols and scopes over entries: what an entry tells is read when it is asked for.
#include "dwarf/orv_dwarf_scope.h"

#include "core/orv_trace.h"
#include "dwarf/orv_dildwarf.h"
#include "dwarf/orv_dwarf_inline.h"
#include "dwarf/orv_dwarf_members.h"
#include "dwarf/orv_dwarf_symbols.h"
#include "dwarf/orv_dwarf_types.h"
#include "lines/orv_caller_lines.h"
#include "lines/orv_sourceline_impl.h"
#include "symbols/orv_symbolrange.h"
#include "symbols/orv_symboltable.h"

#include <array>
#include <mutex>

namespace ORV_3_30 {

// --- DeclLocation

bool DeclLocation::readDeclaration(DWARFCompilationUnit& unit, std::uint64_t dieOffset, DeclLocation& out) {
    DwarfUnit& entries = unit.entries();
    DwarfWalker walker = entries.sectionWalker();
    walker.seek(dieOffset);
    AbbrevEntry const* const entry = entries.abbrevs().find(walker.unsignedLeb());
    DieAttributes own;
    if (entry != nullptr) {
        own.read(walker, entries.forms(), entries.abbrevs(), *entry);
    }
    AttrValue const* const origin = own.origin();
    DeclPlace const inherited = origin != nullptr ? OriginTable::factsOf(entries, *origin).declared : DeclPlace();
    bool const isOwn = entry != nullptr && entry->tag != DW_TAG_inlined_subroutine;
    auto const number = [&](DieAttributes::Slot slot, std::uint64_t otherwise) {
        return isOwn && own.has(slot) ? own.number(slot) : otherwise;
    };
    // The number is one of the table of the unit that has it: an origin may stand in another one.
    bool const hasFile = isOwn && own.has(DieAttributes::slot_DeclFile);
    out = {hasFile ? entries.fileNumber(own.get(DieAttributes::slot_DeclFile)) : inherited.file,
           number(DieAttributes::slot_DeclLine, inherited.line),
           number(DieAttributes::slot_DeclColumn, inherited.column),
           number(DieAttributes::slot_Discriminator, inherited.discriminator),
           hasFile || inherited.unit == nullptr ? &unit : &unit.loader().viewOf(*inherited.unit)};
    return out.isKnown();
}

int DeclLocation::sourceFileId() const {
    DWARFLineResolver* const resolver = unit->loader().lineResolver();
    return resolver != nullptr ? resolver->fileIdOfNumber(file, *unit) : -1;
}

SourceLocation* DeclLocation::locationIn(int fileId, unsigned long long unitKey) const {
    return new SourceLocation(unit->loader().lineResolver(),
                              {unitKey, static_cast<unsigned int>(fileId), static_cast<unsigned int>(line),
                               static_cast<unsigned int>(column), extra});
}

// --- DWARFSymbol

DWARFSymbol::DWARFSymbol(DWARFCompilationUnit& unit, std::uint64_t dieOffset, MergeSide const& symbol, Scope* scope,
                         DWARFCompilationUnit& shownUnit)
    : Symbol(unit.loader().moduleLoader(), SymbolName::borrowed(symbol.name), symbol.firstStart, scope,
             symbol.visibility, symbol.kind, shownUnit.id()),
      m_unit(unit), m_shownUnit(shownUnit), m_dieOffset(dieOffset) {}

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
    if (owner() == nullptr) {
        return status_False;
    }
    SymMgrObjectPtr<ISourceLocation> const& location = m_declaration.get([this] {
        DeclLocation declaration{};
        bool const isKnown = declaredFileId() >= 0 && DeclLocation::readDeclaration(m_unit, m_dieOffset, declaration);
        SymMgrObjectPtr<ISourceLocation> const made(isKnown ? declaration.locationIn(declaredFileId(), compUnitId())
                                                            : nullptr);
        return std::make_unique<SymMgrObjectPtr<ISourceLocation>>(made);
    });
    if (!location) {
        return status_False;
    }
    out = new SourceLine(owner(), location.get(), addressValue(), addressValue());
    return status_Ok;
}

status_t DWARFSymbol::compUnitDetails(ICompUnitDetails*& out) {
    if (owner() == nullptr) {
        return status_False;
    }
    out = &m_shownUnit;
    return status_Ok;
}

int DWARFSymbol::fileIdAtAddress() {
    int id = m_fileIdAtAddress.load(std::memory_order_relaxed);
    if (id != k_notLookedUp) {
        return id;
    }
    // What a question for the line there comes to while no symbol over the address has lines of its own:
    // to ask them too would lead from one to the next, and back.
    DWARFLineResolver& resolver = *m_unit.loader().lineResolver();
    auto const row = resolver.table().latestAt({compUnitId(), k_allFiles, addressValue(), addressValue()});
    bool const hasFile = row && ORV_ASSERT(resolver.sourceFileById(row->fileId) != nullptr, "srcFile != 0L");
    id = hasFile ? static_cast<int>(row->fileId) : -1;
    m_fileIdAtAddress.store(id, std::memory_order_relaxed);
    return id;
}

bool DWARFSymbol::linesOfFile(SymMgrObjectPtr<IIterator<SymMgrObjectPtr<ISourceLine>>>& out, int fileId,
                              unsigned long long start, unsigned long long end) {
    if (fileId < 0) {
        return false;
    }
    out = new SymbolSourceLineIterator(*scope(), m_unit.loader().lineResolver()->table(),
                                       {compUnitId(), static_cast<unsigned int>(fileId), start, end});
    return static_cast<bool>(out->current());
}

void DWARFSymbol::sourceLinesIn(SymMgrObjectPtr<IIterator<SymMgrObjectPtr<ISourceLine>>>& out, unsigned long long start,
                                unsigned long long end) {
    out = nullptr;
    if (owner() == nullptr || scope() == nullptr || m_unit.loader().lineResolver() == nullptr) {
        return;
    }
    bool const isFound = !scope()->ranges().empty() && (linesOfFile(out, declaredFileId(), start, end) ||
                                                        linesOfFile(out, fileIdAtAddress(), start, end));
    if (!isFound) {
        out = nullptr;
    }
}

RowAt const* DWARFSymbol::latestLineAt(RowsAtAddress const& rows) {
    if (owner() == nullptr || scope() == nullptr || m_unit.loader().lineResolver() == nullptr ||
        !scope()->holds(rows.address())) {
        return nullptr;
    }
    auto const find = [&](int fileId) {
        return fileId >= 0 ? rows.latest(compUnitId(), static_cast<unsigned int>(fileId)) : nullptr;
    };
    RowAt const* const declared = find(declaredFileId());
    return declared != nullptr ? declared : find(fileIdAtAddress());
}

void DWARFSymbol::sourceLines(SymMgrObjectPtr<IIterator<SymMgrObjectPtr<ISourceLine>>>& out) {
    if (owner() != nullptr && m_unit.loader().lineResolver() != nullptr) {
        m_unit.loader().lineResolver()->ensureLines(nullptr);
    }
    sourceLinesIn(out, 0, ~0ULL);
}

void DWARFSymbol::sourceLineByAddress(SymMgrObjectPtr<ISourceLine>& out, IAddress* address) {
    out = nullptr;
    if (address == nullptr || owner() == nullptr || m_unit.loader().lineResolver() == nullptr) {
        return;
    }
    SymMgrObjectPtr<ISourceLocation> location;
    m_unit.loader().lineResolver()->sourceLocationByAddress(location, address->pseudoAddr(), compUnitId(), scope(),
                                                            nullptr);
    if (location) {
        out = new SourceLine(owner(), location.get(), address->pseudoAddr(), address->pseudoAddr());
    }
}

// --- DWARFScope

DWARFScope::DWARFScope(DWARFCompilationUnit& unit, std::uint64_t dieOffset, Scope* parent,
                       DWARFCompilationUnit& shownUnit)
    : SymbolScope(unit.loader().moduleLoader(), parent), m_unit(unit), m_shownUnit(shownUnit), m_dieOffset(dieOffset) {}

/// Read without the load lock: threads that ask for different functions read at the same time.
InlineTree const& DWARFScope::tree() {
    if (m_treeAround != nullptr) {
        return *m_treeAround;
    }
    static auto& locks = *new std::array<std::mutex, 64>; // never destroyed, as a client may go on until the very end
    std::mutex& lock = locks[reinterpret_cast<std::uintptr_t>(this) / sizeof(*this) % locks.size()];
    return m_ownTree.get(lock,
                         [this] { return std::make_unique<InlineTree>(m_unit.entries(), m_dieOffset, firstStart()); });
}

bool DWARFScope::innermostInlinedAt(unsigned long long address, InlinedCall& out) {
    return describe(tree().bodyAt(address), address, out);
}

bool DWARFScope::inlinedAround(InlinedCall const& inner, unsigned long long address, InlinedCall& out) {
    InlineTree::Id const around = static_cast<InlineTree::Body const*>(inner.token)->around;
    return around != InlineTree::k_none && describe(&tree().body(around), address, out);
}

bool DWARFScope::describe(InlineTree::Body const* body, unsigned long long address, InlinedCall& out) {
    if (body == nullptr) {
        return false;
    }
    out = {body->name, body->address, body->address, body};
    RangeList::Range const* const last = body->ranges.floor(address);
    if (last != nullptr && address < last->end) {
        out.start = last->start;
        out.end = last->end;
        return true;
    }
    // One that was added in front of the others may reach over them.
    for (std::size_t i = body->ranges.firstFrom(address); i < body->ranges.size(); ++i) {
        RangeList::Range const& range = body->ranges[i];
        if (range.start > address) {
            break;
        }
        if (address < range.end) {
            out.start = range.start;
            out.end = range.end;
        }
    }
    return true;
}

bool DWARFScope::callOf(InlinedCall const& call, CallPlace& out) {
    DeclLocation const place = DeclLocation::ofCall(m_unit, *static_cast<InlineTree::Body const*>(call.token));
    int const id = place.isKnown() ? place.sourceFileId() : -1;
    if (id < 0) {
        return false;
    }
    out = {m_unit.loader().lineResolver()->sourceFileById(static_cast<unsigned int>(id)),
           static_cast<unsigned int>(place.line), static_cast<unsigned int>(place.column), place.extra};
    return out.file != nullptr;
}

status_t DWARFScope::loadKinds(unsigned int mask) {
    DwarfWalker walker = m_unit.entries().unitWalker();
    walker.seek(m_dieOffset);
    AbbrevEntry const* const entry = m_unit.entries().abbrevs().find(walker.unsignedLeb());
    if (entry == nullptr) {
        return status_NoDebugInfo;
    }
    m_unit.loader().refillSearch();
    if ((mask & symbol_kind_Data) != 0 && (entry->tag == DW_TAG_variable || entry->tag == DW_TAG_member)) {
        return loadMembers();
    }
    if (entry->hasChildren == 0) {
        return status_Ok;
    }
    DieTreeWalk walk(m_unit.loader(), {nullptr, nullptr, this});
    if (entry->tag == DW_TAG_label || entry->tag == DW_TAG_variable) {
        // Labels may lie in labels: what is kept would be so at each level.
        walk.walkLevel(*this, InlineTree(m_unit.entries(), m_dieOffset, firstStart()), InlineTree::k_root, mask);
    } else {
        walk.walkLevel(*this, tree(), m_level, mask);
    }
    return status_Ok;
}

status_t DWARFScope::loadMembers() {
    DWARFDebugInfoLoader& loader = m_unit.loader();
    DwarfUnit& unit = m_unit.entries();
    DieChain chain(loader.search());
    bool const isRead = unit.readEntry(m_dieOffset, chain.start(unit, m_dieOffset));
    DwarfPlace const type = isRead ? chain.target(DieAttributes::slot_Type) : DwarfPlace();
    TypeInfo info{};
    if (!lookUpType(unit, type, loader.search(), info) || !leadsToMembers(info.tag)) {
        return status_Ok;
    }
    for (auto const& [start, member] : membersOf(info.structure, firstStart(), lastEnd(), loader.search())) {
        ownTable().addSymbol(loader, {member.name, start, member.end, false, symbol_visibility_Local, symbol_kind_Data},
                             loader.views().tokenOf(member.place));
    }
    return status_Ok;
}

IScopeMaker& DWARFScope::maker() { return m_unit.loader(); }

void DWARFScope::takeIn(MergeSide const& other, unsigned int flags, Scope* whole) {
    if ((flags & merge_TakeName) != 0 && whole != nullptr) {
        symbolImpl()->setName(other.name);
    } else if ((flags & merge_TakeName) != 0) {
        symbolImpl()->borrowName(other.name); // a loader's, which stays
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

DWARFScope* DWARFScope::make(DWARFDebugInfoLoader& loader, RangeRecord const& record, Scope* parent) {
    DwarfPlace const place = loader.views().placeOf(record.token);
    DWARFCompilationUnit& unit = loader.viewOf(*place.unit);
    // A member may stand in a unit that clients do not know: theirs is the one of the variable.
    auto const* const variable = place.unit->isPartial() ? dynamic_cast<DWARFScope*>(parent) : nullptr;
    std::unique_ptr<DWARFScope> scope(
        new DWARFScope(unit, place.offset, parent, variable != nullptr ? variable->shownUnit() : unit));
    scope->setSymbol(new DWARFSymbol(unit, place.offset, record.side(), scope.get(), scope->shownUnit()));
    return scope.release();
}

DWARFScope* DWARFScope::makeBody(RangeRecord const& record) {
    InlineTree const& around = tree();
    InlineTree::Node const& node = around.node(static_cast<InlineTree::Id>(record.token));
    InlineTree::Body const& body = around.body(node.body);
    std::unique_ptr<DWARFScope> scope(new DWARFInlineInstanceScope(m_unit, node.dieOffset, this, body));
    scope->setSymbol(new DWARFSymbol(m_unit, node.dieOffset, record.side(), scope.get(), m_unit));
    if (body.ranges.size() > 1) {
        scope->setRanges(body.ranges);
    } // otherwise the record's stretch is the one: it may have moved
    scope->m_treeAround = &around;
    scope->m_level = static_cast<InlineTree::Id>(record.token);
    return scope.release();
}

} // namespace ORV_3_30
