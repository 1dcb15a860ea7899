# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
"""The layers of a panel's /usr, from a /usr of the machine that is a plain folder."""

import errno
import os
import shutil
import stat
import tempfile
import unittest
from unittest import mock

from kxdevice import linux, usr
from kxdevice.linux import SandboxError
from played import play

STAND_IN = b"#!/usr/bin/python3 -IS\nprogram\n"
OWNER = (os.getuid(), os.getgid())
OWN_TOOLS = {"bin/kxsystem/wprotect_off", "bin/kxsystem/usb_umount", "bin/kxsystem/drive",
             "bin/kx-setting-cui", "sbin/reboot"}


class Machine(unittest.TestCase):
    """A test works in a folder like the builder does."""

    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.here = os.path.realpath(folder.name)
        for name in ("mid", "usr", "merged", "lower", "machine"):
            os.mkdir(f"{self.here}/{name}")
        for name in ("bin", "sbin", "lib/x86_64-linux-gnu/deep/er", "local/bin/deep",
                     "share/doc/deep"):
            os.makedirs(f"{self.here}/machine/{name}")
        self.write("machine/bin/cp", b"real cp")
        self.write("machine/bin/gawk", b"real gawk")
        os.symlink("gawk", f"{self.here}/machine/bin/awk")
        before = os.getcwd()
        os.chdir(self.here)
        self.addCleanup(os.chdir, before)
        umask = os.umask(0o022)
        self.addCleanup(os.umask, umask)

    def write(self, name, data):
        """Writes a program."""
        with open(f"{self.here}/{name}", "wb") as file:
            file.write(data)
        os.chmod(f"{self.here}/{name}", 0o755)

    @staticmethod
    def middle():
        """Returns all that is no folder of the layer of the stand-ins."""
        return {os.path.relpath(f"{path}/{name}", "mid")
                for path, _, names in os.walk("mid") for name in names}

    def install(self, failing=(), missing=()):
        """Installs the stand-ins over the machine's folder; returns the paths of the real ones."""
        tools = usr.Tools(STAND_IN, frozenset(failing), tuple(missing))
        return usr._install_tools(tools, "machine", f"{self.here}/machine", usr._Middle(OWNER))


