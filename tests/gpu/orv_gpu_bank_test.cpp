// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// A GPU kernel's binary as a module: what it is without its program file, how that is found, and its lines.

#include "format/orv_fflelf.h"
#include "format/orv_fflvex.h"
#include "image/orv_memoryimage.h"
#include "lines/orv_dil.h"
#include "resolver/orv_program_files.h"
#include "support/orv_qdc_file.h"

using namespace orv_test;

namespace {

using Said = std::vector<std::string>;
using Bank = SymMgrObjectPtr<IModuleSymbolBank>;

status_t load(std::string const& path, arch_t arch, char const* kernel, Bank& bank,
              unsigned int flags = load_flags_NewLoader) {
    return symbolManager()->loadSymbolsFromModuleEx(path.c_str(), nullptr, bank, arch, flags, kernel);
}

/// A binary of so many bytes with a program file beside it.
struct Program {
    Program(std::size_t codeSize, std::string const& programFile)
        : binary(dir.file("p.clbin", std::string(codeSize, 'c'))), beside(dir.file("p.clpdb", programFile)) {}

    Bank bank(arch_t arch, char const* kernel = "k") const {
        Bank out;
        EXPECT_EQ(load(binary, arch, kernel, out), status_Ok);
        return out;
    }

    TempDir dir;
    std::string binary;
    std::string beside;
};

SymMgrObjectPtr<IFileFormatLoader> binaryLoader(std::string const& path, arch_t arch, char const* kernel = "k") {
    SymMgrObjectPtr<IFileFormatLoader> loader;
    IFileFormatLoader::create(loader, IModuleImage::create(path.c_str(), arch, false), kernel);
    return loader;
}

/// "start+size line" of each row of a kernel's table.
std::string tableOf(std::string const& path, arch_t arch) {
    auto const loader = binaryLoader(path, arch);
    SymMgrObjectPtr<IIterator<SymMgrObjectPtr<ISymbolFileToResolve>>> candidates;
    SymMgrObjectPtr<IDebugInfoLoader> debugInfo;
    loader->symbolFiles(candidates);
    loader->debugInfoLoader(debugInfo, 0, 0);
    ISrcLineResolver* const resolver = debugInfo->srcLineResolver(nullptr, nullptr);
    EXPECT_EQ(resolver->sourceFileCount(), 0U);
    EXPECT_EQ(resolver->sourceFileById(0), nullptr);
    EXPECT_EQ(resolver->compUnitDetailsById(0), nullptr);
    LineIterator lines;
    EXPECT_EQ(resolver->sourceLines(lines, ~0ULL, ~0U, 0, ~0ULL, nullptr), status_Ok);
    std::string text;
    forEach(lines, [&](ISourceLine& line) {
        text += (text.empty() ? "" : ", ") + std::to_string(startOf(line)) + "+" + std::to_string(line.size()) + " " +
                std::to_string(line.location()->line());
    });
    return text;
}

/// "start=line:column" wherever the answer for an address is another one than for the address before.
std::string rowsOf(IModuleSymbolBank& bank, unsigned long long size) {
    std::string text;
    std::string last;
    for (unsigned long long address = 0; address < size; ++address) {
        SymMgrObjectPtr<ISourceLocation> const place = placeIn(bank, address);
        std::string const own = place ? number(place->line()) + ":" + number(place->column()) : "none";
        if (own != last) {
            text += (text.empty() ? "" : " ") + number(static_cast<long long>(address)) + "=" + own;
        }
        last = own;
        EXPECT_TRUE(!place || (place->sourceFile() == nullptr && place->unit() == 0 && place->discriminator() == 0));
    }
    return text;
}

constexpr char k_rln[] =
    "dirs /src /inc\nfiles foo.h unknown.cl\nkernels k m\nrecord 0\n0 3 7 1\n16 1 1 0\n32 5 2 1\nrecord 1\n0 9 9 1\n";

} // namespace

