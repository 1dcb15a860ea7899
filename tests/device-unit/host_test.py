# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
"""What a panel takes of the machine, and with which rights; the mounts are played."""

import errno
import os
import tempfile
import unittest
from unittest import mock

from kxdevice import etc, host, linux, options, usr
from kxdevice.linux import SandboxError
from played import play

OUTSIDE = host.Standing(33, True)
INSIDE = host.Standing()
FORBIDDEN = linux.MOUNT_ATTR_RDONLY | linux.MOUNT_ATTR_NOSUID | linux.MOUNT_ATTR_NODEV


class Taking(unittest.TestCase):
    """Each test has a folder and a file of the machine."""

    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.here = folder.name
        os.mkdir(f"{self.here}/folder")
        os.close(os.open(f"{self.here}/file", os.O_CREAT))
        self.done = []
        self.play()

    def play(self, **answers):
        """Plays the mounts."""
        play(self, host, "linux", self.done, **{
            "open_tree": lambda path, *_: f"tree of {path}", "mount_setattr": None, **answers})

    def test_a_share_forbids_all_that_nobody_needs_with_everything_below(self):
        for name, is_dir, flags in (
                ("folder", True, linux.OPEN_TREE_CLONE | linux.AT_RECURSIVE),
                ("file", False, linux.OPEN_TREE_CLONE)):
            path = f"{self.here}/{name}"
            for standing, ids in ((INSIDE, []), (OUTSIDE, [
                    ("mount_setattr", f"tree of {path}", 0, is_dir, 33)])):
                self.done.clear()
                share = host._share(path, "/inside", standing)
                self.assertEqual(share, host.Share(f"tree of {path}", is_dir, "/inside"))
                self.assertEqual(self.done, [
                    ("open_tree", path, flags),
                    ("mount_setattr", f"tree of {path}", FORBIDDEN, is_dir), *ids])

    def test_what_cannot_be_shared_or_read_is_told(self):
        self.play(mount_setattr=OSError(errno.EPERM, "not allowed"))
        with self.assertRaisesRegex(SandboxError, r"^/x cannot be shared \(not allowed\)$"):
            host._share("/x", "/inside", INSIDE)
        with self.assertRaisesRegex(SandboxError,
                                    r"^/no/x cannot be read \(No such file or directory\)$"):
            host._source("/no/x")

    def test_where_ids_cannot_be_given_the_files_are_nobodys(self):
        self.assertTrue(host._give_ids(5, OUTSIDE))
        self.assertFalse(host._give_ids(5, INSIDE))
        for number in (errno.EINVAL, errno.EPERM, errno.EOPNOTSUPP):
            self.play(mount_setattr=OSError(number, "no"))
            self.assertFalse(host._give_ids(5, OUTSIDE))
        self.play(mount_setattr=OSError(errno.EIO, "no"))
        with self.assertRaises(OSError):
            host._give_ids(5, OUTSIDE)

    def test_root_gets_a_mount_of_usr_and_an_ordinary_user_its_path(self):
        path = os.path.realpath("/usr")
        self.assertEqual(host._usr(INSIDE), usr.Machine(path, -1, False))
        self.assertEqual(self.done, [])

        tree = f"tree of {path}"
        self.assertEqual(host._usr(OUTSIDE), usr.Machine(path, tree, True))
        self.assertEqual(self.done, [
            ("open_tree", path), ("mount_setattr", tree, 0, False, 33),
            ("mount_setattr", tree, linux.MOUNT_ATTR_RDONLY)])

    def links(self, names, links):
        """Returns the links of a root with such names."""
        play(self, host, "os", listdir=lambda path: {"/": names}[path],
             readlink=lambda path: links[path[1:]])
        with mock.patch.object(host.os.path, "islink", lambda path: path[1:] in links):
            return host._links()

    def test_the_links_into_usr_are_those_of_the_machine(self):
        links = {"bin": "usr/bin", "sbin": "usr/sbin", "lib": "usr/lib", "lib64": "usr/lib64",
                 "vmlinuz": "boot/x"}
        found = self.links([*links, "etc"], links)

        del links["vmlinuz"]
        self.assertEqual(found, links)
        self.assertEqual(list(found), sorted(links))
        with self.assertRaisesRegex(SandboxError, "^/sbin of this machine is no link into /usr; "
                                                  "use a system with a merged /usr$"):
            self.links(["bin", "sbin"], {"bin": "usr/bin"})

    def test_everything_that_was_asked_for_is_taken(self):
        asked = options.Options(share=(("/a", "/b"), ("/c", "/d")), usb=f"{self.here}/folder",
                                put=((f"{self.here}/file", "/put"),))
        with mock.patch.object(host, "_share", lambda *words: words), \
                mock.patch.object(host, "_usr", lambda standing: ("usr", standing)):
            taken = host.take(asked, OUTSIDE)

        self.assertEqual(taken.usr, ("usr", OUTSIDE))
        self.assertEqual(taken.links, host._links())
        self.assertEqual(taken.shares, (("/a", "/b", OUTSIDE), ("/c", "/d", OUTSIDE)))
        self.assertEqual([(source.path, path) for source, path in taken.puts],
                         [(f"{self.here}/file", "/put")])
        self.assertEqual(taken.usb.path, f"{self.here}/folder")
        self.assertEqual(taken.nodes, tuple((name, f"tree of /dev/{name}") for name in (
            "null", "zero", "full", "random", "urandom")))
        self.assertEqual([(source.path, name) for source, name in taken.etc],
                         [(f"/etc/{name}", name) for name in etc.FROM_HOST
                          if os.path.exists(f"/etc/{name}")])
        for source in (taken.usb, *(source for source, _ in (*taken.puts, *taken.etc))):
            os.close(source.fd)

    def test_a_link_of_the_machine_that_leads_nowhere_is_left_out(self):
        os.symlink("nowhere", f"{self.here}/link")
        with mock.patch.object(etc, "FROM_HOST", (os.path.relpath(f"{self.here}/link", "/etc"),)):
            self.assertEqual(host.take(options.Options(), INSIDE).etc, ())

    def test_without_a_drive_none_is_taken(self):
        taken = host.take(options.Options(), INSIDE)
        for source, _ in taken.etc:
            os.close(source.fd)

        self.assertEqual((taken.usb, taken.shares, taken.puts), (None, (), ()))

    def test_only_who_is_outside_has_users_to_enter(self):
        for number, outside in ((-1, False), (0, True), (33, True)):
            self.assertEqual(host.Standing(number).is_outside(), outside)
        self.assertFalse(INSIDE.is_outside() or INSIDE.first_namespace)


if __name__ == "__main__":
    unittest.main()
