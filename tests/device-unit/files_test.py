# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
"""How files and folders of a panel are made: modes, owners, and what is in the way."""

import os
import stat
import tempfile
import unittest
from types import SimpleNamespace

from kxdevice import files, trees
from kxdevice.linux import SandboxError


class Making(unittest.TestCase):
    """Each test has a folder; owners are only noted."""

    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.here = os.path.realpath(folder.name)
        self.given = []
        owners = SimpleNamespace(root=(os.getuid(), os.getgid()), give=self.give)
        self.maker = files.Maker(owners)
        umask = os.umask(0o022)
        self.addCleanup(os.umask, umask)
        self.open_before = os.listdir("/proc/self/fd")

    def give(self, path, uid, gid):
        """Notes who gets something."""
        self.assertTrue(os.path.lexists(path))
        self.given.append((os.path.relpath(path, self.here), uid, gid))

    def facts(self, name):
        """Returns kind, mode and content."""
        path = f"{self.here}/{name}"
        facts = os.lstat(path)
        content = None
        if stat.S_ISREG(facts.st_mode):
            with open(path, "rb") as file:
                content = file.read()
        return stat.filemode(facts.st_mode), content

    def write(self, name, data=b"old"):
        """Writes a file."""
        with open(f"{self.here}/{name}", "wb") as file:
            file.write(data)

    def nothing_stays_open(self):
        """No descriptor was forgotten."""
        self.assertEqual(os.listdir("/proc/self/fd"), self.open_before)

    def test_a_folder_has_its_mode_whatever_the_umask(self):
        os.umask(0o077)
        self.maker.folder(f"{self.here}/a", 0o1777, 3, 4)

        self.assertEqual(self.facts("a")[0], "drwxrwxrwt")
        self.assertEqual(self.given, [("a", 3, 4)])
        with self.assertRaises(FileExistsError):
            self.maker.folder(f"{self.here}/a", 0o755, 0, 0)

    def test_folders_that_are_missing_are_made_and_those_that_are_there_stay(self):
        os.mkdir(f"{self.here}/a", 0o700)
        self.maker.folders(f"{self.here}/a/b/c/")
        self.maker.parents(f"{self.here}/a/d/file")
        self.maker.parents("/file")

        self.assertEqual(self.given, [(name, 0, 0) for name in ("a/b", "a/b/c", "a/d")])
        self.assertEqual([self.facts(name)[0] for name in ("a", "a/b/c")],
                         ["drwx------", "drwxr-xr-x"])
        self.write("a/file")
        with self.assertRaisesRegex(SandboxError, f"^{self.here}/a/file of the panel is not a "
                                                  "folder$"):
            self.maker.folders(f"{self.here}/a/file/b")

    def test_links_and_places_are_roots(self):
        self.maker.link(f"{self.here}/link", "to/where")
        self.maker.place(f"{self.here}/place")

        self.assertEqual(os.readlink(f"{self.here}/link"), "to/where")
        self.assertEqual(self.facts("place"), ("-rw-r--r--", b""))
        self.assertEqual(self.given, [("link", 0, 0), ("place", 0, 0)])
        with self.assertRaises(FileExistsError):
            self.maker.place(f"{self.here}/place")
        self.nothing_stays_open()

    def test_a_file_takes_the_place_of_whatever_has_its_name(self):
        self.write("outside")
        for make in (lambda path: None, lambda path: os.makedirs(f"{path}/deep/er"),
                     lambda path: os.symlink(f"{self.here}/outside", path),
                     lambda path: self.write("file", b"longer than the new one")):
            make(f"{self.here}/file")
            self.maker.file(f"{self.here}/file", b"data", 0o640, 42)

            self.assertEqual(self.facts("file"), ("-rw-r-----", b"data"))
            self.assertEqual(self.given.pop(), ("file", 0, 42))
            os.unlink(f"{self.here}/file")
        self.assertEqual(self.facts("outside")[1], b"old")
        self.nothing_stays_open()

    def test_a_file_is_not_written_through_a_link_to_its_folder(self):
        os.mkdir(f"{self.here}/a")
        os.symlink("a", f"{self.here}/link")
        with self.assertRaises(OSError):
            self.maker.file(f"{self.here}/link/file", b"data", 0o644, 0)

    def test_a_copied_folder_goes_into_the_one_that_is_there(self):
        os.makedirs(f"{self.here}/from/deep")
        os.chmod(f"{self.here}/from", 0o711)
        self.write("from/deep/new", b"new")
        os.makedirs(f"{self.here}/to/deep")
        self.write("to/deep/kept")
        os.mkdir(f"{self.here}/other")
        os.symlink("../to", f"{self.here}/other/link")
        for path in ("other/link", "to"):
            source = trees.Source(f"{self.here}/from")
            self.maker.copy(source, f"{self.here}/{path}")
            os.close(source.fd)

        self.assertEqual(sorted(os.listdir(f"{self.here}/to/deep")), ["kept", "new"])
        self.assertEqual(self.facts("to")[0], "drwx--x--x")
        self.assertEqual(os.listdir(f"{self.here}/other"), ["link"])
        self.assertTrue(os.path.islink(f"{self.here}/other/link"))
        self.nothing_stays_open()

    def test_a_copied_file_takes_the_place_of_a_link_and_makes_the_folders_above(self):
        self.write("from", b"new")
        self.write("outside")
        os.chmod(f"{self.here}/from", 0o751)
        os.makedirs(f"{self.here}/a")
        os.symlink(f"{self.here}/outside", f"{self.here}/a/to")
        for path in ("a/to", "b/c/to"):
            source = trees.Source(f"{self.here}/from")
            self.maker.copy(source, f"{self.here}/{path}")
            os.close(source.fd)
            self.assertEqual(self.facts(path), ("-rwxr-x--x", b"new"))

        self.assertEqual(self.given, [("b", 0, 0), ("b/c", 0, 0)])
        self.assertEqual(self.facts("outside")[1], b"old")
        self.nothing_stays_open()

    def test_a_copied_file_takes_the_place_of_a_link_to_a_folder_but_not_of_the_folder(self):
        self.write("from", b"new")
        os.mkdir(f"{self.here}/folder")
        self.write("folder/kept")
        os.symlink("folder", f"{self.here}/to")
        source = trees.Source(f"{self.here}/from")
        self.maker.copy(source, f"{self.here}/to")
        os.close(source.fd)

        self.assertEqual((self.facts("to")[1], self.facts("folder/kept")[1]), (b"new", b"old"))

    def test_a_copied_folder_takes_the_place_of_a_broken_link(self):
        os.mkdir(f"{self.here}/from")
        os.symlink("nowhere", f"{self.here}/to")
        source = trees.Source(f"{self.here}/from")
        self.maker.copy(source, f"{self.here}/to")
        os.close(source.fd)

        self.assertEqual(self.facts("to")[0], "drwxr-xr-x")

    @unittest.skipUnless(os.geteuid() == 0, "only root gives files away")
    def test_copies_belong_to_root_of_the_panel(self):
        maker = files.Maker(SimpleNamespace(root=(1234, 4321), give=self.give))
        os.makedirs(f"{self.here}/from/deep")
        self.write("file")
        for name in ("from", "file"):
            source = trees.Source(f"{self.here}/{name}")
            maker.copy(source, f"{self.here}/copy-{name}")
            os.close(source.fd)

        for name in ("copy-from", "copy-from/deep", "copy-file"):
            facts = os.stat(f"{self.here}/{name}")
            self.assertEqual((facts.st_uid, facts.st_gid), (1234, 4321))


