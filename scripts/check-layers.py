#!/usr/bin/python3
# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
"""Checks that every layer of src/, every shared room of lib/, every folder of a companion program and
every module of the sandboxed device includes only what it may.

The tables are those of docs/architecture.md; a new arrow is a change of one line here. A row of the
tables to which no source belongs is an error, like a source to which no row belongs.
"""
import argparse
import ast
import pathlib
import re
import sys

CONTRACTS = {"engine/ILogger.h", "engine/q_UpdaterEngine.h"}
JSON = {"picojson.h"}
SRC = {
    # layer: (layers and single headers it may include, libraries it may include)
    "osa": ({"engine/q_UpdaterEngine.h"}, set()),
    "model": ({"osa"} | CONTRACTS, JSON),
    "steps": ({"osa", "model"} | CONTRACTS, JSON),
    "engine": ({"osa", "model", "steps"}, JSON),
    "gui": ({"osa", "model", "engine", "app/Globals.h", "app/Options.h"}, {"Qt"}),
    "app": ({"osa", "model", "engine", "steps"}, {"Qt"}),
}
# A shared room never looks up into a program's folders, nor sideways but along these arrows.
LIB = {
    "io": (set(), {"utf8.h"}),
    "cli": ({"io"}, JSON | {"CLI"}),
    "panel": ({"osa/PanelNames.h"}, set()),
    "archive": ({"io", "panel"}, {"archive.h", "archive_entry.h", "zip.h", "zlib.h", "bzlib.h"}),
    "format": ({"io", "panel", "archive", "osa", "model", "steps", "engine/Installation.h"},
               JSON | {"toml++", "gelf.h", "libelf.h"}),
    "signature": ({"io", "panel", "archive", "format/TomlTable.h"}, {"openssl"}),
    "rehearsal": ({"io", "panel", "archive", "format", "osa", "model", "engine"}, set()),
    "checks": ({"io", "panel", "archive", "format", "rehearsal", "signature", "osa", "model"}, JSON),
    "registry": ({"io", "panel", "archive", "format", "osa", "model", "engine"}, set()),
}
TOOL = {
    "common": ({"io", "cli"}, set()),
    "manifest": ({"io", "panel", "archive", "format", "osa", "common"}, set()),
    "compose": ({"io", "archive", "format", "signature", "model", "common", "manifest"}, set()),
    "schema": ({"cli", "format", "model"}, JSON),
    "trial": ({"io", "archive", "format", "osa", "engine", "rehearsal", "compose"}, JSON),
    "stick": ({"io", "panel", "archive", "engine"}, set()),
    "signing": ({"io", "signature", "trial"}, set()),
    "compare": ({"io", "panel", "format", "model", "osa", "compose", "unpack"}, {"dtl"}),
    "unpack": ({"io", "archive", "format", "model", "osa", "manifest", "compose"}, set()),
    "commands": ({"io", "cli", "archive", "format", "checks", "rehearsal", "registry", "signature",
                  "osa", "common", "manifest", "compose", "schema", "trial", "unpack", "compare",
                  "stick", "signing"},
                 JSON | {"CLI"}),
    "": ({"cli", "commands"}, set()),  # main.cpp
}
PANEL_TOOL = {
    "policy": ({"io", "format", "signature"}, set()),
    "confined": ({"io"}, {"seccomp.h"}),
    "reading": ({"io", "panel", "archive", "format", "checks", "signature", "osa", "policy",
                 "confined"}, set()),
    "decision": ({"io", "panel", "archive", "checks", "signature", "policy", "confined", "reading"},
                 set()),
    "journal": ({"io", "panel", "format", "registry", "signature", "policy", "decision"}, JSON),
    "road": ({"io", "panel", "archive", "signature", "policy", "confined", "reading", "decision",
              "journal"}, set()),
    "commands": ({"io", "cli", "panel", "archive", "signature", "policy", "confined", "reading",
                  "decision", "journal", "road"}, JSON | {"CLI"}),
    "": ({"cli", "commands"}, set()),  # main.cpp
}
TABLES = {"src": SRC, "lib": LIB, "tools/kx-package": TOOL, "tools/kx-panel": PANEL_TOOL}
# The sandboxed device: a module knows those of the rows above its own.
DEVICE = (
    ("kxdevice.linux", "kxdevice.names", "kxdevice.cgroups", "kxdevice.link"),
    ("kxdevice.trees", "kxdevice.ids", "kxdevice.options"),
    ("kxdevice.state", "kxdevice.files", "kxdevice.etc", "kxdevice.launch",
     "kxdevice.programs", "kxdevice.trace", "kxdevice.usr", "kxdevice.summary"),
    ("kxdevice.host", "kxdevice.tools"),
    ("kxdevice.panel", "kxdevice.drive"),
    ("kxdevice.supervisor",),
    ("kxdevice.keeper",),
    ("kxdevice.front",),
    ("kxoperate.shared",),
    ("kxoperate.probe", "kxoperate.screen", "kxoperate.script"),
    ("kxoperate.command", "kxoperate.window"),
)
ROOMS = {room for table in TABLES.values() for room in table}
# Leaf headers: nothing but the standard library.
LEAVES = {f"src/{name}" for name in CONTRACTS | {"osa/PanelNames.h"}}
# The names of the panel stand in this header and in no other string, but in the
# description of the panel.
NAMES = "src/osa/PanelNames.h"
PANEL = "lib/panel"
# The only file of src/app that may include the window.
GUI_USER = "src/app/RunModes.cpp"
SUFFIXES = {".h", ".hpp", ".hh", ".inc", ".ipp", ".tpp", ".cpp", ".cc", ".cxx", ".c"}
# Libraries that a layer must be allowed.
GUARDED = {"picojson.h", "utf8.h", "archive.h", "archive_entry.h", "zip.h", "zlib.h", "bzlib.h",
           "gelf.h", "libelf.h", "seccomp.h"}
