// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// Inlined bodies: when they are made, what they know of their calls, which of them wins.

#include "lines/orv_sourceline_impl.h"
#include "orv/orv_frames.h"
#include "support/orv_assembler.h"
#include "symbols/orv_globalscope.h"
#include "symbols/orv_symbolrange.h"

#include <algorithm>
#include <random>

using namespace orv_test;

namespace {

std::string plainUnit() {
    return entry(DW_TAG_compile_unit, {nameAttr("a.c"), {DW_AT_stmt_list, DW_FORM_sec_offset, "0"}}, Children::Follow);
}
/// Of a compiler whose siblings are trusted.
std::string unitWithSiblings() {
    return entry(DW_TAG_compile_unit, {{DW_AT_producer, DW_FORM_string, "GNU C 12"}}, Children::Follow);
}

/// What is inlined.
std::string origin(std::string const& name) {
    return ".Lo_" + name + ": " +
           entry(DW_TAG_subprogram, {nameAttr(name),
                                     {DW_AT_inline, DW_FORM_data1, "1"},
                                     {DW_AT_external, DW_FORM_flag, "0"},
                                     {DW_AT_decl_file, DW_FORM_data1, "2"},
                                     {DW_AT_decl_line, DW_FORM_data1, "7"}});
}
std::string localOrigin(std::string const& name) {
    return ".Lo_" + name + ": " + entry(DW_TAG_subprogram, {nameAttr(name)});
}

Attr originAttr(std::string const& name) {
    return {DW_AT_abstract_origin, DW_FORM_ref_addr, ".Lo_" + name + " - .Linfo"};
}

/// An inlined body, whose end is to be written behind what lies in it.
std::string inlined(Attrs const& attrs) { return entry(DW_TAG_inlined_subroutine, attrs, Children::Follow); }

std::string body(std::string const& name, int start, int size, int file = 1, int line = 5,
                 Children children = Children::Follow) {
    return entry(DW_TAG_inlined_subroutine,
                 {originAttr(name),
                  lowAttr(start),
                  {DW_AT_high_pc, DW_FORM_sdata, number(size)},
                  {DW_AT_call_file, DW_FORM_data1, number(file)},
                  {DW_AT_call_line, DW_FORM_data1, number(line)}},
                 children);
}
std::string listedBody(std::string const& name, std::string const& list) {
    return inlined({originAttr(name), {DW_AT_ranges, DW_FORM_sec_offset, list + " - .Lranges"}});
}

std::string function(int start, int size) {
    return entry(DW_TAG_subprogram, functionAttrs("f", start, size, declaredAttrs(1, 1)), Children::Follow);
}

std::string label(std::string const& name, int place) { return entry(DW_TAG_label, {nameAttr(name), lowAttr(place)}); }
std::string block() { return entry(DW_TAG_lexical_block, {}, Children::Follow); }

/// One row a.c:1 over 0x1000..0x1010, b.h:7 over 0x1010..0x1020, a.c:9 over 0x1020..0x1040.
std::string lines() {
    LineHeader header;
    header.files = ".asciz \"a.c\"\n.byte 0, 0, 0\n.asciz \"b.h\"\n.byte 0, 0, 0\n";
    return lineTable(header, setAddress(0) + k_copyRow + ".byte 4, 2, 3, 6\n" + setAddress(0x10) + k_copyRow +
                                 ".byte 4, 1, 3, 2\n" + setAddress(0x20) + k_copyRow + setAddress(0x40) +
                                 k_endSequence);
}

class Module {
public:
    explicit Module(std::string const& entries, std::string const& unit = plainUnit(), DwarfText text = {})
        : m_file(text.unit({}, unit + entries + k_end).section(".debug_line", lines()).source()) {}
    IModuleSymbolBank& bank() { return *m_bank; }
    SymMgrObjectPtr<ISymbolRange> functionAt(unsigned long long value) {
        return rangeIn(*m_bank, value, symbol_kind_Function);
    }
    SymMgrObjectPtr<ISymbolRange> innerAt(ISymbolRange& outer, unsigned long long value) {
        SymMgrObjectPtr<ISymbolRange> inner;
        outer.innerRangeByAddress(inner, addressIn(*m_bank, value).get());
        return inner;
    }
    std::string inside(unsigned long long value) { return symbolsIn(*functionAt(value)); }

private:
    Assembled m_file;
    SymMgrObjectPtr<IModuleSymbolBank> m_bank = bankOf(m_file.path(), load_flags_NewLoader);
};

Scope& scopeOf(ISymbolRange& range) { return *static_cast<SymbolRange&>(range).scope(); }

std::string placeOf(IInlineInstance& instance) {
    SymMgrObjectPtr<ISourceLocation> call;
    instance.callSite(call);
    return call ? call->sourceFile()->path() + (":" + number(call->line())) : "none";
}

} // namespace

