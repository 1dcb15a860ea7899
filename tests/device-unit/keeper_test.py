# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
"""How the keeper makes the namespaces of a panel, and waits for the end of either side. Nothing is
made or ended here: what could is played."""

import errno
import os
import select
import signal
import subprocess
import sys
import time
import unittest
from types import SimpleNamespace
from unittest import mock

from kxdevice import host, keeper, linux
from kxdevice.linux import SandboxError
from played import Ended, end, play

INSIDE = linux.CLONE_NEWPID | linux.CLONE_NEWNET | linux.CLONE_NEWIPC | linux.CLONE_NEWUTS
ADVICE = ("; allow them (sysctl user.max_user_namespaces, kernel.unprivileged_userns_clone, "
          "kernel.apparmor_restrict_unprivileged_userns; in a container: its seccomp profile)")


class Keep(unittest.TestCase):
    """The life of the keeper, step by step."""

    def keep(self, process=55, trouble=None, lock=6):
        """Returns what was done until the end, whose status is the last entry."""
        done = []
        play(self, keeper, "os", done, setsid=None, fork=process, _exit=end, close=None)
        play(self, keeper, "signal", done, signal=None)
        play(self, keeper, "socket", done, sethostname=trouble)
        play(self, keeper, "supervisor", done, main=None)
        for part, answer in (("_close_others", None), ("_enter_namespaces", "standing"),
                             ("_wait_for_end", None)):
            patch = mock.patch.object(keeper, part, lambda *words, part=part, answer=answer: (
                done.append((part, *words)), answer)[1])
            patch.start()
            self.addCleanup(patch.stop)
        start = SimpleNamespace(fileno=lambda: 8, close=lambda: done.append("close start"),
                                sendall=lambda data: done.append(("say", data)))
        self.start = start
        self.control = SimpleNamespace(fileno=lambda: 9,
                                       close=lambda: done.append("close control"))
        self.order = SimpleNamespace(ids="ids", descriptors=lambda: {20, 21})
        groups = SimpleNamespace(remove=lambda: done.append("remove groups"))
        with self.assertRaises(Ended):
            keeper.keep(self.order, keeper.Ends(7, start, self.control), groups, lock)
        return done

    def begin(self, lock=6):
        """What every keeper does."""
        return [("setsid",), *(("signal", number, signal.SIG_IGN) for number in (
            signal.SIGINT, signal.SIGTERM, signal.SIGHUP, signal.SIGQUIT, signal.SIGPIPE,
            signal.SIGTSTP)), ("_close_others", {7, 8, 9, lock, 20, 21}),
                ("_enter_namespaces", "ids", self.start), ("sethostname", "panel")]

    def test_it_starts_process_1_waits_and_removes_the_groups(self):
        done = self.keep()

        self.assertEqual(done, [*self.begin(), ("fork",), ("say", b"started"), "close start",
                                "close control", ("_wait_for_end", 55, 7), "remove groups",
                                ("_exit", 0)])

    def test_process_1_lets_go_of_the_keepers_ends(self):
        done = self.keep(process=0)

        self.assertEqual(done[len(self.begin()):], [
            ("fork",), ("close", 7), "close start",
            ("main", self.order, "standing", self.control), ("_exit", 1)])

    def test_trouble_is_told_and_ends_it(self):
        for trouble, text in ((SandboxError("no room"), b"no room"),
                              (OSError(errno.EPERM, "not allowed \udcff"), b"not allowed ?")):
            self.assertEqual(self.keep(trouble=trouble)[len(self.begin()):],
                             [("say", text), ("_exit", 1)])


class Namespaces(unittest.TestCase):
    """Which namespaces are entered by whom, and what helps where there are none."""

    def enter(self, user, unshare=None, answer=b"go"):
        """Returns the standing and what was done."""
        done = []
        play(self, keeper, "os", done, geteuid=lambda: user, _exit=end)
        play(self, keeper, "linux", done, unshare=unshare, is_first_user_namespace=lambda: True)
        start = SimpleNamespace(sendall=lambda data: done.append(("say", data)),
                                recv=lambda size: done.append("heard") or answer[:size])
        with mock.patch.object(keeper, "_make_user_namespace", lambda ids: f"users of {ids}"):
            standing = keeper._enter_namespaces("ids", start)
        return standing, [step for step in done if step[0] not in (
            "geteuid", "is_first_user_namespace")]

    rest = [("unshare", INSIDE), ("unshare", linux.CLONE_NEWCGROUP)]

    def test_root_makes_one_of_users_that_is_entered_later(self):
        self.assertEqual(self.enter(0), (host.Standing("users of ids", True), self.rest))

    def test_an_ordinary_user_enters_it_at_once_and_is_given_the_ids(self):
        self.assertEqual(self.enter(7), (host.Standing(-1, False), [
            ("unshare", linux.CLONE_NEWUSER), ("say", b"map"), "heard", *self.rest]))

    def test_without_an_answer_it_ends(self):
        with self.assertRaises(Ended) as ended:
            self.enter(7, answer=b"")

        self.assertEqual(ended.exception.status, 1)

    def test_kernels_without_namespaces_of_control_groups_are_fine(self):
        def unshare(number):
            def call(flags):
                if flags == linux.CLONE_NEWCGROUP:
                    raise OSError(number, os.strerror(number))
            return call
        self.assertEqual(self.enter(0, unshare(errno.EINVAL))[1], self.rest)
        with self.assertRaises(PermissionError):
            self.enter(0, unshare(errno.EPERM))

    def test_what_is_missing_is_told_with_what_helps(self):
        for user, what in ((7, "user namespaces"), (0, "namespaces")):
            with self.assertRaises(SandboxError) as raised:
                self.enter(user, OSError(errno.ENOSPC, "No space left on device"))
            self.assertEqual(str(raised.exception),
                             f"this system gives no {what} (No space left on device){ADVICE}")


