# SPDX-License-Identifier: Apache-2.0
# SPDX-FileCopyrightText: The ORV authors
"""Our answers beside those of llvm-symbolizer and addr2line, over every function of a module.

    orv_compare.py MODULE            agreement, and the first differences
    orv_compare.py --reading classic MODULE
    orv_compare.py --speed MODULE    time and memory of one address and of many, side by side

Every instruction of the functions that our debug information has at unit level is asked for, and of all others the
start and ten random addresses inside. File and line are compared with both; the outermost function and the chain of inlined calls, with the lines of the calls, with
llvm-symbolizer. A difference is counted under what is known to cause it (docs/lines.md,
docs/inlines.md), or as unexplained.
"""

import argparse
import bisect
import collections
import json
import os
import pathlib
import random
import re
import subprocess
import sys
import tempfile
import time

ORV = os.environ.get("ORV", "orv")
INSIDE = 10


def run(command, text):
    return subprocess.run(command, input=text, capture_output=True, text=True, errors="replace", check=False).stdout


def functions(module):
    """(address, size, name) of all function symbols that are defined and have a size."""
    listed = run(["readelf", "-sW", module], "")
    found = {}
    for line in listed.splitlines():
        words = line.split()
        if len(words) >= 8 and words[3] in ("FUNC", "IFUNC") and words[6] != "UND":
            size = int(words[2], 0)
            if size:
                found.setdefault((int(words[1], 16), size), words[7])
    return sorted((address, size, name) for (address, size), name in found.items())


def instructions(module):
    """The addresses of all instructions, in order."""
    listed = run(["objdump", "-d", "--no-show-raw-insn", module], "")
    return sorted({int(address, 16) for address in re.findall(r"^ +([0-9a-f]+):\t", listed, re.MULTILINE)})


def addresses_of(module, found):
    """[(address, function)], the function as functions() gives it."""
    chance = random.Random(len(found))
    known, every = entered(module), instructions(module)
    addresses = []
    for function in found:
        address, size, _ = function
        if holds(known, address):
            inside = every[bisect.bisect_left(every, address):bisect.bisect_left(every, address + size)]
        else:
            inside = [address] + [address + chance.randrange(size) for _ in range(INSIDE)]
        addresses += [(at, function) for at in inside]
    return addresses


def frames_of(lines):
    """[[(function, (file, line)), ...], ...] of symbolize -f -i -a, the innermost first."""
    answers = []
    function = None
    for line in lines:
        if re.fullmatch(r"0x[0-9a-f]{8,16}", line):
            answers.append([])
        elif function is None:
            function = line
        else:
            answers[-1].append((function, split_line(line)))
            function = None
    return answers


def ours(module, addresses):
    return frames_of(run([ORV, "symbolize", "-fia", "-e", module], "".join(f"{a:x}\n" for a in addresses)).splitlines())


def entered(module):
    """Stretches of the functions that our debug information has, as sorted starts and their ends."""
    stretches = []
    for line in run([ORV, "symbols", "--kind", "function", "--json", module], "").splitlines():
        symbol = json.loads(line)
        if symbol["unit"] is not None:
            start = int(symbol["start"], 16)
            stretches.append((start, start + symbol["size"]))
    return sorted(stretches)


def holds(stretches, address):
    at = bisect.bisect_right(stretches, (address, float("inf")))
    return any(start <= address < end for start, end in stretches[max(0, at - 50):at])


def split_line(text):
    """("file", line) of addr2line's words; line 0 where unknown."""
    match = re.match(r"(.*):(\d+|\?)(?: \(discriminator \d+\))?$", text)
    file, line = match.groups()
    return (file, 0 if line == "?" else int(line))


def addr2line(module, addresses):
    text = run(["addr2line", "-e", module], "".join(f"{a:x}\n" for a in addresses))
    return [split_line(line) for line in text.splitlines()]


def llvm_symbolizer(module, addresses):
    """The same as ours."""
    text = run(["llvm-symbolizer", "--no-demangle", "--output-style=LLVM", "-e", module],
               "".join(f"0x{a:x}\n" for a in addresses))
    answers = []
    frames = []
    for line in text.splitlines() + [""]:
        if line:
            frames.append(line)
        elif frames:
            places = [frame.rsplit(":", 2)[:2] for frame in frames[1::2]]
            answers.append([(name, (file, int(number))) for name, (file, number) in zip(frames[::2], places)])
            frames = []
    return answers


def same_file(a, b):
    """Paths are joined alike, but one may be normalised."""
    return a == b or os.path.normpath(a) == os.path.normpath(b)


def same_line(a, b):
    if a[1] == 0 and b[1] == 0:
        return True
    return a[1] == b[1] and same_file(a[0], b[0])


