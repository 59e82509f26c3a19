# SPDX-License-Identifier: Apache-2.0
# SPDX-FileCopyrightText: The ORV authors
"""Kernels by their lists: every boundary of a real System.map and of /proc/kallsyms, a kernel image of Debian's, a list
of 32 bits, what the client says when a list is of no use.

orv_kernels_test.py FOLDER [--all]: what is fetched stays in FOLDER; --all: ask for each symbol, not for a sample."""

import json
import os
import pathlib
import random
import subprocess
import sys
import tempfile

ORV = os.environ["ORV"]
CACHE = pathlib.Path(sys.argv[1]).resolve()
SAMPLE = None if "--all" in sys.argv else 4000
KINDS = {"T": "function", "D": "data", "G": "other"}
failures = []


def expect(what, got, wanted):
    if got != wanted:
        failures.append(f"{what}: got {got!r}, wanted {wanted!r}")


def orv(*arguments, cwd=None, text_in=None):
    return subprocess.run([ORV, *arguments], cwd=cwd, input=text_in, capture_output=True, text=True)


def records(*arguments, **more):
    return [json.loads(line) for line in orv(*arguments, **more).stdout.splitlines()]


def parse(text):
    """(address, kind, name) of each line in front of the first '['."""
    found = []
    for line in text.splitlines():
        words = line.split()
        if len(words) > 3 and words[3].startswith("["):
            break
        if words[1].upper() in KINDS and words[1] in "TtDdGg":
            found.append((int(words[0], 16), KINDS[words[1].upper()], words[2]))
    return found


def check(what, folder, kernel, text, *options):
    """Every symbol that has a place in the kernel begins a stretch that ends at the next, and answers inside."""
    info = records("info", "--json", *options, kernel, cwd=folder)[0]
    expect(f"{what}: format", info["symbol_file_format"], "kernel symbol list")
    first = 0xFFFFFFFF80000000 if len(text.split(None, 1)[0]) == 16 else 0x80000000
    base = next(int(words[0], 16) for words in map(str.split, text.splitlines())
                if words[1] in "TtA" and int(words[0], 16) > first)
    expect(f"{what}: base and size", (info["preferred_load_address"], info["image_size"]), (hex(base), 0x7FFFFFFF + first - base))
    at = {}
    for address, kind, name in parse(text):
        if first <= address <= first + 0x7FFFFFFF:
            at.setdefault(address, []).append((kind, name))
    starts = sorted(at)
    pieces = {int(piece["start"], 16): piece for piece in
              records("symbols", "--json", "--disjoint", *options, kernel, cwd=folder)}
    # The last has no next that would end it, and whatever is the end of the kernel's place may hold nothing.
    for start, end in zip(starts, starts[1:]):
        piece = pieces.get(start)
        if piece is None:
            failures.append(f"{what}: nothing begins at {start:x}, where {at[start]} should")
        elif (piece["kind"], piece["name"]) not in at[start] or piece["size"] != end - start:
            failures.append(f"{what}: at {start:x} {piece}, wanted one of {at[start]} and {end - start} bytes")
        if len(failures) > 20:
            return
    listed = {(int(symbol["start"], 16), symbol["kind"], symbol["name"]) for symbol in
              records("symbols", "--json", *options, kernel, cwd=folder)}
    expect(f"{what}: all names", listed, {(start, *symbol) for start in starts for symbol in at[start]})
    functions = [(start, end) for start, end in zip(starts, starts[1:]) if at[start][0][0] == "function"]
    chosen = functions if SAMPLE is None else random.Random(1).sample(functions, min(SAMPLE, len(functions)))
    asked = [address for start, end in chosen for address in (start, random.Random(start).randrange(start, end))]
    answers = orv("symbolize", "-f", "--no-inlines", "-e", kernel, *options, cwd=folder,
                  text_in="".join(f"{address:x}\n" for address in asked)).stdout.splitlines()[::2]
    for i, (start, _) in enumerate(chosen):
        for answer in answers[2 * i:2 * i + 2]:
            if ("function", answer) not in at[start]:
                failures.append(f"{what}: {answer!r} in the stretch from {start:x}, wanted one of {at[start]}")
    print(f"{what}: {len(starts)} boundaries, {len(listed)} symbols, {len(asked)} addresses asked")


READ_URL = "import shutil, sys, urllib.request; " \
    "shutil.copyfileobj(urllib.request.urlopen(sys.argv[1], timeout=60), sys.stdout.buffer)"


def take(package, pattern, path):
    """One file of a package of Debian's. What stands behind it is not waited for. False if it can't be had."""
    uri = subprocess.run(["apt-get", "download", "--print-uris", package], capture_output=True, text=True).stdout.split("'")
    if len(uri) < 2:
        return False
    part = path.with_suffix(".part")
    with open(part, "wb") as out:
        reading = subprocess.Popen([sys.executable, "-c", READ_URL, uri[1]], stdout=subprocess.PIPE, stderr=subprocess.DEVNULL)
        unpacking = subprocess.Popen(["dpkg-deb", "--fsys-tarfile", "/dev/stdin"], stdin=reading.stdout,
                                     stdout=subprocess.PIPE, stderr=subprocess.DEVNULL)
        reading.stdout.close()
        taking = subprocess.run(["tar", "-xOf", "-", "--wildcards", "--occurrence=1", pattern], stdin=unpacking.stdout, stdout=out)
        unpacking.stdout.close()
        unpacking.wait()
        reading.wait()
    if taking.returncode == 0:
        part.rename(path)
    return taking.returncode == 0