class PlainFolders(unittest.TestCase):
    """Folders for trouble, never made through a link of /proc."""

    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.here = os.path.realpath(folder.name)
        self.addCleanup(os.chdir, os.getcwd())
        os.chdir("/")  # as on the panel

    def test_they_are_made_with_those_above(self):
        before = os.listdir("/proc/self/fd")
        for _ in range(2):
            files.make_plain_folders(f"{self.here}/a/b")
            files.make_plain_folders(f"{self.here}/c")

        self.assertEqual(sorted(os.listdir(self.here)), ["a", "c"])
        self.assertTrue(os.path.isdir(f"{self.here}/a/b"))
        self.assertEqual(os.listdir("/proc/self/fd"), before)

    def test_a_file_or_a_link_of_proc_in_the_way_is_told(self):
        with open(f"{self.here}/file", "x", encoding="ascii"):
            pass
        os.mkdir(f"{self.here}/open")
        opened = os.open(f"{self.here}/open", trees.DIR_FLAGS)
        self.addCleanup(os.close, opened)
        for path, text in ((f"{self.here}/file", "Not a directory"),
                           (f"{self.here}/file/a", "Not a directory"),
                           (f"/proc/self/fd/{opened}/a", "Too many levels of symbolic links")):
            with self.assertRaises(SandboxError) as raised:
                files.make_plain_folders(path)
            self.assertRegex(str(raised.exception),
                             f"^{path} cannot be a folder of the panel \\((.*: )?{text}\\)$")
        self.assertEqual(os.listdir(f"{self.here}/open"), [])


if __name__ == "__main__":
    unittest.main()
