# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
"""What the caller of the device sees, with a panel that is played: how it is waited for, asked to
end, reported and cleaned up."""

import errno
import json
import os
import signal
import socket
import stat
import sys
import tempfile
import unittest
from types import SimpleNamespace
from unittest import mock

import kxdevice
from kxdevice import front, ids, launch, options, supervisor
from kxdevice.linux import SandboxError
from kxdevice.link import Link
from played import Ended, end, play

NOTHING = {"files": [], "settings": [], "users": [], "packages": [], "reboot": False}
HOME = os.path.dirname(os.path.dirname(os.path.abspath(front.__file__)))


class Groups:
    """Control groups that tell what the test says."""

    def __init__(self):
        self.killed = self.removed = False

    def killed_for_memory(self):
        """Tells whether memory ended a process."""
        return self.killed

    def remove(self):
        """Notes the removal."""
        self.removed = True


class Playing(unittest.TestCase):
    """A front whose panel is the test; lines for the caller are noted."""

    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.here = folder.name
        self.said = []
        patch = mock.patch.object(options, "complain", self.said.append)
        patch.start()
        self.addCleanup(patch.stop)

    def front(self, outputs=(), fetch=front.Fetch(), **asked):
        """Makes a front with a panel that waits."""
        ours, theirs = socket.socketpair(socket.AF_UNIX, socket.SOCK_STREAM)
        self.panel = Link(theirs)
        self.addCleanup(self.panel.close)
        self.groups = Groups()
        made = front.Front(options.Options(**asked), dict(outputs), self.groups, fetch)
        made.control = Link(ours)
        self.addCleanup(made.control.close)
        made.wake, self.waker = os.pipe2(os.O_NONBLOCK)
        self.addCleanup(os.close, made.wake)
        self.addCleanup(os.close, self.waker)
        return made

    @staticmethod
    def ended(end=0, **facts):
        """The last message of a panel."""
        return {"end": end, "reason": "", "summary": None, "trace_failed": "",
                "fetch_failed": "", **facts}


