# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
"""Building for a panel's processor; what fetches, builds and tests is played."""
import argparse
import json
import os
import subprocess
import unittest
from unittest import mock

from kxscripts import common, cross, foreign, needs, sysroot
from played import InProject


class InPlayedProject(InProject):
    """A project in which everything that takes time is played."""

    def setUp(self):
        super().setUp()
        self.patch(common, "ROOT", self.root)
        self.kept = self.root / "cache" / "armhf-1"
        (self.kept / "usr").mkdir(parents=True)
        self.made = []
        self.patch(sysroot, "find_or_make", lambda arch: self.made.append(arch) or self.kept)
        self.patch(sysroot, "folders", lambda: [self.root / "cache"])
        self.steps = []
        self.patch(common, "setup", lambda *groups: self.steps.append(("setup", *groups)))
        self.patch(common, "build", lambda *words, options: self.steps.append(
            ("build", *words, *options)))
        self.patch(needs, "check", lambda _, arch: self.steps.append(("needs", arch)))
        self.patch(cross, "stripped_size", lambda *_: 3072)
        self.enterContext(mock.patch.dict(os.environ))
        os.environ.pop("KX_SYSROOT", None)

    @staticmethod
    def options(processor="armhf", folder=None, test=False):
        """A command line."""
        return argparse.Namespace(processor=processor, sysroot=folder, test=test)

    def work(self, **words):
        """Does what a command line asks for; returns the steps."""
        with self.told():
            self.assertEqual(cross.work(self.options(**words)), 0)
        return self.steps


class Sysroots(InPlayedProject):
    """Which headers and libraries are taken."""

    def test_debians_are_taken_where_none_is_named(self):
        self.assertEqual(cross.chosen_sysroot(self.options()), self.kept)
        self.assertEqual(self.made, ["armhf"])

    def test_the_command_line_goes_before_the_environment(self):
        for name in ("one", "two"):
            (self.root / name / "usr").mkdir(parents=True)
        os.environ["KX_SYSROOT"] = str(self.root / "one")
        self.assertEqual(cross.chosen_sysroot(self.options()), self.root / "one")
        self.assertEqual(cross.chosen_sysroot(self.options(folder=str(self.root / "two"))),
                         self.root / "two")
        self.assertEqual(self.made, [])

    def test_a_folder_without_usr_is_refused(self):
        self.expect_failed(f"{self.root} is no sysroot: it has no folder usr",
                           lambda: cross.chosen_sysroot(self.options(folder=str(self.root))))


class Building(InPlayedProject):
    """The programs."""

    def test_debians_are_compared_with_the_documentation(self):
        self.assertEqual(self.work(), [
            ("setup", "build", "tools", "cross"),
            ("build", "armhf", "all", "kx_probe", f"-DKX_SYSROOT={self.kept}"), ("needs", "armhf")])
        self.assertIn("build/armhf/kx-panel: 3 KiB stripped\n", self.out)
        self.assertIn("build/armhf/plugins/generic/libkxprobe.so: 3 KiB stripped\n", self.out)

    def test_others_may_need_something_else(self):
        (self.root / "own" / "usr").mkdir(parents=True)
        self.assertEqual(self.work(processor="arm64", folder=str(self.root / "own")), [
            ("setup", "build", "tools", "cross", "arm64"),
            ("build", "arm64", "all", "kx_probe", f"-DKX_SYSROOT={self.root}/own")])

    def test_another_sysroot_begins_anew_the_same_goes_on(self):
        folder = self.root / "build" / "armhf"
        self.assertEqual(cross.configure_options(folder, "/a"), ["-DKX_SYSROOT=/a"])
        self.write("build/armhf/CMakeCache.txt", "X:BOOL=ON\nKX_SYSROOT:PATH=/a\nY:BOOL=ON\n")
        self.assertEqual(cross.configure_options(folder, "/a"), ["-DKX_SYSROOT=/a"])
        self.assertEqual(cross.configure_options(folder, "/a/b"), ["--fresh", "-DKX_SYSROOT=/a/b"])
        self.assertEqual(cross.configure_options(folder, "/"), ["--fresh", "-DKX_SYSROOT=/"])


class Testing(InPlayedProject):
    """The unit tests."""

    def setUp(self):
        super().setUp()
        tests = {"tests": [
            {"name": "io", "properties": [{"name": "LABELS", "value": ["unit"]}]},
            {"name": "device", "properties": [{"name": "TIMEOUT", "value": 5}]}, {"name": "bats"}]}
        self.patch(subprocess, "run", lambda words, **_: subprocess.CompletedProcess(
            words, 0, json.dumps(tests), ""))
        self.status, self.tried = 0, []
        self.patch(foreign, "run", self.run_foreign)

    def run_foreign(self, words, *, cwd, env):
        """Runs a command with emulators."""
        self.assertEqual(cwd, self.root)
        self.tried.append((words[0], words[-1], env["QEMU_LD_PREFIX"]))
        return self.status

    def test_they_are_built_and_run_and_what_is_left_out_is_told(self):
        self.assertEqual(self.work(test=True), [
            ("setup", "build", "tools", "cross", "test"),
            ("build", "armhf-tests", "kx_unit_tests", f"-DKX_SYSROOT={self.kept}")])
        self.assertEqual(self.tried, [("sh", "armhf-tests", str(self.kept))])
        self.assertIn("Left out: 2 tests ", self.out)

    def test_one_that_fails_is_a_failure(self):
        self.status = 8
        with self.told():
            self.expect_failed("ctest ended with 8", lambda: cross.work(self.options(test=True)))


if __name__ == "__main__":
    unittest.main()