TEST(Inline, OneLevelAtATime) {
    SymMgrObjectPtr<IInlineInstance> held;
    {
        Module module(origin("g") + origin("h") + function(0, 0x40) + body("g", 0x10, 0x20) + body("h", 0x18, 8, 2, 6) +
                      k_end + k_end + k_end);
        EXPECT_EQ(module.inside(0x1000), "g[4112,4144)");
        auto const outer = module.functionAt(0x1000);
        auto const g = module.innerAt(*outer, 0x1018);
        ASSERT_TRUE(g);
        auto const h = module.innerAt(*g, 0x1018);
        ASSERT_TRUE(h);
        EXPECT_EQ(rangeText(*h), "h[4120,4128)");
        EXPECT_FALSE(module.innerAt(*g, 0x1010));
        EXPECT_EQ(placeOf(*g->inlineInstance()), "a.c:5");
        EXPECT_EQ(placeOf(*h->inlineInstance()), "b.h:6");
        EXPECT_EQ(h->inlineInstance()->symbol(), h->symbol());
        EXPECT_EQ(h->symbol()->kind(), symbol_kind_Function);
        SymMgrObjectPtr<ISymbolRange> up;
        h->outerRange(up);
        EXPECT_EQ(up->inlineInstance(), g->inlineInstance());
        // The symbol was declared where the inlined function was.
        SymMgrObjectPtr<ISourceLine> declared;
        EXPECT_EQ(h->symbol()->sourceLine(declared), status_Ok);
        EXPECT_EQ(declared->location()->line(), 7U);
        held = g->inlineInstance();
        EXPECT_TRUE(held->hasCallSite());
    }
    // It may be held longer than its bank.
    EXPECT_EQ(placeOf(*held), "none");
    EXPECT_FALSE(held->hasCallSite());
    EXPECT_EQ(held->symbol(), nullptr);
}

TEST(Inline, WhatIsRefused) {
    struct Row {
        char const* name;
        std::string entries;
        std::string inside;
    };
    std::string const nested = body("h", 0x14, 4, 1, 5, Children::None) + k_end;
    for (Row const& row : {
             Row{"no place", inlined({originAttr("g")}) + nested, ""},
             Row{"outside of all segments", body("g", 0x100000, 8) + nested, ""},
             Row{"an origin without a name", body("none", 0, 8) + nested, ""},
             Row{"no origin", ".set .Lo_lost, .Linfo + 0x7fffffff\n" + body("lost", 0, 8) + nested, ""},
             Row{"the end below the start", body("g", 0x10, -8) + nested, "g[4112,4112)"},
             Row{"a list", listedBody("g", ".Lranges") + nested, "g[4112,4128) g[4144,4160)"},
             Row{"a start and a list",
                 inlined({originAttr("g"), lowAttr(0x50), {DW_AT_ranges, DW_FORM_sec_offset, "0"}}) + nested,
                 "g[4112,4128) g[4144,4160)"},
             Row{"an empty list", listedBody("g", ".Lempty") + nested, ""},
         }) {
        DwarfText text;
        text.section(
            ".debug_ranges",
            ".Lranges: .8byte code + 0x30, code + 0x40, code + 0x10, code + 0x20, 0, 0\n.Lempty: .8byte 5, 5, 0, 0\n");
        std::string const nameless = ".Lo_none: " + entry(DW_TAG_subprogram, {{DW_AT_inline, DW_FORM_data1, "1"}});
        Module module(origin("g") + origin("h") + nameless + function(0, 0x80) + row.entries + k_end + block() +
                          body("g", 0x80, 8) + k_end + k_end,
                      plainUnit(), std::move(text));
        RangeIterator all; // wherever it stands
        scopeOf(*module.functionAt(0x1000)).symbolRanges(all, 0, ~0ULL, symbol_kind_Function);
        EXPECT_EQ(allRanges(all), row.inside) << row.name;
        EXPECT_EQ(symbolAt(module.bank(), 0x1084, symbol_kind_Function), "none") << "not at the top of a unit";
    }
}

