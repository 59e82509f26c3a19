// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// The implementation of IAddress over a file format loader.
#pragma once

#include "core/orv_shared_object.h"
#include "orv/orv_address.h"

namespace ORV_3_30 {

class IFileFormatLoader;

/// Holds its loader without a count, and must not be asked after it. A range and who asked it for its start share one.
class Address final : public SharedObject<SymMgrObject<IAddress>> {
public:
    Address(IFileFormatLoader* loader, unsigned long long value) : m_loader(loader), m_value(value) {}

    unsigned long long rva() override;
    unsigned long long pseudoAddr() override { return m_value; }
    ISegment* segment() override;
    unsigned long long segmentOffset() override;
    unsigned long long fileOffset() override;
    bool isEqual(IAddress* other) override { return other != nullptr && other->pseudoAddr() == m_value; }
    bool isNotEqual(IAddress* other) override { return !isEqual(other); }
    bool isAfter(IAddress* other) override { return other != nullptr && other->pseudoAddr() < m_value; }
    bool isBefore(IAddress* other) override { return other != nullptr && other->pseudoAddr() > m_value; }

private:
    IFileFormatLoader* m_loader;
    unsigned long long m_value;
    unsigned long long m_fileOffset = ~0ULL; ///< All ones until it is known.
};

} // namespace ORV_3_30
