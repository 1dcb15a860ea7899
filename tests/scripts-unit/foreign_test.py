# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
"""How programs for other processors are run without a trace on the computer; apt is played, the
namespaces are real."""
import os
import pathlib
import shutil
import subprocess
import sys
import unittest

from kxscripts import debian, foreign, sysroot
from played import PROJECT, InProject

COMMAND = [sys.executable, "-B", "-m", "kxscripts.foreign"]
REGISTERED = pathlib.Path("/proc/sys/fs/binfmt_misc")


class Fetched(InProject):
    """The emulators, and packages of another processor."""

    def setUp(self):
        super().setUp()
        self.patch(debian, "folders", lambda name: [self.root / "system" / name, self.root / "user" / name])
        self.patch(os, "geteuid", lambda: 1000)
        self.patch(sysroot, "archive_address", lambda: "http://archive/")

    def test_emulators_are_unpacked_once(self):
        asked = []
        self.patch(debian, "download", lambda package, folder: asked.append(package) or folder / "x.deb")
        self.patch(debian, "unpack", lambda _package, folder, wanted: [
            self.write((folder / name).relative_to(self.root), name) for name in wanted])
        found = foreign.emulators()
        self.assertEqual(found, self.root / "user/emulators/bin")
        self.assertEqual({path.name: (path.read_text(), path.stat().st_mode & 0o777)
                          for path in found.iterdir()},
                         {"qemu-arm": ("usr/bin/qemu-arm-static", 0o755),
                          "qemu-aarch64": ("usr/bin/qemu-aarch64-static", 0o755)})
        self.assertEqual(os.listdir(found.parent), ["bin"])
        foreign.emulators()
        self.assertEqual(asked, ["qemu-user-static"])

    def test_the_computers_emulators_come_first(self):
        self.write("system/emulators/bin/qemu-arm")
        self.patch(foreign, "PROCESSORS", {"armhf": "arm"})
        self.assertEqual(foreign.emulators(), self.root / "system/emulators/bin")

    def test_apt_has_settings_of_its_own(self):
        commands = self.played()
        folder = self.root / "apt"
        environment = debian.settings_for("arm64", folder)
        self.assertEqual(commands.lines, ["apt-get update -q"])
        self.assertEqual(commands.added, [{"APT_CONFIG": str(folder / "apt.conf")}])
        self.assertEqual(environment["APT_CONFIG"], str(folder / "apt.conf"))
        self.assertEqual((folder / "sources.list").read_text(), "deb http://archive/ bookworm main\n")
        shown = subprocess.run(["apt-config", "shell", "A", "APT::Architecture", "S", "Dir::State::lists/d"],
                               env=environment, capture_output=True, text=True, check=True).stdout
        self.assertEqual(shown.splitlines(), ["A='arm64'", f"S='{folder}/lists/'"])

    def test_lists_that_cannot_be_read_are_told(self):
        self.played(statuses={"apt-get": 100}, printed={"apt-get": "E: no luck\n"})
        self.expect_failed("apt-get could not read the list of packages for armhf:\nE: no luck",
                           debian.settings_for, "armhf", self.root / "apt")


class Inside(InProject):
    """A command in namespaces. Any program can stand for an emulator that is only registered."""

    def setUp(self):
        super().setUp()
        for name in ("qemu-arm", "qemu-aarch64"):
            self.write(f"emulators/{name}")
            shutil.copy("/bin/true", self.root / "emulators" / name)
        self.memory = self.root / "memory"
        self.memory.mkdir()
        self.root.chmod(0o755)

    def call(self, *words):
        """Runs a command; returns how it ended."""
        env = {**os.environ, "KX_EMULATORS": str(self.root / "emulators"),
               "PYTHONPATH": f"{PROJECT}/scripts:{PROJECT}/device"}
        return subprocess.run([*COMMAND, self.memory, *words], env=env, capture_output=True, text=True,
                              check=False, timeout=60)

    def test_nothing_is_seen_outside(self):
        before = (sorted(REGISTERED.glob("qemu-*")), pathlib.Path("/proc/mounts").read_text())
        done = self.call("sh", "-c", "ls /proc/sys/fs/binfmt_misc; id -u; echo $TMPDIR; "
                                     "touch $TMPDIR/left; echo $$; exit 7")
        if foreign.NO_REGISTER in done.stderr:
            self.assertEqual(done.returncode, 1)
        else:
            self.assertEqual((done.stderr, done.returncode), ("", 7))
            said = done.stdout.split()
            self.assertLessEqual({"qemu-arm", "qemu-aarch64", "register", "status"}, set(said))
            self.assertEqual(said[-3:], ["0", str(self.memory), "1"])
        self.assertEqual(os.listdir(self.memory), [])
        self.assertEqual((sorted(REGISTERED.glob("qemu-*")), pathlib.Path("/proc/mounts").read_text()),
                         before)

    def test_a_program_that_is_missing_is_told(self):
        done = self.call("no-such-program")
        self.assertEqual(done.returncode, 1)
        self.assertIn("kxscripts.foreign: ", done.stderr)


if __name__ == "__main__":
    unittest.main()
