# SPDX-License-Identifier: Apache-2.0
# SPDX-FileCopyrightText: The ORV authors
"""Writes the seeds of a fuzz target into a folder: orv_seeds.py TARGET FOLDER.

They are built from text, so that nobody has to trust bytes that nobody can make again."""

import os
import pathlib
import struct
import subprocess
import sys
import tempfile

sys.path[:0] = [str(pathlib.Path(__file__).resolve().parent.parent / "tests/support")]
from orv_gpu_files import blob, mira, qdc, rln, rln_lines, words

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
MODULE = """
static inline int twice(int x) { volatile int y = x; return y * 2; }
int f(int x) { return twice(x) + 1; }
__attribute__((section(".init.text"))) int g(int x) { return x > 3 ? f(x) : twice(x); }
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
        # With debug sections to relocate: one section a function, and fields that are distances.
        (folder / "m.c").write_text(MODULE)
        run("gcc", "-g", "-O1", "-ffunction-sections", "-c", "-o", "f.o", "m.c")
        run("clang", "--target=riscv64-linux-gnu", "-g", "-O1", "-c", "-o", "g.o", "m.c")
        for name in ["a.o", "b.o", "c.so", "d", "e.so", "f.o", "g.o"]:
            yield (folder / name).read_bytes()


def packed_seeds():
    """Libraries with debug sections in each compression, and one whose symbols lie packed in .gnu_debugdata."""
    with tempfile.TemporaryDirectory() as folder:
        folder = pathlib.Path(folder)
        (folder / "s.c").write_text("static int g(int x) { return x + 1; }\nint f(int x) { return g(x) * g(x - 1); }\n")

        def run(*command):
            return subprocess.run(command, cwd=folder, capture_output=True).returncode == 0

        run("gcc", "-g", "-O0", "-c", "s.c")
        run("ld", "-shared", "-z", "noseparate-code", "-o", "s.so", "s.o")
        for method in ("zlib", "zlib-gnu", "zstd"):
            if run("objcopy", f"--compress-debug-sections={method}", "s.so", "c.so"):  # not all know all
                yield (folder / "c.so").read_bytes()
        run("objcopy", "-S", "--keep-symbol=g", "s.so", "mini")
        if run("xz", "-e", "mini") and run("objcopy", "-S", "--add-section", ".gnu_debugdata=mini.xz", "s.so", "p.so"):
            yield (folder / "p.so").read_bytes()


PROGRAM = """
namespace ns { struct A { A(int); int f(int) const; int v; }; }
ns::A::A(int x) : v(x) {}
int ns::A::f(int y) const { if (y > 3) return v * y; for (int i = 0; i < v; ++i) y += i; return y; }
static int counter;
static inline int twice(int x) { volatile int y = x; return y * 2; }
static inline int four(int x) { return twice(twice(x)); }
struct S { int a; struct { short b; int c; } d; } record;
extern "C" int f(int x) { ns::A a(x); S s; s.d.b = four(x); counter += a.f(s.d.b); { long v[3]; v[1] = x; counter += v[1]; } return counter; }
"""
ASSEMBLER_UNIT = """
        .section .debug_abbrev,"",@progbits
        .byte 1, 0x11, 1, 0x25, 8, 0x13, 0xb, 0x10, 6, 0, 0
        .byte 2, 0x2e, 1, 3, 8, 0x11, 1, 0x55, 6, 0x3a, 0xb, 0x3b, 0xb, 1, 0x13, 0, 0
        .byte 3, 0x34, 0, 3, 8, 2, 0xa, 0x49, 0x13, 0, 0
        .byte 4, 0x24, 0, 3, 8, 0xb, 0xb, 0, 0
        .byte 5, 0xa, 0, 3, 8, 0x11, 1, 0, 0, 0
        .section .debug_info,"",@progbits
1:      .4byte 3f - 2f
2:      .2byte 3
        .4byte 0
        .byte 8, 1
        .asciz "GNU Fortran 4.8"
        .byte 8
        .4byte 0
        .byte 2
        .asciz "f_"
        .8byte 0x1000
        .4byte 0
        .byte 1, 1
        .4byte 4f - 1b
        .byte 5
        .asciz "l"
        .8byte 0x1008, 0
