// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// candidates: the files that may hold a module's debug information, and why each was taken or not.

#include "orv_cli_commands.h"
#include "orv_cli_output.h"
#include "orv_cli_resolver.h"

#include <cstdio>

namespace orv_cli {
namespace {

char const* nameOf(CandidateKind kind) {
    switch (kind) {
    case CandidateKind::BuildId: return "build id";
    case CandidateKind::DebugLink: return "debug link";
    case CandidateKind::Module: return "module itself";
    case CandidateKind::KernelList: return "kernel list";
    case CandidateKind::ProgramFile: break;
    }
    return "program file";
}

char const* whyTaken(CandidateKind kind) {
    switch (kind) {
    case CandidateKind::BuildId: return "the build id is the module's";
    case CandidateKind::DebugLink: return "the CRC is the one that the module names";
    case CandidateKind::KernelList: return "it stands beside the kernel, or was named";
    case CandidateKind::ProgramFile: return "it stands beside the binary, or was named";
    default: return "it has debug information";
    }
}

} // namespace

int candidates(std::string const& moduleName, CommonOptions const& common) {
    SymMgrObjectPtr<IFileFormatLoader> loader;
    SymMgrObjectPtr<IIterator<SymMgrObjectPtr<ISymbolFileToResolve>>> list;
    status_t status = IFileFormatLoader::create(loader, imageOf(moduleName, common), common.targetName.c_str());
    if (status == status_Ok) {
        status = loader->symbolFiles(list);
    }
    if (failed(status)) {
        throw failureOf(moduleName, status);
    }
    Resolver resolver(common);
    bool const isTaken = resolver.resolveSymbolFile(list) >= 0;
    for (CandidateOutcome const& outcome : resolver.outcomes()) {
        std::string const name = outcome.isTaken ? outcome.name : outcome.sought;
        std::string const reason = outcome.isTaken ? whyTaken(outcome.kind) : resolver.whyNot(outcome);
        if (common.json) {
            printJson({{"kind", nameOf(outcome.kind)},
                       {"format", nameOfSymbolFormat(outcome.format)},
                       {"validity", outcome.validity},
                       {"taken", outcome.isTaken},
                       {"name", name},
                       {"reason", reason}});
        } else {
            std::printf("%-7s  %-13s  %s\n                        %s\n", outcome.isTaken ? "taken" : "-",
                        nameOf(outcome.kind), name.c_str(), reason.c_str());
        }
    }
    if (!isTaken && !common.json && loader->fileFormat() == exec_format_Vex) {
        std::printf("none is taken: the binary alone answers; put its program file beside it, or name it by "
                    "--symbol-file\n");
    } else if (!isTaken && !common.json) {
        std::printf("none is taken: ELF symbols alone answer; install the package that has the debug information, or "
                    "say where it is by --debug-root, --symbol-file or --debuginfod\n");
    }
    resolver.finish(moduleName);
    finishOutput();
    return 0;
}

} // namespace orv_cli
