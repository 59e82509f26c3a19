// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// Program files of GPU kernels made from a few words, with what a reader is to say of each byte that is missing. Those
/// of the QDC compiler are in orv_qdc_file.h.
///
///     rlnFile("files unknown.cl\nkernels k\nrecord 0\n0 3 1 0\n16 4 1 0\n");       // address, line, column, file
#pragma once

#include "gpu/orv_gpu_parser.h"
#include "support/orv_test_support.h"

#include <algorithm>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

namespace orv_test {

/// Bytes, and in the order of the reader's tests what it says where a file ends ahead of them.
class CheckedBytes {
public:
    void raw(std::string const& bytes) { m_bytes += bytes; }
    void number(unsigned long long value, unsigned int width) {
        for (unsigned int i = 0; i < width; ++i) {
            m_bytes += static_cast<char>(value >> (8 * i));
        }
    }
    /// The next bytes are tested for: said is said if not so many follow.
    void check(std::uint64_t size, std::vector<std::string> const& said) {
        m_checks.push_back({m_bytes.size() + size, said});
    }
    std::string const& bytes() const { return m_bytes; }
    /// What a reader says of the first so many bytes.
    std::vector<std::string> saidOf(std::size_t size) const {
        for (Check const& check : m_checks) {
            if (check.end > size) {
                return check.said;
            }
        }
        return {};
    }

private:
    struct Check {
        std::uint64_t end;
        std::vector<std::string> said;
    };
    std::string m_bytes;
    std::vector<Check> m_checks;
};

/// A file with another word at an offset.
inline std::string withWord(std::string bytes, std::size_t offset, std::uint32_t value) {
    for (std::size_t i = 0; i < 4; ++i) {
        bytes.at(offset + i) = static_cast<char>(value >> (8 * i));
    }
    return bytes;
}

/// The conditions of failed assertions, and other reports of a log without the place in the source.
inline std::vector<std::string> saidIn(LogCapture const& log) {
    std::vector<std::string> said;
    for (std::string const& message : log.messages()) {
        std::string const mark = "ASSERTION FAILED: '";
        bool const isAssertion = message.compare(0, mark.size(), mark) == 0;
        std::size_t const begin = isAssertion ? mark.size() : 0;
        said.push_back(message.substr(begin, message.find(isAssertion ? "', at file: " : ", at file: ") - begin));
    }
    return said;
}

inline std::vector<std::string> wordsOf(std::string const& line) {
    std::istringstream in(line);
    std::vector<std::string> words;
    for (std::string word; in >> word;) {
        words.push_back(word);
    }
    return words;
}

/// Calls visit with the words of each line.
template <typename Visit> void forEachLine(std::string const& text, Visit const& visit) {
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) {
        std::vector<std::string> const words = wordsOf(line);
        if (!words.empty()) {
            visit(words.front(), std::vector<std::string>(words.begin() + 1, words.end()));
        }
    }
}

inline unsigned long long valueOf(std::string const& word) { return std::stoull(word, nullptr, 0); }

// --- RLN: directories, files and kernels by name; records of kernels, each with its lines

struct RlnRecord {
    unsigned long long kernel;
    std::vector<std::vector<std::string>> lines;
};

/// A test of this format, for a record, that is true even if its last byte is missing.
inline void checkRln(CheckedBytes& out, char const* record, std::uint64_t offset, std::uint64_t size) {
    out.check(offset + size - 1, {"(size_t)((uint8_t*)(" + std::string(record) +
                                  " + 1) - 1 - (uint8_t*)m_header) <= m_debugInfo->size()"});
}

