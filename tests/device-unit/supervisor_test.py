# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
"""How process 1 serves the panel and ends it. No process is ended here: that is played, as is the
panel itself."""

import errno
import os
import signal
import socket
import subprocess
import sys
import tempfile
import unittest
from types import SimpleNamespace
from unittest import mock

from kxdevice import launch, linux, options, supervisor, trees
from kxdevice.link import Link
from kxdevice.linux import SandboxError
from played import Ended, end, play



LATE = """\
import sys
sys.path.insert(0, sys.argv[1])
from kxdevice import supervisor
sys.path[:] = []
sys.meta_path[:] = []
for name in ("ascii", "utf-8", "latin-1"):
    with open("/proc/self/statm", encoding=name) as file:
        file.read()
ours, theirs = supervisor.socket.socketpair()
supervisor.socket.send_fds(ours, [b"x"], [0])
supervisor.socket.recv_fds(theirs, 1, 1)
"""


class Serving(unittest.TestCase):
    """A supervisor whose front is the test, and whose tools answer what the test says."""

    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.here = folder.name
        self.done = []
        play(self, supervisor, "signal", self.done, signal=None, set_wakeup_fd=None)
        play(self, supervisor, "linux", self.done, open_inside=self.null, prctl=None,
             forget_command_line=None)
        # What is really waited for and ended must never be the machine's.
        play(self, supervisor, "os", self.done, kill=None, _exit=end, setsid=None)
        self.names = SimpleNamespace(STARTUP_SCRIPT=f"{self.here}/startup.sh")
        patch = mock.patch.object(supervisor, "names", self.names)
        patch.start()
        self.addCleanup(patch.stop)

    @staticmethod
    def null(_):
        """Opens something harmless."""
        return os.open("/dev/null", os.O_RDONLY)

    def made(self, fetched="", watch_memory=False, **asked):
        """Makes a supervisor; its front is self.front, its panel's root the folder of the test."""
        ours, theirs = socket.socketpair(socket.AF_UNIX, socket.SOCK_STREAM)
        self.front = Link(theirs)
        self.addCleanup(self.front.close)
        self.control = Link(ours)
        self.addCleanup(self.control.close)
        root = os.open(self.here, trees.DIR_FLAGS)
        self.addCleanup(os.close, root)
        panel = SimpleNamespace(root=root, layers=SimpleNamespace(upper=root))
        drive = SimpleNamespace(start=lambda booting: self.done.append(("drive", booting)),
                                plug=self.plug, pull=self.pull)
        self.tools = SimpleNamespace(call=self.call, settings={"A": "1"}, reboot_asked=False)
        terms = launch.Terms({}, 20, False, (), ())
        # No two may have the same.
        self.names.ADDRESS = f"\0kx-device-test-{os.getpid()}-{len(self.done)}-{id(panel)}"
        order = supervisor.Order(options.Options(**{"command": ("tool", "x"), **asked}), None, b"",
                                 terms, -1, watch_memory, fetched)
        made_of = {}
        with mock.patch.object(supervisor.tools, "Drive", lambda *words: made_of.update(
                drive=words) or drive), mock.patch.object(
                    supervisor.tools, "Tools", lambda *words: made_of.update(
                        tools=words) or self.tools):
            made = supervisor.Supervisor(order, self.control, panel)
        self.assertEqual(made_of, {"drive": (panel, made.trace),
                                   "tools": (order.options, panel, drive, made.trace)})
        self.addCleanup(made.server.close)
        self.addCleanup(os.close, made.wake)
        wakes = [step[1] for step in self.done if step[0] == "set_wakeup_fd"]
        self.addCleanup(os.close, wakes[-1])
        self.wake = wakes[-1]
        self.addCleanup(lambda: [entry[0].close() for entry in made.clients.values()])
        return made

    answer = ()

    def plug(self, new):
        """Plays the drive."""
        self.done.append(("plug", new))
        return self.answered()

    def pull(self):
        """Plays the drive."""
        self.done.append(("pull",))
        return self.answered()

    def call(self, words):
        """Plays the tools."""
        self.done.append(("call", *words))
        return self.answered()

    def answered(self):
        """Returns or raises the answer."""
        if isinstance(self.answer, Exception):
            raise self.answer
        return self.answer

    def caller(self):
        """Connects like a stand-in does."""
        link = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
        self.addCleanup(link.close)
        link.settimeout(10)
        link.connect(self.names.ADDRESS)
        return link


