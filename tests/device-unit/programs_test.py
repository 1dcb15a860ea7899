# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
"""What a program is for, whose it is, and whether it can run."""

import errno
import os
import struct
import sys
import tempfile
import unittest
from unittest import mock

from kxdevice import linux, programs

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "support"))
import tiny_program  # noqa: E402 pylint: disable=wrong-import-position,import-error

ARM = programs.KINDS["arm"][0]
BIG = programs.Kind(True, True, 22)


class Elf(unittest.TestCase):
    """The head of a file tells its processor and its loader; whatever else it holds does no harm."""

    def setUp(self):
        self.file = tempfile.TemporaryFile()
        self.addCleanup(self.file.close)

    def read(self, data):
        """Returns what a file with these bytes tells."""
        self.file.seek(0)
        self.file.truncate()
        self.file.write(data)
        self.file.flush()
        return programs.read_elf(self.file.fileno())

    def test_each_processor_is_known(self):
        for name, (kind, _) in programs.KINDS.items():
            for loader in ("", "/lib/ld-none.so.1"):
                elf = self.read(tiny_program.program(name, 7, loader))
                self.assertEqual((elf.kind, elf.processor(), elf.loader),
                                 (kind, name, loader.encode()))
        self.assertEqual(self.read(tiny_program.program("arm", 7)).flags, 0x05000200)
        self.assertEqual(self.read(tiny_program.program("none", 7)).processor(),
                         "another processor")

    def test_the_other_byte_order_is_read(self):
        head = (b"\x7fELF\2\2\1" + bytes(9) + struct.pack(">HHIQQQIHHHHHH", 2, 22, 1, 0, 64, 0, 5,
                                                          64, 56, 1, 0, 0, 0))
        loader = head + struct.pack(">II6Q", 3, 4, 120, 0, 0, 5, 5, 1) + b"/ld\0x"

        self.assertEqual(self.read(loader), programs.Elf(BIG, 5, b"/ld"))

    def test_what_is_no_program_is_none(self):
        for data in (b"", b"\x7fEL", b"#!/bin/sh\n", b"\x7fELF" + bytes(100),
                     b"\x7fELF\3\1" + bytes(100), b"\x7fELF\1\3" + bytes(100),
                     tiny_program.program("arm", 7)[:47], tiny_program.program("x86_64", 7)[:59]):
            self.assertIsNone(self.read(data), data)

    def test_a_damaged_table_tells_no_loader(self):
        whole = tiny_program.program("x86_64", 7, "/ld")
        for place, value in ((32, struct.pack("<Q", 1 << 63)), (32, struct.pack("<Q", 1 << 40)),
                             (54, struct.pack("<H", 0)), (54, struct.pack("<H", 55)),
                             (56, struct.pack("<H", 0)), (64 + 8, struct.pack("<Q", 1 << 63))):
            damaged = whole[:place] + value + whole[place + len(value):]
            self.assertEqual(self.read(damaged).loader, b"", (place, value))
        many = whole[:56] + struct.pack("<H", 0xffff) + whole[58:]
        self.assertEqual(self.read(many).loader, b"/ld")

    def test_a_loaders_path_has_a_longest(self):
        whole = tiny_program.program("x86_64", 7, "/" + "x" * 9000)
        self.assertEqual(len(self.read(whole).loader), 4096)

    def test_a_script_names_its_interpreter_in_its_first_line(self):
        for text, path in ((b"#!/bin/sh\n", b"/bin/sh"), (b"#! /bin/sh -e\nx", b"/bin/sh"),
                           (b"#!x", b"x"), (b"#!\n/bin/sh", b""), (b"#! ", b""), (b"x#!/y", b""),
                           (b"", b""), (b"#!/" + b"x" * 400, b"/" + b"x" * 253)):
            self.read(text)
            self.assertEqual(programs.read_interpreter(self.file.fileno()), path)


