// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// The registers of a stack frame, as a client sets them.
#pragma once

#include "orv/orv_stackframe.h"

#include <array>

namespace ORV_3_30 {

class StackFrameContext final : public SymMgrObject<IStackFrameContext> {
public:
    void setRegister(unsigned int which, unsigned long long value) override {
        if (which < m_values.size()) {
            m_values[which] = value;
        }
    }
    unsigned long long getRegister(unsigned int which) override {
        return which < m_values.size() ? m_values[which] : 0;
    }

private:
    std::array<unsigned long long, 2> m_values{}; ///< Stack pointer, frame pointer.
};

} // namespace ORV_3_30
