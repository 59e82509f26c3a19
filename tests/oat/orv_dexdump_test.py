# SPDX-License-Identifier: Apache-2.0
# SPDX-FileCopyrightText: The ORV authors
"""OAT files beside dexdump: classes, methods, signatures and line tables of their DEX files are what was asked for, and
our symbols and lines are what dexdump's tables say of the native code."""

import dataclasses
import json
import os
import pathlib
import random
import re
import sys
import tempfile

sys.path[:0] = [str(pathlib.Path(__file__).resolve().parent.parent / "support")]
import orv_tools
from orv_tools import ORV, expect, failures, must

MAKE = os.environ["ORV_OAT_MAKE"]
READING = {**os.environ, "ORV_USE_LEGACY_OAT_READER": "1"}
SIGNATURES = ("()V", "(II)V", "(JD)J", "(Ljava/lang/String;[I)Ljava/lang/Object;", "([[Z)[B", "(FSC)Z")
PACKAGES = ("", "com.example.", "org.deep.er.")


@dataclasses.dataclass
class Method:
    name: str
    signature: str = "()V"
    is_direct: bool = False
    first_line: int = 1
    positions: list = dataclasses.field(default_factory=list)  # (pc, line), none for no debug program
    pairs: list = None  # (offset in the native code, pc)
    size: int = 32
    is_thumb: bool = False
    is_compiled: bool = True
    has_code: bool = True

    def program(self):
        """The special opcode where it reaches, and otherwise a step of each kind in front of it."""
        pc, line, words = 0, self.first_line, []
        for next_pc, next_line in self.positions:
            pcs, lines = next_pc - pc, next_line - line
            if not -4 <= lines <= 10 or pcs * 15 + lines + 14 > 255:
                words += [f"pc {pcs}", f"line {lines}"]
                pcs = lines = 0
            words.append(f"step {pcs} {lines}")
            pc, line = next_pc, next_line
        return "; ".join(["prologue", *words, "end"])

    def text(self):
        words = [f"  method {'direct' if self.is_direct else 'virtual'} {self.name}{self.signature} code={self.size}"]
        words += ["thumb"] * self.is_thumb + ["uncompiled"] * (not self.is_compiled) + ["nocode"] * (not self.has_code)
        lines = [" ".join(words)]
        if self.pairs is not None:
            lines.append("    map " + " ".join(f"{native}:{pc}" for native, pc in self.pairs))
        if self.positions:
            lines.append(f"    debug {self.first_line} : {self.program()}")
        return "\n".join(lines)


@dataclasses.dataclass
class Class:
    name: str
    source: str
    methods: list
    kind: str = "all"

    def descriptor(self):
        return "L" + self.name.replace(".", "/") + ";"

    def text(self):
        lines = [f"class {self.name} source={self.source or '-'} {self.kind}", "  field instance count I"]
        return "\n".join(lines + [method.text() for method in self.methods])


def random_method(draw, index):
    method = Method(draw.choice(("run", "get", "main", "a$b")) + str(index), draw.choice(SIGNATURES),
                    is_direct=draw.random() < .5, first_line=draw.randrange(1, 400), size=draw.randrange(1, 90),
                    is_thumb=draw.random() < .2, has_code=draw.random() < .9)
    pc, line = 0, method.first_line
    for _ in range(draw.randrange(10) if method.has_code else 0):
        pc += draw.choice((0, 1, 2, 3, 20))
        line = max(1, line + draw.choice((-60, -4, -1, 0, 1, 2, 10, 11, 300)))
        method.positions.append((pc, line))
    if draw.random() < .9:
        natives = sorted(draw.sample(range(method.size), min(method.size, draw.randrange(9))))
        method.pairs = [(native, draw.randrange(pc + 3)) for native in natives]
    return method


