// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
// Draws descriptions from a Mersenne twister, with plain remainders so that a seed means the same everywhere.
#include "support/orv_oat_random.h"

#include <iterator>
#include <random>
#include <set>

namespace orv_test {
namespace {
class RandomText {
public:
    RandomText(std::uint32_t seed, OatOddity oddity) : m_random(seed), m_hasOddities(oddity == OatOddity::Some) {}

    std::string text() {
        char const* const versions[] = {"7", "14", "15", "22", "23", "24", "25", "26", "27", "28"};
        char const* const wrong[] = {"0", "8", "13", "16", "21", "29", "100", "x"};
        add("oat ", odd(40) ? pick(wrong) : pick(versions));
        addIf(4, " elf32");
        add(" base=", (1 + below(500)) * 0x1000);
        add(" at=", 0x1000 * (1 + below(2)) + 16 * below(4));
        addIf(3, " trailer=", below(30));
        addIf(5, " decoys=1");
        if (odd(12)) {
            add(" execfield=", below(2) == 0 ? below(20) : below(0x3000));
        }
        std::uint32_t const files = oneIn(20) ? 0 : 1 + below(3);
        for (std::uint32_t i = 0; i < files; ++i) {
            addDex(i);
        }
        if (oneIn(4)) {
            add("\ntail ", bytes(4 + below(12)));
        }
        return m_text + "\n";
    }

private:
    std::uint32_t below(std::uint32_t limit) { return static_cast<std::uint32_t>(m_random() % limit); }
    bool oneIn(std::uint32_t count) { return below(count) == 0; }
    bool odd(std::uint32_t count) { return oneIn(count) && m_hasOddities; }
    template <typename Table> std::string pick(Table const& table) {
        return table[below(static_cast<std::uint32_t>(std::size(table)))];
    }

    void add(std::string const& what) { m_text += what; }
    void add(std::string const& what, std::string const& value) { m_text += what + value; }
    void add(std::string const& what, std::uint32_t value) { m_text += what + std::to_string(value); }
    void addIf(std::uint32_t count, std::string const& what) { m_text += oneIn(count) ? what : ""; }
    void addIf(std::uint32_t count, std::string const& what, std::uint32_t value) {
        m_text += oneIn(count) ? what + std::to_string(value) : "";
    }

    /// No number in them is longer than four bytes.
    std::string bytes(std::uint32_t count) {
        static char const digits[] = "0123456789abcdef";
        std::string result;
        for (std::uint32_t i = 0; i < count; ++i) {
            result += digits[below(i % 4 == 3 || !oneIn(3) ? 8 : 16)];
            result += digits[below(16)];
        }
        return result.empty() ? "00" : result;
    }

    void addDex(std::uint32_t index) {
        add("\ndex location=/app/", bytes(1 + below(4)));
        if (odd(60)) {
            add(" magic=dey");
        }
        if (odd(60)) {
            add(" version=036");
        }
        std::uint32_t const classes = below(5);
        for (std::uint32_t i = 0; i < classes; ++i) {
            addClass(index, i);
        }
    }

    void addClass(std::uint32_t dex, std::uint32_t index) {
        char const* const packages[] = {"", "com.example.", "a.b.c.", "päck.é.", "日本."};
        char const* const suffixes[] = {"", "$Inner", "$1", "ß", "😀"};
        char const* const kinds[] = {" all", " all", " all", " all", " some", " some", " some", " some", " none"};
        char const* const sources[] = {" source=-", " source=Shared.java", " source=", " source=Größe.java"};
        add("\nclass ", pick(packages) + "Class" + std::to_string(dex) + std::to_string(index) + pick(suffixes));
        std::string const kind = odd(12) ? " type=" + std::to_string(3 + below(3) * 77) : pick(kinds);
        add(kind);
        m_someCompiled = kind == " some";
        m_noneCompiled = kind == " none";
        if (oneIn(2)) {
            add(pick(sources));
        }
        if (kind == " some" && odd(3)) {
            add(" bitmap=", oneIn(6) ? "" : bytes(1 + below(4)));
        }
        if (odd(40)) {
            char const* const places[] = {"end-1", "end-2", "end-3", "end-4", "end+0", "end+9", "0xfffffff0"};
            add(" offset=", pick(places));
        }
        if (odd(40)) {
            char const* const places[] = {"0", "end-1", "end-2", "end-3", "end+1", "0x7ffffff0"};
            add(" data=", pick(places));
        }
        if (odd(40)) {
            char const* const indices[] = {"0xffffffff", "9999", "0", "1"};
            add(" descriptor=", pick(indices));
        }
        addMembers();
    }

    void addMembers() {
        char const* const types[] = {"I", "J", "[B", "Ljava/lang/String;"};
        std::uint32_t const fields = below(3);
        for (std::uint32_t i = 0; i < fields; ++i) {
            add(oneIn(2) ? "\n  field static f" : "\n  field instance f", i);
            add(" ", pick(types));
        }
        m_names.clear();
        std::uint32_t const methods = oneIn(3) ? 6 + below(8) : below(6);
        for (std::uint32_t i = 0; i < methods; ++i) {
            addMethod(i);
        }
    }

