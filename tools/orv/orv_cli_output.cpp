// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
// Text and JSON on standard output, whose failures are told.
#include "orv_cli_output.h"

#include "orv_cli_module.h"

#include <cstdio>

namespace orv_cli {

std::string hex(unsigned long long value) {
    char text[2 + 16 + 1];
    std::snprintf(text, sizeof(text), "0x%llx", value);
    return text;
}

std::string hexColumn(unsigned long long value) {
    char text[16 + 1];
    std::snprintf(text, sizeof(text), "%016llx", value);
    return text;
}

std::string printable(std::string_view text) {
    std::string shown;
    for (char const c : text) {
        bool const isControl = static_cast<unsigned char>(c) < ' ' || c == '\x7f';
        if (!isControl) {
            shown += c;
        } else if (c != '\0') {
            char escaped[5];
            std::snprintf(escaped, sizeof(escaped), "\\x%02x", static_cast<unsigned int>(c));
            shown += escaped;
        }
    }
    return shown;
}

std::string textOf(Json const& object) { return object.dump(-1, ' ', false, Json::error_handler_t::replace) + '\n'; }

void printJson(Json const& object) {
    std::string const text = textOf(object);
    std::fwrite(text.data(), 1, text.size(), stdout);
}

void finishOutput() {
    if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0) {
        throw Failure("standard output cannot be written");
    }
}

} // namespace orv_cli
