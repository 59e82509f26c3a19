// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// The words of the command line, before they are told apart.
#pragma once

#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace orv_cli {

/// Puts the words of FILE in place of each @FILE: they stand apart by blanks, quotes hold them together, and a
/// backslash takes the next character as it is. A word whose file can't be read stays. Throws Failure where files name
/// each other without end.
std::vector<std::string> expandFiles(std::vector<std::string> words);

/// Spells out long options that are cut short, as "--func": those of the command, up to "--". Options of addr2line go
/// first, as scripts have them; of those that fit no one, or several, the word stays.
void completeOptions(CLI::App const& command, std::vector<std::string>& words);

/// What of the words is wrong usage, though the parser would take it: a number with a minus sign, a value for a flag.
/// The empty string if nothing is.
std::string wrongWord(CLI::App const& command, std::vector<std::string> const& words);
/// Keeps the parser from taking words in brackets for lists: a blank in front changes no address.
void shieldBrackets(std::vector<std::string>& words);
/// The first word that is no option of the application and no value of one.
std::string firstPlainWord(CLI::App const& app, std::vector<std::string> const& words);

/// The group of addr2line's options.
inline constexpr char k_classicGroup[] = "Options of addr2line";

} // namespace orv_cli
