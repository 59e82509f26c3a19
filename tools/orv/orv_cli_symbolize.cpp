// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
#include "orv_cli_answer.h"
#include "orv_cli_chains.h"
#include "orv_cli_find.h"
#include "orv_cli_input.h"
#include "orv_cli_output.h"
#include "orv_cli_progress.h"
#include "orv_cli_where.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <deque>
#include <exception>
#include <memory>
#include <mutex>
#include <numeric>
#include <system_error>
#include <thread>
#include <unordered_map>

namespace orv_cli {
namespace {

/// What a code address may lie in: everything but plain data.
constexpr auto k_kindsInCode = static_cast<symbol_kind_t>(symbol_kind_Function | symbol_kind_DataAlt |
                                                          symbol_kind_Other | symbol_kind_FunctionAlt);

/// The queries by address: neighbours in a module are found at less cost one after the other, and equals once.
void groupByLocality(std::vector<Query>& queries, std::vector<Query*>& grouped) {
    constexpr unsigned int k_groupBits = 11;
    grouped.resize(queries.size());
    unsigned long long lowest = ~0ULL;
    unsigned long long highest = 0;
    for (Query const& query : queries) {
        lowest = std::min(lowest, query.address);
        highest = std::max(highest, query.address);
    }
    unsigned int shift = 0;
    while (lowest < highest && (highest - lowest) >> shift >> k_groupBits != 0) {
        ++shift;
    }
    std::array<std::size_t, (std::size_t{1} << k_groupBits) + 1> starts{};
    for (Query const& query : queries) {
        ++starts[((query.address - lowest) >> shift) + 1];
    }
    std::partial_sum(starts.begin(), starts.end(), starts.begin());
    for (Query& query : queries) {
        grouped[starts[(query.address - lowest) >> shift]++] = &query;
    }
    // Each group ends where the next one began.
    std::size_t begin = 0;
    for (std::size_t group = 0; begin < grouped.size(); ++group) {
        std::sort(grouped.begin() + static_cast<std::ptrdiff_t>(begin),
                  grouped.begin() + static_cast<std::ptrdiff_t>(starts[group]),
                  [](Query const* a, Query const* b) { return a->address < b->address; });
        begin = starts[group];
    }
}

/// Answers queries, a task at a time. Each thread has its own; they share the module.
class Finder {
public:
    Finder(SymbolizeOptions const& options, bool wantsOffsets, Module& module)
        : m_options(options), m_wantsOffsets(wantsOffsets), m_module(module) {}

    /// Makes room for new queries: what was said of the earlier ones is gone.
    void forget() { m_callers.clear(); }

    /// Queries in the order of their addresses: equal ones are answered once.
    void find(Query* const* begin, Query* const* end, Query::Half half) {
        Query const* last = nullptr;
        for (Query* const* at = begin; at != end; ++at) {
            if (!(*at)->isInModule) {
                continue;
            }
            if (last != nullptr && last->address == (*at)->address) {
                (*at)->takeAnswer(*last, half);
            } else {
                find(**at, half);
            }
            last = *at;
        }
    }

    /// False for an address outside of the module.
    bool find(Query& query, Query::Half half) {
        SymMgrObjectPtr<IAddress> where;
        if (m_module.bank().addressByValue(query.address, where) != status_Ok) {
            return false;
        }
        half == Query::Half::Function ? findFunction(query, where) : findLine(query, *where);
        return true;
    }

    /// Where the calls are that were found. Comes after the lines: a call's file reads the lines of its unit, and which
    /// row wins among equals follows the order of reading.
    void findPlaces() {
        for (auto const& [instance, caller] : m_unplaced) {
            SymMgrObjectPtr<ISourceLocation> location;
            instance->callSite(location);
            if (location) {
                caller->place.take(*location);
            }
        }
        m_unplaced.clear();
    }

private:
    char const* nameOf(ISymbol& symbol) const { return m_options.demangle ? symbol.demangledName(0) : symbol.name(); }

    void findFunction(Query& query, SymMgrObjectPtr<IAddress> const& where) {
        SymMgrObjectPtr<ISymbolRange> range;
        if (m_module.symbolRangeByAddress(*where, range, k_kindsInCode) != status_Ok) {
            return;
        }
        if (!m_options.noInlines && (m_options.functions || m_options.inlines || m_wantsOffsets)) {
            m_chains.follow(*range, *where, m_ranges);
        } else {
            m_ranges.assign(1, range);
        }
        query.function = nameOf(*m_ranges.back()->symbol());
        if (m_options.inlines) {
            noteCallers(query);
        }
        if (m_wantsOffsets) {
            query.offset = query.address - startOf(*m_ranges.back());
        }
    }

