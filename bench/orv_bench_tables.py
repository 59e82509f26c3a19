# SPDX-License-Identifier: Apache-2.0
# SPDX-FileCopyrightText: The ORV authors
"""Measures what grows with tables alone: lists of kernel symbols, optimisation remarks, methods of OAT files,
lines of GPU kernels.

    orv_bench_tables.py ORV ORV_OAT_MAKE

One address of a kernel by lists of 100,000 to 10,000,000 lines, beside the time to read the list; the remarks of a
module, 250,000 to 1,000,000 in tables of 100; all of an OAT file of 25,000 to 100,000 methods in 10 DEX files; a GPU
kernel of 5,000,000 to 20,000,000 lines, and one of 256 to 1,024, of both compilers."""

import array
import os
import pathlib
import struct
import subprocess
import sys
import tempfile
import time

sys.path[:0] = [str(pathlib.Path(__file__).resolve().parent.parent / "tests/support")]
import orv_gpu_files

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


def rln_kernel(lines):
    entries = array.array("I", bytes(12 * lines))
    entries[0::3] = array.array("I", range(0, 16 * lines, 16))
    entries[1::3] = array.array("I", (1 + i % 1000 for i in range(lines)))
    return entries.tobytes()


def qdc_image(folder, lines):
    """One row an instruction, up and down through the lines."""
    up, down = bytes([13 + 14 + 5 + 1]), bytes([13 + 14 + 5 - 1])
    program = b"\0\x09\x02" + bytes(8) + (up * 500 + down * 500) * (lines // 1000) + b"\x02\x01\0\x01\x01"
    (folder / "program").write_bytes(program)
    return orv_gpu_files.assemble(folder, f"""
        .text
        .fill {lines}, 1, 0x90
        .section .debug_abbrev
        .byte 1, 0x11, 0, 0x10, 0x17, 0, 0, 0
        .section .debug_info
        .long 2f - 1f
1:      .2byte 4
        .long 0
        .byte 8, 1
        .long 0
2:      .section .debug_line
        .long 6f - 3f
3:      .2byte 4
        .long 5f - 4f
4:      .byte 1, 1, 1, -5, 14, 13, 0, 1, 1, 1, 1, 0, 0, 0, 1, 0, 0, 1
        .byte 0
        .asciz "{orv_gpu_files.SOURCE}"
        .byte 0, 0, 0, 0
5:      .incbin "program"
6:
""")


def qdc_kernel(folder, name, lines):
    pairs = array.array("I", bytes(8 * (lines - 1)))
    pairs[0::2] = array.array("I", range(1, lines))
    pairs[1::2] = array.array("I", range(16, 16 * lines, 16))
    return name, qdc_image(folder, lines), orv_gpu_files.blob([(name, pairs.tobytes())])


def gpu_kernels(folder):
    print("\n=== a GPU kernel by its program file: one address, whole process")
    binary, path = folder / "k.clbin", folder / "k.clpdb"
    binary.write_bytes(b"")

    def show(what, count, unit, family, kernel, address):
        os.truncate(binary, address + 16)
        command = [ORV, "symbolize", "--arch", family, "--target-name", kernel, "-fpe", binary, hex(address)]
        answer = subprocess.run(command, check=True, capture_output=True, text=True).stdout.strip()
        ours, memory = measure(command, 3)
        print(f"  {what}: {path.stat().st_size / 1048576:6.1f} MiB, {ours:8.1f} ms, {ours * 1e6 / count:6.1f} ns a {unit}, "
              f"{memory:7.1f} MiB; {answer}")

    for lines in (5_000_000, 10_000_000, 20_000_000):
        path.write_bytes(orv_gpu_files.rln(["unknown.cl"], ["k"], [(0, rln_kernel(lines))]))
        show(f"RLN, {lines:10,} lines", lines, "line", "rln1", "k", 8 * lines + 4000)
        path.write_bytes(orv_gpu_files.qdc([qdc_kernel(folder, "k", lines)]))
        show(f"QDC, {lines:10,} lines", lines, "line", "qdc1", "k", 8 * lines + 4000)
    image, lines = qdc_image(folder, 2000), rln_kernel(2000)
    for count in (256, 512, 1024):
        names = [f"kernel{i}" for i in range(count)]
        path.write_bytes(orv_gpu_files.rln(["unknown.cl"], names, [(i, lines) for i in range(count)]))
        show(f"RLN, {count:4,} kernels of 2,000 lines", count, "kernel", "rln1", names[-1], 1000)
        path.write_bytes(orv_gpu_files.qdc([(name, image, orv_gpu_files.blob([(name, [(1000, 16)])])) for name in names]))
        show(f"QDC, {count:4,} kernels of 2,000 lines", count, "kernel", "qdc1", names[-1], 1000)


with tempfile.TemporaryDirectory() as name:
    gpu_kernels(pathlib.Path(name))
    kernel_lists(pathlib.Path(name))
    remarks(pathlib.Path(name))
    oat_files(pathlib.Path(name))
