# SPDX-License-Identifier: Apache-2.0
# SPDX-FileCopyrightText: The ORV authors
"""Programs that dwz has worked on, each by itself or with a supplementary file for several: names, lines, chains and
declarations, beside those of the same programs before that."""

import json
import os
import pathlib
import random
import shutil
import sys
import tempfile

HERE = pathlib.Path(__file__).resolve().parent
sys.path[:0] = [str(HERE.parent.parent / "bench"), str(HERE.parent / "support")]
import orv_compare
import orv_tools
from orv_tools import ORV, expect, failures, must

INSIDE = 10
FORTRAN = HERE.parent / "fixtures" / "solver.f90"
FRAMES = HERE.parent / "fixtures" / "frames.c"
HEADER = """
#include <map>
#include <string>
#include <vector>
struct Shape { virtual ~Shape() {} virtual int area(int k) const; int w, h; };
template <class T> struct Stack {
    std::vector<T> all;
    void push(T x) { all.push_back(x); }
    T sum() const { T s = T(); for (auto const& e : all) s += e; return s; }
};
inline int clamped(int x) { volatile int y = x; return y < 0 ? 0 : y > 255 ? 255 : y; }
static inline int mixed(int a, int b) { return clamped(a) * 3 + clamped(b + 1); }
int part1(int);
int part2(int);
"""
SOURCES = {
    "one.cpp": """#include "shared.h"
int Shape::area(int k) const { return mixed(w * k, h); }
int part1(int n) { Stack<int> s; for (int i = 0; i < n; ++i) s.push(mixed(i, n)); return s.sum(); }
""",
    "two.cpp": """#include "shared.h"
struct Record { int a; Shape shape; long longs[7]; } record;
static std::map<std::string, int> names;
int part2(int n) {
    Stack<int> s;
    Stack<long> t;
    for (int i = 0; i < n; ++i) { s.push(mixed(i, n)); t.push(i); }
    names["q"] = t.sum();
    return s.sum() + record.shape.area(n);
}
""",
}
MAIN = """#include "shared.h"
%s
int main(int c, char**) { Stack<int> s; s.push(c); s.push(%d); return part1(c) + part2(c) + s.sum(); }
"""
PROGRAMS = ("a", "b", "c")


def facts(program):
    """What the client says of all symbols, without the units' ids, which dwz changes."""
    found = []
    for line in must(ORV, "symbols", "--json", program).splitlines():
        symbol = json.loads(line)
        symbol["unit"] = symbol["unit"] is not None
        found.append(symbol)
    return found


def units(program):
    return sorted(json.loads(line)["main_file"] for line in must(ORV, "units", "--json", program).splitlines())


def is_same(mine, theirs):
    """A constructor or destructor has one body under two names, of which either may be the outermost function's."""
    names = [[name.split(".")[0] for name, _ in chain[:-1]] for chain in (mine, theirs)]
    return (len(mine) == len(theirs) and names[0] == names[1] and
            all(orv_compare.same_line(a, b) for (_, a), (_, b) in zip(mine, theirs)))


def check(name, program, before):
    chance = random.Random(16)
    functions = orv_compare.functions(before)
    addresses = [start + at for start, size, _ in functions for at in [0] + [chance.randrange(size) for _ in range(INSIDE)]]
    mine, same = orv_compare.ours(program, addresses), orv_compare.ours(before, addresses)
    unlike = [hex(at) for at, chain, other in zip(addresses, mine, same, strict=True) if chain != other]
    expect(f"{name}: chains that differ from those of before", unlike[:5], [])
    llvm = orv_compare.llvm_symbolizer(before, addresses)
    differing = [i for i, chain in enumerate(mine) if not is_same(chain, llvm[i])]
    for i in differing[:3]:
        print(f"  {name}: 0x{addresses[i]:x}: ours {mine[i]}, theirs {llvm[i]}")
    deep = sum(len(chain) > 1 for chain in llvm)
    print(f"{name}: {len(addresses)} addresses, {deep} of them in inlined code, {len(differing)} differ from llvm-symbolizer")
    if len(differing) * 1000 > len(addresses):
        failures.append(f"{name}: {len(differing)} of {len(addresses)} differ from llvm-symbolizer")
    expect(f"{name}: symbols", facts(program), facts(before))
    expect(f"{name}: units", units(program), units(before))
    expect(f"{name}: files", must(ORV, "files", program), must(ORV, "files", before))


def built(folder, compiler, flags):
    """Programs that share all but a line; before dwz has seen them they lie in "before"."""
    (folder / "before").mkdir()
    (folder / "shared.h").write_text(HEADER)
    for name, text in SOURCES.items():
        (folder / name).write_text(text)
    for number, name in enumerate(PROGRAMS):
        (folder / f"main-{name}.cpp").write_text(MAIN % ("\n" * number, number))
        must(compiler, *flags, "-o", folder / "before" / name, *(folder / source for source in SOURCES),
             folder / f"main-{name}.cpp", cwd=folder)
        shutil.copy(folder / "before" / name, folder / name)


def restore(folder):
    for program in PROGRAMS:
        shutil.copy(folder / "before" / program, folder / program)


def has_section(program, section):
    return section in must("readelf", "-SW", program)


