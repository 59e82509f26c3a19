// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// Kernels: the first byte says which kind of image, the second how much of the input is the list of symbols, and the
/// rest is the kernel's file, or that of a program which carries an offload binary.

#include "orv_fuzz_input.h"

#include <algorithm>
#include <cstdlib>

using namespace orv_fuzz;

namespace {

/// A file under the name of a compressed kernel, for as long as the process.
class KernelName {
public:
    explicit KernelName(InputFile const& file) {
        if (::mkdtemp(m_folder.data()) == nullptr || ::symlink(file.path(), path().c_str()) != 0) {
            std::abort();
        }
    }
    ~KernelName() {
        ::unlink(path().c_str());
        ::rmdir(m_folder.c_str());
    }
    std::string path() const { return m_folder + "/vmlinuz"; }

private:
    std::string m_folder = "/tmp/orv-fuzz-XXXXXX";
};

/// Offers the list to all.
class Named final : public ISymbolFileResolver {
public:
    explicit Named(char const* path) : m_path(path) {}
    long long
    resolveSymbolFile(SymMgrObjectPtr<IIterator<SymMgrObjectPtr<ISymbolFileToResolve>>>& candidates) override {
        long long index = -1;
        for (auto one = candidates->current(); one && index < 0; one = candidates->current()) {
            index = one->validateSymbolFile(m_path);
            candidates->next();
        }
        return index;
    }

private:
    char const* m_path;
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
    static InputFile const list;
    static InputFile const kernel;
    static KernelName const compressed(kernel);
    if (size < 2) {
        return 0;
    }
    std::size_t const listSize = (size - 2) * data[1] / 255;
    if (!list.write(data + 2, listSize) || !kernel.write(data + 2 + listSize, size - 2 - listSize)) {
        return 0;
    }
    SymMgrObjectPtr<IModuleImage> image;
    switch (data[0] % 4) {
    case 0: image = IModuleImage::create("vmlinux", arch_Unknown, false); break;
    case 1: image = IModuleImage::create("vmlinux-x86_64", arch_Unknown, false); break;
    case 2: image = IModuleImage::create(compressed.path().c_str(), arch_Unknown, false); break;
    default: image = IModuleImage::create(kernel.path(), arch_Em181, (data[0] & 4) != 0); break;
    }
    Named resolver(list.path());
    SymMgrObjectPtr<IModuleSymbolBank> bank;
    if (IModuleSymbolBank::create(bank, image, &resolver, true, "") == status_Ok) {
        askAll(*bank, data, size);
        askAt(*bank, bank->preferredLoadAddress());
        askAt(*bank, 0xFFFFFFFF81000000);
    }
    return 0;
}
