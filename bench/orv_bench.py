# SPDX-License-Identifier: Apache-2.0
# SPDX-FileCopyrightText: The ORV authors
"""Measures the client against its peers on the same work, side by side in one run.

    orv_bench.py ORV

A large stripped library of the system, and a program with many symbols that is built here. Each
figure is the best of several runs of the whole process."""

import os
import pathlib
import random
import re
import subprocess
import sys
import tempfile
import time

import orv_programs

ORV = sys.argv[1]
RUNS = 7
QUESTIONS = 100_000


def measure(command, text, runs):
    """Best wall time in seconds and peak memory in KiB."""
    best = float("inf")
    for _ in range(runs):
        with tempfile.TemporaryFile() as source, open(os.devnull, "w") as sink:
            source.write(text.encode())
            source.seek(0)
            begin = time.perf_counter()
            subprocess.run(command, stdin=source, stdout=sink, stderr=sink, check=True)
            best = min(best, time.perf_counter() - begin)
    # A process starts with the memory of the one that made it, so a small one has to.
    with tempfile.NamedTemporaryFile("r") as report:
        subprocess.run(["time", "-f", "%M", "-o", report.name, *command], input=text, stdout=subprocess.DEVNULL,
                       stderr=subprocess.DEVNULL, check=True, text=True)
        peak = int(report.read().split()[-1])
    return best, peak


def code_segment(module):
    for line in subprocess.run(["readelf", "-SW", module], capture_output=True, text=True).stdout.splitlines():
        match = re.search(r"\] \.text +\S+ +(\w+) +\w+ +(\w+)", line)
        if match:
            return int(match[1], 16), int(match[2], 16)
    sys.exit(f"{module}: no .text")


def large_library():
    folder = pathlib.Path("/usr/lib/x86_64-linux-gnu")
    found = [p for p in folder.glob("lib*.so*") if p.is_file() and not p.is_symlink()]
    return str(max(found, key=lambda p: p.stat().st_size))


def many_symbols(folder):
    source = folder / "many.s"
    with open(source, "w") as out:
        out.write("\t.text\n\t.globl _start\n_start:\tret\n")
        for i in range(25_000):
            name = f"_ZN4many8function{len(str(i)) + 1}n{i}Eii"
            out.write(f"\t.globl {name}\n\t.type {name}, @function\n{name}:\t.fill {16 + i % 50}, 1, 0x90\n"
                      f"\t.size {name}, .-{name}\n")
    subprocess.run(["as", "-o", folder / "many.o", source], check=True)
    subprocess.run(["ld", "-o", folder / "many", folder / "many.o"], check=True)
    return str(folder / "many")


def table(title, rows):
    print(f"\n{title}")
    print(f"  {'':34} {'time':>10} {'ours : peer':>12} {'peak memory':>13} {'ours : peer':>12}")
    ours = rows[0][1]
    for name, figures in rows:
        seconds, memory = figures
        ratio = "" if name == rows[0][0] else f"{ours[0] / seconds:12.2f}"
        share = "" if name == rows[0][0] else f"{ours[1] / memory:12.2f}"
        print(f"  {name:34} {seconds * 1000:8.1f}ms {ratio:>12} {memory / 1024:10.1f}MiB {share:>12}")


def compare(module):
    size = os.path.getsize(module) / 1e6
    print(f"\n=== {module} ({size:.0f} MB)")
    start, length = code_segment(module)
    random.seed(20)
    one = f"{start + length // 2:#x}\n"
    many = "".join(f"{start + random.randrange(length):#x}\n" for _ in range(QUESTIONS))
    peers = [("orv symbolize -f", [ORV, "symbolize", "-f", "-e", module]),
             ("llvm-symbolizer --no-demangle", ["llvm-symbolizer", "--no-demangle", "-e", module]),
             ("llvm-symbolizer", ["llvm-symbolizer", "-e", module]),
             ("addr2line -f", ["addr2line", "-f", "-e", module])]
    table("one address, whole process", [(name, measure(command, one, 15)) for name, command in peers])
    demangled = [("orv symbolize -f -C", [ORV, "symbolize", "-fC", "-e", module]), peers[2]]
    table(f"{QUESTIONS:,} random addresses, names as they are",
          [(name, measure(command, many, RUNS)) for name, command in peers[:2]])
    table(f"{QUESTIONS:,} random addresses, names demangled",
          [(name, measure(command, many, RUNS)) for name, command in demangled])


def heap(module, *rows):
    """Heap of the library once all symbols are loaded, without what the process has before; and of its line rows."""
    program = pathlib.Path(ORV).resolve().parents[2] / "bench" / "orv_bench_heap"
    print(subprocess.run([program, module, *rows], check=True, capture_output=True, text=True).stdout.rstrip())


