// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
// Finds an embedded ELF file by how its identification begins (System V ABI, "ELF Identification").
#include "image/orv_offloadimage.h"

#include "core/orv_trace.h"
#include "image/orv_fileimage.h"
#include "orv/orv_fileformatloader.h"

#include <algorithm>
#include <elf.h>

namespace ORV_3_30 {
namespace {

constexpr unsigned char k_identification[] = {ELFMAG0, ELFMAG1, ELFMAG2, ELFMAG3, ELFCLASS64, ELFDATA2LSB, EV_CURRENT};

} // namespace

SymMgrObjectPtr<IModuleImage> createOffloadImage(SymMgrObjectPtr<IFileFormatLoader> loader) {
    if (!loader) {
        ORV_WARN("NULL pointer: ffl");
        return {};
    }
    char const* const name = loader->fileFormat() == exec_format_Foreign ? ".qvx bsd" : ".rodata";
    SymMgrObjectPtr<ISection> section;
    loader->sectionByName(section, name);
    if (!section) {
        ORV_WARN(loader->fileName() << "createOffloadImage: cannot get section  " << name);
        return {};
    }
    SymMgrObjectPtr<IBuffer> buffer;
    if (section->read(buffer) != status_Ok) {
        return {};
    }
    if (buffer->size() <= sizeof(k_identification)) {
        ORV_WARN(loader->fileName() << "createOffloadImage: the section is too small for offload image, section name:"
                                    << name);
        return {};
    }
    // One that would end with the section is not looked at.
    unsigned char const* const begin = buffer->data();
    unsigned char const* const end = begin + buffer->size() - 1;
    unsigned char const* const found =
        std::search(begin, end, std::begin(k_identification), std::end(k_identification));
    if (found == end) {
        return {};
    }
    unsigned long long const offset = section->fileOffset() + static_cast<unsigned long long>(found - begin);
    return SymMgrObjectPtr<IModuleImage>(new FileImage(loader->fileName(), offset, arch_Em181));
}

} // namespace ORV_3_30
