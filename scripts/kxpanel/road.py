# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
"""What every road on an emulated panel has: a folder for its evidence, a bound on its time, and what is
asserted again and again."""
import contextlib
import pathlib
import shlex
import shutil
import time
import unittest

from kxpanel import drives
from kxpanel.disk import Disk
from kxpanel.drives import Kind
from kxpanel.panel import Setting
from kxscripts.common import Failed
from kxscripts.processes import Interrupted
from kxscripts.vm import TimeIsOver, time_limit

SEEN = 20  # seconds after which the screen shows what the window has drawn


class Road(unittest.TestCase):
    """One road. `seconds` is the bound on its time: several times what two idle processors need."""

    seconds = 400
    bench = None      # set by the runner: kxpanel.panel.Bench
    packages = None   # the packages of the run
    out = None        # the folder for the evidence of the run
    seed = 0          # what the drawn moments follow from
    triple = ""       # what the panel's processor is called by compilers
    unit_tests = staticmethod(lambda name: "")  # builds a program of the unit tests for the panel
    interrupted = None  # the signal that asked the run to end, if one did

    def run(self, result=None):
        """Runs the road, bounded."""
        self.folder = pathlib.Path(self.out) / self.name()
        shutil.rmtree(self.folder, ignore_errors=True)
        self.folder.mkdir(parents=True)
        return super().run(result)

    def name(self):
        """The road's name on the command line."""
        return self._testMethodName.removeprefix("test_").replace("_", "-")

    def _callTestMethod(self, method):
        try:
            method()
        except TimeIsOver as end:
            self.fail(str(end).replace("the virtual machine", "the road"))
        except Interrupted as end:
            Road.interrupted = end  # a test's runner would go on with the next road
            raise

    @contextlib.contextmanager
    def panel(self, setting=Setting()):
        """A panel that has booted, while the body runs, bounded; when that fails, its last picture is
        kept. What one such panel is made of for all roads is not in the time of the first of them."""
        self.bench.saved(setting)
        with time_limit(self.seconds), self.bench.panel(self.folder, setting) as panel:
            try:
                yield panel
            except BaseException as error:
                panel.note(f"failed: {error}")
                self._keep_picture(panel)
                raise

    @staticmethod
    def _keep_picture(panel):
        with contextlib.suppress(Failed, OSError):
            panel.screen.look().save(panel.folder / "failed.png")
        with contextlib.suppress(Failed, OSError):
            panel.note(panel.console.run("journalctl -b --no-pager | tail -n 60", 30).output)

    def stick(self, *packages, name="stick", kind=Kind()):
        """Makes a drive with packages at its top; returns its file. A package is a file, or a pair of
        its name on the drive and the file."""
        files = dict(one if isinstance(one, tuple) else (one.name, one) for one in packages)
        file = self.folder / f"{name}.img"
        drives.make(file, files, kind)
        return file

    # -- what is seen ----------------------------------------------------------------------------

    def sees(self, panel, text, colour, name="labelMsg"):
        """Waits until the window says so, and asserts that the screen shows it in the place that the
        window has for it, on that colour."""
        panel.play(f"wait message {shlex.quote(text.replace(chr(10), chr(92) + 'n'))}")
        self.reads(panel, text, name)
        place = panel.probe.state["widgets"][name]["at"]
        self.assertEqual(panel.screen.look().background(place), colour)

    def reads(self, panel, text, name):
        """Asserts that the screen soon shows a text in a widget's place."""
        until = time.monotonic() + SEEN
        while True:
            panel.probe.sync(SEEN)
            place = panel.probe.state["widgets"][name]["at"]
            picture = panel.screen.look()
            if picture.shows(place, text, panel.setting.language):
                return
            if time.monotonic() > until:
                read = picture.read(place, panel.setting.language)
                self.fail(f"the screen does not show '{text}' in {name}, but '{read}'")
            time.sleep(0.5)

    # -- what is on the disk ---------------------------------------------------------------------

    def disk(self, panel, serial):
        """The file system of a panel that is off."""
        disk = Disk(panel.overlays[serial], self.folder)
        self.addCleanup(disk.close)
        return disk
