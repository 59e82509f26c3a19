# SPDX-License-Identifier: Apache-2.0
# SPDX-FileCopyrightText: The ORV authors
"""What the documents show works: client code runs, command lines succeed, and what they point at is there."""

import os
import pathlib
import re
import subprocess
import sys
import tempfile

sys.path[:0] = [str(pathlib.Path(__file__).resolve().parent.parent / "support")]
import orv_gpu_files

orv = pathlib.Path(os.environ["ORV"])
lib = pathlib.Path(os.environ["ORV_LIB"])
cxx = os.environ.get("CXX", "g++")
root = pathlib.Path(__file__).resolve().parents[2]
readme = (root / "README.md").read_text()

MAIN = """
extern "C" void asked_for() {}
int main() {
    unsigned long long const pc = reinterpret_cast<unsigned long long>(&asked_for);
    std::FILE* const maps = std::fopen("/proc/self/maps", "r");
    char line[1024];
    while (std::fgets(line, sizeof(line), maps) != nullptr) {
        Map map = {};
        if (std::sscanf(line, "%llx-%llx %*s %llx %*s %*s %511s", &map.start, &map.end, &map.offset, map.path) == 4 &&
            map.start <= pc && pc < map.end) {
            name(pc, map);
        }
    }
}
"""

# What an app might be.
OAT = """oat 22 base=0x10000 exec=0x1000
dex
class com.example.Shop
  method direct price(I)I code=32
    map 0:0 4:1 8:2
    debug 12 : step 0 0; step 1 1; step 1 1; end
class com.example.Shop$Item source=Item.java
  method direct <init>()V code=16
    map 0:0
    debug 30 : step 0 0; end
"""

# What the examples of headers speak of.
CONTEXT = """
using namespace orv;
struct Map { unsigned long long start, offset; } map;
unsigned long long pc, rsp, rbp, stackAddress;
bool isInteger;
char const* name;
SymMgrObjectPtr<ISymbolManager> manager;
SymMgrObjectPtr<IModuleSymbolBank> bank;
SymMgrObjectPtr<IFileFormatLoader> loader;
SymMgrObjectPtr<IAddress> address;
SymMgrObjectPtr<ISymbol> variable;
SymMgrObjectPtr<IIterator<SymMgrObjectPtr<ISymbol>>> it;
void use(ISymbol&);
"""

with tempfile.TemporaryDirectory() as folder:
    folder = pathlib.Path(folder)
    code = re.search(r"```cpp\n(.*?)```", readme, re.S)[1]
    includes = [line for line in code.splitlines() if line.startswith(("#include", "using"))]
    body = [line for line in code.splitlines() if line not in includes]
    (folder / "prog.cpp").write_text("\n".join(
        ["#include <cinttypes>", "#include <cstdio>", "#include <cstring>", *includes,
         "struct Map { unsigned long long start, end, offset; char path[512]; };",
         "static void name(unsigned long long pc, Map const& map) {", *body, "}", MAIN]))
    # Other documents have pieces of clients, over the names that they speak of.
    for document in root.glob("docs/*.md"):
        for piece in re.findall(r"```cpp\n(.*?)```", document.read_text(), re.S):
            source = ("#include <cstdio>\n#include <orv/orv.h>\nusing namespace orv;\nvoid piece(IModuleSymbolBank* bank, "
                      f"SymMgrObjectPtr<IAddress> address) {{\n{piece}}}\n")
            subprocess.run([cxx, "-std=c++17", "-Wall", "-Werror", f"-I{root / 'include'}", "-fsyntax-only", "-x", "c++", "-"],
                           input=source, text=True, check=True)
    # So have headers, at their head.
    for header in (root / "include/orv").glob("*.h"):
        piece = re.search(r"(?:^///     .*\n)*", header.read_text()[header.read_text().find("///     "):], re.M)[0].replace("///", "")
        source = f"#include <cstdio>\n#include <iostream>\n#include <orv/{header.name}>\n#include <orv/orv.h>\n" + CONTEXT + \
            f"void piece() {{\n{piece}}}\n"
        subprocess.run([cxx, "-std=c++17", f"-I{root / 'include'}", "-fsyntax-only", "-x", "c++", "-"], input=source, text=True,
                       check=True)
    # Whatever the program is made like, it names a function of its own.
    for flags in (["-gdwarf-4"], ["-g"], ["-g", "-no-pie"], ["-std=c++14"], ["-gdwarf-4", "-no-pie"]):
        subprocess.run([cxx, "-std=c++17", *flags, "-Wall", "-Werror", f"-I{root / 'include'}", "-o", folder / "prog",
                        folder / "prog.cpp", lib, f"-Wl,-rpath,{lib.parent}"], check=True)
        said = subprocess.run([folder / "prog"], check=True, capture_output=True, text=True).stdout
        place = f"{folder}/prog.cpp:" if "-gdwarf-4" in flags else "??:0\n"
        assert said.startswith(f"asked_for at {place}"), (flags, said)
    (folder / "orv-addr2line").symlink_to(orv)

    (folder / "oat").write_text(OAT)
    subprocess.run([os.environ["ORV_OAT_MAKE"], folder / "oat", folder / "app.oat"], check=True)
    image = orv_gpu_files.mira(folder, [(3, 5), (9, 5)])
    isa = orv_gpu_files.blob([("blur", [(2, 16), (5, 32), (7, 48)]), ("sum", [(2, 16)])])
    (folder / "blur.clpdb").write_bytes(orv_gpu_files.qdc([("blur", image, isa), ("sum", image, isa)]))
    for binary in ("blur.clbin", "sum.clbin"):
        (folder / binary).write_bytes(bytes(64))
    commands = re.search(r"## On the command line\n\n```\n(.*?)```", readme, re.S)[1]
    commands += re.search(r"\.SH EXAMPLES\n\.nf\n(.*?)\.fi", (root / "docs/orv.1").read_text(), re.S)[1]
    (folder / "addresses").write_text("main\n")
    lines = [part.strip() for line in commands.splitlines() for part in line.split("#")[0].split(";")]
    for line in filter(None, lines):
        assert line.startswith(("orv ", "orv-addr2line ", "ORV_USE_LEGACY_OAT_READER=1 orv ")), line
        subprocess.run(line, shell=True, check=True, cwd=folder, stdout=subprocess.DEVNULL,
                       env={**os.environ, "PATH": f"{folder}:{orv.parent}:{os.environ['PATH']}"})
    for document in root.glob("docs/*.md"):
        for script in re.findall(r"```sh\n(.*?)```", document.read_text(), re.S):
            subprocess.run(["bash", "-eu"], input=script, text=True, check=True, cwd=folder, stdout=subprocess.DEVNULL,
                           env={**os.environ, "PATH": f"{orv.parent}:{os.environ['PATH']}"})
            lines += script.splitlines()
    print(f"{len(lines)} commands")
for document in [root / "README.md", *root.glob("docs/*.md")]:
    for name in re.findall(r"\]\(([^)#:]+)\)", document.read_text()):
        assert (document.parent / name).exists(), (document, name)
sys.exit(0)
