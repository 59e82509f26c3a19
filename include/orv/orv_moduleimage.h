// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// Where a module's bytes come from, its architecture and its format.
#pragma once

#include "orv/orv_object.h"

namespace ORV_3_30 {

/// Processor of a module. The comment gives e_machine of the ELF header (System V ABI, "ELF
/// Header").
enum arch_t : unsigned int {
    arch_Unknown = 0, ///< Taken from the file.
    arch_X86 = 1,     ///< 3
    arch_Em50 = 2,    ///< 50
    arch_X86_64 = 3,  ///< 62
    arch_Arm = 4,     ///< 40
    arch_Em180 = 6,   ///< 180
    arch_Em181 = 7,   ///< 181
    // Families of GPUs: a kernel's binary does not tell which, so that the client has to. The name is that of the
    // compiler, which tells how to read the program file beside the binary.
    arch_VexRln1 = 8,
    arch_VexRln2 = 9,
    arch_VexQdc1 = 10,
    arch_VexQdc2 = 11,
    // With the modern reading alone (orv_reading.h), and in files of 64 bits: the classic one refuses them.
    arch_Aarch64 = 12, ///< 183
    arch_Riscv64 = 13, ///< 243
    arch_Ppc64le = 14  ///< 21, little-endian
};

/// Format of a module file.
enum exec_format_t : unsigned int {
    exec_format_Foreign = 1, ///< A format without a loader.
    exec_format_Elf = 2,
    exec_format_Vex = 4 ///< GPU kernel binary.
};

/// The bytes of one module: a whole file or a slice of one. A client may make its own: fileName must then name a file
/// that is there, and is what the module's path, its companions and the sharing of loads go by, while all of the
/// module's headers, symbols and debug information come from read. No lock: an image belongs to one thread at a time.
class ORV_API IModuleImage : public ISymMgrObject {
public:
    /// Makes the image for a file name. A file that can't be opened still gives an image, which reads nothing. Null for
    /// a null name.
    ///
    /// A path that holds "vmlinu" is a kernel's. One that is not on the disk, or is compressed and no ELF file, gets
    /// the headers of an ELF file that has one segment over a kernel's addresses and no sections: of 64 bits for
    /// arch_X86_64, or if arch is not given and the path holds "x86_64", else of 32. A compressed one that is an ELF
    /// file is read up to its last segment, and has no architecture.
    ///
    /// With arch_Em180 or arch_Em181, or with forceOffload, the binary for an offload processor that a program carries
    /// in its section .rodata is the image: a slice of the program's file, with arch_Em181. The file itself where it
    /// carries none, or, without forceOffload, is such a binary itself; null if it is no module.
    ORV_API static SymMgrObjectPtr<IModuleImage> create(char const* binFileName, arch_t arch, bool forceOffload);

    /// Reads size bytes at offset, both in bytes, relative to the image's start. Returns the bytes
    /// read, which at the file's end are fewer, or all ones if the file can't be read.
    virtual unsigned long long read(unsigned long long offset, unsigned long long size, void* buffer) = 0;
    /// Bytes from the image's start to the end of the file.
    virtual unsigned long long size() = 0;
    /// The name as given. Lives as long as the image.
    virtual char const* fileName() = 0;
    /// Where the image starts in the file, in bytes.
    virtual unsigned long long imageOffset() = 0;
    /// As given to create.
    virtual arch_t architecture() = 0;

protected:
    ~IModuleImage() = default;
};

} // namespace ORV_3_30
