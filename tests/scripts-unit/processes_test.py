# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
"""Child processes end with the script, and signals end the script."""
import os
import signal
import sys
import tempfile
import threading
import time
import unittest

from kxscripts import processes
from played import InProject

# It tells its number when it has no trap of its parent's any more.
SLEEPER = "sh -c 'echo $$ >pid; exec sleep 77777'"
PYTHON = [sys.executable, "-ISBc"]


def alive(pid):
    """Tells whether a process runs; one that has ended and waits for its parent does not."""
    try:
        with open(f"/proc/{pid}/stat", encoding="utf-8") as stat:
            return stat.read().rpartition(")")[2].split()[0] not in "ZX"
    except FileNotFoundError:
        return False


class Children(InProject):
    """Real children, short ones."""

    def setUp(self):
        super().setUp()
        self.patch(processes, "_stopping", False)
        self.patch(processes, "_running", set())
        self.output = tempfile.TemporaryFile(dir=self.root)
        self.addCleanup(self.output.close)

    def run_shell(self, text, **keywords):
        """Runs a script of the shell; returns its status and what it printed."""
        status = processes.run(["sh", "-c", text], **{"cwd": self.root, "output": self.output,
                                                      **keywords})
        self.output.seek(0)
        return status, self.output.read().decode()

    def in_thread(self, text):
        """Runs a script of the shell in a thread, which makes a file `pid` when it hangs; returns
        the thread, a list that gets the status, and the process."""
        ended = []
        thread = threading.Thread(target=lambda: ended.append(self.run_shell(text)[0]))
        thread.start()
        self.addCleanup(thread.join, 10)
        return thread, ended, self.hung()

    def hung(self):
        """Waits for the file `pid`; returns the number in it, a process that is ended at last."""
        file = self.root / "pid"
        until = time.monotonic() + 20
        while not (file.exists() and file.read_text(encoding="utf-8").endswith("\n")):
            self.assertLess(time.monotonic(), until)
            time.sleep(0.01)
        pid = int(file.read_text(encoding="utf-8"))

        def end():
            if alive(pid):
                os.kill(pid, signal.SIGKILL)
        self.addCleanup(end)
        return pid

    def test_the_status_and_both_outputs_are_those_of_the_command(self):
        self.assertEqual(self.run_shell("echo out; echo err >&2; exit 3"), (3, "out\nerr\n"))
        self.assertEqual(self.run_shell("kill -KILL $$")[0], -9)
        self.assertEqual(self.run_shell("pwd")[1].splitlines()[-1], str(self.root))
        self.assertEqual(self.run_shell("echo $LOOK", env={"LOOK": "1"})[1].splitlines()[-1], "1")

    def test_the_environment_is_the_script_s_own_without_another(self):
        os.environ["KXSCRIPTS_LOOK"] = "own"
        self.addCleanup(os.environ.pop, "KXSCRIPTS_LOOK")
        self.assertEqual(self.run_shell("echo $KXSCRIPTS_LOOK")[1], "own\n")

    def test_a_command_has_no_input_and_a_session_of_its_own(self):
        given, taken = os.pipe()
        self.addCleanup(os.close, given)
        before = os.dup(0)
        os.dup2(given, 0)
        os.write(taken, b"words\n")
        os.close(taken)
        try:
            self.assertEqual(self.run_shell("cat"), (0, ""))
        finally:
            os.dup2(before, 0)
            os.close(before)
        told = self.run_shell("cut -d ' ' -f 1,5,6 /proc/$$/stat")[1].split()
        self.assertEqual(len(set(told)), 1)

    def test_without_a_file_the_outputs_are_the_script_s(self):
        status = processes.run([*PYTHON, (
            "import sys; sys.path.insert(0, sys.argv[1])\n"
            "from kxscripts import processes\n"
            "processes.run(['sh', '-c', 'echo out; echo err >&2'], cwd='/')\n"
            "processes.run(['kx-no-such-program'], cwd='/')"),
            os.path.dirname(os.path.dirname(processes.__file__))],
            cwd=self.root, output=self.output)
        self.output.seek(0)
        self.assertEqual((status, self.output.read().decode()), (
            0, "out\nerr\nkx-no-such-program: not found; scripts/setup installs what is missing\n"))

    def test_a_program_that_is_missing_is_told_in_the_output(self):
        self.assertEqual(processes.run(["kx-no-such-program", "x"], cwd=self.root,
                                       output=self.output), 127)
        with open(f"/proc/self/fd/{self.output.fileno()}", encoding="utf-8") as text:
            self.assertEqual(text.read(), "kx-no-such-program: not found; scripts/setup installs "
                                          "what is missing\n")
        self.assertEqual(processes._running, set())  # pylint: disable=protected-access

    def test_a_command_that_has_ended_is_forgotten(self):
        self.run_shell("true")
        self.assertEqual(processes._running, set())  # pylint: disable=protected-access

    def test_stop_all_ends_what_runs_with_its_children_and_starts_nothing_more(self):
        thread, ended, pid = self.in_thread(
            f'trap "wait; exit 4" TERM; {SLEEPER} & wait')

        processes.stop_all()

        thread.join(10)
        self.assertEqual(ended, [4])
        self.assertFalse(alive(pid))
        with self.assertRaises(processes.Stopped):
            processes.run(["touch", "started"], cwd=self.root)
        self.assertFalse((self.root / "started").exists())

    def test_stop_all_leaves_a_command_the_time_to_clean_up(self):
        thread, ended, _ = self.in_thread(
            "trap 'sleep 0.1; touch cleaned; exit 4' TERM; echo $$ >pid; while :; do sleep 0.05; done")

        processes.stop_all()

        thread.join(10)
        self.assertEqual(ended, [4])
        self.assertTrue((self.root / "cleaned").exists())

    def test_what_does_not_end_by_itself_is_ended_by_force(self):
        self.assertEqual(processes.PATIENCE, 10)
        self.patch(processes, "PATIENCE", 0.15)
        thread, ended, pid = self.in_thread(
            "trap '' TERM; (echo $$ >pid; while :; do sleep 0.05; done)")
        begin = time.monotonic()

        processes.stop_all()

        self.assertGreaterEqual(time.monotonic() - begin, 0.15)
        thread.join(10)
        self.assertEqual(ended, [-signal.SIGKILL])
        self.assertFalse(alive(pid))

    def test_a_wait_that_is_interrupted_ends_the_command(self):
        timer = threading.Thread(target=lambda: (self.hung(), os.kill(os.getpid(), signal.SIGTERM)))
        with self.assertRaises(processes.Interrupted), processes.signals_end_the_script():
            timer.start()
            processes.run(["sh", "-c", f"trap wait TERM; {SLEEPER} & wait"], cwd=self.root)
        timer.join()

        self.assertFalse(alive(int((self.root / "pid").read_text(encoding="utf-8"))))
        self.assertEqual(processes._running, set())  # pylint: disable=protected-access

    def test_a_signal_while_a_command_starts_leaves_none_behind(self):
        real, begun = processes.subprocess.Popen, []

        def start(*words, **keywords):
            begun.append(real(*words, **keywords))
            os.kill(os.getpid(), signal.SIGTERM)
            time.sleep(0.01)
            return begun[0]
        self.patch(processes.subprocess, "Popen", start)
        with self.assertRaises(processes.Interrupted) as raised, \
                processes.signals_end_the_script():
            processes.run(["sleep", "77777"], cwd=self.root)
        self.assertEqual(raised.exception.number, signal.SIGTERM)
        self.assertEqual(begun[0].wait(5), -signal.SIGTERM)

    def test_a_signal_while_another_thread_starts_a_command_interrupts_the_script(self):
        real, over = processes.subprocess.Popen, threading.Event()

        def start(*words, **keywords):
            signal.pthread_kill(threading.main_thread().ident, signal.SIGTERM)
            over.wait(10)
            return real(*words, **keywords)
        self.patch(processes.subprocess, "Popen", start)
        thread = threading.Thread(target=lambda: self.run_shell("true"))
        self.addCleanup(thread.join, 20)
        try:
            with self.assertRaises(processes.Interrupted), processes.signals_end_the_script():
                thread.start()
                over.wait(10)
        finally:
            over.set()

    def test_a_signal_while_a_missing_command_starts_ends_the_script(self):
        def start(*_, **__):
            os.kill(os.getpid(), signal.SIGTERM)
            raise FileNotFoundError
        self.patch(processes.subprocess, "Popen", start)
        with self.assertRaises(processes.Interrupted), processes.signals_end_the_script():
            processes.run(["x"], cwd=self.root, output=self.output)

    def test_a_group_that_has_gone_is_told(self):
        with processes.subprocess.Popen(["true"], start_new_session=True) as child:
            os.waitid(os.P_PID, child.pid, os.WEXITED | os.WNOWAIT)
            self.assertFalse(processes.signal_group(child, 0))
        with processes.subprocess.Popen(["sleep", "77777"], start_new_session=True) as child:
            self.assertTrue(processes.signal_group(child, 0))
            self.assertTrue(processes.signal_group(child, signal.SIGKILL))
        self.assertEqual(child.returncode, -signal.SIGKILL)

    def test_a_group_of_another_user_is_there(self):
        def refused(*_):
            raise PermissionError
        self.patch(os, "killpg", refused)
        with processes.subprocess.Popen(["true"], start_new_session=True) as child:
            self.assertTrue(processes.signal_group(child, 0))