class Report(Playing):
    """The status and the lines that tell how a panel ended."""

    def report(self, end=0, time_over=False, killed=False, **facts):
        """Returns the status and what was said."""
        self.said.clear()
        made = self.front(trace="t", memory=77, seconds=9, )
        self.groups.killed = killed
        status = made._report(self.ended(end, **facts), time_over)
        return status, list(self.said)

    def test_the_status_is_that_of_the_command_unless_there_is_trouble(self):
        memory = ["device/run: the memory limit of 77 MiB was reached"]
        trace = ["device/run: the trace t is incomplete (full)"]
        late = ["device/run: ended after the time limit of 9 seconds"]
        for arguments, wanted in (
                ({}, (0, [])), ({"end": 5 << 8}, (5, [])), ({"end": 9}, (137, [])),
                ({"end": 15}, (143, [])), ({"end": None}, (137, [])),
                ({"end": 9, "reason": "memory"}, (137, memory)),
                ({"end": 9, "killed": True}, (137, memory)),
                ({"end": 0, "killed": True}, (0, memory)),
                ({"end": 9, "time_over": True, "reason": "memory"}, (124, late)),
                ({"trace_failed": "full"}, (1, trace)),
                ({"trace_failed": "full", "end": 5 << 8}, (5, trace)),
                ({"trace_failed": "full", "end": None, "time_over": True}, (124, trace + late)),
                ({"fetch_failed": "no"}, (1, [": no"])),
                ({"fetch_failed": "no", "trace_failed": "full"}, (1, [*trace, ": no"]))):
            with self.subTest(**arguments):
                self.assertEqual(self.report(**arguments), wanted)

    def test_the_summary_is_written_where_it_was_asked_for(self):
        text = "What the run changed on the panel"
        files = {name: os.open(f"{self.here}/{name}", os.O_RDWR | os.O_CREAT)
                 for name in ("summary", "summary_json")}
        for descriptor in files.values():
            self.addCleanup(os.close, descriptor)
        facts = {**NOTHING, "settings": [{"name": "B\udcff", "before": None, "after": "1"}]}
        made = self.front(files, summary="s", summary_json="j")

        self.assertEqual(made._report(self.ended(summary=facts), False), 0)
        with open(f"{self.here}/summary", "rb") as file:
            written = file.read()
        self.assertTrue(written.startswith(text.encode()))
        self.assertIn(b"  B\xff=1\n", written)
        with open(f"{self.here}/summary_json", encoding="ascii") as file:
            written = file.read()
        self.assertEqual(written, json.dumps(facts, indent=2, sort_keys=True) + "\n")

    def test_only_the_summary_that_was_asked_for_is_written(self):
        written = play(self, front, "trees", write_all=None)
        made = self.front(summary="-")
        made._report(self.ended(summary=NOTHING), False)
        self.assertEqual([call[:2] for call in written], [("write_all", 2)])
        written.clear()
        made = self.front({"summary_json": 44}, summary_json="j")
        made._report(self.ended(summary=NOTHING), False)
        self.assertEqual([call[:2] for call in written], [("write_all", 44)])

    def test_a_summary_that_cannot_be_written_does_not_keep_the_other(self):
        with open("/dev/full", "wb", buffering=0) as full, \
                open(f"{self.here}/json", "wb", buffering=0) as file:
            made = self.front({"summary": full.fileno(), "summary_json": file.fileno()},
                              summary="s", summary_json="j")
            self.assertEqual(made._report(self.ended(summary=NOTHING), False), 1)

        self.assertEqual(self.said, ["device/run: the summary cannot be written "
                                     "(No space left on device)"])
        self.assertGreater(os.path.getsize(f"{self.here}/json"), 0)

    def test_a_folder_that_was_fetched_is_taken_and_let_go_of(self):
        seen = []

        def take(folder):
            seen.append(os.fstat(folder).st_ino)
            if len(seen) > 1:
                raise (SandboxError("no room"), OSError(28, "No space left on device"))[
                    len(seen) - 2]
        for wanted in ((0, []), (1, ["cannot: no room"]),
                       (1, ["cannot: No space left on device"])):
            self.said.clear()
            made = self.front(fetch=front.Fetch("/var", take, "cannot"))
            opened = os.open(self.here, os.O_RDONLY)
            self.panel.hand_over(opened)
            os.close(opened)
            made.control.receive()
            handed = made.control._handed
            self.assertEqual((made._report(self.ended(), False), self.said), wanted)
            self.assertRaises(OSError, os.fstat, handed)
            self.assertEqual(seen[-1], os.stat(self.here).st_ino)

    def test_nothing_fetched_is_nothing_wrong(self):
        made = self.front(fetch=front.Fetch("/var", self.fail, "cannot"))

        self.assertEqual((made._report(self.ended(), False), self.said), (0, []))


