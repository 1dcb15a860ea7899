# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
"""In which order a panel is built, and what is mounted with which limits; the mounts are played."""

import errno
import os
import tempfile
import unittest
from types import SimpleNamespace
from unittest import mock

from kxdevice import etc, files, host, ids, linux, options, panel, state, trees, usr
from kxdevice.linux import SandboxError
from played import play

OWNER = (524288, 524289)
IDS = ids.Ids([(0, 524288, 65536)], [(0, 524289, 65536)])
NO_RIGHTS = linux.MS_NOSUID | linux.MS_NODEV


class Maker:
    """Stands for files.Maker and notes what is to be made."""

    def __init__(self, journal):
        self._journal = journal

    def __getattr__(self, name):
        return lambda *words: self._journal.append((name, *words))


class Building(unittest.TestCase):
    """The system calls of a module are played, in one journal."""

    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.here = os.path.realpath(folder.name)
        self.addCleanup(os.chdir, os.getcwd())
        os.chdir(self.here)
        self.done = []
        self.maker = Maker(self.done)
        play(self, panel, "linux", self.done, unshare=None, mount=None, umount=None, setns=None,
             open_tree=lambda path: f"tree of {path}", move_mount=None, mount_setattr=None,
             pivot_root=None, prctl=None)

    def play_os(self, **answers):
        """Plays functions of the system in the same journal."""
        play(self, panel, "os", self.done, **answers)


