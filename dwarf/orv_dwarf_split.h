// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// Split units (DWARF version 5, 7.3.2, and GNU's forerunner in version 4): the skeletons that a linker has put into a
/// file, and the files in which compilers have left their entries.
///
///     DwarfSplits splits(reader, std::move(files));
///     if (DwarfUnit* unit = splits.find(skeleton, search)) ...    // of another reader; walked as any other
#pragma once

#include "dwarf/orv_dwarf_package.h"
#include "dwarf/orv_dwarf_reader.h"
#include "format/orv_split_files.h"

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

namespace ORV_3_30 {

/// Owns the readers of the files, which stay. All under the load lock.
class DwarfSplits {
public:
    /// main: must stay. Null files: there are none.
    DwarfSplits(DwarfReader& main, std::unique_ptr<ISplitFiles> files);
    ~DwarfSplits();
    DwarfSplits(DwarfSplits const&) = delete;
    DwarfSplits& operator=(DwarfSplits const&) = delete;

    /// Once the units have been read: has them tell what they are. False if none is a skeleton.
    bool readSkeletons(Budget& search);
    /// The unit with a skeleton's entries, which the skeleton then leads to. Looked for once; null, with a word in the
    /// log, if it is not there, for a unit that is no skeleton, and where the looking has become too dear.
    DwarfUnit* find(DwarfUnit& skeleton, Budget& search);

private:
    struct Opened {
        SymMgrObjectPtr<IFileFormatHelper> sections;
        std::unique_ptr<DwarfReader> reader;
    };
    struct Package {
        std::shared_ptr<SplitFile> file;
        DwarfPackage index;
    };
    using FilePlace = std::pair<std::uint64_t, std::uint64_t>; ///< Device and inode.

    void openPackages();
    DwarfUnit* findInPackages(DwarfUnit& skeleton);
    DwarfUnit* findInFiles(DwarfUnit& skeleton);
    std::shared_ptr<SplitFile> open(std::string const& path, std::uint64_t most);
    /// Reads the units of a file, or of a part of a package, and joins them to their skeletons.
    DwarfUnit* read(DwarfUnit& skeleton, std::shared_ptr<SplitFile> const& file, DwarfPackage::Parts const* parts);
    DwarfUnit* joinedTo(DwarfUnit const& skeleton) const;
    /// The skeleton that a unit found beside the one sought belongs to.
    DwarfUnit* skeletonOf(std::uint64_t id, DwarfUnit& asking) const;

    DwarfReader& m_main;
    std::unique_ptr<ISplitFiles> m_places;
    bool m_hasPackages = false; ///< They have been looked for.
    bool m_hasReadSkeletons = false;
    std::vector<bool> m_isSought;                              ///< By the skeletons' place in their reader.
    std::unordered_map<std::uint64_t, DwarfUnit*> m_skeletons; ///< By id, the first of each.
    std::unordered_map<DwarfUnit const*, DwarfUnit*> m_joined; ///< Skeletons, and what was found for them.
    std::vector<Package> m_packages;
    std::vector<Opened> m_opened;
    std::map<FilePlace, std::weak_ptr<SplitFile>> m_files; ///< All that were ever open.
    Budget m_tries{"places of split files"};
    Budget m_fileBytes{"split files"};
    Budget m_readBytes{"units of split files"};
};

} // namespace ORV_3_30