class Waiting(Playing):
    """A panel is heard, told to end, and given up when it does not answer."""

    def setUp(self):
        super().setUp()
        self.now = 1000.0
        play(self, front, "time", monotonic=lambda: self.now)

    def waiting(self, *events, **asked):
        """Returns the result of waiting; events happen one by one: a message of the panel, seconds
        that pass, or something to do."""
        made = self.front(**asked)
        left = list(events)
        self.waits = []

        def poll(timeout):
            self.waits.append(timeout)
            event = left.pop(0)
            if isinstance(event, dict):
                self.panel.send(**event)
                return [(made.control.fileno(), 1)]
            if callable(event):
                return event(made) or []
            self.now += event
            return []
        watched = []
        play(self, front, "select", poll=lambda: SimpleNamespace(
            poll=poll, register=lambda *words: watched.append(words)))
        self.made = made
        self.addCleanup(lambda: made.drive_socket and made.drive_socket.close())
        try:
            return made.wait()
        finally:
            self.assertEqual(watched[:2], [(made.control.fileno(), front.select.POLLIN),
                                       (made.wake, front.select.POLLIN)])

    def told(self):
        """Returns what the panel was told."""
        self.made.control._socket.shutdown(socket.SHUT_WR)
        messages = []
        while (more := self.panel.receive()) is not None:
            messages += more
        return messages

    def test_a_panel_ends_with_its_commands_status(self):
        self.assertEqual(self.waiting({"ready": True}, self.ended(3 << 8)), 3)
        self.assertEqual(self.told(), [])
        self.assertEqual(self.waits, [300001.0, 600001.0])

    def test_the_drive_can_be_moved_from_the_start_of_the_command(self):
        self.assertEqual(self.waiting(
            lambda _: self.assertEqual(os.listdir(self.here), []), {"ready": True},
            lambda _: self.assertEqual(os.listdir(self.here), ["control"]), self.ended(),
            state=self.here), 0)

    def test_who_moves_the_drive_hears_of_the_panel_how_that_went(self):
        answers = []

        def ask(made):
            made.drive_client = SimpleNamespace(sendall=answers.append, close=lambda: None)
        self.assertEqual(self.waiting({"ready": True}, ask, {"drive": "no"}, self.ended()), 0)

        self.assertEqual(answers, [b'{"problem": "no"}\n'])

    def test_the_time_counts_from_the_start_of_the_command(self):
        self.assertEqual(self.waiting(299, {"ready": True}, 9.5, self.ended(), seconds=10), 0)
        self.assertEqual(self.waits, [300001.0, 1001.0, 10001.0, 501.0])

    def test_a_command_that_takes_too_long_is_told_to_end(self):
        self.assertEqual(self.waiting({"ready": True}, 10, self.ended(9), seconds=10), 124)
        self.assertEqual(self.told(), [{"stop": "time"}])
        self.assertEqual(self.waits[-1], 15001.0)

    def test_a_panel_that_does_not_answer_is_given_up(self):
        text = "^the panel does not answer; its processes were ended$"
        with self.assertRaisesRegex(SandboxError, text):
            self.waiting(300)
        with self.assertRaisesRegex(SandboxError, text):
            self.waiting({"ready": True}, 10, 15, seconds=10)
        self.assertEqual(self.told(), [{"stop": "time"}])

        def signalled(made):
            made._note_signal(signal.SIGTERM, None)
        with self.assertRaisesRegex(SandboxError, text):
            self.waiting({"ready": True}, signalled, 15)
        self.assertEqual(self.told(), [{"stop": "signal"}])

    def test_a_signal_ends_the_panel_once_and_the_first_one_counts(self):
        def signalled(made):
            made._note_signal(signal.SIGTERM, None)
            made._note_signal(signal.SIGINT, None)
            os.write(self.waker, b"xx")
            return [(made.wake, 1)]
        self.assertEqual(self.waiting({"ready": True}, signalled, 1, self.ended(9)), 137)

        self.assertEqual(self.told(), [{"stop": "signal"}])
        self.assertEqual(self.made.ended_by, signal.SIGTERM)
        self.assertEqual(self.waits, [300001.0, 600001.0, 15001.0, 14001.0])
        self.assertRaises(BlockingIOError, os.read, self.made.wake, 1)

    def test_a_signal_before_the_panel_is_there_is_not_waited_with(self):
        def signalled(made):
            made._note_signal(signal.SIGTERM, None)
        self.assertEqual(self.waiting(signalled), 125)

    def test_what_the_panel_says_of_itself_is_passed_on(self):
        with self.assertRaisesRegex(SandboxError, "^no room$"):
            self.waiting({"fail": "no room"})

        def gone(made):
            self.panel.close()
            return [(made.control.fileno(), 1)]
        with self.assertRaisesRegex(SandboxError,
                                    "^the panel's supervisor was ended from outside$"):
            self.waiting(gone)

    def test_a_panel_that_was_gone_when_it_was_told_to_end_is_noticed(self):
        def gone(made):
            self.panel.close()
            made._note_signal(signal.SIGTERM, None)

        def read(made):
            return [(made.control.fileno(), 1)]
        with self.assertRaisesRegex(SandboxError, "was ended from outside"):
            self.waiting({"ready": True}, gone, read)


