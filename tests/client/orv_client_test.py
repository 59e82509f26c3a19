# SPDX-License-Identifier: Apache-2.0
# SPDX-FileCopyrightText: The ORV authors
"""The command line client on programs built here: its answers, its manners, its exit statuses."""

import json
import os
import pathlib
import re
import subprocess
import sys
import tempfile

ORV = os.environ["ORV"]
CC = "gcc"
SOURCE = r"""
#include <stdio.h>
int counter = 7;
__attribute__((noinline)) static int helper(int x) { return x * 3 + counter; }
__attribute__((noinline)) int twice(int x) { return helper(x) + helper(x + 1); }
int main(int argc, char **argv) { (void)argv; printf("%d\n", twice(argc)); return 0; }
"""
CXX_SOURCE = """
namespace ns { template <typename T> T add(T a, T b) { return a + b; } template int add<int>(int, int); }
"""
failures = []


def run(*arguments, text_in=None, cwd=None):
    result = subprocess.run([ORV, *arguments], input=text_in, capture_output=True, text=True, cwd=cwd)
    if result.returncode < 0:
        failures.append(f"orv {' '.join(arguments)}: ended by signal {-result.returncode}")
    return result


def expect(what, got, wanted):
    if got != wanted:
        failures.append(f"{what}: got {got!r}, wanted {wanted!r}")


def build(folder):
    (folder / "p.c").write_text(SOURCE)
    (folder / "t.cpp").write_text(CXX_SOURCE)
    subprocess.run([CC, "-O1", "-o", folder / "p", folder / "p.c"], check=True)
    subprocess.run(["g++", "-O1", "-shared", "-fPIC", "-o", folder / "t.so", folder / "t.cpp"], check=True)
    subprocess.run([CC, "-m32", "-ffreestanding", "-c", "-o", folder / "p32.o", folder / "p.c"],
                   check=False, stderr=subprocess.DEVNULL)
    return {line.split()[2]: line.split()[0]
            for line in subprocess.run(["nm", folder / "p"], check=True, capture_output=True,
                                       text=True).stdout.splitlines() if len(line.split()) == 3}


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
    subprocess.run([CC, "-O2", "-gdwarf-3", "-gno-statement-frontiers", "-o", program, source], check=True, cwd=folder)
    found = [line.split() for line in subprocess.run(["nm", "-S", program], capture_output=True, text=True).stdout.splitlines()]
    start, size = next((int(words[0], 16), int(words[1], 16)) for words in found if words[-1] == "entry")
    words = [f"{start + i:x}" for i in range(size)] + ["0"]
    # More than one thread's share, in batches of which the last is a small one; then more text than is held at a time:
    # each answer stands in its place.
    long_named = str(folder / "long_named")
    source.write_text(INLINE_SOURCE.replace("shifted", "s" * 20_000))
    subprocess.run([CC, "-O2", "-gdwarf-3", "-o", long_named, source], check=True, cwd=folder)
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
    deepest = max((json.loads(line) for line in run("symbolize", "--json", "-i", "-e", program, *words[:-1]).stdout.splitlines()),
                  key=lambda answer: len(answer["callers"]))
    expect("chain", [deepest["function"], *(caller["function"] for caller in deepest["callers"])],
           ["scaled", "shifted", "entry"])
    expect("calls", [caller["line"] for caller in deepest["callers"]][0], 6)
    expect("the innermost without -i", run("symbolize", "-fe", program, deepest["address"]).stdout.splitlines()[0], "scaled")
    expect("--no-inlines", run("symbolize", "-f", "--no-inlines", "-e", program, deepest["address"]).stdout.splitlines()[0],
           "entry")
    expect("--no-inlines -i", run("symbolize", "-fi", "--no-inlines", "-e", program, "0").returncode, 2)
    tree = json.loads(run("inlines", "--json", program, "entry").stdout)
    expect("tree", (tree["name"], tree["size"], {inner["name"] for inner in tree["inlines"]},
                    {inner["called_at"] for inner in tree["inlines"]}), ("entry", size, {"shifted"}, {f"{source}:10"}))
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
        subprocess.run([CC, "-O2", "-gdwarf-3", *flags, "-c", f"{name}.c"], check=True, cwd=folder)
    subprocess.run(["ld", "-r", "-o", "both.o", "a.o", "b.o"], check=True, cwd=folder)
    words = [f"{i:x}" for i in range(0x28)]
    places = [[(json.loads(line)["file"], json.loads(line)["line"]) for line in
               run("symbolize", "--json", *flags, "-e", str(folder / "both.o"), text_in="\n".join(words)).stdout.splitlines()]
              for flags in (["--no-inlines"], ["-i"])]
    expect("places with and without callers", places[0], places[1])
    expect("rows of another unit", any(file and file.endswith("a.h") for file, _ in places[0]), True)


