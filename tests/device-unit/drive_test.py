# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
"""The drive of a kept panel, moved from outside: between two runs, and while one goes on."""

import errno
import json
import os
import shutil
import socket
import stat
import tempfile
import threading
import unittest
from unittest import mock

from kxdevice import drive, ids, options, state, trees
from kxdevice.linux import SandboxError
from kxdevice.options import UsageError
from played import play

OWN = ids.Ids([(0, os.getuid() or 524288, 1)], [(0, os.getgid() or 524288, 1)])
PLUGGED = {"present": True, "plugged": True, "mounted": True}
PULLED = {"present": True, "plugged": False, "mounted": False}


class Parse(unittest.TestCase):
    """The command line."""

    def test_action_folder_and_state_are_taken_in_any_order(self):
        here = os.getcwd()
        for words, wanted in (
                ("plug --state s", ("plug", "", f"{here}/s")),
                ("--state=s plug /tmp", ("plug", "/tmp", f"{here}/s")),
                ("pull --state /s/", ("pull", "", "/s")),
                ("plug /tmp --state=a --state b=c", ("plug", "/tmp", f"{here}/b=c"))):
            self.assertEqual(drive._parse(words.split()), wanted)

    def test_wrong_use_is_told(self):
        form = "give plug [DIR] or pull"
        for words, text in (
                ("", form), ("--state s", form), ("eject --state s", form),
                ("pull /tmp --state s", form), ("plug /tmp /tmp --state s", form),
                ("plug", "--state is missing"), ("pull /tmp", form),
                ("plug --state", "unknown option --state, or its value is missing"),
                ("plug --state=", "unknown option --state=, or its value is missing"),
                ("-x plug", "unknown option -x, or its value is missing"),
                ("plug /nowhere --state s", "/nowhere is not a folder")):
            with self.subTest(words), self.assertRaises(UsageError) as raised:
                drive._parse(words.split())
            self.assertEqual(str(raised.exception), text)


class Run(unittest.TestCase):
    """Status and line of a whole call."""

    def run_with(self, *words, result=""):
        """Returns the status, the lines and what was done; result is that of the act."""
        said, done = [], []

        def act(*arguments):
            done.append(arguments)
            if isinstance(result, Exception):
                raise result
            return result
        with mock.patch.object(options, "complain", said.append), \
                mock.patch.object(drive, "_act", act), \
                mock.patch.object(drive.linux, "expect_children", lambda: done.append("children")):
            return drive.run(words), said, done

    def test_it_is_done_not_possible_or_wrong_use(self):
        act = ["children", ("pull", "", "/s")]
        for result, status, said in (
                ("", 0, []), ("no drive", 1, ["device/drive: no drive"]),
                (SandboxError("no state"), 1, ["device/drive: no state"]),
                (OSError(errno.EIO, "broken"), 1, ["device/drive: broken"])):
            self.assertEqual(self.run_with("pull", "--state", "/s", result=result),
                             (status, said, act))
        self.assertEqual(self.run_with("pull"), (
            2, ["device/drive: --state is missing; see device/drive --help"], ["children"]))
        self.assertEqual(self.run_with(), (
            2, ["device/drive: give plug [DIR] or pull; see device/drive --help"], ["children"]))

    def test_help_is_shown(self):
        for word in ("--help", "-h"):
            with mock.patch.object(options, "show_help", return_value=5) as shown:
                self.assertEqual(self.run_with(word, "x"), (5, [], ["children"]))
            shown.assert_called_once_with(drive.HELP)
        self.assertIn("/dev/sda1 appears, its files show at /mnt/usb\n", drive.HELP)


