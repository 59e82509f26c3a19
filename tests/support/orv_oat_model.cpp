// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
// Walks a description as a reader walks the file, class by class and method by method.
#include "support/orv_oat_model.h"

#include "support/orv_dex_ids.h"
#include "support/orv_dex_writer.h"
#include "support/orv_oat_lines.h"

#include <algorithm>
#include <bitset>
#include <stdexcept>

namespace orv_test {
namespace {
constexpr std::uint32_t k_noIndex = 0xFFFFFFFF;
constexpr std::uint64_t k_allOnes = ~std::uint64_t(0);

/// An OatClass as a reader sees it.
struct ClassView {
    bool hasEntries = true;
    bool hasBitmap = false;
    std::size_t bitmapSize = 0;
    std::uint8_t firstByte = 0;
    std::uint64_t entries = 0;
};

/// The native side of a method; empty if it has none.
struct NativeCode {
    std::uint32_t offset = 0;
    std::uint64_t size = k_allOnes;
    OatMap map{};
};

/// What a string index leads to.
struct Text {
    std::uint32_t status = oatOk;
    std::string text{};
};

/// What a DEX file names, as a reader sees it: a length counts UTF-16 units, and is taken for bytes.
class DexNames {
public:
    explicit DexNames(OatDexText const& dex) {
        DexIds const ids(dex);
        for (auto const& entry : ids.strings) {
            m_strings.push_back(asRead(entry.first));
        }
        for (auto const& entry : ids.types) {
            m_types.emplace_back(entry.second, ids.strings.at(entry.first));
        }
        for (OatClassText const& one : dex.classes) {
            std::uint32_t const type = ids.types.at(utf16(one.descriptor));
            m_types[type].second = one.descriptorIndex.value_or(m_types[type].second);
        }
        for (auto const& entry : ids.methods) {
            m_methods.emplace_back(ids.types.at(std::get<0>(entry.first)), ids.strings.at(std::get<1>(entry.first)));
        }
        patchMethods(dex, ids);
    }

    static std::string asRead(std::u16string const& units) { return mutf8(units).substr(0, units.size()); }

    std::optional<std::string> string(std::uint32_t index) const {
        bool const isThere = index < m_strings.size() && !m_strings[index].empty();
        return isThere ? std::optional(m_strings[index]) : std::nullopt;
    }

    Text methodName(std::uint32_t method) const {
        auto const [type, name] = m_methods.at(method);
        if (name == k_noIndex || (name < m_strings.size() && m_strings[name].empty())) {
            return {oatFalse};
        }
        if (name >= m_strings.size() || type >= m_types.size()) {
            return {oatIncorrectFile};
        }
        std::uint32_t const descriptor = m_types[type].second;
        if (descriptor >= m_strings.size() && descriptor != k_noIndex) {
            return {oatIncorrectFile};
        }
        std::string prefix = string(descriptor).value_or("");
        prefix.erase(0, prefix.rfind('L', 0) == 0 ? 1 : 0);
        if (!prefix.empty() && prefix.back() == ';') {
            prefix.pop_back();
        }
        std::replace(prefix.begin(), prefix.end(), '/', '.');
        return {oatOk, prefix + "." + m_strings[name]};
    }

private:
    void patchMethods(OatDexText const& dex, DexIds const& ids) {
        for (OatClassText const& one : dex.classes) {
            for (OatMethodText const& method : one.methods) {
                auto& item = m_methods[ids.methods.at(DexIds::methodOf(one, method))];
                item.first = method.classIndex ? *method.classIndex & 0xFFFF : item.first;
                item.second = method.nameIndex.value_or(item.second);
            }
        }
    }

    std::vector<std::string> m_strings{};
    std::vector<std::pair<std::uint32_t, std::uint32_t>> m_types{};   ///< Number and string.
    std::vector<std::pair<std::uint32_t, std::uint32_t>> m_methods{}; ///< Type and string.
};

class OatWalk {
public:
    OatWalk(OatDescription const& oat, OatFile const& file, OatLines lines)
        : m_oat(oat), m_file(file), m_lines(lines), m_version(oat.versionNumber()),
          m_codeStart(oat.codeStartField.value_or(static_cast<std::uint32_t>(file.places.at("code")))) {
        for (std::size_t d = 0; d < oat.dex.size(); ++d) {
            for (std::size_t c = 0; c < oat.dex[d].classes.size(); ++c) {
                for (std::size_t m = 0; m < oat.dex[d].classes[c].methods.size(); ++m) {
                    OatMethodText const& method = oat.dex[d].classes[c].methods[m];
                    if (std::uint64_t const entry = placeOf(nameOf(d, c, m) + ".entry")) {
                        m_entries[entry] = {&method, placeOf(nameOf(d, c, m) + ".code")};
                    }
                }
            }
        }
    }

