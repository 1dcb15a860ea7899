# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
"""What a child of process 1 gives up before it becomes a program, and how it becomes one."""

import errno
import os
import resource
import signal
import tempfile
import unittest
from types import SimpleNamespace
from unittest import mock

from kxdevice import launch, linux
from played import Ended, end, play

USUAL = {"PATH": "/bin:/usr/bin", "A": "b"}


def terms(**changes):
    """Returns terms with some changes."""
    return launch.Terms(**{"environment": USUAL, "processes": 50, "ignore_sigchld": False,
                           "closed": (), "groups": (20, 21), **changes})


class Become(unittest.TestCase):
    """Every system call is played; the program that would be started ends the child."""

    def become(self, the_terms, startup=False, wants_listener=False, **answers):
        """Returns what the child did, in order, until it ended; its status is the last entry."""
        done = []
        answers = {"open_inside": 9, "install_exec_listener": 30, **answers}
        play(self, launch, "linux", done, join_own_keyring=None, keep_capabilities=None,
             prctl=None, open_inside=answers["open_inside"],
             install_exec_listener=answers["install_exec_listener"])
        play(self, launch, "os", done, setsid=None, write=None, umask=None, closerange=None,
             fchdir=None, close=None, dup=40, set_inheritable=None, open=41, dup2=None, _exit=end)
        play(self, launch, "resource", done, setrlimit=None)
        play(self, launch, "socket", done, send_fds=None)
        play(self, launch, "signal", done, set_wakeup_fd=None, signal=None, pthread_sigmask=None)
        self.link = link = SimpleNamespace(
            fileno=lambda: 8, recv=lambda size: done.append(("recv", size)),
            sendall=lambda data: done.append(("sendall", data)))
        with mock.patch.object(launch, "_execute", lambda *words: done.append(
                ("execute", *words)) or 77), self.assertRaises(Ended):
            launch.become(the_terms, ["sh", "-c"], "/opt", startup, link, wants_listener)
        return [step for step in done if step[0] != "signal"]

    GIVEN_UP = [
        ("set_wakeup_fd", -1), ("setsid",), ("join_own_keyring",), ("write", 20, b"0"),
        ("write", 21, b"0"), ("setrlimit", resource.RLIMIT_NPROC, (50, 50)),
        ("setrlimit", resource.RLIMIT_CORE, (0, 0)), ("umask", 0o022), ("closerange", 3, 8),
        ("closerange", 9, 65536), ("keep_capabilities", (0, 1, 3, 4, 5, 6, 7)),
        ("prctl", linux.PR_SET_NO_NEW_PRIVS, 1), ("open_inside", "/opt")]
    SIGNALS = ("pthread_sigmask", signal.SIG_SETMASK, [])
    THERE = [*GIVEN_UP, ("fchdir", 9), ("close", 9)]

    def test_all_rights_are_given_up_before_the_word_to_go_and_all_files_after_it(self):
        self.assertEqual(self.become(terms()), [
            *self.THERE, ("sendall", b"ready"), ("recv", 2), self.SIGNALS,
            ("closerange", 3, 65536), ("dup", 2),
            ("set_inheritable", 40, False),
            ("execute", "/bin/sh", ["sh", "-c"], USUAL, 40), ("_exit", 77)])

    def test_the_listener_is_handed_over_and_closed(self):
        done = self.become(terms(), wants_listener=True)

        self.assertEqual(done[len(self.THERE):][:5], [
            ("install_exec_listener",), ("send_fds", self.link, [b"ready"], [30]), ("close", 30),
            ("recv", 2), self.SIGNALS])

    def test_what_goes_wrong_is_told_and_nothing_starts(self):
        self.assertEqual(self.become(terms(), open_inside=OSError(2, "No such file")), [
            *self.GIVEN_UP,
            ("sendall", b"the command cannot be started safely (No such file)"), ("_exit", 125)])

    def test_standard_streams_that_were_closed_are_closed_again(self):
        done = self.become(terms(closed=(0, 2)))

        self.assertEqual(done[len(self.THERE) + 3:], [
            ("closerange", 3, 65536), ("close", 0), ("close", 2),
            ("execute", "/bin/sh", ["sh", "-c"], USUAL, -1), ("_exit", 77)])

    def test_the_start_up_script_reads_nothing_and_speaks_to_stderr(self):
        null = ("open", "/dev/null", os.O_RDWR)
        for closed, moved in (((), [("dup2", 41, 0), ("dup2", 2, 1)]),
                              ((2,), [("dup2", 41, 0), ("dup2", 41, 2), ("dup2", 2, 1)])):
            done = self.become(terms(closed=closed), startup=True)

            self.assertEqual(done[len(self.THERE) + 2:][:len(moved) + 3],
                             [self.SIGNALS, null, *moved, ("closerange", 3, 65536)])


