// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// The optimisation remarks of a module, by address.
#pragma once

#include "core/orv_once.h"
#include "optreport/orv_optreportreader.h"
#include "orv/orv_address.h"
#include "orv/orv_debuginfoloader.h"
#include "orv/orv_fileformatloader.h"

#include <memory>
#include <mutex>
#include <vector>

namespace ORV_3_30 {

/// In the order of addresses; of several at one in that of reading. Not changed once it is made.
using OptReports = std::vector<OptReportEntry>;

/// Holds the reports, which stay as long as it does. Any thread may move one of its own.
class OptReportStorageIterator final : public SymMgrObject<IIterator<IOptReportEntry*>> {
public:
    static constexpr unsigned long long k_noBound = ~0ULL;

    OptReportStorageIterator(std::shared_ptr<OptReports> reports, std::size_t position, unsigned long long rangeEnd)
        : m_reports(std::move(reports)), m_position(position), m_rangeEnd(rangeEnd) {}

    IOptReportEntry* current() override { return m_position < m_reports->size() ? &(*m_reports)[m_position] : nullptr; }
    bool next() override;
    /// To the first of the store, not of the range: clients know it so.
    void reset() override { m_position = 0; }

private:
    std::shared_ptr<OptReports> m_reports;
    std::size_t m_position;
    unsigned long long m_rangeEnd;
};

/// A part of the bank: the first question reads the sections. Holds neither loader with a count; either may be null.
class OptReportStore {
public:
    OptReportStore(IFileFormatLoader* module, IDebugInfoLoader* symbolFile)
        : m_module(module), m_symbolFile(symbolFile) {}

    /// From begin on, size bytes; a null begin means all. status_Ok; status_False, with out at its end or untouched, if
    /// there are none.
    status_t reports(SymMgrObjectPtr<IIterator<IOptReportEntry*>>& out, IAddress* begin, unsigned long long size);
    /// The first at exactly that address; status_False without one.
    status_t reportAtAddress(IAddress* address, IOptReportEntry*& out);

private:
    std::shared_ptr<OptReports> const& loaded();
    status_t load(OptReports& out) const;
    static std::size_t firstFrom(OptReports const& reports, unsigned long long address);

    IFileFormatLoader* m_module;
    IDebugInfoLoader* m_symbolFile;
    std::mutex m_lock;
    Once<std::shared_ptr<OptReports>> m_reports;
};

} // namespace ORV_3_30