class Drive(Playing):
    """Who moves the drive from outside is heard at the state's address."""

    def listening(self, state=True):
        """Returns a front that listens, and what it registered."""
        made = self.front(state=self.here if state else "")
        registered = []
        made._listen_for_drive(SimpleNamespace(register=lambda *words: registered.append(words)))
        if made.drive_socket is not None:
            self.addCleanup(made.drive_socket.close)
        return made, registered

    def caller(self, request):
        """Asks for something; returns the socket to read the answer from."""
        link = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
        self.addCleanup(link.close)
        link.settimeout(10)
        link.connect(f"{self.here}/control")
        link.sendall(request)
        return link

    def test_a_throw_away_panel_has_no_address(self):
        made, registered = self.listening(False)

        self.assertEqual((made.drive_socket, registered), (None, []))

    def test_an_old_address_gives_way(self):
        with open(f"{self.here}/control", "x", encoding="ascii"):
            pass
        before = len(os.listdir("/proc/self/fd"))
        made, registered = self.listening()

        self.assertEqual([words[0] for words in registered], [made.drive_socket.fileno()])
        self.assertEqual(registered[0][1], front.select.POLLIN)
        self.assertFalse(os.get_inheritable(made.drive_socket.fileno()))
        self.caller(b"")
        # Its own two, the panel's two, those of the wake-up, and the caller's.
        self.assertEqual(len(os.listdir("/proc/self/fd")), before + 6)

    def test_a_request_is_handed_on_and_answered_with_the_panels_words(self):
        made, _ = self.listening()
        for request, wanted in ((b'{"drive": "plug", "new": true}', ("plug", True)),
                                (b'{"drive": "pull", "new": false}', ("pull", False)),
                                (b'{"drive": "pull"}', ("pull", False))):
            caller = self.caller(request)
            made._next_messages(SimpleNamespace(
                poll=lambda _: [(made.drive_socket.fileno(), 1)]), 1)
            self.assertEqual(self.panel.receive(), [{"drive": wanted[0], "new": wanted[1]}])
            made._answer_drive("no drive")
            self.assertEqual(caller.recv(100), b'{"problem": "no drive"}\n')
            self.assertEqual(caller.recv(100), b"")
            self.assertIsNone(made.drive_client)

    def test_one_is_answered_at_a_time(self):
        made, _ = self.listening()
        first = self.caller(b'{"drive": "plug"}')
        made._hear_drive()
        second = self.caller(b'{"drive": "pull"}')
        made._hear_drive()

        self.assertEqual(second.recv(100), b"")
        self.assertEqual(self.panel.receive(), [{"drive": "plug", "new": False}])
        made._answer_drive("")
        self.assertEqual(first.recv(100), b'{"problem": ""}\n')

    def test_who_talks_nonsense_or_leaves_does_not_disturb(self):
        made, _ = self.listening()
        caller = self.caller(b"nonsense")
        made._hear_drive()
        self.assertEqual((caller.recv(100), made.drive_client), (b"", None))
        made._answer_drive("nobody asked")
        caller = self.caller(b'{"drive": "plug"}')
        made._hear_drive()
        caller.close()
        made._answer_drive("x")
        self.assertIsNone(made.drive_client)

    def test_who_says_nothing_is_given_five_seconds(self):
        made, _ = self.listening()
        waits = []

        def receive(_):
            raise TimeoutError
        client = SimpleNamespace(settimeout=waits.append, recv=receive,
                                 close=lambda: waits.append("closed"))
        made.drive_socket.close()
        made.drive_socket = SimpleNamespace(accept=lambda: (client, None), close=lambda: None)
        made._hear_drive()

        self.assertEqual((waits, made.drive_client), ([5, "closed"], None))

    def test_the_address_is_gone_at_the_end(self):
        made, _ = self.listening()
        made.clean_up()

        self.assertEqual(os.listdir(self.here), [])
        self.assertEqual(made.drive_socket.fileno(), -1)
        self.assertTrue(self.groups.removed)
        made.clean_up()


