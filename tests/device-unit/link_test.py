# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
"""What the front and process 1 tell each other arrives whole, however it is cut on its way."""

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


if __name__ == "__main__":
    unittest.main()
