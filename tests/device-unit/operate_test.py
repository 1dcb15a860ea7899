# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
"""device/operate: its command line, the program that it starts, and how both end. The panel is a
folder, the screen is played, and the program is a script of the test."""

import contextlib
import io
import os
import pathlib
import signal
import threading
import unittest
import warnings
from unittest import mock

from fake_programs import FakePrograms
from kxdevice import names
from kxoperate import command
from kxoperate.screen import ScreenError

# A program that tells a state, waits for a request and ends with a status of its own.
TELLER = """\
import os, socket, sys
link = socket.socket(socket.AF_UNIX)
link.connect(os.environ["KX_PROBE"])
link.sendall(b'{"front": "MainWindow", "widgets": {}}\\n')
sys.exit(7 if link.recv(100) == b"quit\\n" else 8)"""
PYTHON = "/usr/bin/python3"


class FakeScreen:
    """A screen that notes what becomes of it."""

    made = []
    problem = ""  # why there is no window manager

    def __init__(self, *arguments):
        self.arguments = arguments
        self.display = ":33"
        self.calls = []
        FakeScreen.made.append(self)

    def start_window_manager(self):
        """As above."""
        self.calls.append("manager")
        if self.problem:
            raise ScreenError(self.problem)

    def take_picture(self, path):
        """As above."""
        self.calls.append(("picture", path))

    def move_away(self):
        """A screen that is gone."""
        raise ScreenError("the screen is gone")

    def close(self):
        """As above."""
        self.calls.append("close")


class Operating(FakePrograms):
    """Runs device/operate in this process."""

    def setUp(self):
        super().setUp()
        self.work = os.path.join(self.folder, "work")
        self.out = os.path.join(self.folder, "deep", "out")
        marker = os.path.join(self.folder, "marker")
        pathlib.Path(marker).touch()
        FakeScreen.made = []
        FakeScreen.problem = ""
        for change in (mock.patch.object(command, "WORK", self.work),
                       mock.patch.object(names, "MARKER", marker),
                       mock.patch.object(command, "Screen", FakeScreen)):
            change.start()
            self.addCleanup(change.stop)

    def operate(self, *words, script=None):
        """Runs device/operate; returns its exit status and what it said on standard error."""
        options = ["--plugins", "/plugins", "--out", self.out]
        if script is not None:
            file = pathlib.Path(self.folder, "script")
            file.write_text(script, encoding="utf-8")
            options += ["--script", str(file)]
        said = io.StringIO()
        # An earlier player's sockets, which end with its process elsewhere, may be let go of now.
        with contextlib.redirect_stderr(said), warnings.catch_warnings():
            warnings.simplefilter("ignore", ResourceWarning)
            try:
                status = command.run([*options, *words])
            except SystemExit as end:
                status = end.code
        return status, said.getvalue()

    def text(self, name):
        """Returns the text of a file that was left in the folder."""
        return pathlib.Path(self.out, name).read_text(encoding="utf-8")


class Use(Operating):
    """The command line."""

    def refusal(self, *words):
        """Returns the last line of what is said about wrong use."""
        status, said = self.operate(*words)
        self.assertEqual(status, 2)
        self.assertEqual(FakeScreen.made, [])
        return said.splitlines()[-1]

    def test_what_is_refused(self):
        for words, problem in (
                ([], "there is no command"), (["--"], "there is no command"),
                (["--size", "800", "--", "true"],
                 "argument --size: '800' is no size; write for example 800x480"),
                (["--script", "/none", "--", "true"],
                 "argument --script: /none: [Errno 2] No such file or directory: '/none'"),
                (["--patience", "long", "--", "true"],
                 "argument --patience: invalid float value: 'long'")):
            self.assertEqual(self.refusal(*words), "operate: error: " + problem)
        self.refusal("--dis", ":1", "--", "true")  # no short forms

    def test_a_script_that_is_no_text_is_refused(self):
        file = pathlib.Path(self.folder, "odd")
        file.write_bytes(b"\xff\n")
        self.assertIn(f"argument --script: {file}: ", self.refusal("--script", str(file), "true"))

    def test_folder_and_plugins_must_be_named(self):
        for words, missing in ((["--out", "x", "true"], "--plugins"),
                               (["--plugins", "x", "true"], "--out")):
            said = io.StringIO()
            with contextlib.redirect_stderr(said), self.assertRaises(SystemExit) as end:
                command.run(words)
            self.assertEqual(end.exception.code, 2)
            self.assertTrue(said.getvalue().endswith("are required: " + missing + "\n"))

    def test_sizes(self):
        for text in ("0x10", "10x0", "00x10", "10x00", "010x10", "9x10", "10x9", "10000x10",
                     "10x10000", "10x10x", "x10x10", "a", "10X10", "-10x10"):
            self.assertIn(f"'{text}' is no size", self.refusal(f"--size={text}", "true"))
        for text, size in (("10x99", (10, 99)), ("9999x9998", (9999, 9998))):
            self.operate("--size", text, "true")
            self.assertEqual(FakeScreen.made[-1].arguments[1], size)

    def test_the_help_tells_every_option_and_the_script(self):
        said = io.StringIO()
        with contextlib.redirect_stdout(said), self.assertRaises(SystemExit) as end:
            command.run(["--help"])
        self.assertEqual(end.exception.code, 0)
        text = " ".join(said.getvalue().split())
        for part in (
                "Starts COMMAND, a program with windows, on a screen of the panel, and plays its user.",
                "Works only on the sandboxed device; device/window brings it there.",
                "--size WxH of the screen; 800x480 ", "--no-wm no window manager: the window keeps",
                "--display :N shows the window on this X server of the panel instead of a new one ",
                "--serve SOCKET lets VNC viewers see the screen and press; SOCKET is a path on the "
                "panel ", "--patience SEC the longest wait for anything that the script waits for; 30 ",
                "--script FILE the file of actions; without it people press ",
                "--plugins PLUGINS the folder that holds the probe ",
                "--out OUT the folder for pictures, transcript and what the program prints "):
            self.assertIn(part, text)
        self.assertIn("-- COMMAND ...", text)
        self.assertIn("\nThe script:\n", said.getvalue())
        self.assertIn("\n  wait message TEXT    until the message area", said.getvalue())

    def test_outside_of_the_device_nothing_is_done(self):
        with mock.patch.object(names, "MARKER", "/none/such"):
            status, said = self.operate("true")
        self.assertEqual(status, 126)
        self.assertEqual(said, "operate: this is not the sandboxed device (/none/such is missing); "
                               "use device/window\n")
        self.assertEqual(FakeScreen.made, [])
        self.assertFalse(os.path.exists(self.work))
        self.assertFalse(os.path.exists(self.out))


