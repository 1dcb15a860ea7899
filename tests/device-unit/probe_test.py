# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
"""What the player of a window's user hears from the program, and when it believes it."""

import socket
import tempfile
import threading
import unittest

from kxoperate.probe import Probe

PATIENCE = 600  # seconds; what is expected comes at once


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

    def answer(self, number):
        """Answers one request, in a thread that is returned."""
        def answer():
            self.program.recv(100)
            self.program.sendall(b'{"sync": %d}\n' % number)
        thread = threading.Thread(target=answer)
        thread.start()
        return thread

    def test_what_is_drawn_is_on_the_screen_when_the_program_has_said_so(self):
        self.assertFalse(self.probe.sync(0.05))
        self.assertEqual(self.program.recv(100), b"sync\n")

        self.program.sendall(b'{"sync": 1}\n')
        self.program.sendall(b'{"front": "new"}\n')
        self.assertTrue(self.probe.wait_for(lambda state: state["front"] == "new", PATIENCE))
        # The answer to an earlier request is none to this one.
        self.assertFalse(self.probe.sync(0.05))
        self.assertEqual(self.program.recv(100), b"sync\n")

        answering = self.answer(2)
        self.assertTrue(self.probe.sync(PATIENCE))
        answering.join()

    def test_each_request_has_its_answer(self):
        for number in (1, 2, 3):
            answering = self.answer(number)
            self.assertTrue(self.probe.sync(PATIENCE))
            answering.join()

    def test_a_program_that_ends_answers_no_more(self):
        self.program.sendall(b'{"fro')
        self.program.close()

        self.assertTrue(self.probe.wait_for_end(PATIENCE))
        self.assertFalse(self.probe.sync(PATIENCE))
        self.assertEqual(self.probe.state, {"front": "old"})

    def test_a_condition_is_asked_of_each_state_until_it_holds(self):
        self.assertFalse(self.probe.wait_for(lambda state: state["front"] == "new", 0.02))
        self.program.sendall(b'{"front": "newer"}\n{"front": "new"}\n{"sync": 7}\n')
        self.assertIs(self.probe.wait_for(lambda state: state["front"] == "new" and 5, PATIENCE),
                      True)
        self.assertEqual(self.probe.state, {"front": "new"})

    def test_the_end_wakes_who_waits_and_the_last_word_counts(self):
        later = threading.Timer(0.05, lambda: (self.program.sendall(b'{"front": "last"}\n'),
                                               self.program.close()))
        later.start()
        self.assertFalse(self.probe.wait_for(lambda state: state["front"] == "new", PATIENCE))
        self.assertTrue(self.probe.ended)
        self.assertTrue(self.probe.wait_for(lambda state: state["front"] == "last", PATIENCE))
        later.join()

    def test_the_end_wakes_who_waits_for_an_answer_and_for_the_end(self):
        for wait in (lambda: self.probe.sync(PATIENCE), lambda: not self.probe.wait_for_end(PATIENCE)):
            later = threading.Timer(0.05, self.program.close)
            later.start()
            self.assertFalse(wait())
            later.join()

    def test_a_program_that_stays_has_not_ended(self):
        self.assertFalse(self.probe.wait_for_end(0.02))
        self.assertFalse(self.probe.ended)
        self.probe.note_end()
        self.assertTrue(self.probe.wait_for_end(PATIENCE))

    def test_requests_are_lines(self):
        self.assertTrue(self.probe.ask("quit"))
        self.assertEqual(self.program.recv(100), b"quit\n")
        self.program.close()
        self.probe.wait_for_end(PATIENCE)
        self.probe.ask("quit")  # the first may still go into the line
        self.assertFalse(self.probe.ask("quit"))

    def test_what_is_no_word_ends_it(self):
        self.program.sendall(b"no word\n")
        self.assertTrue(self.probe.wait_for_end(PATIENCE))


class Silence(unittest.TestCase):
    """A program that has not said a word yet, or never comes."""

    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.path = f"{folder.name}/probe"
        self.probe = Probe(self.path)

    def test_nothing_is_so_and_nobody_answers(self):
        self.assertIsNone(self.probe.state)
        self.assertFalse(self.probe.wait_for(lambda state: True, 0.02))
        self.assertFalse(self.probe.ask("quit"))
        self.assertFalse(self.probe.sync(PATIENCE))
        self.assertFalse(self.probe.ended)
        self.probe.note_end()
        self.assertFalse(self.probe.wait_for(lambda state: True, PATIENCE))

    def test_a_program_finds_it_by_its_environment(self):
        self.assertEqual(Probe.environment("/run/p", "/plugins"), {
            "KX_PROBE": "/run/p", "QT_PLUGIN_PATH": "/plugins", "QT_QPA_GENERIC_PLUGINS": "kxprobe"})


if __name__ == "__main__":
    unittest.main()
