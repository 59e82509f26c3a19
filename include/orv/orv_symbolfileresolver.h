// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// Which file holds a module's symbols: the candidates, and who decides.
#pragma once

#include "orv/orv_iterator.h"

namespace ORV_3_30 {

/// Kind of debug data that a candidate stands for.
enum symbol_file_format_t : unsigned int {
    symbolFormatNone = 0,
    symbolFormatDwarf = 1,
    symbolFormatSystemMap = 4,
    symbolFormatOat = 5,
    symbolFormatVexRln = 6,
    symbolFormatVexQdc = 7
};

/// How far a candidate has got.
enum symbol_file_validity_t : unsigned int {
    symbolFileUnchecked = 0,
    symbolFileValid = 1,    ///< symbolFileName names a file that passed the candidate's check.
    symbolFileRefused = 2,  ///< The file is there and does not hold what is needed.
    symbolFileMismatch = 3, ///< A file of the sought name is there, and its CRC differs.
    symbolFileNotFound = 4
};

/// A file that may hold a module's symbols. Belongs to the module's loader, and must not outlive it. Texts live as long
/// as the candidate. Any thread may ask and offer.
class ORV_API ISymbolFileToResolve : public ISymMgrObject {
public:
    /// The file that holds the symbols if the candidate is valid, otherwise the name searched for.
    /// Never null.
    virtual char const* symbolFileName() = 0;
    /// The module for which the candidate was made.
    virtual char const* moduleFileName() = 0;
    virtual symbol_file_format_t symbolFileFormat() = 0;
    virtual symbol_file_validity_t validity() = 0;
    /// Offers a file. The candidate's index in the list if the file is accepted, which then becomes
    /// symbolFileName; otherwise -1, and the name stays. A candidate by debug link reads the whole file.
    virtual long long validateSymbolFile(char const* resolvedSymFile) = 0;
    /// A constant of the candidate's class.
    virtual unsigned int candidateClassFlag() = 0;

protected:
    ~ISymbolFileToResolve() = default;
};

/// Decides among the candidates of one module. A client may bring its own, which it keeps owning.
class ORV_API ISymbolFileResolver {
public:
    /// Index of the chosen candidate, or -1 for none. An index outside the list counts as none.
    virtual long long
    resolveSymbolFile(SymMgrObjectPtr<IIterator<SymMgrObjectPtr<ISymbolFileToResolve>>>& candidates) = 0;

protected:
    ~ISymbolFileResolver() = default;
};

} // namespace ORV_3_30