def same_name(mine, theirs):
    """Without a linkage name theirs is the plain one, and ours says what it stands in."""
    mine, theirs = (name if "<" in name or "(" in name else name.split(".")[0] for name in (mine, theirs))
    return mine == theirs or (not mine.startswith("_Z") and mine.endswith("::" + theirs))


class Comparison:
    def __init__(self, module, found, addresses):
        self.module = module
        self.addresses, self.owners = [at for at, _ in addresses], [function for _, function in addresses]
        addresses = self.addresses
        self.function_names = {name for _, _, name in found}
        self.ours = ours(module, addresses)
        self.llvm = llvm_symbolizer(module, addresses)
        self.addr2line = addr2line(module, addresses)
        if not len(self.ours) == len(self.llvm) == len(self.addr2line) == len(addresses):
            sys.exit(f"{module}: {len(addresses)} addresses, answers: {len(self.ours)} of ours, {len(self.llvm)} of "
                     f"llvm-symbolizer, {len(self.addr2line)} of addr2line")
        self.differences = collections.defaultdict(list)
        self.entered = entered(module)

    def is_same_chain(self, i):
        """The same calls; the outermost function and the innermost line are compared by themselves."""
        mine, theirs = self.ours[i], self.llvm[i]
        names = all(same_name(a[0], b[0]) for a, b in zip(mine[:-1], theirs[:-1]))
        return len(mine) == len(theirs) and names and all(same_line(a[1], b[1]) for a, b in zip(mine[1:], theirs[1:]))

    def count_chain(self, agreed, i):
        if len(self.llvm[i]) > 1 and not holds(self.entered, self.addresses[i]):
            agreed["not entered"] += 1
            return
        agreed["chains"] += 1
        agreed["deepest"] = max(agreed["deepest"], len(self.llvm[i]))
        if self.is_same_chain(i):
            agreed["chain"] += 1
        else:
            self.differences["chain"].append((self.addresses[i], self.ours[i], self.llvm[i]))

    def count(self):
        agreed = collections.Counter()
        for i, address in enumerate(self.addresses):
            self.count_chain(agreed, i)
            function, line = self.ours[i][-1][0], self.ours[i][0][1]
            theirs, their_line = self.llvm[i][-1][0], self.llvm[i][0][1]
            if function == theirs or self.is_same_function(i):
                agreed["function"] += 1
            elif same_name(function, theirs):
                agreed["function"] += 1
                agreed["clones"] += 1
            elif function == theirs.rstrip("_") or theirs == "MAIN__":
                agreed["function"] += 1
                agreed["underscores"] += 1
            elif theirs not in self.function_names and function == self.owners[i][2]:
                agreed["function"] += 1
                agreed["data"] += 1
            else:
                self.differences["function"].append((address, function, theirs))
            for what, other in (("line, llvm-symbolizer", their_line), ("line, addr2line", self.addr2line[i])):
                if same_line(line, other):
                    agreed[what] += 1
                else:
                    self.differences[what].append((address, line, other))
            both = same_line(line, their_line) or same_line(line, self.addr2line[i])
            agreed["line, one of them"] += both
        return agreed

    def is_same_function(self, i):
        """The same symbol under another of its names: an alias, or the variant of a constructor."""
        mine, theirs = self.ours[i][-1][0], self.llvm[i][-1][0]
        return {mine, theirs} <= self.names_at(self.owners[i][0])

    def names_at(self, address):
        if not hasattr(self, "names"):
            self.names = collections.defaultdict(set)
            for line in run(["readelf", "-sW", self.module], "").splitlines():
                words = line.split()
                if len(words) >= 8 and words[0][:-1].isdigit():
                    self.names[int(words[1], 16)].add(words[7].split("@")[0])
        return self.names[address]


def check_announced(module, addresses, answers):
    """Addresses on the command line are announced ahead, and must give what all others give."""
    chosen = random.Random(7).sample(range(len(addresses)), min(120, len(addresses)))
    differing = 0
    for begin in range(0, len(chosen), 4):
        few = chosen[begin:begin + 4]
        got = frames_of(run([ORV, "symbolize", "-fia", "-e", module, *(f"{addresses[i]:x}" for i in few)], "").splitlines())
        for i, answer in zip(few, got):
            if answer != answers[i]:
                differing += 1
                print(f"  0x{addresses[i]:x}: {answer} by argument, {answers[i]} by input")
    return differing


