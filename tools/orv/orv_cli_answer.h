// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// What is known of an address, and the text of it.
#pragma once

#include "orv_cli_commands.h"

#include <string>
#include <string_view>
#include <vector>

namespace orv_cli {

/// A place in a source file.
struct Place {
    std::string_view file; ///< Without data where it is not known.
    unsigned int line = 0;
    unsigned int column = 0;
    unsigned long long discriminator = 0;

    void take(ISourceLocation& location);
};

/// A function that calls the one before, which is inlined into it, and the place of the call.
struct Frame {
    std::string_view function;
    Place place;
};

/// One question, and what is known of it.
struct Query {
    std::string_view word;
    unsigned long long value = 0;   ///< What the word says, as it is shown.
    unsigned long long address = 0; ///< Where that is in the module.
    bool isUnderstood = false;      ///< The word is a number or the name of a symbol.
    bool isInModule = false;        ///< Something that is loaded stands there.
    unsigned long long offset = 0;  ///< In the innermost function's range; told in JSON only.
    std::string_view function;      ///< The innermost one; without data where it is not known.
    Place place;
    std::vector<Frame const*> const* callers = nullptr; ///< Where the frames around it stand, from the inside out.
    std::size_t callersBegin = 0;
    std::size_t callersEnd = 0;

    enum class Half { Function, Line };
    /// From a query for the same address.
    void takeAnswer(Query const& other, Half half);
};

/// Writes answers in the form that the options ask for.
class AnswerText {
public:
    AnswerText(SymbolizeOptions const& options, bool json, bool is32Bit)
        : m_options(options), m_json(json), m_is32Bit(is32Bit) {}

    /// False if the text has no room for it: it is as before then.
    bool append(Query const& query, std::string& out) const;
    /// To standard output, piece by piece. room: what the pieces are made in.
    void print(Query const& query, std::string& room) const;

private:
    template <typename Next> bool write(Query const& query, std::string& out, Next const& next) const;
    template <typename Next> bool writeJson(Query const& query, std::string& out, Next const& next) const;
    void append(std::string_view function, Place const& place, std::string& out) const;
    void append(Place const& place, bool isFunctionKnown, std::string& out) const;

    SymbolizeOptions const& m_options;
    bool m_json;
    bool m_is32Bit;
};

} // namespace orv_cli