def several(folder, name, options, section, link=None, checked=PROGRAMS[:1]):
    """dwz over all programs, of which some are checked; afterwards they are as they were."""
    must("dwz", "-m", "common.debug", *options, *PROGRAMS, cwd=folder)
    if link is not None:
        (folder / link).parent.mkdir(exist_ok=True)
        shutil.move(folder / "common.debug", folder / link)
    for program in checked:
        expect(f"{name}: {program} names a supplementary file", has_section(folder / program, section), True)
        check(f"{name}, {program}", folder / program, folder / "before" / program)
    restore(folder)


def check_missing(folder, name):
    """Without its file, and with one of another build: what does not need it answers."""
    must("dwz", "-m", "common.debug", *PROGRAMS, cwd=folder)
    addresses = [start for start, _, _ in orv_compare.functions(folder / "before" / "a")]

    def lines(program):  # the folder may be a text of the other file
        places = (chain[0][1] for chain in orv_compare.ours(program, addresses))
        return [(os.path.basename(file), line) for file, line in places]

    wanted = lines(folder / "before" / "a")
    good = (folder / "common.debug").read_bytes()
    note = good.index(b"GNU\0") + 4
    for what, bad in (("missing", None), ("of another build", good[:note] + b"?" + good[note + 1:])):
        (folder / "common.debug").unlink()
        if bad is not None:
            (folder / "common.debug").write_bytes(bad)
        expect(f"{name}, {what}: lines", lines(folder / "a"), wanted)
        unknown = [hex(at) for at, chain in zip(addresses, orv_compare.ours(folder / "a", addresses)) if chain[-1][0] == "??"]
        expect(f"{name}, {what}: functions without a name", unknown, [])
        (folder / "common.debug").write_bytes(good)
    restore(folder)


def check_stack(folder):
    """Names and types of variables that stand in the supplementary file."""
    for program in ("frames", "frames2"):
        must("gcc", "-gdwarf-3", "-gstrict-dwarf", "-O0", "-no-pie", "-o", folder / program, FRAMES, cwd=folder)
        shutil.copy(folder / program, folder / f"{program}-before")
    must("dwz", "-m", "frames.debug", "frames", "frames2", cwd=folder)
    expect("frames: names a supplementary file", has_section(folder / "frames", ".gnu_debugaltlink"), True)

    def variables(program):
        stack = [f"{0x7000 + at:x}" for at in range(0, 0x200, 3)]
        asked = [orv_tools.run(ORV, "stackvar", "--json", program, "--pc", f"{start + size // 2:x}", "--sp", "7000",
                               "--fp", "7100", *stack)
                 for start, size, _ in orv_compare.functions(folder / "frames-before")]
        return [json.loads(line) for answer in asked for line in answer.stdout.splitlines()]

    wanted = variables(folder / "frames-before")
    found = sum(answer["variable"] is not None for answer in wanted)
    expect(f"frames: {found} variables before dwz", found > 20, True)
    expect("frames: variables", variables(folder / "frames"), wanted)


def check_fortran(folder):
    """Sizes of arrays, whose lower bounds go by a language that partial units may not name."""
    for program in ("solver", "solver2"):
        must("gfortran", "-gdwarf-4", "-O0", "-o", folder / program, FORTRAN, cwd=folder)
        shutil.copy(folder / program, folder / f"{program}-before")
    must("dwz", "-m", "fortran.debug", "solver", "solver2", cwd=folder)
    expect("Fortran: symbols", facts(folder / "solver"), facts(folder / "solver-before"))


def main():
    os.environ["ORV_READING"] = "modern"
    orv_tools.need("dwz", "llvm-symbolizer", "g++")
    for compiler, version, level in (("g++", 5, "-O2"), ("g++", 4, "-O1"), ("g++", 5, "-O0"), ("clang++", 4, "-O2")):
        name = f"{compiler} {version} {level}"
        if not orv_tools.can(name, compiler):
            continue
        with tempfile.TemporaryDirectory() as scratch:
            folder = pathlib.Path(scratch)
            built(folder, compiler, [f"-gdwarf-{version}", level])
            several(folder, f"{name}, -m", [], ".gnu_debugaltlink", checked=PROGRAMS)
            if level == "-O2":
                several(folder, f"{name}, -r", ["-r"], ".gnu_debugaltlink")
                several(folder, f"{name}, -M", ["-M", "below/it.debug"], ".gnu_debugaltlink", "below/it.debug")
                several(folder, f"{name}, -5", ["-5"], ".debug_sup")
            must("dwz", "a", cwd=folder)
            expect(f"{name}, alone: partial units", "partial_unit" in must("readelf", "--debug-dump=info", folder / "a"), True)
            check(f"{name}, alone", folder / "a", folder / "before" / "a")
            shutil.copy(folder / "before" / "a", folder / "a")
            check_missing(folder, name)
    with tempfile.TemporaryDirectory() as scratch:
        if orv_tools.can("stack variables", "gcc"):
            check_stack(pathlib.Path(scratch))
        if orv_tools.can("Fortran", "gfortran"):
            check_fortran(pathlib.Path(scratch))
    orv_tools.finish()


if __name__ == "__main__":
    main()
