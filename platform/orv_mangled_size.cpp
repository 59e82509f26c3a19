// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
#include "platform/orv_mangled_size.h"

#include <algorithm>
#include <cctype>
#include <cstring>
#include <vector>

namespace ORV_3_30 {
namespace {

/// Sizes are cut here, so that sums can't overflow.
constexpr std::uint64_t k_ceiling = std::uint64_t{1} << 40;
/// Room for what a construct adds of its own: "operator new[]", "{lambda()#1}", "std::basic_iostream".
constexpr std::uint64_t k_wordSize = 32;
constexpr std::uint64_t k_longestAbbreviation = 80;
constexpr unsigned int k_deepestNesting = 256;

bool isDigit(char c) { return c >= '0' && c <= '9'; }
bool isUpper(char c) { return c >= 'A' && c <= 'Z'; }
bool isLower(char c) { return c >= 'a' && c <= 'z'; }

/// Follows the grammar and sums up sizes in place of text. Each production returns the size of what
/// it stands for. Anything unexpected sets m_failed, and the parse runs out quickly.
class MangledSize {
public:
    explicit MangledSize(std::string_view text) : m_text(text) {}

    std::uint64_t total() {
        m_at = 2; // "_Z"
        std::uint64_t const size = encoding();
        return m_failed || (m_at < m_text.size() && peek() != '.') ? k_unboundedSize : size + m_text.size();
    }

private:
    char peek(std::size_t ahead = 0) const { return m_at + ahead < m_text.size() ? m_text[m_at + ahead] : '\0'; }
    bool isAt(std::string_view word) const { return m_at < m_text.size() && m_text.substr(m_at, word.size()) == word; }
    bool take(std::string_view word) {
        bool const isThere = isAt(word);
        m_at += isThere ? word.size() : 0;
        return isThere;
    }
    std::uint64_t fail() {
        m_failed = true;
        m_at = m_text.size();
        return 0;
    }
    void require(std::string_view word) {
        if (!take(word)) {
            fail();
        }
    }
    static std::uint64_t sum(std::uint64_t a, std::uint64_t b) { return std::min(a + b, k_ceiling); }
    std::uint64_t remember(std::uint64_t size) {
        m_candidates.push_back(size);
        m_largestCandidate = std::max(m_largestCandidate, size);
        return size;
    }
    bool isEnd() const { return m_failed || m_at >= m_text.size(); }
    /// Takes the E that closes a list. A name that ends before it does not follow the grammar; the
    /// runtime's demangler would try for ever where the rest of it could belong.
    bool isClosed() {
        if (take("E")) {
            return true;
        }
        if (isEnd()) {
            fail();
        }
        return m_failed;
    }

    /// Counts how deep the productions stand in each other.
    class Nesting {
    public:
        explicit Nesting(MangledSize& parser) : m_parser(parser) {
            if (++m_parser.m_depth > k_deepestNesting) {
                m_parser.fail();
            }
        }
        ~Nesting() { --m_parser.m_depth; }
        Nesting(Nesting const&) = delete;
        Nesting& operator=(Nesting const&) = delete;

    private:
        MangledSize& m_parser;
    };

    void number() {
        take("n");
        while (isDigit(peek())) {
            ++m_at;
        }
    }
    void sequence() { // [number] _
        number();
        require("_");
    }

    std::uint64_t encoding() {
        Nesting const nesting(*this);
        if (peek() == 'T' && !isAt("T_") && !isDigit(peek(1))) {
            return special();
        }
        if (take("GV")) {
            return sum(k_wordSize, name());
        }
        if (take("GR")) {
            std::uint64_t const size = name();
            while (isDigit(peek()) || isUpper(peek())) {
                ++m_at;
            }
            take("_");
            return sum(k_wordSize, size);
        }
        if (take("GTt") || take("GTn")) {
            return sum(k_wordSize, encoding());
        }
        std::uint64_t size = name();
        ++m_signatures;
        while (!isEnd() && peek() != 'E' && peek() != '.') {
            size = sum(size, sum(2, type()));
        }
        --m_signatures;
        return size;
    }

    std::uint64_t special() {
        ++m_at;
        char const what = peek();
        ++m_at;
        switch (what) {
        case 'V':
        case 'T':
        case 'I':
        case 'S': return sum(k_wordSize, type());
        case 'A': return sum(k_wordSize, templateArgument());
        case 'H':
        case 'W': return sum(k_wordSize, name());
        case 'h': sequence(); return sum(k_wordSize, encoding());
        case 'v':
            sequence();
            sequence();
            return sum(k_wordSize, encoding());
        case 'c':
            callOffset();
            callOffset();
            return sum(k_wordSize, encoding());
        case 'C': {
            std::uint64_t const size = type();
            sequence();
            return sum(sum(k_wordSize, size), type());
        }
        default: return fail();
        }
    }

