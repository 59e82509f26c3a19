// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// The blob that maps instructions to machine code, and its join with lines that are made of its own bytes.

#include "gpu/orv_gpu_qdc_blob.h"

#include <algorithm>
#include <cstdlib>

using namespace ORV_3_30;

namespace {

/// Ends where it says, so that the sanitizers see who reads behind it.
class Block final : public SymMgrObject<IBuffer> {
public:
    Block(std::uint8_t const* data, std::size_t size) : m_data(new unsigned char[size]), m_size(size) {
        std::copy(data, data + size, m_data);
    }
    ~Block() override { delete[] m_data; }
    unsigned long long size() override { return m_size; }
    unsigned char* data() override { return m_data; }

private:
    unsigned char* m_data;
    std::size_t m_size;
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
    SymMgrObjectPtr<IBuffer> const block(new Block(data, size));
    SymMgrObjectPtr<IQdcDbgParser> parser;
    if (createQdcDbgParser(parser, block.get()) != status_Ok) {
        return 0;
    }
    std::vector<VexLineEntry> lines;
    for (std::size_t i = 0; i + 2 <= size; i += 2) {
        lines.push_back({static_cast<std::uint32_t>(i / 4), data[i], data[i + 1], 0});
    }
    std::vector<std::string> names;
    parser->kernelNames(names);
    if (names.size() != parser->kernelCount()) {
        std::abort();
    }
    for (std::string const& name : names) {
        InstructionMap map;
        std::vector<VexLineEntry> joined;
        if (parser->instructionMap(name, map) != status_Ok || map.size() > size / 8 + 1) {
            std::abort(); // the walk has been there
        }
        joinLines(lines, map, joined);
        if (joined.size() > map.size()) {
            std::abort();
        }
    }
    return 0;
}
