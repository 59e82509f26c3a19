# SPDX-License-Identifier: Apache-2.0
# SPDX-FileCopyrightText: The ORV authors
"""The command line client on programs built here: its answers, its manners, its exit statuses."""

import json
import pathlib
import re
import subprocess
import sys
import tempfile

sys.path[:0] = [str(pathlib.Path(__file__).resolve().parent.parent / "support")]
import orv_tools
from orv_tools import ORV, expect, must

CC = "gcc"
SOURCE = r"""
#include <stdio.h>
int counter = 7;
__attribute__((noinline)) static int helper(int x) { return x * 3 + counter; }
__attribute__((noinline)) int twice(int x) { return helper(x) + helper(x + 1); }
int main(int argc, char **argv) { (void)argv; printf("%d\n", twice(argc)); return 0; }
"""


def run(*arguments, text_in=None, cwd=None):
    return orv_tools.run(ORV, *arguments, input=text_in, cwd=cwd)


def records(command, *arguments, **more):
    return [json.loads(line) for line in run(command, "--json", *arguments, **more).stdout.splitlines()]


def make(folder, *command):
    must(*command, cwd=folder)


def nm(module):
    lines = must("nm", module).splitlines()
    return {line.split()[2]: int(line.split()[0], 16) for line in lines if len(line.split()) == 3}


def build(folder):
    """A program, plain and with debug information, of which the addresses are the same."""
    (folder / "p.c").write_text(SOURCE)
    make(folder, CC, "-O1", "-gdwarf-4", "-o", "d4", folder / "p.c")
    make(folder, "strip", "-g", "-o", "p", "d4")
    return nm(folder / "d4")


INLINE_SOURCE = """
static inline int scaled(int x) { volatile int y = x; return y * 3; }
static inline int shifted(int x)
{
    volatile int y = x;
    return scaled(y) + 1;
}
__attribute__((noinline)) int entry(int x)
{
    return shifted(x) * shifted(x + 1);
}
int main(int argc, char **argv) { (void)argv; return entry(argc); }
"""


def check_inlines(folder):
    """Chains for many addresses, the tree of a function, and the local variables of a frame."""
    source = folder / "i.c"
    source.write_text(INLINE_SOURCE)
    program = str(folder / "inlines")
    make(folder, CC, "-O2", "-gdwarf-3", "-gno-statement-frontiers", "-o", program, source)
    start = nm(program)["entry"]
    tree, = records("inlines", program, "entry")
    size = tree["size"]
    words = [f"{start + i:x}" for i in range(size)] + ["0"]
    # More than one thread's share, in batches of which the last is a small one; then more text than is held at a time:
    # each answer stands in its place.
    long_named = str(folder / "long_named")
    source.write_text(INLINE_SOURCE.replace("shifted", "s" * 20_000))
    make(folder, CC, "-O2", "-gdwarf-3", "-o", long_named, source)
    batch = 1 << 18
    for module, input_size in ((program, 2 * batch + 3000), (long_named, 10_000)):
        times = input_size // len("\n".join(words))
        (folder / "many").write_text("\n".join(words * times))
        for flags in (["-fi"], ["-i", "--json"]):
            with open(folder / "many") as many:
                answers = subprocess.run([ORV, "symbolize", *flags, "-e", module], stdin=many, capture_output=True, text=True)
            once = run("symbolize", *flags, "-e", module, text_in="\n".join(words)).stdout
            expect(f"many with {flags}", answers.stdout == once * times, True)
            expect(f"text of {module}", len(answers.stdout) > 9 << 20 or module == program, True)
    deepest = max(records("symbolize", "-i", "-e", program, *words[:-1]), key=lambda answer: len(answer["callers"]))
    expect("chain", [deepest["function"], *(caller["function"] for caller in deepest["callers"])],
           ["scaled", "shifted", "entry"])
    expect("calls", [caller["line"] for caller in deepest["callers"]][0], 6)
    expect("the innermost without -i", run("symbolize", "-fe", program, deepest["address"]).stdout.splitlines()[0], "scaled")
    expect("--no-inlines", run("symbolize", "-f", "--no-inlines", "-e", program, deepest["address"]).stdout.splitlines()[0],
           "entry")
    expect("--no-inlines -i", run("symbolize", "-fi", "--no-inlines", "-e", program, "0").returncode, 2)
    expect("tree", (tree["name"], {(inner["name"], inner["called_at"]) for inner in tree["inlines"]}),
           ("entry", {("shifted", f"{source}:10")}))
    expect("tree for people", run("inlines", program, hex(start)).stdout.splitlines()[0],
           f"entry  {start:#x}, {size} bytes")
    expect("inlines of nothing", run("inlines", program, "nobody").returncode, 1)
    expect("stackvar outside", run("stackvar", program, "--pc", "0", "--sp", "0", "--fp", "0", "0").returncode, 1)
    expect("stackvar without --pc", run("stackvar", program, "1000").returncode, 2)
    expect("stackvar of nothing", "??" in run("stackvar", program, "--pc", hex(start), "--sp", "0", "--fp", "0", "10").stdout,
           True)


