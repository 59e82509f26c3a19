# SPDX-License-Identifier: Apache-2.0
# SPDX-FileCopyrightText: The ORV authors
"""Modules as linkers compress them and distributions strip them: the answers are those of the module as it was built.
What this build can't read is said to be that, by name."""

import functools
import json
import os
import pathlib
import re
import struct
import sys
import tempfile

sys.path[:0] = [str(pathlib.Path(__file__).resolve().parent.parent / "support")]
import orv_tools
from orv_tools import ORV, can, expect, must

FIXTURES = pathlib.Path(__file__).resolve().parent.parent / "fixtures"  # also a folder without companions
CXX = os.environ.get("CXX", "g++")
SHF_COMPRESSED = 0x800
SOURCE = r"""
#include <algorithm>
#include <cstdio>
#include <map>
#include <string>
#include <vector>
namespace {
int hidden(std::vector<int> const& v) { int s = 0; for (int i : v) s += i % 7; return s; }
struct Less { bool operator()(std::string const& a, std::string const& b) const { return a.size() < b.size(); } };
}
extern "C" __attribute__((noinline)) int exported(int n) {
    std::map<std::string, int, Less> names;
    for (int i = 0; i < n; ++i) names[std::string(i % 9, 'x')] += i;
    std::vector<int> v;
    for (auto const& [name, count] : names) v.push_back(count);
    std::sort(v.begin(), v.end());
    return hidden(v);
}
int main(int argc, char**) { std::printf("%d\n", exported(argc)); }
"""


@functools.lru_cache
def takes_reading():
    return "--reading" in orv_tools.run(ORV, "symbolize", "--help").stdout


def run(*arguments, reading="modern"):
    """By a reading that the client is told where it can be, and the library where it can't."""
    flags = ["--reading", reading] if takes_reading() else []
    return orv_tools.run(ORV, arguments[0], *flags, *arguments[1:], env={**os.environ, "ORV_READING": reading})


def functions(module, kinds="tTwW"):
    lines = (line.split() for line in must("nm", module).splitlines())
    return {int(words[0], 16): words[2] for words in lines if len(words) == 3 and words[1] in kinds}


def chains(module, addresses, *flags, **reading):
    return run("symbolize", *flags, "-fi", "--debug-root", FIXTURES, "-e", module, *(f"{a:x}" for a in addresses), **reading)


def readable():
    """The compressions that this build reads."""
    version = orv_tools.run(ORV, "--version").stdout.splitlines()
    expect("the version", (len(version), version[0].split()[0]), (2, "orv"))
    return {word.strip(",") for word in version[1].split()[5:]}


def flagged(module):
    """Positions of the headers of compressed sections."""
    data = module.read_bytes()
    table, = struct.unpack_from("<Q", data, 40)
    count, = struct.unpack_from("<H", data, 60)
    headers = (struct.unpack_from("<IIQQQQ", data, table + 64 * i) for i in range(count))
    return [offset for _, _, flags, _, offset, _ in headers if flags & SHF_COMPRESSED]


def with_type(module, out, number):
    data = bytearray(module.read_bytes())
    for offset in flagged(module):
        struct.pack_into("<I", data, offset, number)
    out.write_bytes(data)
    return out


def check_sections(folder, readable):
    """Programs and objects, in DWARF 4 and 5, compressed by the linker and after it."""
    for version in (4, 5):
        plain = folder / f"plain{version}"
        object_file = folder / f"o{version}.o"
        must(CXX, "-O2", f"-gdwarf-{version}", "-o", object_file, "-c", folder / "p.cpp")
        must(CXX, "-o", plain, object_file)
        addresses = [start + more for start in functions(plain) for more in (0, 3)]
        whole = chains(plain, addresses).stdout
        expect(f"lines of version {version}", len(re.findall(r":[1-9]\d*$", whole, re.M)) > len(addresses) / 2, True)
        whole_object = chains(object_file, range(0, 64, 4)).stdout
        for method in ("zlib", "zlib-gnu", "zstd"):
            option = f"--compress-debug-sections={method}"
            probe = orv_tools.run("objcopy", option, object_file, folder / "probe.o")
            if probe.returncode != 0:
                print(f"SKIPPED {method}: objcopy does not know it here")
                continue
            linked, copied = folder / f"{method}-linked{version}", folder / f"{method}-copied{version}"
            must(CXX, "-o", linked, object_file, f"-Wl,{option}")
            must("objcopy", option, plain, copied)
            name = method.split("-")[0]
            shown = {line.get("compression") for line in map(json.loads, run("sections", "--json", copied).stdout.splitlines())}
            expect(f"{method} in sections", shown, {None, name})
            expect(f"{method} in sections, for people", f"({name}, " in run("sections", copied).stdout, True)
            for module in (linked, copied):
                result = chains(module, addresses)
                if name in readable:
                    expect(f"{module.name}", (result.stdout == whole, result.stderr), (True, ""))
                else:
                    check_refused(module, f"compressed by {name}, which this build of orv can't read", addresses)
            if name in readable:
                expect(f"an object by {method}", chains(folder / "probe.o", range(0, 64, 4)).stdout, whole_object)
    if "zstd" in readable:
        classic = chains(folder / "zstd-copied4", addresses[:1], reading="classic")
        expect("zstd by the classic reading", "zstd, which the classic reading leaves alone" in classic.stderr, True)
    unknown = with_type(folder / "zlib-copied4", folder / "unknown", 9)
    check_refused(unknown, "compressed by method 9, which orv does not know", addresses)


