// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
// Compilers told by marks in the text of DW_AT_producer (DWARF version 4, 3.1.1).
#include "dwarf/orv_dwarf_producer.h"

#include <cstdlib>
#include <cstring>

namespace ORV_3_30 {
namespace {

// The blank at the end makes each match whole options alone.
constexpr char const* k_debugOptions[] = {"-g ", "debug:all ", "debug:full "};
constexpr char const* k_optimisations[] = {"-O2 ", "-O3 ", "-Ox ", "-fast "};
constexpr char const* k_stackCheck = "-check stack ";

bool beginsWith(char const* text, char const* prefix) { return std::strncmp(text, prefix, std::strlen(prefix)) == 0; }

long numberAt(char const* text) { return std::strtol(text, nullptr, 10); }

/// What follows the first occurrence of a mark; null if nothing does.
char const* behind(char const* text, char const* mark) {
    char const* const found = std::strstr(text, mark);
    if (found == nullptr || found[std::strlen(mark)] == '\0') {
        return nullptr;
    }
    return found + std::strlen(mark);
}

void parseGnu(char const* producer, Compiler& out) {
    out.kind = compiler_Gnu;
    char const* const mark = std::strstr(producer, "GNU C++ ") != nullptr ? "GNU C++ " : "GNU C ";
    char const* const version = behind(producer, mark);
    if (version == nullptr) {
        return;
    }
    out.major = static_cast<unsigned int>(numberAt(version));
    if (char const* const minor = behind(version, ".")) {
        out.minor = static_cast<unsigned int>(numberAt(minor));
    }
    if (out.major == 2 && out.minor == 96) {
        out.kind = compiler_Gnu296;
    }
}

void parseVarko(char const* producer, Compiler& out) {
    constexpr long k_firstNewMajor = 8;
    out.kind = compiler_VarkoOld;
    if (char const* const version = behind(producer, "Version ")) {
        long const major = numberAt(version);
        out.major = static_cast<unsigned int>(major);
        out.kind = major >= k_firstNewMajor ? compiler_Varko : compiler_VarkoOld;
    }
    if (char const* at = behind(producer, "Opt_report_file ")) {
        // Cut behind the character that follows a backslash: clients know the names that come of it.
        bool isLast = false;
        for (; *at != '\0' && *at != ' ' && !isLast; ++at) {
            isLast = !out.optReportFile.empty() && out.optReportFile.back() == '\\';
            out.optReportFile += *at;
        }
    }
}

} // namespace

Compiler parseProducer(char const* producer) {
    Compiler result;
    if (beginsWith(producer, "GNU ")) {
        parseGnu(producer, result);
    } else if (beginsWith(producer, "Varko")) {
        parseVarko(producer, result);
    }
    return result;
}

void mergeOptions(std::string& options, char const* newText) {
    auto const has = [&](char const* option) { return options.find(option) != std::string::npos; };
    auto const isNew = [&](char const* option) { return !has(option) && std::strstr(newText, option) != nullptr; };
    std::string merged = options;
    for (char const* const option : k_debugOptions) {
        if (isNew(option)) {
            merged += std::string(" ") + option;
        }
    }
    bool const checksStack = std::strstr(newText, k_stackCheck) != nullptr;
    for (char const* const option : k_optimisations) {
        if (isNew(option) && !checksStack) {
            merged += std::string(" ") + option;
        }
    }
    options = merged;
}

} // namespace ORV_3_30
