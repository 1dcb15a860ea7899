# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
"""What of Qt the updater uses, as the compiler sees it: types, calls, constants and macros that its
sources and what is made of its forms name. docs/qt-calls.md lists them with the version of Qt that
brought each, and none may be newer than the oldest Qt that the updater is built with.

  cd scripts && /usr/bin/python3 -B -m kxscripts.qt_versions    writes the list anew"""
import json
import pathlib
import re
import shlex
from typing import NamedTuple

from kxscripts import common
from kxscripts.common import Failed

LIST = "docs/qt-calls.md"
FOLDERS = ("src/app/*.cpp", "src/gui/*.cpp")
ROW = re.compile(r"^\| `(.*)` \| (\d+\.\d+) \|$", flags=re.M)
REMEDY = "cd scripts && /usr/bin/python3 -B -m kxscripts.qt_versions writes it anew"


class Use(NamedTuple):
    """Something of Qt that is used: the header and the line that declare it, and where it is used
    for the first time."""

    header: str
    line: int
    place: str


def oldest(root):
    """The oldest Qt that the build takes, as pair of numbers."""
    text = (root / "CMakeLists.txt").read_text(encoding="utf-8")
    found = re.search(r"find_package\(Qt5 (\d+)\.(\d+) ", text)
    if not found:
        raise Failed("CMakeLists.txt asks for no version of Qt")
    return int(found[1]), int(found[2])


def listed(root):
    """The list of the documentation: what is used, and the version that brought it."""
    return dict(ROW.findall((root / LIST).read_text(encoding="utf-8")))


def _flags(root):
    """What the updater's window is compiled with."""
    entries = json.loads((root / "build/tidy/compile_commands.json").read_text(encoding="utf-8"))
    words = next((shlex.split(entry["command"]) for entry in entries
                  if "kx_ui.dir" in entry["command"] and "/src/" in entry["file"]), None)
    if words is None:
        raise Failed("build/tidy/compile_commands.json does not tell how the updater is compiled")
    flags = []
    for word, following in zip(words, [*words[1:], ""]):
        if word.startswith(("-D", "-I", "-std=")):
            flags.append(word)
        elif word == "-isystem":
            flags += [word, following]
    return flags


def _read(root):
    """All sources of the updater's window, as one: most of the time goes into Qt's headers."""
    # The library is there where the tests are, and this module is read elsewhere, too.
    from clang import cindex  # pylint: disable=import-outside-toplevel
    text = "".join(f'#include "{root / name}"\n' for name in common.sources(*FOLDERS, root=root))
    unit = cindex.Index.create().parse(
        "all.cpp", args=_flags(root), unsaved_files=[("all.cpp", text)],
        options=cindex.TranslationUnit.PARSE_DETAILED_PROCESSING_RECORD)
    errors = [str(found) for found in unit.diagnostics
              if found.severity >= cindex.Diagnostic.Error]
    if errors:
        raise Failed("clang cannot read the updater:\n" + "\n".join(errors))
    return cindex, unit


def _declaration(cindex, cursor):
    """Where a reader looks a thing up: a type where its members are told, all others where they are
    declared first; a member of a template without what it was instantiated with."""
    kinds = cindex.CursorKind
    template = cindex.conf.lib.clang_getSpecializedCursorTemplate(cursor)
    cursor = template or cursor
    if cursor.kind in (kinds.CLASS_DECL, kinds.STRUCT_DECL, kinds.CLASS_TEMPLATE, kinds.ENUM_DECL):
        return cursor.get_definition() or cursor
    return cursor if cursor.kind == kinds.MACRO_DEFINITION else cursor.canonical


def _name(cindex, cursor):
    """The name with what it is a member of; constants are named without their type, as in the
    sources."""
    parts, outer = [cursor.displayname], cursor.semantic_parent
    while outer is not None and outer.kind != cindex.CursorKind.TRANSLATION_UNIT:
        if outer.spelling and outer.kind != cindex.CursorKind.ENUM_DECL:
            parts.insert(0, outer.spelling)
        outer = outer.semantic_parent
    return "::".join(parts)


def _referenced(cursor):
    """What a piece of the sources names, or None."""
    try:
        return cursor.referenced
    except ValueError:  # a kind that this version of the library does not know
        return None


def _named(cindex, unit, root):
    """Pairs of a declaration that the sources name, and the place where they do."""
    for top in unit.cursor.get_children():
        if top.location.file is None or not top.location.file.name.startswith(f"{root}/"):
            continue
        for cursor in top.walk_preorder():
            target = _referenced(cursor)
            if target is not None and target != cursor and target.location.file is not None:
                place = cursor.location if cursor.location.file else top.location
                yield _declaration(cindex, target), place


def used(root):
    """What of Qt the updater uses: names and a Use each. Raises Failed."""
    common.build("tidy", "kx_forms", root=root)
    cindex, unit = _read(root)
    found = {}
    for target, place in _named(cindex, unit, root):
        header = target.location.file
        # The namespace Qt is told by what is taken of it.
        if header is None or "/Qt" not in header.name or \
                target.kind == cindex.CursorKind.NAMESPACE:
            continue
        found.setdefault(_name(cindex, target), Use(
            pathlib.Path(header.name).name, target.location.line,
            f"{pathlib.Path(place.file.name).name}:{place.line}"))
    if not found:
        raise Failed("the updater uses nothing of Qt; clang has not found its sources")
    return found


def problems(uses, versions, limit):
    """What is wrong with the list, a line each.

    uses       what the updater uses, as `used` tells it
    versions   the list, as `listed` reads it
    limit      the oldest Qt that the updater is built with"""
    for name, use in sorted(uses.items()):
        version = versions.get(name)
        if version is None:
            yield f"{use.place}: {name} is not in {LIST}; {REMEDY}"
        elif tuple(map(int, version.split("."))) > limit:
            yield (f"{use.place}: {name} came with Qt {version}, and the updater is built with Qt "
                   f"{limit[0]}.{limit[1]}, too; take something that is there")
    for name in sorted(versions.keys() - uses.keys()):
        yield f"{LIST}: {name} is not used any more; {REMEDY}"


def check(root):
    """Raises Failed where the updater uses what is not in the list, or newer than it may be."""
    found = list(problems(used(root), listed(root), oldest(root)))
    if found:
        raise Failed("\n".join(found))
