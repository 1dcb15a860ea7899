# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
"""Checks the sources without running them, and the builds: format, tidy, layers, self-contained
headers, spelling, shell scripts, what of Qt is used, what built programs need, one definition of each
type, the same programs from every build.
A check that finds nothing to look at has failed."""
import argparse
import concurrent.futures
import json
import os
import pathlib
import re
import shlex
import subprocess
import sys
import tempfile

from kxscripts import common, needs, processes, qt_calls, reproducible
from kxscripts.common import ROOT, Failed

SHELLS = re.compile(rb"#!.*[/ ](bash|sh|dash|bats)(\s|$)|# shellcheck shell=")
# Compiled files that nobody wrote, or that other checks are about.
NOT_READ = ("mocs_compilation.cpp", "/headers/", "/qrc_")
# Tests that are programs of their own, each with a main function or an answer of the system's.
READ_ALONE = ("/tests/fuzz/", "/tests/bench/")
# What clang-tidy does not look for. Reserved names take a tenth of its time: they are looked for in
# the product. Files that are compiled together are read together, from a file in the build folder,
# where the settings of tests/ do not reach: they follow here.
OF_PRODUCT = "-bugprone-suspicious-include"
OF_TESTS = ",".join((
    "-clang-analyzer-*", "-bugprone-exception-escape", "-bugprone-reserved-identifier",
    "-bugprone-suspicious-include", "-readability-convert-member-functions-to-static"))


def run(tool, *words):
    """Runs a tool on the sources. Raises Failed when it complains, or is missing."""
    status = processes.run([tool, *words], cwd=ROOT)
    if status != 0:
        raise Failed(f"{pathlib.Path(tool).name} ended with {status}")


def check_format():
    """Every C++ file is as clang-format would write it."""
    run("clang-format", "--dry-run", "-Werror", *common.sources("*.cpp", "*.h"))


def is_test(file):
    """Tells whether a compiled file belongs to the tests, wherever the project lies."""
    return "/tests/" in "/" + os.path.relpath(file, ROOT)


def flags_of(entry):
    """What a file of the compilation database is compiled with, without the file itself, and what
    generated files it may include."""
    words = shlex.split(entry["command"])[1:]
    for option in ("-o", "-c"):
        if option in words:
            place = words.index(option)
            del words[place:place + 2]
    return ([word for word in words if "/autogen/" not in word],
            [word for word in words if "/autogen/" in word])


def sources_of(file):
    """The sources that a file which compiles several of them includes; another file is its own."""
    if not file.endswith(".cxx"):
        return [file]
    text = pathlib.Path(file).read_text(encoding="utf-8")
    return re.findall(r'^#include "(/.*)"', text, flags=re.M)


def read_together(entries, folder):
    """The entries of the compilation database with the tests in few files instead of many: most of
    the time goes into the headers, which all of them include. Each file that is made includes
    sources that are compiled with the same options; what a target compiles alone clashes with its
    neighbours, and is read with others of that kind."""
    alike, others = {}, []
    for entry in entries:
        if not is_test(entry["file"]) or any(part in entry["file"]
                                             for part in (*NOT_READ, *READ_ALONE)):
            others.append(entry)
            continue
        flags, generated = flags_of(entry)
        key = (tuple(sorted(flags)), "/Unity/" in entry["file"])
        alike.setdefault(key, []).append((entry, flags, generated))
    for number, members in enumerate(alike.values()):
        if len(members) == 1:
            others.append(members[0][0])
            continue
        made = folder / "tests" / f"{number}.cxx"
        sources = dict.fromkeys(source for entry, _, _ in members
                                for source in sources_of(entry["file"]))
        made.write_text("".join(f"#undef main\n#define main main_{place}\n#include \"{source}\"\n"
                                for place, source in enumerate(sources)), encoding="utf-8")
        flags = [*members[0][1], *(word for _, _, generated in members for word in generated)]
        others.append({"directory": members[0][0]["directory"], "file": str(made),
                       "arguments": ["c++", *flags, "-Wno-shadow", "-c", str(made)]})
    return others


def read_by_tidy():
    """Makes the compilation database of what clang-tidy reads, and what the sources include of
    generated files. Returns the files, each once: one of several programs is read once."""
    common.build("tidy", "kx_forms")
    targets = subprocess.run(["ninja", "-C", "build/tidy", "-t", "targets", "all"], cwd=ROOT,
                             check=True, capture_output=True, text=True).stdout
    generated = re.findall(r"^(?!.*CMakeFiles)([^/\n].*_autogen): phony$", targets, flags=re.M)
    if generated:
        common.build("tidy", *generated)
    folder = ROOT / "build" / "tidy" / "once"
    (folder / "tests").mkdir(parents=True, exist_ok=True)
    entries = json.loads((folder.parent / "compile_commands.json").read_text(encoding="utf-8"))
    once = {entry["file"]: entry for entry in reversed(entries)}
    once = {entry["file"]: entry for entry in read_together(once.values(), folder)}
    (folder / "compile_commands.json").write_text(json.dumps(list(once.values())),
                                                  encoding="utf-8")
    # What takes long comes first, or it would be waited for in the end.
    return sorted((file for file in once if not any(part in file for part in NOT_READ)),
                  key=lambda file: (-len(sources_of(file)), file))


