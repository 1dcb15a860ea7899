# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
"""Where the headers and libraries of a panel come from; apt, mmdebstrap and tar are played."""
import os
import pathlib
import re
import subprocess
import unittest
from unittest import mock

from kxscripts import sysroot
from played import InProject

TARGETS = ("http://elsewhere/debian/ bookworm contrib Debian\n"
           "http://other/apt stable main Other\n"
           "http://security/debian-security/ bookworm-security main Debian\n"
           "http://mirror/debian/ bookworm main Debian\n")
FOLDERS = sysroot.folders  # which most tests replace


class InCaches(InProject):
    """Two folders that stand for the caches of the computer and of the user."""

    def setUp(self):
        super().setUp()
        self.caches = [self.root / "system", self.root / "user"]
        self.patch(sysroot, "folders", lambda: self.caches)
        self.patch(os, "geteuid", lambda: 0)
        self.targets = TARGETS
        self.patch(subprocess, "run", lambda words, **_: subprocess.CompletedProcess(
            words, 0, self.targets, "E: apt is ill"))


class Found(InCaches):
    """A sysroot that is there."""

    def test_the_computers_comes_before_the_users(self):
        self.assertIsNone(sysroot.find("armhf"))
        own = self.caches[1] / sysroot.name_of("armhf")
        own.mkdir(parents=True)
        self.assertEqual(sysroot.find_or_make("armhf"), own)
        system = self.caches[0] / sysroot.name_of("armhf")
        system.mkdir(parents=True)
        self.assertEqual(sysroot.find_or_make("armhf"), system)
        self.assertTrue(sysroot.is_one(system))
        self.assertFalse(sysroot.is_one(self.root))

    def test_its_name_tells_processor_and_packages(self):
        name = sysroot.name_of("armhf")
        self.assertRegex(name, r"^armhf-[0-9a-f]{12}$")
        self.assertEqual(sysroot.name_of("arm64"), name.replace("armhf", "arm64"))
        with mock.patch.object(sysroot, "PACKAGES", (*sysroot.PACKAGES, "libmore-dev")):
            self.assertNotEqual(sysroot.name_of("armhf"), name)

    def test_it_lies_in_the_caches_of_computer_and_user(self):
        with mock.patch.dict(os.environ, {"XDG_CACHE_HOME": "/own"}):
            self.assertEqual(FOLDERS(), [pathlib.Path("/var/cache/kx-updater/sysroots"),
                                         pathlib.Path("/own/kx-updater/sysroots")])


class Archive(InCaches):
    """Debian's archive."""

    def test_the_address_is_that_of_the_suite_and_its_main_part(self):
        self.assertEqual(sysroot.archive_address(), "http://mirror/debian/")

    def test_without_one_the_remedy_is_told(self):
        self.targets = TARGETS.replace("bookworm main", "trixie main")
        self.expect_failed(f"apt knows no archive of Debian bookworm: E: apt is ill\n{sysroot.REMEDY}",
                           sysroot.archive_address)


class Making(InCaches):
    """A sysroot that is made."""

    def setUp(self):
        super().setUp()
        self.folder = self.caches[0]
        self.commands = self.played(does=self.unpack)
        self.enterContext(self.told())

    def unpack(self, words):
        """What tar leaves behind."""
        target = next((word for word in words if word.startswith("--directory=")), None)
        if target is not None:
            folder = pathlib.Path(target.partition("=")[2]) / "usr"
            folder.mkdir()
            self.unpacked = folder.parent.stat().st_ino
            (folder / "libm.so").symlink_to("/lib/libm.so.6")

    def test_it_is_fetched_with_mounts_of_its_own_and_unpacked(self):
        made = sysroot.find_or_make("armhf")
        self.assertEqual(made, self.folder / sysroot.name_of("armhf"))
        self.assertEqual(os.readlink(made / "usr/libm.so"), "../lib/libm.so.6")
        fetch, unpack = self.commands.lines
        self.assertRegex(fetch, r"^timeout \d+ unshare --mount --propagation private -- mmdebstrap "
                                r"--arch=armhf --variant=extract ")
        self.assertRegex(fetch, r" deb http://mirror/debian/ bookworm main --mode=root$")
        self.assertIn("qtbase5-dev", re.search(r" --include=(\S+) ", fetch)[1].split(","))
        self.assertIn(" tar --extract ", unpack)
        self.assertEqual(sorted(path.name for path in self.folder.iterdir()),
                         [made.name, "armhf.lock"])

    def test_it_takes_its_place_as_a_whole(self):
        self.assertEqual(sysroot.find_or_make("armhf").stat().st_ino, self.unpacked)

    def test_it_is_made_once(self):
        sysroot.find_or_make("armhf")
        sysroot.find_or_make("armhf")
        self.assertEqual(len(self.commands.seen), 2)

    def test_a_user_makes_one_in_the_own_cache_with_numbers_of_the_own(self):
        self.patch(os, "geteuid", lambda: 1000)
        made = sysroot.find_or_make("arm64")
        self.assertEqual(made.parent, self.caches[1])
        self.assertRegex(self.commands.lines[0], r"(?s)^timeout \d+ mmdebstrap --arch=arm64 .* "
                                                 r"--mode=unshare$")

    def test_what_fails_leaves_nothing_and_tells_the_end_of_the_log(self):
        for tool in ("timeout 1800 unshare", "timeout 1800 tar"):
            self.commands.statuses = {tool: 5}
            self.commands.printed = {tool: "E: no luck\n"}
            with self.assertRaises(sysroot.Failed) as caught:
                sysroot.find_or_make("armhf")
            self.assertIn("E: no luck\n", str(caught.exception))
            self.assertIn(" failed with 5", str(caught.exception))
            self.assertEqual([path.name for path in self.folder.iterdir()], ["armhf.lock"])

    def test_what_one_that_was_killed_left_is_not_taken_and_removed(self):
        left = self.folder / "make.armhf.x" / "root" / "usr"
        left.mkdir(parents=True)
        other = self.folder / "make.arm64.x"
        other.mkdir()
        made = sysroot.find_or_make("armhf")
        self.assertFalse(left.exists())
        self.assertTrue(other.exists())
        self.assertTrue((made / "usr").is_dir())


class Links(InProject):
    """Absolute links, which would lead out of the sysroot."""

    def test_absolute_links_name_the_same_file_inside_others_stay(self):
        root = self.root / "root"
        deep = root / "usr/lib/arm"
        deep.mkdir(parents=True)
        (root / "lib").mkdir()
        (root / "lib/file").write_text("x", encoding="utf-8")
        (deep / "absolute").symlink_to("/lib/file")
        (deep / "folder").symlink_to("/usr/lib")
        (deep / "relative").symlink_to("../../../lib/file")
        (deep / "dangling").symlink_to("/nowhere")
        sysroot.relink(root)
        self.assertEqual({path.name: os.readlink(path) for path in deep.iterdir()}, {
            "absolute": "../../../lib/file", "folder": "..", "relative": "../../../lib/file",
            "dangling": "../../../nowhere"})


if __name__ == "__main__":
    unittest.main()