TEST(GpuBinary, IsToldByItsName) {
    TempDir const dir;
    std::filesystem::create_directory(dir.path() + "/x.clbin.d");
    status_t status = status_Ok;
    EXPECT_EQ(loaderOf(dir.file("k.bin", "code"), &status), nullptr);
    EXPECT_EQ(status, status_BadFileFormat);
    for (char const* const name : {"k.clbin", "k.clbin.old", "x.clbin.d/k"}) {
        auto const loader = binaryLoader(dir.file(name, "code"), arch_Unknown);
        ASSERT_TRUE(loader) << name;
        EXPECT_EQ(loader->fileFormat(), exec_format_Vex) << name;
    }
    // What begins as an ELF file does is one, whatever its name is.
    auto const elf = binaryLoader(dir.file("elf.clbin", "\177ELF"), arch_VexQdc1);
    ASSERT_TRUE(elf);
    EXPECT_EQ(elf->fileFormat(), exec_format_Elf);
    EXPECT_EQ(elf->status(), status_BadFileFormat);
}

TEST(GpuBinary, IsOneSegmentAndOneSymbol) {
    TempDir const dir;
    auto const loader = binaryLoader(dir.file("k.clbin", std::string(100, 'c')), arch_VexRln2, "kernel");
    ASSERT_TRUE(loader);
    EXPECT_EQ(loader->status(), status_Ok);
    EXPECT_EQ(loader->architecture(), arch_VexRln2);
    EXPECT_EQ(loader->imageSize(), 100U);
    EXPECT_EQ(loader->preferredLoadAddress() + loader->entryPoint(), 0U);
    EXPECT_STREQ(loader->targetName(), "kernel");
    ISegment* const segment = loader->segmentByAddress(100);
    ASSERT_NE(segment, nullptr);
    EXPECT_STREQ(segment->name(), ".text");
    EXPECT_EQ(segment->memorySize(), 100U);
    EXPECT_EQ(segment->fileSize(), 100U);
    EXPECT_EQ(segment->type(), 1U);
    EXPECT_EQ(loader->segmentByAddress(101), nullptr);
    EXPECT_EQ(loader->segmentByName(".text"), segment);
    EXPECT_EQ(loader->segmentByIndex(1), nullptr);
    SymMgrObjectPtr<ISection> section;
    loader->sectionByName(section, ".text");
    EXPECT_FALSE(section);
    SymMgrObjectPtr<IBuffer> bytes;
    EXPECT_EQ(segment->read(bytes), status_Ok);
    EXPECT_EQ(std::string(bytes->data(), bytes->data() + bytes->size()), std::string(100, 'c'));
    Bank bank;
    ASSERT_EQ(load(loader->fileName(), arch_Unknown, nullptr, bank, load_flags_NewLoader | load_flags_NoDebugInfo),
              status_Ok);
    EXPECT_EQ(symbolsOf(*bank, symbol_kind_Function), "");
    EXPECT_EQ(symbolsOf(*bank), ".code_vex[0,100)"); // once, though it was loaded twice
    EXPECT_EQ(symbolAt(*bank, 99), ".code_vex@0+100");
}

TEST(GpuBinary, MayBeEmptyOrGone) {
    TempDir const dir;
    auto const empty = binaryLoader(dir.file("e.clbin", ""), arch_VexRln1);
    ASSERT_TRUE(empty);
    Bank bank;
    ASSERT_EQ(load(dir.path() + "/e.clbin", arch_VexRln1, "k", bank), status_Ok);
    EXPECT_EQ(symbolsOf(*bank), ".code_vex[0,0)");
    LogCapture const log(log4cplus::WARN_LOG_LEVEL);
    SymMgrObjectPtr<VexBinFileLoader> const gone(new VexBinFileLoader(dir.path() + "/gone.clbin", "", arch_VexRln1));
    gone->open();
    EXPECT_EQ(saidIn(log), Said{"status == fosOK"});
    EXPECT_EQ(gone->status(), status_Ok);
    EXPECT_EQ(gone->imageSize(), 0U);
    ASSERT_NE(gone->segmentByAddress(0), nullptr);
}

