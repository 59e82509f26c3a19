"""What the README shows works: its client code runs, and its command lines succeed."""

import os
import pathlib
import re
import subprocess
import sys
import tempfile

orv = pathlib.Path(os.environ["ORV"])
lib = pathlib.Path(os.environ["ORV_LIB"])
cxx = os.environ.get("CXX", "g++")
root = pathlib.Path(__file__).resolve().parents[2]
readme = (root / "README.md").read_text()

with tempfile.TemporaryDirectory() as folder:
    folder = pathlib.Path(folder)
    code = re.search(r"```cpp\n(.*?)```", readme, re.S)[1]
    includes = [line for line in code.splitlines() if line.startswith(("#include", "using"))]
    body = [line for line in code.splitlines() if line not in includes]
    (folder / "prog.cpp").write_text("\n".join(
        ["#include <cstdio>", *includes, "static void name(unsigned long long pc, unsigned long long loadBase) {", *body,
         "}", "int main() { name(0x5000, 0); }", ""]))
    subprocess.run([cxx, "-std=c++17", "-Wall", "-Werror", "-gdwarf-4", f"-I{root / 'include'}", "-no-pie", "-o", folder / "prog",
                    folder / "prog.cpp", lib, f"-Wl,-rpath,{lib.parent}"], check=True)
    subprocess.run([folder / "prog"], check=True)

    commands = re.search(r"## On the command line\n\n```\n(.*?)```", readme, re.S)[1]
    lines = [part.strip() for line in commands.splitlines() for part in line.split("#")[0].split(";")]
    for line in filter(None, lines):
        assert line.startswith("orv "), line
        subprocess.run(line, shell=True, check=True, cwd=folder, stdout=subprocess.DEVNULL,
                       env={**os.environ, "PATH": f"{orv.parent}:{os.environ['PATH']}"})
    print(f"{len(lines)} commands")
for name in re.findall(r"\]\(([^)#:]+)\)", readme):
    assert (root / name).exists(), name
sys.exit(0)
