# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
"""Fuzzes for a number of minutes, shared by the targets. New inputs are kept in build/fuzz/corpus,
findings in build/fuzz/findings; a finding belongs into tests/fuzz/corpus together with its repair.
No target runs a command or writes a device's file."""
import argparse
import re
import sys

from kxscripts import common, processes
from kxscripts.common import ROOT

# target: further options of its fuzzer
DICTIONARY = ("-dict=tests/fuzz/description.dict",)
TARGETS = {"reader": DICTIONARY, "installer": DICTIONARY, "strings": (), "archive": (),
           "check": DICTIONARY, "manifest": (),
           "policy": ("-dict=tests/fuzz/policy.dict",), "block": (), "keys": (),
           "decision": DICTIONARY}
SHOWN = 40  # lines of the output of a fuzzer that has failed
# What one input may take, in bytes, seconds and MiB.
LIMITS = ("-max_len=8192", "-timeout=20", "-rss_limit_mb=3072", "-malloc_limit_mb=1024")
TOLD = re.compile(r"(stat::(number_of_executed_units|peak_rss_mb)|Done).*")


def minutes(word):
    """A number of minutes from the command line."""
    if not re.fullmatch(r"[1-9][0-9]{0,5}", word):
        raise argparse.ArgumentTypeError(f"'{word}' is no number of minutes from 1 to 999999")
    return int(word)


def parsed(words):
    """The seconds of each target, and the targets; a wrong command line ends the program with 2."""
    parser = argparse.ArgumentParser(prog="scripts/fuzz", description=__doc__)
    parser.add_argument("minutes", type=minutes, metavar="MINUTES")
    parser.add_argument("targets", nargs="*", metavar="TARGET",
                        help=f"all by default: {', '.join(TARGETS)}")
    arguments = parser.parse_args(words)
    for target in arguments.targets:
        if target not in TARGETS:
            parser.error(f"no target '{target}'; there are: {' '.join(TARGETS)}")
    targets = list(dict.fromkeys(arguments.targets)) or list(TARGETS)
    return arguments.minutes * 60 // len(targets), targets


def command_of(target, seconds, folder):
    """What fuzzes a target: it reads its new inputs and the tracked ones, and adds new ones."""
    return [f"build/fuzz/tests/fuzz/fuzz_{target}", folder / "corpus" / target,
            f"tests/fuzz/corpus/{target}", *TARGETS[target], f"-max_total_time={seconds}", *LIMITS,
            f"-artifact_prefix={folder / 'findings' / target}-", "-print_final_stats=1"]


def fuzz(target, seconds):
    """Fuzzes one target. Returns what is wrong with it, or None."""
    folder = ROOT / "build" / "fuzz"
    for kept in ("findings", f"corpus/{target}"):
        (folder / kept).mkdir(parents=True, exist_ok=True)
    earlier = set((folder / "findings").iterdir())
    common.say(f"fuzzing {target} for {seconds} seconds")
    log = folder / f"{target}.log"
    with log.open("wb") as output:
        status = processes.run(command_of(target, seconds, folder), cwd=ROOT, output=output)
    findings = sorted(set((folder / "findings").iterdir()) - earlier)
    lines = log.read_text(encoding="utf-8", errors="replace").splitlines()
    problem = problem_of(status, [file.relative_to(ROOT).as_posix() for file in findings], lines)
    if problem is not None:
        print(common.tail_of(log, SHOWN))
        problem = f"{target}: {problem}; all of it: {log.relative_to(ROOT)}"
    print("\n".join(line for line in lines if TOLD.fullmatch(line)), flush=True)
    return problem


def problem_of(status, findings, lines):
    """What is wrong with a fuzzer that has ended, by its exit status, the findings it has left and
    its output; or None. A slow input is a finding that ends no fuzzer."""
    if findings:
        return f"found {' '.join(findings)}"
    if status != 0:
        return f"the fuzzer ended with {status} and left no finding"
    if not any(re.fullmatch(r"stat::number_of_executed_units: +[1-9]\d*", line) for line in lines):
        return "the fuzzer has tried no input"
    return None


def work(seconds, targets):
    """Fuzzes all targets, each whatever the others find. Returns 0, or raises Failed with what they
    have found."""
    common.setup("build", "tools", "test")
    common.say("building the fuzzers")
    common.build("fuzz", *(f"fuzz_{target}" for target in targets), root=ROOT)
    problems = [problem for problem in [fuzz(target, seconds) for target in targets] if problem]
    if problems:
        raise common.Failed("\n  ".join(["failed:", *problems]))
    return 0


def main():
    """Fuzzes what the command line asks for."""
    seconds, targets = parsed(sys.argv[1:])
    return common.run_script("scripts/fuzz", lambda: work(seconds, targets))


if __name__ == "__main__":
    sys.exit(main())
