# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
"""The gate: installs what is missing, builds, Debian packages as well, and runs every test and check. Ends
with 0 only when something was tested in every part and all of it passed; what was skipped counts as
failed. The output and the reports of each part are kept in build/test/."""
import argparse
import fnmatch
import os
import re
import shutil
import sys
import time

from kxscripts import common, parts, processes, results
from kxscripts.common import ROOT
from kxscripts.parts import Part
from kxscripts.results import FAILED, PASSED, SKIPPED, Case

LOGS = ROOT / "build" / "test"
SHOWN = 20       # failed cases of a part whose output is shown
SLOWEST = 10     # tests that are told with their time
# What about the sandboxed device itself and the demonstration, and not about the updater.
PANEL_TESTS = ("sandbox*.bats", "drive.bats", "demo*.bats")
# Not made once more with the sanitizers: the trials of kx-package, which start it as it is shipped, and
# of kx-panel what it does with files and processes. What it reads of strangers is made with both.
SHIPPED_TESTS = ("try*.bats", "panel_guard.bats", "panel_install.bats")
# Settings of test programs that could make them run something else than all.
FOREIGN = re.compile(r"(GTEST|QTEST|CTEST|BATS|KX)_")


def environment(**more):
    """The environment of every test: that of the gate without what changes which tests run."""
    return {name: value for name, value in os.environ.items()
            if not FOREIGN.match(name)} | {name: str(value) for name, value in more.items()}


def kept(name, ending):
    """Where a part's output or report is kept."""
    return LOGS / (re.sub(r"\W+", "-", name).strip("-") + ending)


def run_logged(name, command, **more):
    """Runs a command of a part. Returns its exit status, and all it has printed."""
    log = kept(name, ".log")
    with log.open("wb") as output:
        status = processes.run(command, cwd=ROOT, output=output, env=environment(**more))
    return status, log.read_text(encoding="utf-8", errors="replace")


def build(preset, *targets):
    """A part: a build, one case."""
    def work():
        problem = common.try_build(preset, *targets)
        if problem is not None:
            raise common.Failed(problem)
        return [Case(f"build {preset}", PASSED)]
    return work


def unit_tests(name, preset):
    """A part: all that CTest knows of a build."""
    def work():
        report, folder = kept(name, ".xml"), ROOT / "build" / preset / "reports"
        for old in folder.glob("*.xml"):
            old.unlink()
        status, output = run_logged(
            # One more than there are processors: some of the tests wait for most of their time.
            name, ["ctest", "--preset", preset, "-j", str(os.cpu_count() + 1),
                   "--output-on-failure", "-V", "--output-junit", report],
            KX_SECOND=ROOT / "build" / "release" / "kx-package")
        return results.of_ctest(report, folder, status, output)
    return work


def is_about(file, patterns):
    """Whether a file of tests is one of these."""
    return any(fnmatch.fnmatch(file.name, pattern) for pattern in patterns)


def device_tests(name, preset, about_panel, without=()):
    """A part: whole-program tests on the sandboxed device with updater and kx-panel of a build."""
    def work():
        files = [file for file in sorted((ROOT / "tests" / "device").glob("*.bats"))
                 if is_about(file, PANEL_TESTS) == about_panel and not is_about(file, without)]
        if not files:
            raise common.Failed("no bats file in tests/device is about this")
        report = kept(name, ".xml")
        status, output = run_logged(
            name, ["bats", "--timing", "--formatter", ROOT / "tests" / "support" / "bats-report",
                   *files],
            KX_BATS_REPORT=report, KX_UPDATER=ROOT / "build" / preset / "kx_Updater",
            KX_PANEL=ROOT / "build" / preset / "kx-panel")
        return results.of_program("bats", report, status == 0, output)
    return work


def script(name, *command):
    """A part: what a script of the project makes or checks, one case. The tests go first: many of them
    have to be in time."""
    def work():
        status, output = run_logged(name, ["nice", *command])
        if status != 0:
            raise common.Failed("\n".join(output.splitlines()[-common.TAIL:]))
        return [Case(name, PASSED)]
    return work


def one_after_the_other(begin, *scripts):
    """Parts, each of which waits for the one before, and the first one for `begin`.

    scripts   the name and the command of each"""
    before = begin
    for name, *command in scripts:
        yield Part(name, script(name, *command), after=(before,))
        before = name


def checks_of(*names):
    """Name and command of each of these checks."""
    return [(f"check {name}", "scripts/check", name) for name in names]


