// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
// Paths put together of what a unit tells, the module's own and the debug roots (DWARF version 5, 3.1.2 and 7.3.5).
#include "resolver/orv_split_places.h"

#include "image/orv_path.h"

#include <algorithm>

namespace ORV_3_30 {
namespace {

constexpr char k_packageEnd[] = ".dwp";

void addOnce(std::vector<std::string>& list, std::string const& text) {
    if (!text.empty() && std::find(list.begin(), list.end(), text) == list.end()) {
        list.push_back(text);
    }
}

std::string joined(std::string const& directory, std::string const& name) {
    bool const isEnded = directory.empty() || directory.back() == '/';
    return directory + (isEnded || name.front() == '/' ? "" : "/") + name;
}

struct Noted {
    std::string module;
    std::vector<std::string> roots;
};

Noted& noted() {
    static thread_local Noted last;
    return last;
}

} // namespace

SplitPlaces::SplitPlaces(char const* moduleFile, char const* symbolFile, std::vector<std::string> roots)
    : m_roots(std::move(roots)) {
    for (char const* const file : {moduleFile, symbolFile}) {
        std::string path;
        fullPath(path, file, false);
        std::string directory;
        directoryName(directory, path.c_str());
        addOnce(m_files, path);
        addOnce(m_directories, directory);
    }
}

void SplitPlaces::noteRoots(char const* moduleFile, std::vector<std::string> const& roots) {
    noted().module = moduleFile;
    noted().roots = roots;
}

std::unique_ptr<ISplitFiles> SplitPlaces::of(char const* moduleFile, char const* symbolFile) {
    bool const isNoted = samePath(noted().module.c_str(), moduleFile);
    return std::make_unique<SplitPlaces>(moduleFile, symbolFile, isNoted ? noted().roots : std::vector<std::string>());
}

std::vector<std::string> SplitPlaces::packages() const {
    std::vector<std::string> places;
    for (std::string const& file : m_files) {
        addOnce(places, file + k_packageEnd);
    }
    for (std::string const& root : m_roots) {
        for (std::string const& file : m_files) {
            addOnce(places, joined(root, file) + k_packageEnd);
        }
    }
    return places;
}

/// A directory that is not absolute is one of the module's: it was left so for a program that is moved with its files.
std::vector<std::string> SplitPlaces::placesOf(std::string const& directory, std::string const& name) const {
    std::vector<std::string> places;
    if (name.empty()) {
        return places;
    }
    bool const isWhole = name.front() == '/';
    bool const hasDirectory = !directory.empty() && directory.front() == '/';
    std::string const last = name.substr(name.rfind('/') + 1);
    std::vector<std::string> own;
    if (isWhole || hasDirectory) {
        addOnce(own, isWhole ? name : joined(directory, name));
    }
    for (std::string const& beside : m_directories) {
        if (!isWhole && !directory.empty() && !hasDirectory) {
            addOnce(own, joined(joined(beside, directory), name));
        }
        if (!isWhole) {
            addOnce(own, joined(beside, name));
        }
        if (!last.empty()) {
            addOnce(own, joined(beside, last));
        }
    }
    places = own;
    for (std::string const& root : m_roots) {
        for (std::string const& place : own) {
            addOnce(places, joined(root, place));
        }
    }
    return places;
}

} // namespace ORV_3_30
