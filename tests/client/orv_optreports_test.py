# SPDX-License-Identifier: Apache-2.0
# SPDX-FileCopyrightText: The ORV authors
"""Optimisation remarks of a program, and the binary for an offload processor in one, through the client."""

import json
import os
import pathlib
import struct
import subprocess
import sys
import tempfile

ORV = os.environ["ORV"]
SOURCE = """int counter;
__attribute__((noinline)) int helper(int x)
{
    return x * 3 + counter;
}
int main(int argc, char **argv) { (void)argv; return helper(argc); }
"""
HOST = """__asm__(".section .rodata; .ascii \\"before\\"; .incbin \\"inner\\"; .text");
int main(void) { return 0; }
"""
failures = []


def expect(what, got, wanted):
    if got != wanted:
        failures.append(f"{what}: got {got!r}, wanted {wanted!r}")


def run(*arguments):
    return subprocess.run([ORV, *arguments], capture_output=True, text=True)


def records(*arguments):
    return [json.loads(line) for line in run(*arguments).stdout.splitlines()]


def packed(text):
    """Seven bits a byte, low first; the last has no high bit."""
    number, groups = int.from_bytes(text, "little"), (8 * len(text) + 6) // 7
    return bytes(number >> 7 * i & 0x7F | (0x80 if i + 1 < groups else 0) for i in range(groups))


def table(reports):
    """A notification table of version 1 with absolute anchors."""
    entries = names = data = b""
    for anchor, name, value in reports:
        entries += struct.pack("<QII", anchor, len(names), len(data))
        names += name + b"\0"
        data += bytes([len(value), 0x10]) + (packed(value) if name == b"optimization_report" else value)
    begin = 44 + len(entries)
    header = struct.pack("<16sHHIIIIII", b".zvk_notify_tab", 0x0101, 44, len(reports), begin, len(names),
                         begin + len(names), len(data), 8)
    return header + entries + names + data + bytes(20)


def check_remarks(folder):
    (folder / "p.c").write_text(SOURCE)
    subprocess.run(["gcc", "-O1", "-gdwarf-4", "-no-pie", "-o", "plain", "p.c"], cwd=folder, check=True)
    listed = subprocess.run(["nm", folder / "plain"], capture_output=True, text=True, check=True).stdout.splitlines()
    helper = next(int(line.split()[0], 16) for line in listed if line.endswith(" helper"))
    (folder / "reports").write_bytes(table([
        (helper + 1, b"optimization_report", b"second of two that were written"),
        (0, b"optimization_report_version", b"\5"),
        (helper, b"optimization_report", b"short"),
        (0x10, b"optimization_report", b"\xff outside of everything"),
        (0, b"other", b"x")]))
    program = str(folder / "program")
    subprocess.run(["objcopy", "--add-section", ".debug_opt_report=reports", "plain", program], cwd=folder, check=True)
    found = records("optreports", "--json", program)
    expect("addresses", [one["address"] for one in found[:2]] + [one["address"] for one in found[-2:]],
           ["0x10", "0x10", hex(helper), hex(helper + 1)])
    short, long = found[-2:]
    expect("text", (short["text"], short["length"]), ("short" + 11 * "\0", 16))
    expect("bytes", bytes.fromhex(found[0]["bytes"])[:10], b"\xff outside ")
    expect("place", (long["function"], long["file"], long["line"], long["version"]),
           ("helper", f"{folder}/p.c", 4, 0))
    expect("versions", (long["version"], short["version"]), (0, 5))
    said = run("optreports", "--range", f"{helper:x}:{helper + 1:x}", program).stdout
    expect("for people", said, f"{helper:016x}  helper  {folder}/p.c:4  version 5\n    short\n")
    expect("of a function", [one["text"][:5] for one in records("function", "--json", program, "helper")[0]["remarks"]],
           ["short", "secon"])
    function = run("function", program, "helper").stdout
    expect("of a function, for people", f"    {helper:016x} remark 5  short\n" in function, True)
    expect("of no function", "remark" in run("function", program, "main").stdout, False)
    rows = records("lines", "--json", program)
    inside = [one["address"] for row in rows for one in row.get("remarks", [])]
    expect("of lines", sorted(set(inside)), [hex(helper), hex(helper + 1)])
    expect("of lines, for people", run("lines", program).stdout.count(" remark 5  short\n"), inside.count(hex(helper)))
    expect("none", run("optreports", str(folder / "plain")).stderr, f"orv: {folder}/plain: has no optimisation remarks\n")
    expect("a wrong range", run("optreports", "--range", "1", program).returncode, 2)


def check_offload(folder):
    (folder / "p.c").write_text(SOURCE)
    (folder / "host.c").write_text(HOST)
    subprocess.run(["gcc", "-O1", "-gdwarf-4", "-shared", "-fPIC", "-nostdlib", "-o", "inner", "p.c"], cwd=folder, check=True)
    inner = bytearray((folder / "inner").read_bytes())
    inner[18:20] = struct.pack("<H", 181)
    inner[6] = 1
    (folder / "inner").write_bytes(inner)
    subprocess.run(["gcc", "-o", "host", "host.c"], cwd=folder, check=True)
    host = str(folder / "host")
    names = {one["name"] for one in records("symbols", "--json", "--offload", host)}
    expect("names of the inner one", ("helper" in names, "_start" in names), (True, False))
    expect("the host", "_start" in {one["name"] for one in records("symbols", "--json", host)}, True)
    expect("by architecture", records("info", "--json", "--arch", "em181", host)[0]["architecture"], "em181")
    address = next(one["start"] for one in records("symbols", "--json", "--offload", host) if one["name"] == "helper")
    expect("its lines", run("symbolize", "-f", "--offload", "-e", host, address).stdout, f"helper\n{folder}/p.c:4\n")
    expect("its sections", ".symtab" in {one["name"] for one in records("sections", "--json", "--offload", host)}, True)
    expect("none", run("info", "--offload", str(folder / "inner")).returncode, 1)


with tempfile.TemporaryDirectory() as name:
    check_remarks(pathlib.Path(name))
    check_offload(pathlib.Path(name))
for failure in failures:
    print("FAILED", failure)
sys.exit(1 if failures else 0)
