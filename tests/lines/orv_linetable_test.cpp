// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// The line table against a plain model: boundaries, each with the list of the rows that are open there, as
/// its rules describe it.

#include "support/orv_test_support.h"

#include "lines/orv_caller_lines.h"
#include "lines/orv_dil.h"
#include "support/orv_elf_builder.h"
#include "symbols/orv_symboltable.h"

#include <algorithm>
#include <map>
#include <random>
#include <tuple>

using namespace orv_test;

namespace {

struct Row {
    unsigned long long unit;
    unsigned int file;
    unsigned int line;
    unsigned int column;
    unsigned long long start;
    unsigned long long size;
    unsigned long long discriminator;

    unsigned long long end() const { return start + size; }
};

/// A sorted list with a memory of the last insertion.
class RowList {
public:
    static bool isLess(Row const& a, Row const& b) {
        auto const keyA = std::tie(a.start, a.line, a.column);
        auto const keyB = std::tie(b.start, b.line, b.column);
        return keyA != keyB ? keyA < keyB : a.discriminator != b.discriminator;
    }
    void insert(Row const* row) {
        bool const fromHint = !rows.empty() && isLess(*rows[m_hint], *row);
        std::size_t at = fromHint ? m_hint : 0;
        while (at < rows.size() && isLess(*rows[at], *row)) {
            ++at;
        }
        rows.insert(rows.begin() + static_cast<std::ptrdiff_t>(at), row);
        m_hint = at;
    }
    /// Copies keep their order.
    void append(Row const* row) {
        rows.push_back(row);
        std::stable_sort(rows.begin(), rows.end(), [](Row const* a, Row const* b) {
            return std::tie(a->start, a->line, a->column) < std::tie(b->start, b->line, b->column);
        });
        m_hint = static_cast<std::size_t>(std::find(rows.begin(), rows.end(), row) - rows.begin());
    }

    std::vector<Row const*> rows;

private:
    std::size_t m_hint = 0;
};

/// The rows of one file in one unit.
class Boundaries {
public:
    void add(Row const* row) {
        auto at = m_lists.lower_bound(row->start);
        if (at == m_lists.end() || at->first != row->start) {
            RowList list;
            list.insert(row);
            if (at != m_lists.begin()) {
                for (Row const* open : std::prev(at)->second.rows) {
                    if (open->end() > row->start) {
                        list.append(open);
                    }
                }
            }
            at = m_lists.emplace_hint(at, row->start, list);
        } else {
            at->second.insert(row);
        }
        for (++at; at != m_lists.end() && at->first < row->end(); ++at) {
            at->second.insert(row);
        }
    }

    void query(unsigned long long start, unsigned long long end, std::vector<Row const*>& out) const {
        unsigned long long const limit = start == end && start != ~0ULL ? end + 1 : end;
        auto at = m_lists.upper_bound(start);
        bool isFirst = at != m_lists.begin();
        at = isFirst ? std::prev(at) : at;
        for (; at != m_lists.end() && at->first < limit; ++at, isFirst = false) {
            for (Row const* row : at->second.rows) {
                if (row->end() > start && (isFirst || row->start == at->first)) {
                    out.push_back(row);
                }
            }
        }
    }

private:
    std::map<unsigned long long, RowList> m_lists;
};

class Model {
public:
    void add(Row const* row) { m_ranges[{row->file, row->unit}].add(row); }
    std::vector<Row const*> query(unsigned long long unit, unsigned int file, unsigned long long start,
                                  unsigned long long end) const {
        std::vector<Row const*> found;
        for (auto const& [key, boundaries] : m_ranges) {
            if ((file == k_allFiles || key.first == file) && (unit == k_allUnits || key.second == unit)) {
                boundaries.query(start, end, found);
            }
        }
        return found;
    }

private:
    std::map<std::pair<unsigned int, unsigned long long>, Boundaries> m_ranges;
};

/// Knows nothing: the lines under test are told by their numbers.
class NoFiles final : public SrcLineResolver {
public:
    NoFiles() : SrcLineResolver(nullptr) {}
    unsigned int sourceFileCount() override { return 0; }
    ISourceFile* sourceFileById(unsigned int /*id*/) override { return nullptr; }
    ICompUnitDetails* compUnitDetailsById(unsigned long long /*id*/) override { return nullptr; }
    void lineTable(SymMgrObjectPtr<ILineTable>& out) override { out = nullptr; }
};

class LineTables : public testing::Test {
protected:
    void SetUp() override {
        ElfBuilder elf;
        elf.load(PF_R | PF_X, 0, 0x100000);
        m_loader = loaderOf(m_dir.file("m", elf.bytes()));
        m_resolver = new NoFiles;
        m_table = ILineTable::create(*m_loader, *m_resolver);
    }

