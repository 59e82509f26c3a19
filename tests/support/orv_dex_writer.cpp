// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
// Lays out a DEX file: the data in the order in which they lead to each other, then the tables in front of them
// (Dalvik executable format, "File layout" and "Bitfield, string, and constant definitions").
#include "support/orv_dex_writer.h"

#include "support/orv_dex_code.h"
#include "support/orv_dex_ids.h"
#include "support/orv_elf_builder.h"

#include <algorithm>
#include <set>
#include <stdexcept>

namespace orv_test {
namespace {
constexpr std::uint32_t k_headerSize = 0x70;
constexpr std::uint32_t k_noIndex = 0xFFFFFFFF;
enum MapType : std::uint16_t {
    mapHeader = 0,
    mapStringIds = 1,
    mapTypeIds = 2,
    mapProtoIds = 3,
    mapFieldIds = 4,
    mapMethodIds = 5,
    mapClassDefs = 6,
    mapMapList = 0x1000,
    mapTypeLists = 0x1001,
    mapClassData = 0x2000,
    mapCodeItems = 0x2001,
    mapStringData = 0x2002,
    mapDebugInfos = 0x2003
};

class DexWriter {
public:
    DexWriter(OatDexText const& dex, OatExtent const& extent) : m_dex(dex), m_extent(extent), m_ids(dex) {
        m_dataStart = k_headerSize + 4 * m_ids.strings.size() + 4 * m_ids.types.size() + 12 * m_ids.protos.size() +
                      8 * m_ids.fields.size() + 8 * m_ids.methods.size() + 32 * dex.classes.size();
    }

    DexImage write() {
        tableOfContents();
        writeDebugInfos();
        writeTypeLists();
        writeStrings();
        writeCodeItems();
        writeClassData();
        writeMapList();
        writeTables();
        patchIds();
        writeHeader();
        return std::move(m_image);
    }

private:
    struct Entry {
        std::uint16_t type;
        std::uint64_t count;
        std::uint64_t offset;
    };
    static void put(std::string& out, std::uint64_t value, unsigned int width) { ElfBuilder::put(out, value, width); }
    static std::string nameOf(std::size_t classIndex) { return "class" + std::to_string(classIndex); }
    static std::string nameOf(std::size_t classIndex, std::size_t method) {
        return nameOf(classIndex) + ".method" + std::to_string(method);
    }
    std::uint64_t position() const { return m_dataStart + m_data.size(); }
    void align() { m_data.append((4 - position() % 4) % 4, '\0'); }
    void begin(MapType type) { m_map.push_back({type, 0, position()}); }
    std::uint32_t stringIndex(std::string const& text) const { return m_ids.strings.at(utf16(text)); }
    std::uint32_t placeOf(std::string const& name) const {
        auto const found = m_image.places.find(name);
        return found == m_image.places.end() ? 0 : static_cast<std::uint32_t>(found->second);
    }
    /// Five bytes whatever the value is, so that what follows stays where it is.
    static void putWideUleb(std::string& out, std::uint32_t value) {
        for (unsigned int shift = 0; shift < 28; shift += 7) {
            out += static_cast<char>((value >> shift & 0x7F) | 0x80);
        }
        out += static_cast<char>(value >> 28);
    }

    template <typename Visit> void eachMethod(Visit const& visit) {
        for (std::size_t c = 0; c < m_dex.classes.size(); ++c) {
            for (std::size_t const m : m_image.order[c]) {
                visit(m_dex.classes[c].methods[m], nameOf(c, m));
            }
        }
    }

    void tableOfContents() {
        std::uint64_t offset = k_headerSize;
        m_map.push_back({mapHeader, 1, 0});
        auto const table = [&](MapType type, char const* name, std::uint64_t count, std::uint64_t width) {
            m_map.push_back({type, count, count == 0 ? 0 : offset});
            m_image.places[name] = count == 0 ? 0 : offset;
            offset += count * width;
        };
        table(mapStringIds, "string_ids", m_ids.strings.size(), 4);
        table(mapTypeIds, "type_ids", m_ids.types.size(), 4);
        table(mapProtoIds, "proto_ids", m_ids.protos.size(), 12);
        table(mapFieldIds, "field_ids", m_ids.fields.size(), 8);
        table(mapMethodIds, "method_ids", m_ids.methods.size(), 8);
        table(mapClassDefs, "class_defs", m_dex.classes.size(), 32);
        std::set<std::string> seen;
        for (std::size_t c = 0; c < m_dex.classes.size(); ++c) {
            if (!seen.insert(m_dex.classes[c].descriptor).second) {
                throw std::runtime_error("twice: " + m_dex.classes[c].descriptor);
            }
            m_image.places[nameOf(c) + ".def"] = placeOf("class_defs") + 32 * c;
            orderMethods(c);
        }
    }