class Making(Serving):
    """What a supervisor is from its start."""

    def test_it_listens_and_its_folder_to_start_in_was_looked_at(self):
        made = self.made(boot=True, chdir="/opt")

        self.assertIn(("drive", True), self.done)
        self.assertIn(("open_inside", "/opt"), self.done)
        self.assertLess(self.done.index(("drive", True)),
                        self.done.index(("open_inside", "/opt")))
        self.assertIsNone(made.before)
        self.assertEqual(made.server.getsockname(), self.names.ADDRESS.encode())
        self.assertFalse(made.server.getblocking())
        self.assertFalse(os.get_blocking(made.wake))
        self.assertFalse(os.get_inheritable(made.wake))
        self.assertEqual([step[:2] for step in self.done if step[0] == "signal"],
                         [("signal", signal.SIGCHLD)])
        self.assertEqual([step[2] for step in self.done if step[0] == "set_wakeup_fd"],
                         [{"warn_on_full_buffer": False}])
        self.assertEqual(set(made.handlers), {made.wake, self.control.fileno(),
                                              made.server.fileno()})

    def test_a_folder_that_the_panel_lacks_is_told(self):
        play(self, supervisor, "linux", open_inside=OSError(errno.ELOOP, "no"))
        before = len(os.listdir("/proc/self/fd"))
        with self.assertRaisesRegex(SandboxError, "^the panel has no folder /x to start in$"):
            self.made(chdir="/x")
        with self.assertRaises(SandboxError):
            supervisor._refuse_missing("/x")
        play(self, supervisor, "linux", open_inside=self.null)
        before = len(os.listdir("/proc/self/fd"))
        supervisor._refuse_missing("/x")
        self.assertEqual(len(os.listdir("/proc/self/fd")), before)

    def test_a_picture_is_taken_only_when_a_summary_is_wanted(self):
        from kxdevice import summary  # pylint: disable=import-outside-toplevel
        for asked in ({"summary": "-"}, {"summary_json": "j"}):
            with mock.patch.object(summary, "Picture") as picture:
                made = self.made(**asked)
            picture.assert_called_once_with(made.panel, {"A": "1"})
            made.drive.on_new_drive()
            picture.return_value.take_drive.assert_called_once_with(made.panel)


