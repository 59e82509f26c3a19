// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
// symbolize: many addresses at once, sorted, in shares for each thread.
#include "orv_cli_answer.h"
#include "orv_cli_input.h"
#include "orv_cli_output.h"
#include "orv_cli_progress.h"
#include "orv_cli_where.h"

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <functional>
#include <future>
#include <mutex>
#include <system_error>
#include <thread>
#include <utility>

namespace orv_cli {
namespace {

/// Runs work(i) for each i below count, on a thread of its own but for the first, or on this one where the system has
/// no more. Throws what one of them has thrown.
template <typename Work> void inParallel(std::size_t count, Work const& work) {
    std::vector<std::future<void>> others;
    try {
        while (others.size() + 1 < count) {
            others.push_back(std::async(std::launch::async, std::cref(work), others.size() + 1));
        }
    } catch (std::system_error const&) { // what is left has fewer threads
    }
    work(0);
    for (std::size_t i = others.size() + 1; i < count; ++i) {
        work(i);
    }
    for (std::future<void>& other : others) {
        other.get();
    }
}

/// Fewer are not worth a thread.
constexpr std::size_t k_queriesPerThread = 2048;
constexpr std::size_t k_queriesPerTask = 1024;

class Symbolizer {
public:
    Symbolizer(SymbolizeOptions const& options, CommonOptions const& common)
        : m_options(options), m_module(Module::load(options.module, common, Module::View::LaidOut)),
          m_reader(m_module, options.section), m_text(options, common.json, m_module.is32Bit(), m_module.kernelName()),
          m_wanted(wanted(options, common.json)) {}

    template <typename Words> void answer(Words const& words) {
        m_queries.assign(words.size(), Query());
        for (std::size_t i = 0; i < words.size(); ++i) {
            read(words[i], m_queries[i]);
        }
        m_byAddress.clear();
        for (Query& query : m_queries) {
            m_byAddress.emplace_back(query.address, &query);
        }
        std::sort(m_byAddress.begin(), m_byAddress.end());
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
        m_answers.clear();
        if (count > 1) {
            prime();
        }
        std::atomic<std::size_t> next{0};
        inParallel(count, [&](std::size_t /*i*/) {
            for (std::size_t begin = 0; (begin = next.fetch_add(k_queriesPerTask)) < m_byAddress.size();) {
                std::size_t const end = std::min(begin + k_queriesPerTask, m_byAddress.size());
                std::vector<unsigned long long> addresses;
                for (std::size_t i = begin; i < end; ++i) {
                    addresses.push_back(m_byAddress[i].first);
                }
                SymMgrObjectPtr<IFrames> const answer = ask(addresses.data(), addresses.size(), m_wanted);
                for (std::size_t i = begin; i < end; ++i) {
                    Query& query = *m_byAddress[i].second;
                    query.innermost = answer && query.isInModule ? answer->at(i - begin) : nullptr;
                }
                std::lock_guard<std::mutex> const guard(m_answersLock);
                m_answers.push_back(answer);
            }
        });
    }

    SymMgrObjectPtr<IFrames> ask(unsigned long long const* addresses, std::size_t count, unsigned int options) {
        SymMgrObjectPtr<IFrames> answer;
        m_module.load([&] { return framesByAddresses(answer, m_module.bank(), addresses, count, options); });
        return answer;
    }

    /// Symbols and lines are read side by side.
    void prime() {
        unsigned long long const address = m_byAddress.front().first;
        inParallel(2, [&](std::size_t i) {
            ask(&address, 1, m_wanted | (i == 0 ? frames_NoLines : frames_NoFunctions | frames_NoInlines));
        });
    }

    static unsigned int wanted(SymbolizeOptions const& options, bool json) {
        bool const wantsFunctions = options.functions || options.inlines || json;
        unsigned int const bodies = options.noInlines || !wantsFunctions ? frames_NoInlines : frames_Everything;
        return bodies | (options.demangle ? frames_Everything : frames_NoDemangling);
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
    Module& m_module;
    WordReader m_reader;
    AnswerText m_text;
    std::vector<Query> m_queries;
    /// Neighbours in a module are found at less cost one after the other, and equals once.
    std::vector<std::pair<unsigned long long, Query*>> m_byAddress;
    unsigned int m_wanted;
    std::mutex m_answersLock;
    std::vector<SymMgrObjectPtr<IFrames>> m_answers; ///< That the queries refer to.
    std::vector<Portion> m_portions;                 ///< One a thread.
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
