# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
"""How the programs are built alone, and what tells them from those of the release build."""
import os
import pathlib
import unittest
from unittest import mock

from kxscripts import common, reproducible
from played import InProject


class Reproducible(InProject):
    """A folder that stands for the project; the builds are played."""

    def setUp(self):
        super().setUp()
        self.project = self.root / "project"
        for name, text in (
                ("CMakeLists.txt", "find_package(Threads REQUIRED)\n  find_package(Qt5 5.7)\n"
                                   "# find_package(No)\n"),
                ("lib/CMakeLists.txt", "find_package(BZip2)\nfind_package(ZLIB)\n"),
                ("tools/x/CMakeLists.txt", "find_package(ZLIB)\n"),
                ("tools/x/other.txt", "find_package(Other)\n"),
                ("libx/CMakeLists.txt", "find_package(Libx)\n"),
                ("src/main.cpp", "main")):
            self.write(f"project/{name}", text)

    def test_the_sources_are_copied_as_they_are(self):
        script = self.write("project/run", "#!", 0o755)
        (self.project / "link").symlink_to("run")
        os.utime(script, (1000, 1000))

        self.tell(reproducible.copied, self.project, self.root / "copy")

        names = sorted(path.relative_to(self.root / "copy").as_posix()
                       for path in (self.root / "copy").rglob("*") if not path.is_dir())
        self.assertEqual(names, common.sources(root=self.project))
        self.assertEqual(os.readlink(self.root / "copy/link"), "run")
        copy = (self.root / "copy/run").stat()
        self.assertEqual((copy.st_mode & 0o777, copy.st_mtime), (0o755, 1000))

    def test_the_libraries_of_the_other_program_are_hidden_each_once(self):
        self.assertEqual(self.tell(reproducible.hidden, self.project, ("lib/", "tools/")), [
            "-DCMAKE_DISABLE_FIND_PACKAGE_BZip2=ON", "-DCMAKE_DISABLE_FIND_PACKAGE_ZLIB=ON"])
        self.assertEqual(reproducible.hidden(self.project, ("CMakeLists.txt", "src/")), [
            "-DCMAKE_DISABLE_FIND_PACKAGE_Qt5=ON", "-DCMAKE_DISABLE_FIND_PACKAGE_Threads=ON"])
        self.expect_failed("no find_package in src/ res/: there is nothing to hide",
                           reproducible.hidden, self.project, ("src/", "res/"))

    def test_each_program_is_built_alone_without_the_libraries_of_the_other(self):
        self.assertEqual(reproducible.ALONE, {
            "kx_Updater": ("panel", ("lib/", "tools/")),
            "kx-package": ("tools", ("CMakeLists.txt", "src/", "res/", "device/")),
            "kx-panel": ("tools", ("CMakeLists.txt", "src/", "res/", "device/"))})

    def test_a_build_does_all_its_work_itself_and_keeps_its_words(self):
        commands, log = self.played(printed={"cmake": "words\n"}), self.root / "log"
        self.assertTrue(reproducible.built_alone(self.root, "panel", "prog", ["-DA=1"], log))
        self.assertEqual(commands.lines, ["cmake --preset panel -DKX_UNITY=ON -DA=1",
                                          "cmake --build --preset panel --target prog"])
        self.assertEqual(commands.lost, set())
        self.assertEqual(commands.added, [{"CCACHE_DISABLE": "1"}] * 2)
        self.assertEqual(commands.folders, [self.root] * 2)
        self.assertEqual(log.read_text(encoding="utf-8"), "words\nwords\n")

        for command, count in (("cmake --preset", 1), ("cmake --build", 2)):
            commands = self.played(statuses={command: 1})
            self.assertFalse(reproducible.built_alone(self.root, "panel", "prog", [], log))
            self.assertEqual(len(commands.seen), count)

    def test_differences(self):
        def of(shipped, other):
            paths = [self.root / "shipped", self.root / "other"]
            for path, data in zip(paths, (shipped, other)):
                path.write_bytes(data)
            return list(reproducible.differences("prog", *paths,
                                                 (pathlib.Path("/a.b"), pathlib.Path("/c"))))
        self.assertEqual(of(b"same\0", b"same\0"), [])
        self.assertEqual(of(b"same", b"samf"), ["prog depends on where or with what it is built"])
        self.assertEqual(of(b"\1/axb", b"\1/axb"), [])
        told = "prog holds paths of the machine that built it: "
        self.assertEqual(of(b"\0/a.b/x y~\x7f", b"\0/a.b/x y~\x7f"), [f"{told}/a.b/x y~"] * 2)
        self.assertEqual(of(b"1", b"2/c/z\0/c")[1:], [f"{told}/c/z"])
        self.assertEqual(of(b"/c", b"2"), ["prog depends on where or with what it is built",
                                           f"{told}/c"])


