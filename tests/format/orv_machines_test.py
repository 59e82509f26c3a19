# SPDX-License-Identifier: Apache-2.0
# SPDX-FileCopyrightText: The ORV authors
"""Programs, libraries and relocatable files for the processors that are read, by the compilers that are here, in DWARF 4
and 5: whole chains over every function beside llvm-symbolizer's. It does not tell the sections of a relocatable file
apart, so what it says of the program that is linked from one counts for that too; addr2line -j has a second say."""

import itertools
import json
import os
import pathlib
import re
import sys
import tempfile

sys.path[:0] = [str(pathlib.Path(__file__).resolve().parent.parent / "support")]
import orv_tools
from orv_tools import ORV, expect, failures, must

C_SOURCE = """
int table[8] = {1, 2, 3, 4, 5, 6, 7, 8};
int zeroes[100];
static inline __attribute__((always_inline)) int squared(int x) { volatile int y = x; return y * y; }
static inline __attribute__((always_inline)) int twice(int x) { return squared(x) + squared(x + 1); }
static __attribute__((noinline)) int hidden(int x) { return twice(x) + table[x & 7]; }
__attribute__((noinline)) int looped(int n) {
    int sum = 0;
    for (int i = 0; i < n; ++i) {
        sum += i & 1 ? hidden(i) : twice(sum);
        if (sum > 1000)
            sum -= zeroes[i & 31];
    }
    return sum;
}
__attribute__((noinline)) int chosen(int x) {
    switch (x) {
    case 0: return looped(1);
    case 1: return hidden(2) + 3;
    case 2: return twice(x);
    case 3: return x - table[1];
    default: return squared(x);
    }
}
__attribute__((section(".init.text"), noinline)) int begin(int x) { return chosen(x) + squared(x); }
__attribute__((section(".exit.text"), noinline)) int end(int x) { return looped(x) - twice(x); }
int _start(void) { return begin(3) + end(4); }
"""
CXX_SOURCE = """
template <typename T> struct Box {
    T value;
    __attribute__((noinline)) T grown(T by) { volatile T copy = value; return copy + by; }
};
template <typename T> __attribute__((noinline)) T summed(Box<T>* boxes, int count) {
    T sum = 0;
    for (int i = 0; i < count; ++i) sum += boxes[i].grown(static_cast<T>(i));
    return sum;
}
extern "C" int _start(int count) {
    Box<int> ints[2] = {{count}, {2}};
    Box<long> longs[2] = {{count}, {4}};
    return summed(ints, 2) + static_cast<int>(summed(longs, 2));
}
"""
# Compiler, linker, addr2line that takes -j; what has no linker of its own is linked by a peer that has all targets.
GNU = "{0}-linux-gnu-gcc", "{0}-linux-gnu-ld", "{0}-linux-gnu-addr2line"
MACHINES = {
    "x86-64": ("gcc", "ld", "addr2line"),
    "x86": ("gcc -m32", "ld -m elf_i386", "addr2line"),
    "aarch64": [part.format("aarch64") for part in GNU],
    "riscv64": [part.format("riscv64") for part in GNU],
    "x86-64 by clang": ("clang", "ld", None),
    "arm by clang": ("clang --target=arm-linux-gnueabi", "arm-linux-gnueabi-ld", None),
    "aarch64 by clang": ("clang --target=aarch64-linux-gnu", "aarch64-linux-gnu-ld", None),
    "riscv64 by clang": ("clang --target=riscv64-linux-gnu", "riscv64-linux-gnu-ld", None),
    "ppc64le by clang": ("clang --target=powerpc64le-linux-gnu", "powerpc64le-linux-gnu-ld", None),
}
ARCHITECTURES = {"arm": "arm", "aarch64": "arm64", "riscv64": "riscv64", "ppc64le": "ppc64le", "x86": "x86"}
SAMPLES = 12
LEAST_FUNCTIONS = 5


def functions(module):
    """(name, section, value, size) of each function."""
    found = []
    for line in must("readelf", "-sW", module).splitlines():
        words = re.sub(r"\[.*?\]", "", line).split()  # what PowerPC says of a symbol's second entry
        if len(words) == 8 and words[3] == "FUNC" and words[6].isdigit() and int(words[2]) > 0:
            found.append((words[7], int(words[6]), int(words[1], 16) & ~(ARM_MODE if is_arm(module) else 0), int(words[2])))
    return sorted(set(found))


ARM_MODE = 1  # the lowest bit of a function's value says which set of instructions it is of


def is_arm(module):
    return "arm" in pathlib.Path(module).name


def chains(text):
    """Of each address the functions and lines, innermost first, without discriminators and marks of clones."""
    found = []
    for line in text.splitlines():
        if re.fullmatch("0x[0-9a-f]+", line):
            found.append([])
        else:
            line = re.sub(r":\?$", ":0", line)  # a place that is on no line
            found[-1].append(re.sub(r" \(discriminator \d+\)$|\.(isra|constprop|part|cold)[.\d]*$", "", line))
    return found


