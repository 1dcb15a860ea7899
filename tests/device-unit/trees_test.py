# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
"""Trees of files are copied and removed whole, and no link in them is followed."""

import errno
import os
import stat
import tempfile
import unittest
from unittest import mock

from kxdevice import trees
from kxdevice.linux import SandboxError
from played import play


def look(folder):
    """Returns everything below a folder: mode, time of the last change, content."""
    found = {}
    for path, folders, files in os.walk(folder):
        for name in (*folders, *files):
            where = f"{path}/{name}"
            facts = os.lstat(where)
            content = None
            if stat.S_ISLNK(facts.st_mode):
                content, when = os.readlink(where), 0
            else:
                when = facts.st_mtime_ns
                if stat.S_ISREG(facts.st_mode):
                    with open(where, "rb") as file:
                        content = file.read()
            found[os.path.relpath(where, folder)] = (stat.filemode(facts.st_mode), when, content)
    return found


class Trees(unittest.TestCase):
    """Works in a folder with a folder outside of what is copied or removed."""

    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.here = os.path.realpath(folder.name)
        for name in ("outside", "from", "from/deep", "from/deep/er", "to"):
            os.mkdir(f"{self.here}/{name}")
        self.write("outside/kept", b"kept")
        self.write("from/large", bytes(range(256)) * 8192 + b"end", 0o4751, 10**9 + 7)
        self.write("from/deep/er/small", b"", 0o400, 2 * 10**9)
        os.symlink(f"{self.here}/outside", f"{self.here}/from/folder")
        os.symlink("nowhere", f"{self.here}/from/deep/broken")
        os.chmod(f"{self.here}/from/deep/er", 0o2711)
        for name, when in (("deep/er", 3), ("deep", 5), (".", 7)):
            os.utime(f"{self.here}/from/{name}", ns=(when, when * 10**9))

    def write(self, name, data, mode=0o644, when=0):
        """Writes a file with a mode and a time."""
        path = f"{self.here}/{name}"
        with open(path, "wb") as file:
            file.write(data)
        os.chmod(path, mode)
        os.utime(path, ns=(when, when))

    def open(self, name):
        """Opens a folder until the test ends."""
        opened = os.open(f"{self.here}/{name}", trees.DIR_FLAGS)
        self.addCleanup(os.close, opened)
        return opened

    def copy(self):
        """Copies "from" into "to"."""
        trees.copy_dir(self.open("from"), self.open("to"), os.getuid(), os.getgid(), "from")

    def outside_is_as_before(self):
        """Tells whether nothing outside was reached."""
        return {name: facts[2] for name, facts in look(f"{self.here}/outside").items()} == {
            "kept": b"kept"}

    def test_a_copy_has_content_links_modes_and_times(self):
        self.copy()

        self.assertEqual(look(f"{self.here}/to"), look(f"{self.here}/from"))
        self.assertEqual(os.stat(f"{self.here}/to").st_mtime_ns, 7 * 10**9)
        self.assertEqual(look(f"{self.here}/to")["large"][0], "-rwsr-x--x")
        self.assertTrue(self.outside_is_as_before())

    @unittest.skipUnless(os.geteuid() == 0, "only root gives files away")
    def test_a_copy_belongs_to_whom_it_is_given(self):
        trees.copy_dir(self.open("from"), self.open("to"), 1234, 4321, "from")

        for path, folders, files in os.walk(f"{self.here}/to"):
            for name in (".", *folders, *files):
                facts = os.lstat(f"{path}/{name}")
                self.assertEqual((facts.st_uid, facts.st_gid), (1234, 4321), name)
        # Giving a file away takes such bits from it.
        self.assertEqual(look(f"{self.here}/to")["large"][0], "-rwsr-x--x")

    def test_what_is_in_the_way_is_replaced_and_the_rest_stays(self):
        os.symlink(f"{self.here}/outside", f"{self.here}/to/deep")
        os.symlink(f"{self.here}/outside/kept", f"{self.here}/to/large")
        os.mkdir(f"{self.here}/to/folder")
        self.write("to/folder/old", b"old")
        self.write("to/other", b"other", 0o600, 11)
        self.copy()

        self.assertEqual(look(f"{self.here}/to"), {
            **look(f"{self.here}/from"), "other": ("-rw-------", 11, b"other")})
        self.assertTrue(self.outside_is_as_before())

    def test_a_file_gives_way_to_a_folder(self):
        self.write("to/deep", b"file")
        self.copy()

        self.assertEqual(look(f"{self.here}/to"), look(f"{self.here}/from"))

    def test_what_is_no_file_folder_or_link_is_refused(self):
        os.mkfifo(f"{self.here}/from/deep/fifo")
        with self.assertRaisesRegex(SandboxError, "^from/deep/fifo is neither a file, a folder"):
            self.copy()
        with self.assertRaisesRegex(SandboxError, "fifo is neither a file nor a folder$"):
            trees.Source(f"{self.here}/from/deep/fifo")

    def test_sources_are_files_and_folders(self):
        for name, is_dir in (("from", True), ("from/folder", True), ("from/large", False)):
            source = trees.Source(f"{self.here}/{name}")
            self.addCleanup(os.close, source.fd)
            self.assertEqual(source.is_dir(), is_dir)
            self.assertFalse(os.get_inheritable(source.fd))

    def test_emptying_follows_no_link(self):
        trees.empty(self.open("from"))

        self.assertEqual(os.listdir(f"{self.here}/from"), [])
        self.assertTrue(self.outside_is_as_before())

    def test_removing_takes_the_link_the_file_and_the_whole_folder(self):
        folder = self.open("from")
        for name in ("folder", "large", "deep", "deep", "never there"):
            trees.remove(folder, name)

        self.assertEqual(os.listdir(f"{self.here}/from"), [])
        self.assertTrue(self.outside_is_as_before())

    def test_a_file_is_written_in_place_of_a_link(self):
        os.symlink(f"{self.here}/outside/kept", f"{self.here}/to/file")
        os.symlink(f"{self.here}/outside/kept", f"{self.here}/to/file.new")
        trees.write_file(self.open("to"), "file", b"data", 0o600)

        self.assertEqual({name: (facts[0], facts[2]) for name, facts in
                          look(f"{self.here}/to").items()}, {"file": ("-rw-------", b"data")})
        self.assertTrue(self.outside_is_as_before())

    def test_only_plain_files_are_read_up_to_a_limit(self):
        os.mkfifo(f"{self.here}/to/fifo")
        os.symlink(f"{self.here}/outside/kept", f"{self.here}/to/link")
        self.write("to/file", b"x" * (trees.CHUNK + 10))
        folder = self.open("to")

        for name in ("fifo", "link", "missing", "."):
            self.assertIsNone(trees.read_file(folder, name), name)
        self.assertEqual(len(trees.read_file(folder, "file")), trees.CHUNK + 10)
        self.assertEqual(len(trees.read_file(folder, "file", trees.CHUNK)), trees.CHUNK)

    def test_nothing_stays_open(self):
        folder = self.open("to")
        source = self.open("from")
        before = os.listdir("/proc/self/fd")
        trees.copy_dir(source, folder, os.getuid(), os.getgid(), "from")
        trees.write_file(folder, "file", b"data")
        trees.read_file(folder, "file")
        trees.read_file(folder, "deep")
        trees.remove(folder, "deep")
        trees.empty(folder)
        os.mkfifo(f"{self.here}/from/deep/fifo")
        for action in (lambda: trees.Source(f"{self.here}/from/deep/fifo"),
                       lambda: trees.copy_dir(source, folder, os.getuid(), os.getgid(), "from")):
            self.assertRaises(SandboxError, action)

        self.assertEqual(os.listdir("/proc/self/fd"), before)

    def test_what_is_mounted_in_a_folder_stays_and_other_trouble_is_told(self):
        for number, told in ((errno.EBUSY, False), (errno.ENOTEMPTY, False), (errno.EROFS, True)):
            removed = play(self, trees, "os", rmdir=OSError(number, "no"), unlink=None)
            if told:
                self.assertRaises(OSError, trees.empty, self.open("from"))
            else:
                trees.empty(self.open("from"))
                self.assertEqual(sum(step[0] == "rmdir" for step in removed), 2)
                self.assertEqual(sum(step[0] == "unlink" for step in removed), 4)

    def test_a_source_keeps_its_name_for_messages(self):
        source = trees.Source(f"{self.here}/from/large")
        self.addCleanup(os.close, source.fd)

        self.assertEqual(source.path, f"{self.here}/from/large")

    def test_what_cannot_be_opened_for_another_reason_is_not_replaced(self):
        for number in (errno.EACCES, errno.EMFILE):
            play(self, trees, "os", open=OSError(number, "no"), unlink=self.fail, mkdir=self.fail)
            self.assertRaises(OSError, trees.open_or_make, self.open("to"), "deep")

    def test_a_folder_takes_the_place_of_a_link_in_its_own_folder_only(self):
        umask = os.umask(0)
        self.addCleanup(os.umask, umask)
        os.symlink(f"{self.here}/outside", f"{self.here}/to/link")
        made = trees.open_or_make(self.open("to"), "link")
        os.close(made)

        self.assertEqual(look(f"{self.here}/to")["link"][0], "drwxr-xr-x")
        self.assertTrue(self.outside_is_as_before())

    def test_what_is_being_copied_is_nobody_elses_until_it_is_whole(self):
        umask = os.umask(0)
        self.addCleanup(os.umask, umask)
        modes = []

        def write(descriptor, data):
            modes.append(stat.S_IMODE(os.fstat(descriptor).st_mode))
            return os.write(descriptor, data)
        play(self, trees, "os", write=write)
        self.copy()

        self.assertEqual(set(modes), {0o600})

    def test_a_folder_gets_its_mode_after_its_content(self):
        order = []

        def fchmod(descriptor, mode):
            order.append(os.path.relpath(os.readlink(f"/proc/self/fd/{descriptor}"), self.here))
            os.fchmod(descriptor, mode)
        play(self, trees, "os", fchmod=fchmod)
        self.copy()

        self.assertEqual(order, ["to/deep/er/small", "to/deep/er", "to/deep", "to/large", "to"])

    def test_a_written_file_can_be_read_by_all_unless_told_otherwise(self):
        umask = os.umask(0)
        self.addCleanup(os.umask, umask)
        folder = self.open("to")
        trees.write_file(folder, "usual", b"")
        trees.write_file(folder, "own", b"", 0o640)

        self.assertEqual([look(f"{self.here}/to")[name][0] for name in ("own", "usual")],
                         ["-rw-r-----", "-rw-r--r--"])

    def test_readers_see_the_old_file_or_the_new_one(self):
        self.write("to/file", b"old")
        seen = []

        def write(descriptor, data):
            with open(f"{self.here}/to/file", "rb") as file:
                seen.append(file.read())
            return os.write(descriptor, data)
        play(self, trees, "os", write=write)
        trees.write_file(self.open("to"), "file", b"new")

        self.assertEqual(seen, [b"old"])

    def test_at_most_sixteen_mebibytes_are_read_unless_told_otherwise(self):
        with open(f"{self.here}/to/file", "wb") as file:
            os.truncate(file.fileno(), (16 << 20) + 1)

        self.assertEqual(len(trees.read_file(self.open("to"), "file")), 16 << 20)

    def test_a_descriptor_that_takes_little_at_a_time_gets_every_byte(self):
        write = os.write
        with mock.patch.object(trees.os, "write", lambda file, data: write(file, data[:1000])):
            trees.write_file(self.open("to"), "file", b"0123456789" * 345)
            self.copy()

        self.assertEqual(look(f"{self.here}/to").pop("file")[2], b"0123456789" * 345)
        self.assertEqual(look(f"{self.here}/to")["large"], look(f"{self.here}/from")["large"])


if __name__ == "__main__":
    unittest.main()
