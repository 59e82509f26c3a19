// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
#include "platform/orv_demangled_parts.h"

#include <algorithm>
#include <cctype>

namespace ORV_3_30 {
namespace {

/// What the runtime's demangler puts ahead of names that belong to something else's name.
constexpr std::string_view k_prefixes[] = {
    "vtable for ",
    "VTT for ",
    "construction vtable for ",
    "typeinfo fn for ",
    "non-virtual thunk to ",
    "virtual thunk to ",
    "covariant return thunk to ",
    "guard variable for ",
    "TLS init function for ",
    "TLS wrapper function for ",
    "hidden alias for ",
    "transaction clone for ",
    "non-transaction clone for ",
    "template parameter object for ",
};
/// Ahead of a type, which is no declaration.
constexpr std::string_view k_typePrefixes[] = {"typeinfo for ", "typeinfo name for "};
constexpr std::string_view k_temporary = "reference temporary #";

/// Longest first, so that "<<=" is not taken for "<".
constexpr std::string_view k_symbolOperators[] = {
    "<=>", "->*", "<<=", ">>=", "()", "[]", "->", "<<", ">>", "<=", ">=", "==", "!=", "&&",
    "||",  "++",  "--",  "+=",  "-=", "*=", "/=", "%=", "^=", "&=", "|=", "<",  ">",  "+",
    "-",   "*",   "/",   "%",   "^",  "&",  "|",  "~",  "!",  "=",  ",",  "?",
};
constexpr std::string_view k_wordOperators[] = {" new[]", " delete[]", " new", " delete", " co_await", "\"\" "};
constexpr std::string_view k_qualifiers[] = {" const", " volatile", " restrict", " noexcept", " &&", " &"};
constexpr std::string_view k_anonymous = "(anonymous namespace)";
constexpr std::string_view k_operator = "operator";

/// Declarators of functions that return pointers to functions nest; no name that people write goes
/// this deep.
constexpr unsigned int k_deepestDeclarator = 32;

/// Longer texts are not taken apart: names are a means to tell functions apart, not to spend time on.
constexpr std::size_t k_longestText = 32768;
/// Names that people write take a few.
constexpr std::size_t k_stepsPerCharacter = 100;

bool isIdentifier(char c) { return std::isalnum(static_cast<unsigned char>(c)) != 0 || c == '_' || c == '$'; }

} // namespace

DemangledParts::DemangledParts(std::string_view text)
    : m_text(text), m_steps(k_stepsPerCharacter * (text.size() + 1)), m_end(text.size()) {
    if (m_text.size() > k_longestText) {
        m_nameEnd = m_parametersEnd = m_end;
        return;
    }
    for (std::size_t clone = m_text.rfind(" [clone "); clone != std::string_view::npos && m_text[m_end - 1] == ']';
         clone = m_text.substr(0, m_end).rfind(" [clone ")) {
        m_end = clone;
        if (m_end == 0) {
            break;
        }
    }
    for (bool isPrefixed = true; isPrefixed;) {
        isPrefixed = false;
        for (std::string_view const word : k_prefixes) {
            if (startsWith(m_declaration, word)) {
                m_declaration += word.size();
                isPrefixed = true;
            }
        }
    }
    if (startsWith(m_declaration, k_temporary)) {
        std::size_t const number = m_declaration + k_temporary.size();
        std::size_t const behind = m_text.find_first_not_of("0123456789", number);
        m_declaration = startsWith(behind, " for ") ? behind + 5 : m_declaration;
    }
    m_end = std::max(m_end, m_declaration);
    m_nameBegin = m_declaration;
    m_nameEnd = m_parametersEnd = m_end;
    for (std::string_view const word : k_typePrefixes) {
        if (startsWith(m_declaration, word)) {
            m_isType = true;
            return;
        }
    }
    parse(m_declaration, m_end, 0);
    if (m_steps == 0) {
        m_nameBegin = m_declaration;
        m_nameEnd = m_parametersEnd = m_end;
    }
}

/// Finds the name and the parameters of the declaration in [begin, end).
void DemangledParts::parse(std::size_t begin, std::size_t end, unsigned int depth) {
    std::size_t nameBegin = begin;
    std::size_t at = begin;
    while (at < end && !isSpent()) {
        if (isOperator(at, begin, end)) {
            at = skipOperator(at, end);
            continue;
        }
        switch (m_text[at]) {
        case '<': at = skipTemplateArguments(at, end); continue;
        case '{':
        case '[': at = skipGroup(at, end); continue;
        case ' ': nameBegin = ++at; continue;
        case '(': break;
        default: ++at; continue;
        }
        std::size_t const close = skipGroup(at, end);
        Paren const paren = classify(at, begin);
        if (paren == Paren::Declarator && depth < k_deepestDeclarator) {
            parseDeclarator(at, close, depth);
            return;
        }
        if (paren == Paren::Parameters) {
            std::size_t const after = skipQualifiers(close, end);
            if (!startsWith(after, "::")) {
                m_nameBegin = nameBegin;
                m_nameEnd = at;
                m_parametersEnd = after;
                return;
            }
            at = after; // something local to this function
            continue;
        }
        at = close;
    }
}

/// "(*f<int>(int))", of a function that returns a pointer to a function: the name is inside, perhaps
/// in a parenthesis of its own.
void DemangledParts::parseDeclarator(std::size_t begin, std::size_t close, unsigned int depth) {
    std::size_t const end = close > begin + 1 ? close - 1 : begin + 1;
    std::size_t inner = begin + 1;
    std::size_t const star = m_text.substr(inner, end - inner).find_first_of("*&");
    inner = star != std::string_view::npos ? inner + star : inner;
    while (inner < end && (m_text[inner] == '*' || m_text[inner] == '&')) {
        ++inner;
    }
    if (inner < end && m_text[inner] == '(' && !startsWith(inner, k_anonymous) && depth < k_deepestDeclarator) {
        parseDeclarator(inner, skipGroup(inner, end), depth + 1);
        return;
    }
    m_nameBegin = inner;
    m_nameEnd = m_parametersEnd = end;
    parse(inner, end, depth + 1);
}

DemangledParts::Paren DemangledParts::classify(std::size_t at, std::size_t begin) const {
    if (startsWith(at, k_anonymous)) {
        return Paren::PartOfName;
    }
    std::string_view const before = m_text.substr(begin, at - begin);
    for (std::string_view const word :
         {std::string_view("decltype "), std::string_view("decltype"), std::string_view("noexcept")}) {
        if (before.size() >= word.size() && before.substr(before.size() - word.size()) == word) {
            return Paren::PartOfName;
        }
    }
    return !before.empty() && before.back() == ' ' ? Paren::Declarator : Paren::Parameters;
}

std::size_t DemangledParts::skipGroup(std::size_t at, std::size_t end) const {
    char const open = m_text[at];
    char const close = open == '(' ? ')' : open == '{' ? '}' : ']';
    std::size_t depth = 0;
    for (; at < end && !isSpent(); ++at) {
        depth += m_text[at] == open ? 1 : 0;
        if (m_text[at] == close && --depth == 0) {
            return at + 1;
        }
    }
    return end;
}

std::size_t DemangledParts::skipTemplateArguments(std::size_t at, std::size_t end) const {
    if (m_depth >= k_deepest) {
        return end;
    }
    ++m_depth;
    std::size_t result = end;
    std::size_t open = 0;
    for (std::size_t const begin = at; at < end && result == end && !isSpent();) {
        if (isOperator(at, begin, end)) {
            at = skipOperator(at, end);
            continue;
        }
        switch (m_text[at]) {
        case '(':
        case '{':
        case '[': at = skipGroup(at, end); continue;
        case '<': ++open; break;
        case '-': at += startsWith(at, "->") ? 1 : 0; break;
        case '>':
            if (--open == 0) {
                result = at + 1;
            }
            break;
        default: break;
        }
        ++at;
    }
    --m_depth;
    return std::min(result, end);
}

bool DemangledParts::isOperator(std::size_t at, std::size_t begin, std::size_t end) const {
    std::size_t const after = at + k_operator.size();
    return after < end && startsWith(at, k_operator) && !isIdentifier(m_text[after]) &&
           (at == begin || !isIdentifier(m_text[at - 1]));
}

std::size_t DemangledParts::skipOperator(std::size_t at, std::size_t end) const {
    at += k_operator.size();
    for (std::string_view const word : k_symbolOperators) {
        if (startsWith(at, word)) {
            at += word.size();
            // "operator<< <char>": the blank keeps the two apart, and both belong to the name.
            return startsWith(at, " <") ? at + 1 : at;
        }
    }
    for (std::string_view const word : k_wordOperators) {
        if (startsWith(at, word)) {
            return std::min(at + word.size(), end);
        }
    }
    return skipConversion(at, end);
}

/// "operator void (*)()() const::x": the type may hold parentheses of its own, so the parameters are
/// the last ones ahead of what is local to the function.
std::size_t DemangledParts::skipConversion(std::size_t at, std::size_t end) const {
    std::size_t parameters = end;
    while (at < end && !isSpent()) {
        switch (m_text[at]) {
        case '<': at = skipTemplateArguments(at, end); continue;
        case '>':
        case ',': return std::min(parameters, at); // the end of a template argument that we are in
        case '(': {
            std::size_t const close = skipGroup(at, end);
            if (!startsWith(at, k_anonymous)) {
                parameters = at;
                if (startsWith(skipQualifiers(close, end), "::") && m_text[at - 1] != ' ') {
                    return parameters;
                }
            }
            at = close;
            continue;
        }
        default: ++at;
        }
    }
    return parameters;
}

/// Whether a parenthesis belongs to a function that something behind it is local to.
bool DemangledParts::isScope(std::size_t at, std::size_t end) const {
    return m_text[at] == '(' && startsWith(skipQualifiers(skipGroup(at, end), end), "::");
}

bool DemangledParts::isConversion(std::size_t at) const {
    at += k_operator.size();
    auto const begins = [&](auto const& words) {
        return std::any_of(std::begin(words), std::end(words), [&](auto word) { return startsWith(at, word); });
    };
    return !begins(k_symbolOperators) && !begins(k_wordOperators);
}

/// Where the template arguments of a conversion operator in [at, end) begin; end if it has none. A
/// list at its end is its own if the type is no name that could have arguments: a builtin type, a
/// pointer, a reference, or a name with arguments already.
std::size_t DemangledParts::ownArguments(std::size_t at, std::size_t end) const {
    static constexpr std::string_view k_builtinEnds[] = {"int",    "char",   "long",     "short",   "bool",    "float",
                                                         "double", "signed", "unsigned", "wchar_t", "__int128"};
    std::size_t last = end;
    for (std::size_t i = at + k_operator.size(); i < end && !isSpent();) {
        if (m_text[i] == '<') {
            last = i;
            i = skipTemplateArguments(i, end);
        } else {
            last = m_text[i] == '(' ? end : last;
            i = m_text[i] == '(' ? skipGroup(i, end) : i + 1;
        }
    }
    if (last == end || m_text[end - 1] != '>') {
        return end;
    }
    std::string_view const type = m_text.substr(at, last - at);
    char const before = type.back();
    bool const isOwn = before == '*' || before == '&' || before == '>' || before == ')' ||
                       std::any_of(std::begin(k_builtinEnds), std::end(k_builtinEnds), [&](auto word) {
                           return type.size() > word.size() && type.substr(type.size() - word.size()) == word &&
                                  type[type.size() - word.size() - 1] == ' ';
                       });
    return isOwn ? last : end;
}

std::size_t DemangledParts::skipQualifiers(std::size_t at, std::size_t end) const {
    for (bool hasMore = true; hasMore && at < end;) {
        hasMore = false;
        if (m_text[at] == '[') { // "[abi:cxx11]"
            at = skipGroup(at, end);
            hasMore = true;
        }
        for (std::string_view const word : k_qualifiers) {
            if (startsWith(at, word)) {
                at += word.size();
                hasMore = true;
            }
        }
    }
    return std::min(at, end);
}

std::string DemangledParts::withoutParameters() const {
    std::string result(m_text.substr(0, m_nameEnd));
    return result.append(m_text.substr(std::max(m_nameEnd, m_parametersEnd)));
}

std::string DemangledParts::shortName() const { return std::string(prefix()).append(qualifiedName()); }

std::string DemangledParts::baseName() const {
    if (m_isType) {
        return std::string(m_text);
    }
    std::string_view const name = qualifiedName();
    std::size_t const end = m_nameBegin + name.size();
    std::size_t component = m_nameBegin;
    std::size_t arguments = end; // where the component's own template arguments begin
    for (std::size_t at = m_nameBegin; at < end && !isSpent();) {
        if (isOperator(at, component, end)) {
            std::size_t behind = skipOperator(at, end);
            if (isConversion(at) && behind < end && !isScope(behind, end)) {
                behind = end; // what looks like parameters belongs to the type
            }
            // "operator int<int>" has arguments of its own; those of "operator vector<int>" are the type's.
            arguments = isConversion(at) ? ownArguments(at, behind) : end;
            at = behind;
            continue;
        }
        switch (m_text[at]) {
        case '<':
            arguments = at;
            at = skipTemplateArguments(at, end);
            continue;
        case '(':
        case '{':
        case '[': at = skipGroup(at, end); continue;
        case ':':
            if (startsWith(at, "::")) {
                at += 2;
                component = at;
                arguments = end;
                continue;
            }
            break;
        default: break;
        }
        ++at;
    }
    std::string base(m_text.substr(component, arguments - component));
    while (!base.empty() && base.back() == ' ') { // "operator<< " ahead of its arguments
        base.pop_back();
    }
    return std::string(prefix()).append(base);
}

} // namespace ORV_3_30