class Kept(unittest.TestCase):
    """A state between two runs; every change is made as the panel, which is played."""

    @classmethod
    def setUpClass(cls):
        cls.template = tempfile.mkdtemp()
        state.make_state(f"{cls.template}/s", OWN)
        os.mkdir(f"{cls.template}/stick")
        os.chmod(f"{cls.template}/stick", 0o2751)
        with open(f"{cls.template}/stick/note", "w", encoding="ascii") as file:
            file.write("one")

    @classmethod
    def tearDownClass(cls):
        shutil.rmtree(cls.template)

    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.here = os.path.realpath(folder.name)
        for name in ("s", "stick"):
            shutil.copytree(f"{self.template}/{name}", f"{self.here}/{name}")
            os.chmod(f"{self.here}/{name}", stat.S_IMODE(os.stat(
                f"{self.template}/{name}").st_mode))
        self.path = f"{self.here}/s"
        self.as_panel = 0

        def run_as_panel(the_ids, action):
            self.assertEqual(the_ids.users, OWN.users)
            self.as_panel += 1
            action()
        patch = mock.patch.object(state, "run_as_panel", run_as_panel)
        patch.start()
        self.addCleanup(patch.stop)
        self.owners = []
        play(self, drive, "os", self.owners, chown=None)
        self.held = []
        self.turns = play(self, drive, "fcntl", flock=lambda turn, _: self.held.append(
            os.readlink(f"/proc/self/fd/{turn}")))

    def act(self, *words):
        """Acts like a program does, which lets go of the state by ending."""
        made = []

        def open_state(path, really=state.open_state):
            made.append(really(path))
            return made[0]
        with mock.patch.object(state, "open_state", open_state):
            try:
                return drive._act(*words)
            finally:
                if made and made[0].lock >= 0:
                    os.close(made[0].lock)

    def note(self, facts):
        """Writes where the drive is."""
        with open(f"{self.path}/panel/drive.json", "w", encoding="ascii") as file:
            json.dump(facts, file)

    def noted(self):
        """Returns where the drive will be at the next start, None for nowhere."""
        try:
            with open(f"{self.path}/panel/drive.json", encoding="ascii") as file:
                return json.load(file)
        except FileNotFoundError:
            return None

    def files(self, name="drive"):
        """Returns the names in a folder of the state."""
        return os.listdir(f"{self.path}/{name}")

    def test_what_is_possible_depends_on_where_the_drive_is(self):
        stick = f"{self.here}/stick"
        busy = "a drive is plugged in already; pull it first"
        never = "there has been no drive yet; name a folder to plug in"
        none = "no drive is plugged in"
        for before, action, source, problem, after in (
                (None, "plug", "", never, None), (None, "pull", "", none, None),
                (None, "plug", stick, "", PLUGGED), (PLUGGED, "plug", "", busy, PLUGGED),
                (PLUGGED, "plug", stick, busy, PLUGGED), (PLUGGED, "pull", "", "", PULLED),
                (PULLED, "pull", "", none, PULLED), (PULLED, "plug", "", "", PLUGGED),
                (PULLED, "plug", stick, "", PLUGGED)):
            with self.subTest(before=before, action=action, source=source):
                if before is None:
                    folder = os.open(f"{self.path}/panel", trees.DIR_FLAGS)
                    trees.remove(folder, "drive.json")
                    os.close(folder)
                else:
                    self.note(before)
                self.as_panel = 0
                self.assertEqual(self.act(action, source, self.path), problem)
                self.assertEqual(self.noted(), after)
                self.assertEqual(self.as_panel, 0 if problem else 2 if source else 1)

    def test_another_drive_is_a_whole_copy_in_place_of_the_old_one(self):
        for name in ("drive/old", "incoming/rest"):
            os.close(os.open(f"{self.path}/{name}", os.O_CREAT))
        self.note(PULLED)
        self.assertEqual(self.act("plug", f"{self.here}/stick", self.path), "")

        self.assertEqual((self.files(), self.files("incoming")), (["note"], []))
        self.assertEqual(stat.S_IMODE(os.stat(f"{self.path}/drive").st_mode), 0o2751)
        with open(f"{self.path}/drive/note", encoding="ascii") as file:
            self.assertEqual(file.read(), "one")
        facts = os.stat(f"{self.path}/panel")
        self.assertEqual([(*call[:4], sorted(call[4])) for call in self.owners], [
            ("chown", "drive.json", facts.st_uid, facts.st_gid, ["dir_fd"])])

    def test_a_drive_whose_files_cannot_be_taken_is_not_plugged_in(self):
        self.note(PULLED)
        play(self, drive, "tools", take_incoming=OSError(errno.ENOSPC, "full"))
        with self.assertRaises(OSError):
            self.act("plug", f"{self.here}/stick", self.path)

        self.assertEqual(self.noted(), PULLED)

    def test_the_old_drive_keeps_its_files_when_it_comes_back(self):
        os.close(os.open(f"{self.path}/drive/old", os.O_CREAT))
        self.note(PULLED)
        self.assertEqual(self.act("plug", "", self.path), "")

        self.assertEqual(self.files(), ["old"])

    @unittest.skipUnless(os.geteuid() == 0, "only root gives files away")
    def test_a_copy_belongs_to_whom_the_folder_belongs(self):
        os.chown(f"{self.path}/incoming", 1234, 4321)
        made = state.open_state(self.path)
        drive._bring(made, f"{self.here}/stick")

        facts = os.stat(f"{self.path}/incoming/note")
        self.assertEqual((facts.st_uid, facts.st_gid), (1234, 4321))

    def test_who_moves_it_takes_a_turn(self):
        umask = os.umask(0)
        self.addCleanup(os.umask, umask)
        self.act("pull", "", self.path)

        self.assertEqual(self.held, [f"{self.path}/drive.lock"])
        self.assertEqual(self.turns[0][2], drive.fcntl.LOCK_EX)
        self.assertEqual(stat.S_IMODE(os.stat(f"{self.path}/drive.lock").st_mode), 0o600)
        os.unlink(f"{self.path}/drive.lock")
        os.symlink("elsewhere", f"{self.path}/drive.lock")
        with self.assertRaises(OSError):
            self.act("pull", "", self.path)
        self.assertFalse(os.path.exists(f"{self.path}/elsewhere"))

    def test_it_is_ones_turn_before_a_look_at_the_panel(self):
        order = []
        play(self, drive, "fcntl", flock=lambda *_: order.append("turn"))
        with mock.patch.object(state.State, "try_lock", lambda _: order.append("look") or True):
            self.act("pull", "", self.path)

        self.assertEqual(order, ["turn", "look"])

    def test_a_folder_that_is_no_state_is_refused_and_left_alone(self):
        with self.assertRaisesRegex(SandboxError, "is not the state of a panel"):
            self.act("pull", "", f"{self.here}/stick")

        self.assertEqual(os.listdir(f"{self.here}/stick"), ["note"])

    # -- while a panel runs ----------------------------------------------------------------------

    def running(self):
        """Holds the state like a run does."""
        run = state.open_state(self.path)
        self.assertTrue(run.try_lock())
        self.addCleanup(os.close, run.lock)

    def listen(self, answer=b'{"problem": "no"}\n'):
        """Answers one request, after which it is in self.heard."""
        server = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
        self.addCleanup(server.close)
        server.bind(f"{self.path}/control")
        server.listen()
        self.heard = []

        def serve():
            client, _ = server.accept()
            client.settimeout(10)
            self.heard.append(json.loads(client.recv(4096)))
            client.sendall(answer)
            client.close()
        thread = threading.Thread(target=serve)
        thread.start()
        self.addCleanup(thread.join, 10)

    def test_the_running_panel_is_asked_and_its_words_are_passed_on(self):
        self.running()
        for action, folder, new in (("pull", "", False), ("plug", "", False),
                                    ("plug", f"{self.here}/stick", True)):
            self.listen()
            self.assertEqual(self.act(action, folder, self.path), "no")
            self.assertEqual(self.heard, [{"drive": action, "new": new}])
            self.assertIsNone(self.noted())
            os.unlink(f"{self.path}/control")
        self.listen(json.dumps({"problem": "no" * 1000}).encode() + b"\n")
        self.assertEqual(self.act("pull", "", self.path), "no" * 1000)
        # The copy waits for the panel to take it.
        self.assertEqual((self.files(), self.files("incoming")), ([], ["note"]))

    def test_a_running_panels_drive_is_not_replaced(self):
        self.running()
        self.note(PLUGGED)

        self.assertEqual(self.act("plug", f"{self.here}/stick", self.path),
                         "a drive is plugged in already; pull it first")
        self.assertEqual(self.files("incoming"), [])

    def test_a_panel_that_does_not_answer_is_told(self):
        self.running()
        again = "the panel is just starting or ending; try again"
        before = len(os.listdir("/proc/self/fd"))
        self.assertEqual(drive._ask(self.path, {}), again)
        with socket.socket(socket.AF_UNIX, socket.SOCK_STREAM) as gone:
            gone.bind(f"{self.path}/control")
        self.assertEqual(drive._ask(self.path, {}), again)
        os.unlink(f"{self.path}/control")
        self.assertEqual(len(os.listdir("/proc/self/fd")), before)
        self.listen(b"nonsense\n")
        self.assertRegex(drive._ask(self.path, {"drive": "pull"}),
                         r"^the running panel does not answer \(Expecting value.*\)$")

    def test_it_is_given_half_a_minute(self):
        waits = []

        class Silent(socket.socket):
            """A panel that says nothing."""

            def settimeout(self, seconds):
                waits.append(seconds)

            def connect(self, address):
                raise TimeoutError(errno.ETIMEDOUT, "timed out")
        play(self, drive, "socket", socket=Silent)

        self.assertEqual(drive._ask(self.path, {}),
                         "the running panel does not answer (timed out)")
        self.assertEqual(waits, [30])


if __name__ == "__main__":
    unittest.main()
