// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// A place in one module.
///
/// Pseudo address: the address as the module's own headers lay it out. RVA: the distance from the
/// preferred load address. pseudo address = preferred load address + RVA.
///
/// A client that holds an address of a running program asks by its place in the file, which is right for every module,
/// position independent or not, wherever it was loaded. map: the line of /proc/PID/maps that holds pc.
///
///     bank->addressByFileOffset(pc - map.start + map.offset, address);
#pragma once

#include "orv/orv_object.h"

namespace ORV_3_30 {

/// Handed out by the bank and by symbol ranges, counted. Lives no longer than the bank.
class ORV_API IAddress : public ISymMgrObject {
public:
    /// Pseudo address minus the preferred load address, in bytes.
    virtual unsigned long long rva() = 0;
    /// The address as the module's headers lay it out.
    virtual unsigned long long pseudoAddr() = 0;
    /// The segment that holds the address, or null. It belongs to the loader.
    virtual ISegment* segment() = 0;
    /// Distance from the segment's start in bytes, all ones without a segment.
    virtual unsigned long long segmentOffset() = 0;
    /// Position in the file in bytes, all ones where the address has no bytes in the file.
    /// The end of the file bytes of a segment still has a position.
    virtual unsigned long long fileOffset() = 0;
    /// Comparison of the pseudo addresses; isAfter: this one is the higher. A null address
    /// compares as unequal, and as neither after nor before.
    virtual bool isEqual(IAddress* other) = 0;
    virtual bool isNotEqual(IAddress* other) = 0;
    virtual bool isAfter(IAddress* other) = 0;
    virtual bool isBefore(IAddress* other) = 0;

protected:
    ~IAddress() = default;
};

} // namespace ORV_3_30