    void callOffset() {
        bool const isVirtual = take("v");
        if (!isVirtual) {
            require("h");
        }
        sequence();
        if (isVirtual) {
            sequence();
        }
    }

    std::uint64_t name() {
        Nesting const nesting(*this);
        if (peek() == 'N') {
            return nestedName();
        }
        if (take("Z")) {
            std::uint64_t size = encoding();
            require("E");
            if (take("s")) {
                discriminator();
                return sum(k_wordSize, size);
            }
            if (take("d")) {
                sequence();
            }
            size = sum(sum(k_wordSize, size), name());
            discriminator();
            return size;
        }
        std::uint64_t size = 0;
        bool isCandidate = true;
        if (peek() == 'S' && peek(1) != 't') {
            size = substitution();
            isCandidate = false;
        } else {
            size = take("St") ? 5 : 0;
            size = sum(size, unqualifiedName(0));
        }
        if (peek() == 'I') {
            if (isCandidate) {
                remember(size);
            }
            size = sum(size, templateArguments());
        }
        return size;
    }

    void discriminator() {
        if (take("__")) {
            number();
            take("_");
        } else if (peek() == '_' && isDigit(peek(1))) {
            m_at += 2;
        }
    }

    std::uint64_t nestedName() {
        ++m_at; // N
        while (peek() == 'r' || peek() == 'V' || peek() == 'K') {
            ++m_at;
        }
        if (peek() == 'R' || peek() == 'O') {
            ++m_at;
        }
        std::uint64_t size = k_wordSize;
        while (!isClosed()) {
            bool isCandidate = true;
            if (peek() == 'S') {
                size = sum(size, take("St") ? 5 : substitution());
                isCandidate = false;
            } else if (peek() == 'T') {
                size = sum(size, templateParameter());
            } else if (peek() == 'I') {
                size = sum(size, templateArguments());
            } else if (isAt("Dt") || isAt("DT")) {
                size = sum(size, decltypeOf());
            } else if (take("M")) {
                isCandidate = false;
            } else {
                size = sum(sum(size, 2), unqualifiedName(size));
            }
            if (isCandidate && peek() != 'E') {
                remember(size);
            }
        }
        return size;
    }

    /// enclosing: the size of the class, whose name constructors repeat.
    std::uint64_t unqualifiedName(std::uint64_t enclosing) {
        Nesting const nesting(*this);
        std::uint64_t size = 0;
        take("L");
        char const first = peek();
        if (isDigit(first)) {
            size = sourceName();
        } else if ((first == 'C' && (isDigit(peek(1)) || peek(1) == 'I')) || (first == 'D' && isDigit(peek(1)))) {
            bool const isInheriting = peek(1) == 'I';
            m_at += isInheriting ? 3 : 2;
            size = sum(enclosing, isInheriting ? type() : 1);
        } else if (take("Ul")) {
            size = k_wordSize;
            ++m_signatures;
            while (!isClosed()) {
                size = sum(size, sum(2, type()));
            }
            --m_signatures;
            sequence();
        } else if (take("Ut")) {
            sequence();
            size = k_wordSize;
        } else if (take("DC")) {
            while (!isClosed()) {
                size = sum(size, sum(2, sourceName()));
            }
        } else if (take("cv")) {
            size = sum(k_wordSize, type());
        } else if (take("li")) {
            size = sum(k_wordSize, sourceName());
        } else if (first == 'v' && isDigit(peek(1))) {
            m_at += 2;
            size = sum(k_wordSize, sourceName());
        } else if (isLower(first) && std::isalpha(static_cast<unsigned char>(peek(1))) != 0) {
            m_at += 2;
            size = k_wordSize;
        } else {
            return fail();
        }
        while (take("B")) {
            size = sum(size, sum(k_wordSize, sourceName()));
        }
        return size;
    }

    std::uint64_t sourceName() {
        std::uint64_t length = 0;
        if (!isDigit(peek())) {
            return fail();
        }
        while (isDigit(peek())) {
            length = std::min<std::uint64_t>(length * 10 + static_cast<std::uint64_t>(peek() - '0'), k_ceiling);
            ++m_at;
        }
        if (length > m_text.size() - m_at) {
            return fail();
        }
        m_at += length;
        return sum(length, k_wordSize); // "(anonymous namespace)" may stand for it
    }