    void addMethod(std::uint32_t index) {
        char const* const names[] = {"run", "get", "main", "x", "größe", "走る", "a$b", "access$000"};
        char const* const signatures[] = {"()V", "(II)V", "(JD)J", "([[Ljava/lang/String;Z)[I", "(Lä;)V"};
        std::string name = pick(names);
        std::string const signature = pick(signatures);
        if (odd(60)) {
            name = "";
        }
        if (!m_names.insert(name + signature).second) {
            name += std::to_string(index);
        }
        bool const isDirect = oneIn(2);
        add(isDirect ? "\n  method direct " : "\n  method virtual ", name + signature);
        add(" code=", below(8) * below(12));
        addIf(5, " thumb");
        bool const hasItem = !oneIn(8);
        add(hasItem ? "" : " nocode");
        bool const isCompiled = !m_noneCompiled && !(m_someCompiled ? oneIn(3) : odd(12));
        add(isCompiled ? "" : " uncompiled");
        addNativeOddities();
        addDexOddities();
        addMapping();
        if (hasItem) {
            addItem(name.empty());
        }
    }

    void addNativeOddities() {
        if (odd(20)) {
            char const* const sizes[] = {"0", "1", "0xffffffff", "100000"};
            add(" codesize=", pick(sizes));
        }
        if (odd(16)) {
            char const* const places[] = {"0",     "1",     "exec", "exec-4", "exec+1", "exec+13",
                                          "end-1", "end-5", "end",  "end+1",  "end+99", "0xffffffff"};
            add(" codeoff=", pick(places));
        }
        if (odd(24)) {
            char const* const places[] = {"0", "1", "40", "end-1", "end", "0xffffffff"};
            add(" mapword=", pick(places));
        }
    }

    void addDexOddities() {
        char const* const indices[] = {"0xffffffff", "9999", "0", "1"};
        if (odd(60)) {
            add(" name=", pick(indices));
        }
        if (odd(60)) {
            add(" class=", pick(indices));
        }
        if (odd(40)) {
            char const* const places[] = {"0", "end-10", "end-19", "end-20", "end", "0xfffffff0", "0x70", "0x74"};
            add(" dexcode=", pick(places));
        }
        if (odd(24)) {
            char const* const places[] = {"0",      "end-1", "end-2",      "end-3", "end-6",
                                          "end-12", "end",   "0xfffffff0", "112"};
            add(" debugoff=", pick(places));
        }
    }

    void addMapping() {
        if (odd(15)) {
            add("\n    rawmap ", bytes(below(12)));
            return;
        }
        if (!oneIn(6)) {
            add("\n    map");
            addPairs(below(9));
        }
        if (oneIn(3)) {
            add("\n    dex2native");
            addPairs(below(4));
        }
        if (odd(16)) {
            add("\n    total ", below(12));
        }
        if (odd(16)) {
            add("\n    pc2dex ", below(12));
        }
    }

    void addPairs(std::uint32_t count) {
        std::uint32_t native = 0;
        std::uint32_t dex = 0;
        for (std::uint32_t i = 0; i < count; ++i) {
            native = odd(40) ? 0xFFFFFFF0 + below(16) : oneIn(10) ? below(40) : native + below(9);
            dex = odd(40) ? 0xFFFFFFF0 + below(16) : oneIn(4) ? below(20) : dex + below(4);
            add(" ", native);
            add(":", dex);
        }
    }

    void addItem(bool hasNoName) {
        if (oneIn(4)) {
            add("\n    insns ", 1 + below(40));
            if (odd(10)) {
                char const* const sizes[] = {"0x7fffffff", "0xffffffff", "100000", "0"};
                add(" size=", pick(sizes));
            }
        }
        if (oneIn(6) && !hasNoName) {
            return;
        }
        add("\n    debug ", odd(30) ? "0xffffffff" : std::to_string(below(300)));
        if (odd(4)) {
            char const* const names[] = {"", "a", "a,b", "-", "ö,-,c"};
            add(" params=", pick(names));
        }
        add(" :");
        std::uint32_t const operations = below(11);
        for (std::uint32_t i = 0; i < operations; ++i) {
            addOperation();
        }
        add(odd(10) ? "" : " end");
    }

    void addOperation() {
        char const* const quiet[] = {"prologue",  "epilogue",    "endlocal 1",
                                     "restart 1", "local 1 0 0", "localx 1 0 0 0"};
        char const* const files[] = {"file Other.java", "file Größe.java", "file Shared.java"};
        char const* const oddFiles[] = {"file @0", "file @9999", "file @1", "file @2"};
        std::uint32_t const kind = below(m_hasOddities ? 22 : 18);
        if (kind < 10) {
            add(" step ", below(5));
            add(" ", std::to_string(static_cast<int>(below(15)) - 4));
        } else if (kind < 12) {
            add(" special ", 10 + below(m_hasOddities ? 246 : 30));
        } else if (kind < 14) {
            add(" pc ", odd(10) ? 0xFFFFFFFE + below(2) : below(8));
        } else if (kind < 16) {
            add(" line ", std::to_string(static_cast<int>(below(300)) - (m_hasOddities ? 100 : 0)));
        } else if (kind < 18) {
            add(" ", pick(files));
        } else if (kind < 20) {
            add(" ", pick(quiet));
        } else {
            add(" ", oneIn(2) ? pick(oddFiles) : "raw " + bytes(below(6)));
        }
        add(";");
    }

    std::mt19937 m_random;
    bool m_hasOddities;
    bool m_someCompiled = false;
    bool m_noneCompiled = false;
    std::set<std::string> m_names{};
    std::string m_text{};
};
} // namespace

std::string randomOatText(std::uint32_t seed, OatOddity oddity) { return RandomText(seed, oddity).text(); }

} // namespace orv_test
