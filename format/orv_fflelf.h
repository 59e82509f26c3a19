// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// The loader of ELF files: programs, shared objects, relocatable files, kernel images, Android OAT files.
#pragma once

#include "core/orv_once.h"
#include "format/orv_elf_helper.h"
#include "format/orv_elf_oat.h"
#include "format/orv_elf_packed.h"
#include "format/orv_elf_symbol_names.h"
#include "format/orv_ffl.h"

namespace ORV_3_30 {

/// Everything but the symbols is read when it is opened. Banks may share one loader and load from it side by side:
/// sections are read once, under locks of their own.
class ElfFileLoader final : public FileFormatLoader {
public:
    /// Reads all but the symbols. To be called once, before anything else. Apart from construction, since
    /// a counted object that can't be finished must go by its count.
    void open(SymMgrObjectPtr<IModuleImage> image);
    ~ElfFileLoader() override = default;

    char const* fileName() override;
    exec_format_t fileFormat() override { return exec_format_Elf; }
    arch_t architecture() override { return m_elfHelper->architecture(); }
    unsigned long long preferredLoadAddress() override { return m_elfHelper->getImageBase(); }
    unsigned long long entryPoint() override { return m_elfHelper->header().e_entry; }
    unsigned long long imageSize() override { return m_elfHelper->imageSize(); }
    status_t loadSymbols(ISymbolTable* table, AcceptedRanges* filter, unsigned int mask) override;
    void sectionByName(SymMgrObjectPtr<ISection>& out, char const* name) override;
    void sectionByIndex(SymMgrObjectPtr<ISection>& out, unsigned int index) override;
    char const* targetName() override { return ""; }
    /// From the file, but for an image in memory, which is no file.
    status_t readBytes(unsigned long long offset, unsigned long long size, SymMgrObjectPtr<IBuffer>& out) override;

    status_t collectSymbolFiles(SymbolFiles& candidates) override;
    IDebugInfoLoader* createDebugInfoLoader(char const* name, symbol_file_format_t format, unsigned int flags) override;
    char const* symbolNameOf(unsigned long long start, unsigned long long end, char const* own) override;
    void addSectionEnds(ISymbolTable* table) override;
    Segment* newSegment(char const* name, unsigned long long rva, unsigned long long fileOffset,
                        unsigned long long fileSize, unsigned long long memorySize, unsigned int type) override;

    ElfHelper& helper() { return *m_elfHelper; }

private:
    void readFileInfo();
    IDebugInfoLoader* createDwarfLoader(char const* name);
    IDebugInfoLoader* createOatLoader(char const* name);
    ElfSymbolTables tableOf(ElfHelper::Role symbols, ElfHelper::Role names) const;
    ElfSymbolTables wholeTable();
    void loadTable(ElfSymbolTables const& tables, ISymbolTable& table, AcceptedRanges* filter, unsigned int kinds);
    void addThunks(ISymbolTable& table, AcceptedRanges* filter);

    SymMgrObjectPtr<ElfHelper> m_elfHelper;
    PackedSymbols m_packedSymbols;
    bool m_fileInfoRead = false;
    Once<ElfSymbolNames> m_symbolNames;
    OatPlace m_oat; ///< Of an OAT file that is to be read as one.
};

/// The view of an ELF file that debug information readers work through.
class ElfFileFormatHelper final : public SharedObject<SymMgrObject<IFileFormatHelper>> {
public:
    explicit ElfFileFormatHelper(ElfHelper* elfHelper);
    ~ElfFileFormatHelper() override = default;

    bool isLoadedAddress(unsigned long long address) override;
    unsigned long long imageBase() override { return m_elfHelper->getImageBase(); }
    void sectionData(SymMgrObjectPtr<ISectionData>& out, unsigned int role) override;
    void sectionByIndex(SymMgrObjectPtr<ISection>& out, unsigned int index) override;
    void relocations(SymMgrObjectPtr<RelocationAddends>& out, unsigned int sectionIndex) override;
    reading_t reading() override { return m_elfHelper->reading(); }

private:
    SymMgrObjectPtr<ElfHelper> m_elfHelper;
};

} // namespace ORV_3_30
