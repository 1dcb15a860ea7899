# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
"""What the panel's own tools do, and where its drive is, with mounts that are played."""

import errno
import json
import os
import stat
import tempfile
import unittest
from types import SimpleNamespace
from unittest import mock

from kxdevice import linux, names, state, tools, trees
from played import play

PLUGGED = {"present": True, "plugged": True, "mounted": True}


class Panel(unittest.TestCase):
    """A panel of plain folders."""

    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.here = folder.name
        opened = {}
        for name in ("panel", "drive", "incoming", "dev", "mnt"):
            os.mkdir(f"{self.here}/{name}")
            opened[name] = os.open(f"{self.here}/{name}", trees.DIR_FLAGS)
            self.addCleanup(os.close, opened[name])
        self.done = []
        self.trace = SimpleNamespace(event=lambda *fields: self.done.append(("event", *fields)))
        self.panel = SimpleNamespace(
            folder=opened["panel"], drive=opened["drive"], incoming=opened["incoming"],
            drive_mount=self.null(), has_new_drive=False,
            layers=SimpleNamespace(stubbed={"cp": "/usr/lib/kx-device/cp"}))
        self.mnt = opened["mnt"]
        self.held = []  # descriptors of the folder of the mount point
        self.spares = []
        play(self, tools, "linux", self.done, move_mount=None, open_tree=self.spare,
             umount=lambda *_: self.places.append(os.stat(".").st_ino))
        self.places = []  # where unmounting was done
        patch = mock.patch.multiple(
            tools, _mount_folder=self.mount_folder,
            names=SimpleNamespace(**{**vars(names), "DRIVE_DEVICE": f"{self.here}/dev/sda1"}))
        patch.start()
        self.addCleanup(patch.stop)
        self.addCleanup(os.chdir, os.getcwd())

    def null(self):
        """Opens something harmless in place of a mount."""
        return os.open("/dev/null", os.O_RDONLY | os.O_CLOEXEC)

    def spare(self, *_):
        """Gives the mount for the next plug."""
        self.spares.append(self.null())
        return self.spares[-1]

    def mount_folder(self):
        """Opens the folder that holds the mount point."""
        self.held.append(os.dup(self.mnt))
        return self.held[-1]

    def drive(self, **facts):
        """Returns a drive with what an earlier run noted."""
        if facts:
            self.note("drive.json", facts)
        drive = tools.Drive(self.panel, self.trace)
        drive.on_new_drive = lambda: self.done.append("new drive")
        return drive

    def note(self, name, value):
        """Writes a note of an earlier run."""
        with open(f"{self.here}/panel/{name}", "w", encoding="ascii") as file:
            json.dump(value, file)

    def noted(self, name="drive.json"):
        """Returns what the next run will find."""
        with open(f"{self.here}/panel/{name}", encoding="ascii") as file:
            return json.load(file)

    def has_node(self):
        """Tells whether the drive's node is there."""
        return os.path.exists(f"{self.here}/dev/sda1")

    def write(self, name, text="text"):
        """Writes a file."""
        with open(f"{self.here}/{name}", "w", encoding="ascii") as file:
            file.write(text)

    def mounted(self, first):
        """The calls that mount the drive; first is the mount that was ready."""
        return [("move_mount", first, "usb", self.held[-1]),
                ("open_tree", "", linux.OPEN_TREE_CLONE | linux.AT_EMPTY_PATH, first)]