def random_class(draw, index):
    kind = draw.choice(("all", "all", "some", "none"))
    methods = [random_method(draw, i) for i in range(draw.randrange(9 if kind == "some" else 14))]
    for method in methods:
        # A bitmap has one byte that counts, and what follows a compiled method counts as compiled.
        method.is_compiled = kind == "all" or (kind == "some" and not method.is_direct)
    name = f"{draw.choice(PACKAGES)}Class{index}{draw.choice(('', '$Inner', '$1'))}"
    return Class(name, draw.choice((f"Class{index}.java", "Shared.java")), methods, kind)


def dexdump(path):
    """{descriptor: (source, [(is direct, name, signature, has code, positions)])}"""
    result = orv_tools.run("dexdump", "-a", "-d", path)
    expect(f"dexdump {path.name}: status and complaints", (result.returncode, result.stderr), (0, ""))
    found, methods, section = {}, None, ""
    for line in result.stdout.splitlines():
        if match := re.match(r"  Class descriptor  : '(.*)'$", line):
            methods, section = [], ""
            found[match[1]] = [None, methods]
            current = match[1]
        elif match := re.match(r"  (\S+) +(?:fields|methods) +-$", line):
            section = line.split()[0] if "methods" in line else ""
        elif match := re.match(r"  source_file_idx   : -?\d+ \((.*)\)$", line):
            found[current][0] = None if match[1] == "unknown" else match[1]
        elif section and (match := re.match(r"      name          : '(.*)'$", line)):
            methods.append([section == "Direct", match[1], None, False, []])
        elif section and (match := re.match(r"      type          : '(.*)'$", line)):
            methods[-1][2] = match[1]
        elif section and re.match(r"      code          -$", line):
            methods[-1][3] = True
        elif section and (match := re.match(r"        0x([0-9a-f]+) line=(\d+)$", line)):
            methods[-1][4].append((int(match[1], 16), int(match[2])))
    return found


def check_dex(what, classes, dumped):
    expect(f"{what}: classes", list(dumped), [one.descriptor() for one in classes])
    for one in classes:
        source, methods = dumped.get(one.descriptor(), (None, []))
        expect(f"{what}: source of {one.name}", source, one.source)
        wanted = {(method.is_direct, method.name, method.signature): [method.has_code, method.positions] for method in one.methods}
        got = {tuple(method[:3]): method[3:] for method in methods}
        expect(f"{what}: methods of {one.name}", sorted(got), sorted(wanted))
        for key in wanted:
            expect(f"{what}: {one.name}.{key}", got.get(key), wanted[key])


def line_at(method, positions):
    """Line of each byte of the native code: that of the pair that leads there, otherwise the method's first one."""
    lines = {native: positions[0][1] for native in range(method.size)}
    for native, pc in method.pairs or []:
        exact = [line for at, line in positions if at == pc]
        earlier = [line for at, line in positions if at < pc]
        if pc <= positions[-1][0] and (exact or earlier):
            lines[native] = exact[0] if exact else earlier[-1]
    return lines


def records(command, oat, *words):
    result = orv_tools.run(ORV, command, "--json", *words, env=READING)
    expect(f"orv {command} {oat.name}: status", (result.returncode, result.stderr), (0, ""))
    return [json.loads(line) for line in result.stdout.splitlines()]


