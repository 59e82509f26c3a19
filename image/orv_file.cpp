// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
// A file over its descriptor, read at offsets.
#include "image/orv_file.h"

#include <atomic>
#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace ORV_3_30 {
namespace {

file_op_status_t statusOfErrno() {
    switch (errno) {
    case EACCES: return fosAccessDenied;
    case ENOENT: return fosNotFound;
    case ENOMEM: return fosOutOfMemory;
    case ENOSPC: return fosNoSpace;
    case EBADF: return fosBadHandle;
    case EINVAL: return fosInvalidArg;
    default: return fosFail;
    }
}

/// Serves files open for reading only and for writing alike.
class LinuxFile final : public IFileModifiable {
public:
    explicit LinuxFile(int descriptor) : m_descriptor(descriptor) {}

    std::int64_t tell() override {
        m_status = fosOK;
        return checked(::lseek64(m_descriptor, 0, SEEK_CUR));
    }

    std::int64_t seek(std::int64_t offset) override {
        std::int64_t const before = tell();
        checked(::lseek64(m_descriptor, offset, SEEK_SET));
        return before;
    }

    std::uint64_t read(std::uint64_t length, void* buffer) override {
        std::uint64_t const total = transfer(length, buffer, [this](void* to, std::uint64_t size, std::uint64_t) {
            return ::read(m_descriptor, to, size);
        });
        m_status = total == k_fileError ? statusOfErrno() : total == length ? fosOK : fosShortRead;
        return total;
    }

    std::uint64_t readAt(std::int64_t offset, std::uint64_t length, void* buffer) const {
        return transfer(length, buffer, [&](void* to, std::uint64_t size, std::uint64_t done) {
            return ::pread64(m_descriptor, to, size, static_cast<std::int64_t>(offset + done));
        });
    }

    file_op_status_t status() override { return m_status; }

    std::uint64_t size() override {
        struct stat64 info {};
        if (::fstat64(m_descriptor, &info) != 0) {
            m_status = statusOfErrno();
            return 0;
        }
        m_status = fosOK;
        return static_cast<std::uint64_t>(info.st_size);
    }

    bool close() override {
        bool const isFailure = ::close(m_descriptor) != 0;
        delete this;
        return isFailure;
    }

    bool append(std::uint64_t length, void const* buffer) override {
        m_status = fosOK;
        checked(::lseek64(m_descriptor, 0, SEEK_END));
        return m_status == fosOK && write(length, buffer);
    }

    bool writeAt(std::int64_t offset, std::uint64_t length, void const* buffer) override {
        seek(offset);
        return m_status == fosOK && write(length, buffer);
    }

private:
    ~LinuxFile() = default;
    static constexpr ssize_t k_largestTransfer = 0x7F000000;

    /// read(to, size, bytes read before): as the system's.
    template <typename Read> static std::uint64_t transfer(std::uint64_t length, void* buffer, Read const& read) {
        std::uint64_t total = 0;
        for (;;) {
            ssize_t const chunk = read(static_cast<char*>(buffer) + total, length - total, total);
            if (chunk < 0) {
                return k_fileError;
            }
            total += static_cast<std::uint64_t>(chunk);
            // Only a read that the kernel's limit for one transfer has cut is worth another try.
            if (total >= length || chunk <= k_largestTransfer) {
                return total;
            }
        }
    }

    std::int64_t checked(std::int64_t result) {
        if (result < 0) {
            m_status = statusOfErrno();
        }
        return result;
    }

    bool write(std::uint64_t length, void const* buffer) {
        ssize_t const written = ::write(m_descriptor, buffer, length);
        if (written < 0 || ::fdatasync(m_descriptor) != 0) {
            m_status = statusOfErrno();
            return false;
        }
        m_status = static_cast<std::uint64_t>(written) == length ? fosOK : fosFail;
        return m_status == fosOK;
    }

    int m_descriptor;
    std::atomic<file_op_status_t> m_status{fosOK}; ///< Any thread may ask for the size.
};

LinuxFile* openLinuxFile(char const* path, int flags, file_op_status_t& status) {
    if (path == nullptr || *path == '\0') {
        status = fosInvalidArg;
        return nullptr;
    }
    int const descriptor = ::open64(path, flags | O_CLOEXEC, 0666);
    if (descriptor < 0) {
        status = statusOfErrno();
        return nullptr;
    }
    status = fosOK;
    try {
        return new LinuxFile(descriptor);
    } catch (...) {
        ::close(descriptor);
        throw;
    }
}

} // namespace

IFile* openFile(char const* path, file_op_status_t& status) {
    // A pipe without a writer must not hold the caller up. Others are read as they are.
    struct stat info {};
    bool const isPipe = path != nullptr && ::stat(path, &info) == 0 && S_ISFIFO(info.st_mode);
    return openLinuxFile(path, O_RDONLY | (isPipe ? O_NONBLOCK : 0), status);
}

IFileModifiable* openFileModifiable(char const* path, bool create, file_op_status_t& status) {
    return openLinuxFile(path, O_RDWR | (create ? O_CREAT : 0), status);
}

std::uint64_t File::readAt(std::int64_t offset, std::uint64_t length, void* buffer) const {
    return m_file != nullptr ? static_cast<LinuxFile*>(m_file)->readAt(offset, length, buffer) : k_fileError;
}

} // namespace ORV_3_30