class Drive(Panel):
    """Where the drive is after what was done with it."""

    def test_a_drive_for_this_start_is_plugged_in(self):
        self.panel.has_new_drive = True
        for facts in ({}, PLUGGED):
            self.done.clear()
            self.panel.drive_mount = first = self.null()
            drive = self.drive(**facts)
            drive.start(False)

            self.assertEqual(self.done, [*self.mounted(first), "new drive",
                                         ("event", b"drive", b"plug")])
            self.assertEqual(self.noted(), PLUGGED)
            self.assertTrue(self.has_node())

    def test_a_drive_of_an_earlier_run_is_where_it_was(self):
        for facts, booting, mounted in ((PLUGGED, False, True), (PLUGGED, True, True),
                                        ({**PLUGGED, "mounted": False}, False, False),
                                        ({**PLUGGED, "mounted": False}, True, True)):
            with self.subTest(facts, booting=booting):
                self.done.clear()
                self.panel.drive_mount = first = self.null()
                self.drive(**facts).start(booting)

                self.assertEqual(self.done, self.mounted(first) if mounted else [])
                self.assertTrue(self.has_node())
                self.assertEqual(self.noted(), {**PLUGGED, "mounted": mounted})

    def test_without_a_drive_nothing_is_there(self):
        for facts in ({}, {"present": True, "plugged": False, "mounted": False}):
            self.drive(**facts).start(True)

        self.assertEqual((self.done, self.has_node()), ([], False))

    def test_pulling_takes_node_and_mount_and_plugging_brings_them_back(self):
        drive = self.drive(**PLUGGED)
        drive.start(False)
        held = self.held[-1]
        self.done.clear()

        self.assertEqual(drive.pull(), "")
        self.assertEqual(self.done, [("umount", "usb", linux.MNT_DETACH | linux.UMOUNT_NOFOLLOW),
                                     ("event", b"drive", b"pull")])
        self.assertEqual(self.noted(), {"present": True, "plugged": False, "mounted": False})
        self.assertFalse(self.has_node())
        self.assertEqual(self.places, [os.stat(f"{self.here}/mnt").st_ino])
        self.assertEqual(os.getcwd(), "/")
        self.assertRaises(OSError, os.fstat, held)
        self.assertEqual(drive.pull(), "no drive is plugged in")

        self.done.clear()
        spare = self.spares[-1]
        self.assertEqual(drive.plug(False), "")
        self.assertEqual(self.done, [*self.mounted(spare), "new drive",
                                     ("event", b"drive", b"plug")])
        self.assertEqual(self.noted(), PLUGGED)
        self.assertRaises(OSError, os.fstat, spare)
        self.assertEqual(drive.plug(False), "a drive is plugged in already; pull it first")
        self.assertEqual(drive.plug(True), "a drive is plugged in already; pull it first")

    def test_an_unmounted_drive_is_pulled_without_unmounting(self):
        drive = self.drive(**PLUGGED)
        drive.start(False)
        self.done.clear()

        self.assertEqual(drive.unmount(), "")
        self.assertEqual(self.done, [("umount", "usb", linux.UMOUNT_NOFOLLOW),
                                     ("event", b"drive", b"unmount")])
        self.assertEqual(self.noted(), {**PLUGGED, "mounted": False})
        self.assertTrue(self.has_node())
        self.assertEqual(drive.unmount(), "/mnt/usb is not mounted")
        self.done.clear()
        self.assertEqual(drive.pull(), "")
        self.assertEqual(self.done, [("event", b"drive", b"pull")])

    def test_a_busy_drive_stays_mounted_and_other_trouble_is_told(self):
        drive = self.drive(**PLUGGED)
        drive.start(False)
        self.done.clear()
        play(self, tools, "linux", umount=OSError(errno.EBUSY, "busy"))

        self.assertEqual(drive.unmount(), "/mnt/usb is busy")
        self.assertEqual((self.done, self.noted()), ([], PLUGGED))
        self.assertEqual(os.getcwd(), "/")
        play(self, tools, "linux", umount=OSError(errno.EPERM, "no"))
        with self.assertRaises(PermissionError):
            drive.unmount()

    def test_a_refused_drive_leaves_the_files_of_the_one_that_is_there(self):
        self.write("drive/old")
        self.write("incoming/new")
        drive = self.drive(**PLUGGED)
        drive.start(False)
        drive.plug(True)

        self.assertEqual((os.listdir(f"{self.here}/drive"), os.listdir(f"{self.here}/incoming")),
                         (["old"], ["new"]))

    def test_a_drive_that_cannot_be_mounted_is_not_there(self):
        pulled = {"present": True, "plugged": False, "mounted": False}
        drive = self.drive(**pulled)
        play(self, tools, "linux", move_mount=OSError(errno.EIO, "no"))
        with self.assertRaises(OSError):
            drive.plug(False)

        self.assertEqual((self.has_node(), self.noted(), self.done), (False, pulled, []))

    def test_a_drive_that_cannot_be_unmounted_stays(self):
        drive = self.drive(**PLUGGED)
        drive.start(False)
        self.done.clear()
        play(self, tools, "linux", umount=OSError(errno.EIO, "no"))
        with self.assertRaises(OSError):
            drive.pull()

        self.assertEqual((self.has_node(), self.noted(), self.done), (True, PLUGGED, []))

    def test_only_what_was_noted_is_traced(self):
        for facts, action in (({**PLUGGED, "plugged": False, "mounted": False}, "plug"),
                              (PLUGGED, "pull"), (PLUGGED, "unmount")):
            drive = self.drive(**facts)
            drive.start(False)
            play(self, tools, "state", write_json=OSError(errno.ENOSPC, "full"))
            self.done.clear()
            with self.assertRaises(OSError):
                getattr(drive, action)(*([False] if action == "plug" else []))
            self.assertEqual([step for step in self.done if step[0] == "event"], [])
            play(self, tools, "state", write_json=state.write_json)

    def test_a_drive_that_never_was_cannot_come_back(self):
        drive = self.drive()

        self.assertEqual(drive.plug(False),
                         "there has been no drive yet; name a folder to plug in")
        self.assertEqual(self.done, [])

    def test_another_drive_takes_the_place_of_the_files_of_the_old(self):
        self.write("drive/old")
        self.write("incoming/new")
        os.chmod(f"{self.here}/incoming", 0o2750)
        drive = self.drive()

        self.assertEqual(drive.plug(True), "")
        self.assertEqual(os.listdir(f"{self.here}/drive"), ["new"])
        self.assertEqual(os.listdir(f"{self.here}/incoming"), [])
        self.assertEqual(stat.S_IMODE(os.stat(f"{self.here}/drive").st_mode), 0o2750)
        self.assertEqual(self.noted(), PLUGGED)

    def test_the_node_takes_the_place_of_whatever_is_there(self):
        self.write("outside", "kept")
        os.symlink(f"{self.here}/outside", f"{self.here}/dev/sda1")
        umask = os.umask(0)
        self.addCleanup(os.umask, umask)
        self.drive(**PLUGGED).start(False)

        facts = os.lstat(f"{self.here}/dev/sda1")
        self.assertEqual((stat.S_ISREG(facts.st_mode), stat.S_IMODE(facts.st_mode), facts.st_size),
                         (True, 0o660, 0))
        self.assertEqual(os.stat(f"{self.here}/outside").st_size, 4)


