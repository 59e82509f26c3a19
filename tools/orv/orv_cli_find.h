// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// Finding what a word of the command line names.
#pragma once

#include "orv_cli_module.h"

#include <string>
#include <unordered_map>
#include <vector>

namespace orv_cli {

using Ranges = SymMgrObjectPtr<IIterator<SymMgrObjectPtr<ISymbolRange>>>;

unsigned long long startOf(ISymbolRange& range);
/// All ranges of a symbol, by address.
std::vector<SymMgrObjectPtr<ISymbolRange>> rangesOf(ISymbol& symbol);
/// The functions that a word names: those of that name, mangled or not, or the one at that address. Throws Failure if
/// there is none.
std::vector<SymMgrObjectPtr<ISymbolRange>> findFunctions(Module& module, std::string const& word);

/// Where symbols start, by the names that the symbol tables have; debug information may name and place them otherwise.
/// Read at the first question.
class SymbolPlaces {
public:
    SymbolPlaces(Module& module, CommonOptions const& common) : m_module(module), m_common(common) {}

    /// The lowest address of a symbol of that name; false if there is none.
    bool find(std::string const& name, unsigned long long& address);
    /// True if a symbol of that name starts there.
    bool isStart(std::string const& name, unsigned long long address);
    /// The range at which a function is entered, of several the one where the symbol of its name starts: others are
    /// cold parts of it.
    SymMgrObjectPtr<ISymbolRange> entryOf(ISymbol& function, std::vector<SymMgrObjectPtr<ISymbolRange>> const& ranges);

private:
    void read();
    void collect(Module& module);

    Module& m_module;
    CommonOptions m_common;
    std::unordered_multimap<std::string, unsigned long long> m_places;
    bool m_isRead = false;
};

} // namespace orv_cli
