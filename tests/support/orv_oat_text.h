// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// What an OAT file is to hold, as values and as text. One line a thing, words parted by blanks, '#' begins a comment:
///
///     oat 22 base=0x10000 at=0x1000          # version; elf32 machine= exec= execfield= trailer= decoys=
///     dex location=/system/app/Shop.apk      # magic= version=
///     class com.example.Foo some             # all, some, none, type=N; source= bitmap= offset= data= descriptor=
///       field static count I
///       method direct main(II)V code=32 thumb
///         map 0:0 4:2 10:8                   # native to dex: offset in the code : dex pc
///         dex2native 6:4                     # the second table; it goes on from the first one's dex pc
///         insns 12
///         debug 12 params=a,b : step 0 0; pc 2; line 3; special 10; file Other.java; step 6 1; end
///       method virtual run()V uncompiled
///     class com.example.Foo$Bar none source=-
///
/// - base= is the address of the OAT data, at= their offset in the file. exec= is where the code begins in them, and
///   execfield= what the header says of it. trailer= is a length. decoys= are symbols in front of oatdata.
/// - A class is named with dots or, behind "=", by its descriptor as it is. source= is Foo.java by default, "-" for
/// none,
///   "@5" for string number 5. bitmap= are bytes, as in 05ff; by default it tells the truth. descriptor= is the number
///   of the string that names the class.
/// - A method: name and signature, then access=, code= (bytes), thumb (odd code offset), nocode (no code item, native),
///   uncompiled (no entry), codesize= (what the word says), codeoff=, dexcode=, debugoff=, name= and class= (numbers
///   in its method_id_item), mapword= (the word that leads to its mapping table).
/// - Under a method: map, dex2native, total and pc2dex (what the head of the table says), rawmap BYTES in place of all
///   four. Without any of them there is no table. "insns 8 size=N": units, and what the item says of them.
/// - debug LINE [params=a,-,b] : OPERATIONS. They are pc N, line N, local A B C, localx A B C D, endlocal N, restart N,
///   prologue, epilogue, file NAME or @NUMBER, special OPCODE, step PC LINE (the special opcode for these), raw BYTES
///   and end. Operands are numbers as they stand in the file, so that of "local" 0 means no name and no type.
/// - tail BYTES: the last bytes of the OAT data.
/// - Where a place is asked for (offset=, data=, codeoff=, dexcode=, debugoff=, mapword=) it is a number, exec+N or
///   end-N. Within DEX data it counts from the DEX header.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace orv_test {

/// A place in the OAT data.
struct OatPlace {
    enum class From { Start, Code, End };
    From from = From::Start;
    std::int64_t offset = 0;
};

struct OatPair {
    std::uint32_t native; ///< From the start of the method's code.
    std::uint32_t dex;
};

struct OatMapping {
    std::vector<OatPair> toDex{};
    std::vector<OatPair> fromDex{};
    std::optional<std::uint32_t> total{};     ///< Where the head says something else.
    std::optional<std::uint32_t> toDexSize{}; ///< Where the head says something else.
    std::optional<std::string> raw{};         ///< The whole table.
};

/// One operation of a debug program, or bytes that stand in its place.
struct DexDebugOp {
    std::uint8_t code = 0;
    std::vector<std::int64_t> operands{};
    std::optional<std::string> file{};
    std::optional<std::string> raw{};
};

struct DexDebug {
    std::uint32_t line = 0;
    /// Names, without one for "-"; by default none for each parameter of the signature.
    std::optional<std::vector<std::optional<std::string>>> parameters{};
    std::vector<DexDebugOp> program{};
};

struct OatMethodText {
    bool isDirect = true;
    std::string name{};
    std::string signature{};
    std::optional<std::uint32_t> access{};
    bool hasCodeItem = true;
    bool isCompiled = true;
    bool isThumb = false;
    std::uint32_t codeSize = 32;
    std::optional<std::uint32_t> codeSizeField{};
    std::optional<OatPlace> codeOffset{};
    std::optional<OatPlace> dexCode{};
    std::optional<OatPlace> debugOffset{};
    std::optional<OatPlace> mapWord{};
    std::optional<std::uint32_t> nameIndex{};
    std::optional<std::uint32_t> classIndex{};
    std::optional<OatMapping> mapping{};
    std::optional<std::uint32_t> insns{}; ///< By default as many as the debug program reaches.
    std::optional<std::uint32_t> insnsField{};
    std::optional<DexDebug> debug{};
};

struct OatFieldText {
    bool isStatic;
    std::string name;
    std::string type;
};

enum OatClassType : std::uint16_t { oatClassAll = 0, oatClassSome = 1, oatClassNone = 2 };

struct OatClassText {
    std::string descriptor{};
    std::optional<std::string> source{};
    std::optional<std::uint32_t> sourceIndex{};
    std::optional<std::uint32_t> descriptorIndex{};
    std::uint16_t type = oatClassAll;
    std::optional<std::string> bitmap{};
    std::optional<OatPlace> offset{};
    std::optional<OatPlace> data{};
    std::vector<OatFieldText> fields{};
    std::vector<OatMethodText> methods{};

    bool hasEntry(OatMethodText const& method) const { return type != oatClassNone && method.isCompiled; }
};

struct OatDexText {
    std::string magic = "dex";
    std::string version = "035";
    std::string location = "classes.dex";
    std::vector<OatClassText> classes{};
};

struct OatDescription {
    std::string version = "022"; ///< Up to 4 characters.
    bool is32 = false;
    std::optional<std::uint16_t> machine{};
    std::uint64_t base = 0x10000;
    std::uint64_t fileOffset = 0x1000;
    std::optional<std::uint32_t> codeStart{}; ///< By default right behind the tables.
    std::optional<std::uint32_t> codeStartField{};
    std::uint32_t trailerSize = 0;
    unsigned int decoys = 0;
    std::string tail{};
    std::vector<OatDexText> dex{};

    long versionNumber() const;
};

/// Throws std::runtime_error, which names the line, on a text that means nothing.
OatDescription parseOat(std::string const& text);

} // namespace orv_test
