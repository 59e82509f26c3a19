// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// inlines: the tree of inlined calls of a function.

#include "orv_cli_commands.h"
#include "orv_cli_find.h"
#include "orv_cli_output.h"

#include <cstdio>
#include <unordered_set>
#include <vector>

namespace orv_cli {
namespace {

/// A function or an inlined body of one, with the bodies in it.
struct Body {
    ISymbol* symbol = nullptr;
    IInlineInstance* instance = nullptr; ///< Null at the root.
    unsigned long long start = 0;        ///< Of a function with cold parts: where it is entered.
    unsigned long long size = 0;         ///< Of all its ranges, what lies in them included.
    std::vector<Body> bodies;            ///< By start.
};

/// Files may nest bodies as deep as they like; people look at a few levels.
constexpr unsigned int k_deepest = 200;

void addBodies(Body& body, unsigned int depth) {
    std::unordered_set<IInlineInstance*> known; // one may have several ranges
    for (auto const& range : rangesOf(*body.symbol)) {
        body.size += range->size();
        Ranges inner;
        range->innerRanges(inner);
        forEach(inner, [&](auto const& at) {
            IInlineInstance* const instance = at->inlineInstance();
            if (instance != nullptr && known.insert(instance).second) {
                body.bodies.push_back({at->symbol(), instance, startOf(*at), 0, {}});
            }
        });
    }
    if (depth < k_deepest) {
        for (Body& inner : body.bodies) {
            addBodies(inner, depth + 1);
        }
    }
}

std::string callOf(Body const& body) {
    SymMgrObjectPtr<ISourceLocation> call;
    if (body.instance != nullptr) {
        body.instance->callSite(call);
    }
    ISourceFile* const file = call ? call->sourceFile() : nullptr;
    return file != nullptr ? std::string(file->path()) + ":" + std::to_string(call->line()) : std::string();
}

/// indent: of the lines below this one.
void print(Body const& body, std::string const& branch, std::string const& indent) {
    std::string const call = callOf(body);
    std::printf("%s%s  %s, %llu bytes%s%s\n", branch.c_str(), body.symbol->demangledName(0), hex(body.start).c_str(),
                body.size, call.empty() ? "" : ", called at ", call.c_str());
    for (Body const& inner : body.bodies) {
        bool const isLast = &inner == &body.bodies.back();
        print(inner, indent + (isLast ? "`- " : "|- "), indent + (isLast ? "   " : "|  "));
    }
}

Json jsonOf(Body const& body) {
    std::string const call = callOf(body);
    Json object{
        {"name", body.symbol->name()}, {"demangled", body.symbol->demangledName(0)},      {"start", hex(body.start)},
        {"size", body.size},           {"called_at", call.empty() ? Json() : Json(call)}, {"inlines", Json::array()}};
    for (Body const& inner : body.bodies) {
        object["inlines"].push_back(jsonOf(inner));
    }
    return object;
}

} // namespace

int inlines(std::string const& moduleName, std::string const& word, CommonOptions const& common) {
    Module& module = Module::load(moduleName, common);
    SymbolPlaces places(module);
    for (auto const& range : findFunctions(module, word)) {
        SymMgrObjectPtr<ISymbolRange> const entry = places.entryOf(*range->symbol(), rangesOf(*range->symbol()));
        Body root{range->symbol(), nullptr, startOf(entry ? *entry : *range), 0, {}};
        addBodies(root, 0);
        if (common.json) {
            printJson(jsonOf(root));
        } else {
            print(root, "", "");
        }
    }
    finishOutput();
    return 0;
}

} // namespace orv_cli
