/// The commands. Each returns the exit status, and throws Failure for a module that can't be loaded.
#pragma once

#include "orv_cli_module.h"

#include <string>
#include <vector>

namespace orv_cli {

/// Options of addr2line, with its meanings.
struct SymbolizeOptions {
    std::string module = "a.out";
    bool functions = false;
    bool inlines = false;
    bool demangle = false;
    bool addresses = false;
    bool pretty = false;
    bool baseNames = false;
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
/// Both give what is wrong with an argument, or the empty string.
std::string checkKinds(std::string const& kinds);
std::string checkRange(std::string const& range);
int symbols(SymbolsOptions const& options, CommonOptions const& common);

enum class AddressForm { Pseudo, Rva, FileOffset };
int address(std::string const& module, std::vector<std::string> const& words, AddressForm form,
            CommonOptions const& common);

int info(std::string const& module, CommonOptions const& common);
int candidates(std::string const& module, CommonOptions const& common);
int sections(std::string const& module, CommonOptions const& common);
int segments(std::string const& module, CommonOptions const& common);

} // namespace orv_cli
