// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
#include "format/orv_ffl.h"
#include "format/orv_section.h"
#include "lines/orv_dil.h"
#include "support/orv_elf_builder.h"
#include "support/orv_test_support.h"

#include <cstring>

using namespace orv_test;

namespace {

/// A candidate that is always valid.
class Candidate final : public SymMgrObject<ISymbolFileToResolve> {
public:
    explicit Candidate(std::string name) : m_name(std::move(name)) {}
    char const* symbolFileName() override { return m_name.c_str(); }
    char const* moduleFileName() override { return "module"; }
    symbol_file_format_t symbolFileFormat() override { return symbolFormatDwarf; }
    symbol_file_validity_t validity() override { return symbolFileValid; }
    long long validateSymbolFile(char const* /*file*/) override { return -1; }
    unsigned int candidateClassFlag() override { return 0; }

private:
    std::string m_name;
};

/// A format of its own: what the frame gives without any file structure.
class PlainLoader final : public FileFormatLoader {
public:
    explicit PlainLoader(std::string file = "") : m_file(std::move(file)) {}
    char const* fileName() override { return m_file.c_str(); }
    exec_format_t fileFormat() override { return exec_format_Foreign; }
    arch_t architecture() override { return arch_Unknown; }
    unsigned long long preferredLoadAddress() override { return 0x1000; }
    unsigned long long entryPoint() override { return 0; }
    unsigned long long imageSize() override { return 0; }
    status_t loadSymbols(ISymbolTable*, AcceptedRanges*, unsigned int) override { return status_Ok; }
    void sectionByName(SymMgrObjectPtr<ISection>& out, char const*) override { out = nullptr; }
    void sectionByIndex(SymMgrObjectPtr<ISection>& out, unsigned int) override { out = nullptr; }
    char const* targetName() override { return ""; }
    status_t collectSymbolFiles(SymbolFiles& files) override {
        files.emplace_back(new Candidate("made"));
        files.emplace_back(new Candidate("refused"));
        return status_Ok;
    }
    IDebugInfoLoader* createDebugInfoLoader(char const* name, symbol_file_format_t, unsigned int) override {
        ++made;
        return std::string(name) == "made" ? new EmptyDebugInfoLoader(name) : nullptr;
    }
    void addSectionEnds(ISymbolTable*) override {}
    int made = 0;

private:
    std::string m_file;
};

std::string segmentsOf(PlainLoader& loader) {
    std::string text;
    for (unsigned int i = 0; ISegment* const segment = loader.segmentByIndex(i); ++i) {
        text += std::string(text.empty() ? "" : " ") + segment->name();
    }
    return text;
}

} // namespace

TEST(FileFormatLoader, TypedSegmentsDisplaceUntypedOnes) {
    struct Added {
        char const* name;
        unsigned long long address;
        unsigned long long size;
        unsigned int type;
        bool isTaken;
    };
    struct {
        char const* name;
        std::vector<Added> added;
        char const* expected;
    } const rows[] = {
        {"other over code", {{"a", 0, 100, 1, true}, {"b", 50, 10, 0, false}}, "a"},
        {"code over other", {{"a", 0, 100, 0, true}, {"b", 50, 10, 1, true}}, "b"},
        {"code over code", {{"a", 0, 100, 1, true}, {"b", 50, 100, 1, false}}, "a"},
        {"touching", {{"a", 0, 100, 1, true}, {"b", 100, 10, 1, true}}, "a b"},
        {"over several others",
         {{"a", 0, 10, 0, true}, {"b", 10, 10, 0, true}, {"c", 20, 10, 0, true}, {"d", 5, 20, 2, true}},
         "d"},
        {"one typed in the way", {{"a", 0, 10, 0, true}, {"b", 10, 10, 1, true}, {"c", 0, 20, 1, false}}, "a b"},
        {"empty at the same place", {{"a", 10, 0, 1, true}, {"b", 10, 0, 1, true}}, "b"},
        {"the type goes with its segment", {{"a", 10, 0, 1, true}, {"b", 10, 0, 0, true}, {"c", 5, 10, 1, true}}, "c"},
    };
    for (auto const& row : rows) {
        SymMgrObjectPtr<PlainLoader> const loader(new PlainLoader);
        for (Added const& added : row.added) {
            EXPECT_EQ(loader->addSegment(added.address, added.name, 0, 0, 0, added.size, added.type), added.isTaken)
                << row.name << ": " << added.name;
        }
        EXPECT_EQ(segmentsOf(*loader), row.expected) << row.name;
    }
}

