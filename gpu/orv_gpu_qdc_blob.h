// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// The map of a QDC kernel's virtual instructions to its machine code, as the compiler leaves it in a blob of its own
/// beside the kernel's DWARF.
#pragma once

#include "gpu/orv_gpu_join.h"

#include <map>

namespace ORV_3_30 {

/// It belongs to one thread.
class IQdcDbgParser : public ISymMgrObject {
public:
    virtual unsigned int kernelCount() = 0;
    virtual status_t kernelNames(std::vector<std::string>& out) = 0;
    /// In place of what was in out, and behind a pair of zeros. status_Ok, with nothing at all where the blob has no
    /// kernel; status_NotFound; status_BadFileFormat.
    virtual status_t instructionMap(std::string const& kernelName, InstructionMap& out) = 0;

protected:
    ~IQdcDbgParser() = default;
};

/// Knows where the map of each kernel stands; variables, subroutines and registers are passed over.
class QdcDbgParser final : public SymMgrObject<IQdcDbgParser> {
public:
    explicit QdcDbgParser(IBuffer* debugInfo) : m_debugInfo(debugInfo) {}
    /// To be called once, before anything else, on a blob with the right magic. status_Ok; status_BadFileFormat.
    status_t walk();

    unsigned int kernelCount() override { return static_cast<unsigned int>(m_kernels.size()); }
    status_t kernelNames(std::vector<std::string>& out) override;
    status_t instructionMap(std::string const& kernelName, InstructionMap& out) override;

private:
    SymMgrObjectPtr<IBuffer> m_debugInfo;
    std::map<std::string, std::uint64_t> m_kernels; ///< Where the count of the kernel's map stands.
};

/// status_Ok; status_BadFileFormat, with null, for anything but such a blob, and for a broken one.
status_t createQdcDbgParser(SymMgrObjectPtr<IQdcDbgParser>& out, IBuffer* data);

} // namespace ORV_3_30