    OatExpectation walk() {
        std::size_t readable = 0; // DEX files in front of what ends the header
        std::uint32_t const header = headerStatus(readable);
        for (std::size_t d = 0; d < readable; ++d) {
            m_names.emplace_back(m_oat.dex[d]);
            for (std::size_t c = 0; c < m_oat.dex[d].classes.size(); ++c) {
                if (std::optional<ClassView> const view = classView(d, c)) {
                    m_result.status = walkClass(d, c, *view);
                }
            }
        }
        m_result.status = header == oatOk ? m_result.status : header;
        return std::move(m_result);
    }

private:
    struct Entry {
        OatMethodText const* method;
        std::uint64_t code;
    };

    static std::string nameOf(std::size_t d, std::size_t c) {
        return "dex" + std::to_string(d) + ".class" + std::to_string(c);
    }
    static std::string nameOf(std::size_t d, std::size_t c, std::size_t m) {
        return nameOf(d, c) + ".method" + std::to_string(m);
    }
    std::uint64_t placeOf(std::string const& name) const {
        auto const found = m_file.places.find(name);
        return found == m_file.places.end() ? 0 : found->second;
    }
    std::uint64_t dexStart(std::size_t d) const { return placeOf("dex" + std::to_string(d)); }
    std::uint32_t at(OatPlace const& place, std::uint64_t start) const {
        return OatExtent{m_file.data.size(), placeOf("code"), start}.at(place);
    }
    std::optional<std::uint32_t> word(std::uint64_t offset) const {
        std::uint32_t value = 0;
        for (unsigned int i = 4; i-- > 0;) {
            if (offset + i >= m_file.data.size() || offset + i < offset) {
                return std::nullopt;
            }
            value = value << 8 | static_cast<unsigned char>(m_file.data[offset + i]);
        }
        return value;
    }

    std::uint32_t headerStatus(std::size_t& readable) const {
        bool const isKnown =
            m_version == 7 || m_version == 14 || m_version == 15 || (m_version >= 22 && m_version <= 28);
        if (!isKnown) {
            return oatUnsupportedVersion;
        }
        for (OatDexText const& dex : m_oat.dex) {
            if (dex.magic != "dex") {
                return oatFalse;
            }
            if (dex.version != "035") {
                return oatUnsupportedVersion;
            }
            ++readable;
        }
        return oatOk;
    }

    std::optional<ClassView> classView(std::size_t d, std::size_t c) const {
        OatClassText const& one = m_oat.dex[d].classes[c];
        if (one.offset) {
            return readClass(at(*one.offset, 0));
        }
        ClassView view;
        view.hasEntries = one.type != oatClassNone;
        view.entries = placeOf(nameOf(d, c) + ".entries");
        view.hasBitmap = one.type == oatClassSome;
        if (view.hasBitmap && one.bitmap) {
            view.bitmapSize = one.bitmap->size();
            view.firstByte = one.bitmap->empty() ? 0 : static_cast<std::uint8_t>((*one.bitmap)[0]);
        } else if (view.hasBitmap) {
            std::vector<std::size_t> const& order = m_file.order[d][c];
            view.bitmapSize = (order.size() + 31) / 32 * 4;
            for (std::size_t i = 0; i < std::min<std::size_t>(order.size(), 8); ++i) {
                view.firstByte |= static_cast<std::uint8_t>(one.methods[order[i]].isCompiled ? 1 << i : 0);
            }
        }
        return view;
    }

    /// A class that the description puts where there is something else.
    std::optional<ClassView> readClass(std::uint64_t offset) const {
        std::optional<std::uint32_t> const head = word(offset);
        ClassView view;
        view.entries = offset + 4;
        if (head && *head >> 16 == oatClassSome) {
            std::optional<std::uint32_t> const size = word(offset + 4);
            view.hasBitmap = true;
            view.entries = size ? offset + 8 + *size : k_allOnes;
            view.bitmapSize = size.value_or(0);
        }
        if (!head || view.entries >= m_file.data.size()) {
            return std::nullopt;
        }
        view.hasEntries = *head >> 16 != oatClassNone;
        view.firstByte = view.hasBitmap ? static_cast<std::uint8_t>(m_file.data[offset + 8]) : std::uint8_t(0);
        return view;
    }

    std::uint32_t walkClass(std::size_t d, std::size_t c, ClassView const& view) {
        OatClassText const& one = m_oat.dex[d].classes[c];
        if (one.data && at(*one.data, dexStart(d)) != 0) {
            std::uint64_t const place = dexStart(d) + at(*one.data, dexStart(d));
            if (place <= m_file.data.size() && m_file.data.size() - place >= 4) {
                throw std::logic_error("class data where none were laid out");
            }
            return place > m_file.data.size() ? oatIncorrectFile : oatOk;
        }
        std::uint32_t status = oatOk;
        std::size_t const count = one.data ? 0 : one.methods.size();
        for (std::size_t i = 0; i < count && (status == oatOk || status == oatFalse); ++i) {
            if (std::optional<NativeCode> const code = lookUp(view, i)) {
                status = loadMethod(d, c, m_file.order[d][c][i], *code);
            }
        }
        return status;
    }

