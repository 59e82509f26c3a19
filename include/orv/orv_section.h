// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// Byte blocks, sections and segments of a module.
#pragma once

#include "orv/orv_iterator.h"
#include "orv/orv_status.h"

namespace ORV_3_30 {

/// A plain block of bytes, counted, owned by whoever holds it.
class ORV_API IBuffer : public ISymMgrObject {
public:
    /// Bytes in the block.
    virtual unsigned long long size() = 0;
    /// First byte; of an empty block a pointer to nothing, which may be null. Lives as long as the buffer.
    virtual unsigned char* data() = 0;

protected:
    ~IBuffer() = default;
};

/// A section of the module (System V ABI, "Sections"). Counted; must not outlive the bank.
class ORV_API ISection : public ISymMgrObject {
public:
    virtual char const* name() = 0;
    /// Size in bytes.
    virtual unsigned long long size() = 0;
    /// Position in the file in bytes.
    virtual unsigned long long fileOffset() = 0;
    /// Pseudo address.
    virtual unsigned long long address() = 0;
    /// All bytes of the section, read anew. status_Ok with a buffer, status_False if the section has
    /// no bytes in the file or the file is too short, status_OutOfMemory.
    virtual status_t read(SymMgrObjectPtr<IBuffer>& out) = 0;
    /// size bytes at offset within the section; the statuses of read. The bounds of the section are
    /// not tested, those of the file are.
    virtual status_t readAt(unsigned long long offset, unsigned long long size, SymMgrObjectPtr<IBuffer>& out) = 0;
    /// Non-zero when the section has no bytes in the file.
    virtual unsigned long long isEmptyInFile() = 0;

protected:
    ~ISection() = default;
};

/// A stretch of the module that is mapped as a whole (System V ABI, "Program Loading"). Not counted:
/// it belongs to the loader, and so lives as long as the bank.
class ORV_API ISegment {
public:
    virtual char const* name() = 0;
    /// Bytes in the file.
    virtual unsigned long long fileSize() = 0;
    /// Bytes in memory.
    virtual unsigned long long memorySize() = 0;
    /// Distance of the start from the preferred load address.
    virtual unsigned long long rva() = 0;
    /// Position in the file in bytes.
    virtual unsigned long long fileOffset() = 0;
    /// 0 other, 1 code, 2 data.
    virtual unsigned int type() = 0;
    /// The bytes in the file, read anew. status_Ok, status_False if the file is too short,
    /// status_OutOfMemory.
    virtual status_t read(SymMgrObjectPtr<IBuffer>& out) = 0;
    /// size bytes at offset within the segment, whose bounds are not tested; the statuses of read.
    virtual status_t readAt(unsigned long long offset, unsigned long long size, SymMgrObjectPtr<IBuffer>& out) = 0;
    /// The sections in the segment, all or only those with code; null where the format has none.
    virtual void sections(SymMgrObjectPtr<IIterator<SymMgrObjectPtr<ISection>>>& out, bool codeOnly) = 0;

protected:
    ~ISegment() = default;
};

} // namespace ORV_3_30
