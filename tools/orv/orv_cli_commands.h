// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// The commands. Each returns the exit status, and throws Failure for a module that can't be loaded.
#pragma once

#include "orv_cli_module.h"

#include <optional>
#include <string>
#include <vector>

namespace orv_cli {

/// Options of addr2line, with its meanings.
struct SymbolizeOptions {
    std::string module = "a.out";
    std::optional<std::string> section; ///< Addresses count from its start; none: as the module lays them out.
    bool functions = false;
    bool inlines = false;
    bool noInlines = false; ///< Name the function that the code was compiled into.
    bool demangle = false;
    bool addresses = false;
    bool pretty = false;
    bool baseNames = false;
    bool isAddr2line = false;       ///< A word that means nothing is no failure.
    std::vector<std::string> words; ///< Addresses; from standard input if there are none.
};
int symbolize(SymbolizeOptions const& options, CommonOptions const& common);

struct SymbolsOptions {
    std::string module;
    std::string kinds; ///< "function,data,other"; empty: all.
    std::string range; ///< "FROM:TO", either may be missing.
    bool disjoint = false;
    bool demangle = false;
};
struct LinesOptions {
    std::string module;
    std::string file;  ///< A path or the end of one; empty: all.
    std::string range; ///< As in SymbolsOptions.
    std::string unit;  ///< Hexadecimal id; empty: all.
    bool all = false;  ///< Rows of size 0 too.
};
int lines(LinesOptions const& options, CommonOptions const& common);
int files(std::string const& module, CommonOptions const& common);
int units(std::string const& module, CommonOptions const& common);
int inlines(std::string const& module, std::string const& word, CommonOptions const& common);

/// All numbers are hexadecimal.
struct StackOptions {
    std::string module;
    std::string pc;
    std::string stackPointer;
    std::string framePointer;
    std::vector<std::string> words; ///< Stack addresses.
};
int stackVariables(StackOptions const& options, CommonOptions const& common);
int function(std::string const& module, std::string const& word, CommonOptions const& common);

char const* nameOf(symbol_kind_t kind);
/// A missing side stays null: no bound. False unless both sides are addresses or missing.
bool parseRange(std::string const& text, SymMgrObjectPtr<IAddress>& from, SymMgrObjectPtr<IAddress>& to);
/// All give what is wrong with an argument, or the empty string.
std::string checkKinds(std::string const& kinds);
std::string checkRange(std::string const& range);
std::string checkAddress(std::string const& address);
int symbols(SymbolsOptions const& options, CommonOptions const& common);

/// What the bank is asked for an address by its number.
using AddressForm = status_t (IModuleSymbolBank::*)(unsigned long long number, SymMgrObjectPtr<IAddress>& out);
int address(std::string const& module, std::vector<std::string> const& words, AddressForm form,
            CommonOptions const& common);

int optReports(std::string const& module, std::string const& range, CommonOptions const& common);
int info(std::string const& module, CommonOptions const& common);
int candidates(std::string const& module, CommonOptions const& common);
int sections(std::string const& module, CommonOptions const& common);
int segments(std::string const& module, CommonOptions const& common);

} // namespace orv_cli
