# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
"""How the drives of an emulated panel are made, and how its storage is read when it is off. The tools
for file systems are real; those that a machine may lack are played."""
import gzip
import os
import pathlib
import subprocess
import tempfile
import unittest
from unittest import mock

from kxpanel import drives
from kxpanel.disk import Disk
from kxpanel.drives import Kind
from kxscripts import common
from kxscripts.common import Failed


class Played(unittest.TestCase):
    """A folder whose programs are found first, and note their command lines."""

    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = pathlib.Path(folder.name)
        (self.folder / "scripts").mkdir()
        path = mock.patch.dict(
            os.environ, PATH=f"{self.folder}:{os.environ['PATH']}:/usr/sbin:/sbin")
        path.start()
        self.addCleanup(path.stop)

    def play(self, name, work=""):
        """Makes a program that does this after it has noted its words."""
        program = self.folder / name
        program.write_text(f'#!/bin/sh\necho "$*" >>"{self.folder}/words"\n{work}\n',
                           encoding="utf-8")
        program.chmod(0o755)

    def words(self):
        """The command lines of what was played."""
        return (self.folder / "words").read_text(encoding="utf-8").splitlines()


class Drives(Played):
    """Drives."""

    def test_a_drive_has_a_table_and_a_file_system_with_the_files(self):
        self.play("sfdisk", f'cat >"{self.folder}/table"')
        self.play("mcopy")
        drive = self.folder / "drive"
        drives.make(drive, {"A b.kx-update": "/p"})

        self.assertEqual(drive.stat().st_size, 64 << 20)
        self.assertEqual((self.folder / "table").read_text(encoding="utf-8"), "start=2048, type=c\n")
        self.assertRegex(self.words()[0], r"^-i \S+/partition /p ::/A b.kx-update$")
        with drive.open("rb") as file:
            file.seek((1 << 20) + 82)
            self.assertEqual(file.read(8), b"FAT32   ")
        self.assertEqual(drives.check(drive), "")

    def test_a_drive_without_a_table_is_the_file_system_alone(self):
        kind = Kind(table=False, mebibytes=40)
        drives.make(self.folder / "drive", {}, kind)
        self.assertEqual((self.folder / "drive").read_bytes()[82:90], b"FAT32   ")
        self.assertEqual((self.folder / "drive").stat().st_size, 40 << 20)
        self.assertEqual(drives.check(self.folder / "drive", kind), "")

    def test_damage_is_found(self):
        drives.make(self.folder / "drive", {}, Kind(table=False))
        with (self.folder / "drive").open("r+b") as file:
            file.seek(32 * 512 + 20)
            file.write(b"damage")
        self.assertIn("FATs differ", drives.check(self.folder / "drive", Kind(table=False)))

    def test_the_virtual_machine_fills_exfat(self):
        self.play("sfdisk", "cat >/dev/null")
        (self.folder / "content").write_bytes(gzip.compress(b"EXFAT" + bytes((7 << 20) - 5)))
        self.play("scripts/vm", f'cat "{self.folder}/content"')
        with mock.patch.object(common, "ROOT", self.folder):
            drives.make(self.folder / "drive", {"p": "/p"}, Kind("exfat", mebibytes=8))
        self.assertIn("run --drive 7 --memory 512 --add /p:/files/p -- sh -c", self.words()[0])
        data = (self.folder / "drive").read_bytes()
        self.assertEqual((len(data), data[1 << 20:][:5]), (8 << 20, b"EXFAT"))

    def test_names_are_listed(self):
        self.play("mdir", "echo ::/b.temp/; echo ::/b.temp/kx_Updater; echo ::/a.kx-update")
        self.assertEqual(drives.listing("/d"), ["a.kx-update", "b.temp/", "b.temp/kx_Updater"])
        self.assertIn("/d@@1048576", self.words()[0])

    def test_a_tool_that_fails_or_is_missing_is_told(self):
        self.play("mdir", "echo no luck >&2; exit 4")
        with self.assertRaisesRegex(Failed, "mdir ended with 4: no luck"):
            drives.listing("/d")
        with mock.patch.dict(os.environ, PATH="/nowhere"), \
                self.assertRaisesRegex(Failed, "mdir is missing; scripts/setup emulator installs it"):
            drives.listing("/d")


class Disks(Played):
    """A panel's storage."""

    def setUp(self):
        super().setUp()
        self.play("qemu-img", 'cp "$4" "$5"')
        tree = self.folder / "tree"
        (tree / "lib" / "a b").mkdir(parents=True)
        (tree / "lib" / "text").write_bytes(b"one\0two\n")
        (tree / "lib" / "text").chmod(0o640)
        self.image = self.folder / "user.qcow2"
        subprocess.run(["mke2fs", "-q", "-t", "ext4", "-d", tree, self.image, "8M"], check=True)

    def test_it_is_read_without_the_panel(self):
        disk = Disk(self.image, self.folder)
        self.addCleanup(disk.close)
        self.assertEqual(disk.read("/lib/text"), b"one\0two\n")
        self.assertIsNone(disk.read("/lib/none"))
        self.assertEqual(disk.names("/lib"), ["a b", "text"])
        self.assertIsNone(disk.names("/none"))
        self.assertEqual((disk.exists("/lib/a b"), disk.exists("/lib/c")), (True, False))
        self.assertEqual((disk.mode("/lib/text"), disk.mode("/lib/none")), ("640", None))

    def test_a_copy_is_read_and_removed(self):
        before = self.image.read_bytes()
        Disk(self.image, self.folder).close()
        self.assertEqual(self.image.read_bytes(), before)
        self.assertFalse((self.folder / "user.raw").exists())

    def test_a_journal_is_played_back(self):
        subprocess.run(["debugfs", "-w", "-R", "feature needs_recovery", self.image], check=True,
                       capture_output=True)
        disk = Disk(self.image, self.folder)
        self.addCleanup(disk.close)
        self.assertIn("recovering journal", disk.repairs)
        self.assertEqual(disk.names("/lib"), ["a b", "text"])

    def test_damage_that_no_journal_mends_is_told(self):
        subprocess.run(["debugfs", "-w", "-R", "clri /lib", self.image], check=True,
                       capture_output=True)
        with self.assertRaisesRegex(Failed, "user.qcow2: e2fsck -n ended with 4: "):
            Disk(self.image, self.folder)


if __name__ == "__main__":
    unittest.main()
