// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// The command line client: arguments in, exit status out. 0 success, 1 failure, 2 wrong usage. Under a name that ends
/// in addr2line it is the command symbolize, with addr2line's exit statuses: 1 for wrong usage, 0 for words that mean
/// nothing.

#include "orv_cli_arguments.h"
#include "orv_cli_commands.h"
#include "orv_cli_compression.h"

#include <CLI/CLI.hpp>
#include <log4cplus/configurator.h>
#include <log4cplus/consoleappender.h>
#include <log4cplus/layout.h>
#include <log4cplus/logger.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <map>
#include <set>
#include <string_view>

namespace {

using namespace orv_cli;

constexpr int k_exitFailure = 1;
constexpr int k_exitUsage = 2;

std::map<std::string, int> const k_logLevels = {
    {"trace", 0}, {"info", 20000}, {"warn", 30000}, {"error", 40000}, {"off", 60000},
};

std::map<std::string, reading_t> const k_readings = {
    {"classic", reading_Classic},
    {"modern", reading_Modern},
};

/// The library's own default is for tools that count on it.
reading_t usualReading() {
    char const* const setting = std::getenv("ORV_READING");
    return setting != nullptr && *setting != '\0' ? reading() : reading_Modern;
}

constexpr char k_anyStyle[] = "true"; // of a flag without value
std::set<std::string> const k_demangleStyles = {"auto", "gnu-v3", "none"};

/// Object formats by the names that binutils has for them. The file itself tells which it is.
std::set<std::string> const k_targets = {
    "default",      "elf32-big",           "elf32-bigarm",      "elf32-i386",      "elf32-iamcu",
    "elf32-little", "elf32-littlearm",     "elf32-x86-64",      "elf64-big",       "elf64-little",
    "elf64-x86-64", "elf64-littleaarch64", "elf64-littleriscv", "elf64-powerpcle",
};

/// Sends the library's records to standard error.
void configureLog(std::string const& level) {
    if (level == "off") {
        return;
    }
    log4cplus::SharedAppenderPtr const appender(new log4cplus::ConsoleAppender(true, true));
    appender->setLayout(std::make_unique<log4cplus::PatternLayout>(LOG4CPLUS_TEXT("%-5p %m%n")));
    log4cplus::Logger logger = log4cplus::Logger::getInstance(LOG4CPLUS_TEXT("ORV"));
    logger.addAppender(appender);
    logger.setLogLevel(k_logLevels.at(level));
}

class CommandLine {
public:
    enum class Name { Orv, Addr2line };

    explicit CommandLine(Name name) : m_isAddr2line(name == Name::Addr2line) {
        if (m_isAddr2line) {
            m_app.name("orv-addr2line");
            m_app.description("Names and source lines of addresses, as addr2line gives them.");
            addCommon(m_app);
            addSymbolizeOptions(m_app);
            m_app.callback([this] { m_action = [this] { return runSymbolize(); }; });
            return;
        }
        m_app.name("orv");
        m_app.require_subcommand(1);
        addCommon(m_app);
        m_app.set_help_flag("-h,--help", "Say how to use orv");
        m_app.footer("'orv COMMAND --help' tells more, with an example.");
        addSymbolize();
        addSymbols();
        addAddress();
        addModuleCommand("info", "Format, architecture, addresses and symbol file of a module", "orv info /bin/ls",
                         info);
        addLines();
        addFunctionCommand("function", "One function: ranges, declaration, lines and what lies in it",
                           "orv function prog main", function);
        addFunctionCommand("inlines", "The tree of inlined calls of a function, with call sites and sizes",
                           "orv inlines prog main", inlines);
        addStackVariables();
        addOptReports();
        addModuleCommand("units", "The compilation units of a module, as its debug information has them",
                         "orv units prog", units);
        addModuleCommand("files", "The source files of a module", "orv files prog", files);
        addModuleCommand("candidates", "The files that may hold a module's debug information, in order",
                         "orv candidates /bin/ls", candidates);
        addModuleCommand("sections", "The sections of a module", "orv sections --json /bin/ls", sections);
        addModuleCommand("segments", "The segments of a module", "orv segments /bin/ls", segments);
    }