    void add(Row const& row) {
        m_table->addLine(row.unit, row.file, row.line, row.column, row.start, row.size, row.discriminator);
    }

    static std::string textOf(LineIterator const& lines) {
        std::ostringstream text;
        forEach(lines, [&](ISourceLine& line) {
            ISourceLocation& place = *line.location();
            text << place.unit() << '/' << place.line() << ':' << place.column() << '.' << place.discriminator() << '['
                 << startOf(line) << '+' << line.size() << ") ";
        });
        return text.str();
    }
    std::string stretch(unsigned long long unit, unsigned int file, unsigned long long start, unsigned long long end) {
        LineIterator lines;
        m_table->sourceLines(lines, unit, file, start, end);
        return textOf(lines);
    }
    std::string at(unsigned long long address, unsigned long long unit = k_allUnits, unsigned int file = k_allFiles) {
        LineIterator lines;
        m_table->sourceLinesByAddress(lines, address, unit, file);
        return textOf(lines);
    }
    static std::string expected(std::vector<Row const*> const& rows, bool isCut, unsigned long long start,
                                unsigned long long limit) {
        std::ostringstream text;
        for (Row const* row : rows) {
            unsigned long long const from = isCut ? std::max(row->start, start) : row->start;
            unsigned long long const to = isCut ? std::min(row->end(), limit) : row->end();
            text << row->unit << '/' << row->line << ':' << row->column << '.' << row->discriminator << '[' << from
                 << '+' << to - from << ") ";
        }
        return text.str();
    }

    /// The one of an address that starts last, of several such the first.
    void expectLatest(Row const* expected, unsigned long long unit, unsigned int file, unsigned long long address) {
        auto& table = static_cast<LineTable&>(*m_table);
        std::optional<RowAt> const filtered = table.latestAt({unit, file, address, address});
        std::vector<RowAt const*> answers{filtered ? &*filtered : nullptr};
        RowsAtAddress const all(table, address);
        if (unit != k_allUnits && file != k_allFiles) {
            answers.push_back(all.latest(unit, file));
        }
        for (RowAt const* const at : answers) {
            ASSERT_EQ(at != nullptr, expected != nullptr) << address;
            SrcLocator const row = at != nullptr ? table.locator(at->row) : SrcLocator{};
            ASSERT_TRUE(at == nullptr ||
                        std::tuple(row.start, row.line, row.column, row.discriminator, row.fileId, at->unit) ==
                            std::tuple(expected->start, expected->line, expected->column, expected->discriminator,
                                       expected->file, expected->unit))
                << address;
        }
    }

    TempDir m_dir;
    SymMgrObjectPtr<IFileFormatLoader> m_loader;
    SymMgrObjectPtr<ISrcLineResolver> m_resolver;
    SymMgrObjectPtr<ILineTable> m_table;
};

} // namespace

