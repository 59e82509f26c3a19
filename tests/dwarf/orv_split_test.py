# SPDX-License-Identifier: Apache-2.0
# SPDX-FileCopyrightText: The ORV authors
"""Programs whose compilers have left the debug information in files of its own: names, lines and chains as
llvm-symbolizer and addr2line have them for the same program with all in one file (of split units they read less: the
one loses inlined calls of clang++, the other knows no DWARF 5 of g++); where the files are looked for; and what is left
without them."""

import os
import pathlib
import shutil
import subprocess
import sys
import tempfile

HERE = pathlib.Path(__file__).resolve().parent
FIXTURES = HERE.parent / "fixtures"
sys.path[:0] = [str(HERE.parent.parent / "bench"), str(HERE.parent / "support")]
import orv_compare
import orv_tools
from orv_tools import ORV, expect, failures, must

os.environ["ORV_READING"] = "modern"
SOURCES = [FIXTURES / "split_first.cpp", FIXTURES / "split_second.cpp"]
NOT_FOUND = "Split debug information not found: "
OTHER = "Split debug information of another build: "
ORACLES = {name: getattr(orv_compare, name) for name in ("llvm_symbolizer", "addr2line")}
# llvm-dwp 14 never ends with DWARF 5 of g++ 12; the dwp of binutils 2.40 knows no DWARF 5.
PACKERS = {("g++", 4): ("llvm-dwp", "dwp"), ("clang++", 4): ("llvm-dwp", "dwp"), ("clang++", 5): ("llvm-dwp",)}


def build(folder, compiler, version, *flags):
    """A program in a folder of its own, with its object files of split units; beside it "plain", without."""
    place = folder / "-".join([compiler, str(version), *(flag.strip("-") for flag in flags)])
    place.mkdir()
    for name, split in (("plain", []), ("program", ["-gsplit-dwarf"])):
        for source in SOURCES:
            must(compiler, "-g", f"-gdwarf-{version}", *split, *flags, "-c", source, "-o", f"{source.stem}.o",
                 cwd=place)
        must(compiler, *flags, *(f"{source.stem}.o" for source in SOURCES), "-o", name, cwd=place)
        must("objcopy", "-O", "binary", "--only-section=.text", name, f"{name}.text", cwd=place)
    expect(f"{place.name}: code", (place / "program.text").read_bytes(), (place / "plain.text").read_bytes())
    return place / "program"


def compare(module):
    for name, oracle in ORACLES.items():
        setattr(orv_compare, name, lambda _, addresses, oracle=oracle: oracle(module.with_name("plain"), addresses))
    if orv_compare.compare(module, show=3, require=99.9, require_chain=99.9):
        failures.append(f"{module}: differs from llvm-symbolizer")


def questions(module):
    """Addresses all over the functions."""
    return [at for address, size, _ in orv_compare.functions(module) for at in range(address, address + size, 3)]


def answers(module, *options):
    text = "".join(f"{address:x}\n" for address in questions(module))
    result = subprocess.run([ORV, "symbolize", "-fia", "--log-level", "warn", *options, "-e", module], input=text,
                            capture_output=True, text=True, timeout=60)
    return orv_compare.frames_of(result.stdout.splitlines()), result.stderr


def lines_of(frames):
    """The innermost line of each answer."""
    return [answer[0][1] for answer in frames]



def check_program(folder, compiler, version, flags):
    module = build(folder, compiler, version, *flags)
    compare(module)
    whole, log = answers(module)
    expect(f"{module}: what is logged", NOT_FOUND in log or OTHER in log, False)
    if not any(len(answer) > 1 for answer in whole) and "-O2" in flags:
        failures.append(f"{module}: no inlined calls")
    for packer in PACKERS.get((compiler, version), ()):
        if not orv_tools.can(f"package of {module.parent.name}", packer):
            continue
        must(packer, "-e", module, "-o", f"{module}.dwp", cwd=module.parent)
        objects = list(module.parent.glob("*.dwo"))
        for one in objects:
            one.rename(f"{one}.away")
        packed, log = answers(module)
        expect(f"{module} in a package of {packer}", (packed, NOT_FOUND in log), (whole, False))
        if packer == "llvm-dwp":
            compare(module)
        for one in objects:
            pathlib.Path(f"{one}.away").rename(one)
        pathlib.Path(f"{module}.dwp").unlink()
    if (compiler, version) not in PACKERS:
        print(f"SKIPPED package of {module.parent.name}: no program here makes one")


