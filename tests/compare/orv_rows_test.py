# SPDX-License-Identifier: Apache-2.0
# SPDX-FileCopyrightText: The ORV authors
"""Every row of programs built here, as llvm-dwarfdump has it."""

import pathlib
import subprocess
import sys
import tempfile

HERE = pathlib.Path(__file__).resolve().parent
FIXTURES = HERE.parent / "fixtures"
sys.path[:0] = [str(HERE.parent.parent / "bench"), str(HERE.parent / "support")]
import orv_programs
import orv_rows
import orv_tools


def main():
    orv_tools.need("llvm-dwarfdump")
    failed = False
    with tempfile.TemporaryDirectory() as folder:
        folder = pathlib.Path(folder)
        template = orv_programs.one_unit(folder)
        shapes = [FIXTURES / "shapes.c", FIXTURES / "shapes_main.c"]
        for name, *command in (("cpp2", "g++", "-gdwarf-2", "-O2", template), ("cpp4", "g++", "-gdwarf-4", "-O2", template),
                               ("clang4", "clang++", "-gdwarf-4", "-O2", template),
                               ("c3", "gcc", "-gdwarf-3", "-O2", *shapes), ("clang2", "clang", "-gdwarf-2", "-O1", *shapes),
                               ("fortran", "gfortran", "-gdwarf-4", "-O2", FIXTURES / "solver.f90")):
            if not orv_tools.can(name, *command):
                continue
            subprocess.run([*command, "-o", folder / name], check=True, cwd=folder)
            failed |= orv_rows.check(folder / name)
    sys.exit(1 if failed else 0)


if __name__ == "__main__":
    main()
