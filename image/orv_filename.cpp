// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
// Paths taken apart and put together, part by part.
#include "image/orv_filename.h"

#include "image/orv_path.h"

#include <algorithm>
#include <vector>

namespace ORV_3_30 {
namespace {

using Components = std::vector<std::string>;

/// What both syntaxes have in common.
class FilenameParser : public IFilenameParser {
public:
    void makeAbsolute(std::string& out, std::string const& path, std::string const& base) const override {
        if (path.empty()) {
            out = base;
        } else if (isAbsolute(path)) {
            normalize(out, path);
        } else {
            std::string joined = base;
            addSeparator(joined);
            normalize(out, joined + path);
        }
    }

    void addSeparator(std::string& path) const override {
        if (!path.empty() && !isSeparator(path.back())) {
            path += separator();
        }
    }

    void split(std::string const& path, std::string* root, std::string* directory, std::string* name) const override {
        std::string prefix;
        this->root(prefix, path);
        std::string const rest = path.substr(prefix.size());
        if (root != nullptr) {
            *root = prefix;
        }
        std::size_t cut = rest.size();
        while (cut > 0 && !isSeparator(rest[cut - 1])) {
            --cut;
        }
        std::string const last = rest.substr(cut);
        if (last == "." || last == "..") {
            cut = rest.size();
        }
        if (directory != nullptr) {
            *directory = rest.substr(0, cut);
        }
        if (name != nullptr) {
            *name = rest.substr(cut);
        }
    }

    void compose(std::string& out, std::string const& root, std::string const& directory,
                 std::string const& name) const override {
        // The root is a prefix, not a component: "C:" takes no separator of its own.
        std::string joined;
        joinTo(joined, directory);
        joinTo(joined, name);
        out = root + joined;
    }

protected:
    ~FilenameParser() = default;

    /// The components of a directory in path order, each with its trailing separator; "." and ".."
    /// resolved as far as they can be.
    Components components(std::string directory) const {
        Components reversed;
        if (directory.empty()) {
            return reversed;
        }
        addSeparator(directory);
        std::size_t const lastPosition = directory.size() - 1;
        std::size_t pending = 0;
        // end is the component's trailing separator
        for (std::size_t end = lastPosition;;) {
            directory[end] = separator()[0];
            std::size_t start = end;
            while (start > 0 && !isSeparator(directory[start - 1])) {
                --start;
            }
            // Whatever begins with two dots counts as "..", by design: "..x" too.
            if (start < lastPosition && directory[start] == '.' && directory[start + 1] == '.') {
                ++pending;
            } else if (start < lastPosition && directory[start] == '.' && isSeparator(directory[start + 1])) {
                // "." goes
            } else if (pending > 0) {
                --pending;
            } else {
                reversed.push_back(directory.substr(start, end - start + 1));
            }
            if (start == 0) {
                break;
            }
            // A run of separators counts as one; at the very front it is a component of its own.
            end = start - 1;
            while (end > 0 && isSeparator(directory[end - 1])) {
                --end;
            }
        }
        reversed.insert(reversed.end(), pending, std::string("..") + separator());
        if (reversed.empty()) {
            reversed.push_back(std::string(".") + separator());
        }
        std::reverse(reversed.begin(), reversed.end());
        return reversed;
    }

    std::string join(Components const& list) const {
        std::string joined;
        for (std::string const& element : list) {
            joinTo(joined, element);
        }
        return joined;
    }

    /// Puts exactly one separator between what is there and the element.
    void joinTo(std::string& joined, std::string const& element) const {
        if (element.empty()) {
            return;
        }
        if (joined.empty()) {
            joined = element;
            return;
        }
        bool const endsIn = isSeparator(joined.back());
        bool const beginsWith = isSeparator(element.front());
        if (!endsIn && !beginsWith) {
            joined += separator();
        }
        joined.append(element, endsIn && beginsWith ? 1 : 0, std::string::npos);
    }
};

class UnixFilenameParser final : public FilenameParser {
public:
    int kind(char const* /*path*/) const override { return k_kindUnix; }
    bool isAbsolute(std::string const& path) const override { return !path.empty() && path.front() == '/'; }
    bool isUNC(std::string const& /*path*/) const override { return false; }
    bool isSeparator(char c) const override { return c == '/'; }
    char const* separator() const override { return "/"; }
    void root(std::string& out, std::string const& /*path*/) const override { out.clear(); }

