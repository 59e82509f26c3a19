// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// The program file beside the binary of a GPU kernel, which holds its debug information: the same name with ".clpdb"
/// behind the last dot.
#pragma once

#include "resolver/orv_symbol_file_candidate.h"

namespace ORV_3_30 {

/// What the formats of both compilers have in common. Unlike other candidates it keeps why it last refused a file: who
/// offers a wrong one leaves a mark.
class VexSymbolFileToResolve : public SymbolFileCandidate {
public:
    long long validateSymbolFile(char const* resolvedSymFile) override;
    unsigned int candidateClassFlag() override { return 0; }
    /// Whether an existing file begins as one of the format does.
    virtual bool checkSymbolFile(char const* path) = 0;

protected:
    VexSymbolFileToResolve(char const* binary, long long ordinal, ILock* lock)
        : SymbolFileCandidate(binary, ordinal, lock) {}
    /// Takes the name beside the binary, and checks what is there; none for a binary without a dot in its path. At the
    /// end of construction.
    void findProgramFile();

private:
    symbol_file_validity_t check(char const* path);
};

class VexRlnSymbolFileToResolve final : public VexSymbolFileToResolve {
public:
    VexRlnSymbolFileToResolve(char const* binary, long long ordinal, ILock* lock)
        : VexSymbolFileToResolve(binary, ordinal, lock) {
        findProgramFile();
    }

    symbol_file_format_t symbolFileFormat() override { return symbolFormatVexRln; }
    bool checkSymbolFile(char const* path) override;
};

class VexQdcSymbolFileToResolve final : public VexSymbolFileToResolve {
public:
    VexQdcSymbolFileToResolve(char const* binary, long long ordinal, ILock* lock)
        : VexSymbolFileToResolve(binary, ordinal, lock) {
        findProgramFile();
    }

    symbol_file_format_t symbolFileFormat() override { return symbolFormatVexQdc; }
    bool checkSymbolFile(char const* path) override;
};

} // namespace ORV_3_30
