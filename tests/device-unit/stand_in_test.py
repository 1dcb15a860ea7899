# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
"""What stands for a tool of the panel asks the supervisor, which is played, and does as it says."""

import importlib.machinery
import importlib.util
import os
import signal
import socket
import subprocess
import tempfile
import threading
import unittest
from unittest import mock

from played import Ended, end, play

HOME = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))


def load():
    """Returns the program as a module, without running it."""
    loader = importlib.machinery.SourceFileLoader("stand_in", f"{HOME}/device/bin/stand-in")
    spec = importlib.util.spec_from_loader("stand_in", loader)
    module = importlib.util.module_from_spec(spec)
    with mock.patch("sys.dont_write_bytecode", True):
        loader.exec_module(module)
    return module


class Calls(unittest.TestCase):
    """One call of a tool on a panel whose supervisor answers as told."""

    def setUp(self):
        self.stand_in = load()
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.stand_in.MARKER = f"{folder.name}/marker"
        self.stand_in.ADDRESS = f"{folder.name}/address".encode()
        os.close(os.open(self.stand_in.MARKER, os.O_CREAT))
        self.heard = []

    def answer(self, *pieces):
        """Answers one call in pieces; the call is then in self.heard."""
        server = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
        self.addCleanup(server.close)
        server.bind(self.stand_in.ADDRESS)
        server.listen()

        def serve():
            client, _ = server.accept()
            client.settimeout(10)
            data = b""
            while len(data) < 4 or len(data) < 4 + int.from_bytes(data[:4], "big"):
                data += client.recv(1 << 20)
            self.heard.append(data)
            for piece in pieces:
                client.sendall(piece)
            client.close()
        thread = threading.Thread(target=serve)
        thread.start()
        self.addCleanup(thread.join, 10)

    def call(self, *words, fails=()):
        """Calls the tool; returns its status and what it wrote, by descriptor; writing to the
        descriptors in fails is not possible."""
        written = {1: b"", 2: b""}

        def write(descriptor, data):
            if descriptor in fails:
                raise OSError(28, "full")
            part = data[:1000]
            written[descriptor] += part
            return len(part)
        self.done = play(self, self.stand_in, "os", write=write, _exit=end,
                         execv=lambda *_: end("run"))
        with mock.patch.object(self.stand_in.sys, "argv", list(words)), \
                self.assertRaises(Ended) as ended:
            self.stand_in.main()
        return ended.exception.status, written[1], written[2]

    def test_the_call_is_told_byte_by_byte_and_the_answer_is_written(self):
        self.answer(b"exit\0", b"3\0out\xff", b"\0err")
        self.assertEqual(self.call("/usr/bin/tool", "a b", "", "\udcff"), (3, b"out\xff", b"err"))

        self.assertEqual(self.heard, [b"\0\0\0\x0btool\0a b\0\0\xff"])

    def test_long_words_are_told_and_written_whole(self):
        long = b"x" * (3 << 20)
        self.answer(b"exit\x000\0" + b"y" * 200000, b"\0" + b"z" * 3000)
        status, out, err = self.call("tool", long.decode())

        self.assertEqual(self.heard[0][4:], b"tool\0" + long)
        self.assertEqual((status, out, err), (0, b"y" * 200000, b"z" * 3000))

    def test_words_that_cannot_be_written_make_a_success_a_failure(self):
        for fails, status, wanted in (((1,), b"0", 1), ((1,), b"5", 5), ((2,), b"0", 0),
                                      ((1, 2), b"0", 1)):
            self.answer(b"exit\0" + status + b"\0out\0err")
            self.assertEqual(self.call("tool", fails=fails)[0], wanted)
            os.unlink(self.stand_in.ADDRESS)
        self.answer(b"exit\x000\0\0err")
        self.assertEqual(self.call("tool", fails=(1,)), (0, b"", b"err"))

    def test_the_real_tool_is_run_with_the_words_and_usual_signals(self):
        before = signal.getsignal(signal.SIGPIPE)
        self.addCleanup(signal.signal, signal.SIGPIPE, before)
        self.answer(b"run\0/usr/lib/real/tool")
        self.assertEqual(self.call("/usr/bin/tool", "a", "b"), ("run", b"", b""))

        self.assertEqual([step for step in self.done if step[0] == "execv"],
                         [("execv", b"/usr/lib/real/tool", ["tool", "a", "b"])])
        self.assertEqual(signal.getsignal(signal.SIGPIPE), signal.SIG_DFL)

    def test_no_answer_or_half_of_one_is_told(self):
        for pieces in ((), (b"exit\x000\0out",), (b"exit\x000\0out\0err\0more",), (b"none",)):
            self.answer(*pieces)
            self.assertEqual(self.call("tool"), (
                126, b"", b"tool: the supervisor of the panel gave no answer\n"))
            os.unlink(self.stand_in.ADDRESS)

    def test_nothing_is_asked_anywhere_but_on_the_device(self):
        self.assertEqual(self.call("/x/tool"), (
            126, b"", b"tool: the supervisor of the panel does not answer "
                      b"(No such file or directory)\n"))
        os.unlink(self.stand_in.MARKER)
        self.assertEqual(self.call("/x/tool"), (
            126, b"", f"tool: this is not the sandboxed device ({self.stand_in.MARKER} is "
                      "missing)\n".encode()))


class Program(unittest.TestCase):
    """The program itself, where there is no panel."""

    def test_it_refuses_to_act_on_anything_but_the_device(self):
        done = subprocess.run([f"{HOME}/device/bin/stand-in", "x"], check=False,
                              stdin=subprocess.DEVNULL, capture_output=True)

        self.assertEqual((done.returncode, done.stdout, done.stderr), (
            126, b"", b"stand-in: this is not the sandboxed device (/.kx-device is missing)\n"))


class Names(unittest.TestCase):
    """Where the panel and its supervisor are found."""

    def test_they_are_those_of_the_panel(self):
        stand_in = load()

        self.assertEqual((stand_in.MARKER, stand_in.ADDRESS), ("/.kx-device", b"\0kx-device"))


if __name__ == "__main__":
    unittest.main()
