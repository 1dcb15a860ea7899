# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
"""What is said and heard over the serial console and the probe's port of an emulated panel; the panel
is played, by a real shell where there is one on it."""
import os
import pathlib
import pty
import socket
import subprocess
import tempfile
import threading
import time
import unittest
from unittest import mock

from kxpanel import console as console_module
from kxpanel.console import Console, ConsoleError
from kxpanel.probe import RelayedProbe

PATIENCE = 60  # seconds; what is expected comes at once


class Links(unittest.TestCase):
    """A socket whose other end is the panel."""

    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = pathlib.Path(folder.name)
        self.ours, self.panel = socket.socketpair()
        self.addCleanup(self.panel.close)


class Shell(Links):
    """The console, with a shell of this computer at a terminal of its own."""

    def setUp(self):
        super().setUp()
        patch = mock.patch.object(console_module, "FOLDER", str(self.folder / "console"))
        patch.start()
        self.addCleanup(patch.stop)
        self.console = Console(self.ours, self.folder / "log")
        self.addCleanup(self.console.close)

    def start_shell(self):
        """Starts the shell; what goes over the socket comes to its terminal and back."""
        main, terminal = pty.openpty()
        # The kernel's messages are left as they are.
        (self.folder / "dmesg").write_text("#!/bin/sh\n", encoding="utf-8")
        (self.folder / "dmesg").chmod(0o755)
        child = subprocess.Popen(  # pylint: disable=consider-using-with
            ["setsid", "--ctty", "/bin/sh", "-i"], stdin=terminal, stdout=terminal, stderr=terminal,
            env={"PATH": f"{self.folder}:/usr/bin:/bin", "PS1": "$ "})
        os.close(terminal)
        link = self.panel.makefile("rwb", buffering=0)
        main_file = open(main, "r+b", buffering=0)  # pylint: disable=consider-using-with

        def copy(source, target):
            try:
                while data := source.read(4096):
                    target.write(data)
            except OSError:
                pass

        threads = [threading.Thread(target=copy, args=pair, daemon=True)
                   for pair in ((link, main_file), (main_file, link))]
        for thread in threads:
            thread.start()

        def end():
            child.kill()
            child.wait()
            self.panel.shutdown(socket.SHUT_RDWR)
            for thread in threads:
                thread.join()
            link.close()
            main_file.close()

        self.addCleanup(end)
        self.console.find_shell(PATIENCE)

    def test_commands_tell_status_and_output_byte_by_byte(self):
        self.start_shell()

        done = self.console.run("echo 'two  words'; echo \"it's\\$1\" >&2; cat; exit 7")
        self.assertEqual((done.status, done.output), (7, "two  words\nit's$1\n"))
        self.assertEqual(self.console.check("printf 'ä\\r\\nkx 0 .'"), "ä\r\nkx 0 .")

    def test_a_script_may_be_long_and_its_output_longer(self):
        self.start_shell()

        self.assertEqual(self.console.check(f"# {'x' * 20000}\nseq 20000"),
                         "".join(f"{number}\n" for number in range(1, 20001)))

    def test_what_the_system_says_between_is_no_answer(self):
        self.start_shell()

        done = self.console.run("echo 'kx0123456789abcdef 5 eHg=.' >/dev/tty 2>/dev/null; echo yes")
        self.assertEqual((done.status, done.output), (0, "yes\n"))

    def test_a_command_that_fails_is_told_with_its_output(self):
        self.start_shell()

        with self.assertRaisesRegex(ConsoleError, "ended with 3: echo no; exit 3\nno\n"):
            self.console.check("echo no; exit 3")
        with self.assertRaisesRegex(ConsoleError, "ended with 1: false"):
            self.console.check("false")

    def test_a_command_that_takes_too_long_is_told(self):
        self.start_shell()

        with self.assertRaisesRegex(ConsoleError, "has not ended after 0.1 seconds: sleep 2$"):
            self.console.run("sleep 2", 0.1)

    def test_a_console_without_a_shell_is_told_with_what_it_said(self):
        self.panel.sendall(b"Kernel panic\r\n")
        with mock.patch.object(console_module, "ASK_AGAIN", 0.1), self.assertRaisesRegex(
                ConsoleError, "^no shell answered within 0.2 seconds; the console said:\n.*panic$"):
            self.console.find_shell(0.2)

    def test_a_panel_that_ends_is_told(self):
        self.panel.sendall(b"bye\r\n")
        self.panel.shutdown(socket.SHUT_RDWR)
        with self.assertRaisesRegex(ConsoleError, "the panel has ended; the console said:\nbye$"):
            self.console.find_shell(PATIENCE)

    def test_a_text_is_waited_for_and_everything_is_kept_in_the_log(self):
        self.panel.sendall(b"starting\r\nlogin: ")
        self.console.wait_for_text("log.n:", PATIENCE)
        with self.assertRaisesRegex(ConsoleError, "did not say 'login' within 0.05 seconds"):
            self.console.wait_for_text("login", 0.05)
        self.assertEqual((self.folder / "log").read_bytes(), b"starting\r\nlogin: ")


class Port(Links):
    """The probe's port, at which one program after the other tells its state."""

    def setUp(self):
        super().setUp()
        self.probe = RelayedProbe(self.ours)
        self.addCleanup(self.probe.close)

    def tells(self, text):
        """Waits until the state is this one."""
        return self.probe.wait_for(lambda state: state == {"front": text}, PATIENCE)

    def test_programs_are_heard_one_after_the_other(self):
        self.assertIsNone(self.probe.state)
        self.panel.sendall(b'{"front": "a"}\n{"front": "b"}\n{"fro')
        self.assertTrue(self.tells("b"))

        self.probe.note_closed()
        self.assertTrue(self.probe.wait_for_end(PATIENCE))
        self.assertEqual(self.probe.state, {"front": "b"})

        self.panel.sendall(b'{"front": "c"}\n')
        while self.probe.ended:
            time.sleep(0.01)
        self.assertTrue(self.tells("c"))

    def test_what_was_told_before_the_end_still_counts(self):
        for number in range(50):
            self.panel.sendall(b'{"front": "%d"}\n' % number)
            self.probe.note_closed()
            self.assertTrue(self.probe.wait_for_end(PATIENCE))
            self.assertEqual(self.probe.state, {"front": f"{number}"})
            self.probe.expect_program()
            self.assertIsNone(self.probe.state)

    def test_each_program_counts_its_answers_anew(self):
        for _ in range(2):
            answering = threading.Thread(target=lambda: (
                self.assertEqual(self.panel.recv(100), b"sync\n"),
                self.panel.sendall(b'{"sync": 1}\n')))
            answering.start()
            self.assertTrue(self.probe.sync(PATIENCE))
            answering.join()
            self.assertFalse(self.probe.sync(0.05))
            self.assertEqual(self.panel.recv(100), b"sync\n")
            self.probe.note_closed()
            self.assertTrue(self.probe.wait_for_end(PATIENCE))
            self.probe.expect_program()

    def test_a_line_that_is_none_is_passed_over(self):
        self.panel.sendall(b'nt": "a"}\n{"front": "b"}\n')
        self.assertTrue(self.tells("b"))

    def test_the_emulators_end_is_the_programs_end(self):
        self.panel.close()
        self.assertTrue(self.probe.wait_for_end(PATIENCE))


if __name__ == "__main__":
    unittest.main()
