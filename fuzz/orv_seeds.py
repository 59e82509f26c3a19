"""Writes the seeds of a fuzz target into a folder: orv_seeds.py TARGET FOLDER.

They are built from text, so that nobody has to trust bytes that nobody can make again."""

import pathlib
import subprocess
import sys
import tempfile

SOURCE = """
        .globl f
        .type f, @function
f:      ret
        .size f, .-f
        .globl g
        .set g, f
label:  nop
        .data
        .globl d
        .type d, @object
d:      .quad 0
        .size d, 8
        .section .zdebug_info,"",@progbits
        .ascii "ZLIB"
        .quad 0
        .section .plt,"ax",@progbits
        .fill 64, 1, 0xcc
"""
NAMES = """_ZN2ns1A1fEic
_ZNSt6vectorIiSaIiEE9push_backERKi
_ZZ4mainENKUliE_clEi
_Z1fIiEPFvcET_
_ZlsIcERSoS0_T_
_ZN1AcvSt6vectorIiSaIiEEEv
_ZTVN10__cxxabiv117__class_type_infoE
_ZThn8_N1A1fEv
_Z1fIJicEEvDpT_
_ZN1AIXgtLi2ELi1EEE1fEv
_Z1fv.cold
_ZNSt8_Rb_treeISsSt4pairIKSsiESt10_Select1stIS2_ESt4lessISsESaIS2_EE4findERS1_
_Z1hIiEDTcl1gfp_EET_""".split()
PATHS = ["/a/b/../c", "../..//x", "C:\\a/b\\..\\c", "\\\\server\\share\\x", "a/./..x/.\nbase", "/../", "//a///b/"]
DEMANGLED = ["void (*f<int>(int))(char)", "A::operator int() const", "operator<< <char>(x)", "f() [clone .cold]",
             "(anonymous namespace)::{lambda(int)#1}::operator()(int) const"]


def elf_seeds():
    with tempfile.TemporaryDirectory() as folder:
        folder = pathlib.Path(folder)
        (folder / "s.s").write_text(SOURCE)

        def run(*command):
            subprocess.run(command, check=True, cwd=folder, capture_output=True)

        run("as", "--64", "-o", "a.o", "s.s")
        run("as", "--32", "-o", "b.o", "s.s")
        run("ld", "-shared", "-o", "c.so", "a.o")
        run("ld", "-e", "f", "-o", "d", "a.o")
        run("strip", "-o", "e.so", "c.so")
        for name in ["a.o", "b.o", "c.so", "d", "e.so"]:
            yield (folder / name).read_bytes()


target, folder = sys.argv[1], pathlib.Path(sys.argv[2])
folder.mkdir(parents=True, exist_ok=True)
seeds = {"elf": elf_seeds, "filename": lambda: [p.encode() for p in PATHS],
         "demangler": lambda: [n.encode() for n in NAMES + [n[2:] for n in NAMES] + DEMANGLED]}[target]()
for number, seed in enumerate(seeds):
    (folder / f"seed-{number:02}").write_bytes(seed)
