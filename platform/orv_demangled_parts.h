// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// A demangled name taken apart: return type, qualified name, parameter list, what follows.
///
///     std::string text = "void ns::f<int>(int) [clone .cold]";
///     DemangledParts parts(text);
///     parts.shortName();               // "ns::f<int>"
///     parts.baseName();                // "f"
///     parts.withoutParameters();       // "void ns::f<int> [clone .cold]"
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace ORV_3_30 {

/// Refers to the text, which must stay. Any text is taken: what does not look like a demangled name
/// is a name without parameters.
class DemangledParts {
public:
    explicit DemangledParts(std::string_view text);

    std::string withoutParameters() const;
    std::string shortName() const;
    std::string baseName() const;

private:
    /// What a parenthesis at the top of a declaration is.
    enum class Paren { PartOfName, Declarator, Parameters };

    void parse(std::size_t begin, std::size_t end, unsigned int depth);
    void parseDeclarator(std::size_t begin, std::size_t close, unsigned int depth);
    Paren classify(std::size_t at, std::size_t begin) const;
    /// Each returns the position behind what stands at a position.
    std::size_t skipGroup(std::size_t at, std::size_t end) const;
    std::size_t skipTemplateArguments(std::size_t at, std::size_t end) const;
    std::size_t skipOperator(std::size_t at, std::size_t end) const;
    std::size_t skipConversion(std::size_t at, std::size_t end) const;
    std::size_t skipQualifiers(std::size_t at, std::size_t end) const;
    bool isScope(std::size_t at, std::size_t end) const;
    bool isConversion(std::size_t at) const;
    std::size_t ownArguments(std::size_t at, std::size_t end) const;
    bool isOperator(std::size_t at, std::size_t begin, std::size_t end) const;
    /// Counts a step. True when there were too many: nested operators may look ahead over each other.
    bool isSpent() const { return m_steps == 0 || --m_steps == 0; }
    bool startsWith(std::size_t at, std::string_view word) const {
        return at <= m_text.size() && m_text.substr(at, word.size()) == word;
    }
    std::string_view prefix() const { return m_text.substr(0, m_declaration); }
    std::string_view qualifiedName() const { return m_text.substr(m_nameBegin, m_nameEnd - m_nameBegin); }

    /// Operators and template arguments nest in each other; deeper than this, the rest is taken as it is.
    static constexpr unsigned int k_deepest = 64;

    std::string_view m_text;
    mutable unsigned int m_depth = 0;
    mutable std::size_t m_steps;   ///< How many more characters may be looked at.
    std::size_t m_declaration = 0; ///< Behind "vtable for " and the like.
    std::size_t m_end;             ///< Ahead of " [clone ...]".
    std::size_t m_nameBegin = 0;
    std::size_t m_nameEnd = 0;
    std::size_t m_parametersEnd = 0; ///< With the qualifiers of the function.
    bool m_isType = false;           ///< "typeinfo for void ()": nothing to take apart.
};

} // namespace ORV_3_30
