/// Memory runs out at each point of a load in turn. What was asked for fails with a status, and what
/// is asked afterwards finds nothing broken: the sanitizers watch.

#include "support/orv_elf_builder.h"
#include "support/orv_test_support.h"
#include "symbols/orv_scope.h"
#include "symbols/orv_symboltable.h"

#include <cstdlib>
#include <new>

namespace {

/// Allocations to go until one fails; negative: none does.
thread_local long g_untilFailure = -1;

void* allocate(std::size_t size) noexcept {
    return g_untilFailure >= 0 && g_untilFailure-- == 0 ? nullptr : std::malloc(size != 0 ? size : 1);
}

void* allocateOrThrow(std::size_t size) {
    void* const memory = allocate(size);
    return memory != nullptr ? memory : throw std::bad_alloc();
}

} // namespace

#define ORV_NOINLINE __attribute__((noinline)) // else the compiler pairs malloc with delete, and warns
ORV_NOINLINE void* operator new(std::size_t size) { return allocateOrThrow(size); }
ORV_NOINLINE void* operator new[](std::size_t size) { return allocateOrThrow(size); }
ORV_NOINLINE void* operator new(std::size_t size, std::nothrow_t const& /*tag*/) noexcept { return allocate(size); }
ORV_NOINLINE void* operator new[](std::size_t size, std::nothrow_t const& /*tag*/) noexcept { return allocate(size); }
ORV_NOINLINE void operator delete(void* memory) noexcept { std::free(memory); }
ORV_NOINLINE void operator delete[](void* memory) noexcept { std::free(memory); }
ORV_NOINLINE void operator delete(void* memory, std::size_t /*size*/) noexcept { std::free(memory); }
ORV_NOINLINE void operator delete[](void* memory, std::size_t /*size*/) noexcept { std::free(memory); }

using namespace orv_test;

namespace {

/// Runs work again and again, with a failure one allocation later each time, until there is none.
template <typename Work> int failInTurn(Work work) {
    for (int point = 0; point < 5000; ++point) {
        g_untilFailure = point;
        bool const isThrough = work();
        bool const wasReached = g_untilFailure < 0;
        g_untilFailure = -1;
        if (!wasReached) {
            EXPECT_TRUE(isThrough);
            return point;
        }
    }
    return -1;
}

std::string module() {
    ElfBuilder elf;
    elf.load(PF_R | PF_X, 0x1000, 0x2000);
    elf.section(".text", SHT_PROGBITS, SHF_ALLOC | SHF_EXECINSTR, 0x1000, std::string(0x1000, 'x'));
    std::uint32_t const plt =
        elf.section(".plt", SHT_PROGBITS, SHF_ALLOC | SHF_EXECINSTR, 0x2000, std::string(64, 'x'));
    unsigned int const import = elf.symbol("import", STB_GLOBAL, STT_FUNC, 0, 0, SHN_UNDEF);
    for (unsigned int i = 0; i < 100; ++i) {
        elf.symbol("f" + std::to_string(i), STB_GLOBAL, STT_FUNC, 0x1000 + i / 40 * 0x10, i % 20);
    }
    std::string const entry = elf.relocation(true, 0x3000, import, 7);
    elf.section(".rela.plt", SHT_RELA, 0, 0, entry, 0, elf.symbolSection() + 1, plt);
    return elf.bytes();
}

} // namespace

TEST(Memory, RunsOutDuringALoad) {
    TempDir const dir;
    std::string const path = dir.file("m", module());
    SymMgrObjectPtr<ISymbolManager> manager;
    ASSERT_EQ(ISymbolManager::create(manager), status_Ok);
    int const points = failInTurn([&] {
        SymMgrObjectPtr<IModuleSymbolBank> bank;
        status_t const loaded =
            manager->loadSymbolsFromModuleEx(path.c_str(), nullptr, bank, arch_Unknown, load_flags_NewLoader, "");
        if (loaded != status_Ok) {
            EXPECT_EQ(loaded, status_OutOfMemory);
            return false;
        }
        SymMgrObjectPtr<IIterator<SymMgrObjectPtr<ISymbolRange>>> it;
        status_t const asked = bank->originalSymbolRanges(it, k_allKinds, nullptr, nullptr);
        long const left = g_untilFailure;
        g_untilFailure = -1;
        // The bank stays usable, and gives all that it has.
        SymMgrObjectPtr<IIterator<SymMgrObjectPtr<ISymbolRange>>> again;
        EXPECT_EQ(bank->originalSymbolRanges(again, k_allKinds, nullptr, nullptr), status_Ok);
        EXPECT_NE(allRanges(again).find("import["), std::string::npos);
        symbolAt(*bank, 0x1005);
        g_untilFailure = left;
        return asked == status_Ok;
    });
    EXPECT_GT(points, 20);
}

TEST(Memory, RunsOutInATable) {
    int const points = failInTurn([] {
        SymMgrObjectPtr<ISymbolTable> table;
        bool isThrough = false;
        try {
            table = ISymbolTable::create(nullptr);
            for (unsigned long long at = 0; at < 30; ++at) {
                SymMgrObjectPtr<SymbolScope> const scope(new SymbolScope(
                    nullptr, SymbolName::borrowed("s"), at, nullptr, symbol_visibility_Global, symbol_kind_Function));
                scope->addRange(at, at + 5);
                scope->addRange(at + 100, at + 105);
                scope->addThunk(new ImportThunk(nullptr, at + 200, 4));
                table->addScope(scope.get());
                table->addRange(at, at + 7, scope.get());
            }
            RawSymbolBatch batch(40);
            for (unsigned long long i = 0; i < 40; ++i) {
                batch.add({"raw", i / 20, i, symbol_visibility_Local, symbol_kind_Other});
            }
            static_cast<SymbolTable&>(*table).addRawSymbols(nullptr, std::move(batch));
            isThrough = true;
        } catch (std::bad_alloc const&) {
        }
        long const left = g_untilFailure;
        g_untilFailure = -1;
        if (table) {
            for (unsigned long long at = 0; at < 300; ++at) {
                SymMgrObjectPtr<ISymbolRange> range;
                table->symbolRangeByAddress(range, at, k_allKinds, nullptr);
            }
            SymMgrObjectPtr<IIterator<SymMgrObjectPtr<ISymbolRange>>> it;
            table->symbolRanges(it, 0, 1000, k_allKinds);
            allRanges(it);
        }
        g_untilFailure = left;
        return isThrough;
    });
    EXPECT_GT(points, 100);
}
