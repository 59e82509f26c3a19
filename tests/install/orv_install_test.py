"""Installs into a folder, and builds the example against it by CMake package and by pkg-config."""

import os
import pathlib
import subprocess
import sys
import tempfile

build = sys.argv[1]
cmake = os.environ.get("CMAKE", "cmake")
cxx = os.environ.get("CXX", "g++")
examples = pathlib.Path(__file__).resolve().parents[2] / "examples"


def run(*command, **more):
    return subprocess.run(command, check=True, capture_output=True, text=True, **more).stdout


with tempfile.TemporaryDirectory() as folder:
    prefix = pathlib.Path(folder) / "prefix"
    run(cmake, "--install", build, "--prefix", str(prefix))
    lib = next(prefix.glob("lib*/**/liborv.so")).parent
    for wanted in ["include/orv/orv.h", "bin/orv", "share/man/man1/orv.1", "share/bash-completion/completions/orv"]:
        assert (prefix / wanted).exists(), wanted

    by_cmake = pathlib.Path(folder) / "by-cmake"
    run(cmake, "-G", "Ninja", "-S", str(examples / "installed"), "-B", str(by_cmake), f"-DCMAKE_PREFIX_PATH={prefix}",
        f"-DCMAKE_CXX_COMPILER={cxx}")
    run(cmake, "--build", str(by_cmake))

    flags = run("pkg-config", "--cflags", "--libs", "orv", env={**os.environ, "PKG_CONFIG_PATH": str(lib / "pkgconfig")})
    by_pkg_config = pathlib.Path(folder) / "by-pkg-config"
    run(cxx, "-std=c++17", "-Wall", "-Wextra", "-Werror", str(examples / "orv_name_address.cpp"), "-o",
        str(by_pkg_config), *flags.split())

    symbols = run("nm", "-D", "--defined-only", str(lib / "liborv.so"))
    name, address = next((l.split()[2], l.split()[0]) for l in symbols.splitlines() if "toUString" in l)
    for program in [by_cmake / "orv_name_address", by_pkg_config]:
        env = {**os.environ, "LD_LIBRARY_PATH": str(lib)}
        answer = run(str(program), str(lib / "liborv.so"), address, env=env)
        assert answer == "ORV_3_30::toUString(ORV_3_30::status_t)+0x0\n", answer
    client = run(str(prefix / "bin/orv"), "symbolize", "-fe", str(lib / "liborv.so"), address)
    assert client == f"{name}\n??:?\n", client
print("installed, and built both ways")
