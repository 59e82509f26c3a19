// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
// The text of an answer, as addr2line has it or as JSON.
#include "orv_cli_answer.h"

#include "orv_cli_output.h"

#include <charconv>
#include <cstdio>

namespace orv_cli {
namespace {

/// A text that is longer goes out before more is made.
constexpr std::size_t k_mostText = std::size_t{8} << 20;

void appendNumber(unsigned long long number, std::string& out) {
    char digits[20];
    out.append(digits, std::to_chars(digits, digits + sizeof(digits), number).ptr);
}

void addPlace(Json& object, Frame const& frame) {
    bool const hasLine = frame.file != nullptr || frame.line != 0;
    object["file"] = frame.file != nullptr ? Json(frame.file) : Json();
    object["line"] = hasLine ? Json(frame.line) : Json();
    object["column"] = hasLine ? Json(frame.column) : Json();
    object["discriminator"] = hasLine ? Json(frame.discriminator) : Json();
}

} // namespace

bool AnswerText::append(Query const& query, std::string& out) const {
    std::size_t const size = out.size();
    if (write(query, out, [&] { return out.size() <= k_mostText; })) {
        return true;
    }
    out.resize(size);
    return false;
}

void AnswerText::print(Query const& query, std::string& room) const {
    auto const flush = [&] {
        std::fwrite(room.data(), 1, room.size(), stdout);
        room.clear();
        return true;
    };
    room.clear();
    write(query, room, flush);
}

/// next: called behind each frame. False from it ends the answer.
template <typename Next> bool AnswerText::write(Query const& query, std::string& out, Next const& next) const {
    if (m_json) {
        return writeJson(query, out, next);
    }
    if (m_options.addresses) {
        std::string const digits = hexColumn(query.value);
        out.append("0x").append(digits, m_is32Bit ? digits.size() / 2 : 0).append(m_options.pretty ? ": " : "\n");
    }
    Frame const unknown;
    Frame const* frame = query.innermost != nullptr ? query.innermost : &unknown;
    append(*frame, out);
    bool isWanted = next();
    for (frame = frame->caller; m_options.inlines && isWanted && frame != nullptr; frame = frame->caller) {
        if (m_options.pretty) {
            out += " (inlined by) ";
        }
        append(*frame, out);
        isWanted = next();
    }
    return isWanted;
}

void AnswerText::append(Frame const& frame, std::string& out) const {
    if (m_options.functions) {
        bool const isKnown = frame.function != nullptr || frame.file != nullptr;
        out += frame.function != nullptr ? nameOf(frame) : "??";
        out += !m_options.pretty ? "\n" : isKnown ? " at " : " ";
    }
    appendPlace(frame, out);
}

/// In the words of addr2line: "??:0" where nothing is known, "??:?" for a function without a line, "??" for a source
/// without a file, and "?" for line 0, which compilers give to code that belongs to no line.
void AnswerText::appendPlace(Frame const& frame, std::string& out) const {
    if (frame.file == nullptr && frame.line == 0) {
        out += frame.function != nullptr ? "??:?\n" : "??:0\n";
        return;
    }
    std::string_view const file = frame.file != nullptr ? frame.file : "??";
    // All of it, or what stands behind the last slash.
    out += file.substr(m_options.baseNames ? file.rfind('/') + 1 : 0);
    if (frame.line == 0) {
        out += ":?\n";
        return;
    }
    out += ':';
    appendNumber(frame.line, out);
    if (frame.discriminator != 0) {
        out += " (discriminator ";
        appendNumber(frame.discriminator, out);
        out += ')';
    }
    out += '\n';
}

template <typename Next> bool AnswerText::writeJson(Query const& query, std::string& out, Next const& next) const {
    Frame const unknown;
    Frame const& innermost = query.innermost != nullptr ? *query.innermost : unknown;
    bool const isFound = innermost.function != nullptr;
    Json object;
    object["address"] = query.isUnderstood ? Json(hex(query.value)) : Json(std::string(query.word));
    object["function"] = isFound ? Json(nameOf(innermost)) : Json();
    object["offset"] = isFound ? Json(hex(query.address - innermost.start)) : Json();
    addPlace(object, innermost);
    out += textOf(object);
    if (!m_options.inlines) {
        return next();
    }
    // Caller by caller, as one name may stand in a long chain many times.
    out.replace(out.rfind('}'), std::string::npos, ",\"callers\":[");
    bool isWanted = next();
    for (Frame const* frame = innermost.caller; isWanted && frame != nullptr; frame = frame->caller) {
        Json caller;
        caller["function"] = nameOf(*frame);
        addPlace(caller, *frame);
        out.append(frame == innermost.caller ? "" : ",") += textOf(caller);
        out.pop_back(); // the end of the line
        isWanted = next();
    }
    out += "]}\n";
    return isWanted && next();
}

} // namespace orv_cli
