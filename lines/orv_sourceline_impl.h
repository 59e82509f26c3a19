// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// What a client gets from a line question: files, places in them, and places with an address range.
#pragma once

#include "core/orv_shared_object.h"
#include "orv/orv_debuginfoloader.h"

#include <string>

namespace ORV_3_30 {

/// A source file. Belongs to its resolver, which hands out plain pointers to it.
class SourceFile final : public ISourceFile, public SymMgrObjectImpl {
public:
    SourceFile(ISrcLineResolver* resolver, unsigned int id, std::string path, unsigned long long modificationTime,
               unsigned long long length)
        : m_resolver(resolver), m_path(std::move(path)), m_id(id), m_modificationTime(modificationTime),
          m_length(length) {}
    ~SourceFile() override; // not inline: g++ 12 takes the second base's place for a wrong one to delete

    char const* path() override { return m_path.c_str(); }
    bool sourceLines(SymMgrObjectPtr<IIterator<SymMgrObjectPtr<ISourceLine>>>& out, unsigned long long unit,
                     IAddress* start, IAddress* end) override;
    char const* checksum() override { return m_checksum.empty() ? nullptr : m_checksum.c_str(); }
    unsigned int checksumKind() override { return 0; }
    unsigned long long modificationTime() override { return m_modificationTime; }
    unsigned long long length() override { return m_length; }
    unsigned int id() override { return m_id; }

private:
    ISrcLineResolver* m_resolver; ///< Not counted: it owns the file.
    std::string m_path;
    unsigned int m_id;
    std::string m_checksum; ///< No format fills it so far.
    unsigned long long m_modificationTime;
    unsigned long long m_length;
};

/// Threads may share it: a line and who took it from there hold the same one.
class SourceLocation final : public SharedObject<SymMgrObject<ISourceLocation>> {
public:
    struct Place {
        unsigned long long unit;
        unsigned int fileId;
        unsigned int line;
        unsigned int column;
        unsigned long long discriminator;
    };

    SourceLocation(ISrcLineResolver* resolver, Place const& place) : m_resolver(resolver), m_place(place) {}

    ISourceFile* sourceFile() override { return m_resolver->sourceFileById(m_place.fileId); }
    unsigned long long unit() override { return m_place.unit; }
    unsigned int line() override { return m_place.line; }
    unsigned int column() override { return m_place.column; }
    unsigned long long discriminator() override { return m_place.discriminator; }

    unsigned int fileId() const { return m_place.fileId; }

private:
    ISrcLineResolver* m_resolver; ///< Not counted.
    Place m_place;
};

class SourceLine final : public SymMgrObject<ISourceLine> {
public:
    SourceLine(IFileFormatLoader* loader, ISourceLocation* location, unsigned long long start, unsigned long long end)
        : m_loader(loader), m_location(location), m_start(start), m_size(end - start) {}

    ISourceLocation* location() override { return m_location.get(); }
    /// 32 bits by design.
    unsigned int size() override { return static_cast<unsigned int>(m_size); }
    void address(SymMgrObjectPtr<IAddress>& out) override;
    unsigned long long relativeAddress() override;

    unsigned long long start() const { return m_start; }

private:
    IFileFormatLoader* m_loader; ///< Not counted.
    SymMgrObjectPtr<ISourceLocation> m_location;
    unsigned long long m_start;
    unsigned long long m_size;
};

} // namespace ORV_3_30
