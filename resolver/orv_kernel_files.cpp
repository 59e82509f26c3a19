// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
// The name of a kernel's list of symbols: the kernel's with another word in place of "vmlinuz" or "vmlinux".
#include "resolver/orv_kernel_files.h"

#include "image/orv_path.h"

#include <string_view>

namespace ORV_3_30 {
namespace {

constexpr std::string_view k_compressed = "vmlinuz";
constexpr std::string_view k_plain = "vmlinux";

} // namespace

SystemMap::SystemMap(char const* imageFile, MapKind mapKind, long long ordinal, ILock* lock)
    : SymbolFileCandidate(imageFile, ordinal, lock) {
    std::size_t at = m_moduleFile.rfind(k_compressed);
    if (at == std::string::npos) {
        at = m_moduleFile.rfind(k_plain);
    }
    if (at == std::string::npos) {
        return;
    }
    std::string name = m_moduleFile;
    name.replace(at, k_plain.size(), mapKind == map_kind_SystemMap ? "System.map" : "kallsyms");
    setSymbolFile(name);
    m_validity = SystemMap::checkMapFile(name.c_str());
}

symbol_file_validity_t SystemMap::checkMapFile(char const* path) {
    if (path == nullptr) {
        return symbolFileNotFound;
    }
    std::string name;
    baseName(name, path);
    if (name.compare(0, k_compressed.size(), k_compressed) == 0 || !fileExists(path)) {
        return symbolFileNotFound;
    }
    setSymbolFile(path);
    return symbolFileValid;
}

long long SystemMap::validateSymbolFile(char const* resolvedSymFile) {
    LockGuard guard(lock());
    return checkMapFile(resolvedSymFile) == symbolFileValid ? ordinal() : -1;
}

} // namespace ORV_3_30
