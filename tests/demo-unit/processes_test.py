# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
"""Processes that end with the demonstration, and the signals that end it."""

import os
import pathlib
import signal
import subprocess
import sys
import time
import unittest

from kxscripts import demo_processes
from kxscripts.demo_processes import Processes, end_on_signals, ignore_signals
from kxscripts.processes import Interrupted
from scene import Scene

SIGNALS = (signal.SIGINT, signal.SIGTERM, signal.SIGHUP)


def is_alive(number):
    """Tells whether a process is there and does not only wait for its parent to ask."""
    try:
        return "\nState:\tZ" not in pathlib.Path(f"/proc/{number}/status").read_text("ascii")
    except OSError:
        return False


class Starting(Scene):
    """How processes start."""

    def setUp(self):
        super().setUp()
        self.processes = Processes(patience=60)
        self.addCleanup(self.processes.stop_all)

    def test_both_outputs_go_to_the_log_and_there_is_no_input(self):
        self.assertEqual(self.processes.run(
            "sh", "-c", "echo out; echo err >&2; readlink /proc/$$/fd/0", log="log"), 0)
        self.assertEqual(pathlib.Path("log").read_text("ascii"), "out\nerr\n/dev/null\n")

    def test_errors_go_where_the_output_goes_when_they_are_to_go_together(self):
        for together, files in (("together=True", 1), ("", 2)):
            program = ("import sys; from kxscripts.demo_processes import Processes; "
                       "Processes().run('sh', '-c', 'seen=$(readlink /proc/$$/fd/1 /proc/$$/fd/2); '"
                       "'echo \\\"$seen\\\" >seen', "
                       f"{together})")
            with open("one", "wb") as one, open("two", "wb") as two:
                subprocess.run([sys.executable, "-B", "-c", program], check=True, stdout=one,
                               stderr=two)
            self.assertEqual(len(set(pathlib.Path("seen").read_text("ascii").split())), files)

    def test_each_is_the_first_of_a_session_and_dies_with_its_starter(self):
        self.processes.run("/usr/bin/python3", "-c", "import os, ctypes\n"
                           "told = ctypes.c_int()\n"
                           "ctypes.CDLL(None).prctl(2, ctypes.byref(told))\n"
                           "print(os.getsid(0) == os.getpid() == os.getpgid(0), told.value)",
                           log="log")
        self.assertEqual(pathlib.Path("log").read_text("ascii"), "True 15\n")

    def test_it_inherits_the_descriptors_that_are_named_alone(self):
        kept, other = os.open("/", os.O_RDONLY), os.open("/", os.O_RDONLY)
        for descriptor in (kept, other):
            self.addCleanup(os.close, descriptor)
            os.set_inheritable(descriptor, True)
        self.processes.run("sh", "-c", "ls /proc/$$/fd", log="log", keep=(kept,))
        names = pathlib.Path("log").read_text("ascii").split()
        self.assertIn(str(kept), names)
        self.assertNotIn(str(other), names)

    def test_its_status_is_returned_that_of_a_signal_negative(self):
        self.assertEqual(self.processes.run("sh", "-c", "exit 7"), 7)
        self.assertEqual(self.processes.run("sh", "-c", "kill -9 $$"), -9)

    def test_what_cannot_be_started_is_an_error(self):
        with self.assertRaises(OSError):
            self.processes.run("true", log="no/such/folder")


class Ending(Scene):
    """How processes end."""

    def start(self, processes, text):
        """Starts a shell that tells when it is there."""
        os.mkfifo("ready")
        child = processes.start("sh", "-c", f"{text}\necho >ready; while :; do sleep 0.02; done",
                                log="log")
        pathlib.Path("ready").read_bytes()
        os.unlink("ready")
        return child

    def test_it_is_asked_first_and_waited_for(self):
        processes = Processes(patience=60)
        child = self.start(processes, "trap 'exit 7' TERM")
        processes.stop(child)
        self.assertEqual(child.returncode, 7)
        processes.stop_all()

    def test_who_is_deaf_is_ended_by_force_after_the_patience(self):
        processes = Processes(patience=0.1)
        child = self.start(processes, "trap '' TERM")
        begin = time.monotonic()
        processes.stop(child)
        self.assertEqual(child.returncode, -9)
        self.assertGreaterEqual(time.monotonic() - begin, 0.1)

    def test_a_command_that_has_run_leaves_nothing_behind(self):
        processes = Processes(patience=60)
        processes.run("sh", "-c", "sleep 600 & echo $!", log="log")
        self.assertFalse(is_alive(int(pathlib.Path("log").read_text("ascii"))))

    def test_all_are_ended_the_last_one_first_each_once(self):
        processes = Processes()
        children = [processes.start("true") for _ in range(3)]
        order = []
        stop = processes.stop
        processes.stop = lambda child: (order.append(child), stop(child))
        stop(children[1])
        processes.stop_all()
        processes.stop_all()
        self.assertEqual(order, [children[2], children[0]])

    def test_who_cannot_be_ended_is_not_waited_for_for_ever(self):
        sent = []
        self.patch(demo_processes, "signal_group",
                   lambda child, number: sent.append(number) or True)
        self.patch(demo_processes, "FORCE", 0.1)
        Processes(patience=0).stop(object())
        self.assertEqual(sent[:2], [signal.SIGTERM, signal.SIGKILL])
        self.assertEqual(set(sent[2:]), {0})

    def test_the_patience(self):
        self.assertEqual((demo_processes.PATIENCE, demo_processes.FORCE), (15, 5))


class Signals(Scene):
    """What ends the demonstration."""

    def setUp(self):
        super().setUp()
        for number in SIGNALS:
            self.addCleanup(signal.signal, number, signal.signal(number, signal.SIG_DFL))

    def test_the_first_one_ends_and_further_ones_do_not_count(self):
        for number in SIGNALS:
            for each in SIGNALS:
                signal.signal(each, signal.SIG_DFL)
            end_on_signals()
            with self.assertRaises(Interrupted) as caught:
                signal.raise_signal(number)
            self.assertEqual(caught.exception.number, number)
            for each in SIGNALS:
                signal.raise_signal(each)

    def test_one_that_is_ignored_stays_so(self):
        signal.signal(signal.SIGHUP, signal.SIG_IGN)
        end_on_signals()
        signal.raise_signal(signal.SIGHUP)
        self.assertNotEqual(signal.getsignal(signal.SIGINT), signal.SIG_IGN)

    def test_all_are_ignored_on_request(self):
        ignore_signals()
        for number in SIGNALS:
            signal.raise_signal(number)


if __name__ == "__main__":
    unittest.main()
