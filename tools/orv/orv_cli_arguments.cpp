// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
// @FILE by a stack of words still to be looked at; abbreviations by a look at every option of the command.

#include "orv_cli_arguments.h"

#include "orv_cli_module.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>

namespace orv_cli {
namespace {

constexpr unsigned int k_mostFiles = 2000;
constexpr std::size_t k_mostWords = std::size_t{1} << 20; // still to be looked at, when a file is opened

bool isBlank(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }

std::vector<std::string> split(std::string const& text) {
    std::vector<std::string> words;
    bool isInWord = false;
    char quote = '\0';
    for (std::size_t at = 0; at < text.size(); ++at) {
        char const c = text[at];
        if (quote == '\0' && isBlank(c)) {
            isInWord = false;
            continue;
        }
        if (!isInWord) {
            words.emplace_back();
            isInWord = true;
        }
        if (c == '\\') {
            if (++at < text.size()) {
                words.back() += text[at];
            }
        } else if (c == quote) {
            quote = '\0';
        } else if (quote == '\0' && (c == '\'' || c == '"')) {
            quote = c;
        } else {
            words.back() += c;
        }
    }
    return words;
}

/// True if the next word is the value of an option in this one.
bool takesNext(CLI::App const& command, std::string const& word) {
    auto const takesValue = [&](std::string const& name) {
        CLI::Option const* const option = command.get_option_no_throw(name);
        return option != nullptr && option->get_items_expected_min() > 0;
    };
    if (word.rfind("--", 0) == 0) {
        return word.find('=') == std::string::npos && takesValue(word);
    }
    if (word.size() < 2 || word[0] != '-') {
        return false;
    }
    auto const first =
        std::find_if(word.begin() + 1, word.end(), [&](char letter) { return takesValue(std::string("-") + letter); });
    return first != word.end() && first + 1 == word.end();
}

/// True if a digit stands where a letter should, among those in front of a value.
bool hasDigit(CLI::App const& command, std::string const& letters) {
    for (std::size_t at = 1; at < letters.size(); ++at) {
        if (std::isdigit(static_cast<unsigned char>(letters[at])) != 0) {
            return true;
        }
        if (takesNext(command, letters.substr(0, 1) + letters[at])) {
            return false;
        }
    }
    return false;
}

/// The one option whose name begins so, in full; empty if there is none, or more than one.
std::string completed(std::vector<CLI::Option const*> const& options, std::string const& beginning) {
    std::set<CLI::Option const*> fitting;
    std::string full;
    for (CLI::Option const* const option : options) {
        for (std::string const& name : option->get_lnames()) {
            if (name.rfind(beginning, 0) == 0) {
                fitting.insert(option);
                full = name;
            }
        }
    }
    return fitting.size() == 1 ? full : std::string();
}

} // namespace

std::vector<std::string> expandFiles(std::vector<std::string> words) {
    std::vector<std::string> expanded;
    std::reverse(words.begin(), words.end());
    unsigned int files = 0;
    while (!words.empty()) {
        std::string const word = std::move(words.back());
        words.pop_back();
        std::ifstream file;
        if (word.size() > 1 && word.front() == '@') {
            std::error_code ignored;
            std::filesystem::file_status const kind = std::filesystem::status(word.substr(1), ignored);
            if (std::filesystem::is_directory(kind) || std::filesystem::is_character_file(kind)) {
                throw Failure(word + ": is no file: leave out the @, or name a file with words");
            }
            file.open(word.substr(1), std::ios::binary);
        }
        if (!file.is_open()) {
            expanded.push_back(word);
            continue;
        }
        if (++files > k_mostFiles || words.size() > k_mostWords) {
            throw Failure(word + ": files name each other without end: take the @ out of them");
        }
        std::vector<std::string> inside =
            split({std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()});
        words.insert(words.end(), std::make_move_iterator(inside.rbegin()), std::make_move_iterator(inside.rend()));
    }
    return expanded;
}

void completeOptions(CLI::App const& command, std::vector<std::string>& words) {
    auto const isClassic = [](CLI::Option const* option) { return option->get_group() == k_classicGroup; };
    bool isValue = false;
    for (std::string& word : words) {
        if (isValue) {
            isValue = false;
            continue;
        }
        if (word == "--") {
            return;
        }
        std::size_t const end = std::min(word.find('='), word.size());
        std::string const name = end > 2 && word.rfind("--", 0) == 0 ? word.substr(2, end - 2) : std::string();
        if (!name.empty() && command.get_option_no_throw("--" + name) == nullptr) {
            std::string full = completed(command.get_options(isClassic), name);
            full = full.empty() ? completed(command.get_options(), name) : full;
            word.replace(2, full.empty() ? 0 : end - 2, full);
        }
        isValue = takesNext(command, word);
    }
}

std::string wrongWord(CLI::App const& command, std::vector<std::string> const& words) {
    bool isValue = false;
    for (std::string const& word : words) {
        if (!isValue && word == "--") {
            break;
        }
        bool const isNumber = word.size() > 1 && word[0] == '-' && word[1] != '-' && hasDigit(command, word);
        if (!isValue && isNumber) {
            return word + ": an address has no sign";
        }
        std::size_t const end = word.find('=');
        if (!isValue && end != std::string::npos && word.rfind("--", 0) == 0) {
            CLI::Option const* const option = command.get_option_no_throw(word.substr(0, end));
            bool const isFlag = option != nullptr && option->get_items_expected_min() == 0;
            if (isFlag && !option->check_lname("demangle")) {
                return word + ": takes no value";
            }
        }
        isValue = !isValue && takesNext(command, word);
    }
    return {};
}

void shieldBrackets(std::vector<std::string>& words) {
    for (std::string& word : words) {
        if (word.size() > 1 && word.front() == '[' && word.back() == ']') {
            word.insert(0, " ");
        }
    }
}

std::string firstPlainWord(CLI::App const& app, std::vector<std::string> const& words) {
    bool isValue = false;
    for (std::string const& word : words) {
        if (!isValue && (word.empty() || word[0] != '-')) {
            return word;
        }
        isValue = !isValue && takesNext(app, word);
    }
    return {};
}

} // namespace orv_cli
