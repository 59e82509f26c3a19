# SPDX-License-Identifier: Apache-2.0
# SPDX-FileCopyrightText: The ORV authors
"""The functions of a sample of the system's files, and of kinds of file that it has none of, as readelf has them."""

import pathlib
import subprocess
import sys
import tempfile

HERE = pathlib.Path(__file__).resolve().parent
sys.path[:0] = [str(HERE.parent.parent / "bench"), str(HERE.parent / "support")]
import orv_sweep
import orv_tools

SAMPLE = 60
SHAPES = HERE.parent / "fixtures" / "shapes.c"

ARM_SOURCE = """
        .text
        .globl first
        .type first, %function
first:  bx lr
        .size first, .-first
        .type second, %function
second: mov r0, r1
        bx lr
        .size second, .-second
"""


def built_files(folder):
    """Relocatable files, 32-bit files and what a kernel module is made like."""
    (folder / "arm.s").write_text(ARM_SOURCE)
    for name, *command in [
        ("64.o", "gcc", "-c", "-O0", SHAPES),
        ("32.o", "gcc", "-c", "-O0", "-m32", SHAPES),
        ("32.so", "gcc", "-shared", "-nostdlib", "-m32", "-fPIC", SHAPES),
        ("x32.o", "gcc", "-c", "-O0", "-mx32", SHAPES),
        ("arm.o", "arm-linux-gnueabi-as", "arm.s"),
        ("arm", "arm-linux-gnueabi-ld", "-e", "first", "arm.o"),
        ("module.ko", "ld", "-r", "64.o"),
    ]:
        if not orv_tools.can(name, *command):
            continue
        subprocess.run([*command, "-o", name], cwd=folder, check=True, capture_output=True)
        yield str(folder / name)


def main():
    files = list(orv_sweep.elf_files())
    with tempfile.TemporaryDirectory() as folder:
        built = list(built_files(pathlib.Path(folder)))
        sys.exit(1 if orv_sweep.sweep(files[:: max(1, len(files) // SAMPLE)], built) else 0)


if __name__ == "__main__":
    main()
