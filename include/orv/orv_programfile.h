// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// What a GPU program file holds: for those who have yet to choose a kernel, or who ask why one has no lines.
///
///     SymMgrObjectPtr<IProgramFile> file;
///     if (IProgramFile::create(file, "program.clpdb", arch_VexQdc1) == status_Ok)
///         for (unsigned int i = 0; i < file->kernelCount(); ++i) std::puts(file->kernelName(i));
#pragma once

#include "orv/orv_moduleimage.h"
#include "orv/orv_object.h"
#include "orv/orv_status.h"

namespace ORV_3_30 {

/// What becomes of a kernel's lines.
enum kernel_lines_t : unsigned int {
    kernel_lines_Read = 0,     ///< A module of the kernel has them.
    kernel_lines_NoKernel = 1, ///< The file has no data of a kernel with this name.
    /// None is of a source that was compiled from memory. Those of files have no place in a line table.
    kernel_lines_NoSource = 2,
    /// The QDC compiler's line table is not in the order of its instructions, as where code of another file lies
    /// between that of the source. Such a table is not read.
    kernel_lines_Interleaved = 3,
    kernel_lines_Damaged = 4 ///< Or not there at all.
};

/// A program file as it was when this object was made, which holds all of it. Any thread may ask and drop it.
class ORV_API IProgramFile : public ISymMgrObject {
public:
    /// family: that of the GPU, which tells the format. status_Ok; status_InvalidArg for a null path and for an
    /// architecture that is no GPU's; status_CantOpenFile; status_CantReadFile, also for a file that is larger than
    /// memory; status_Fail for what is no program file of the family's compiler, or a damaged one; status_OutOfMemory.
    /// On a failure out is null.
    ORV_API static status_t create(SymMgrObjectPtr<IProgramFile>& out, char const* path, arch_t family);

    /// How many names there are; kernels may share one.
    virtual unsigned int kernelCount() = 0;
    /// In order. Lives as long as this object. Null beyond the last.
    virtual char const* kernelName(unsigned int index) = 0;
    /// Reads the lines as for a module, each time. status_Ok; with out untouched status_InvalidArg for a null name, and
    /// status_OutOfMemory.
    virtual status_t kernelLines(char const* kernelName, kernel_lines_t& out) = 0;

protected:
    ~IProgramFile() = default;
};

} // namespace ORV_3_30
