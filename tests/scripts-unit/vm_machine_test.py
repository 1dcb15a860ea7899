# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
"""How the virtual machine is spoken to; qemu is played by a program that answers as it is told."""
import contextlib
import os
import pathlib
import socket
import tempfile
import time
import unittest
from types import SimpleNamespace
from unittest import mock

from kxscripts import vm, vm_machine
from kxscripts.vm_machine import Ended, Machine

# The played qemu: its channels by name, and what it does, line by line of Python.
PLAYED = '''#!/usr/bin/python3 -IS
import base64, json, os, socket, sys, time
channels = {}
for word in sys.argv:
    if word.startswith("socket,id="):
        name, number = word[len("socket,id="):].split(",fd=")
        channels[name] = socket.socket(fileno=int(number))
lines = {name: channel.makefile("rb") for name, channel in channels.items()}
def say(name, data):
    channels[name].sendall(data)
def hear(name):
    return lines[name].readline()
def greet():
    say("qmp", b'{"QMP": {}}\\r\\n')
    answer({"return": {}})
def answer(what):
    asked = json.loads(channels["qmp"].recv(65536))
    say("qmp", b'{"event": "X"}\\r\\n' + json.dumps(what).encode() + b"\\r\\n")
    return asked
def command():
    return base64.b64decode(hear("control"))
'''


