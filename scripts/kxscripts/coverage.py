# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
"""Measures which lines of src/, lib/ and tools/ the unit tests and the device tests execute. Prints
a table, leaves pages in build/coverage/report/. Ends non-zero below 95 percent of the lines."""
import argparse
import os
import pathlib
import re
import shutil
import sys

from kxscripts import common, processes
from kxscripts.common import ROOT, Failed

LEAST = 95  # percent of the lines
BUILD = ROOT / "build" / "coverage"
# Programs on the sandboxed device cannot write into the build folder; what they count is carried
# out of the device into new folders of this one.
COUNTS = ROOT / "build" / "coverage-counts"
SUM = ROOT / "build" / "coverage-counts.sum"
MEMORY = pathlib.Path("/dev/shm")
ROOM = 1_000_000 * 1024  # bytes that must be free there for the panels' files
SHOWN = 20    # lines of a log from one that tells of a failure
TAIL = 40     # lines of one where no line does
USES_UPDATER = re.compile(r"^load (device|window)$", re.M)


def failure_in(log, pattern):
    """The lines of a log that tell what went wrong, each with those behind it; or its last ones."""
    lines = log.read_text(encoding="utf-8", errors="replace").splitlines()
    at = {number + more for number, line in enumerate(lines) if re.search(pattern, line)
          for more in range(SHOWN + 1)}
    return "\n".join([line for number, line in enumerate(lines) if number in at] or lines[-TAIL:])


def run(name, command, pattern, **more):
    """Runs a command; its output goes to build/coverage/NAME.log.

    pattern   what the lines look like that tell of a failure
    Raises Failed after it has printed these on standard error."""
    log = BUILD / f"{name}.log"
    with log.open("wb") as output:
        status = processes.run(command, cwd=ROOT, output=output, env=os.environ | more)
    if status != 0:
        print(failure_in(log, pattern), file=sys.stderr, flush=True)
        raise Failed(f"{command[0]} ended with {status}; all of it: {log.relative_to(ROOT)}")


def build():
    """Builds what is measured, and forgets what was measured earlier."""
    common.setup("build", "tools", "demo", "test")
    common.say("building with instrumentation")
    common.build("coverage", root=ROOT)
    # What the updater does with its window is told by the probe, which is not measured.
    common.build("release", "kx_Updater", "kx-package", "kx_probe", root=ROOT)
    for old in list(BUILD.rglob("*.gcda")):
        old.unlink()
    for folder in (COUNTS, SUM):
        shutil.rmtree(folder, ignore_errors=True)
    COUNTS.mkdir()


def in_memory():
    """What puts the panels' files, which are many and short-lived, into memory, where there is room
    and nobody has chosen another place."""
    if os.environ.get("TMPDIR") or not os.access(MEMORY, os.W_OK) \
            or shutil.disk_usage(MEMORY).free <= ROOM:
        return {}
    return {"TMPDIR": str(MEMORY)}


def run_tests():
    """Runs all tests that execute what is measured."""
    common.say("running the unit tests")
    counts = {"KX_COVERAGE_OUT": str(COUNTS)}
    run("ctest", ["ctest", "--preset", "coverage"], r"\[  FAILED  \]|\*\*\*", **counts)

    common.say("running the device tests")
    tests = ROOT / "tests" / "device"
    # Only those that run the updater; the others are about the device itself.
    names = [file for file in sorted(tests.glob("*.bats"))
             if USES_UPDATER.search(file.read_text(encoding="utf-8"))]
    tries = sorted(tests.glob("try*.bats"))
    panels = sorted(tests.glob("panel_*.bats"))
    if not names or not tries or not panels:
        raise Failed("no bats file in tests/device is about the updater, about kx-package try, or "
                     "about kx-panel")
    counts |= in_memory()
    run("bats", ["bats", "--tap", *names], "^not ok", **counts,
        KX_UPDATER=str(BUILD / "kx_Updater"))
    # What these tell of the panel is compared whole: it must be free of counts.
    run("try", ["bats", "--tap", *tries], "^not ok", **counts,
        KX_UPDATER=str(ROOT / "build" / "release" / "kx_Updater"),
        KX_PACKAGE=str(BUILD / "kx-package"))
    run("panel", ["bats", "--tap", *panels], "^not ok", **counts, KX_PANEL=str(BUILD / "kx-panel"))


def add_up():
    """Adds what was counted on the sandboxed device to what the build folder has."""
    common.say("adding up")
    for folder in sorted(COUNTS.iterdir()):
        # Below each stands the build folder with its whole path.
        run("merge", ["gcov-tool", "merge", "-o", SUM, BUILD, folder / BUILD.relative_to("/")], ".")
        shutil.copytree(SUM, BUILD, dirs_exist_ok=True)
        shutil.rmtree(SUM)


def report():
    """Prints the table and writes the pages. Returns gcovr's exit status."""
    pages = BUILD / "report"
    pages.mkdir(exist_ok=True)
    return processes.run(
        ["gcovr", "--root", ".", "--filter", "src/", "--filter", "lib/", "--filter", "tools/",
         "--object-directory", "build/coverage", "build/coverage",
         "--exclude-unreachable-branches", "--exclude-throw-branches",
         "--txt", "--html-details", pages / "index.html",
         "--fail-under-line", str(LEAST), "--print-summary"], cwd=ROOT)


def work():
    """Measures. Returns the exit status."""
    build()
    run_tests()
    add_up()
    return report()


def main():
    """Measures; takes no arguments."""
    argparse.ArgumentParser(prog="scripts/coverage", description=__doc__).parse_args()
    return common.run_script("scripts/coverage", work)


if __name__ == "__main__":
    sys.exit(main())
