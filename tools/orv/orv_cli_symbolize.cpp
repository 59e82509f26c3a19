#include "orv_cli_chains.h"
#include "orv_cli_commands.h"
#include "orv_cli_find.h"
#include "orv_cli_output.h"
#include "orv_cli_progress.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <exception>
#include <memory>
#include <mutex>
#include <numeric>
#include <string_view>
#include <thread>
#include <unistd.h>
#include <unordered_map>

namespace orv_cli {
namespace {

/// What a code address may lie in: everything but plain data.
constexpr auto k_kindsInCode = static_cast<symbol_kind_t>(symbol_kind_Function | symbol_kind_DataAlt |
                                                          symbol_kind_Other | symbol_kind_FunctionAlt);

/// Words of standard input, the first of each line, in batches: as many as have come in. Output is
/// flushed before we wait for more, so that a tool may hold a conversation with us, and no more often
/// than that.
class InputWords {
public:
    /// False at the end of the input. The words are valid until the next call.
    bool next(std::vector<std::string_view>& words) {
        words.clear();
        m_buffer.erase(0, m_position);
        m_position = 0;
        for (std::size_t scanned = 0; m_buffer.find('\n', scanned) == std::string::npos && !m_isAtEnd;) {
            scanned = m_buffer.size();
            fill();
        }
        std::string_view const text(m_buffer);
        for (std::size_t end = text.find('\n'); end != std::string_view::npos; end = text.find('\n', m_position)) {
            words.push_back(firstWord(text.substr(m_position, end - m_position)));
            m_position = end + 1;
        }
        if (m_isAtEnd && m_position < text.size()) {
            words.push_back(firstWord(text.substr(m_position)));
            m_position = text.size();
        }
        return !words.empty();
    }

private:
    static constexpr std::size_t k_chunkSize = std::size_t{1} << 17;

    void fill() {
        finishOutput();
        std::size_t const size = m_buffer.size();
        m_buffer.resize(size + k_chunkSize);
        ssize_t count = 0;
        do {
            count = ::read(STDIN_FILENO, m_buffer.data() + size, k_chunkSize);
        } while (count < 0 && errno == EINTR);
        m_buffer.resize(size + (count > 0 ? static_cast<std::size_t>(count) : 0));
        m_isAtEnd = count <= 0;
    }

    static std::string_view firstWord(std::string_view line) {
        constexpr std::string_view k_blanks = " \t\r\v\f";
        std::size_t const begin = line.find_first_not_of(k_blanks);
        if (begin == std::string_view::npos) {
            return {};
        }
        line.remove_prefix(begin);
        return line.substr(0, line.find_first_of(k_blanks));
    }

    std::string m_buffer;
    std::size_t m_position = 0;
    bool m_isAtEnd = false;
};

/// A place in a source file.
struct Place {
    std::string_view file; ///< Without data where it is not known.
    unsigned int line = 0;
    unsigned int column = 0;
    unsigned long long discriminator = 0;

    void take(ISourceLocation& location) {
        ISourceFile* const source = location.sourceFile();
        file = source != nullptr ? std::string_view(source->path()) : std::string_view();
        line = location.line();
        column = location.column();
        discriminator = location.discriminator();
    }
};

/// A function that calls the one before, which is inlined into it, and the place of the call.
struct Frame {
    std::string_view function;
    Place place;
};

/// One question, and what is known of it.
struct Query {
    std::string_view word;
    unsigned long long value = 0;
    bool isAddress = false;
    bool isLabel = false;          ///< The function has no size.
    unsigned long long offset = 0; ///< In the innermost function's range; told in JSON only.
    std::string_view function;     ///< The innermost one; without data where it is not known.
    Place place;
    std::vector<Frame> const* callers = nullptr; ///< Where the frames around it stand, from the inside out.
    std::size_t callersBegin = 0;
    std::size_t callersEnd = 0;