class Talk(unittest.TestCase):
    """A machine whose qemu is played."""

    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = pathlib.Path(folder.name)
        self.kernel = SimpleNamespace(image=self.folder / "vmlinux")
        path = mock.patch.dict(os.environ, PATH=f"{self.folder}:{os.environ['PATH']}")
        path.start()
        self.addCleanup(path.stop)

    @contextlib.contextmanager
    def machine(self, *lines, drive=0, console=None):
        """A machine that does these lines after its start."""
        program = self.folder / "qemu-system-x86_64"
        program.write_text(PLAYED + "\n".join(lines) + "\n", encoding="utf-8")
        program.chmod(0o755)
        with Machine(self.kernel, self.folder / "initramfs", memory=100, seconds=30, drive=drive,
                     console=console) as machine:
            yield machine

    def executed(self, machine, *words):
        """Runs a command; returns its status and its two outputs."""
        with tempfile.TemporaryFile() as out, tempfile.TemporaryFile() as err:
            status = machine.execute(list(words), out.fileno(), err.fileno())
            out.seek(0)
            err.seek(0)
            return status, out.read(), err.read()

    def expect_ended(self, text, *lines, words=("true",)):
        """A command in a machine that does these lines must find it ended, with this text."""
        with self.assertRaises(Ended) as raised, self.machine(*lines) as machine:
            self.executed(machine, *words)
        self.assertEqual(str(raised.exception), text)

    def test_a_command_goes_in_and_its_outputs_and_status_come_out(self):
        with self.machine('greet()', 'say("control", b"ready\\n")',
                          'say("out", command())', 'say("err", b"\\0\\xff")',
                          'say("control", b"ended 7\\n")',
                          'say("out", command() * 100000)', 'say("control", b"ended 0\\n")',
                          'time.sleep(60)') as machine:
            self.assertEqual(self.executed(machine, "a b", "it's", "\udcff"),
                             (7, b"exec 'a b' 'it'\"'\"'s' '\xff'", b"\0\xff"))
            self.assertEqual(self.executed(machine, "x"), (0, b"exec x" * 100000, b""))

    def test_what_a_command_prints_is_never_taken_for_its_end(self):
        with self.machine('greet()', 'say("control", b"ready\\n")', 'command()',
                          'say("out", b"ended 1\\n")', 'say("err", b"ended 2\\n")',
                          'say("control", b"end")', 'time.sleep(0.2)',
                          'say("out", b"more")', 'say("control", b"ed 3\\n")',
                          'time.sleep(60)') as machine:
            self.assertEqual(self.executed(machine, "x"), (3, b"ended 1\nmore", b"ended 2\n"))

    def test_the_kernel_is_shown_where_that_was_asked_for(self):
        reading, writing = os.pipe()
        with self.machine('say("console", b"booting\\n")', 'greet()', 'say("control", b"ready\\n")',
                          'time.sleep(60)', console=writing):
            self.assertEqual(os.read(reading, 100), b"booting\n")
        os.close(reading)
        os.close(writing)

    def test_a_machine_that_ends_is_told_with_the_end_of_its_console_and_what_qemu_said(self):
        self.expect_ended("the virtual machine has ended by itself:\nlast words\nqemu: gone",
                          'greet()', 'say("control", b"ready\\n")', 'command()',
                          'print("qemu: gone", flush=True)', 'say("console", b"last words\\n")')
        lines = "".join(f"line {number}\n" for number in range(100))
        self.expect_ended(
            "the kernel of the virtual machine panicked:\n" +
            "".join(f"line {number}\n" for number in range(41, 100)) + "Kernel panic - it is",
            'greet()', 'say("control", b"ready\\n")', 'command()',
            f'say("console", {lines!r}.encode() + b"Kernel panic - it is\\n")')

    def test_a_machine_that_cannot_be_started_is_told(self):
        for lines in (('sys.exit("no luck")',), ('channels["qmp"].recv(100)', 'sys.exit("no luck")'),
                      ('say("qmp", b"{}\\n")', 'sys.exit("no luck")')):
            self.expect_ended("qemu-system-x86_64 ended, or could not be started:\nno luck", *lines)

    def test_an_answer_that_makes_no_sense_is_told(self):
        self.expect_ended("the virtual machine did not begin as it should",
                          'greet()', 'say("control", b"hello\\n")', 'time.sleep(60)')
        self.expect_ended("the virtual machine does not answer as it should",
                          'greet()', 'say("control", b"ready\\n")', 'command()',
                          'say("control", b"ready\\n")', 'time.sleep(60)')

    def test_what_was_printed_before_a_panic_is_not_lost(self):
        with tempfile.TemporaryFile() as out, self.assertRaises(Ended):
            with self.machine('greet()', 'say("control", b"ready\\n")', 'command()',
                              'say("out", b"begun")') as machine:
                try:
                    machine.execute(["x"], out.fileno(), out.fileno())
                finally:
                    out.seek(0)
                    self.assertEqual(out.read(), b"begun")

    def test_a_caller_that_goes_ends_the_waiting(self):
        ours, theirs = socket.socketpair()
        with self.assertRaisesRegex(Ended, "^nobody waits for the command any more$"):
            with self.machine('greet()', 'say("control", b"ready\\n")', 'time.sleep(60)') as machine:
                theirs.close()
                machine.execute(["x"], 1, 2, watched=[ours])
        ours.close()

    def test_the_time_is_over_even_where_nobody_takes_the_output(self):
        reading, writing = os.pipe()
        with self.assertRaises(vm.TimeIsOver), vm.time_limit(1):
            with self.machine('greet()', 'say("control", b"ready\\n")', 'command()',
                              'while True: say("out", b"x" * 65536)') as machine:
                machine.execute(["yes"], writing, 2)
        os.close(reading)
        os.close(writing)

    def test_the_drive_is_plugged_in_and_pulled_out(self):
        done = 'say("out", repr(answer({"return": {}})).encode());'
        moves = [f'say("drive", b"{wish}\\n"); {answers} say("out", hear("drive"))'
                 for wish, answers in (("pull", ""), ("plug", done), ("plug", ""), ("pull", done),
                                       ("push", ""))]
        with self.machine('greet()', 'say("control", b"ready\\n")', 'command()', *moves,
                          'say("control", b"ended 0\\n")', 'time.sleep(60)', drive=1) as machine:
            _, out, _ = self.executed(machine, "x")
        self.assertEqual(out.decode(), (
            "it is not plugged in\n"
            "{'execute': 'device_add', 'arguments': {'driver': 'usb-storage', 'id': 'stick', "
            "'drive': 'stick', 'removable': True}}done\n"
            "it is plugged in already\n"
            "{'execute': 'device_del', 'arguments': {'id': 'stick'}}done\n"
            "drive plug and drive pull are what there is\n"))

    def test_a_drive_that_qemu_has_not_let_go_of_is_asked_for_again(self):
        refused = 'answer({"error": {"desc": "in use"}})'
        with self.machine('greet()', 'say("control", b"ready\\n")', 'command()',
                          'say("drive", b"plug\\n")', refused, refused, 'answer({"return": {}})',
                          'say("out", hear("drive"))', 'say("control", b"ended 0\\n")',
                          'time.sleep(60)', drive=1) as machine:
            self.assertEqual(self.executed(machine, "x"), (0, b"done\n", b""))
        with mock.patch.object(vm_machine, "LETTING_GO", 0.01), self.machine(
                'greet()', 'say("control", b"ready\\n")', 'command()',
                'say("drive", b"plug\\n")', refused, refused,
                'say("out", hear("drive"))', 'say("control", b"ended 0\\n")',
                'time.sleep(60)', drive=1) as machine:
            self.assertEqual(self.executed(machine, "x"), (0, b"in use\n", b""))

    def test_a_machine_without_a_drive_says_so(self):
        with self.machine('greet()', 'say("control", b"ready\\n")', 'command()',
                          'say("drive", b"plug\\n")', 'say("out", hear("drive"))',
                          'say("control", b"ended 0\\n")', 'time.sleep(60)') as machine:
            self.assertEqual(self.executed(machine, "x"),
                             (0, b"this machine was started without a drive\n", b""))

    def test_the_end_of_the_body_ends_qemu(self):
        with self.machine('greet()', f'open("{self.folder}/pid", "w").write(str(os.getpid()))',
                          'say("control", b"ready\\n")', 'time.sleep(60)'):
            number = int((self.folder / "pid").read_text(encoding="utf-8"))
            os.kill(number, 0)
        for _ in range(100):
            with contextlib.suppress(ChildProcessError):
                os.waitpid(number, os.WNOHANG)
            if not os.path.exists(f"/proc/{number}"):
                break
            time.sleep(0.05)
        self.assertFalse(os.path.exists(f"/proc/{number}"))