class Tools(Machine):
    """The layer of the stand-ins."""

    def test_the_stand_ins_are_where_the_panel_has_its_tools(self):
        self.assertEqual(self.install(), {})

        self.assertEqual(self.middle(), OWN_TOOLS)
        for name in OWN_TOOLS:
            with open(f"mid/{name}", "rb") as file:
                self.assertEqual(file.read(), b"#!" + os.fsencode(os.path.realpath(
                    "/usr/bin/python3")) + b" -IS\nprogram\n")
            self.assertEqual(stat.filemode(os.stat(f"mid/{name}").st_mode), "-rwxr-xr-x")
        self.assertEqual(stat.filemode(os.stat("mid/bin/kxsystem").st_mode), "drwxr-xr-x")

    def test_a_tool_that_may_fail_is_kept_out_of_the_way(self):
        os.mkdir("machine/local/sbin")
        self.write("machine/local/sbin/cp", b"other")
        before = len(os.listdir("/proc/self/fd"))
        real = self.install(["cp"])

        self.assertEqual(len(os.listdir("/proc/self/fd")), before)
        self.assertEqual(real, {"cp": "/usr/lib/kx-device/cp"})
        self.assertEqual(self.middle(), OWN_TOOLS | {"bin/cp", "local/sbin/cp",
                                                     "lib/kx-device/cp"})
        with open("mid/lib/kx-device/cp", "rb") as file:
            self.assertEqual(file.read(), b"other")
        self.assertEqual(stat.filemode(os.stat("mid/lib/kx-device/cp").st_mode), "-rwxr-xr-x")
        with open("mid/bin/cp", "rb") as file:
            self.assertIn(b"program", file.read())

    def test_a_tool_of_another_name_stays_where_it_is(self):
        self.assertEqual(self.install(["awk", "usb_umount"]), {"awk": "/usr/bin/gawk"})
        self.assertEqual(self.middle(), OWN_TOOLS | {"bin/awk"})

    @unittest.skipUnless(os.geteuid() == 0, "only root makes nodes")
    def test_a_missing_tool_is_hidden_wherever_it_is(self):
        self.write("machine/sbin/cp", b"other")
        self.assertEqual(self.install(missing=["cp", "usb_umount"]), {})

        for name in ("bin/cp", "sbin/cp", "bin/kxsystem/usb_umount"):
            facts = os.lstat(f"mid/{name}")
            self.assertEqual((stat.S_ISCHR(facts.st_mode), facts.st_rdev), (True, 0), name)
        self.assertEqual(self.middle(), OWN_TOOLS | {"bin/cp", "sbin/cp"})

    def test_tools_that_cannot_fail_are_refused(self):
        python = os.path.basename(os.path.realpath("/usr/bin/python3"))
        os.mkdir("usr/bin")
        self.write("usr/bin/own", b"")
        needed = f"{python} is needed by the stand-ins; choose another tool"
        changed = ("own was installed or changed by an earlier run on this panel; only tools that "
                   "no run has touched can fail or be missing")
        nowhere = "the panel has no tool nowhere that could fail or be missing"
        for tool, text in ((python, needed), ("own", changed), ("nowhere", nowhere)):
            for words in ({"failing": [tool]}, {"missing": [tool]}):
                with self.assertRaises(SandboxError) as raised:
                    self.install(**words)
                self.assertEqual(str(raised.exception), text)

    def test_every_folder_of_tools_is_looked_at(self):
        folders = ["local/sbin", "local/bin", "sbin", "bin", "bin/kxsystem"]
        for folder in folders:
            os.makedirs(f"machine/{folder}", exist_ok=True)
            os.symlink("nowhere", f"machine/{folder}/tool")

        self.assertEqual(usr._places("machine", "tool"), folders)

    def test_a_link_of_the_machine_is_followed_to_its_own_usr(self):
        os.symlink(f"{self.here}/machine/bin/gawk", "lower/absolute")
        for path, lower, machine, real in (
                ("machine/bin/awk", "machine", "/elsewhere", "bin/gawk"),
                ("machine/bin/cp", "machine", "/elsewhere", "bin/cp"),
                ("lower/absolute", "lower", f"{self.here}/machine", "bin/gawk"),
                ("/usr/bin/env", "lower", "/usr", "bin/env"),
                ("/usr/bin/env", "lower", "/elsewhere", "bin/env")):
            self.assertEqual(usr._real(path, lower, machine), real)

    def test_folders_of_the_machine_are_laid_over_with_their_modes(self):
        os.chmod("machine/share/doc", 0o2751)
        os.symlink("bin", "machine/link")
        usr._own_folders("machine", "mid", OWNER, 2)

        made = sorted(os.path.relpath(path, "mid") for path, _, _ in os.walk("mid"))
        self.assertEqual(made, [
            ".", "bin", "lib", "lib/x86_64-linux-gnu", "lib/x86_64-linux-gnu/deep", "local",
            "local/bin", "sbin", "share", "share/doc"])
        self.assertEqual(stat.filemode(os.stat("mid/share/doc").st_mode), "drwxr-s--x")
        self.assertEqual(self.middle(), set())

    def test_local_is_owned_as_deep_as_its_folders_of_programs(self):
        os.makedirs("machine/deep/local/bin")
        os.makedirs("machine/deep/other/bin")
        usr._own_folders("machine/deep", "mid", OWNER, 1)

        made = sorted(os.path.relpath(path, "mid") for path, _, _ in os.walk("mid"))
        self.assertEqual(made, [".", "local", "local/bin", "other"])

    def test_folders_that_nobody_may_look_at_are_left_out(self):
        for number, raised in ((errno.EACCES, False), (errno.ENOENT, False), (errno.EIO, True)):
            shutil.rmtree("mid")
            os.mkdir("mid")
            play(self, usr, "os", chmod=OSError(number, "no"))
            if raised:
                self.assertRaises(OSError, usr._own_folders, "machine", "mid", OWNER, 1)
            else:
                usr._own_folders("machine", "mid", OWNER, 1)
                self.assertEqual(sorted(os.listdir("mid")), sorted(os.listdir("machine")))


