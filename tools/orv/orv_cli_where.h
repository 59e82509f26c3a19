// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// From the words of the user to addresses of the module.
#pragma once

#include "orv_cli_answer.h"
#include "orv_cli_find.h"
#include "orv_cli_module.h"

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace orv_cli {

/// Reads words as addr2line does: a hexadecimal number, behind blanks or a plus sign, whatever follows it; or the name
/// of a symbol, and behind it a plus sign and a hexadecimal offset. What begins as a number and goes on as a name is a
/// symbol's where there is one. A number counts from the start of the section that was
/// asked for; in a relocatable file without such a one, from that of the first code section that has so many bytes, and
/// is an address where none has and the library has laid the sections out.
class WordReader {
public:
    /// Throws Failure if the module has no section of that name.
    WordReader(Module& module, std::optional<std::string> const& section);

    /// Fills in all but the answer.
    void read(std::string_view word, Query& query);

private:
    struct Section {
        unsigned long long start;
        unsigned long long end;
        bool isCode;
    };

    void readSections(std::optional<std::string> const& wanted);
    /// False if there is no symbol of that name.
    bool readName(std::string_view word, Query& query);
    bool isLoaded(unsigned long long address) const;
    /// Finds the place of what the word says.
    void place(Query& query) const;
    static void placeIn(Section const& section, Query& query);

    Module& m_module;
    unsigned long long m_mask;       ///< The bits of an address.
    std::vector<Section> m_sections; ///< By number; without extent where nothing is loaded.
    std::vector<Section> m_loaded;   ///< Those that are loaded, by address, those that touch as one.
    std::vector<Section> m_code;     ///< The code sections that are longer than all in front of them.
    bool m_isRelative = false;       ///< Numbers count from m_base.
    Section m_base{0, 0, false};
    SymbolPlaces m_places;
};

/// Hexadecimal digits at the start of a text, with or without 0x; what is greater than 64 bits can hold is all ones.
/// False where there is none. rest: what stands behind.
bool readHex(std::string_view text, unsigned long long& out, std::string_view& rest);

} // namespace orv_cli