class Signals(unittest.TestCase):
    """What a signal does to the script."""

    ENDING = (signal.SIGHUP, signal.SIGINT, signal.SIGQUIT, signal.SIGTERM)

    def setUp(self):
        for number in self.ENDING:
            self.addCleanup(signal.signal, number, signal.getsignal(number))

    def test_each_of_them_ends_the_script_once(self):
        def earlier(*_):
            self.fail("the earlier handler was called")
        for number in self.ENDING:
            for other in self.ENDING:
                signal.signal(other, earlier)
            with self.assertRaises(processes.Interrupted) as raised:
                with processes.signals_end_the_script():
                    try:
                        os.kill(os.getpid(), number)
                        time.sleep(5)
                    finally:
                        for other in self.ENDING:
                            os.kill(os.getpid(), other)
            self.assertEqual(raised.exception.number, number)
            self.assertEqual(str(raised.exception), number.name)
            for other in self.ENDING:
                self.assertIs(signal.getsignal(other), earlier)

    def test_handlers_are_as_before_behind_it(self):
        signal.signal(signal.SIGHUP, signal.SIG_IGN)
        signal.signal(signal.SIGQUIT, signal.SIG_DFL)
        with processes.signals_end_the_script():
            pass
        self.assertEqual(signal.getsignal(signal.SIGHUP), signal.SIG_IGN)
        self.assertEqual(signal.getsignal(signal.SIGQUIT), signal.SIG_DFL)

    def test_a_signal_that_was_ignored_is_still_but_not_by_children(self):
        for number in self.ENDING:
            signal.signal(number, signal.SIG_IGN)
        with processes.signals_end_the_script():
            for number in self.ENDING:
                os.kill(os.getpid(), number)
            with tempfile.TemporaryFile() as output:
                processes.run(["grep", "^SigIgn", "/proc/self/status"], cwd="/", output=output)
                output.seek(0)
                ignored = int(output.read().split()[1], 16)
        self.assertEqual([number.name for number in self.ENDING if ignored >> (number - 1) & 1], [])

    def test_an_interruption_is_no_error_that_a_script_could_handle(self):
        self.assertFalse(issubclass(processes.Interrupted, Exception))


if __name__ == "__main__":
    unittest.main()