    void orderMethods(std::size_t c) {
        OatClassText const& one = m_dex.classes[c];
        std::vector<std::tuple<bool, std::uint32_t, std::size_t>> sorted;
        for (std::size_t m = 0; m < one.methods.size(); ++m) {
            std::uint32_t const index = m_ids.methods.at(DexIds::methodOf(one, one.methods[m]));
            sorted.emplace_back(!one.methods[m].isDirect, index, m);
            m_image.places[nameOf(c, m) + ".index"] = index;
            m_image.places[nameOf(c, m) + ".id"] = placeOf("method_ids") + 8 * std::uint64_t(index);
        }
        std::sort(sorted.begin(), sorted.end());
        std::vector<std::size_t>& order = m_image.order.emplace_back();
        for (auto const& method : sorted) {
            order.push_back(std::get<2>(method));
        }
    }

    void writeDebugInfos() {
        begin(mapDebugInfos);
        eachMethod([&](OatMethodText const& method, std::string const& name) {
            if (!method.debug || !method.hasCodeItem) {
                return;
            }
            m_image.places[name + ".debug"] = position();
            ++m_map.back().count;
            m_data += debugInfo(method, m_ids);
        });
    }

    void writeTypeLists() {
        align();
        begin(mapTypeLists);
        for (auto const& entry : m_ids.protos) {
            std::vector<std::u16string> const& parameters = entry.first.parameters;
            if (parameters.empty() || m_typeLists.count(parameters) != 0) {
                continue;
            }
            align();
            m_typeLists[parameters] = position();
            ++m_map.back().count;
            put(m_data, parameters.size(), 4);
            for (std::u16string const& parameter : parameters) {
                put(m_data, m_ids.types.at(parameter), 2);
            }
        }
    }

    void writeStrings() {
        begin(mapStringData);
        for (auto const& entry : m_ids.strings) {
            m_stringPlaces.push_back(position());
            ++m_map.back().count;
            putUleb(m_data, static_cast<std::uint32_t>(entry.first.size()));
            m_data += mutf8(entry.first) + '\0';
        }
    }

    void writeCodeItems() {
        align();
        begin(mapCodeItems);
        eachMethod([&](OatMethodText const& method, std::string const& name) {
            if (!method.hasCodeItem) {
                return;
            }
            align();
            m_image.places[name + ".item"] = position();
            ++m_map.back().count;
            m_data +=
                codeItem(method, method.debugOffset ? m_extent.at(*method.debugOffset) : placeOf(name + ".debug"));
        });
    }

    void writeClassData() {
        begin(mapClassData);
        for (std::size_t c = 0; c < m_dex.classes.size(); ++c) {
            OatClassText const& one = m_dex.classes[c];
            if (one.fields.empty() && one.methods.empty()) {
                continue;
            }
            m_image.places[nameOf(c) + ".data"] = position();
            ++m_map.back().count;
            auto const statics =
                std::count_if(one.fields.begin(), one.fields.end(), [](auto& f) { return f.isStatic; });
            auto const direct =
                std::count_if(one.methods.begin(), one.methods.end(), [](auto& m) { return m.isDirect; });
            putUleb(m_data, static_cast<std::uint32_t>(statics));
            putUleb(m_data, static_cast<std::uint32_t>(one.fields.size()) - static_cast<std::uint32_t>(statics));
            putUleb(m_data, static_cast<std::uint32_t>(direct));
            putUleb(m_data, static_cast<std::uint32_t>(one.methods.size()) - static_cast<std::uint32_t>(direct));
            writeFields(one, true);
            writeFields(one, false);
            writeMethods(c);
        }
    }

    void writeFields(OatClassText const& one, bool isStatic) {
        std::set<std::uint32_t> indices;
        for (OatFieldText const& field : one.fields) {
            if (field.isStatic == isStatic) {
                indices.insert(m_ids.fields.at(DexIds::fieldOf(one, field)));
            }
        }
        std::uint32_t previous = 0;
        for (std::uint32_t const index : indices) {
            putUleb(m_data, index - previous);
            putUleb(m_data, accPublic | (isStatic ? accStatic : 0U));
            previous = index;
        }
    }

    void writeMethods(std::size_t c) {
        std::uint32_t previous = 0;
        bool wasDirect = true;
        for (std::size_t const m : m_image.order[c]) {
            OatMethodText const& method = m_dex.classes[c].methods[m];
            previous = method.isDirect == wasDirect ? previous : 0;
            wasDirect = method.isDirect;
            std::uint32_t const index = placeOf(nameOf(c, m) + ".index");
            putUleb(m_data, index - previous);
            putUleb(m_data, accessOf(method));
            if (method.dexCode) {
                putWideUleb(m_data, m_extent.at(*method.dexCode));
            } else {
                putUleb(m_data, placeOf(nameOf(c, m) + ".item"));
            }
            previous = index;
        }
    }

