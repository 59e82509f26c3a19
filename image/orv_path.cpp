// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
// Paths made absolute and brought to one spelling, component by component, without a look at links.
#include "image/orv_path.h"

#include "image/orv_filename.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

namespace ORV_3_30 {
namespace {

/// A file descriptor that closes itself.
class Descriptor {
public:
    explicit Descriptor(int value) : m_value(value) {}
    ~Descriptor() {
        if (m_value >= 0) {
            ::close(m_value);
        }
    }
    Descriptor(Descriptor const&) = delete;
    Descriptor& operator=(Descriptor const&) = delete;
    int get() const { return m_value; }

private:
    int m_value;
};

/// A shared mapping of a file's first bytes.
class Mapping {
public:
    Mapping(Descriptor const& file, std::size_t size, int protection)
        : m_size(size), m_address(::mmap64(nullptr, size, protection, MAP_SHARED, file.get(), 0)) {}
    ~Mapping() {
        if (isValid()) {
            ::munmap(m_address, m_size);
        }
    }
    Mapping(Mapping const&) = delete;
    Mapping& operator=(Mapping const&) = delete;
    bool isValid() const { return m_address != MAP_FAILED; }
    void* get() const { return m_address; }

private:
    std::size_t m_size;
    void* m_address;
};

} // namespace

bool fileExists(char const* path) { return File(path).status() == fosOK && !isDirectory(path); }

bool isDirectory(char const* path) {
    struct stat info {};
    return path != nullptr && *path != '\0' && ::stat(path, &info) == 0 && S_ISDIR(info.st_mode);
}

void fullPath(std::string& out, char const* path, bool asDirectory) {
    out.clear();
    Filename(path, k_kindDefault, asDirectory).absolute(out, nullptr);
}

void directoryName(std::string& out, char const* path) { Filename(path, k_kindDefault, false).directory(out); }

void baseName(std::string& out, char const* path) { Filename(path, k_kindDefault, false).name(out); }

void joinPath(std::string& out, char const* name, char const* directory) {
    Filename joined(directory, k_kindDefault, true);
    joined.append(name);
    out = joined.path();
}

bool isAbsolutePath(char const* path) { return Filename(path, k_kindDefault, false).isAbsolute(); }

bool samePath(char const* a, char const* b) {
    if (a == nullptr || b == nullptr) {
        return false;
    }
    std::string first;
    std::string second;
    fullPath(first, a, false);
    fullPath(second, b, false);
    return first == second;
}

std::uint64_t pathFileSize(char const* path) {
    struct stat64 info {};
    return path != nullptr && ::stat64(path, &info) == 0 ? static_cast<std::uint64_t>(info.st_size) : 0;
}

void currentDirectory(std::string& out) {
    std::error_code ignored;
    out = std::filesystem::current_path(ignored).string();
    if (!out.empty() && out.back() != '/') {
        out += '/';
    }
}

void temporaryDirectory(std::string& out) { out = "/tmp/"; }

bool copyFile(char const* to, char const* from) {
    Descriptor const source(from != nullptr ? ::open64(from, O_RDONLY | O_CLOEXEC) : -1);
    if (source.get() < 0 || to == nullptr) {
        return false;
    }
    Descriptor const target(::open64(to, O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0666));
    if (target.get() < 0) {
        return false;
    }
    std::int64_t const length = ::lseek64(source.get(), 0, SEEK_END);
    if (length < 0) {
        return false;
    }
    auto const size = static_cast<std::size_t>(length);
    Mapping const in(source, size, PROT_READ);
    Mapping const out(target, size, PROT_READ | PROT_WRITE);
    // Bytes beyond the end of the target's mapping can't be touched, and the target is empty.
    if (!in.isValid() || !out.isValid() || pathFileSize(to) < size) {
        return false;
    }
    std::memcpy(out.get(), in.get(), size);
    return true;
}

bool removeFile(char const* path) { return path != nullptr && ::unlink(path) == 0; }

bool removeDirectory(char const* path, bool recursive) {
    if (path == nullptr) {
        return false;
    }
    std::error_code ignored;
    bool isComplete = true;
    auto entry = recursive ? std::filesystem::directory_iterator(path, ignored) : std::filesystem::directory_iterator();
    for (; entry != std::filesystem::directory_iterator(); entry.increment(ignored)) {
        // A link to a directory is removed as a link.
        bool const isRealDirectory = std::filesystem::is_directory(entry->symlink_status(ignored));
        char const* const child = entry->path().c_str();
        isComplete &= isRealDirectory ? removeDirectory(child, true) : removeFile(child);
    }
    return ::rmdir(path) == 0 && isComplete;
}

file_op_status_t makeDirectory(char const* path) {
    if (path != nullptr && ::mkdir(path, 0777) == 0) {
        return fosOK;
    }
    switch (path != nullptr ? errno : 0) {
    case EEXIST: return fosAlreadyExists;
    case ENOENT: return fosNotFound;
    default: return fosFail;
    }
}

bool createEmptyFile(char const* path) {
    FileModifiable const file(path, true);
    return true;
}

} // namespace ORV_3_30