class CleanUp(Playing):
    """The keeper is told to end and waited for, before its groups are removed."""

    def test_the_keeper_ends_before_the_groups_are_removed(self):
        made = self.front()
        made.keeper, made.life = 77, 66
        results = [InterruptedError(), (77, 0)]

        def waitpid(*_):
            result = results.pop(0)
            if isinstance(result, Exception):
                raise result
            return result
        done = play(self, front, "os", close=None, waitpid=waitpid)
        made.groups = SimpleNamespace(remove=lambda: done.append("removed"))
        made.clean_up()

        self.assertEqual(done, [("close", 66), ("waitpid", 77, 0), ("waitpid", 77, 0), "removed"])


class Start(Playing):
    """How the keeper gets its ids, and what it says when it cannot start."""

    def gives(self, *messages):
        """Returns what was done for a keeper that sends messages."""
        made = self.front()
        made.keeper = 77
        done, left = [], list(messages)
        link = SimpleNamespace(recv=lambda size: left.pop(0), sendall=done.append)
        play(self, front, "ids_module", done, write_map=None)
        try:
            made._give_ids("ids", link)
        except SandboxError as error:
            done.append(str(error))
        return done

    def test_an_ordinary_users_keeper_is_given_its_map(self):
        self.assertEqual(self.gives(b"map", b"started"), [("write_map", 77, "ids"), b"go"])
        self.assertEqual(self.gives(b"started"), [])

    def test_a_keeper_that_cannot_start_says_why(self):
        self.assertEqual(self.gives(b"no\xff"), ["no\ufffd"])
        self.assertEqual(self.gives(b""), ["the process that keeps the panel ended at once"])
        self.assertEqual(self.gives(b"map", b"no"), [("write_map", 77, "ids"), b"go", "no"])

    def test_the_keeper_never_comes_back(self):
        made = self.front()
        control, wake = made.control, made.wake
        terms = launch.Terms({}, 1, False, (), (21,))
        order = supervisor.Order(made.options, "ids", b"", terms, -1, False, "")
        for trouble in (None, KeyError()):
            done = play(self, front, "signal", signal=None, set_wakeup_fd=None)
            play(self, front, "os", done, fork=0, _exit=end)

            def keep(*words, done=done, trouble=trouble):
                done.append(("keep", *words))
                if trouble:
                    raise trouble
            with mock.patch.object(front.keeper, "keep", keep), self.assertRaises(Ended) as ended:
                made.start(order, 33)
            self.assertEqual(ended.exception.status, 1)
            self.assertEqual(done[-3:-1], [("set_wakeup_fd", -1), (
                "keep", order, done[-2][2], made.groups, 33)])
            ends = done[-2][2]
            made.control.send(x=1)
            self.assertEqual(ends.control.receive(), [{"x": 1}])
            os.close(made.life)
            self.assertEqual(os.read(ends.life, 1), b"")
            wakers = [step[1] for step in done if step[0] == "set_wakeup_fd" and step[1] >= 0]
            for descriptor in (ends.life, made.wake, *wakers):
                os.close(descriptor)
            for link in (ends.start, ends.control, made.control):
                link.close()
        made.control, made.wake = control, wake

    def test_the_keeper_has_its_ends_and_the_front_keeps_none_of_them(self):
        made = self.front()
        groups = [os.open("/dev/null", os.O_WRONLY) for _ in range(2)]
        kept = {}
        handled = play(self, front, "signal", getsignal=lambda number: {
            signal.SIGHUP: signal.SIG_IGN}.get(number, signal.SIG_DFL), signal=None,
            set_wakeup_fd=None)
        play(self, front, "os", fork=99)
        terms = launch.Terms({}, 1, False, (), tuple(groups))
        order = supervisor.Order(made.options, "ids", b"", terms, -1, False, "")
        before = os.listdir("/proc/self/fd")
        with mock.patch.object(made, "_give_ids", lambda *words: kept.update(
                ids=words[0], link=words[1].fileno())):
            made.start(order, -1)

        self.assertEqual(made.keeper, 99)
        self.assertEqual(kept["ids"], "ids")
        after = os.listdir("/proc/self/fd")
        # Both ends of the wake-up, the control, the life; those of the groups are let go of.
        self.assertEqual(len(after) - len(before), 4 - len(groups))
        self.assertEqual(handled[:5], [
            ("getsignal", signal.SIGINT), ("signal", signal.SIGINT, made._note_signal),
            ("getsignal", signal.SIGTERM), ("signal", signal.SIGTERM, made._note_signal),
            ("getsignal", signal.SIGHUP)])
        self.assertEqual(handled[5][0], "set_wakeup_fd")
        self.assertEqual(handled[5][2], {"warn_on_full_buffer": False})
        self.assertFalse(os.get_blocking(made.wake))
        made.control.close()
        for descriptor in (made.wake, handled[5][1], made.life):
            self.assertFalse(os.get_inheritable(descriptor))
            os.close(descriptor)


