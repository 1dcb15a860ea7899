#!/usr/bin/python3
# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
"""Checks that every layer of src/ includes only what it may.

The table is the one of docs/architecture.md; a new arrow is a change of one line here.
"""
import pathlib
import re
import sys

CONTRACTS = {"engine/ILogger.h", "engine/q_UpdaterEngine.h"}
ALLOWED = {
    # layer: (layers and single headers it may include, libraries it may include)
    "osa": ({"osa", "engine/q_UpdaterEngine.h"}, set()),
    "model": ({"model", "osa"} | CONTRACTS, {"picojson.h"}),
    "steps": ({"steps", "osa", "model"} | CONTRACTS, {"picojson.h"}),
    "engine": ({"engine", "osa", "model", "steps"}, {"picojson.h"}),
    "gui": ({"gui", "osa", "model", "engine", "app/Globals.h", "app/Options.h"}, {"Q"}),
    "app": ({"app", "osa", "model", "engine", "steps"}, {"Q", "picojson.h"}),
}
# Leaf headers: nothing but the standard library.
LEAVES = CONTRACTS | {"osa/PanelNames.h"}
# The names of the panel stand in this header and in no other string.
NAMES = "osa/PanelNames.h"
# The only file of src/app that may include the window.
GUI_USER = "app/RunModes.cpp"
INCLUDE = re.compile(r'^\s*#\s*include\s+(["<])([^">]+)[">]', re.M)


def problems_of(root, path):
    name = path.relative_to(root).as_posix()
    layer = name.split("/")[0]
    if layer not in ALLOWED:
        yield f"src/{name}: the folder '{layer}' is no known layer"
        return
    headers, libraries = ALLOWED[layer]
    for mark, target in INCLUDE.findall(path.read_text(encoding="utf-8")):
        if mark == "<":
            is_qt = re.fullmatch(r"(Qt\w+/)?Q\w+", target) is not None
            if is_qt and "Q" not in libraries:
                yield f"src/{name}: the layer {layer} is free of Qt, but includes <{target}>"
            elif target == "picojson.h" and target not in libraries:
                yield f"src/{name}: the layer {layer} must not see JSON, but includes <{target}>"
            continue
        if name in LEAVES:
            yield f'src/{name}: a leaf header includes only the standard library, not "{target}"'
        elif "/" not in target:
            yield f'src/{name}: write "{target}" with its layer'
        elif target.startswith("gui/") and name == GUI_USER:
            continue
        elif target not in headers and target.split("/")[0] not in headers:
            yield f'src/{name}: the layer {layer} must not include "{target}"'


def literals_of(path):
    """The texts between quotes, as they stand in the source."""
    code = re.sub(r"//.*", "", path.read_text(encoding="utf-8"))
    includes = re.sub(r"(?m)^\s*#.*$", "", code)
    return re.findall(r'"((?:[^"\\\n]|\\.)*)"', includes)


def repeated_names(root, files):
    """Names of the panel that stand in another file, alone or as the last part of a path."""
    names = literals_of(root / NAMES)
    if not names:
        yield f"src/{NAMES}: no name found"
    for path in files:
        if path == root / NAMES:
            continue
        for text in literals_of(path):
            if any(text == name or text.endswith("/" + name) for name in names):
                yield f'src/{path.relative_to(root).as_posix()}: "{text}" stands in {NAMES}'


def main():
    root = pathlib.Path(sys.argv[1] if len(sys.argv) > 1 else "src")
    files = sorted(p for p in root.rglob("*") if p.suffix in {".h", ".cpp"})
    if not files:
        sys.exit(f"check-layers: no sources below {root}")
    problems = [problem for path in files for problem in problems_of(root, path)]
    problems += repeated_names(root, files)
    print("\n".join(problems) if problems else f"{len(files)} files keep to their layers")
    sys.exit(1 if problems else 0)


main()
