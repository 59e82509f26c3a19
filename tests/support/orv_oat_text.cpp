// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
// Reads descriptions of OAT files, line by line, each kind of line by a table of its words.
#include "support/orv_oat_text.h"

#include <cstdlib>
#include <map>
#include <sstream>
#include <stdexcept>
#include <string_view>

namespace orv_test {
namespace {
using Words = std::vector<std::string>;

template <typename Target> using Options = std::map<std::string_view, void (*)(Target&, std::string const&)>;

[[noreturn]] void fail(std::string const& what) { throw std::runtime_error(what); }

std::int64_t number(std::string const& text) {
    char* end = nullptr;
    long long const value = std::strtoll(text.c_str(), &end, 0);
    if (text.empty() || *end != '\0') {
        fail("not a number: " + text);
    }
    return value;
}

std::uint32_t word(std::string const& text) { return static_cast<std::uint32_t>(number(text)); }

OatPlace place(std::string const& text) {
    OatPlace result;
    std::string rest = text;
    for (auto const& [name, from] : {std::pair("exec", OatPlace::From::Code), std::pair("end", OatPlace::From::End)}) {
        if (text.rfind(name, 0) == 0) {
            result.from = from;
            rest = text.substr(std::string_view(name).size());
        }
    }
    result.offset = rest.empty() ? 0 : number(rest);
    return result;
}

std::string bytes(std::string const& text) {
    std::string digits;
    for (char const c : text) {
        digits += c == ' ' || c == '\t' ? std::string() : std::string(1, c);
    }
    std::string result;
    for (std::size_t i = 0; i < digits.size(); i += 2) {
        std::string const byte = digits.substr(i, 2);
        if (byte.size() != 2 || byte.find_first_not_of("0123456789abcdefABCDEF") != std::string::npos) {
            fail("not bytes: " + text);
        }
        result += static_cast<char>(std::stoi(byte, nullptr, 16));
    }
    return result;
}

Words split(std::string const& text) {
    std::istringstream stream(text);
    Words result;
    for (std::string one; stream >> one;) {
        result.push_back(one);
    }
    return result;
}

std::vector<std::string> splitAt(std::string const& text, char separator) {
    std::istringstream stream(text);
    std::vector<std::string> result;
    for (std::string one; std::getline(stream, one, separator);) {
        result.push_back(one);
    }
    return result;
}

/// Words "key" and "key=value" from the given one on.
template <typename Target>
void apply(Target& target, Words const& words, std::size_t first, Options<Target> const& table) {
    for (std::size_t i = first; i < words.size(); ++i) {
        std::size_t const sign = words[i].find('=');
        auto const found = table.find(words[i].substr(0, sign));
        if (found == table.end()) {
            fail("what is this: " + words[i]);
        }
        found->second(target, sign == std::string::npos ? "" : words[i].substr(sign + 1));
    }
}

Options<OatDescription> const k_oatOptions = {
    {"elf32", [](auto& oat, auto const&) { oat.is32 = true; }},
    {"machine", [](auto& oat, auto const& value) { oat.machine = static_cast<std::uint16_t>(number(value)); }},
    {"base", [](auto& oat, auto const& value) { oat.base = static_cast<std::uint64_t>(number(value)); }},
    {"at", [](auto& oat, auto const& value) { oat.fileOffset = static_cast<std::uint64_t>(number(value)); }},
    {"exec", [](auto& oat, auto const& value) { oat.codeStart = word(value); }},
    {"execfield", [](auto& oat, auto const& value) { oat.codeStartField = word(value); }},
    {"trailer", [](auto& oat, auto const& value) { oat.trailerSize = word(value); }},
    {"decoys", [](auto& oat, auto const& value) { oat.decoys = word(value); }},
};

Options<OatDexText> const k_dexOptions = {
    {"magic", [](auto& dex, auto const& value) { dex.magic = value; }},
    {"version", [](auto& dex, auto const& value) { dex.version = value; }},
    {"location", [](auto& dex, auto const& value) { dex.location = value; }},
};

void setSource(OatClassText& one, std::string const& value) {
    one.source.reset();
    if (value.rfind('@', 0) == 0) {
        one.sourceIndex = word(value.substr(1));
    } else if (value != "-") {
        one.source = value;
    }
}

Options<OatClassText> const k_classOptions = {
    {"all", [](auto& one, auto const&) { one.type = oatClassAll; }},
    {"some", [](auto& one, auto const&) { one.type = oatClassSome; }},
    {"none", [](auto& one, auto const&) { one.type = oatClassNone; }},
    {"type", [](auto& one, auto const& value) { one.type = static_cast<std::uint16_t>(number(value)); }},
    {"source", setSource},
    {"bitmap", [](auto& one, auto const& value) { one.bitmap = bytes(value); }},
    {"offset", [](auto& one, auto const& value) { one.offset = place(value); }},
    {"data", [](auto& one, auto const& value) { one.data = place(value); }},
    {"descriptor", [](auto& one, auto const& value) { one.descriptorIndex = word(value); }},
};

Options<OatMethodText> const k_methodOptions = {
    {"access", [](auto& method, auto const& value) { method.access = word(value); }},
    {"code", [](auto& method, auto const& value) { method.codeSize = word(value); }},
    {"codesize", [](auto& method, auto const& value) { method.codeSizeField = word(value); }},
    {"thumb", [](auto& method, auto const&) { method.isThumb = true; }},
    {"nocode", [](auto& method, auto const&) { method.hasCodeItem = false; }},
    {"uncompiled", [](auto& method, auto const&) { method.isCompiled = false; }},
    {"codeoff", [](auto& method, auto const& value) { method.codeOffset = place(value); }},
    {"dexcode", [](auto& method, auto const& value) { method.dexCode = place(value); }},
    {"debugoff", [](auto& method, auto const& value) { method.debugOffset = place(value); }},
    {"mapword", [](auto& method, auto const& value) { method.mapWord = place(value); }},
    {"name", [](auto& method, auto const& value) { method.nameIndex = word(value); }},
    {"class", [](auto& method, auto const& value) { method.classIndex = word(value); }},
};

OatClassText classOf(Words const& words) {
    OatClassText one;
    std::string const& name = words.at(1);
    if (name[0] == '=') {
        one.descriptor = name.substr(1);
    } else {
        one.descriptor = "L" + name + ";";
        for (char& c : one.descriptor) {
            c = c == '.' ? '/' : c;
        }
        std::string const simple = name.substr(name.rfind('.') + 1);
        one.source = simple.substr(0, simple.find('$')) + ".java";
    }
    apply(one, words, 2, k_classOptions);
    return one;
}

OatMethodText methodOf(Words const& words) {
    OatMethodText method;
    std::string const& whole = words.at(2);
    std::size_t const bracket = whole.find('(');
    if ((words[1] != "direct" && words[1] != "virtual") || bracket == std::string::npos) {
        fail("method: direct or virtual, then name(types)type");
    }
    method.isDirect = words[1] == "direct";
    method.name = whole.substr(0, bracket);
    method.signature = whole.substr(bracket);
    apply(method, words, 3, k_methodOptions);
    return method;
}

std::vector<OatPair> pairsOf(Words const& words) {
    std::vector<OatPair> result;
    for (std::size_t i = 1; i < words.size(); ++i) {
        std::size_t const colon = words[i].find(':');
        if (colon == std::string::npos) {
            fail("not native:dex: " + words[i]);
        }
        result.push_back({word(words[i].substr(0, colon)), word(words[i].substr(colon + 1))});
    }
    return result;
}

struct OpName {
    std::uint8_t code;
    std::size_t operands;
};
std::map<std::string_view, OpName> const k_operations = {
    {"end", {0, 0}},      {"pc", {1, 1}},      {"line", {2, 1}},     {"local", {3, 3}},    {"localx", {4, 4}},
    {"endlocal", {5, 1}}, {"restart", {6, 1}}, {"prologue", {7, 0}}, {"epilogue", {8, 0}},
};

DexDebugOp opOf(std::string const& text) {
    Words const words = split(text);
    DexDebugOp op;
    std::string const& name = words.at(0);
    if (name == "raw") {
        op.raw = bytes(text.substr(text.find("raw") + 3));
    } else if (name == "file") {
        op.code = 9;
        if (words.at(1)[0] == '@') {
            op.operands = {number(words[1].substr(1))};
        } else {
            op.file = words[1];
        }
    } else if (name == "special" || name == "step") {
        std::int64_t const code =
            name == "special" ? number(words.at(1)) : 10 + number(words.at(1)) * 15 + number(words.at(2)) + 4;
        if (code < 10 || code > 255 || (name == "step" && (number(words[2]) < -4 || number(words[2]) > 10))) {
            fail("no special opcode for this: " + text);
        }
        op.code = static_cast<std::uint8_t>(code);
    } else {
        auto const found = k_operations.find(name);
        if (found == k_operations.end() || words.size() != 1 + found->second.operands) {
            fail("not an operation: " + text);
        }
        op.code = found->second.code;
        for (std::size_t i = 1; i < words.size(); ++i) {
            op.operands.push_back(number(words[i]));
        }
    }
    return op;
}

DexDebug debugOf(std::string const& line) {
    std::size_t const colon = line.find(" :");
    Words const words = split(line.substr(0, colon));
    DexDebug debug;
    debug.line = word(words.at(1));
    Options<DexDebug> const options = {{"params", [](auto& target, auto const& value) {
                                            target.parameters.emplace();
                                            for (std::string const& name : splitAt(value, ',')) {
                                                target.parameters->push_back(
                                                    name == "-" ? std::nullopt : std::optional<std::string>(name));
                                            }
                                        }}};
    apply(debug, words, 2, options);
    for (std::string const& op : splitAt(colon == std::string::npos ? "" : line.substr(colon + 2), ';')) {
        if (!split(op).empty()) {
            debug.program.push_back(opOf(op));
        }
    }
    return debug;
}

/// A line under a method; false if it is none.
bool methodLine(OatMethodText& method, std::string const& line, Words const& words) {
    std::string const& kind = words[0];
    auto const mapping = [&]() -> OatMapping& { return method.mapping ? *method.mapping : method.mapping.emplace(); };
    if (kind == "map") {
        mapping().toDex = pairsOf(words);
    } else if (kind == "dex2native") {
        mapping().fromDex = pairsOf(words);
    } else if (kind == "total") {
        mapping().total = word(words.at(1));
    } else if (kind == "pc2dex") {
        mapping().toDexSize = word(words.at(1));
    } else if (kind == "rawmap") {
        mapping().raw = bytes(line.substr(line.find("rawmap") + 6));
    } else if (kind == "insns") {
        method.insns = word(words.at(1));
        Options<OatMethodText> const options = {
            {"size", [](auto& target, auto const& value) { target.insnsField = word(value); }}};
        apply(method, words, 2, options);
    } else if (kind == "debug") {
        method.debug = debugOf(line);
    } else {
        return false;
    }
    return true;
}

void readLine(OatDescription& oat, std::string const& line) {
    Words const words = split(line);
    std::string const& kind = words.at(0);
    if (kind == "oat") {
        std::string const& version = words.at(1);
        bool const isNumber = version.find_first_not_of("0123456789") == std::string::npos;
        oat.version = isNumber && version.size() < 3 ? std::string(3 - version.size(), '0') + version : version;
        apply(oat, words, 2, k_oatOptions);
    } else if (kind == "tail") {
        oat.tail = bytes(line.substr(line.find("tail") + 4));
    } else if (kind == "dex") {
        apply(oat.dex.emplace_back(), words, 1, k_dexOptions);
    } else if (oat.dex.empty()) {
        fail("this needs a dex: " + kind);
    } else if (kind == "class") {
        oat.dex.back().classes.push_back(classOf(words));
    } else if (oat.dex.back().classes.empty()) {
        fail("this needs a class: " + kind);
    } else if (OatClassText& one = oat.dex.back().classes.back(); kind == "field") {
        one.fields.push_back({words.at(1) == "static", words.at(2), words.at(3)});
    } else if (kind == "method") {
        one.methods.push_back(methodOf(words));
    } else if (one.methods.empty() || !methodLine(one.methods.back(), line, words)) {
        fail("what is this: " + kind);
    }
}
} // namespace

long OatDescription::versionNumber() const { return std::strtol(version.substr(0, 4).c_str(), nullptr, 10); }

OatDescription parseOat(std::string const& text) {
    OatDescription oat;
    std::istringstream stream(text);
    std::string line;
    for (std::size_t count = 1; std::getline(stream, line); ++count) {
        std::size_t comment = line.find('#');
        while (comment != std::string::npos && comment != 0 && line[comment - 1] != ' ') {
            comment = line.find('#', comment + 1);
        }
        line = line.substr(0, comment);
        if (split(line).empty()) {
            continue;
        }
        try {
            readLine(oat, line);
        } catch (std::out_of_range const&) {
            throw std::runtime_error("line " + std::to_string(count) + ": a word is missing: " + line);
        } catch (std::runtime_error const& error) {
            throw std::runtime_error("line " + std::to_string(count) + ": " + error.what());
        }
    }
    return oat;
}

} // namespace orv_test