class Play(unittest.TestCase):
    """The way from the command line to the status."""

    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.here = folder.name
        self.said = []
        for patch in (mock.patch.object(options, "complain", self.said.append),
                      mock.patch.object(front, "_fill_standard_streams", lambda: ())):
            patch.start()
            self.addCleanup(patch.stop)
        self.expecting = play(self, front, "linux", expect_children=None)

    def test_wrong_use_and_trouble_have_a_line_and_a_status_each(self):
        for arguments, status, line in (
                (["--x"], 2, "device/run: unknown option --x; see device/run --help"),
                (["--erase", "--state", self.here], 125,
                 f"device/run: cannot make the sandboxed device: {self.here} is not the state of "
                 "a panel; name a new or an empty folder"),
                (["--trace", f"{self.here}/no/t", "--", "true"], 125,
                 f"device/run: cannot make the sandboxed device: {self.here}/no/t cannot be "
                 "written (No such file or directory)")):
            self.said.clear()
            self.assertEqual(front.play(arguments, HOME), status)
            self.assertEqual(self.said, [line])

    def test_the_ends_of_children_are_expected_before_there_are_any(self):
        with mock.patch.object(front, "_run_command", lambda *_: self.expecting.append("run")):
            front.play(["true"], HOME)

        self.assertEqual(self.expecting, [("expect_children",), "run"])

    def test_a_panel_that_was_erased_is_a_success(self):
        done = play(self, front, "state_module", erase=None)
        self.assertEqual(front.play(["--erase", "--state", self.here], HOME), 0)

        self.assertEqual(done, [("erase", self.here)])

    def test_erasing_what_is_not_there_is_done(self):
        self.assertEqual(front.play(["--erase", "--state", f"{self.here}/none"], HOME), 0)
        os.symlink("nowhere", f"{self.here}/link")
        self.assertEqual(front.play(["--erase", "--state", f"{self.here}/link"], HOME), 125)

    def test_help_is_shown_without_a_look_at_the_streams(self):
        with mock.patch.object(options, "show_help", return_value=5) as shown, \
                mock.patch.object(front, "_refuse_folders_as_streams") as looked:
            self.assertEqual(front.play(["--help"], HOME), 5)
        shown.assert_called_once_with(options.HELP)
        looked.assert_not_called()

    def test_a_folder_as_a_stream_is_refused(self):
        with mock.patch.object(front, "_refuse_folders_as_streams",
                               side_effect=options.UsageError("no")):
            self.assertEqual(front.play(["true"], HOME), 2)

    def test_who_was_ended_by_a_signal_ends_by_it(self):
        for status, wanted in ((-15, [("signal", 15, signal.SIG_DFL),
                                      ("kill", os.getpid(), 15)]), (3, [])):
            done = play(self, front, "signal", signal=None)
            play(self, front, "os", done, kill=None)
            with mock.patch.object(front, "play", return_value=status):
                self.assertEqual(front.run([], HOME), status)
            self.assertEqual(done, wanted)

    # -- a run -----------------------------------------------------------------------------------

    def run_with(self, *arguments, has_memory=True, status=3, ended_by=0, trouble=None):
        """Plays a run; returns its status, what was made of control groups, and the orders."""
        done = []

        class Front(front.Front):
            """Notes what it is asked for."""

            def start(self, order, lock):
                done.append(("start", order, lock, self.outputs))
                if trouble:
                    raise trouble

            def wait(self):
                done.append(("wait",))
                self.ended_by = ended_by
                return status

            def clean_up(self):
                done.append(("clean up",))
        groups = SimpleNamespace(make=lambda *words: done.append(("make", *words)),
                                 open_members=lambda: (88,) if done else (),
                                 has_memory=has_memory)
        with mock.patch.object(front, "Front", Front), \
                mock.patch.object(front.cgroups, "Groups", lambda: groups), \
                mock.patch.object(ids, "for_caller", lambda: ids.Ids([(0, 7, 1)], [(0, 8, 1)])), \
                mock.patch.dict(os.environ, {"LANG": "l"}, clear=True):
            result = front.play([*arguments], HOME, front.Fetch("/var/x"))
        return result, done

    def test_the_panel_gets_what_was_asked_for(self):
        trace = f"{self.here}/trace"
        result, done = self.run_with("--memory", "20", "--processes", "30", "--ignore-sigchld",
                                     "--trace", trace, "--summary", "--", "a", "b")
        _, order, lock, outputs = done[1]

        self.assertEqual(result, 3)
        self.assertEqual(done[0], ("make", f"kx-device-{os.getpid()}", 20 << 20, 30))
        self.assertEqual(done[2:], [("wait",), ("clean up",)])
        self.assertEqual(order.options.command, ("a", "b"))
        self.assertEqual(order.terms, launch.Terms(
            {"PATH": "/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin",
             "HOME": "/root", "LANG": "l"}, 30, True, (), (88,)))
        self.assertTrue(order.stand_in.startswith(b"#!/usr/bin/python3 -IS\n"))
        self.assertEqual((order.ids.users, order.watch_memory, order.fetched, lock),
                         ([(0, 7, 1)], False, "/var/x", -1))
        self.assertEqual(outputs, {"trace": order.trace})
        facts = os.fstat(order.trace)
        self.assertTrue(os.path.samestat(facts, os.stat(trace)))
        self.assertEqual(facts.st_mode & 0o777 & ~0o644, 0)
        self.assertFalse(os.get_inheritable(order.trace))
        self.assertIn("kxdevice.summary", sys.modules)
        os.close(order.trace)

    def test_without_a_trace_and_groups_the_panel_watches_its_memory_itself(self):
        _, done = self.run_with("true", has_memory=False)
        order = done[1][1]

        self.assertEqual((order.trace, order.watch_memory, order.terms.ignore_sigchld),
                         (-1, True, False))

    def test_a_run_that_was_ended_by_a_signal_tells_the_signal(self):
        self.assertEqual(self.run_with("true", ended_by=15, status=137)[0], -15)
        self.assertEqual(self.run_with("true", status=0)[0], 0)

    def test_what_was_made_is_cleaned_up_after_trouble_as_well(self):
        result, done = self.run_with("true", trouble=SandboxError("trouble"))

        self.assertEqual((result, done[-1]), (125, ("clean up",)))
        self.assertEqual(self.said, ["device/run: cannot make the sandboxed device: trouble"])

    def test_a_kept_panel_is_held_for_the_run_with_its_own_ids(self):
        state = f"{self.here}/s"
        own = ids.Ids([(0, os.getuid() or 524288, 1)], [(0, os.getgid() or 524288, 1)])
        front.state_module.make_state(state, own)
        _, done = self.run_with("--state", state, "true")
        _, order, lock, _ = done[1]
        self.assertEqual(order.ids.users, own.users)
        self.assertTrue(os.path.samestat(os.fstat(lock), os.stat(f"{state}/lock")))

        result, done = self.run_with("--state", state, "true")
        self.assertEqual((result, done), (125, []))
        self.assertEqual(self.said, [
            "device/run: cannot make the sandboxed device: another panel is running in "
            f"{state}; wait for its end, or use another folder"])
        os.close(lock)

    def test_what_summaries_are_made_with_is_loaded_only_for_one(self):
        for words, wanted in (((), False), (("--summary",), True)):
            with mock.patch.dict(sys.modules), mock.patch.dict(vars(kxdevice)):
                sys.modules.pop("kxdevice.summary", None)
                vars(kxdevice).pop("summary", None)
                self.run_with(*words, "true")
                self.assertEqual("kxdevice.summary" in sys.modules, wanted)

    def test_nobody_else_writes_a_new_report(self):
        self.addCleanup(os.umask, os.umask(0))
        _, done = self.run_with("--trace", f"{self.here}/trace", "true")

        self.assertEqual(stat.S_IMODE(os.fstat(done[1][3]["trace"]).st_mode), 0o644)
        os.close(done[1][3]["trace"])

    def test_reports_are_files_of_their_own_that_are_emptied(self):
        for name in ("trace", "summary", "json"):
            with open(f"{self.here}/{name}", "w", encoding="ascii") as file:
                file.write("old")
        _, done = self.run_with("--trace", f"{self.here}/trace", f"--summary={self.here}/summary",
                                "--summary-json", f"{self.here}/json", "true")
        outputs = done[1][3]

        self.assertEqual(sorted(outputs), ["summary", "summary_json", "trace"])
        for field, name in (("trace", "trace"), ("summary", "summary"), ("summary_json", "json")):
            self.assertTrue(os.path.samestat(os.fstat(outputs[field]),
                                             os.stat(f"{self.here}/{name}")))
            self.assertEqual(os.path.getsize(f"{self.here}/{name}"), 0)
            os.write(outputs[field], b"new")
            os.close(outputs[field])


