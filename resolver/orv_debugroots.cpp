#include "orv/orv_debugroots.h"

#include "image/orv_path.h"
#include "resolver/orv_symbolfileresolver.h"

#include <algorithm>
#include <cstdlib>
#include <memory>

namespace ORV_3_30 {
namespace {

constexpr char k_distributionRoot[] = "/usr/lib/debug";
constexpr char k_buildIdFolder[] = ".build-id/";
constexpr char k_companionEnd[] = ".debug";

using Candidates = SymMgrObjectPtr<IIterator<SymMgrObjectPtr<ISymbolFileToResolve>>>;

bool isOfBuildId(ISymbolFileToResolve& candidate) { return !wantedBuildId(candidate).empty(); }

/// A candidate that goes by a name, and has not found it.
bool isOfDebugLink(ISymbolFileToResolve& candidate) {
    return candidate.symbolFileFormat() == symbolFormatDwarf && candidate.validity() != symbolFileValid &&
           *candidate.symbolFileName() != '\0' && !isOfBuildId(candidate);
}

/// The module's directory as it is named, and as it is without symbolic links: packages go by either.
std::vector<std::string> directoriesOf(char const* module) {
    std::string path;
    fullPath(path, module, false);
    std::vector<std::string> found(1);
    directoryName(found[0], path.c_str());
    std::unique_ptr<char, decltype(&std::free)> const real(::realpath(module, nullptr), &std::free);
    if (real) {
        std::string directory;
        directoryName(directory, real.get());
        if (directory != found[0]) {
            found.push_back(directory);
        }
    }
    return found;
}

long long offer(ISymbolFileToResolve& candidate, std::vector<std::string> const& roots) {
    std::string const name = candidate.symbolFileName(); // a copy: an accepted file takes its place
    std::vector<std::string> const directories =
        isOfBuildId(candidate) ? std::vector<std::string>{"/"} : directoriesOf(candidate.moduleFileName());
    for (std::string const& root : roots) {
        for (std::string const& directory : directories) {
            if (root.empty() || directory.empty()) {
                continue; // the file would lie somewhere else
            }
            std::string path = root;
            path.append(directory).append(name);
            long long const index = fileExists(path.c_str()) ? candidate.validateSymbolFile(path.c_str()) : -1;
            if (index >= 0) {
                return index;
            }
        }
    }
    return -1;
}

/// A companion under a root that an earlier load has found.
bool isUnderRoot(ISymbolFileToResolve& candidate, std::vector<std::string> const& roots) {
    std::string const name = candidate.symbolFileName();
    return candidate.validity() == symbolFileValid &&
           std::any_of(roots.begin(), roots.end(), [&](std::string const& root) {
               return !root.empty() && name.compare(0, root.size(), root) == 0 && name.size() > root.size() &&
                      name[root.size()] == '/';
           });
}

} // namespace

std::string wantedBuildId(ISymbolFileToResolve& candidate) {
    std::string id = candidate.symbolFileName();
    constexpr std::size_t k_before = sizeof(k_buildIdFolder) - 1;
    constexpr std::size_t k_after = sizeof(k_companionEnd) - 1;
    bool const isWanted = candidate.symbolFileFormat() == symbolFormatDwarf &&
                          candidate.validity() == symbolFileNotFound && id.size() > k_before + 3 + k_after &&
                          id.compare(0, k_before, k_buildIdFolder) == 0 &&
                          id.compare(id.size() - k_after, k_after, k_companionEnd) == 0;
    if (!isWanted) {
        return {};
    }
    id = id.substr(k_before, id.size() - k_before - k_after);
    if (id[2] != '/') {
        return {};
    }
    id.erase(2, 1);
    return id.find_first_not_of("0123456789abcdef") == std::string::npos ? id : std::string();
}

DebugRootsResolver::DebugRootsResolver() : m_roots(1, k_distributionRoot) {}

DebugRootsResolver::DebugRootsResolver(std::vector<std::string> roots) : m_roots(std::move(roots)) {}

DebugRootsResolver::~DebugRootsResolver() = default;

long long DebugRootsResolver::resolveSymbolFile(Candidates& candidates) {
    // The same file again for every load of the module.
    candidates->reset();
    for (auto candidate = candidates->current(); candidate; candidate = candidates->current()) {
        std::string const name = candidate->symbolFileName();
        if (isUnderRoot(*candidate, m_roots)) {
            return candidate->validateSymbolFile(name.c_str());
        }
        candidates->next();
    }
    for (auto* const isWanted : {&isOfBuildId, &isOfDebugLink}) {
        candidates->reset();
        for (auto candidate = candidates->current(); candidate; candidate = candidates->current()) {
            long long const index = isWanted(*candidate) ? offer(*candidate, m_roots) : -1;
            if (index >= 0) {
                return index;
            }
            candidates->next();
        }
    }
    return SymbolFileResolver().resolveSymbolFile(candidates);
}

} // namespace ORV_3_30