TEST(GpuBinary, OffersACandidateByItsFamily) {
    TempDir const dir;
    std::string const path = dir.file("k.clbin", "code");
    for (unsigned int arch = 0; arch <= 13; ++arch) {
        if (arch == arch_Em180 || arch == arch_Em181) {
            continue; // such an image is looked for inside the file
        }
        SymMgrObjectPtr<IIterator<SymMgrObjectPtr<ISymbolFileToResolve>>> found;
        auto const loader = binaryLoader(path, static_cast<arch_t>(arch));
        ASSERT_TRUE(loader) << arch;
        bool const isGpu = arch >= arch_VexRln1 && arch <= arch_VexQdc2;
        EXPECT_EQ(loader->symbolFiles(found), isGpu ? status_Ok : status_Fail) << arch;
        std::string text;
        forEach(found, [&](ISymbolFileToResolve& candidate) {
            text += number(candidate.symbolFileFormat()) + number(candidate.validity()) +
                    number(candidate.candidateClassFlag()) + candidate.moduleFileName() + candidate.symbolFileName();
        });
        std::string const files = path + dir.path() + "/k.clpdb";
        EXPECT_EQ(text, isGpu ? (arch < arch_VexQdc1 ? "640" : "740") + files : "") << arch;
        Bank bank;
        EXPECT_EQ(load(path, static_cast<arch_t>(arch), "k", bank), isGpu ? status_Ok : status_Fail) << arch;
    }
}

TEST(ProgramFile, IsSoughtBesideTheBinary) {
    TempDir const dir;
    std::string const at = dir.path() + "/";
    std::string const rln = rlnFile(k_rln);
    dir.file("good.clpdb", rln);
    dir.file("a.b.clpdb", rln.substr(0, 44));
    dir.file("short.clpdb", rln.substr(0, 43));
    dir.file("other.clpdb", withWord(rln, 4, 1019));
    std::filesystem::create_directory(at + "folder.clpdb");
    OrvLock lock;
    struct {
        std::string binary;
        std::string found;
        symbol_file_validity_t validity;
    } const cases[] = {
        {at + "good.clbin", at + "good.clpdb", symbolFileValid},
        {at + "good.", at + "good.clpdb", symbolFileValid},
        {at + "a.b.c", at + "a.b.clpdb", symbolFileValid}, // no more than the header is looked at
        {at + "short.clbin", at + "short.clpdb", symbolFileRefused},
        {at + "other.clbin", at + "other.clpdb", symbolFileRefused},
        {at + "none.clbin", at + "none.clpdb", symbolFileNotFound},
        {at + "folder.clbin", at + "folder.clpdb", symbolFileNotFound},
        {"nodot", "", symbolFileNotFound},
        {"fol.der/nodot", "fol.clpdb", symbolFileNotFound},
    };
    for (auto const& c : cases) {
        SymMgrObjectPtr<ISymbolFileToResolve> const candidate(
            new VexRlnSymbolFileToResolve(c.binary.c_str(), 0, &lock));
        EXPECT_EQ(candidate->symbolFileName(), c.found) << c.binary;
        EXPECT_EQ(candidate->validity(), c.validity) << c.binary;
    }
}

TEST(ProgramFile, MayBeOffered) {
    TempDir const dir;
    std::string const at = dir.path() + "/";
    OrvLock lock;
    dir.file("q.clpdb", qdcFile({}));
    SymMgrObjectPtr<ISymbolFileToResolve> const qdc(new VexQdcSymbolFileToResolve((at + "q.clbin").c_str(), 5, &lock));
    EXPECT_EQ(qdc->validity(), symbolFileValid);
    // Each offer leaves its mark.
    std::string const cut = dir.file("cut.clpdb", qdcFile({}).substr(0, 27));
    struct {
        char const* offered;
        long long result;
        symbol_file_validity_t validity;
        std::string name;
    } const offers[] = {
        {cut.c_str(), -1, symbolFileRefused, at + "q.clpdb"},
        {"/no/such/file", -1, symbolFileNotFound, at + "q.clpdb"},
        {nullptr, -1, symbolFileNotFound, at + "q.clpdb"},
        {"/dev/null", -1, symbolFileRefused, at + "q.clpdb"},
    };
    for (auto const& offer : offers) {
        EXPECT_EQ(qdc->validateSymbolFile(offer.offered), offer.result) << offer.name;
        EXPECT_EQ(qdc->validity(), offer.validity) << offer.name;
        EXPECT_EQ(qdc->symbolFileName(), offer.name) << offer.name;
    }
    std::string const renamed = dir.file("renamed", qdcFile({}));
    EXPECT_EQ(qdc->validateSymbolFile(renamed.c_str()), 5);
    EXPECT_EQ(qdc->validity(), symbolFileValid);
    EXPECT_EQ(qdc->symbolFileName(), renamed);
}

