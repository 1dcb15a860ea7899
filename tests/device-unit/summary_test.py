# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
"""What a run changed: two pictures of the same folders are compared."""

import os
import tempfile
import unittest
from types import SimpleNamespace
from unittest import mock

from kxdevice import summary, trees
from played import play

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
        # The panel goes on with the very settings that the picture was taken of.
        del self.settings["GONE"]
        self.settings.update({"CHANGED": "2", "NEW": ""})

        self.assertEqual(summary.compare(before, self.picture(), False)["settings"], [
            {"name": "CHANGED", "before": "1", "after": "2"},
            {"name": "GONE", "before": "1", "after": None},
            {"name": "NEW", "before": None, "after": ""}])

    def test_users_come_go_and_change(self):
        before = self.picture()
        self.write("root/etc/passwd", f"root:x:{os.getuid()}:{os.getgid()}:::/bin/other\n"
                   "user:x:77777:77777::/home/user:\nnew:x:9:9:one\x0bline::\n")
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
        self.write(f"{registry}/Changed/new", "other")
        self.write(f"{registry}/Added/list", "list")
        self.write("root/var/lib/KxUserPackagesOther/x/y", "no record")
        self.write("root/opt/x", "no record")
        os.unlink(f"{self.here}/{registry}/Removed/list")
        os.rmdir(f"{self.here}/{registry}/Removed")

        self.assertEqual(summary.compare(before, self.picture(), False)["packages"], [
            {"name": "Added", "change": "added"}, {"name": "Changed", "change": "changed"},
            {"name": "Removed", "change": "removed"}])

    def test_what_only_one_of_the_files_tells_of_users_counts_too(self):
        self.write("root/etc/passwd", "root:x:0:0:::\nold:x:5:5:::\nlost:x:6:6:::\n")
        self.write("root/etc/shadow", "root:*:1:\nold:*:1:\nghost:one:1:\nno colon\n"
                   "gone ghost:one:\ngone bare:\n")
        before = self.picture()
        self.write("root/etc/passwd", "root:x:0:0:::\nold:x:5:5:::\nfound:x:7:7:::\n")
        self.write("root/etc/shadow", "ghost:two:1:\nroot:*:9:\nbare:\nnew ghost:one:1:\n")

        self.assertEqual([(item["name"], item["change"]) for item in summary.compare(
            before, self.picture(), False)["users"]], [
                ("found", "added"), ("ghost", "password changed"),
                ("gone ghost", "password changed"), ("lost", "removed"),
                ("new ghost", "password changed"), ("old", "password changed")])

    def test_a_user_whose_entry_and_password_changed_has_two_lines(self):
        before = self.picture()
        self.write("root/etc/passwd", "user:x:1:1::/other:\n")
        self.write("root/etc/shadow", "user:two:1:\n")

        self.assertEqual(summary.compare(before, self.picture(), False)["users"][-2:], [
            {"name": "user", "change": "password changed"},
            {"name": "user", "change": "entry changed"}])

    def test_without_files_of_users_there_are_none(self):
        before = self.picture()
        for name in ("passwd", "group", "shadow"):
            os.unlink(f"{self.here}/root/etc/{name}")
        after = self.picture()
        self.assertEqual((after.passwd, after.shadow, after.group), ({}, {}, {}))
        os.rmdir(f"{self.here}/root/etc")
        after = self.picture()
        self.assertEqual((after.passwd, after.shadow, after.group), ({}, {}, {}))
        self.assertEqual([item["change"] for item in summary.compare(before, after, False)[
            "users"]], ["removed"] * 3)

    def test_names_of_owners_are_those_of_the_first_with_the_id(self):
        self.assertEqual(summary._names({
            "a": ["x", "5"], "b": ["x", "5"], "c": ["x", "-1"], "d": ["x"], "e": ["x", "", ""],
            "f": ["x", "7", ""]}), {5: "a", 7: "f"})
        self.write("root/etc/passwd", "")
        self.write("root/etc/group", "")
        before = self.picture()
        self.write("root/opt/x", "")
        item = summary.compare(before, self.picture(), False)["files"][1]
        self.assertEqual((item["owner"], item["group"]), (str(os.getuid()), str(os.getgid())))

    def test_every_kind_is_told(self):
        before = self.picture()
        os.mkdir(f"{self.here}/root/opt")
        os.mkfifo(f"{self.here}/root/opt/fifo")
        os.mkdir(f"{self.here}/root/opt/folder")
        found = {item["path"]: item for item in summary.compare(before, self.picture(), False)[
            "files"]}

        self.assertEqual((found["/opt/fifo"]["kind"], found["/opt/folder"]["kind"],
                          found["/opt/folder"]["size"]), ("p", "d", 0))
        for mode, kind in ((0o140755, "s"), (0o020644, "c"), (0o060644, "b"), (0o170000, "?")):
            entry = SimpleNamespace(mode=mode, uid=0, gid=0, size=0, content="")
            self.assertEqual(summary._describe(entry, {}, {})["kind"], kind)

    def test_paths_are_sorted_folder_by_folder(self):
        before = self.picture()
        for name in ("a-b/x", "a/x", "a.b"):
            self.write(f"root/{name}", "")

        self.assertEqual([path for _, path in self.changes(before)],
                         ["/a", "/a/x", "/a-b", "/a-b/x", "/a.b"])

    def test_a_large_file_counts_to_its_last_byte(self):
        self.write("root/large", "x" * (trees.CHUNK + 1))
        before = self.picture()
        self.write("root/large", "x" * trees.CHUNK + "y")

        self.assertEqual(self.changes(before), [("changed", "/large")])

    def test_a_file_that_cannot_be_read_is_no_other_while_it_is_the_same(self):
        with mock.patch.object(summary.os, "open", side_effect=PermissionError):
            self.assertEqual(summary._digest(3, "x"), "unreadable")

    def test_what_disappears_meanwhile_is_left_out(self):
        self.write("root/b/c", "")
        real = summary.Entry

        def entry(directory, name):
            if name == "etc":
                raise FileNotFoundError
            return real(directory, name)
        found = {}
        with mock.patch.object(summary, "Entry", entry):
            summary._walk(self.panel.root, "", found, ())
        self.assertEqual(list(found), ["b", "b/c"])
        found.clear()
        play(self, summary, "os", open=PermissionError())
        summary._walk(self.panel.root, "", found, ())
        self.assertEqual(list(found), ["b", "etc"])

    def test_looking_leaves_nothing_open(self):
        self.write("root/opt/a/b", "text")
        self.write("upper/bin/x", "text")
        self.write("lower/bin/x", "text")
        before = len(os.listdir("/proc/self/fd"))
        self.picture()

        self.assertEqual(len(os.listdir("/proc/self/fd")), before)

    # -- programs --------------------------------------------------------------------------------

    def show(self, **folders):
        """Lets the panel show folders below /usr."""
        shown = {f"/usr/{name}": list(names) for name, names in folders.items()}

        def listdir(path):
            if path not in shown:
                raise FileNotFoundError(path)
            return shown[path]
        play(self, summary, "os", listdir=listdir)

    def test_a_program_whose_folder_was_laid_over_can_be_gone(self):
        for name in ("lower/bin/kept", "lower/bin/gone", "middle/bin/tool", "lower/bin/tool",
                     "lower/lib/x"):
            self.write(name, "machine")
        before = self.picture()
        os.mkdir(f"{self.here}/upper/bin")
        self.show(bin=["kept"])

        self.assertEqual(self.changes(before), [("removed", "/usr/bin/gone"),
                                                ("removed", "/usr/bin/tool")])
        self.show(bin=["kept", "gone", "tool"])
        self.assertEqual(self.changes(before), [])
        self.show()
        self.assertEqual(self.changes(before), [])

    @unittest.skipUnless(os.geteuid() == 0, "only root makes nodes")
    def test_a_tool_that_was_missing_from_the_start_is_not_gone(self):
        self.write("lower/bin/hidden", "machine")
        self.write("lower/bin/other", "machine")
        os.mkdir(f"{self.here}/middle/bin")
        os.mknod(f"{self.here}/middle/bin/hidden", 0o020000, 0)
        os.mknod(f"{self.here}/lower/bin/null", 0o020000, os.makedev(1, 3))
        before = self.picture()
        os.mkdir(f"{self.here}/upper/bin")
        self.show(bin=["other"])
        self.assertEqual(self.changes(before), [("removed", "/usr/bin/null")])
        self.assertFalse(before.machine_has("bin/hidden"))
        self.assertTrue(before.machine_has("bin/other"))
        self.assertTrue(before.machine_has("bin/null"))
        self.assertFalse(before.machine_has("bin/other/below"))
        self.write("upper/bin/hidden", "own")
        self.show(bin=["hidden", "other", "null"])
        self.assertEqual(self.changes(before), [("added", "/usr/bin/hidden")])

    @unittest.skipUnless(os.geteuid() == 0, "only root makes nodes")
    def test_what_an_earlier_run_did_to_programs_is_no_change_of_this_one(self):
        for name in ("again", "back", "gone", "own"):
            self.write(f"lower/{name}", "machine")
        for name in ("again", "gone"):
            os.mknod(f"{self.here}/upper/{name}", 0o020000, 0)
        for name in ("back", "own", "new", "change", "drop"):
            self.write(f"upper/{name}", "earlier")
        before = self.picture()
        os.unlink(f"{self.here}/upper/again")
        os.unlink(f"{self.here}/upper/back")
        os.unlink(f"{self.here}/upper/drop")
        self.write("upper/again", "this run")
        self.write("upper/change", "this run")

        self.assertEqual(self.changes(before), [
            ("added", "/usr/again"), ("changed", "/usr/back"), ("changed", "/usr/change"),
            ("removed", "/usr/drop")])

    def test_a_folder_is_told_when_its_mode_differs_from_the_machines(self):
        os.mkdir(f"{self.here}/lower/same")
        os.mkdir(f"{self.here}/lower/mode")
        self.write("lower/file", "machine")
        before = self.picture()
        for name in ("same", "mode", "new", "file"):
            os.mkdir(f"{self.here}/upper/{name}")
        os.chmod(f"{self.here}/upper/mode", 0o700)
        self.show(same=[], mode=[])

        self.assertEqual(self.changes(before), [
            ("changed", "/usr/file"), ("changed", "/usr/mode"), ("added", "/usr/new")])

    def test_a_programs_folder_is_told_by_its_full_path_and_kind(self):
        self.write("upper/bin/deep/x", "text")
        found = summary.compare(SimpleNamespace(
            all=dict, settings={}, passwd={}, shadow={}), self.picture(), False)["files"]

        self.assertEqual([item["path"] for item in found if item["path"].startswith("/usr")],
                         ["/usr/bin", "/usr/bin/deep", "/usr/bin/deep/x"])

    # -- the text --------------------------------------------------------------------------------

    def test_nothing_is_told_part_by_part(self):
        self.assertEqual(summary.text({"files": [], "settings": [], "users": [], "packages": [],
                                       "reboot": False}), """\
What the run changed on the panel

Files and folders
  none

Settings
  none

Users
  none

Installed packages
  none

Reboot
  not asked for
""")

    def test_everything_is_told_in_columns(self):
        common = {"owner": "root", "group": "staff"}
        self.assertEqual(summary.text({
            "files": [
                {"change": "added", "path": "/a", "kind": "d", "mode": "drwxr-xr-x", "size": 0,
                 **common},
                {"change": "changed", "path": "/a/b", "kind": "-", "mode": "-rw-r--r--",
                 "size": 12345, "owner": "me", "group": "us"},
                {"change": "added", "path": "/a/c", "kind": "l", "mode": "lrwxrwxrwx", "size": 3,
                 "target": "b\n", **common},
                {"change": "removed", "path": "/usr/bin/wc"}],
            "settings": [{"name": "A", "before": None, "after": "1"},
                         {"name": "B", "before": "1\n", "after": None}],
            "users": [{"name": "u\t", "change": "added"}],
            "packages": [{"name": "P\t", "change": "removed"}], "reboot": True}), """\
What the run changed on the panel

Files and folders
  added    drwxr-xr-x  root:staff         /a
  changed  -rw-r--r--  me:us       12345  /a/b
  added    lrwxrwxrwx  root:staff      3  /a/c -> b\\n
  removed                                 /usr/bin/wc

Settings
  A=1
  B=  (was 1\\n)

Users
  u\\t: added

Installed packages
  P\\t: record removed

Reboot
  asked for
""")

    def test_bytes_that_are_no_text_stay_as_they_are(self):
        for text, shown in (("\udc80\udcff", "\udc80\udcff"), ("\udc7f", "\\udc7f"),
                            ("\udd00", "\\udd00"), ("\x7f", "\\x7f"), ("\u2028", "\\u2028")):
            self.assertEqual(summary._plain(text), shown)

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
