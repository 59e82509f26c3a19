// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// The frame of all file format loaders: segments, sections, fresh reads and the cache of debug info
/// loaders.
///
/// A format derives from FileFormatLoader, fills the maps through addSegment and addSection, and
/// says which files may hold its debug information and who reads them.
#pragma once

#include "format/orv_section.h"
#include "image/orv_filekey.h"
#include "orv/orv_fileformatloader.h"
#include "orv/orv_reading.h"

#include <atomic>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <vector>

namespace ORV_3_30 {

class RelocationAddends;

/// Parts of a binary that a debug information reader asks for.
enum section_role_t : unsigned int {
    section_role_DebugInfo = 0,
    section_role_DebugAbbrev = 1,
    section_role_DebugStr = 2,
    section_role_DebugLine = 3,
    section_role_DebugRanges = 4,
    section_role_DebugLoc = 5,
    section_role_BuildId = 6,
    section_role_DebugLink = 7,
    section_role_DebugLineStr = 8,
    section_role_DebugStrOffsets = 9,
    section_role_DebugAddr = 10,
    section_role_DebugRnglists = 11,
    section_role_DebugLoclists = 12,
    section_role_DebugAltLink = 13,
    section_role_DebugSup = 14,
    section_role_EhFrame = 15,
    section_role_DebugFrame = 16
};

/// The narrow view of a binary that a debug information reader works through.
class IFileFormatHelper : public ISymMgrObject {
public:
    virtual ~IFileFormatHelper() = default;
    /// True if the address lies in the code or the data of the module.
    virtual bool isLoadedAddress(unsigned long long address) = 0;
    virtual unsigned long long imageBase() = 0;
    /// Null where the binary lacks the section, and for any other role.
    virtual void sectionData(SymMgrObjectPtr<ISectionData>& out, unsigned int role) = 0;
    virtual void sectionByIndex(SymMgrObjectPtr<ISection>& out, unsigned int index) = 0;
    /// What is to be added to the bytes of a section of a relocatable file; null in any other file.
    virtual void relocations(SymMgrObjectPtr<RelocationAddends>& out, unsigned int sectionIndex) = 0;
    /// Under which the binary was opened.
    virtual reading_t reading() = 0;
};

/// True for an image that begins as ELF files do.
bool isElf(IModuleImage* image);

/// The view of another file, for who wants to know whether it belongs to a module. Null if the file is no ELF file or
/// a broken one; isElfFile tells which.
SymMgrObjectPtr<IFileFormatHelper> openFileFormatHelper(char const* path, reading_t reading, bool& isElfFile);

/// Its count and its place in the manager's map change together, under the manager's loader lock: a
/// concurrent load can never find a loader that is on its way out.
///
/// m_lock guards the symbol file list and the cache. The segment and section maps are filled before
/// the loader is handed out, or under m_lock by ensureFileInfo. Maps that take their place later are copies.
class FileFormatLoader : public SymMgrObject<IFileFormatLoader> {
public:
    using SymbolFiles = std::vector<SymMgrObjectPtr<ISymbolFileToResolve>>;

    FileFormatLoader();
    ~FileFormatLoader() override;

    unsigned int release() override;

    status_t symbolFiles(SymMgrObjectPtr<IIterator<SymMgrObjectPtr<ISymbolFileToResolve>>>& out) override;
    status_t debugInfoLoader(SymMgrObjectPtr<IDebugInfoLoader>& out, long long index, unsigned int flags) override;
    status_t status() override { return m_status; }
    ISegment* segmentByAddress(unsigned long long address) override;
    ISegment* segmentByIndex(unsigned int index) override;
    ISegment* segmentByFileOffset(unsigned long long offset) override;
    ISection* sectionByAddress(unsigned long long address) override;
    status_t readBytes(unsigned long long offset, unsigned long long size, SymMgrObjectPtr<IBuffer>& out) override;
    status_t addressByValue(SymMgrObjectPtr<IAddress>& out, unsigned long long address) override;
    status_t addressByFileOffset(SymMgrObjectPtr<IAddress>& out, unsigned long long offset) override;
    void segments(SymMgrObjectPtr<IIterator<ISegment*>>& out, unsigned int filter) override;
    ISegment* segmentByName(char const* name) override;

