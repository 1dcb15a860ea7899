# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
"""How the panel's screen is started, used and ended; its programs are played by shell scripts."""

import os
import pathlib
import signal
import unittest
from unittest import mock
from xml.etree import ElementTree

from fake_programs import FakePrograms
from kxoperate import screen
from kxoperate.screen import Screen, ScreenError

# A server that tells its number at the descriptor behind -displayfd, then waits for its end.
SERVER = """\
while [ "$1" != -displayfd ]; do shift; done
eval "echo {} >&$2"
exec sleep 600 3>&- 4>&- 5>&- 6>&- 7>&- 8>&- 9>&-
"""
# A window manager that tells that it is ready with the command behind --startup.
MANAGER = """\
while [ "$1" != --startup ]; do shift; done
$2
exec sleep 600
"""


def descriptors():
    """Returns how many descriptors this process holds."""
    return len(os.listdir("/proc/self/fd"))


class Starting(FakePrograms):
    """The server and the window manager."""

    def setUp(self):
        super().setUp()
        self.put("Xvfb", SERVER.format(17))
        self.put("Xvnc", SERVER.format(18))

    def start(self, **more):
        """Starts a screen that the test ends."""
        made = Screen(self.folder, (640, 48), **more)
        self.addCleanup(made.close)
        return made

    def processes_of(self, made):
        """Returns the processes of a screen."""
        return made._processes  # pylint: disable=protected-access

    def test_a_server_for_nobody_to_see(self):
        made = self.start()

        self.assertEqual(made.display, ":17")
        words = self.called("Xvfb")
        number = words.pop(words.index("-displayfd") + 1)
        self.assertTrue(number.isdigit())
        self.assertEqual(words, ["-screen", "0", "640x48x24", "-extension", "GLX", "-displayfd",
                                 "-nolisten", "tcp", "-noreset"])
        self.assertIsNone(self.called("Xvnc"))

    def test_servers_have_no_input(self):
        self.put("Xvfb", f"readlink /proc/$$/fd/0 >'{self.folder}/input'\n" + SERVER.format(17))
        self.start()
        self.assertEqual(pathlib.Path(self.folder, "input").read_text("ascii"), "/dev/null\n")

    def test_a_server_for_viewers(self):
        made = self.start(serve="/run/here")

        self.assertEqual(made.display, ":18")
        words = self.called("Xvnc")
        words.pop(words.index("-displayfd") + 1)
        self.assertEqual(words, [
            "-geometry", "640x48", "-depth", "24", "-rfbport", "-1", "-rfbunixpath", "/run/here",
            "-SecurityTypes", "None", "-AlwaysShared", "-AcceptSetDesktopSize=0",
            "-DisconnectClients=0", "-extension", "GLX", "-displayfd", "-nolisten", "tcp",
            "-noreset"])
        self.assertIsNone(self.called("Xvfb"))

    def test_a_display_that_is_there_needs_no_server(self):
        made = self.start(display=":5")

        self.assertEqual(made.display, ":5")
        self.assertIsNone(self.called("Xvfb"))
        self.assertEqual(self.processes_of(made), [])

    def test_a_server_that_ends_is_told_with_its_last_word(self):
        self.put("Xvfb", "printf 'first\\n(EE) no memory \\n(EE)\\n\\n' >&2; exit 1")
        with self.assertRaises(ScreenError) as caught:
            self.start()
        self.assertEqual(str(caught.exception), "Xvfb did not start: no memory")

        self.put("Xvnc", "exit 0")
        pathlib.Path(self.folder, "screen.err").unlink()
        with self.assertRaises(ScreenError) as caught:
            self.start(serve="/run/here")
        self.assertEqual(str(caught.exception), "Xvnc did not start")

    def test_what_a_server_says_on_its_output_is_a_remark_and_no_number(self):
        self.put("Xvfb", "echo 17; printf 'odd \\377 byte\\n'; exit 1")
        with self.assertRaises(ScreenError) as caught:
            self.start()
        self.assertEqual(str(caught.exception), "Xvfb did not start: odd \ufffd byte")

    def test_a_server_that_tells_no_number_has_not_started(self):
        for answer in ("none", "''", "1x"):
            self.put("Xvfb", SERVER.format(answer).replace("sleep 600", "true"))
            with self.assertRaisesRegex(ScreenError, "^Xvfb did not start"):
                self.start()

    def test_a_server_that_says_nothing_is_not_waited_for_for_ever(self):
        self.put("Xvfb", "exec sleep 600")
        with mock.patch.object(screen, "PATIENCE", 0.05):
            with self.assertRaisesRegex(ScreenError, "^Xvfb did not start$"):
                self.start()

    def test_a_server_that_is_not_installed(self):
        os.environ["PATH"] = self.folder
        with self.assertRaises(ScreenError) as caught:
            self.start()
        self.assertEqual(str(caught.exception), "Xvfb: No such file or directory; "
                                                "scripts/setup demo installs it")

    def test_no_descriptor_is_left_of_starting(self):
        before = descriptors()
        self.put("openbox", MANAGER)
        made = self.start()
        made.start_window_manager()
        self.assertEqual(descriptors(), before)

    def test_a_window_manager_has_its_own_home_fonts_and_configuration(self):
        self.put("openbox", MANAGER)
        with mock.patch.dict(os.environ, {"DISPLAY": ":0", "HOME": "/nowhere", "MINE": "1"}):
            self.start().start_window_manager()

        words = self.called("openbox")
        file = os.path.join(self.folder, "openbox.xml")
        self.assertEqual(words, ["--sm-disable", "--config-file", file, "--startup",
                                 f"cp {file} {self.folder}/ready"])
        environment = self.environment_of("openbox")
        fonts = os.path.join(self.folder, "fonts.conf")
        self.assertEqual({name: environment[name] for name in (
            "HOME", "DISPLAY", "XDG_CONFIG_DIRS", "FONTCONFIG_FILE", "MINE")}, {
                "HOME": self.folder, "DISPLAY": ":17", "XDG_CONFIG_DIRS": self.folder,
                "FONTCONFIG_FILE": fonts, "MINE": "1"})
        for text in (file, fonts):
            ElementTree.parse(text)  # what cannot be read is not obeyed
        text = pathlib.Path(file).read_text(encoding="utf-8")
        for part in ("<animateIconify>no<", "<number>1<", "<popupTime>0<"):
            self.assertIn(part, text)
        text = pathlib.Path(fonts).read_text(encoding="utf-8")
        self.assertIn("<dir>/usr/share/fonts/truetype/dejavu</dir>", text)
        self.assertIn("<cachedir>/var/cache/fontconfig</cachedir>", text)

    def test_a_window_manager_that_ends_is_told_at_once_with_its_last_word(self):
        self.put("openbox", "echo 'cannot open' >&2; exit 1")
        made = self.start()
        before = descriptors()
        with self.assertRaises(ScreenError) as caught:
            made.start_window_manager()
        self.assertEqual(str(caught.exception), "openbox did not start: cannot open")
        self.assertEqual(descriptors(), before)

    def test_what_the_server_said_is_the_last_word_of_a_manager_that_said_none(self):
        self.put("Xvfb", "echo 'no keymap' >&2\n" + SERVER.format(17))
        self.put("openbox", "exit 1")
        with self.assertRaisesRegex(ScreenError, "^openbox did not start: no keymap$"):
            self.start().start_window_manager()

    def test_a_window_manager_that_is_never_ready_is_not_waited_for_for_ever(self):
        self.put("openbox", "exec sleep 600")
        made = self.start()
        with mock.patch.object(screen, "PATIENCE", 0.05):
            with self.assertRaisesRegex(ScreenError, "^openbox did not start$"):
                made.start_window_manager()

    def test_all_servers_are_ended_the_last_one_first_and_waited_for(self):
        self.put("openbox", MANAGER)
        made = self.start()
        made.start_window_manager()
        processes = list(self.processes_of(made))
        self.assertEqual(len(processes), 2)
        order = []
        for name, process in zip(("server", "manager"), processes):
            process.terminate = lambda name=name, end=process.terminate: (order.append(name), end())

        made.close()

        self.assertEqual([process.returncode for process in processes], [-signal.SIGTERM] * 2)
        self.assertEqual(order, ["manager", "server"])

    def test_everything_waits_half_a_minute(self):
        self.assertEqual(screen.PATIENCE, 30)


