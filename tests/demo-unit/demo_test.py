# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
"""The demonstration from its beginning to its end, whose parts are played."""

import os
import pathlib
import shutil
import subprocess
import sys
import unittest
from unittest import mock

from kxscripts import demo
from kxscripts.common import Failed, ROOT
from kxscripts.demo_options import parse
from kxscripts.processes import Interrupted
from scene import Process, Processes, Scene


class Order(Scene):
    """What is done in which order, and the exit status."""

    def setUp(self):
        super().setUp()
        self.done = []
        self.fails = {}
        self.taken = set()
        self.display_opens = True
        for change in (mock.patch.dict(os.environ, {"LANG": "C"}),):
            change.start()
            self.addCleanup(change.stop)
        for name in ("DISPLAY", "WAYLAND_DISPLAY"):
            os.environ.pop(name, None)
        for target, name in ((demo, "setup"), (demo, "build"), (demo, "end_on_signals"),
                             (demo, "ignore_signals"), (demo.hello, "pack"),
                             (demo.demo_headless, "show"), (demo.demo_headless, "tell_files"),
                             (demo.demo_served, "serve"), (demo.demo_served, "open_display"),
                             (demo.demo_served, "show_on_display"), (demo.demo_rest, "tell"),
                             (demo.demo_rest, "tell_way_in")):
            self.patch(target, name, self.noted(name))
        self.patch(demo.demo_signed, "show", self.noted("show_signed"))
        self.patch(demo.demo_served, "is_taken", self.taken.__contains__)
        self.patch(demo, "Stage", self.make_stage)
        self.made = None

    def noted(self, name):
        """Returns a function that notes its call, and fails when it is to."""
        def call(*arguments, **more):
            shown = [argument for argument in arguments if not isinstance(argument, demo_stage)]
            self.done.append((name, *shown, *([more] if more else [])))
            if name in self.fails:
                raise self.fails[name]
            return self.display_opens
        return call

    def make_stage(self, options, caller):
        """Returns a stage whose processes and folder are played."""
        self.made = demo_stage(options, caller)
        self.made.processes = Processes()
        self.made.processes.stop_all = self.noted("stop_all")
        self.made.claim_folder = self.noted("claim_folder")
        self.made.clear = self.noted("clear")
        self.made.need = self.noted("need")
        self.made.window = Process()
        return self.made

    def demonstrate(self, *words):
        """Runs the demonstration; returns its exit status."""
        with self.told(), mock.patch.object(sys.stdout, "reconfigure", create=True):
            status = demo.main([*words, "--dir", str(self.root / "demo")])
        return status

    def names(self):
        """Returns what was done."""
        return [name for name, *_ in self.done]

    def test_without_a_display(self):
        package = self.root / "demo/drive/Hello.kx-update"
        self.assertEqual(self.demonstrate(), 0)
        self.assertEqual(self.done, [
            ("end_on_signals",), ("setup", "build", "tools", "demo"),
            ("build", "release", "kx_Updater", "kx-package", "kx-panel",
             "kx_probe"), ("claim_folder",),
            ("pack", package), ("need", "unzip", "-l", package), ("show",), ("stop_all",),
            ("tell", {"must_be_recorded": True}), ("show_signed",), ("ignore_signals",), ("clear",),
            ("tell_files",), ("tell_way_in",)])
        self.assertEqual(self.out, "\n== Building the updater\nbuild/release/kx_Updater\n"
                                   "\n== Packing the package: Hello.kx-update\n")
        self.assertEqual(os.getcwd(), str(ROOT))
        # pylint: disable=protected-access
        self.assertEqual(self.made._caller, self.root)

    def test_on_a_display(self):
        os.environ["DISPLAY"] = ":3"
        self.assertEqual(self.demonstrate(), 0)
        self.assertEqual(self.done[1], ("setup", "build", "tools", "demo", "display"))
        self.assertEqual(self.names()[6:], [
            "open_display", "show_on_display", "stop_all", "tell", "show_signed", "ignore_signals",
            "clear", "tell_way_in"])
        self.assertIn(("tell", {"must_be_recorded": False}), self.done)

    def test_on_a_display_that_cannot_be_opened(self):
        os.environ["DISPLAY"] = ":3"
        self.display_opens = False
        self.assertEqual(self.demonstrate(), 0)
        self.assertEqual(self.names()[6:], [
            "open_display", "show", "stop_all", "tell", "show_signed", "ignore_signals", "clear",
            "tell_files", "tell_way_in"])
        self.assertIn(("tell", {"must_be_recorded": True}), self.done)
        self.assertIn("\nNo window can be opened on the display :3. Going on without a display.\n",
                      self.out)

    def test_served(self):
        for words, groups in ((["--web", "1"], ["web"]), (["--vnc", "2"], ["vnc"]),
                              (["--vnc", "2", "--web", "1"], ["web", "vnc"])):
            self.done = []
            self.assertEqual(self.demonstrate(*words), 0)
            self.assertEqual(self.done[1], ("setup", "build", "tools", "demo", *groups))
            self.assertEqual(self.names()[6:8], ["serve", "stop_all"])
            self.assertIn(("tell", {"must_be_recorded": False}), self.done)
            self.assertNotIn("tell_files", self.names())

    def test_a_port_that_is_taken_is_told_before_anything_is_done(self):
        for port in (1, 2):
            self.taken.clear()
            self.taken.add(port)
            self.done = []
            self.assertEqual(self.demonstrate("--web", "1", "--vnc", "2"), 1)
            self.assertEqual(self.err, f"scripts/demo: port {port} is taken; "
                                       "name another one behind --web or --vnc\n")
            self.assertEqual(self.names(), ["end_on_signals"])

    def test_whatever_fails_the_rest_is_cleared_away(self):
        for name in ("setup", "build", "claim_folder", "pack", "need", "show", "stop_all", "tell",
                     "show_signed"):
            for error in (Failed("no"), OSError(28, "no")):
                self.done, self.fails = [], {name: error}
                self.assertEqual(self.demonstrate(), 1)
                self.assertEqual(self.err, f"scripts/demo: {error}\n")
                self.assertEqual(self.names()[-3:], [name, "ignore_signals", "clear"])

    def test_signals(self):
        for number, status, told in ((2, 130, "\nEnded.\n"), (15, 143, ""), (1, 143, "")):
            self.done, self.fails = [], {"show": Interrupted(number)}
            self.assertEqual(self.demonstrate(), status)
            self.assertTrue(self.out.endswith("Hello.kx-update\n" + told))
            self.assertEqual(self.err, "")
            self.assertEqual(self.names()[-1], "clear")

    def test_wrong_use_and_help(self):
        self.assertEqual(self.demonstrate("--size", "1"), 2)
        self.assertEqual(self.err, "scripts/demo: --size: '1' is no size such as 800x480; "
                                   "see scripts/demo --help\n")
        self.assertEqual(self.demonstrate("--help"), 0)
        self.assertTrue(self.out.startswith("Shows the main job: "))
        self.assertTrue(self.out.endswith("2 wrong use.\n"))
        self.assertEqual(self.done, [])

    def test_how_the_panel_is_shown(self):
        wayland = ("This display is reached by Wayland only; the panel needs X. "
                   "Going on without a display.\n")
        for display, wayland_display, words, mode, told in (
                (":0", "", [], "display", ""), (":0", "", ["--headless"], "headless", ""),
                (":0", "w", [], "display", ""), (":0", "", ["--web"], "served", ""),
                ("", "", ["--vnc"], "served", ""), ("", "", [], "headless", ""),
                ("", "w", [], "headless", wayland), ("", "w", ["--headless"], "headless", ""),
                ("", "w", ["--vnc"], "served", "")):
            os.environ.update(DISPLAY=display, WAYLAND_DISPLAY=wayland_display)
            with self.told():
                # pylint: disable=protected-access
                self.assertEqual(demo._mode(parse(words)), mode)
            self.assertEqual(self.out, told)


