// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// units, files and lines: what the debug information says of itself.

#include "orv_cli_debug.h"

#include "orv_cli_commands.h"
#include "orv_cli_output.h"
#include "orv_cli_progress.h"
#include "orv_cli_remarks.h"
#include "orv_cli_split.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

namespace orv_cli {
namespace {

constexpr unsigned long long k_allUnits = ~0ULL;

/// Little-endian; 0 where too few bytes are left.
unsigned long long numberAt(IBuffer& bytes, unsigned long long offset, unsigned int width) {
    unsigned long long value = 0;
    if (offset <= bytes.size() && width <= bytes.size() - offset) {
        std::memcpy(&value, bytes.data() + offset, width);
    }
    return value;
}

std::string versionOf(ICompUnitDetails& unit) {
    return std::to_string(unit.compilerMajorVersion()) + "." + std::to_string(unit.compilerMinorVersion());
}

/// True for a path that ends in the name, at the border of a component.
bool matchesName(char const* path, std::string const& name) {
    std::size_t const size = std::strlen(path);
    if (name.empty() || size < name.size() || std::strcmp(path + size - name.size(), name.c_str()) != 0) {
        return name.empty();
    }
    return size == name.size() || name.front() == '/' || path[size - name.size() - 1] == '/';
}

void printUnit(ICompUnitDetails& unit, bool json) {
    ISourceFile* const main = unit.mainSourceFile();
    if (json) {
        printJson({{"id", hex(unit.id())},
                   {"main_file", main != nullptr ? Json(main->path()) : Json()},
                   {"directory", unit.compilationDirectory()},
                   {"language", nameOfLanguage(unit.language())},
                   {"compiler", unit.compilerName()},
                   {"compiler_version", versionOf(unit)},
                   {"options", unit.compileOptions()}});
        return;
    }
    std::printf("%s  %s\n", hexColumn(unit.id()).c_str(), main != nullptr ? main->path() : "(no source file)");
    std::printf("    directory  %s\n", unit.compilationDirectory());
    std::printf("    language   %s\n", nameOfLanguage(unit.language()));
    std::printf("    compiler   %s\n", unit.compilerName());
    if (unit.compilerMajorVersion() != 0) {
        std::printf("    version    %s\n", versionOf(unit).c_str());
    }
    if (*unit.compileOptions() != '\0') {
        std::printf("    options    %s\n", unit.compileOptions());
    }
}

/// file: null for a source without one.
void printRow(ISourceFile* file, ISourceLine& line, unsigned long long end, Remarks const& remarks, bool json) {
    unsigned long long const from = startOf(line);
    ISourceLocation& place = *line.location();
    auto const inside = remarks.in(from, end);
    if (json) {
        Json object{{"start", hex(from)},
                    {"end", hex(end)},
                    {"file", file != nullptr ? Json(file->path()) : Json()},
                    {"line", place.line()},
                    {"column", place.column()},
                    {"discriminator", place.discriminator()},
                    {"unit", hex(place.unit())}};
        addRemarks(object, inside);
        printJson(object);
        return;
    }
    std::printf("%016llx-%016llx  %s:%u:%u", from, end, file != nullptr ? file->path() : "??", place.line(),
                place.column());
    if (place.discriminator() != 0) {
        std::printf(" (discriminator %llu)", place.discriminator());
    }
    std::putchar('\n');
    std::for_each(inside.first, inside.second, [](IOptReportEntry* remark) { printRemark(*remark, 4); });
}

/// A module for which missing debug information is a failure, so that it is told as one.
Module& load(std::string const& name, CommonOptions const& common) {
    CommonOptions options = common;
    options.missingIsFailure = true;
    return Module::load(name, options);
}

} // namespace

DebugInfo::DebugInfo(Module& module, CommonOptions const& common) : m_module(module) {
    std::string missing = module.missingDebugInfo();
    if (module.isListedKernel()) {
        missing = std::string("has its symbols from the list ") + module.bank().symFileName() +
                  ", which tells of no units, files and lines";
    }
    if (missing.empty() && module.bank().execFileFormat() == exec_format_Vex) {
        missing = "has no lines without its program file: leave out --no-debug-info";
    }
    Failure const none(
        module.name() + ": " +
        (missing.empty() ? "has no debug information that orv reads: compile with -g -gdwarf-4" : missing));
    if (common.noDebugInfo) {
        throw none;
    }
    IFileFormatLoader& loader = module.loader();
    SymMgrObjectPtr<IIterator<SymMgrObjectPtr<ISymbolFileToResolve>>> candidates;
    if (failed(loader.symbolFiles(candidates))) {
        throw none;
    }
    long long const index = candidates->current() ? module.resolver().resolveSymbolFile(candidates) : -1;
    Progress const progress("reading " + module.name());
    SymMgrObjectPtr<IDebugInfoLoader> found;
    loader.debugInfoLoader(found, index, 0);
    unsigned int const format = found ? found->symFileFormat() : 0;
    if (format == 0 || format == symbolFormatSystemMap) {
        throw none;
    }
    m_resolver = found->srcLineResolver(nullptr, nullptr);
    m_loader = found;
    if (!hasFiles()) {
        return; // lines are there from the beginning
    }
    // With no kind of symbols the units alone are read; methods of an OAT file come whatever the kind.
    m_symbols = isOat() ? ISymbolTable::create(nullptr) : SymMgrObjectPtr<ISymbolTable>();
    status_t const status = found->loadSymbols(m_symbols.get(), nullptr, 0, m_resolver);
    if (failed(status) && isOat()) {
        note(module.name() + ": " + describeDebugInfo(status, symbolFormatOat), common);
    } else if (failed(status)) {
        throw Failure(module.name() + ": " + module.whyBadDebugInfo(status));
    }
    module.noteUnread();
}

SymMgrObjectPtr<IBuffer> DebugInfo::unitBytes() {
    SymMgrObjectPtr<IBuffer> bytes;
    SymMgrObjectPtr<ISection> section;
    for (unsigned int i = 0; m_loader->sectionByIndex(section, i), section; ++i) {
        if (std::strcmp(section->name(), ".debug_info") == 0 || std::strcmp(section->name(), ".zdebug_info") == 0) {
            section->read(bytes);
            break;
        }
    }
    return bytes;
}

/// A unit's id is its offset: the headers' lengths lead from one to the next (DWARF version 4, 7.5.1.1).
std::vector<ICompUnitDetails*> DebugInfo::units() {
    if (isOat()) {
        throw Failure(m_module.name() + ": is an OAT file, which tells of methods, files and lines, and of no units");
    }
    if (!hasFiles()) {
        throw Failure(m_module.name() + ": is a GPU kernel's binary, whose program file tells of no units");
    }
    std::vector<ICompUnitDetails*> found;
    SymMgrObjectPtr<IBuffer> const bytes = unitBytes();
    for (unsigned long long offset = 0; bytes && offset < bytes->size();) {
        if (ICompUnitDetails* const unit = m_resolver->compUnitDetailsById(offset)) {
            found.push_back(unit);
        }
        unsigned long long length = numberAt(*bytes, offset, 4);
        unsigned long long header = 4;
        if (length == 0xFFFFFFFF) {
            length = numberAt(*bytes, offset + 4, 8);
            header = 12;
        }
        if (length > bytes->size() - offset) {
            break;
        }
        offset += header + length;
    }
    return found;
}

bool DebugInfo::hasFiles() {
    return m_loader->symFileFormat() != symbolFormatVexRln && m_loader->symFileFormat() != symbolFormatVexQdc;
}

SymMgrObjectPtr<IIterator<SymMgrObjectPtr<ISourceLine>>> DebugInfo::linesWithoutFile(unsigned long long unit,
                                                                                     IAddress* from, IAddress* to) {
    SymMgrObjectPtr<IIterator<SymMgrObjectPtr<ISourceLine>>> lines;
    m_resolver->sourceLines(lines, unit, ~0U, from != nullptr ? from->pseudoAddr() : 0,
                            to != nullptr ? to->pseudoAddr() : ~0ULL, nullptr);
    return lines;
}

std::vector<ISourceFile*> DebugInfo::files() {
    if (!hasFiles()) {
        throw Failure(m_module.name() +
                      ": is a GPU kernel's binary, whose source was compiled from memory and has no file");
    }
    Progress const progress("reading the lines of " + m_module.name());
    // Any question for lines has them read.
    SymMgrObjectPtr<IIterator<SymMgrObjectPtr<ISourceLine>>> lines;
    status_t const status = m_resolver->sourceLines(lines, k_allUnits, 0, 0, 0, nullptr);
    if (failed(status) && status != status_NoDebugInfo) {
        throw Failure(m_module.name() + ": " + m_module.whyBadDebugInfo(status));
    }
    std::vector<ISourceFile*> found;
    // Those of an OAT file are not counted, and lie at all ids up to the first that is none.
    for (unsigned int id = 0; isOat(); ++id) {
        ISourceFile* const file = m_resolver->sourceFileById(id);
        if (file == nullptr) {
            break;
        }
        found.push_back(file);
    }
    for (unsigned int id = 0; id < m_resolver->sourceFileCount(); ++id) {
        found.push_back(m_resolver->sourceFileById(id));
    }
    return found;
}

char const* nameOfLanguage(unsigned int language) {
    switch (language) {
    case 1: return "Ada";
    case 3: return "C and others";
    case 4: return "C++";
    case 5: return "Fortran";
    default: return "unknown";
    }
}

unsigned long long startOf(ISourceLine& line) {
    SymMgrObjectPtr<IAddress> start;
    line.address(start);
    return start->pseudoAddr();
}

std::string declarationOf(ISymbol& symbol) {
    SymMgrObjectPtr<ISourceLine> line;
    if (symbol.sourceLine(line) != status_Ok || line->location()->sourceFile() == nullptr) {
        return {};
    }
    return std::string(line->location()->sourceFile()->path()) + ":" + std::to_string(line->location()->line());
}

int units(std::string const& moduleName, CommonOptions const& common) {
    MissingSplitFiles missing(common);
    Module& module = load(moduleName, common);
    DebugInfo debug(module, common);
    for (ICompUnitDetails* const unit : debug.units()) {
        printUnit(*unit, common.json);
    }
    finishOutput();
    missing.tell(moduleName);
    return 0;
}

int files(std::string const& moduleName, CommonOptions const& common) {
    Module& module = load(moduleName, common);
    DebugInfo debug(module, common);
    for (ISourceFile* const file : debug.files()) {
        if (common.json) {
            printJson({{"id", file->id()},
                       {"path", file->path()},
                       {"modification_time", file->modificationTime()},
                       {"length", file->length()}});
        } else {
            std::printf("%6u  %s\n", file->id(), file->path());
        }
    }
    finishOutput();
    return 0;
}

int lines(LinesOptions const& options, CommonOptions const& common) {
    SymMgrObjectPtr<IAddress> from;
    SymMgrObjectPtr<IAddress> to;
    parseRange(options.range, from, to);
    unsigned long long unit = k_allUnits;
    if (!options.unit.empty()) {
        parseAddress(options.unit, unit);
    }
    Module& module = load(options.module, common);
    DebugInfo debug(module, common);
    Remarks const remarks(module.bank());
    unsigned long long const codeSize = module.bank().imageSize();
    auto const print = [&](ISourceFile* file, auto const& rows) {
        forEach(rows, [&](auto const& row) {
            // Rows of a source without a file may go on behind the code, or stand there.
            unsigned long long const from = startOf(*row);
            unsigned long long const end = from + row->size();
            unsigned long long const shown = file != nullptr ? end : std::max(from, std::min(end, codeSize));
            if (shown != from || options.all) {
                printRow(file, *row, shown, remarks, common.json);
            }
        });
    };
    if (!debug.hasFiles()) {
        if (options.file.empty()) {
            print(nullptr, debug.linesWithoutFile(unit, from.get(), to.get()));
        }
        finishOutput();
        return 0;
    }
    for (ISourceFile* const file : debug.files()) {
        SymMgrObjectPtr<IIterator<SymMgrObjectPtr<ISourceLine>>> rows;
        if (!matchesName(file->path(), options.file) || file->sourceLines(rows, unit, from.get(), to.get())) {
            continue;
        }
        print(file, rows);
    }
    finishOutput();
    return 0;
}

} // namespace orv_cli
