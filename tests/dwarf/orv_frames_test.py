# SPDX-License-Identifier: Apache-2.0
# SPDX-FileCopyrightText: The ORV authors
"""Stack variables of running programs: they tell registers and addresses, and we name what is there."""

import json
import pathlib
import sys
import tempfile

sys.path[:0] = [str(pathlib.Path(__file__).resolve().parent.parent / "support")]
import orv_tools
from orv_tools import ORV, expect, failures, must

SOURCE = pathlib.Path(__file__).resolve().parent.parent / "fixtures" / "frames.c"


def frames(program):
    """(function, offset, sp, fp, cfa, [(name, address, size)]) of each point that the program passes."""
    found = []
    for line in must(program).splitlines():
        words = line.split()
        if words[0] == "frame":
            found.append((words[1], *(int(word, 16) for word in words[2:]), []))
        else:
            found[-1][5].append((words[1], int(words[2], 16), int(words[3])))
    return found


def ask(program, pc, sp, fp, addresses):
    result = orv_tools.run(ORV, "stackvar", "--json", program, "--pc", f"{pc:x}", "--sp", f"{sp:x}", "--fp", f"{fp:x}",
                           *(f"{address:x}" for address in addresses))
    return [json.loads(line) for line in result.stdout.splitlines()]


def symbols_of(program):
    words = (line.split() for line in must("nm", program).splitlines())
    return {symbol[2]: int(symbol[0], 16) for symbol in words if len(symbol) == 3}


def check(program, uses_cfa):
    symbols = symbols_of(program)
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
            must(compiler, *flags, "-no-pie", "-fno-stack-protector", "-o", program, SOURCE)
            check(program, uses_cfa)
        # DWARF 4 has no place for any of them, and says so.
        program = pathlib.Path(folder) / "frames-4"
        must("gcc", "-gdwarf-4", "-O0", "-no-pie", "-o", program, SOURCE)
        answer = ask(program, symbols_of(program)["leaf"], 0x7000, 0x8000, [0x7ff0])[0]
        expect(f"DWARF 4: {answer}", (answer["variable"], "DWARF 2 and 3 do" in answer["why_not"]), (None, True))
    orv_tools.finish()


if __name__ == "__main__":
    main()