4:      .byte 3
        .asciz "v"
        .byte 9, 3
        .8byte 0x1010
        .4byte 5f - 1b
5:      .byte 4
        .asciz "int"
        .byte 4, 0
3:      .section .debug_ranges,"",@progbits
        .8byte -1, 0x1000, 0, 0x20, 0x40, 0x60, 0, 0
"""
SECTIONS = [".debug_info", ".debug_abbrev", ".debug_str", ".debug_line", ".debug_ranges", ".debug_loc",
            ".note.gnu.build-id", ".gnu_debuglink", ".debug_line_str", ".debug_str_offsets", ".debug_addr",
            ".debug_rnglists", ".debug_loclists", ".eh_frame", ".debug_frame"]
FRAMES_ADDRESS = "0x8000"


def sections_of(folder, name):
    """Those of a file that it has, by name."""
    found = {}
    for section in SECTIONS:
        out = folder / "section"
        out.unlink(missing_ok=True)
        subprocess.run(["objcopy", "--dump-section", f"{section}={out.name}", name, "copy"], cwd=folder,
                       capture_output=True, check=False)  # not all have all
        if out.exists() and out.stat().st_size:
            found[section] = out.read_bytes()
    return found


def debug_sections():
    """The debug sections of small objects, linked to 0x1000: a list of dictionaries."""
    with tempfile.TemporaryDirectory() as folder:
        folder = pathlib.Path(folder)
        (folder / "p.cpp").write_text(PROGRAM)
        (folder / "u.s").write_text(ASSEMBLER_UNIT)

        def run(*command):
            subprocess.run(command, check=True, cwd=folder, capture_output=True)

        names = []
        for compiler in ("g++", "clang++"):
            for flags in (["-gdwarf-2", "-O0"], ["-gdwarf-3", "-O2", "-gstrict-dwarf"], ["-gdwarf-4", "-O2"],
                          ["-gdwarf-5", "-O0"], ["-gdwarf-5", "-O2"],
                          ["-gdwarf-5", "-O1", "-fno-asynchronous-unwind-tables", "-fno-exceptions"]):
                names.append("".join([compiler, *flags]))
                run(compiler, *flags, "-c", "p.cpp", "-o", "p.o")
                run("ld", "-e", "f", "--build-id", "-Ttext=0x1000", f"--section-start=.eh_frame={FRAMES_ADDRESS}",
                    "-o", names[-1], "p.o")
                run("objcopy", "--add-gnu-debuglink=p.o", names[-1])
        names.append("u.o")
        run("as", "--64", "-o", "u.o", "u.s")
        for name in names:
            yield sections_of(folder, name)


def row_of(sections, file=0):
    return b"".join(bytes([SECTIONS.index(name) | file]) + len(data).to_bytes(2, "little") + data
                    for name, data in sections.items())


def supplemented():
    """The debug sections of a program, and of the file that dwz took out of it and another."""
    with tempfile.TemporaryDirectory() as folder:
        folder = pathlib.Path(folder)

        def run(*command):
            subprocess.run(command, check=True, cwd=folder, capture_output=True)

        for name, more in (("one", ""), ("two", "int two;\n")):
            (folder / f"{name}.cpp").write_text(PROGRAM + more)
            run("g++", "-gdwarf-4", "-O1", "-c", f"{name}.cpp", "-o", f"{name}.o")
            run("ld", "-e", "f", "-Ttext=0x1000", "-o", name, f"{name}.o")
        run("dwz", "-m", "common", "one", "two")
        yield tuple({name: data for name, data in sections_of(folder, file).items() if name.startswith(".debug_")}
                    for file in ("one", "common"))


def dwarf_seeds():
    in_supplement = 0x40
    for sections in debug_sections():
        row = row_of(sections)
        yield row + b"\0"
        yield row + b"\2"  # the modern way
    for own, common in supplemented():
        yield row_of(own) + row_of(common, in_supplement)


SPLIT_SECTIONS = [".debug_info", ".debug_abbrev", ".debug_str", ".debug_line", ".debug_ranges", ".debug_rnglists",
                  ".debug_str_offsets", ".debug_addr", ".debug_line_str", ".debug_info.dwo", ".debug_abbrev.dwo",
                  ".debug_str.dwo", ".debug_str_offsets.dwo", ".debug_rnglists.dwo", ".debug_loc.dwo",
                  ".debug_loclists.dwo", ".debug_cu_index"]


def split_seeds():
    """A program with one skeleton, with its file of the split unit, and with a package where a program makes one."""
    with tempfile.TemporaryDirectory() as folder:
        folder = pathlib.Path(folder)
        (folder / "u.cpp").write_text(PROGRAM)

        def run(*command, **more):
            return subprocess.run(command, cwd=folder, capture_output=True, **more)

        def row(files):
            for number, section in enumerate(SPLIT_SECTIONS):
                for file in files:
                    (folder / "section").unlink(missing_ok=True)
                    run("objcopy", "--dump-section", f"{section}=section", file, "copy")  # not all have all
                    if (folder / "section").exists():
                        data = (folder / "section").read_bytes()
                        yield bytes([number]) + len(data).to_bytes(2, "little") + data
                        break

        for compiler, flags in (("g++", "-gdwarf-4"), ("g++", "-gdwarf-5"), ("clang++", "-gdwarf-4"),
                                ("clang++", "-gdwarf-5")):
            run(compiler, flags, "-gsplit-dwarf", "-O2", "-c", "u.cpp", check=True)
            run("ld", "-e", "f", "-Ttext=0x1000", "-o", "m", "u.o", check=True)
            yield b"".join(row(["m", "u.dwo"]))
            if compiler == "clang++":
                run("llvm-dwp", "u.dwo", "-o", "m.dwp", check=True)
                yield b"".join(row(["m", "m.dwp"]))


def line_seeds():
    return [sections[".debug_line"] for sections in debug_sections() if ".debug_line" in sections]


def report_seeds():
    """Tables of remarks: absolute and relative anchors, a version, a name that is passed over, text of two lengths."""
    def table(flags, version, rows):
        names = b"".join(name + b"\0" for name, _ in rows)
        entries, data = b"", b""
        for number, (name, value) in enumerate(rows):
            entries += (0x10 * number).to_bytes(8, "little") + names.index(name).to_bytes(4, "little")
            entries += len(data).to_bytes(4, "little")
            data += bytes([len(value), 0x10]) + value
        begin = 44 + len(entries)
        fields = [len(rows), begin, len(names), begin + len(names), len(data), flags]
        header = b".zvk_notify_tab\0" + version.to_bytes(2, "little") + (44).to_bytes(2, "little")
        return header + b"".join(field.to_bytes(4, "little") for field in fields) + entries + names + data + bytes(20)

    text = b"\xf6\xca\xc9\xab\x37"
    rows = [(b"optimization_report_version", b"\x03"), (b"optimization_report", text), (b"other", b"x"),
            (b"optimization_report", text[:4] * 30 + b"\1")]
    for flags, version in ((8, 0x101), (13, 0x101), (8, 0x205)):
        yield b"junk" + table(flags, version, rows) + table(8, 0x101, rows[:2])


WIDE_LIST = b"""0000000000000000 D __per_cpu_start
ffffffff81000000 T _text
ffffffff81000000 t startup_64 more behind it
ffffffff81000070 A absolute
ffffffff82000000 d counter
ffffffff82000008 G any
ffffffffa0000000 t foo\t[mod]
"""
NARROW_LIST = b"80000000 A start\nc0100000 T _text\nc0100010 G g\nc0100020 d data"


def kernel_seeds():
    for mode in (0, 1, 2):
        yield bytes([mode, 255]) + WIDE_LIST
        yield bytes([mode, 255]) + NARROW_LIST
    # A compressed one that has headers of its own, and programs that carry another, each behind a list of half the bytes.
    segment = struct.pack("<IIQQQQQQ", 1, 5, 120, 0xffffffff81000000, 0, 16, 0x100000, 0x1000)
    header = struct.pack("<16sHHIQQQIHHHHHH", b"\x7fELF\2\1\1", 2, 62, 1, 0, 64, 0, 0, 64, 56, 1, 0, 0, 0)
    programs = [header + segment + b"." * 9 + b"\x1f\x8b\x08...." + b"." * 200]
    programs += [program + header + segment + b"." * 16 for program in elf_seeds()]
    for mode, program in zip((2, 3, 7, 3, 7, 3), programs):
        share = max(share for share in range(1, 255) if len(program) * share // (255 - share) < 2 * len(WIDE_LIST) or share == 1)
        total = next(n for n in range(len(program), 1 << 24) if n - n * share // 255 == len(program))
        yield bytes([mode, share]) + (WIDE_LIST + b"\n" * total)[:total - len(program)] + program


OAT = """oat %s at=0x1000
dex
class com.example.Foo %s
  field static count I
  method direct main(II)V code=32 thumb
    map 0:0 4:2 10:8
    dex2native 6:4
    insns 12
    debug 12 params=a,b : step 0 0; pc 2; line 3; local 1 2 3; special 10; file Other.java; step 6 1; prologue; end
  method virtual run()V code=16
    map 0:0 4:2
    debug 30 : step 0 0; step 2 1; end