TEST_F(LineTables, AgreesWithTheModel) {
    enum class Shape { Chains, Scattered, Nested, Equal };
    for (Shape const shape : {Shape::Chains, Shape::Scattered, Shape::Nested, Shape::Equal}) {
        for (unsigned int seed = 0; seed < 6; ++seed) {
            std::mt19937 random(seed * 4 + static_cast<unsigned int>(shape));
            auto const pick = [&](unsigned int below) { return static_cast<unsigned int>(random() % below); };
            unsigned int const count = shape == Shape::Chains ? 8000 : 700;
            std::vector<Row> rows;
            unsigned long long next = 0x1000;
            for (unsigned int i = 0; i < count; ++i) {
                Row row{pick(3) * 0x100ULL, pick(4), 1 + pick(shape == Shape::Equal ? 3 : 400), pick(3), 0, 0, 0};
                switch (shape) {
                case Shape::Chains: // as line programs write them, with a jump now and then
                    next = pick(40) == 0 ? 0x1000 + pick(0x8000) : next;
                    row.unit = next % 3 * 0x100;
                    row.start = next;
                    row.size = pick(4) == 0 ? 0 : pick(12);
                    next += row.size;
                    break;
                case Shape::Scattered:
                    row.start = 0x1000 + pick(0x800);
                    row.size = pick(64);
                    break;
                case Shape::Nested:
                    row.start = 0x1000 + pick(400);
                    row.size = 0x1800 - row.start - pick(400);
                    break;
                case Shape::Equal:
                    row.start = 0x1000 + pick(8) * 16;
                    row.size = pick(5) * 16;
                    break;
                }
                row.discriminator = row.line % 5;
                rows.push_back(row);
            }
            SetUp();
            Model model;
            for (Row const& row : rows) {
                add(row);
                model.add(&row);
                if (pick(count / 64) == 0) { // who asks in between has what there is by then
                    ASSERT_EQ(at(row.start),
                              expected(model.query(k_allUnits, k_allFiles, row.start, row.start), false, 0, 0));
                }
            }
            for (unsigned int i = 0; i < 400; ++i) {
                unsigned long long const unit = pick(3) == 0 ? k_allUnits : pick(4) * 0x100ULL;
                unsigned int const file = pick(3) == 0 ? k_allFiles : pick(5);
                unsigned long long const start = 0xFF0 + pick(shape == Shape::Chains ? 0x8100 : 0x900);
                unsigned long long const end = pick(4) == 0 ? start : start + pick(0x200);
                auto const found = model.query(unit, file, start, end);
                ASSERT_EQ(stretch(unit, file, start, end), expected(found, true, start, start == end ? end + 1 : end))
                    << "shape " << static_cast<int>(shape) << ", seed " << seed << ", unit " << unit << ", file "
                    << file << ", " << start << "-" << end;
                auto const held = model.query(unit, file, start, start);
                Row const* latest = nullptr;
                for (Row const* const row : held) {
                    latest = latest == nullptr || row->start > latest->start ? row : latest;
                }
                expectLatest(latest, unit, file, start);
                ASSERT_EQ(at(start, unit, file), expected(held, false, 0, 0))
                    << "shape " << static_cast<int>(shape) << ", seed " << seed << ", unit " << unit << ", file "
                    << file << ", at " << start;
            }
            auto const all = model.query(k_allUnits, k_allFiles, 0, ~0ULL);
            ASSERT_EQ(stretch(k_allUnits, k_allFiles, 0, ~0ULL), expected(all, true, 0, ~0ULL));
            ASSERT_EQ(stretch(k_allUnits, k_allFiles, 0x1105, 0x1103), "");
            ASSERT_EQ(stretch(k_allUnits, k_allFiles, ~0ULL, ~0ULL), "");
        }
    }
}

TEST_F(LineTables, OrdersRowsOfOnePlace) {
    // Equal rows: the newer in front. Rows that differ in the discriminator alone: the newer behind, and
    // the search for an equal one begins at the last insertion.
    for (auto const& [start, discriminators, order] :
         {std::tuple(100ULL, std::vector<int>{1, 1, 2}, "0/5:1.1[100+8) 0/5:1.1[100+8) 0/5:1.2[100+8) "),
          std::tuple(200ULL, std::vector<int>{1, 2, 1}, "0/5:1.1[200+8) 0/5:1.2[200+8) 0/5:1.1[200+8) "),
          std::tuple(300ULL, std::vector<int>{2, 1}, "0/5:1.2[300+8) 0/5:1.1[300+8) ")}) {
        for (int const discriminator : discriminators) {
            add({0, 0, 5, 1, start, 8, static_cast<unsigned long long>(discriminator)});
        }
        EXPECT_EQ(at(start), order);
    }
}

TEST_F(LineTables, KeepsWideValues) {
    add({0, 0, 0xFFFFFFFF, 0xFFFE, 100, 4, 0xFFFF});
    add({0, 0, 1, 0xFFFF, 104, 4, 0x10000});
    add({0, 0, 2, 0xFFFFFFFF, 108, 0x200000000, ~0ULL});
    add({0, 0, 3, 1, 108 + 0x200000000, 1, 1});
    EXPECT_EQ(at(100), "0/4294967295:65534.65535[100+4) ");
    EXPECT_EQ(at(104), "0/1:65535.65536[104+4) ");
    EXPECT_EQ(at(0x100000000), "0/2:4294967295.18446744073709551615[108+0) "); // a size has 32 bits
    EXPECT_EQ(at(108 + 0x200000000), "0/3:1.1[8589934700+1) ");
}

