// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
// optreports: the compiler's optimisation remarks, each with the function and the line that it is about.
#include "orv_cli_remarks.h"

#include "orv_cli_commands.h"

#include <orv/orv_frames.h>

#include <algorithm>
#include <cstdio>

namespace orv_cli {
namespace {

std::string exactText(IOptReportEntry& remark) {
    auto const [text, size] = remark.text();
    return {text, size};
}

std::string placeOf(Frame const& frame) {
    return frame.file != nullptr ? std::string(frame.file) + ":" + std::to_string(frame.line) : "??:0";
}

void print(IOptReportEntry& remark, Frame const* frame, bool json) {
    if (json) {
        Json object = jsonOf(remark);
        object["function"] = frame != nullptr && frame->function != nullptr ? Json(frame->function) : Json();
        object["file"] = frame != nullptr && frame->file != nullptr ? Json(frame->file) : Json();
        object["line"] = frame != nullptr && frame->file != nullptr ? Json(frame->line) : Json();
        printJson(object);
        return;
    }
    bool const isNamed = frame != nullptr && frame->demangled != nullptr;
    std::printf("%s  %s  %s  version %u\n    %s\n", hexColumn(remark.address()).c_str(),
                isNamed ? frame->demangled : "??", frame != nullptr ? placeOf(*frame).c_str() : "??:0",
                remark.version(), shownText(remark).c_str());
}

} // namespace

Remarks::Remarks(IModuleSymbolBank& bank) {
    SymMgrObjectPtr<IIterator<IOptReportEntry*>> found;
    status_t const status = bank.optReports(found, {}, 0);
    if (failed(status)) {
        throw Failure(std::string(bank.execFileName()) + ": " + describe(status));
    }
    if (status == status_Ok) {
        forEach(found, [&](IOptReportEntry* remark) { m_all.push_back(remark); });
    }
}

Remarks::Stretch Remarks::in(unsigned long long start, unsigned long long end) const {
    auto const isBelow = [](IOptReportEntry* remark, unsigned long long address) {
        return remark->address() < address;
    };
    auto const first = std::lower_bound(m_all.begin(), m_all.end(), start, isBelow);
    return {first, std::lower_bound(first, m_all.end(), std::max(start, end), isBelow)};
}

std::string shownText(IOptReportEntry& remark) { return printable(exactText(remark)); }

void printRemark(IOptReportEntry& remark, int indent) {
    std::printf("%*s%s remark %u  %s\n", indent, "", hexColumn(remark.address()).c_str(), remark.version(),
                shownText(remark).c_str());
}

Json jsonOf(IOptReportEntry& remark) {
    std::string const text = exactText(remark);
    Json object{
        {"address", hex(remark.address())}, {"version", remark.version()}, {"length", text.size()}, {"text", text}};
    try {
        (void)Json(text).dump(); // which takes UTF-8 alone
    } catch (Json::type_error const&) {
        std::string digits;
        for (unsigned char const byte : text) {
            constexpr char k_digits[] = "0123456789abcdef";
            digits += {k_digits[byte >> 4], k_digits[byte & 15]};
        }
        object["bytes"] = digits;
    }
    return object;
}

void addRemarks(Json& object, Remarks::Stretch const& stretch) {
    std::for_each(stretch.first, stretch.second,
                  [&](IOptReportEntry* remark) { object["remarks"].push_back(jsonOf(*remark)); });
}

int optReports(std::string const& moduleName, std::string const& range, CommonOptions const& common) {
    SymMgrObjectPtr<IAddress> from;
    SymMgrObjectPtr<IAddress> to;
    parseRange(range, from, to);
    Module& module = Module::load(moduleName, common);
    Remarks const remarks(module.bank());
    auto const [first, bound] = remarks.in(from ? from->pseudoAddr() : 0, to ? to->pseudoAddr() : ~0ULL);
    auto const end = to ? bound : remarks.all().end();
    std::vector<unsigned long long> addresses;
    std::transform(first, end, std::back_inserter(addresses),
                   [](IOptReportEntry* remark) { return remark->address(); });
    SymMgrObjectPtr<IFrames> frames;
    module.load([&] {
        return framesByAddresses(frames, module.bank(), addresses.data(), addresses.size(), frames_Everything);
    });
    for (auto remark = first; remark != end; ++remark) {
        print(**remark, frames ? frames->at(static_cast<std::size_t>(remark - first)) : nullptr, common.json);
    }
    if (remarks.all().empty()) {
        note(moduleName + ": has no optimisation remarks", common);
    }
    finishOutput();
    return 0;
}

} // namespace orv_cli