def check_debug(folder):
    """What a program with debug information gives: addr2line's words, units, files, lines, functions."""
    source = str(folder / "p.c")
    program, refused, compressed = str(folder / "d4"), str(folder / "d5"), str(folder / "d4z")
    subprocess.run([CC, "-O1", "-gdwarf-4", "-o", program, source], check=True, cwd=folder)
    subprocess.run([CC, "-O1", "-gdwarf-5", "-o", refused, source], check=True, cwd=folder)
    subprocess.run(["objcopy", "--compress-debug-sections=zlib-gabi", program, compressed], check=True)
    symbols = {line.split()[2]: line.split()[0] for line in
               subprocess.run(["nm", program], capture_output=True, text=True).stdout.splitlines() if len(line.split()) == 3}
    words = [symbols["main"], symbols["twice"], symbols["helper"], symbols["_start"], "0", "zz9"]
    for flags in ["-f", "-s", "-fa", "-fp", "-faps"]:
        theirs = subprocess.run(["addr2line", flags, "-e", program, *words[:-1]], capture_output=True, text=True).stdout
        for module in (program, compressed):
            by_arguments = run("symbolize", flags, "-e", module, *words[:-1]).stdout
            expect(f"symbolize {flags} with lines", by_arguments, theirs)
            expect(f"symbolize {flags} with lines by input",
                   run("symbolize", flags, "-e", module, text_in="\n".join(words[:-1])).stdout, theirs)
    answer = json.loads(run("symbolize", "--json", "-e", program, symbols["twice"]).stdout)
    expect("json with a line", (answer["file"], answer["line"]), (source, 5))

    unit = json.loads(run("units", "--json", program).stdout)
    expect("units", (unit["id"], unit["main_file"], unit["directory"], unit["language"]),
           ("0x0", source, str(folder), "C and others"))
    expect("units for people", run("units", program).stdout.splitlines()[0], f"0000000000000000  {source}")
    expect("files", [json.loads(line)["path"] for line in run("files", "--json", program).stdout.splitlines()][0], source)
    rows = [json.loads(line) for line in run("lines", "--json", "--file", "p.c", program).stdout.splitlines()]
    expect("lines", all(row["file"] == source and row["unit"] == "0x0" for row in rows) and len(rows) > 5, True)
    low = hex(int(symbols["twice"], 16))
    few = [json.loads(line) for line in
           run("lines", "--json", "--range", f"{low}:{int(low, 16) + 1:x}", "--unit", "0", program).stdout.splitlines()]
    expect("lines of a range", {(row["start"], row["line"]) for row in few if row["start"] != row["end"]}, {(low, 5)})
    expect("lines of another file", run("lines", "--file", "q.c", program).stdout, "")

    shown = json.loads(run("function", "--json", program, "twice").stdout)
    expect("function", (shown["declared"], shown["unit"], shown["ranges"][0]["start"], shown["lines"][0]["line"]),
           (f"{source}:5", "0x0", low, 5))
    expect("function by address", json.loads(run("function", "--json", program, low).stdout)["name"], "twice")
    expect("function for people", run("function", program, "main").stdout.splitlines()[0], "main")
    missing = run("function", program, "nobody")
    expect("no function", (missing.returncode, missing.stderr.count("\n")), (1, 1))
    listed = {row["name"]: row for row in map(json.loads, run("symbols", "--json", program).stdout.splitlines())}
    expect("symbols with units", (listed["helper"]["unit"], listed["helper"]["declared"], listed["helper"]["visibility"]),
           ("0x0", f"{source}:4", "local"))
    expect("symbols without units", listed["_start"]["unit"], None)
    info = json.loads(run("info", "--json", program).stdout)
    expect("info", (info["producers"][0]["units"], info["symbol_file_format"]), (1, "DWARF"))

    for command in (["symbolize", "-f", "-e", refused, symbols["main"]], ["address", refused, symbols["main"]],
                    ["symbols", refused], ["function", refused, "main"], ["info", refused]):
        answer = run(*command)
        expect(f"{command[0]} with DWARF 5", (answer.returncode, answer.stderr.count("\n"),
                                              "version above 4" in answer.stderr and "-gdwarf-4" in answer.stderr), (0, 1, True))
        expect(f"{command[0]} still answers", "main" in answer.stdout or command[0] == "info", True)
    for command in ("units", "files", "lines"):
        answer = run(command, refused)
        expect(f"{command} with DWARF 5", (answer.returncode, answer.stderr.count("\n"), answer.stdout), (1, 1, ""))
        answer = run(command, str(folder / "p"))
        expect(f"{command} without debug information", (answer.returncode, answer.stderr.count("\n")), (1, 1))


