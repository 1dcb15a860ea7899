#!/usr/bin/python3 -B
# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
"""Asks scripts/check-layers.py about every include that the project's sources could have, and compares
its answers with the picture and the table of docs/architecture.md and with the sources themselves. Of
the tables of the check nothing is read.

  arrows.py rooms      no room may include one that the picture shows above or beside it
  arrows.py layers     the updater's layers may include just what the table says
  arrows.py needed     what a shared room or a room of a program may include, it does include
  arrows.py modules    no module of the device may import one that the picture shows above or beside it

Prints how many answers were compared; exit status 1 when there were wrong ones, which it tells.
"""
import pathlib
import re
import subprocess
import sys
import tempfile

ROOT = pathlib.Path(__file__).resolve().parent.parent.parent
# One header of each library that a room has to be allowed.
LIBRARIES = {"Qt": "QString", "picojson": "picojson.h", "utfcpp": "utf8.h", "libzip": "zip.h",
             "libarchive": "archive.h",
             "libelf": "libelf.h", "gelf": "gelf.h", "zlib": "zlib.h", "bzip2": "bzlib.h",
             "CLI11": "CLI/CLI.hpp", "toml++": "toml++/toml.h", "dtl": "dtl/dtl.hpp",
             "libcrypto": "openssl/evp.h"}
# Headers that may be included by some who may not include the rest of their room.
HEADERS = ("engine/ILogger.h", "engine/q_UpdaterEngine.h", "engine/Installation.h",
           "app/Globals.h", "app/Options.h", "osa/PanelNames.h", "format/TomlTable.h")
CHAIN = ("engine", "steps", "model", "osa")  # what the picture shows side by side, with arrows


def places():
    """The folder of every room: {("src", "osa"): path}; main.cpp of a program stands in room ""."""
    found = {}
    for top in (ROOT / "src", ROOT / "lib", *sorted((ROOT / "tools").iterdir())):
        for path in top.rglob("*"):
            if path.suffix in (".h", ".cpp"):
                parts = path.relative_to(top).parts
                room = parts[0] if len(parts) > 1 else ""
                found[top.relative_to(ROOT).as_posix(), room] = top / room
    return found


def picture():
    """The columns of the picture as rows of words, from the top: {folder: rows} of the programs, each
    with the shared rooms below its own, and of those alone; and the device's."""
    text = (ROOT / "docs/architecture.md").read_text(encoding="utf-8")
    lines = text[text.index("kx_Updater "):].split("```")[0].splitlines()
    starts = {"tools/" + name: lines[0].index(name) for name in ("kx-package", "kx-panel")}
    right = lines[0].index("run ")
    shared = next(number for number, line in enumerate(lines) if "lib/" in line)
    chain = re.findall(r"src/(\w+)", lines[-1])
    assert tuple(chain) == CHAIN, chain
    rooms = [re.findall(r"\w+", line[min(starts.values()):right]) for line in lines[shared + 1:-1]]
    rooms = [*filter(None, rooms), *([name] for name in CHAIN)]
    columns = {"lib": rooms}
    for top, start in starts.items():
        end = min([place for place in starts.values() if place > start] + [right])
        own = [re.findall(r"\w+", line[start:end].split(f"{top}/")[-1])
               for line in lines[1:shared]]
        columns[top] = [*filter(None, own), *rooms]
    device = [re.findall(r"[\w/]+", line[right:]) for line in lines[1:-1]]
    return columns, [*filter(None, device)]


def answers(asked):
    """Whether check-layers.py allows each (place, include): {(place, include): bool}."""
    with tempfile.TemporaryDirectory() as name:
        tree = pathlib.Path(name)
        (tree / "src/osa").mkdir(parents=True)
        (tree / "src/osa/PanelNames.h").write_text('const char* k = "no";\n', encoding="utf-8")
        files = {}
        for number, (place, include) in enumerate(asked):
            file = tree.joinpath(*filter(None, place), f"Asked{number}.cpp")
            file.parent.mkdir(parents=True, exist_ok=True)
            quoted = include if include.startswith("<") else f'"{include}"'
            file.write_text(f"#include {quoted}\n", encoding="utf-8")
            files[file.relative_to(tree).as_posix()] = (place, include)
        for module in (ROOT / "device").glob("kx*/*.py"):
            copy = tree / module.relative_to(ROOT)
            copy.parent.mkdir(parents=True, exist_ok=True)
            copy.write_text("", encoding="utf-8")
        return checked(tree, files)


def checked(tree, files):
    """What check-layers.py says about the files of a tree."""
    done = subprocess.run([ROOT / "scripts/check-layers.py", tree], capture_output=True, text=True,
                          check=False)
    assert not done.stderr, done.stderr
    refused = {files[line.partition(": ")[0]] for line in done.stdout.splitlines()
               if line.partition(": ")[0] in files}
    assert refused and len(done.stdout.splitlines()) >= len(refused), done.stdout
    return {question: question not in refused for question in files.values()}


def everything():
    """Every question about a room."""
    rooms = places()
    targets = [f"{room}/Probe.h" for _, room in rooms if room] + list(HEADERS)
    targets += [f"<{header}>" for header in LIBRARIES.values()]
    return [(place, target) for place in rooms for target in targets
            if target.split("/")[0] != place[1]]


def names(place):
    """A place for people."""
    return "/".join(filter(None, place))