class MountFolder(unittest.TestCase):
    """The folder of the mount point, from a root that the panel may have laid out."""

    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.here = folder.name
        play(self, tools, "os", open=self.open)

    def open(self, path, flags, **place):
        """Opens a path below the folder of the test."""
        return os.open(self.here if path == "/" else path, flags, **place)

    def test_it_is_made_when_it_is_missing(self):
        umask = os.umask(0)
        self.addCleanup(os.umask, umask)
        for _ in range(2):
            opened = tools._mount_folder()
            self.assertEqual(os.listdir(opened), ["usb"])
            os.close(opened)
        for path in ("mnt", "mnt/usb"):
            self.assertEqual(stat.S_IMODE(os.stat(f"{self.here}/{path}").st_mode), 0o755)

    def test_no_link_and_no_file_is_taken_for_it(self):
        os.symlink("/etc", f"{self.here}/mnt")
        with self.assertRaises(OSError):
            tools._mount_folder()
        os.unlink(f"{self.here}/mnt")
        os.mkdir(f"{self.here}/mnt")
        for make in (lambda path: os.symlink("/etc", path), os.mkfifo):
            make(f"{self.here}/mnt/usb")
            with self.assertRaises(FileExistsError):
                tools._mount_folder()
            os.unlink(f"{self.here}/mnt/usb")

    def test_nothing_stays_open(self):
        before = len(os.listdir("/proc/self/fd"))
        os.close(tools._mount_folder())
        os.rmdir(f"{self.here}/mnt/usb")
        os.symlink("/etc", f"{self.here}/mnt/usb")
        self.assertRaises(FileExistsError, tools._mount_folder)

        self.assertEqual(len(os.listdir("/proc/self/fd")), before)