TEST(Inline, CallSites) {
    Module module(origin("g") + function(0, 0x40) + body("g", 0, 4, 0, 5, Children::None) +
                  body("g", 8, 4, 1, 0, Children::None) + body("g", 16, 4, 9, 5, Children::None) + k_end);
    auto const outer = module.functionAt(0x1000);
    for (auto const& [address, hasSite] : {std::pair(0x1000, false), {0x1008, false}, {0x1010, true}}) {
        auto const inner = module.innerAt(*outer, static_cast<unsigned long long>(address));
        ASSERT_TRUE(inner);
        EXPECT_EQ(inner->inlineInstance()->hasCallSite(), hasSite) << address;
        EXPECT_EQ(placeOf(*inner->inlineInstance()), "none"); // number 9 is none of the unit's files
        EXPECT_EQ(inner->inlineInstance()->hasCallSite(), hasSite);
    }
}

TEST(Inline, CallersSeeTheCall) {
    // f inlines g, which has its line in b.h, and g3, whose call is not known.
    Module module(origin("g") + origin("g3") + function(0, 0x40) + body("g", 0x10, 0x10, 1, 5, Children::None) +
                  body("g3", 0x30, 0x10, 9, 5, Children::None) + k_end);
    auto const outer = module.functionAt(0x1000);
    Scope& scope = scopeOf(*outer);
    auto* const file = static_cast<SourceFile*>(placeIn(module.bank(), 0x1000)->sourceFile());
    ISrcLineResolver* const resolver = dynamic_cast<GlobalScope&>(*scope.parentScope()).srcLineResolver();
    auto const linesOf = [&](unsigned int fileId) {
        LineIterator lines;
        std::string found;
        resolver->sourceLines(lines, ~0ULL, fileId, 0x1000, 0x1040, &scope);
        forEach(lines, [&](ISourceLine& line) {
            found += number(startOf(line) - 0x1000) + "+" + number(line.size()) + ":" +
                     number(line.location()->line()) + " ";
        });
        return found;
    };
    LogCapture const log;
    EXPECT_EQ(linesOf(file->id()), "0+16:1 16+16:5 32+16:9 ");
    EXPECT_EQ(log.count("srcLocation == NULL "), 1U);
    // Without a file no call counts, and what lies between is asked about by its start alone.
    EXPECT_EQ(linesOf(0xFFFFFFFF), "0+16:1 32+32:9 ");
}

namespace {

/// A function with bodies in bodies, ranges of all sorts among them: as text, and as a list.
class RandomBodies {
public:
    struct Made {
        std::string name;
        std::vector<std::pair<int, int>> ranges;
        int around;
        bool isCalled;
    };
    explicit RandomBodies(unsigned int seed) : m_random(seed) {
        for (int i = 0; i < 12; ++i) {
            m_text += level(0, 0x400, 0, -1);
        }
    }
    std::string const& entries() const { return m_text; }
    std::string const& lists() const { return m_lists; }

    /// The names of those that hold a place, the innermost first: the last in the file that does, and what is around
    /// it.
    /// Behind each the place of its call, if it has one.
    std::string at(int place, char const* call = "") const {
        int found = -1;
        for (std::size_t i = 0; i < m_made.size(); ++i) {
            for (auto const& [from, to] : m_made[i].ranges) {
                found = from <= place && place < to ? static_cast<int>(i) : found;
            }
        }
        std::string names;
        for (; found >= 0; found = m_made[static_cast<std::size_t>(found)].around) {
            Made const& made = m_made[static_cast<std::size_t>(found)];
            names += made.name + ' ' + (made.isCalled ? call : "");
        }
        return names;
    }

private:
    int pick(int below) { return static_cast<int>(m_random() % static_cast<unsigned int>(below)); }

