// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// Compilation units (DWARF version 4, 3.1.1 and 7.5.1.1): where the entries of one stand, how to read them, and what
/// the unit's own entry tells.
#pragma once

#include "core/orv_once.h"
#include "dwarf/orv_dwarf_abbrev.h"
#include "dwarf/orv_dwarf_containers.h"
#include "dwarf/orv_dwarf_die.h"
#include "dwarf/orv_dwarf_producer.h"

#include <atomic>
#include <unordered_map>

namespace ORV_3_30 {

class DwarfReader;

/// What a type comes to for a variable of it.
struct TypeInfo {
    std::uint64_t size;
    DwarfPlace structure; ///< Of the class, structure or union; no entry for other types.
    std::uint32_t tag;
    bool isInteger;
    bool isSized; ///< False: nothing is known of its size.
};

/// What the entry of a skeleton unit tells of the split unit that has its entries (DWARF version 5, 3.1.2).
struct SplitLink {
    char const* name = nullptr; ///< Of the file; null in a unit that is no skeleton.
    std::uint64_t id = 0;       ///< Of both units.
};

/// Lives as long as its reader. What its own entry tells is written in the first load and read after it; the known
/// types are guarded by the load lock.
class DwarfUnit {
public:
    struct Header {
        std::size_t index;      ///< Among the units.
        std::uint64_t offset;   ///< Of the unit in .debug_info: its key.
        std::uint64_t length;   ///< With the length field itself.
        std::uint64_t firstDie; ///< In the section.
        unsigned int type = 0;  ///< Of version 5.
        std::uint64_t id = 0;   ///< Of a skeleton or split unit of version 5.
    };
    enum language_t : unsigned int { language_Ada = 1, language_C = 3, language_Cpp = 4, language_Fortran = 5 };

    DwarfUnit(DwarfReader& reader, Header const& header, FormContext const& forms, AbbrevTable const& abbrevs)
        : m_reader(reader), m_header(header), m_forms(forms), m_abbrevs(abbrevs) {}

    /// Sees whether the unit is a partial one. With the modern reading.
    void readKind();
    /// Counts the unit as a partial one, as all of a supplementary file are.
    void markPartial() { m_isPartial = true; }
    /// Shared by other units, which refer to what stands in it (DWARF version 5, 3.1.1): types, declarations and what
    /// is inlined, but no code.
    bool isPartial() const { return m_isPartial; }
    /// Finds where the unit's parts of the tables begin, which its entry tells by values that need none. Ahead of all
    /// other reading.
    void readBases();
    /// Takes in what the unit's entry tells. Once: clients hold on to the texts.
    void readDetails(DieChain& entry, Budget& search);
    /// The same for a unit whose entry nobody has read.
    void readDetails(Budget& search);
    bool hasDetails() const { return m_hasDetails; }
    /// The same, from the entry itself, for who comes by another way than a walk.
    void readOwnDetails(Budget& search);
    language_t language() const { return m_language; }
    bool hasLanguage() const { return m_hasLanguage; } ///< Partial units may go without one.
    char const* producer() const { return m_producer; }
    Compiler const& compiler() const { return m_compiler; }
    std::uint64_t baseAddress() const { return m_baseAddress; }
    char const* compDir() const { return m_compDir; }
    char const* name() const { return m_name; }
    char const* options() const { return m_options; }
    bool hasLineInfo() const { return m_hasLineInfo; }
    std::uint64_t lineOffset() const { return m_lineOffset; }

    // --- Skeletons and split units

    SplitLink const& splitLink() const { return m_splitLink; }
    /// The unit that has a skeleton's entries; null if there is none, or none yet. Any thread may ask.
    DwarfUnit* split() const { return m_split.load(std::memory_order_acquire); }
    /// Once, when its details have been read.
    void setSplit(DwarfUnit& split) { m_split.store(&split, std::memory_order_release); }
    /// The skeleton of a split unit; null for any other.
    DwarfUnit* skeleton() const { return m_skeleton; }
    /// Takes what a split unit has of its skeleton: addresses, base and ranges. Ahead of all other reading.
    void joinSkeleton(DwarfUnit& skeleton);
    /// The id of a split unit.
    std::uint64_t splitId() const;
    /// What offsets of range lists count from.
    std::uint64_t rangesBase() const { return m_rangesBase; }

    DwarfReader& reader() const { return m_reader; }
    FormContext const& forms() const { return m_forms; }
    AbbrevTable const& abbrevs() const { return m_abbrevs; }
    Header const& header() const { return m_header; }
    bool holds(std::uint64_t offset) const { return offset - m_header.offset < m_header.length; }
    bool isFortran() const { return m_language == language_Fortran; }
    /// True if names of what stands in something are told with it. C has names of one kind alone.
    bool qualifiesNames() const;
    /// What its entries stand in. Found at the first question; any thread may ask.
    Containers const& containers() const {
        return m_containers.get([this] { return std::make_unique<Containers>(*this); });
    }
    /// A file of its line table; k_noFile where there is no value, or one that stands for none.
    std::uint64_t fileNumber(AttrValue const* value) const;
    /// True for an address of code or data that the linker has dropped. Never with the classic reading.
    bool isDropped(std::uint64_t address) const;
    /// Only some compilers are known to get DW_AT_sibling right.
    bool trustsSiblings() const { return m_compiler.kind != compiler_Unknown && m_compiler.kind != compiler_Gnu296; }
    /// A walker over all of .debug_info, with the unit's address size.
    DwarfWalker sectionWalker() const;
    /// The same, which ends with the unit.
    DwarfWalker unitWalker() const;

    /// The entry that a reference of this unit's leads to.
    DwarfPlace target(AttrValue const& reference);
    /// Reads the attributes of the entry at an offset of the unit. False if there is none, or if a form of it is
    /// refused.
    bool readEntry(std::uint64_t offset, DieAttributes& out) const;

    /// Passes over the attributes of an entry, from behind its code. False at a form that is refused.
    /// sibling: where the next entry of its list stands, if the entry tells; otherwise 0.
    bool skipEntry(DwarfWalker& walker, AbbrevEntry const& entry, std::uint64_t& sibling) const;
    /// Passes over the children of an entry, from behind its attributes.
    void skipChildren(DwarfWalker& walker, std::uint64_t sibling) const;

    /// Answers of the type lookup that were given before.
    std::unordered_map<std::uint64_t, TypeInfo>& knownTypes() { return m_knownTypes; }

private:
    language_t languageOf(std::uint64_t code) const;
    void readSplitLink(DieChain& entry);

    DwarfReader& m_reader;
    Header m_header;
    FormContext m_forms;
    AbbrevTable const& m_abbrevs;
    bool m_isPartial = false;
    bool m_hasDetails = false;
    bool m_hasLanguage = false;
    bool m_hasLineInfo = false;
    language_t m_language = language_C;
    bool m_isC = false;
    std::uint64_t m_lineOffset = 0;
    std::uint64_t m_baseAddress = 0;
    char const* m_compDir = "";
    char const* m_name = "";
    char const* m_producer = "";
    char const* m_options = "";
    Compiler m_compiler;
    SplitLink m_splitLink;
    std::uint64_t m_rangesBase = 0;
    DwarfUnit* m_skeleton = nullptr;
    std::atomic<DwarfUnit*> m_split{nullptr};
    std::unordered_map<std::uint64_t, TypeInfo> m_knownTypes;
    mutable Once<Containers> m_containers;
};

} // namespace ORV_3_30