class Screens(Operating):
    """What the screen gets, and its end."""

    def test_what_is_asked_for_and_what_is_not(self):
        self.operate("--", "true")
        self.assertEqual(FakeScreen.made[0].arguments, (self.work, (800, 480), None, None))
        self.assertEqual(FakeScreen.made[0].calls, ["manager", "close"])

        self.operate("--size", "100x50", "--serve", "/run/s", "--display", ":7", "--no-wm", "true")
        self.assertEqual(FakeScreen.made[1].arguments, (self.work, (100, 50), "/run/s", ":7"))
        self.assertEqual(FakeScreen.made[1].calls, ["close"])

    def test_no_screen_no_program(self):
        FakeScreen.problem = "openbox: no"
        status, said = self.operate("--", "sh", "-c", f"touch {self.folder}/started")
        self.assertEqual((status, said), (4, "operate: openbox: no\n"))
        self.assertEqual(FakeScreen.made[0].calls, ["manager", "close"])
        self.assertFalse(os.path.exists(f"{self.folder}/started"))

    def test_a_screen_that_goes_away(self):
        status, said = self.operate("--no-wm", "sleep", "600", script="picture x")
        self.assertEqual((status, said), (4, "operate: the screen is gone\n"))
        self.assertEqual(FakeScreen.made[0].calls, ["close"])

    def test_a_screen_that_cannot_be_made(self):
        with mock.patch.object(command, "Screen", side_effect=ScreenError("Xvfb: no")):
            self.assertEqual(self.operate("true"), (4, "operate: Xvfb: no\n"))