TEST(FileFormatLoader, EndsCountAsInside) {
    SymMgrObjectPtr<PlainLoader> const loader(new PlainLoader);
    loader->addSegment(0x1000, "a", 0, 0x100, 0x50, 0x80, 1);
    loader->addSegment(0x1100, "b", 0x100, 0x150, 0x20, 0x20, 2);
    auto const nameOf = [](ISegment* segment) { return std::string(segment != nullptr ? segment->name() : "none"); };
    EXPECT_EQ(nameOf(loader->segmentByAddress(0xFFF)), "none");
    EXPECT_EQ(nameOf(loader->segmentByAddress(0x1080)), "a");
    EXPECT_EQ(nameOf(loader->segmentByAddress(0x1081)), "none");
    EXPECT_EQ(nameOf(loader->segmentByAddress(0x1100)), "b");
    EXPECT_EQ(nameOf(loader->segmentByFileOffset(0x150)), "b") << "the one that holds it before the one that ends";
    EXPECT_EQ(nameOf(loader->segmentByFileOffset(0x170)), "b");
    EXPECT_EQ(nameOf(loader->segmentByFileOffset(0x171)), "none");
    EXPECT_EQ(nameOf(loader->segmentByName("c")), "none");
    EXPECT_EQ(nameOf(loader->segmentByIndex(2)), "none");
    loader->addSegment(0x1200, "d", 0x200, 0x160, 0x10, 0x10, 2);
    loader->addSection("s", 0x9000, 0x10);
    ISection* const section = loader->sectionByAddress(0x9010);
    ASSERT_NE(section, nullptr);
    EXPECT_EQ(section->fileOffset(), 0x9000U);
    EXPECT_EQ(loader->sectionByAddress(0x9011), nullptr);

    SymMgrObjectPtr<IAddress> address;
    EXPECT_EQ(loader->addressByValue(address, 0x5000), status_Fail);
    ASSERT_EQ(loader->addressByValue(address, 0x1050), status_Ok);
    EXPECT_EQ(address->fileOffset(), 0x150U) << "the end of the file bytes still has a place";
    ASSERT_EQ(loader->addressByValue(address, 0x1051), status_Ok);
    EXPECT_EQ(address->fileOffset(), ~0ULL) << "bytes that are only in memory have none";
    ASSERT_EQ(loader->addressByFileOffset(address, 0x170), status_Ok);
    EXPECT_EQ(address->pseudoAddr(), 0x1210U) << "of those that end there the last";
    ASSERT_EQ(loader->addressByFileOffset(address, 0x155), status_Ok);
    EXPECT_EQ(address->pseudoAddr(), 0x1105U);
    EXPECT_EQ(loader->addressByFileOffset(address, 0x99), status_Fail);
    SymMgrObjectPtr<IAddress> later;
    ASSERT_EQ(loader->addressByValue(later, 0x1110), status_Ok);
    EXPECT_TRUE(address->isBefore(later.get()) && later->isAfter(address.get()) && address->isNotEqual(later.get()));
    EXPECT_TRUE(address->isEqual(address.get()) && !address->isAfter(address.get()) && !later->isBefore(later.get()));
}

