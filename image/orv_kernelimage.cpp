// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
// Kernels without a usable ELF file: headers made up for them (System V ABI, "ELF Header", "Program Header"), and the
// front of a compressed one.
#include "image/orv_kernelimage.h"

#include "core/orv_cursor.h"
#include "image/orv_fileimage.h"
#include "image/orv_path.h"

#include <cstring>
#include <elf.h>

namespace ORV_3_30 {
namespace {

constexpr unsigned long long k_kernelSize = 0x7FFFFFFF;

/// A header and one segment of code that the file has no bytes of.
template <typename Ehdr, typename Phdr>
SymMgrObjectPtr<ByteBuffer> bogusHeaders(unsigned char fileClass, unsigned int machine, unsigned long long base) {
    Ehdr header{};
    std::memcpy(header.e_ident, ELFMAG, SELFMAG);
    header.e_ident[EI_CLASS] = fileClass;
    header.e_ident[EI_DATA] = ELFDATA2LSB;
    header.e_machine = static_cast<decltype(header.e_machine)>(machine);
    header.e_phoff = sizeof(Ehdr);
    header.e_phentsize = sizeof(Phdr);
    header.e_phnum = 1;
    Phdr segment{};
    segment.p_type = PT_LOAD;
    segment.p_flags = PF_X;
    segment.p_offset = static_cast<decltype(segment.p_offset)>(~0ULL);
    segment.p_vaddr = static_cast<decltype(segment.p_vaddr)>(base);
    segment.p_memsz = k_kernelSize;
    SymMgrObjectPtr<ByteBuffer> buffer(new ByteBuffer(sizeof(header) + sizeof(segment)));
    if (buffer->size() != 0) {
        std::memcpy(buffer->data(), &header, sizeof(header));
        std::memcpy(buffer->data() + sizeof(header), &segment, sizeof(segment));
    }
    return buffer;
}

arch_t archOfPath(std::string const& path) { return path.find("x86_64") != std::string::npos ? arch_X86_64 : arch_X86; }

} // namespace

bool isKernelPath(char const* path) { return std::strstr(path, "vmlinu") != nullptr; }

SymMgrObjectPtr<IModuleImage> kernelImage(char const* path, arch_t arch) {
    if (fileExists(path)) {
        if (std::strstr(path, "vmlinuz") == nullptr) {
            return {};
        }
        CompressedKernel const found =
            findCompressedKernel(SymMgrObjectPtr<IModuleImage>(new FileImage(path, 0, arch_Unknown)));
        if (found.gzipOffset != ~0ULL) {
            return SymMgrObjectPtr<IModuleImage>(new CompressedImage(path, found.gzipOffset, found.segmentOffset));
        }
    }
    return SymMgrObjectPtr<IModuleImage>(new BogusELFImage(path, arch));
}

unsigned long long CompressedImage::read(unsigned long long offset, unsigned long long size, void* buffer) {
    return contains(m_limit, offset, size) ? FileImage(m_path.c_str(), 0, arch_Unknown).read(offset, size, buffer) : 0;
}

unsigned long long CompressedImage::size() { return FileImage(m_path.c_str(), 0, arch_Unknown).size(); }

BogusELFImage::BogusELFImage(char const* path, arch_t arch)
    : m_path(path), m_architecture(arch != arch_Unknown ? arch : archOfPath(m_path)),
      m_buffer(m_architecture == arch_X86_64
                   ? bogusHeaders<Elf64_Ehdr, Elf64_Phdr>(ELFCLASS64, EM_X86_64, 0xFFFFFFFF80000000)
                   : bogusHeaders<Elf32_Ehdr, Elf32_Phdr>(ELFCLASS32, EM_386, 0x80000000)) {}

unsigned long long BogusELFImage::read(unsigned long long offset, unsigned long long size, void* buffer) {
    if (!contains(m_buffer->size(), offset, size)) {
        return 0;
    }
    if (size != 0) {
        std::memcpy(buffer, m_buffer->data() + offset, size);
    }
    return size;
}

} // namespace ORV_3_30