TEST(GpuLines, OfOneFileEndWithTheNextOfAny) {
    Program const program(64, rlnFile(k_rln));
    for (arch_t const arch : {arch_VexRln1, arch_VexRln2}) {
        Bank const bank = program.bank(arch);
        EXPECT_EQ(bank->symFileFormat(), 6U);
        EXPECT_EQ(bank->symFileName(), program.beside);
        EXPECT_EQ(rowsOf(*bank, 64), "0=3:7 16=none 32=5:2");
        EXPECT_EQ(symbolsOf(*bank, symbol_kind_Function), ""); // loads it all the same
        EXPECT_EQ(symbolsOf(*bank), ".dbginfo_vex[0,64) .code_vex[0,64)");
        EXPECT_EQ(symbolAt(*bank, 63), ".dbginfo_vex@0+64");
    }
    EXPECT_EQ(rowsOf(*program.bank(arch_VexRln1, "m"), 64), "0=9:9");
}

TEST(GpuLines, AreJoinedWhereTheCompilerIsQdc) {
    std::string const mira = miraImage("files unknown.cl\n0 1 3 1\n5 1 9 2\nend 8\n");
    Program const program(64, qdcFile({{"k", mira, qdcBlob("kernel k\nmap 2,16 5,32 7,48\n").bytes()}}));
    for (arch_t const arch : {arch_VexQdc1, arch_VexQdc2}) {
        Bank const bank = program.bank(arch);
        EXPECT_EQ(bank->symFileFormat(), 7U);
        EXPECT_EQ(rowsOf(*bank, 64), "0=3:1 32=9:2");
        EXPECT_EQ(symbolAt(*bank, 63), ".dbginfo_vex@0+64");
    }
}

/// Lists need not be sorted. The row that begins last counts, as for any module.
TEST(GpuLines, MayComeInAnyOrder) {
    Program const program(80, rlnFile("files <unknown>\nkernels k\nrecord 0\n0 1 0 0\n32 2 0 0\n16 3 0 0\n64 4 0 0\n"));
    EXPECT_EQ(rowsOf(*program.bank(arch_VexRln1), 80), "0=1:0 16=3:0 32=2:0 64=4:0");
    // A row that ends ahead of where it begins goes around; the last goes on for ever.
    EXPECT_EQ(tableOf(program.binary, arch_VexRln1), "0+32 1, 16+48 3, 32+4294967280 2, 64+4294967295 4");
}

/// The join takes the first of those that stand at one instruction; an RLN list has them all.
TEST(GpuLines, OfNoSizeAreKept) {
    Program const rln(64, rlnFile("files unknown.cl\nkernels k\nrecord 0\n16 1 0 0\n16 2 0 0\n20 3 0 0\n20 4 0 0\n"));
    EXPECT_EQ(tableOf(rln.binary, arch_VexRln2), "16+0 1, 16+4 2, 20+0 3, 20+4294967295 4");
    // Rows of no size of the virtual machine, and away from its first instruction.
    Program const qdc(64, qdcFile({{"k", miraImage("files unknown.cl\n3 1 1 0\n3 1 2 0\n5 1 3 0\n5 1 4 0\nend 6\n"),
                                    qdcBlob("kernel k\nmap 3,8 5,24\n").bytes()}}));
    EXPECT_EQ(tableOf(qdc.binary, arch_VexQdc1), "0+24 1, 24+4294967295 3");
}

