# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
"""The signed package at the end of the demonstration."""

import os
import pathlib
import unittest

from kxscripts import demo_signed
from kxscripts.common import Failed
from scene import Scene


class Signed(Scene):
    """What is signed, and what the panel gets; the programs are played."""

    def setUp(self):
        super().setUp()
        self.demo = self.stage()
        self.demo.package.write_bytes(b"abcde")
        self.demo.processes.does = self.does
        self.panel, self.updates = {}, {}

    def does(self, words, _options):
        """Makes the key; looks at what the panel gets."""
        if "new" in words:
            (pathlib.Path(words[2]) / "demonstration.pub.pem").write_text("key", encoding="ascii")
        if words[0] == "device/run":
            panel = pathlib.Path(words[2].partition("=")[0])
            self.panel = {path.relative_to(panel).as_posix(): path.stat().st_mode & 0o777
                          for path in (panel, *panel.rglob("*"))}
            self.panel_file = (panel / "panel.toml").read_text(encoding="utf-8")
            self.updates = {path.name: path.read_bytes()
                            for path in (panel.parent / "updates").iterdir()}

    def show(self):
        """Shows it; returns what was run."""
        with self.told():
            demo_signed.show(self.demo)
        return [words for _, words, _ in self.demo.processes.calls]

    def test_a_copy_is_signed_by_a_key_that_does_not_stay(self):
        old = os.umask(0o002)
        self.addCleanup(os.umask, old)
        key, sign, device = self.show()

        folder = pathlib.Path(key[2])
        tool = f"{self.root}/build/release/kx-package"
        self.assertEqual(key, ["env", "-C", str(folder), tool, "key", "new", "demonstration"])
        self.assertEqual(sign, ["env", "-C", f"{folder}/updates", tool, "sign", "--key",
                                "../demonstration.key.pem", "Hello.kx-update"])
        self.assertEqual(self.panel, {".": 0o755, "keys": 0o755, "panel.toml": 0o644,
                                      "keys/demonstration.pub.pem": 0o644})
        self.assertIn(f'processor = "{os.uname().machine}"\n', self.panel_file)
        self.assertEqual(self.updates, {"Hello.kx-update": b"abcde", "Changed.kx-update": b"abbde"})
        self.assertEqual(device[:-1], [
            "device/run", "--put", f"{folder}/panel=/etc/kx_Updater",
            "--put", "build/release/kx-panel=/usr/bin/kx-panel",
            "--put", "build/release/kx_Updater=/usr/bin/kx_Updater",
            "--share", f"{folder}/updates=/mnt/user/updates", "--env", "LC_ALL=C.UTF-8", "--",
            "/bin/sh", "-c"])
        self.assertEqual(folder.parent, self.root / "demo")
        self.assertFalse(folder.exists())
        self.assertEqual(self.demo.package.read_bytes(), b"abcde")
        self.assertEqual(self.out, """
== Signing the package, for panels that ask who has made it

== Deciding on it and installing it without a window, on a fresh panel
""")

    def test_the_panel_of_a_japanese_demonstration_speaks_japanese(self):
        self.demo = self.stage("--lang", "ja", claimed=False)
        self.demo.package.write_bytes(b"abcde")
        self.demo.processes.does = self.does
        self.assertIn("LC_ALL=ja_JP.UTF-8", self.show()[2])

    def test_whatever_fails_ends_it_and_leaves_no_key(self):
        for command in ("env", "device/run"):
            self.demo.processes.statuses = {command: 1}
            with self.assertRaisesRegex(Failed, f"^{command} has failed$"):
                self.show()
            self.assertEqual([path.name for path in (self.root / "demo").iterdir()
                              if path.name.startswith("signed.")], [])


if __name__ == "__main__":
    unittest.main()
