// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// Runs a program that stops where it has told where its variables are, and asks for the variable at each of those
/// addresses, with the registers that it has there: orv_stack_tracer PROGRAM. With the modern reading.

#include "orv/orv.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <string>
#include <sys/ptrace.h>
#include <sys/user.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace ORV_3_30;

namespace {

/// A program that is traced, with its standard output in a pipe.
class TracedProgram {
public:
    explicit TracedProgram(std::string const& path) : m_path(path) {
        int ends[2] = {};
        if (pipe2(ends, O_CLOEXEC) != 0) {
            throw std::runtime_error("no pipe");
        }
        m_process = fork();
        if (m_process == 0) {
            dup2(ends[1], STDOUT_FILENO);
            ptrace(PTRACE_TRACEME, 0, nullptr, nullptr);
            execl(path.c_str(), path.c_str(), static_cast<char*>(nullptr));
            _exit(127);
        }
        close(ends[1]);
        m_output = ends[0];
        fcntl(m_output, F_SETFL, O_NONBLOCK);
        wait();
    }
    ~TracedProgram() {
        if (WIFSTOPPED(m_status)) {
            kill(m_process, SIGKILL);
            waitpid(m_process, &m_status, 0);
        }
        close(m_output);
    }
    TracedProgram(TracedProgram const&) = delete;
    TracedProgram& operator=(TracedProgram const&) = delete;

    /// To the next stop. False at the end of the program.
    bool goOn() {
        ptrace(PTRACE_CONT, m_process, nullptr, nullptr);
        wait();
        return WIFSTOPPED(m_status) && WSTOPSIG(m_status) == SIGTRAP;
    }
    bool hasEndedWell() const { return WIFEXITED(m_status) && WEXITSTATUS(m_status) == 0; }
    user_regs_struct registers() const {
        user_regs_struct registers{};
        ptrace(PTRACE_GETREGS, m_process, nullptr, &registers);
        return registers;
    }
    /// What it has written since it was asked last.
    std::string written() const {
        std::string text(1 << 16, '\0');
        ssize_t const count = read(m_output, &text[0], text.size());
        text.resize(count > 0 ? static_cast<std::size_t>(count) : 0);
        return text;
    }
    /// Where the program's file begins in memory.
    unsigned long long base() const {
        char* const real = realpath(m_path.c_str(), nullptr);
        std::string const wanted = real != nullptr ? real : "";
        free(real);
        std::ifstream maps("/proc/" + std::to_string(m_process) + "/maps");
        for (std::string line; std::getline(maps, line);) {
            if (line.size() > wanted.size() && line.compare(line.size() - wanted.size(), wanted.size(), wanted) == 0) {
                return std::stoull(line, nullptr, 16);
            }
        }
        throw std::runtime_error("it is not mapped");
    }

private:
    void wait() { waitpid(m_process, &m_status, 0); }

    std::string m_path;
    pid_t m_process = 0;
    int m_output = -1;
    int m_status = 0;
};

class Questions {
public:
    explicit Questions(std::string const& path) : m_program(path) {
        SymMgrObjectPtr<ISymbolManager> manager;
        ISymbolManager::create(manager);
        if (manager->loadSymbolsFromModule(path.c_str(), nullptr, m_bank, arch_Unknown, true, "") != status_Ok) {
            throw std::runtime_error(path + " can't be loaded");
        }
    }

    int run() {
        int stops = 0;
        for (; m_program.goOn(); ++stops) {
            askHere();
        }
        if (!m_program.hasEndedWell()) {
            std::printf("the program has not ended well\n");
            ++m_failures;
        }
        std::printf("%d stops, %d questions, %d failures\n", stops, m_questions, m_failures);
        return m_failures == 0 && m_questions != 0 ? 0 : 1;
    }

private:
    void askHere() {
        user_regs_struct const registers = m_program.registers();
        m_context->setRegister(0, registers.rsp);
        m_context->setRegister(1, registers.rbp);
        // Behind the instruction that has stopped it, which is one byte.
        m_bank->addressByRVA(registers.rip - 1 - m_program.base(), m_pc);
        std::istringstream lines(m_program.written());
        std::string word;
        std::string name;
        lines >> word >> m_function;
        unsigned long long address = 0;
        unsigned long long size = 0;
        while (lines >> name >> std::hex >> address >> std::dec >> size) {
            for (unsigned long long const at : {0ULL, size / 2, size - 1}) {
                expect(name, address + at, true);
            }
            expect(name, address - 1, false);
            expect(name, address + size, false);
        }
    }

    /// The name, with "!" behind it for an integer; "-" for none, "?" for a failure.
    std::string at(unsigned long long address) {
        bool isInteger = false;
        SymMgrObjectPtr<ISymbol> symbol;
        status_t const status = m_bank->findStackVariable(m_pc.get(), address, m_context, symbol, &isInteger);
        return failed(status) ? "?" : !symbol ? "-" : symbol->name() + std::string(isInteger ? "!" : "");
    }

    void expect(std::string const& name, unsigned long long address, bool isIt) {
        ++m_questions;
        std::string const got = at(address);
        if ((got == name) != isIt || got == "?") {
            ++m_failures;
            std::printf("%s at 0x%llx: address 0x%llx: got %s, wanted %s%s\n", m_function.c_str(),
                        m_pc ? m_pc->pseudoAddr() : 0, address, got.c_str(), isIt ? "" : "not ", name.c_str());
        }
    }

    TracedProgram m_program;
    SymMgrObjectPtr<IModuleSymbolBank> m_bank;
    SymMgrObjectPtr<IStackFrameContext> m_context = IStackFrameContext::create();
    SymMgrObjectPtr<IAddress> m_pc;
    std::string m_function;
    int m_questions = 0;
    int m_failures = 0;
};

} // namespace

int main(int count, char** words) {
    if (count != 2) {
        std::fprintf(stderr, "usage: orv_stack_tracer PROGRAM\n");
        return 2;
    }
    try {
        setReading(reading_Modern);
        return Questions(words[1]).run();
    } catch (std::exception const& error) {
        std::printf("%s\n", error.what());
        return 1;
    }
}
