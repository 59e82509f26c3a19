// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// Who makes the scopes of symbols that came into a table without one, and says which of them are the same thing.
#pragma once

#include "symbols/orv_merge.h"

namespace ORV_3_30 {

class IFileFormatLoader;
struct RangeRecord;
class Scope;

/// Symbols come by the tens of thousands, and few are ever asked for. A loader that hands them to a table
/// as records is asked for the scope when somebody needs it. It outlives the table.
class IScopeMaker {
public:
    /// A scope with its symbol. One without a range gets the record's stretch for its one range; one that the maker
    /// keeps anyway comes with those that it has. Called from any thread, under locks of the table: takes none that
    /// lead to a load or a query.
    virtual Scope* makeScope(RangeRecord const& record, Scope* parent) = 0;
    /// What becomes of a newcomer that starts where one of its symbols does: flags of merge_flags_t. Both have names.
    virtual unsigned int mergeRule(MergeSide const& mine, MergeSide const& other, MergeNext const& next) = 0;
    /// Its rule tells a rival and a newcomer apart unless they share one of these.
    virtual void matchKeys(MergeSide const& side, MatchRole role, MatchKeys& out) = 0;
    /// True if its rule goes by what stands behind, so that it matters who came before.
    virtual bool looksAhead() const = 0;
    /// True if its symbols have a compilation unit.
    virtual bool givesUnits() const = 0;
    /// True if its symbols are inlined bodies.
    virtual bool givesInlines() const = 0;

protected:
    ~IScopeMaker() = default;
};

/// The rule of symbols without debug information.
class PlainScopeMaker : public IScopeMaker {
public:
    virtual ~PlainScopeMaker() = default;
    /// For scopes that came as such: their names are a client's own.
    static IScopeMaker& ofClients();

    Scope* makeScope(RangeRecord const& /*record*/, Scope* /*parent*/) override { return nullptr; }
    unsigned int mergeRule(MergeSide const& mine, MergeSide const& other, MergeNext const& next) override;
    void matchKeys(MergeSide const& side, MatchRole role, MatchKeys& out) override;
    bool looksAhead() const override { return false; }
    bool givesUnits() const override { return false; }
    bool givesInlines() const override { return false; }

private:
    virtual bool areSameNames(char const* a, char const* b);
    virtual std::uint64_t hashOfName(char const* name);
};

/// The symbols of a format's own table. Guarded by the table that they go into.
class RawScopeMaker final : public PlainScopeMaker {
public:
    explicit RawScopeMaker(IFileFormatLoader* loader) : m_loader(loader) {}

    Scope* makeScope(RangeRecord const& record, Scope* parent) override;
    IFileFormatLoader* loader() const { return m_loader; }
    NameBudget& names() { return m_names; }

private:
    bool areSameNames(char const* a, char const* b) override { return m_names.areSame(a, b); }
    std::uint64_t hashOfName(char const* name) override { return m_names.hashOf(name); }

    IFileFormatLoader* m_loader;
    NameBudget m_names;
};

} // namespace ORV_3_30
