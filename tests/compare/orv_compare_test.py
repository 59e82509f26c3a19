# SPDX-License-Identifier: Apache-2.0
# SPDX-FileCopyrightText: The ORV authors
"""Our lines and functions against llvm-symbolizer and addr2line, and every row of some against llvm-dwarfdump, on
programs built here: as the classic reading has them, or with the argument modern what that adds."""

import concurrent.futures
import os
import pathlib
import subprocess
import sys
import tempfile

HERE = pathlib.Path(__file__).resolve().parent
FIXTURES = HERE.parent / "fixtures"
sys.path[:0] = [str(HERE.parent.parent / "bench"), str(HERE.parent / "support")]
import orv_compare
import orv_programs
import orv_rows
import orv_tools

REQUIRED = 99.5
REQUIRED_CHAINS = 99.9
NESTED = FIXTURES / "nested.cpp"
REQUIRED_MODERN = 99.9
ROWS = ("cpp-g++-O2", "cpp-clang++-O2", "cpp-g++2-O2", "cpp-g++4-O2", "cpp-clang++4-O2", "c-gcc3-O2", "c-clang2-O2", "f-gfortran4-O2")
C_SOURCES = [FIXTURES / "shapes.c", FIXTURES / "shapes_main.c"]


def programs(folder):
    """(name, command) of everything that is built."""
    template = orv_programs.one_unit(folder)
    for version in (2, 3, 4):
        for level in ("-O0", "-O2"):
            flags = [f"-gdwarf-{version}", level]
            yield f"c-gcc{version}{level}", ["gcc", *flags, *C_SOURCES]
            yield f"c-clang{version}{level}", ["clang", *flags, *C_SOURCES]
            yield f"f-gfortran{version}{level}", ["gfortran", *flags, FIXTURES / "solver.f90"]
    for compiler, version, level in (("g++", 4, "-O0"), ("g++", 2, "-O2"), ("g++", 3, "-O3"), ("g++", 4, "-O2"),
                                     ("clang++", 4, "-O2"), ("clang++", 3, "-O3"), ("clang++", 2, "-O2")):
        yield f"cpp-{compiler}{version}{level}", [compiler, f"-gdwarf-{version}", level, template]
    plain = ["gcc", "-gdwarf-4", "-O2"]
    yield "c-zdebug", [*plain, "-gz=zlib-gnu", *C_SOURCES]
    yield "c-compressed", [*plain, "-gz=zlib", *C_SOURCES]
    yield "c-gc-sections", [*plain, "-ffunction-sections", "-Wl,--gc-sections", *C_SOURCES]
    yield "cpp-gc-sections", ["g++", "-gdwarf-4", "-O1", "-ffunction-sections", "-Wl,--gc-sections", template]
    yield "c-static", [*plain, "-static", *C_SOURCES]
    yield "c-shared", [*plain, "-shared", "-fPIC", *C_SOURCES]
    yield "c-32.o", ["gcc", "-m32", "-gdwarf-4", "-O0", "-c", C_SOURCES[0]]
    yield "c-64.o", ["gcc", "-gdwarf-3", "-O1", "-c", C_SOURCES[0]]
    yield "c-lto", [*plain, "-flto", *C_SOURCES]


def modern_programs(folder):
    """As compilers write them today unless they are told; what stands in namespaces and functions."""
    template = orv_programs.one_unit(folder)
    for compiler in ("g++", "clang++"):
        for level in ("-O0", "-O1", "-O2", "-O3"):
            yield f"nested-{compiler}{level}", [compiler, "-g", level, NESTED]
            yield f"nested-{compiler}4{level}", [compiler, "-gdwarf-4", level, NESTED]
        for level in ("-O0", "-O2"):
            yield f"cpp-{compiler}{level}", [compiler, "-g", level, template]
        yield f"c-{compiler}", [{"g++": "gcc"}.get(compiler, "clang"), "-g", "-O2", *C_SOURCES]
    yield "cpp-clang++4-O2", ["clang++", "-gdwarf-4", "-O2", template]
    yield "cpp-g++64-O2", ["g++", "-g", "-gdwarf64", "-O2", template]
    yield "cpp-lto", ["g++", "-g", "-O2", "-flto", template]
    yield "nested-lto", ["clang++", "-g", "-O2", "-flto", "-fuse-ld=lld", NESTED]
    yield "cpp-gc-sections", ["g++", "-g", "-O1", "-ffunction-sections", "-Wl,--gc-sections", template]
    yield "nested-lld", ["clang++", "-g", "-O1", "-ffunction-sections", "-Wl,--gc-sections", "-fuse-ld=lld", NESTED]
    yield "c-32", ["gcc", "-m32", "-g", "-O2", *C_SOURCES]
    yield "f-gfortran", ["gfortran", "-g", "-O2", FIXTURES / "solver.f90"]


def many_units(folder, count=300):
    sources = folder / "many"
    sources.mkdir()
    for n in range(count):
        (sources / f"u{n}.c").write_text(f'#include "shapes.h"\nint f{n}(int x) {{ return scaled(x + {n}) * {n}; }}\n'
                                         f"static int g{n}(int x)\n{{\n    return x / 3;\n}}\n"
                                         f"int h{n}(int x)\n{{\n    if (x)\n        return g{n}(x);\n    return f{n}(x);\n}}\n")
    main = "".join(f"int h{n}(int);\n" for n in range(count)) + "int main(int c, char** v) { int s = 0; (void)v;\n"
    (sources / "main.c").write_text(main + "".join(f"s += h{n}(c);\n" for n in range(count)) + "return s; }\n")
    return ["gcc", "-gdwarf-4", "-O1", f"-I{FIXTURES}", *sorted(sources.glob("*.c"))]


def main():
    orv_tools.need("llvm-symbolizer", "addr2line")
    failed, is_modern = False, sys.argv[1:] == ["modern"]
    with tempfile.TemporaryDirectory() as folder:
        folder = pathlib.Path(folder)
        chosen = modern_programs(folder) if is_modern else [*programs(folder), ("c-many-units", many_units(folder))]
        work = [(name, command) for name, command in chosen
                if orv_tools.can(name, *command)]

        def build(job):
            name, command = job
            # A folder of its own: gfortran leaves module files where it stands, and several run at a time.
            place = folder / f"{name}.d"
            place.mkdir()
            subprocess.run([*command, "-o", folder / name], check=True, cwd=place)
            return folder / name

        with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
            modules = list(pool.map(build, work))
        for module in modules:
            failed |= orv_compare.compare(module, show=3, require=REQUIRED_MODERN if is_modern else REQUIRED, require_chain=REQUIRED_CHAINS)
            if module.name in ROWS and orv_tools.can(f"rows of {module.name}", "llvm-dwarfdump"):
                failed |= orv_rows.check(module)
    sys.exit(1 if failed else 0)


if __name__ == "__main__":
    main()
