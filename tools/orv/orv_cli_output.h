// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// How the commands print: columns for people, one JSON object a line for scripts.
#pragma once

#include <nlohmann/json.hpp>

#include <string>
#include <string_view>

namespace orv_cli {

using Json = nlohmann::ordered_json;

/// "0x1139".
std::string hex(unsigned long long value);
/// Sixteen digits without a prefix, for columns.
std::string hexColumn(unsigned long long value);
/// A text of a file's for people: control characters are told by their numbers, and zeros left out.
std::string printable(std::string_view text);
/// A line. Bytes that are not UTF-8 are replaced: names come from files.
std::string textOf(Json const& object);
void printJson(Json const& object);
/// Flushes standard output; throws Failure if it can't be written.
void finishOutput();

} // namespace orv_cli