def fetch():
    """Debian's kernel for clouds and its list, which stands at the front of the package with the debug information."""
    kernel = CACHE / "vmlinuz-debian"
    CACHE.mkdir(parents=True, exist_ok=True)
    if not kernel.exists():
        depends = subprocess.run(["apt-cache", "depends", "linux-image-cloud-amd64"], capture_output=True, text=True).stdout
        names = [line.split()[-1] for line in depends.splitlines() if "Depends: linux-image-" in line]
        if not names or not take(f"{names[0]}-dbg", "./usr/lib/debug/boot/System.map-*", CACHE / "System.map-debian") or \
                not take(names[0], "./boot/vmlinuz-*", kernel):
            return None
    return kernel


def say(folder):
    """What is said of lists that are of no use, and of kernels that are not there."""
    (folder / "System.map-zero").write_text("0000000000000000 T _text\n0000000000000000 t next\n")
    (folder / "System.map-stub").write_text("ffffffffffffffff B The real System.map is elsewhere\n")
    (folder / "vmlinuz-list").write_text("")
    (folder / "vmlinux-folder").mkdir()
    os.mkfifo(folder / "fifo")
    for what, words, text, status in (
            ("hidden", ["symbolize", "-e", "vmlinux-zero", "0"], "all addresses are 0", 0),
            ("stub", ["symbolize", "-e", "vmlinux-stub", "0"], "has no symbol of code", 0),
            ("no list", ["symbolize", "-e", "vmlinux-none", "0"], "neither System.map-none nor kallsyms-none is there", 0),
            ("a folder", ["info", "/nowhere/vmlinux"], "is named without its folder", 1),
            ("lines", ["lines", "vmlinux-zero"], "tells of no units, files and lines", 1),
            ("no list of its", ["info", "--symbol-file", "vmlinuz-list", "vmlinux-none"], "is a compressed kernel, and no list", 1),
            ("a module for a list", ["info", "--symbol-file", "/bin/true", "vmlinux-none"], "is no companion of", 1),
            ("a pipe", ["info", "--symbol-file", "fifo", "vmlinux-none"], "is no regular file", 1),
            ("a folder for a kernel", ["info", "vmlinux-folder"], "cannot be opened", 1),
            ("candidates with nothing inside", ["candidates", "--offload", "/bin/true"], "carries no binary", 1),
            ("missing list", ["info", "--symbol-file", "nowhere", "vmlinux-none"], "cannot be opened", 1)):
        said = orv(*words, cwd=folder)
        expect(f"{what}: status", said.returncode, status)
        if said.stderr.count("\n") != 1 or text not in said.stderr:
            failures.append(f"{what}: {said.stderr!r} does not say {text!r} in one line")
    (folder / "System.map-wide").write_text("c0100000  T\t_text\n")
    expect("blanks", orv("symbolize", "-fe", "vmlinux-wide", "c0100000", cwd=folder).stderr, "")
    candidates = records("candidates", "--json", "vmlinux-zero", cwd=folder)
    expect("candidates", [(one["kind"], one["taken"], one["name"]) for one in candidates],
           [("kernel list", True, "System.map-zero"), ("kernel list", False, "kallsyms-zero")])


def main():
    with tempfile.TemporaryDirectory() as folder:
        folder = pathlib.Path(folder)
        say(folder)
        kallsyms = pathlib.Path("/proc/kallsyms").read_text() if os.access("/proc/kallsyms", os.R_OK) else ""
        if any(address for address, *_ in parse(kallsyms)):
            check("/proc/kallsyms", folder, "vmlinux", kallsyms, "--symbol-file", "/proc/kallsyms")
        else:
            print("SKIPPED /proc/kallsyms: it is not there, or hides its addresses")
        kernel = fetch()
        if kernel is None:
            print("SKIPPED a kernel of Debian's: its packages can't be had")
        else:
            text = (CACHE / "System.map-debian").read_text()
            # Absent, so that its name tells nothing; compressed; and a name that tells the width.
            check("System.map, no kernel", CACHE, "vmlinux-debian", text)
            check("System.map, vmlinuz", CACHE, "vmlinuz-debian", text)
            check("System.map, named", folder, "vmlinux-x86_64", text, "--symbol-file", str(CACHE / "System.map-debian"))
            narrow = "".join(line[8:] + "\n" for line in text.splitlines() if line.startswith("ffffffff8"))
            (folder / "System.map-narrow").write_text(narrow)
            check("System.map of 32 bits", folder, "vmlinux-narrow", narrow)
    for failure in failures:
        print("FAILED", failure)
    sys.exit(1 if failures else 0)


main()
