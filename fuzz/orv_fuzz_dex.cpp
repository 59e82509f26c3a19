// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// DEX files: the input is one, in an OAT file of version 22 in which every class has all methods compiled, each with
/// the same mapping table.

#include "orv_fuzz_oat.h"

#include <cstring>

namespace {

using orv_test::ElfBuilder;

constexpr unsigned int k_methods = 64; // of a class
constexpr unsigned int k_code = 32;    // bytes of a method, the three words in front of it among them

std::string oatDataOf(std::string const& dex, std::uint32_t classCount) {
    std::string data(std::string("oat\n022") + '\0');
    auto const put = [&](std::uint64_t value) { ElfBuilder::put(data, value, 4); };
    std::uint64_t const offsets = 20 + 8 + 40 + 12 + 16 - 4; // behind the header and the words of one DEX file
    std::uint64_t const entries = offsets + 4ULL * classCount + 4;
    std::uint64_t const table = entries + 20ULL * k_methods;
    std::uint64_t const code = table + 32;
    put(0); // checksum, instruction set and its features
    put(0);
    put(0);
    put(1);
    put(code - 1);
    data.append(40 + 8, '\0'); // trampolines, image
    put(0);                    // no trailer
    put(0);                    // no location
    put(0);
    put(code + static_cast<std::uint64_t>(k_methods) * k_code);
    data.resize(offsets, '\0');
    for (std::uint32_t i = 0; i < classCount; ++i) {
        put(entries - 4);
    }
    put(0); // all are compiled
    for (unsigned int i = 0; i < k_methods; ++i) {
        put(code + i * k_code + 12);
        data.append(16, '\0');
    }
    data += std::string("\x0A\x06\0\0\1\1\1\2\2\1\1\x7F\3\4\0\0\2\3\1\2\4\5", 22);
    data.resize(code, '\0');
    for (unsigned int i = 0; i < k_methods; ++i) {
        put(code + i * k_code + 12 - table); // back to the table
        put(0);
        put(k_code - 12);
        data.append(k_code - 12, '\x90');
    }
    return data + dex;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
    constexpr std::size_t k_classCount = 96;
    constexpr std::uint32_t k_mostClasses = 1000;
    std::uint32_t classCount = 0;
    if (size < k_classCount + sizeof(classCount)) {
        return 0;
    }
    std::memcpy(&classCount, data + k_classCount, sizeof(classCount));
    if (classCount <= k_mostClasses) {
        std::string const oat = oatDataOf({reinterpret_cast<char const*>(data), size}, classCount);
        std::uint32_t executableOffset = 0;
        std::memcpy(&executableOffset, oat.data() + 24, sizeof(executableOffset));
        orv_fuzz::askAboutOat(oat, executableOffset);
    }
    return 0;
}
