# SPDX-License-Identifier: Apache-2.0
# SPDX-FileCopyrightText: The ORV authors
"""orv-addr2line beside GNU addr2line: every option and every kind of word, byte for byte, over every instruction of
programs, objects and libraries. What may differ stands in docs/addr2line.md; each class of it is told apart here."""

import collections
import json
import os
import pathlib
import re
import struct
import subprocess
import sys
import tempfile

sys.path[:0] = [str(pathlib.Path(__file__).resolve().parent.parent / "support")]
import orv_tools
from orv_tools import ORV, expect, failures

GNU = "addr2line"

C_SOURCE = """
int gval = 5;
int many[200];
static int lval[4] = {1};
static inline int scaled(int x) { volatile int y = x; return y * 3; }
static int hidden(int x) { return x * 2 + lval[x & 3]; }
int weakly(int) __attribute__((weak));
int weakly(int x) { return hidden(x) + scaled(x); }
int face(int x) { return weakly(x) + 1; }
int cold_beer(int x) { return face(x) + 2; }
"""
MAIN_SOURCE = """
int cold_beer(int);
int main(int argc, char** argv) { (void)argv; return cold_beer(argc); }
"""
CXX_SOURCE = """
#include <cstdio>
#include <map>
#include <string>
#include <vector>
namespace {
__attribute__((noinline)) int anonymous(int x) { volatile int y = x; return y + 1; }
}
namespace ns {
static __attribute__((noinline)) int kept(int x) { volatile int y = x; return y * 2; }
struct Base { virtual ~Base() {} virtual int f(int x) { return x; } };
struct Derived : Base { int v = 3; Derived(int x) : v(x) {} int f(int x) override { return x * v; } };
template <typename T> T twice(T x) { return x + x; }
}
void fail(int n) { if (n > 100) throw std::string("too many"); std::printf("%d", n); }
int main(int argc, char** argv)
{
    std::map<std::string, int> counts;
    for (int i = 0; i < argc; ++i) counts[argv[i]] += ns::twice(i);
    std::vector<int> all;
    for (auto const& entry : counts) all.push_back(entry.second);
    ns::Derived d(argc);
    ns::Base* b = &d;
    fail(b->f(argc) + anonymous(argc) + ns::kept(argc) + [](int x) { volatile int y = x; return y; }(argc));
    return static_cast<int>(all.size());
}
"""


def run(tool, *words, text_in=None, cwd=None):
    return orv_tools.run(tool, *words, input=text_in, cwd=cwd)


def build(folder):
    """Name and path of everything that is asked about."""
    for name, text in (("c.c", C_SOURCE), ("main.c", MAIN_SOURCE), ("cxx.cpp", CXX_SOURCE)):
        (folder / name).write_text(text)
    found = {}
    for name, *command in (
            ("c0", "gcc", "-O0", "-gdwarf-4", "c.c", "main.c"), ("c2", "gcc", "-O2", "-gdwarf-4", "c.c", "main.c"),
            ("static", "gcc", "-O1", "-gdwarf-4", "-no-pie", "c.c", "main.c"),
            ("lib.so", "gcc", "-O2", "-gdwarf-4", "-shared", "-fPIC", "c.c"),
            ("dropped", "gcc", "-O0", "-gdwarf-4", "-ffunction-sections", "-Wl,--gc-sections", "-Wl,-e,main", "c.c", "main.c"),
            ("cxx0", "g++", "-O0", "-gdwarf-4", "cxx.cpp"), ("cxx2", "g++", "-O2", "-gdwarf-4", "cxx.cpp"),
            ("one.o", "gcc", "-O2", "-gdwarf-4", "-c", "c.c"), ("main.o", "gcc", "-O2", "-gdwarf-4", "-c", "main.c"),
            ("many.o", "gcc", "-O1", "-gdwarf-4", "-ffunction-sections", "-c", "c.c"),
            ("32", "gcc", "-m32", "-O1", "-gdwarf-4", "-nostdlib", "-Wl,-e,main", "c.c", "main.c"),
            ("32.o", "gcc", "-m32", "-O1", "-gdwarf-4", "-ffunction-sections", "-c", "c.c"),
            ("module.ko", "ld", "-r", "many.o", "main.o"),
            ("at-zero", "ld", "-static", "-Ttext=0", "-e", "main", "one.o", "main.o")):
        if orv_tools.can(name, *command):
            subprocess.run([*command, "-o", name], cwd=folder, check=True, capture_output=True)
            found[name] = str(folder / name)
    return found