class Look(unittest.TestCase):
    """A start is told when it is one of the panel's own programs."""

    def setUp(self):
        self.here = os.path.realpath(tempfile.mkdtemp())
        self.addCleanup(lambda: __import__("shutil").rmtree(self.here))
        self.changed = os.open(self.here, os.O_RDONLY)
        self.addCleanup(os.close, self.changed)
        self.programs = programs.Programs(self.changed, ["/usr/shared"])
        self.addCleanup(os.close, self.programs.root)
        self.started = []
        patch = mock.patch.object(programs, "starts", lambda elf: self.started.append(elf))
        patch.start()
        self.addCleanup(patch.stop)
        registers = mock.patch.object(self.programs, "_register", lambda: False)
        registers.start()
        self.addCleanup(registers.stop)

    def put(self, name, data=tiny_program.program("arm", 0), mode=0o755):
        """Makes a file; returns its path."""
        path = f"{self.here}/{name}"
        with open(path, "wb") as file:
            file.write(data)
        os.chmod(path, mode)
        return path.encode()

    def look(self, path):
        """Returns what is told of a start by this process, which leaves nothing open."""
        before = len(os.listdir("/proc/self/fd"))
        told = self.programs.look(os.getpid(), path)
        self.assertEqual(len(os.listdir("/proc/self/fd")), before)
        return told

    def test_a_program_is_told_with_its_processor(self):
        path = self.put("app")

        self.assertEqual(self.look(path), (path, b"arm", b"no", b""))

    def test_links_relative_names_and_scripts_lead_to_it(self):
        path = self.put("app")
        os.symlink("app", f"{self.here}/link")
        script = self.put("script", b"#!" + path + b" -x\n")
        twice = self.put("twice", b"#!" + script)

        told = (path, b"arm", b"no", b"")
        before = os.getcwd()
        os.chdir(self.here)
        self.addCleanup(os.chdir, before)
        for name in (f"{self.here}/link".encode(), b"link", b"./app", script, twice):
            self.assertEqual(self.look(name), told, name)

    def test_scripts_for_scripts_have_an_end(self):
        self.put("loop", b"#!" + self.here.encode() + b"/loop")

        self.assertIsNone(self.look(f"{self.here}/loop".encode()))

    def test_what_cannot_be_started_anyway_is_not_told(self):
        os.mkfifo(f"{self.here}/fifo", 0o755)
        os.mkdir(f"{self.here}/folder")
        for path in (self.put("plain", mode=0o644), self.put("text", b"echo x\n"),
                     self.put("lost", b"#!/nowhere/x\n"), f"{self.here}/fifo".encode(),
                     f"{self.here}/folder".encode(), b"/nowhere", b"", b"x" * 5000):
            self.assertIsNone(self.look(path), path)
        self.assertIsNone(self.programs.look((1 << 22) + 1, b"relative"))

    def test_links_of_proc_lead_nowhere(self):
        file = os.open(self.put("app"), os.O_RDONLY)
        self.addCleanup(os.close, file)

        for path in (f"/proc/self/fd/{file}", "/proc/self/exe", f"/proc/self/root{self.here}/app"):
            self.assertIsNone(self.look(path.encode()), path)

    def test_the_machines_own_programs_are_not_told(self):
        is_own = self.programs._is_own

        self.assertIsNone(self.look(b"/bin/cat"))
        self.put("app")
        self.assertTrue(is_own(b"/usr/app"))  # that folder holds what differs from /usr
        self.assertTrue(is_own(b"/usrx"))
        for path in (b"/usr/other", b"/usr/shared", b"/usr/shared/app"):
            self.assertFalse(is_own(path), path)
        os.mkdir(f"{self.here}/folder")
        self.assertFalse(is_own(b"/usr/folder"))

    def test_a_loader_that_is_not_there_is_told(self):
        loader = self.put("loader")
        for path, missing in ((loader, b""), (b"/nowhere/ld", b"/nowhere/ld")):
            app = self.put("app", tiny_program.program("arm", 0, path.decode()))
            self.assertEqual(self.look(app), (app, b"arm", b"no", missing))

    def test_the_machines_own_processor_needs_no_trial(self):
        native = linux.machine()
        path = self.put("app", tiny_program.program(native, 0))

        self.assertEqual(self.look(path)[1:3], (native.encode(), b"yes"))
        self.assertEqual(self.started, [])

    def test_another_processor_is_tried_once(self):
        path = self.put("app")
        self.look(path)
        self.look(path)

        self.assertEqual([elf.kind for elf in self.started], [ARM])


