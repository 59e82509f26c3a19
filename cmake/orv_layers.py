# SPDX-License-Identifier: Apache-2.0
# SPDX-FileCopyrightText: The ORV authors
"""Holds the includes of the tree against cmake/layers.txt; names each one that points up, or out of a reader."""

import pathlib
import re
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent
READER_LAYERS = {"core", "format"}


def read_layers():
    text = (ROOT / "cmake/layers.txt").read_text().replace("\\\n", " ")
    ranks, readers = {}, {}
    for number, line in enumerate(reversed(text.splitlines())):
        line = line.split("#")[0]
        if ":" in line:
            folder, rest = line.split(":")
            names, public = rest.split("|")
            readers[folder] = ({name if name.startswith("orv_") else f"orv_{folder}_{name}" for name in names.split()}, set(public.split()))
            continue
        for folder in line.split():
            ranks[folder] = number
    return ranks, readers


def why_wrong(folder, stem, to_folder, to_file, ranks, readers):
    """What an include breaks; None where it is right."""
    files, public = readers.get(folder, (set(), set()))
    if stem in files:
        if to_folder == folder and pathlib.Path(to_file).stem not in files:
            return "leads from the reader into the loader"
        if to_folder == "orv" and to_file not in public:
            return "leads from the reader to clients"
        if to_folder not in READER_LAYERS | {folder, "orv"}:
            return "leads from the reader into a store"
    if to_folder not in (folder, "orv") and ranks.get(to_folder, len(ranks) + 100) >= ranks[folder]:
        return f"points up: {folder} lies below {to_folder}"
    return None


def main():
    ranks, readers = read_layers()
    wrong = count = 0
    for folder in ranks:
        for path in sorted((ROOT / folder).glob("*.*")):
            for number, line in enumerate(path.read_text().splitlines(), 1):
                included = re.match(r'#include "(\w+)/([^"]+)"', line)
                if not included:
                    continue
                count += included[1] not in (folder, "orv")
                why = why_wrong(folder, path.stem, included[1], included[2], ranks, readers)
                if why:
                    print(f"{folder}/{path.name}:{number}: {line.strip()} {why}")
                    wrong += 1
    for folder, (files, _) in readers.items():
        for missing in sorted(files - {path.stem for path in (ROOT / folder).glob("*.h")}):
            print(f"cmake/layers.txt: there is no {folder}/{missing}.h")
            wrong += 1
    for path in sorted((ROOT / "tools/orv").glob("*.*")):
        for number, line in enumerate(path.read_text().splitlines(), 1):
            if re.match(r'#include "(?!orv_cli_)', line):
                print(f"tools/orv/{path.name}:{number}: {line.strip()}: the client includes <orv/...> and its own headers")
                wrong += 1
    print(f"layers: {count} includes between folders, {wrong} of them wrong")
    return wrong != 0


sys.exit(main())
