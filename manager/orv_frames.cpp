// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
// Chains of inlined calls: the function from the symbol table, the bodies in it from the scope, and the lines. Callers
// are shared by all addresses of a body, so that a chain costs no more than what is new in it.
#include "orv/orv_frames.h"

#include "core/orv_shared_object.h"
#include "manager/orv_guarded.h"
#include "manager/orv_modulesymbolbank.h"
#include "symbols/orv_symbolrange.h"

#include <algorithm>
#include <deque>
#include <numeric>
#include <unordered_map>
#include <vector>

namespace ORV_3_30 {
namespace {

class Frames final : public SharedObject<SymMgrObject<IFrames>> {
public:
    explicit Frames(std::size_t count) : m_answers(count, nullptr) {}

    std::size_t count() override { return m_answers.size(); }
    Frame const* at(std::size_t index) override { return index < m_answers.size() ? m_answers[index] : nullptr; }

    Frame& make() { return m_frames.emplace_back(); }
    Frame const*& answer(std::size_t index) { return m_answers[index]; }

private:
    std::deque<Frame> m_frames;
    std::vector<Frame const*> m_answers;
};

/// Answers one question.
class Finder {
public:
    Finder(ModuleSymbolBank& bank, Frames& frames, unsigned int options)
        : m_bank(bank), m_frames(frames), m_options(options) {}

    status_t find(unsigned long long const* addresses, std::size_t count) {
        // Neighbours are found at less cost one after the other.
        std::vector<std::size_t> order(count);
        std::iota(order.begin(), order.end(), std::size_t{0});
        std::sort(order.begin(), order.end(),
                  [&](std::size_t a, std::size_t b) { return addresses[a] < addresses[b]; });
        status_t status = status_Ok;
        for (std::size_t i = 0; i < count && !failed(status); ++i) {
            bool const isKnown = i > 0 && addresses[order[i]] == addresses[order[i - 1]];
            if (isKnown) {
                m_frames.answer(order[i]) = m_frames.answer(order[i - 1]);
            } else {
                status = findAt(addresses[order[i]], m_frames.answer(order[i]));
            }
        }
        // Last: a call's file reads the lines of its unit, and which row wins among equals follows the order of
        // reading.
        for (Unplaced const& caller : m_unplaced) {
            CallPlace place{};
            if (caller.scope->callOf(caller.call, place)) {
                caller.frame->file = place.file->path();
                caller.frame->line = place.line;
                caller.frame->column = place.column;
                caller.frame->discriminator = place.discriminator;
            }
        }
        return failed(status) ? status : status_Ok;
    }

private:
    status_t findAt(unsigned long long address, Frame const*& out) {
        SymMgrObjectPtr<IAddress> where;
        if (m_bank.addressByValue(address, where) != status_Ok) {
            return status_Ok;
        }
        Frame frame;
        status_t status = status_Ok;
        if ((m_options & frames_NoFunctions) == 0) {
            status = findFunction(address, frame);
        }
        if (!failed(status) && (m_options & frames_NoLines) == 0) {
            status = findLine(*where, frame);
        }
        if (!failed(status) && (frame.function != nullptr || frame.file != nullptr || frame.line != 0)) {
            Frame& kept = m_frames.make();
            kept = frame;
            out = &kept;
        }
        return status;
    }

    status_t findFunction(unsigned long long address, Frame& frame) {
        SymMgrObjectPtr<ISymbolRange> range;
        status_t const status = m_bank.globalScope().symbolRangeByAddress(range, address, k_kindsInCode, nullptr);
        if (status != status_Ok) {
            return status;
        }
        auto& found = static_cast<SymbolRange&>(*range);
        Scope& scope = *found.scope();
        InlinedCall body{};
        if ((m_options & frames_NoInlines) != 0 || !scope.innermostInlinedAt(address, body)) {
            describe(frame, found);
            return status_Ok;
        }
        describe(frame, body.name, body.start, body.end, scope.compUnitId());
        frame.isInlined = true;
        frame.caller = &callerOf(body, address, found);
        return status_Ok;
    }