def schedule():
    """The parts of the gate, what each cannot be done without (needs), and what else should be over
    before it begins (after), so that two processors are always busy and seldom fought over."""
    release, asan = "build release", "build asan"
    unit, panel = "unit tests (asan)", "device tests (panel)"
    devices = ("device tests (release)", "device tests (sanitizers)")
    # The device's tests mostly wait: behind the compiler's back, or two of them side by side with
    # the reading of the sources.
    plan = [
        Part(release, build("release", "all", "kx_probe")),
        Part(panel, device_tests(panel, "release", True), needs=(release,)),
        Part(asan, build("asan"), after=(release,)),
        # The verdicts of kx-package are compared with those of the updater as it is shipped; and of
        # the corpus the kx-package that is shipped answers what is only compared.
        Part(unit, unit_tests(unit, "asan"), needs=(release, asan)),
        # Some of the unit tests wait, too; and making packages is mostly one process after the other.
        Part("packages", script("packages", "scripts/packages"), after=(asan,)),
        Part("check tidy", script("check tidy", "scripts/check", "tidy"), after=(panel, unit)),
        Part(devices[0], device_tests(devices[0], "release", False), needs=(release,),
             after=(panel, unit)),
        Part(devices[1], device_tests(devices[1], "asan", False, without=SHIPPED_TESTS),
             needs=(release, asan), after=(panel, unit)),
    ]
    # The device's tests leave a processor free as soon as the reading is over. Two rows side by side:
    # configuring and linking take one processor at most.
    plan += one_after_the_other(
        "check tidy", *checks_of("format", "layers", "headers", "spelling", "shell", "qt"))
    plan += one_after_the_other("check tidy", *checks_of("odr", "needs", "reproducible"))
    return plan


def duration(seconds):
    """A time for people."""
    return f"{seconds:.1f} s" if seconds < 60 else f"{int(seconds) // 60} min {int(seconds) % 60} s"


def tell_begun(part):
    """Tells that a part begins."""
    print(f"{part.name} ...", flush=True)


def tell_ended(done):
    """Tells how a part ended, with the output of its failed cases."""
    name = done.part.name
    print(f"{name}: {done.passed} passed, {done.failed} failed, {duration(done.seconds)}")
    failed = [case for case in done.cases if case.outcome == FAILED]
    for case in failed[:SHOWN]:
        print(f"-- {name}: {case.name}\n" +
              "\n".join(f"   {line}" for line in case.text.splitlines()[-common.TAIL:]))
    if len(failed) > SHOWN:
        print(f"-- {name}: {len(failed) - SHOWN} more; all output: {LOGS.relative_to(ROOT)}/")
    sys.stdout.flush()


def slowest(all_done):
    """The tests that took longest, each with its part."""
    cases = sorted(((case.seconds, done.part.name, case.name)
                    for done in all_done for case in done.cases), reverse=True)
    return [f"{seconds:8.1f} s  {part}: {name}" for seconds, part, name in cases[:SLOWEST]
            if seconds > 0]


def skipped(all_done):
    """What was skipped, together by reason."""
    reasons = {}
    for done in all_done:
        for case in done.cases:
            if case.outcome == SKIPPED:
                reasons.setdefault((done.part.name, case.text), []).append(case.name)
    for (part, reason), names in reasons.items():
        more = f" and {len(names) - 1} more" if len(names) > 1 else ""
        yield f"  {part}: {names[0]}{more}: {reason}"


def tell_all(all_done, seconds):
    """Tells what took how long, what failed, and the sum. Returns the exit status."""
    lines = ["", "slowest tests:", *slowest(all_done), "", "parts:"]
    for done in all_done:
        lines.append(f"{duration(done.seconds):>12}  {done.part.name}: "
                     f"{done.passed} passed, {done.failed} failed")
    lines.append(f"{duration(seconds):>12}  in all")
    bad = [f"  {done.part.name}: {case.name}" for done in all_done for case in done.cases
           if case.outcome == FAILED]
    if bad:
        lines += ["", f"failed; all output is in {LOGS.relative_to(ROOT)}/:", *bad]
    reasons = list(skipped(all_done))
    if reasons:
        lines += ["", "skipped, and so not known to work, which counts as failed:", *reasons]
    failed = sum(done.failed for done in all_done)
    lines += ["", f"{sum(done.passed for done in all_done)} passed, {failed} failed"]
    print("\n".join(lines), flush=True)
    # A part without a single pass has shown nothing.
    return 1 if failed or not all_done or any(done.passed == 0 for done in all_done) else 0


def work():
    """Does all parts, after what is missing was installed. Returns the exit status."""
    start = time.monotonic()
    common.setup("build", "tools", "demo", "test", "vm", "display", "web", "vnc", "packages")
    shutil.rmtree(LOGS, ignore_errors=True)
    LOGS.mkdir(parents=True)
    return tell_all(parts.run(schedule(), tell_begun, tell_ended), time.monotonic() - start)


def main():
    """Runs the gate."""
    argparse.ArgumentParser(prog="scripts/test", description=__doc__).parse_args()
    return common.run_script("scripts/test", work, ": nothing is known of what was not told")


if __name__ == "__main__":
    sys.exit(main())
