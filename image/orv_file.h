// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// Files and directories of the operating system.
///
///     File file("/bin/ls");
///     if (file.status() != fosOK) return;
///     file.seek(16);
///     file.read(sizeof(buffer), buffer);
///
/// Nothing here logs, and nothing but want of memory throws: a failure stays in the file's status. No locks: a file
/// belongs to one thread at a time, but for readAt and size. Offsets and lengths are bytes.
#pragma once

#include <cstdint>
#include <string>

namespace ORV_3_30 {

enum file_op_status_t : unsigned int {
    fosOK = 0,
    fosFail = 1,
    fosAccessDenied = 2,
    fosAlreadyExists = 4,
    fosNotFound = 7,
    fosOutOfMemory = 8,
    fosNoSpace = 9,
    fosBadHandle = 11,
    fosShortRead = 14,
    fosInvalidArg = 16
};

/// What reading operations give on error.
constexpr std::uint64_t k_fileError = ~std::uint64_t{0};

/// An open file.
class IFile {
public:
    /// Current position. Clears the status first.
    virtual std::int64_t tell() = 0;
    /// Moves to an absolute position; returns the one before the move. An error only sets the status.
    virtual std::int64_t seek(std::int64_t offset) = 0;
    /// Returns the bytes read, all ones on error. Fewer than asked set fosShortRead.
    virtual std::uint64_t read(std::uint64_t length, void* buffer) = 0;
    /// Result of the last operation.
    virtual file_op_status_t status() = 0;
    /// 0 on error.
    virtual std::uint64_t size() = 0;
    /// Closes and deletes the object. True if closing failed.
    virtual bool close() = 0;

protected:
    ~IFile() = default;
};

/// An open file that can be written. Each write is flushed to the disk.
class IFileModifiable : public IFile {
public:
    virtual bool append(std::uint64_t length, void const* buffer) = 0;
    virtual bool writeAt(std::int64_t offset, std::uint64_t length, void const* buffer) = 0;

protected:
    ~IFileModifiable() = default;
};

/// Null on failure, with the reason in status. A null or empty path is fosInvalidArg.
IFile* openFile(char const* path, file_op_status_t& status);
IFileModifiable* openFileModifiable(char const* path, bool create, file_op_status_t& status);

/// Owns an open file, or the reason why it is not.
template <typename Handle> class FileHolder {
public:
    virtual ~FileHolder() {
        if (m_file != nullptr) {
            m_file->close();
        }
    }
    FileHolder(FileHolder const&) = delete;
    FileHolder& operator=(FileHolder const&) = delete;

    std::uint64_t size() const { return m_file != nullptr ? m_file->size() : 0; }
    file_op_status_t status() const { return m_file != nullptr ? m_file->status() : m_openStatus; }
    char const* path() const { return m_path.c_str(); }

protected:
    explicit FileHolder(char const* path) : m_path(path != nullptr ? path : "") {}

    std::string m_path;
    file_op_status_t m_openStatus = fosFail;
    Handle* m_file = nullptr;
};

/// One that is open for reading.
class File : public FileHolder<IFile> {
public:
    explicit File(char const* path) : FileHolder(path) { m_file = openFile(path, m_openStatus); }

    std::int64_t tell() { return m_file != nullptr ? m_file->tell() : -1; }
    std::int64_t seek(std::int64_t offset) { return m_file != nullptr ? m_file->seek(offset) : -1; }
    std::uint64_t read(std::uint64_t length, void* buffer) {
        return m_file != nullptr ? m_file->read(length, buffer) : k_fileError;
    }
    /// The same from an offset, wherever the file's position is, and without a status. Any thread may read.
    std::uint64_t readAt(std::int64_t offset, std::uint64_t length, void* buffer) const;
};

/// The same for a file that can be written.
class FileModifiable : public FileHolder<IFileModifiable> {
public:
    FileModifiable(char const* path, bool create) : FileHolder(path) {
        m_file = openFileModifiable(path, create, m_openStatus);
    }

    static FileModifiable* create(char const* path, bool create) { return new FileModifiable(path, create); }

    bool append(std::uint64_t length, void const* buffer) {
        return m_file != nullptr && m_file->append(length, buffer);
    }
    bool writeAt(std::int64_t offset, std::uint64_t length, void const* buffer) {
        return m_file != nullptr && m_file->writeAt(offset, length, buffer);
    }
};

} // namespace ORV_3_30