    std::string level(int from, int to, int depth, int around) {
        static char const* const k_names[] = {"g", "h", "_ZN1AC1Ev", "_ZN1AC2Ev", "_Z1gi", "loc", "loc", "loc"};
        bool const isBlock = pick(8) == 0;
        std::string const name = k_names[pick(8)];
        int const start = from + pick(to - from);
        int const size = pick(4) == 0 ? 0 : pick(std::min(to - start, 0x60) + 1);
        int const self = isBlock ? around : static_cast<int>(m_made.size());
        if (!isBlock) {
            m_made.push_back({name, {}, around, false});
        }
        std::string inner;
        for (int count = depth < 3 ? pick(4) : 0; count > 0; --count) {
            inner += level(from, to, depth + 1, self);
        }
        if (pick(12) == 0) {
            inner += label("l", from + pick(to - from));
        }
        if (isBlock) {
            return block() + inner + k_end;
        }
        auto& ranges = m_made[static_cast<std::size_t>(self)].ranges;
        if (pick(3) != 0) {
            ranges = {{start, start + size}};
            m_made[static_cast<std::size_t>(self)].isCalled = true;
            return body(name, start, size) + inner + k_end;
        }
        std::string const list = ".Llist" + number(m_count++);
        m_lists += list + ":\n";
        for (int pieces = 1 + pick(4); pieces > 0; --pieces) {
            int const at = from + pick(to - from);
            ranges.emplace_back(at, at + 1 + pick(0x30));
            m_lists += ".8byte code + " + number(at) + ", code + " + number(ranges.back().second) + "\n";
        }
        m_lists += ".8byte 0, 0\n";
        return listedBody(name, list) + inner + k_end;
    }

    std::mt19937 m_random;
    std::string m_text;
    std::string m_lists;
    std::vector<Made> m_made; ///< In the order of the file.
    int m_count = 0;
};

/// The names of the inlined bodies at an address, the innermost first.
std::string bodiesAt(Scope& scope, unsigned long long address) {
    InlinedCall call{};
    std::string names;
    for (bool isBody = scope.innermostInlinedAt(address, call); isBody;
         isBody = scope.inlinedAround(call, address, call)) {
        names += std::string(call.name) + ' ';
        bool const holds = call.start <= address && address < call.end;
        EXPECT_TRUE(holds || call.start == call.end) << call.name << " at " << address;
    }
    return names;
}

/// All at once, in a random order with some asked twice, as one by one.
void expectChains(IModuleSymbolBank& bank, std::vector<unsigned long long> addresses, RandomBodies const& bodies) {
    std::shuffle(addresses.begin(), addresses.end(), std::mt19937(addresses.size()));
    addresses.insert(addresses.end(), addresses.begin(), addresses.begin() + 9);
    SymMgrObjectPtr<IFrames> frames;
    ASSERT_EQ(framesByAddresses(frames, bank, addresses.data(), addresses.size(), frames_Everything), status_Ok);
    ASSERT_EQ(frames->count(), addresses.size());
    for (std::size_t i = 0; i < addresses.size(); ++i) {
        std::string names;
        Frame const* frame = frames->at(i);
        EXPECT_TRUE(frame->start <= addresses[i] && addresses[i] < frame->end) << addresses[i];
        for (; frame != nullptr && frame->isInlined; frame = frame->caller) {
            names += std::string(frame->function) + ' ';
            names +=
                frame->caller->file != nullptr ? frame->caller->file + (':' + number(frame->caller->line)) + ' ' : "";
        }
        ASSERT_EQ(names, bodies.at(static_cast<int>(addresses[i] - 0x1000), "a.c:5 ")) << addresses[i];
        ASSERT_STREQ(frame->function, "f") << addresses[i];
    }
}

} // namespace

TEST(Inline, TheLastBodyInTheFileHoldsAnAddress) {
    std::string const origins =
        origin("g") + origin("h") + origin("_ZN1AC1Ev") + origin("_ZN1AC2Ev") + origin("_Z1gi") + localOrigin("loc");
    for (unsigned int seed = 0; seed < 60; ++seed) {
        RandomBodies const bodies(seed);
        DwarfText text;
        text.section(".debug_ranges", ".Lranges:\n" + bodies.lists());
        Module module(origins + function(0, 0x400) + bodies.entries() + k_end, plainUnit(), std::move(text));
        Scope& scope = scopeOf(*module.functionAt(0x1000));
        std::vector<unsigned long long> addresses;
        for (int place = 0; place < 0x400; ++place) {
            addresses.push_back(0x1000 + static_cast<unsigned long long>(place));
            ASSERT_EQ(bodiesAt(scope, 0x1000 + static_cast<unsigned long long>(place)), bodies.at(place))
                << "seed " << seed << ", place " << place;
        }
        expectChains(module.bank(), addresses, bodies);
    }
}