class Places(Building):
    """The parts of a panel, each by itself."""

    def test_a_kept_panel_is_built_in_its_folder(self):
        os.mkdir("s")
        panel._enter_state(options.Options(state=f"{self.here}/s"), OWNER)

        self.assertEqual((os.getcwd(), self.done), (f"{self.here}/s", []))

    def test_a_throw_away_panel_is_built_in_memory(self):
        made = []
        os.chdir("/")
        with mock.patch.object(panel, "CARRIERS", (f"{self.here}/no", self.here)), \
                mock.patch.object(state, "make_folders", lambda folder, *owner: made.append(
                    (os.fstat(folder).st_ino, *owner))):
            before = len(os.listdir("/proc/self/fd"))
            panel._enter_state(options.Options(disk=55), OWNER)
        self.assertEqual(self.done, [("mount", "tmpfs", self.here, "tmpfs", NO_RIGHTS,
                                      "size=55m,nr_inodes=400k,mode=700")])
        self.assertEqual((os.getcwd(), made), (self.here, [(os.stat(".").st_ino, *OWNER)]))
        self.assertEqual(len(os.listdir("/proc/self/fd")), before)

        self.done.clear()
        with mock.patch.object(panel, "CARRIERS", (f"{self.here}/no",)), \
                self.assertRaisesRegex(SandboxError, "^this machine has no /tmp$"):
            panel._enter_state(options.Options(), OWNER)
        self.assertEqual(self.done, [])

    def test_what_is_in_memory_is_entered_after_it_was_mounted(self):
        self.play_os(chdir=None, open=9, close=None)
        play(self, panel, "state", self.done, make_folders=None)
        with mock.patch.object(panel, "CARRIERS", (self.here,)):
            panel._enter_state(options.Options(disk=55), OWNER)

        self.assertEqual([step[0] for step in self.done],
                         ["mount", "chdir", "open", "make_folders", "close"])

    def test_memory_is_carried_by_a_folder_that_every_machine_has(self):
        self.assertEqual(panel.CARRIERS, ("/tmp", "/var/tmp", "/mnt", "/run"))

    def test_the_drive_is_read_only_in_a_read_only_place(self):
        usual = linux.MOUNT_ATTR_NOSUID | linux.MOUNT_ATTR_NODEV
        for places, wanted in (
                ((), usual), (("/mnt/usb",), usual | linux.MOUNT_ATTR_RDONLY),
                (("/opt", "/mnt"), usual | linux.MOUNT_ATTR_RDONLY), (("/mnt/usb/x",), usual),
                (("/mnt/us",), usual), (("/mnt/user",), usual)):
            self.assertEqual(panel._drive_attributes(options.Options(read_only=places)), wanted,
                             places)

    def test_the_machines_root_is_left_for_good(self):
        self.play_os(chdir=None, open=9, fchdir=None, close=None)
        panel._change_root()

        self.assertEqual(self.done, [
            ("chdir", "root"), ("open", "/", os.O_RDONLY | os.O_DIRECTORY | os.O_CLOEXEC),
            ("pivot_root", ".", "."), ("fchdir", 9), ("umount", ".", linux.MNT_DETACH),
            ("close", 9), ("chdir", "/")])

    def test_the_devices_are_those_of_the_machine_that_do_no_harm(self):
        self.play_os(mkdir=None)
        panel._make_devices(self.maker, (("null", 5), ("zero", 6)), OWNER, 99)

        self.assertEqual(self.done, [
            ("mount", "tmpfs", "/dev", "tmpfs", linux.MS_NOSUID | linux.MS_NOEXEC,
             "size=4m,nr_inodes=4k,mode=755,uid=524288,gid=524289"),
            ("place", "/dev/null"), ("move_mount", 5, "/dev/null"),
            ("place", "/dev/zero"), ("move_mount", 6, "/dev/zero"),
            ("link", "/dev/fd", "/proc/self/fd"), ("link", "/dev/stdin", "/proc/self/fd/0"),
            ("link", "/dev/stdout", "/proc/self/fd/1"), ("link", "/dev/stderr", "/proc/self/fd/2"),
            ("mkdir", "/dev/shm"),
            ("mount", "tmpfs", "/dev/shm", "tmpfs", NO_RIGHTS,
             "size=99m,nr_inodes=400k,mode=1777,uid=524288,gid=524289")])

    def test_a_share_gets_a_place_of_its_kind(self):
        os.mkdir("folder")
        os.close(os.open("file", os.O_CREAT))
        for is_dir, name, made in ((True, "folder", [("folders",)]), (True, "no", [("folders",)]),
                                   (False, "no", [("parents",), ("place",)]),
                                   (False, "file", [])):
            self.done.clear()
            path = f"{self.here}/{name}"
            panel._show(self.maker, host.Share(7, is_dir, path))
            self.assertEqual(self.done, [*((*step, path) for step in made),
                                         ("move_mount", 7, path)])
        with self.assertRaises(SandboxError) as raised:
            panel._show(self.maker, host.Share(7, False, f"{self.here}/folder"))
        self.assertEqual(str(raised.exception), f"{self.here}/folder of the panel is a folder, "
                         "the shared one a file")

    def test_what_does_not_outlive_a_reboot_is_removed(self):
        folder = os.open(self.here, trees.DIR_FLAGS)
        self.addCleanup(os.close, folder)
        for name in ("reboot", "drive.json"):
            os.close(os.open(name, os.O_CREAT))
        self.play_os(open=lambda path, _: f"opened {path}", close=None)
        play(self, panel, "trees", self.done, empty=None)
        panel._forget_by_reboot(self.maker, folder)

        self.assertEqual(self.done, [step for path in ("/tmp", "/run") for step in (
            ("folders", path), ("open", path, trees.DIR_FLAGS), ("empty", f"opened {path}"),
            ("close", f"opened {path}"))])
        self.assertEqual(os.listdir(self.here), ["drive.json"])


