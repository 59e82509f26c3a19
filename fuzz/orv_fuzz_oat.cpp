// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// OAT files: the input is the OAT data, from "oat\n" on.

#include "orv_fuzz_oat.h"

#include <cstring>

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
    constexpr std::size_t k_executableOffset = 24; // from version 14 on
    std::uint32_t executableOffset = 0;
    if (size >= k_executableOffset + sizeof(executableOffset)) {
        std::memcpy(&executableOffset, data + k_executableOffset, sizeof(executableOffset));
    }
    orv_fuzz::askAboutOat({reinterpret_cast<char const*>(data), size}, executableOffset);
    return 0;
}