OVERLAPPING_SOURCE = """
# 2 "{0}.h"
static inline int scaled{0}(int x) {{ volatile int y = x; return y * 3; }}
# 4 "{0}.c"
int entry{0}(int x) {{ return scaled{0}(x) * scaled{0}(x + 1) * scaled{0}(x + 2) {1}; }}
"""


def check_overlaps(folder):
    """Functions of two units at one address: a line does not depend on what else is asked for."""
    for name, more, *flags in (("a", ""), ("b", "* scaledb(x + 3)", "-ffunction-sections")):
        (folder / f"{name}.c").write_text(OVERLAPPING_SOURCE.format(name, more))
        make(folder, CC, "-O2", "-gdwarf-3", *flags, "-c", f"{name}.c")
    make(folder, "ld", "-r", "-o", "both.o", "a.o", "b.o")
    words = "\n".join(f"{i:x}" for i in range(0x28))
    module = str(folder / "both.o")
    answers = [records("symbolize", flag, "-e", module, text_in=words) for flag in ("--no-inlines", "-i")]
    places = [[(answer["file"], answer["line"]) for answer in several] for several in answers]
    expect("places with and without callers", places[0], places[1])
    expect("rows of another unit", any(file and file.endswith("a.h") for file, _ in places[0]), True)


def check_debug(folder, symbols):
    """What a program with debug information gives, and one whose debug information is refused."""
    source = str(folder / "p.c")
    program, refused = str(folder / "d4"), str(folder / "d5")
    make(folder, CC, "-O1", "-gdwarf-5", "-o", refused, source)
    low = hex(symbols["twice"])
    answer, = records("symbolize", "-e", program, low)
    expect("json with a line", (answer["file"], answer["line"]), (source, 5))
    unit, = records("units", program)
    expect("units", (unit["id"], unit["main_file"], unit["directory"], unit["language"]),
           ("0x0", source, str(folder), "C and others"))
    expect("units for people", run("units", program).stdout.splitlines()[0], f"0000000000000000  {source}")
    expect("files", records("files", program)[0]["path"], source)
    rows = records("lines", "--file", "p.c", program)
    expect("lines", all(row["file"] == source and row["unit"] == "0x0" for row in rows) and len(rows) > 5, True)
    few = records("lines", "--range", f"{low}:{symbols['twice'] + 1:x}", "--unit", "0", program)
    expect("lines of a range", {(row["start"], row["line"]) for row in few if row["start"] != row["end"]}, {(low, 5)})
    expect("lines of another file", run("lines", "--file", "q.c", program).stdout, "")
    for word in ("twice", low):
        shown, = records("function", program, word)
        expect(f"function {word}", (shown["name"], shown["declared"], shown["unit"], shown["ranges"][0]["start"],
                                    shown["lines"][0]["line"]), ("twice", f"{source}:5", "0x0", low, 5))
    missing = run("function", program, "nobody")
    expect("no function", (missing.returncode, missing.stderr.count("\n")), (1, 1))
    listed = {row["name"]: row for row in records("symbols", program)}
    expect("symbols with units", (listed["helper"]["unit"], listed["helper"]["declared"], listed["helper"]["visibility"]),
           ("0x0", f"{source}:4", "local"))
    expect("symbols without units", listed["_start"]["unit"], None)
    info, = records("info", program)
    expect("info", (info["producers"][0]["units"], info["symbol_file_format"]), (1, "DWARF"))

    for command in (["symbolize", "-f", "-e", refused, "main"], ["address", refused, f"{nm(refused)['main']:x}"],
                    ["symbols", refused], ["function", refused, "main"], ["info", refused]):
        answer = run(*command)
        expect(f"{command[0]} with DWARF 5", (answer.returncode, answer.stderr.count("\n"),
                                              "version above 4" in answer.stderr and "-gdwarf-4" in answer.stderr), (0, 1, True))
        expect(f"{command[0]} still answers", "main" in answer.stdout or command[0] == "info", True)
    for command in ("units", "files", "lines"):
        for module in (refused, str(folder / "p")):
            answer = run(command, module)
            expect(f"{command} {module}", (answer.returncode, answer.stderr.count("\n"), answer.stdout), (1, 1, ""))