    int run(std::vector<std::string> words) {
        words = expandFiles(std::move(words));
        CLI::App const& command = commandOf(words);
        completeOptions(command, words);
        std::string wrong = wrongWord(command, words);
        for (std::string const style : {"", k_anyStyle}) { // which stand for the flag alone
            if (std::count(words.begin(), words.end(), "--demangle=" + style) != 0) {
                wrong = "--demangle=" + style + ": give one of auto, gnu-v3, none";
            }
        }
        if (!wrong.empty()) {
            return complain(wrong);
        }
        shieldBrackets(words);
        std::reverse(words.begin(), words.end()); // as the parser wants them
        try {
            m_app.parse(std::move(words));
        } catch (CLI::ParseError const& error) {
            if (error.get_exit_code() == 0) {
                return m_app.exit(error); // help or version
            }
            return complain(error.what());
        }
        configureLog(m_common.logLevel);
        setReading(m_reading);
        return m_action();
    }

private:
    CLI::App* add(char const* name, char const* description, char const* example, std::function<int()> action) {
        CLI::App* const command = m_app.add_subcommand(name, description);
        command->footer(std::string("Example:\n  ") + example);
        command->set_help_flag("-h,--help", "Say how to use this command");
        addCommon(*command);
        command->callback([this, action = std::move(action)] { m_action = action; });
        return command;
    }

    int complain(std::string const& what) const {
        std::string const name = m_app.get_name();
        std::fprintf(stderr, "%s: %s: see '%s --help'\n", name.c_str(), what.c_str(), name.c_str());
        return m_isAddr2line ? k_exitFailure : k_exitUsage;
    }

    /// The command that is named, or the one that there is.
    CLI::App const& commandOf(std::vector<std::string> const& words) const {
        std::string const name = firstPlainWord(m_app, words);
        auto const named = m_app.get_subcommands([&](CLI::App const* app) { return app->get_name() == name; });
        return named.empty() ? m_app : *named.front();
    }

    /// What every command takes, ahead of its name or behind it.
    void addCommon(CLI::App& app) {
        app.set_version_flag("--version", versionText());
        app.option_defaults()->multi_option_policy(CLI::MultiOptionPolicy::TakeLast);
        app.add_flag("--json", m_common.json, "Print one JSON object a line");
        app.add_option_function<std::string>(
               "--arch", [this](std::string const& name) { m_common.arch = k_architectures.at(name); },
               "Architecture of the module, where the file does not tell")
            ->check(oneOf("ARCH", k_architectures));
        app.add_option("--target-name", m_common.targetName, "Which kernel of its program a GPU binary is")
            ->type_name("KERNEL");
        app.add_flag("--quiet", m_common.quiet, "Tell failures alone, not that debug information is missing");
        app.add_flag("--no-debug-info", m_common.noDebugInfo, "Look for no debug information");
        app.add_flag("--offload", m_common.offload, "Take the binary that the module carries for an offload processor");
        app.add_option_function<std::vector<std::string>>(
               "--debug-root",
               [this](std::vector<std::string> const& roots) {
                   m_common.debugRoots.insert(m_common.debugRoots.end(), roots.begin(), roots.end());
               },
               "Look for companions under this folder; repeatable (default: /usr/lib/debug)")
            ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll)
            ->expected(1)
            ->type_name("DIR");
        app.add_flag("--debuginfod", m_common.askServers, "Ask the servers of DEBUGINFOD_URLS for companions");
        app.add_option("--symbol-file", m_common.symbolFile, "Take debug information from this companion")
            ->type_name("FILE");
        app.add_option_function<std::string>(
               "--reading", [this](std::string const& name) { m_reading = k_readings.at(name); },
               "How much of debug information is read: classic, what the library reads unless it is told (default: "
               "what ORV_READING says, else modern)")
            ->check(oneOf("READING", k_readings));
        app.add_option("--log-level", m_common.logLevel, "Log to standard error")->check(oneOf("LEVEL", k_logLevels));
    }

    template <typename Values>
    static CLI::Validator oneOf(char const* name, std::map<std::string, Values> const& values) {
        std::string words;
        for (auto const& entry : values) {
            words += (words.empty() ? "" : ", ") + entry.first;
        }
        auto const check = [words, &values](std::string const& word) {
            return values.count(word) != 0 ? std::string() : word + ": give one of " + words;
        };
        return CLI::Validator(check, std::string(name) + " (" + words + ")");
    }

    static void addModule(CLI::App* command, std::string& module) {
        command->add_option("MODULE", module, "Program, library, relocatable file or kernel module")
            ->required()
            ->type_name("");
    }

    void addModuleCommand(char const* name, char const* description, char const* example,
                          int (*run)(std::string const&, CommonOptions const&)) {
        addModule(add(name, description, example, [this, run] { return run(m_module, m_common); }), m_module);
    }