class Programs(Operating):
    """What the program gets, and its exit status."""

    def test_its_environment(self):
        self.put("seen", "[ -d \"$XDG_RUNTIME_DIR\" ] && stat -c %a \"$XDG_RUNTIME_DIR\"; "
                         "readlink /proc/$$/fd/0; "
                         "[ -S \"$KX_PROBE\" ] && echo there; echo oops >&2")
        with mock.patch.dict(os.environ, {"DISPLAY": ":0", "MINE": "1"}):
            status, _ = self.operate("seen", "--size", "x")
        self.assertEqual(status, 0)
        self.assertEqual(self.called("seen"), ["--size", "x"])
        environment = self.environment_of("seen")
        self.assertEqual({name: environment.get(name) for name in (
            "DISPLAY", "XDG_RUNTIME_DIR", "KX_PROBE", "QT_PLUGIN_PATH", "QT_QPA_GENERIC_PLUGINS",
            "MINE")}, {
                "DISPLAY": ":33", "XDG_RUNTIME_DIR": f"{self.work}/runtime",
                "KX_PROBE": f"{self.work}/probe", "QT_PLUGIN_PATH": "/plugins",
                "QT_QPA_GENERIC_PLUGINS": "kxprobe", "MINE": "1"})
        self.assertEqual(self.text("updater.out"), "700\n/dev/null\nthere\n")
        self.assertEqual(self.text("updater.err"), "oops\n")
        self.assertEqual(self.text("transcript"), "")

    def test_what_an_earlier_run_left_is_gone(self):
        self.operate("sh", "-c", "touch $XDG_RUNTIME_DIR/old; echo old; echo old >&2",
                     script="run echo old")
        self.assertEqual(self.text("transcript"), "old\n")
        self.assertEqual(self.operate("sh", "-c", "ls $XDG_RUNTIME_DIR"), (0, ""))
        for name in ("updater.out", "updater.err", "transcript"):
            self.assertEqual(self.text(name), "")

    def test_its_exit_status(self):
        for text, status in (("exit 0", 0), ("exit 5", 5), ("kill -9 $$", 137),
                             ("kill -TERM $$", 143)):
            self.assertEqual(self.operate("--", "sh", "-c", text), (status, ""))
            self.assertEqual(self.operate("--", "sh", "-c", text, script="wait end"), (status, ""))

    def test_one_that_cannot_be_started(self):
        self.assertEqual(self.operate("no-such-program", "x"),
                         (127, "operate: no-such-program: No such file or directory\n"))
        self.assertEqual(self.operate(self.folder), (127, f"operate: {self.folder}: "
                                                          "Permission denied\n"))
        self.assertEqual(FakeScreen.made[-1].calls, ["manager", "close"])

    def test_at_the_end_of_the_script_it_is_asked_to_end(self):
        self.assertEqual(self.operate(PYTHON, "-c", TELLER, script="wait front MainWindow"),
                         (7, ""))

    def test_one_that_ends_before_the_script_does(self):
        status, said = self.operate("sh", "-c", "exit 6", script="wait end\nwait tab Log")
        self.assertEqual((status, said), (3, "operate: line 2: wait tab Log: the program has "
                                             "ended; shown: nothing is shown\n"))
        # There is nothing to take a picture of.
        self.assertEqual(FakeScreen.made[0].calls, ["manager", "close"])

    def test_one_that_lets_go_of_its_observer_may_take_its_time_to_end(self):
        with mock.patch.object(command, "Probe") as probe:
            probe.environment.return_value = {}
            probe.return_value.ended = True
            self.assertEqual(self.operate("sh", "-c", "sleep 0.1; exit 8", script=""), (8, ""))
            # But not longer than the user's patience.
            self.assertEqual(self.operate("--patience", "0.1", "sleep", "600", script=""),
                             (143, ""))

    def test_a_script_that_fails_leaves_a_picture_and_ends_the_program(self):
        status, said = self.operate("sleep", "600", script="run echo noted\nwait for x")
        self.assertEqual(status, 3)
        self.assertEqual(said, "operate: line 2: wait for x: there is nothing like that to wait "
                               "for; shown: nothing is shown\n")
        self.assertEqual(FakeScreen.made[0].calls,
                         ["manager", ("picture", f"{self.out}/failed.png"), "close"])
        self.assertEqual(self.text("transcript"), "noted\n")
        self.assertEqual(self.started[0].returncode, -signal.SIGTERM)

    def test_the_transcript_has_each_line_as_soon_as_it_is_noted(self):
        self.operate("true", script=f"run echo one\nrun cat {self.out}/transcript")
        self.assertEqual(self.text("transcript"), "one\none\n")

    def test_the_user_waits_half_a_minute_unless_told_otherwise(self):
        for words, patience in ((["--patience", "1.5"], 1.5), ([], 30)):
            with mock.patch.object(command.script_module, "Player") as player:
                self.operate(*words, "true", script="state")
            (_, _, out, _, given), _ = player.call_args
            self.assertEqual((out, given), (self.out, patience))


class People(Operating):
    """Without a script people press, and a signal ends it."""

    def setUp(self):
        super().setUp()
        for number in (signal.SIGTERM, signal.SIGINT):
            self.addCleanup(signal.signal, number, signal.getsignal(number))

    def test_a_request_to_end_ends_the_program(self):
        for number in (signal.SIGTERM, signal.SIGINT):
            ready = os.path.join(self.folder, f"ready{number}")
            os.mkfifo(ready)

            def send(ready=ready, number=number):
                pathlib.Path(ready).read_bytes()  # the program is there
                os.kill(os.getpid(), number)

            # The handlers are there once the program runs on.
            real = signal.signal

            def noted(which, handler, real=real, send=send):
                earlier = real(which, handler)
                if which == signal.SIGINT:
                    threading.Thread(target=send).start()
                return earlier

            with mock.patch.object(signal, "signal", noted):
                status, said = self.operate(
                    "sh", "-c", f"trap 'exit 9' TERM; echo >{ready}; while :; do sleep 0.05; done")
            self.assertEqual((status, said), (9, ""))

    def test_it_stays_until_the_program_ends(self):
        self.assertEqual(self.operate("sh", "-c", "sleep 0.1; exit 4"), (4, ""))


if __name__ == "__main__":
    unittest.main()
