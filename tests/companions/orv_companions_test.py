# SPDX-License-Identifier: Apache-2.0
# SPDX-FileCopyrightText: The ORV authors
"""Stripped modules and their companions: whatever way a companion is found, the answers are those of the module as it
was built; debuginfod servers of every temper."""

import http.server
import json
import os
import pathlib
import shutil
import socket
import subprocess
import sys
import tempfile
import threading
import time
import urllib.request

sys.path[:0] = [str(pathlib.Path(__file__).resolve().parent.parent / "support")]
import orv_tools
from orv_tools import ORV, expect, must

FIXTURES = pathlib.Path(__file__).resolve().parent.parent / "fixtures"
EMPTY = ["--debug-root", "/no/such/folder"]


def run(*command, env=None):
    return orv_tools.run(*command, env={**os.environ, **env} if env else None)


def build(folder, name, *flags):
    must("gcc", "-O2", "-Wl,--build-id", *flags, "-shared", "-fPIC", f"-I{FIXTURES}", "-o", folder / name,
         FIXTURES / "shapes.c", FIXTURES / "shapes_main.c")
    return folder / name


def answers(module, *flags, shift=0, env=None):
    """Chains at every function of the module as it was built."""
    return run(ORV, "symbolize", "-fi", *(flags or EMPTY), "-e", module, *(f"{a + shift:x}" for a in answers.addresses),
               env=env)


def split(built, folder, name="m"):
    """The stripped module and its companion, in a folder of their own."""
    folder.mkdir()
    companion, module = folder / f"{name}.debug", folder / name
    must("objcopy", "--only-keep-debug", built, companion)
    must("objcopy", "--strip-all", f"--add-gnu-debuglink={companion}", built, module)
    return module, companion


def relink(module, companion):
    """After a change of the companion, or a move."""
    must("objcopy", "--remove-section", ".gnu_debuglink", module)
    must("objcopy", f"--add-gnu-debuglink={companion}", module)


def candidates(module, *flags):
    return [json.loads(line) for line in run(ORV, "candidates", "--json", *flags, module).stdout.splitlines()]


def check_places(built, whole, folder):
    """Beside the module, in .debug, under roots, by name, as a file of its own: all say what the whole module says."""
    module, companion = split(built, folder / "beside")
    expect("beside", answers(module).stdout, whole)
    hidden = module.parent / ".debug" / companion.name
    hidden.parent.mkdir()
    shutil.move(companion, hidden)
    expect("in .debug", answers(module).stdout, whole)
    companion.write_text("of another build")
    expect("wrong beside, right in .debug", answers(module).stdout, whole)
    hidden.unlink()
    found = candidates(module, *EMPTY)
    expect("both wrong", [(c["kind"], c["taken"], c["validity"], c["reason"].split(":")[0]) for c in found],
           [("build id", False, 4, "no such file under /no/such/folder"),
            ("debug link", False, 3, "beside the module is a file of that name, with another CRC")])

    module, companion = split(built, folder / "roots")
    root = folder / "root"
    by_id = root / candidates(module, *EMPTY)[0]["name"]
    by_id.parent.mkdir(parents=True)
    shutil.move(companion, by_id)
    expect("under a root by build id", answers(module, "--debug-root", "/none", "--debug-root", root).stdout, whole)
    by_name = pathlib.Path(f"{root}{module.resolve().parent}") / companion.name
    by_name.parent.mkdir(parents=True)
    shutil.move(by_id, by_name)
    expect("under a root by name", answers(module, "--debug-root", root).stdout, whole)
    first, taken = candidates(module, "--debug-root", root)
    expect("taken by name", (taken["taken"], taken["name"], taken["reason"]),
           (True, str(by_name), "the CRC is the one that the module names"))
    expect("not looked for", first["reason"], "not looked for any further: another one is taken")
    both = run(ORV, "--debug-root", root, "candidates", "--json", "--debug-root", "/none", module).stdout.splitlines()
    expect("roots ahead of the command and behind it", json.loads(both[1])["taken"], True)
    second = folder / "second"
    (second / by_id.relative_to(root)).parent.mkdir(parents=True)
    shutil.copy(by_name, second / by_id.relative_to(root))
    (root / "usr").mkdir()
    shutil.copy(by_name, root / "usr")
    for place in (module, shutil.copy(module, root / "usr")):
        found = candidates(place, "--debug-root", root, "--debug-root", second)
        expect(f"by build id in any root: {place}", found[0]["taken"], True)
    by_id.write_bytes(built.with_name("other").read_bytes())
    reason = candidates(module, "--debug-root", root)[0]["reason"]
    expect("of another build", reason, f"{by_id} belongs to another build")
    by_id.unlink()
    expect("named by the user", answers(module, *EMPTY, "--symbol-file", by_name).stdout, whole)
    for file, words, reason in ((built.with_name("other"), "is no companion of", "belongs to another build"),
                                (folder / "none", "cannot be opened", "cannot be opened"),
                                (folder, "is no regular file", "is no regular file")):
        refused = answers(module, *EMPTY, "--symbol-file", file)
        expect(f"refused: {file.name}", (refused.returncode, words in refused.stderr), (1, True))
        reasons = {listed["reason"] for listed in candidates(module, *EMPTY, "--symbol-file", file)}
        expect(f"why: {file.name}", reasons, {f"{file} {reason}"})
    return module, by_name