class Calls(Serving):
    """Stand-ins are answered, one message each."""

    def served(self, made, *pieces):
        """Sends pieces as a stand-in does; returns all that comes back."""
        link = self.caller()
        made._accept()
        number = next(iter(made.clients))
        for piece in pieces:
            link.sendall(piece)
            made._client(number)
        return link

    def test_a_call_may_come_in_pieces_and_gets_its_answer(self):
        made = self.made()
        self.answer = [b"exit", b"3", b"out", b""]
        link = self.served(made, b"\0\0", b"\0\x09too", b"l\0a b\0rest")

        self.assertIn(("call", b"tool", b"a b", b""), self.done)
        self.assertEqual(link.recv(100), b"exit\x003\0out\0")
        self.assertEqual(link.recv(100), b"")
        self.assertEqual((made.clients, len(made.handlers), made.poll.poll(0)), ({}, 3, []))

    def test_a_call_without_a_word_is_one(self):
        made = self.made()
        self.answer = [b"x"]
        self.served(made, b"\0\0\0", b"\0")

        self.assertIn(("call", b""), self.done)

    def test_a_call_that_is_not_whole_waits(self):
        made = self.made()
        self.served(made, b"\0\0\0", b"\x04too")
        number = next(iter(made.clients))
        made._client(number)  # nothing more came

        self.assertEqual(len(made.clients), 1)
        self.assertEqual([step for step in self.done if step[0] == "call"], [])

    def test_a_caller_that_leaves_is_forgotten(self):
        made = self.made()
        link = self.served(made, b"\0\0")
        link.close()
        number = next(iter(made.clients))
        client = made.clients[number][0]
        made._client(number)

        self.assertEqual((made.clients, client.fileno()), ({}, -1))

    def test_a_caller_that_is_cut_off_is_forgotten(self):
        made = self.made()
        self.served(made)
        number = next(iter(made.clients))
        real = made.clients[number][0]
        made.clients[number][0] = SimpleNamespace(
            recv=mock.Mock(side_effect=ConnectionResetError), close=real.close)
        made._client(number)

        self.assertEqual(made.clients, {})

    def test_the_longest_call_is_four_mebibytes(self):
        for length, waits in ((1 << 22, True), ((1 << 22) + 1, False)):
            made = self.made()
            link = self.served(made, length.to_bytes(4, "big"))
            self.assertEqual(len(made.clients), int(waits))
            if not waits:
                self.assertEqual(link.recv(1), b"")

    def test_trouble_with_a_tool_is_the_callers(self):
        made = self.made()
        self.answer = OSError(errno.ENOSPC, "No space left on device")
        link = self.served(made, b"\0\0\0\x03a\0b")

        self.assertEqual(link.recv(100), b"exit\x001\0\0a: No space left on device\n")

    def test_a_caller_that_was_killed_gets_no_answer_and_does_no_harm(self):
        made = self.made()
        waits = []
        client = SimpleNamespace(settimeout=waits.append,
                                 sendall=mock.Mock(side_effect=BrokenPipeError))
        self.answer = [b"x"]
        made._answer(client, [b"a"])

        self.assertEqual(waits, [10])
        client.sendall.assert_called_once_with(b"x")

    def test_sixty_four_callers_are_served_at_a_time(self):
        made = self.made()
        links = []
        for _ in range(65):
            links.append(self.caller())
            made._accept()

        self.assertEqual(len(made.clients), 64)
        self.assertEqual(links[-1].recv(1), b"")
        self.assertTrue(all(not entry[0].getblocking() for entry in made.clients.values()))
        made.handlers[next(iter(made.clients))]()
        self.assertEqual(len(made.clients), 64)

    def test_nobody_there_is_fine(self):
        made = self.made()
        made._accept()

        self.assertEqual(made.clients, {})

    def test_who_says_nothing_for_ten_seconds_is_cut_off(self):
        now = [100.0]
        play(self, supervisor, "time", monotonic=lambda: now[0])
        made = self.made()
        early = self.caller()
        made._accept()
        now[0] = 109
        self.caller()
        made._accept()
        for when, left in ((110, 2), (110.5, 1), (119, 1), (119.5, 0)):
            now[0] = when
            made._drop_slow_clients()
            self.assertEqual(len(made.clients), left, when)
        self.assertEqual(early.recv(1), b"")


class Front(Serving):
    """What the front asks for."""

    def test_the_end_may_be_asked_for(self):
        made = self.made()
        self.front.send(stop="time")
        made._obey()

        self.assertEqual(made.reason, "time")

    def test_the_drive_may_be_moved_and_the_front_hears_how(self):
        made = self.made()
        self.done.clear()
        for message, step in (({"drive": "plug", "new": True}, ("plug", True)),
                              ({"drive": "plug", "new": False}, ("plug", False)),
                              ({"drive": "pull", "new": False}, ("pull",))):
            for answer, text in (("", ""), ("not now", "not now"),
                                 (OSError(errno.EIO, "broken"), "broken")):
                self.answer = answer
                self.front.send(**message)
                made._obey()
                self.assertEqual((self.done.pop(), self.front.receive()),
                                 (step, [{"drive": text}]))
        self.assertEqual(self.done, [])

    def test_a_front_that_is_gone_ends_the_panel(self):
        made = self.made()
        self.front.close()
        with self.assertRaises(Ended) as ended:
            made._obey()

        self.assertEqual(ended.exception.status, 1)


