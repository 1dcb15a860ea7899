# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
"""What a run changed: two pictures of the same folders are compared."""

import os
import tempfile
import unittest
from types import SimpleNamespace

from kxdevice import summary, trees

PASSWD = "root:x:{uid}:{gid}:::\nuser:x:77777:77777::/home/user:\nold:x:5:5:::\n"


class Compare(unittest.TestCase):
    """Each test changes something between two pictures of a panel of plain folders."""

    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.here = folder.name
        opened = {}
        for name in ("root", "upper", "middle", "lower", "drive"):
            os.mkdir(f"{self.here}/{name}")
            opened[name] = os.open(f"{self.here}/{name}", trees.DIR_FLAGS)
            self.addCleanup(os.close, opened[name])
        layers = SimpleNamespace(upper=opened["upper"], middle=opened["middle"],
                                 lower=opened["lower"])
        self.panel = SimpleNamespace(root=opened["root"], layers=layers, drive=opened["drive"])
        self.settings = {}
        self.write("root/etc/passwd", PASSWD.format(uid=os.getuid(), gid=os.getgid()))
        self.write("root/etc/group", f"staff:x:{os.getgid()}:\n")
        self.write("root/etc/shadow", "root:*:1:\nuser:one:1:\nold:*:1:\n")

    def write(self, name, text, mode=0o644):
        """Writes a file, with the folders above it."""
        path = f"{self.here}/{name}"
        os.makedirs(os.path.dirname(path), exist_ok=True)
        with open(path, "w", encoding="utf-8") as file:
            file.write(text)
        os.chmod(path, mode)

    def picture(self):
        """Takes a picture of everything."""
        return summary.Picture(self.panel, self.settings)

    def changes(self, before):
        """Returns the changes of files since a picture, in short."""
        found = summary.compare(before, self.picture(), False)
        return [(item["change"], item["path"]) for item in found["files"]]

    def test_nothing_changed(self):
        self.write("root/opt/file", "text")

        self.assertEqual(summary.compare(self.picture(), self.picture(), False), {
            "files": [], "settings": [], "users": [], "packages": [], "reboot": False})

    def test_every_property_of_a_file_counts(self):
        def same_size(path):
            self.write(path, "TEXT")

        def other_link(path):
            os.unlink(f"{self.here}/{path}")
            os.symlink("other", f"{self.here}/{path}")

        def folder(path):
            os.unlink(f"{self.here}/{path}")
            os.mkdir(f"{self.here}/{path}")

        changes = {"content": same_size, "kind": folder, "link": other_link,
                   "longer": lambda path: self.write(path, "text and more"),
                   "mode": lambda path: os.chmod(f"{self.here}/{path}", 0o4644)}
        if os.geteuid() == 0:
            changes["owner"] = lambda path: os.chown(f"{self.here}/{path}", 1, -1)
            changes["group"] = lambda path: os.chown(f"{self.here}/{path}", -1, 1)
        for name in changes:
            self.write(f"root/opt/{name}", "text")
        self.write("root/opt/untouched", "text")
        os.unlink(f"{self.here}/root/opt/link")
        os.symlink("elsewhere", f"{self.here}/root/opt/link")
        before = self.picture()
        for name, change in changes.items():
            change(f"root/opt/{name}")
        os.utime(f"{self.here}/root/opt/untouched", (1, 1))

        self.assertEqual(self.changes(before),
                         [("changed", f"/opt/{name}") for name in sorted(changes)])

    def test_what_is_no_file_of_the_panel_is_left_out(self):
        before = self.picture()
        for name in ("proc/1", "dev/null", "run/noise", "usr/bin/x", "mnt/usb/x", ".kx-device",
                     "tmp/.X1-lock", "tmp/.X11-unix/X1"):
            self.write(f"root/{name}", "noise")
        for name in ("tmp/Xfile", "mnt/user/x", "opt/run/x", "opt/.X1-lock"):
            self.write(f"root/{name}", "told")

        self.assertEqual(self.changes(before), [("added", path) for path in (
            "/mnt", "/mnt/user", "/mnt/user/x", "/opt", "/opt/.X1-lock", "/opt/run", "/opt/run/x",
            "/tmp", "/tmp/Xfile")])

    def test_programs_are_told_as_the_layers_show_them(self):
        for name in ("kept", "replaced", "same", "removed"):
            self.write(f"lower/{name}", "machine")
        self.write("middle/standin", "stand-in")
        self.write("upper/own", "own")
        before = self.picture()
        os.unlink(f"{self.here}/upper/own")
        self.write("upper/replaced", "panel")
        self.write("upper/same", "machine")
        self.write("upper/new", "panel")
        self.write("upper/standin", "other")
        made = [("added", "/usr/new"), ("removed", "/usr/own"), ("changed", "/usr/replaced"),
                ("changed", "/usr/standin")]
        if os.geteuid() == 0:
            os.mknod(f"{self.here}/upper/removed", 0o020000, 0)
            os.mknod(f"{self.here}/upper/never there", 0o020000, 0)
            made.insert(2, ("removed", "/usr/removed"))

        self.assertEqual(self.changes(before), made)

    def test_the_drive_is_compared_with_the_one_that_was_plugged_in(self):
        self.write("drive/old", "old")
        before = self.picture()
        os.unlink(f"{self.here}/drive/old")
        self.write("drive/other", "other")
        before.take_drive(self.panel)
        self.write("drive/new", "new")

        self.assertEqual(self.changes(before), [("added", "/mnt/usb/new")])

    def test_a_file_is_told_with_all_that_is_known_of_it(self):
        self.write("root/opt/gone", "123")
        before = self.picture()
        os.unlink(f"{self.here}/root/opt/gone")
        self.write("root/opt/new", "12345", 0o2750)
        os.symlink("new", f"{self.here}/root/opt/to")
        after = summary.compare(before, self.picture(), True)

        common = {"owner": "root", "group": "staff"}
        self.assertTrue(after["reboot"])
        self.assertEqual(after["files"], [
            {"change": "removed", "path": "/opt/gone", "kind": "-", "mode": "-rw-r--r--",
             "octal": "0644", "size": 3, **common},
            {"change": "added", "path": "/opt/new", "kind": "-", "mode": "-rwxr-s---",
             "octal": "2750", "size": 5, **common},
            {"change": "added", "path": "/opt/to", "kind": "l", "mode": "lrwxrwxrwx",
             "octal": "0777", "size": 3, "target": "new", **common}])

    def test_settings_are_told_with_what_they_were(self):
        self.settings = {"KEPT": "1", "CHANGED": "1", "GONE": "1"}
        before = self.picture()
        self.settings = {"KEPT": "1", "CHANGED": "2", "NEW": ""}

        self.assertEqual(summary.compare(before, self.picture(), False)["settings"], [
            {"name": "CHANGED", "before": "1", "after": "2"},
            {"name": "GONE", "before": "1", "after": None},
            {"name": "NEW", "before": None, "after": ""}])

    def test_users_come_go_and_change(self):
        before = self.picture()
        self.write("root/etc/passwd", f"root:x:{os.getuid()}:{os.getgid()}:::/bin/other\n"
                   "user:x:77777:77777::/home/user:\nnew:x:9:9:::\n")
        self.write("root/etc/shadow", "root:*:2:\nuser:two:1:\nnew:*:1:\n")

        self.assertEqual(summary.compare(before, self.picture(), False)["users"], [
            {"name": "new", "change": "added"}, {"name": "old", "change": "removed"},
            {"name": "root", "change": "entry changed"},
            {"name": "user", "change": "password changed"}])

    def test_packages_come_go_and_change(self):
        registry = "root/var/lib/KxUserPackages"
        for name in ("Kept", "Changed", "Removed"):
            self.write(f"{registry}/{name}/list", "list")
        before = self.picture()
        self.write(f"{registry}/Changed/list", "other")
        self.write(f"{registry}/Added/list", "list")
        os.unlink(f"{self.here}/{registry}/Removed/list")
        os.rmdir(f"{self.here}/{registry}/Removed")

        self.assertEqual(summary.compare(before, self.picture(), False)["packages"], [
            {"name": "Added", "change": "added"}, {"name": "Changed", "change": "changed"},
            {"name": "Removed", "change": "removed"}])

    def test_names_stay_on_one_line(self):
        before = self.picture()
        self.write("root/opt/a\nb\x1b[1mc\u00e9", "x")
        self.settings = {"A\n": "\t"}
        text = summary.text(summary.compare(before, self.picture(), False))

        self.assertIn("  /opt/a\\nb\\x1b[1mc\u00e9\n", text)
        self.assertIn("\n  A\\n=\\t\n", text)
        self.assertIn("Reboot\n  not asked for\n", text)


if __name__ == "__main__":
    unittest.main()