def check_refused(module, words, addresses):
    """By name, once, and in the log; symbols answer."""
    result = run("symbolize", "--debug-root", FIXTURES, "-fe", module, hex(addresses[0]))
    expect(f"{module.name}: what is said", (result.stderr.count(words), result.stderr.count("\n")), (1, 1))
    expect(f"{module.name}: symbols", result.stdout, f"{functions(module)[addresses[0]]}\n??:?\n")
    log = run("symbolize", "--quiet", "--log-level", "error", "--debug-root", FIXTURES, "-fe", module, hex(addresses[0])).stderr
    expect(f"{module.name}: the log", ("Section .debug_info in file" in log, "can't" in log), (True, True))
    for command in ("units", "files", "lines"):
        result = run(command, module)
        expect(f"{command} of {module.name}", (result.returncode, words in result.stderr, "damaged" in result.stderr),
               (1, True, False))


def strip_as_distributions_do(program, out, kinds, *xz):
    """Leaves the symbols that .dynsym lacks in .gnu_debugdata."""
    folder = out.parent
    dynamic = {line.split()[0] for line in must("nm", "-D", "--format=posix", "--defined-only", program).splitlines()}
    lines = (line.split() for line in must("nm", "--format=posix", "--defined-only", program).splitlines())
    keep = {words[0] for words in lines if words[1] in kinds} - dynamic
    (folder / "keep").write_text("".join(f"{name}\n" for name in sorted(keep)))
    mini, packed = folder / f"{out.name}.mini", folder / f"{out.name}.mini.xz"
    must("objcopy", "--only-keep-debug", program, folder / "debug")
    must("objcopy", "-S", "--remove-section", ".comment", f"--keep-symbols={folder / 'keep'}", folder / "debug", mini)
    packed.unlink(missing_ok=True)
    must("xz", *xz, mini)
    must("strip", "--strip-all", "-o", folder / "bare", program)
    must("objcopy", "--add-section", f".gnu_debugdata={packed}", folder / "bare", out)
    return out


def check_packed(folder, readable):
    if not can("symbols packed in .gnu_debugdata", "xz"):
        return
    builds = [("c", "tTD", [], "gcc", "-O1", f"-I{FIXTURES}", FIXTURES / "shapes.c", FIXTURES / "shapes_main.c"),
              ("library", "tTD", ["-9"], "gcc", "-O2", "-shared", "-fPIC", f"-I{FIXTURES}", FIXTURES / "shapes.c"),
              ("fixed", "tTD", ["-0"], "gcc", "-no-pie", f"-I{FIXTURES}", FIXTURES / "shapes.c", FIXTURES / "shapes_main.c"),
              ("c++", "tTwWD", ["-e"], CXX, "-O1", "-g", folder / "p.cpp"),
              ("narrow", "tTD", [], "gcc", "-m32", f"-I{FIXTURES}", FIXTURES / "shapes.c", FIXTURES / "shapes_main.c")]
    for name, kinds, xz, *command in builds:
        if not can(name, *command):
            continue
        built, unstripped = folder / f"{name}-built", folder / f"{name}-unstripped"
        must(*command, "-o", built)
        must("strip", "-g", "-o", unstripped, built)
        packed = strip_as_distributions_do(built, folder / f"{name}-packed", kinds, *xz)
        wanted = functions(unstripped, kinds.replace("D", ""))
        expect(f"{name}: functions", len(wanted) > 8 or name == "library", True)
        expect(f"{name}: stripped", must("readelf", "-SW", packed).count(".symtab"), 0)
        addresses = [start + more for start in sorted(wanted) for more in (0, 1)]
        result = chains(packed, addresses, "--quiet")
        whole = chains(unstripped, addresses, "--quiet")
        if "xz" not in readable:
            said = chains(packed, addresses[:1]).stderr
            expect(f"{name}: without liblzma", ".gnu_debugdata are compressed by xz, which this build of orv can't read" in said,
                   True)
            continue
        expect(f"{name}: names", result.stdout.splitlines(), whole.stdout.splitlines())
        if name != "library":
            expect(f"{name}: without them", "??" in chains(packed, addresses, "--quiet", reading="classic").stdout, True)
        check_symbols(name, packed, unstripped, kinds)
        whole_data = packed.read_bytes()
        at = whole_data.index(b"\xfd7zXZ")
        packed.write_bytes(whole_data[:at + 40] + bytes([whole_data[at + 40] ^ 0xFF]) + whole_data[at + 41:])
        log = run("symbols", "--quiet", "--log-level", "error", packed)
        dynamic = len(must("nm", "-D", "--defined-only", packed).splitlines())
        expect(f"{name}: damaged", ("Section .gnu_debugdata in file" in log.stderr, log.returncode, dynamic == 0 or log.stdout != ""),
               (True, 0, True))


def check_symbols(name, packed, unstripped, kinds):
    """The functions are those of the unstripped program, each once."""
    def listed(module):
        rows = map(json.loads, run("symbols", "--json", "--quiet", "--kind", "function", module).stdout.splitlines())
        return [(row["start"], row["size"], row["name"]) for row in rows]

    after, before = listed(packed), listed(unstripped)
    expect(f"{name}: duplicates", len(after), len(set(after)))
    known = {names for names in functions(unstripped, kinds).values()}
    expect(f"{name}: symbols", [row for row in after if row[2] in known], [row for row in before if row[2] in known])


with tempfile.TemporaryDirectory() as name:
    folder = pathlib.Path(name)
    (folder / "p.cpp").write_text(SOURCE)
    known = readable()
    check_sections(folder, known)
    check_packed(folder, known)
orv_tools.finish()
