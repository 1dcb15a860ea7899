# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
"""The package that the demonstration installs: its sources, and how it is packed."""

import os
import pathlib
import shutil
import subprocess
import tomllib
import unittest

from kxscripts import hello
from kxscripts.common import Failed, ROOT
from scene import Scene

TOGETHER = ("the examples hello and settings do not go together any more; "
            "see scripts/kxscripts/hello.py")


def files(folder):
    """Returns the names of all files below a folder, with their modes."""
    return {file.relative_to(folder): file.stat().st_mode for file in folder.rglob("*")
            if file.is_file()}


class Sources(Scene):
    """The first two examples in one."""

    def setUp(self):
        super().setUp()
        shutil.copytree(ROOT / "examples", self.root / "examples")
        self.patch(hello, "ROOT", self.root)

    def manifest(self, name):
        """Returns the manifest of an example."""
        return self.root / "examples" / name / "package.toml"

    def test_all_files_of_both_with_their_modes(self):
        script = self.root / "examples/hello/more/script"
        script.parent.mkdir()
        script.touch(0o755)
        hello.source(self.root / "out")
        self.assertEqual(files(self.root / "out"), {
            **files(self.root / "examples/settings"), **files(self.root / "examples/hello")})

    def test_the_manifest_is_the_first_with_the_steps_of_the_second(self):
        hello.source("out")
        self.assertEqual(
            pathlib.Path("out/package.toml").read_text(encoding="utf-8"),
            self.manifest("hello").read_text(encoding="utf-8").replace(
                '"Installs a greeting and its texts"',
                '"Installs a greeting, its texts and a start-up script"')
            + "[[steps]]\n"
            + self.manifest("settings").read_text(encoding="utf-8").split("\n[[steps]]\n", 1)[1])

    def test_files_that_are_there_stay_and_those_of_the_same_name_are_replaced(self):
        pathlib.Path("out").mkdir()
        for name in ("mine", "package.toml"):
            pathlib.Path("out", name).write_text("mine", encoding="utf-8")
        hello.source("out")
        self.assertEqual(pathlib.Path("out/mine").read_text(encoding="utf-8"), "mine")
        self.assertNotEqual(pathlib.Path("out/package.toml").read_text(encoding="utf-8"), "mine")

    def test_examples_that_do_not_go_together(self):
        comment = 'comment = "Installs a greeting and its texts"'
        for name, old, new in (("hello", comment, ""), ("hello", comment, comment + "\n" + comment),
                               ("settings", "[[steps]]", "[steps]")):
            manifest = self.manifest(name)
            text = manifest.read_text(encoding="utf-8")
            manifest.write_text(text.replace(old, new), encoding="utf-8")
            with self.assertRaises(Failed) as caught:
                hello.source("out")
            self.assertEqual(str(caught.exception), TOGETHER)
            manifest.write_text(text, encoding="utf-8")
        hello.source("out")

    def test_the_command_line(self):
        with self.told():
            self.assertEqual(hello.main(["out"]), 0)
            self.assertTrue(os.path.exists("out/package.toml"))
        self.assertEqual((self.out, self.err), ("", ""))
        for words in ([], ["a", "b"]):
            with self.told():
                self.assertEqual(hello.main(words), 2)
            self.assertEqual(self.err, "hello: needs one FOLDER\n")
        self.manifest("settings").write_text("", encoding="utf-8")
        with self.told():
            self.assertEqual(hello.main(["out"]), 1)
        self.assertEqual(self.err, f"hello: {TOGETHER}\n")
        self.manifest("settings").unlink()
        with self.told():
            self.assertEqual(hello.main(["out"]), 1)
        self.assertIn("No such file or directory", self.err)


class Packing(Scene):
    """What the packer gets."""

    def test_the_sources_and_a_step_to_look_at_for_this_machine(self):
        seen = {}

        def run(command, check):
            self.assertFalse(check)
            words = [os.fspath(word) for word in command]
            seen["words"], seen["folder"] = words, pathlib.Path(words[2])
            hello.source("expected")
            seen["text"] = (seen["folder"] / "package.toml").read_text(encoding="utf-8")
            return subprocess.CompletedProcess(words, seen["status"])
        self.patch(subprocess, "run", run)

        seen["status"] = 0
        hello.pack(self.root / "Hello.kx-update")
        self.assertEqual(seen["words"], [
            str(ROOT / "build/release/kx-package"), "build", str(seen["folder"]), "-o",
            str(self.root / "Hello.kx-update"), "--processor", os.uname().machine])
        examples = pathlib.Path("expected/package.toml").read_text(encoding="utf-8")
        self.assertTrue(seen["text"].startswith(examples))
        (look,) = tomllib.loads(seen["text"][len(examples):])["steps"]
        self.assertEqual((look["kind"], look["comment"]), ("script", "look around"))
        # The pictures are taken between the last line and the moment that the file is gone.
        self.assertTrue(look["install"].startswith("#!/bin/sh\n"))
        self.assertLess(look["install"].index("part $part of 4"),
                        look["install"].index("while [ -e /run/look ]"))
        self.assertFalse(seen["folder"].exists())

        for seen["status"] in (1, -9):
            with self.assertRaisesRegex(Failed, "^x cannot be made$"):
                hello.pack("x")
            self.assertFalse(seen["folder"].exists())


if __name__ == "__main__":
    unittest.main()
