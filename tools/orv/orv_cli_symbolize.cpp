#include "orv_cli_commands.h"
#include "orv_cli_output.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <unistd.h>

namespace orv_cli {
namespace {

/// What a code address may lie in: everything but plain data.
constexpr auto k_kindsInCode = static_cast<symbol_kind_t>(symbol_kind_Function | symbol_kind_DataAlt |
                                                          symbol_kind_Other | symbol_kind_FunctionAlt);

/// Lines of standard input. Output is flushed before we wait for more input, so that a tool may hold
/// a conversation with us, and no more often than that.
class InputLines {
public:
    bool next(std::string& line) {
        for (;;) {
            std::size_t const end = m_buffer.find('\n', m_position);
            if (end != std::string::npos) {
                line.assign(m_buffer, m_position, end - m_position);
                m_position = end + 1;
                return true;
            }
            if (!fill()) {
                line.assign(m_buffer, m_position, std::string::npos);
                m_position = m_buffer.size();
                return !line.empty();
            }
        }
    }

private:
    bool fill() {
        if (m_isAtEnd) {
            return false;
        }
        finishOutput();
        m_buffer.erase(0, m_position);
        m_position = 0;
        char chunk[65536];
        ssize_t count = 0;
        do {
            count = ::read(STDIN_FILENO, chunk, sizeof(chunk));
        } while (count < 0 && errno == EINTR);
        m_isAtEnd = count <= 0;
        m_buffer.append(chunk, count > 0 ? static_cast<std::size_t>(count) : 0);
        return !m_isAtEnd;
    }

    std::string m_buffer;
    std::size_t m_position = 0;
    bool m_isAtEnd = false;
};

/// What is known of one address.
struct Frame {
    std::string function; ///< Empty where it is not known.
    unsigned long long offset = 0;
};

class Symbolizer {
public:
    Symbolizer(SymbolizeOptions const& options, CommonOptions const& common)
        : m_options(options), m_json(common.json), m_module(options.module, common), m_is32Bit(m_module.is32Bit()) {}

    /// One word of the command line or of the input.
    void answer(std::string const& word) {
        unsigned long long value = 0;
        // An empty line counts as address 0.
        bool const isAddress = word.empty() || parseAddress(word, value);
        if (!isAddress) {
            std::fflush(stdout);
            std::fprintf(stderr, "orv: %s: is no address: give hexadecimal digits, with or without 0x\n", word.c_str());
            m_exitStatus = 1;
        }
        if (m_is32Bit) {
            value &= 0xFFFFFFFF;
        }
        Frame frame;
        bool const isFound = isAddress && find(value, frame);
        if (m_json) {
            printAsJson(word, isAddress, value, isFound, frame);
        } else {
            print(value, frame);
        }
    }

    int exitStatus() const { return m_exitStatus; }

private:
    bool find(unsigned long long value, Frame& frame) {
        SymMgrObjectPtr<IAddress> where;
        SymMgrObjectPtr<ISymbolRange> range;
        if (m_module.bank().addressByValue(value, where) != status_Ok ||
            m_module.bank().symbolRangeByAddress(where.get(), range, k_kindsInCode, nullptr) != status_Ok) {
            return false;
        }
        ISymbol* const symbol = range->symbol();
        frame.function = m_options.demangle ? symbol->demangledName(0) : symbol->name();
        SymMgrObjectPtr<IAddress> start;
        range->startAddress(start);
        frame.offset = value - start->pseudoAddr();
        return true;
    }

    void print(unsigned long long value, Frame const& frame) const {
        if (m_options.addresses) {
            std::printf(m_is32Bit ? "0x%08llx%s" : "0x%016llx%s", value, m_options.pretty ? ": " : "\n");
        }
        if (m_options.functions) {
            bool const isKnown = !frame.function.empty();
            std::fputs(isKnown ? frame.function.c_str() : "??", stdout);
            std::fputs(!m_options.pretty ? "\n" : isKnown ? " at " : " ", stdout);
        }
        std::fputs("??:0\n", stdout);
    }

    void printAsJson(std::string const& word, bool isAddress, unsigned long long value, bool isFound,
                     Frame const& frame) const {
        Json object;
        object["address"] = isAddress ? Json(hex(value)) : Json(word);
        object["function"] = isFound ? Json(frame.function) : Json();
        object["offset"] = isFound ? Json(hex(frame.offset)) : Json();
        object["file"] = nullptr;
        object["line"] = nullptr;
        printJson(object);
    }

    SymbolizeOptions const& m_options;
    bool m_json;
    Module m_module;
    bool m_is32Bit;
    int m_exitStatus = 0;
};

/// The first word of a line.
std::string firstWord(std::string const& line) {
    std::size_t const begin = line.find_first_not_of(" \t\r\v\f");
    if (begin == std::string::npos) {
        return {};
    }
    return line.substr(begin, line.find_first_of(" \t\r\v\f", begin) - begin);
}

} // namespace

int symbolize(SymbolizeOptions const& options, CommonOptions const& common) {
    Symbolizer symbolizer(options, common);
    for (std::string const& word : options.words) {
        symbolizer.answer(word);
    }
    if (options.words.empty()) {
        InputLines input;
        for (std::string line; input.next(line);) {
            symbolizer.answer(firstWord(line));
        }
    }
    finishOutput();
    return symbolizer.exitStatus();
}

} // namespace orv_cli
