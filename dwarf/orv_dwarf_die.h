// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// Debugging information entries (DWARF version 4, section 2).
///
/// No tree of entries is kept. An entry is decoded into a DieAttributes; a DieChain adds those of its origins as far as
/// they are asked for, and an AttrBindings shows both to visitors.
#pragma once

#include "core/orv_budget.h"
#include "dwarf/orv_dwarf_abbrev.h"
#include "dwarf/orv_dwarf_constants.h"
#include "dwarf/orv_dwarf_place.h"
#include "orv/orv_object.h"

#include <array>
#include <cstdint>
#include <vector>

namespace ORV_3_30 {

/// How far a chain of origins is followed. Real ones have two or three links.
constexpr unsigned int k_longestOriginChain = 8;

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
        slot_StrOffsetsBase,
        slot_AddrBase,
        slot_RnglistsBase,
        slot_LoclistsBase,
        slot_DwoName,
        slot_DwoId,
        slot_ElementCount,
        slot_BitOffset,
        slot_BitSize,
        slot_DataBitOffset,
        slot_Count
    };
    static std::uint8_t slotOf(std::uint32_t attr);

    /// Reads the attributes behind an abbreviation code. False at a form that is refused, with the
    /// walker in front of it.
    bool read(DwarfWalker& walker, FormContext const& context, AbbrevTable const& table, AbbrevEntry const& entry);

    void clear() { m_present = 0; }
    bool has(Slot slot) const { return (m_present & std::uint64_t{1} << slot) != 0; }
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
    std::uint64_t m_present = 0;
    std::array<AttrValue, slot_Count> m_values; ///< Set where m_present says so.
    static_assert(slot_Count <= 64, "each has a bit in m_present");
};

/// True for the location of a variable that has one address, which the location tells: that of the module.
bool isStaticLocation(AttrValue const& location, FormContext const& forms, std::uint64_t& address);

/// An entry's attributes and those of its origins, read as far as they are asked for.
class DieChain {
public:
    /// search: pays for origins, many of which may be long and shared.
    explicit DieChain(Budget& search) : m_search(search) {}

    /// Starts with an entry, whose attributes are read into first() before anything is asked. mostLinks counts it too.
    DieAttributes& start(DwarfUnit& unit, std::uint64_t offset, unsigned int mostLinks = k_longestOriginChain);
    /// The same for an entry that is an origin itself, and is read here. False if it can't be.
    bool startAtOrigin(DwarfPlace const& origin);
    /// True if the chain ends where too much was read, not where the file ends it.
    bool isCut() const { return m_isCut; }
    DieAttributes& first() { return m_links[0].attributes; }
    /// The attribute of the entry or else of the nearest origin that has it; null if none has.
    AttrValue const* find(DieAttributes::Slot slot);
    /// The same, with the unit that the attribute stands in.
    AttrValue const* find(DieAttributes::Slot slot, DwarfUnit*& unit);
    /// Where the reference leads that such an attribute is; no entry without one, and for a wild one.
    DwarfPlace target(DieAttributes::Slot slot);
    /// A text that is there and not empty; null otherwise.
    char const* text(DieAttributes::Slot slot);
    /// A name, null if it is missing or empty, and the entry that has it.
    struct Named {
        char const* text = nullptr;
        DwarfPlace place;
    };
    Named linkageName();
    Named plainName() { return named(DieAttributes::slot_Name); }
    /// Of the entry that the chain started with, where that is an origin.
    std::uint32_t tag() const { return m_tag; }
    /// True for a function or body that says neither where it stands nor that it is inlined elsewhere.
    bool isDeclaration();

private:
    struct Link {
        DieAttributes attributes;
        DwarfPlace place;
    };
    bool extend();
    Link* findLink(DieAttributes::Slot slot);
    Named named(DieAttributes::Slot slot);
    bool readLink(DwarfPlace const& place);

    Budget& m_search;
    std::array<Link, k_longestOriginChain> m_links;
    std::uint32_t m_tag = 0;
    unsigned int m_count = 0;
    unsigned int m_mostLinks = k_longestOriginChain;
    bool m_isComplete = true; ///< No further link can be had.
    bool m_isCut = false;
};

/// One entry as visitors are shown it: what it is, and its attributes with those of its origins.
///
/// Large, as it holds a chain: to be made once for a walk, not in what calls itself.
class AttrBindings final : public SymMgrObjectImpl {
public:
    explicit AttrBindings(Budget& search) : SymMgrObjectImpl(nullptr), m_chain(search) {}

    /// Reads the entry of a unit at the walker. True if there is one; false at a null entry, at a code that the
    /// unit does not know and at a form that is refused, with what was read up to there.
    bool readDie(DwarfUnit& unit, DwarfWalker& walker);
    /// The attribute, or null. Unless localOnly is set, what the entry lacks is looked for in its origin: a definition
    /// has the attributes of its declaration, an instance those of its abstract origin.
    AttrValue const* attribute(DieAttributes::Slot slot, bool localOnly = false) {
        return localOnly ? m_chain.first().get(slot) : m_chain.find(slot);
    }
    /// Where a reference leads, of the entry or of its origin.
    DwarfPlace target(DieAttributes::Slot slot) { return m_chain.target(slot); }
    /// The value of a number; 0 where the attribute is not there.
    std::uint64_t number(DieAttributes::Slot slot) {
        AttrValue const* const value = attribute(slot);
        return value != nullptr ? value->value : 0;
    }
    /// The bytes of a name, whatever its form; null if it has none.
    char const* name() {
        AttrValue const* const value = attribute(DieAttributes::slot_Name);
        return value != nullptr ? reinterpret_cast<char const*>(value->data) : nullptr;
    }
    /// True if too much was read for origins: some may be missing.
    bool isCut() const { return m_chain.isCut(); }

    unsigned char getHasChildren() const { return m_hasChildren; }
    std::uint32_t tag() const { return m_tag; }
    /// Offset of the abbreviation code in .debug_info.
    std::uint64_t offset() const { return m_offset; }

private:
    std::uint64_t m_offset = 0;
    std::uint32_t m_tag = 0;
    unsigned char m_hasChildren = 0;
    DieChain m_chain;
};

} // namespace ORV_3_30
