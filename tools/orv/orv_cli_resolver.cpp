// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
// Which symbol file is taken, as the options say.
#include "orv_cli_resolver.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <elf.h>
#include <filesystem>
#include <fstream>
#include <unistd.h>

namespace orv_cli {
namespace {

std::vector<std::string> rootsOf(CommonOptions const& options) {
    return options.debugRoots.empty() ? std::vector<std::string>{"/usr/lib/debug"} : options.debugRoots;
}

/// The library for servers stands beside liborv.
void* openServerLibrary() {
    Dl_info info{};
    std::string folder;
    if (::dladdr(reinterpret_cast<void const*>(&ISymbolManager::create), &info) != 0 && info.dli_fname != nullptr) {
        folder = info.dli_fname;
        folder.resize(folder.rfind('/') + 1); // empty without one
    }
    void* const beside = ::dlopen((folder + ORV_DEBUGINFOD_LIBRARY).c_str(), RTLD_NOW);
    return beside != nullptr ? beside : ::dlopen(ORV_DEBUGINFOD_LIBRARY, RTLD_NOW);
}

bool isElf(std::string const& path) {
    std::string magic(SELFMAG, '\0');
    return std::ifstream(path).read(magic.data(), SELFMAG) && magic == ELFMAG;
}

bool areServersSet() {
    char const* const urls = std::getenv("DEBUGINFOD_URLS");
    return urls != nullptr && urls[std::strspn(urls, " \t")] != '\0';
}

} // namespace

Resolver::Resolver(CommonOptions const& options) : m_options(options), m_roots(rootsOf(options)) {
    if (options.askServers) {
        loadServers();
    }
    for (std::string const& root : options.debugRoots) {
        std::error_code ignored;
        if (!std::filesystem::is_directory(root, ignored)) {
            note("--debug-root " + root + ": no such folder", m_options);
        }
    }
}

Resolver::~Resolver() {
    if (m_servers != nullptr) {
        m_destroy(m_servers);
    }
}

/// Its client library brings a good deal with it, so only those who ask for it wait for that.
void Resolver::loadServers() {
    void* const library = openServerLibrary();
    auto const find = [&](char const* name) { return library != nullptr ? ::dlsym(library, name) : nullptr; };
    auto const create = reinterpret_cast<decltype(&orvCreateDebuginfodResolver)>(find("orvCreateDebuginfodResolver"));
    m_destroy = reinterpret_cast<decltype(m_destroy)>(find("orvDestroyDebuginfodResolver"));
    m_lastAnswer = reinterpret_cast<decltype(m_lastAnswer)>(find("orvLastDebuginfodAnswer"));
    if (create == nullptr || m_destroy == nullptr || m_lastAnswer == nullptr) {
        throw Failure(std::string("--debuginfod: ") + ORV_DEBUGINFOD_LIBRARY +
                      " can't be loaded: install it beside liborv");
    }
    m_servers = create(&m_roots);
    if (!areServersSet()) {
        note("--debuginfod: DEBUGINFOD_URLS is not set, so no server is asked: give it the URLs of servers", m_options);
    }
}

long long Resolver::resolveSymbolFile(Candidates& candidates) {
    long long decision = -1;
    Decide const decide = [this](Candidates& shown) { return this->decide(shown); };
    m_outcomes = resolve(m_options.noDebugInfo ? Decide() : decide, candidates, decision);
    return decision;
}

long long Resolver::decide(Candidates& candidates) {
    if (m_options.symbolFile.empty()) {
        return m_servers != nullptr ? m_servers->resolveSymbolFile(candidates) : m_roots.resolveSymbolFile(candidates);
    }
    // A list is read more than once; and what is a module is no list, which takes any file that is there.
    std::error_code ignored;
    bool const mayBeList =
        std::filesystem::is_regular_file(m_options.symbolFile, ignored) && !isElf(m_options.symbolFile);
    candidates->reset();
    for (auto candidate = candidates->current(); candidate; candidate = candidates->current()) {
        bool const isOffered = mayBeList || candidate->symbolFileFormat() != symbolFormatSystemMap;
        long long const index = isOffered ? candidate->validateSymbolFile(m_options.symbolFile.c_str()) : -1;
        if (index >= 0) {
            m_isTaken = true;
            return index;
        }
        candidates->next();
    }
    return -1;
}

void Resolver::finish(std::string const& module) {
    if (!m_options.symbolFile.empty() && !m_options.noDebugInfo && !m_isTaken) {
        std::error_code ignored;
        if (::access(m_options.symbolFile.c_str(), R_OK) != 0) {
            throw Failure(m_options.symbolFile + ": cannot be opened");
        }
        if (!std::filesystem::is_regular_file(m_options.symbolFile, ignored)) {
            throw Failure(m_options.symbolFile + ": is no regular file: name the companion itself");
        }
        auto const isList = [](CandidateOutcome const& outcome) { return outcome.kind == CandidateKind::KernelList; };
        if (std::any_of(m_outcomes.begin(), m_outcomes.end(), isList) && !isElf(m_options.symbolFile)) {
            throw Failure(whyRefused(m_options.symbolFile, CandidateKind::KernelList) + " of its symbols");
        }
        auto const isOfGpu = [](CandidateOutcome const& outcome) { return outcome.kind == CandidateKind::ProgramFile; };
        if (std::any_of(m_outcomes.begin(), m_outcomes.end(), isOfGpu)) {
            throw Failure(m_options.symbolFile + ": is no program file of this family's compiler, or is damaged");
        }
        throw Failure(m_options.symbolFile + ": is no companion of " + module +
                      ": neither its build id nor its CRC is the one that the module names");
    }
    if (m_servers != nullptr && *m_lastAnswer(m_servers) != '\0') {
        note(module + ": " + m_lastAnswer(m_servers), m_options);
    }
}

std::string Resolver::places(bool isOfBuildId) const {
    std::string all;
    for (std::string const& root : rootsOf(m_options)) {
        all += (all.empty() ? "under " : ", ") + root;
    }
    bool const isAsked = isOfBuildId && m_servers != nullptr && areServersSet();
    return (isOfBuildId ? "" : "beside the module, in .debug there, ") + all +
           (isAsked ? ", or on the servers of DEBUGINFOD_URLS" : "");
}

std::string Resolver::whyNot(CandidateOutcome const& outcome) const {
    if (m_options.noDebugInfo) {
        return "--no-debug-info: nothing is looked for";
    }
    if (!outcome.refused.empty()) {
        return whyRefused(outcome.refused.front(), outcome.kind);
    }
    switch (outcome.validity) {
    case symbolFileValid: return "it would do, but another one stands in front of it";
    case symbolFileRefused:
        return outcome.kind == CandidateKind::ProgramFile ? "it is no program file of this family's compiler"
                                                          : "it holds no debug information";
    case symbolFileMismatch:
        return "beside the module is a file of that name, with another CRC: it belongs to another build";
    default: break;
    }
    if (outcome.kind == CandidateKind::KernelList) {
        return outcome.sought.empty() ? "the module is no kernel by its name" : "no such file beside the kernel";
    }
    if (outcome.kind == CandidateKind::ProgramFile) {
        return outcome.sought.empty() ? "the binary's path has no dot" : "no such file beside the binary";
    }
    auto const isTaken = [](CandidateOutcome const& other) { return other.isTaken; };
    if (std::any_of(m_outcomes.begin(), m_outcomes.end(), isTaken)) {
        return "not looked for any further: another one is taken";
    }
    return "no such file " + places(outcome.kind == CandidateKind::BuildId);
}

std::string Resolver::missing(IModuleSymbolBank& bank) const {
    std::string sought;
    std::string lists;    // of a kernel's symbols
    bool isNamed = false; // by a debug link, which only strippers leave
    for (CandidateOutcome const& outcome : m_outcomes) {
        if (outcome.isTaken) {
            return {};
        }
        if (outcome.kind == CandidateKind::ProgramFile && !m_options.noDebugInfo) {
            return "has no lines: " + outcome.sought + ": " + whyNot(outcome);
        }
        bool const isCompanion = outcome.kind == CandidateKind::BuildId || outcome.kind == CandidateKind::DebugLink;
        if (isCompanion) {
            sought += (sought.empty() ? "" : "; ") + outcome.sought + ": " + whyNot(outcome);
            isNamed |= outcome.kind == CandidateKind::DebugLink;
        } else if (outcome.kind == CandidateKind::KernelList && !outcome.sought.empty()) {
            lists += (lists.empty() ? "" : " nor ") + outcome.sought;
        }
    }
    SymMgrObjectPtr<ISection> symbols;
    if (m_options.noDebugInfo || (!isNamed && bank.sectionByName(".symtab", symbols) == status_Ok)) {
        return {};
    }
    if (!lists.empty() && sought.empty()) {
        return "has no symbols, nor a list of them: neither " + lists + " is there, and --symbol-file names none";
    }
    return sought.empty() ? "is stripped, and names no file that has its debug information"
                          : "has its debug information elsewhere, and it was not found: " + sought;
}

} // namespace orv_cli