class Using(FakePrograms):
    """Pictures and the pointer."""

    def setUp(self):
        super().setUp()
        self.screen = Screen(self.folder, (10, 10), display=":42")
        for name in ("import", "xdotool"):
            self.put(name, "exit 0")

    def test_a_picture_is_one_of_the_whole_screen(self):
        self.screen.take_picture("/there/a.png")
        self.assertEqual(self.called("import"),
                         ["-display", ":42", "-window", "root", "/there/a.png"])

    def test_a_press_moves_the_pointer_and_clicks_with_the_left_button(self):
        self.screen.click((12, -5))
        self.assertEqual(self.called("xdotool"), ["mousemove", "12", "-5", "click", "1"])
        self.assertEqual(self.environment_of("xdotool")["DISPLAY"], ":42")

    def test_the_pointer_goes_away_without_a_click(self):
        self.screen.move_away()
        self.assertEqual(self.called("xdotool"), ["mousemove", "4000", "4000"])

    def test_what_a_tool_says_on_its_output_is_nobodys(self):
        self.put("xdotool", "output=$(readlink /proc/$$/fd/1)\n"
                            f"echo $output >'{self.folder}/output'")
        self.screen.move_away()
        self.assertEqual(pathlib.Path(self.folder, "output").read_text("ascii"), "/dev/null\n")

    def test_a_tool_that_fails_is_told_with_its_last_word(self):
        self.put("xdotool", "echo out; printf 'first\\nno \\377 hand\\n\\n' >&2; exit 3")
        for use in (self.screen.move_away, lambda: self.screen.click((1, 1))):
            with self.assertRaises(ScreenError) as caught:
                use()
            self.assertEqual(str(caught.exception), "xdotool ended with 3: no \ufffd hand")
        self.put("import", "exit 1")
        with self.assertRaisesRegex(ScreenError, "^import ended with 1: $"):
            self.screen.take_picture("x")


class Reading(unittest.TestCase):
    """The first line of a descriptor."""

    def read(self, text, close=True, seconds=10):
        """Reads what stands in a pipe."""
        reader, writer = os.pipe()
        os.write(writer, text)
        if close:
            os.close(writer)
        try:
            return screen._read(reader, seconds)  # pylint: disable=protected-access
        finally:
            if not close:
                os.close(writer)
            self.assertRaises(OSError, os.fstat, reader)

    def test_one_line_its_beginning_or_nothing(self):
        self.assertEqual(self.read(b"12\n34\n"), "12\n")
        self.assertEqual(self.read(b"12"), "12")
        self.assertEqual(self.read(b""), "")
        self.assertEqual(self.read(b"12", close=False, seconds=0.02), "12")


if __name__ == "__main__":
    unittest.main()
