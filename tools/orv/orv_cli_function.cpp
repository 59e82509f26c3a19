// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// function: one function as a person wants to see it.

#include "orv_cli_commands.h"
#include "orv_cli_debug.h"
#include "orv_cli_find.h"
#include "orv_cli_output.h"
#include "orv_cli_progress.h"
#include "orv_cli_remarks.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <vector>

namespace orv_cli {
namespace {

class FunctionView {
public:
    FunctionView(ISymbolRange& range, SymbolPlaces& places, Remarks const& remarks)
        : m_symbol(*range.symbol()), m_range(range), m_ranges(rangesOf(m_symbol)), m_remarks(remarks) {
        if (m_ranges.empty()) {
            m_ranges.emplace_back(&m_range); // a thunk's stretch is the table's alone
        }
        m_entry = places.entryOf(m_symbol, m_ranges);
        collectLines();
    }

    void print() const {
        std::printf("%s\n", m_symbol.demangledName(0));
        if (std::strcmp(m_symbol.name(), m_symbol.demangledName(0)) != 0) {
            std::printf("    symbol      %s\n", m_symbol.name());
        }
        std::printf("    visibility  %s\n", visibility());
        ICompUnitDetails* unit = nullptr;
        if (m_symbol.compUnitDetails(unit) == status_Ok) {
            ISourceFile* const main = unit->mainSourceFile();
            std::printf("    unit        %s %s\n", hex(unit->id()).c_str(), main != nullptr ? main->path() : "");
        }
        std::string const declaration = declarationOf(m_symbol);
        if (!declaration.empty()) {
            std::printf("    declared    %s\n", declaration.c_str());
        }
        for (auto const& range : m_ranges) {
            unsigned long long const size = sizeOf(*range);
            std::printf("    range       %s-%s %llu bytes%s%s\n", hexColumn(startOf(*range)).c_str(),
                        hexColumn(startOf(*range) + size).c_str(), size,
                        range->size() == 0 ? " to the next symbol" : "",
                        range == m_entry && m_ranges.size() > 1 ? ", entered here" : "");
        }
        printInside();
        if (!m_lines.empty()) {
            std::printf("    lines       %s\n", m_lines.front()->location()->sourceFile()->path());
        }
        for (auto const& line : m_lines) {
            std::printf("        %s %5u bytes  line %u\n", hexColumn(startOf(*line)).c_str(), line->size(),
                        line->location()->line());
        }
        forEachRemark([](IOptReportEntry* remark) { printRemark(*remark, 4); });
    }

    void printAsJson() const {
        Json object;
        object["name"] = m_symbol.name();
        object["demangled"] = m_symbol.demangledName(0);
        object["visibility"] = visibility();
        ICompUnitDetails* unit = nullptr;
        object["unit"] = m_symbol.compUnitDetails(unit) == status_Ok ? Json(hex(unit->id())) : Json();
        std::string const declaration = declarationOf(m_symbol);
        object["declared"] = declaration.empty() ? Json() : Json(declaration);
        object["ranges"] = Json::array();
        for (auto const& range : m_ranges) {
            object["ranges"].push_back(
                {{"start", hex(startOf(*range))}, {"size", range->size()}, {"entry", range == m_entry}});
        }
        object["inside"] = Json::array();
        forEachInside([&](ISymbolRange& inner) {
            object["inside"].push_back({{"start", hex(startOf(inner))},
                                        {"size", inner.size()},
                                        {"kind", nameOf(inner.symbol()->kind())},
                                        {"name", inner.symbol()->name()}});
        });
        object["file"] = m_lines.empty() ? Json() : Json(m_lines.front()->location()->sourceFile()->path());
        object["lines"] = Json::array();
        for (auto const& line : m_lines) {
            object["lines"].push_back(
                {{"start", hex(startOf(*line))}, {"size", line->size()}, {"line", line->location()->line()}});
        }
        for (auto const& range : m_ranges) {
            addRemarks(object, remarksIn(*range));
        }
        printJson(object);
    }

private:
    /// One without extent holds what lies up to the next.
    static unsigned long long sizeOf(ISymbolRange& range) {
        return range.size() != 0 ? range.size() : range.sizeToNextRange();
    }
    Remarks::Stretch remarksIn(ISymbolRange& range) const {
        return m_remarks.in(startOf(range), startOf(range) + sizeOf(range));
    }
    template <typename Visitor> void forEachRemark(Visitor visit) const {
        for (auto const& range : m_ranges) {
            auto const [first, end] = remarksIn(*range);
            std::for_each(first, end, visit);
        }
    }
    void collectLines() {
        SymMgrObjectPtr<IIterator<SymMgrObjectPtr<ISourceLine>>> lines;
        m_symbol.sourceLines(lines);
        auto const take = [&](auto const& line) {
            if (line->location()->sourceFile() != nullptr) {
                m_lines.push_back(line);
            }
        };
        if (lines) {
            forEach(lines, take);
        } else if (ISourceFile* const file = fileAtEntry()) {
            collectLinesOf(*file, take);
        }
    }
    /// Of a symbol that has no lines of its own, as a method of an OAT file: those of its first file.
    ISourceFile* fileAtEntry() {
        SymMgrObjectPtr<ISourceLine> line;
        return m_symbol.sourceLine(line) == status_Ok ? line->location()->sourceFile() : nullptr;
    }
    template <typename Take> void collectLinesOf(ISourceFile& file, Take const& take) {
        for (auto const& range : m_ranges) {
            SymMgrObjectPtr<IIterator<SymMgrObjectPtr<ISourceLine>>> lines;
            PlainAddress from(startOf(*range));
            PlainAddress to(from.pseudoAddr() + range->size());
            if (!file.sourceLines(lines, ~0ULL, &from, &to)) {
                forEach(lines, take);
            }
        }
    }

    template <typename Visitor> void forEachInside(Visitor visit) const {
        for (auto const& range : m_ranges) {
            Ranges inner;
            range->innerRanges(inner);
            forEach(inner, [&](auto const& at) { visit(*at); });
        }
    }

    void printInside() const {
        forEachInside([](ISymbolRange& inner) {
            std::printf("    inside      %s %5llu bytes  %-8s %s\n", hexColumn(startOf(inner)).c_str(), inner.size(),
                        nameOf(inner.symbol()->kind()), inner.symbol()->demangledName(0));
        });
    }

    char const* visibility() const { return m_symbol.visibility() == symbol_visibility_Global ? "global" : "local"; }

    ISymbol& m_symbol;
    ISymbolRange& m_range;
    std::vector<SymMgrObjectPtr<ISymbolRange>> m_ranges;
    SymMgrObjectPtr<ISymbolRange> m_entry; ///< One of m_ranges, or null.
    std::vector<SymMgrObjectPtr<ISourceLine>> m_lines;
    Remarks const& m_remarks;
};

} // namespace

int function(std::string const& moduleName, std::string const& word, CommonOptions const& common) {
    Module& module = Module::load(moduleName, common);
    std::vector<SymMgrObjectPtr<ISymbolRange>> const found = findFunctions(module, word);
    Remarks const remarks(module.bank());
    std::vector<FunctionView> views;
    {
        Progress const progress("reading " + module.name());
        SymbolPlaces places(module);
        for (auto const& range : found) {
            views.emplace_back(*range, places, remarks);
        }
    }
    for (FunctionView const& view : views) {
        if (common.json) {
            view.printAsJson();
        } else {
            view.print();
        }
    }
    finishOutput();
    return 0;
}

} // namespace orv_cli
