# SPDX-License-Identifier: Apache-2.0
# SPDX-FileCopyrightText: The ORV authors
"""Measures what grows with tables alone: lists of kernel symbols, optimisation remarks, methods of OAT files.

    orv_bench_tables.py ORV ORV_OAT_MAKE

One address of a kernel by lists of 100,000 to 10,000,000 lines, beside the time to read the list; the remarks of a
module, 250,000 to 1,000,000 in tables of 100; all of an OAT file of 25,000 to 100,000 methods in 10 DEX files."""

import os
import pathlib
import struct
import subprocess
import sys
import tempfile
import time

ORV, OAT_MAKE = sys.argv[1:]


def measure(command, runs):
    """Best wall time in milliseconds and peak memory in MiB."""
    best = float("inf")
    for _ in range(runs):
        begin = time.perf_counter()
        subprocess.run(command, stdout=subprocess.DEVNULL, check=True)
        best = min(best, time.perf_counter() - begin)
    with tempfile.NamedTemporaryFile("r") as report:
        subprocess.run(["time", "-f", "%M", "-o", report.name, *command], stdout=subprocess.DEVNULL, check=True)
        return best * 1000, int(report.read().split()[-1]) / 1024


def kernel_lists(folder):
    print("\n=== a kernel by its list of symbols: one address, whole process")
    path = folder / "list"
    for count in (100_000, 200_000, 400_000, 5_000_000, 10_000_000):
        with open(path, "w") as out:
            for begin in range(0, count, 100_000):
                out.write("".join(f"{0xffffffff81000000 + 16 * i:016x} {'TtdB'[i % 4]} kernel_function_{i:x}\n"
                                  for i in range(begin, begin + 100_000)))
        reading, _ = measure(["cat", path], 5)
        ours, memory = measure([ORV, "symbolize", "-f", "--symbol-file", path, "-e", "vmlinux-x86_64", "ffffffff81000015"],
                               5 if count < 1_000_000 else 2)
        print(f"  {count:10,} lines: {ours:8.1f} ms, to read them {reading:7.1f} ms, {(ours - reading) * 1e6 / count:6.1f} ns a "
              f"line beyond that, {memory:7.1f} MiB")


def packed(text):
    number, groups = int.from_bytes(text, "little"), (8 * len(text) + 6) // 7
    return bytes(number >> 7 * i & 0x7F | (0x80 if i + 1 < groups else 0) for i in range(groups))


def table(first, count):
    name, begin = b"optimization_report\0", 44 + 16 * count
    value = packed(b"loop was vectorized, remark %u")
    data = bytes([30, 0x10]) + value
    entries = b"".join(struct.pack("<QII", 0x1000 + first + i, 0, len(data) * i) for i in range(count))
    return struct.pack("<16sHHIIIIII", b".zvk_notify_tab", 0x0101, 44, count, begin, len(name), begin + len(name),
                       len(data) * count, 8) + entries + name + data * count


def remarks(folder):
    print("\n=== optimisation remarks, in tables of 100: all loaded, whole process")
    (folder / "p.s").write_text("\t.text\n_start:\tret\n")
    subprocess.run(["as", "-o", folder / "p.o", folder / "p.s"], check=True)
    subprocess.run(["ld", "-e", "0", "-o", folder / "p", folder / "p.o"], check=True)
    for count in (250_000, 500_000, 1_000_000):
        (folder / "reports").write_bytes(b"".join(table(first, 100) for first in range(0, count, 100)) + bytes(20))
        subprocess.run(["objcopy", "--add-section", f".debug_opt_report={folder / 'reports'}", folder / "p", folder / "q"],
                       check=True)
        ours, memory = measure([ORV, "optreports", "--quiet", "--range", "0:1", folder / "q"], 5)
        print(f"  {count:10,} remarks in {count // 100:6,} tables: {ours:7.1f} ms, {ours * 1e6 / count:6.1f} ns each, "
              f"{memory:6.1f} MiB, {memory * 1048576 / count:5.0f} bytes each")


def oat_files(folder):
    print("\n=== methods of an OAT file, in 10 DEX files: whole process")
    os.environ["ORV_USE_LEGACY_OAT_READER"] = "1"
    path = folder / "m.oat"
    for count in (25_000, 50_000, 100_000):
        subprocess.run([OAT_MAKE, "--many", str(count), "10", path], check=True)
        rows = subprocess.run([ORV, "lines", path], check=True, capture_output=True).stdout.count(b"\n")
        middle = subprocess.run([ORV, "symbols", "--kind", "function", path], check=True, capture_output=True,
                                text=True).stdout.splitlines()[count // 2].split()[0]
        print(f"  {count:7,} methods, {rows:9,} lines, {path.stat().st_size / 1048576:5.1f} MiB")
        for what, command in [("all symbols", ["symbols", path]), ("all lines", ["lines", path]),
                              ("one address", ["symbolize", "-f", "-e", path, middle])]:
            ours, memory = measure([ORV, *command], 5)
            print(f"    {what:12} {ours:7.1f} ms, {ours * 1e6 / count:7.1f} ns a method, {memory:6.1f} MiB")


with tempfile.TemporaryDirectory() as name:
    kernel_lists(pathlib.Path(name))
    remarks(pathlib.Path(name))
    oat_files(pathlib.Path(name))