TEST_F(LineTables, AnIteratorStandsFirmWhenRowsCome) {
    for (unsigned int i = 0; i < 20; ++i) {
        add({1, 5, i, 0, 0x100 + 16ULL * i, 16, 0});
    }
    LineIterator lines;
    m_table->sourceLines(lines, k_allUnits, k_allFiles, 0, ~0ULL);
    for (unsigned int i = 0; i < 20; ++i) {
        ASSERT_TRUE(lines->current());
        EXPECT_EQ(lines->current()->location()->line(), i);
        add({i % 3, i % 7, 99, 0, 8ULL * i, 300, 0}); // files and units in front of the one that is walked
        EXPECT_EQ(lines->next(), i < 19);
    }
}

namespace {

/// A table that is not known to be one of ours.
class ForeignTable final : public SymMgrObject<ILineTable> {
public:
    explicit ForeignTable(ILineTable* table) : m_table(table) {}
    void sourceLinesByAddress(LineIterator& out, unsigned long long address, unsigned long long unit,
                              unsigned int file) override {
        m_table->sourceLinesByAddress(out, address, unit, file);
    }
    void sourceLines(LineIterator& out, unsigned long long unit, unsigned int file, unsigned long long start,
                     unsigned long long end) override {
        m_table->sourceLines(out, unit, file, start, end);
    }
    void addLine(unsigned long long /*unit*/, unsigned int /*file*/, unsigned int /*line*/, unsigned int /*column*/,
                 unsigned long long /*address*/, unsigned long long /*size*/,
                 unsigned long long /*discriminator*/) override {}

private:
    SymMgrObjectPtr<ILineTable> m_table;
};

/// A scope with its kinds loaded.
class LoadedScope final : public SymbolScope {
public:
    LoadedScope(IFileFormatLoader* loader, Scope* parent, unsigned long long start, unsigned long long end)
        : SymbolScope(loader, SymbolName::borrowed("f"), start, parent, symbol_visibility_Global,
                      symbol_kind_Function) {
        addRange(start, end);
    }
    status_t loadKinds(unsigned int /*mask*/) override { return status_Ok; }
};

} // namespace

TEST_F(LineTables, AFileIsSoughtWhereItHasRows) {
    for (unsigned int seed = 0; seed < 200; ++seed) {
        std::mt19937 random(seed);
        auto const below = [&](unsigned int limit) { return static_cast<unsigned int>(random() % limit); };
        m_table = ILineTable::create(*m_loader, *m_resolver);
        for (unsigned int i = 10 + below(60); i > 0; --i) {
            // Rows of no size too, which show where no piece begins or ends.
            add({below(3), below(4), below(9), 0, 0x100ULL + 8ULL * below(0x80), 8ULL * (below(3) * below(6)), 0});
        }
        SymMgrObjectPtr<LoadedScope> const root(new LoadedScope(m_loader.get(), nullptr, 0, 0x1000));
        auto const addFunction = [&](unsigned long long start, unsigned long long size) {
            SymMgrObjectPtr<LoadedScope> const function(
                new LoadedScope(m_loader.get(), root.get(), start, start + size));
            if (below(3) != 0) { // one in a part of which something lies
                unsigned long long const from = start + below(static_cast<unsigned int>(size) + 1);
                function->symbolTable()->addRange(from, start + size,
                                                  new LoadedScope(m_loader.get(), function.get(), from, start + size));
            }
            root->symbolTable()->addRange(start, start + size, function.get());
        };
        for (unsigned long long start = 0x80; start < 0x600; start += 8ULL * below(10)) {
            addFunction(start, 8ULL * below(10));
        }
        SymMgrObjectPtr<ForeignTable> const foreign(new ForeignTable(m_table.get()));
        for (unsigned int i = 0; i < 12; ++i) {
            unsigned long long const unit = below(2) == 0 ? k_allUnits : below(3);
            ORV_3_30::LineQuery const stretch{unit, i % 5, 8ULL * below(0x60), 0x300ULL + 8ULL * below(0x80)};
            ORV_3_30::LineQuery const query = i < 6 ? stretch : ORV_3_30::LineQuery{unit, i % 5, 0, ~0ULL};
            LineIterator const own(new InlineCallerSourceLineIterator(*m_table, query, root.get()));
            LineIterator const other(new InlineCallerSourceLineIterator(*foreign, query, root.get()));
            ASSERT_EQ(textOf(own), textOf(other)) << "seed " << seed << ", question " << i << ", file " << i % 5;
            if (below(4) == 0) { // a load goes on
                addFunction(0x80 + 8ULL * below(0x80), 8ULL * below(20));
            }
        }
    }
}