class Fill(Building):
    """The files of a new panel, and what every start needs."""

    def setUp(self):
        super().setUp()
        os.mkdir("panel")
        self.folder = os.open("panel", trees.DIR_FLAGS)
        self.addCleanup(os.close, self.folder)
        source = SimpleNamespace(fd=66)
        self.taken = SimpleNamespace(links={"bin": "usr/bin"}, etc=((source, "fonts"),))
        self.source = source

    def fill(self, root=()):
        """Fills a panel whose root has these names."""
        self.play_os(listdir=lambda path: {"/": list(root)}[path], chmod=None, close=None,
                     chown=lambda name, *_, dir_fd: os.stat(name, dir_fd=dir_fd))
        panel._fill(self.maker, self.taken, self.folder, OWNER)

    every = [("close", 66), ("file", "/.kx-device", b"sandboxed device\n", 0o444, 0),
             ("folders", "/usr"), ("folders", "/dev"), ("folders", "/proc")]

    def test_a_new_panel_gets_its_first_files_once(self):
        self.fill()
        first = [("listdir", "/"), ("chmod", "/", 0o755),
                 *(("folder", *row) for row in etc.FOLDERS), ("link", "/bin", "usr/bin"),
                 *(("link", *row) for row in etc.LINKS), ("copy", self.source, "/etc/fonts"),
                 *(("file", path, text.encode(), mode, gid)
                   for path, text, mode, gid in etc.FILES),
                 ("chown", "made.json", *OWNER, {"dir_fd": self.folder})]

        self.assertEqual(self.done, [*first, *self.every])
        self.assertEqual(state.read_json(self.folder, "made.json", None), {"format": 1})
        self.done.clear()
        self.fill(["bin"])
        self.assertEqual(self.done, self.every)

    def test_a_panel_whose_first_files_fail_stays_unfinished(self):
        with mock.patch.object(panel, "_make_first_files", side_effect=OSError(28, "full")), \
                self.assertRaises(OSError):
            self.fill()

        self.assertEqual(os.listdir(self.folder), [])

    def test_a_panel_that_was_left_unfinished_is_refused(self):
        with self.assertRaisesRegex(SandboxError, "^the state was left unfinished; erase it$"):
            self.fill(["bin"])


class Drop(Building):
    """The rights outside are given up; what rules the rights inside cannot be changed."""

    def drop(self, standing, the_ids):
        """Returns what was done, up to the settings of the kernel."""
        self.done.clear()
        written = mock.mock_open()
        written().write.side_effect = self.done.append
        written.reset_mock()
        self.play_os(setgroups=None, setresgid=None, setresuid=None)
        with mock.patch.object(panel, "open", written, create=True), \
                mock.patch.object(panel, "_make_read_only", lambda path: self.done.append(
                    ("read only", path))):
            panel._drop_to_panel(standing, the_ids)
        written.assert_called_once_with("/proc/sys/user/max_user_namespaces", "w",
                                        encoding="ascii")
        self.assertEqual(self.done[-3:], [("prctl", linux.PR_SET_DUMPABLE, 0), "0",
                                          ("read only", "/proc/sys")])
        return self.done[:-3]

    def test_real_root_enters_the_panels_users_before_anything_runs(self):
        self.assertEqual(self.drop(host.Standing(33, True), IDS), [
            ("setgroups", []), ("setns", 33, linux.CLONE_NEWUSER), ("setresgid", 0, 0, 0),
            ("setresuid", 0, 0, 0), ("unshare", linux.CLONE_NEWNS)])

    def test_an_ordinary_user_is_there_already_and_gives_up_his_groups_where_he_can(self):
        self.assertEqual(self.drop(host.Standing(), IDS), [("setgroups", [])])
        self.assertEqual(self.drop(host.Standing(), ids.Ids([(0, 7, 1)], [(0, 8, 1)])), [])

    def test_a_read_only_place_is_so_with_all_below(self):
        self.play_os(open=9, close=None)
        panel._make_read_only("/x")

        self.assertEqual(self.done, [
            ("mount", "/x", "/x", None, linux.MS_BIND | linux.MS_REC),
            ("open", "/x", os.O_PATH | os.O_CLOEXEC),
            ("mount_setattr", 9, linux.MOUNT_ATTR_RDONLY, {"recursive": True}), ("close", 9)])