class Waiting(Serving):
    """The command is waited for, with an eye on memory and on slow callers."""

    def test_all_children_are_waited_for_and_the_commands_end_counts(self):
        made = self.made()
        made.command = 12
        ends = [(11, 256), (12, 512), (13, 768)]
        os.write(self.wake, b"x" * 10)
        for last in ((0, 0), ChildProcessError()):
            left = [*ends, last]

            def waitpid(which, how):
                self.assertEqual((which, how), (-1, os.WNOHANG))
                result = left.pop(0)
                if isinstance(result, Exception):
                    raise result
                return result
            with mock.patch.object(supervisor.os, "waitpid", waitpid, create=True):
                made._reap()
            self.assertEqual((left, made.status), ([], 512))
        self.assertRaises(BlockingIOError, os.read, made.wake, 1)

    def until(self, made, *events):
        """Serves until the end; events are what happens at each wait. Returns the waits."""
        waits, left = [], list(events)

        def poll(timeout):
            waits.append(timeout)
            return left.pop(0)() or []
        made.poll = SimpleNamespace(poll=poll, register=lambda *_: None,
                                    unregister=lambda *_: None)
        made.serve_until(12)
        self.assertEqual(left, [])
        return waits

    def test_it_ends_with_the_command_or_when_the_end_was_asked_for(self):
        made = self.made()
        made.status = 7
        served = []
        made.handlers[99] = lambda: served.append(99)

        def ended():
            made.status = 0
        self.assertEqual(self.until(made, lambda: [(99, 1), (98, 1)], ended), [None, None])
        self.assertEqual((served, made.command, made.status), ([99], 12, 0))

        def stop():
            made.reason = "time"
        self.assertEqual(self.until(made, stop), [None])
        self.assertIsNone(made.status)

    def test_memory_is_looked_at_ten_times_a_second_when_no_group_does(self):
        now = [50.0]
        play(self, supervisor, "time", monotonic=lambda: now[0])
        made = self.made(watch_memory=True)
        looks = []

        def look():
            looks.append(now[0])
            if len(looks) == 3:
                made.reason = "memory"

        def wait(seconds):
            now[0] += seconds
        with mock.patch.object(made, "_look_at_memory", look):
            waits = self.until(made, lambda: wait(0.05), lambda: wait(0.06), lambda: wait(0.2),
                               lambda: None)
        self.assertEqual([round(when, 3) for when in looks], [50, 50.11, 50.31])
        self.assertEqual(waits, [100] * 4)

    def test_with_callers_it_wakes_every_second_to_cut_off_the_slow(self):
        made = self.made()
        self.caller()
        made._accept()

        def ended():
            made.status = 0
        with mock.patch.object(made, "_drop_slow_clients") as dropped:
            self.assertEqual(self.until(made, lambda: None, ended), [1000, 1000])
        self.assertEqual(dropped.call_count, 2)
        made.watch_memory = True
        with mock.patch.object(made, "_look_at_memory"):
            self.assertEqual(self.until(made, ended), [100])

    def test_the_memory_of_all_processes_but_the_first_counts_without_what_they_share(self):
        page = os.sysconf("SC_PAGE_SIZE")
        mebibyte = (1 << 20) // page
        statm = {"1": f"9 {9 * mebibyte} 0 0", "7": f"9 {5 * mebibyte + 3} {mebibyte + 3} 0",
                 "8": f"9 {2 * mebibyte} {mebibyte} 0", "9": "", "self": "9 99999999 0"}

        def fake_open(path, **_):
            name = path.split("/")[2]
            self.assertEqual(path, f"/proc/{name}/statm")
            if name not in statm:
                raise FileNotFoundError
            return mock.mock_open(read_data=statm[name])()
        for limit, extra, reason in ((5, 0, ""), (5, 1, "memory"), (4, 0, "memory")):
            statm["8"] = f"9 {2 * mebibyte + extra} {mebibyte} 0"
            made = self.made(memory=limit)
            play(self, supervisor, "os", listdir=lambda path: {"/proc": [*statm, "10"]}[path])
            with mock.patch.object(supervisor, "open", fake_open, create=True):
                made._look_at_memory()
            self.assertEqual(made.reason, reason, (limit, extra))


