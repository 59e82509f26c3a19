// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
// A module and its bank, and what is said when they can't be read.
#include "orv_cli_module.h"

#include "orv_cli_compression.h"
#include "orv_cli_gpu.h"
#include "orv_cli_kernel.h"
#include "orv_cli_laid_out.h"
#include "orv_cli_oat.h"
#include "orv_cli_resolver.h"

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <elf.h>
#include <filesystem>
#include <mutex>
#include <set>
#include <unistd.h>
#include <utility>
#include <vector>

namespace orv_cli {
void note(std::string const& text, CommonOptions const& options) {
    static std::mutex lock;
    static std::set<std::string> said; // a module may be read again, and from several threads
    std::lock_guard<std::mutex> const guard(lock);
    if (options.quiet || !said.insert(text).second) {
        return;
    }
    std::fflush(stdout);
    std::fprintf(stderr, "%sorv: %s\n", ::isatty(STDERR_FILENO) != 0 ? "\r\033[K" : "", text.c_str());
}

std::string libraryName(std::string const& name) {
    bool const isPlain = name.compare(0, 2, "..") != 0 && name.find("/..") == std::string::npos;
    std::unique_ptr<char, decltype(&std::free)> const real(isPlain ? nullptr : ::realpath(name.c_str(), nullptr),
                                                           &std::free);
    return real ? std::string(real.get()) : name;
}

SymMgrObjectPtr<IModuleImage> imageOf(std::string const& name, CommonOptions const& options) {
    constexpr std::string_view k_kernel = "vmlinu"; // one that is named without its folder need not be there
    std::error_code ignored;
    bool const isFolder = std::filesystem::is_directory(name, ignored);
    if (isFolder || (name.rfind(k_kernel, 0) != 0 && ::access(name.c_str(), R_OK) != 0)) {
        throw failureOf(name, status_CantOpenFile);
    }
    SymMgrObjectPtr<IModuleImage> image =
        IModuleImage::create(libraryName(name).c_str(), options.arch, options.offload);
    if (!image) {
        throw failureOf(name, status_BadFileFormat);
    }
    if (options.offload && image->imageOffset() == 0) {
        throw Failure(name +
                      ": carries no binary for an offload processor in its section .rodata: leave out --offload");
    }
    return image;
}

Failure failureOf(std::string const& name, status_t status) {
    bool const isKernel = status == status_CantOpenFile && name.find("vmlinu") != std::string::npos;
    if (status == status_Fail && isGpuBinaryName(name)) {
        return Failure(name + ": is a GPU kernel's binary, and nothing in it tells for which family: give --arch rln1, "
                              "rln2, qdc1 or qdc2, after the compiler");
    }
    return Failure(name + ": " + describe(status) +
                   (isKernel ? "; a kernel that is not on the disk is named without its folder, from inside it" : ""));
}

char const* describe(status_t status) {
    switch (status) {
    case status_CantOpenFile: return "cannot be opened: no such file, no permission to read it, or a directory";
    case status_BadFileFormat:
        return reading() == reading_Modern
                   ? "is not a module that orv reads, or is damaged: it takes ELF files for x86, x86-64, ARM, AArch64, "
                     "RISC-V 64 and little-endian PowerPC 64, and GPU kernels with .clbin in their names"
                   : "is not a module that orv reads, or is damaged: it takes ELF files for x86, x86-64 and ARM, and "
                     "GPU kernels with .clbin in their names";
    case status_OutOfMemory: return "needs more memory than there is";
    case status_UnsupportedFileVersion: return "has debug information of an unsupported version";
    case status_NoDebugInfo: return "has no debug information";
    default: return toUString(status);
    }
}

std::string describeDebugInfo(status_t status, unsigned int format) {
    if (format == symbolFormatOat && status != status_OutOfMemory) {
        return status == status_UnsupportedFileVersion
                   ? "the OAT data are of another version than 7, 14, 15 and 22 to 28, or of a DEX file of another one "
                     "than 035: what is in front of that, and ELF symbols, answer"
                   : "the OAT data are damaged: what can be read of them, and ELF symbols, answer";
    }
    switch (status) {
    case status_UnsupportedFileVersion:
        return "the debug information is of a DWARF version above 4: ELF symbols answer in its place; -gdwarf-4 gives "
               "what orv can read";
    case status_OutOfMemory:
        return "the debug information needs more memory than there is: ELF symbols answer in its place";
    default: return "the debug information is damaged: ELF symbols answer in its place";
    }
}

std::map<std::string, arch_t> const k_architectures = {
    {"unknown", arch_Unknown}, {"x86", arch_X86},         {"em50", arch_Em50},    {"x86-64", arch_X86_64},
    {"arm", arch_Arm},         {"em180", arch_Em180},     {"em181", arch_Em181},  {"rln1", arch_VexRln1},
    {"rln2", arch_VexRln2},    {"qdc1", arch_VexQdc1},    {"qdc2", arch_VexQdc2}, {"arm64", arch_Aarch64},
    {"riscv64", arch_Riscv64}, {"ppc64le", arch_Ppc64le},
};

char const* nameOf(arch_t arch) {
    auto const known = std::find_if(k_architectures.begin(), k_architectures.end(),
                                    [&](auto const& entry) { return entry.second == arch; });
    return known != k_architectures.end() ? known->first.c_str() : "unknown";
}

char const* nameOf(exec_format_t format) {
    switch (format) {
    case exec_format_Elf: return "ELF";
    case exec_format_Vex: return "GPU binary";
    default: return "unknown";
    }
}

char const* nameOfSymbolFormat(unsigned int format) {
    switch (format) {
    case symbolFormatDwarf: return "DWARF";
    case symbolFormatSystemMap: return "kernel symbol list";
    case symbolFormatOat: return "OAT";
    case symbolFormatVexRln: return "RLN";
    case symbolFormatVexQdc: return "QDC";
    default: return "none";
    }
}

Module& Module::load(std::string name, CommonOptions const& options, View view) {
    static std::vector<Module*> modules; // reachable, and never taken down
    modules.push_back(new Module(std::move(name), options, view));
    return *modules.back();
}

Module::Module(std::string name, CommonOptions const& options, View view)
    : m_name(std::move(name)), m_options(options), m_resolver(std::make_unique<Resolver>(m_options)) {
    m_image = imageOf(m_name, m_options);
    m_hasAddresses = reading() == reading_Modern && isRelocatable(*m_image);
    m_isLaidOut = view == View::LaidOut && m_hasAddresses;
    if (view == View::LaidOut && !m_hasAddresses) {
        layOut();
    }
    if (m_options.targetName.empty()) {
        m_options.targetName = onlyKernel(*this, m_options);
        m_loader = nullptr; // made without the name
    }
    status_t status = ISymbolManager::create(m_manager);
    if (status == status_Ok) {
        status = loadBank();
    }
    if (status != status_Ok) {
        throw failureOf(m_name, status);
    }
    m_resolver->finish(m_name);
    if (!m_options.missingIsFailure) {
        noteKernelList(*this, m_options);
    }
    if (hasProgramFile(*m_bank)) {
        noteKernelLines(*this, m_options);
        m_kernelName = m_options.targetName;
    }
    m_unread = m_options.noDebugInfo ? std::string() : unreadSections(*this, m_image);
    std::string const missing = missingDebugInfo();
    if (!missing.empty() && !m_options.missingIsFailure) {
        note(m_name + ": " + missing, m_options);
    }
    if (!m_options.missingIsFailure) {
        noteUnread();
    }
}

/// For a library that does not do it by itself.
void Module::layOut() {
    SymMgrObjectPtr<IModuleImage> const laidOut = laidOutImage(m_image);
    m_isLaidOut = static_cast<bool>(laidOut);
    if (m_isLaidOut && !m_options.offload) {
        m_image = laidOut;
    }
}

status_t Module::loadBank() {
    if ((m_isLaidOut && !m_hasAddresses) || m_options.offload) {
        return IModuleSymbolBank::create(m_bank, m_image, m_resolver.get(), true, m_options.targetName.c_str());
    }
    unsigned int const flags = m_options.noDebugInfo ? load_flags_NoDebugInfo : load_flags_None;
    return m_manager->loadSymbolsFromModuleEx(libraryName(m_name).c_str(), m_resolver.get(), m_bank, m_options.arch,
                                              flags, m_options.targetName.c_str());
}

Module::~Module() = default;

std::string Module::missingDebugInfo() {
    std::string unread = m_options.noDebugInfo ? std::string() : unreadOat(*this);
    if (!unread.empty()) {
        return unread;
    }
    std::string const missing = m_resolver->missing(*m_bank);
    std::string const family = isGpuFamily(m_options.arch) ? std::string("--arch ") + nameOf(m_options.arch) + ' ' : "";
    return missing.empty() ? missing : missing + ": see 'orv candidates " + family + m_name + "'";
}

ISymbolFileResolver& Module::resolver() { return *m_resolver; }

status_t Module::symbolRangeByAddress(IAddress& address, SymMgrObjectPtr<ISymbolRange>& out, symbol_kind_t mask) {
    return load([&] { return m_bank->symbolRangeByAddress(&address, out, mask, nullptr); });
}

void Module::noteBadDebugInfo(status_t status) {
    if (status != status_NoDebugInfo) {
        note(m_name + ": " + whyBadDebugInfo(status), m_options);
    }
}

void Module::noteUnread() const {
    if (!m_unread.empty()) {
        note(m_name + ": " + m_unread, m_options);
    }
}

std::string Module::whyBadDebugInfo(status_t status) const {
    bool const isUnread = status != status_OutOfMemory && !m_unread.empty();
    return isUnread ? m_unread : describeDebugInfo(status, m_bank->symFileFormat());
}

IFileFormatLoader& Module::loader() {
    if (!m_loader) {
        status_t const status = IFileFormatLoader::create(m_loader, m_image, m_options.targetName.c_str());
        if (status != status_Ok) {
            throw failureOf(m_name, status);
        }
    }
    return *m_loader;
}

bool Module::is32Bit() {
    if (isListedKernel() && m_bank->preferredLoadAddress() > 0xFFFFFFFF) {
        return false; // whatever the headers that were made up for it say
    }
    unsigned char fileClass = 0;
    return m_bank->execFileFormat() == exec_format_Elf && m_image->read(EI_CLASS, 1, &fileClass) == 1 &&
           fileClass == ELFCLASS32;
}

bool parseAddress(std::string_view text, unsigned long long& out) {
    bool const hasPrefix = text.substr(0, 2) == "0x" || text.substr(0, 2) == "0X";
    char const* const end = text.data() + text.size();
    unsigned long long value = 0;
    auto const [last, error] = std::from_chars(text.data() + (hasPrefix ? 2 : 0), end, value, 16);
    bool const isAddress = error == std::errc() && last == end;
    out = isAddress ? value : out;
    return isAddress;
}

} // namespace orv_cli
