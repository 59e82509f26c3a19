// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// The tables of a DEX file that name methods and tell where their code is described.
///
///     DexLoader const dex(data, dexFileOffset, classOffsets);
///     DexMethodName name;
///     if (dex.methodName(methodIndex, name) == status_Ok) ... name.text()   // "com.example.Foo.bar"
///
/// A DEX file lies inside the data of an OAT file. All its offsets count from its own header, and reach as far as those
/// data do: nothing tells where a DEX file ends.
#pragma once

#include "core/orv_cursor.h"
#include "orv/orv_status.h"

#include <cstdint>
#include <string>
#include <string_view>

namespace ORV_3_30 {

constexpr std::uint64_t k_dexHeaderSize = 112;

/// Ok; False for what is no DEX file; status_UnsupportedFileVersion. header: from the header to the end of the data.
status_t checkDexHeader(ByteCursor header);

/// What is used of a class_def_item.
struct DexClassDef {
    std::uint32_t sourceFileIndex;
    std::uint32_t classDataOffset;
};

/// What is used of a code_item.
struct DexCodeItem {
    std::uint32_t debugInfoOffset;
};

/// The parts of a method's name, as the DEX file has them.
struct DexMethodName {
    std::string_view descriptor; ///< Of its class.
    std::string_view name;

    std::size_t size() const { return descriptor.size() + 1 + name.size(); }
    /// "class.method".
    std::string text() const;
};

/// Plain bytes of others, which must stay. Any thread may ask.
class DexLoader {
public:
    /// data: those of the OAT file, which hold the header at dexFileOffset. classOffsets: where each class of the DEX
    /// file is described, one word a class.
    DexLoader(ByteCursor data, std::uint32_t dexFileOffset, ByteCursor classOffsets);

    std::uint32_t classCount() const { return m_classes.count; }
    /// From the start of the OAT data.
    std::uint32_t classOffset(std::uint32_t classIndex) const;
    /// False for an item that the data cut off.
    bool classDef(std::uint32_t classIndex, DexClassDef& out) const;
    /// Ok; False for no string, as one of length 0 is; status_BadFileFormat. The length is taken for one in bytes,
    /// though the format counts UTF-16 units: what isn't ASCII comes out short, as clients know it.
    status_t string(std::uint32_t index, std::string_view& out) const;
    /// Ok; False for a method without a name; status_InvalidPointer, status_BadFileFormat.
    status_t methodName(std::uint32_t methodIndex, DexMethodName& out) const;
    /// False for an item that the data cut off.
    bool codeItem(std::uint32_t offset, DexCodeItem& out) const;
    /// From an offset to the end; false for one that lies behind it.
    bool at(std::uint64_t offset, ByteCursor& out) const;

private:
    struct Table {
        std::uint32_t count;
        std::uint32_t offset;
    };
    Table tableAt(std::uint64_t position) const;
    status_t typeDescriptor(std::uint32_t typeIndex, std::string_view& out) const;

    ByteCursor m_data; ///< From the header on.
    ByteCursor m_classOffsets;
    Table m_strings;
    Table m_types;
    Table m_methods;
    Table m_classes;
};

/// The methods of a class, in the order of the file: direct ones, then virtual ones.
///
///     for (DexMembers members(dex, classDataOffset); members.nextMethod();) { members.methodIndex() ... }
class DexMembers {
public:
    /// status_BadFileFormat for an offset behind the data. One of 0 is a class without members.
    DexMembers(DexLoader const& dex, std::uint32_t classDataOffset);

    status_t status() const { return m_status; }
    /// The bytes that the counts promise, as far as there are any.
    std::uint64_t promisedBytes() const;
    /// The bytes that have been read.
    std::uint64_t bytesRead() const { return m_cursor.position() - m_start; }
    /// False at the end, and where the data end.
    bool nextMethod();

    std::uint32_t methodIndex() const { return m_methodIndex; }
    /// Of the code_item; 0 for a method without one.
    std::uint32_t codeOffset() const { return m_codeOffset; }

private:
    enum List { StaticFields, InstanceFields, DirectMethods, VirtualMethods, k_lists };
    static bool isOfMethods(unsigned int list) { return list >= DirectMethods; }
    bool readItem(bool isMethod);

    status_t m_status = status_Ok;
    ByteCursor m_cursor;
    std::uint64_t m_start = 0;
    std::uint32_t m_left[k_lists] = {}; ///< Items still to come.
    unsigned int m_list = StaticFields;
    std::uint32_t m_methodIndex = 0;
    std::uint32_t m_codeOffset = 0;
};

} // namespace ORV_3_30
