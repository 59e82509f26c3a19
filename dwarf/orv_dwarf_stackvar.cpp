// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
// A variable by a stack address: a walk over a function's entries, and a cache of the answers.
#include "dwarf/orv_dwarf_stackvar.h"

#include "core/orv_trace.h"
#include "dwarf/orv_dildwarf.h"
#include "dwarf/orv_dwarf_members.h"
#include "dwarf/orv_dwarf_ranges.h"
#include "dwarf/orv_dwarf_types.h"

#include <algorithm>
#include <cstring>

namespace ORV_3_30 {
namespace {

/// A program has new frames all the time. Beyond this many answers we begin anew.
constexpr std::size_t k_mostAnswers = std::size_t{1} << 17;
constexpr std::size_t k_mostBytes = std::size_t{1} << 24; ///< Of names.

/// An entry without a place is where the one around it is.
bool holdsPc(DwarfUnit& unit, AttrBindings& die, unsigned long long pc, Budget& search) {
    AttrValue const* const low = die.attribute(DieAttributes::slot_LowPc, true);
    AttrValue const* const high = die.attribute(DieAttributes::slot_HighPc, true);
    AttrValue const* const list = die.attribute(DieAttributes::slot_Ranges, true);
    unsigned long long start = 0;
    unsigned long long end = 0;
    if (high != nullptr || list == nullptr) {
        return high == nullptr || (rangeOfEntry(low, high, start, end) && start <= pc && pc < end);
    }
    AddressPairs pairs;
    readRanges(unit, list, nullptr, pairs, search);
    return std::any_of(pairs.begin(), pairs.end(),
                       [&](auto const& pair) { return pair.first <= pc && pc < pair.second; });
}

/// True if pc lies in the function. Both ends count as inside, which keeps the place that a last call returns to.
bool isOfFunction(DwarfUnit& unit, AttrBindings& die, unsigned long long pc, Budget& search) {
    // The classic reading takes both as they stand: a high end that is a distance from low is not taken for one.
    unsigned long long low = die.number(DieAttributes::slot_LowPc);
    unsigned long long high = die.number(DieAttributes::slot_HighPc);
    if (unit.reader().isModern()) {
        rangeOfEntry(die.attribute(DieAttributes::slot_LowPc), die.attribute(DieAttributes::slot_HighPc), low, high);
    }
    bool const isInside = pc >= low && pc <= high;
    bool const isScattered = unit.reader().isModern() && die.attribute(DieAttributes::slot_HighPc, true) == nullptr &&
                             die.attribute(DieAttributes::slot_Ranges, true) != nullptr;
    if (isInside || (isScattered && holdsPc(unit, die, pc, search))) {
        return true;
    }
    char const* const name = die.name();
    ORV_WARN("Address range did not match subprogram,  address:" << pc << " low: " << low << " high: " << high
                                                                 << " func: " << (name != nullptr ? name : ""));
    return false;
}

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
    std::uint64_t address = 0;
    if (!m_frame.placeOf(unit, *location, address)) {
        return true;
    }
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

bool StackVariableVisitor::enters(DwarfUnit& unit, AttrBindings& die) {
    if (!m_frame.isModern()) {
        return true;
    }
    switch (die.tag()) {
    case DW_TAG_subprogram: return false;
    case DW_TAG_lexical_block:
    case DW_TAG_try_block:
    case DW_TAG_inlined_subroutine: return holdsPc(unit, die, m_frame.pc(), m_frame.lookups());
    default: return true;
    }
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

StackAnswers::Answer const* StackAnswers::find(Frame const& frame, unsigned long long address) const {
    auto const answers = m_answers.find(frame);
    if (answers == m_answers.end()) {
        return nullptr;
    }
    auto const answer = answers->second.find(address);
    return answer != answers->second.end() ? &answer->second : nullptr;
}

StackAnswers::Answer const& StackAnswers::add(Frame const& frame, unsigned long long address, Answer answer) {
    if (m_count >= k_mostAnswers || m_bytes >= k_mostBytes) {
        forgetAll();
    }
    std::map<unsigned long long, Answer>& answers = m_answers[frame];
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
    StackAnswers::Frame const frame{context->getRegister(0), context->getRegister(1), m_reader.isModern() ? pc : 0};
    StackQuestion const question{symbol, pc, address, *context, frame};
    bool wantsCallFrames = false;
    status_t const status = askStack(question, out, isInteger, wantsCallFrames);
    if (!wantsCallFrames) {
        return status;
    }
    m_reader.callFrames(); // under no lock
    return askStack(question, out, isInteger, wantsCallFrames);
}

status_t DWARFDebugInfoLoader::askStack(StackQuestion const& question, SymMgrObjectPtr<ISymbol>& out, bool* isInteger,
                                        bool& wantsCallFrames) {
    LockGuard answers(&m_stackLock);
    StackAnswers::Answer const* answer = m_stackAnswers.find(question.frame, question.address);
    if (answer == nullptr) {
        status_t const status = searchStack(question, answer, wantsCallFrames);
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

status_t DWARFDebugInfoLoader::searchStack(StackQuestion const& question, StackAnswers::Answer const*& answer,
                                           bool& wantsCallFrames) {
    if (!m_hasDebugInfo) {
        return status_NoDebugInfo;
    }
    auto* const function = dynamic_cast<DWARFSymbol*>(question.symbol);
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
    if (!isOfFunction(unit, die, question.pc, m_search)) {
        return status_Fail;
    }
    StackFrame frame(unit, question.pc, question.context, m_search);
    frame.setBase(die.attribute(DieAttributes::slot_FrameBase));
    StackVariableVisitor visitor(*this, frame, question.address);
    if (die.getHasChildren() != 0 && !frame.wantsCallFrames()) {
        visitEntries(unit, walker, VisitDepth::AllLevels, visitor, m_search);
    }
    wantsCallFrames = frame.wantsCallFrames();
    if (wantsCallFrames || !visitor.resultSymbol()) {
        return status_False;
    }
    answer = &m_stackAnswers.add(question.frame, question.address, {visitor.resultSymbol(), visitor.isInteger()});
    return status_Ok;
}

} // namespace ORV_3_30