def check_places(folder, version):
    """Beside a module that was moved, in the compiler's folder below a debug root, and nowhere."""
    module = build(folder, "g++", version, "-O2", "-DPLACES")
    whole, _ = answers(module)
    moved = folder / f"moved-{version}"
    module.parent.rename(moved)
    expect(f"{version}: beside the module", answers(moved / "program")[0], whole)
    root = folder / f"root-{version}"
    below = root / str(module.parent).lstrip("/")
    below.mkdir(parents=True)
    for one in moved.glob("*.dwo"):
        one.rename(below / one.name)
    bare, log = answers(moved / "program", "--debug-root", folder / "none")
    expect(f"{version}: missing files that are named", [log.count(f"{NOT_FOUND}{source.stem}.dwo")
                                                      for source in SOURCES], [1, 1])
    hint = orv_tools.run(ORV, "units", "--debug-root", folder / "none", moved / "program").stderr
    expect(f"{version}: 'orv units' tells: {hint}", "split_first.dwo in " in hint and "and 1 more" in hint, True)
    expect(f"{version}: lines without the files", lines_of(bare), lines_of(whole))
    expect(f"{version}: names without the files", [a[-1][0].split(".")[0] for a in bare],
           [a[-1][0].split(".")[0] for a in whole])
    expect(f"{version}: chains without the files", max(map(len, bare)), 1)
    expect(f"{version}: below a root", answers(moved / "program", "--debug-root", root)[0], whole)
    one = below / "split_first.dwo"
    one.rename(moved / one.name)
    mixed, log = answers(moved / "program", "--debug-root", folder / "none")
    expect(f"{version}: one of two files", (log.count(NOT_FOUND), max(map(len, mixed)) > 1), (1, True))


def check_what_is_there(folder, version):
    """In place of a file: one of another build, another kind of file, the module itself, a part of it."""
    module = build(folder, "g++", version, "-O2", "-DWRONG")
    other = build(folder, "g++", version, "-O0", "-DWRONG")
    whole, _ = answers(module)
    sought = module.parent / "split_first.dwo"
    kept = sought.read_bytes()

    def make(how):
        sought.unlink(missing_ok=True)
        how()
        return answers(module)

    for name, how, message in [
            ("another build", lambda: shutil.copy(other.parent / sought.name, sought), OTHER),
            ("the module", lambda: shutil.copy(module, sought), "No split debug information in "),
            ("a pipe", lambda: os.mkfifo(sought), NOT_FOUND),
            ("a device", lambda: sought.symlink_to("/dev/zero"), NOT_FOUND),
            ("a link to itself", lambda: sought.symlink_to(sought.name), NOT_FOUND),
            ("a folder", sought.mkdir, NOT_FOUND),
            ("text", lambda: sought.write_text("no ELF file"), "Split debug information cannot be read: "),
            ("half of it", lambda: sought.write_bytes(kept[:len(kept) // 2]), NOT_FOUND),
            ("a large hole", lambda: os.truncate(os.open(sought, os.O_CREAT | os.O_RDWR), 1 << 40),
             "Split debug information is too large: ")]:
        got, log = make(how)
        expect(f"{version}: {name}: logged", message in log and log.count(NOT_FOUND) == 1, True)
        expect(f"{version}: {name}: lines", lines_of(got), lines_of(whole))
        if sought.is_dir():
            sought.rmdir()
    expect(f"{version}: the file itself", make(lambda: sought.write_bytes(kept))[0], whole)


def check_classic(folder):
    """The library's default leaves such files alone."""
    module = build(folder, "g++", 4, "-O2", "-DCLASSIC")
    os.environ["ORV_READING"] = "classic"
    frames, log = answers(module)
    os.environ["ORV_READING"] = "modern"
    expect("classic reading", (max(map(len, frames)), NOT_FOUND in log), (1, False))


def main():
    orv_tools.need("g++", "llvm-symbolizer", "addr2line", "objcopy")
    with tempfile.TemporaryDirectory() as folder:
        folder = pathlib.Path(folder)
        for compiler in ("g++", "clang++"):
            for version in (4, 5):
                for flags in (["-O0"], ["-O2"]):
                    if orv_tools.can(f"{compiler} {version} {flags}", compiler):
                        check_program(folder, compiler, version, flags)
        if orv_tools.can("inlined calls in skeletons", "clang++"):
            check_program(folder, "clang++", 5, ["-O2", "-fsplit-dwarf-inlining"])
        for version in (4, 5):
            check_places(folder, version)
            check_what_is_there(folder, version)
        check_classic(folder)
    orv_tools.finish()


if __name__ == "__main__":
    main()
