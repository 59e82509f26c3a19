# SPDX-License-Identifier: Apache-2.0
# SPDX-FileCopyrightText: The ORV authors
"""Builds a copy of the tree by the lines that the README gives for building without the script.

    orv_plain_build.py SOURCES PREFIX"""

import pathlib
import re
import subprocess
import sys

sources, prefix = map(pathlib.Path, sys.argv[1:])
readme = (sources / "README.md").read_text()
block = re.search(r"## Building without the script\n.*?```\n(.*?)```", readme, re.S)[1]
lines = [line for line in block.splitlines() if line.startswith("cmake ")]
assert len(lines) == 3, lines
for line in lines:
    subprocess.run(line.replace("/usr/local", str(prefix)), shell=True, check=True, cwd=sources)
