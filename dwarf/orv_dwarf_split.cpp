// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
// Split units by their id (DWARF version 5, 3.1.2 and 7.3.2): looked up in the index of packages, then in the files
// that skeletons name.
#include "dwarf/orv_dwarf_split.h"

#include "core/orv_trace.h"
#include "format/orv_elf_relocations.h"

#include <climits>
#include <cstring>
#include <unordered_set>

namespace ORV_3_30 {
namespace {

// What a load may cost, whatever the files name. Real ones come nowhere near.
constexpr std::uint64_t k_mostTries = std::uint64_t{1} << 20;
constexpr std::uint64_t k_mostOfUnit = std::uint64_t{1} << 30;  ///< Bytes of a file with split units.
constexpr std::uint64_t k_mostOfAll = std::uint64_t{1} << 34;   ///< Bytes of all files, and of a package.
constexpr std::uint64_t k_leastReads = std::uint64_t{1} << 26;  ///< Bytes of units and abbreviations gone through.
constexpr std::uint64_t k_rereads = 8;                          ///< For each byte of a file.
constexpr std::uint64_t k_largestInfo = std::uint64_t{1} << 40; ///< Loaders tell entries of files apart by bits above.
constexpr std::size_t k_mostSkeletons = (std::size_t{1} << 23) - 1; ///< Likewise.

/// The sections of a file, or a unit's parts of those of a package, as if they were a file's own.
class SplitSections final : public SharedObject<SymMgrObject<IFileFormatHelper>> {
public:
    SplitSections(std::shared_ptr<SplitFile> file, DwarfPackage::Parts const* parts) : m_file(std::move(file)) {
        if (parts != nullptr) {
            m_parts = *parts;
        }
    }

    bool isLoadedAddress(unsigned long long /*address*/) override { return false; }
    unsigned long long imageBase() override { return 0; }
    reading_t reading() override { return reading_Modern; }
    void sectionByIndex(SymMgrObjectPtr<ISection>& out, unsigned int /*index*/) override { out = nullptr; }
    void relocations(SymMgrObjectPtr<RelocationAddends>& out, unsigned int /*sectionIndex*/) override { out = nullptr; }
    void sectionData(SymMgrObjectPtr<ISectionData>& out, unsigned int role) override {
        out = m_file->section(role);
        if (out && m_parts && role != section_role_DebugStr) {
            DwarfPackage::Part const part = partOf(role);
            SymMgrObjectPtr<ISectionData> const slice(new SectionSlice(out, part.offset, part.size));
            out = slice->size() != 0 ? slice : SymMgrObjectPtr<ISectionData>();
        }
    }

private:
    DwarfPackage::Part partOf(unsigned int role) const {
        switch (role) {
        case section_role_DebugInfo: return m_parts->info;
        case section_role_DebugAbbrev: return m_parts->abbrevs;
        case section_role_DebugStrOffsets: return m_parts->stringOffsets;
        case section_role_DebugRnglists: return m_parts->rangeLists;
        case section_role_DebugLoc:
        case section_role_DebugLoclists: return m_parts->locations;
        default: return {};
        }
    }

