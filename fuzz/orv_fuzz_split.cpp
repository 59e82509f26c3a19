// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// Split units: a module with skeletons, a file of split units and a package, whose debug sections are the input's.
///
/// The input is a row of sections: a byte for which, two for the length, the bytes.

#include "orv/orv_reading.h"
#include "orv_fuzz_input.h"
#include "support/orv_elf_builder.h"

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <iterator>

using namespace orv_fuzz;
using orv_test::ElfBuilder;

namespace {

constexpr char const* k_ofModule[] = {".debug_info",        ".debug_abbrev", ".debug_str",
                                      ".debug_line",        ".debug_ranges", ".debug_rnglists",
                                      ".debug_str_offsets", ".debug_addr",   ".debug_line_str"};
constexpr char const* k_ofSplitFile[] = {".debug_info.dwo",        ".debug_abbrev.dwo",   ".debug_str.dwo",
                                         ".debug_str_offsets.dwo", ".debug_rnglists.dwo", ".debug_loc.dwo",
                                         ".debug_loclists.dwo",    ".debug_cu_index"};
constexpr std::size_t k_sectionCount = std::size(k_ofModule) + std::size(k_ofSplitFile);

/// Three files in a folder that goes with the process.
class Folder {
public:
    Folder() {
        char pattern[] = "/dev/shm/orv-fuzz-XXXXXX";
        m_path = ::mkdtemp(pattern);
    }
    ~Folder() {
        for (char const* const name : {"m", "m.dwp", "u.dwo"}) {
            ::unlink(at(name).c_str());
        }
        ::rmdir(m_path.c_str());
    }
    Folder(Folder const&) = delete;
    Folder& operator=(Folder const&) = delete;
    std::string at(char const* name) const { return m_path + "/" + name; }
    void write(char const* name, std::string const& bytes) const {
        std::ofstream(at(name), std::ios::binary | std::ios::trunc) << bytes;
    }

private:
    std::string m_path;
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
    static Folder const folder;
    setReading(reading_Modern);
    ElfBuilder module;
    ElfBuilder splitFile;
    module.load(PF_R | PF_X, 0x1000, 0x10000);
    module.section(".text", SHT_PROGBITS, SHF_ALLOC | SHF_EXECINSTR, 0x1000, std::string(0x400, '\x90'));
    module.symbol("f", STB_GLOBAL, STT_FUNC, 0x1000, 0x20);
    for (std::size_t at = 0; at + 3 <= size;) {
        std::size_t const length = std::min<std::size_t>(data[at + 1] | data[at + 2] << 8, size - at - 3);
        std::string const bytes(reinterpret_cast<char const*>(data + at + 3), length);
        std::size_t const which = data[at] % k_sectionCount;
        if (which < std::size(k_ofModule)) {
            module.section(k_ofModule[which], SHT_PROGBITS, 0, 0, bytes);
        } else {
            splitFile.section(k_ofSplitFile[which - std::size(k_ofModule)], SHT_PROGBITS, 0, 0, bytes);
        }
        at += 3 + length;
    }
    std::string const split = splitFile.bytes();
    folder.write("m", module.bytes());
    folder.write("u.dwo", split);
    folder.write("m.dwp", split);
    SymMgrObjectPtr<ISymbolManager> manager;
    ISymbolManager::create(manager);
    SymMgrObjectPtr<IModuleSymbolBank> bank;
    if (manager->loadSymbolsFromModule(folder.at("m").c_str(), nullptr, bank, arch_Unknown, true, "") != status_Ok) {
        std::abort(); // broken debug information never fails a load
    }
    if (size > 3 && (data[size - 1] & 1) != 0) {
        bank->prefetcher()->putRVA(0x10);
    }
    askAt(*bank, 0x1000);
    Ranges it;
    bank->originalSymbolRanges(it, k_allKinds, nullptr, nullptr);
    walk(it);
    for (unsigned long long address = 0x1000; address < 0x1100; address += 0x13) {
        askAt(*bank, address);
    }
    return 0;
}
