# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
"""What the demonstration tells of the panel that is left."""

import os
import pathlib
import unittest

from kxscripts import demo_rest
from kxscripts.common import Failed
from scene import Scene

TRACE = """\
shell\tsync
shell\t"/usr/bin/xkbcomp" -w 1
tool\tsync
drive\tpull
shell\techo\\ta\tb
"""
SUMMARY = """\
  /opt/demo
  /var/log/operate/a
  x /var/cache/fontconfig
  Hello: record added
"""


class Rest(Scene):
    """Commands, changes, record and reboot."""

    def setUp(self):
        super().setUp()
        self.demo = self.stage()
        self.demo.trace.write_text(TRACE, encoding="utf-8")
        self.demo.summary.write_text(SUMMARY, encoding="utf-8")

    def record(self):
        """Records the installation on the panel."""
        record = self.demo.state / "root/var/lib/KxUserPackages/Hello/installedFile.list"
        record.parent.mkdir(parents=True)
        record.touch()

    def tell(self, **more):
        """Tells of the rest; returns what device/run was asked."""
        with self.told():
            demo_rest.tell(self.demo, **more)
        return self.demo.processes.calls

    def test_commands_and_changes_without_those_of_the_screen(self):
        self.assertEqual(self.tell(must_be_recorded=False), [])
        self.assertEqual(self.out, """
== The commands that the updater ran
  sync
  echo\\ta\tb

== What changed on the device
  /opt/demo
  Hello: record added
""")

    def test_a_window_that_was_closed_at_once_has_neither(self):
        self.demo.trace.unlink()
        self.demo.summary.unlink()
        self.assertEqual(self.tell(must_be_recorded=False), [])
        self.assertEqual(self.out.count("\n"), 4)

    def test_the_record_is_shown_by_the_device(self):
        self.record()
        self.assertEqual(self.tell(must_be_recorded=True), [("run", [
            "device/run", "--state", str(self.demo.state), "--", "cat",
            "/var/lib/KxUserPackages/Hello/installedFile.list"], {})])
        self.assertTrue(self.out.endswith("\n== The record of the installation\n"))

    def test_a_record_that_is_missing_or_cannot_be_read(self):
        with self.assertRaisesRegex(Failed, "^the installation was not recorded$"):
            self.tell(must_be_recorded=True)
        self.record()
        self.demo.processes.statuses["device/run"] = 1
        with self.assertRaisesRegex(Failed, "^device/run has failed$"):
            self.tell(must_be_recorded=True)

    def test_the_reboot_is_played_when_it_was_asked_for(self):
        self.record()
        with self.demo.trace.open("a", encoding="utf-8") as trace:
            trace.write("tool\treboot\n")
        self.assertEqual(self.tell(must_be_recorded=True)[1:], [("run", [
            "device/run", "--state", str(self.demo.state), "--boot", "--", "true"],
            {"together": True})])
        self.assertTrue(self.out.endswith("\n== Rebooting: the start-up script greets\n"))

    def test_the_way_in(self):
        with self.told():
            demo_rest.tell_way_in(self.demo)
        root = pathlib.Path(demo_rest.__file__).parent.parent.parent
        self.assertEqual(self.out, f"""
The panel is kept in {self.root}/demo/state. Have a look around:
  {root}/device/run --state {self.root}/demo/state -- sh
  scripts/demo --help        the window in a browser, in Japanese, on another screen
""")
        self.assertFalse(os.path.exists("demo/state"))


if __name__ == "__main__":
    unittest.main()