    /// From a query for the same address: what is known of the function, or of the place.
    void takeAnswer(Query const& other, bool wantsFunction) {
        if (!wantsFunction) {
            place = other.place;
            return;
        }
        function = other.function;
        isLabel = other.isLabel;
        offset = other.offset;
        callers = other.callers;
        callersBegin = other.callersBegin;
        callersEnd = other.callersEnd;
    }
};

/// The queries by address: neighbours in a module are found at less cost one after the other, and equals once.
void groupByLocality(std::vector<Query>& queries, std::vector<Query*>& grouped) {
    constexpr unsigned int k_groupBits = 11;
    grouped.resize(queries.size());
    unsigned long long lowest = ~0ULL;
    unsigned long long highest = 0;
    for (Query const& query : queries) {
        lowest = std::min(lowest, query.value);
        highest = std::max(highest, query.value);
    }
    unsigned int shift = 0;
    while (lowest < highest && (highest - lowest) >> shift >> k_groupBits != 0) {
        ++shift;
    }
    std::array<std::size_t, (std::size_t{1} << k_groupBits) + 1> starts{};
    for (Query const& query : queries) {
        ++starts[((query.value - lowest) >> shift) + 1];
    }
    std::partial_sum(starts.begin(), starts.end(), starts.begin());
    for (Query& query : queries) {
        grouped[starts[(query.value - lowest) >> shift]++] = &query;
    }
    // Each group ends where the next one began.
    std::size_t begin = 0;
    for (std::size_t group = 0; begin < grouped.size(); ++group) {
        std::sort(grouped.begin() + static_cast<std::ptrdiff_t>(begin),
                  grouped.begin() + static_cast<std::ptrdiff_t>(starts[group]),
                  [](Query const* a, Query const* b) { return a->value < b->value; });
        begin = starts[group];
    }
}

/// Answers queries, one at a time. Each thread has its own; they share the module.
class Finder {
public:
    Finder(SymbolizeOptions const& options, bool wantsOffsets, Module& module)
        : m_options(options), m_wantsOffsets(wantsOffsets), m_module(module) {}

    enum class Order { FunctionsFirst, LinesFirst };

    /// Queries in the order of their addresses: equal ones are answered once. Threads that begin at different ends do
    /// not wait for the same load.
    void findAll(Query* const* begin, Query* const* end, Order order) {
        for (bool const wantsFunctions : {order == Order::FunctionsFirst, order != Order::FunctionsFirst}) {
            Query const* last = nullptr;
            for (Query* const* at = begin; at != end; ++at) {
                if ((*at)->isAddress) {
                    find(**at, last, wantsFunctions);
                    last = *at;
                }
            }
        }
    }

    void find(Query& query) {
        Query* const one = &query;
        findAll(&one, &one + 1, Order::FunctionsFirst);
    }

private:
    void find(Query& query, Query const* last, bool wantsFunction) {
        SymMgrObjectPtr<IAddress> where;
        if (last != nullptr && last->value == query.value) {
            query.takeAnswer(*last, wantsFunction);
        } else if (m_module.bank().addressByValue(query.value, where) == status_Ok) {
            wantsFunction ? findFunction(query, where) : findLine(query, *where);
        }
    }

    char const* nameOf(ISymbol& symbol) const { return m_options.demangle ? symbol.demangledName(0) : symbol.name(); }

    void findFunction(Query& query, SymMgrObjectPtr<IAddress> where) {
        SymMgrObjectPtr<ISymbolRange> range;
        if (m_module.symbolRangeByAddress(*where, range, k_kindsInCode) != status_Ok) {
            return;
        }
        query.isLabel = range->size() == 0;
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
            query.offset = query.value - startOf(*m_ranges.back());
        }
    }

    void noteCallers(Query& query) {
        query.callers = &m_callers;
        query.callersBegin = m_callers.size();
        for (std::size_t i = m_ranges.size() - 1; i > 0; --i) {
            auto const [call, isNew] = m_calls.try_emplace(m_ranges[i]->inlineInstance());
            if (isNew) {
                SymMgrObjectPtr<ISourceLocation> location;
                call->first->callSite(location);
                if (location) {
                    call->second.place.take(*location);
                }
                call->second.function = nameOf(*m_ranges[i - 1]->symbol());
            }
            m_callers.push_back(call->second);
        }
        query.callersEnd = m_callers.size();
    }

    void findLine(Query& query, IAddress& where) {
        SymMgrObjectPtr<ISourceLocation> location;
        if (m_module.bank().sourceLocationByAddress(&where, location, ~0ULL, nullptr) == status_Ok) {
            query.place.take(*location);
        }
    }

