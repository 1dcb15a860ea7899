# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
"""What is asked of the kernel, call by call, and what it shows of a process."""

import ctypes
import errno
import io
import os
import signal
import struct
import subprocess
import sys
import unittest
from types import SimpleNamespace
from unittest import mock

from kxdevice import linux
from played import play

FORGET = """\
import os
from kxdevice import linux
linux.forget_command_line("kx-device")
for name in ("cmdline", "environ"):
    with open(f"/proc/self/{name}", "rb") as file:
        print(file.read().rstrip(b"\\0"))
print(dict(os.environ))
"""


class CommandLine(unittest.TestCase):
    """The arguments and the environment of a process are overwritten where the kernel has them."""

    def test_only_the_new_name_is_left(self):
        seen = subprocess.run([sys.executable, "-c", FORGET, "secret"], check=True,
                              env={**os.environ, "SECRET": "caller"}, stdout=subprocess.PIPE)

        self.assertEqual(seen.stdout, b"b'kx-device'\nb''\n{}\n")


def plain(name, arguments):
    """Returns the arguments of a call of the C library as plain values, structures whole."""
    sizes = {}
    if name == "capset":
        sizes = {0: 8, 1: 24}
    elif name == "syscall" and getattr(arguments[0], "value", 0) in (437, 442):
        sizes = {len(arguments) - 2: arguments[-1].value}
    return [ctypes.string_at(value, sizes[at]) if at in sizes else getattr(value, "value", value)
            for at, value in enumerate(arguments)]


class Errors(unittest.TestCase):
    """What the kernel really refuses."""

    def test_its_number_arrives(self):
        for action, number in ((lambda: linux.prctl(9999), errno.EINVAL),
                               (lambda: linux.open_inside("no/such"), errno.ENOENT),
                               (lambda: linux.open_inside("no", 9999), errno.EBADF)):
            with self.assertRaises(OSError) as raised:
                action()
            self.assertEqual(raised.exception.errno, number)