class Calls(Panel):
    """The answers to calls of tools: the kind of answer, status, output, errors."""

    def made(self, fail=(), **settings):
        """Returns the tools."""
        if settings:
            self.note("settings.json", settings)
        self.drive_calls = []
        self.answer = ""
        moved = SimpleNamespace(**{name: lambda *words, name=name: self.drive_calls.append(
            (name, *words)) or self.answer for name in ("plug", "pull", "unmount")})
        return tools.Tools(SimpleNamespace(fail=fail), self.panel, moved, self.trace)

    def exit(self, status, output=b"", line=b""):
        """The answer that ends the stand-in."""
        return [b"exit", str(status).encode(), output, line and line + b"\n"]

    def test_who_may_fail_is_told_where_the_real_one_is(self):
        made = self.made()

        self.assertEqual(made.call([b"cp", b"a", b"b"]), [b"run", b"/usr/lib/kx-device/cp"])
        self.assertEqual(made.call([b"rm"]),
                         self.exit(126, line=b"rm: the panel has no such stand-in"))
        self.assertEqual(self.done, [])

    def test_failures_count_the_calls_of_each_tool(self):
        made = self.made((("cp", 3, 2), ("reboot", 4, 0), ("wprotect_off", 5, 1)))

        self.assertEqual([made.call([b"cp", b"x"]) for _ in range(3)], [
            [b"run", b"/usr/lib/kx-device/cp"], self.exit(3), [b"run", b"/usr/lib/kx-device/cp"]])
        self.assertEqual([made.call([b"reboot"]) for _ in range(2)], [self.exit(4)] * 2)
        self.assertEqual([made.call([b"wprotect_off"])[1] for _ in range(3)], [b"5", b"0", b"0"])
        self.assertFalse(made.reboot_asked)
        self.assertEqual(self.done, [("event", b"tool", *words) for words in (
            (b"cp", b"x"), (b"reboot",), (b"reboot",), (b"wprotect_off",), (b"wprotect_off",),
            (b"wprotect_off",))])

    def test_a_reboot_is_noted_whatever_its_options(self):
        made = self.made()
        self.assertFalse(made.reboot_asked)

        self.assertEqual(made.call([b"reboot", b"-f"]), self.exit(0))
        self.assertTrue(made.reboot_asked)
        with open(f"{self.here}/panel/reboot", encoding="ascii") as file:
            self.assertEqual(file.read(), "asked\n")
        self.assertEqual(self.done, [("event", b"tool", b"reboot", b"-f")])

    def test_write_protection_takes_no_words(self):
        made = self.made()

        self.assertEqual(made.call([b"wprotect_off"]), self.exit(0))
        self.assertEqual(made.call([b"wprotect_off", b"x"]),
                         self.exit(2, line=b"usage: wprotect_off"))

    def test_the_drive_does_what_it_is_told(self):
        made = self.made()
        for words, call in (([b"usb_umount"], ("unmount",)), ([b"drive", b"pull"], ("pull",)),
                            ([b"drive", b"plug"], ("plug", False))):
            self.drive_calls.clear()
            self.answer = ""
            self.assertEqual(made.call(words), self.exit(0))
            self.answer = "it cannot"
            self.assertEqual(made.call(words), self.exit(1, line=words[0] + b": it cannot"))
            self.assertEqual(self.drive_calls, [call, call])
        self.drive_calls.clear()
        self.assertEqual(made.call([b"usb_umount", b"x"]), self.exit(2, line=b"usage: usb_umount"))
        for words in ([], [b"x"], [b"plug", b"x"], [b"pull", b"x"]):
            self.assertEqual(made.call([b"drive", *words]),
                             self.exit(2, line=b"usage: drive plug|pull"))
        self.assertEqual(self.drive_calls, [])

    def test_settings_are_listed_in_order_changed_and_kept(self):
        made = self.made(B="2", A="1")
        self.assertEqual(made.call([b"kx-setting-cui", b"list"]), self.exit(0, b"A=1\nB=2\n"))

        self.assertEqual(made.call([b"kx-setting-cui", b"set", b"B=", b"C=x=y", b"X\xff=\xfe"]),
                         self.exit(0))
        self.assertEqual(made.call([b"kx-setting-cui", b"list"]),
                         self.exit(0, b"A=1\nB=\nC=x=y\nX\xff=\xfe\n"))
        self.assertEqual(self.noted("settings.json"), {
            "A": "1", "B": "", "C": "x=y", "X\udcff": "\udcfe"})

    def test_settings_of_wrong_form_change_nothing(self):
        made = self.made(A="1")
        usage = b"usage: kx-setting-cui set NAME=VALUE... | list"
        for words, line in (([], usage), ([b"set"], usage), ([b"list", b"x"], usage),
                            ([b"get", b"A=2"], usage),
                            ([b"set", b"A=2", b"B"],
                             b"kx-setting-cui: 'B' is not NAME=VALUE; " + usage),
                            ([b"set", b"A=2", b"=x"],
                             b"kx-setting-cui: '=x' is not NAME=VALUE; " + usage)):
            self.assertEqual(made.call([b"kx-setting-cui", *words]), self.exit(2, line=line))

        self.assertEqual((made.settings, self.noted("settings.json")), ({"A": "1"}, {"A": "1"}))

    def test_settings_of_a_mebibyte_have_room_and_not_a_byte_more(self):
        made = self.made(A="1")
        rest = (1 << 20) - 3
        tool = b"kx-setting-cui"

        self.assertEqual(made.call([tool, b"set", b"B=" + b"x" * (rest + 1)]),
                         self.exit(1, line=b"kx-setting-cui: no room for more settings"))
        self.assertEqual(made.settings, {"A": "1"})
        self.assertEqual(made.call([tool, b"set", b"B=" + b"x" * rest]), self.exit(0))


if __name__ == "__main__":
    unittest.main()
