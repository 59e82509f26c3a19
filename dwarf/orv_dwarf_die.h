// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// Debugging information entries (DWARF version 4, section 2).
///
/// No tree of entries is kept. What passes over thousands of them takes the attributes that it needs
/// into a DieAttributes; what holds on to one, or is handed about, is an AttrBindings.
#pragma once

#include "core/orv_list.h"
#include "dwarf/orv_dwarf_abbrev.h"
#include "dwarf/orv_dwarf_constants.h"
#include "orv/orv_dwarf.h"
#include "orv/orv_object.h"

#include <array>
#include <cstdint>
#include <vector>

namespace ORV_3_30 {

class DWARFCompilationUnit;

/// How far a chain of origins is followed. Real ones have two or three links.
constexpr unsigned int k_longestOriginChain = 8;

inline unsigned long long keyOf(AttrBinding const& binding) { return binding.attr; }

/// The attributes that symbols are made of, by place.
class DieAttributes {
public:
    enum Slot : std::uint8_t {
        slot_None,
        slot_Sibling,
        slot_Location,
        slot_Name,
        slot_ByteSize,
        slot_StmtList,
        slot_LowPc,
        slot_HighPc,
        slot_Language,
        slot_CompDir,
        slot_Inline,
        slot_LowerBound,
        slot_Producer,
        slot_UpperBound,
        slot_AbstractOrigin,
        slot_MemberLocation,
        slot_DeclColumn,
        slot_DeclFile,
        slot_DeclLine,
        slot_External,
        slot_FrameBase,
        slot_Specification,
        slot_Type,
        slot_EntryPc,
        slot_Ranges,
        slot_CallColumn,
        slot_CallFile,
        slot_CallLine,
        slot_LinkageName,
        slot_VendorLinkageName,
        slot_Discriminator,
        slot_Options,
        slot_Count
    };
    static std::uint8_t slotOf(std::uint32_t attr);

    /// Reads the attributes behind an abbreviation code. False at a form that is refused, with the
    /// walker in front of it.
    bool read(DwarfWalker& walker, FormContext const& context, AbbrevTable const& table, AbbrevEntry const& entry);

    /// How many of them are there.
    std::size_t count() const { return static_cast<std::size_t>(__builtin_popcount(m_present)); }
    bool has(Slot slot) const { return (m_present & std::uint32_t{1} << slot) != 0; }
    /// True if it tells any address.
    bool hasPlace() const { return has(slot_LowPc) || has(slot_HighPc) || has(slot_Ranges); }
    /// The reference to its origin; null if it has none.
    AttrValue const* origin() const {
        return has(slot_AbstractOrigin) ? get(slot_AbstractOrigin) : get(slot_Specification);
    }
    /// Null where the attribute is not there.
    AttrValue const* get(Slot slot) const { return has(slot) ? &m_values[slot] : nullptr; }
    /// The value of a number; 0 where the attribute is not there.
    std::uint64_t number(Slot slot) const { return has(slot) ? m_values[slot].value : 0; }

private:
    std::uint32_t m_present = 0;
    std::array<AttrValue, slot_Count> m_values; ///< Set where m_present says so.
    static_assert(slot_Count <= 32, "each has a bit in m_present");
};

/// True for the location of a variable that has one address, which the location tells.
inline bool isStaticLocation(AttrValue const& location) {
    bool const isBlock = location.form == DW_FORM_block || location.form == DW_FORM_exprloc;
    return isBlock && location.value != 0 && location.data[0] == DW_OP_addr;
}

/// An entry's attributes and those of its origins, read as far as they are asked for.
class DieChain {
public:
    /// Starts with an entry, whose attributes are read into first() before anything is asked. mostLinks counts it too.
    DieAttributes& start(DWARFCompilationUnit& unit, std::uint64_t offset,
                         unsigned int mostLinks = k_longestOriginChain);
    /// The same for an entry that is an origin itself, and is read here. False if it can't be.
    bool startAtOrigin(DWARFCompilationUnit& asking, std::uint64_t offset);
    /// True if the chain ends where too much was read, not where the file ends it.
    bool isCut() const { return m_isCut; }
    DieAttributes& first() { return m_links[0].attributes; }
    /// The attribute of the entry or else of the nearest origin that has it; null if none has.
    AttrValue const* find(DieAttributes::Slot slot);
    /// The same, with the unit that the attribute stands in.
    AttrValue const* find(DieAttributes::Slot slot, DWARFCompilationUnit*& unit);
    /// A text that is there and not empty; null otherwise.
    char const* text(DieAttributes::Slot slot);
    /// The linkage name or else the plain one; null if it is missing or empty.
    char const* symbolName();
    /// True for a function or body that says neither where it stands nor that it is inlined elsewhere.
    bool isDeclaration();

private:
    struct Link {
        DieAttributes attributes;
        DWARFCompilationUnit* unit;
        std::uint64_t offset;
    };
    bool extend();
    bool readLink(DWARFCompilationUnit& unit, std::uint64_t offset);
    AttrValue const* findFrom(unsigned int link, DieAttributes::Slot slot, DWARFCompilationUnit*& unit);
    char const* nameFrom(unsigned int link);

    std::array<Link, k_longestOriginChain> m_links;
    unsigned int m_count = 0;
    unsigned int m_mostLinks = k_longestOriginChain;
    bool m_isComplete = false;
    bool m_isCut = false;
};

/// One entry with the attributes that the reader knows, sorted by code. How long an abbreviation is does
/// not matter to what it takes.
///
/// Holds its unit without a count: units live as long as their loader. Guarded by the load locks: what
/// is filled on demand is filled under them.
class AttrBindings final : public SymMgrObjectImpl,
                           public SortList<unsigned long long, AttrBinding, FakeRemover<AttrBinding>> {
public:
    AttrBindings(DWARFCompilationUnit* unit, ILock* countLock) : SymMgrObjectImpl(countLock), m_unit(unit) {}

    /// Reads the entry at the walker. True if there is one; false at a null entry, at a code that the
    /// unit does not know and at a form that is refused, with what was read up to there.
    bool readDie(DwarfWalker& walker);
    /// The attribute of a code, or null. Unless localOnly is set, what the entry lacks is looked for in
    /// its origin: a definition has the attributes of its declaration, an instance those of its abstract
    /// origin.
    AttrBinding const* attribute(unsigned long long attr, bool localOnly = false);
    /// The entry among this one and its origins that has an attribute; null if none has.
    AttrBindings* holderOf(unsigned long long attr);
    /// The entry that DW_AT_abstract_origin or else DW_AT_specification names; null if there is none.
    AttrBindings* resolveOrigin();

    /// How many bytes were read for origins so far.
    std::uint64_t originBytes() const { return m_origin ? m_originBytes + m_origin->originBytes() : 0; }

    unsigned char getHasChildren() const { return m_hasChildren; }
    unsigned long long tag() const { return m_tag; }
    /// Offset of the abbreviation code in .debug_info.
    std::uint64_t offset() const { return m_offset; }
    DWARFCompilationUnit* unit() const { return m_unit; }

private:
    DWARFCompilationUnit* m_unit;
    std::uint64_t m_tag = 0;
    std::uint64_t m_offset = 0;
    unsigned char m_hasChildren = 0;
    std::vector<AttrBinding> m_pool; ///< Made once, at its full size.
    SymMgrObjectPtr<AttrBindings> m_origin;
    std::uint64_t m_originBytes = 0;
};

} // namespace ORV_3_30
