// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// What the readers of GPU program files have in common. A program file holds the debug data of all kernels of one
/// program; each compiler has a format of its own.
#pragma once

#include "core/orv_cursor.h"
#include "orv/orv_object.h"
#include "orv/orv_section.h"
#include "orv/orv_status.h"

#include <cstdint>
#include <string>
#include <vector>

namespace ORV_3_30 {

/// Where a line's instructions begin.
struct VexLineEntry {
    std::uint32_t address; ///< Byte offset in the kernel's machine code.
    std::uint32_t line;
    std::uint32_t column;
    std::uint32_t fileId; ///< Index in the kernel's source files.
};

/// Reader of one program file, which it holds. It belongs to one thread.
class IVexDebugInfoParser : public ISymMgrObject {
public:
    virtual unsigned int kernelCount() = 0;
    /// Appends to out, as the next two do. status_Ok; status_BadFileFormat.
    virtual status_t kernelNames(std::vector<std::string>& out) = 0;
    /// status_Ok; status_NotFound without such a kernel, where that is looked at; status_BadFileFormat; status_Fail.
    virtual status_t sourceFiles(std::string const& kernelName, std::vector<std::string>& out) = 0;
    /// status_Ok; status_NotFound without such a kernel; status_BadFileFormat; status_Fail for lines that mean nothing;
    /// status_InvalidArg for a name that no kernel can have; what kept an image from being read.
    virtual status_t lineInfo(std::string const& kernelName, std::vector<VexLineEntry>& out) = 0;
    /// The first of the source files whose name holds the text. What sourceFiles returns; status_False if there is
    /// none. A reader that has names in place looks at them there: there may be one a byte.
    virtual status_t findSourceFile(std::string const& kernelName, char const* text, std::uint32_t& fileId) = 0;

protected:
    ~IVexDebugInfoParser() = default;
};

/// The fields that the headers of both formats have, by whose bounds alone a file is told to be one.
struct VexHeader {
    std::uint32_t formatVersion = 0;
    std::uint32_t limitA = 0;
    std::uint32_t limitB = 0;
    std::uint32_t powerOfTwoField = 0;
    std::uint32_t numberOfKernels = 0;

    bool isWithinBounds() const {
        constexpr std::uint32_t k_leastFormatVersion = 1020;
        constexpr std::uint32_t k_mostLimit = 1024;
        bool const isPowerOfTwo = (powerOfTwoField & (powerOfTwoField - 1)) == 0; // or 0
        return formatVersion >= k_leastFormatVersion && limitA <= k_mostLimit && limitB <= k_mostLimit &&
               powerOfTwoField <= k_mostLimit && isPowerOfTwo && numberOfKernels <= k_mostLimit;
    }
};

/// Reads one field after the other; false if they are not all there.
template <typename... Fields> bool readFields(ByteCursor& cursor, Fields&... fields) {
    return (cursor.read(fields) && ...);
}

inline ByteCursor cursorOver(IBuffer* data) {
    return data != nullptr ? ByteCursor(data->data(), data->size()) : ByteCursor();
}

} // namespace ORV_3_30
