# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
"""What the front and process 1 tell each other arrives whole, however it is cut on its way."""

import os
import socket
import unittest

from kxdevice.link import Link


class Messages(unittest.TestCase):
    """One end is a Link, the other a plain socket."""

    def setUp(self):
        ours, self.other = socket.socketpair(socket.AF_UNIX, socket.SOCK_STREAM)
        self.link = Link(ours)
        self.addCleanup(self.link.close)
        self.addCleanup(self.other.close)

    def test_a_message_may_come_in_pieces(self):
        self.other.sendall(b'{"a": 1}\n{"b"')
        self.assertEqual(self.link.receive(), [{"a": 1}])
        self.other.sendall(b": 2")
        self.assertEqual(self.link.receive(), [])
        self.other.sendall(b'}\n\n{"c": 3}\n')
        self.assertEqual(self.link.receive(), [{"b": 2}, {"c": 3}])

        self.other.close()
        self.assertIsNone(self.link.receive())

    def test_a_message_is_one_line(self):
        self.link.send(a=1, b="x\ny\u00e9")
        self.link.send(c=None)

        self.assertEqual(self.other.recv(1000), b'{"a": 1, "b": "x\\ny\\u00e9"}\n{"c": null}\n')
        self.other.close()
        with self.assertRaises(OSError):
            self.link.send(d=1)

    def test_a_long_message_is_one(self):
        receiver = Link(self.other)
        text = "x" * (3 << 20)
        child = os.fork()
        if child == 0:
            try:
                self.link.send(text=text)
            finally:
                os._exit(0)
        found = []
        while not found:
            found = receiver.receive()
        os.waitpid(child, 0)

        self.assertEqual(found, [{"text": text}])

    def test_the_descriptor_that_came_last_can_be_taken_once(self):
        receiver = Link(self.other)
        before = len(os.listdir("/proc/self/fd"))
        self.assertEqual(receiver.take(), -1)
        sent = [os.open(path, os.O_RDONLY) for path in ("/dev/null", "/dev/zero")]
        for descriptor in sent:
            self.link.hand_over(descriptor)
            os.close(descriptor)
            self.assertEqual(receiver.receive(), [])
        taken = receiver.take()

        self.assertEqual(os.readlink(f"/proc/self/fd/{taken}"), "/dev/zero")
        self.assertEqual(receiver.take(), -1)
        os.close(taken)
        self.assertEqual(len(os.listdir("/proc/self/fd")), before)

    def test_it_owns_its_end(self):
        ours, theirs = socket.socketpair(socket.AF_UNIX, socket.SOCK_STREAM)
        link = Link(ours)
        self.assertEqual(link.fileno(), ours.fileno())
        link.close()

        self.assertEqual((ours.fileno(), theirs.recv(1)), (-1, b""))
        theirs.close()


if __name__ == "__main__":
    unittest.main()
