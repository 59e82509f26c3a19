// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
// Which image serves a file name: the file, a slice of it, or headers made up for a kernel.
#include "orv/orv_moduleimage.h"

#include "core/orv_trace.h"
#include "image/orv_fileimage.h"
#include "image/orv_kernelimage.h"
#include "image/orv_offloadimage.h"
#include "orv/orv_fileformatloader.h"

namespace ORV_3_30 {

SymMgrObjectPtr<IModuleImage> IModuleImage::create(char const* binFileName, arch_t arch, bool forceOffload) {
    if (binFileName == nullptr) {
        ORV_WARN("IModuleImage::create: wrong parameter. binFileName should not be empty");
        return {};
    }
    if (isKernelPath(binFileName)) {
        SymMgrObjectPtr<IModuleImage> kernel = kernelImage(binFileName, arch);
        if (kernel) {
            return kernel;
        }
    }
    SymMgrObjectPtr<IModuleImage> image(new FileImage(binFileName, 0, arch));
    if (isOffload(arch) || forceOffload) {
        SymMgrObjectPtr<IFileFormatLoader> loader;
        if (IFileFormatLoader::create(loader, image, "") != status_Ok) {
            ORV_WARN(binFileName << ", IModuleImage::create(): cannot create ffl");
            return {};
        }
        if (forceOffload || !isOffload(loader->architecture())) {
            SymMgrObjectPtr<IModuleImage> const embedded = createOffloadImage(loader);
            image = embedded ? embedded : image;
        }
    }
    if (!image) {
        ORV_WARN(binFileName << ", IModuleImage::create(): cannot create module image");
    }
    return image;
}

} // namespace ORV_3_30
