// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// Paths of both syntaxes through every operation of the parser.

#include "image/orv_filename.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>

using namespace ORV_3_30;

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
    std::string const text(reinterpret_cast<char const*>(data), size);
    std::size_t const middle = text.find('\n');
    std::string const base = middle != std::string::npos ? text.substr(middle + 1) : "/base";
    for (int const kind : {k_kindUnix, k_kindWindows}) {
        for (bool const asDirectory : {false, true}) {
            Filename path(text.c_str(), kind, asDirectory);
            std::string normalized;
            std::string again;
            path.normalized(normalized);
            Filename(normalized.c_str(), kind, false).normalized(again);
            // On Unix what is normal stays as it is.
            if (kind == k_kindUnix && !normalized.empty() && again != normalized) {
                std::abort();
            }
            path.absolute(again, base.c_str());
            path.directory(again);
            path.name(again);
            path.append(base.c_str());
        }
    }
    return 0;
}
