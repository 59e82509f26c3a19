// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
// ffl: file format loader. The one of ELF (System V ABI, chapters 4 and 5).
#include "format/orv_fflelf.h"

#include "core/orv_trace.h"
#include "format/orv_elf_machines.h"
#include "format/orv_elf_relocations.h"
#include "format/orv_elf_segments.h"
#include "format/orv_elf_symbols.h"
#include "format/orv_root.h"
#include "image/orv_fileimage.h"
#include "image/orv_kernelimage.h"
#include "image/orv_memoryimage.h"
#include "image/orv_path.h"

#include <string_view>

namespace ORV_3_30 {

void ElfFileLoader::open(SymMgrObjectPtr<IModuleImage> image) {
    m_elfHelper = new ElfHelper(std::move(image), reading());
    readFileInfo();
    if (!m_elfHelper->valid()) {
        setStatus(status_BadFileFormat);
    }
    if (readsOatFiles()) {
        m_oat = findOatPlace(*m_elfHelper, this);
    }
}

void ElfFileLoader::readFileInfo() {
    ORV_TRACE("readFileInfo");
    if (m_fileInfoRead || !m_elfHelper->valid()) {
        return;
    }
    if (!hasSegments()) {
        LoadableProgramHeadersWalker walker(*this);
        m_elfHelper->walkProgramHeaders(walker);
    }
    if (m_elfHelper->isLaidOut()) {
        LaidOutSegmentsWalker walker(*this);
        m_elfHelper->walkSectionHeaders(walker);
    } else if (!hasSegments()) {
        // A relocatable file, such as a kernel module, gets its base and its classes of addresses
        // from its sections.
        DriverSegmentsWalker walker(*this);
        m_elfHelper->walkSectionHeaders(walker);
        m_elfHelper->resetLayout(walker.text(), walker.data());
    }
    SectionHeaderWalker walker(*this);
    m_elfHelper->walkSectionHeaders(walker);
    m_fileInfoRead = true;
}

char const* ElfFileLoader::fileName() {
    IModuleImage* const image = m_elfHelper->image();
    return image != nullptr ? image->fileName() : "";
}

status_t ElfFileLoader::readBytes(unsigned long long offset, unsigned long long size, SymMgrObjectPtr<IBuffer>& out) {
    auto* const memory = dynamic_cast<MemoryImage*>(m_elfHelper->image());
    if (memory == nullptr) {
        return FileFormatLoader::readBytes(offset, size, out);
    }
    return readBytesBy(memory->size(), offset, size, out,
                       [&](unsigned char* block) { return memory->read(offset, size, block) == size; });
}

void ElfFileLoader::sectionByName(SymMgrObjectPtr<ISection>& out, char const* name) {
    Elf64_Shdr const* const header = name != nullptr ? m_elfHelper->sectionHeaderByName(name) : nullptr;
    if (header == nullptr) {
        out = nullptr;
        return;
    }
    out = new Section(m_elfHelper->heldName(*header), this, header->sh_addr, header->sh_offset, header->sh_size,
                      header->sh_type == SHT_NOBITS ? 1 : 0);
}

void ElfFileLoader::sectionByIndex(SymMgrObjectPtr<ISection>& out, unsigned int index) {
    Elf64_Shdr const* const header = m_elfHelper->sectionHeader(index);
    if (header == nullptr) {
        out = nullptr;
        return;
    }
    out = new Section(m_elfHelper->heldName(*header), this, header->sh_addr, header->sh_offset, header->sh_size,
                      emptyInFileByFlag(*header));
}

status_t ElfFileLoader::collectSymbolFiles(SymbolFiles& candidates) {
    if (*fileName() == '\0') {
        return status_Ok;
    }
    readFileInfo();
    if (m_oat.isThere()) {
        root().collectOatFile(candidates, fileName());
    } else {
        SymMgrObjectPtr<IFileFormatHelper> const helper(new ElfFileFormatHelper(m_elfHelper.get()));
        root().collectDwarfFiles(candidates, fileName(), helper.get(), symbolFileLock());
    }
    if (isKernelPath(fileName())) {
        root().collectKernelLists(candidates, fileName(), symbolFileLock());
    }
    return status_Ok;
}

IDebugInfoLoader* ElfFileLoader::createDebugInfoLoader(char const* name, symbol_file_format_t format,
                                                       unsigned int /*flags*/) {
    switch (format) {
    case symbolFormatDwarf: return createDwarfLoader(name);
    case symbolFormatSystemMap: return root().kernelListLoader(this, name);
    case symbolFormatOat: return createOatLoader(name);
    default: return nullptr;
    }
}

/// Its data are read in one piece; the code is a part of them.
IDebugInfoLoader* ElfFileLoader::createOatLoader(char const* name) {
    if (!m_oat.isThere()) {
        return nullptr;
    }
    SymMgrObjectPtr<IBuffer> data;
    status_t const status = readBytes(m_oat.data->fileOffset(), static_cast<unsigned long long>(m_oat.size), data);
    return ORV_ASSERT(status == status_Ok, "st==status_Ok") ? root().oatLoader(this, name, data.get(), m_oat) : nullptr;
}

/// A companion gives its symbol tables to a stripped module, whatever else is in it.
IDebugInfoLoader* ElfFileLoader::createDwarfLoader(char const* name) {
    SymMgrObjectPtr<ElfHelper> symbolFile = m_elfHelper;
    std::string canonical;
    fullPath(canonical, fileName(), false);
    bool const isOwn = std::string_view(name) == fileName() || canonical == name;
    if (!isOwn) {
        symbolFile = new ElfHelper(SymMgrObjectPtr<IModuleImage>(new FileImage(name, 0, arch_Unknown)), reading(),
                                   m_elfHelper.get());
    }
    m_elfHelper->copySymbolTablesFrom(*symbolFile);
    bool const hasDwarf = symbolFile->sectionIndex(ElfHelper::role_DebugInfo) != k_noSection ||
                          symbolFile->sectionIndex(ElfHelper::role_DebugLine) != k_noSection ||
                          symbolFile->sectionIndex(ElfHelper::role_DebugStr) != k_noSection;
    if (!hasDwarf) {
        return isOwn ? nullptr : root().emptyLoader(name);
    }
    bool const isPlaced = symbolFile->getImageBase() != ~0ULL;
    unsigned long long const bias = isPlaced ? m_elfHelper->getImageBase() - symbolFile->getImageBase() : 0;
    SymMgrObjectPtr<IFileFormatHelper> const helper(new ElfFileFormatHelper(symbolFile.get()));
    return root().dwarfLoader(this, name, helper.get(), bias, reading());
}

Segment* ElfFileLoader::newSegment(char const* name, unsigned long long rva, unsigned long long fileOffset,
                                   unsigned long long fileSize, unsigned long long memorySize, unsigned int type) {
    return new ELFSegment(this, m_elfHelper.get(), {name, rva, fileOffset, fileSize, memorySize, type});
}

void ElfFileLoader::addSectionEnds(ISymbolTable* table) {
    SectionEndWalker walker(*table);
    m_elfHelper->walkSectionHeaders(walker);
}

status_t ElfFileLoader::loadSymbols(ISymbolTable* table, AcceptedRanges* filter, unsigned int mask) {
    if (!ORV_ASSERT(m_elfHelper->valid(), "false")) {
        return status_Fail;
    }
    unsigned int const kinds = mask | symbol_kind_Other; // untyped symbols always come along
    loadTable(wholeTable(), *table, filter, kinds);
    loadTable(tableOf(ElfHelper::role_Dynsym, ElfHelper::role_Dynstr), *table, filter, kinds);
    if ((kinds & symbol_kind_Function) != 0) {
        addThunks(*table, filter);
    }
    addSectionEnds(table);
    return status_Ok;
}

ElfSymbolTables ElfFileLoader::tableOf(ElfHelper::Role symbols, ElfHelper::Role names) const {
    ElfSymbolTables const table{SymMgrObjectPtr<ISectionData>(m_elfHelper->sectionData(symbols)),
                                SymMgrObjectPtr<ISectionData>(m_elfHelper->sectionData(names))};
    return table.symbols && table.names ? table : ElfSymbolTables();
}

/// That of the file, or else the one that is packed in it.
ElfSymbolTables ElfFileLoader::wholeTable() {
    ElfSymbolTables const own = tableOf(ElfHelper::role_Symtab, ElfHelper::role_Strtab);
    return own.symbols || reading() != reading_Modern ? own : m_packedSymbols.of(*m_elfHelper);
}

void ElfFileLoader::loadTable(ElfSymbolTables const& tables, ISymbolTable& table, AcceptedRanges* filter,
                              unsigned int kinds) {
    if (!tables.symbols) {
        return;
    }
    // The string section lives as long as this loader, and this loader longer than the bank: names
    // need no copy.
    ElfSymbolReader reader(*m_elfHelper, *tables.symbols, *tables.names, kinds);
    std::unique_ptr<ISymbolCallBack> const callBack = root().symbolCallBack(this, &table, filter, reader.count());
    for (RawSymbol symbol{}; reader.next(symbol);) {
        callBack->symbol(symbol);
    }
    callBack->finish();
}

char const* ElfFileLoader::symbolNameOf(unsigned long long start, unsigned long long end, char const* own) {
    auto const make = [this] {
        ElfSymbolTables const whole = wholeTable();
        return std::make_unique<ElfSymbolNames>(
            *m_elfHelper, whole.symbols ? whole : tableOf(ElfHelper::role_Dynsym, ElfHelper::role_Dynstr));
    };
    return m_symbolNames.get(make).find(start, end, own);
}

void ElfFileLoader::addThunks(ISymbolTable& table, AcceptedRanges* filter) {
    unsigned int const index = m_elfHelper->sectionIndex(ElfHelper::role_Plt);
    if (index == k_noSection) {
        return;
    }
    SymMgrObjectPtr<RelocationAddends> const addends = relocationAddends(*m_elfHelper, index);
    SymMgrObjectPtr<ISection> plt;
    sectionByIndex(plt, index);
    if (!addends || !plt) {
        return;
    }
    std::unique_ptr<ISymbolCallBack> const symbols = root().symbolCallBack(this, &table, filter, 0);
    PLTEntryCallBack callBack(*symbols, plt->address() + sizeOfPltHead(architecture()));
    for (RelocationAddends::Entry const& entry : addends->entries()) {
        callBack.addend(entry);
    }
}

SymMgrObjectPtr<IFileFormatHelper> openFileFormatHelper(char const* path, reading_t reading, bool& isElfFile) {
    SymMgrObjectPtr<IModuleImage> const image = IModuleImage::create(path, arch_Unknown, false);
    isElfFile = isElf(image.get());
    SymMgrObjectPtr<ElfHelper> const file(isElfFile ? new ElfHelper(image, reading) : nullptr);
    return file && file->valid() ? SymMgrObjectPtr<IFileFormatHelper>(new ElfFileFormatHelper(file.get()))
                                 : SymMgrObjectPtr<IFileFormatHelper>();
}

ElfFileFormatHelper::ElfFileFormatHelper(ElfHelper* elfHelper) : m_elfHelper(elfHelper) {
    ORV_ASSERT(m_elfHelper, "elfHelper != NULL");
}

bool ElfFileFormatHelper::isLoadedAddress(unsigned long long address) {
    return m_elfHelper->isCodeAddress(address) || m_elfHelper->isDataAddress(address);
}

void ElfFileFormatHelper::sectionData(SymMgrObjectPtr<ISectionData>& out, unsigned int role) {
    static constexpr ElfHelper::Role k_roles[] = {
        ElfHelper::role_DebugInfo,       ElfHelper::role_DebugAbbrev,  ElfHelper::role_DebugStr,
        ElfHelper::role_DebugLine,       ElfHelper::role_DebugRanges,  ElfHelper::role_DebugLoc,
        ElfHelper::role_BuildId,         ElfHelper::role_DebugLink,    ElfHelper::role_DebugLineStr,
        ElfHelper::role_DebugStrOffsets, ElfHelper::role_DebugAddr,    ElfHelper::role_DebugRnglists,
        ElfHelper::role_DebugLoclists,   ElfHelper::role_DebugAltLink, ElfHelper::role_DebugSup,
        ElfHelper::role_EhFrame,         ElfHelper::role_DebugFrame,
    };
    out = nullptr;
    if (role >= std::size(k_roles) || m_elfHelper->sectionIndex(k_roles[role]) == k_noSection) {
        return;
    }
    ISectionData* const held = m_elfHelper->sectionData(k_roles[role]);
    // Sections held by index are read anew for each caller.
    out = held != nullptr ? held : new ElfSectionData(m_elfHelper->sectionIndex(k_roles[role]), m_elfHelper.get());
}

void ElfFileFormatHelper::sectionByIndex(SymMgrObjectPtr<ISection>& out, unsigned int index) {
    Elf64_Shdr const* const header = m_elfHelper->sectionHeader(index);
    if (header == nullptr) {
        out = nullptr;
        return;
    }
    out = new SectionDataAdapter(m_elfHelper->heldName(*header), new ElfSectionData(index, m_elfHelper.get()),
                                 header->sh_addr, header->sh_offset + m_elfHelper->image()->imageOffset(),
                                 header->sh_size, emptyInFileByFlag(*header));
}

void ElfFileFormatHelper::relocations(SymMgrObjectPtr<RelocationAddends>& out, unsigned int sectionIndex) {
    out = m_elfHelper->header().e_type == ET_REL ? relocationAddends(*m_elfHelper, sectionIndex) : nullptr;
}

} // namespace ORV_3_30
