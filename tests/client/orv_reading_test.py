# SPDX-License-Identifier: Apache-2.0
# SPDX-FileCopyrightText: The ORV authors
"""Which reading the client takes, and what the modern one calls definitions wherever they stand."""

import os
import pathlib
import sys
import tempfile

HERE = pathlib.Path(__file__).resolve().parent
sys.path[:0] = [str(HERE.parent / "support")]
import orv_tools
from orv_tools import ORV, expect, failures, must

NESTED = HERE.parent / "fixtures" / "nested.cpp"


def check_switch(program):
    environment = {name: value for name, value in os.environ.items() if name != "ORV_READING"}

    def lines(setting, *flags):
        more = {} if setting is None else {"ORV_READING": setting}
        answer = orv_tools.run(ORV, "symbolize", *flags, "-e", program, "main", env={**environment, **more})
        return "nested.cpp" in answer.stdout

    for setting, flags, wanted in ((None, [], True), ("", [], True), ("modern", [], True), ("classic", [], False),
                                   ("other", [], False), (None, ["--reading", "classic"], False),
                                   ("modern", ["--reading", "classic"], False), ("classic", ["--reading", "modern"], True)):
        expect(f"ORV_READING={setting} {flags}", lines(setting, *flags), wanted)
    wrong = orv_tools.run(ORV, "symbolize", "--reading", "both", "-e", program, "main")
    expect("--reading both", (wrong.returncode, "give one of classic, modern" in wrong.stderr), (2, True))


def check_names(program, count):
    """Each function and variable that has debug information is called as the symbol table calls it."""
    known = {}
    for line in must("nm", "-S", "--defined-only", program).splitlines():
        words = line.split()
        if len(words) == 4:
            known.setdefault((int(words[0], 16), int(words[1], 16)), set()).add(words[3])
    asked = 0
    for line in must(ORV, "symbols", "--reading", "modern", program).splitlines():
        if "[unit" in line:
            address, size, _, _, name = line.split("  [unit")[0].split(maxsplit=4)
            names = known.get((int(address, 16), int(size)))
            asked += names is not None
            if names is not None and name not in names and not any(n.startswith(f"{name}.") for n in names):
                failures.append(f"{program.name}: {name} at {address}, which nm calls {names}")
    if asked < count:
        failures.append(f"{program.name}: only {asked} symbols that nm knows")


def main():
    with tempfile.TemporaryDirectory() as folder:
        folder = pathlib.Path(folder)
        for compiler in ("g++", "clang++"):
            for flags in (["-O0"], ["-O2"], ["-O0", "-gdwarf-4"], ["-O1", "-m32"]):
                program = folder / "-".join([compiler, *flags])
                if orv_tools.can(program.name, compiler, *flags):
                    must(compiler, "-g", *flags, "-o", program, NESTED)
                    check_names(program, 15)
        check_switch(folder / "g++--O2")
    orv_tools.finish()


if __name__ == "__main__":
    main()
