# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
"""Writes docs/qt-calls.md: what of Qt the updater uses, and since which version Qt has it. That comes
from Qt's own documentation, Debian's packages of which apt fetches and verifies; they are not
installed."""
import argparse
import collections
import html
import pathlib
import re
import subprocess
import sys
import tempfile
import xml.etree.ElementTree as ET

from kxscripts import common, processes, qt_calls
from kxscripts.common import Failed

PACKAGES = ("qtbase5-doc-dev", "qtbase5-doc-html")  # the index, and what it does not tell
MODULES = ("qtcore", "qtgui", "qtwidgets")
FIRST = "4.0"  # of what the documentation gives no version for
INTRODUCED = re.compile(r"introduced in Qt (\d+\.\d+)")
# What the documentation has under another name, or as a part of something else.
OTHERWISE = {
    "QObject::connect(const typename QtPrivate::FunctionPointer<Func1>::Object *, Func1, "
    "const typename QtPrivate::FunctionPointer<Func2>::Object *, Func2, Qt::ConnectionType)": "5.0",
    "QT_BEGIN_NAMESPACE": FIRST,  # of the code that is made of the forms
    "QT_END_NAMESPACE": FIRST,
    "QOverload<Args>": "5.7",  # told with qOverload
    "QNonConstOverload::of": "5.7",  # what QOverload is made of
    "QNonConstOverload<Args>": "5.7",
    "SLOT": FIRST,  # told with QObject::connect
}
HEAD = """# What of Qt the updater uses

For integrators with an older Qt than Debian's: all types, calls, constants and macros of Qt that the
updater's sources name, with the version of Qt that brought each; {first} stands for all that Qt's
documentation gives no version for. The updater is built with Qt {limit} or later of the 5 series:
`scripts/check qt` reads the sources with clang, and refuses what is newer and what is not in this list.

| Of Qt | Since |
|---|---|
"""


class Documentation:
    """Versions by places in the headers, and by names."""

    def __init__(self, folder):
        """folder: the unpacked documentation. Raises Failed when a module's is not there."""
        self._at = {}
        self._named = collections.defaultdict(set)
        self._constants = {}
        for module in MODULES:
            index = folder / module / f"{module}.index"
            if not index.exists():
                raise Failed(f"there is no {index}")
            self._take(ET.parse(index).getroot(), FIRST)
            for page in sorted((folder / module).glob("*.html")):
                self._take_constants(page.read_text(encoding="utf-8"))

    def _take(self, element, outer):
        """Takes an element of the index and what is in it, which is not older than it."""
        version = element.get("since") or outer
        name = element.get("fullname") or element.get("name")
        if element.get("location") and element.get("lineno"):
            self._at.setdefault((element.get("location"), int(element.get("lineno"))), version)
        if name and element.get("status") != "internal":
            self._named[name].add(version)
        inner = version if element.tag in ("class", "struct", "enum") else FIRST
        for child in element:
            self._take(child, inner)
            if element.tag == "enum" and child.tag == "value":
                owner, _, _ = name.rpartition("::")
                self._named[f"{owner}::{child.get('name')}"].add(version)

    def _take_constants(self, page):
        """Takes the versions of constants that are younger than their type: only the text tells."""
        for row in re.findall(r"<tr><td[^>]*><code>(\w+::\w+)</code>(.*?)</tr>", page, flags=re.S):
            told = INTRODUCED.search(html.unescape(row[1]))
            if told:
                self._constants[row[0]] = told[1]

    def version_of(self, name, use):
        """The version that brought something, or None where that is not told."""
        plain = re.sub(r"\(.*|<.*", "", name)
        for key in (name, plain):
            if key in OTHERWISE:
                return OTHERWISE[key]
        if plain in self._constants:
            return self._constants[plain]
        found = self._at.get((use.header, use.line))
        if found is None and len(self._named[plain]) == 1:
            found, = self._named[plain]
        return found


def text_of(versions, limit):
    """The page with the list."""
    rows = "".join(f"| `{name}` | {version} |\n" for name, version in sorted(versions.items()))
    return HEAD.format(first=FIRST, limit=f"{limit[0]}.{limit[1]}") + rows


def unpacked(folder):
    """Fetches and unpacks the documentation into an empty folder; returns where it lies."""
    log = folder / "log"
    with log.open("wb") as output:
        status = processes.run(["apt-get", "download", "-q", *PACKAGES], cwd=folder, output=output)
    if status != 0:
        raise Failed(f"apt-get could not download {' '.join(PACKAGES)}:\n{common.tail_of(log, 10)}")
    for package in folder.glob("*.deb"):
        subprocess.run(["dpkg-deb", "-x", package, folder / "root"], check=True)
    return folder / "root/usr/share/qt5/doc"


def write():
    """Writes the list; returns 0. Raises Failed."""
    with tempfile.TemporaryDirectory() as name:
        documentation = Documentation(unpacked(pathlib.Path(name)))
    uses = qt_calls.used(common.ROOT)
    versions = {name: documentation.version_of(name, use) for name, use in uses.items()}
    unknown = [f"{use.place}: {name} ({use.header}:{use.line})"
               for name, use in uses.items() if versions[name] is None]
    if unknown:
        raise Failed("Qt's documentation does not tell since when there is:\n" + "\n".join(unknown) +
                     "\nfind out, and add it to OTHERWISE in scripts/kxscripts/qt_versions.py")
    text = text_of(versions, qt_calls.oldest(common.ROOT))
    (common.ROOT / qt_calls.LIST).write_text(text, encoding="utf-8")
    return 0


def main():
    """Writes the list of this project."""
    argparse.ArgumentParser(prog="qt_versions", description=__doc__).parse_args()
    return common.run_script("qt_versions", write)


if __name__ == "__main__":
    sys.exit(main())
