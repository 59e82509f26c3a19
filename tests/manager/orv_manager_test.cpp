// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
#include "image/orv_filekey.h"
#include "manager/orv_symbolmanager.h"
#include "support/orv_elf_builder.h"
#include "support/orv_test_support.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace orv_test;

namespace {

std::string module() {
    ElfBuilder elf;
    elf.load(PF_R | PF_X, 0x1000, 0x1000);
    elf.section(".text", SHT_PROGBITS, SHF_ALLOC | SHF_EXECINSTR, 0x1000, std::string(0x100, 'x'));
    elf.symbol("f", STB_GLOBAL, STT_FUNC, 0x1000, 0x10);
    return elf.bytes();
}

unsigned int countOf(IModuleSymbolBank& bank) {
    unsigned int const raised = bank.addRef();
    bank.release();
    return raised - 1;
}

} // namespace

TEST(Manager, SharesWhatHasNotChanged) {
    TempDir const dir;
    std::string const path = dir.file("m", module());
    auto const m = symbolManager();
    EXPECT_TRUE(m == symbolManager());
    SymMgrObjectPtr<IModuleSymbolBank> first;
    SymMgrObjectPtr<IModuleSymbolBank> second;
    ASSERT_EQ(m->loadSymbolsFromModule(path.c_str(), nullptr, first, 0U, false, ""), status_Ok);
    std::string const detour = dir.path() + "/.//./m";
    ASSERT_EQ(m->loadSymbolsFromModule(detour.c_str(), nullptr, second, arch_Unknown, false, ""), status_Ok);
    EXPECT_TRUE(first == second);
    EXPECT_EQ(countOf(*first), 2U);

    SymMgrObjectPtr<IModuleSymbolBank> other;
    ASSERT_EQ(m->loadSymbolsFromModule(path.c_str(), nullptr, other, 1U, false, ""), status_Ok);
    EXPECT_FALSE(other == first) << "another architecture is another key";
    ASSERT_EQ(m->loadSymbolsFromModule(path.c_str(), nullptr, other, arch_Unknown, true, ""), status_Ok);
    EXPECT_FALSE(other == first) << "a new loader shares nothing";
    other.reset();
    ASSERT_EQ(m->loadSymbolsFromModuleEx(path.c_str(), nullptr, other, arch_Unknown, load_flags_NoDebugInfo, ""),
              status_Ok);
    EXPECT_TRUE(other == first) << "without debug information the pair is the same";
    ASSERT_EQ(
        IModuleSymbolBank::create(other, IModuleImage::create(path.c_str(), arch_Unknown, false), nullptr, false, ""),
        status_Ok);
    EXPECT_TRUE(other == first);
}

TEST(Manager, SeesThatAFileHasChanged) {
    TempDir const dir;
    std::string const path = dir.file("m", module());
    auto const first = bankOf(path);
    struct timespec const times[2] = {{1000, 0}, {1000, 0}};
    ASSERT_EQ(::utimensat(AT_FDCWD, path.c_str(), times, 0), 0);
    auto const second = bankOf(path);
    EXPECT_FALSE(first == second);
    EXPECT_EQ(symbolAt(*first, 0x1004), "f@1000+16") << "the old one stays usable";
    EXPECT_EQ(symbolAt(*second, 0x1004), "f@1000+16");
}

TEST(Manager, FailuresHaveTheirStatusAndLeaveTheBank) {
    TempDir const dir;
    struct {
        std::string name;
        status_t status;
        char const* report;
    } const rows[] = {
        {dir.path() + "/missing", status_CantOpenFile, "could not open file\n, at file: manager/"},
        {dir.path(), status_CantOpenFile, "could not open file\n, at file: manager/"},
        {dir.path() + "/vmlinux", status_CantOpenFile, "could not open file\n, at file: manager/"},
        {"", status_CantOpenFile, "could not open file\n, at file: manager/"},
        {dir.file("text", "this is no module"), status_BadFileFormat, nullptr},
        {dir.file("empty", ""), status_BadFileFormat, "ASSERTION FAILED: 'false'"},
    };
    auto const kept = bankOf(dir.file("m", module()));
    for (auto const& row : rows) {
        LogCapture log(30000);
        SymMgrObjectPtr<IModuleSymbolBank> bank = kept;
        EXPECT_EQ(loadBank(row.name, bank), row.status) << row.name;
        EXPECT_TRUE(bank == kept) << row.name;
        if (row.report != nullptr) {
            EXPECT_EQ(log.count(row.report), 1U) << row.name;
        } else {
            EXPECT_TRUE(log.messages().empty()) << row.name;
        }
    }
    SymMgrObjectPtr<IModuleSymbolBank> bank;
    auto const m = symbolManager();
    LogCapture log;
    EXPECT_EQ(m->loadSymbolsFromModule(nullptr, nullptr, bank, arch_Unknown, false, ""), status_InvalidArg);
    EXPECT_EQ(log.messages(),
              (std::vector<std::string>{"ENTER: loadSymbolsFromModule", "EXIT:  loadSymbolsFromModule"}));
    EXPECT_EQ(IModuleSymbolBank::create(bank, {}, nullptr, false, ""), status_InvalidArg);
    EXPECT_EQ(log.count("Module Image is NULL\n, at file: manager/orv_symbolmanager.cpp:"), 1U);
}

TEST(Manager, GoesWithItsLastHolder) {
    TempDir const dir;
    std::string const path = dir.file("m", module());
    auto bank = bankOf(path);
    EXPECT_TRUE(SymbolManager::current()) << "the bank holds it";
    bank.reset();
    EXPECT_FALSE(SymbolManager::current());
    // A loader that a client holds may outlive the manager, and a new one knows nothing of it.
    SymMgrObjectPtr<IFileFormatLoader> loader;
    {
        auto const m = symbolManager();
        static_cast<SymbolManager*>(m.get())->getFileLoader(
            loader, IModuleImage::create(path.c_str(), arch_Unknown, false), false, "");
    }
    bank = bankOf(path);
    SymbolManager::forgetLoader(nullptr);
    loader.reset();
    EXPECT_EQ(symbolAt(*bank, 0x1004), "f@1000+16");
}

TEST(Manager, ResolversSeeTheCandidates) {
    class Resolver : public ISymbolFileResolver {
    public:
        long long resolveSymbolFile(SymMgrObjectPtr<IIterator<SymMgrObjectPtr<ISymbolFileToResolve>>>&) override {
            ++calls;
            return 5;
        }
        int calls = 0;
    } resolver;
    TempDir const dir;
    std::string const path = dir.file("m", module());
    auto const bank = bankOf(path, load_flags_None, &resolver);
    EXPECT_EQ(resolver.calls, 0) << "not asked about an empty list";
    EXPECT_EQ(bank->symFileFormat(), 0U);
    EXPECT_STREQ(bank->symFileName(), path.c_str());
}

TEST(FileKey, TellsFilesApart) {
    TempDir const dir;
    std::string const small = dir.file("z", "1");
    std::string const large = dir.file("a", "22");
    EXPECT_TRUE(FileKey(small.c_str(), 0, arch_Unknown) < FileKey(large.c_str(), 0, arch_Unknown));
    FileKey const plain("x", 0, arch_X86);
    FileKey const detour("./y/../x", 0, arch_X86);
    EXPECT_FALSE(plain < detour || detour < plain);
    EXPECT_TRUE(plain < FileKey("x", 1, arch_Unknown));
    EXPECT_TRUE(FileKey(nullptr, 0, arch_Unknown) < plain);
}
