// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// Set-up of a component's logger, as the closed logging companion declares it.
///
/// Our stand-in leaves the logger to inherit level and appenders from the tool's configuration,
/// whether that is made before or after the library loads. It configures nothing of its own: a
/// library in a tool's process is silent until the tool asks to hear it.
#pragma once

#include <string>

namespace vorplex_1::log {

void configureComponentLogger(std::string const& name);

} // namespace vorplex_1::log