    /// The frame that a body is inlined into, and with it those around, as far as they are new.
    Frame const& callerOf(InlinedCall inner, unsigned long long address, SymbolRange& function) {
        Scope& scope = *function.scope();
        Frame const* first = nullptr;
        Frame const** link = &first;
        for (bool isBody = true; isBody;) {
            // What is around goes by the start, so that it is the same for all addresses of the range.
            address = inner.start;
            auto const [known, isNew] = m_callers.try_emplace({inner.token, inner.start});
            if (!isNew) {
                *link = known->second;
                break;
            }
            Frame& frame = m_frames.make();
            known->second = &frame;
            *link = &frame;
            link = &frame.caller;
            if ((m_options & frames_NoLines) == 0) {
                m_unplaced.push_back({&frame, &scope, inner});
            }
            InlinedCall outer{};
            isBody = scope.inlinedAround(inner, address, outer);
            if (isBody) {
                describe(frame, outer.name, outer.start, outer.end, scope.compUnitId());
                frame.isInlined = true;
            } else {
                describe(frame, function);
            }
            inner = outer;
        }
        return *first;
    }

    void describe(Frame& frame, SymbolRange& function) {
        ISymbol* const symbol = function.symbol();
        describe(frame, symbol != nullptr ? symbol->name() : nullptr, function.start(), function.end(),
                 function.scope()->compUnitId());
    }

    void describe(Frame& frame, char const* name, unsigned long long start, unsigned long long end,
                  unsigned long long unit) {
        frame.function = name;
        frame.start = start;
        frame.end = end;
        frame.unit = unit;
        bool const isRaw = name == nullptr || (m_options & frames_NoDemangling) != 0;
        NameForms::Forms const forms = isRaw ? NameForms::Forms{name, name} : m_bank.nameForms().of(name);
        frame.demangled = forms.demangled;
        frame.shortName = forms.shortName;
    }

    status_t findLine(IAddress& where, Frame& frame) {
        SymMgrObjectPtr<ISourceLocation> location;
        status_t const status = m_bank.sourceLocationByAddress(&where, location, ~0ULL, nullptr);
        if (location) {
            ISourceFile* const file = location->sourceFile(); // a GPU kernel's source has none
            frame.file = file != nullptr ? file->path() : nullptr;
            frame.line = location->line();
            frame.column = location->column();
            frame.discriminator = location->discriminator();
            frame.unit = frame.function != nullptr ? frame.unit : location->unit();
        }
        return status == status_OutOfMemory ? status : status_Ok; // without lines functions are known all the same
    }

    using CallKey = std::pair<void const*, unsigned long long>; ///< A body, and which of its ranges.
    struct Hash {
        std::size_t operator()(CallKey const& key) const {
            return std::hash<void const*>()(key.first) ^ key.second * 0x9E3779B97F4A7C15ULL;
        }
    };
    struct Unplaced {
        Frame* frame;
        Scope* scope;
        InlinedCall call;
    };

    ModuleSymbolBank& m_bank;
    Frames& m_frames;
    unsigned int m_options;
    std::unordered_map<CallKey, Frame const*, Hash> m_callers;
    std::vector<Unplaced> m_unplaced;
};

} // namespace

status_t framesByAddresses(SymMgrObjectPtr<IFrames>& out, IModuleSymbolBank& bank, unsigned long long const* addresses,
                           std::size_t count, unsigned int options) {
    ORV_TRACE("framesByAddresses");
    out = nullptr;
    auto* const own = dynamic_cast<ModuleSymbolBank*>(&bank);
    if (own == nullptr || (addresses == nullptr && count != 0)) {
        return status_InvalidArg;
    }
    return guarded([&] {
        SymMgrObjectPtr<Frames> const frames(new Frames(count));
        status_t const status = Finder(*own, *frames, options).find(addresses, count);
        if (status == status_Ok) {
            out = frames.get();
        }
        return status;
    });
}

status_t framesByAddress(SymMgrObjectPtr<IFrames>& out, IModuleSymbolBank& bank, IAddress* address) {
    ORV_TRACE("framesByAddress");
    out = nullptr;
    if (address == nullptr) {
        return status_InvalidArg;
    }
    unsigned long long const value = address->pseudoAddr();
    return framesByAddresses(out, bank, &value, 1, frames_Everything);
}

} // namespace ORV_3_30
