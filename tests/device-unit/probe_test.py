# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
"""What the player of a window's user hears from the program, and when it believes it."""

import socket
import tempfile
import threading
import unittest

from kxoperate.probe import Probe

PATIENCE = 10  # seconds; what is expected comes at once


class Listening(unittest.TestCase):
    """The test is the program: it tells states and answers requests, or does not."""

    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.probe = Probe(f"{folder.name}/probe")
        self.program = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
        self.addCleanup(self.program.close)
        self.program.settimeout(PATIENCE)
        self.program.connect(f"{folder.name}/probe")
        self.program.sendall(b'{"front": "old"}\n')
        self.assertTrue(self.probe.wait_for(lambda state: state["front"] == "old", PATIENCE))

    def answer(self):
        """Answers one request."""
        self.program.recv(100)
        self.program.sendall(b'{"sync": 2}\n')

    def test_what_is_drawn_is_on_the_screen_when_the_program_has_said_so(self):
        self.assertFalse(self.probe.sync(0.05))
        self.assertEqual(self.program.recv(100), b"sync\n")

        self.program.sendall(b'{"sync": 1}\n')
        self.program.sendall(b'{"front": "new"}\n')
        self.assertTrue(self.probe.wait_for(lambda state: state["front"] == "new", PATIENCE))
        # The answer to an earlier request is none to this one.
        self.assertFalse(self.probe.sync(0.05))
        self.assertEqual(self.program.recv(100), b"sync\n")

        answering = threading.Thread(target=self.answer)
        answering.start()
        self.assertTrue(self.probe.sync(PATIENCE))
        answering.join()

    def test_a_program_that_ends_answers_no_more(self):
        self.program.sendall(b'{"fro')
        self.program.close()

        self.assertTrue(self.probe.wait_for_end(PATIENCE))
        self.assertFalse(self.probe.sync(PATIENCE))
        self.assertEqual(self.probe.state, {"front": "old"})


if __name__ == "__main__":
    unittest.main()