class Starting(Serving):
    """Programs are started when their child is ready, and never when it is not."""

    def start(self, message, descriptors=(), startup=False, **asked):
        """Starts a program whose child says something; returns what it heard, and the making."""
        made = self.made(**asked)
        ours, theirs = socket.socketpair(socket.AF_UNIX, socket.SOCK_STREAM)
        self.addCleanup(theirs.close)
        child = theirs.dup()
        self.addCleanup(child.close)
        play(self, supervisor, "os", fork=lambda: 55)
        play(self, supervisor, "socket", socketpair=lambda *_: (ours, theirs))
        if message:
            socket.send_fds(child, [message], descriptors)
        else:
            child.shutdown(socket.SHUT_WR)
        process = made.start(["x"], startup=startup)
        self.assertEqual((process, ours.fileno(), theirs.fileno()), (55, -1, -1))
        return child.recv(100), made

    def test_a_child_that_is_ready_gets_the_word(self):
        heard, made = self.start(b"ready")

        self.assertEqual((heard, len(made.handlers)), (b"go", 3))

    def test_the_child_becomes_the_program_and_never_comes_back(self):
        made = self.made(chdir="/opt", trace="t", trace_shell=True)
        for startup, trouble in ((False, None), (True, OSError(errno.EIO, "no"))):
            self.done.clear()
            play(self, supervisor, "os", self.done, fork=0)

            def become(*words, trouble=trouble):
                self.done.append(words)
                if trouble:
                    raise trouble
            with mock.patch.object(launch, "become", become), self.assertRaises(Ended) as ended:
                made.start(["x", "y"], "/opt", startup)
            self.assertEqual(ended.exception.status, 125)
            terms, words, chdir, is_startup, link, wants = self.done[1]
            self.assertEqual((terms, words, chdir, is_startup, wants),
                             (made.terms, ["x", "y"], "/opt", startup, True))
            link.close()
        with mock.patch.object(launch, "become", lambda *words: self.done.append(words)), \
                self.assertRaises(Ended):
            made.start(["x"])
        self.assertEqual(self.done[-2][1:4], (["x"], "/", False))

    def test_a_child_that_is_not_is_told_of(self):
        with self.assertRaisesRegex(SandboxError, "^no\ufffd rights$"):
            self.start(b"no\xff rights")
        with self.assertRaisesRegex(SandboxError,
                                    "^the command's process ended before it could start$"):
            self.start(b"")
        with self.assertRaisesRegex(SandboxError, "^no rights$"):
            self.start(b"no rights", trace="t", trace_shell=True)

    def test_the_childs_own_end_is_let_go_of_before_it_is_waited_for(self):
        made = self.made()
        seen = []
        ours, theirs = socket.socketpair()
        play(self, supervisor, "os", fork=55)
        play(self, supervisor, "socket", socketpair=lambda *_: (ours, theirs))
        with mock.patch.object(made, "_follow", lambda *words: seen.append(
                (theirs.fileno(), words))):
            made.start(["x"])

        self.assertEqual(seen, [(-1, (55, ours, False, ()))])

    def test_the_word_comes_when_the_listener_is_listened_to(self):
        made = self.made(trace="t", trace_shell=True)
        listener = os.open("/dev/null", os.O_RDONLY)
        watched = []
        link = SimpleNamespace(sendall=lambda data: watched.append((data, listener in
                                                                    made.handlers)))
        play(self, supervisor, "socket", recv_fds=(b"ready", [listener], 0, None))
        with mock.patch.object(made, "poll"):
            made._follow(55, link, True, [])
        os.close(listener)

        self.assertEqual(watched, [(b"go", True)])

    def test_program_starts_are_listened_to_when_somebody_wants_to_know(self):
        for asked, wanted in (
                ({"trace_shell": True, "trace": "t"}, True), ({"fail_shell": ((1, "x"),)}, True),
                ({"trace": "t", "trace_programs": True}, True),
                ({"trace": "t", "missing": ("cp",)}, True), ({"missing": ("cp",)}, False),
                ({"trace": "t"}, False), ({}, False)):
            with self.subTest(asked):
                listener = os.open("/dev/null", os.O_RDONLY)
                heard, made = self.start(b"ready", [listener] if wanted else [], **asked)
                os.close(listener)
                self.assertEqual((heard, len(made.handlers)), (b"go", 3 + wanted))
                for descriptor in set(made.handlers) - {made.wake, made.server.fileno(),
                                                        self.control.fileno()}:
                    os.close(descriptor)

    def test_the_listener_tells_programs_when_they_are_wanted(self):
        for asked, shares in (({}, None), ({"trace_programs": True,
                                            "share": (("/host", "/in"),)}, (b"/in",))):
            listener = os.open("/dev/null", os.O_RDONLY)
            _, made = self.start(b"ready", [listener], trace="t", trace_shell=True, **asked)
            os.close(listener)
            owner = next(handler for descriptor, handler in made.handlers.items()
                         if descriptor not in (made.wake, made.server.fileno(),
                                               self.control.fileno())).__self__
            self.assertEqual(owner.starts is not None, bool(asked))
            if asked:
                self.assertEqual((owner.starts.parent, owner.starts.programs), (55, made.programs))
                self.assertEqual((made.programs.changed, made.programs.shares),
                                 (made.panel.layers.upper, shares))
                os.close(made.programs.root)
            os.close(owner.descriptor)

    def test_the_listener_knows_what_is_missing_and_what_is_refused(self):
        for startup, refusals in ((False, [(2, b"x")]), (True, None)):
            listener = os.open("/dev/null", os.O_RDONLY)
            _, made = self.start(b"ready", [listener], trace_shell=True, trace="t",
                                 missing=("cp", "rm"), fail_shell=((2, "x"),), startup=startup)
            os.close(listener)
            handle = next(handler for descriptor, handler in made.handlers.items()
                          if descriptor not in (made.wake, made.server.fileno(),
                                                self.control.fileno()))
            owner = handle.__self__
            self.assertEqual(owner.missing, {
                f"{base}{folder}/{tool}".encode(): tool.encode() for tool in ("cp", "rm")
                for base in ("/", "/usr/")
                for folder in ("local/sbin", "local/bin", "sbin", "bin", "bin/kxsystem")})
            self.assertEqual((owner.first, owner.with_shell, owner.trace),
                             ({55}, True, made.trace))
            self.assertEqual(owner.refusals and owner.refusals.failures, refusals)
            if refusals:
                self.assertEqual(owner.refusals.parent, 55)
            os.close(owner.descriptor)


