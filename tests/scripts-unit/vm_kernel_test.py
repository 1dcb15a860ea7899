# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
"""Where the kernel of the virtual machine comes from; apt is played."""
import io
import lzma
import os
import pathlib
import platform
import shutil
import subprocess
import tarfile
import unittest
from unittest import mock

from kxscripts import processes, vm_kernel
from played import Commands, InProject

SHOWN = ("Package: linux-image-amd64\nDepends: linux-image-6.1.0-9-amd64 (= 6.1.20-2)\n"
         "Description: x\n")
REMEDY = "scripts/setup vm fetches it"
FOLDERS = vm_kernel.folders  # which most tests replace


class InCaches(InProject):
    """Two folders that stand for the caches of the computer and of the user."""

    def setUp(self):
        super().setUp()
        self.caches = [self.root / "system" / "vm", self.root / "user" / "vm"]
        self.patch(vm_kernel, "folders", lambda: self.caches)
        self.patch(platform, "machine", lambda: "x86_64")

    def unpacked(self, place, version="6.1.0-9-amd64", lines=""):
        """A kernel in one of the caches."""
        folder = f"{self.caches[place].relative_to(self.root)}/kernel"
        self.write(f"{folder}/lib/modules/{version}/modules.dep", lines)
        return self.write(f"{folder}/boot/vmlinuz-{version}")


class Found(InCaches):
    """A kernel that is there."""

    def test_the_computers_comes_before_the_users(self):
        own = self.unpacked(1)
        self.assertEqual(vm_kernel.find().image, own)
        system = self.unpacked(0)
        found = vm_kernel.find()
        self.assertEqual((found.image, found.version), (system, "6.1.0-9-amd64"))
        self.assertEqual(found.modules, self.caches[0] / "kernel/lib/modules/6.1.0-9-amd64")

    def test_one_that_is_unpacked_is_preferred(self):
        image = self.unpacked(0).with_name("vmlinux")
        image.touch()
        self.assertEqual(vm_kernel.find().image, image)

    def test_without_any_the_remedy_is_told(self):
        self.expect_failed("there is no kernel for the virtual machine in "
                           f"{self.caches[0]} or {self.caches[1]}; {REMEDY}", vm_kernel.find)

    def test_a_module_comes_with_all_it_depends_on(self):
        self.unpacked(0, lines="kernel/a/b-c.ko: kernel/x.ko kernel/y.ko\nkernel/x.ko: kernel/y.ko\n"
                               "kernel/y.ko:\nkernel/z.ko:\n")
        found = vm_kernel.find()
        self.assertEqual(found.needed(["b_c"]), ["kernel/a/b-c.ko", "kernel/x.ko", "kernel/y.ko"])
        self.assertEqual(found.needed(["x", "y", "z"]), ["kernel/x.ko", "kernel/y.ko", "kernel/z.ko"])
        self.expect_failed(f"the kernel in {found.modules} lacks other more; remove the folder, and "
                           f"{REMEDY}", found.needed, ["x", "other", "more"])

    def test_the_machine_is_for_one_processor(self):
        vm_kernel.check_computer()
        self.patch(platform, "machine", lambda: "aarch64")
        self.expect_failed("the virtual machine has an amd64 processor, and this computer's programs "
                           "are for aarch64: it needs a Debian for amd64", vm_kernel.check_computer)
        self.expect_failed("the virtual machine has an amd64 processor, and this computer's programs "
                           "are for aarch64: it needs a Debian for amd64", vm_kernel.fetch)

    def test_the_caches_are_the_computers_and_the_users(self):
        with mock.patch.dict(os.environ, {"XDG_CACHE_HOME": "/c"}):
            self.assertEqual(FOLDERS(), [pathlib.Path("/var/cache/kx-updater/vm"),
                                         pathlib.Path("/c/kx-updater/vm")])
        with mock.patch.dict(os.environ, {"XDG_CACHE_HOME": "", "HOME": "/h"}):
            self.assertEqual(FOLDERS()[1], pathlib.Path("/h/.cache/kx-updater/vm"))


