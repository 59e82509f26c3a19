// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// The data of an OAT file: its header, and the DEX files that it was compiled of.
///
///     OatReader reader(buffer, oatDataStart, oatDataExec);
///     if (reader.readOatHeader() == status_Ok) { for (DexLoader const& dex : reader.dexFiles()) ... }
///
/// One at a time: the loader that owns it has a lock round its loads. The buffer is not copied; what is handed out
/// points into it.
#pragma once

#include "core/orv_budget.h"
#include "oat/orv_oat_dex_tables.h"
#include "oat/orv_oat_method.h"
#include "orv/orv_address.h"
#include "orv/orv_section.h"

#include <cstdint>
#include <vector>

namespace ORV_3_30 {

/// What one load may cost. Classes, methods and tables may be shared, but not without an end.
struct OatBudgets {
    Budget memberBytes{"members of classes"};
    Budget nameBytes{"names of methods and files"};
    Budget mappings{"mapping tables"};
    Budget programBytes{"line programs"};
    Budget rows{"lines of methods"}; ///< Kept: what was asked for and not needed comes back.

    /// size: of the OAT data.
    void refill(std::uint64_t size);
};

class OatReader {
public:
    /// Holds all three. oatDataStart, oatDataExec: of the data, and of the native code in them.
    OatReader(SymMgrObjectPtr<IBuffer> buffer, SymMgrObjectPtr<IAddress> oatDataStart,
              SymMgrObjectPtr<IAddress> oatDataExec);

    /// status_Ok; status_False for what is no DEX file; status_InvalidPointer, status_BadFileFormat,
    /// status_UnsupportedFileVersion. The DEX files in front of what is broken are there.
    status_t readOatHeader();

    std::vector<DexLoader> const& dexFiles() const { return m_dexFiles; }
    /// False for a class that the data cut off.
    bool oatClass(DexLoader const& dex, std::uint32_t classIndex, OatClass& out) const;

    /// -1 before the header is read.
    int version() const { return m_version; }
    std::uint32_t executableOffset() const { return m_executableOffset; }
    /// The pseudo address of the native code.
    unsigned long long execAddress() const { return m_execAddress; }
    ByteCursor data() const { return m_data; }
    OatBudgets& budgets() { return m_budgets; }

private:
    status_t readVersion(ByteCursor& cursor);
    status_t readDexFile(ByteCursor& cursor);

    SymMgrObjectPtr<IBuffer> m_buffer;
    ByteCursor m_data;
    SymMgrObjectPtr<IAddress> m_oatDataStart;
    SymMgrObjectPtr<IAddress> m_oatDataExec;
    unsigned long long m_execAddress = 0;
    int m_version = -1;
    std::uint32_t m_executableOffset = 0;
    std::vector<DexLoader> m_dexFiles;
    OatBudgets m_budgets;
};

} // namespace ORV_3_30