TEST(Inline, OddEntries) {
    struct Row {
        char const* name;
        std::string entries; ///< In f, over 0x400 bytes.
        std::string outside;
        /// By place, where there are any: the bodies from the inside out, and the scopes' ranges from the outside in.
        char const* expected;
    };
    std::string const variable =
        ".Lo_v: " + entry(DW_TAG_variable, {{DW_AT_location, DW_FORM_block1, ".byte 3\n.8byte code + 0x20"}});
    std::string chain;
    for (int i = 1; i <= 9; ++i) {
        chain += ".Lo_c" + number(i) + ": " + entry(DW_TAG_subprogram, {originAttr("c" + number(i + 1))});
    }
    auto const sibling = [](std::string const& where, std::string const& inner) {
        return inlined({{DW_AT_sibling, DW_FORM_ref4, where + " - .Lunit0"},
                        originAttr("g"),
                        lowAttr(0x10),
                        {DW_AT_high_pc, DW_FORM_sdata, "0x20"}}) +
               inner;
    };
    for (Row const& row : {
             Row{"a variable's place in its origin", entry(DW_TAG_variable, {originAttr("v")}), variable, ""},
             Row{"a sibling that skips one: bodies are gone into",
                 sibling(".Lnext", body("i", 0x12, 4) + k_end + k_end) + body("h", 0x40, 0x10) + k_end +
                     ".Lnext: " + body("i", 0x60, 8) + k_end,
                 "",
                 "18: i g < g[4112,4144) i[4114,4118); 20: i g < g[4112,4144) i[4114,4118); 32: g < g[4112,4144); "
                 "68: h < h[4160,4176); 100: i < i[4192,4200); "},
             Row{"a sibling among its own",
                 sibling(".Lin", body("h", 0x12, 4) + k_end + ".Lin: " + body("i", 0x14, 4) + k_end) + k_end, "",
                 "18: h g < g[4112,4144) h[4114,4118); 20: i g < g[4112,4144) i[4116,4120); 32: g < g[4112,4144); "},
             Row{"a name at the end of a long chain", body("c3", 0x10, 8) + k_end + body("c4", 0x30, 8) + k_end,
                 chain + ".Lo_c10: " + origin("far"), "48: far < far[4144,4152); "},
             Row{"an origin that leads back", ".Lo_back: " + body("back", 0x10, 8) + k_end, "", ""},
             Row{"a body in a variable", entry(DW_TAG_variable, {nameAttr("v")}, body("g", 0x10, 8) + k_end), "",
                 "18: g < g[4112,4120); 20: g < g[4112,4120); "},
             Row{"no extent, in front of one that ends", body("g", 0x20, 0) + k_end + body("h", 0x20, 4) + k_end, "",
                 "32: h < h[4128,4132); 48: < g[4128,4128); 68: < g[4128,4128); 100: < g[4128,4128); "},
             Row{"an unknown code", body("g", 0x10, 0x20) + body("h", 0x12, 4) + k_end + ".uleb128 99\n", "",
                 "18: h g < g[4112,4144) h[4114,4118); 20: h g < g[4112,4144) h[4114,4118); 32: g < g[4112,4144); "},
         }) {
        Module module(origin("g") + origin("h") + origin("i") + row.outside + function(0, 0x400) + row.entries + k_end,
                      unitWithSiblings());
        std::string found;
        for (unsigned long long const address : {0x1012, 0x1014, 0x1020, 0x1030, 0x1044, 0x1064}) {
            auto range = module.functionAt(address);
            std::string here = bodiesAt(scopeOf(*range), address) + "<";
            for (range = module.innerAt(*range, address); range; range = module.innerAt(*range, address)) {
                here += ' ' + rangeText(*range);
            }
            found += here != "<" ? number(static_cast<long long>(address - 0x1000)) + ": " + here + "; " : "";
        }
        EXPECT_EQ(found, row.expected) << row.name;
    }
}

