// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// The order of operations is a promise to clients that were compiled long ago. A pointer to a
/// virtual member holds its place in the table (Itanium C++ ABI, 2.3): this test reads it out.

#include "format/orv_ffl.h"
#include "gpu/orv_gpu_qdc_blob.h"
#include "image/orv_file.h"
#include "image/orv_filename.h"
#include "platform/orv_demangler.h"
#include "support/orv_test_support.h"

#include <cstring>

using namespace orv_test;

namespace {

template <typename Operation> std::size_t slotOf(Operation operation) {
    std::ptrdiff_t words[2];
    static_assert(sizeof(operation) == sizeof(words));
    std::memcpy(words, &operation, sizeof(words));
    return static_cast<std::size_t>(words[0] - 1) / sizeof(void*);
}

template <typename... Operations> void expectSlots(char const* interface, std::size_t first, Operations... operations) {
    std::size_t expected = first;
    std::size_t position = 0;
    for (std::size_t const slot : {slotOf(operations)...}) {
        EXPECT_EQ(slot, expected++) << interface << ", operation " << ++position;
    }
}

/// For interfaces that are counted: their own operations begin behind addRef and release.
#define EXPECT_COUNTED(T, ...)                                                                                         \
    expectSlots(#T, 0, &T::addRef, &T::release);                                                                       \
    expectSlots(#T, 2, __VA_ARGS__)
/// For interfaces with a destructor of their own, which takes two slots.
#define EXPECT_COUNTED_WITH_DESTRUCTOR(T, ...)                                                                         \
    expectSlots(#T, 0, &T::addRef, &T::release);                                                                       \
    expectSlots(#T, 4, __VA_ARGS__)

} // namespace

TEST(Slots, ManagerAndBank) {
    using M = ISymbolManager;
    using B = SymMgrObjectPtr<IModuleSymbolBank>;
    using ByWidth = status_t (M::*)(char const*, ISymbolFileResolver*, B&, unsigned int, bool, char const*);
    using ByArch = status_t (M::*)(char const*, ISymbolFileResolver*, B&, arch_t, bool, char const*);
    EXPECT_COUNTED(M, static_cast<ByWidth>(&M::loadSymbolsFromModule), static_cast<ByArch>(&M::loadSymbolsFromModule),
                   &M::loadSymbolsFromModuleEx);
    using K = IModuleSymbolBank;
    EXPECT_COUNTED(K, &K::execFileName, &K::symFileName, &K::execFileFormat, &K::symFileFormat, &K::architecture,
                   &K::preferredLoadAddress, &K::entryPoint, &K::imageSize, &K::compUnitDetailsById,
                   &K::notImplementedQuery, &K::optReports, &K::optReportByAddress, &K::symbolRangeByAddress,
                   &K::originalSymbolRanges, &K::nonOverlappedSymbolRanges, &K::sourceFileByName,
                   &K::sourceLocationByAddress, &K::sectionByName, &K::segments, &K::segmentByName, &K::addressByRVA,
                   &K::addressByValue, &K::addressByOffset, &K::addressByFileOffset, &K::memoryEstimate, &K::prefetcher,
                   &K::findStackVariable, &K::symbolByRanges);
    expectSlots("IPrefetcher", 0, &IPrefetcher::putPseudoAddress, &IPrefetcher::putRVA);
}

TEST(Slots, ImagesAndFormats) {
    using I = IModuleImage;
    EXPECT_COUNTED(I, &I::read, &I::size, &I::fileName, &I::imageOffset, &I::architecture);
    using F = IFileFormatLoader;
    EXPECT_COUNTED(F, &F::symbolFiles, &F::debugInfoLoader, &F::fileName, &F::fileFormat, &F::architecture,
                   &F::preferredLoadAddress, &F::entryPoint, &F::imageSize, &F::loadSymbols, &F::status,
                   &F::segmentByAddress, &F::segmentByIndex, &F::segmentByFileOffset, &F::sectionByAddress,
                   &F::readBytes, &F::addressByValue, &F::addressByFileOffset, &F::segments, &F::segmentByName,
                   &F::sectionByName, &F::sectionByIndex, &F::targetName);
    using S = ISection;
    EXPECT_COUNTED(S, &S::name, &S::size, &S::fileOffset, &S::address, &S::read, &S::readAt, &S::isEmptyInFile);
    using G = ISegment;
    expectSlots("ISegment", 0, &G::name, &G::fileSize, &G::memorySize, &G::rva, &G::fileOffset, &G::type, &G::read,
                &G::readAt, &G::sections);
    using A = IAddress;
    EXPECT_COUNTED(A, &A::rva, &A::pseudoAddr, &A::segment, &A::segmentOffset, &A::fileOffset, &A::isEqual,
                   &A::isNotEqual, &A::isAfter, &A::isBefore);
    EXPECT_COUNTED(IBuffer, &IBuffer::size, &IBuffer::data);
    using H = IFileFormatHelper;
    EXPECT_COUNTED_WITH_DESTRUCTOR(H, &H::isLoadedAddress, &H::imageBase, &H::sectionData, &H::sectionByIndex,
                                   &H::relocations);
    using R = ISymbolFileToResolve;
    EXPECT_COUNTED(R, &R::symbolFileName, &R::moduleFileName, &R::symbolFileFormat, &R::validity,
                   &R::validateSymbolFile, &R::candidateClassFlag);
    expectSlots("ISymbolFileResolver", 0, &ISymbolFileResolver::resolveSymbolFile);
}

TEST(Slots, SymbolsAndScopes) {
    using S = ISymbol;
    EXPECT_COUNTED(S, &S::sourceLine, &S::compUnitDetails, &S::name, &S::demangledName, &S::shortName, &S::baseName,
                   &S::kind, &S::address, &S::ranges, &S::visibility, &S::thunks, &S::sourceLines,
                   &S::sourceLineByAddress);
    EXPECT_COUNTED(IThunk, &IThunk::name, &IThunk::isImport);
    using N = IInlineInstance;
    EXPECT_COUNTED(N, &N::callSite, &N::symbol, &N::hasCallSite);
    using C = IScope;
    EXPECT_COUNTED(C, &C::parent, &C::symbol, &C::inlineInstance, &C::symbolRanges, &C::symbolRangeByAddress);
    using T = ISymbolTable;
    EXPECT_COUNTED(T, &T::addScope, &T::addRange, &T::symbolRangeByAddress, &T::symbolRanges,
                   &T::nonOverlappedSymbolRanges, &T::scope);
    using R = ISymbolRange;
    EXPECT_COUNTED(R, &R::startAddress, &R::endAddress, &R::size, &R::sizeToNextRange, &R::symbol, &R::inlineInstance,
                   &R::thunk, &R::outerRange, &R::isEntryRange, &R::innerRanges, &R::innerRangeByAddress);
    expectSlots("IRanges", 0, &IRanges::getCount, &IRanges::getRange);
    using I = IIterator<SymMgrObjectPtr<ISymbol>>;
    EXPECT_COUNTED(I, &I::current, &I::next, &I::reset);
    using D = ISymbolNameDemangler;
    EXPECT_COUNTED(D, &D::name, &D::demangledName, &D::shortName, &D::baseName);
    expectSlots("ISymbolChooser", 0, &ISymbolChooser::choose);
}

TEST(Slots, LinesAndDebugInformation) {
    using F = ISourceFile;
    expectSlots("ISourceFile", 0, &F::path, &F::sourceLines, &F::checksum, &F::checksumKind, &F::modificationTime,
                &F::length, &F::id);
    using L = ISourceLocation;
    EXPECT_COUNTED(L, &L::sourceFile, &L::unit, &L::line, &L::column, &L::discriminator);
    using N = ISourceLine;
    EXPECT_COUNTED(N, &N::location, &N::size, &N::address, &N::relativeAddress);
    using D = IDebugInfoLoader;
    EXPECT_COUNTED(D, &D::symFileName, &D::symFileFormat, &D::loadSymbols, &D::srcLineResolver, &D::findStackVariable,
                   &D::sectionByIndex);
    using R = ISrcLineResolver;
    EXPECT_COUNTED_WITH_DESTRUCTOR(R, &R::sourceLocationByAddress, &R::sourceLines, &R::sourceFileCount,
                                   &R::sourceFileById, &R::compUnitDetailsById, &R::addressRequested,
                                   &R::requestsCleared);
    using T = ILineTable;
    EXPECT_COUNTED_WITH_DESTRUCTOR(T, &T::sourceLinesByAddress, &T::sourceLines, &T::addLine);
    using C = ICompUnitDetails;
    expectSlots("ICompUnitDetails", 0, &C::id, &C::mainSourceFile, &C::sourceFileByName, &C::reserved4,
                &C::compilationDirectory, &C::compileOptions, &C::optReportFile, &C::compilerName,
                &C::compilerMajorVersion, &C::compilerMinorVersion, &C::language, &C::reserved12);
    EXPECT_COUNTED(IStackFrameContext, &IStackFrameContext::setRegister, &IStackFrameContext::getRegister);
    using O = IOptReportEntry;
    using G = IVexDebugInfoParser;
    EXPECT_COUNTED(G, &G::kernelCount, &G::kernelNames, &G::sourceFiles, &G::lineInfo);
    using P = IProgramFile;
    EXPECT_COUNTED(P, &P::kernelCount, &P::kernelName, &P::kernelLines);
    using Q = IQdcDbgParser;
    EXPECT_COUNTED(Q, &Q::kernelCount, &Q::kernelNames, &Q::instructionMap);
    expectSlots("IOptReportEntry", 0, &O::version, &O::address, &O::text);
    expectSlots("ISourceLocationChooser", 0, &ISourceLocationChooser::choose);
}

TEST(Slots, FilesAndObjects) {
    using F = IFileModifiable;
    expectSlots("IFile", 0, &IFile::tell, &IFile::seek, &IFile::read, &IFile::status, &IFile::size, &IFile::close,
                &F::append, &F::writeAt);
    using P = IFilenameParser;
    expectSlots("IFilenameParser", 0, &P::kind, &P::isAbsolute, &P::isUNC, &P::makeAbsolute, &P::normalize,
                &P::addSeparator, &P::split, &P::compose, &P::isSeparator, &P::separator, &P::root);
    expectSlots("ILock", 0, &ILock::lock, &ILock::unlock);
    // Implementations add theirs behind those of the interface: the destructor's two, then these.
    using O = SymMgrObject<IBuffer>;
    expectSlots("SymMgrObject", 6, &O::refCount, &O::onDelete);
    using D = ISectionData;
    expectSlots("ISectionData", 2, &D::addRef, &D::release, &D::data, &D::size, &D::sectionIndex, &D::addressDelta);
}
