// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
// A variable by a stack address: a walk over a function's entries, and a cache of the answers.
#include "dwarf/orv_dwarf_stackvar.h"

#include "core/orv_trace.h"
#include "dwarf/orv_dildwarf.h"
#include "dwarf/orv_dwarf_members.h"
#include "dwarf/orv_dwarf_types.h"

#include <algorithm>
#include <cstring>

namespace ORV_3_30 {
namespace {

/// A program has new frames all the time. Beyond this many answers we begin anew.
constexpr std::size_t k_mostAnswers = std::size_t{1} << 17;
constexpr std::size_t k_mostBytes = std::size_t{1} << 24; ///< Of names.

bool isHeld(SymMgrObjectPtr<DWARFSymbol> const& symbol) {
    unsigned int count = 0;
    symbol->refCount(count);
    return count > 1;
}

} // namespace

bool StackVariableVisitor::visit(DwarfUnit& unit, AttrBindings& die) {
    if (die.tag() != DW_TAG_variable) {
        return true;
    }
    AttrValue const* const location = die.attribute(DieAttributes::slot_Location);
    if (location == nullptr) {
        return true;
    }
    std::uint64_t const address = locationIn(unit, *location, m_frame, m_loader.search());
    DwarfPlace const type = die.target(DieAttributes::slot_Type);
    TypeInfo info{0, {}, 0, false, false};
    bool const isSized = lookUpType(unit, type, m_loader.search(), info);
    std::uint64_t const size = isSized ? info.size : 1;
    if (address > m_targetAddress || m_targetAddress - address >= size) {
        return true;
    }
    char const* const name = die.name();
    if (die.isCut()) {
        return true; // nothing is kept of what is known by half
    }
    std::string text = name != nullptr ? name : "";
    if (isSized && info.structure) {
        appendMemberNames(info.structure, address, m_targetAddress, m_loader.search(), text);
    }
    MergeSide const symbol{"", 0, 0, false, symbol_visibility_Local, symbol_kind_Data};
    DWARFCompilationUnit& view = m_loader.viewOf(unit);
    m_resultSymbol = new DWARFSymbol(view, die.offset(), symbol, nullptr, view);
    m_resultSymbol->setName(text.c_str());
    m_isInteger = isSized && info.isInteger;
    return false;
}

// --- StackAnswers

StackAnswers::~StackAnswers() {
    forgetAll();
    for (SymMgrObjectPtr<DWARFSymbol> const& symbol : m_lent) {
        if (isHeld(symbol)) {
            symbol->leaveScope();
        }
    }
}

StackAnswers::Answer const* StackAnswers::find(IStackFrameContext& context, unsigned long long address) const {
    auto const frame = m_answers.find(frameOf(context));
    if (frame == m_answers.end()) {
        return nullptr;
    }
    auto const answer = frame->second.find(address);
    return answer != frame->second.end() ? &answer->second : nullptr;
}

StackAnswers::Answer const& StackAnswers::add(IStackFrameContext& context, unsigned long long address, Answer answer) {
    if (m_count >= k_mostAnswers || m_bytes >= k_mostBytes) {
        forgetAll();
    }
    std::map<unsigned long long, Answer>& answers = m_answers[frameOf(context)];
    auto const above = answers.upper_bound(address);
    auto const isSame = [&](Answer const& other) {
        return other.symbol->dieOffset() == answer.symbol->dieOffset() &&
               std::strcmp(other.symbol->name(), answer.symbol->name()) == 0;
    };
    if (above != answers.begin() && isSame(std::prev(above)->second)) {
        answer.symbol = std::prev(above)->second.symbol;
    } else if (above != answers.end() && isSame(above->second)) {
        answer.symbol = above->second.symbol;
    } else {
        m_bytes += std::strlen(answer.symbol->name());
    }
    ++m_count;
    return answers.insert_or_assign(address, std::move(answer)).first->second;
}

void StackAnswers::forgetAll() {
    m_lent.erase(std::remove_if(m_lent.begin(), m_lent.end(), [](auto const& symbol) { return !isHeld(symbol); }),
                 m_lent.end());
    for (auto const& [frame, answers] : m_answers) {
        for (auto const& [address, answer] : answers) {
            if (isHeld(answer.symbol)) {
                m_lent.push_back(answer.symbol);
            }
        }
    }
    m_answers.clear();
    m_count = 0;
    m_bytes = 0;
}

// --- The question

status_t DWARFDebugInfoLoader::findStackVariable(ISymbol* symbol, unsigned long long pc, unsigned long long address,
                                                 SymMgrObjectPtr<IStackFrameContext>& context,
                                                 SymMgrObjectPtr<ISymbol>& out, bool* isInteger) {
    if (!context) {
        return status_InvalidArg;
    }
    LockGuard answers(&m_stackLock);
    StackAnswers::Answer const* answer = m_stackAnswers.find(*context, address);
    if (answer == nullptr) {
        status_t const status = searchStack(symbol, pc, address, *context, answer);
        if (status != status_Ok) {
            return status;
        }
    }
    out = answer->symbol.get();
    if (isInteger != nullptr) {
        *isInteger = answer->isInteger;
    }
    return status_Ok;
}

status_t DWARFDebugInfoLoader::searchStack(ISymbol* symbol, unsigned long long pc, unsigned long long address,
                                           IStackFrameContext& context, StackAnswers::Answer const*& answer) {
    if (!m_hasDebugInfo) {
        return status_NoDebugInfo;
    }
    auto* const function = dynamic_cast<DWARFSymbol*>(symbol);
    auto* const scope = function != nullptr ? dynamic_cast<DWARFScope*>(function->scope()) : nullptr;
    if (scope == nullptr || &scope->unit().loader() != this) {
        return status_Fail;
    }
    LockGuard loads(scope->rootLoadLock()); // types and budgets are theirs
    refillSearch();
    DwarfUnit& unit = scope->unit().entries();
    DwarfWalker walker = unit.unitWalker();
    walker.seek(scope->dieOffset());
    AttrBindings die(m_search);
    die.readDie(unit, walker);
    if (die.tag() != DW_TAG_subprogram) {
        ORV_WARN("Expecting DW_TAG_subprogram, got " << die.tag());
        return status_Fail;
    }
    // Both as they stand: a high end that is a distance from low is not taken for one.
    unsigned long long const low = die.number(DieAttributes::slot_LowPc);
    unsigned long long const high = die.number(DieAttributes::slot_HighPc);
    if (pc < low || pc > high) {
        char const* const name = die.name();
        ORV_WARN("Address range did not match subprogram,  address:" << pc << " low: " << low << " high: " << high
                                                                     << " func: " << (name != nullptr ? name : ""));
        return status_Fail;
    }
    StackFrame frame{pc, context, 0};
    if (AttrValue const* const base = die.attribute(DieAttributes::slot_FrameBase)) {
        frame.base = locationIn(unit, *base, frame, m_search);
    }
    StackVariableVisitor visitor(*this, frame, address);
    if (die.getHasChildren() != 0) {
        visitEntries(unit, walker, VisitDepth::AllLevels, visitor, m_search);
    }
    if (!visitor.resultSymbol()) {
        return status_False;
    }
    answer = &m_stackAnswers.add(context, address, {visitor.resultSymbol(), visitor.isInteger()});
    return status_Ok;
}

} // namespace ORV_3_30
