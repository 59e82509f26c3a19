// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// Images of Linux kernels that have no usable ELF file: one that is not on the disk, one that is compressed.
#pragma once

#include "core/orv_byte_buffer.h"
#include "core/orv_shared_object.h"
#include "orv/orv_moduleimage.h"

#include <string>

namespace ORV_3_30 {

/// True for a path that may name a kernel: it holds "vmlinu" anywhere.
bool isKernelPath(char const* path);

/// Where the gzip stream in an ELF file begins, and the last loadable segment, both as positions in the file. All ones:
/// none.
struct CompressedKernel {
    unsigned long long gzipOffset = ~0ULL;
    unsigned long long segmentOffset = ~0ULL;
};
/// Nothing in a file that isn't ELF. Defined by the reader of ELF files, which stands above this folder.
CompressedKernel findCompressedKernel(SymMgrObjectPtr<IModuleImage> const& file);

/// The image of a kernel; null for one that is an ordinary file.
SymMgrObjectPtr<IModuleImage> kernelImage(char const* path, arch_t arch);

/// An ELF file with a kernel in gzip inside. It is read up to a limit, as it stands: nothing is decompressed. Keeps no
/// file open.
class CompressedImage final : public SharedObject<SymMgrObject<IModuleImage>> {
public:
    CompressedImage(char const* path, unsigned long long gzipOffset, unsigned long long limit)
        : m_path(path), m_gzipOffset(gzipOffset), m_limit(limit) {}

    /// 0 for what reaches behind the limit.
    unsigned long long read(unsigned long long offset, unsigned long long size, void* buffer) override;
    /// Of the whole file.
    unsigned long long size() override;
    char const* fileName() override { return m_path.c_str(); }
    unsigned long long imageOffset() override { return 0; }
    arch_t architecture() override { return arch_Unknown; }
    unsigned long long gzipOffset() const { return m_gzipOffset; }

private:
    std::string m_path;
    unsigned long long m_gzipOffset; ///< Kept for who will read the stream.
    unsigned long long m_limit;
};

/// The headers of an ELF file for a kernel without one: a loadable segment over the kernel's addresses, without bytes,
/// and no section.
class BogusELFImage final : public SharedObject<SymMgrObject<IModuleImage>> {
public:
    /// For arch_Unknown the path tells: 64 bits if it holds "x86_64", else 32.
    BogusELFImage(char const* path, arch_t arch);

    unsigned long long read(unsigned long long offset, unsigned long long size, void* buffer) override;
    unsigned long long size() override { return m_buffer->size(); }
    char const* fileName() override { return m_path.c_str(); }
    unsigned long long imageOffset() override { return 0; }
    arch_t architecture() override { return m_architecture; }

private:
    std::string m_path;
    arch_t m_architecture;
    SymMgrObjectPtr<ByteBuffer> m_buffer;
};

} // namespace ORV_3_30