    void normalize(std::string& out, std::string const& path) const override {
        std::string directory;
        std::string name;
        split(path, nullptr, &directory, &name);
        bool const isRooted = !directory.empty() && isSeparator(directory.front());
        Components list = components(directory.substr(isRooted ? 1 : 0));
        if (isRooted) {
            if (!list.empty() && list.front().compare(0, 2, "..") == 0) {
                out.clear(); // climbs above the root
                return;
            }
            if (list.size() == 1 && list.front() == "./") {
                list.clear();
            }
            list.insert(list.begin(), separator());
        }
        compose(out, std::string(), join(list), name);
    }
};

class WinFilenameParser final : public FilenameParser {
public:
    int kind(char const* /*path*/) const override { return k_kindWindows; }
    bool isAbsolute(std::string const& path) const override {
        std::string prefix;
        root(prefix, path);
        return isUNC(path) || !prefix.empty();
    }
    bool isUNC(std::string const& path) const override {
        return path.size() >= 3 && isSeparator(path[0]) && isSeparator(path[1]);
    }
    bool isSeparator(char c) const override { return c == '/' || c == '\\'; }
    char const* separator() const override { return "\\"; }
    void root(std::string& out, std::string const& path) const override {
        out.clear();
        if (isUNC(path)) {
            out = "\\\\";
        } else if (path.size() >= 2 && path[1] == ':') {
            char const letter = static_cast<char>(path[0] | 0x20);
            if (letter >= 'a' && letter <= 'z') {
                out = path.substr(0, 2);
            }
        }
    }

    void normalize(std::string& out, std::string const& path) const override {
        std::string prefix;
        std::string directory;
        std::string name;
        split(path, &prefix, &directory, &name);
        Components const list = components(directory);
        if (isAbsolute(path) && !isUNC(path) && !list.empty() && list.front() != "\\") {
            out.clear(); // climbs above the root
            return;
        }
        compose(out, prefix, join(list), name);
    }
};

} // namespace

IFilenameParser const* filenameParser(int kind) {
    static UnixFilenameParser const unixParser;
    static WinFilenameParser const windowsParser;
    switch (kind) {
    case k_kindUnix: return &unixParser;
    case k_kindWindows: return &windowsParser;
    default: return nullptr;
    }
}

Filename::Filename(char const* path, int kind, bool asDirectory)
    : m_parser(filenameParser(kind == k_kindDefault ? k_kindUnix : kind)) {
    if (m_parser == nullptr) {
        return;
    }
    m_path = path != nullptr ? path : "";
    if (asDirectory) {
        m_parser->addSeparator(m_path);
    }
    m_kind = m_parser->kind(m_path.c_str());
}

void Filename::absolute(std::string& out, char const* base) const {
    if (m_parser == nullptr) {
        out = m_path;
        return;
    }
    if (m_path.empty()) {
        return;
    }
    std::string directory = base != nullptr ? base : "";
    if (base == nullptr && !isAbsolute()) {
        currentDirectory(directory);
    }
    m_parser->makeAbsolute(out, m_path, directory);
}

void Filename::normalized(std::string& out) const {
    if (m_path.empty() || m_parser == nullptr) {
        out = m_path;
        return;
    }
    m_parser->normalize(out, m_path);
}

void Filename::directory(std::string& out) const {
    if (m_parser == nullptr) {
        out = m_path;
        return;
    }
    std::string root;
    std::string directory;
    m_parser->split(m_path, &root, &directory, nullptr);
    m_parser->compose(out, root, directory, std::string());
    // ".." at the end belongs to the directory and brings no separator along.
    m_parser->addSeparator(out);
}

void Filename::name(std::string& out) const {
    if (m_parser == nullptr) {
        out = m_path;
        return;
    }
    m_parser->split(m_path, nullptr, nullptr, &out);
}

void Filename::append(char const* name) {
    if (m_parser == nullptr) {
        return;
    }
    std::string root;
    std::string directory;
    m_parser->split(m_path, &root, &directory, nullptr);
    m_parser->compose(m_path, root, directory, name != nullptr ? name : "");
}

} // namespace ORV_3_30
