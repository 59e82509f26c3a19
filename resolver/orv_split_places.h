// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// Where the split debug information of a module may lie.
#pragma once

#include "format/orv_split_files.h"

#include <string>
#include <vector>

namespace ORV_3_30 {

/// Where the compiler has put it; beside the module and beside its symbol file; and the same below debug roots. A name
/// is no proof: who opens a file looks for the unit's id in it.
class SplitPlaces final : public ISplitFiles {
public:
    SplitPlaces(char const* moduleFile, char const* symbolFile, std::vector<std::string> roots);
    /// With the roots that were noted for the module, if it was the last one for which this thread has noted any.
    static std::unique_ptr<ISplitFiles> of(char const* moduleFile, char const* symbolFile);
    /// A load has looked for a module's debug information under these. The loader that comes of it is made by the same
    /// thread, next: resolvers are clients' objects, and show themselves to nothing else that lasts.
    static void noteRoots(char const* moduleFile, std::vector<std::string> const& roots);

    std::vector<std::string> packages() const override;
    std::vector<std::string> placesOf(std::string const& directory, std::string const& name) const override;

private:
    std::vector<std::string> m_files;       ///< Module and symbol file, in full.
    std::vector<std::string> m_directories; ///< Of these.
    std::vector<std::string> m_roots;
};

} // namespace ORV_3_30
