// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// Paths taken apart by rule. Debug information records the paths of the machine that built the
/// module, so the rules come in two syntaxes, whatever the host is.
///
///     Filename name("/usr/lib/../bin/ls", k_kindUnix, false);
///     std::string out;
///     name.normalized(out);          // "/usr/bin/ls"
///     name.name(out);                // "ls"
#pragma once

#include <string>

namespace ORV_3_30 {

constexpr int k_kindDefault = 0; ///< The host's syntax, which is Unix.
constexpr int k_kindUnix = 1;
constexpr int k_kindWindows = 2;
constexpr int k_kindNone = -1; ///< What a file name of an unknown kind answers.

/// The rules of one path syntax.
class IFilenameParser {
public:
    virtual int kind(char const* path) const = 0;
    virtual bool isAbsolute(std::string const& path) const = 0;
    virtual bool isUNC(std::string const& path) const = 0;
    /// An absolute path is normalised; an empty one gives the base.
    virtual void makeAbsolute(std::string& out, std::string const& path, std::string const& base) const = 0;
    /// Drops "." and ".." and empty components. A path that climbs above its root gives "".
    virtual void normalize(std::string& out, std::string const& path) const = 0;
    /// Makes a path that is not empty end in a separator.
    virtual void addSeparator(std::string& path) const = 0;
    /// Outs may be null. "." and ".." at the end belong to the directory.
    virtual void split(std::string const& path, std::string* root, std::string* directory, std::string* name) const = 0;
    virtual void compose(std::string& out, std::string const& root, std::string const& directory,
                         std::string const& name) const = 0;
    virtual bool isSeparator(char c) const = 0;
    virtual char const* separator() const = 0;
    /// The drive, or what a UNC path begins with; always empty on Unix.
    virtual void root(std::string& out, std::string const& path) const = 0;

protected:
    ~IFilenameParser() = default;
};

/// The parser of a kind; null for an unknown one.
IFilenameParser const* filenameParser(int kind);

/// A path that knows its syntax. Without a parser it is empty and its operations do nothing.
class Filename {
public:
    /// asDirectory: the path is to end in a separator.
    Filename(char const* path, int kind, bool asDirectory);

    int kind() const { return m_kind; }
    std::string const& path() const { return m_path; }
    bool isAbsolute() const { return m_parser != nullptr && m_parser->isAbsolute(m_path); }
    /// Against base, or with a null base against the current directory. A relative and empty path
    /// leaves out alone.
    void absolute(std::string& out, char const* base) const;
    void normalized(std::string& out) const;
    /// Root and directory; ends in a separator unless it is empty.
    void directory(std::string& out) const;
    void name(std::string& out) const;
    /// Replaces the name part.
    void append(char const* name);

    friend bool operator==(Filename const& a, Filename const& b) {
        return a.m_kind == b.m_kind && a.m_path == b.m_path;
    }
    friend bool operator!=(Filename const& a, Filename const& b) { return !(a == b); }

private:
    std::string m_path;
    IFilenameParser const* m_parser;
    int m_kind = k_kindNone;
};

} // namespace ORV_3_30