/// Each is of unit 0 and file 0, whatever number its file has in the list. A client may choose among those of an
/// address.
TEST(GpuLines, AreOfOneUnitAndFile) {
    struct HighestLine final : ISourceLocationChooser {
        status_t choose(SymMgrObjectPtr<ISourceLocation>& out,
                        IIterator<SymMgrObjectPtr<ISourceLocation>>& candidates) override {
            for (auto place = candidates.current(); place; place = candidates.current()) {
                out = !out || place->line() > out->line() ? place : out;
                candidates.next();
            }
            return status_Ok;
        }
    };
    Program const program(
        64, rlnFile("files a.h unknown.cl\nkernels k\nrecord 0\n0 3 0 1\n32 4 0 1\n16 5 0 1\n48 6 0 1\n"));
    auto const loader = binaryLoader(program.binary, arch_VexRln1);
    SymMgrObjectPtr<IIterator<SymMgrObjectPtr<ISymbolFileToResolve>>> candidates;
    ASSERT_EQ(loader->symbolFiles(candidates), status_Ok);
    EXPECT_EQ(candidates->current()->validateSymbolFile(program.beside.c_str()), 0);
    SymMgrObjectPtr<IDebugInfoLoader> debugInfo;
    loader->debugInfoLoader(debugInfo, 0, 0);
    ISrcLineResolver* const resolver = debugInfo->srcLineResolver(nullptr, nullptr);
    auto const linesOf = [&](unsigned long long unit, unsigned int file, unsigned long long start,
                             unsigned long long end) {
        LineIterator lines;
        EXPECT_EQ(resolver->sourceLines(lines, unit, file, start, end, nullptr), status_Ok);
        std::string text;
        forEach(lines, [&](ISourceLine& line) { text += number(line.location()->line()); });
        return text;
    };
    EXPECT_EQ(linesOf(0, 0, 0, 64), "3546");
    EXPECT_EQ(linesOf(1, ~0U, 0, 64), "");
    EXPECT_EQ(linesOf(~0ULL, 1, 0, 64), "");
    EXPECT_EQ(linesOf(0, 0, 40, 40).find_first_not_of("345"), std::string::npos);
    EXPECT_EQ(linesOf(1, 0, 40, 40) + linesOf(0, 1, 40, 40), "");
    SymMgrObjectPtr<ISourceLocation> first;
    SymMgrObjectPtr<ISourceLocation> chosen;
    HighestLine highest;
    resolver->sourceLocationByAddress(first, 40, ~0ULL, nullptr, nullptr);
    EXPECT_EQ(resolver->sourceLocationByAddress(chosen, 40, ~0ULL, nullptr, &highest), status_Ok);
    ASSERT_TRUE(first && chosen);
    EXPECT_EQ(first->line() * 10 + chosen->line(), 45U);
    // A frame at an address beyond all symbols may have a line alone.
    Bank const bank = program.bank(arch_VexRln1);
    unsigned long long const addresses[] = {8, 64};
    SymMgrObjectPtr<IFrames> frames;
    for (unsigned int const options : {unsigned{frames_Everything}, unsigned{frames_NoFunctions}}) {
        ASSERT_EQ(framesByAddresses(frames, *bank, addresses, 2, options), status_Ok);
        ASSERT_TRUE(frames->at(0) != nullptr && frames->at(1) != nullptr) << options;
        EXPECT_EQ(frames->at(0)->line * 10 + frames->at(1)->line, 36U) << options;
        EXPECT_EQ(frames->at(0)->file, nullptr) << options;
        EXPECT_EQ(frames->at(1)->function, nullptr) << options;
    }
}

/// Neither kinds nor wishes for addresses keep a kernel's one symbol away.
TEST(GpuSymbol, ComesWhateverIsAskedFor) {
    Program const program(64, rlnFile(k_rln));
    Bank const bank = program.bank(arch_VexRln1);
    bank->prefetcher()->putPseudoAddress(5000);
    EXPECT_EQ(symbolsOf(*bank), ".dbginfo_vex[0,64) .code_vex[0,64)");
    auto const loader = binaryLoader(program.binary, arch_VexRln1);
    SymMgrObjectPtr<IIterator<SymMgrObjectPtr<ISymbolFileToResolve>>> candidates;
    SymMgrObjectPtr<IDebugInfoLoader> debugInfo;
    loader->symbolFiles(candidates);
    loader->debugInfoLoader(debugInfo, 0, 0);
    SymMgrObjectPtr<ISymbolTable> const table = ISymbolTable::create(nullptr);
    EXPECT_EQ(loader->loadSymbols(table.get(), nullptr, symbol_kind_Function), status_Ok);
    EXPECT_EQ(debugInfo->loadSymbols(table.get(), nullptr, 0, nullptr), status_Ok);
    RangeIterator ranges;
    table->symbolRanges(ranges, 0, ~0ULL, k_allKinds);
    std::string names;
    forEach(ranges, [&](ISymbolRange& range) {
        names += range.symbol()->name();
        SymMgrObjectPtr<ISourceLine> line;
        EXPECT_EQ(range.symbol()->sourceLine(line), status_False); // nobody to ask for lines
    });
    EXPECT_EQ(names, ".code_vex.dbginfo_vex"); // in the order that they came
}