class Signals(unittest.TestCase):
    """The signals of the program are as usual, whatever the caller did with them."""

    def standard(self, ignore):
        """Returns what was done to signals."""
        done = []

        def refuse(number, _):
            if number == signal.SIGKILL:
                raise OSError(errno.EINVAL, "no")
            if number == 33:
                raise ValueError("no")
        play(self, launch, "signal", done, signal=refuse, pthread_sigmask=None)
        launch._standard_signals(ignore)
        return done

    def test_all_are_as_usual_and_none_is_blocked(self):
        usual = [("signal", number, signal.SIG_DFL) for number in range(1, signal.NSIG)]
        unblocked = ("pthread_sigmask", signal.SIG_SETMASK, [])

        self.assertEqual(self.standard(False), [*usual, unblocked])
        self.assertEqual(self.standard(True), [
            *usual, ("signal", signal.SIGCHLD, signal.SIG_IGN), unblocked])

    def test_only_the_command_ignores_the_ends_of_children_never_the_start_up_script(self):
        for ignore, startup, wanted in ((True, False, True), (True, True, False),
                                        (False, False, False), (False, True, False)):
            with mock.patch.object(launch, "_standard_signals") as standard, \
                    mock.patch.object(launch, "_streams_of_startup"):
                Become.become(self, terms(ignore_sigchld=ignore), startup)
            standard.assert_called_once_with(wanted)


class Find(unittest.TestCase):
    """Programs are found like the shell does it."""

    def test_the_first_that_can_be_executed_else_the_first_of_that_name(self):
        with tempfile.TemporaryDirectory() as here:
            for name, mode in (("a/only", 0o644), ("b/only", 0o644), ("b/tool", 0o644),
                               ("c/tool", 0o755), ("d/tool", 0o755)):
                os.makedirs(os.path.dirname(f"{here}/{name}"), exist_ok=True)
                with open(f"{here}/{name}", "x", encoding="ascii"):
                    pass
                os.chmod(f"{here}/{name}", mode)
            os.mkdir(f"{here}/a/tool")
            path = ":".join(f"{here}/{name}" for name in "abcd")

            self.assertEqual(launch._find("tool", path), f"{here}/c/tool")
            self.assertEqual(launch._find("only", path), f"{here}/a/only")
            self.assertEqual(launch._find("none", path), "")
            self.assertEqual(launch._find("no/such", path), "no/such")
            before = os.getcwd()
            os.chdir(f"{here}/d")
            self.addCleanup(os.chdir, before)
            self.assertEqual(launch._find("tool", f"/nowhere::{here}/c"), "./tool")


class Execute(unittest.TestCase):
    """What is said, and which status tells it, when a program cannot be started."""

    def execute(self, program, *errors):
        """Returns the starts that were tried, the status and the line that was written."""
        reader, writer = os.pipe()
        remaining = list(errors)

        def execve(*_):
            raise OSError(remaining[0], os.strerror(remaining.pop(0)))
        tried = play(self, launch, "os", execve=execve)
        try:
            status = launch._execute(program, ["tool", "a b"], USUAL, writer)
        finally:
            os.close(writer)
        with os.fdopen(reader, "rb") as file:
            return tried, status, file.read().decode()

    def test_what_is_not_there_is_not_found(self):
        missing = "device/run: tool: not found on the panel\n"
        self.assertEqual(self.execute(""), ([], 127, missing))
        for number in (errno.ENOENT, errno.ENOTDIR):
            tried, status, line = self.execute("/no/such", number)
            self.assertEqual((tried, status, line), (
                [("execve", "/no/such", ["tool", "a b"], USUAL)], 127, missing))

    def test_what_is_there_but_cannot_be_executed_says_why(self):
        for number, program, text in (
                (errno.ENOENT, __file__, "No such file or directory"),
                (errno.EACCES, "/no/such", "Permission denied")):
            _, status, line = self.execute(program, number)
            self.assertEqual((status, line), (
                126, f"device/run: tool: cannot be executed ({text})\n"))

    def test_a_text_without_interpreter_is_a_script_of_the_shell(self):
        tried, status, line = self.execute(__file__, errno.ENOEXEC, errno.EACCES)

        self.assertEqual(tried[1], ("execve", "/bin/sh", ["/bin/sh", __file__, "a b"], USUAL))
        self.assertEqual((status, line), (
            126, "device/run: tool: cannot be executed (Permission denied)\n"))

    def test_a_name_is_told_in_its_very_bytes(self):
        reader, writer = os.pipe()
        with os.fdopen(reader, "rb") as said:
            with os.fdopen(writer, "wb"):
                self.assertEqual(launch._execute("", ["t\udcff"], USUAL, writer), 127)
            self.assertEqual(said.read(), b"device/run: t\xff: not found on the panel\n")

    def test_without_anybody_to_tell_the_status_tells(self):
        with open("/dev/full", "wb", buffering=0) as full:
            for complaint in (-1, full.fileno()):
                self.assertEqual(launch._execute("", ["tool"], USUAL, complaint), 127)


if __name__ == "__main__":
    unittest.main()