    std::uint64_t substitution() {
        ++m_at; // S
        if (isLower(peek())) {
            ++m_at;
            return k_longestAbbreviation;
        }
        std::uint64_t index = 0;
        if (!isAt("_")) {
            for (; isDigit(peek()) || isUpper(peek()); ++m_at) {
                auto const digit = static_cast<std::uint64_t>(isDigit(peek()) ? peek() - '0' : peek() - 'A' + 10);
                index = std::min(index * 36 + digit, k_ceiling);
            }
            ++index;
        }
        require("_");
        if (m_failed) {
            return 0;
        }
        if (index < m_candidates.size()) {
            return m_candidates[index];
        }
        // One that was not counted: no larger than the largest, but for what stands round it.
        return m_candidates.empty() ? fail() : sum(m_largestCandidate, m_largestCandidate);
    }

    std::uint64_t templateParameter() {
        ++m_at; // T
        if (take("L")) {
            sequence();
        }
        sequence();
        return sum(k_wordSize, m_largestArgument);
    }

    std::uint64_t templateArguments() {
        Nesting const nesting(*this);
        ++m_at; // I or J
        std::uint64_t size = 4;
        std::uint64_t count = 0;
        while (!isClosed()) {
            m_largestPack = std::max(m_largestPack, ++count);
            std::uint64_t const argument = templateArgument();
            // Template parameters stand for arguments of the function's name, not for those of types
            // in its signature.
            if (m_signatures == 0) {
                m_largestArgument = std::max(m_largestArgument, argument);
            }
            size = sum(size, sum(2, argument));
        }
        return size;
    }

    std::uint64_t templateArgument() {
        if (peek() == 'J' || peek() == 'I') {
            return templateArguments();
        }
        if (take("X")) {
            return expressions();
        }
        return peek() == 'L' ? literal() : type();
    }

    std::uint64_t literal() {
        Nesting const nesting(*this);
        ++m_at; // L
        if (take("_Z") || take("Z")) {
            std::uint64_t const size = encoding();
            require("E");
            return size;
        }
        std::uint64_t size = type();
        while (!isClosed()) {
            ++m_at;
            ++size;
        }
        return sum(size, k_wordSize);
    }

    std::uint64_t decltypeOf() {
        m_at += 2;
        return sum(k_wordSize, expressions());
    }

    /// Expressions up to the E that ends them. Operands are summed up without regard to which
    /// operator they belong to.
    std::uint64_t expressions() {
        Nesting const nesting(*this);
        std::uint64_t size = k_wordSize;
        while (!isClosed()) {
            size = sum(size, sum(expression(), 4));
        }
        return size;
    }

    /// A name that is looked up in a type or in a row of scopes.
    std::uint64_t unresolvedName() {
        std::uint64_t size = 0;
        if (!isDigit(peek())) {
            size = type();
            size = sum(size, unqualifiedName(0));
            return peek() == 'I' ? sum(size, templateArguments()) : size;
        }
        while (isDigit(peek())) {
            size = sum(size, sourceName());
            if (peek() == 'I') {
                remember(size);
                size = sum(size, templateArguments());
            }
            remember(size);
            if (peek() == 'E' && isDigit(peek(1))) {
                ++m_at; // the end of the scopes; the name itself is next
            }
        }
        return size;
    }

    /// One operator or one operand.
    std::uint64_t expression() {
        Nesting const nesting(*this);
        static constexpr std::string_view k_listOperators[] = {"cl", "cp", "il", "nw", "na", "pi"};
        static constexpr std::string_view k_typeOperators[] = {"st", "at", "ti", "sc", "dc", "rc", "cc"};
        auto const takeOne = [this](auto const& words) {
            return std::any_of(std::begin(words), std::end(words), [this](auto word) { return take(word); });
        };
        char const first = peek();
        if (first == 'L') {
            return literal();
        }
        if (first == 'T') {
            return templateParameter();
        }
        if (first == 'X' || first == 'J' || first == 'I') {
            return templateArgument();
        }
        if (take("fL")) {
            number();
            require("p");
            sequence();
            return k_wordSize;
        }
        if (isAt("fp") || isAt("fT")) {
            m_at += 2;
            while (peek() == 'r' || peek() == 'V' || peek() == 'K') {
                ++m_at;
            }
            sequence();
            return k_wordSize;
        }
        if (takeOne(k_listOperators)) {
            return expressions();
        }
        if (take("tl")) {
            std::uint64_t const size = type();
            return sum(size, expressions());
        }
        if (take("cv")) {
            std::uint64_t const size = type();
            return take("_") ? sum(size, expressions()) : size;
        }
        if (take("sp")) { // repeated for each argument of a pack
            std::uint64_t size = 0;
            while (!isEnd() && peek() != 'E') { // generously, all that follows
                size = sum(size, expression());
            }
            return std::min(size * m_largestPack, k_ceiling);
        }
        if (take("sr")) {
            return unresolvedName();
        }
        if (takeOne(k_typeOperators)) {
            return type();
        }
        if (take("on")) {
            return unqualifiedName(0);
        }
        if (isDigit(first)) {
            return sourceName();
        }
        if (take("_")) {
            return 1; // the end of a placement list
        }
        if (isLower(first) && std::isalpha(static_cast<unsigned char>(peek(1))) != 0) {
            m_at += 2;
            return k_wordSize;
        }
        return type();
    }