class Calls(unittest.TestCase):
    """Every call of the C library is played."""

    def setUp(self):
        self.done = []
        self.error = 0
        names = ("unshare", "setns", "prctl", "mount", "umount2", "syscall", "capset")
        library = SimpleNamespace(**{name: self.call(name) for name in names})
        patch = mock.patch.object(linux, "_LIBC", library)
        patch.start()
        self.addCleanup(patch.stop)
        patch = mock.patch.object(linux, "machine", lambda: "x86_64")
        patch.start()
        self.addCleanup(patch.stop)

    def call(self, name):
        """Plays a function of the library, which fails with self.error."""
        def played(*arguments):
            self.done.append((name, *plain(name, arguments)))
            ctypes.set_errno(self.error)
            return -1 if self.error else 7
        return played if name == "syscall" else lambda *words: min(played(*words), 0)

    def test_each_is_made_with_its_arguments_and_fails_with_its_name(self):
        prctl = ("prctl", 24, 5, 6, 0, 0)
        how = struct.pack("=QQQ", os.O_PATH | os.O_DIRECTORY | os.O_CLOEXEC, 0, 0x12)
        for action, call, text in (
                (lambda: linux.unshare(0x20000), ("unshare", 0x20000), "unshare"),
                (lambda: linux.setns(3, 0x10000000), ("setns", 3, 0x10000000), "setns"),
                (lambda: linux.prctl(24, 5, 6), prctl, "prctl"),
                (lambda: linux.mount("a", "/b", "tmpfs", 5, "c=d"),
                 ("mount", b"a", b"/b", b"tmpfs", 5, b"c=d"), "mount tmpfs at /b"),
                (lambda: linux.mount("a", "/b", None), ("mount", b"a", b"/b", None, 0, None),
                 "mount a at /b"),
                (lambda: linux.umount("/\udcff", 2), ("umount2", b"/\xff", 2), "umount /\udcff"),
                (lambda: linux.pivot_root("a", "b"), ("syscall", 155, b"a", b"b"), "pivot_root"),
                (lambda: linux.open_tree("a"), ("syscall", 428, -100, b"a", 0x80001), "open_tree"),
                (lambda: linux.open_tree("", 0x1001, 9), ("syscall", 428, 9, b"", 0x81001),
                 "open_tree"),
                (lambda: linux.open_inside("/a"), ("syscall", 437, -100, b"/a", how, 24),
                 "openat2"),
                (lambda: linux.open_inside("/a", 9), ("syscall", 437, 9, b"/a", how, 24),
                 "openat2"),
                (lambda: linux.move_mount(9, "/a"), ("syscall", 429, 9, b"", -100, b"/a", 4),
                 "move_mount"),
                (lambda: linux.move_mount(9, "a", 8), ("syscall", 429, 9, b"", 8, b"a", 4),
                 "move_mount"),
                (lambda: linux.mount_setattr(9, 5),
                 ("syscall", 442, 9, b"", 0x1000, struct.pack("=QQQQ", 5, 0, 0, 0), 32),
                 "mount_setattr"),
                (lambda: linux.mount_setattr(9, 5, True, 8),
                 ("syscall", 442, 9, b"", 0x9000, struct.pack("=QQQQ", 0x100005, 0, 0, 8), 32),
                 "mount_setattr"),
                (linux.join_own_keyring, ("syscall", 250, 1, 0, 0, 0, 0), "keyctl")):
            with self.subTest(call):
                self.done.clear()
                self.error = 0
                result = action()
                self.assertEqual(self.done, [call])
                if text in ("open_tree", "openat2"):
                    self.assertEqual(result, 7)
                self.error = errno.EPERM
                with self.assertRaises(PermissionError) as raised:
                    action()
                self.assertEqual(raised.exception.strerror, f"{text}: Operation not permitted")

    def test_a_kernel_without_keyrings_has_none_to_leave(self):
        self.error = errno.ENOSYS
        linux.join_own_keyring()

        self.assertEqual(len(self.done), 1)

    def test_all_rights_but_those_that_are_kept_are_dropped_for_good(self):
        linux.keep_capabilities((0, 5, 33))
        calls = [("prctl", 47, 4, 0, 0, 0)] + [
            ("prctl", 24, number, 0, 0, 0) for number in range(64) if number not in (0, 5, 33)]

        self.assertEqual(self.done[:-1], calls)
        self.assertEqual(self.done[-1], ("capset", struct.pack("=Ii", 0x20080522, 0), struct.pack(
            "=IIIIII", 0b100001, 0b100001, 0, 2, 2, 0)))

    def test_the_last_right_of_the_kernel_ends_the_dropping(self):
        def prctl(option, number=0, *_):
            if option == linux.PR_CAPBSET_DROP and number == 41:
                raise OSError(self.number, "no")
            calls.append(number)
        for self.number, capset in ((errno.EINVAL, 1), (errno.EPERM, 0)):
            calls = []
            self.done.clear()
            with mock.patch.object(linux, "prctl", prctl):
                try:
                    linux.keep_capabilities((0,))
                except PermissionError:
                    self.assertEqual(self.number, errno.EPERM)
            self.assertEqual((calls, len(self.done)), ([4, *range(1, 41)], capset))

    def test_rights_that_cannot_be_dropped_are_told(self):
        self.error = errno.EPERM
        with mock.patch.object(linux, "prctl"), self.assertRaises(PermissionError) as raised:
            linux.keep_capabilities((0,))

        self.assertEqual(raised.exception.strerror, "capset: Operation not permitted")

    def test_the_ends_of_children_are_noticed_again(self):
        done = play(self, linux, "signal", signal=None, pthread_sigmask=None)
        linux.expect_children()

        self.assertEqual(done, [("signal", signal.SIGCHLD, signal.SIG_DFL),
                                ("pthread_sigmask", signal.SIG_UNBLOCK, [signal.SIGCHLD])])


class Listener(unittest.TestCase):
    """The kernel's filter of program starts, run here like the kernel does."""

    def installed(self, processor, error=0):
        """Returns the calls and the lines of the filter for a processor."""
        calls, programs = [], []

        def syscall(name, mode, flags, fprog):
            calls.append((name, mode, flags))
            program = fprog._obj
            programs.append(ctypes.string_at(program.filter, program.length * 8))
            if error and flags == 0x28:
                raise OSError(error, "no")
            return 9
        with mock.patch.object(linux, "machine", lambda: processor), \
                mock.patch.object(linux, "_syscall", syscall):
            self.assertEqual(linux.install_exec_listener(), 9)
        return calls, list(struct.iter_unpack("=HBBI", programs[0]))

    @staticmethod
    def verdict(lines, audit, number):
        """Runs the filter for one system call of a processor."""
        at, loaded = 0, 0
        while True:
            code, yes, no, value = lines[at]
            if code == 0x06:
                return value
            if code == 0x20:
                loaded = {0: number, 4: audit}[value]
            else:
                at += yes if loaded == value else no
            at += 1

    def test_only_program_starts_of_the_own_processor_are_told(self):
        told, allowed = 0x7FC00000, 0x7FFF0000
        for processor, audit, execve, execveat in (("x86_64", 0xC000003E, 59, 322),
                                                   ("aarch64", 0xC00000B7, 221, 281)):
            _, lines = self.installed(processor)
            for number in (execve, execveat):
                self.assertEqual(self.verdict(lines, audit, number), told)
                self.assertEqual(self.verdict(lines, audit + 1, number), allowed)
            for number in (0, 1, execve + 1, execveat - 1):
                self.assertEqual(self.verdict(lines, audit, number), allowed)

    def test_kernels_that_cannot_wait_unkilled_are_asked_for_less(self):
        self.assertEqual(self.installed("x86_64")[0], [("seccomp", 1, 0x28)])
        self.assertEqual(self.installed("x86_64", errno.EINVAL)[0],
                         [("seccomp", 1, 0x28), ("seccomp", 1, 0x8)])
        with self.assertRaises(PermissionError):
            self.installed("x86_64", errno.EPERM)


