// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// What tests need of the world: temporary files, captured log records, stand-ins for loaders.
#pragma once

#include "orv/orv.h"

#include <gtest/gtest.h>
#include <log4cplus/appender.h>
#include <log4cplus/logger.h>
#include <log4cplus/spi/loggingevent.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

namespace orv_test {

using namespace ORV_3_30;

/// A folder that goes with the object.
class TempDir {
public:
    TempDir() {
        std::string pattern = (std::filesystem::temp_directory_path() / "orv-test-XXXXXX").string();
        m_path = ::mkdtemp(pattern.data());
    }
    ~TempDir() { std::filesystem::remove_all(m_path); }
    TempDir(TempDir const&) = delete;
    TempDir& operator=(TempDir const&) = delete;

    std::string path() const { return m_path.string(); }
    std::string file(std::string const& name, std::string const& content) const {
        std::string const path = (m_path / name).string();
        std::ofstream(path, std::ios::binary) << content;
        return path;
    }

private:
    std::filesystem::path m_path;
};

/// Collects the messages of the ORV logger at or above a level.
class LogCapture {
public:
    explicit LogCapture(int level = 0) : m_appender(new Appender(*this)) {
        m_logger.addAppender(m_appender);
        m_logger.setLogLevel(level);
    }
    ~LogCapture() {
        m_logger.removeAppender(m_appender);
        m_logger.setLogLevel(log4cplus::NOT_SET_LOG_LEVEL);
    }
    LogCapture(LogCapture const&) = delete;
    LogCapture& operator=(LogCapture const&) = delete;

    std::vector<std::string> const& messages() const { return m_messages; }
    /// Of the last message.
    int level() const { return m_level; }
    /// How many messages begin so.
    std::size_t count(std::string const& beginning) const {
        std::size_t found = 0;
        for (std::string const& message : m_messages) {
            found += message.compare(0, beginning.size(), beginning) == 0 ? 1 : 0;
        }
        return found;
    }

private:
    class Appender : public log4cplus::Appender {
    public:
        explicit Appender(LogCapture& capture) : m_capture(capture) {}
        ~Appender() override { destructorImpl(); }
        void close() override { closed = true; }

    protected:
        void append(log4cplus::spi::InternalLoggingEvent const& event) override {
            m_capture.m_messages.push_back(event.getMessage());
            m_capture.m_level = event.getLogLevel();
        }

    private:
        LogCapture& m_capture;
    };

