// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
#include "platform/orv_demangler.h"

#include "support/orv_test_support.h"

using namespace orv_test;

TEST(Demangler, Forms) {
    struct {
        char const* raw;
        char const* full;
        char const* shortName;
        char const* baseName;
    } const rows[] = {
        {"main", "main", "main", "main"},
        {"_Zgarbage", "_Zgarbage", "_Zgarbage", "_Zgarbage"},
        {"_ZN2ns1A1fEic", "ns::A::f(int, char)", "ns::A::f", "f"},
        {"_Z1fIiEvT_", "void f<int>(int)", "f<int>", "f"},
        {"_ZN1AD2Ev", "A::~A()", "A::~A", "~A"},
        {"_ZlsRSoRK1A", "operator<<(std::ostream&, A const&)", "operator<<", "operator<<"},
        {"_ZlsIcERSoS0_T_", "std::ostream& operator<< <char>(std::ostream&, char)", "operator<< <char>", "operator<<"},
        {"_ZN1AcvSt6vectorIiSaIiEEEv", "A::operator std::vector<int, std::allocator<int> >()",
         "A::operator std::vector<int, std::allocator<int> >", "operator std::vector<int, std::allocator<int> >"},
        {"_ZZ4mainENKUliE_clEi", "main::{lambda(int)#1}::operator()(int) const", "main::{lambda(int)#1}::operator()",
         "operator()"},
        {"_ZN12_GLOBAL__N_11fEv", "(anonymous namespace)::f()", "(anonymous namespace)::f", "f"},
        {"_ZZ1fvEd0_NKUlvE_clEv", "f()::{default arg#2}::{lambda()#1}::operator()() const",
         "f()::{default arg#2}::{lambda()#1}::operator() const", "operator()"},
        {"_Z1fIiEPFvcET_", "void (*f<int>(int))(char)", "f<int>", "f"},
        {"_Z1fB5cxx11i", "f[abi:cxx11](int)", "f[abi:cxx11]", "f[abi:cxx11]"},
        {"_Z1fv.part.0.isra.1", "f() [clone .part.0] [clone .isra.1]", "f", "f"},
        {"_ZTV1AIiE", "vtable for A<int>", "vtable for A<int>", "vtable for A"},
        {"_ZThn8_N1A1fEv", "non-virtual thunk to A::f()", "non-virtual thunk to A::f()", "non-virtual thunk to f"},
        {"_ZZNK1AcvPFvvEEvE1x", "A::operator void (*)()() const::x", "A::operator void (*)()() const::x", "x"},
        {"_ZTIFvvE", "typeinfo for void ()", "typeinfo for void ()", "typeinfo for void ()"},
        {"_ZN1AcvT_IiEEv", "A::operator int<int>()", "A::operator int<int>", "operator int<int>"},
        {"_ZN2yy7yamlizeIbEENSt9enable_ifIXsr16has_ScalarTraitsIT_EE5valueEvE4typeERNS_2IOERS2_",
         "std::enable_if<has_ScalarTraits<bool>::value, void>::type yy::yamlize<bool>(yy::IO&, bool&)",
         "yy::yamlize<bool>", "yamlize"},
    };
    for (auto const& row : rows) {
        SymMgrObjectPtr<ISymbolNameDemangler> const name = ISymbolNameDemangler::create(row.raw, exec_format_Elf);
        EXPECT_STREQ(name->name(), row.raw);
        EXPECT_STREQ(name->demangledName(0), row.full) << row.raw;
        EXPECT_STREQ(name->demangledName(1), row.shortName) << row.raw;
        EXPECT_STREQ(name->shortName(), row.shortName) << row.raw;
        EXPECT_STREQ(name->baseName(), row.baseName) << row.raw;
        EXPECT_EQ(name->baseName(), name->baseName()) << "kept, not made anew";
    }
    EXPECT_STREQ(ISymbolNameDemangler::create(nullptr, exec_format_Elf)->name(), "");
}

/// "f(P<int,int>, P<it,it>, P<that,that>, ...)": the text doubles with each eight bytes of name.
TEST(Demangler, RefusesNamesThatExplode) {
    std::string bomb = "_Z1f1PIiiE";
    std::string const digits = "0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZ";
    for (std::size_t i = 0; i < 30; ++i) {
        std::string const reference = std::string("S") + digits[i] + '_';
        bomb += "S_I" + reference + reference + 'E';
    }
    SymMgrObjectPtr<ISymbolNameDemangler> const name = ISymbolNameDemangler::create(bomb.c_str(), exec_format_Elf);
    EXPECT_EQ(name->demangledName(0), bomb);
    EXPECT_EQ(name->shortName(), bomb);
    std::string const pack = "_Z1fIJ" + std::string(100, 'i') + "EEvDp1AIJT_Dp1BIJT_Dp1CIJT_DpT_EEEEEE";
    EXPECT_EQ(ISymbolNameDemangler::create(pack.c_str(), exec_format_Elf)->demangledName(0), pack);
    // Nothing is written while a pack is sought in what refers back to itself.
    std::string search = "_Z1fDp1AI";
    constexpr std::size_t k_levels = 30;
    for (std::size_t i = 1; i < k_levels; ++i) {
        search += "S_I";
    }
    search += "iiE";
    for (std::size_t i = 0; i + 1 < k_levels; ++i) {
        search += std::string("S") + digits[i] + "_E";
    }
    EXPECT_EQ(ISymbolNameDemangler::create(search.c_str(), exec_format_Elf)->demangledName(0), search);
    // As deep as they are long: neither parser nor tree has a bound of its own.
    auto const times = [](std::size_t count, std::string const& text) {
        std::string all;
        for (std::size_t i = 0; i < count; ++i) {
            all += text;
        }
        return all;
    };
    for (std::string const& deep : {"_Z1fIDp" + times(200000, "P") + "iEvv", "_ZN" + times(200000, "1a") + "EDpi",
                                    "_Z1fI" + times(200000, "J") + "Dpi"}) {
        SymMgrObjectPtr<ISymbolNameDemangler> const forms = ISymbolNameDemangler::create(deep.c_str(), exec_format_Elf);
        EXPECT_TRUE(forms->demangledName(0) == deep && forms->shortName() == deep && forms->baseName() == deep);
    }
    // Lists that are never closed; and a name that the parser gives up on by its length.
    std::string const longest = "_Z2000" + std::string(2000, 'n') + 'v';
    for (char const* open :
         {"_ZN2ns1A1f", "_ZN1IIIXsr1ICC3hZ^", "_ZN1IIXsz2N1IIXsr1IIXsr3IIXCC3hZ^", longest.c_str()}) {
        EXPECT_STREQ(ISymbolNameDemangler::create(open, exec_format_Elf)->demangledName(0), open);
    }
}