class Trouble(Building):
    """Full and read-only places."""

    def setUp(self):
        super().setUp()
        for name in ("_make_read_only", "_fill_up"):
            patch = mock.patch.object(panel, name, lambda path, name=name: self.done.append(
                (name, path)) or f"filler of {path}")
            patch.start()
            self.addCleanup(patch.stop)
        play(self, panel, "files", self.done, make_plain_folders=None)

    def test_a_full_place_is_a_small_file_system_that_is_filled(self):
        kept = panel._make_trouble(options.Options(full=("/a", "/b")))

        self.assertEqual(kept, ["filler of /a", "filler of /b"])
        self.assertEqual(self.done, [step for path in ("/a", "/b") for step in (
            ("make_plain_folders", path),
            ("mount", "tmpfs", path, "tmpfs", NO_RIGHTS, "size=64k,mode=755"),
            ("_fill_up", path))])

    def test_a_read_only_place_is_made_when_it_is_missing(self):
        os.mkdir("folder")
        os.close(os.open("file", os.O_CREAT))
        for name, made in (("folder", True), ("none", True), ("file", False)):
            self.done.clear()
            path = f"{self.here}/{name}"
            self.assertEqual(panel._make_trouble(options.Options(read_only=(path,))), [])
            self.assertEqual(self.done, [*([("make_plain_folders", path)] if made else []),
                                         ("_make_read_only", path)])

    def test_full_places_are_made_before_they_may_be_read_only(self):
        panel._make_trouble(options.Options(full=("/a/b",), read_only=("/a",)))

        self.assertEqual([step[0] for step in self.done], [
            "make_plain_folders", "mount", "_fill_up", "make_plain_folders", "_make_read_only"])

    def test_a_link_into_proc_is_no_place(self):
        os.symlink("/proc/self/limits", "link")
        path = f"{self.here}/link"
        with self.assertRaises(SandboxError) as raised:
            panel._make_trouble(options.Options(read_only=(path,)))

        self.assertEqual(str(raised.exception),
                         f"{path} leads into /proc and cannot be made read-only")
        self.assertEqual(self.done, [])


class FillUp(unittest.TestCase):
    """All space is used by a file that has no name."""

    def fill(self, number):
        """Fills a folder whose disk gives an error after some writes; returns the sizes."""
        written = []

        def write(_, data):
            written.append(len(data))
            self.assertEqual(set(data), {0})
            if len(written) == 3:
                raise OSError(number, os.strerror(number))
            return len(data)
        play(self, panel, "os", write=write)
        with tempfile.TemporaryDirectory() as here:
            try:
                descriptor = panel._fill_up(here)
                self.assertEqual(os.fstat(descriptor).st_nlink, 0)
                self.assertEqual(os.fstat(descriptor).st_mode & 0o777, 0o600)
                self.assertFalse(os.get_inheritable(descriptor))
                os.close(descriptor)
            finally:
                self.assertEqual(os.listdir(here), [])
        return written

    def test_it_is_kept_open_until_no_byte_fits(self):
        self.assertEqual(self.fill(errno.ENOSPC), [4096] * 3)

    def test_other_trouble_is_told(self):
        with self.assertRaises(OSError):
            self.fill(errno.EIO)