class Running(Serving):
    """The start-up script comes first, and only after a reboot."""

    def run_with(self, mode=None, reason="", **asked):
        """Returns the programs that were started."""
        path = f"{self.here}/startup.sh"
        if os.path.lexists(path):
            os.unlink(path)
        if mode is not None:
            with open(path, "x", encoding="ascii"):
                pass
            os.chmod(path, mode)
        made = self.made(**asked)
        started = []

        def start(*words, **named):
            started.append((*words, named) if named else words)
            return len(started)

        def serve(process):
            started.append(process)
            made.status = 9
            made.reason = reason
        with mock.patch.multiple(made, start=start, serve_until=serve,
                                 finish=lambda: started.append(made.status)):
            made.run()
        return started

    def test_the_start_up_script_runs_to_its_end_before_the_command(self):
        script = ([f"{self.here}/startup.sh"], {"startup": True})
        command = (("tool", "x"), "/opt")

        for mode in (0o755, 0o700, 0o001, 0o010):
            self.assertEqual(self.run_with(mode, boot=True, chdir="/opt"),
                             [script, 1, command, 3, 9])
        self.assertEqual(self.run_with(0o755, chdir="/opt"), [command, 1, 9])
        self.assertEqual(self.run_with(0o755, boot=True, no_startup=True, chdir="/opt"),
                         [command, 1, 9])
        for mode in (None, 0o644):
            self.assertEqual(self.run_with(mode, boot=True, chdir="/opt"), [command, 1, 9])

    def test_no_command_starts_when_the_end_was_asked_for_before(self):
        script = ([f"{self.here}/startup.sh"], {"startup": True})
        self.assertEqual(self.run_with(0o755, "time", boot=True), [script, 1, None])