    SymbolizeOptions const& m_options;
    bool m_wantsOffsets;
    Module& m_module;
    std::vector<Frame> m_callers;
    InlineChains m_chains;
    std::vector<SymMgrObjectPtr<ISymbolRange>> m_ranges; ///< At one address, from the outside in.
    std::unordered_map<IInlineInstance*, Frame> m_calls; ///< Who calls a body, and where.
};

/// More addresses than this are no small load.
constexpr std::size_t k_mostAnnounced = 64;
/// Fewer are not worth a thread.
constexpr std::size_t k_queriesPerThread = 2048;

class Symbolizer {
public:
    Symbolizer(SymbolizeOptions const& options, CommonOptions const& common)
        : m_options(options), m_common(common), m_json(common.json), m_module(&Module::load(options.module, common)),
          m_is32Bit(m_module->is32Bit()) {}

    enum class Source { CommandLine, Input };

    /// Words of the command line are all there will be; of the input there may be more.
    template <typename Words> void answer(Words const& words, Source source) {
        m_queries.assign(words.size(), Query());
        for (std::size_t i = 0; i < words.size(); ++i) {
            parse(words[i], m_queries[i]);
        }
        groupByLocality(m_queries, m_grouped);
        if (source == Source::CommandLine && words.size() <= k_mostAnnounced) {
            announce();
        }
        findAll();
        for (Query const& query : m_queries) {
            if (!query.isAddress) {
                complain(query);
            }
            if (m_json) {
                printAsJson(query);
            } else {
                print(query);
            }
        }
    }

    int exitStatus() const { return m_exitStatus; }

private:
    void parse(std::string_view word, Query& query) const {
        query.word = word;
        // An empty line counts as address 0.
        query.isAddress = word.empty() || parseAddress(word, query.value);
        if (m_is32Bit) {
            query.value &= 0xFFFFFFFF;
        }
    }

    void complain(Query const& query) {
        finishOutput();
        std::fprintf(stderr, "orv: %.*s: is no address: give hexadecimal digits, with or without 0x\n",
                     static_cast<int>(query.word.size()), query.word.data());
        m_exitStatus = 1;
    }

    void findAll() {
        Progress const progress("reading " + m_options.module);
        m_finders.clear();
        std::size_t const most = std::max(1U, std::thread::hardware_concurrency());
        std::size_t const count = std::clamp<std::size_t>(m_grouped.size() / k_queriesPerThread, 1, most);
        for (std::size_t i = 0; i < count; ++i) {
            m_finders.push_back(std::make_unique<Finder>(m_options, m_json, *m_module));
        }
        Query** const queries = m_grouped.data();
        std::size_t const share = m_grouped.size() / count;
        std::exception_ptr failure; // of any thread: the last one stays
        std::mutex failureLock;
        auto const answerShare = [&](std::size_t i, Finder::Order order) {
            std::size_t const end = i + 1 == count ? m_grouped.size() : (i + 1) * share;
            try {
                m_finders[i]->findAll(queries + i * share, queries + end, order);
            } catch (...) {
                std::lock_guard<std::mutex> const guard(failureLock);
                failure = std::current_exception();
            }
        };
        std::vector<std::thread> threads;
        for (std::size_t i = 1; i < count; ++i) {
            threads.emplace_back(answerShare, i, Finder::Order::LinesFirst);
        }
        answerShare(0, Finder::Order::FunctionsFirst);
        for (std::thread& thread : threads) {
            thread.join();
        }
        if (failure) {
            std::rethrow_exception(failure);
        }
        findAgain();
    }

    /// Tells the bank ahead which addresses will be asked for, so that it reads no more than it must.
    void announce() {
        m_isAnnounced = m_module->bank().symFileFormat() == symbolFormatDwarf;
        for (Query const& query : m_queries) {
            if (m_isAnnounced && query.isAddress) {
                m_module->bank().prefetcher()->putPseudoAddress(query.value);
            }
        }
    }

    /// What was announced restricts the bank to the symbols at those addresses. Where there is none, there
    /// may still be a line, and a label reaches as far as the next thing that is known: such questions go
    /// to a bank without the restriction.
    void findAgain() {
        auto const isOpen = [](Query const& query) {
            return query.isAddress &&
                   (query.function.data() == nullptr || query.place.file.data() == nullptr || query.isLabel);
        };
        if (!m_isAnnounced || std::none_of(m_queries.begin(), m_queries.end(), isOpen)) {
            return;
        }
        m_module = &Module::load(m_options.module, m_common, Module::Sharing::Anew);
        m_finders.push_back(std::make_unique<Finder>(m_options, m_json, *m_module));
        for (Query& query : m_queries) {
            if (isOpen(query)) {
                query.function = {};
                query.place = Place();
                query.callersBegin = query.callersEnd = 0;
                m_finders.back()->find(query);
            }
        }
    }

