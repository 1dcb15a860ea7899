# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
"""The programs device/window and device/operate as they are typed, and the look at a panel."""

import os
import pathlib
import shutil
import subprocess
import tempfile
import unittest

from kxdevice import names

ROOT = pathlib.Path(__file__).resolve().parent.parent.parent
LOOK = ROOT / "tests/device/look"


class Starters(unittest.TestCase):
    """A copy of the device's programs."""

    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = pathlib.Path(folder.name).resolve()
        self.device = self.folder / "device"
        shutil.copytree(ROOT / "device", self.device,
                        ignore=shutil.ignore_patterns("__pycache__"))

    def start(self, program, *words, **environment):
        """Starts a program; returns its exit status, its output and its errors."""
        done = subprocess.run([program, *words], cwd=self.folder, stdin=subprocess.DEVNULL,
                              capture_output=True, encoding="utf-8", check=False,
                              env={**os.environ, **environment})
        return done.returncode, done.stdout, done.stderr

    def test_they_find_their_own_modules_also_by_a_link(self):
        (self.folder / "bin").mkdir()
        for name, begin in (("window", "Starts the updater's window"), ("operate", "usage: operate")):
            link = self.folder / "bin" / name
            link.symlink_to(self.device / name)
            for program in (self.device / name, link):
                status, out, err = self.start(program, "--help")
                self.assertEqual((status, err), (0, ""))
                self.assertTrue(out.startswith(begin))
                self.assertTrue(out.endswith("\n"))

    def test_a_window_looks_for_what_was_built_beside_its_device(self):
        self.assertEqual(self.start(self.device / "window"), (
            2, "", f"device/window: there is no {self.folder}/build/release/kx_Updater; "
                   "scripts/demo builds what is missing\n"))

    def test_outside_of_the_device_nothing_is_operated(self):
        if os.path.exists(names.MARKER):
            self.skipTest("this is the sandboxed device")
        self.assertEqual(self.start(
            self.device / "operate", "--plugins", "x", "--out", "out", "touch", "started"), (
                126, "", "operate: this is not the sandboxed device (/.kx-device is missing); "
                         "use device/window\n"))
        self.assertEqual(os.listdir(self.folder), ["device"])

    def test_wrong_use_has_its_own_status(self):
        self.assertEqual(self.start(self.device / "window", "--lang")[0], 2)
        self.assertEqual(self.start(self.device / "operate")[0], 2)

    def test_modules_of_the_user_do_not_get_in_between_and_nothing_is_compiled(self):
        mine = self.folder / "mine"
        mine.mkdir()
        for name in ("argparse", "json", "sitecustomize", "typing"):
            (mine / f"{name}.py").write_text("raise SystemExit(77)\n", encoding="utf-8")
            (self.folder / f"{name}.py").write_text("raise SystemExit(77)\n", encoding="utf-8")
        for name in ("window", "operate"):
            status, _, err = self.start(self.device / name, "--help", PYTHONPATH=str(mine))
            self.assertEqual((status, err), (0, ""))
        self.assertEqual(list(self.device.rglob("__pycache__")), [])


class Look(unittest.TestCase):
    """A command, then a look at what it has left."""

    def test_output_and_status_are_the_commands_the_look_stands_behind_a_mark(self):
        with tempfile.TemporaryDirectory() as folder:
            done = subprocess.run(
                [LOOK, "cat left; echo 'a  b' >&2; false",
                 "sh", "-c", "echo \"$2\"; echo oops >&2; echo left >left; exit 5", "x", "1", "two  w"],
                cwd=folder, capture_output=True, encoding="utf-8", check=False)
        self.assertEqual((done.returncode, done.stdout, done.stderr),
                         (5, "two  w\n", "oops\n==== the panel\nleft\na  b\n"))

    def test_a_look_that_fails_changes_nothing(self):
        done = subprocess.run([LOOK, "exit_not_known 2>/dev/null", "true"], capture_output=True,
                              encoding="utf-8", check=False)
        self.assertEqual((done.returncode, done.stdout, done.stderr), (0, "", "==== the panel\n"))


if __name__ == "__main__":
    unittest.main()