def ours(module, addresses, *options):
    words = [f"{address:x}" for address in addresses]
    return chains(must(ORV, "symbolize", "-fia", *options, "-e", module, input="\n".join(words) + "\n", env=MODERN))


def theirs(module, addresses):
    words = "\n".join(f"0x{address:x}" for address in addresses) + "\n"
    return chains(must("llvm-symbolizer", "--output-style=GNU", "--no-demangle", "-f", "-i", "-a", "-e", module, input=words))


MODERN = {**os.environ, "ORV_READING": "modern"}


def compare(what, places, got, wanted):
    for place, mine, other in itertools.zip_longest(places, got, wanted):
        if mine != other:
            failures.append(f"{what}: {place[0]}+0x{place[1]:x}: got {mine}, wanted {other}")


def places_of(found, step):
    """(name, offset) of each function's start and of places in it."""
    for name, _, _, size in found:
        yield name, 0
        inside = range(step, size, step)
        for offset in inside[:: max(1, len(inside) // SAMPLES)]:
            yield name, offset


def check(machine, what, objects, linked):
    """A linked program and what it was linked from."""
    known = {name: value for name, _, value, _ in functions(linked)}
    for module in objects:
        found = functions(module)
        if len(found) < LEAST_FUNCTIONS:
            failures.append(f"{what}: only {len(found)} functions")
        places = list(places_of(found, 4))
        wanted = theirs(linked, [known[name] + offset for name, offset in places])
        compare(f"{what}, linked", places, ours(linked, [known[name] + offset for name, offset in places]), wanted)
        sections = [json.loads(line) for line in must(ORV, "sections", "--json", module, env=MODERN).splitlines()]
        starts = {name: (int(sections[index]["address"], 16), sections[index]["name"], value) for name, index, value, _ in found}
        compare(f"{what}, laid out", places, ours(module, [starts[name][0] + starts[name][2] + at for name, at in places]), wanted)
        for section in sorted({start[1] for start in starts.values()})[:3]:
            inside = [(place, chain) for place, chain in zip(places, wanted) if starts[place[0]][1] == section]
            offsets = [starts[name][2] + at for (name, at), _ in inside]
            compare(f"{what}, {section}", [place for place, _ in inside], ours(module, offsets, "-j", section),
                    [chain for _, chain in inside])
            check_addr2line(machine, what, module, section, offsets)


def check_addr2line(machine, what, module, section, offsets):
    """Lines alone: of two inlined bodies at one place it may name the outer one."""
    addr2line = MACHINES[machine][2]
    if addr2line is None or orv_tools.lacking([addr2line]):
        return
    text = must(addr2line, "-fa", "-j", section, "-e", module, *(f"{offset:x}" for offset in offsets))
    got = [chain[1] for chain in ours(module, offsets, "-j", section)]
    expect(f"{what}, {section} beside addr2line", got, [chain[1] for chain in chains(text)])


# What is compiled how: by one section a function, in groups of the linker's too, and into one section.
VARIANTS = (("c", "-O0", "-fno-function-sections"), ("c", "-O2", "-ffunction-sections"), ("cpp", "-O2", "-ffunction-sections"))


def build(folder, machine, version):
    """(what, relocatable files, the program) of each variant."""
    compiler, linker, _ = MACHINES[machine]
    for kind, level, layout in VARIANTS:
        words = compiler.replace("gcc", "g++").split() if kind == "cpp" else compiler.split()
        what = f"{machine} {level} {version} {kind}".replace(" ", "-").replace("--", "-")
        if kind == "cpp" and orv_tools.lacking(words):
            continue  # cross compilers of C++ are packages of their own
        (folder / f"s.{kind}").write_text(C_SOURCE if kind == "c" else CXX_SOURCE)
        object_file, linked, module = (folder / f"{what}{suffix}" for suffix in (".o", "", ".ko"))
        must(*words, level, version, layout, "-fno-pic", "-fno-stack-protector", "-fno-exceptions", "-ffreestanding", "-c",
             "-o", object_file, folder / f"s.{kind}")
        must(*linker.split(), "-static", *(["--no-relax"] if "riscv" in machine else []), "-o", linked, object_file)
        must(*linker.split(), "-r", "-o", module, object_file)
        yield what, [object_file, module], linked


def main():
    orv_tools.need("llvm-symbolizer", "readelf")
    with tempfile.TemporaryDirectory() as path:
        folder = pathlib.Path(path)
        for machine, (compiler, linker, _) in MACHINES.items():
            if not (orv_tools.can(machine, *compiler.split(), "-c") and orv_tools.can(machine, *linker.split())):
                continue
            for version in ("-gdwarf-4", "-gdwarf-5"):
                for what, objects, linked in build(folder, machine, version):
                    check(machine, what, objects, linked)
            wanted = ARCHITECTURES.get(machine.split()[0], "x86-64")
            expect(f"{machine}: architecture", json.loads(must(ORV, "info", "--json", linked, env=MODERN))["architecture"], wanted)
    orv_tools.finish()


if __name__ == "__main__":
    main()
