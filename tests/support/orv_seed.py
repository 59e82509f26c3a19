# SPDX-License-Identifier: Apache-2.0
# SPDX-FileCopyrightText: The ORV authors
"""Plants slips in a copy of the tree, one at a time, and counts those that the unit tests see.

    orv_seed.py LIST FOLDER [PREFIX]    FOLDER: the copy, with its own build; PREFIX: files that begin with it

The copy is made by git, so what is not committed is not in it."""

import pathlib
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent.parent
LIST, COPY = pathlib.Path(sys.argv[1]), pathlib.Path(sys.argv[2])
PREFIX = sys.argv[3] if len(sys.argv) > 3 else ""


def slips():
    title = old = None
    for line in LIST.read_text().splitlines():
        if line.startswith("@ "):
            title = line[2:]
        elif line.startswith("- "):
            old = line[2:]
        elif line.startswith("+ "):
            yield title, old, line[2:]


def build():
    return subprocess.run(["cmake", "--build", "--preset", "release", "--target", "orv_tests"], cwd=COPY,
                          capture_output=True, text=True)


if not COPY.exists():
    subprocess.run(["git", "clone", "-q", ROOT, COPY], check=True)
    subprocess.run(["cmake", "--preset", "release"], cwd=COPY, check=True, stdout=subprocess.DEVNULL)
subprocess.run(["git", "fetch", "-q"], cwd=COPY, check=True)
subprocess.run(["git", "reset", "-q", "--hard", "origin/HEAD"], cwd=COPY, check=True)
made = build()
if made.returncode:
    sys.exit(made.stdout[-2000:])

seen = count = 0
for title, old, new in slips():
    name = title.split(":")[0]
    if not name.startswith(PREFIX):
        continue
    path = COPY / name
    text = path.read_text()
    if text.count(old + "\n") < 1:
        sys.exit(f"{title}: the line is not there any more")
    path.write_text(text.replace(old + "\n", new + "\n", 1))
    made = build()
    if made.returncode:
        print(made.stdout[-1500:])
        sys.exit(f"{title}: does not build")
    try:
        tests = subprocess.run([COPY / "build/release/tests/orv_tests", "--gtest_brief=1"], cwd=COPY,
                               capture_output=True, text=True, errors="replace", timeout=300)
        failed = [line.split()[3].rstrip(",") for line in tests.stdout.splitlines() if line.startswith("[  FAILED  ]")]
        caught = tests.returncode != 0
    except subprocess.TimeoutExpired:
        caught, failed = True, ["a time limit"]
    path.write_text(text)
    count += 1
    seen += caught
    print(f"{'seen  ' if caught else 'MISSED'} {title}{'  by ' + failed[0] if failed else ''}", flush=True)
print(f"{seen} of {count} slips seen")
sys.exit(seen * 10 < count * 9)