class Build(Building):
    """The order keeps what an earlier run left on the panel harmless."""

    def build(self, has_usb=True, puts=2, **asked):
        """Builds a panel of played parts."""
        for name in ("root", "drive", "incoming", "panel"):
            os.mkdir(name)
        journal = self.done
        source = SimpleNamespace(fd=70, path="/host/usb")
        put = tuple((SimpleNamespace(fd=80 + number), f"/put{number}") for number in range(puts))
        self.taken = host.Taken("machine", {}, ("nodes",), (), (host.Share(91, True, "/s"),), put,
                                source if has_usb else None)
        standing = host.Standing(33, True)
        for part in ("_enter_state", "_change_root", "_fill", "_forget_by_reboot", "_make_devices",
                     "_show", "_drop_to_panel"):
            patch = mock.patch.object(panel, part, lambda *words, part=part: journal.append(
                (part, *words)))
            patch.start()
            self.addCleanup(patch.stop)
        patch = mock.patch.object(panel, "_make_trouble", lambda _: journal.append(
            ("_make_trouble",)) or [95])
        patch.start()
        self.addCleanup(patch.stop)
        play(self, panel, "host", journal, take=self.taken)
        play(self, panel, "usr", journal, lay=usr.Layers(1, 2, 3, 4, {}))
        play(self, panel, "trees", journal, empty=None, copy_dir=None)
        play(self, panel, "files", journal, Maker=lambda owners: self.maker)
        self.play_os(umask=None, close=None)
        self.options = options.Options(**asked)
        return panel.build(self.options, IDS, standing, b"stand-in")

    def test_the_machine_is_taken_hold_of_then_left_and_proc_comes_last(self):
        built = self.build(boot=True, fail=(("cp", 1, 0), ("rm", 2, 1)), missing=("awk",),
                           read_only=("/mnt",), disk=44)
        copied = ("copy_dir", 70, built.drive, *OWNER, "/host/usb")
        standing = host.Standing(33, True)

        self.assertEqual([step for step in self.done if step[0] != "Maker"], [
            ("unshare", linux.CLONE_NEWNS),
            ("mount", None, "/", None, linux.MS_REC | linux.MS_PRIVATE), ("umask", 0o022),
            ("take", self.options, standing), ("_enter_state", self.options, OWNER),
            ("lay", "machine", usr.Tools(b"stand-in", frozenset(("cp", "rm")), ("awk",)), OWNER,
             True),
            ("mount", "proc", "proc", "proc", NO_RIGHTS | linux.MS_NOEXEC),
            ("open_tree", "proc"), ("open_tree", "drive"),
            ("mount_setattr", "tree of drive", linux.MOUNT_ATTR_NOSUID | linux.MOUNT_ATTR_NODEV
             | linux.MOUNT_ATTR_RDONLY),
            ("empty", built.drive), copied, ("close", 70),
            ("mount", "root", "root", None, linux.MS_BIND), ("_change_root",),
            ("_fill", self.maker, self.taken, built.folder, OWNER),
            ("_forget_by_reboot", self.maker, built.folder), ("move_mount", 4, "/usr"),
            ("_make_devices", self.maker, ("nodes",), OWNER, 44),
            ("copy", mock.ANY, "/put0"), ("close", 80), ("copy", mock.ANY, "/put1"), ("close", 81),
            ("_show", self.maker, host.Share(91, True, "/s")),
            ("move_mount", "tree of proc", "/proc"), ("_drop_to_panel", standing, IDS),
            ("_make_trouble",)])
        for descriptor, name in ((built.root, "root"), (built.drive, "drive"),
                                 (built.incoming, "incoming"), (built.folder, "panel")):
            self.assertTrue(os.path.samestat(os.fstat(descriptor), os.stat(name)), name)
            os.close(descriptor)
        self.assertEqual((built.layers.merged, built.drive_mount, built.has_new_drive, built.kept),
                         (4, "tree of drive", True, (91, 95)))

    def test_without_a_drive_and_a_reboot_the_files_stay(self):
        built = self.build(has_usb=False, puts=0)

        self.assertFalse(built.has_new_drive)
        self.assertEqual([step for step in self.done if step[0] in (
            "empty", "copy_dir", "_forget_by_reboot", "copy")], [])
        for descriptor in (built.root, built.drive, built.incoming, built.folder):
            os.close(descriptor)


class Played(unittest.TestCase):
    """What is played above is there."""

    def test_what_the_maker_is_asked_for_it_can_do(self):
        for name in ("folder", "folders", "parents", "link", "file", "place", "copy"):
            self.assertTrue(callable(getattr(files.Maker, name)))


if __name__ == "__main__":
    unittest.main()