class com.example.Foo$Bar all source=-
  method direct <init>()V code=8
dex
class x.Y some bitmap=05ff
  method direct a()V code=8
  method direct b()V code=8
    debug 1 : step 0 0; file @0; end
"""


def written_oats():
    """Pairs of OAT data and the DEX files in them."""
    with tempfile.TemporaryDirectory() as folder:
        folder = pathlib.Path(folder)
        for version, kind in [("7", "all"), ("14", "some"), ("22", "some"), ("28", "all")]:
            (folder / "t").write_text(OAT % (version, kind))
            subprocess.run([os.environ["ORV_OAT_MAKE"], folder / "t", folder / "o", "--dex", folder / "d"], check=True)
            yield (folder / "o").read_bytes()[0x1000:], [one.read_bytes() for one in sorted(folder.glob("d*"))]


def oat_seeds():
    for data, _ in written_oats():
        yield data


def dex_seeds():
    for _, files in written_oats():
        yield from files


def blob_seeds():
    """A kernel without anything, one with everything, and one that is relocated."""
    bare = ("k", [(2, 16), (5, 32)])
    name, intervals = b"\2xy", struct.pack("<H", 1)
    rest = (words(2) + (name + intervals + bytes(10)) * 2 + struct.pack("<H", 1) + name + words(1, 2) + intervals
            + bytes(10) + bytes(2) + b"\1" + intervals + bytes(14) + b"\0\1" + bytes(2)
            + (struct.pack("<H", 1) + words(3) + intervals + bytes(9)) * 2)
    everything = ("k", [(1, 8), (5, 32), (9, 40)], 0, rest)
    relocated = ("m", [], 1)
    for kernels in ([bare], [everything, relocated], [relocated, bare], []):
        yield blob(kernels)


def gpu_seeds():
    """Program files of both compilers, the second's with lines of either file."""
    lines = rln_lines([(0, 3, 1, 0), (16, 4, 0, 1), (32, 5, 0, 0)])
    yield b"\0\x40" + rln(["unknown.cl", "a.h"], ["k", "m"], [(0, lines), (1, lines)], ["/src"])
    with tempfile.TemporaryDirectory() as folder:
        for file, isa in zip((1, 2, 1), blob_seeds()):
            image = mira(pathlib.Path(folder), [(3, 2), (9, 1), (4, 1, file)], ["unknown.cl", "a.h"])
            yield b"\2\x40" + qdc([("k", image, isa)])


target, folder = sys.argv[1], pathlib.Path(sys.argv[2])
folder.mkdir(parents=True, exist_ok=True)
seeds = {"elf": lambda: [*elf_seeds(), *packed_seeds()], "dwarf": dwarf_seeds, "lines": line_seeds, "optreport": report_seeds,
         "kernel": kernel_seeds, "oat": oat_seeds, "dex": dex_seeds,
         "gpu": gpu_seeds, "qdcblob": blob_seeds, "split": split_seeds,
         "filename": lambda: [p.encode() for p in PATHS],
         "demangler": lambda: [n.encode() for n in NAMES + [n[2:] for n in NAMES] + DEMANGLED]}[target]()
for number, seed in enumerate(seeds):
    (folder / f"seed-{number:02}").write_bytes(seed)