    void writeMapList() {
        align();
        begin(mapMapList);
        m_map.back().count = 1;
        m_image.places["map"] = position();
        auto const isEmpty = [](Entry const& entry) { return entry.count == 0; };
        m_map.erase(std::remove_if(m_map.begin(), m_map.end(), isEmpty), m_map.end());
        put(m_data, m_map.size(), 4);
        for (Entry const& entry : m_map) {
            put(m_data, entry.type, 4);
            put(m_data, entry.count, 4);
            put(m_data, entry.offset, 4);
        }
    }

    void writeTables() {
        std::string& out = m_image.bytes;
        out.assign(k_headerSize, '\0');
        for (std::uint64_t const place : m_stringPlaces) {
            put(out, place, 4);
        }
        for (auto const& type : m_ids.types) {
            put(out, m_ids.strings.at(type.first), 4);
        }
        for (auto const& [proto, index] : m_ids.protos) {
            auto const list = m_typeLists.find(proto.parameters);
            put(out, m_ids.strings.at(DexIds::shortyOf(proto)), 4);
            put(out, m_ids.types.at(proto.result), 4);
            put(out, list == m_typeLists.end() ? 0 : list->second, 4);
        }
        for (auto const& [field, index] : m_ids.fields) {
            put(out, m_ids.types.at(std::get<0>(field)), 2);
            put(out, m_ids.types.at(std::get<2>(field)), 2);
            put(out, m_ids.strings.at(std::get<1>(field)), 4);
        }
        for (auto const& [method, index] : m_ids.methods) {
            put(out, m_ids.types.at(std::get<0>(method)), 2);
            put(out, m_ids.protos.at(std::get<2>(method)), 2);
            put(out, m_ids.strings.at(std::get<1>(method)), 4);
        }
        for (std::size_t c = 0; c < m_dex.classes.size(); ++c) {
            OatClassText const& one = m_dex.classes[c];
            put(out, m_ids.types.at(utf16(one.descriptor)), 4);
            put(out, accPublic, 4);
            put(out, m_ids.types.at(u"Ljava/lang/Object;"), 4);
            put(out, 0, 4);
            put(out, one.sourceIndex.value_or(one.source ? stringIndex(*one.source) : k_noIndex), 4);
            put(out, 0, 4);
            put(out, one.data ? m_extent.at(*one.data) : placeOf(nameOf(c) + ".data"), 4);
            put(out, 0, 4);
        }
        out += m_data;
    }

    /// Numbers that a description gives in place of the right ones.
    void patchIds() {
        for (std::size_t c = 0; c < m_dex.classes.size(); ++c) {
            OatClassText const& one = m_dex.classes[c];
            if (one.descriptorIndex) {
                patch(m_image.bytes, placeOf("type_ids") + 4 * std::uint64_t(m_ids.types.at(utf16(one.descriptor))),
                      *one.descriptorIndex, 4);
            }
        }
        eachMethod([&](OatMethodText const& method, std::string const& name) {
            if (method.classIndex) {
                patch(m_image.bytes, placeOf(name + ".id"), *method.classIndex, 2);
            }
            if (method.nameIndex) {
                patch(m_image.bytes, placeOf(name + ".id") + 4, *method.nameIndex, 4);
            }
        });
    }

    void writeHeader() {
        std::string head = m_dex.magic.substr(0, 3) + '\n' + m_dex.version.substr(0, 3) + '\0';
        head.append(24, '\0'); // checksum, and a signature that nothing reads
        put(head, m_image.bytes.size(), 4);
        put(head, k_headerSize, 4);
        put(head, 0x12345678, 4);
        put(head, 0, 8);
        put(head, placeOf("map"), 4);
        auto const table = [&](std::size_t count, char const* name) {
            put(head, count, 4);
            put(head, placeOf(name), 4);
        };
        table(m_ids.strings.size(), "string_ids");
        table(m_ids.types.size(), "type_ids");
        table(m_ids.protos.size(), "proto_ids");
        table(m_ids.fields.size(), "field_ids");
        table(m_ids.methods.size(), "method_ids");
        table(m_dex.classes.size(), "class_defs");
        put(head, m_data.size(), 4);
        put(head, m_dataStart, 4);
        m_image.bytes.replace(0, k_headerSize, head);
        std::uint32_t low = 1;
        std::uint32_t high = 0;
        for (std::size_t i = 12; i < m_image.bytes.size(); ++i) {
            low = (low + static_cast<unsigned char>(m_image.bytes[i])) % 65521;
            high = (high + low) % 65521;
        }
        patch(m_image.bytes, 8, high << 16 | low, 4);
    }

    OatDexText const& m_dex;
    OatExtent m_extent;
    DexIds m_ids;
    std::uint64_t m_dataStart;
    std::string m_data{};
    std::vector<Entry> m_map{};
    std::vector<std::uint64_t> m_stringPlaces{};
    std::map<std::vector<std::u16string>, std::uint64_t> m_typeLists{};
    DexImage m_image{};
};
} // namespace

DexImage writeDex(OatDexText const& dex, OatExtent const& extent) { return DexWriter(dex, extent).write(); }

} // namespace orv_test
