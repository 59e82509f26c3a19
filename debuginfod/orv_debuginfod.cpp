// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
// A resolver that asks debuginfod servers by build id, through libdebuginfod.
#include "orv/orv_debuginfod.h"

#include "orv/orv_debugroots.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <elfutils/debuginfod.h>
#include <memory>
#include <string>
#include <unistd.h>

namespace ORV_3_30 {
namespace {

constexpr int k_goOn = 0;

/// Takes the line on the terminal away again.
class ProgressLine {
public:
    explicit ProgressLine(debuginfod_client* client) : m_isShown(::isatty(STDERR_FILENO) != 0) {
        if (m_isShown) {
            debuginfod_set_progressfn(client, &ProgressLine::show);
        }
    }
    ~ProgressLine() {
        if (m_isShown) {
            std::fputs("\r\033[K", stderr);
        }
    }
    ProgressLine(ProgressLine const&) = delete;
    ProgressLine& operator=(ProgressLine const&) = delete;

private:
    static int show(debuginfod_client* client, long done, long total) {
        constexpr long k_kibi = 1024;
        char const* const url = debuginfod_get_url(client);
        std::fprintf(stderr, "\r\033[Kasking %s", url != nullptr ? url : "debuginfod servers");
        if (total > 0) {
            std::fprintf(stderr, ": %ld of %ld KiB", done / k_kibi, total / k_kibi);
        }
        std::fflush(stderr);
        return k_goOn;
    }

    bool m_isShown;
};

bool areServersSet() {
    char const* const urls = std::getenv(DEBUGINFOD_URLS_ENV_VAR);
    return urls != nullptr && urls[std::strspn(urls, " \t")] != '\0';
}

} // namespace

struct DebuginfodResolver::State {
    ISymbolFileResolver* first;
    std::string lastAnswer;

    long long ask(ISymbolFileToResolve& candidate, std::string const& buildId) {
        std::unique_ptr<debuginfod_client, decltype(&debuginfod_end)> const client(debuginfod_begin(), &debuginfod_end);
        if (!client) {
            lastAnswer = "the debuginfod client can't be set up";
            return -1;
        }
        char* path = nullptr;
        int file = -1;
        {
            ProgressLine const progress(client.get());
            file = debuginfod_find_debuginfo(client.get(), reinterpret_cast<unsigned char const*>(buildId.c_str()), 0,
                                             &path);
        }
        if (file < 0) {
            lastAnswer = "no debuginfod server gives the companion: " + std::string(std::strerror(-file));
            return -1;
        }
        ::close(file);
        std::unique_ptr<char, decltype(&std::free)> const held(path, &std::free);
        long long const index = candidate.validateSymbolFile(path);
        lastAnswer = index >= 0 ? "" : "a debuginfod server has sent a file of another build";
        return index;
    }
};

DebuginfodResolver::DebuginfodResolver(ISymbolFileResolver* first) : m_state(new State{first, {}}) {}

DebuginfodResolver::~DebuginfodResolver() { delete m_state; }

char const* DebuginfodResolver::lastAnswer() const { return m_state->lastAnswer.c_str(); }

long long
DebuginfodResolver::resolveSymbolFile(SymMgrObjectPtr<IIterator<SymMgrObjectPtr<ISymbolFileToResolve>>>& candidates) {
    m_state->lastAnswer.clear();
    DebugRootsResolver defaultChoice{std::vector<std::string>()};
    ISymbolFileResolver& first = m_state->first != nullptr ? *m_state->first : defaultChoice;
    long long const found = first.resolveSymbolFile(candidates);
    if (found >= 0 || !areServersSet()) {
        return found;
    }
    candidates->reset();
    for (auto candidate = candidates->current(); candidate; candidate = candidates->current()) {
        std::string const buildId = wantedBuildId(*candidate);
        long long const index = buildId.empty() ? -1 : m_state->ask(*candidate, buildId);
        if (index >= 0) {
            return index;
        }
        candidates->next();
    }
    return -1;
}

ISymbolFileResolver* orvCreateDebuginfodResolver(ISymbolFileResolver* first) { return new DebuginfodResolver(first); }

void orvDestroyDebuginfodResolver(ISymbolFileResolver* resolver) { delete static_cast<DebuginfodResolver*>(resolver); }

char const* orvLastDebuginfodAnswer(ISymbolFileResolver* resolver) {
    return static_cast<DebuginfodResolver*>(resolver)->lastAnswer();
}

} // namespace ORV_3_30