/// The tests are those of a question for the last record.
inline CheckedBytes checkedRlnFile(std::string const& text) {
    std::vector<std::string> names[3];
    std::vector<RlnRecord> records;
    forEachLine(text, [&](std::string const& what, std::vector<std::string> const& words) {
        if (what == "dirs" || what == "files" || what == "kernels") {
            names[what == "dirs" ? 0 : what == "files" ? 1 : 2] = words;
        } else if (what == "record") {
            records.push_back({valueOf(words.at(0)), {}});
        } else {
            records.back().lines.push_back({what, words.at(0), words.at(1), words.at(2)});
        }
    });
    std::string strings;
    for (auto const& kind : names) {
        for (std::string const& name : kind) {
            strings += name + '\0';
        }
    }
    std::string const unread = "neither directories nor files are read";
    CheckedBytes out;
    for (unsigned long long const word :
         {0x4E4C52ULL, 1020ULL, 0ULL, static_cast<unsigned long long>(strings.size()), 0ULL, 4 + 0ULL + unread.size(),
          1024ULL, 1024ULL, 1024ULL, static_cast<unsigned long long>(names[2].size()),
          static_cast<unsigned long long>(records.size())}) {
        out.number(word, 4);
    }
    out.raw(strings);
    checkRln(out, "m_dirTableHeader", 0, 4);
    out.number(names[0].size(), 4);
    checkRln(out, "m_fileTableHeader", 0, 4);
    out.number(names[1].size(), 4);
    out.raw(unread);
    for (RlnRecord const& record : records) {
        checkRln(out, "kernelDataHeader", 0, 12);
        checkRln(out, "lineTableHeader", 12, 4);
        checkRln(out, "lineTableEntry", 16, 12);
        out.number(record.kernel, 4);
        out.number(0xEEEEEEEEEEEEEEEE, 8);
        out.number(record.lines.size(), 4);
        for (auto const& line : record.lines) {
            out.number(valueOf(line[0]), 4);
            out.number(valueOf(line[1]), 3);
            out.number(valueOf(line[2]), 1);
            out.number(valueOf(line[3]), 4);
        }
    }
    return out;
}
inline std::string rlnFile(std::string const& text) { return checkedRlnFile(text).bytes(); }

// --- What readers are given, and what they give

/// A block that ends where it says, so that the sanitizers see who reads behind it.
class ExactBlock final : public SymMgrObject<IBuffer> {
public:
    explicit ExactBlock(std::string const& bytes)
        : m_data(std::make_unique<unsigned char[]>(bytes.size())), m_size(bytes.size()) {
        std::copy(bytes.begin(), bytes.end(), m_data.get());
    }
    unsigned long long size() override { return m_size; }
    unsigned char* data() override { return m_data.get(); }

private:
    std::unique_ptr<unsigned char[]> m_data;
    std::size_t m_size;
};
inline SymMgrObjectPtr<IBuffer> blockOf(std::string const& bytes) {
    return SymMgrObjectPtr<IBuffer>(new ExactBlock(bytes));
}

/// "address:line:column:file" of each line.
inline std::string textOf(std::vector<VexLineEntry> const& lines) {
    std::ostringstream text;
    for (VexLineEntry const& line : lines) {
        text << (text.str().empty() ? "" : " ") << line.address << ':' << line.line << ':' << line.column << ':'
             << line.fileId;
    }
    return text.str();
}
inline std::string textOf(std::vector<std::string> const& names) {
    std::string text;
    for (std::string const& name : names) {
        text += name + ' ';
    }
    return text.substr(0, text.size() - (text.empty() ? 0 : 1));
}

struct LinesAnswer {
    status_t status = status_NotInitialized; ///< Where there is no reader.
    std::string lines;
    std::vector<std::string> said;
};
/// What a reader gives of a kernel, and what it and its making say. open: makes it; null for a file that is refused.
template <typename Open> LinesAnswer askForLines(Open const& open, std::string const& kernel) {
    LogCapture const log(log4cplus::WARN_LOG_LEVEL);
    LinesAnswer answer;
    std::vector<VexLineEntry> lines;
    if (SymMgrObjectPtr<IVexDebugInfoParser> const parser = open()) {
        answer.status = parser->lineInfo(kernel, lines);
    }
    answer.lines = textOf(lines);
    answer.said = saidIn(log);
    return answer;
}

} // namespace orv_test
