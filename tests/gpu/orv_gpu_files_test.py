# SPDX-License-Identifier: Apache-2.0
# SPDX-FileCopyrightText: The ORV authors
"""The client on binaries of GPU kernels: which kernel is taken, what is said where there is a choice or nothing to be read,
and lines beside those that addr2line gives for the image of virtual instructions."""

import json
import pathlib
import random
import sys
import tempfile

sys.path[:0] = [str(pathlib.Path(__file__).resolve().parent.parent / "support")]
import orv_tools
from orv_gpu_files import blob, mira, qdc, rln, rln_lines
from orv_tools import ORV, expect, must

CODE = 64


def orv(*arguments, cwd=None, **more):
    return orv_tools.run(ORV, *arguments, cwd=cwd, **more)


def write(folder, name, program_file, size=CODE):
    (folder / f"{name}.clbin").write_bytes(b"c" * size)
    (folder / f"{name}.clpdb").write_bytes(program_file)


def check_choice(folder):
    lines = [rln_lines([(0, 3 + number, 0, 0), (16, 1, 0, 1), (32, 5, 0, 0)]) for number in range(2)]
    write(folder, "two", rln(["unknown.cl", "a.h"], ["sum", "blur"], [(0, lines[0]), (1, lines[1])]))
    write(folder, "one", rln(["unknown.cl", "a.h"], ["sum"], [(0, lines[0])]))
    listing = "orv: two.clbin: is one kernel of the 2 in two.clpdb: say which by --target-name: blur, sum\n"
    none = "two.clbin: is a GPU kernel's binary, and nothing in it tells for which family: give --arch rln1, rln2, qdc1 or qdc2"
    wrong = "orv: two.clpdb: has no kernel x: give one of these by --target-name: blur, sum\n"
    two, ask = ["--arch", "rln1", "-e", "two.clbin"], ["-fp", "0", "10", "20", "3f", "41"]
    of_blur = ["blur at ??:4", "blur at ??:?", "blur at ??:5", "blur at ??:5", "?? ??:0"]
    cases = [
        ("given", ["symbolize", *two, "--target-name", "blur", *ask], 0, of_blur, ""),
        ("the other family", ["--arch=rln2", "--target-name=blur", "symbolize", "-e", "two.clbin", *ask], 0, of_blur, ""),
        ("the only one", ["symbolize", "--arch", "rln1", "-e", "one.clbin", "-fp", "0"], 0, ["sum at ??:3"], ""),
        ("not given", ["symbolize", *two, "-fp", "0"], 0, [".dbginfo_vex at ??:?"], listing),
        ("quiet", ["symbolize", *two, "--quiet", "-fp", "0"], 0, [".dbginfo_vex at ??:?"], ""),
        ("no such kernel", ["symbolize", *two, "--target-name", "x", "0"], 1, [], wrong),
        ("no family", ["symbolize", "-e", "two.clbin", "0"], 1, [], f"orv: {none}, after the compiler\n"),
        ("without lines", ["symbolize", *two, "--no-debug-info", "-fp", "0"], 0, [".code_vex at ??:?"], ""),
        ("column", ["symbolize", *two, "--target-name", "blur", "--json", "20"], 0,
         ['{"address":"0x20","function":"blur","offset":"0x20","file":null,"line":5,"column":0,"discriminator":0}'], ""),
        ("rows", ["lines", "--arch", "rln1", "--target-name", "sum", "two.clbin"], 0,
         [f"{0:016x}-{16:016x}  ??:3:0", f"{32:016x}-{64:016x}  ??:5:0"], ""),
        ("rows in a range", ["lines", "--arch", "rln1", "--range", "20:", "one.clbin"], 0,
         [f"{32:016x}-{64:016x}  ??:5:0"], ""),
        ("rows of a file", ["lines", "--arch", "rln1", "--file", "unknown.cl", "one.clbin"], 0, [], ""),
        ("rows of several", ["lines", "--arch", "rln1", "two.clbin"], 0, [], listing),
        ("no rows by wish", ["lines", "--arch", "rln1", "--no-debug-info", "one.clbin"], 1, [],
         "orv: one.clbin: has no lines without its program file: leave out --no-debug-info\n"),
        ("name without a program file", ["symbolize", "-fe", "two.clbin", "--arch=rln1", "--target-name=x", "--no-debug-info", "0"],
         0, [".code_vex", "??:?"], ""),
        ("files", ["files", "--arch", "rln1", "one.clbin"], 1, [],
         "orv: one.clbin: is a GPU kernel's binary, whose source was compiled from memory and has no file\n"),
        ("units", ["units", "--arch", "rln1", "one.clbin"], 1, [],
         "orv: one.clbin: is a GPU kernel's binary, whose program file tells of no units\n"),
        ("function", ["function", "--arch", "rln1", "one.clbin", "sum"], 1, [],
         "orv: one.clbin: is a GPU kernel's binary, of which no functions are known: see 'orv lines'\n"),
        ("symbols", ["symbols", "--arch", "rln1", "one.clbin"], 0,
         [f"{0:016x} {CODE:10}  other     local   {name}" for name in (".dbginfo_vex", ".code_vex")], ""),
        ("sections", ["sections", "--arch", "rln1", "one.clbin"], 0, [], ""),
        ("remarks", ["optreports", "--arch", "rln1", "one.clbin"], 0, [],
         "orv: one.clbin: has no optimisation remarks\n"),
    ]
    for name, words, status, out, err in cases:
        got = orv(*words, cwd=folder)
        expect(name, (got.returncode, got.stdout.splitlines(), got.stderr), (status, out, err))
    for words in (["info", "two.clbin"], ["symbols", "two.clbin"], ["address", "two.clbin", "0"]):
        expect(f"{words} lists once", orv(*words, "--arch", "rln1", cwd=folder).stderr.count(listing), 1)
    info = json.loads(orv("info", "--json", "--arch", "rln1", "two.clbin", "--target-name", "sum", cwd=folder).stdout)
    expect("info", (info["format"], info["architecture"], info["symbol_file_format"], info["image_size"], info["gpu"]),
           ("GPU binary", "rln1", "RLN", CODE, {"kernel": "sum", "kernels": ["blur", "sum"]}))