TEST(Inline, KindsThatComeLater) {
    // A load without functions goes into inlined bodies, so that their labels lie in the function itself.
    std::string const entries =
        origin("g") + function(0, 0x80) + body("g", 0x10, 0x10) + label("lab", 0x18) + k_end + k_end;
    for (bool const isTableFirst : {false, true}) {
        Module module(entries);
        auto const outer = module.functionAt(0x1000);
        SymMgrObjectPtr<ISymbolRange> g;
        Scope& scope = scopeOf(*outer);
        if (isTableFirst) {
            scope.ensureKinds(symbol_kind_Function);
        } else {
            scope.symbolRangeByAddress(g, 0x1014, symbol_kind_Function, nullptr);
            EXPECT_EQ(rangeText(*g), "g[4112,4128)");
        }
        EXPECT_EQ(symbolsIn(*outer), "g[4112,4128) lab[4120,4120)");
        auto const inner = module.innerAt(*outer, 0x1025);
        ASSERT_TRUE(inner);
        EXPECT_EQ(rangeText(*inner), "lab[4120,4120)");
    }
    // All kinds in one step find the bodies alone.
    Module module(entries);
    EXPECT_FALSE(module.innerAt(*module.functionAt(0x1000), 0x1025));
    EXPECT_EQ(module.inside(0x1000), "g[4112,4128)");
}

TEST(Inline, NestsWithoutEnd) {
    // By the table's own scopes, each in the table of the one around it, and without a recursion. Siblings lead behind
    // their own body, or all of them to the bottom of the nest, which costs no more than what it holds.
    constexpr int k_entrySize = 19;
    for (auto const& [depth, isAstray] : {std::pair(60000, false), {8000, true}}) {
        std::string deep = ".Ldeep:\n";
        for (int i = 0; i < depth; ++i) {
            int const behind = depth * k_entrySize + (isAstray ? 0 : depth - i);
            deep += ".byte 18\n.4byte .Ldeep - .Lunit0 + " + number(behind) +
                    ", .Lo_g - .Linfo\n.8byte code + 0x10\n.2byte 0x10\n";
        }
        deep += ".fill " + number(depth) + ", 1, 0\n";
        DwarfText text;
        text.abbrev(18, DW_TAG_inlined_subroutine, true,
                    {{DW_AT_sibling, DW_FORM_ref4},
                     {DW_AT_abstract_origin, DW_FORM_ref_addr},
                     {DW_AT_low_pc, DW_FORM_addr},
                     {DW_AT_high_pc, DW_FORM_data2}});
        Module module(origin("g") + function(0, 0x80) + deep + k_end, unitWithSiblings(), std::move(text));
        int found = 0;
        for (auto inner = module.functionAt(0x1010); inner; ++found) {
            RangeIterator ranges;
            inner->innerRanges(ranges);
            inner = ranges ? ranges->current() : SymMgrObjectPtr<ISymbolRange>();
        }
        EXPECT_EQ(found, depth + 1);
    }
}

TEST(Inline, NestsDeeplyBesideLabels) {
    // No level is plain, and there are no siblings to go by: each is read by its own.
    constexpr int k_depth = 16000;
    std::string deep;
    for (int i = 0; i < k_depth; ++i) {
        deep += entry(DW_TAG_label, {}) + body(i % 2 == 0 ? "g" : "h", 0x10, 0x10);
    }
    Module module(origin("g") + origin("h") + function(0, 0x80) + deep + ".fill " + number(k_depth) + ", 1, 0\n" +
                  body("h", 0x40, 8) + k_end + k_end);
    EXPECT_EQ(module.inside(0x1010), "g[4112,4128) h[4160,4168)");
    int depth = 0;
    auto const outer = module.functionAt(0x1010);
    for (auto inner = module.innerAt(*outer, 0x1010); inner; inner = module.innerAt(*inner, 0x1010)) {
        ASSERT_STREQ(inner->symbol()->name(), depth % 2 == 0 ? "g" : "h");
        ++depth;
    }
    EXPECT_EQ(depth, k_depth);
}

TEST(Inline, OneThatTakesAnothersEndHasItsRange) {
    Module module(origin("g") + function(0, 0x40) + body("g", 0x10, 4) + k_end + body("g", 0x10, 0x10) + k_end + k_end);
    auto const g = module.innerAt(*module.functionAt(0x1000), 0x1018);
    ASSERT_TRUE(g);
    EXPECT_EQ(rangeText(*g), "g[4112,4128)");
    RangeIterator ranges;
    g->symbol()->ranges(ranges);
    EXPECT_EQ(allRanges(ranges), "g[4112,4128)");
}