    std::uint64_t type() {
        Nesting const nesting(*this);
        char const first = peek();
        if (first == 'r' || first == 'V' || first == 'K') {
            while (peek() == 'r' || peek() == 'V' || peek() == 'K') {
                ++m_at;
            }
            return remember(sum(k_wordSize, type()));
        }
        if (first == 'u') {
            ++m_at;
            std::uint64_t size = sourceName();
            if (peek() == 'I') {
                size = sum(size, templateArguments());
            }
            return remember(size);
        }
        if (isLower(first)) {
            ++m_at;
            return k_wordSize;
        }
        if (isDigit(first) || first == 'N' || first == 'Z' || isAt("St")) {
            return remember(name());
        }
        std::uint64_t size = 0;
        switch (first) {
        case 'F': ++m_at; return remember(functionType());
        case 'A':
            ++m_at;
            number();
            size = k_wordSize;
            while (!isEnd() && peek() != '_') { // the bound may be an expression
                size = sum(size, expression());
            }
            require("_");
            return remember(sum(size, type()));
        case 'M': {
            ++m_at;
            std::uint64_t const owner = type();
            return remember(sum(owner, type()));
        }
        case 'T': {
            if (isAt("Ts") || isAt("Tu") || isAt("Te")) {
                m_at += 2;
                return remember(name());
            }
            size = remember(templateParameter());
            if (peek() == 'I') {
                size = remember(sum(size, templateArguments()));
            }
            return size;
        }
        case 'S': {
            size = substitution();
            if (peek() == 'I') {
                size = remember(sum(size, templateArguments()));
            }
            return size;
        }
        case 'P':
        case 'R':
        case 'O':
        case 'C':
        case 'G': ++m_at; return remember(sum(k_wordSize, type()));
        case 'U': {
            ++m_at;
            size = sourceName();
            if (peek() == 'I') {
                size = sum(size, templateArguments());
            }
            return remember(sum(size, type()));
        }
        case 'D': return typeOfD();
        default: return fail();
        }
    }

    std::uint64_t functionType() {
        take("Y");
        std::uint64_t size = k_wordSize;
        while (!isClosed()) {
            if ((peek() == 'R' || peek() == 'O') && peek(1) == 'E') {
                ++m_at;
                continue;
            }
            size = sum(size, sum(2, type()));
        }
        return size;
    }

    std::uint64_t typeOfD() {
        char const second = peek(1);
        switch (second) {
        case 't':
        case 'T': return remember(decltypeOf());
        case 'p': {
            m_at += 2;
            std::uint64_t const pattern = sum(k_wordSize, type());
            return remember(std::min(pattern * m_largestPack, k_ceiling));
        }
        case 'v':
            m_at += 2;
            sequence();
            return remember(sum(k_wordSize, type()));
        case 'F':
            m_at += 2;
            number();
            take("x");
            take("b");
            take("_");
            return k_wordSize;
        case 'o': m_at += 2; return sum(k_wordSize, type());
        case 'O': m_at += 2; return sum(expressions(), type());
        default:
            if (!isLower(second)) {
                return fail();
            }
            m_at += 2;
            return k_wordSize;
        }
    }

    std::string_view m_text;
    std::size_t m_at = 0;
    bool m_failed = false;
    unsigned int m_depth = 0;
    std::vector<std::uint64_t> m_candidates; ///< Sizes of what can be referred back to.
    std::uint64_t m_largestCandidate = 0;
    std::uint64_t m_largestArgument = 0;
    std::uint64_t m_largestPack = 1; ///< Arguments that one pattern may be repeated for.
    unsigned int m_signatures = 0;   ///< How many parameter lists we are in.
};

} // namespace

std::uint64_t mangledSizeBound(std::string_view mangled) { return MangledSize(mangled).total(); }

} // namespace ORV_3_30
