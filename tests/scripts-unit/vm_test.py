# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
"""The command line of scripts/vm, and what goes over its socket; the machine is played."""
import contextlib
import os
import pathlib
import socket
import threading
import time
import unittest
from types import SimpleNamespace
from unittest import mock

from kxscripts import vm, vm_image, vm_kernel
from kxscripts.common import Failed
from kxscripts.vm_machine import Ended
from played import InProject


class Played:
    """Stands for the machine: answers with `result`, or raises it."""

    def __init__(self):
        self.made = None
        self.ran = []
        self.result = 0

    @contextlib.contextmanager
    def __call__(self, *words, **named):
        self.made = (words, named)
        yield self

    def execute(self, words, out, err, watched=()):
        """Notes the command and prints its last word."""
        self.ran.append((words, out, err, bool(watched)))
        if isinstance(self.result, BaseException):
            raise self.result
        if watched:
            os.write(out, words[-1].encode())
            os.write(err, b"err")
        return self.result


class Script(InProject):
    """The script, with a machine that is played."""

    def setUp(self):
        super().setUp()
        self.machine = self.patch(vm, "Machine", Played())
        self.kernel = SimpleNamespace()
        self.patch(vm_kernel, "find", lambda: self.kernel)
        self.patch(vm_kernel, "check_computer", lambda: None)
        self.size = 1
        self.added = None
        self.patch(vm_image, "make", self.make)

    def make(self, kernel, added, work):
        """Notes what is added, and makes an archive of some size."""
        self.assertIs(kernel, self.kernel)
        self.added = added
        self.work = work
        archive = work / "initramfs"
        archive.touch()
        os.truncate(archive, self.size)
        return archive

    def vm(self, *words):
        """Starts the script; returns its exit status."""
        return self.main(vm, *words)


class Run(Script):
    """One command in a machine of its own."""

    def test_the_options_become_a_machine_and_the_command_runs_in_it(self):
        file = self.write("file")
        self.machine.result = 42
        self.assertEqual(self.vm("run", "--seconds", "9", "--memory", "100", "--drive", "7",
                                 "--console", "--add", f"{file}", "--add", f"{file}:/x",
                                 "--", "a", "--", "--memory", "b c"), 42)
        self.assertEqual(self.machine.made, ((self.kernel, self.work / "initramfs"),
                                             {"memory": 100, "seconds": 18, "drive": 7,
                                              "console": 2}))
        self.assertEqual(self.machine.ran, [(["a", "--", "--memory", "b c"], 1, 2, False)])
        self.assertEqual(self.added, [(file, str(file)), (file, "/x")])
        self.assertFalse(self.work.exists())
        self.assertEqual((self.out, self.err), ("", ""))

    def test_without_options_a_machine_is_small(self):
        self.assertEqual(self.vm("run", "--", "true"), 0)
        self.assertEqual(self.machine.made[1],
                         {"memory": 256, "seconds": 240, "drive": 0, "console": None})
        self.assertEqual(self.added, [])

    def test_files_that_the_memory_cannot_hold_are_refused(self):
        self.size = 18 << 20
        self.assertEqual(self.vm("run", "--memory", "100", "--", "true"), 0)
        self.size += 1 << 19
        self.assertEqual(self.vm("run", "--memory", "100", "--", "true"), 3)
        self.assertEqual(self.err,
                         "scripts/vm: the files of the virtual machine need --memory 101\n")

    def test_what_goes_wrong_is_told_in_one_way(self):
        for failure in (Ended("it ended"), Failed("it ended"), OSError("it ended")):
            self.machine.result = failure
            self.assertEqual(self.vm("run", "--", "true"), 3)
            self.assertEqual(self.err, "scripts/vm: it ended\n")
        self.patch(vm_kernel, "check_computer", mock.Mock(side_effect=Failed("a wrong one")))
        self.assertEqual(self.vm("run", "--", "true"), 3)
        self.assertEqual(self.err, "scripts/vm: a wrong one\n")

    def test_the_time_is_over_whatever_is_waited_for(self):
        with mock.patch.object(self.machine, "execute", lambda *_: time.sleep(30)):
            self.assertEqual(self.vm("run", "--seconds", "1", "--", "true"), 124)
        self.assertEqual(self.err,
                         "scripts/vm: the time of the virtual machine, 1 seconds, is over\n")

    def test_a_wrong_command_line_is_refused(self):
        for words in ((), ("run",), ("run", "true"), ("run", "--"), ("exec", "--", "x"),
                      ("exec", "socket"), ("serve",), ("serve", "socket", "--", "x"),
                      ("kernel", "--", "x"), ("run", "--memory", "0", "--", "x"),
                      ("run", "--seconds", "-1", "--", "x"), ("run", "--drive", "x", "--", "x"),
                      ("walk", "--", "x")):
            self.assertEqual(self.vm(*words), 2, words)
            self.assertIn("usage: scripts/vm", self.err)
            self.assertIsNone(self.machine.made)

    def test_the_help_tells_the_exit_statuses(self):
        for words in (("--help",), ("run", "--help"), ("serve", "--help"), ("exec", "--help")):
            self.assertEqual(self.vm(*words), 0)
            self.assertIn("124 when the time was over", self.out)
        self.assertIn("exec [-h] SOCKET -- COMMAND...", self.out)


