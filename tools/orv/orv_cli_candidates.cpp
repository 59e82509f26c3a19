/// candidates: the files that may hold a module's debug information, and why each was taken or not.

#include "orv_cli_commands.h"
#include "orv_cli_output.h"
#include "orv_cli_resolver.h"

#include <cstdio>
#include <filesystem>
#include <vector>

namespace orv_cli {
namespace {

enum class Kind { BuildId, DebugLink, Module, Other };

char const* nameOf(Kind kind) {
    switch (kind) {
    case Kind::BuildId: return "build id";
    case Kind::DebugLink: return "debug link";
    case Kind::Module: return "module itself";
    default: return "other";
    }
}

/// A candidate as it stood before anybody has offered it a file.
struct View {
    SymMgrObjectPtr<ISymbolFileToResolve> candidate;
    Kind kind;
    std::string sought;
};

Kind kindOf(ISymbolFileToResolve& candidate) {
    if (candidate.symbolFileFormat() != symbolFormatDwarf) {
        return Kind::Other;
    }
    if (!wantedBuildId(candidate).empty()) {
        return Kind::BuildId;
    }
    // What stands for the module itself is valid from the first, and names it.
    std::error_code ignored;
    bool const isOwn = candidate.validity() == symbolFileValid &&
                       std::filesystem::equivalent(candidate.symbolFileName(), candidate.moduleFileName(), ignored);
    return isOwn ? Kind::Module : Kind::DebugLink;
}

std::string reasonOf(View const& view, bool isTaken, Resolver const& resolver) {
    ISymbolFileToResolve& candidate = *view.candidate;
    if (isTaken) {
        return view.kind == Kind::BuildId     ? "the build id is the module's"
               : view.kind == Kind::DebugLink ? "the CRC is the one that the module names"
                                              : "it has debug information";
    }
    switch (candidate.validity()) {
    case symbolFileValid: return "would do, but another one stands in front of it or was asked for";
    case symbolFileRefused: return "it holds no debug information";
    case symbolFileMismatch: return "a file of that name is there, but its CRC is another: it belongs to another build";
    case symbolFileNotFound:
        return view.kind == Kind::BuildId
                   ? "no file of that build id under " + resolver.places()
                   : "no such file beside the module, in .debug there, or under " + resolver.places();
    default: return "it was not checked";
    }
}

} // namespace

int candidates(std::string const& moduleName, CommonOptions const& common) {
    SymMgrObjectPtr<IFileFormatLoader> loader;
    status_t status =
        IFileFormatLoader::create(loader, IModuleImage::create(moduleName.c_str(), common.arch, false), "");
    SymMgrObjectPtr<IIterator<SymMgrObjectPtr<ISymbolFileToResolve>>> list;
    if (status == status_Ok) {
        status = loader->symbolFiles(list);
    }
    if (failed(status)) {
        throw Failure(moduleName + ": " + describe(status));
    }
    std::vector<View> views;
    for (auto candidate = list->current(); candidate; candidate = list->current()) {
        views.push_back({candidate, kindOf(*candidate), candidate->symbolFileName()});
        list->next();
    }
    Resolver resolver(common);
    long long const taken = views.empty() || common.noDebugInfo ? -1 : resolver.resolveSymbolFile(list);
    for (std::size_t i = 0; i < views.size(); ++i) {
        View const& view = views[i];
        bool const isTaken = static_cast<long long>(i) == taken;
        std::string const name = isTaken ? view.candidate->symbolFileName() : view.sought;
        std::string const reason = reasonOf(view, isTaken, resolver);
        if (common.json) {
            Json object;
            object["kind"] = nameOf(view.kind);
            object["format"] = nameOfSymbolFormat(view.candidate->symbolFileFormat());
            object["validity"] = view.candidate->validity();
            object["taken"] = isTaken;
            object["name"] = name;
            object["reason"] = reason;
            printJson(object);
        } else {
            std::printf("%-7s  %-13s  %s\n                        %s\n", isTaken ? "taken" : "-", nameOf(view.kind),
                        name.c_str(), reason.c_str());
        }
    }
    if (taken < 0 && !common.json) {
        std::printf("none is taken: ELF symbols alone answer\n");
    }
    resolver.finish(moduleName);
    finishOutput();
    return 0;
}

} // namespace orv_cli