class Check(InProject):
    """The whole check, with builds that are played."""

    def setUp(self):
        super().setUp()
        self.write("CMakeLists.txt", "find_package(Qt5)\n")
        self.write("lib/CMakeLists.txt", "find_package(ZLIB)\n")
        self.bytes = {}  # what a build makes, by the names of the folder and the program

    def does(self, words):
        """Makes the programs that a build is asked for."""
        if words[1] != "--build":
            return
        preset, programs = words[3], words[5:]
        folder = self.root if preset == "release" else self.commands.folders[-1]
        for program in programs:
            file = folder / "build" / preset / program
            file.parent.mkdir(parents=True, exist_ok=True)
            made = self.bytes.get((preset, program), b"same")
            file.write_bytes(made() if callable(made) else made)

    def checked(self, **keywords):
        """Starts the script; leaves its exit status and its commands."""
        self.commands = self.played(does=self.does, **keywords)
        self.status = self.main(reproducible, str(self.root))

    def test_programs_that_are_the_same_pass(self):
        self.checked()
        self.assertEqual((self.status, self.out), (0, ""))
        self.assertEqual(self.commands.lines, [
            "cmake --preset release",
            "cmake --build --preset release --target kx_Updater kx-package kx-panel",
            "cmake --preset panel -DKX_UNITY=ON -DCMAKE_DISABLE_FIND_PACKAGE_ZLIB=ON",
            "cmake --build --preset panel --target kx_Updater",
            "cmake --preset tools -DKX_UNITY=ON -DCMAKE_DISABLE_FIND_PACKAGE_Qt5=ON",
            "cmake --build --preset tools --target kx-package",
            "cmake --preset tools -DKX_UNITY=ON -DCMAKE_DISABLE_FIND_PACKAGE_Qt5=ON",
            "cmake --build --preset tools --target kx-panel"])
        copies = set(self.commands.folders[2:])
        self.assertEqual(len(copies), 1)
        self.assertTrue(str(copies.pop()).endswith("/another/folder/of/sources"))
        self.assertEqual(set(self.commands.folders[:2]), {self.root})

    def test_the_copy_is_removed(self):
        self.checked()
        self.assertFalse(self.commands.folders[-1].parent.parent.exists())

    def test_all_that_is_wrong_is_told(self):
        self.bytes = {("panel", "kx_Updater"): b"other", ("tools", "kx-package"): b"another",
                      ("release", "kx-package"): f"\0{self.root}/x\0".encode()}
        self.checked()
        self.assertEqual(self.status, 1)
        self.assertEqual(self.err.splitlines()[1:], [
            "check-reproducible: kx_Updater depends on where or with what it is built",
            "check-reproducible: kx-package depends on where or with what it is built",
            "check-reproducible: kx-package holds paths of the machine that built it: "
            f"{self.root}/x", "check-reproducible: the programs cannot be reproduced"])

    def test_the_folder_of_the_copy_is_a_path_of_the_machine_too(self):
        self.bytes = {("panel", "kx_Updater"): lambda: str(self.commands.folders[-1]).encode()}
        self.checked()
        self.assertIn("kx_Updater holds paths of the machine that built it: "
                      f"{self.commands.folders[-1]}\n", self.err)

    def test_a_program_that_cannot_be_built_alone_is_told_with_the_end_of_its_log(self):
        self.checked(statuses={"cmake --build --preset panel": 1},
                     printed={"cmake --build --preset panel": "why\nit is\n"})
        self.assertEqual(self.status, 1)
        self.assertEqual(self.err.splitlines()[1:], [
            "why", "it is", "check-reproducible: kx_Updater cannot be built alone",
            "check-reproducible: the programs cannot be reproduced"])
        self.assertEqual(len(self.commands.seen), 8)

    def test_a_release_that_cannot_be_built_is_compared_with_nothing(self):
        self.checked(statuses={"cmake --build --preset release": 1})
        self.assertEqual((self.status, len(self.commands.seen)), (1, 2))
        self.assertIn("check-reproducible: building the preset release failed", self.err)

    def test_this_project_is_checked_by_default(self):
        checked = self.patch(reproducible, "check", mock.Mock(return_value=0))
        self.assertEqual(self.main(reproducible), 0)
        checked.assert_called_once_with(common.ROOT)
        self.assertEqual(self.main(reproducible, "a", "b"), 2)
        before = os.getcwd()
        self.addCleanup(os.chdir, before)
        os.chdir(self.root)
        self.main(reproducible, ".")
        checked.assert_called_with(self.root)


if __name__ == "__main__":
    unittest.main()
