# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
"""What `kx-package check` finds in many packages. One start looks at several of them: with sanitizers
in it, the tool takes longer to start than to read a package."""
import concurrent.futures
import json
import re
import subprocess

TOGETHER = 20  # packages that one start looks at


class Unclear(Exception):
    """A check ended otherwise than it may; the text says how."""


def output(tool, *words):
    """What a check prints, and whether its exit status says that all are clean."""
    done = subprocess.run([*tool, "check", *words], capture_output=True, timeout=120, check=False,
                          stdin=subprocess.DEVNULL)
    if done.returncode not in (0, 1) or done.stderr:
        raise Unclear(f"exit {done.returncode} {done.stderr.decode(errors='replace')}")
    return done.stdout.decode(), done.returncode == 0


def documents(tool, files):
    """The JSON about each of the files. Raises Unclear."""
    printed, are_clean = output(tool, "--json", *files)
    told = json.loads(printed)
    each = told["packages"] if len(files) > 1 else [told]
    if [one["package"] for one in each] != files or \
            all(one["clean"] for one in each) != are_clean or told["clean"] != are_clean:
        raise Unclear("findings and exit status contradict each other")
    return each


def errors(tool, files):
    """The number of errors in each of the files, from the text for people. Raises Unclear."""
    printed, are_clean = output(tool, *files)
    sums = re.findall(r"^(\S.*): (\d+) errors?, \d+ warnings?, \d+ notes?$", printed, flags=re.M)
    if [file for file, _ in sums] != files or \
            all(number == "0" for _, number in sums) != are_clean:
        raise Unclear("findings and exit status contradict each other")
    return [int(number) for _, number in sums]


def of_group(ask, tool, jobs):
    """What is told of each of these packages."""
    try:
        return ask(tool, [job["file"] for job in jobs])
    except Unclear as unclear:
        if len(jobs) == 1:
            raise SystemExit(f"{jobs[0]['file']} ({jobs[0]['how']}): {unclear}") from unclear
        for job in jobs:
            of_group(ask, tool, [job])  # ends with the name of the one
        raise SystemExit(f"{jobs[0]['file']} and those that follow: {unclear}") from unclear


def of_all(ask, tool, jobs):
    """What is told of each package by `ask`, which is documents or errors. Ends the program when a
    check ends otherwise than it may.

    tool    the words that start it"""
    groups = [jobs[at:at + TOGETHER] for at in range(0, len(jobs), TOGETHER)]
    with concurrent.futures.ThreadPoolExecutor(2) as pool:
        return [told for group in pool.map(lambda group: of_group(ask, tool, group), groups)
                for told in group]