def check_moved(built, whole, folder):
    """The module stands elsewhere than its companion says."""
    module, companion = split(built, folder / "moved")
    must("objcopy", "--change-addresses", "0x40000", module)
    relink(module, companion)
    expect("a module moved up", answers(module, shift=0x40000).stdout, whole)
    names = {json.loads(line)["name"]: json.loads(line)["start"] for line in
             run(ORV, "symbols", "--json", *EMPTY, module).stdout.splitlines()}
    expect("its symbols too", int(names["main"], 16), answers.main + 0x40000)


def check_newer(folder):
    """A companion of DWARF 5: the refusal, and its symbols."""
    module, _ = split(build(folder, "five", "-gdwarf-5"), folder / "newer")
    result = run(ORV, "symbolize", *EMPTY, "-fe", module, f"{answers.main:x}")
    expect("DWARF 5", ("DWARF version above 4" in result.stderr, result.stdout), (True, "main\n??:?\n"))


class Server:
    """Of python's own: answers with what it is given, or not at all."""

    def __init__(self, body):
        class Handler(http.server.BaseHTTPRequestHandler):
            def do_GET(self):
                self.send_response(200)
                self.send_header("Content-Length", str(len(body)))
                self.end_headers()
                self.wfile.write(body)

            def log_message(self, *arguments):
                pass

        self.server = http.server.HTTPServer(("127.0.0.1", 0), Handler)
        threading.Thread(target=self.server.serve_forever, daemon=True).start()
        self.url = f"http://127.0.0.1:{self.server.server_port}"


def free_port():
    with socket.socket() as one:
        one.bind(("127.0.0.1", 0))
        return one.getsockname()[1]


def check_servers(module, companion, whole, folder):
    def ask(what, urls, wanted, words="", most=30.0):
        cache = tempfile.mkdtemp(dir=folder)
        begin = time.monotonic()
        result = answers(module, "--debuginfod", *EMPTY, env={
            "DEBUGINFOD_URLS": urls, "DEBUGINFOD_CACHE_PATH": cache, "DEBUGINFOD_TIMEOUT": "2", "DEBUGINFOD_MAXTIME": "3"})
        expect(what, (result.returncode, result.stdout == whole, words in result.stderr), (0, wanted, True))
        expect(f"{what}: bounded", time.monotonic() - begin < most, True)

    ask("no servers", "", False, "DEBUGINFOD_URLS is not set")
    ask("a server that is down", f"http://127.0.0.1:{free_port()}", False, "no debuginfod server gives the companion")
    with socket.create_server(("127.0.0.1", 0)) as silent:
        ask("a server that hangs", f"http://127.0.0.1:{silent.getsockname()[1]}", False, "no debuginfod server")
    ask("a server that sends a wrong file", Server(folder.joinpath("other").read_bytes()).url, False, "of another build")
    ask("a server that sends no ELF file", Server(b"x" * 100).url, False, "of another build")

    if not orv_tools.can("a real server", "debuginfod"):
        return
    served = folder / "served"
    served.mkdir()
    shutil.copy(companion, served)
    port = free_port()
    with subprocess.Popen(["debuginfod", "-F", "-p", str(port), "-d", str(folder / "db"), "-t0", "-g0", str(served)],
                          stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL) as process:
        try:
            url = f"http://127.0.0.1:{port}"
            for _ in range(300):
                try:
                    metrics = urllib.request.urlopen(f"{url}/metrics", timeout=5).read().decode()
                    if 'scanned_files_total{source="file"}' in metrics or "thread_work_total{role=\"scan\"} 1" in metrics:
                        break
                except OSError:
                    pass
                time.sleep(0.1)
            ask("a real server that has it", url, True)
            ask("behind one that is down", f"http://127.0.0.1:{free_port()} {url}", True)
            other, unknown = split(folder / "other", folder / "lacking")
            unknown.unlink()
            result = run(ORV, "symbolize", "--debuginfod", *EMPTY, "-fe", other, f"{answers.main:x}", env={
                "DEBUGINFOD_URLS": url, "DEBUGINFOD_CACHE_PATH": str(folder / "cache")})
            expect("a real server that lacks it", (result.returncode, "no debuginfod server" in result.stderr), (0, True))
        finally:
            process.terminate()


def main():
    with tempfile.TemporaryDirectory() as folder:
        folder = pathlib.Path(folder)
        built = build(folder, "built", "-gdwarf-4")
        build(folder, "other", "-gdwarf-4", "-DOTHER=1", "-O1")
        symbols = [line.split() for line in must("nm", "-S", "--defined-only", built).splitlines()]
        functions = {words[3]: int(words[0], 16) for words in symbols if len(words) == 4 and words[2] in "tT"}
        answers.addresses = [start + i for start in functions.values() for i in (0, 5, 11)]
        answers.main = functions["main"]
        whole = answers(built).stdout
        expect("the module itself has lines", "shapes.c:" in whole and "shapes_main.c:" in whole, True)
        module, companion = check_places(built, whole, folder)
        check_moved(built, whole, folder)
        check_newer(folder)
        check_servers(module, companion, whole, folder)
    orv_tools.finish()


if __name__ == "__main__":
    main()
