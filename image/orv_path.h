// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// What the file system says about paths. Nothing here throws or logs.
#pragma once

#include "image/orv_file.h"

#include <cstdint>
#include <string>

namespace ORV_3_30 {

/// A file that can be opened for reading and is no directory.
bool fileExists(char const* path);
bool isDirectory(char const* path);
/// Absolute against the current directory, and normalised.
void fullPath(std::string& out, char const* path, bool asDirectory);
void directoryName(std::string& out, char const* path);
void baseName(std::string& out, char const* path);
void joinPath(std::string& out, char const* name, char const* directory);
/// Equal once absolute and normalised; links are not followed. Null is the same as nothing.
bool samePath(char const* a, char const* b);
/// 0 if there is no such file.
std::uint64_t pathFileSize(char const* path);
/// With a separator at its end; empty if it can't be told.
void currentDirectory(std::string& out);
bool removeFile(char const* path);

// --- Required of this layer, though nothing in the library calls them.

bool isAbsolutePath(char const* path);
void temporaryDirectory(std::string& out);
/// Both sides are mapped, and the target is not extended before that: there is nothing to copy into, and the result is
/// false. It is kept that way, for no caller leans on it.
bool copyFile(char const* to, char const* from);
/// Recursively: removes what can be removed, and is true only if everything was.
bool removeDirectory(char const* path, bool recursive);
file_op_status_t makeDirectory(char const* path);
bool createEmptyFile(char const* path);

} // namespace ORV_3_30
