// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
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

void addPlace(Json& object, Place const& place) {
    bool const hasLine = place.file.data() != nullptr;
    object["file"] = hasLine ? Json(place.file) : Json();
    object["line"] = hasLine ? Json(place.line) : Json();
    object["column"] = hasLine ? Json(place.column) : Json();
    object["discriminator"] = hasLine ? Json(place.discriminator) : Json();
}

} // namespace

void Place::take(ISourceLocation& location) {
    ISourceFile* const source = location.sourceFile();
    file = source != nullptr ? std::string_view(source->path()) : std::string_view();
    line = location.line();
    column = location.column();
    discriminator = location.discriminator();
}

void Query::takeAnswer(Query const& other, Half half) {
    if (half == Half::Line) {
        place = other.place;
        return;
    }
    function = other.function;
    offset = other.offset;
    callers = other.callers;
    callersBegin = other.callersBegin;
    callersEnd = other.callersEnd;
}

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
    append(query.function, query.place, out);
    bool isWanted = next();
    for (std::size_t i = query.callersBegin; isWanted && i < query.callersEnd; ++i) {
        if (m_options.pretty) {
            out += " (inlined by) ";
        }
        append((*query.callers)[i]->function, (*query.callers)[i]->place, out);
        isWanted = next();
    }
    return isWanted;
}

void AnswerText::append(std::string_view function, Place const& place, std::string& out) const {
    bool const isFunctionKnown = function.data() != nullptr;
    if (m_options.functions) {
        bool const isKnown = isFunctionKnown || place.file.data() != nullptr;
        out += isFunctionKnown ? function : "??";
        out += !m_options.pretty ? "\n" : isKnown ? " at " : " ";
    }
    append(place, isFunctionKnown, out);
}

/// In the words of addr2line: "??:0" where nothing is known, "??:?" for a function without a line, and
/// "?" for line 0, which compilers give to code that belongs to no line.
void AnswerText::append(Place const& place, bool isFunctionKnown, std::string& out) const {
    if (place.file.data() == nullptr) {
        out += isFunctionKnown ? "??:?\n" : "??:0\n";
        return;
    }
    // All of it, or what stands behind the last slash.
    out += place.file.substr(m_options.baseNames ? place.file.rfind('/') + 1 : 0);
    if (place.line == 0) {
        out += ":?\n";
        return;
    }
    out += ':';
    appendNumber(place.line, out);
    if (place.discriminator != 0) {
        out += " (discriminator ";
        appendNumber(place.discriminator, out);
        out += ')';
    }
    out += '\n';
}

template <typename Next> bool AnswerText::writeJson(Query const& query, std::string& out, Next const& next) const {
    bool const isFound = query.function.data() != nullptr;
    Json object;
    object["address"] = query.isUnderstood ? Json(hex(query.value)) : Json(std::string(query.word));
    object["function"] = isFound ? Json(query.function) : Json();
    object["offset"] = isFound ? Json(hex(query.offset)) : Json();
    addPlace(object, query.place);
    out += textOf(object);
    if (!m_options.inlines) {
        return next();
    }
    // Caller by caller, as one name may stand in a long chain many times.
    out.replace(out.rfind('}'), std::string::npos, ",\"callers\":[");
    bool isWanted = next();
    for (std::size_t i = query.callersBegin; isWanted && i < query.callersEnd; ++i) {
        Json caller;
        caller["function"] = (*query.callers)[i]->function;
        addPlace(caller, (*query.callers)[i]->place);
        out.append(i == query.callersBegin ? "" : ",") += textOf(caller);
        out.pop_back(); // the end of the line
        isWanted = next();
    }
    out += "]}\n";
    return isWanted && next();
}

} // namespace orv_cli