class Numbers(unittest.TestCase):
    """The numbers of the kernel's own headers."""

    def test_system_calls_differ_between_processors(self):
        names = ("pivot_root", "keyctl", "seccomp", "execve", "execveat", "audit", "open_tree",
                 "move_mount", "mount_setattr", "openat2")
        late = (428, 429, 442, 437)
        for processor, numbers in (
                ("x86_64", (155, 250, 317, 59, 322, 0xC000003E)),
                ("i386", (217, 288, 354, 11, 358, 0x40000003)),
                ("arm", (218, 311, 383, 11, 387, 0x40000028)),
                ("aarch64", (41, 219, 277, 221, 281, 0xC00000B7)),
                ("riscv64", (41, 219, 277, 221, 281, 0xC00000F3))):
            with mock.patch.object(linux, "machine", lambda processor=processor: processor):
                self.assertEqual(tuple(map(linux.number, names)), (*numbers, *late), processor)

    def test_an_unknown_processor_is_told_with_the_remedy(self):
        with mock.patch.object(linux, "machine", lambda: "mips"), \
                self.assertRaises(linux.SandboxError) as raised:
            linux.number("keyctl")

        self.assertEqual(str(raised.exception), "processor mips is unknown to the sandbox; "
                         "add its system call numbers to kxdevice/linux.py")

    def test_programs_of_32_bits_have_the_numbers_of_their_kind(self):
        for size, name, wanted in (
                (4, "x86_64", "i386"), (4, "i486", "i386"), (4, "i586", "i386"),
                (4, "i686", "i386"), (4, "aarch64", "arm"), (4, "armv7l", "arm"),
                (4, "riscv32", "riscv32"), (8, "x86_64", "x86_64"), (8, "aarch64", "aarch64")):
            play(self, linux, "os", uname=SimpleNamespace(machine=name))
            play(self, linux, "struct", calcsize=size)
            self.assertEqual(linux.machine(), wanted)

    def test_flags_are_the_kernels(self):
        for names, values in (
                ("CLONE_NEWNS CLONE_NEWCGROUP CLONE_NEWUTS CLONE_NEWIPC CLONE_NEWUSER CLONE_NEWPID "
                 "CLONE_NEWNET", (1 << 17, 1 << 25, 1 << 26, 1 << 27, 1 << 28, 1 << 29, 1 << 30)),
                ("MS_RDONLY MS_NOSUID MS_NODEV MS_NOEXEC MS_REMOUNT MS_BIND MS_REC MS_PRIVATE",
                 (1, 2, 4, 8, 32, 4096, 16384, 1 << 18)),
                ("MNT_DETACH UMOUNT_NOFOLLOW AT_FDCWD AT_EMPTY_PATH AT_RECURSIVE OPEN_TREE_CLONE "
                 "MOVE_MOUNT_F_EMPTY_PATH", (2, 8, -100, 4096, 32768, 1, 4)),
                ("MOUNT_ATTR_RDONLY MOUNT_ATTR_NOSUID MOUNT_ATTR_NODEV MOUNT_ATTR_IDMAP",
                 (1, 2, 4, 1 << 20)),
                ("PR_SET_PDEATHSIG PR_SET_DUMPABLE PR_CAPBSET_DROP PR_SET_NO_NEW_PRIVS "
                 "PR_CAP_AMBIENT PR_CAP_AMBIENT_CLEAR_ALL", (1, 4, 24, 38, 47, 4))):
            self.assertEqual(tuple(getattr(linux, name) for name in names.split()), values)


class Texts(unittest.TestCase):
    """Errors in words, and whose ids the caller has."""

    def test_an_error_is_told_without_its_number(self):
        for error, text in (
                (OSError(2, "No such file"), "No such file"),
                (OSError(2, "No such file", "/x"), "/x: No such file"),
                (OSError("only words"), "only words"),
                (linux.SandboxError("no room"), "no room"), (ValueError("x"), "x")):
            self.assertEqual(linux.reason(error), text)

    def test_the_first_namespace_of_users_has_all_ids(self):
        for text, first in (
                ("         0          0 4294967295\n", True), ("0 0 4294967294\n", False),
                ("0 1000 1\n", False), ("0 0 1\n1 1 4294967294\n", False)):
            def fake_open(path, text=text, **_):
                return io.StringIO({"/proc/self/uid_map": text}[path])
            with mock.patch.object(linux, "open", fake_open, create=True):
                self.assertEqual(linux.is_first_user_namespace(), first)


if __name__ == "__main__":
    unittest.main()