def check_symbolize(folder, symbols):
    """What symbolize is beside addr2line: its failures, JSON, a conversation."""
    program = str(folder / "p")
    library = subprocess.run(["nm", "-D", "--defined-only", folder / "t.so"], capture_output=True, text=True).stdout
    address = next(line.split()[0] for line in library.splitlines() if "add" in line)
    expect("demangled", run("symbolize", "-fCe", str(folder / "t.so"), address).stdout,
           "int ns::add<int>(int, int)\n??:?\n")
    expect("a.out by default", run("symbolize", "-f", "0", cwd=folder).stderr[:12], "orv: a.out: ")
    os.link(program, folder / "a.out")
    expect("a.out", run("symbolize", "-f", symbols["main"], cwd=folder).stdout, "main\n??:?\n")

    odd = run("symbolize", "-f", "-e", program, "xyz", symbols["main"])
    expect("no address", (odd.stdout, odd.returncode), ("??\n??:0\nmain\n??:?\n", 1))
    expect("no address, said once", odd.stderr.count("\n"), 1)
    answers = run("symbolize", "--json", "-e", program, symbols["twice"], "zz").stdout.splitlines()
    expect("json", json.loads(answers[0]), {"address": "0x" + symbols["twice"].lstrip("0"), "function": "twice",
                                            "offset": "0x0", "file": None, "line": None, "column": None,
                                            "discriminator": None})
    expect("json of no address", json.loads(answers[1])["address"], "zz")

    # A conversation: each answer is there before the next question is asked.
    with subprocess.Popen([ORV, "symbolize", "-f", "-e", program], stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                          text=True) as partner:
        for name in ["main", "twice", "main"]:
            partner.stdin.write(symbols[name] + "\n")
            partner.stdin.flush()
            expect("conversation", (partner.stdout.readline(), partner.stdout.readline()), (name + "\n", "??:?\n"))
        partner.stdin.close()


def check_commands(folder, symbols):
    program = str(folder / "p")
    info = json.loads(run("info", "--json", program).stdout)
    expect("info", (info["format"], info["architecture"], info["file"]), ("ELF", "x86-64", program))
    expect("entry point", int(info["entry_point"], 16), int(symbols["_start"], 16))
    expect("info for people", run("info", program).stdout.splitlines()[1].split(), ["format", "ELF"])
    expect("candidates", (run("candidates", program).returncode), 0)

    listed = [json.loads(line) for line in run("symbols", "--json", program).stdout.splitlines()]
    starts = [int(symbol["start"], 16) for symbol in listed]
    expect("symbols by address", starts, sorted(starts))
    by_name = {symbol["name"]: symbol for symbol in listed}
    expect("a function", (by_name["twice"]["kind"], by_name["twice"]["visibility"]), ("function", "global"))
    expect("a local", by_name["helper"]["visibility"], "local")
    functions = run("symbols", "--kind", "function", program).stdout
    expect("kinds", ("twice" in functions, "__data_start" in functions), (True, False))
    expect("kinds twice", run("symbols", "--kind", "function,other", program).returncode, 0)
    address = int(symbols["twice"], 16)
    ranged = run("symbols", "--json", "--kind", "function", "--range", f"{address:x}:{address + 1:x}", program).stdout
    expect("range", [json.loads(line)["name"] for line in ranged.splitlines()], ["twice"])
    previous_end = 0
    for line in run("symbols", "--disjoint", "--json", program).stdout.splitlines():
        piece = json.loads(line)
        start = int(piece["start"], 16)
        expect(f"disjoint at {piece['start']}", start >= previous_end, True)
        previous_end = start + piece["size"]

    sections = [json.loads(line) for line in run("sections", "--json", program).stdout.splitlines()]
    expect("sections", [s["name"] for s in sections if s["name"] == ".text"], [".text"])
    segments = [json.loads(line) for line in run("segments", "--json", program).stdout.splitlines()]
    expect("segments", {s["type"] for s in segments}, {"code", "data"})

    forms = json.loads(run("address", "--json", program, f"{address + 1:x}").stdout)
    expect("symbol of an address", forms["symbol"], {"name": "twice", "offset": "0x1"})
    expect("section of an address", forms["section"]["name"], ".text")
    for option, key in [("--rva", "rva"), ("--file-offset", "file_offset")]:
        again = json.loads(run("address", "--json", option, program, forms[key]).stdout)
        expect(option, again["address"], forms["address"])
    outside = run("address", program, "fffffffffff0")
    expect("outside", (outside.stdout, outside.returncode), ("", 1))
    if (folder / "p32.o").exists():
        expect("32 bits", run("symbolize", "-a", "-e", str(folder / "p32.o"), "10").stdout, "0x00000010\n??:?\n")


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
    subprocess.run(["g++", "-O2", "-gdwarf-4", "-o", program, folder / "cold.cpp"], check=True)
    symbols = {line.split()[2]: int(line.split()[0], 16) for line in
               subprocess.run(["nm", program], capture_output=True, text=True).stdout.splitlines() if len(line.split()) == 3}
    expect("the cold part lies in front", symbols["divided.cold"] < symbols["divided"], True)
    shown = json.loads(run("function", "--json", program, "divided").stdout)
    expect("entry", [int(part["start"], 16) for part in shown["ranges"] if part["entry"]], [symbols["divided"]])
    marked = [line for line in run("function", program, "divided").stdout.splitlines() if "entered here" in line]
    expect("entry for people", [f"{symbols['divided']:x}" in line for line in marked], [True])
    expect("inlines", run("inlines", program, "divided").stdout.split()[1], f"{symbols['divided']:#x},")
    rows = [json.loads(line) for line in run("lines", "--json", program).stdout.splitlines()]
    everything = run("lines", "--json", "--all", program).stdout.splitlines()
    expect("rows without size", (all(row["start"] != row["end"] for row in rows), len(rows) < len(everything)), (True, True))


