// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
// Program files are asked for their kernels, and why one has no lines only where the bank knows none.
#include "orv_cli_gpu.h"

#include "orv_cli_outcomes.h"
#include "orv_cli_output.h"

#include <algorithm>

namespace orv_cli {
namespace {

using ProgramFile = SymMgrObjectPtr<IProgramFile>;

ProgramFile openProgramFile(char const* path, arch_t family) {
    ProgramFile file;
    IProgramFile::create(file, path, family);
    return file;
}

std::vector<std::string> kernelsIn(ProgramFile const& file) {
    std::vector<std::string> names;
    for (unsigned int i = 0; file && i < file->kernelCount(); ++i) {
        if (*file->kernelName(i) != '\0') { // nobody can ask for one without a name
            names.emplace_back(file->kernelName(i));
        }
    }
    return names;
}

/// Names come from a file, and go to a terminal; there are a thousand at most, of any length.
std::string listOf(std::vector<std::string> const& names) {
    constexpr std::size_t k_longestList = std::size_t{1} << 16;
    std::string list;
    for (std::size_t i = 0; i < names.size(); ++i) {
        std::string const shown = printable(names[i]);
        if (list.size() + shown.size() > k_longestList) {
            return list + (i == 0 ? "" : " and ") + std::to_string(names.size() - i) +
                   (i == 0 ? " with long names" : " others");
        }
        list += (i == 0 ? "" : ", ") + shown;
    }
    return list;
}

/// Empty where none is found.
std::string programFileOf(Module& module) {
    Candidates candidates;
    if (failed(module.loader().symbolFiles(candidates))) {
        return {};
    }
    long long const taken = module.resolver().resolveSymbolFile(candidates);
    std::string name;
    long long index = 0;
    candidates->reset();
    forEach(candidates, [&](auto const& candidate) { name = index++ == taken ? candidate->symbolFileName() : name; });
    return name;
}

/// A look at the first addresses: a kernel that has lines has them from the beginning, with a few exceptions.
bool hasLinesAtOnce(IModuleSymbolBank& bank) {
    constexpr unsigned long long k_looks = 256;
    SymMgrObjectPtr<ISourceLocation> line;
    for (unsigned long long value = 0; !line && value < std::min(k_looks, bank.imageSize()); ++value) {
        SymMgrObjectPtr<IAddress> address;
        if (bank.addressByValue(value, address) == status_Ok) {
            bank.sourceLocationByAddress(address.get(), line, ~0ULL, nullptr);
        }
    }
    return static_cast<bool>(line);
}

/// What becomes of a kernel's lines, in words; empty if they are there.
char const* whyNoLines(kernel_lines_t lines) {
    switch (lines) {
    case kernel_lines_NoSource:
        return "has lines of files alone: those of a source that was compiled from memory are kept, and no others";
    case kernel_lines_Interleaved:
        return "has lines that are interleaved, as where those of a header lie between, and such a table is not read: "
               "put what the kernel includes into its source";
    case kernel_lines_Damaged:
        return "has lines that are damaged, or none, or --arch names the wrong family: its symbol answers";
    default: return "";
    }
}

} // namespace

bool isGpuFamily(arch_t arch) { return arch >= arch_VexRln1 && arch <= arch_VexQdc2; }

bool hasProgramFile(IModuleSymbolBank& bank) {
    return bank.symFileFormat() == symbolFormatVexRln || bank.symFileFormat() == symbolFormatVexQdc;
}

bool isGpuBinaryName(std::string const& name) { return name.find(".clbin") != std::string::npos; }

std::string onlyKernel(Module& module, CommonOptions const& options) {
    if (!isGpuFamily(options.arch) || module.loader().fileFormat() != exec_format_Vex) {
        return {};
    }
    std::string const path = programFileOf(module);
    if (path.empty()) {
        return {};
    }
    std::vector<std::string> const names = kernelsIn(openProgramFile(path.c_str(), options.arch));
    if (names.empty()) {
        note(path + ": names no kernel, as it is damaged, or --arch names the wrong family: the binary alone answers",
             options);
    } else if (names.size() > 1) {
        note(module.name() + ": is one kernel of the " + std::to_string(names.size()) + " in " + path +
                 ": say which by --target-name: " + listOf(names),
             options);
    }
    return names.size() == 1 ? names.front() : std::string();
}

void noteKernelLines(Module& module, CommonOptions const& options) {
    IModuleSymbolBank& bank = module.bank();
    if (options.targetName.empty() || hasLinesAtOnce(bank)) {
        return;
    }
    ProgramFile const file = openProgramFile(bank.symFileName(), bank.architecture());
    std::vector<std::string> const names = kernelsIn(file);
    if (file && std::find(names.begin(), names.end(), options.targetName) == names.end()) {
        throw Failure(std::string(bank.symFileName()) + ": has no kernel " + options.targetName +
                      (names.empty() ? ", nor any other: leave out --target-name"
                                     : ": give one of these by --target-name: " + listOf(names)));
    }
    kernel_lines_t lines = kernel_lines_Damaged;
    if (file) {
        file->kernelLines(options.targetName.c_str(), lines);
    }
    if (char const* const why = whyNoLines(lines); *why != '\0') {
        note(std::string(bank.symFileName()) + ": kernel " + printable(options.targetName) + ": " + why, options);
    }
}

std::vector<std::string> kernelsOf(Module& module) {
    IModuleSymbolBank& bank = module.bank();
    return hasProgramFile(bank) ? kernelsIn(openProgramFile(bank.symFileName(), bank.architecture()))
                                : std::vector<std::string>();
}

} // namespace orv_cli
