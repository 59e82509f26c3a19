// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// Tests of the modern reading.
#pragma once

#include "orv/orv_reading.h"

namespace orv_test {

/// Modules that are loaded while it is there are read so.
class Reading {
public:
    explicit Reading(ORV_3_30::reading_t reading) : m_before(ORV_3_30::reading()) { ORV_3_30::setReading(reading); }
    ~Reading() { ORV_3_30::setReading(m_before); }
    Reading(Reading const&) = delete;
    Reading& operator=(Reading const&) = delete;

private:
    ORV_3_30::reading_t m_before;
};

} // namespace orv_test
