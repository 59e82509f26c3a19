// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// The bytes of a section with optimisation remarks, twice.

#include "optreport/orv_optreportreader.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <vector>

using namespace ORV_3_30;

namespace {

class Bytes final : public SymMgrObject<IBuffer> {
public:
    Bytes(std::uint8_t const* data, std::size_t size) : m_bytes(data, data + size) {}
    unsigned long long size() override { return m_bytes.size(); }
    unsigned char* data() override { return m_bytes.data(); }

private:
    std::vector<unsigned char> m_bytes;
};

std::size_t count(OptReportReader& reader) {
    std::size_t found = 0;
    for (reader.reset(); IOptReportEntry* const entry = reader.current(); reader.next()) {
        auto const [text, size] = entry->text();
        volatile char last = size != 0 ? text[size - 1] : '\0';
        static_cast<void>(last);
        ++found;
    }
    return found;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
    OptReportReader reader(SymMgrObjectPtr<IBuffer>(new Bytes(data, size)), 0x1000);
    // An entry takes 16 bytes, a table without any 44 at least; and each time is the same.
    std::size_t const first = count(reader);
    if (first > size / 8 || count(reader) != first) {
        std::abort();
    }
    return 0;
}
