// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
// The sections that tell where frames are: of the symbol file, and of the module where only that one has their bytes.
#include "dwarf/orv_dwarf_reader.h"
#include "format/orv_elf_relocations.h"

namespace ORV_3_30 {
namespace {

/// What pointers relative to data count from; 0 where nobody knows.
std::uint64_t dataBaseOf(IFileFormatLoader* module) {
    for (char const* const name : {".got.plt", ".got"}) {
        SymMgrObjectPtr<ISection> section;
        if (module != nullptr) {
            module->sectionByName(section, name);
        }
        if (section) {
            return section->address();
        }
    }
    return 0;
}

/// The bytes of a section of the module, read anew; false where it has none.
bool readSection(IFileFormatLoader* module, char const* name, SymMgrObjectPtr<IBuffer>& out, std::uint64_t& address) {
    SymMgrObjectPtr<ISection> section;
    if (module != nullptr) {
        module->sectionByName(section, name);
    }
    if (!section || section->isEmptyInFile() != 0 || section->read(out) != status_Ok || !out) {
        return false;
    }
    address = section->address();
    return true;
}

} // namespace

std::unique_ptr<CallFrames> DwarfReader::makeCallFrames() {
    auto frames = std::make_unique<CallFrames>();
    FrameSection section;
    section.addrSize = m_units.empty() ? 0 : m_units.front()->forms().addrSize;
    section.isForExceptions = true;
    section.dataBase = dataBaseOf(m_module);
    SymMgrObjectPtr<IBuffer> buffer;
    SymMgrObjectPtr<ISectionData> own;
    m_helper.sectionData(own, section_role_EhFrame);
    if (own) {
        addHeldFrames(*frames, section_role_EhFrame, section);
    } else if (readSection(m_module, ".eh_frame", buffer, section.address)) {
        section.bytes = {buffer->data(), buffer->size()};
        frames->add(section, std::make_shared<SymMgrObjectPtr<IBuffer>>(buffer));
    }
    section.isForExceptions = false;
    addHeldFrames(*frames, section_role_DebugFrame, section);
    return frames;
}

/// Adds a section of the symbol file.
void DwarfReader::addHeldFrames(CallFrames& frames, unsigned int role, FrameSection section) {
    SymMgrObjectPtr<RelocationAddends> addends;
    SymMgrObjectPtr<ISection> header;
    HeldSection const held = holdSection(role, !section.isForExceptions);
    if (held.size == 0) {
        return;
    }
    m_helper.relocations(addends, held.data->sectionIndex());
    if (addends && section.isForExceptions) {
        return; // of a relocatable file: no linker has filled in the distances that stand there
    }
    m_helper.sectionByIndex(header, held.data->sectionIndex());
    section.bytes = {held.bytes, held.size};
    section.loadBias = m_loadBias;
    section.address = (header ? header->address() : 0) + m_loadBias;
    frames.add(section, std::make_shared<SymMgrObjectPtr<ISectionData>>(held.data));
}

} // namespace ORV_3_30
