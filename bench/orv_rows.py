# SPDX-License-Identifier: Apache-2.0
# SPDX-FileCopyrightText: The ORV authors
"""Every row of a module, as llvm-dwarfdump prints it and as `orv lines` gives it out, file by file.

    orv_rows.py MODULE...

A row stands for the stretch up to the next one of its sequence. Stretches of file 0 and in no code of the
module are left out, as are those that run backwards.
"""

import collections
import json
import os
import re
import subprocess
import sys

ORV = os.environ.get("ORV", "orv")


def output(*command):
    return subprocess.run(command, capture_output=True, text=True, check=True).stdout


def code_ranges(module):
    found = []
    for line in output("readelf", "-SW", module).splitlines():
        match = re.match(r" *\[ *\d+\] \S+ +\S+ +(\w{16}) \w+ (\w+) \w+ +(\w*) ", line)
        if match and "X" in match[3]:
            found.append((int(match[1], 16), int(match[1], 16) + int(match[2], 16)))
    return found


def units(module):
    """Directory of the unit at each offset of a line table, and the unit's id."""
    found = collections.defaultdict(list)
    unit, directory, table = None, "", None
    for line in output("llvm-dwarfdump", "--debug-info", "--recurse-depth=0", module).splitlines() + ["end: Compile Unit:"]:
        if "Compile Unit:" in line:
            if table is not None:
                found[table].append((unit, directory))
            unit, directory, table = line.split(":")[0], "", None
        elif match := re.search(r"DW_AT_comp_dir\s+\(\"(.*)\"\)", line):
            directory = match[1]
        elif match := re.search(r"DW_AT_stmt_list\s+\((0x\w+)\)", line):
            table = int(match[1], 16)
    return found


def join(directory, name):
    if name.startswith("/") or not directory:
        return name
    return directory + ("" if directory.endswith("/") else "/") + name


def expected(module):
    rows = collections.defaultdict(list)
    owners = units(module)
    code = code_ranges(module)
    current, directories, files, previous = [], {}, {}, None
    pending = None

    def path(number, compilation):
        name, index = files[number]
        if index == 0:
            return join(compilation, name)
        return join(join(compilation, directories[index]), name)

    for line in output("llvm-dwarfdump", "--debug-line", module).splitlines():
        if match := re.match(r"debug_line\[(0x\w+)\]", line):
            current, directories, files, previous = owners.get(int(match[1], 16), []), {}, {}, None
        elif match := re.match(r"include_directories\[ *(\d+)\] = \"(.*)\"", line):
            directories[int(match[1])] = match[2]
        elif match := re.match(r"file_names\[ *(\d+)\]:", line):
            pending = int(match[1])
        elif match := re.match(r" +name: \"(.*)\"", line):
            files[pending] = (match[1], 0)
        elif match := re.match(r" +dir_index: (\d+)", line):
            files[pending] = (files[pending][0], int(match[1]))
        elif match := re.match(r"0x(\w{16}) +(\d+) +(\d+) +(\d+) +\d+ +(\d+)(.*)", line):
            address, number, column, file, discriminator = int(match[1], 16), *map(int, match.groups()[1:5])
            if previous and previous[0] <= address and previous[3] in files and \
                    any(start <= previous[0] < end for start, end in code):
                for _, compilation in current:
                    rows[path(previous[3], compilation)].append((previous[0], address, previous[1], previous[2],
                                                                 previous[4]))
            previous = None if "end_sequence" in match[6] else (address, number, column, file, discriminator)
    return {file: sorted(found) for file, found in rows.items()}


def ours(module):
    rows = collections.defaultdict(list)
    for line in output(ORV, "lines", "--all", "--json", module).splitlines():
        row = json.loads(line)
        rows[row["file"]].append((int(row["start"], 16), int(row["end"], 16), row["line"], row["column"],
                                  row["discriminator"]))
    return {file: sorted(found) for file, found in rows.items()}


def check(module):
    mine, theirs = ours(module), expected(module)
    total = sum(map(len, theirs.values()))
    differing = [file for file in mine.keys() | theirs.keys() if mine.get(file) != theirs.get(file)]
    print(f"{module}: {total} rows in {len(theirs)} files, {len(differing)} files differ")
    for file in differing[:3]:
        left, right = set(mine.get(file, [])), set(theirs.get(file, []))
        print(f"  {file}: only ours {sorted(left - right)[:3]}, only theirs {sorted(right - left)[:3]}, "
              f"{len(mine.get(file, []))} and {len(theirs.get(file, []))} rows")
    return bool(differing) or total == 0


if __name__ == "__main__":
    sys.exit(1 if sum([check(module) for module in sys.argv[1:]]) else 0)