class Finishing(Serving):
    """Everything on the panel ends, and the front hears all about it."""

    def finish(self, made, *ends):
        """Returns the last message; ends are what is waited for."""
        left = [*ends, ChildProcessError()]

        def waitpid(which, how):
            self.assertEqual((which, how), (-1, 0))
            result = left.pop(0)
            if isinstance(result, Exception):
                raise result
            return result
        with mock.patch.object(supervisor.os, "waitpid", waitpid, create=True):
            made.finish()
        self.assertIn(("kill", -1, signal.SIGKILL), self.done)
        self.assertEqual(left, [])
        while not (messages := self.front.receive()):
            pass  # a descriptor comes before the message
        return messages

    def test_the_end_is_that_of_the_command(self):
        made = self.made()
        made.command, made.status = 12, 256
        message = {"end": 256, "reason": "", "summary": None, "trace_failed": "",
                   "fetch_failed": ""}
        self.assertEqual(self.finish(made, (11, 9), (12, 9)), [message])

        made = self.made()
        made.command, made.reason, made.trace.failed = 12, "time", "full"
        self.assertEqual(self.finish(made, (11, 1), (12, 9), (13, 2)), [
            {**message, "end": 9, "reason": "time", "trace_failed": "full"}])

        made = self.made()
        self.assertEqual(self.finish(made, (11, 1)), [{**message, "end": None}])

    def test_a_panel_without_processes_is_ended_already(self):
        made = self.made()
        play(self, supervisor, "os", self.done, kill=ProcessLookupError())

        self.assertEqual(self.finish(made)[0]["end"], None)

    def test_the_summary_compares_what_was_with_what_is(self):
        from kxdevice import summary  # pylint: disable=import-outside-toplevel
        made = self.made()
        made.before = "before"
        self.tools.reboot_asked = True
        with mock.patch.object(summary, "Picture", lambda *words: words), \
                mock.patch.object(summary, "compare", lambda *words: list(map(repr, words))):
            message = self.finish(made)[0]

        self.assertEqual(message["summary"], ["'before'", repr((made.panel, {"A": "1"})), "True"])

    def test_the_folder_that_is_wanted_is_handed_over(self):
        os.makedirs(f"{self.here}/var/lib/x")
        made = self.made(fetched="/var/lib/x/")
        before = len(os.listdir("/proc/self/fd"))
        message = self.finish(made)[0]
        folder = self.front.take()

        self.assertEqual(message["fetch_failed"], "")
        self.assertTrue(os.path.samestat(os.fstat(folder), os.stat(f"{self.here}/var/lib/x")))
        os.close(folder)
        self.assertEqual(len(os.listdir("/proc/self/fd")), before)

    def test_a_folder_that_is_missing_is_not_wrong_but_a_link_is(self):
        for name, text in (("/none/x", ""), ("/link", "Not a directory"),
                           ("/link/x", "Not a directory"), ("/file/x", "Not a directory")):
            with self.subTest(name):
                if not os.path.lexists(f"{self.here}/link"):
                    os.symlink("/var", f"{self.here}/link")
                    os.close(os.open(f"{self.here}/file", os.O_CREAT))
                made = self.made(fetched=name)
                before = len(os.listdir("/proc/self/fd"))
                failed = self.finish(made)[0]["fetch_failed"]
                self.assertEqual(failed.rpartition(": ")[2], text)
                self.assertEqual(self.front.take(), -1)
                self.assertEqual(len(os.listdir("/proc/self/fd")), before)