def instructions(module):
    """(section, address) of every instruction."""
    section, found = "", []
    for line in run("objdump", "-d", module).stdout.splitlines():
        if line.startswith("Disassembly of section "):
            section = line.split()[-1].rstrip(":")
        elif match := re.match(r" +([0-9a-f]+):\t", line):
            found.append((section, int(match[1], 16)))
    return found


def extents(module):
    return [(int(words[0], 16), int(words[0], 16) + int(words[1], 16), words[3])
            for words in map(str.split, run("nm", "-S", module).stdout.splitlines()) if len(words) == 4 and words[2] in "tTwWiu"]


def frames(text):
    return re.findall(r"(.*)\n(.*)(?:\n|$)", text)


class Differences:
    """Tells what of a difference is one of those that are known."""

    def __init__(self, module):
        self.symbols = extents(module)
        self.aliases = collections.defaultdict(set)
        for start, _, name in self.symbols:
            self.aliases[start].add(name)
        self.module = module
        self.counts = collections.Counter()

    def same_body(self, ours, theirs):
        """Symbols at one address, and overloads of one function, are one symbol here."""
        short = [run("c++filt", name).stdout.split("(")[0] for name in (ours, theirs)]
        return short[0] == short[1] or any({ours, theirs} <= names for names in self.aliases.values())

    def bare(self, ours, theirs):
        """What the debug information of g++ calls a function that no other unit can see."""
        whole = run("c++filt", theirs).stdout.strip().replace("(anonymous namespace)::", "")
        return theirs.startswith("_Z") and not ours.startswith("_Z") and \
            re.sub(r"<.*", "", ours).strip("_") in whole + ("FUN" if "lambda" in whole else "")

    def explain(self, address, ours, theirs):
        ours, theirs = frames(ours), frames(theirs)
        plain = [(name, place.split(" (disc")[0]) for name, place in theirs]
        if len(ours) == len(theirs) and ours[0] == theirs[0] and \
                [(name, place.split(" (disc")[0]) for name, place in ours] == plain:
            return "discriminator of a call"
        if len(ours) == 1 and ours[0][0] == "??" and not any(start <= address < end for start, end, _ in self.symbols):
            return "nearest symbol"
        if len(ours) == len(theirs) == 1 and ours[0] == (theirs[0][0], "??:?"):
            return "file of the symbol table"
        if [place for _, place in ours] == [place for _, place in plain] and \
                all(a == b or self.same_body(a, b) for (a, _), (b, _) in zip(ours, plain)):
            return "names of one body"
        if len(ours) == len(theirs) and [place for _, place in ours] == [place for _, place in plain] and \
                all(a == b or self.bare(a, b) for (a, _), (b, _) in zip(ours, plain)):
            return "bare name"
        if orv_tools.lacking(["llvm-symbolizer"]) is None:
            answer = run("llvm-symbolizer", "--no-demangle", "--output-style=GNU", "-fi", "-e", self.module, hex(address)).stdout
            other = [(name, place.split(" (disc")[0]) for name, place in frames(answer.strip("\n") + "\n")]
            mine = [(name, place.split(" (disc")[0]) for name, place in ours]
            if mine in (other, other[:1]):
                return "another peer agrees with us"
        return None


def split_answers(text):
    return re.split(r"^0x[0-9a-f]{8,16}\n", text, flags=re.M)[1:]