/// More than any memory is asked for.
TEST(GpuLines, AreNotReadFromAFileWithoutBound) {
    Program const program(16, rlnFile(k_rln));
    std::error_code error;
    std::filesystem::resize_file(program.beside, std::uintmax_t{2} << 40, error);
    if (error) {
        GTEST_SKIP() << "no file of 2 TiB can be made here: " << error.message();
    }
    LogCapture const log(log4cplus::WARN_LOG_LEVEL);
    Bank const bank = program.bank(arch_VexRln1);
    EXPECT_EQ(saidIn(log), (Said{"dbgInfo->size() == dbgInfoSize", "Unable to load line info for OCL kernel k. Result "
                                                                   "status code: \"Can't read from file\""}));
    EXPECT_EQ(log.level(), log4cplus::WARN_LOG_LEVEL);
    EXPECT_EQ(symbolAt(*bank, 8), ".dbginfo_vex@0+16");
}

TEST(GpuLines, AreThoseOfTheSourceFromMemory) {
    struct {
        char const* files;
        char const* rows;
        char const* said;
    } const cases[] = {
        {"a.cl unknown.cl <unknown>", "0=2:0 4=none", nullptr},
        {"<unknown> b.h /tmp/unknown.cl.1", "0=none 4=3:0 8=none", nullptr},
        {"a.cl <unknown> x<unknown>", "0=2:0 4=none", nullptr},
        {"a.cl b.cl c.cl", "0=none", "Unable to find an appropriate source file for OCL kernel k"},
    };
    for (auto const& c : cases) {
        Program const program(
            16, rlnFile(std::string("files ") + c.files + "\nkernels k\nrecord 0\n0 2 0 1\n4 3 0 2\n8 1 0 0\n"));
        LogCapture const log(log4cplus::WARN_LOG_LEVEL);
        Bank const bank = program.bank(arch_VexRln1);
        Said said;
        if (c.said != nullptr) {
            said = {c.said, "Unable to load line info for OCL kernel k. Result status code: \"Unspecified error\""};
        }
        EXPECT_EQ(saidIn(log), said) << c.files;
        EXPECT_EQ(rowsOf(*bank, 16), c.rows) << c.files;
    }
}

/// Whatever fails, the module loads, and its symbol stands.
TEST(GpuLines, SayWhyThereAreNone) {
    std::string const failed = "Unable to load line info for OCL kernel k. Result status code: ";
    std::string const notFound = "Unable to obtain line info for OCL kernel k. DebugInfoParser status: \"Not found\"";
    std::string const good = rlnFile(k_rln);
    struct {
        char const* name;
        std::string file; ///< Empty: gone by the time of the load.
        arch_t arch;
        Said said;
    } const cases[] = {
        {"gone", "", arch_VexRln1, {failed + "\"Can't open file\""}},
        {"no such kernel",
         rlnFile("files unknown.cl\nkernels m\nrecord 0\n0 1 0 0\n"),
         arch_VexRln1,
         {notFound, failed + "\"Unspecified error\""}},
        {"no such kernel of QDC", qdcFile({{"m", "", ""}}), arch_VexQdc1, {notFound, failed + "\"Unspecified error\""}},
        {"refused",
         withWord(good, 12, 0xFFFFFFFF),
         arch_VexRln1,
         {"(size_t)((uint8_t*)(m_dirTableHeader + 1) - 1 - (uint8_t*)m_header) <= m_debugInfo->size()",
          failed + "\"Unspecified error\""}},
    };
    for (auto const& c : cases) {
        Program const program(16, c.file.empty() ? good : c.file);
        auto const loader = binaryLoader(program.binary, c.arch);
        SymMgrObjectPtr<IIterator<SymMgrObjectPtr<ISymbolFileToResolve>>> candidates;
        ASSERT_EQ(loader->symbolFiles(candidates), status_Ok);
        SymMgrObjectPtr<IDebugInfoLoader> debugInfo;
        ASSERT_EQ(loader->debugInfoLoader(debugInfo, 0, 0), status_Ok);
        if (c.file.empty()) {
            std::filesystem::remove(program.beside);
        }
        LogCapture const log(log4cplus::WARN_LOG_LEVEL);
        ISrcLineResolver* const resolver = debugInfo->srcLineResolver(nullptr, nullptr);
        EXPECT_EQ(saidIn(log), c.said) << c.name;
        EXPECT_EQ(log.level(), log4cplus::WARN_LOG_LEVEL) << c.name;
        EXPECT_EQ(debugInfo->srcLineResolver(nullptr, nullptr), resolver) << c.name;
        EXPECT_EQ(saidIn(log), c.said) << c.name; // once
        SymMgrObjectPtr<ISourceLocation> place;
        EXPECT_EQ(resolver->sourceLocationByAddress(place, 0, ~0ULL, nullptr, nullptr), status_Ok) << c.name;
        EXPECT_FALSE(place) << c.name;
        EXPECT_EQ(debugInfo->loadSymbols(nullptr, nullptr, 31, nullptr), status_InvalidPointer) << c.name;
    }
}

