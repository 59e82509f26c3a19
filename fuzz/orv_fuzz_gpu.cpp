// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// GPU kernels: the first byte says which family, the second how large the binary is, and the rest is the program file
/// beside it. The kernel is "k".

#include "orv_fuzz_input.h"

#include <algorithm>
#include <cstdlib>

using namespace orv_fuzz;

namespace {

/// A binary with a program file under the names that they are known by, for as long as the process.
class Program {
public:
    Program() {
        if (::mkdtemp(m_folder.data()) == nullptr || ::symlink(m_binary.path(), path(".clbin").c_str()) != 0 ||
            ::symlink(m_programFile.path(), path(".clpdb").c_str()) != 0) {
            std::abort();
        }
    }
    ~Program() {
        ::unlink(path(".clbin").c_str());
        ::unlink(path(".clpdb").c_str());
        ::rmdir(m_folder.c_str());
    }
    std::string path(char const* extension) const { return m_folder + "/k" + extension; }
    bool write(std::size_t binarySize, std::uint8_t const* data, std::size_t size) const {
        std::string const code(binarySize, 'c');
        return m_binary.write(code.data(), code.size()) && m_programFile.write(data, size);
    }

private:
    InputFile m_binary;
    InputFile m_programFile;
    std::string m_folder = "/tmp/orv-fuzz-XXXXXX";
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
    static Program const program;
    if (size < 2 || !program.write(data[1], data + 2, size - 2)) {
        return 0;
    }
    auto const family = static_cast<arch_t>(arch_VexRln1 + data[0] % 4);
    SymMgrObjectPtr<IModuleSymbolBank> bank;
    auto const image = IModuleImage::create(program.path(".clbin").c_str(), family, false);
    if (IModuleSymbolBank::create(bank, image, nullptr, true, "k") == status_Ok) {
        askAll(*bank, data, size);
        for (unsigned long long address = 0; address < data[1]; address += 4) {
            askAt(*bank, address);
        }
    }
    return 0;
}