def check_candidates(folder):
    (folder / "lone.clbin").write_bytes(b"c")
    (folder / "bad.clbin").write_bytes(b"c")
    (folder / "bad.clpdb").write_bytes(b"?" * 100)
    (folder / "binary.clbin").write_bytes(b"\x7fXYZ\1" * 20)  # where an ELF file would say that it is one of 32 bits
    family = ["--arch", "qdc1"]
    lone = ("orv: lone.clbin: has no lines: lone.clpdb: no such file beside the binary: "
            "see 'orv candidates --arch qdc1 lone.clbin'\n")
    expect("no program file", orv("symbolize", *family, "-e", "lone.clbin", "0", cwd=folder).stderr, lone)
    for name, why in [("lone.clbin", "no such file beside the binary"), ("bad.clbin", "it is no program file of this family's compiler")]:
        expect(f"why not {name}", why in orv("candidates", *family, name, cwd=folder).stdout, True)
    taken = json.loads(orv("candidates", "--json", "--arch", "rln1", "two.clbin", cwd=folder).stdout)
    expect("taken", (taken["kind"], taken["format"], taken["taken"], taken["name"]), ("program file", "RLN", True, "two.clpdb"))
    named = orv("symbolize", "--arch", "rln1", "--symbol-file", "two.clpdb", "--target-name", "sum", "-fe", "lone.clbin", "0", cwd=folder)
    expect("named", (named.stdout, named.stderr), ("sum\n??:3\n", ""))
    other = orv("symbolize", *family, "--symbol-file", "bad.clpdb", "-e", "lone.clbin", "0", cwd=folder)
    expect("of another compiler", (other.returncode, other.stderr),
           (1, "orv: bad.clpdb: is no program file of this family's compiler, or is damaged\n"))
    expect("addresses have 64 bits", orv("symbolize", "-a", *family, "-e", "binary.clbin", "0", cwd=folder).stdout.split()[0], "0x" + "0" * 16)


