# SPDX-License-Identifier: Apache-2.0
# SPDX-FileCopyrightText: The ORV authors
"""Stack variables of running programs as compilers make them by default: each is stopped where it has told where its
variables are, and a tracer asks for them with the registers that the program has there."""

import os
import pathlib
import sys
import tempfile

sys.path[:0] = [str(pathlib.Path(__file__).resolve().parent.parent / "support")]
import orv_tools
from orv_tools import failures, must, run

SOURCE = pathlib.Path(__file__).resolve().parent.parent / "fixtures" / "stack.cpp"
TRACER = os.environ["ORV_STACK_TRACER"]
STOPS, QUESTIONS = 15, 245
LEVELS = ("-O0", "-O1", "-O2")
FRAMES = ("", "-fno-omit-frame-pointer", "-fomit-frame-pointer")
WITHOUT_LIBRARY = ("-nodefaultlibs",)


def builds():
    for compiler in ("g++", "clang++"):
        for version in ("-g", "-gdwarf-4"):
            for number, level in enumerate(LEVELS):
                yield compiler, version, level
                yield compiler, version, level, FRAMES[1 + (number + (version == "-g")) % 2]
        # Frames told of in .debug_frame alone; addresses that are not the file's; units of both widths.
        yield compiler, "-g", "-O2", "-fno-asynchronous-unwind-tables", "-fno-exceptions"
        yield compiler, "-g", "-O2", "-no-pie"
        yield compiler, "-g", "-gdwarf64", "-O1"
        yield compiler, "-gdwarf-3", "-O1"
        # Lists and addresses that split units have of their own, in both forms.
        yield compiler, "-g", "-gsplit-dwarf", "-O2"
        yield compiler, "-gdwarf-4", "-gsplit-dwarf", "-O2"
    # A base that is a list, with an entry for each push.
    yield "g++", "-gdwarf-2", "-O0"
    # clang++ -m32 leaves gaps in the lists of what is optimised: what lies there is nowhere.
    yield "g++", "-g", "-m32", "-O0", *WITHOUT_LIBRARY
    yield "g++", "-g", "-m32", "-O2", *WITHOUT_LIBRARY
    yield "g++", "-gdwarf-4", "-m32", "-O1", "-fomit-frame-pointer", *WITHOUT_LIBRARY
    yield "clang++", "-g", "-m32", "-O0", *WITHOUT_LIBRARY


def trace(what, program):
    result = run(TRACER, program)
    lines = result.stdout.splitlines()
    wanted = f"{STOPS} stops, {QUESTIONS} questions, 0 failures"
    if result.returncode != 0 or not lines or lines[-1] != wanted:
        failures.append(f"{what}: {result.stdout[:600]}{result.stderr[:200]}")


def main():
    with tempfile.TemporaryDirectory() as folder:
        program = pathlib.Path(folder) / "stack"
        count = 0
        for compiler, *flags in builds():
            what = " ".join([compiler, *flags])
            # No 32-bit library of C++ is needed.
            links = {"g++": "gcc", "clang++": "clang"}[compiler] if "-m32" in flags else compiler
            if not (orv_tools.can(what, compiler) and orv_tools.can(what, links, *flags)):
                continue
            must(compiler, *flags, SOURCE, "-o", program, *(["-lc"] if "-nodefaultlibs" in flags else []),
                 cwd=folder)  # where a compiler leaves its files of split units
            trace(what, program)
            count += 1
        if count == 0:
            sys.exit(orv_tools.SKIPPED)
        # The debug file has no bytes of what is loaded: frames are told of in the module.
        if orv_tools.can("a separate debug file", "g++"):
            must("g++", "-g", "-O2", SOURCE, "-o", program)
            must("objcopy", "--only-keep-debug", program, f"{program}.debug")
            must("strip", program)
            must("objcopy", f"--add-gnu-debuglink={program}.debug", program)
            trace("a separate debug file", program)
    orv_tools.finish()


if __name__ == "__main__":
    main()
