// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
// One word for the process, which begins as the environment says.
#include "orv/orv_reading.h"

#include <atomic>
#include <cstdlib>
#include <cstring>

namespace ORV_3_30 {
namespace {

std::atomic<reading_t>& current() {
    static std::atomic<reading_t> reading = [] {
        char const* const setting = std::getenv("ORV_READING");
        return setting != nullptr && std::strcmp(setting, "modern") == 0 ? reading_Modern : reading_Classic;
    }();
    return reading;
}

} // namespace

void setReading(reading_t reading) { current().store(reading, std::memory_order_relaxed); }

reading_t reading() { return current().load(std::memory_order_relaxed); }

} // namespace ORV_3_30