class Registering(unittest.TestCase):
    """Emulators are registered when the first program asks for one."""

    def setUp(self):
        self.made = programs.Programs(-1, [])
        self.addCleanup(os.close, self.made.root)
        self.here = tempfile.mkdtemp()
        self.addCleanup(lambda: __import__("shutil").rmtree(self.here))
        self.register = f"{self.here}/register"
        with open(self.register, "xb"):
            pass
        self.elf = programs.Elf(ARM, 0, b"")
        self.answers = []
        self.mounts = []
        self.emulators = [(ARM, "/usr/bin/qemu-arm"), (BIG, "")]

    def can_run(self):
        """Asks for a program for arm; starts answer as told."""
        def mounted(kind):
            self.mounts.append(kind)
            if self.mounts == ["refuse"] or self.mounts[0] is None:
                raise OSError(errno.EPERM, "no")
            return os.open(self.here, os.O_RDONLY)
        with mock.patch.object(programs, "starts", lambda _: self.answers.pop(0)), \
                mock.patch.object(programs, "_emulators", lambda: self.emulators), \
                mock.patch.object(linux, "machine", lambda: "x86_64"), \
                mock.patch.object(linux, "mount_detached", mounted):
            return self.made._can_run(self.elf)

    def test_what_the_machine_runs_needs_none(self):
        self.answers = [True]

        self.assertIs(self.can_run(), True)
        self.assertEqual(self.mounts, [])

    def test_an_emulator_is_registered_and_tried(self):
        self.answers = [False, True]

        self.assertIs(self.can_run(), True)
        self.assertEqual(self.mounts, ["binfmt_misc"])
        with open(self.register, "rb") as file:
            self.assertEqual(file.read(), programs.entry(ARM, "/usr/bin/qemu-arm"))
        self.assertIs(self.can_run(), True)  # without a further trial
        os.close(self.made.registered)

    def test_what_the_machine_has_registered_is_asked_for_anew(self):
        self.made.can_run = {BIG: True}
        self.answers = [False, True]
        self.can_run()

        self.assertEqual(self.made.can_run, {ARM: True})
        os.close(self.made.registered)

    def test_without_emulators_nothing_is_mounted(self):
        self.emulators = [(ARM, "")]
        self.answers = [False]

        self.assertIs(self.can_run(), False)
        self.assertEqual(self.mounts, [])

    def test_a_kernel_that_gives_no_list_of_its_own_is_no_error(self):
        self.mounts = [None]
        self.answers = [False]

        self.assertIs(self.can_run(), False)
        self.assertEqual(self.mounts, [None, "binfmt_misc"])

    def test_an_emulator_that_cannot_be_registered_shows_when_it_is_tried(self):
        os.unlink(self.register)
        self.answers = [False, False]

        self.assertIs(self.can_run(), False)
        os.close(self.made.registered)

    def test_the_line_for_the_kernel_fits_all_programs_of_the_kind_alone(self):
        self.assertEqual(
            programs.entry(ARM, "/usr/bin/qemu-arm-static"),
            rb":qemu-arm-static:M::"
            rb"\x7f\x45\x4c\x46\x01\x01\x01\x00\x00\x00\x00\x00\x00\x00\x00\x00\x02\x00\x28\x00:"
            rb"\xff\xff\xff\xff\xff\xff\xff\x00\x00\x00\x00\x00\x00\x00\x00\x00\xfe\xff\xff\xff:"
            rb"/usr/bin/qemu-arm-static:PF")
        self.assertIn(rb"\x00\x02\x00\x16:", programs.entry(BIG, "/q"))
        self.assertIn(rb"\xff\xfe\xff\xff:", programs.entry(BIG, "/q"))

    def test_emulators_are_those_of_the_machine_the_static_one_first(self):
        with mock.patch.object(programs, "EMULATOR_FOLDER", self.here), \
                mock.patch.object(linux, "machine", lambda: "x86_64"):
            for name in ("qemu-arm", "qemu-riscv64", "qemu-riscv64-static", "qemu-x86_64"):
                with open(f"{self.here}/{name}", "xb"):
                    pass
                os.chmod(f"{self.here}/{name}", 0o755)
            os.chmod(f"{self.here}/qemu-arm", 0o755)
            found = {kind.machine: os.path.basename(path)
                     for kind, path in programs._emulators()}

        self.assertEqual(found, {183: "", 40: "qemu-arm", 3: "", 243: "qemu-riscv64-static"})


class Starts(unittest.TestCase):
    """Whether a machine starts programs of a kind is found by an empty one."""

    def test_its_own_start_and_unknown_ones_do_not(self):
        before = len(os.listdir("/proc/self/fd"))
        for name, is_started in ((linux.machine(), True), ("none", False)):
            with tempfile.TemporaryFile() as file:
                file.write(tiny_program.program(name, 0))
                file.flush()
                elf = programs.read_elf(file.fileno())
            self.assertIs(programs.starts(elf), is_started, name)
        self.assertEqual(len(os.listdir("/proc/self/fd")), before)
        with self.assertRaises(ChildProcessError):
            os.waitpid(-1, os.WNOHANG)

    def test_the_empty_program_is_one_of_that_kind(self):
        for kind in (*(kind for kind, _ in programs.KINDS.values()), BIG):
            with tempfile.TemporaryFile() as file:
                file.write(programs.smallest(programs.Elf(kind, 77, b"")))
                file.flush()
                self.assertEqual(programs.read_elf(file.fileno()), programs.Elf(kind, 77, b""))

    def test_a_machine_that_gives_no_room_starts_nothing(self):
        elf = programs.Elf(ARM, 0, b"")
        for name in ("memfd_create", "pipe2", "fork"):
            with mock.patch.object(os, name, side_effect=OSError(errno.ENOMEM, "no")):
                before = len(os.listdir("/proc/self/fd"))
                self.assertIs(programs.starts(elf), False)
                self.assertEqual(len(os.listdir("/proc/self/fd")), before)


if __name__ == "__main__":
    unittest.main()