    void noteCallers(Query& query) {
        query.callers = &m_callers;
        query.callersBegin = m_callers.size();
        std::size_t const depth = m_ranges.size() - 1;
        m_lastCalls.resize(std::max(m_lastCalls.size(), depth));
        for (std::size_t i = depth; i > 0; --i) {
            IInlineInstance* const instance = m_ranges[i]->inlineInstance();
            Call& last = m_lastCalls[i - 1];
            if (last.instance != instance) {
                last = {instance, &callerOf(*instance, *m_ranges[i - 1]->symbol())};
            }
            m_callers.push_back(last.caller);
        }
        query.callersEnd = m_callers.size();
    }

    Frame const& callerOf(IInlineInstance& instance, ISymbol& around) {
        auto const [call, isNew] = m_calls.try_emplace(&instance);
        if (isNew) {
            call->second.function = nameOf(around);
            m_unplaced.emplace_back(&instance, &call->second);
        }
        return call->second;
    }

    void findLine(Query& query, IAddress& where) {
        SymMgrObjectPtr<ISourceLocation> location;
        if (m_module.bank().sourceLocationByAddress(&where, location, ~0ULL, nullptr) == status_Ok) {
            query.place.take(*location);
        }
    }

    struct Call {
        IInlineInstance* instance = nullptr;
        Frame const* caller = nullptr;
    };
    SymbolizeOptions const& m_options;
    bool m_wantsOffsets;
    Module& m_module;
    std::vector<Frame const*> m_callers;
    InlineChains m_chains;
    std::vector<SymMgrObjectPtr<ISymbolRange>> m_ranges; ///< At one address, from the outside in.
    std::unordered_map<IInlineInstance*, Frame> m_calls; ///< Who calls a body, and where.
    std::vector<std::pair<IInlineInstance*, Frame*>> m_unplaced;
    std::vector<Call> m_lastCalls; ///< By depth: neighbours share most of their chains.
};

/// Halves of answers to neighbours, in the order in which one thread would find them. There are threads that take from
/// either end, so that not all wait for the same load.
class Tasks {
public:
    struct Task {
        std::size_t begin;
        std::size_t end;
        Query::Half half;
    };
    enum class End { Front, Back };

    explicit Tasks(std::size_t queryCount) {
        constexpr std::size_t k_queriesPerTask = 1024;
        for (Query::Half const half : {Query::Half::Function, Query::Half::Line}) {
            for (std::size_t begin = 0; begin < queryCount; begin += k_queriesPerTask) {
                m_tasks.push_back({begin, std::min(begin + k_queriesPerTask, queryCount), half});
            }
        }
    }