class Streams(unittest.TestCase):
    """Standard streams that are closed or folders."""

    @staticmethod
    def seen(*numbers):
        """Returns what a child that has closed streams is told, which streams it has then, and how
        many descriptors more."""
        reader, writer = os.pipe()
        child = os.fork()
        if child == 0:
            try:
                os.dup2(writer, 60)
                for number in range(3):
                    os.dup2(reader, number)
                before = len(os.listdir("/proc/self/fd"))
                for number in numbers:
                    os.close(number)
                told = front._fill_standard_streams()
                # What stands in for a stream can be read and written.
                null = [number for number in range(3)
                        if os.readlink(f"/proc/self/fd/{number}") == "/dev/null"
                        and (os.read(number, 1), os.write(number, b"x")) == (b"", 1)]
                more = len(os.listdir("/proc/self/fd")) - before
                os.write(60, json.dumps([told, null, more]).encode())
            finally:
                os._exit(0)
        os.close(writer)
        with os.fdopen(reader, "rb") as file:
            text = file.read()
        os.waitpid(child, 0)
        return json.loads(text)

    def test_closed_streams_are_filled_and_told(self):
        for numbers in ((), (0,), (1,), (2,), (0, 2), (1, 2), (0, 1, 2)):
            self.assertEqual(self.seen(*numbers), [list(numbers), list(numbers), 0])

    def test_a_stream_that_cannot_be_looked_at_is_trouble(self):
        play(self, front, "os", fstat=OSError(errno.EIO, "no"))
        with self.assertRaises(OSError):
            front._fill_standard_streams()

    def test_a_folder_as_a_stream_is_a_way_out(self):
        for number in range(3):
            play(self, front, "os", fstat=lambda which, number=number: os.stat(
                "/" if which == number else "/dev/null"))
            with self.assertRaises(options.UsageError) as raised:
                front._refuse_folders_as_streams(())
            self.assertEqual(str(raised.exception), f"standard stream {number} is a folder, which "
                             "would be a way out of the panel")
            front._refuse_folders_as_streams((number,))


if __name__ == "__main__":
    unittest.main()