def rooms_problems():
    """Arrows that the picture does not show."""
    row_of = {top: {"": -1} | {room: row for row, rooms in enumerate(rows) for room in rooms}
              for top, rows in picture()[0].items()}
    asked = answers([question for question in everything() if "<" not in question[1]])
    for (place, target), allowed in asked.items():
        room = target.split("/")[0]
        if place[0] == "src":  # the updater's layers have a table of their own
            down = ("src", room) in places()
        else:
            rows = row_of[place[0]]
            assert place[1] in rows, f"{names(place)} is not in the picture"
            down = room in rows and rows[room] > rows[place[1]]
        if allowed and not down:
            yield f"{names(place)} may include {target}, which does not stand below it"
    yield len(asked)


def table():
    """The table of the updater's layers: {layer: (words of what it may include, of its libraries)}."""
    text = (ROOT / "docs/architecture.md").read_text(encoding="utf-8")
    rows = re.findall(r"^\| `(\w+)` \| [^|]* \| ([^|]*) \| ([^|]*) \|$",
                      text[text.index("| Layer "):].split("\n\n")[0], flags=re.M)
    assert len(rows) == 6, rows
    contract = "engine/ILogger.h engine/q_UpdaterEngine.h"
    return {layer: (set(re.findall(r"[\w/.]+", may.split(";")[0]
                                   .replace("the contract headers", contract))), links)
            for layer, may, links in rows}


def layers_problems():
    """Where the updater's layers are not those of the table."""
    asked = {question: allowed for question, allowed in answers(everything()).items()
             if question[0][0] == "src"}
    layers = table()
    for (place, target), allowed in asked.items():
        may, links = layers[place[1]]
        if target == "<picojson.h>":
            expected = "picojson" in links
        elif target == "<QString>":
            expected = "Qt" in links
        else:
            expected = target in may or target.split("/")[0] in may
        if allowed != expected:
            yield f"{names(place)} {'may' if allowed else 'must not'} include {target}"
    yield len(asked)


def includes_of(folder, inner):
    """All that the sources of a room include; inner: with what stands in its folders."""
    files = folder.rglob("*") if inner else folder.glob("*")
    for path in files:
        if path.suffix in (".h", ".cpp"):
            yield from re.findall(r'^#include "?([^"\s]+)', path.read_text(encoding="utf-8"),
                                  flags=re.M)


def is_used(target, included):
    """Tells whether a question is answered by what a room includes already."""
    if target == "<QString>":
        return any(re.match(r"<(Qt\w+/)?Q", one) for one in included)
    if target.endswith("/Probe.h") or target.startswith(("<CLI/", "<openssl/", "<toml++/")):
        return any(one.startswith(target.split("/")[0] + "/") for one in included)
    return target in included


def needed_problems():
    """Arrows that no source needs: they would let something in unseen."""
    rooms = {place: folder for place, folder in places().items() if place[0] != "src"}
    included = {place: set(includes_of(folder, place[1])) for place, folder in rooms.items()}
    asked = answers(everything())
    count = 0
    for (place, target), allowed in asked.items():
        if place not in rooms:
            continue
        count += 1
        whole = asked.get((place, target.split("/")[0] + "/Probe.h"), False)
        if allowed and not is_used(target, included[place]) and not (whole and target in HEADERS):
            yield f"{names(place)} may include {target}, and no file of it does"
    yield count


def modules_problems():
    """Where the modules of the device are not those of the picture."""
    rows, package = [], None
    for words in picture()[1]:
        if words[0].startswith("device/"):
            package = words[0].removeprefix("device/")
            continue
        if package is not None:
            rows.append([f"{package}.{word}" for word in words])
    row_of = {module: row for row, modules in enumerate(rows) for module in modules}
    with tempfile.TemporaryDirectory() as name:
        tree = pathlib.Path(name)
        for folder in ("src/osa", "lib/io", "tools/kx-package", "tools/kx-panel"):
            (tree / folder).mkdir(parents=True)
            (tree / folder / "PanelNames.h").write_text('const char* k = "no";\n', encoding="utf-8")
        for module in row_of:
            for target in row_of:
                file = tree / "device" / module.split(".")[0] / f"{module.split('.')[1]}.py"
                file.parent.mkdir(parents=True, exist_ok=True)
                with file.open("a", encoding="utf-8") as text:
                    if target != module:
                        text.write("from {} import {}\n".format(*target.split(".")))
        done = subprocess.run([ROOT / "scripts/check-layers.py", tree], capture_output=True,
                              text=True, check=False)
    assert not done.stderr, done.stderr
    refused = set(re.findall(r"^device/(\w+)/(\w+)\.py: must not import ([\w.]+)$", done.stdout,
                             flags=re.M))
    for module, row in row_of.items():
        for target, other in row_of.items():
            allowed = (*module.split("."), target) not in refused
            if module != target and allowed and other <= row:
                yield f"{module} may import {target}, which does not stand below it"
    yield len(row_of) * (len(row_of) - 1)


def main():
    """Compares."""
    kinds = {"rooms": rooms_problems, "layers": layers_problems, "needed": needed_problems,
             "modules": modules_problems}
    *problems, count = kinds[sys.argv[1]]()
    print("\n".join([*problems, f"{count} answers compared"]))
    return 1 if problems or count < 100 else 0


sys.exit(main())