class Start(Scene):
    """The program as it is typed."""

    def test_it_finds_its_own_modules_by_a_link_and_no_others_and_compiles_nothing(self):
        for name in ("scripts", "device"):
            shutil.copytree(ROOT / name, self.root / name,
                            ignore=shutil.ignore_patterns("__pycache__"))
        os.mkdir("mine")
        for name in ("argparse", "pathlib", "sitecustomize"):
            for folder in (".", "mine"):
                pathlib.Path(folder, f"{name}.py").write_text("raise SystemExit(77)\n", "ascii")
        os.symlink("scripts/demo", "link")
        for words, status, begin in ((["--help"], 0, "Shows the main job: "), (["x"], 2, "")):
            done = subprocess.run(["./link", *words], capture_output=True, encoding="utf-8",
                                  check=False, env={**os.environ, "PYTHONPATH": "mine"})
            self.assertEqual(done.returncode, status)
            self.assertTrue(done.stdout.startswith(begin))
        self.assertEqual(done.stderr,
                         "scripts/demo: unknown option 'x'; see scripts/demo --help\n")
        self.assertEqual(list(self.root.rglob("__pycache__")), [])


class Output(unittest.TestCase):
    """Output that nobody takes."""

    def end(self, **more):
        """Asks for help; returns the exit status and what is complained of."""
        done = subprocess.run(["/usr/bin/python3", "-ISB", ROOT / "scripts/kxscripts/demo.py",
                               "--help"], stderr=subprocess.PIPE, check=False, **more)
        return done.returncode, done.stderr.decode()

    def test_a_pipe_without_an_end(self):
        ours, theirs = os.pipe()
        os.close(ours)
        with open(theirs, "wb") as pipe:
            self.assertEqual(self.end(stdout=pipe), (141, ""))

    def test_a_full_disk(self):
        with open("/dev/full", "wb") as full:
            self.assertEqual(self.end(stdout=full), (
                1, "scripts/demo: [Errno 28] No space left on device\n"))


demo_stage = demo.Stage

if __name__ == "__main__":
    unittest.main()
