// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// Marks what a client may link against. Everything else stays inside the library.
#pragma once

#define ORV_VERSION_MAJOR 3
#define ORV_VERSION_MINOR 30

#define ORV_API __attribute__((visibility("default")))
