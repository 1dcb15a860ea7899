# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
"""Plays users and integrators on an emulated panel, one road after the other, each from a panel that
has booted: over the monitor of the emulator, by what the screen shows, and by what is on the storage
when the panel is off. What is missing is built, the image included."""
import argparse
import importlib
import pathlib
import pkgutil
import random
import shutil
import sys
import time
import unittest

import emulated
from emulated import cuts, packages
from kxpanel import machine
from kxpanel.panel import Bench
from kxpanel.road import Road
from kxscripts import common, cross, processes, sysroot
from kxscripts.common import ROOT

RESULTS = ROOT / "build" / "test-panel"
QUICK = ("described", "kx-panel-refuses-tampered", "pulled-while-it-is-unpacked", "power-cut-1")
CUTS = 10
SHOWN = 40  # lines of why a road failed
BIG = ("*.qcow2", "*.raw", "*.img")  # what a road leaves that is made again in a moment


def all_roads(number):
    """Every road, in the order in which they are played, with so many power cuts."""
    cuts.add_roads(number)
    found = []
    for module in sorted(one.name for one in pkgutil.iter_modules(emulated.__path__)):
        loaded = importlib.import_module(f"emulated.{module}")
        for suite in unittest.defaultTestLoader.loadTestsFromModule(loaded):
            found += suite
    order = {name: place for place, name in enumerate(QUICK)}
    unique = {road.name(): road for road in found}
    return sorted(unique.values(), key=lambda road: (order.get(road.name(), len(order)),
                                                     type(road).__name__, natural(road.name())))


def natural(name):
    """A name in an order in which 10 comes behind 9."""
    word, _, number = name.rpartition("-")
    return (word, int(number)) if number.isdigit() else (name, 0)


def chosen(options, roads):
    """The roads that the command line asks for."""
    if options.roads:
        return [road for road in roads if road.name() in options.roads]
    return [road for road in roads if not options.quick or road.name() in QUICK]


class Report(unittest.TestResult):
    """Tells each road when it is over, and keeps of a failed one what tells why."""

    def __init__(self):
        super().__init__()
        self._begin = time.monotonic()

    def startTest(self, test):
        super().startTest(test)
        self._begin = time.monotonic()
        print(f"{test.name()} ...", end=" ", flush=True)

    def _tell(self, word):
        print(f"{word} ({time.monotonic() - self._begin:.0f} s)", flush=True)

    def addSuccess(self, test):
        super().addSuccess(test)
        self._tell("ok")
        for pattern in BIG:
            for file in test.folder.glob(pattern):
                file.unlink()

    def _failed(self, test, text):
        self._tell("FAILED")
        lines = text.rstrip().splitlines()
        print("\n".join(f"    {line}" for line in lines[-SHOWN:]))
        (test.folder / "why").write_text(text, encoding="utf-8")
        print(f"    pictures and logs: {test.folder}", flush=True)

    def addFailure(self, test, err):
        super().addFailure(test, err)
        self._failed(test, self.failures[-1][1])

    def addError(self, test, err):
        super().addError(test, err)
        self._failed(test, self.errors[-1][1])


def prepare(options, work):
    """Builds what is missing, and gives every road what it needs. Raises Failed."""
    common.setup("build", "tools", "demo", "vm", "emulator")
    file = options.image
    if file is None:
        need("scripts/panel-image", "--processor", options.processor)
        file = ROOT / "build" / "panel-image" / options.processor / "image.json"
    image = machine.read_image(file)
    need("scripts/cross", image.processor)
    common.build("release", "kx-package")
    built = ROOT / "build" / image.processor
    Road.bench = Bench(image, built / "plugins", work / "booted")
    Road.packages = packages.Packages(image, packages.tools(), built / "kx_Updater",
                                      work / "packages")
    Road.triple = sysroot.TRIPLES[image.processor]
    Road.unit_tests = staticmethod(lambda name: test_program(image.processor, name))
    Road.out = work
    Road.seed = options.seed


def test_program(processor, name):
    """Builds a program of the unit tests for a panel; returns its file. Raises Failed."""
    root = sysroot.find_or_make(processor)
    folder = cross.build(f"{processor}-tests", root, name)
    found = list(folder.rglob(name))
    if len(found) != 1:
        raise common.Failed(f"there is no program {name} below {folder}")
    return found[0]


def need(script, *words):
    """Runs another script of the project, which must succeed. Raises Failed."""
    if processes.run([ROOT / script, *words], cwd=ROOT) != 0:
        raise common.Failed(f"{script} {' '.join(words)} failed")


def positive(text):
    """A number of the command line that is above 0."""
    number = int(text)
    if number <= 0:
        raise argparse.ArgumentTypeError(f"{text} is not above 0")
    return number


def parse(words):
    """The options of a command line; ends the script where it is wrong."""
    parser = argparse.ArgumentParser(prog="scripts/test-panel", description=__doc__)
    parser.add_argument("--quick", action="store_true",
                        help=f"only these roads: {', '.join(QUICK)}")
    parser.add_argument("--cuts", type=positive, default=CUTS, metavar="N",
                        help=f"how often the power is cut ({CUTS})")
    parser.add_argument("--seed", type=int, default=random.randrange(1 << 32), metavar="N",
                        help="what the moments of the power cuts follow from; drawn unless given")
    parser.add_argument("--processor", choices=sorted(machine.EMULATORS), default="armhf",
                        help="the panel's processor (armhf)")
    parser.add_argument("--image", type=pathlib.Path, metavar="FILE",
                        help="the image.json of another image than that of scripts/panel-image")
    parser.add_argument("--list", action="store_true", help="tell the roads and end")
    parser.add_argument("roads", nargs="*", metavar="ROAD", help="play these roads only")
    options = parser.parse_args(words)
    options.known = all_roads(options.cuts)
    unknown = set(options.roads) - {road.name() for road in options.known}
    if unknown:
        parser.error(f"there is no road {' '.join(sorted(unknown))}; see --list")
    return options


def play(options):
    """Plays the roads; returns the exit status."""
    roads = chosen(options, options.known)
    if options.list:
        for road in roads:
            print(f"{road.name():28} {road.shortDescription()}")
        return 0
    RESULTS.mkdir(parents=True, exist_ok=True)
    for old in RESULTS.iterdir():
        if old.name not in ("booted", "packages"):
            shutil.rmtree(old)
    prepare(options, RESULTS)
    common.say(f"{len(roads)} roads; --seed {options.seed} draws these moments again")
    begin = time.monotonic()
    report = Report()
    for road in roads:
        road.run(report)
        if Road.interrupted:
            raise Road.interrupted
    bad = len(report.failures) + len(report.errors)
    common.say(f"{len(roads) - bad} of {len(roads)} roads passed in "
               f"{(time.monotonic() - begin) / 60:.1f} minutes; pictures and logs: {RESULTS}")
    return 1 if bad or not roads else 0


def main():
    """Starts the script."""
    options = parse(sys.argv[1:])
    return common.run_script("scripts/test-panel", lambda: play(options))


if __name__ == "__main__":
    sys.exit(main())