def check_addresses(name, module, classic):
    """All instructions, by argument and by input, in sections and by address: the texts, and what differs in them."""
    by_section = collections.defaultdict(list)
    for section, address in instructions(module):
        by_section[section].append(address)
    is_object = name.endswith((".o", ".ko"))
    for section, addresses in by_section.items():
        sections = {line.split()[1]: int(line.split()[3], 16) for line in
                    run("readelf", "-SW", module).stdout.replace("[ ", "[").splitlines() if len(line.split()) > 9 and line.split()[1] in by_section}
        for base in ([[]] if not is_object else []) + [["-j", section]]:
            start = sections[section] if base else 0
            words = [f"{address - start:x}" for address in addresses]
            known = Differences(module)
            for mode in ("input", "arguments"):
                for flags in ["-fai"] if mode == "arguments" else ["-fai", "-fa"]:
                    arguments = [flags, *base, "-e", module] + (words if mode == "arguments" else [])
                    given = "\n".join(words) if mode == "input" else None
                    ours, theirs = run(classic, *arguments, text_in=given), run(GNU, *arguments, text_in=given)
                    expect(f"{name} {section} by {mode}: status", ours.returncode, theirs.returncode)
                    answers = list(zip(split_answers(ours.stdout), split_answers(theirs.stdout), strict=True))
                    expect(f"{name} {section} by {mode}: answers", len(answers), len(words))
                    for address, (mine, gnus) in zip(addresses, answers):
                        if mine != gnus:
                            kind = known.explain(address, mine, gnus)
                            known.counts[kind] += 1
                            if kind is None:
                                failures.append(f"{name} {section} 0x{address:x} {flags}: ours {mine!r}, GNU's {gnus!r}")
            few = known.counts["another peer agrees with us"] + known.counts["names of one body"]
            if few > len(words) * 3 // 50 + 3:
                failures.append(f"{name} {section}: {few} of {len(words)} differ")


def check_alone(module, classic):
    """An address has one answer, whatever is asked beside it."""
    words = [f"{address:x}" for section, address in instructions(module) if section == ".text"][::5]
    together = split_answers(run(classic, "-fai", "-e", module, text_in="\n".join(words)).stdout)
    for word, answer in zip(words, together, strict=True):
        expect(f"{module} {word} alone", split_answers(run(classic, "-fai", "-e", module, word).stdout), [answer])


def check_words(programs, classic):
    """Words of every kind: our text is GNU's, and so is the status."""
    words = ["main", "main+4", "main+10", "main+010", "main+0x10", "main+18", "main+a", "main+0x4", "+10", "+0x10", "++5", "+-5",
             "b+1", "deadbeef+main", "[]", "[main,main]", "[1,2]", "gval", "gval+4", "many", "_edata", "_end", "__bss_start",
             "_DYNAMIC", "main +4", " main", "main ", "main + 4", "main+", "main+zz", "main+1+2", "main+-1",
             "main+ 4", "main\t+4", "main+4,", "main,", "weakly+2", "hidden", "nosuch", "nosuch+1", "0xzz", "zz", "0x", "-1", "+5",
             "+", "+zz", "", " ", ".", "_", "'main'", "main:", "c.c", "0", "1", "0x0", "face+", "99999999999999999999",
             "deadbeefdeadbeef1", "main@plt", "  +5", "$x", "@", "ffffffffffffffff"]
    for name in ("c0", "static", "dropped", "lib.so", "32"):
        if name not in programs:
            continue
        low = next(start for start, _, symbol in extents(programs[name]) if symbol == "weakly")
        places = [f"0x{low:x},", f"0x{low:x}+0x10", f"{low:x}+10", f"  {low:x}", f"{low:x} foo", f"{low:x}g", f"{low:X}",
                  f"0X{low:x}", f" {low:x}\t", f"{low:030x}", f"{low:x}\r"]
        for mode in ("arguments", "input"):
            for word in words + places:
                arguments = ["-fa", "-e", programs[name]] + (["--", word] if mode == "arguments" else [])
                given = None if mode == "arguments" else word + "\n"
                ours, theirs = run(classic, *arguments, text_in=given), run(GNU, *arguments, text_in=given)
                wanted = re.sub(r"\n(crtstuff\.c)?:\?\n", "\n??:?\n", theirs.stdout)
                if word.split("+")[0] in ("gval", "many", "_edata", "_end", "__bss_start", "_DYNAMIC"):
                    # Data: we know the place, and no line.
                    wanted = wanted.splitlines()[0] + "\n??\n??:0\n"
                expect(f"{name}: word {word!r} by {mode}", (ours.stdout, ours.returncode), (wanted, theirs.returncode))
    # A name that begins with digits, and one that is all digits.
    start = {symbol: first for first, _, symbol in extents(programs["c0"])}
    expect("a name that begins as a number", run(classic, "-f", "-e", programs["c0"], "cold_beer").stdout.split()[0], "cold_beer")
    expect("a name that is a number", run(classic, "-fa", "-e", programs["c0"], "face").stdout.split()[0], f"0x{0xface:016x}")
    expect("a word that means nothing is not 0", run(classic, "-f", "-e", programs["at-zero"], "nosuch", "").stdout,
           "??\n??:0\n" + run(GNU, "-f", "-e", programs["at-zero"], "0").stdout)
    # Dropped code left its debug information at 0, where the program has only headers; another has code there.
    expect("dropped", run(classic, "-f", "-e", programs["dropped"], "0", "1").stdout, "??\n??:0\n" * 2)
    expect("code at 0", run(classic, "-f", "-e", programs["at-zero"], f"{start['main'] - start['main']:x}").stdout,
           run(GNU, "-f", "-e", programs["at-zero"], "0").stdout)
    # What the command says of them besides.
    odd = run(ORV, "symbolize", "-fe", programs["c0"], "nosuch", "main")
    expect("symbolize of a word that means nothing", (odd.returncode, odd.stderr.count("\n"), odd.stdout.splitlines()[:2]),
           (1, 1, ["??", "??:0"]))
    answers = [json.loads(line) for line in run(ORV, "symbolize", "--json", "-e", programs["c0"], "weakly+2", " zz q").stdout.splitlines()]
    expect("json of words", [(answer["address"], answer["function"]) for answer in answers],
           [(hex(start["weakly"] + 2), "weakly"), ("zz", None)])


