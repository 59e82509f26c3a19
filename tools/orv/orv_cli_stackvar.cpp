// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// stackvar: which local variable owns a stack address.

#include "orv_cli_commands.h"
#include "orv_cli_debug.h"
#include "orv_cli_output.h"

#include <cstdio>

namespace orv_cli {
namespace {

class StackQuestion {
public:
    StackQuestion(Module& module, StackOptions const& options)
        : m_bank(module.bank()), m_context(IStackFrameContext::create()) {
        m_context->setRegister(0, number(options.stackPointer));
        m_context->setRegister(1, number(options.framePointer));
        if (m_bank.addressByValue(number(options.pc), m_pc) != status_Ok) {
            throw Failure(module.name() + ": " + options.pc +
                          " lies in no segment: give --pc as the module lays it out");
        }
        SymMgrObjectPtr<ISymbolRange> function;
        if (module.symbolRangeByAddress(*m_pc, function, symbol_kind_Function) != status_Ok) {
            throw Failure(module.name() + ": no function stands at " + options.pc);
        }
    }

    status_t find(unsigned long long address, SymMgrObjectPtr<ISymbol>& out, bool& isInteger) {
        return m_bank.findStackVariable(m_pc.get(), address, m_context, out, &isInteger);
    }

    /// How far what is found at an address reaches up and down: the neighbours are asked, in steps that double and
    /// halve.
    void extent(unsigned long long address, ISymbol& like, unsigned long long& start, unsigned long long& end) {
        start = address - reach(address, like, -1);
        end = address + reach(address, like, 1) + 1;
    }

    static unsigned long long number(std::string const& word) {
        unsigned long long value = 0;
        parseAddress(word, value);
        return value;
    }

private:
    bool isSame(unsigned long long address, ISymbol& like) {
        SymMgrObjectPtr<ISymbol> symbol;
        bool isInteger = false;
        return find(address, symbol, isInteger) == status_Ok && symbol.get() == &like;
    }

    unsigned long long reach(unsigned long long address, ISymbol& like, long long direction) {
        auto const at = [&](unsigned long long distance) {
            return direction > 0 ? address + distance : address - distance;
        };
        unsigned long long inside = 0;
        unsigned long long outside = 1;
        while (outside != 0 && isSame(at(outside), like)) {
            inside = outside;
            outside *= 2;
        }
        while (outside - inside > 1) {
            unsigned long long const middle = inside + (outside - inside) / 2;
            (isSame(at(middle), like) ? inside : outside) = middle;
        }
        return inside;
    }

    IModuleSymbolBank& m_bank;
    SymMgrObjectPtr<IStackFrameContext> m_context;
    SymMgrObjectPtr<IAddress> m_pc;
};

/// What a failed question means for the user.
char const* meaningOf(status_t status) {
    switch (status) {
    case status_False: return "no variable of the function holds it";
    case status_NoDebugInfo: return "the module has no debug information";
    case status_OutOfMemory: return "that needs more memory than there is";
    default:
        return reading() == reading_Modern
                   ? "the debug information does not have the function at that address"
                   : "the function's debug information gives no place for its variables: DWARF 2 and 3 do";
    }
}

void print(StackQuestion& question, std::string const& word, bool json) {
    unsigned long long const address = StackQuestion::number(word);
    SymMgrObjectPtr<ISymbol> symbol;
    bool isInteger = false;
    status_t const status = question.find(address, symbol, isInteger);
    unsigned long long start = 0;
    unsigned long long end = 0;
    std::string declared;
    if (status == status_Ok) {
        question.extent(address, *symbol, start, end);
        declared = declarationOf(*symbol);
    }
    if (json) {
        printJson({{"address", hex(address)},
                   {"variable", symbol ? Json(symbol->name()) : Json()},
                   {"start", symbol ? Json(hex(start)) : Json()},
                   {"size", symbol ? Json(end - start) : Json()},
                   {"integer", symbol ? Json(isInteger) : Json()},
                   {"declared", declared.empty() ? Json() : Json(declared)},
                   {"why_not", symbol ? Json() : Json(meaningOf(status))}});
    } else if (!symbol) {
        std::printf("%s  ??  %s\n", hex(address).c_str(), meaningOf(status));
    } else {
        std::printf("%s  %s + %llu  %llu bytes%s%s%s\n", hex(address).c_str(), symbol->name(), address - start,
                    end - start, isInteger ? ", integer" : "", declared.empty() ? "" : ", declared at ",
                    declared.c_str());
    }
}

} // namespace

int stackVariables(StackOptions const& options, CommonOptions const& common) {
    Module& module = Module::load(options.module, common);
    StackQuestion question(module, options);
    for (std::string const& word : options.words) {
        print(question, word, common.json);
    }
    finishOutput();
    return 0;
}

} // namespace orv_cli