def check_conversation(folder, symbols):
    """Each answer is there before the next question is asked."""
    with subprocess.Popen([ORV, "symbolize", "-f", "-e", folder / "p"], stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                          text=True) as partner:
        for name in ["main", "twice", "main"]:
            partner.stdin.write(f"{symbols[name]:x}\n")
            partner.stdin.flush()
            expect("conversation", (partner.stdout.readline(), partner.stdout.readline()), (name + "\n", "??:?\n"))
        partner.stdin.close()


def check_commands(folder, symbols):
    program = str(folder / "p")
    info, = records("info", program)
    expect("info", (info["format"], info["architecture"], info["file"], int(info["entry_point"], 16)),
           ("ELF", "x86-64", program, symbols["_start"]))
    listed = records("symbols", program)
    starts = [int(symbol["start"], 16) for symbol in listed]
    expect("symbols by address", starts, sorted(starts))
    by_name = {symbol["name"]: symbol for symbol in listed}
    expect("a function", (by_name["twice"]["kind"], by_name["twice"]["visibility"]), ("function", "global"))
    functions = run("symbols", "--kind", "function,other", program).stdout
    expect("kinds", ("twice" in functions, "counter" in functions), (True, False))
    address = symbols["twice"]
    ranged = records("symbols", "--kind", "function", "--range", f"{address:x}:{address + 1:x}", program)
    expect("range", [symbol["name"] for symbol in ranged], ["twice"])
    previous_end = 0
    for piece in records("symbols", "--disjoint", program):
        start = int(piece["start"], 16)
        expect(f"disjoint at {piece['start']}", start >= previous_end, True)
        previous_end = start + piece["size"]
    expect("sections", ".text" in [section["name"] for section in records("sections", program)], True)
    expect("segments", {segment["type"] for segment in records("segments", program)}, {"code", "data"})

    expect("without lines", records("symbolize", "-e", program, hex(address)), [{
        "address": hex(address), "function": "twice", "offset": "0x0", "file": None, "line": None, "column": None,
        "discriminator": None}])
    forms, = records("address", program, f"{address + 1:x}")
    expect("an address", (forms["symbol"], forms["section"]["name"]), ({"name": "twice", "offset": "0x1"}, ".text"))
    for option, key in [("--rva", "rva"), ("--file-offset", "file_offset")]:
        expect(option, records("address", option, program, forms[key])[0]["address"], forms["address"])
    outside = run("address", program, "fffffffffff0")
    expect("outside", (outside.stdout, outside.returncode), ("", 1))


COLD_SOURCE = """
#include <cstdio>
#include <string>
static inline int tripled(int x) { volatile int y = x; return y * 3; }
extern "C" __attribute__((noinline)) int divided(int n)
{
    if (n > 100) throw std::string("too many");
    return std::printf("%d", tripled(n)) / 2;
}
int main(int argc, char**) { return divided(argc); }
"""


def check_cold_parts(folder):
    """A function is entered where its symbol starts, not at its cold part, which lies in front."""
    (folder / "cold.cpp").write_text(COLD_SOURCE)
    program = str(folder / "cold")
    make(folder, "g++", "-O2", "-gdwarf-4", "-o", program, folder / "cold.cpp")
    symbols = nm(program)
    expect("the cold part lies in front", symbols["divided.cold"] < symbols["divided"], True)
    shown, = records("function", program, "divided")
    expect("entry", [int(part["start"], 16) for part in shown["ranges"] if part["entry"]], [symbols["divided"]])
    marked = [line for line in run("function", program, "divided").stdout.splitlines() if "entered here" in line]
    expect("entry for people", [f"{symbols['divided']:x}" in line for line in marked], [True])
    expect("inlines", run("inlines", program, "divided").stdout.split()[1], f"{symbols['divided']:#x},")
    rows, everything = records("lines", program), records("lines", "--all", program)
    expect("rows without size", (all(row["start"] != row["end"] for row in rows), len(rows) < len(everything)), (True, True))


