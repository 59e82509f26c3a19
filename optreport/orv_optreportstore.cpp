// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
// One sorted array of the reports in all sections, found by binary search.
#include "optreport/orv_optreportstore.h"

#include "core/orv_budget.h"
#include "core/orv_trace.h"
#include "image/orv_path.h"

#include <algorithm>
#include <cstring>
#include <new>
#include <string_view>

namespace ORV_3_30 {
namespace {

bool isReportSection(char const* sectionName) {
    constexpr std::string_view k_short = ".debug_o";
    constexpr std::string_view k_long = ".debug_opt_report";
    // Many sections may share one name of megabytes.
    std::string_view const name(sectionName, ::strnlen(sectionName, k_long.size() + 1));
    if (name.substr(0, k_short.size()) != k_short) {
        return false;
    }
    bool const hasNumber = name.size() > k_long.size() && name[k_long.size()] == '.';
    return name == k_short || name == k_long || (hasNumber && name.substr(0, k_long.size()) == k_long);
}

/// The sections of a loader with reports. Sections of a file don't overlap: together they are no larger than it is.
template <typename Loader> std::vector<SymMgrObjectPtr<ISection>> reportSections(Loader* loader, char const* file) {
    std::vector<SymMgrObjectPtr<ISection>> found;
    std::uint64_t const fileSize = pathFileSize(file);
    Budget bytes("sections of optimisation reports", fileSize);
    for (unsigned int index = 0; loader != nullptr; ++index) {
        SymMgrObjectPtr<ISection> section;
        loader->sectionByIndex(section, index);
        if (!section) {
            break;
        }
        bool const isCut = section->size() > fileSize; // it can't be read, which costs nothing and ends the reading
        if (isReportSection(section->name()) && (isCut || bytes.spend(section->size()))) {
            found.push_back(section);
        }
    }
    return found;
}

} // namespace

bool OptReportStorageIterator::next() {
    if (m_position < m_reports->size()) {
        ++m_position;
    }
    bool const isBounded = m_rangeEnd != k_noBound;
    if (isBounded && m_position < m_reports->size() && (*m_reports)[m_position].address() >= m_rangeEnd) {
        m_position = m_reports->size();
    }
    return m_position < m_reports->size();
}

/// What the module and its symbol file have is never put together.
status_t OptReportStore::load(OptReports& out) const {
    if (m_module == nullptr && m_symbolFile == nullptr) {
        return status_InvalidPointer;
    }
    std::vector<SymMgrObjectPtr<ISection>> sections =
        reportSections(m_module, m_module != nullptr ? m_module->fileName() : nullptr);
    if (sections.empty()) {
        sections = reportSections(m_symbolFile, m_symbolFile != nullptr ? m_symbolFile->symFileName() : nullptr);
    }
    for (SymMgrObjectPtr<ISection> const& section : sections) {
        SymMgrObjectPtr<IBuffer> data;
        status_t const status = section->read(data);
        if (status == status_OutOfMemory) {
            throw std::bad_alloc(); // the next question tries again
        }
        if (failed(status)) {
            return status;
        }
        if (!data || data->data() == nullptr) {
            return status_InvalidPointer;
        }
        OptReportReader reader(data, section->address());
        for (reader.reset(); IOptReportEntry* const entry = reader.current(); reader.next()) {
            out.emplace_back(entry->version(), entry->address(),
                             std::string(entry->text().first, entry->text().second));
        }
    }
    return status_Ok;
}

std::shared_ptr<OptReports> const& OptReportStore::loaded() {
    return m_reports.get(m_lock, [this] {
        auto reports = std::make_shared<OptReports>();
        status_t const status = load(*reports);
        if (failed(status)) {
            ORV_DEBUG("Optimisation reports are not complete: " << status);
        }
        if (!std::is_sorted(reports->begin(), reports->end())) {
            std::stable_sort(reports->begin(), reports->end());
        }
        return std::make_unique<std::shared_ptr<OptReports>>(reports);
    });
}

std::size_t OptReportStore::firstFrom(OptReports const& reports, unsigned long long address) {
    auto const first = std::partition_point(reports.begin(), reports.end(),
                                            [=](OptReportEntry const& entry) { return entry.isBelow(address); });
    return static_cast<std::size_t>(first - reports.begin());
}

status_t OptReportStore::reports(SymMgrObjectPtr<IIterator<IOptReportEntry*>>& out, IAddress* begin,
                                 unsigned long long size) {
    std::shared_ptr<OptReports> const& all = loaded();
    if (all->empty()) {
        return status_False;
    }
    unsigned long long rangeEnd = OptReportStorageIterator::k_noBound;
    std::size_t position = 0;
    if (begin != nullptr) {
        unsigned long long const start = begin->pseudoAddr();
        rangeEnd = std::max(start, start + size);
        position = firstFrom(*all, start);
        bool const isInside = position < all->size() && (*all)[position].address() < rangeEnd;
        position = isInside ? position : all->size();
    }
    out = new OptReportStorageIterator(all, position, rangeEnd);
    return out->current() != nullptr ? status_Ok : status_False;
}

status_t OptReportStore::reportAtAddress(IAddress* address, IOptReportEntry*& out) {
    if (address == nullptr) {
        return status_False;
    }
    OptReports& all = *loaded();
    std::size_t const position = firstFrom(all, address->pseudoAddr());
    if (position == all.size() || all[position].address() != address->pseudoAddr()) {
        return status_False;
    }
    out = &all[position];
    return status_Ok;
}

} // namespace ORV_3_30
