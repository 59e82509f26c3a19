// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
// Items of a DEX file by index, each read bounded and in place ("Dalvik executable format": header_item,
// string_id_item, method_id_item, class_def_item, class_data_item, code_item).
#include "oat/orv_oat_dex_tables.h"

#include "core/orv_trace.h"

#include <algorithm>

namespace ORV_3_30 {
namespace {

constexpr std::uint32_t k_noIndex = 0xFFFFFFFF;

// header_item
constexpr std::uint64_t k_stringIds = 56;
constexpr std::uint64_t k_typeIds = 64;
constexpr std::uint64_t k_methodIds = 88;
constexpr std::uint64_t k_classDefs = 96;

constexpr std::uint64_t k_stringIdSize = 4;
constexpr std::uint64_t k_typeIdSize = 4;
constexpr std::uint64_t k_methodIdSize = 8;
/// More than the item has, by design: the last methods of a file that ends right behind its table are refused.
constexpr std::uint64_t k_bytesBehindMethodId = 32;

constexpr std::uint64_t k_classDefSize = 32;
constexpr std::uint64_t k_sourceFileIndex = 16;
constexpr std::uint64_t k_classDataOffset = 24;

constexpr std::uint64_t k_leastCodeItem = 20;
constexpr std::uint64_t k_debugInfoOffset = 8;
constexpr std::uint64_t k_codeItemHead = 16;
constexpr std::uint64_t k_bytesAroundInstructions = 18;

constexpr std::uint64_t k_leastClassData = 4;
constexpr std::uint64_t k_leastField = 2;
constexpr std::uint64_t k_leastMethod = 3;

/// The text at the cursor; false if the data end first.
bool takeText(ByteCursor& cursor, std::uint64_t length, std::string_view& out) {
    if (length > cursor.remaining()) {
        return false;
    }
    out = {reinterpret_cast<char const*>(cursor.current()), static_cast<std::size_t>(length)};
    return cursor.skip(length);
}

/// "Lcom/example/Foo;" as "com.example.Foo".
void appendClass(std::string_view descriptor, std::string& out) {
    if (!descriptor.empty() && descriptor.front() == 'L') {
        descriptor.remove_prefix(1);
    }
    if (!descriptor.empty() && descriptor.back() == ';') {
        descriptor.remove_suffix(1);
    }
    out.append(descriptor);
    std::replace(out.begin(), out.end(), '/', '.');
}

} // namespace

status_t checkDexHeader(ByteCursor header) {
    constexpr std::uint64_t k_size = 3;
    std::string_view magic;
    std::string_view version;
    bool const isRead = takeText(header, k_size, magic) && header.skip(1) && takeText(header, k_size, version);
    if (!isRead || magic != "dex") {
        ORV_WARN("Invalid or unsupported dex header");
        return status_False;
    }
    return version == "035" ? status_Ok : status_UnsupportedFileVersion;
}

DexLoader::DexLoader(ByteCursor data, std::uint32_t dexFileOffset, ByteCursor classOffsets)
    : m_data(data.seek(dexFileOffset) ? data.rest() : ByteCursor()), m_classOffsets(classOffsets),
      m_strings(tableAt(k_stringIds)), m_types(tableAt(k_typeIds)), m_methods(tableAt(k_methodIds)),
      m_classes(tableAt(k_classDefs)) {}

DexLoader::Table DexLoader::tableAt(std::uint64_t position) const {
    Table table{};
    ByteCursor cursor = m_data;
    return cursor.seek(position) && cursor.read(table.count) && cursor.read(table.offset) ? table : Table{};
}

bool DexLoader::at(std::uint64_t offset, ByteCursor& out) const {
    out = m_data;
    return out.seek(offset);
}

std::uint32_t DexLoader::classOffset(std::uint32_t classIndex) const {
    std::uint32_t offset = 0;
    ByteCursor cursor = m_classOffsets;
    return cursor.seek(std::uint64_t{classIndex} * sizeof(offset)) && cursor.read(offset) ? offset : 0;
}

bool DexLoader::classDef(std::uint32_t classIndex, DexClassDef& out) const {
    std::uint64_t const position = m_classes.offset + classIndex * k_classDefSize;
    ByteCursor cursor;
    return at(position, cursor) && cursor.remaining() >= k_classDefSize && cursor.skip(k_sourceFileIndex) &&
           cursor.read(out.sourceFileIndex) && cursor.seek(position + k_classDataOffset) &&
           cursor.read(out.classDataOffset);
}

status_t DexLoader::string(std::uint32_t index, std::string_view& out) const {
    out = {};
    if (index == k_noIndex) {
        return status_False;
    }
    ByteCursor cursor;
    std::uint32_t offset = 0;
    std::uint32_t length = 0;
    if (index >= m_strings.count || !at(m_strings.offset + index * k_stringIdSize, cursor) || !cursor.read(offset) ||
        !cursor.seek(offset) || !cursor.readUleb(length)) {
        return status_BadFileFormat;
    }
    if (length == 0) {
        return status_False;
    }
    return takeText(cursor, length, out) ? status_Ok : status_BadFileFormat;
}

status_t DexLoader::typeDescriptor(std::uint32_t typeIndex, std::string_view& out) const {
    ByteCursor cursor;
    std::uint32_t descriptor = 0;
    if (typeIndex >= m_types.count || !at(m_types.offset + typeIndex * k_typeIdSize, cursor) ||
        !cursor.read(descriptor)) {
        return status_BadFileFormat;
    }
    return string(descriptor, out);
}

std::string DexMethodName::text() const {
    std::string text;
    text.reserve(size());
    appendClass(descriptor, text);
    text += '.';
    text.append(name);
    return text;
}

status_t DexLoader::methodName(std::uint32_t methodIndex, DexMethodName& out) const {
    ByteCursor cursor;
    bool const isThere = methodIndex < m_methods.count && at(m_methods.offset + methodIndex * k_methodIdSize, cursor) &&
                         cursor.remaining() >= k_bytesBehindMethodId;
    if (!ORV_ASSERT(isThere, "descr != NULL")) {
        return status_InvalidPointer;
    }
    std::uint16_t classIndex = 0;
    std::uint16_t prototypeIndex = 0;
    std::uint32_t nameIndex = 0;
    cursor.read(classIndex);
    cursor.read(prototypeIndex);
    cursor.read(nameIndex);
    status_t const status = string(nameIndex, out.name);
    if (status != status_Ok) {
        return status;
    }
    status_t const classStatus = typeDescriptor(classIndex, out.descriptor);
    return failed(classStatus) ? classStatus : status_Ok;
}

bool DexLoader::codeItem(std::uint32_t offset, DexCodeItem& out) const {
    ByteCursor cursor;
    std::uint32_t instructions = 0; // in 16-bit units
    return at(offset, cursor) && cursor.remaining() >= k_leastCodeItem && cursor.skip(k_debugInfoOffset) &&
           cursor.read(out.debugInfoOffset) && cursor.read(instructions) &&
           cursor.remaining() + k_codeItemHead >= k_bytesAroundInstructions + std::uint64_t{instructions} * 2;
}

// --- Members

DexMembers::DexMembers(DexLoader const& dex, std::uint32_t classDataOffset) {
    if (classDataOffset == 0) {
        return;
    }
    if (!dex.at(classDataOffset, m_cursor)) {
        m_status = status_BadFileFormat;
        return;
    }
    m_start = m_cursor.position();
    for (std::uint32_t& left : m_left) {
        if (m_cursor.position() == m_start && m_cursor.remaining() < k_leastClassData) {
            break;
        }
        if (!m_cursor.readUleb(left)) {
            left = 0;
        }
    }
}

std::uint64_t DexMembers::promisedBytes() const {
    std::uint64_t const most = m_cursor.remaining();
    std::uint64_t promised = 0;
    for (unsigned int list = StaticFields; list < k_lists; ++list) {
        std::uint64_t const items = m_left[list];
        promised += items * (isOfMethods(list) ? k_leastMethod : k_leastField);
    }
    return std::min(promised, most);
}

bool DexMembers::readItem(bool isMethod) {
    std::uint32_t difference = 0;
    std::uint32_t flags = 0;
    m_codeOffset = 0;
    if (m_cursor.remaining() < (isMethod ? k_leastMethod : k_leastField) || !m_cursor.readUleb(difference) ||
        !m_cursor.readUleb(flags) || (isMethod && !m_cursor.readUleb(m_codeOffset))) {
        return false;
    }
    m_methodIndex += difference;
    return true;
}

bool DexMembers::nextMethod() {
    for (; m_list < k_lists; ++m_list, m_methodIndex = 0) { // a list begins to count anew
        while (m_left[m_list] != 0) {
            --m_left[m_list];
            if (!readItem(isOfMethods(m_list))) {
                m_list = k_lists;
                return false;
            }
            if (isOfMethods(m_list)) {
                return true;
            }
        }
    }
    return false;
}

} // namespace ORV_3_30