    /// False if none is left.
    bool take(End end, Task& out) {
        std::lock_guard<std::mutex> const guard(m_lock);
        if (m_tasks.empty()) {
            return false;
        }
        if (end == End::Front) {
            out = m_tasks.front();
            m_tasks.pop_front();
        } else {
            out = m_tasks.back();
            m_tasks.pop_back();
        }
        return true;
    }

private:
    std::mutex m_lock;
    std::deque<Task> m_tasks;
};

/// Runs work(i) for each i below count, on a thread of its own but for the first, or on this one where the system has
/// no more. Throws what one of them has thrown.
template <typename Work> void inParallel(std::size_t count, Work const& work) {
    std::exception_ptr failure; // of any thread: the last one stays
    std::mutex failureLock;
    auto const run = [&](std::size_t i) {
        try {
            work(i);
        } catch (...) {
            std::lock_guard<std::mutex> const guard(failureLock);
            failure = std::current_exception();
        }
    };
    std::vector<std::thread> threads;
    threads.reserve(count - 1);
    try {
        while (threads.size() < count - 1) {
            threads.emplace_back(run, threads.size() + 1);
        }
    } catch (std::system_error const&) { // what is left has fewer threads
    }
    run(0);
    for (std::size_t i = threads.size() + 1; i < count; ++i) {
        run(i);
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    if (failure) {
        std::rethrow_exception(failure);
    }
}

/// Fewer are not worth a thread.
constexpr std::size_t k_queriesPerThread = 2048;

class Symbolizer {
public:
    Symbolizer(SymbolizeOptions const& options, CommonOptions const& common)
        : m_options(options), m_common(common), m_module(Module::load(options.module, common, Module::View::LaidOut)),
          m_reader(m_module, options.section), m_is32Bit(m_module.is32Bit()), m_text(options, common.json, m_is32Bit) {}

    template <typename Words> void answer(Words const& words) {
        m_queries.assign(words.size(), Query());
        for (std::size_t i = 0; i < words.size(); ++i) {
            read(words[i], m_queries[i]);
        }
        groupByLocality(m_queries, m_grouped);
        findAll();
        printAll();
    }

    int exitStatus() const { return m_exitStatus; }

private:
    void read(std::string_view word, Query& query) {
        m_reader.read(word, query);
        if (!query.isUnderstood && !m_options.isAddr2line) {
            std::fprintf(
                stderr,
                "orv: %.*s: is no address and no symbol: give hexadecimal digits, with or without 0x, or a name "
                "that 'orv symbols' lists\n",
                static_cast<int>(word.size()), word.data());
            m_exitStatus = 1;
        }
    }

    std::size_t threadCount() const {
        std::size_t const most = std::max(1U, std::thread::hardware_concurrency());
        return std::clamp<std::size_t>(m_queries.size() / k_queriesPerThread, 1, most);
    }

    void findAll() {
        Progress const progress("reading " + m_options.module);
        std::size_t const count = threadCount();
        while (m_finders.size() < count) {
            m_finders.push_back(std::make_unique<Finder>(m_options, m_common.json, m_module));
        }
        if (count > 1) {
            prime();
        }
        Tasks tasks(m_grouped.size());
        inParallel(count, [&](std::size_t i) {
            Finder& finder = *m_finders[i];
            finder.forget();
            for (Tasks::Task task{}; tasks.take(i % 2 == 0 ? Tasks::End::Front : Tasks::End::Back, task);) {
                finder.find(m_grouped.data() + task.begin, m_grouped.data() + task.end, task.half);
            }
        });
        if (m_options.inlines) {
            inParallel(count, [&](std::size_t i) { m_finders[i]->findPlaces(); });
        }
    }

    /// One function, so that the symbols are loaded for the same kinds whatever the threads ask for first.
    void prime() {
        for (Query* const query : m_grouped) {
            if (query->isInModule && m_finders.front()->find(*query, Query::Half::Function)) {
                return;
            }
        }
    }

    /// In rounds, so that the text of many answers takes little room. What has none goes out by itself.
    void printAll() {
        std::size_t const count = threadCount();
        m_portions.resize(std::max(m_portions.size(), count));
        for (std::size_t round = 0; round < m_queries.size(); round += count * k_queriesPerThread) {
            inParallel(count, [&](std::size_t i) {
                Portion& portion = m_portions[i];
                portion.text.clear();
                portion.at = std::min(round + i * k_queriesPerThread, m_queries.size());
                portion.end = std::min(portion.at + k_queriesPerThread, m_queries.size());
                while (portion.at < portion.end && m_text.append(m_queries[portion.at], portion.text)) {
                    ++portion.at;
                }
            });
            for (std::size_t i = 0; i < count; ++i) {
                Portion& portion = m_portions[i];
                std::fwrite(portion.text.data(), 1, portion.text.size(), stdout);
                for (; portion.at < portion.end; ++portion.at) {
                    m_text.print(m_queries[portion.at], portion.text);
                }
            }
        }
    }

    /// A thread's share of the answers, as text up to at.
    struct Portion {
        std::string text;
        std::size_t at = 0;
        std::size_t end = 0;
    };

    SymbolizeOptions const& m_options;
    CommonOptions const& m_common;
    Module& m_module;
    WordReader m_reader;
    bool m_is32Bit;
    AnswerText m_text;
    std::vector<Query> m_queries;
    std::vector<Query*> m_grouped;
    std::vector<std::unique_ptr<Finder>> m_finders; ///< One a thread.
    std::vector<Portion> m_portions;                ///< One a thread.
    int m_exitStatus = 0;
};

} // namespace

int symbolize(SymbolizeOptions const& options, CommonOptions const& common) {
    // As with a module: what it has found goes with the process.
    static Symbolizer& symbolizer = *new Symbolizer(options, common);
    if (!options.words.empty()) {
        symbolizer.answer(options.words);
    } else {
        InputLines input;
        for (std::vector<std::string_view> lines; input.next(lines);) {
            symbolizer.answer(lines);
        }
    }
    finishOutput();
    return symbolizer.exitStatus();
}

} // namespace orv_cli
