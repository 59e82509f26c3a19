# SPDX-License-Identifier: Apache-2.0
# SPDX-FileCopyrightText: The ORV authors
"""Program files of GPU kernels, as both compilers leave them beside a binary.

    rln(["unknown.cl"], ["blur"], [(0, rln_lines([(0, 3, 7, 0)]))])    # address, line, column, file
    qdc([("blur", mira(folder, [(3, 2), (9, 4)]), blob([("blur", [(2, 16), (4, 32)])]))])"""

import struct
import subprocess

SOURCE = "unknown.cl"  # what was compiled from memory
NOTHING_ELSE = bytes(4 + 2 + 2 + 3 + 2 + 2)  # no variables, subroutines, intervals and registers


def words(*values):
    return struct.pack(f"<{len(values)}I", *values)


def rln_lines(lines):
    return b"".join(words(address, line | column << 24, file) for address, line, column, file in lines)


def rln(files, kernels, records, directories=()):
    """records: of kernels by number, each with the bytes of its lines."""
    strings = b"".join(name.encode() + b"\0" for name in (*directories, *files, *kernels))
    header = words(1, 1020, 0, len(strings), 0, 8, 1, 1, 8, len(kernels), len(records))
    body = b"".join(words(kernel, 0, 0, len(lines) // 12) + lines for kernel, lines in records)
    return header + strings + words(len(directories), len(files), 0) + body


def qdc(kernels):
    """kernels: name, ELF image and blob of each."""
    file = words(1, 1020, 0, 1, 1, 8, len(kernels))
    for name, image, isa in kernels:
        room = name.encode() + b"\0"
        file += words(len(room), len(image), len(isa)) + room + bytes(-len(room) % 4) + image + isa
    return file


def blob_kernel(name, pairs, relocation=0, rest=NOTHING_ELSE):
    """pairs: of an instruction and where it begins in the machine code; or their bytes. rest: what stands behind."""
    pairs = pairs if isinstance(pairs, bytes) else b"".join(words(*pair) for pair in pairs)
    return bytes([len(name)]) + name.encode() + words(relocation, 0, len(pairs) // 8) + pairs + rest


def blob(kernels):
    return words(0xDEADD010) + struct.pack("<H", len(kernels)) + b"".join(blob_kernel(*kernel) for kernel in kernels)


def assemble(folder, source):
    """The ELF image of one section of code at 0."""
    (folder / "mira.s").write_text(source)
    for command in ("as --gdwarf-4 -o mira.o mira.s", "ld -e 0 -Ttext=0 -o mira mira.o"):
        subprocess.run(command.split(), check=True, cwd=folder, capture_output=True)
    return (folder / "mira").read_bytes()


def mira(folder, lines, files=(SOURCE,)):
    """lines: each with how many instructions it has; the third number, where there is one, is that of its file, from 1."""
    source = "".join(f'.file {number} "{name}"\n' for number, name in enumerate(files, 1)) + ".text\n"
    for line, count, *file in lines:
        source += f".loc {file[0] if file else 1} {line} 1\n" + "nop\n" * count
    return assemble(folder, source)
