#include "dwarf/orv_dwarf_scope.h"

#include "core/orv_trace.h"
#include "dwarf/orv_dildwarf.h"
#include "dwarf/orv_dwarf_merge.h"
#include "dwarf/orv_dwarf_walk.h"
#include "lines/orv_caller_lines.h"
#include "lines/orv_source.h"

namespace ORV_3_30 {
namespace {

std::uint64_t numberOf(AttrBindings& die, unsigned int attr) {
    AttrBinding const* const binding = die.attribute(attr);
    return binding != nullptr ? binding->value : 0;
}

} // namespace

// --- DeclLocation

std::unique_ptr<DeclLocation> DeclLocation::read(AttrBindings& die) {
    std::uint64_t const file = numberOf(die, DW_AT_decl_file);
    std::uint64_t const line = numberOf(die, DW_AT_decl_line);
    if (file == 0 || line == 0) {
        return nullptr;
    }
    // The number is one of the table of the unit that has it: an origin may stand in another one.
    return std::make_unique<DeclLocation>(DeclLocation{file, line, numberOf(die, DW_AT_decl_column),
                                                       numberOf(die, DW_AT_GNU_discriminator),
                                                       die.holderOf(DW_AT_decl_file)->unit()});
}

int DeclLocation::sourceFileId() const {
    DWARFLineResolver* const resolver = unit->loader()->lineResolver();
    return resolver != nullptr ? resolver->fileIdOfNumber(file, *unit) : -1;
}

// --- DWARFSymbol

DWARFSymbol::DWARFSymbol(DWARFCompilationUnit& unit, MergeSide const& symbol, Scope* scope,
                         std::unique_ptr<DeclLocation> declaration)
    : Symbol(unit.loader()->moduleLoader(), SymbolName::borrowed(symbol.name), symbol.firstStart, scope,
             symbol.visibility, symbol.kind, unit.id()),
      m_unit(unit), m_declaration(std::move(declaration)) {}

int DWARFSymbol::declaredFileId() {
    int id = m_declaredFileId.load(std::memory_order_relaxed);
    if (id == k_notLookedUp) {
        id = m_declaration != nullptr ? m_declaration->sourceFileId() : -1;
        m_declaredFileId.store(id, std::memory_order_relaxed);
    }
    return id;
}

status_t DWARFSymbol::sourceLine(SymMgrObjectPtr<ISourceLine>& out) {
    out = nullptr;
    if (owner() == nullptr || m_declaration == nullptr || declaredFileId() < 0) {
        return status_False;
    }
    SymMgrObjectPtr<ISourceLocation> const location(new SourceLocation(
        m_unit.loader()->lineResolver(),
        {compUnitId(), static_cast<unsigned int>(declaredFileId()), static_cast<unsigned int>(m_declaration->line),
         static_cast<unsigned int>(m_declaration->column), m_declaration->extra}));
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

DWARFScope::DWARFScope(IFileFormatLoader* loader, Scope* parent, SymMgrObjectPtr<AttrBindings> die,
                       std::uint64_t childOffset)
    : SymbolScope(loader, parent), m_die(std::move(die)), m_childOffset(childOffset) {}

status_t DWARFScope::loadKinds(unsigned int mask) {
    if (!m_die) {
        return status_NoDebugInfo;
    }
    if (m_die->getHasChildren() != 0) {
        DWARFCompilationUnit& unit = *m_die->unit();
        DieTreeWalk walk(*unit.loader(), {symbolTable(), nullptr, this});
        walk.walkChildren(unit, m_childOffset, mask);
    }
    return status_Ok;
}

unsigned int DWARFScope::mergeRule(MergeSide const& mine, MergeSide const& other, MergeNext const& next) {
    return dwarfMergeRule(mine, other, next);
}

void DWARFScope::merge(Scope& other, unsigned int flags, RangeRecord& /*record*/) {
    MergeSide side{};
    if (!other.mergeSideOf(side)) {
        return;
    }
    mergeSide(side, flags);
    if ((flags & merge_ReplaceEnd) != 0) {
        replaceRanges(other.ranges());
    }
}

void DWARFScope::mergeSide(MergeSide const& other, unsigned int flags) {
    if ((flags & merge_TakeName) != 0) {
        symbolImpl()->setName(other.name);
    }
    if ((flags & merge_TakeSymbolData) != 0) {
        symbolImpl()->setVisibility(other.visibility);
        symbolImpl()->setKind(other.kind);
    }
    if ((flags & merge_ReplaceEnd) != 0) {
        RangeList only;
        only.add(other.firstStart, other.lastEnd);
        replaceRanges(std::move(only));
    } else if ((flags & merge_ReplaceScope) != 0) {
        RangeList only;
        only.add(firstStart(), other.lastEnd);
        replaceRanges(std::move(only));
    }
}

DWARFScope* makeDwarfScope(DWARFCompilationUnit& unit, std::uint64_t dieOffset, MergeSide const& symbol,
                           Scope* parent) {
    SymMgrObjectPtr<AttrBindings> const die(new AttrBindings(&unit, nullptr));
    DwarfWalker walker = unit.sectionWalker();
    walker.seek(dieOffset);
    die->readDie(walker);
    auto scope = std::make_unique<DWARFScope>(unit.loader()->moduleLoader(), parent, die, walker.offset());
    scope->setSymbol(new DWARFSymbol(unit, symbol, scope.get(), DeclLocation::read(*die)));
    return scope.release();
}

} // namespace ORV_3_30