    std::shared_ptr<SplitFile> m_file;
    std::optional<DwarfPackage::Parts> m_parts; ///< None: all of the file is one's own.
};

std::uint64_t sizeOf(SplitFile& file, unsigned int role) {
    SymMgrObjectPtr<ISectionData> const section = file.section(role);
    return section ? section->size() : 0;
}

/// Empty for one that no path can be as long as.
std::string pathOf(char const* text) {
    std::size_t const size = ::strnlen(text, PATH_MAX);
    return size < PATH_MAX ? std::string(text, size) : std::string();
}

} // namespace

DwarfSplits::DwarfSplits(DwarfReader& main, std::unique_ptr<ISplitFiles> files)
    : m_main(main), m_places(std::move(files)) {
    m_tries.refill(k_mostTries);
    m_fileBytes.refill(k_mostOfAll);
    m_readBytes.refill(k_leastReads);
}

DwarfSplits::~DwarfSplits() = default;

bool DwarfSplits::readSkeletons(Budget& search) {
    if (!m_hasReadSkeletons && m_places != nullptr && m_main.infoSize() < k_largestInfo) {
        for (auto const& unit : m_main.units()) {
            unit->readOwnDetails(search);
            if (unit->splitLink().name != nullptr && unit->header().index < k_mostSkeletons) {
                m_skeletons.emplace(unit->splitLink().id, unit.get());
            }
        }
        m_isSought.resize(m_main.units().size());
        m_hasReadSkeletons = true;
    }
    return !m_skeletons.empty();
}

DwarfUnit* DwarfSplits::find(DwarfUnit& skeleton, Budget& search) {
    std::size_t const index = skeleton.header().index;
    if (skeleton.splitLink().name == nullptr || index >= m_isSought.size() || m_isSought[index] ||
        index >= k_mostSkeletons) {
        return skeleton.split();
    }
    DwarfUnit* unit = joinedTo(skeleton);
    unit = unit != nullptr ? unit : findInPackages(skeleton);
    unit = unit != nullptr ? unit : findInFiles(skeleton);
    if (unit != nullptr) {
        unit->readOwnDetails(search);
        skeleton.setSplit(*unit);
    } else {
        ORV_WARN("Split debug information not found: " << pathOf(skeleton.splitLink().name) << " in "
                                                       << pathOf(skeleton.compDir()) << ", unit "
                                                       << skeleton.header().offset);
    }
    m_isSought[index] = true;
    return unit;
}

DwarfUnit* DwarfSplits::joinedTo(DwarfUnit const& skeleton) const {
    auto const found = m_joined.find(&skeleton);
    return found != m_joined.end() ? found->second : nullptr;
}

// --- Files

void DwarfSplits::openPackages() {
    if (m_hasPackages) {
        return;
    }
    m_packages.clear(); // of a load that found no memory
    for (std::string const& path : m_places->packages()) {
        std::shared_ptr<SplitFile> const file = open(path, k_mostOfAll);
        SymMgrObjectPtr<ISectionData> const index =
            file != nullptr ? file->section(SplitFile::k_cuIndexRole) : SymMgrObjectPtr<ISectionData>();
        if (index) {
            m_packages.push_back({file, DwarfPackage(index->data(), index->size())});
        }
        if (index ? !m_packages.back().index.isValid() : file != nullptr) {
            ORV_WARN("The index of a package is missing or incorrect: " << path);
        }
    }
    m_hasPackages = true;
}

std::shared_ptr<SplitFile> DwarfSplits::open(std::string const& path, std::uint64_t most) {
    FileIdentity identity;
    if (!m_tries.spend(1) || !FileIdentity::of(path.c_str(), identity)) {
        return nullptr;
    }
    auto const known = m_files.find({identity.device, identity.inode});
    if (known != m_files.end()) {
        if (std::shared_ptr<SplitFile> file = known->second.lock()) {
            return file;
        }
        if (!m_readBytes.spend(identity.size)) {
            return nullptr; // it was of no use before
        }
    } else if (identity.size > most || !m_fileBytes.spend(identity.size)) {
        ORV_WARN("Split debug information is too large: " << path);
        return nullptr;
    }
    std::shared_ptr<SplitFile> file = SplitFile::open(path.c_str(), most);
    if (known == m_files.end() && file != nullptr) {
        std::uint64_t const strings = sizeOf(*file, section_role_DebugStr);
        m_main.budgets().grow({0, strings, 0, 0});
        std::uint64_t const units = sizeOf(*file, section_role_DebugInfo) + sizeOf(*file, section_role_DebugAbbrev);
        m_readBytes.giveBack(units * k_rereads);
    }
    m_files[{identity.device, identity.inode}] = file;
    return file;
}

DwarfUnit* DwarfSplits::findInPackages(DwarfUnit& skeleton) {
    openPackages();
    for (Package const& package : m_packages) {
        DwarfPackage::Parts parts;
        if (!package.index.find(skeleton.splitLink().id, parts)) {
            continue;
        }
        if (DwarfUnit* const unit = read(skeleton, package.file, &parts)) {
            return unit;
        }
        ORV_WARN("No unit where the index of a package has it: " << package.file->path());
    }
    return nullptr;
}

DwarfUnit* DwarfSplits::findInFiles(DwarfUnit& skeleton) {
    std::string const name = pathOf(skeleton.splitLink().name);
    for (std::string const& path : m_places->placesOf(pathOf(skeleton.compDir()), name)) {
        std::shared_ptr<SplitFile> const file = open(path, k_mostOfUnit);
        if (file == nullptr) {
            continue;
        }
        if (DwarfUnit* const unit = read(skeleton, file, nullptr)) {
            return unit;
        }
        ORV_WARN("Split debug information of another build: " << path);
    }
    return nullptr;
}

// --- Units

DwarfUnit* DwarfSplits::skeletonOf(std::uint64_t id, DwarfUnit& asking) const {
    auto const found = id == asking.splitLink().id ? m_skeletons.end() : m_skeletons.find(id);
    DwarfUnit* const skeleton = found != m_skeletons.end() ? found->second : &asking;
    bool const isOf = skeleton->splitLink().id == id && skeleton->split() == nullptr && joinedTo(*skeleton) == nullptr;
    return isOf ? skeleton : nullptr;
}

DwarfUnit* DwarfSplits::read(DwarfUnit& skeleton, std::shared_ptr<SplitFile> const& file,
                             DwarfPackage::Parts const* parts) {
    Opened opened;
    opened.sections = new SplitSections(file, parts);
    opened.reader = std::make_unique<DwarfReader>(*opened.sections, m_main);
    DwarfReader& reader = *opened.reader;
    std::uint64_t const abbrevs = parts != nullptr ? parts->abbrevs.size : sizeOf(*file, section_role_DebugAbbrev);
    if (!reader.holdInfo() || reader.infoSize() >= k_largestInfo || !m_readBytes.spend(reader.infoSize() + abbrevs)) {
        return nullptr;
    }
    std::unordered_set<DwarfUnit const*> taken; // by a unit in front
    reader.readSplitUnits([&](std::uint64_t id) {
        DwarfUnit* const found = skeletonOf(id, skeleton);
        return found != nullptr && taken.insert(found).second ? found : nullptr;
    });
    if (!reader.units().empty()) {
        m_opened.push_back(std::move(opened));
        for (auto const& unit : reader.units()) {
            m_joined.emplace(unit->skeleton(), unit.get());
        }
    }
    return joinedTo(skeleton);
}

} // namespace ORV_3_30
