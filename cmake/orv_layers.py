# SPDX-License-Identifier: Apache-2.0
# SPDX-FileCopyrightText: The ORV authors
"""Holds the includes of the tree against cmake/layers.txt; names each one that points up."""

import pathlib
import re
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent
RANKS = {}
for number, line in enumerate(reversed((ROOT / "cmake/layers.txt").read_text().splitlines())):
    for folder in line.split("#")[0].split():
        RANKS[folder] = number

wrong = 0
count = 0
for folder, rank in RANKS.items():
    for path in sorted((ROOT / folder).glob("*.*")):
        for number, line in enumerate(path.read_text().splitlines(), 1):
            included = re.match(r'#include "(\w+)/', line)
            if not included or included[1] in (folder, "orv"):
                continue
            count += 1
            if included[1] not in RANKS or RANKS[included[1]] >= rank:
                print(f"{folder}/{path.name}:{number}: {line.strip()} points up: {folder} lies below {included[1]}")
                wrong += 1
for path in sorted((ROOT / "tools/orv").glob("*.*")):
    for number, line in enumerate(path.read_text().splitlines(), 1):
        if re.match(r'#include "(?!orv_cli_)', line):
            print(f"tools/orv/{path.name}:{number}: {line.strip()}: the client includes <orv/...> and its own headers")
            wrong += 1
print(f"layers: {count} includes between folders, {wrong} of them wrong")
sys.exit(wrong != 0)
