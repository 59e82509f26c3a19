// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// How the commands print: columns for people, one JSON object a line for scripts.
#pragma once

#include <nlohmann/json.hpp>

#include <string>

namespace orv_cli {

using Json = nlohmann::ordered_json;

/// "0x1139".
std::string hex(unsigned long long value);
/// Sixteen digits without a prefix, for columns.
std::string hexColumn(unsigned long long value);
/// A line. Bytes that are not UTF-8 are replaced: names come from files.
std::string textOf(Json const& object);
void printJson(Json const& object);
/// Flushes standard output; throws Failure if it can't be written.
void finishOutput();

} // namespace orv_cli
