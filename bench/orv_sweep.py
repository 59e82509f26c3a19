# SPDX-License-Identifier: Apache-2.0
# SPDX-FileCopyrightText: The ORV authors
"""Every defined function symbol of the system's files is what the bank finds at its address.

    orv_sweep.py              everything, which takes a while
    orv_sweep.py FILE...      these

For each ELF program and shared object: readelf prints its symbols, and `orv symbolize` says what the
bank finds at each of their addresses. A symbol that is not found must have lost to one that the rules
rank higher; the counts say to which rule. A file that readelf calls no ELF file must be refused.
"""

import collections
import os
import pathlib
import subprocess
import sys

ORV = os.environ.get("ORV", "orv")
NO_COMPANIONS = ["--debug-root", "/no/such/folder"]  # readelf is asked for the file itself
FOLDERS = ["/usr/lib", "/lib", "/usr/bin", "/bin", "/usr/sbin", "/sbin", "/usr/libexec"]
MACHINES = {"Intel 80386", "Advanced Micro Devices X86-64", "Intel IA-64", "ARM"}
PT_LOAD, EXECUTABLE = "LOAD", "E"


def elf_files():
    seen = set()
    for folder in FOLDERS:
        for path in sorted(pathlib.Path(folder).rglob("*")):
            try:
                if path.is_symlink() or not path.is_file():
                    continue
                real = path.resolve()
                if real in seen:
                    continue
                with open(real, "rb") as file:
                    head = file.read(18)
                if head[:4] == b"\x7fELF" and head[16:17] in b"\2\3":
                    seen.add(real)
                    yield str(real)
            except OSError:
                continue


def run(*command, text_in=None):
    return subprocess.run(command, input=text_in, capture_output=True, text=True, errors="surrogateescape")


class Module:
    """What readelf says of a file."""

    def __init__(self, path):
        header = run("readelf", "-hW", path).stdout
        fields = dict(line.split(":", 1) for line in header.splitlines() if ":" in line)
        self.machine = fields.get("  Machine", "").strip()
        self.data = fields.get("  Data", "")
        self.sections = []
        self.names = {}  # by number
        for line in run("readelf", "-SW", path).stdout.splitlines():
            head, _, rest = line.partition("]")
            number = head.strip(" [")
            columns = rest.split()
            if not number.isdigit() or len(columns) < 9:
                continue
            if columns[0] in ("NULL", "PROGBITS", "NOBITS", "NOTE", "STRTAB"):
                columns.insert(0, "")
            self.names[number] = columns[0]
            self.sections.append((columns[0], columns[1], int(columns[2], 16), int(columns[4], 16),
                                  columns[6] if not columns[6].isdigit() else ""))
        self.loads = []
        for line in run("readelf", "-lW", path).stdout.splitlines():
            columns = line.split()
            if columns[:1] == [PT_LOAD]:
                self.loads.append((int(columns[2], 16), int(columns[5], 16)))
        self.symbols = []
        table = 0
        for line in run("readelf", "-sW", path).stdout.splitlines():
            if line.startswith("Symbol table '"):
                table = 0 if "'.symtab'" in line else 1  # the order in which the loader reads them
            columns = line.split(None, 7)
            if len(columns) == 8 and columns[0].rstrip(":").isdigit():
                # readelf adds versions to dynamic names; in .symtab they are part of the name.
                name = columns[7].strip() if table == 0 else columns[7].split("@")[0].strip()
                order = (table, int(columns[0].rstrip(":")))
                self.symbols.append((int(columns[1], 16), int(columns[2], 0), columns[3], columns[4], columns[6], name,
                                     order))

    def is_code(self, address):
        """The address lies in an executable section, padding up to the next one included."""
        for index, (_, _, start, size, flags) in enumerate(self.sections):
            if "X" in flags and size and start <= address < self.extent(index):
                return True
        return False

    def extent(self, index):
        _, _, start, size, _ = self.sections[index]
        end = start + size
        if index + 1 < len(self.sections):
            following = self.sections[index + 1][2]
            for load_start, load_size in self.loads[:2]:
                if load_start <= start < load_start + load_size and load_start <= following < load_start + load_size:
                    end = max(end, following)
        return end


def priority(kind):
    return {"FUNC": 1, "NOTYPE": 3, "OBJECT": 4}.get(kind, 9)


def why_lost(symbol, winner, at_address):
    """The rule by which the winner ranks above the symbol; None if there is none."""
    _, size, kind, binding, _, _, order = symbol
    rivals = [s for s in at_address if s[5] == winner]
    for rival in rivals:
        if priority(rival[2]) != priority(kind):
            if priority(rival[2]) < priority(kind):
                return "kind"
        elif (rival[3] == "LOCAL") != (binding == "LOCAL"):
            if binding == "LOCAL":
                return "global over local"
        elif rival[1] > size:
            return "alias: the longer range"
        elif rival[1] == size and rival[6] < order:
            return "alias: the first of equal ones"
    return None


def check(path, totals, failures):
    module = Module(path)
    is_supported = module.machine in MACHINES and "little endian" in module.data
    info = run(ORV, "info", *NO_COMPANIONS, path)
    if (info.returncode == 0) != is_supported:
        failures.append(f"{path}: {module.machine}: {info.stderr.strip() or 'loaded'}")
        return
    totals["files loaded" if is_supported else "files refused, as they should be"] += 1
    if not is_supported:
        return
    candidates = [s for s in module.symbols
                  if s[5] and s[4] not in ("UND", "COM") and s[2] in ("FUNC", "NOTYPE", "OBJECT")
                  and s[3] in ("LOCAL", "GLOBAL", "WEAK")]
    functions = [s for s in candidates if s[2] == "FUNC" and module.is_code(s[0])]
    if not functions:
        return
    # In a relocatable file an address counts in its section.
    def place(symbol):
        return ("" if module.loads else symbol[4], symbol[0])

    at = collections.defaultdict(list)
    by_section = collections.defaultdict(list)
    for symbol in candidates:
        at[place(symbol)].append(symbol)
    for symbol in functions:
        by_section[place(symbol)[0]].append(symbol)
    answers = []
    for section, inside in by_section.items():
        where = ["-j", module.names[section]] if section.isdigit() else []
        text = "".join(f"{symbol[0]:x}\n" for symbol in inside)
        names = run(ORV, "symbolize", *NO_COMPANIONS, *where, "-f", "-e", path, text_in=text).stdout.split("\n")[::2]
        answers += zip(inside, names)
    for symbol, name in answers:
        totals["functions"] += 1
        if name == symbol[5]:
            totals["found by name"] += 1
            continue
        rule = why_lost(symbol, name, at[place(symbol)])
        if rule is None:
            failures.append(f"{path}: {symbol[0]:#x}: {symbol[5]} expected, {name} found")
        else:
            totals[f"lost by rule: {rule}"] += 1


def sweep(files, built=()):
    """True if something is wrong, as it is if in one of those that were built no function was compared."""
    totals = collections.Counter()
    failures = []
    for path in [*files, *built]:
        before = totals["functions"]
        check(path, totals, failures)
        if path in built and totals["functions"] == before:
            failures.append(f"{path}: no function was compared")
    for what, count in totals.most_common():
        print(f"{count:9}  {what}")
    for failure in failures[:40]:
        print("FAILED", failure)
    print(f"{len(failures)} failures, {totals['functions']} functions")
    return bool(failures) or not totals["functions"]


if __name__ == "__main__":
    sys.exit(1 if sweep(sys.argv[1:] or elf_files()) else 0)
