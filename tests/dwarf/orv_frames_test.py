# SPDX-License-Identifier: Apache-2.0
# SPDX-FileCopyrightText: The ORV authors
"""Stack variables of running programs: they tell registers and addresses, and we name what is there."""

import json
import os
import pathlib
import subprocess
import sys
import tempfile

sys.path[:0] = [str(pathlib.Path(__file__).resolve().parent.parent / "support")]
import orv_tools

ORV = os.environ["ORV"]
SOURCE = pathlib.Path(__file__).resolve().parent.parent / "fixtures" / "frames.c"
failures = []


def frames(program):
    """(function, offset, sp, fp, cfa, [(name, address, size)]) of each point that the program passes."""
    found = []
    for line in subprocess.run([program], capture_output=True, text=True, check=True).stdout.splitlines():
        words = line.split()
        if words[0] == "frame":
            found.append((words[1], *(int(word, 16) for word in words[2:]), []))
        else:
            found[-1][5].append((words[1], int(words[2], 16), int(words[3])))
    return found


def ask(program, pc, sp, fp, addresses):
    result = subprocess.run([ORV, "stackvar", "--json", program, "--pc", f"{pc:x}", "--sp", f"{sp:x}", "--fp", f"{fp:x}",
                             *(f"{address:x}" for address in addresses)], capture_output=True, text=True)
    return [json.loads(line) for line in result.stdout.splitlines()]


def check(program, uses_cfa):
    symbols = {words[2]: int(words[0], 16) for words in
               (line.split() for line in subprocess.run(["nm", program], capture_output=True, text=True).stdout.splitlines())
               if len(words) == 3}
    count = 0
    for function, offset, sp, fp, cfa, variables in frames(program):
        pc = symbols[function] + offset
        wanted = [(name, address + at) for name, address, size in variables for at in {0, size // 2, size - 1}]
        got = ask(program, pc, sp, cfa if uses_cfa else fp, [address for _, address in wanted])
        for (name, address), answer in zip(wanted, got, strict=True):
            count += 1
            mine = (answer["variable"] or "-") + ("!" if answer["integer"] else "")
            if mine != name or answer["declared"] is None:
                failures.append(f"{program.name}: {function} at 0x{address:x}: got {answer}, wanted {name}")
        for name, address, size in variables:
            first = ask(program, pc, sp, cfa if uses_cfa else fp, [address])[0]
            if first["variable"] and (int(first["start"], 16), first["size"]) != (address, size):
                failures.append(f"{program.name}: {function}: {name} is {size} bytes at 0x{address:x}, got {first}")
    if count < 30:
        failures.append(f"{program.name}: only {count} questions")


def main():
    with tempfile.TemporaryDirectory() as folder:
        for compiler, flags, uses_cfa in (
                ("gcc", ["-gdwarf-2", "-O0"], False),
                ("gcc", ["-gdwarf-2", "-O1", "-fno-omit-frame-pointer"], False),
                ("gcc", ["-gdwarf-3", "-gstrict-dwarf", "-O0"], True),
                ("gcc", ["-gdwarf-2", "-O0", "-m32"], False),
                ("gcc", ["-gdwarf-3", "-gstrict-dwarf", "-O0", "-m32"], True),
                ("clang", ["-gdwarf-2", "-O0"], False),
                ("clang", ["-gdwarf-3", "-O0"], False)):
            program = pathlib.Path(folder) / f"frames-{compiler}{''.join(flags)}"
            if not orv_tools.can(program.name, compiler, *flags):
                continue
            subprocess.run([compiler, *flags, "-no-pie", "-fno-stack-protector", "-o", program, SOURCE], check=True)
            check(program, uses_cfa)
        # DWARF 4 has no place for any of them, and says so.
        program = pathlib.Path(folder) / "frames-4"
        subprocess.run(["gcc", "-gdwarf-4", "-O0", "-no-pie", "-o", program, SOURCE], check=True)
        symbol = subprocess.run(["nm", program], capture_output=True, text=True).stdout
        pc = next(int(line.split()[0], 16) for line in symbol.splitlines() if line.endswith(" leaf"))
        answer = ask(program, pc, 0x7000, 0x8000, [0x7ff0])[0]
        if answer["variable"] is not None or "DWARF 2 and 3 do" not in answer["why_not"]:
            failures.append(f"DWARF 4: {answer}")
    for failure in failures:
        print(failure)
    sys.exit(1 if failures else 0)


if __name__ == "__main__":
    main()
