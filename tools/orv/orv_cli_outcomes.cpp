// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
// A resolver sees candidates of ours, which pass on what it offers and keep what was refused.

#include "orv_cli_outcomes.h"

#include <filesystem>
#include <unistd.h>

namespace orv_cli {
namespace {

/// A candidate that keeps what it is offered.
class Watched final : public SymMgrObject<ISymbolFileToResolve> {
public:
    Watched(SymMgrObjectPtr<ISymbolFileToResolve> candidate, CandidateKind kind)
        : m_candidate(std::move(candidate)), m_kind(kind), m_sought(m_candidate->symbolFileName()) {}

    char const* symbolFileName() override { return m_candidate->symbolFileName(); }
    char const* moduleFileName() override { return m_candidate->moduleFileName(); }
    symbol_file_format_t symbolFileFormat() override { return m_candidate->symbolFileFormat(); }
    symbol_file_validity_t validity() override { return m_candidate->validity(); }
    unsigned int candidateClassFlag() override { return m_candidate->candidateClassFlag(); }
    long long validateSymbolFile(char const* resolvedSymFile) override {
        long long const index = m_candidate->validateSymbolFile(resolvedSymFile);
        if (index < 0) {
            m_refused.emplace_back(resolvedSymFile);
        }
        return index;
    }

    CandidateKind kind() const { return m_kind; }
    std::string const& sought() const { return m_sought; }
    std::vector<std::string> const& refused() const { return m_refused; }

private:
    SymMgrObjectPtr<ISymbolFileToResolve> m_candidate;
    CandidateKind m_kind;
    std::string m_sought; ///< Before anybody has offered it a file.
    std::vector<std::string> m_refused;
};

using WatchedList = std::vector<SymMgrObjectPtr<Watched>>;

class WatchedIterator final : public SymMgrObject<IIterator<SymMgrObjectPtr<ISymbolFileToResolve>>> {
public:
    explicit WatchedIterator(WatchedList const& list) : m_list(list) {}
    SymMgrObjectPtr<ISymbolFileToResolve> current() override {
        return m_at < m_list.size() ? SymMgrObjectPtr<ISymbolFileToResolve>(m_list[m_at].get())
                                    : SymMgrObjectPtr<ISymbolFileToResolve>();
    }
    bool next() override {
        m_at += m_at < m_list.size() ? 1 : 0;
        return m_at < m_list.size();
    }
    void reset() override { m_at = 0; }

private:
    WatchedList const& m_list;
    std::size_t m_at = 0;
};

CandidateKind kindOf(ISymbolFileToResolve& candidate) {
    if (candidate.symbolFileFormat() != symbolFormatDwarf) {
        return candidate.symbolFileFormat() == symbolFormatSystemMap ? CandidateKind::KernelList
               : candidate.symbolFileFormat() == symbolFormatOat     ? CandidateKind::Module
                                                                     : CandidateKind::ProgramFile;
    }
    if (!wantedBuildId(candidate).empty()) {
        return CandidateKind::BuildId;
    }
    // What stands for the module itself is valid from the first, and names it.
    std::error_code ignored;
    bool const isOwn = candidate.validity() == symbolFileValid &&
                       std::filesystem::equivalent(candidate.symbolFileName(), candidate.moduleFileName(), ignored);
    return isOwn ? CandidateKind::Module : CandidateKind::DebugLink;
}

} // namespace

std::vector<CandidateOutcome> resolve(Decide const& decide, Candidates const& candidates, long long& decision) {
    WatchedList watched;
    candidates->reset();
    forEach(candidates,
            [&](auto const& candidate) { watched.emplace_back(new Watched(candidate, kindOf(*candidate))); });
    Candidates shown(new WatchedIterator(watched));
    decision = decide && !watched.empty() ? decide(shown) : -1;
    std::vector<CandidateOutcome> outcomes;
    for (auto const& candidate : watched) {
        bool const isTaken = static_cast<long long>(outcomes.size()) == decision;
        outcomes.push_back({candidate->kind(), candidate->symbolFileFormat(), candidate->validity(), isTaken,
                            candidate->symbolFileName(), candidate->sought(), candidate->refused()});
    }
    return outcomes;
}

std::string whyRefused(std::string const& path, CandidateKind kind) {
    std::error_code ignored;
    if (::access(path.c_str(), R_OK) != 0) {
        return path + " cannot be opened";
    }
    if (!std::filesystem::is_regular_file(path, ignored)) {
        return path + " is no regular file";
    }
    switch (kind) {
    case CandidateKind::Module: return "it takes the module and nothing else";
    case CandidateKind::KernelList: return path + " is a compressed kernel, and no list";
    case CandidateKind::ProgramFile: return path + " is no program file of this family's compiler, or is damaged";
    default: return path + " belongs to another build";
    }
}

} // namespace orv_cli