def check_stripped(folder):
    """A stripped module says once what was sought for it; the module's layout needs none of that."""
    def said(*arguments):
        return run(*arguments).stderr

    program, bare, named = str(folder / "d4"), str(folder / "bare"), str(folder / "named")
    make(folder, "strip", "-o", bare, program)
    (folder / "debug").mkdir()
    (folder / "debug" / "named.debug").write_text("another build")
    make(folder, "objcopy", f"--add-gnu-debuglink={folder}/debug/named.debug", "p", named)
    build_id = re.search(r"Build ID: (\w+)", must("readelf", "-n", program))[1]
    expect("build id", records("info", program)[0]["build_id"], build_id)
    expect("no build id", records("info", str(folder / "both.o"))[0]["build_id"], None)
    for arguments in (["symbolize", "-fe", bare, "0", "1"], ["symbols", bare], ["info", bare], ["lines", bare], ["files", bare]):
        text = said(*arguments)
        expect(f"{arguments} says once", (text.count("\n"), build_id[2:] in text, "/usr/lib/debug" in text,
                                          f"'orv candidates {bare}'" in text), (1, True, True, True))
    text = said("symbolize", "-e", named, "0")
    expect("a debug link", (text.count("\n"), "named.debug" in text, "beside the module" in text), (1, True, True))
    (folder / "named.debug").write_text("a third build")
    expect("a wrong companion", "another CRC" in said("symbolize", "-e", named, "0"), True)
    for arguments in (["symbolize", "--quiet", "-e", bare, "0"], ["sections", bare], ["segments", bare], ["symbols", str(folder / "p")],
                      ["symbols", "--no-debug-info", bare], ["symbolize", "-e", program, "main"]):
        expect(f"{arguments} says nothing", said(*arguments), "")
    text = said("symbolize", "--debug-root", str(folder / "nowhere"), "-e", program, "main")
    expect("no such root", text, f"orv: --debug-root {folder}/nowhere: no such folder\n")


def check_paths(folder):
    """A module is the file that its name leads to, whatever stands in the name; it is shown as it was given."""
    (folder / "..data").mkdir()
    (folder / "far" / "there").mkdir(parents=True)
    for place, name in ((folder, "outer"), (folder / "..data", "inner"), (folder / "far", "beyond")):
        (place / "m.c").write_text(f"int {name}(void) {{ return 1; }} int main(void) {{ return {name}(); }}")
        make(place, CC, "-o", "m", "m.c")
    (folder / "link").symlink_to(folder / "far" / "there")
    for name, function in (("..data/m", "inner"), ("m", "outer"), ("link/../m", "beyond"), (f"{folder}/..data/m", "inner")):
        result = run("symbols", name, cwd=folder)
        expect(f"symbols of {name}", [word in result.stdout for word in ("inner", "outer", "beyond")],
               [word == function for word in ("inner", "outer", "beyond")])
        expect(f"name of {name}", records("info", name, cwd=folder)[0]["file"], name)


def check_manners(folder):
    program = str(folder / "p")
    (folder / "text").write_text("no module\n")
    for arguments, status, beginning in [
        (["info", str(folder / "missing")], 1, f"orv: {folder}/missing: cannot be opened"),
        (["info", str(folder)], 1, f"orv: {folder}: cannot be opened"),
        (["symbols", str(folder / "text")], 1, f"orv: {folder}/text: is not a module"),
        (["info"], 2, "orv: "),
        (["nothing"], 2, "orv: "),
        ([], 2, "orv: "),
        (["symbols", "--kind", "x", program], 2, "orv: --kind: x: the kinds are"),
        (["symbols", "--range", "1", program], 2, "orv: --range: 1: give two"),
        (["info", "--arch", "99", program], 2, "orv: --arch: 99: give one of arm,"),
        (["address", "--rva", "--file-offset", program, "1"], 2, "orv: "),
    ]:
        result = run(*arguments)
        expect(f"orv {arguments}", (result.returncode, result.stdout, result.stderr.count("\n")), (status, "", 1))
        expect(f"orv {arguments} says", result.stderr[:len(beginning)], beginning)
    for command in ([], ["symbolize"], ["symbols"], ["address"], ["info"], ["candidates"], ["sections"], ["segments"]):
        result = run(*command, "--help")
        usage = [line.split()[1] for line in result.stdout.splitlines() if line.startswith("Usage:")]
        expect(f"orv {command} --help", (result.returncode, usage), (0, ["orv"]))
        expect(f"example for {command}", command == [] or "Example:\n" in result.stdout, True)
    expect("version", run("--version").stdout.splitlines()[0], "orv 3.30")
    expect("quiet by default", run("info", program).stderr, "")
    expect("log on request", "ENTER: loadSymbolsFromModuleEx" in run("info", "--log-level", "trace", program).stderr, True)
    expect("common options ahead", json.loads(run("--json", "info", program).stdout)["format"], "ELF")
    with open("/dev/full", "w") as full:
        result = subprocess.run([ORV, "symbols", program], stdout=full, stderr=subprocess.PIPE, text=True)
    expect("nowhere to write", (result.returncode, result.stderr), (1, "orv: standard output cannot be written\n"))


with tempfile.TemporaryDirectory() as name:
    folder = pathlib.Path(name)
    symbols = build(folder)
    check_conversation(folder, symbols)
    check_debug(folder, symbols)
    check_inlines(folder)
    check_overlaps(folder)
    check_commands(folder, symbols)
    check_cold_parts(folder)
    check_stripped(folder)
    check_paths(folder)
    check_manners(folder)
orv_tools.finish()