    int runSymbolize() {
        // The flag alone asks for it in the style that was named last, if any was.
        m_symbolize.demangle = !m_demangleStyles.empty();
        for (std::string const& style : m_demangleStyles) {
            m_symbolize.demangle = style == "none" ? false : style == k_anyStyle ? m_symbolize.demangle : true;
        }
        m_symbolize.isAddr2line = m_isAddr2line;
        return symbolize(m_symbolize, m_common);
    }

    void addSymbolize() {
        addSymbolizeOptions(*add("symbolize", "Names and source lines of addresses, as addr2line gives them",
                                 "orv symbolize -e /bin/ls -f -C 0x5000\n  orv symbolize -fCe prog < addresses",
                                 [this] { return runSymbolize(); }));
    }

    /// Those of addr2line, with its letters, and ours.
    void addSymbolizeOptions(CLI::App& command) {
        SymbolizeOptions& options = m_symbolize;
        command.set_help_flag("-h,-H,--help", "Say how to use this command")->group(k_classicGroup);
        command.set_version_flag("-v,-V,--version", versionText())->group(k_classicGroup);
        auto const classic = [](CLI::Option* option) { return option->group(k_classicGroup); };
        auto const addFlag = [&](char const* names, bool& value, char const* description) {
            return classic(command.add_flag(names, value, description));
        };
        classic(command.add_option("-e,--exe", options.module, "The module; a.out if not given"))->type_name("MODULE");
        addFlag("-f,--functions", options.functions, "Show function names");
        CLI::Option* const inlines = addFlag("-i,--inlines", options.inlines, "Show the chain of inlined calls");
        command
            .add_flag("--no-inlines", options.noInlines,
                      "Name the function that the code was compiled into, not the one that was inlined there")
            ->excludes(inlines);
        classic(command.add_flag("-C,--demangle", m_demangleStyles,
                                 "Demangle function names, in this style: auto, gnu-v3, none"))
            ->check(CLI::Validator(
                [](std::string const& style) {
                    return style == k_anyStyle || k_demangleStyles.count(style) != 0
                               ? std::string()
                               : style + ": give one of auto, gnu-v3, none";
                },
                ""));
        addFlag("-a,--addresses", options.addresses, "Show addresses");
        addFlag("-p,--pretty-print", options.pretty, "One line an address");
        addFlag("-s,--basenames", options.baseNames, "Strip directories from file names");
        classic(command.add_option_function<std::string>(
                    "-j,--section", [&options](std::string const& name) { options.section = name; },
                    "Addresses count from the start of this section"))
            ->type_name("NAME");
        classic(command.add_option("-b,--target", m_target, "Format of the module; the file itself tells"))
            ->type_name("FORMAT")
            ->check(CLI::Validator(
                [](std::string const& name) {
                    return k_targets.count(name) != 0 ? std::string()
                                                      : name + ": is no format of a module that orv reads";
                },
                ""));
        char const* const recursion = "Accepted: demangling is always bounded";
        classic(command.add_flag("-r,--no-recurse-limit,--no-recursion-limit", recursion));
        classic(command.add_flag("-R,--recurse-limit,--recursion-limit", recursion));
        command
            .add_option("ADDR", options.words,
                        "Hexadecimal addresses or names of symbols; from standard input if there are none")
            ->type_name("");
    }

    void addSymbols() {
        SymbolsOptions& options = m_symbols;
        CLI::App* const command = add("symbols", "The symbols of a module by address",
                                      "orv symbols --kind function,data --range 1000:2000 -C /bin/ls",
                                      [this] { return symbols(m_symbols, m_common); });
        command->add_option("--kind", options.kinds, "Kinds to show: function, data, other")
            ->check(CLI::Validator(checkKinds, "KIND,..."));
        command->add_option("--range", options.range, "Addresses to show, hexadecimal; either side may be missing")
            ->check(CLI::Validator(checkRange, "FROM:TO"));
        command->add_flag("--disjoint", options.disjoint, "Cut overlaps: one symbol at each address");
        command->add_flag("-C,--demangle", options.demangle, "Demangle names");
        addModule(command, options.module);
    }

