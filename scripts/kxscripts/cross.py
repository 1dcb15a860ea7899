# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
"""Builds kx_Updater, kx-panel, kx-package and the tests' plugin kx_probe for the processor of a panel,
with Debian's cross compilers and against Debian's libraries, into build/PROCESSOR, and compares what
they need with docs/building.md. The headers and libraries are fetched when they are needed for the
first time. Or builds the unit tests into build/PROCESSOR-tests and runs them with qemu-user."""
import argparse
import json
import os
import pathlib
import subprocess
import sys
import tempfile

from kxscripts import common, foreign, needs, sysroot
from kxscripts.common import Failed

PROBE = "plugins/generic/libkxprobe.so"


def groups_of(arch, tested=False):
    """The groups of scripts/setup with what building for a processor needs, and testing."""
    return ["build", "tools", "cross", *(["arm64"] if arch == "arm64" else []),
            *(["test"] if tested else [])]


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
    for name in (*needs.PROGRAMS, PROBE):
        size = stripped_size(build / name, triple)
        print(f"{(build / name).relative_to(common.ROOT)}: {size // 1024} KiB stripped")


def build(preset, root, *targets):
    """Builds a preset's targets against a sysroot; returns the build's folder. Raises Failed."""
    folder = common.ROOT / "build" / preset
    common.say(f"building {preset} against {root}")
    common.build(preset, *targets, options=configure_options(folder, root))
    return folder


def build_programs(options):
    """Builds the programs for one processor; returns 0. Raises Failed."""
    arch = options.processor
    root = chosen_sysroot(options)
    tell(build(arch, root, "all", "kx_probe"), sysroot.TRIPLES[arch])
    if sysroot.is_one(root):
        needs.check(common.ROOT, arch)
    return 0


def left_out(folder):
    """How many tests of a build need more than their binaries."""
    listed = subprocess.run(["ctest", "--show-only=json-v1"], cwd=folder, check=True,
                            capture_output=True, text=True).stdout
    tests = json.loads(listed)["tests"]
    return sum(not any(item["name"] == "LABELS" and "unit" in item["value"]
                       for item in test.get("properties", [])) for test in tests)


def run_tests(options):
    """Builds the unit tests for one processor and runs them; returns 0. Raises Failed."""
    preset = f"{options.processor}-tests"
    root = chosen_sysroot(options)
    folder = build(preset, root, "kx_unit_tests")
    common.say(f"running the unit tests for {options.processor}")
    # The tests start programs of their own, which find the panel's libraries by the variable.
    # The shell, the first process there, takes in what outlives the program that started it.
    status = foreign.run(["sh", "-c", 'ctest --preset "$1"; exit $?', "sh", preset], cwd=common.ROOT,
                         env=os.environ | {"QEMU_LD_PREFIX": str(root)})
    print(f"Left out: {left_out(folder)} tests that need this computer's tools, the sandboxed device or "
          "limits of system calls, which an emulator of one program does not have; the tests of the "
          "confined process are among them.")
    if status != 0:
        raise Failed(f"ctest ended with {status}")
    return 0


def work(options):
    """Does what was asked for; returns 0. Raises Failed."""
    common.setup(*groups_of(options.processor, options.test))
    return run_tests(options) if options.test else build_programs(options)


def main():
    """Does what the command line asks for."""
    parser = argparse.ArgumentParser(prog="scripts/cross", description=__doc__)
    parser.add_argument("processor", choices=sorted(sysroot.TRIPLES),
                        help="the panel's processor, as Debian calls it")
    parser.add_argument("--sysroot", metavar="FOLDER",
                        help="a folder with the panel's headers and libraries, instead of Debian's; "
                             "KX_SYSROOT in the environment does the same")
    parser.add_argument("--test", action="store_true",
                        help="build the unit tests instead, and run them; half an hour or more")
    options = parser.parse_args()
    return common.run_script("scripts/cross", lambda: work(options))


if __name__ == "__main__":
    sys.exit(main())