class CommandLine(unittest.TestCase):
    """What qemu is asked for."""

    def test_qemu_plays_the_processor_and_has_nothing_of_this_computer(self):
        machine = Machine(SimpleNamespace(image=pathlib.Path("/k")), pathlib.Path("/a"), memory=64,
                          seconds=9)
        self.assertEqual(
            machine.command({"console": 5, "control": 7}, None),
            ["prlimit", "--core=0", "--cpu=9", f"--as={(64 + 128 + 2048) << 20}", "--",
             "qemu-system-x86_64", "-accel", "tcg,tb-size=128", "-machine", "pc", "-cpu", "qemu64",
             "-m", "64", "-nodefaults", "-no-user-config", "-nic", "none", "-display", "none",
             "-no-reboot", "-sandbox", "on,obsolete=deny,elevateprivileges=deny,spawn=deny",
             "-kernel", "/k", "-initrd", "/a", "-append",
             "console=ttyS0 quiet panic=-1 oops=panic mitigations=off nokaslr nowatchdog audit=0 "
             "apparmor=0 random.trust_cpu=on",
             "-device", "virtio-serial", "-chardev", "socket,id=console,fd=5",
             "-chardev", "socket,id=control,fd=7", "-serial", "chardev:console",
             "-mon", "chardev=qmp,mode=control",
             "-device", "virtserialport,chardev=control,name=kx.control",
             "-device", "virtserialport,chardev=out,name=kx.out",
             "-device", "virtserialport,chardev=err,name=kx.err",
             "-device", "virtserialport,chardev=drive,name=kx.drive"])

    def test_the_drive_is_memory_that_is_handed_over(self):
        machine = Machine(SimpleNamespace(image=pathlib.Path("/k")), pathlib.Path("/a"), memory=64,
                          seconds=9, drive=32)
        words = machine.command({}, 8)
        self.assertIn(f"--as={(64 + 32 + 128 + 2048) << 20}", words)
        self.assertEqual(words[-6:], ["-device", "qemu-xhci", "-add-fd", "fd=8,set=1", "-blockdev",
                                      "driver=file,node-name=stick,filename=/dev/fdset/1,"
                                      "locking=off"])



if __name__ == "__main__":
    unittest.main()
