# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
"""What built programs need of a panel: its processor, the program that loads them, libraries, and how
new these have to be. docs/building.md states it in two tables, with which the programs are compared."""
import re
import subprocess
from typing import NamedTuple

from kxscripts.common import Failed

PAGE = "docs/building.md"
PROGRAMS = ("kx_Updater", "kx-panel", "kx-package")
FOLDERS = {"amd64": "release", "armhf": "armhf", "arm64": "arm64"}  # below build/
KINDS = {"Advanced Micro Devices X86-64": "x86-64", "AArch64": "64-bit ARM", "ARM": "32-bit ARM"}


class Needs(NamedTuple):
    """What one program needs."""

    kind: str             # "32-bit ARM, v7, hard float"
    loader: str           # path on the panel
    libraries: list       # names, sorted
    versions: list        # the newest of each family of symbol versions, sorted

    def system_row(self, arch):
        """The row of the table of processors."""
        return f"| {arch} | {self.kind} | `{self.loader}` |"

    def program_row(self, arch, name):
        """The row of the table of programs."""
        libraries = " ".join(f"`{library}`" for library in self.libraries)
        return f"| `{name}` | {arch} | {libraries} | {' '.join(self.versions)} |"


def newest(versions):
    """The newest of each family: "GLIBC_2.34" of that, "GLIBC_2.4" and "GLIBC_2.9"."""
    families = {}
    for version in versions:
        family, _, number = version.rpartition("_")
        if re.fullmatch(r"\d+(\.\d+)*", number):
            key = tuple(map(int, number.split(".")))
        else:
            family, key = version, ()
        families[family] = max(families.get(family, ((), "")), (key, version))
    return sorted(version for _, version in families.values())


def kind_of(text):
    """The kind of processor that readelf's output tells."""
    machine = re.search(r"^ *Machine: +(.*)$", text, flags=re.M)[1]
    words = [KINDS.get(machine, machine)]
    architecture = re.search(r"^ *Tag_CPU_arch: (.*)$", text, flags=re.M)
    if architecture:
        words.append(architecture[1])
    numbers = re.search(r"(hard|soft)-float ABI", text)
    if numbers:
        words.append(f"{numbers[1]} float")
    return ", ".join(words)


def read(program):
    """What a program needs. Raises Failed when it cannot be read, or needs no library."""
    done = subprocess.run(
        ["readelf", "--wide", "--file-header", "--program-headers", "--dynamic", "--version-info",
         "--arch-specific", program], capture_output=True, text=True, check=False)
    loader = re.search(r"\[Requesting program interpreter: (.*)\]", done.stdout)
    libraries = re.findall(r"\(NEEDED\) +Shared library: \[(.*)\]", done.stdout)
    if done.returncode != 0 or not loader or not libraries:
        raise Failed(f"{program} is no program that needs libraries: {done.stderr.strip()}")
    versions = set(re.findall(r"  Name: (\S+)  Flags: ", done.stdout))
    return Needs(kind_of(done.stdout), loader[1], sorted(libraries), newest(versions))


def problems(root, arch, page):
    """The rows that the page of the documentation lacks for the programs of a processor, and those
    that it has too many."""
    folder = root / "build" / FOLDERS[arch]
    found = {name: read(folder / name) for name in PROGRAMS}
    rows = {needs.system_row(arch) for needs in found.values()}
    rows.update(needs.program_row(arch, name) for name, needs in found.items())
    stated = set(re.findall(rf"^\| {arch} \|.*\|$|^\| `.*` \| {arch} \|.*\|$", page, flags=re.M))
    for row in sorted(rows - stated):
        yield f"{PAGE} lacks this row about the programs in {folder.relative_to(root)}: {row}"
    for row in sorted(stated - rows):
        yield f"{PAGE} has a row that does not fit the programs in {folder.relative_to(root)}: {row}"


def check(root, arch):
    """Compares the programs that were built for a processor with what the documentation states. Raises
    Failed with the rows that differ."""
    found = list(problems(root, arch, (root / PAGE).read_text(encoding="utf-8")))
    if found:
        raise Failed("\n".join(found) + "\nwhere the sources ask for it, correct the page; with "
                     "another compiler or other libraries than Debian 12's it does not hold")