def compare(module, show, require, require_chain=0):
    found = functions(module)
    comparison = Comparison(module, found, addresses_of(module, found))
    addresses = comparison.addresses
    agreed = comparison.count()
    announced = check_announced(module, addresses, comparison.ours)
    total = max(len(addresses), 1)
    print(f"{module}: {len(found)} functions, {len(addresses)} addresses")
    failed = announced > 0
    for what in ("function", "line, llvm-symbolizer", "line, addr2line", "line, one of them"):
        share = 100 * agreed[what] / total
        print(f"  {what:24} {share:8.3f} %  {total - agreed[what]:6} differ")
        failed |= what in ("function", "line, one of them") and share < require
    chains = max(agreed["chains"], 1)
    print(f"  {'chain of inlined calls':24} {100 * agreed['chain'] / chains:8.3f} %  {chains - agreed['chain']:6} differ"
          f", up to {agreed['deepest']} deep")
    failed |= 100 * agreed["chain"] / chains < require_chain
    if agreed["not entered"]:
        print(f"  {100 * agreed['not entered'] / total:.1f} % of the addresses are left out of the chains: their functions are"
              " written inside a namespace or class")
    if agreed["clones"]:
        print(f"  {agreed['clones']} addresses in clones and cold parts, which we name by the function in the source")
    if agreed["data"]:
        print(f"  {agreed['data']} addresses that llvm-symbolizer names by data of another section (relocatable object)")
    if agreed["underscores"]:
        print(f"  {agreed['underscores']} addresses in Fortran procedures, which we name as the source does: no underscore, no MAIN__")
    for what, differences in comparison.differences.items():
        for address, mine, theirs in differences[:show]:
            print(f"  {what}: 0x{address:x}: ours {mine}, theirs {theirs}")
    return failed


def measure(command, text, repeat):
    """Best wall time in seconds, and peak memory in MiB."""
    best, memory = None, 0
    with tempfile.NamedTemporaryFile("w") as file:
        file.write(text)
        file.flush()
        for _ in range(repeat):
            with open(file.name) as source:
                begin = time.perf_counter()
                process = subprocess.Popen(command, stdin=source, stdout=subprocess.DEVNULL,
                                           stderr=subprocess.DEVNULL)
                _, _, usage = os.wait4(process.pid, 0)
                elapsed = time.perf_counter() - begin
                process.returncode = 0
            best = elapsed if best is None else min(best, elapsed)
            memory = max(memory, usage.ru_maxrss / 1024)
    return best, memory


def speed(module):
    found = functions(module)
    chance = random.Random(1)
    many = []
    for _ in range(100000):
        address, size, _ = chance.choice(found)
        many.append(address + chance.randrange(size))
    print(f"{module}: {len(found)} functions")
    for what, addresses, inlines, repeat in (("one address", many[:1], "", 20), ("100,000 addresses", many, "", 3),
                                             ("one, outermost", many[:1], "--no-inlines", 20),
                                             ("100,000, outermost", many, "--no-inlines", 3),
                                             ("one address, -i", many[:1], "-i", 20), ("100,000, -i", many, "-i", 3)):
        text = "".join(f"0x{a:x}\n" for a in addresses)
        one = [f"0x{addresses[0]:x}"] if len(addresses) == 1 else []
        chain = ["-i"] if inlines == "-i" else []
        commands = {
            "orv": [ORV, "symbolize", "-f", *([inlines] if inlines else []), "-e", module, *one],
            "llvm-symbolizer": ["llvm-symbolizer", "--no-demangle", *(chain or ["--no-inlines"]), "-e", module, *one],
            "addr2line": ["addr2line", "-f", *chain, "-e", module, *one],
        }
        times = {}
        for name, command in commands.items():
            if name == "addr2line" and len(addresses) > 1:
                text_of = "".join(f"0x{a:x}\n" for a in addresses[:1000])
                elapsed, memory = measure(command, text_of, 1)
                print(f"  {what:18} {name:16} {elapsed * 1000:9.1f} ms for the first 1,000 {memory:8.1f} MiB")
                continue
            times[name], memory = measure(command, text, repeat)
            print(f"  {what:18} {name:16} {times[name] * 1000:9.1f} ms {memory:8.1f} MiB"
                  f"   {times[name] / times['orv']:6.2f} of orv's time")


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--speed", action="store_true", help="measure in place of comparing")
    parser.add_argument("--reading", choices=("classic", "modern"), help="which of orv's readings (default: its own)")
    parser.add_argument("--show", type=int, default=10, help="how many differences of each kind to print")
    parser.add_argument("--require", type=float, default=0, help="fail if less than so many per cent agree")
    parser.add_argument("modules", nargs="+", metavar="MODULE")
    options = parser.parse_args()
    if options.reading:
        os.environ["ORV_READING"] = options.reading
    failed = False
    for module in options.modules:
        if options.speed:
            speed(module)
        else:
            failed |= compare(module, options.show, options.require)
    sys.exit(1 if failed else 0)


if __name__ == "__main__":
    main()