    /// The entry that the bitmap's first byte leads to; nothing if it lies behind the data.
    std::optional<NativeCode> lookUp(ClassView const& view, std::size_t methodIndex) const {
        std::size_t index = methodIndex;
        if (view.hasBitmap) {
            std::size_t const mask = methodIndex >= 7 ? 0xFF : (2U << methodIndex) - 1;
            std::size_t const count = view.bitmapSize == 0 ? 0 : std::bitset<8>(view.firstByte & mask).count();
            if (count == 0) {
                return NativeCode();
            }
            index = count - 1;
        }
        if (!view.hasEntries) {
            return NativeCode();
        }
        std::uint64_t const entry = view.entries + index * (m_version < 22 ? 28 : 20);
        std::optional<std::uint32_t> const offset = word(entry);
        std::optional<std::uint32_t> const table = m_version < 22 ? word(entry + 16) : 0;
        if (!offset || !table) {
            return std::nullopt;
        }
        return *offset > m_codeStart ? nativeCode(entry, *offset, *table) : NativeCode();
    }

    NativeCode nativeCode(std::uint64_t entryPlace, std::uint32_t offset, std::uint32_t table) const {
        NativeCode code;
        code.offset = offset;
        auto const known = m_entries.find(entryPlace);
        if (known != m_entries.end() && known->second.code != 0) {
            OatMethodText const& method = *known->second.method;
            code.size = method.codeSizeField.value_or(method.codeSize);
            bool const isPlain =
                !method.mapping || (!method.mapping->raw && !method.mapping->total && !method.mapping->toDexSize);
            if (isPlain && !method.mapWord) {
                code.map = method.mapping ? mapOf(*method.mapping, offset) : OatMap();
                return code;
            }
        }
        std::uint64_t const start = offset & ~1U;
        if (offset >= 9 && offset < m_file.data.size()) {
            code.size = word(start - 4).value_or(0);
            if (m_version >= 22) { // without a word there is no table
                std::optional<std::uint32_t> const distance = word(start - 12);
                table = distance ? static_cast<std::uint32_t>(start) - *distance : 0;
            }
        }
        code.map = readMap(m_file.data, table, offset, m_version == 7);
        return code;
    }

    std::uint32_t loadMethod(std::size_t d, std::size_t c, std::size_t m, NativeCode const& native) {
        std::uint64_t const index = placeOf(nameOf(d, c, m) + ".index");
        if (placeOf(nameOf(d, c, m) + ".id") + 32 > m_file.data.size()) {
            return oatInvalidPointer;
        }
        Text const name = m_names[d].methodName(static_cast<std::uint32_t>(index));
        if (name.status != oatOk) {
            return name.status;
        }
        if (native.offset < m_codeStart) {
            return oatFalse;
        }
        OatCode code{native.offset - std::uint64_t(m_codeStart) + m_file.execAddress, native.size, native.map,
                     m_codeStart, m_file.execAddress};
        m_result.symbols.push_back({name.text, code.address, code.size});
        std::optional<OatProgram> const program = findProgram(d, c, m);
        if (!program) {
            return oatOk;
        }
        if (m_lines == OatLines::NotWanted) {
            return oatInvalidPointer;
        }
        OatClassText const& one = m_oat.dex[d].classes[c];
        std::optional<std::string> const source = one.sourceIndex ? m_names[d].string(*one.sourceIndex)
                                                  : one.source    ? std::optional(DexNames::asRead(utf16(*one.source)))
                                                                  : std::nullopt;
        return addRows(code, *program, source.value_or(""), m_result.rows);
    }

    /// The debug program; nothing without one, or where the code item does not fit.
    std::optional<OatProgram> findProgram(std::size_t d, std::size_t c, std::size_t m) const {
        OatMethodText const& method = m_oat.dex[d].classes[c].methods[m];
        std::uint64_t const start = dexStart(d);
        std::uint64_t const item =
            method.dexCode ? at(*method.dexCode, start) + start : placeOf(nameOf(d, c, m) + ".item");
        std::uint64_t const end = m_file.data.size();
        if (item == 0 || item == start || item + 20 > end || item + 18 + 2 * std::uint64_t(*word(item + 12)) > end ||
            *word(item + 8) == 0) {
            return std::nullopt;
        }
        OatStrings const strings = [&](std::uint32_t index) { return m_names[d].string(index); };
        if (method.debug && !method.dexCode && !method.debugOffset) {
            std::vector<DexDebugOp> const& steps = method.debug->program;
            auto const isOdd = [](DexDebugOp const& op) { return op.raw || op.code == 0; };
            auto const first = std::find_if(steps.begin(), steps.end(), isOdd);
            if (first != steps.end() && !first->raw) {
                return programOf(*method.debug, strings);
            }
        }
        return readProgram(OatBytes(m_file.data, start + *word(item + 8)), strings);
    }

    OatDescription const& m_oat;
    OatFile const& m_file;
    OatLines m_lines;
    long m_version;
    std::uint32_t m_codeStart;
    std::map<std::uint64_t, Entry> m_entries{};
    std::vector<DexNames> m_names{};
    OatExpectation m_result{};
};
} // namespace

OatExpectation expectOat(OatDescription const& description, OatFile const& file, OatLines lines) {
    return OatWalk(description, file, lines).walk();
}

} // namespace orv_test