class Kernel(Script):
    """The action that setup asks for."""

    def test_it_fetches_or_only_looks(self):
        fetch = self.patch(vm_kernel, "fetch", mock.Mock())
        self.assertEqual(self.vm("kernel", "--there"), 0)
        fetch.assert_not_called()
        self.assertEqual(self.vm("kernel"), 0)
        fetch.assert_called_once_with()
        self.patch(vm_kernel, "find", mock.Mock(side_effect=Failed("none")))
        self.assertEqual(self.vm("kernel", "--there"), 3)
        self.assertEqual(self.err, "scripts/vm: none\n")


class Serve(Script):
    """One machine for many commands."""

    def setUp(self):
        super().setUp()
        self.socket = self.root / "socket"
        self.status = None

    @contextlib.contextmanager
    def served(self):
        """Serves in another thread, without the time's limit, which is of the first one only."""
        def work():
            try:
                vm.serve(vm.parse(["serve", str(self.socket)]))
            except (Failed, vm.TimeIsOver, OSError) as failure:
                self.status = str(failure)
        self.patch(vm, "time_limit", lambda _: contextlib.nullcontext())
        keeper = threading.Thread(target=work)
        keeper.start()
        until = time.monotonic() + 10
        while not self.socket.exists() and time.monotonic() < until:
            time.sleep(0.01)
        try:
            yield
        finally:
            self.machine.result = Ended("the end")
            with contextlib.suppress(Failed):
                vm.execute(vm.parse(["exec", str(self.socket), "--", "x"]))
            keeper.join(10)
            self.assertFalse(keeper.is_alive())

    def executed(self, *words):
        """A command over the socket: its status, and its two outputs."""
        outputs = [self.root / "out", self.root / "err"]
        with contextlib.ExitStack() as stack:
            files = [stack.enter_context(path.open("wb")) for path in outputs]
            real = socket.send_fds
            with mock.patch("socket.send_fds", lambda keeper, data, _: real(
                    keeper, data, [file.fileno() for file in files])):
                status = self.vm("exec", str(self.socket), "--", *words)
        return status, *(path.read_text(encoding="utf-8") for path in outputs)

    def test_commands_run_one_after_the_other_with_the_callers_outputs(self):
        with self.served():
            self.assertEqual(self.executed("a", "b c"), (0, "b c", "err"))
            self.machine.result = 9
            self.assertEqual(self.executed("ü"), (9, "ü", "err"))
        self.assertEqual([(words, watched) for words, _, _, watched in self.machine.ran],
                         [(["a", "b c"], True), (["ü"], True), (["x"], True)])
        self.assertEqual(self.status, "the end")
        self.assertFalse(self.socket.exists())

    def test_the_descriptors_of_the_callers_do_not_pile_up(self):
        with self.served():
            before = len(os.listdir("/proc/self/fd"))
            for _ in range(5):
                self.executed("a")
            until = time.monotonic() + 10
            while len(os.listdir("/proc/self/fd")) > before and time.monotonic() < until:
                time.sleep(0.01)
            self.assertEqual(len(os.listdir("/proc/self/fd")), before)

    def test_a_caller_that_says_nothing_and_one_that_is_gone_do_no_harm(self):
        with self.served():
            with socket.socket(socket.AF_UNIX, socket.SOCK_SEQPACKET) as caller:
                caller.connect(str(self.socket))
            with socket.socket(socket.AF_UNIX, socket.SOCK_SEQPACKET) as caller:
                caller.connect(str(self.socket))
                caller.send(b'["x"]')
            self.assertEqual(self.executed("a"), (0, "a", "err"))

    def test_the_end_of_the_machine_is_told_to_the_caller_and_by_the_keeper(self):
        for failure in (Ended("a panic"), vm.TimeIsOver("too late")):
            with self.served():
                self.machine.result = failure
                self.assertEqual(self.executed("a")[0], 3)
                self.assertEqual(self.err, f"scripts/vm: {failure}\n")
            self.assertEqual(self.status, str(failure))

    def test_without_a_machine_there_is_no_command(self):
        self.assertEqual(self.vm("exec", str(self.socket), "--", "x"), 3)
        self.assertEqual(self.err, f"scripts/vm: there is no virtual machine behind {self.socket}: "
                                   "[Errno 2] No such file or directory\n")

    def test_a_keeper_that_goes_is_told(self):
        with socket.socket(socket.AF_UNIX, socket.SOCK_SEQPACKET) as listener:
            listener.bind(str(self.socket))
            listener.listen()
            goes = threading.Thread(target=lambda: listener.accept()[0].close())
            goes.start()
            self.assertEqual(self.vm("exec", str(self.socket), "--", "x"), 3)
            goes.join()
        self.assertRegex(self.err, "^scripts/vm: (the virtual machine was ended|there is no virtual "
                                   "machine behind .*)\n$")

    def test_a_socket_that_is_there_is_not_taken_over(self):
        self.socket.touch()
        self.assertEqual(self.vm("serve", str(self.socket)), 3)
        self.assertEqual(self.err, "scripts/vm: [Errno 98] Address already in use\n")
        self.assertTrue(pathlib.Path(self.socket).exists())


if __name__ == "__main__":
    unittest.main()