class Fetched(InCaches):
    """A kernel that is not there yet. The package is an archive that stands for Debian's."""

    def setUp(self):
        super().setUp()
        self.patch(os, "geteuid", lambda: 1000)
        self.shown = SHOWN
        self.image = b"head\xfd7zX" + b"\xfd7zXZ\0unpacker" + lzma.compress(b"kernel") + b"tail"
        self.leaves = ["linux.deb"]
        self.commands = self.played(does=self.does)
        self.patch(subprocess, "run", self.run_played)
        self.patch(subprocess, "Popen", self.popen)

    def run_played(self, words, **_):
        """apt-cache."""
        self.assertEqual(words, ["apt-cache", "show", "--no-all-versions", "linux-image-amd64"])
        return subprocess.CompletedProcess(words, 0, stdout=self.shown, stderr="N: nothing\n")

    def does(self, words):
        """apt-get leaves a package, depmod its list."""
        if words[0] == "apt-get":
            for name in self.leaves:
                (self.commands.folders[-1] / name).touch()
        else:
            folder = pathlib.Path(words[3]) / "lib/modules" / words[4]
            self.assertTrue(folder.is_dir())
            (folder / "modules.dep").touch()

    def popen(self, words, **_):
        """dpkg-deb."""
        self.assertEqual(words[:2], ["dpkg-deb", "--fsys-tarfile"])
        packed = io.BytesIO()
        with tarfile.open(fileobj=packed, mode="w") as archive:
            for name, data in (("./boot/vmlinuz-6.1", self.image), ("./boot/config-6.1", b""),
                               ("./lib/modules/6.1/modules.order", b""),
                               ("./lib/modules/6.1/kernel/fs/fat/vfat.ko", b"vfat"),
                               ("./lib/modules/6.1/kernel/net/x.ko", b""),
                               ("./boot/../../vmlinuz-escaped", b"")):
                member = tarfile.TarInfo(name)
                member.size = len(data)
                archive.addfile(member, io.BytesIO(data))
            link = tarfile.TarInfo("./lib/modules/6.1/modules.link")
            link.type, link.linkname = tarfile.SYMTYPE, "/etc"
            archive.addfile(link)
        packed.seek(0)
        reader = mock.MagicMock(stdout=packed, returncode=self.reading)
        reader.__enter__.return_value = reader
        return reader

    reading = 0

    def test_the_newest_one_is_downloaded_and_only_what_is_needed_unpacked(self):
        found = vm_kernel.fetch()
        self.assertEqual(self.commands.lines[0],
                         "apt-get download -q linux-image-6.1.0-9-amd64=6.1.20-2")
        self.assertTrue(self.commands.lines[1].startswith("busybox depmod -b "))
        self.assertTrue(self.commands.lines[1].endswith(" 6.1"))
        kernel = self.caches[1] / "kernel"
        self.assertEqual(found.image, kernel / "boot/vmlinux")
        self.assertEqual(found.image.read_bytes(), b"kernel")
        self.assertEqual(sorted(str(path.relative_to(self.root)) for path in self.root.rglob("*")
                                if path.is_file()),
                         [f"user/vm/kernel/{name}" for name in
                          ("boot/vmlinux", "boot/vmlinuz-6.1",
                           "lib/modules/6.1/kernel/fs/fat/vfat.ko", "lib/modules/6.1/modules.dep",
                           "lib/modules/6.1/modules.order")])
        self.assertEqual(os.listdir(self.caches[1]), ["kernel"])
        self.assertEqual(kernel.stat().st_mode & 0o777, 0o755)

        vm_kernel.fetch()
        self.assertEqual(len(self.commands.lines), 2)

    def test_roots_is_for_all(self):
        self.patch(os, "geteuid", lambda: 0)
        self.assertEqual(vm_kernel.fetch().image, self.caches[0] / "kernel/boot/vmlinux")

    def test_an_image_that_is_packed_otherwise_does_as_it_is(self):
        for self.image in (b"packed otherwise", b"\xfd7zXZ\0unpacker", lzma.compress(b"cut")[:-8]):
            self.assertEqual(vm_kernel.fetch().image, self.caches[1] / "kernel/boot/vmlinuz-6.1")
            shutil.rmtree(self.caches[1])

    def expect_nothing(self, text):
        """It must fail with this text and leave nothing."""
        self.expect_failed(text, vm_kernel.fetch)
        self.assertEqual(os.listdir(self.caches[1]), [])

    def test_what_apt_does_not_know_is_told(self):
        self.shown = "Package: linux-image-amd64\nDepends: linux-image\n"
        self.expect_nothing("apt knows no linux-image-amd64, which names the kernel: N: nothing")

    def test_a_download_that_fails_is_told_with_apts_words(self):
        text = ("apt-get could not download linux-image-6.1.0-9-amd64=6.1.20-2:\nE: no luck")
        for leaves, statuses in (([], {}), (["a.deb", "b.deb"], {}),
                                 (["a.deb"], {"apt-get": 100})):
            self.leaves = leaves
            self.commands = self.patch(processes, "run", Commands(
                statuses=statuses, printed={"apt-get": "E: no luck\n"}, does=self.does))
            self.expect_nothing(text)

    def test_a_package_that_cannot_be_read_and_a_depmod_that_fails_leave_nothing(self):
        self.commands = self.patch(processes, "run",
                                   Commands(statuses={"busybox": 5}, does=self.does))
        self.expect_nothing("busybox depmod ended with 5")
        self.reading = 2
        with self.assertRaisesRegex(vm_kernel.Failed, "^dpkg-deb could not read .*/linux.deb$"):
            vm_kernel.fetch()
        self.assertEqual(os.listdir(self.caches[1]), [])


if __name__ == "__main__":
    unittest.main()