/// For who has yet to choose a kernel.
TEST(ProgramFile, TellsItsKernelsAndWhatBecomesOfTheirLines) {
    std::string const blob = qdcBlob("kernel k\nmap 2,16 5,32\n").bytes();
    std::string const good = miraImage("files unknown.cl\n0 1 3 1\n5 1 9 2\nend 8\n");
    // A table goes file by file: the header's row between those of the source comes first.
    std::string const mixed = miraImage("files a.h unknown.cl\n0 2 3 1\n2 1 7 1\n5 2 9 2\nend 8\n");
    struct {
        arch_t family;
        std::string file;
        char const* kernels; ///< With the number of what becomes of their lines.
    } const cases[] = {
        {arch_VexRln1, rlnFile("files a.h unknown.cl\nkernels m k m\nrecord 0\n0 1 0 1\nrecord 1\n0 1 0 0\n"),
         "k=2 m=0 x=1"},
        {arch_VexRln2, withWord(rlnFile("files unknown.cl\nkernels k\nrecord 0\n0 1 0 0\n"), 4, 1019), "refused"},
        {arch_VexQdc1, qdcFile({{"k", mixed, blob}, {"b", good, "?"}, {"a", good, qdcBlob("kernel a\n").bytes()}}),
         "a=0 b=4 k=3 x=1"},
        {arch_VexQdc2, qdcFile({{"k", miraImage("files a.h\n0 1 3 1\nend 8\n"), blob}}), "k=2 x=1"},
        {arch_VexQdc2, qdcFile({{"k", good, blob}}), "k=0 x=1"},
    };
    for (auto const& c : cases) {
        Program const program(16, c.file);
        SymMgrObjectPtr<IProgramFile> file;
        status_t const status = IProgramFile::create(file, program.beside.c_str(), c.family);
        std::string text = file ? "" : status == status_Fail ? "refused" : "?";
        for (unsigned int i = 0; file && i <= file->kernelCount(); ++i) {
            kernel_lines_t lines = kernel_lines_Damaged;
            bool const isLast = i == file->kernelCount();
            EXPECT_EQ(file->kernelName(i) == nullptr, isLast);
            std::string const name = isLast ? "x" : file->kernelName(i);
            EXPECT_EQ(file->kernelLines(name.c_str(), lines), status_Ok);
            text += (i != 0 ? " " : "") + name + '=' + number(lines);
        }
        EXPECT_EQ(text, c.kernels);
    }
    Program const program(16, qdcFile({}));
    SymMgrObjectPtr<IProgramFile> file;
    EXPECT_EQ(IProgramFile::create(file, program.beside.c_str(), arch_X86), status_InvalidArg);
    EXPECT_EQ(IProgramFile::create(file, nullptr, arch_VexQdc1), status_InvalidArg);
    EXPECT_EQ(IProgramFile::create(file, "/no/such.clpdb", arch_VexQdc1), status_CantOpenFile);
    ASSERT_EQ(IProgramFile::create(file, program.beside.c_str(), arch_VexQdc1), status_Ok);
    kernel_lines_t lines = kernel_lines_Read;
    EXPECT_EQ(file->kernelLines(nullptr, lines), status_InvalidArg);
    Program const rln(16, rlnFile(k_rln));
    ASSERT_EQ(IProgramFile::create(file, rln.beside.c_str(), arch_VexRln1), status_Ok);
    EXPECT_EQ(file->kernelLines("", lines), status_Ok);
    EXPECT_EQ(lines, kernel_lines_NoKernel);
}

