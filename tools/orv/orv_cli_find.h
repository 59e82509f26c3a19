// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// Finding what a word of the command line names.
#pragma once

#include "orv_cli_module.h"

#include <deque>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace orv_cli {

using Ranges = SymMgrObjectPtr<IIterator<SymMgrObjectPtr<ISymbolRange>>>;

constexpr auto k_allKinds = static_cast<symbol_kind_t>(symbol_kind_Function | symbol_kind_DataAlt | symbol_kind_Data |
                                                       symbol_kind_Other | symbol_kind_FunctionAlt);

unsigned long long startOf(ISymbolRange& range);
/// All ranges of a symbol, by address.
std::vector<SymMgrObjectPtr<ISymbolRange>> rangesOf(ISymbol& symbol);
/// The functions that a word names: those of that name, mangled or not, or the one at that address. Throws Failure if
/// there is none.
std::vector<SymMgrObjectPtr<ISymbolRange>> findFunctions(Module& module, std::string const& word);

/// Where a symbol stands: a value of the symbol table, which in a relocatable file counts from the start of a section.
struct SymbolPlace {
    unsigned long long value;
    unsigned int section; ///< Its number; one that no file has for an address.
};

/// The symbols of the module's own table, by the names that stand there: debug information may name and place them
/// otherwise, and the bank leaves out what is neither code nor data. Of a stripped module also those that the bank has
/// from its companion. Read at the first question.
class SymbolPlaces {
public:
    explicit SymbolPlaces(Module& module) : m_module(module) {}

    /// The first symbol of that name; false if there is none.
    bool find(std::string_view name, SymbolPlace& place);
    /// True if a symbol of that name starts there.
    bool isStart(std::string_view name, unsigned long long address);
    /// The range at which a function is entered, of several the one where the symbol of its name starts: others are
    /// cold parts of it.
    SymMgrObjectPtr<ISymbolRange> entryOf(ISymbol& function, std::vector<SymMgrObjectPtr<ISymbolRange>> const& ranges);

private:
    struct Named {
        std::string_view name;
        SymbolPlace place;
    };
    using Found = std::pair<std::vector<Named>::const_iterator, std::vector<Named>::const_iterator>;

    static bool isBefore(Named const& first, Named const& second) { return first.name < second.name; }
    void read();
    /// False if the module has no such table.
    bool readTable(char const* symbols, char const* strings);
    template <typename Symbol> void readSymbols(IBuffer& symbols, IBuffer& strings);
    void collectFromBank();
    Found named(std::string_view name);
    unsigned long long addressOf(SymbolPlace const& place);

    Module& m_module;
    std::vector<Named> m_symbols; ///< By name, equal ones as they came.
    std::vector<SymMgrObjectPtr<IBuffer>> m_strings;
    std::deque<std::string> m_bankNames;
    bool m_isRead = false;
};

} // namespace orv_cli