def check_objects(programs, classic):
    """Numbers in a relocatable file count in the first code section that is long enough, names have their own."""
    for name in ("one.o", "many.o", "module.ko", "32.o"):
        if name in programs:
            ours = run(classic, "-f", "--no-inlines", "-e", programs[name], "nosuch", "weakly+1", "face+", "cold_beer").stdout
            expect(f"names in {name}", ours.splitlines()[::2], ["??", "weakly", "face", "cold_beer"])
    # A name counts in its own section, also where its offset leads beyond.
    text = run(classic, "-fa", "-e", programs["many.o"], "face+0x2000", "gval+2").stdout
    expect("beyond a section", text, f"0x{0x2000:016x}\n??\n??:0\n0x{2:016x}\n??\n??:0\n")
    # A file whose symbols lie beyond it is as large as it is.
    data = bytearray(pathlib.Path(programs["one.o"]).read_bytes())
    (offset, size), count = struct.unpack_from("<Q", data, 0x28) + (64,), struct.unpack_from("<H", data, 0x3c)[0]
    for index in range(count):
        if struct.unpack_from("<I", data, offset + index * size + 4)[0] == 2:
            struct.pack_into("<Q", data, offset + index * size + 24, 1 << 62)
        if struct.unpack_from("<I", data, offset + index * size + 4)[0] == 3:
            struct.pack_into("<Q", data, offset + index * size + 32, 1 << 30)
    hostile = pathlib.Path(programs["one.o"]).with_name("hostile.o")
    hostile.write_bytes(data)
    with subprocess.Popen([classic, "-fe", hostile, "main"], stderr=subprocess.PIPE, text=True) as asked:
        complaint = asked.stderr.read()
        _, status, usage = os.wait4(asked.pid, 0)
        asked.returncode = os.waitstatus_to_exitcode(status)
    expect("symbols beyond the file", (asked.returncode, complaint.count("\n"), usage.ru_maxrss < 500_000), (1, 1, True))
    expect("a number in an object", run(classic, "-fa", "-e", programs["one.o"], "4").stdout,
           run(GNU, "-fa", "-j", ".text", "-e", programs["one.o"], "4").stdout)