    /// Under which it was made.
    reading_t reading() const { return m_reading; }

    /// Keeps the segments free of overlaps: what has a type displaces what has none. False if the
    /// new one had to give way.
    virtual bool addSegment(unsigned long long address, char const* name, unsigned long long rva,
                            unsigned long long fileOffset, unsigned long long fileSize, unsigned long long memorySize,
                            unsigned int type);
    /// A section that is found by address only: its file offset is deliberately its address. Both while the loader is
    /// being built.
    virtual bool addSection(char const* name, unsigned long long address, unsigned long long size);
    virtual status_t collectSymbolFiles(SymbolFiles& candidates) = 0;
    /// Null where the format can't make one.
    virtual IDebugInfoLoader* createDebugInfoLoader(char const* name, symbol_file_format_t format,
                                                    unsigned int flags) = 0;
    /// Adds the ends of all sections to a table as boundaries.
    virtual void addSectionEnds(ISymbolTable* table) = 0;
    /// The name of the function or variable that the module's symbol table has at these addresses, from the first to
    /// behind the last: of several the one that is called own, and else one that others can see. Null if there is none.
    /// It stays as long as the loader.
    virtual char const* symbolNameOf(unsigned long long /*start*/, unsigned long long /*end*/, char const* /*own*/) {
        return nullptr;
    }
    /// Fills the maps on the first query, for formats that don't fill them when built.
    virtual void ensureFileInfo() {}
    virtual Segment* newSegment(char const* name, unsigned long long rva, unsigned long long fileOffset,
                                unsigned long long fileSize, unsigned long long memorySize, unsigned int type);

    /// Adds a segment of code that has no bytes in the file, and a section in its place, to a loader that others may be
    /// asking. Called under m_lock.
    void addLate(char const* name, unsigned long long address, unsigned long long size);

protected:
    /// readBytes for bytes that may be in memory: available is how many there are, readInto puts those that were asked
    /// for into a block, and tells whether it could.
    status_t readBytesBy(unsigned long long available, unsigned long long offset, unsigned long long size,
                         SymMgrObjectPtr<IBuffer>& out, std::function<bool(unsigned char*)> const& readInto);

    void setStatus(status_t status) { m_status = status; }
    bool hasSegments() const { return !layout().segments.empty(); }
    ILock* lock() { return &m_lock; }
    /// Handed to each candidate, which serialises its checks on it.
    ILock* symbolFileLock() { return &m_symbolFileLock; }

private:
    /// What stands where in memory.
    struct Layout {
        std::map<unsigned long long, Segment*> segments; ///< By address.
        std::set<unsigned long long> typedSegments;      ///< The addresses of those that have a type.
        std::map<unsigned long long, Section*> sections; ///< By address.
    };
    Layout& layout() const { return *m_layout.load(std::memory_order_acquire); }

    OrvLock m_lock;
    status_t m_status = status_Ok;
    reading_t m_reading = ORV_3_30::reading();
    OrvLock m_symbolFileLock;
    std::map<FileKey, SymMgrObjectPtr<IDebugInfoLoader>> m_debugInfoLoaders;
    SymbolFiles m_symbolFiles;
    /// Clients hold them as plain pointers: what has been displaced stays too.
    std::vector<std::unique_ptr<Segment>> m_segments;
    std::vector<SymMgrObjectPtr<Section>> m_sections;
    // Nothing here allocates when it is made: what is counted and can't be finished would leave its lock behind.
    Layout m_firstLayout;
    std::vector<std::unique_ptr<Layout>> m_laterLayouts; ///< Copies with something added.
    Layout* m_newestLayout = &m_firstLayout;             ///< The one to change; no other is changed any more.
    std::atomic<Layout*> m_layout{&m_firstLayout};       ///< The one in force. Read without a lock.
};

} // namespace ORV_3_30
