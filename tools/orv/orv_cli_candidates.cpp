/// candidates: the files that may hold a module's debug information, and why each was taken or not.

#include "orv_cli_commands.h"
#include "orv_cli_output.h"
#include "orv_cli_resolver.h"

#include <cstdio>
#include <filesystem>
#include <unistd.h>
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

/// A candidate that keeps what it is offered.
class Watched final : public SymMgrObject<ISymbolFileToResolve> {
public:
    Watched(SymMgrObjectPtr<ISymbolFileToResolve> candidate, Kind kind)
        : m_candidate(std::move(candidate)), m_kind(kind), m_sought(m_candidate->symbolFileName()) {}

    char const* symbolFileName() override { return m_candidate->symbolFileName(); }
    char const* moduleFileName() override { return m_candidate->moduleFileName(); }
    symbol_file_format_t symbolFileFormat() override { return m_candidate->symbolFileFormat(); }
    symbol_file_validity_t validity() override { return m_candidate->validity(); }
    unsigned int candidateClassFlag() override { return m_candidate->candidateClassFlag(); }
    long long validateSymbolFile(char const* resolvedSymFile) override {
        long long const index = m_candidate->validateSymbolFile(resolvedSymFile);
        if (index < 0) {
            m_refused.emplace_back(resolvedSymFile);
        }
        return index;
    }

    Kind kind() const { return m_kind; }
    std::string const& sought() const { return m_sought; }
    std::vector<std::string> const& refused() const { return m_refused; }

private:
    SymMgrObjectPtr<ISymbolFileToResolve> m_candidate;
    Kind m_kind;
    std::string m_sought; ///< Before anybody has offered it a file.
    std::vector<std::string> m_refused;
};

using WatchedList = std::vector<SymMgrObjectPtr<Watched>>;

class WatchedIterator final : public SymMgrObject<IIterator<SymMgrObjectPtr<ISymbolFileToResolve>>> {
public:
    explicit WatchedIterator(WatchedList const& list) : m_list(list) {}
    SymMgrObjectPtr<ISymbolFileToResolve> current() override {
        return m_at < m_list.size() ? SymMgrObjectPtr<ISymbolFileToResolve>(m_list[m_at].get())
                                    : SymMgrObjectPtr<ISymbolFileToResolve>();
    }
    bool next() override {
        m_at += m_at < m_list.size() ? 1 : 0;
        return m_at < m_list.size();
    }
    void reset() override { m_at = 0; }

private:
    WatchedList const& m_list;
    std::size_t m_at = 0;
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

char const* whyTaken(Kind kind) {
    switch (kind) {
    case Kind::BuildId: return "the build id is the module's";
    case Kind::DebugLink: return "the CRC is the one that the module names";
    default: return "it has debug information";
    }
}

std::string whyRefused(std::string const& path, Kind kind) {
    std::error_code ignored;
    if (::access(path.c_str(), R_OK) != 0) {
        return path + " cannot be opened";
    }
    if (!std::filesystem::is_regular_file(path, ignored)) {
        return path + " is no regular file";
    }
    return kind == Kind::Module ? "it takes the module and nothing else" : path + " belongs to another build";
}

std::string whyNot(Watched& candidate, bool isAnotherTaken, CommonOptions const& common, Resolver const& resolver) {
    if (common.noDebugInfo) {
        return "--no-debug-info: nothing is looked for";
    }
    if (!candidate.refused().empty()) {
        return whyRefused(candidate.refused().front(), candidate.kind());
    }
    switch (candidate.validity()) {
    case symbolFileValid: return "it would do, but another one stands in front of it";
    case symbolFileRefused: return "it holds no debug information";
    case symbolFileMismatch:
        return "beside the module is a file of that name, with another CRC: it belongs to another build";
    default: break;
    }
    if (isAnotherTaken) {
        return "not looked for any further: another one is taken";
    }
    bool const isOfBuildId = candidate.kind() == Kind::BuildId;
    return std::string("no such file ") + resolver.places(isOfBuildId);
}

} // namespace

int candidates(std::string const& moduleName, CommonOptions const& common) {
    std::error_code ignored;
    bool const isFile = ::access(moduleName.c_str(), R_OK) == 0 && !std::filesystem::is_directory(moduleName, ignored);
    SymMgrObjectPtr<IFileFormatLoader> loader;
    SymMgrObjectPtr<IIterator<SymMgrObjectPtr<ISymbolFileToResolve>>> list;
    status_t status =
        isFile ? IFileFormatLoader::create(loader, IModuleImage::create(moduleName.c_str(), common.arch, false), "")
               : status_CantOpenFile;
    if (status == status_Ok) {
        status = loader->symbolFiles(list);
    }
    if (failed(status)) {
        throw Failure(moduleName + ": " + describe(status));
    }
    WatchedList watched;
    for (auto candidate = list->current(); candidate; candidate = list->current()) {
        watched.emplace_back(new Watched(candidate, kindOf(*candidate)));
        list->next();
    }
    Resolver resolver(common);
    SymMgrObjectPtr<IIterator<SymMgrObjectPtr<ISymbolFileToResolve>>> iterator(new WatchedIterator(watched));
    long long const taken = watched.empty() || common.noDebugInfo ? -1 : resolver.resolveSymbolFile(iterator);
    for (std::size_t i = 0; i < watched.size(); ++i) {
        Watched& candidate = *watched[i];
        bool const isTaken = static_cast<long long>(i) == taken;
        std::string const name = isTaken ? candidate.symbolFileName() : candidate.sought();
        std::string const reason =
            isTaken ? whyTaken(candidate.kind()) : whyNot(candidate, taken >= 0, common, resolver);
        if (common.json) {
            Json object;
            object["kind"] = nameOf(candidate.kind());
            object["format"] = nameOfSymbolFormat(candidate.symbolFileFormat());
            object["validity"] = candidate.validity();
            object["taken"] = isTaken;
            object["name"] = name;
            object["reason"] = reason;
            printJson(object);
        } else {
            std::printf("%-7s  %-13s  %s\n                        %s\n", isTaken ? "taken" : "-",
                        nameOf(candidate.kind()), name.c_str(), reason.c_str());
        }
    }
    if (taken < 0 && !common.json) {
        std::printf("none is taken: ELF symbols alone answer; install the package that has the debug information, or "
                    "say where it is by --debug-root, --symbol-file or --debuginfod\n");
    }
    resolver.finish(moduleName);
    finishOutput();
    return 0;
}

} // namespace orv_cli