    std::vector<std::string> m_messages;
    int m_level = log4cplus::NOT_SET_LOG_LEVEL;
    log4cplus::Logger m_logger = log4cplus::Logger::getInstance("ORV");
    log4cplus::SharedAppenderPtr m_appender;
};

/// The loader of a file that a test has written.
inline SymMgrObjectPtr<IFileFormatLoader> loaderOf(std::string const& path, status_t* status = nullptr) {
    SymMgrObjectPtr<IFileFormatLoader> loader;
    status_t const result =
        IFileFormatLoader::create(loader, IModuleImage::create(path.c_str(), arch_Unknown, false), "");
    if (status != nullptr) {
        *status = result;
    }
    return loader;
}

inline SymMgrObjectPtr<ISymbolManager> symbolManager() {
    SymMgrObjectPtr<ISymbolManager> manager;
    EXPECT_EQ(ISymbolManager::create(manager), status_Ok);
    return manager;
}

inline status_t loadBank(std::string const& path, SymMgrObjectPtr<IModuleSymbolBank>& bank,
                         unsigned int flags = load_flags_None, ISymbolFileResolver* resolver = nullptr) {
    return symbolManager()->loadSymbolsFromModuleEx(path.c_str(), resolver, bank, arch_Unknown, flags, "");
}

/// The bank of a file that can be loaded.
inline SymMgrObjectPtr<IModuleSymbolBank> bankOf(std::string const& path, unsigned int flags = load_flags_None,
                                                 ISymbolFileResolver* resolver = nullptr) {
    SymMgrObjectPtr<IModuleSymbolBank> bank;
    status_t const status = loadBank(path, bank, flags, resolver);
    return status == status_Ok ? bank : throw std::runtime_error(path + ": " + toUString(status));
}

constexpr auto k_allKinds = static_cast<symbol_kind_t>(31);

using RangeIterator = SymMgrObjectPtr<IIterator<SymMgrObjectPtr<ISymbolRange>>>;
using LineIterator = SymMgrObjectPtr<IIterator<SymMgrObjectPtr<ISourceLine>>>;

/// Visits each object that an iterator gives; a null iterator gives none.
template <typename T, typename Visit>
void forEach(SymMgrObjectPtr<IIterator<SymMgrObjectPtr<T>>> const& it, Visit visit) {
    for (auto item = it ? it->current() : SymMgrObjectPtr<T>(); item; item = it->current()) {
        visit(*item);
        it->next();
    }
}

inline SymMgrObjectPtr<IAddress> addressIn(IModuleSymbolBank& bank, unsigned long long value) {
    SymMgrObjectPtr<IAddress> out;
    bank.addressByValue(value, out);
    return out;
}

/// What wins at an address; null if nothing does.
inline SymMgrObjectPtr<ISymbolRange> rangeIn(IModuleSymbolBank& bank, unsigned long long address, symbol_kind_t mask) {
    SymMgrObjectPtr<ISymbolRange> range;
    bank.symbolRangeByAddress(addressIn(bank, address).get(), range, mask, nullptr);
    return range;
}

/// Where a range or a line starts.
inline unsigned long long startOf(ISymbolRange& range) {
    SymMgrObjectPtr<IAddress> start;
    range.startAddress(start);
    return start->pseudoAddr();
}
inline unsigned long long startOf(ISourceLine& line) {
    SymMgrObjectPtr<IAddress> start;
    line.address(start);
    return start->pseudoAddr();
}

/// "name@start+size" of what wins at an address; "none" if nothing does.
inline std::string symbolAt(IModuleSymbolBank& bank, unsigned long long address, symbol_kind_t mask = k_allKinds) {
    SymMgrObjectPtr<ISymbolRange> const range = rangeIn(bank, address, mask);
    if (!range) {
        return "none";
    }
    std::ostringstream text;
    text << range->symbol()->name() << '@' << std::hex << startOf(*range) << '+' << std::dec << range->size();
    return text.str();
}

inline std::string rangeText(ISymbolRange& range) {
    std::ostringstream text;
    text << (range.symbol() != nullptr ? range.symbol()->name() : "-") << '[' << startOf(range) << ','
         << startOf(range) + range.size() << ')';
    return text.str();
}

/// All ranges of an iterator as text, one blank between them.
inline std::string allRanges(RangeIterator const& it) {
    std::string text;
    forEach(it, [&](ISymbolRange& range) { text += (text.empty() ? "" : " ") + rangeText(range); });
    return text;
}

/// The ranges of a bank as loaded, and those inside one, likewise.
inline std::string symbolsOf(IModuleSymbolBank& bank, symbol_kind_t mask = k_allKinds) {
    RangeIterator ranges;
    bank.originalSymbolRanges(ranges, mask, nullptr, nullptr);
    return allRanges(ranges);
}
inline std::string symbolsIn(ISymbolRange& range) {
    RangeIterator ranges;
    range.innerRanges(ranges);
    return allRanges(ranges);
}

/// The place of the source at an address; null if none is known.
inline SymMgrObjectPtr<ISourceLocation> placeIn(IModuleSymbolBank& bank, unsigned long long address) {
    SymMgrObjectPtr<ISourceLocation> place;
    bank.sourceLocationByAddress(addressIn(bank, address).get(), place, ~0ULL, nullptr);
    return place;
}

} // namespace orv_test
