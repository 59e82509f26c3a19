// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// What is known of an address, and the text of it.
#pragma once

#include "orv_cli_commands.h"

#include <orv/orv_frames.h>

#include <string>
#include <string_view>
#include <utility>

namespace orv_cli {

/// One question, and what is known of it.
struct Query {
    std::string_view word;
    unsigned long long value = 0;     ///< What the word says, as it is shown.
    unsigned long long address = 0;   ///< Where that is in the module.
    bool isUnderstood = false;        ///< The word is a number or the name of a symbol.
    bool isInModule = false;          ///< Something that is loaded stands there.
    Frame const* innermost = nullptr; ///< Null where nothing is known.
};

/// Writes answers in the form that the options ask for.
class AnswerText {
public:
    /// kernel: what the code of a GPU's binary is called; empty for all other modules.
    AnswerText(SymbolizeOptions const& options, bool json, bool is32Bit, std::string kernel)
        : m_options(options), m_json(json), m_is32Bit(is32Bit), m_kernel(std::move(kernel)) {}

    /// False if the text has no room for it: it is as before then.
    bool append(Query const& query, std::string& out) const;
    /// To standard output, piece by piece. room: what the pieces are made in.
    void print(Query const& query, std::string& room) const;

private:
    template <typename Next> bool write(Query const& query, std::string& out, Next const& next) const;
    template <typename Next> bool writeJson(Query const& query, std::string& out, Next const& next) const;
    void append(Frame const& frame, std::string& out) const;
    void appendPlace(Frame const& frame, std::string& out) const;
    char const* nameOf(Frame const& frame) const {
        return !m_kernel.empty() ? m_kernel.c_str() : m_options.demangle ? frame.demangled : frame.function;
    }

    SymbolizeOptions const& m_options;
    bool m_json;
    bool m_is32Bit;
    std::string m_kernel;
};

} // namespace orv_cli