INCLUDE = re.compile(r'^\s*#\s*include\s+(["<])([^">]+)[">]', re.M)


def library_of(target):
    """Returns the guarded library of an include in angle brackets, or None."""
    if re.fullmatch(r"(Qt\w+/)?Q\w+", target):
        return "Qt"
    first = target.split("/")[0]
    return first if first in GUARDED | {"CLI", "dtl", "openssl", "toml++"} else None


def problems_of(root, top, table, path):
    name = path.relative_to(root).as_posix()
    inner = path.relative_to(root / top)
    layer = inner.parts[0] if len(inner.parts) > 1 else ""
    if layer not in table:
        yield f"{name}: the folder '{layer}' is no known layer"
        return
    allowed, libraries = table[layer]
    for mark, target in INCLUDE.findall(path.read_text(encoding="utf-8")):
        if mark == "<":
            library = library_of(target)
            if target.split("/")[0] in ROOMS and "/" in target:
                yield f"{name}: write <{target}> in quotes"
            elif name in LEAVES and library is not None:
                yield f"{name}: a leaf header includes only the standard library, not <{target}>"
            elif library is not None and library not in libraries:
                yield f"{name}: the layer {layer} is free of {library}, but includes <{target}>"
        elif name in LEAVES:
            yield f'{name}: a leaf header includes only the standard library, not "{target}"'
        elif {".", ".."} & set(target.split("/")):
            yield f'{name}: write "{target}" without dots'
        elif "/" not in target:
            yield f'{name}: write "{target}" with its layer'
        elif target.startswith("gui/") and name == GUI_USER:
            continue
        elif target not in allowed and target.split("/")[0] not in allowed | {layer}:
            yield f'{name}: the layer {layer} must not include "{target}"'


def literals_of(path):
    """The texts between quotes, as they stand in the source."""
    code = re.sub(r"(?m)^\s*#.*$", "", path.read_text(encoding="utf-8"))
    # Two slashes between quotes begin no comment.
    found = re.finditer(r'"((?:[^"\\\n]|\\.)*)"|//.*', code)
    return [one[1] for one in found if one[1] is not None]


def repeated_names(root, files):
    """Names of the panel that stand in another file, alone or as the last part of a path."""
    names = literals_of(root / NAMES)
    if not names:
        yield f"{NAMES}: no name found"
    for path in files:
        if path == root / NAMES or root / PANEL in path.parents:
            continue
        for text in literals_of(path):
            text = re.sub(r"^\((.*)\)$", r"\1", text)  # R"(...)"
            if any(text == name or text.endswith("/" + name) for name in names):
                yield f'{path.relative_to(root).as_posix()}: "{text}" stands in {NAMES}'


def imports_of(path):
    """The modules of the device that a module imports."""
    for node in ast.walk(ast.parse(path.read_text(encoding="utf-8"))):
        if isinstance(node, ast.ImportFrom):
            source = node.module or ""
            if node.level > 0:
                source = ".".join(filter(None, (path.parent.name, source)))
            if source in ("kxdevice", "kxoperate"):
                yield from (f"{source}.{alias.name}" for alias in node.names)
            else:
                yield source
        elif isinstance(node, ast.Import):
            yield from (alias.name for alias in node.names)


def device_problems(root, files):
    rows = {module: row for row, modules in enumerate(DEVICE) for module in modules}
    for path in files:
        name = path.relative_to(root).as_posix()
        module = f"{path.parent.name}.{path.stem}"
        if path.stem == "__init__":
            continue
        if module not in rows:
            yield f"{name}: the module '{module}' has no row"
            continue
        for target in imports_of(path):
            if target.startswith(("kxdevice.", "kxoperate.")) and \
                    rows.get(target, len(DEVICE)) >= rows[module]:
                yield f"{name}: must not import {target}"


def unused_rows(root, top, table, files):
    """Rows of a table to which no source belongs: nothing is checked by them."""
    inner = [path.relative_to(root / top).parts for path in files]
    found = {parts[0] if len(parts) > 1 else "" for parts in inner}
    for room in table:
        if room not in found:
            yield f"{top}: no sources of the layer '{room}'"


def unused_modules(modules):
    """Modules in the rows of the device that are not there."""
    found = {f"{path.parent.name}.{path.stem}" for path in modules}
    for module in (module for row in DEVICE for module in row):
        if module not in found:
            yield f"device: no module {module}"


def main():
    """Checks the tree."""
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("root", nargs="?", type=pathlib.Path,
                        default=pathlib.Path(__file__).resolve().parent.parent,
                        help="the project's folder; this one by default")
    root = parser.parse_args().root
    count = 0
    problems = []
    sources = []
    for top, table in TABLES.items():
        files = sorted(p for p in (root / top).rglob("*") if p.suffix in SUFFIXES)
        if not files:
            sys.exit(f"check-layers: no sources below {root / top}")
        count += len(files)
        problems += [problem for path in files for problem in problems_of(root, top, table, path)]
        problems += unused_rows(root, top, table, files)
        sources += files
    problems += repeated_names(root, sources)
    modules = sorted(p for p in (root / "device").rglob("*.py") if p.parent.name != "device")
    if not modules:
        sys.exit(f"check-layers: no modules below {root / 'device'}")
    count += len(modules)
    problems += device_problems(root, modules)
    problems += unused_modules(modules)
    print("\n".join(problems) if problems else f"{count} files keep to their layers")
    sys.exit(1 if problems else 0)


if __name__ == "__main__":
    main()