class UserNamespace(unittest.TestCase):
    """Root's namespace of users, held by a child until its ids are written."""

    def setUp(self):
        self.children = []
        self.before = os.listdir("/proc/self/fd")

    def make(self, unshare=None, write_map=None):
        """Makes one whose child only plays that it enters; returns its descriptor."""
        self.mapped = done = play(self, keeper, "ids_module", write_map=write_map)
        play(self, keeper, "linux", unshare=unshare)

        def fork():
            self.children.append(os.fork())
            return self.children[-1]
        caller = os.getpid()

        def leave(status):
            if os.getpid() == caller:
                raise AssertionError("not the child, but the keeper ends")
            os._exit(status)
        play(self, keeper, "os", fork=fork, _exit=leave)
        try:
            return keeper._make_user_namespace("ids"), done
        finally:
            with self.assertRaises(ChildProcessError):
                os.waitpid(self.children[-1], os.WNOHANG)

    def test_it_is_the_childs_after_the_ids_were_written(self):
        seen = []

        def write_map(process, _):
            seen.append(os.stat(f"/proc/{process}/ns/user").st_ino)
            time.sleep(0.05)  # a child that does not wait would end now
            self.assertIsNone(os.waitid(os.P_PID, process, os.WEXITED | os.WNOHANG | os.WNOWAIT))
        descriptor, done = self.make(write_map=write_map)

        self.assertEqual(done, [("write_map", self.children[0], "ids")])
        self.assertEqual(seen, [os.fstat(descriptor).st_ino])
        self.assertFalse(os.get_inheritable(descriptor))
        os.close(descriptor)
        self.assertEqual(os.listdir("/proc/self/fd"), self.before)

    def test_trouble_of_the_child_or_with_the_ids_is_told(self):
        for words, text in (
                ({"unshare": OSError(errno.ENOSPC, "No space")},
                 f"this system gives no user namespaces (No space){ADVICE}"),
                ({"unshare": SystemExit(1)}, "the user namespace could not be made"),
                ({"write_map": SandboxError("no ids")}, "no ids")):
            with self.assertRaises(SandboxError) as raised:
                self.make(**words)
            self.assertEqual(str(raised.exception), text)
            self.assertEqual(len(self.mapped), "write_map" in words)
            self.assertEqual(os.listdir("/proc/self/fd"), self.before)


class End(unittest.TestCase):
    """Whichever side ends, process 1 is ended and waited for."""

    def wait(self, readable):
        """Returns what was done; readable is what the poll tells."""
        done = []

        class Poll:
            """Stands for a poll."""

            def register(self, *words):
                """Notes what is watched."""
                done.append(("watch", *words))

            def poll(self):
                """Tells what is ready."""
                done.append(("poll",))
                return readable
        play(self, keeper, "os", done, open=30, dup2=None, pidfd_open=31, kill=None, waitpid=None,
             read=b"")
        play(self, keeper, "select", done, poll=Poll)
        keeper._wait_for_end(55, 7)
        return done

    def test_process_1_takes_the_panel_with_it_and_the_front_is_waited_for(self):
        self.assertEqual(self.wait([(7, 1)]), [
            ("open", "/dev/null", os.O_RDWR), ("dup2", 30, 0), ("dup2", 30, 1), ("dup2", 30, 2),
            ("pidfd_open", 55), ("poll",), ("watch", 31, select.POLLIN),
            ("watch", 7, select.POLLIN | select.POLLHUP), ("poll",), ("kill", 55, signal.SIGKILL),
            ("waitpid", 55, 0), ("read", 7, 1)])


CLOSE = """\
import os
from kxdevice import keeper
opened = [os.dup2(0, number) for number in (3, 10, 11, 12)]
keeper._close_others({11, -1})
def is_open(number):
    try:
        os.fstat(number)
    except OSError:
        return False
    return True
print([number for number in range(64) if is_open(number)])
"""


class Descriptors(unittest.TestCase):
    """What the caller holds open is let go of."""

    def test_all_but_the_standard_streams_and_what_is_needed_are_closed(self):
        seen = subprocess.run([sys.executable, "-c", CLOSE], check=True, stdin=subprocess.DEVNULL,
                              stdout=subprocess.PIPE)

        self.assertEqual(seen.stdout, b"[0, 1, 2, 11]\n")


if __name__ == "__main__":
    unittest.main()
