// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// The compiler's optimisation remarks, by address.
#pragma once

#include "orv_cli_module.h"
#include "orv_cli_output.h"

#include <string>
#include <vector>

namespace orv_cli {

/// Those of a module. Read when it is made.
class Remarks {
public:
    using List = std::vector<IOptReportEntry*>;
    using Stretch = std::pair<List::const_iterator, List::const_iterator>;

    explicit Remarks(IModuleSymbolBank& bank);

    /// Those in [start, end), by address.
    Stretch in(unsigned long long start, unsigned long long end) const;
    List const& all() const { return m_all; }

private:
    List m_all; ///< By address. They live as long as the bank.
};

/// On one line, without the NULs that texts are padded with.
std::string shownText(IOptReportEntry& remark);
/// One line, behind that many blanks.
void printRemark(IOptReportEntry& remark, int indent);
/// Address, version, and the text as it is, with its length. A text that is no UTF-8 is given in hexadecimal too.
Json jsonOf(IOptReportEntry& remark);
/// Adds "remarks" to an object, if there are any.
void addRemarks(Json& object, Remarks::Stretch const& stretch);

} // namespace orv_cli
