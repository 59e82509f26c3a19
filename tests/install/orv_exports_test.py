# SPDX-License-Identifier: Apache-2.0
# SPDX-FileCopyrightText: The ORV authors
"""The dynamic symbols of the built library against the list that clients rely on."""

import os
import pathlib
import re
import subprocess
import sys

lib = os.environ["ORV_LIB"]
listed = pathlib.Path(__file__).with_name("exports.txt").read_text().splitlines()
expected = set()
for head, variants, tail in (re.fullmatch(r"(\w+)(?:{(.*)})?(.*)", line).groups() for line in listed[1:]):
    expected |= {head + variant + tail for variant in (variants or "").split(",")}
output = subprocess.run(["nm", "-D", "--defined-only", lib], check=True, capture_output=True, text=True).stdout
found = {line.split()[-1] for line in output.splitlines()}
for name in sorted(found - expected):
    print(f"exported, and not in the list: {name}")
for name in sorted(expected - found):
    print(f"in the list, and not exported: {name}")
needed = subprocess.run(["readelf", "-d", lib], check=True, capture_output=True, text=True).stdout
if "[liborv.so.3.30]" not in needed:
    print("the library's name is not liborv.so.3.30")
    sys.exit(1)
print(f"{len(found)} symbols")
sys.exit(found != expected)
