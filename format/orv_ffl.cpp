// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
// ffl: file format loader. What all have in common: segments and sections in ordered maps, and a cache of debug
// information loaders.
#include "format/orv_ffl.h"

#include "core/orv_address.h"
#include "core/orv_cursor.h"
#include "core/orv_iterators.h"
#include "core/orv_trace.h"
#include "format/orv_fflelf.h"
#include "format/orv_fflvex.h"
#include "format/orv_root.h"
#include "image/orv_file.h"

#include <cstring>
#include <elf.h>

namespace ORV_3_30 {
namespace {

/// True if address lies in [start, start + size], the end included: a return address behind the
/// last call of a segment still belongs to it.
bool reaches(unsigned long long start, unsigned long long size, unsigned long long address) {
    return address - start <= size;
}

/// The entry of a map with the greatest key at or below an address.
template <typename Map> auto floorEntry(Map& map, unsigned long long address) {
    auto const after = map.upper_bound(address);
    return after == map.begin() ? map.end() : std::prev(after);
}

} // namespace

bool isElf(IModuleImage* image) {
    unsigned char magic[SELFMAG] = {};
    if (image == nullptr || !ORV_ASSERT(image->read(0, sizeof(magic), magic) == sizeof(magic), "false")) {
        return false;
    }
    return std::memcmp(magic, ELFMAG, SELFMAG) == 0;
}

status_t IFileFormatLoader::create(SymMgrObjectPtr<IFileFormatLoader>& out, SymMgrObjectPtr<IModuleImage> image,
                                   char const* targetName) {
    if (isElf(image.get())) {
        SymMgrObjectPtr<ElfFileLoader> const loader(new ElfFileLoader);
        loader->open(std::move(image));
        out = loader.get();
    } else if (image && isVexBinPath(image->fileName())) {
        SymMgrObjectPtr<VexBinFileLoader> const loader(
            new VexBinFileLoader(image->fileName(), targetName != nullptr ? targetName : "", image->architecture()));
        loader->open();
        out = loader.get();
    }
    return out ? out->status() : status_BadFileFormat;
}

FileFormatLoader::FileFormatLoader() : SymMgrObject(true) {}

FileFormatLoader::~FileFormatLoader() {
    root().forgetLoader(this);
    m_debugInfoLoaders.clear();
    m_symbolFiles.clear();
}

unsigned int FileFormatLoader::release() {
    LockGuard guard(&root().loaderLock());
    return SymMgrObject::release();
}

status_t FileFormatLoader::symbolFiles(SymMgrObjectPtr<IIterator<SymMgrObjectPtr<ISymbolFileToResolve>>>& out) {
    LockGuard guard(&m_lock);
    if (m_symbolFiles.empty()) {
        SymbolFiles found; // all of them or none
        status_t const status = collectSymbolFiles(found);
        if (failed(status)) {
            return status;
        }
        if (!found.empty()) { // one without any is walked by other loads at this time
            m_symbolFiles = std::move(found);
        }
    }
    out = new VectorIteratorWrapper<SymbolFiles, SymMgrObjectPtr<ISymbolFileToResolve>>(m_symbolFiles);
    return status_Ok;
}

status_t FileFormatLoader::debugInfoLoader(SymMgrObjectPtr<IDebugInfoLoader>& out, long long index,
                                           unsigned int flags) {
    LockGuard guard(&m_lock);
    if (index < 0 || static_cast<unsigned long long>(index) >= m_symbolFiles.size()) {
        return status_False;
    }
    ISymbolFileToResolve& candidate = *m_symbolFiles[static_cast<std::size_t>(index)];
    std::string const name = candidate.symbolFileName(); // another load may give it another one at any time
    FileKey const key(name.c_str(), 0, arch_Unknown);
    auto cached = m_debugInfoLoaders.find(key);
    if (cached == m_debugInfoLoaders.end()) {
        // A loader that could not be made is kept as null and not tried again.
        SymMgrObjectPtr<IDebugInfoLoader> loader(
            createDebugInfoLoader(name.c_str(), candidate.symbolFileFormat(), flags));
        cached = m_debugInfoLoaders.emplace(key, loader).first;
    }
    out = cached->second;
    return status_Ok;
}

ISegment* FileFormatLoader::segmentByAddress(unsigned long long address) {
    ensureFileInfo();
    auto& segments = layout().segments;
    auto const found = floorEntry(segments, address);
    bool const isHeld = found != segments.end() && reaches(found->first, found->second->memorySize(), address);
    return isHeld ? found->second : nullptr;
}

ISection* FileFormatLoader::sectionByAddress(unsigned long long address) {
    auto& sections = layout().sections;
    auto const found = floorEntry(sections, address);
    bool const isHeld = found != sections.end() && reaches(found->first, found->second->size(), address);
    return isHeld ? found->second : nullptr;
}

ISegment* FileFormatLoader::segmentByIndex(unsigned int index) {
    ensureFileInfo();
    auto& segments = layout().segments;
    return index < segments.size() ? std::next(segments.begin(), index)->second : nullptr;
}

ISegment* FileFormatLoader::segmentByFileOffset(unsigned long long offset) {
    ensureFileInfo();
    ISegment* endsThere = nullptr;
    for (auto const& [address, segment] : layout().segments) {
        unsigned long long const start = segment->fileOffset();
        if (start <= offset && offset - start < segment->fileSize()) {
            return segment;
        }
        if (start + segment->fileSize() == offset) {
            endsThere = segment;
        }
    }
    return endsThere;
}

ISegment* FileFormatLoader::segmentByName(char const* name) {
    ensureFileInfo();
    for (auto const& [address, segment] : layout().segments) {
        if (name != nullptr && std::strcmp(segment->name(), name) == 0) {
            return segment;
        }
    }
    return nullptr;
}

void FileFormatLoader::segments(SymMgrObjectPtr<IIterator<ISegment*>>& out, unsigned int filter) {
    ensureFileInfo();
    using Segments = MapIteratorWrapper<std::map<unsigned long long, Segment*>, ISegment*,
                                        CFilter<ISegment*, unsigned int>, unsigned int>;
    out = new Segments(layout().segments, filter);
}

status_t FileFormatLoader::addressByValue(SymMgrObjectPtr<IAddress>& out, unsigned long long address) {
    if (segmentByAddress(address) == nullptr && sectionByAddress(address) == nullptr) {
        return status_Fail;
    }
    out = new Address(this, address);
    return status_Ok;
}

status_t FileFormatLoader::addressByFileOffset(SymMgrObjectPtr<IAddress>& out, unsigned long long offset) {
    ISegment* const segment = segmentByFileOffset(offset);
    if (segment == nullptr || offset - segment->fileOffset() > segment->fileSize()) {
        return status_Fail;
    }
    out = new Address(this, offset - segment->fileOffset() + preferredLoadAddress() + segment->rva());
    return status_Ok;
}

status_t FileFormatLoader::readBytes(unsigned long long offset, unsigned long long size,
                                     SymMgrObjectPtr<IBuffer>& out) {
    File file(fileName());
    return readBytesBy(file.size(), offset, size, out, [&](unsigned char* block) {
        file.seek(static_cast<std::int64_t>(offset));
        return file.read(size, block) == size;
    });
}

status_t FileFormatLoader::readBytesBy(unsigned long long available, unsigned long long offset, unsigned long long size,
                                       SymMgrObjectPtr<IBuffer>& out,
                                       std::function<bool(unsigned char*)> const& readInto) {
    // What lies beyond the file can't be read: no memory is asked for it. A size that no allocation
    // could meet is reported as that.
    bool const isPossible = size == 0 || contains(available, offset, size);
    if (isPossible || size > ByteBuffer::k_largest) {
        SymMgrObjectPtr<IBuffer> buffer(new ByteBuffer(size));
        if (buffer->size() != size) {
            ORV_ERROR("Unable to create ByteBuffer of size: " << size);
            return status_OutOfMemory;
        }
        if (readInto(buffer->data())) {
            out = buffer;
            return status_Ok;
        }
    }
    ORV_ERROR("Unable to read " << size << " bytes from file: " << fileName());
    return status_False;
}

bool FileFormatLoader::addSegment(unsigned long long address, char const* name, unsigned long long rva,
                                  unsigned long long fileOffset, unsigned long long fileSize,
                                  unsigned long long memorySize, unsigned int type) {
    unsigned long long const end = address + memorySize;
    auto& segments = m_newestLayout->segments;
    auto& typedSegments = m_newestLayout->typedSegments;
    auto const overlaps = [&](std::pair<unsigned long long const, Segment*> const& entry) {
        return (entry.first <= address && entry.first + entry.second->memorySize() > address) ||
               (entry.first >= address && entry.first < end);
    };
    auto const first = [&] {
        auto const found = floorEntry(segments, address);
        return found != segments.end() ? found : segments.begin();
    }();
    auto const isReached = [&](auto const& at) { return at != segments.end() && at->first <= end; };
    auto inTheWay = first;
    while (isReached(inTheWay) && !overlaps(*inTheWay)) {
        ++inTheWay;
    }
    if (isReached(inTheWay)) {
        // What lies between begins in the new one.
        auto const typed = typedSegments.lower_bound(inTheWay->first);
        bool const isTypedInTheWay = typed != typedSegments.end() && (*typed == inTheWay->first || *typed < end);
        if (type == segment_type_Other || isTypedInTheWay) {
            return false;
        }
        while (isReached(inTheWay)) {
            inTheWay = overlaps(*inTheWay) ? segments.erase(inTheWay) : std::next(inTheWay);
        }
    }
    m_segments.push_back(std::unique_ptr<Segment>(newSegment(name, rva, fileOffset, fileSize, memorySize, type)));
    segments[address] = m_segments.back().get();
    if (type != segment_type_Other) {
        typedSegments.insert(address);
    } else {
        typedSegments.erase(address); // one without extent may have stood there
    }
    return true;
}

bool FileFormatLoader::addSection(char const* name, unsigned long long address, unsigned long long size) {
    SymMgrObjectPtr<Section> const section(new Section({nullptr, name}, this, address, address, size, 0));
    m_sections.push_back(section);
    m_newestLayout->sections[address] = section.get();
    return true;
}

void FileFormatLoader::addLate(char const* name, unsigned long long address, unsigned long long size) {
    auto const known = layout().sections.find(address);
    if (known != layout().sections.end() && std::strcmp(known->second->name(), name) == 0) {
        return; // added by another list of the same kernel
    }
    m_laterLayouts.push_back(std::make_unique<Layout>(layout()));
    m_newestLayout = m_laterLayouts.back().get();
    addSegment(address, name, 0, 0, 0, size, segment_type_Code);
    addSection(name, address, size);
    m_layout.store(m_newestLayout, std::memory_order_release);
}

Segment* FileFormatLoader::newSegment(char const* name, unsigned long long rva, unsigned long long fileOffset,
                                      unsigned long long fileSize, unsigned long long memorySize, unsigned int type) {
    return new Segment(this, {name, rva, fileOffset, fileSize, memorySize, type});
}

} // namespace ORV_3_30