    void addLines() {
        LinesOptions& options = m_lines;
        CLI::App* const command =
            add("lines", "Which source line each stretch of code came from",
                "orv lines --file main.cpp --range 1000:2000 prog", [this] { return lines(m_lines, m_common); });
        command->add_option("--file", options.file, "Lines of this file: a path, or the end of one")->type_name("NAME");
        command->add_option("--range", options.range, "Addresses to show, hexadecimal; either side may be missing")
            ->check(CLI::Validator(checkRange, "FROM:TO"));
        command->add_flag("--all", options.all, "Show rows of size 0 too");
        command->add_option("--unit", options.unit, "Lines of this unit, by its id")
            ->check(CLI::Validator(checkAddress, "ID"));
        addModule(command, options.module);
    }

    void addFunctionCommand(char const* name, char const* description, char const* example,
                            int (*run)(std::string const&, std::string const&, CommonOptions const&)) {
        CLI::App* const command =
            add(name, description, example, [this, run] { return run(m_module, m_word, m_common); });
        addModule(command, m_module);
        command->add_option("NAME", m_word, "Its name, mangled or not, or an address in it")->required()->type_name("");
    }

    void addStackVariables() {
        StackOptions& options = m_stack;
        CLI::App* const command = add("stackvar", "The local variable or member that owns a stack address",
                                      "orv stackvar prog --pc 1161 --sp 7ffe1000 --fp 7ffe1040 7ffe1034",
                                      [this] { return stackVariables(m_stack, m_common); });
        auto const addNumber = [&](char const* name, std::string& value, char const* description) {
            command->add_option(name, value, description)->required()->check(CLI::Validator(checkAddress, "ADDR"));
        };
        addNumber("--pc", options.pc, "Address of the instruction, as the module lays it out");
        addNumber("--sp", options.stackPointer, "Value of the stack pointer there");
        addNumber("--fp", options.framePointer,
                  "Value of the frame pointer there; of DWARF 3, the classic way, the canonical frame address");
        addModule(command, options.module);
        command->add_option("ADDR", options.words, "Stack addresses, hexadecimal")
            ->required()
            ->type_name("")
            ->check(CLI::Validator(checkAddress, ""));
    }

    void addOptReports() {
        CLI::App* const command =
            add("optreports", "The compiler's optimisation remarks, with function and line",
                "orv optreports --range 1000:2000 prog", [this] { return optReports(m_module, m_range, m_common); });
        command->add_option("--range", m_range, "Addresses to show, hexadecimal; either side may be missing")
            ->check(CLI::Validator(checkRange, "FROM:TO"));
        addModule(command, m_module);
    }

    void addAddress() {
        CLI::App* const command = add("address", "One address in all its forms", "orv address --rva /bin/ls 5000 5010",
                                      [this] { return address(m_module, m_words, m_form, m_common); });
        auto* const rva = command->add_flag_callback(
            "--rva", [this] { m_form = &IModuleSymbolBank::addressByRVA; }, "The numbers count from the load address");
        command
            ->add_flag_callback(
                "--file-offset", [this] { m_form = &IModuleSymbolBank::addressByFileOffset; },
                "The numbers are positions in the file")
            ->excludes(rva);
        addModule(command, m_module);
        command->add_option("ADDR", m_words, "Hexadecimal numbers")->required()->type_name("");
    }

    bool m_isAddr2line;
    CLI::App m_app{"ORV names what stands at an address of a module."};
    CommonOptions m_common;
    reading_t m_reading = usualReading();
    std::string m_module;
    std::vector<std::string> m_demangleStyles; ///< In the order of the command line.
    std::string m_target;
    SymbolizeOptions m_symbolize;
    SymbolsOptions m_symbols;
    LinesOptions m_lines;
    StackOptions m_stack;
    std::string m_word;
    std::string m_range;
    std::vector<std::string> m_words;
    AddressForm m_form = &IModuleSymbolBank::addressByValue;
    std::function<int()> m_action;
};

} // namespace

int main(int argc, char** argv) {
    constexpr std::string_view k_classicName = "addr2line";
    std::string_view const name = argc > 0 ? argv[0] : "";
    bool const isAddr2line =
        name.size() >= k_classicName.size() && name.substr(name.size() - k_classicName.size()) == k_classicName;
    int status = k_exitFailure;
    try {
        CommandLine line(isAddr2line ? CommandLine::Name::Addr2line : CommandLine::Name::Orv);
        status = line.run({argv + std::min(argc, 1), argv + argc});
    } catch (std::exception const& error) {
        std::fflush(stdout);
        std::fprintf(stderr, "orv: %s\n", error.what());
    }
    std::fflush(nullptr);
    // What the process holds goes with it. Taking down the logging's threads one by one would cost
    // more than many a query.
    std::_Exit(status);
}
