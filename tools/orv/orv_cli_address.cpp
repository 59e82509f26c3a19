// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
// address: one address in all its forms.
#include "orv_cli_commands.h"
#include "orv_cli_find.h"
#include "orv_cli_output.h"

#include <cstdio>

namespace orv_cli {
namespace {

constexpr unsigned long long k_none = ~0ULL;

/// A place as name and offset; empty where there is none.
struct Place {
    std::string name;
    unsigned long long offset = 0;

    std::string text() const { return name.empty() ? "none" : name + "+" + hex(offset); }
    Json json() const { return name.empty() ? Json() : Json{{"name", name}, {"offset", hex(offset)}}; }
};

Place sectionAt(Module& module, IAddress& address) {
    ISection* const section = module.loader().sectionByAddress(address.pseudoAddr());
    return section != nullptr ? Place{section->name(), address.pseudoAddr() - section->address()} : Place{};
}

Place symbolAt(Module& module, IAddress& address) {
    SymMgrObjectPtr<ISymbolRange> range;
    if (module.symbolRangeByAddress(address, range, k_allKinds) != status_Ok) {
        return {};
    }
    return {range->symbol()->name(), address.pseudoAddr() - startOf(*range)};
}

void print(Module& module, IAddress& address, bool json) {
    ISegment* const segment = address.segment();
    Place const inSegment = segment != nullptr ? Place{segment->name(), address.segmentOffset()} : Place{};
    Place const inSection = sectionAt(module, address);
    Place const inSymbol = symbolAt(module, address);
    unsigned long long const offset = address.fileOffset();
    if (json) {
        printJson({{"address", hex(address.pseudoAddr())},
                   {"rva", hex(address.rva())},
                   {"file_offset", offset != k_none ? Json(hex(offset)) : Json()},
                   {"segment", inSegment.json()},
                   {"section", inSection.json()},
                   {"symbol", inSymbol.json()}});
        return;
    }
    std::printf("address      %s\n", hex(address.pseudoAddr()).c_str());
    std::printf("rva          %s\n", hex(address.rva()).c_str());
    std::printf("file offset  %s\n", offset != k_none ? hex(offset).c_str() : "none");
    std::printf("segment      %s\n", inSegment.text().c_str());
    std::printf("section      %s\n", inSection.text().c_str());
    std::printf("symbol       %s\n", inSymbol.text().c_str());
}

} // namespace

int address(std::string const& moduleName, std::vector<std::string> const& words, AddressForm form,
            CommonOptions const& common) {
    Module& module = Module::load(moduleName, common);
    int exitStatus = 0;
    bool isFirst = true;
    for (std::string const& word : words) {
        unsigned long long value = 0;
        SymMgrObjectPtr<IAddress> found;
        char const* problem = nullptr;
        if (!parseAddress(word, value)) {
            problem = "is no address: give hexadecimal digits, with or without 0x";
        } else if ((module.bank().*form)(value, found) != status_Ok) {
            problem = "lies in no segment and no section of the module: see 'orv segments'";
        }
        if (problem != nullptr) {
            finishOutput();
            std::fprintf(stderr, "orv: %s: %s: %s\n", moduleName.c_str(), word.c_str(), problem);
            exitStatus = 1;
            continue;
        }
        if (!isFirst && !common.json) {
            std::putchar('\n');
        }
        isFirst = false;
        print(module, *found, common.json);
    }
    finishOutput();
    return exitStatus;
}

} // namespace orv_cli