def check_options(programs, classic, folder):
    """Every option in each of its spellings, and what is no option."""
    module = programs["cxx2"]
    at = next(f"{start:x}" for start, end, symbol in extents(module) if symbol.startswith("_Z4fail"))
    (folder / "options").write_text("-f -C\n'-e' cxx2  " + at + ' "main"\n')
    (folder / "quotes").write_text("-f -e cxx2 a\\ b 'x y' \"q\\\"r\" ''")
    (folder / "nested").write_text("@options -s")
    (folder / "folder").mkdir()
    (folder / "end").write_text("main\\")
    for words in (
            [at], ["-f", at], ["-C", at], ["-fC", at], ["-Cf", at], ["-a", at], ["-p", at], ["-fpaCs", at], ["-s", at],
            ["--functions", at], ["--func", at], ["--f", at], ["--basenames", at], ["--base", at], ["--addresses", at], ["--a", at],
            ["--pretty-print", "-f", at], ["--pretty", "-f", at], ["--inlines", at], ["--inline", at], ["--inl", at],
            ["--demangle", "-f", at], ["--dem", "-f", at], ["--demangle=auto", "-f", at], ["--demangle=gnu-v3", "-f", at],
            ["--demangle=none", "-f", at], ["--demangle=none", "-C", "-f", at], ["-C", "--demangle=none", "-f", at],
            ["--demangle=nosuch", "-f", at], ["-r", "-f", at], ["-R", "-f", at], ["--recurse-limit", at], ["--no-recurse-limit", at],
            ["--recursion-limit", at], ["--no-recursion-limit", at], ["--no", at], ["--rec", at], ["--r", at],
            ["-j", ".text", "-fa", "0", "10", "fffff"], ["--section=.text", "-f", "4"], ["--sec", ".text", "-f", "4"],
            ["-j.text", "-f", "4"], ["-j", ".comment", "-fa", "0"], ["-j", ".nosuch", at], ["-j", ".data", "-fa", "fffff"],
            ["-j", ".text", "-fa", "main"], ["-b", "elf64-x86-64", "-f", at], ["--target=default", at], ["--tar=elf32-i386", at],
            ["-b", "nosuch", at], ["-b", "", at], ["-f", "--", at], [at, "-f"], ["--nope", at], ["-x", at], ["-e"], ["-j"],
            ["--exe=nosuch", at], ["--ex=cxx2", "-f", at], ["--exe", "cxx2", at], ["-fecxx2", at], ["@options"], ["@nested"],
            ["@quotes"], ["@folder"], ["-f", "@end"], ["-1"], ["-f", "-0"], ["-a1", at], ["--functions=1", at], ["--functions=false", at],
            ["--basenames=", at], ["--no-recurse-limit=1", at], ["--demangle=", at], ["--demangle=true", at], ["-j", "", at],
            ["-f", "@nosuch"], ["-f", "--", "@options"], ["-e", "."], ["-e", "options", at]):
        given = words if any(word.startswith(("-e", "--ex", "@options", "@nested", "@quotes", "-fe")) for word in words) else ["-e", "cxx2", *words]
        ours, theirs = run(classic, *given, text_in="", cwd=folder), run(GNU, *given, text_in="", cwd=folder)
        expect(f"{given}", (ours.stdout, ours.returncode), (theirs.stdout, theirs.returncode))
        expect(f"{given} complains", bool(ours.stderr), bool(theirs.stderr))
    for word in ("-h", "-H", "--help", "--he", "-v", "-V", "--version", "--ver"):
        result = run(classic, word)
        expect(word, (result.returncode, result.stderr, "orv" in result.stdout), (0, "", True))
    expect("a style that is not ours", run(classic, "--demangle=dlang", "-e", module, at).returncode, 1)
    expect("usage of the command", run(ORV, "symbolize", "--nope").returncode, 2)
    expect("a short form of ours", run(ORV, "symbolize", "--no-inl", "-fe", module, at).returncode, 0)
    (folder / "loop").write_text("@loop @loop")
    endless = run(classic, "@loop", cwd=folder)
    expect("files without end", (endless.returncode, endless.stderr.count("\n")), (1, 1))
    (folder / "a.out").write_bytes(pathlib.Path(module).read_bytes())
    expect("a.out", run(classic, "-f", at, cwd=folder).stdout, run(GNU, "-f", at, cwd=folder).stdout)


def main():
    orv_tools.need(GNU, "objdump", "nm", "readelf")
    with tempfile.TemporaryDirectory() as folder:
        folder = pathlib.Path(folder)
        classic = folder / "addr2line"
        classic.symlink_to(ORV)
        programs = build(folder)
        for name, module in programs.items():
            check_addresses(name, module, classic)
        check_alone(programs["cxx2"], classic)
        check_words(programs, classic)
        check_objects(programs, classic)
        check_options(programs, classic, folder)
    orv_tools.finish()


if __name__ == "__main__":
    main()
