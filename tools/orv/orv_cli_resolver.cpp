#include "orv_cli_resolver.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <filesystem>
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

bool areServersSet() {
    char const* const urls = std::getenv("DEBUGINFOD_URLS");
    return urls != nullptr && urls[std::strspn(urls, " \t")] != '\0';
}

/// Said once, also where a module is read again.
void sayOnce(std::string const& text) {
    static bool isSaid = false;
    if (!isSaid) {
        std::fflush(stdout);
        std::fprintf(stderr, "orv: %s\n", text.c_str());
        isSaid = true;
    }
}

} // namespace

Resolver::Resolver(CommonOptions const& options) : m_options(options), m_roots(rootsOf(options)) {
    if (options.askServers) {
        loadServers();
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
        sayOnce("--debuginfod: DEBUGINFOD_URLS is not set, so no server is asked: give it the URLs of servers");
    }
}

long long Resolver::resolveSymbolFile(SymMgrObjectPtr<IIterator<SymMgrObjectPtr<ISymbolFileToResolve>>>& candidates) {
    if (m_options.symbolFile.empty()) {
        return m_servers != nullptr ? m_servers->resolveSymbolFile(candidates) : m_roots.resolveSymbolFile(candidates);
    }
    candidates->reset();
    for (auto candidate = candidates->current(); candidate; candidate = candidates->current()) {
        long long const index = candidate->validateSymbolFile(m_options.symbolFile.c_str());
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
        throw Failure(m_options.symbolFile + ": is no companion of " + module +
                      ": neither its build id nor its CRC is the one that the module names");
    }
    if (m_servers != nullptr && *m_lastAnswer(m_servers) != '\0') {
        sayOnce(module + ": " + m_lastAnswer(m_servers));
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

} // namespace orv_cli
