# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
"""The programs that a caller starts: what they take of the caller, and leave beside themselves."""

import os
import shutil
import subprocess
import tempfile
import unittest

HOME = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
STARTERS = ("run", "drive")


class Starters(unittest.TestCase):
    """A copy of the device, started in ways that make no panel."""

    @classmethod
    def setUpClass(cls):
        cls.here = tempfile.mkdtemp()
        cls.device = f"{cls.here}/device"
        shutil.copytree(f"{HOME}/device/kxdevice", f"{cls.device}/kxdevice",
                        ignore=shutil.ignore_patterns("__pycache__"))
        os.mkdir(f"{cls.here}/bin")
        for name in STARTERS:
            shutil.copy(f"{HOME}/device/{name}", cls.device)
            os.symlink(f"../device/{name}", f"{cls.here}/bin/{name}")
        os.mkdir(f"{cls.here}/callers")
        for name in ("json", "socket", "kxdevice", "sitecustomize"):
            with open(f"{cls.here}/callers/{name}.py", "x", encoding="ascii") as file:
                file.write("raise SystemExit('the module of the caller')\n")

    @classmethod
    def tearDownClass(cls):
        shutil.rmtree(cls.here)

    def start(self, program, *words):
        """Starts a program with modules of the caller around; returns status, output, errors."""
        done = subprocess.run([f"{self.here}/{program}", *words], check=False,
                              cwd=f"{self.here}/callers", stdin=subprocess.DEVNULL,
                              capture_output=True, text=True, encoding="utf-8",
                              env={**os.environ, "PYTHONPATH": f"{self.here}/callers"})
        return done.returncode, done.stdout, done.stderr

    def test_they_are_started_by_any_name_and_tell_how_they_are_used(self):
        for name in STARTERS:
            for folder in ("device", "bin"):
                status, out, err = self.start(f"{folder}/{name}", "--help")
                self.assertEqual((status, err), (0, ""))
                self.assertTrue(out.startswith(f"usage: device/{name} "), out)

    def test_their_status_is_that_of_what_they_start(self):
        self.assertEqual(self.start("device/run", "--x"), (
            2, "", "device/run: unknown option --x; see device/run --help\n"))
        self.assertEqual(self.start("device/drive", "plug"), (
            2, "", "device/drive: --state is missing; see device/drive --help\n"))
        self.assertEqual(self.start("device/drive", "pull", "--state", "/nowhere"), (
            1, "", "device/drive: /nowhere is not the state of a panel; name a new or an empty "
                   "folder\n"))
        self.assertEqual(self.start("device/run", "--erase", "--state", "/nowhere/s"), (0, "", ""))

    def test_nothing_is_written_beside_them(self):
        for name in STARTERS:
            self.start(f"device/{name}", "--help")

        self.assertEqual(sorted(os.listdir(self.device)), ["drive", "kxdevice", "run"])
        self.assertEqual(sorted(os.listdir(f"{self.device}/kxdevice")), sorted(
            name for name in os.listdir(f"{HOME}/device/kxdevice") if name.endswith(".py")))


if __name__ == "__main__":
    unittest.main()