TEST(FileFormatLoader, FreshReadsSayWhatFails) {
    TempDir const dir;
    SymMgrObjectPtr<PlainLoader> const loader(new PlainLoader(dir.file("f", "0123456789")));
    SymMgrObjectPtr<IBuffer> buffer;
    ASSERT_EQ(loader->readBytes(4, 3, buffer), status_Ok);
    EXPECT_EQ(std::string(reinterpret_cast<char*>(buffer->data()), 3), "456");
    LogCapture log(40000);
    SymMgrObjectPtr<IBuffer> untouched;
    EXPECT_EQ(loader->readBytes(8, 3, untouched), status_False);
    EXPECT_EQ(log.count("Unable to read 3 bytes from file: " + dir.path()), 1U);
    EXPECT_EQ(loader->readBytes(~0ULL, 2, untouched), status_False);
    EXPECT_EQ(loader->readBytes(0, ~0ULL, untouched), status_OutOfMemory);
    EXPECT_EQ(log.count("Unable to create ByteBuffer of size: 18446744073709551615"), 1U);
    EXPECT_FALSE(untouched);
}

TEST(FileFormatLoader, DebugInfoLoadersAreMadeOnce) {
    SymMgrObjectPtr<PlainLoader> const loader(new PlainLoader);
    SymMgrObjectPtr<IIterator<SymMgrObjectPtr<ISymbolFileToResolve>>> files;
    ASSERT_EQ(loader->symbolFiles(files), status_Ok);
    SymMgrObjectPtr<IDebugInfoLoader> first;
    SymMgrObjectPtr<IDebugInfoLoader> second;
    EXPECT_EQ(loader->debugInfoLoader(first, -1, 0), status_False);
    EXPECT_EQ(loader->debugInfoLoader(first, 2, 0), status_False);
    EXPECT_EQ(loader->debugInfoLoader(first, 0, 0), status_Ok);
    EXPECT_EQ(loader->debugInfoLoader(second, 0, 0), status_Ok);
    EXPECT_TRUE(first && first == second);
    EXPECT_STREQ(first->symFileName(), "made");
    EXPECT_EQ(loader->debugInfoLoader(second, 1, 0), status_Ok);
    EXPECT_FALSE(second);
    EXPECT_EQ(loader->debugInfoLoader(second, 1, 0), status_Ok);
    EXPECT_EQ(loader->made, 2) << "what could not be made is not tried again";
}

TEST(FileFormatLoader, CreateKnowsElfByItsFirstBytes) {
    TempDir const dir;
    LogCapture log(40000);
    status_t status = status_Ok;
    EXPECT_FALSE(loaderOf(dir.file("short", std::string(ELFMAG, 3)), &status));
    EXPECT_EQ(status, status_BadFileFormat);
    EXPECT_EQ(log.count("ASSERTION FAILED: 'false'"), 1U);
    EXPECT_FALSE(loaderOf(dir.file("text", "hello, world"), &status));
    EXPECT_EQ(status, status_BadFileFormat);
    SymMgrObjectPtr<IFileFormatLoader> none;
    EXPECT_EQ(IFileFormatLoader::create(none, {}, ""), status_BadFileFormat);
    std::string const file = dir.file("b", std::string(ELFMAG) + '\7');
    SymMgrObjectPtr<IFileFormatLoader> const broken = loaderOf(file, &status);
    ASSERT_TRUE(broken) << "a broken file comes back with its status";
    EXPECT_EQ(status, status_BadFileFormat);
    SymMgrObjectPtr<ISymbolTable> const table = ISymbolTable::create(nullptr);
    EXPECT_EQ(broken->loadSymbols(table.get(), nullptr, 1), status_Fail);
}

TEST(SectionDataAdapter, ServesWhatIsInMemory) {
    SectionBytes bytes = allocateSectionBytes(4);
    std::memcpy(bytes.bytes.get(), "abcd", 4);
    SymMgrObjectPtr<ISection> const section(
        new SectionDataAdapter({nullptr, "s"}, new ElfSectionData(std::move(bytes), 0), 0, 0, 4, 0));
    SymMgrObjectPtr<IBuffer> buffer;
    ASSERT_EQ(section->readAt(1, 2, buffer), status_Ok);
    EXPECT_EQ(std::string(reinterpret_cast<char*>(buffer->data()), buffer->size()), "bc");
    LogCapture log(40000);
    EXPECT_EQ(section->readAt(3, 2, buffer), status_False);
    EXPECT_EQ(section->readAt(~0ULL, 2, buffer), status_False);
    EXPECT_EQ(log.count("Unable to read 2 bytes from section: s"), 2U);
}