class Main(Serving):
    """The life of process 1, from its birth to its exit status."""

    def live(self, build=lambda *_: "panel", run=lambda: None, process=1):
        """Lives it; returns the status, what was done and what the front heard."""
        play(self, supervisor, "os", getpid=process)
        ours, theirs = socket.socketpair(socket.AF_UNIX, socket.SOCK_STREAM)
        control, front = Link(ours), Link(theirs)
        self.addCleanup(control.close)
        self.addCleanup(front.close)
        order = SimpleNamespace(options="options", ids="ids", stand_in=b"x")
        self.done.clear()
        paths, finders = list(sys.path), list(sys.meta_path)

        def supervise(*words):
            self.done.append(("supervisor", *words, list(sys.path), list(sys.meta_path)))
            self.assertEqual(words, (order, control, "panel"))
            return SimpleNamespace(run=run)
        try:
            with mock.patch.object(supervisor.panel_module, "build", lambda *words: (
                    self.done.append(("build", *words)), build())[1]), \
                    mock.patch.object(supervisor, "Supervisor", supervise), \
                    self.assertRaises(Ended) as ended:
                supervisor.main(order, "standing", control)
        finally:
            sys.path[:], sys.meta_path[:] = paths, finders
        control.close()
        heard = []
        while (more := front.receive()) is not None:
            heard += more
        return ended.exception.status, list(self.done), heard

    def test_it_builds_the_panel_and_forgets_where_modules_come_from_before_it_serves(self):
        status, done, heard = self.live()
        numbers = ("SIGINT", "SIGTERM", "SIGHUP", "SIGQUIT", "SIGPIPE", "SIGUSR1", "SIGUSR2",
                   "SIGALRM")
        ignored = [("signal", getattr(signal, name), signal.SIG_IGN) for name in numbers]

        self.assertEqual((status, heard), (0, [{"ready": True}]))
        self.assertEqual(sorted(done[2:10]), sorted(ignored))
        self.assertEqual([*done[:2], *done[10:13]], [
            ("prctl", linux.PR_SET_PDEATHSIG, signal.SIGKILL), ("setsid",),
            ("forget_command_line", "kx-device"),
            ("build", "options", "ids", "standing", b"x"), done[12]])
        self.assertEqual(done[12][0], "supervisor")
        self.assertEqual(done[12][3:], ("panel", [], []))
        self.assertEqual(done[13:], [("prctl", linux.PR_SET_PDEATHSIG, signal.SIGKILL),
                                     ("_exit", 0)])

    def test_any_other_process_builds_and_ends_nothing(self):
        status, done, heard = self.live(process=2)

        self.assertEqual((status, heard), (1, [{"fail": "the panel has no processes of its own"}]))
        self.assertEqual([step for step in done if step[0] in ("build", "supervisor", "kill")], [])

    def test_whatever_goes_wrong_is_told_and_ends_it(self):
        advice = "; it needs Linux 5.14 or later with overlay mounts, and rights to mount in " \
                 "namespaces"
        for trouble, text in ((SandboxError("no room"), "no room"),
                              (OSError(errno.EPERM, "mount: no"), "mount: no" + advice),
                              (KeyError("x"), "KeyError: 'x'")):
            def fail(trouble=trouble):
                raise trouble
            status, _, heard = self.live(build=fail)
            self.assertEqual((status, heard), (1, [{"fail": text}]))
            status, _, heard = self.live(run=fail)
            self.assertEqual((status, heard), (1, [{"ready": True}, {"fail": text}]))


class Order(unittest.TestCase):
    """What process 1 needs of the front's descriptors."""

    def test_the_trace_and_the_groups_stay_open(self):
        terms = launch.Terms({}, 1, False, (), (21, 22))
        order = supervisor.Order(None, None, b"", terms, 20, False, "")

        self.assertEqual(order.descriptors(), {20, 21, 22})

    def test_what_is_needed_late_is_loaded_early(self):
        subprocess.run([sys.executable, "-IS", "-c", LATE, os.path.dirname(os.path.dirname(
            supervisor.__file__))], check=True)


if __name__ == "__main__":
    unittest.main()
