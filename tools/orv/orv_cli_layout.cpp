// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// info, sections and segments: what the headers of a module say.

#include "orv_cli_commands.h"
#include "orv_cli_compression.h"
#include "orv_cli_debug.h"
#include "orv_cli_gpu.h"
#include "orv_cli_oat.h"
#include "orv_cli_output.h"

#include <cstdio>
#include <map>

namespace orv_cli {
namespace {

/// Compiler and language, and how many units they made.
using Producers = std::map<std::pair<std::string, std::string>, std::size_t>;

Producers producersOf(Module& module, CommonOptions const& common) {
    Producers found;
    try {
        DebugInfo debug(module, common);
        for (ICompUnitDetails* const unit : debug.units()) {
            ++found[{unit->compilerName(), nameOfLanguage(unit->language())}];
        }
    } catch (Failure const& failure) {
        std::fprintf(stderr, "orv: %s\n", failure.what());
    }
    return found;
}

/// The module alone: what has its debug information makes no difference.
Module& loadHeaders(std::string const& name, CommonOptions const& common) {
    CommonOptions plain = common;
    plain.noDebugInfo = true;
    return Module::load(name, plain);
}

/// In hexadecimal digits; empty if it has none.
std::string buildIdOf(Module& module) {
    SymMgrObjectPtr<IIterator<SymMgrObjectPtr<ISymbolFileToResolve>>> candidates;
    if (module.loader().symbolFiles(candidates) != status_Ok) {
        return {};
    }
    for (auto candidate = candidates->current(); candidate; candidate = candidates->current()) {
        std::string id = wantedBuildId(*candidate);
        if (!id.empty()) {
            return id;
        }
        candidates->next();
    }
    return {};
}

void print(OatFacts const& oat) {
    std::printf("OAT version             %s\n", oat.version.c_str());
    std::printf("DEX files               %u\n", oat.dexFiles);
    std::printf("methods                 %zu\n", oat.methods);
}

char const* nameOfSegmentType(unsigned int type) { return type == 1 ? "code" : type == 2 ? "data" : "other"; }

} // namespace

int info(std::string const& moduleName, CommonOptions const& common) {
    Module& module = Module::load(moduleName, common);
    IModuleSymbolBank& bank = module.bank();
    SymMgrObjectPtr<IAddress> const entry = bank.entryPoint();
    std::string const buildId = buildIdOf(module);
    Producers const producers = bank.symFileFormat() == symbolFormatDwarf ? producersOf(module, common) : Producers();
    std::optional<OatFacts> const oat = oatFactsOf(module);
    std::vector<std::string> const kernels = kernelsOf(module);
    if (common.json) {
        Json object{{"file", moduleName},
                    {"format", nameOf(bank.execFileFormat())},
                    {"architecture", nameOf(bank.architecture())},
                    {"preferred_load_address", hex(bank.preferredLoadAddress())},
                    {"entry_point", entry ? Json(hex(entry->pseudoAddr())) : Json()},
                    {"image_size", bank.imageSize()},
                    {"build_id", buildId.empty() ? Json() : Json(buildId)},
                    {"symbol_file", bank.symFileName()},
                    {"symbol_file_format", nameOfSymbolFormat(bank.symFileFormat())},
                    {"memory_estimate", bank.memoryEstimate()},
                    {"producers", Json::array()}};
        for (auto const& [producer, count] : producers) {
            object["producers"].push_back(
                {{"compiler", producer.first}, {"language", producer.second}, {"units", count}});
        }
        if (oat) {
            object["oat"] = {{"version", oat->version}, {"dex_files", oat->dexFiles}, {"methods", oat->methods}};
        }
        if (bank.execFileFormat() == exec_format_Vex) {
            std::string const& kernel = module.kernelName();
            object["gpu"] = {{"kernel", kernel.empty() ? Json() : Json(kernel)}, {"kernels", kernels}};
        }
        printJson(object);
    } else {
        std::printf("file                    %s\n", moduleName.c_str());
        std::printf("format                  %s\n", nameOf(bank.execFileFormat()));
        std::printf("architecture            %s\n", nameOf(bank.architecture()));
        std::printf("preferred load address  %s\n", hex(bank.preferredLoadAddress()).c_str());
        std::printf("entry point             %s\n", entry ? hex(entry->pseudoAddr()).c_str() : "none");
        std::printf("image size              %llu bytes\n", bank.imageSize());
        std::printf("build id                %s\n", buildId.empty() ? "none" : buildId.c_str());
        std::printf("symbol file             %s\n", bank.symFileName());
        std::printf("symbol file format      %s\n", nameOfSymbolFormat(bank.symFileFormat()));
        std::printf("memory estimate         %llu bytes\n", bank.memoryEstimate());
        if (oat) {
            print(*oat);
        }
        if (bank.execFileFormat() == exec_format_Vex) {
            std::printf("kernel                  %s\n",
                        module.kernelName().empty() ? "not known" : module.kernelName().c_str());
        }
        for (std::string const& kernel : kernels) {
            std::printf("%-22s  %s\n", &kernel == &kernels.front() ? "kernels" : "", kernel.c_str());
        }
        for (auto const& [producer, count] : producers) {
            std::printf("%-22s  %zu of %s\n", "units", count, producer.second.c_str());
            std::printf("%-22s  %s\n", "  compiled by", producer.first.c_str());
        }
    }
    finishOutput();
    return 0;
}

int sections(std::string const& moduleName, CommonOptions const& common) {
    Module& module = loadHeaders(moduleName, common);
    std::map<unsigned int, CompressedSection> compressed;
    for (CompressedSection& found : compressedSections(*imageOf(moduleName, common))) {
        compressed.emplace(found.index, std::move(found));
    }
    SymMgrObjectPtr<ISection> section;
    module.loader().sectionByIndex(section, 0);
    if (section && !common.json) {
        std::printf("%5s  %-16s  %-16s  %-16s  %s\n", "index", "address", "file offset", "size", "name");
    }
    for (unsigned int index = 0; section; module.loader().sectionByIndex(section, ++index)) {
        auto const packing = compressed.find(index);
        if (common.json) {
            Json object{{"index", index},
                        {"name", section->name()},
                        {"address", hex(section->address())},
                        {"file_offset", hex(section->fileOffset())},
                        {"size", section->size()}};
            if (packing != compressed.end()) {
                object["compression"] = nameOfCompression(packing->second.type);
                object["uncompressed_size"] = packing->second.size;
            }
            printJson(object);
            continue;
        }
        std::printf("%5u  %016llx  %016llx  %016llx  %s", index, section->address(), section->fileOffset(),
                    section->size(), section->name());
        if (packing != compressed.end()) {
            std::printf("  (%s, %llx uncompressed)", nameOfCompression(packing->second.type).c_str(),
                        packing->second.size);
        }
        std::putchar('\n');
    }
    finishOutput();
    return 0;
}

int segments(std::string const& moduleName, CommonOptions const& common) {
    Module& module = loadHeaders(moduleName, common);
    SymMgrObjectPtr<IIterator<ISegment*>> list;
    if (module.bank().segments(list) == status_Ok) {
        if (!common.json) {
            std::printf("%-16s  %-16s  %-16s  %-16s  %-5s  %s\n", "address", "memory size", "file offset", "file size",
                        "type", "name");
        }
        forEach(list, [&](ISegment* segment) {
            unsigned long long const address = module.bank().preferredLoadAddress() + segment->rva();
            char const* const type = nameOfSegmentType(segment->type());
            if (common.json) {
                printJson({{"name", segment->name()},
                           {"type", type},
                           {"address", hex(address)},
                           {"rva", hex(segment->rva())},
                           {"memory_size", segment->memorySize()},
                           {"file_offset", hex(segment->fileOffset())},
                           {"file_size", segment->fileSize()}});
            } else {
                std::printf("%016llx  %016llx  %016llx  %016llx  %-5s  %s\n", address, segment->memorySize(),
                            segment->fileOffset(), segment->fileSize(), type, segment->name());
            }
        });
    }
    finishOutput();
    return 0;
}

} // namespace orv_cli
