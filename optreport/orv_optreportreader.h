// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// The optimisation remarks of a module.
#pragma once

#include "orv/orv_address.h"
#include "orv/orv_iterator.h"
#include "orv/orv_optreport.h"
#include "orv/orv_status.h"

namespace ORV_3_30 {

/// A part of the bank. No format of remarks is read yet: every module answers that it has none.
class OptReportStore {
public:
    status_t reports(SymMgrObjectPtr<IIterator<IOptReportEntry*>>& /*out*/, IAddress* /*begin*/,
                     unsigned long long /*size*/) {
        return status_False;
    }
    status_t reportAtAddress(IAddress* /*address*/, IOptReportEntry*& /*out*/) { return status_False; }
};

} // namespace ORV_3_30