def check_odd_names(folder):
    """Names come from files: what is shown of them stays on its line."""
    nameless = "odd.clpdb: names no kernel, as it is damaged, or --arch names the wrong family: the binary alone answers\n"
    say = "orv: odd.clbin: is one kernel of the {} in odd.clpdb: say which by --target-name: {}\n"
    line = rln_lines([(0, 3, 0, 0)])
    cases = [
        ("control characters", ["a", "b\n\x1b[31mc"], 0, say.format(2, r"a, b\x0a\x1b[31mc")),
        ("no name", ["", "b"], 0, ""),
        ("no kernel", [], 0, "orv: " + nameless),
        ("a kernel without a name", [""], 0, "orv: " + nameless),
        ("long names", ["a" * 40000, "b" * 40000, "c"], 0, say.format(3, "a" * 40000 + " and 2 others")),
    ]
    for name, kernels, status, err in cases:
        write(folder, "odd", rln(["unknown.cl"], kernels, [(len(kernels) - 1, line)] if kernels else []))
        for words in (["symbolize", "-e", "odd.clbin", "0"], ["lines", "odd.clbin"]):
            got = orv(*words, "--arch", "rln2", cwd=folder)
            expect(f"{name}: {words[0]}", (got.returncode, got.stderr), (status, err))
    got = orv("symbolize", "--arch", "rln1", "--target-name", "x", "-e", "odd.clbin", "0", cwd=folder)
    expect("no such one of long names", got.stderr.endswith(" and 2 others\n"), True)
    write(folder, "odd", qdc([("k", b"", b"")])[:-3])
    expect("cut", orv("lines", "--arch", "qdc1", "odd.clbin", cwd=folder).stderr, "orv: " + nameless)
    # Rows that begin behind the code, and go on there.
    write(folder, "odd", rln(["unknown.cl"], ["k"], [(0, rln_lines([(0x38, 1, 0, 0), (0x80, 2, 0, 0)]))]))
    for more, rows in ([], [f"{0x38:016x}-{CODE:016x}  ??:1:0"]), (["--all"], [f"{0x38:016x}-{CODE:016x}  ??:1:0", f"{0x80:016x}-{0x80:016x}  ??:2:0"]):
        expect(f"rows behind the code {more}", orv("lines", "--arch", "rln1", "odd.clbin", *more, cwd=folder).stdout.splitlines(), rows)


def check_reasons(folder):
    """A kernel that has no lines says why, once."""
    image = mira(folder, [(3, 2), (9, 2)])
    interleaved = mira(folder, [(3, 2), (7, 2, 2), (4, 2)], ["a.h", "unknown.cl"])
    pairs = [(2, 16), (4, 32)]
    cases = [
        ("interleaved", "qdc1", qdc([("k", interleaved, blob([("k", pairs)]))]), "lines that are interleaved"),
        ("of files", "rln1", rln(["a.cl"], ["k"], [(0, rln_lines([(0, 1, 0, 0)]))]), "lines of files alone"),
        ("no image", "qdc1", qdc([("k", b"none", blob([("k", pairs)]))]), "lines that are damaged"),
        ("offsets that stay", "qdc2", qdc([("k", image, blob([("k", [(2, 16), (4, 16)])]))]), "lines that are damaged"),
        ("late", "rln1", rln(["unknown.cl"], ["k"], [(0, rln_lines([(0x3f0, 1, 0, 0)]))]), ""),
    ]
    for name, arch, program_file, why in cases:
        write(folder, "why", program_file, 1024)
        got = orv("symbolize", "--arch", arch, "-fpe", "why.clbin", "0", "3ff", cwd=folder)
        expect(name, got.stdout, "k at ??:?\n" + ("k at ??:?\n" if why else "k at ??:1\n"))
        expect(f"{name}: why", (got.stderr.count("\n"), why in got.stderr), (1 if why else 0, True))
        expect(f"{name}: rows", orv("lines", "--arch", arch, "why.clbin", cwd=folder).stderr, got.stderr)


def check_lines(folder):
    """Each instruction of the machine code has the line of its virtual one."""
    chance = random.Random(15)
    for round in range(4):
        lines = [(chance.randint(1, 900), chance.randint(1, 5)) for _ in range(200)]
        count = sum(length for _, length in lines)
        image = mira(folder, lines)
        offset, pairs = 0, []
        for instruction in sorted(chance.sample(range(1, count), count // 2)):
            offset += chance.randint(1, 20)
            pairs.append((instruction, offset))
        write(folder, "k", qdc([("k", image, blob([("k", pairs)]))]), offset + 1)
        wanted = must("addr2line", "-e", folder / "mira", "0x0", *(hex(pair[0]) for pair in pairs)).splitlines()
        got = orv("symbolize", "--arch", "qdc2", "-e", "k.clbin", "0", *(hex(pair[1]) for pair in pairs), cwd=folder)
        expect(f"lines, round {round}", [line.split(":")[1] for line in got.stdout.splitlines()],
               [line.split(":")[1].split()[0] for line in wanted])


with tempfile.TemporaryDirectory() as name:
    folder = pathlib.Path(name)
    check_choice(folder)
    check_candidates(folder)
    check_odd_names(folder)
    check_reasons(folder)
    if orv_tools.can("lines beside addr2line", "addr2line"):
        check_lines(folder)
orv_tools.finish()