class Layers(Machine):
    """All layers, with mounts that are played."""

    def lay(self, machine, as_machine_root=False, **answers):
        """Lays the layers; returns them and the calls for mounts."""
        done = play(self, usr, "linux", **{"mount": None, "open_tree": 77, "move_mount": None,
                                           **answers})
        layers = usr.lay(machine, usr.Tools(STAND_IN, frozenset(["cp"]), ()), OWNER,
                         as_machine_root)
        for descriptor in (layers.lower, layers.middle, layers.upper):
            self.addCleanup(os.close, descriptor)
        return layers, done

    def test_an_ordinary_users_layers_lie_on_the_machines_own_folder(self):
        path = f"{self.here}/machine"
        layers, done = self.lay(usr.Machine(path, -1, False))

        self.assertEqual(done, [
            ("mount", "tmpfs", "mid", "tmpfs", linux.MS_NOSUID | linux.MS_NODEV,
             "size=64m,mode=755"),
            ("mount", "overlay", "merged", "overlay", linux.MS_NODEV,
             f"lowerdir=mid:{path},upperdir=usr,workdir=work,userxattr"),
            ("open_tree", "merged")])
        self.assertEqual((layers.merged, layers.stubbed), (77, {"cp": "/usr/lib/kx-device/cp"}))
        for descriptor, name in ((layers.lower, "machine"), (layers.middle, "mid"),
                                 (layers.upper, "usr")):
            self.assertTrue(os.path.samestat(os.fstat(descriptor), os.stat(name)), name)
        self.assertEqual(os.listdir("mid/share/doc"), [])

    def test_roots_layers_lie_on_a_mount_whose_files_are_roots_already(self):
        os.rmdir("lower")
        os.rename("machine", "lower")
        layers, done = self.lay(usr.Machine("/usr", 55, True), as_machine_root=True)

        self.assertEqual(done[1:], [
            ("move_mount", 55, "lower"),
            ("mount", "overlay", "merged", "overlay", linux.MS_NODEV,
             "lowerdir=mid:lower,upperdir=usr,workdir=work"),
            ("open_tree", "merged")])
        self.assertTrue(os.path.samestat(os.fstat(layers.lower), os.stat("lower")))
        self.assertFalse(os.path.exists("mid/share"))

    def test_the_layer_of_the_stand_ins_belongs_to_root_of_the_panel(self):
        done = play(self, usr, "os", chown=None)
        with mock.patch.object(usr, "_install_tools"):
            self.lay(usr.Machine(f"{self.here}/machine", -1, True))

        self.assertEqual(done, [("chown", "mid", *OWNER)])

    def test_the_machines_folder_may_be_a_link(self):
        os.symlink("machine", "link")
        layers, _ = self.lay(usr.Machine(f"{self.here}/link", -1, True))

        self.assertTrue(os.path.samestat(os.fstat(layers.lower), os.stat("machine")))

    def test_layers_that_cannot_be_mounted_are_told_with_the_remedy(self):
        def mount(kind, *_):
            if kind == "overlay":
                raise OSError(errno.EINVAL, "Invalid argument")

        with self.assertRaises(SandboxError) as raised:
            self.lay(usr.Machine(f"{self.here}/machine", -1, True), mount=mount)
        self.assertEqual(str(raised.exception),
                         "the layers of /usr cannot be mounted (Invalid argument); the kernel "
                         "needs overlay mounts, and --state a plain local file system")

    def test_a_name_that_mounts_cannot_tell_is_refused(self):
        for name in ("a:b", "a,b", "a\\b"):
            with self.assertRaises(SandboxError) as raised:
                self.lay(usr.Machine(f"/{name}", -1, True))
            self.assertEqual(str(raised.exception),
                             f"the name /{name} of /usr holds : , or a backslash")


@unittest.skipUnless(os.geteuid() == 0, "only root gives files away")
class Owners(Machine):
    """The layer of the stand-ins, with files that are given away."""

    def test_all_that_is_made_belongs_to_root_of_the_panel(self):
        owner = (1234, 4321)
        usr._own_folders("machine", "mid", owner, 2)
        usr._install_tools(usr.Tools(STAND_IN, frozenset(["cp"]), ()), "machine", self.here,
                           usr._Middle(owner))

        for path, folders, names in os.walk("mid"):
            for name in (*folders, *names):
                facts = os.lstat(f"{path}/{name}")
                self.assertEqual((facts.st_uid, facts.st_gid), owner, f"{path}/{name}")


if __name__ == "__main__":
    unittest.main()
