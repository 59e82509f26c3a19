# SPDX-License-Identifier: Apache-2.0
# SPDX-FileCopyrightText: The ORV authors
"""What tests in scripts need: our client, a list of what has failed, and what this machine has. A test that leaves
something out says what, by name, and why."""

import functools
import os
import pathlib
import shutil
import subprocess
import sys
import tempfile

SKIPPED = 77  # the exit status of a test that could do nothing at all
LIBRARY_FLAGS = ("-m32", "-mx32")
ORV = os.environ.get("ORV")
failures = []


def expect(what, got, wanted):
    if got != wanted:
        failures.append(f"{what}: got {got!r}, wanted {wanted!r}")


def run(*command, **more):
    """A command's text and status; one that a signal has ended is a failure."""
    result = subprocess.run([str(word) for word in command], capture_output=True, text=True, **more)
    if result.returncode < 0:
        failures.append(f"{command}: ended by signal {-result.returncode}")
    return result


def must(*command, **more):
    words = [str(word) for word in command]
    return subprocess.run(words, check=True, stdout=subprocess.PIPE, text=True, **more).stdout


def finish():
    for failure in failures[:60]:
        print("FAILED", failure)
    print(f"{len(failures)} failures")
    sys.exit(1 if failures else 0)


@functools.lru_cache(maxsize=None)
def _builds(compiler, flag, is_linked):
    with tempfile.TemporaryDirectory() as folder:
        source = pathlib.Path(folder) / "s.c"
        source.write_text("#include <stdio.h>\nint main(void) { return puts(\"\"); }\n" if is_linked else "int x;\n")
        command = [compiler, flag, *([] if is_linked else ["-c"]), "-o", f"{folder}/out", source]
        return subprocess.run(command, capture_output=True).returncode == 0


def lacking(command):
    """Why a command can't be run here; None if it can."""
    command = [str(word) for word in command]
    if shutil.which(command[0]) is None:
        return f"{command[0]} is not installed"
    for flag in LIBRARY_FLAGS:
        if flag in command and not _builds(command[0], flag, "-c" not in command and "-nostdlib" not in command):
            return f"{command[0]} {flag} does not work here"
    return None


def can(what, *command):
    """True if a command can be run here; otherwise it is said that this is left out."""
    why = lacking(command)
    if why:
        print(f"SKIPPED {what}: {why}")
    return why is None


def need(*tools):
    """Ends the test as skipped without these."""
    if not all([can(pathlib.Path(sys.argv[0]).stem, tool) for tool in tools]):
        sys.exit(SKIPPED)