/// The same by each way to a line, and nothing once the bank is gone.
TEST(GpuSymbol, HasThePlaceOfItsFirstInstruction) {
    Program const program(64, rlnFile(k_rln));
    Bank bank = program.bank(arch_VexRln1);
    SymMgrObjectPtr<ISymbol> const symbol(rangeIn(*bank, 8, k_allKinds)->symbol());
    EXPECT_EQ(symbol->kind(), symbol_kind_Other);
    EXPECT_EQ(symbol->visibility(), symbol_visibility_Local);
    SymMgrObjectPtr<ISourceLine> line;
    ASSERT_EQ(symbol->sourceLine(line), status_Ok);
    SymMgrObjectPtr<ISourceLocation> const first(line->location());
    EXPECT_EQ(first->line(), 3U);
    EXPECT_EQ(startOf(*line), 0U);
    EXPECT_EQ(line->size(), 0U);
    ASSERT_EQ(symbol->sourceLine(line), status_Ok);
    EXPECT_EQ(line->location(), first.get()); // looked up once
    LineIterator lines;
    symbol->sourceLines(lines);
    std::string text;
    forEach(lines, [&](ISourceLine& each) {
        text += number(static_cast<long long>(startOf(each))) + "+" + number(each.size()) + " " +
                number(each.location()->line());
    });
    EXPECT_EQ(text, "0+16 3");
    symbol->sourceLineByAddress(line, addressIn(*bank, 0).get());
    EXPECT_FALSE(line);
    lines = nullptr;
    bank = nullptr;
    EXPECT_EQ(symbol->sourceLine(line), status_False);
    symbol->sourceLines(lines);
    EXPECT_FALSE(lines);
    EXPECT_STREQ(symbol->name(), ".dbginfo_vex");
    EXPECT_EQ(first->line(), 3U);
    // A kernel without lines.
    Bank const none = program.bank(arch_VexRln1, "n");
    EXPECT_EQ(rangeIn(*none, 8, k_allKinds)->symbol()->sourceLine(line), status_False);
}

/// What an ELF image in memory is asked for comes from there, and not from the file whose name it has.
TEST(MemoryImage, ServesAllReads) {
    TempDir const dir;
    std::string const image = miraImage("files unknown.cl\n0 1 3 1\nend 8\n");
    std::string const path = dir.file("p.clpdb", std::string(image.size(), '?'));
    SymMgrObjectPtr<IBuffer> const block = blockOf("head" + image + "tail");
    SymMgrObjectPtr<ElfFileLoader> const loader(new ElfFileLoader);
    loader->open(SymMgrObjectPtr<IModuleImage>(new MemoryImage(block.get(), 4, image.size(), path)));
    ASSERT_EQ(loader->status(), status_Ok);
    EXPECT_EQ(loader->fileName(), path);
    SymMgrObjectPtr<IBuffer> bytes;
    ASSERT_EQ(loader->readBytes(1, image.size() - 1, bytes), status_Ok);
    EXPECT_EQ(std::string(bytes->data(), bytes->data() + bytes->size()), image.substr(1));
    SymMgrObjectPtr<ISection> section;
    loader->sectionByName(section, ".debug_line");
    ASSERT_TRUE(section);
    ASSERT_EQ(section->read(bytes), status_Ok);
    EXPECT_NE(image.find(std::string(bytes->data(), bytes->data() + bytes->size())), std::string::npos);
    LogCapture const log(log4cplus::WARN_LOG_LEVEL);
    EXPECT_EQ(loader->readBytes(1, image.size(), bytes), status_False);
    EXPECT_EQ(saidIn(log),
              Said{"Unable to read " + number(static_cast<long long>(image.size())) + " bytes from file: " + path});
    char byte = 0;
    SymMgrObjectPtr<IModuleImage> const outside(new MemoryImage(block.get(), image.size(), 9, path));
    EXPECT_EQ(outside->size(), 0U);
    EXPECT_EQ(outside->read(0, 1, &byte), 0U);
}