def addresses_in_functions(module, count):
    """Random addresses inside the functions of a module."""
    found = []
    for line in subprocess.run(["readelf", "-sW", module], capture_output=True, text=True).stdout.splitlines():
        words = line.split()
        if len(words) >= 8 and words[3] == "FUNC" and words[6] != "UND" and int(words[2], 0):
            found.append((int(words[1], 16), int(words[2], 0)))
    chance = random.Random(3)
    return [start + chance.randrange(size) for start, size in (chance.choice(found) for _ in range(count))]


def all_through(module, places=100):
    """Addresses that reach nearly all inlined bodies."""
    functions = set()
    for line in subprocess.run(["readelf", "-sW", module], capture_output=True, text=True).stdout.splitlines():
        words = line.split()
        if len(words) >= 8 and words[3] == "FUNC" and words[6] != "UND" and int(words[2], 0):
            functions.add((int(words[1], 16), int(words[2], 0)))
    return "".join(f"{start + size * i // places:#x}\n" for start, size in sorted(functions) for i in range(places))


def debug_program(module):
    """Function and line, where there is debug information."""
    print(f"\n=== {module} ({os.path.getsize(module) / 1e6:.0f} MB)")
    many = addresses_in_functions(module, QUESTIONS)
    one = [f"{many[0]:#x}"]
    text = "".join(f"{a:#x}\n" for a in many)
    peers = [("orv symbolize -f --no-inlines", [ORV, "symbolize", "-f", "--no-inlines", "-e", module]),
             ("orv symbolize -f", [ORV, "symbolize", "-f", "-e", module]),
             ("llvm-symbolizer, no inlines", ["llvm-symbolizer", "--no-demangle", "--no-inlines", "-e", module]),
             ("llvm-symbolizer", ["llvm-symbolizer", "--no-demangle", "-e", module]),
             ("addr2line -f", ["addr2line", "-f", "-e", module])]
    table("function and line of one address, whole process",
          [(name, measure([*command, *one], "", 15)) for name, command in peers])
    table(f"function and line of {QUESTIONS:,} random addresses",
          [(name, measure(command, text, RUNS)) for name, command in peers[:4]])
    chains = [("orv symbolize -f -i", [ORV, "symbolize", "-f", "-i", "-e", module]),
              ("llvm-symbolizer -i", ["llvm-symbolizer", "--no-demangle", "-i", "-e", module]),
              ("addr2line -f -i", ["addr2line", "-f", "-i", "-e", module])]
    table("chain of inlined calls at one address, whole process",
          [(name, measure([*command, *one], "", 15)) for name, command in chains])
    table(f"chains at {QUESTIONS:,} random addresses", [(name, measure(command, text, RUNS)) for name, command in chains[:2]])
    table("chains all through every function",
          [(name, measure(command, all_through(module), 2)) for name, command in chains[:2]])
    table("everything, whole process", [(f"orv {what}", measure([ORV, what, module], "", 3)) for what in ("symbols", "lines")])
    lines = subprocess.run([ORV, "lines", module], capture_output=True, text=True, check=True).stdout.count("\n")
    heap(module, str(lines))


def growth(folder, compiler):
    """The same program linked 1, 2 and 4 times over."""
    print(f"\n=== growth, {compiler}: the same units 1, 2 and 4 times over")
    first = None
    for copies in (1, 2, 4):
        module = str(orv_programs.build(folder, compiler, 6, copies))
        text = "".join(f"{a:#x}\n" for a in addresses_in_functions(module, QUESTIONS))
        seconds, memory = measure([ORV, "symbolize", "-f", "-e", module], text, 5)
        load, _ = measure([ORV, "symbolize", "-f", "-e", module], text.splitlines()[0] + "\n", 9)
        first = first or (load, seconds, memory)
        print(f"  {copies} times: load {load * 1000:7.1f}ms ({load / first[0]:.2f}), {QUESTIONS:,} addresses "
              f"{seconds * 1000:7.1f}ms ({seconds / first[1]:.2f}), memory {memory / 1024:6.1f}MiB ({memory / first[2]:.2f})")


with tempfile.TemporaryDirectory() as name:
    programs = pathlib.Path(ORV).resolve().parents[2] / "programs"
    for compiler in ("g++", "clang++"):
        debug_program(str(orv_programs.build(programs, compiler, 12, 1)))
    growth(programs, "g++")
    modules = [large_library(), many_symbols(pathlib.Path(name))]
    for module in modules:
        compare(module)
    print("\n=== heap of a loaded module")
    for module in modules:
        heap(module)