def cut(name):
    """Names are as many bytes as they have UTF-16 units."""
    return name.encode()[:len(name.encode("utf-16-le")) // 2].decode()


def check_orv(what, oat, files, dumps):
    """Symbols in the order of dexdump's methods, and the lines of every byte of their code."""
    compiled = []
    for classes, dumped in zip(files, dumps):
        for one in classes:
            methods = {(method.is_direct, method.name, method.signature): method for method in one.methods}
            for is_direct, name, signature, _, positions in dumped[one.descriptor()][1]:
                method = methods[is_direct, name, signature]
                if method.is_compiled:
                    compiled.append((f"{cut(one.name)}.{cut(name)}", method, one.source, positions))
    symbols = [symbol for symbol in records("symbols", oat, oat) if not symbol["name"].startswith("oat")]
    symbols.sort(key=lambda symbol: int(symbol["start"], 16))
    expect(f"{what}: symbols", [(symbol["name"], symbol["size"], symbol["kind"]) for symbol in symbols],
           [(name, method.size, "function") for name, method, _, _ in compiled])
    rows = {}
    for row in records("lines", oat, oat):
        for address in range(int(row["start"], 16), int(row["end"], 16)):
            rows.setdefault(address, []).append((row["file"], row["line"]))
    wanted = {}
    for symbol, (_, method, source, positions) in zip(symbols, compiled):
        expect(f"{what}: {symbol['name']} is thumb", int(symbol["start"], 16) % 2 == 1, method.is_thumb)
        for native, line in line_at(method, positions).items() if positions else ():
            wanted[int(symbol["start"], 16) + native] = (source, line)
    for address in sorted(rows.keys() | wanted.keys()):
        expect(f"{what}: rows at {address:#x}", rows.get(address), [wanted[address]] if address in wanted else None)
    asked = sorted(wanted)
    for first in range(0, len(asked), 1000):
        part = asked[first:first + 1000]
        answers = records("symbolize", oat, "-e", oat, *map(hex, part))
        got = {int(answer["address"], 16): (answer["file"], answer["line"]) for answer in answers}
        for address in part:
            expect(f"{what}: symbolize {address:#x}", got.get(address), wanted[address])


def check(folder, what, head, files):
    source, oat = folder / f"{what}.txt", folder / f"{what}.oat"
    source.write_text("\n".join([head, *("dex\n" + "\n".join(one.text() for one in classes) for classes in files)]) + "\n")
    must(MAKE, source, oat, "--dex", folder / what)
    before = len(failures)
    dumps = [dexdump(folder / f"{what}{i}.dex") for i in range(len(files))]
    for i, (classes, dumped) in enumerate(zip(files, dumps)):
        check_dex(f"{what}{i}", classes, dumped)
    if ORV and len(failures) == before:
        check_orv(what, oat, files, dumps)


def check_refusals(folder):
    """A text that means nothing is told by its line."""
    for text, line in (("oat 22\nclass A", 2), ("oat 22\ndex\nclass A\n  method odd f()V", 4), ("oat 22 colour=red", 1),
                       ("oat 22\ndex\nclass A\nmethod direct f()V\ndebug 1 : step 99 0; end", 5)):
        (folder / "bad.txt").write_text(text)
        result = orv_tools.run(MAKE, folder / "bad.txt", folder / "bad.oat")
        expect(f"refusal of {text!r}", (result.returncode, f"line {line}:" in result.stderr), (1, True))


def main():
    orv_tools.need("dexdump")
    if not ORV:
        print("SKIPPED symbols and lines: no client to ask")
    plain = [Class("com.example.Foo", "Foo.java", [
        Method("main", "(II)V", True, 12, [(0, 12), (2, 11), (8, 400)], [(0, 0), (4, 2), (10, 8), (12, 5)]),
        Method("\u00e9a", "()V", False, 3, [(0, 3), (0, 4)], [(1, 0)], is_thumb=True),
        Method("noTable", "()V", False, 9, [(1, 8)]), Method("noLines", pairs=[(0, 0)]), Method("native", has_code=False)]),
        Class("Bare", "Foo.java", [])]
    with tempfile.TemporaryDirectory() as name:
        folder = pathlib.Path(name)
        check(folder, "plain", "oat 22", [plain])
        check(folder, "twice", "oat 15 elf32 base=0x8000 trailer=5", [plain, plain])
        for seed, version in enumerate((7, 14, 15, 22, 23, 24, 25, 26, 27, 28)):
            draw = random.Random(seed)
            files = [[random_class(draw, i) for i in range(draw.randrange(1, 8))] for _ in range(draw.randrange(1, 4))]
            check(folder, f"v{version}-", f"oat {version} {draw.choice(('', 'elf32'))} trailer={draw.randrange(20)}", files)
        check_refusals(folder)
    orv_tools.finish()


if __name__ == "__main__":
    main()
