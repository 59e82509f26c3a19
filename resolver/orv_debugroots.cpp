// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
// Companions below roots, as debuggers lay them out.
#include "orv/orv_debugroots.h"

#include "image/orv_path.h"
#include "resolver/orv_debug_files.h"
#include "resolver/orv_split_places.h"

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <utility>

namespace ORV_3_30 {
namespace {

constexpr char k_distributionRoot[] = "/usr/lib/debug";
constexpr char k_buildIdFolder[] = ".build-id/";
constexpr char k_companionEnd[] = ".debug";

using Candidates = SymMgrObjectPtr<IIterator<SymMgrObjectPtr<ISymbolFileToResolve>>>;

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

/// What a candidate goes by.
enum class Kind { BuildId, DebugLink, Other };

struct Sought {
    Kind kind = Kind::Other;
    std::string name;     ///< Of a file, in a root or in the module's directory there.
    bool isTaken = false; ///< An earlier load has found it.
};

/// A candidate of the library keeps what it went by when it has a file; one of a client's own is known by what it says.
Sought soughtBy(ISymbolFileToResolve& candidate) {
    if (candidate.symbolFileFormat() != symbolFormatDwarf) {
        return {};
    }
    bool const isValid = candidate.validity() == symbolFileValid;
    auto const* const own = dynamic_cast<DWARFCandidate const*>(&candidate);
    std::string const name = own != nullptr ? own->soughtName() : isValid ? std::string() : candidate.symbolFileName();
    bool const isBuildId = name.compare(0, sizeof(k_buildIdFolder) - 1, k_buildIdFolder) == 0;
    Kind const kind = name.empty() ? Kind::Other : isBuildId ? Kind::BuildId : Kind::DebugLink;
    return {kind, name, isValid && fileExists(candidate.symbolFileName())};
}

long long offer(ISymbolFileToResolve& candidate, Sought const& sought, std::vector<std::string> const& roots) {
    if (sought.isTaken) {
        std::string const path = candidate.symbolFileName(); // a copy: an accepted file takes its place
        return candidate.validateSymbolFile(path.c_str());
    }
    std::vector<std::string> const directories =
        sought.kind == Kind::BuildId ? std::vector<std::string>{"/"} : directoriesOf(candidate.moduleFileName());
    for (std::string const& root : roots) {
        for (std::string const& directory : directories) {
            if (root.empty() || directory.empty()) {
                continue; // the file would lie somewhere else
            }
            std::string path = root;
            path.append(directory).append(sought.name);
            long long const index = fileExists(path.c_str()) ? candidate.validateSymbolFile(path.c_str()) : -1;
            if (index >= 0) {
                return index;
            }
        }
    }
    return -1;
}

} // namespace

std::string wantedBuildId(ISymbolFileToResolve& candidate) {
    std::string id = candidate.symbolFileName();
    constexpr std::size_t k_before = sizeof(k_buildIdFolder) - 1;
    constexpr std::size_t k_after = sizeof(k_companionEnd) - 1;
    bool const isWanted = candidate.symbolFileFormat() == symbolFormatDwarf &&
                          candidate.validity() == symbolFileNotFound && id.size() > k_before + 3 + k_after &&
                          id.compare(0, k_before, k_buildIdFolder) == 0 && id[k_before + 2] == '/' &&
                          id.compare(id.size() - k_after, k_after, k_companionEnd) == 0;
    if (!isWanted) {
        return {};
    }
    id = id.substr(k_before, id.size() - k_before - k_after).erase(2, 1);
    return id.find_first_not_of("0123456789abcdef") == std::string::npos ? id : std::string();
}

DebugRootsResolver::DebugRootsResolver() : m_roots(1, k_distributionRoot) {}

DebugRootsResolver::DebugRootsResolver(std::vector<std::string> roots) : m_roots(std::move(roots)) {}

DebugRootsResolver::~DebugRootsResolver() = default;

long long DebugRootsResolver::resolveSymbolFile(Candidates& candidates) {
    std::vector<std::pair<SymMgrObjectPtr<ISymbolFileToResolve>, Sought>> list;
    candidates->reset();
    for (auto candidate = candidates->current(); candidate; candidate = candidates->current()) {
        list.emplace_back(candidate, soughtBy(*candidate));
        candidates->next();
    }
    if (!list.empty()) {
        SplitPlaces::noteRoots(list.front().first->moduleFileName(), m_roots);
    }
    for (Kind const kind : {Kind::BuildId, Kind::DebugLink}) {
        for (auto const& [candidate, sought] : list) {
            long long const index = sought.kind == kind ? offer(*candidate, sought, m_roots) : -1;
            if (index >= 0) {
                return index;
            }
        }
    }
    // As without a resolver, but for files that have gone since.
    auto const found = std::find_if(list.begin(), list.end(), [](auto const& entry) {
        return entry.first->validity() == symbolFileValid && fileExists(entry.first->symbolFileName());
    });
    return found != list.end() ? found - list.begin() : -1;
}

} // namespace ORV_3_30
