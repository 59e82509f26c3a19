// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
#include "platform/orv_demangler.h"

#include "platform/orv_demangled_parts.h"
#include "platform/orv_mangled_size.h"
#include "support/orv_test_support.h"

using namespace orv_test;

TEST(Demangler, Forms) {
    struct {
        char const* raw;
        char const* full;
        char const* withoutParameters;
        char const* shortName;
        char const* baseName;
    } const rows[] = {
        {"main", "main", "main", "main", "main"},
        {"_Zgarbage", "_Zgarbage", "_Zgarbage", "_Zgarbage", "_Zgarbage"},
        {"_ZN2ns1A1fEic", "ns::A::f(int, char)", "ns::A::f", "ns::A::f", "f"},
        {"_ZNK1A1fEv", "A::f() const", "A::f", "A::f", "f"},
        {"_Z1fIiEvT_", "void f<int>(int)", "void f<int>", "f<int>", "f"},
        {"_ZN1AD2Ev", "A::~A()", "A::~A", "A::~A", "~A"},
        {"_ZlsRSoRK1A", "operator<<(std::ostream&, A const&)", "operator<<", "operator<<", "operator<<"},
        {"_ZlsIcERSoS0_T_", "std::ostream& operator<< <char>(std::ostream&, char)", nullptr, "operator<< <char>",
         "operator<<"},
        {"_ZN1AltERKS_", "A::operator<(A const&)", "A::operator<", "A::operator<", "operator<"},
        {"_ZN1AclEi", "A::operator()(int)", "A::operator()", "A::operator()", "operator()"},
        {"_ZN1AptEv", "A::operator->()", "A::operator->", "A::operator->", "operator->"},
        {"_ZN1AixEm", "A::operator[](unsigned long)", "A::operator[]", "A::operator[]", "operator[]"},
        {"_ZN1AcviEv", "A::operator int()", "A::operator int", "A::operator int", "operator int"},
        {"_ZN1AcvSt6vectorIiSaIiEEEv", "A::operator std::vector<int, std::allocator<int> >()", nullptr, nullptr,
         "operator std::vector<int, std::allocator<int> >"},
        {"_ZnwmPv", "operator new(unsigned long, void*)", "operator new", "operator new", "operator new"},
        {"_ZdaPv", "operator delete[](void*)", "operator delete[]", "operator delete[]", "operator delete[]"},
        {"_ZZ4mainENKUliE_clEi", "main::{lambda(int)#1}::operator()(int) const", "main::{lambda(int)#1}::operator()",
         "main::{lambda(int)#1}::operator()", "operator()"},
        {"_ZN12_GLOBAL__N_11fEv", "(anonymous namespace)::f()", "(anonymous namespace)::f", "(anonymous namespace)::f",
         "f"},
        {"_ZZ1fvE1x", "f()::x", "f()::x", "f()::x", "x"},
        {"_ZNSt6vectorIiSaIiEE9push_backERKi", "std::vector<int, std::allocator<int> >::push_back(int const&)", nullptr,
         "std::vector<int, std::allocator<int> >::push_back", "push_back"},
        {"_ZN1AIPFivEE1gES1_", "A<int (*)()>::g(int (*)())", "A<int (*)()>::g", "A<int (*)()>::g", "g"},
        {"_Z1fIiEPFvcET_", "void (*f<int>(int))(char)", "void (*f<int>)(char)", "f<int>", "f"},
        {"_Z1fB5cxx11i", "f[abi:cxx11](int)", "f[abi:cxx11]", "f[abi:cxx11]", "f[abi:cxx11]"},
        {"_Z1fv.cold", "f() [clone .cold]", "f [clone .cold]", "f", "f"},
        {"_Z1fv.part.0.isra.1", "f() [clone .part.0] [clone .isra.1]", nullptr, "f", "f"},
        {"_ZTV1AIiE", "vtable for A<int>", "vtable for A<int>", "vtable for A<int>", "vtable for A"},
        {"_ZThn8_N1A1fEv", "non-virtual thunk to A::f()", "non-virtual thunk to A::f", nullptr,
         "non-virtual thunk to f"},
        {"_ZZ4mainENKUlvE_cvPFvvEEv", "main::{lambda()#1}::operator void (*)()() const",
         "main::{lambda()#1}::operator void (*)()", "main::{lambda()#1}::operator void (*)()", "operator void (*)()"},
        {"_ZZNK1AcvPFvvEEvE1x", "A::operator void (*)()() const::x", nullptr, nullptr, "x"},
        {"_Z4tfppIsEPFPFilEcET_", "int (*(*tfpp<short>(short))(char))(long)", "int (*(*tfpp<short>)(char))(long)",
         "tfpp<short>", "tfpp"},
        {"_ZTIFvvE", "typeinfo for void ()", "typeinfo for void ()", "typeinfo for void ()", "typeinfo for void ()"},
        {"_ZN1AcvT_IiEEv", "A::operator int<int>()", "A::operator int<int>", "A::operator int<int>", "operator int"},
        {"_ZN1AIXgtLi2ELi1EEE1fEv", "A<((2)>(1))>::f()", "A<((2)>(1))>::f", "A<((2)>(1))>::f", "f"},
    };
    for (auto const& row : rows) {
        SymMgrObjectPtr<ISymbolNameDemangler> const name = ISymbolNameDemangler::create(row.raw, exec_format_Elf);
        EXPECT_STREQ(name->name(), row.raw);
        EXPECT_STREQ(name->demangledName(0), row.full) << row.raw;
        struct {
            char const* got;
            char const* expected;
        } const forms[] = {{name->demangledName(1), row.withoutParameters},
                           {name->shortName(), row.shortName},
                           {name->baseName(), row.baseName}};
        for (auto const& form : forms) {
            if (form.expected != nullptr) {
                EXPECT_STREQ(form.got, form.expected) << row.full;
            }
        }
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
    // Lists that are never closed: the runtime's demangler does not come back from the second.
    for (char const* open : {"_ZN2ns1A1f", "_ZN1IIIXsr1ICC3hZ^", "_ZN1IIXsz2N1IIXsr1IIXsr3IIXCC3hZ^"}) {
        EXPECT_STREQ(ISymbolNameDemangler::create(open, exec_format_Elf)->demangledName(0), open);
        EXPECT_EQ(mangledSizeBound(open), k_unboundedSize) << open;
    }
    EXPECT_LT(mangledSizeBound("_ZNSt6vectorIiSaIiEE9push_backERKi"), 1000U);
    EXPECT_LT(mangledSizeBound("_Z1fIJicEEvDpT_"), 1000U);
}

TEST(Demangler, TextsThatNoDemanglerWrites) {
    for (char const* const text :
         {"",          " ",           "(",    ")",     "<",          "operator",    "operator ",    "a::",
          "::",        "f(",          "f()(", "f((((", "f<a",        "f<operator<", "{{",           " [clone ",
          " [clone ]", "vtable for ", "(*",   "(*)(",  "x (*(*(*(*", "f() const::", "operator\"\" "}) {
        DemangledParts const parts{std::string_view(text)};
        parts.withoutParameters();
        parts.shortName();
        parts.baseName();
    }
    std::string nested;
    for (int i = 0; i < 1000; ++i) {
        nested += "operator a<x (";
    }
    DemangledParts(nested).baseName();
    std::string lookingAhead;
    for (int i = 0; i < 200; ++i) {
        lookingAhead += "<::operator int() x";
    }
    DemangledParts(lookingAhead).baseName();                                   // comes back
    mangledSizeBound("_Z1fX2_ESt2lesssfL1fIJ1fIJoperatorZ1fvcLDpT_IsfLnJsA0"); // ends inside a type
    EXPECT_EQ(DemangledParts(std::string(100000, '(')).shortName().size(), 100000U);
}