def tidy_one(file):
    """Reads one file. Returns the exit status and the findings."""
    less = OF_TESTS if is_test(file) else OF_PRODUCT
    with tempfile.TemporaryFile() as output:
        status = processes.run(
            ["clang-tidy", "-p", "build/tidy/once", "--quiet",
             "--extra-arg=-Wno-unknown-warning-option", f"--checks={less}", file],
            cwd=ROOT, output=output)
        output.seek(0)
        lines = output.read().decode(errors="replace").splitlines()
    return status, [line for line in lines if not re.fullmatch(r"\d+ .*generated\.", line)]


def check_tidy():
    """clang-tidy finds nothing."""
    files = read_by_tidy()
    if not files:
        raise Failed("no file in build/tidy/compile_commands.json")
    bad = 0
    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        try:
            for status, findings in pool.map(tidy_one, files):
                if status != 0:
                    bad += 1
                    print("\n".join(findings), flush=True)
        except processes.Interrupted:
            processes.stop_all()  # or the pool would first read all the others
            raise
    if bad:
        raise Failed(f"clang-tidy refuses {bad} of {len(files)} files; where names clash because "
                     "tests are read together, give one of them another name")


def check_layers():
    """Everything includes only what stands below it."""
    run("/usr/bin/python3", "-B", "scripts/check-layers.py")


def check_headers():
    """Every header compiles on its own, in whatever place it is included."""
    headers = common.sources("src/*.h", "lib/*.h", "tools/*.h")
    common.build("dev", "kx_headers")
    entries = json.loads((ROOT / "build/dev/compile_commands.json").read_text(encoding="utf-8"))
    compiled = set()
    for entry in entries:
        if "/headers/" in entry["file"]:
            text = pathlib.Path(entry["file"]).read_text(encoding="utf-8")
            compiled.update(re.findall(r'#include "(.*)"', text)[:1])
    left_out = [header for header in headers
                if not any(header.endswith("/" + name) for name in compiled)]
    if left_out:
        raise Failed("tests/headers.cmake leaves out: " + " ".join(left_out))


def check_spelling():
    """No word is a known misspelling."""
    run("codespell", *(file for file in common.sources()
                       if not file.endswith((".ts", ".png"))
                       and not file.startswith("tests/fuzz/corpus/")))


def first_line(file):
    """The first line of a source, as bytes."""
    with open(ROOT / file, "rb") as text:
        return text.readline(200)


def check_shell():
    """shellcheck finds nothing in the scripts of the shell, the bats tests and what they load."""
    files = [file for file in common.sources() if SHELLS.match(first_line(file))]
    if not files:
        raise Failed("no script of the shell")
    run("shellcheck", "-x", *files)


def check_qt():
    """The updater uses nothing of Qt that is newer than the oldest one it is built with."""
    qt_calls.check(ROOT)


def check_needs():
    """The programs for amd64 need what the documentation states; scripts/cross looks at others."""
    common.build("release", *needs.PROGRAMS)
    needs.check(ROOT, "amd64")


def check_odr():
    """Every type has one definition in a program. No compiler sees another one, and as a rule no
    test: only where a program is optimised as a whole all definitions meet."""
    common.build("lto", "kx_Updater", "kx-package", "kx-panel")


def check_reproducible():
    """The programs are the same bytes wherever and beside whatever they are built."""
    reproducible.check(ROOT)


CHECKS = {
    "format": check_format,
    "layers": check_layers,
    "headers": check_headers,
    "spelling": check_spelling,
    "shell": check_shell,
    "qt": check_qt,
    "needs": check_needs,
    "odr": check_odr,
    "reproducible": check_reproducible,
    "tidy": check_tidy,
}


def chosen():
    """The checks of the command line; a wrong one ends the program with 2."""
    parser = argparse.ArgumentParser(prog="scripts/check", description=__doc__)
    parser.add_argument("checks", nargs="*", metavar="CHECK",
                        help=f"all by default: {', '.join(CHECKS)}")
    names = parser.parse_args().checks or list(CHECKS)
    for name in names:
        if name not in CHECKS:
            parser.error(f"unknown check '{name}'")
    return names


def make(names):
    """Makes the checks, all of them to their end. Returns the exit status."""
    failed = []
    for name in names:
        common.say(f"check {name}")
        try:
            CHECKS[name]()
        except (Failed, OSError, ValueError, subprocess.CalledProcessError) as failure:
            print(f"check {name}: {failure}", file=sys.stderr, flush=True)
            failed.append(name)
    if failed:
        print(f"scripts/check: failed: {' '.join(failed)}", file=sys.stderr)
        return 1
    common.say(f"{len(names)} checks passed")
    return 0


def main():
    """Runs the checks that are asked for."""
    names = chosen()
    return common.run_script("scripts/check", lambda: make(names))


if __name__ == "__main__":
    sys.exit(main())
