# SPDX-License-Identifier: Apache-2.0
# SPDX-FileCopyrightText: The ORV authors
"""Installs into a folder, and builds the example against it by CMake package and by pkg-config."""

import os
import pathlib
import re
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
    for wanted in ["include/orv/orv.h", "bin/orv", "bin/orv-addr2line", "share/man/man1/orv.1", "share/doc/orv/LICENSE",
                   "share/doc/orv/docs/addr2line.md", "share/bash-completion/completions/orv"]:
        assert (prefix / wanted).exists(), wanted

    for document in (prefix / "share/doc/orv").rglob("*.md"):
        for name in re.findall(r"\]\(([^)#:]+)\)", document.read_text()):
            assert (document.parent / name).exists(), (document.name, name)

    # Each header stands alone, in every standard that is promised, and is silent.
    headers = sorted((prefix / "include/orv").glob("*.h"))
    for standard in ("c++14", "c++20"):
        for header in headers:
            run(cxx, f"-std={standard}", "-Wall", "-Wextra", "-Wpedantic", "-Wnon-virtual-dtor", "-Werror", "-fsyntax-only",
                f"-I{prefix / 'include'}", "-x", "c++", "-", input=f"#include <orv/{header.name}>\n")

    def configure(source, into, find=None, *more):
        """A project with the example, told in another way where the library is."""
        source = pathlib.Path(source)
        if find is not None:
            source.mkdir()
            (source / "CMakeLists.txt").write_text(
                f"cmake_minimum_required(VERSION 3.25)\nproject(p LANGUAGES C CXX)\nset(CMAKE_CXX_STANDARD 17)\n{find}\n")
        return subprocess.run([cmake, "-G", "Ninja", "-S", str(source), "-B", str(into), f"-DCMAKE_PREFIX_PATH={prefix}",
                               f"-DCMAKE_CXX_COMPILER={cxx}", *more], capture_output=True, text=True).returncode == 0

    by_cmake = pathlib.Path(folder) / "by-cmake"
    assert configure(examples / "installed", by_cmake)
    run(cmake, "--build", str(by_cmake))
    has_servers = (lib / "cmake/orv/orvDebuginfodTargets.cmake").exists()
    has_static = (lib / "liborv.a").exists()
    for number, (find, is_found) in enumerate((
            ("find_package(orv REQUIRED)", True), ("find_package(orv 3.30 EXACT REQUIRED)", True),
            ("find_package(orv 3.29 REQUIRED)", False), ("find_package(orv 3.31 REQUIRED)", False),
            ("find_package(orv 4 REQUIRED)", False), ("find_package(orv COMPONENTS nosuch REQUIRED)", False),
            ("find_package(orv COMPONENTS debuginfod REQUIRED)\nget_target_property(x orv::orv_debuginfod LOCATION)", has_servers),
            (f"find_package(orv 3 COMPONENTS static REQUIRED)\nadd_executable(x {examples}/orv_name_address.cpp)"
             "\ntarget_link_libraries(x orv::orv_static)", has_static))):
        assert configure(f"{folder}/p{number}", f"{folder}/b{number}", find) == is_found, find
    if has_static:
        run(cmake, "--build", f"{folder}/b{number}")
        needed = run("readelf", "-d", f"{folder}/b{number}/x")
        assert "liborv" not in needed, needed
    # Without the library for servers the package is whole.
    for left in [*lib.glob("cmake/orv/orvDebuginfod*"), *lib.glob("liborv_debuginfod*")]:
        left.unlink()
    assert configure(f"{folder}/p", f"{folder}/b", "find_package(orv REQUIRED)\nget_target_property(x orv::orv LOCATION)")
    assert not configure(f"{folder}/q", f"{folder}/c", "find_package(orv COMPONENTS debuginfod REQUIRED)")
    # Below a project of its own.
    root = examples.parent
    assert configure(f"{folder}/r", f"{folder}/d", f"add_subdirectory({root} orv)\nadd_executable(x {examples}/orv_name_address.cpp)"
                     "\ntarget_link_libraries(x orv::orv)")
    targets = run(cmake, "--build", f"{folder}/d", "--target", "help")
    assert "orv_client" not in targets and "orv_tests" not in targets

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
    env = {**os.environ, "LD_LIBRARY_PATH": str(lib)}
    for client in (["orv", "symbolize"], ["orv-addr2line"]):
        answer = run(str(prefix / "bin" / client[0]), *client[1:], "-fe", str(lib / "liborv.so"), address, env=env)
        assert answer == f"{name}\n??:?\n", answer

    # What can't be read is said once, and the name comes all the same: of a program as compilers make it today.
    program = pathlib.Path(folder) / "program"
    run(cxx, "-g", "-no-pie", "-x", "c++", "-", "-o", str(program), input="extern \"C\" void asked_for() {} int main() {}")
    start = next(l.split()[0] for l in run("nm", str(program)).splitlines() if l.endswith(" asked_for"))
    assert run(str(by_cmake / "orv_name_address"), str(program), start, env=env) == "asked_for+0x0\n"

    # The static library, with what it needs: nothing of another package's .pc file.
    config = {**os.environ, "PKG_CONFIG_LIBDIR": str(lib / "pkgconfig"), "PKG_CONFIG_PATH": ""}
    named = run("pkg-config", "--static", "--cflags", "--libs", "orv", env=config).split()
    if has_static:
        static = pathlib.Path(folder) / "static"
        run(cxx, "-std=c++17", str(examples / "orv_name_address.cpp"), "-o", str(static),
            *("-l:liborv.a" if flag == "-lorv" else flag for flag in named))
        answer = run(str(static), str(lib / "liborv.so"), address)
        assert answer == "ORV_3_30::toUString(ORV_3_30::status_t)+0x0\n", answer
print("installed, and built both ways")
