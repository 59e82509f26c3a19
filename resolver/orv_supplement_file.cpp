// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
// Places in order, each file told by its build id or by its own .debug_sup (DWARF version 5, 7.3.6).
#include "resolver/orv_supplement_file.h"

#include "core/orv_cursor.h"
#include "core/orv_trace.h"
#include "image/orv_path.h"
#include "resolver/orv_debug_sections.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <sys/stat.h>
#include <vector>

namespace ORV_3_30 {
namespace {

constexpr char k_distributionRoot[] = "/usr/lib/debug";
constexpr char k_buildIdFolder[] = "/.build-id/";
constexpr char k_companionEnd[] = ".debug";
constexpr std::uint64_t k_longestId = 64;

/// What a debug file says of its supplementary file, or that one of itself.
struct Link {
    std::string name;
    std::string id; ///< In lower-case hexadecimal digits.
    bool isOfSupplement = false;
};

std::string digitsOf(unsigned char const* bytes, std::uint64_t size) {
    constexpr char k_digits[] = "0123456789abcdef";
    std::string out;
    for (std::uint64_t i = 0; i < size; ++i) {
        out += k_digits[bytes[i] >> 4];
        out += k_digits[bytes[i] & 0xF];
    }
    return out;
}

/// The bytes of a section; none for one that is not there.
ByteCursor bytesOf(IFileFormatHelper& file, section_role_t role, SymMgrObjectPtr<ISectionData>& keeper) {
    file.sectionData(keeper, role);
    unsigned char const* const bytes = keeper ? keeper->data() : nullptr;
    return {bytes, bytes != nullptr ? keeper->size() : 0};
}

/// False for one that does not end.
bool readName(ByteCursor& cursor, std::string& out) {
    auto const* const text = reinterpret_cast<char const*>(cursor.current());
    std::uint64_t const length = cursor.remaining() != 0 ? ::strnlen(text, cursor.remaining()) : 0;
    if (length == cursor.remaining()) {
        return false;
    }
    out.assign(text, length);
    return cursor.skip(length + 1);
}

/// False for one that is not there, and for one that is longer than any.
bool readId(ByteCursor const& cursor, std::uint64_t size, std::string& out) {
    if (size == 0 || size > k_longestId || size > cursor.remaining()) {
        return false;
    }
    out = digitsOf(cursor.current(), size);
    return true;
}

bool readAltLink(IFileFormatHelper& file, Link& out) {
    SymMgrObjectPtr<ISectionData> section;
    ByteCursor cursor = bytesOf(file, section_role_DebugAltLink, section);
    return readName(cursor, out.name) && readId(cursor, cursor.remaining(), out.id);
}

bool readDebugSup(IFileFormatHelper& file, Link& out) {
    constexpr std::uint16_t k_version = 5;
    SymMgrObjectPtr<ISectionData> section;
    ByteCursor cursor = bytesOf(file, section_role_DebugSup, section);
    std::uint16_t version = 0;
    std::uint8_t isSupplement = 0;
    if (!cursor.read(version) || version != k_version || !cursor.read(isSupplement) || !readName(cursor, out.name)) {
        return false;
    }
    out.isOfSupplement = isSupplement != 0;
    std::uint32_t size = 0;
    return cursor.readUleb(size) && readId(cursor, size, out.id);
}

/// True if an id is the one of a note, which counts in words.
bool isIdOfNote(IFileFormatHelper& file, std::string const& id) {
    constexpr std::size_t k_wordDigits = 8;
    SymMgrObjectPtr<ISectionData> note;
    file.sectionData(note, section_role_BuildId);
    std::string own;
    return note && readBuildId(note.get(), own) && own.size() - id.size() < k_wordDigits &&
           own.compare(0, id.size(), id) == 0 && own.find_first_not_of('0', id.size()) == std::string::npos;
}

bool isSought(IFileFormatHelper& file, Link const& link) {
    Link own;
    bool const tellsOwn = readDebugSup(file, own) && own.isOfSupplement;
    return tellsOwn ? own.id == link.id : isIdOfNote(file, link.id);
}

std::string folderOf(std::string const& path) {
    std::string folder;
    directoryName(folder, path.c_str());
    return folder;
}

std::string withoutLinks(std::string const& path) {
    std::unique_ptr<char, decltype(&std::free)> const real(::realpath(path.c_str(), nullptr), &std::free);
    return real ? real.get() : path;
}

bool endsWith(std::string const& text, std::string const& end) {
    return text.size() >= end.size() && text.compare(text.size() - end.size(), end.size(), end) == 0;
}

bool beginsWith(std::string const& text, std::string const& begin) { return text.compare(0, begin.size(), begin) == 0; }

/// The folder that a companion lies under by its build id, or by the folder of its module. Empty if it is neither.
std::string rootOf(std::string const& debugFile, std::string const& moduleFile) {
    std::size_t const at = debugFile.rfind(k_buildIdFolder);
    if (at != std::string::npos) {
        return debugFile.substr(0, at);
    }
    std::string const folder = folderOf(debugFile);
    for (std::string const& path : {moduleFile, withoutLinks(moduleFile)}) {
        std::string const ofModule = folderOf(path);
        if (ofModule.size() > 1 && folder.size() > ofModule.size() && endsWith(folder, ofModule)) {
            return folder.substr(0, folder.size() - ofModule.size());
        }
    }
    return {};
}

/// Nothing else is opened: a file may name a pipe, which would have us wait.
bool isRegularFile(std::string const& path) {
    struct stat info {};
    return ::stat(path.c_str(), &info) == 0 && S_ISREG(info.st_mode);
}

/// All that the file may be called, in the order of preference.
std::vector<std::string> placesOf(Link const& link, std::string const& debugFile, std::string const& moduleFile) {
    std::vector<std::string> places;
    auto const add = [&](std::string const& place) {
        if (std::find(places.begin(), places.end(), place) == places.end()) {
            places.push_back(place);
        }
    };
    std::string const root = rootOf(debugFile, moduleFile);
    bool const isAbsolute = !link.name.empty() && link.name.front() == '/';
    if (isAbsolute) {
        add(link.name);
        std::string const below = std::string(k_distributionRoot) + '/';
        if (!root.empty() && beginsWith(link.name, below)) {
            add(root + link.name.substr(below.size() - 1)); // a copy of the distributions' root
        }
    } else if (!link.name.empty()) {
        add(folderOf(debugFile) + link.name);
        add(folderOf(withoutLinks(debugFile)) + link.name);
    }
    for (std::string const& place : {root, std::string(k_distributionRoot)}) {
        if (!place.empty()) {
            add(place + k_buildIdFolder + link.id.substr(0, 2) + '/' + link.id.substr(2) + k_companionEnd);
        }
    }
    return places;
}

} // namespace

SymMgrObjectPtr<IFileFormatHelper> openSupplementFile(IFileFormatHelper& debug, std::string const& debugFile,
                                                      std::string const& moduleFile) {
    Link link;
    bool const isNamed = readAltLink(debug, link) || (readDebugSup(debug, link = Link()) && !link.isOfSupplement);
    if (!isNamed) {
        return {};
    }
    std::string path;
    fullPath(path, debugFile.c_str(), false);
    std::string module;
    fullPath(module, moduleFile.c_str(), false);
    for (std::string const& place : placesOf(link, path, module)) {
        if (!isRegularFile(place)) {
            continue;
        }
        bool isElf = false;
        SymMgrObjectPtr<IFileFormatHelper> file = openFileFormatHelper(place.c_str(), reading_Modern, isElf);
        if (file && isSought(*file, link)) {
            ORV_INFO("supplementary file of " << debugFile << ": " << place);
            return file;
        }
        ORV_WARN("Supplementary file " << place << " is not the one of " << debugFile << ": its id is not " << link.id);
    }
    ORV_WARN("No supplementary file " << link.name << " with the id " << link.id << " for " << debugFile
                                      << ": what is only in there stays unknown");
    return {};
}

} // namespace ORV_3_30