def check_stripped(folder):
    """A stripped module says once what was sought for it; the module's layout needs none of that."""
    def said(*arguments):
        return run(*arguments).stderr

    program, bare, named = str(folder / "d4"), str(folder / "bare"), str(folder / "named")
    subprocess.run(["strip", "-o", bare, program], check=True)
    subprocess.run(["strip", "-g", "-o", named, program], check=True)
    (folder / "debug").mkdir()
    (folder / "debug" / "named.debug").write_text("another build")
    subprocess.run(["objcopy", f"--add-gnu-debuglink={folder}/debug/named.debug", named], check=True)
    notes = subprocess.run(["readelf", "-n", program], capture_output=True, text=True).stdout
    build_id = re.search(r"Build ID: (\w+)", notes)[1]
    expect("build id", json.loads(run("info", "--json", program).stdout)["build_id"], build_id)
    expect("no build id", json.loads(run("info", "--json", str(folder / "both.o")).stdout)["build_id"], None)
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
    inside = folder / "..data"
    inside.mkdir()
    (folder / "far").mkdir()
    (folder / "far" / "there").mkdir()
    for place, name in ((folder, "outer"), (inside, "inner"), (folder / "far", "beyond")):
        (place / "m.c").write_text(f"int {name}(void) {{ return 1; }} int main(void) {{ return {name}(); }}")
        subprocess.run([CC, "-o", place / "m", place / "m.c"], check=True)
    (folder / "link").symlink_to(folder / "far" / "there")
    for name, function in (("..data/m", "inner"), ("m", "outer"), ("link/../m", "beyond"), (f"{folder}/..data/m", "inner")):
        result = run("symbols", name, cwd=folder)
        expect(f"symbols of {name}", [word in result.stdout for word in ("inner", "outer", "beyond")],
               [word == function for word in ("inner", "outer", "beyond")])
        expect(f"name of {name}", json.loads(run("info", "--json", name, cwd=folder).stdout)["file"], name)


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
    for arguments in [["--help"], ["symbolize", "--help"], ["symbols", "--help"], ["address", "--help"],
                      ["info", "--help"], ["candidates", "--help"], ["sections", "--help"], ["segments", "--help"]]:
        result = run(*arguments)
        expect(f"orv {arguments}", (result.returncode, "orv " in result.stdout), (0, True))
        if len(arguments) == 2:
            expect(f"example in {arguments}", "Example:\n" in result.stdout, True)
    for arguments in [["--help"], ["info", "--help"]]:
        expect("usage", [line.split()[1] for line in run(*arguments).stdout.splitlines() if line.startswith("Usage:")], ["orv"])
    expect("version", run("--version").stdout, "orv 3.30\n")
    expect("version behind a command", run("info", "--version").stdout, "orv 3.30\n")
    expect("quiet by default", run("info", program).stderr, "")
    expect("log on request", "ENTER: loadSymbolsFromModuleEx" in run("info", "--log-level", "trace", program).stderr, True)
    expect("common options ahead", json.loads(run("--json", "info", program).stdout)["format"], "ELF")
    with open("/dev/full", "w") as full:
        result = subprocess.run([ORV, "symbols", program], stdout=full, stderr=subprocess.PIPE, text=True)
    expect("nowhere to write", (result.returncode, result.stderr), (1, "orv: standard output cannot be written\n"))


with tempfile.TemporaryDirectory() as name:
    folder = pathlib.Path(name)
    symbols = build(folder)
    check_symbolize(folder, symbols)
    check_debug(folder)
    check_inlines(folder)
    check_overlaps(folder)
    check_commands(folder, symbols)
    check_cold_parts(folder)
    check_stripped(folder)
    check_paths(folder)
    check_manners(folder)
for failure in failures:
    print("FAILED", failure)
print(f"{len(failures)} failures")
sys.exit(1 if failures else 0)
