// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
// Writes an OAT file from a text, with --dex its DEX files too; with --many one of as many methods as are asked for.
#include "support/orv_oat_writer.h"

#include <cstdio>
#include <fstream>
#include <iostream>
#include <sstream>
#include <stdexcept>

namespace {
using namespace orv_test;

constexpr char k_usage[] = "orv_oat_make TEXTFILE OUT.oat [--dex PREFIX]\n"
                           "orv_oat_make --many METHODS DEXFILES OUT.oat\n";
constexpr unsigned int k_methodsOfClass = 10;
constexpr unsigned int k_lines = 12;
constexpr unsigned int k_pairs = 8;

void save(std::string const& path, std::string const& bytes) {
    std::ofstream file(path, std::ios::binary);
    if (!(file << bytes).flush()) {
        throw std::runtime_error(path + ": cannot be written");
    }
}

std::string textOf(std::string const& path) {
    std::ifstream file(path, std::ios::binary);
    std::stringstream text;
    if (!file || !(text << file.rdbuf())) {
        throw std::runtime_error(path + ": cannot be read");
    }
    return text.str();
}

OatMethodText methodOf(unsigned int number) {
    static char const* const signatures[] = {"()V", "(I)V", "(ILjava/lang/String;)V", "(JZ)V", "([B)V"};
    OatMethodText method;
    method.isDirect = number % 3 != 0;
    method.name = "method" + std::to_string(number % k_methodsOfClass);
    method.signature = signatures[number % std::size(signatures)];
    method.codeSize = 64 + number % 7 * 16;
    OatMapping& mapping = method.mapping.emplace();
    for (unsigned int i = 0; i < k_pairs; ++i) {
        mapping.toDex.push_back({4 + 7 * i, 3 * i});
    }
    DexDebug& debug = method.debug.emplace();
    debug.line = 10 + number % k_methodsOfClass * (2 * k_lines);
    debug.program.push_back({7});
    for (unsigned int i = 0; i < k_lines; ++i) {
        unsigned int const pcs = i == 0 ? 0 : 2;
        debug.program.push_back({static_cast<std::uint8_t>(10 + pcs * 15 + 4 + (i + number) % 3)});
    }
    debug.program.push_back({});
    return method;
}

OatDescription manyMethods(unsigned int methods, unsigned int files) {
    OatDescription oat;
    oat.dex.resize(files);
    unsigned int const perFile = (methods + files - 1) / files;
    for (unsigned int i = 0; i < methods; ++i) {
        unsigned int const classNumber = i / k_methodsOfClass;
        OatDexText& dex = oat.dex[i / perFile];
        dex.location = "/system/app/Many/Many.apk:classes" + std::to_string(i / perFile + 1) + ".dex";
        if (dex.classes.empty() || i % k_methodsOfClass == 0) {
            std::string const name = "Class" + std::to_string(classNumber);
            OatClassText& one = dex.classes.emplace_back();
            one.descriptor = "Lcom/example/package" + std::to_string(classNumber / 20) + "/" + name + ";";
            one.source = name + ".java";
            one.fields.push_back({false, "count", "I"});
        }
        dex.classes.back().methods.push_back(methodOf(i));
    }
    return oat;
}

int make(std::vector<std::string> const& words) {
    bool const isMany = words.size() == 4 && words[0] == "--many";
    bool const hasDex = words.size() == 4 && words[2] == "--dex";
    if (!isMany && !hasDex && words.size() != 2) {
        std::cerr << k_usage;
        return 2;
    }
    if (isMany) {
        unsigned long const methods = std::stoul(words[1]);
        unsigned long const files = std::stoul(words[2]);
        if (files == 0 || methods < files || methods > 65536 * files) {
            throw std::runtime_error("a DEX file has 1 to 65536 methods");
        }
        save(words[3], writeOat(manyMethods(static_cast<unsigned>(methods), static_cast<unsigned>(files))).elf);
        return 0;
    }
    OatFile const oat = writeOat(textOf(words[0]));
    save(words[1], oat.elf);
    for (std::size_t i = 0; hasDex && i < oat.dex.size(); ++i) {
        save(words[3] + std::to_string(i) + ".dex", oat.dex[i]);
    }
    return 0;
}
} // namespace

int main(int argc, char** argv) {
    try {
        return make(std::vector<std::string>(argv + 1, argv + argc));
    } catch (std::exception const& error) {
        std::cerr << "orv_oat_make: " << error.what() << '\n';
        return 1;
    }
}