    /// In the words of addr2line: "??:0" where nothing is known, "??:?" for a function without a line, and
    /// "?" for line 0, which compilers give to code that belongs to no line.
    void printPlace(Place const& place, bool isFunctionKnown) const {
        if (place.file.data() == nullptr) {
            fputs_unlocked(isFunctionKnown ? "??:?\n" : "??:0\n", stdout);
            return;
        }
        // All of it, or what stands behind the last slash.
        std::size_t const begin = m_options.baseNames ? place.file.rfind('/') + 1 : 0;
        printText(place.file.substr(begin));
        if (place.line == 0) {
            fputs_unlocked(":?\n", stdout);
            return;
        }
        printNumber(':', place.line);
        if (place.discriminator != 0) {
            std::printf(" (discriminator %llu)", place.discriminator);
        }
        putc_unlocked('\n', stdout);
    }

    static void printNumber(char before, unsigned int number) {
        char digits[12];
        char* at = digits + sizeof(digits);
        *--at = '\0';
        do {
            *--at = static_cast<char>('0' + number % 10);
            number /= 10;
        } while (number != 0);
        *--at = before;
        fputs_unlocked(at, stdout);
    }

    void print(Query const& query) const {
        if (m_options.addresses) {
            std::printf(m_is32Bit ? "0x%08llx%s" : "0x%016llx%s", query.value, m_options.pretty ? ": " : "\n");
        }
        print(query.function, query.place);
        for (std::size_t i = query.callersBegin; i < query.callersEnd; ++i) {
            if (m_options.pretty) {
                fputs_unlocked(" (inlined by) ", stdout);
            }
            print((*query.callers)[i].function, (*query.callers)[i].place);
        }
    }

    static void printText(std::string_view text) { fwrite_unlocked(text.data(), 1, text.size(), stdout); }

    void print(std::string_view function, Place const& place) const {
        bool const isFunctionKnown = function.data() != nullptr;
        if (m_options.functions) {
            bool const isKnown = isFunctionKnown || place.file.data() != nullptr;
            printText(isFunctionKnown ? function : "??");
            fputs_unlocked(!m_options.pretty ? "\n" : isKnown ? " at " : " ", stdout);
        }
        printPlace(place, isFunctionKnown);
    }

    static void addPlace(Json& object, Place const& place) {
        bool const hasLine = place.file.data() != nullptr;
        object["file"] = hasLine ? Json(place.file) : Json();
        object["line"] = hasLine ? Json(place.line) : Json();
        object["column"] = hasLine ? Json(place.column) : Json();
        object["discriminator"] = hasLine ? Json(place.discriminator) : Json();
    }

    void printAsJson(Query const& query) const {
        bool const isFound = query.function.data() != nullptr;
        Json object;
        object["address"] = query.isAddress ? Json(hex(query.value)) : Json(std::string(query.word));
        object["function"] = isFound ? Json(query.function) : Json();
        object["offset"] = isFound ? Json(hex(query.offset)) : Json();
        addPlace(object, query.place);
        if (m_options.inlines) {
            object["callers"] = Json::array();
            for (std::size_t i = query.callersBegin; i < query.callersEnd; ++i) {
                Json caller;
                caller["function"] = (*query.callers)[i].function;
                addPlace(caller, (*query.callers)[i].place);
                object["callers"].push_back(caller);
            }
        }
        printJson(object);
    }

    SymbolizeOptions const& m_options;
    CommonOptions const& m_common;
    bool m_json;
    Module* m_module;
    bool m_is32Bit;
    bool m_isAnnounced = false;
    std::vector<Query> m_queries;
    std::vector<Query*> m_grouped;
    std::vector<std::unique_ptr<Finder>> m_finders; ///< Of the last words.
    int m_exitStatus = 0;
};

} // namespace

int symbolize(SymbolizeOptions const& options, CommonOptions const& common) {
    constexpr std::size_t k_outputBuffer = std::size_t{1} << 16;
    std::setvbuf(stdout, nullptr, _IOFBF, k_outputBuffer); // flushed ahead of each wait for input
    Symbolizer symbolizer(options, common);
    if (!options.words.empty()) {
        symbolizer.answer(options.words, Symbolizer::Source::CommandLine);
    } else {
        InputWords input;
        for (std::vector<std::string_view> words; input.next(words);) {
            symbolizer.answer(words, Symbolizer::Source::Input);
        }
    }
    finishOutput();
    return symbolizer.exitStatus();
}

} // namespace orv_cli
