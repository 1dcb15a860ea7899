# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
"""Builds kx_Updater, kx-panel, kx-package and the tests' plugin kx_probe for the processor of a panel,
with Debian's cross compilers and against Debian's libraries, into build/PROCESSOR. The headers and
libraries are fetched when they are needed for the first time."""
import argparse
import os
import pathlib
import subprocess
import sys
import tempfile

from kxscripts import common, sysroot
from kxscripts.common import Failed

PROGRAMS = ("kx_Updater", "kx-panel", "kx-package")
PROBE = "plugins/generic/libkxprobe.so"


def groups_of(arch):
    """The groups of scripts/setup with what building for a processor needs."""
    return ["build", "tools", "cross", *(["arm64"] if arch == "arm64" else [])]


def chosen_sysroot(options):
    """The sysroot that is named, or Debian's; an absolute path. Raises Failed."""
    named = options.sysroot or os.environ.get("KX_SYSROOT")
    if not named:
        return sysroot.find_or_make(options.processor)
    folder = pathlib.Path(named).resolve()
    if not (folder / "usr").is_dir():
        raise Failed(f"{folder} is no sysroot: it has no folder usr")
    return folder


def configure_options(build, root):
    """What CMake is told besides the preset; where the build folder was made for another sysroot, it
    starts anew, because it remembers what it found there."""
    options = [f"-DKX_SYSROOT={root}"]
    try:
        cache = (build / "CMakeCache.txt").read_text(encoding="utf-8")
    except FileNotFoundError:
        return options
    return options if f"KX_SYSROOT:PATH={root}\n" in cache else ["--fresh", *options]


def stripped_size(program, triple):
    """The size of a program in bytes when what only debuggers read has been removed."""
    with tempfile.NamedTemporaryFile() as file:
        subprocess.run([f"{triple}-strip", "-o", file.name, program], check=True)
        return os.stat(file.name).st_size


def tell(build, triple):
    """Tells what was built, and its sizes."""
    for name in (*PROGRAMS, PROBE):
        size = stripped_size(build / name, triple)
        print(f"{(build / name).relative_to(common.ROOT)}: {size // 1024} KiB stripped")


def build(options):
    """Builds for one processor; returns 0. Raises Failed."""
    arch = options.processor
    common.setup(*groups_of(arch))
    root = chosen_sysroot(options)
    folder = common.ROOT / "build" / arch
    common.say(f"building for {arch} against {root}")
    common.build(arch, "all", "kx_probe", options=configure_options(folder, root))
    tell(folder, sysroot.TRIPLES[arch])
    return 0


def main():
    """Does what the command line asks for."""
    parser = argparse.ArgumentParser(prog="scripts/cross", description=__doc__)
    parser.add_argument("processor", choices=sorted(sysroot.TRIPLES),
                        help="the panel's processor, as Debian calls it")
    parser.add_argument("--sysroot", metavar="FOLDER",
                        help="a folder with the panel's headers and libraries, instead of Debian's; "
                             "KX_SYSROOT in the environment does the same")
    options = parser.parse_args()
    return common.run_script("scripts/cross", lambda: build(options))


if __name__ == "__main__":
    sys.exit(main())
