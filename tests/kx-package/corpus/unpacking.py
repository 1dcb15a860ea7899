#!/usr/bin/python3
# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
"""Unpacks the packages of the corpus by `kx-package unpack`, and builds them again.

  unpacking.py --tool build/dev/kx-package [--fuzz FOLDER] [--archives N] [--descriptions N]
               [--seed N] [--second TOOL]

--second names another build of the same tool, which is asked for the plans that are compared: one with
sanitizers, which starts slowly, then checks, unpacks and builds alone. What unpacks must build a package of which a panel would run the same commands, with the same files;
what a panel could install must unpack. Whatever happens, nothing may be made but the one folder, and
in it nothing but files and folders without special rights; what fails leaves nothing. The inputs of
the fuzzers below --fuzz are unpacked, too.

Exit status 0: all is well. 1: something is not.
"""

import argparse
import concurrent.futures
import filecmp
import functools
import json
import os
import re
import shutil
import stat
import subprocess
import sys
import tempfile

HERE = os.path.dirname(os.path.realpath(__file__))
sys.path.insert(0, HERE)
sys.dont_write_bytecode = True

# pylint: disable=wrong-import-position
import archives  # noqa: E402
import checking  # noqa: E402
from packages import Corpus  # noqa: E402

COPY = re.compile(r'cp -f "/mnt/usb/corpus\.temp/(.*?)" "', re.S)


def arguments():
    """The command line."""
    parser = argparse.ArgumentParser()
    parser.add_argument("--tool", required=True)
    parser.add_argument("--second", help="the tool that plans are asked of")
    parser.add_argument("--fuzz", help="the folder of the fuzzers' inputs")
    parser.add_argument("--archives", type=int, default=250)
    parser.add_argument("--descriptions", type=int, default=250)
    parser.add_argument("--seed", type=int, default=3)
    return parser.parse_args()


def add_fuzzed(corpus, folder):
    """The fuzzers' archives, and packages with their descriptions."""
    before = len(corpus.jobs)
    for kind in ("archive", "check", "installer"):
        for name in sorted(os.listdir(os.path.join(folder, kind))):
            with open(os.path.join(folder, kind, name), "rb") as file:
                data = file.read()
            path = corpus.path()
            if kind == "archive":
                with open(path, "wb") as file:
                    file.write(data)
            else:
                with open(os.path.join(corpus.base, "UserPackage.kx-project"), "wb") as file:
                    file.write(data)
                archives.by_zip("-X", "-1")(corpus.base, path)
            corpus.add(path, f"{kind}/{name}", b"")
    if len(corpus.jobs) < before + 20:
        raise SystemExit(f"there is too little in {folder}")


@functools.lru_cache
def is_watched(tool):
    """Whether a sanitizer is in the tool, whose own memory does not count."""
    with open(tool, "rb") as file:
        return b"__asan_init" in file.read()


def bounded(tool):
    """The words that start the tool within bounds of what a hostile package can make it do."""
    return ["prlimit", "--fsize=1073741824",
            *([] if is_watched(tool) else ["--as=2147483648"]), tool]


def started(tool, *words):
    """What the tool tells, and how it ends."""
    return subprocess.run([*bounded(tool), *words], capture_output=True, timeout=120,
                          check=False, stdin=subprocess.DEVNULL)


def planned(tool, package):
    """The commands of a panel, and how far it gets."""
    told = json.loads(started(tool, "plan", "--show-secrets", "--json", package).stdout)
    # Lines about files that are missing or broken are the plan's own.
    for key in ("log", "error"):
        told.pop(key, None)
    return told


def odd_files(folder):
    """What no author should find among unpacked files."""
    for place, folders, names in os.walk(folder):
        for name in folders + names:
            path = os.path.join(place, name)
            mode = os.lstat(path).st_mode
            if not (stat.S_ISDIR(mode) or stat.S_ISREG(mode)) or mode & 0o7000:
                yield f"{path} has the mode {mode:o}"
            if stat.S_ISREG(mode) and mode & 0o111:
                yield f"{path} is a program"
            if not name.isprintable() or name.lower() == ".git":
                yield f"{path!r} is no harmless name"


def differing_files(package, again, plan):
    """Files that a panel would copy with other contents."""
    with tempfile.TemporaryDirectory() as work:
        for name, file in (("one", package), ("two", again)):
            subprocess.run(["unzip", "-q", "-o", file, "-d", f"{work}/{name}"], check=False,
                           capture_output=True, stdin=subprocess.DEVNULL, timeout=60)
        for command in plan["commands"]:
            found = COPY.match(command["command"])
            one, two = (f"{work}/{name}/{found[1]}" if found else "" for name in ("one", "two"))
            if found and found[1] == "UserPackage.kx-project":
                continue  # it says the same in other words
            if os.path.isfile(one) and not (os.path.isfile(two) and
                                            filecmp.cmp(one, two, shallow=False)):
                yield f"{found[1]} has another content"


def faults(options, job):
    """Unpacks and builds one package; yields what is wrong."""
    tool, second = options.tool, options.second or options.tool
    package = job["file"]
    place = os.path.join(os.path.dirname(package), "place")
    os.mkdir(place)
    done = started(tool, "unpack", package, "-o", f"{place}/out")
    job["unpacked"] = done.returncode == 0
    job["why"] = done.stderr.decode(errors="replace").strip()
    if os.listdir(place) != (["out"] if job["unpacked"] else []):
        yield f"made {os.listdir(place)}"
    yield from odd_files(place)
    if not job["unpacked"]:
        if done.returncode not in (1, 3) or job["why"].count("\n") or not job["why"]:
            yield f"ended with {done.returncode}: {job['why']}"
        if job["clean"] or planned(second, package).get("installed"):
            yield f"can be installed, but was not unpacked: {job['why']}"
        return
    again = f"{place}/corpus.kx-update"
    built = started(tool, "build", f"{place}/out", "-o", again)
    # What is wrong with a package is found again by the check at the end of its build.
    if built.returncode not in (0, 1) or not os.path.exists(again):
        yield f"cannot be built again: {built.stderr.decode(errors='replace')}"
        return
    plan = planned(second, package)
    if plan != planned(second, again):
        yield "has another plan"
    yield from differing_files(package, again, plan)
    shutil.rmtree(place)


def main():
    """Builds, unpacks, builds again, compares."""
    options = arguments()
    with tempfile.TemporaryDirectory() as folder:
        corpus = Corpus(folder, options.seed, options.tool)
        corpus.add_built()
        corpus.add_damaged(options.archives)
        corpus.add_spoiled(options.descriptions)
        if options.fuzz:
            add_fuzzed(corpus, options.fuzz)
        found_errors = checking.of_all(checking.errors, bounded(options.tool), corpus.jobs)
        for job, number in zip(corpus.jobs, found_errors):
            job["clean"] = number == 0
        with concurrent.futures.ThreadPoolExecutor(2) as pool:
            found = list(pool.map(lambda job: list(faults(options, job)), corpus.jobs))
        for job, told in zip(corpus.jobs, found):
            for fault in told:
                print(f"{job['file']} ({job['how']}): {fault}")
        unpacked = sum(job["unpacked"] for job in corpus.jobs)
        clean = sum(job["clean"] for job in corpus.jobs)
        print(f"{len(corpus.jobs)} packages: {clean} clean, {unpacked} unpacked")
        return 1 if any(found) or not clean or unpacked == len(corpus.jobs) else 0


sys.exit(main())
