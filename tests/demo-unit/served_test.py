# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
"""The demonstration that a person uses: what is started, what it is told, when it ends."""

import os
import pathlib
import socket
import stat
import unittest

from kxscripts import demo_served, demo_stage
from kxscripts.common import Failed, ROOT
from scene import Process, Scene

EXPLAINED = """
The window asks whether to install. Press Install and watch; press OK. Then pull the drive out, and
the button to reboot comes up; put the drive back, and it goes. Press it to see the panel start
again.

  {root}/device/drive pull --state {demo}/state
  {root}/device/drive plug --state {demo}/state

"""


def make_socket(path):
    """Leaves a socket at a path."""
    with socket.socket(socket.AF_UNIX) as made:
        made.bind(os.fspath(path))


class Served(Scene):
    """A stage on which everything that is started runs on."""

    def setUp(self):
        super().setUp()
        self.demo = self.stage()
        self.demo.processes.does = self.play
        self.naps = []
        self.patch(demo_served.time, "sleep", self.naps.append)
        self.patch(demo_stage, "TICK", 0)
        self.taken = set()
        self.patch(demo_served, "is_taken", self.taken.__contains__)
        self.explained = EXPLAINED.format(root=ROOT, demo=self.demo.folder)
        self.display = "7\n"
        self.reboots = True

    def play(self, words, more):
        """Does what the programs do."""
        if words[0] == "Xephyr":
            more["log"].write_text("one\ntwo\nthree\n", encoding="utf-8")
            os.write(more["keep"][0], self.display.encode())
        elif words[0] == "device/window":
            if "--serve" in words:
                (self.demo.state / "root/run").mkdir(parents=True)
                make_socket(self.demo.state / "root/run/screen")
            if self.reboots:
                self.demo.trace.write_text("tool\treboot\n", encoding="utf-8")
        elif words[1].startswith("UNIX-LISTEN:"):
            make_socket(words[1].split(":")[1].split(",")[0])
        else:
            self.taken.update((8001, 8002))

    def commands(self):
        """Returns the words of all commands."""
        return [words for _, words, _ in self.demo.processes.calls]


class Ports(Scene):
    """Whether somebody serves a port."""

    def test_a_port_is_taken_while_somebody_listens(self):
        with socket.create_server(("127.0.0.1", 0)) as server:
            port = server.getsockname()[1]
            self.assertIs(demo_served.is_taken(port), True)
        self.assertIs(demo_served.is_taken(port), False)


class OnDisplay(Served):
    """An X server in a window of the display."""

    def test_a_server_for_the_panel_alone(self):
        with self.told():
            self.assertIs(demo_served.open_display(self.demo), True)
        (_, server, more), (_, forwarder, other) = self.demo.processes.calls
        tell = server.pop(server.index("-displayfd") + 1)
        self.assertEqual(server, [
            "Xephyr", "-screen", "800x480", "-title", "kx_Updater: the panel", "-noreset",
            "-no-host-grab", "-nolisten", "tcp", "-extension", "MIT-SHM", "-auth",
            str(self.demo.folder / "cookie"), "-displayfd"])
        self.assertEqual(more, {"log": self.demo.folder / "xephyr.log", "keep": (int(tell),)})
        self.assertRaises(OSError, os.fstat, int(tell))
        self.assertEqual(forwarder, [
            "socat", f"UNIX-LISTEN:{self.demo.short('x11/X1')},mode=666,fork",
            "UNIX-CONNECT:/tmp/.X11-unix/X7"])
        self.assertEqual(other, {"log": self.demo.folder / "forwarder.log"})
        self.assertEqual(self.out, "")

    def test_the_secret_is_for_any_display_new_each_time_and_nobody_else_reads_it(self):
        os.umask(os.umask(0o022))
        demo_served.open_display(self.demo)
        cookie = self.demo.folder / "cookie"
        self.assertEqual(stat.S_IMODE(cookie.stat().st_mode), 0o600)
        secret = cookie.read_bytes()
        begin = b"\xff\xff\0\0\0\0\0\x12MIT-MAGIC-COOKIE-1\0\x10"
        self.assertTrue(secret.startswith(begin))
        self.assertEqual(len(secret), len(begin) + 16)
        other = self.stage("--dir", str(self.root / "other"))
        other.processes.does = self.play
        demo_served.open_display(other)
        self.assertNotEqual((other.folder / "cookie").read_bytes(), secret)

    def test_a_secret_that_is_there_already_is_not_taken(self):
        (self.demo.folder / "cookie").write_bytes(b"another's")
        with self.assertRaises(FileExistsError):
            demo_served.open_display(self.demo)
        self.assertEqual(self.commands(), [])

    def test_no_descriptor_is_left_of_it(self):
        self.demo.short("")
        before = len(os.listdir("/proc/self/fd"))
        demo_served.open_display(self.demo)
        self.assertEqual(len(os.listdir("/proc/self/fd")), before)

    def test_a_display_that_cannot_be_reached_is_told_with_the_last_two_lines(self):
        self.display = ""
        with self.told():
            self.assertIs(demo_served.open_display(self.demo), False)
        self.assertEqual(self.out, "two\nthree\n")
        self.assertEqual(len(self.commands()), 1)
        self.assertFalse((self.demo.folder / "x11").exists())

    def test_a_forwarder_that_does_not_start(self):
        self.demo.processes.lasts = 0
        does = self.play
        self.demo.processes.does = lambda words, more: words[0] == "socat" or does(words, more)
        with self.assertRaises(Failed) as caught:
            demo_served.open_display(self.demo)
        self.assertEqual(str(caught.exception),
                         f"socat did not start; see {self.demo.folder}/forwarder.log")

    def test_the_window_gets_the_one_socket_and_the_secret(self):
        with self.told():
            demo_served.show_on_display(self.demo)
        demo = self.demo.folder
        self.assertEqual(self.commands()[0][-8:], [
            "--display", ":1", "--share", f"{demo}/x11=/tmp/.X11-unix", "--put",
            f"{demo}/cookie=/run/cookie", "--env", "XAUTHORITY=/run/cookie"])
        self.assertEqual(
            self.out, "\n== Plugging the drive in; the panel is in the window that opens\n"
            + self.explained + "Closing the panel's window ends the demonstration, and so does "
            "Ctrl-C.\n\n== Reboot was pressed\n")


class Following(Served):
    """When it ends."""

    def follow(self):
        """Follows the window; returns what is told at the end."""
        with self.told():
            demo_served.show_on_display(self.demo)
        return self.out.rsplit("\n== ", 1)[1]

    def test_the_reboot_is_seen_for_two_seconds_then_the_window_ends(self):
        self.assertEqual(self.follow(), "Reboot was pressed\n")
        self.assertEqual(self.naps, [2])
        self.assertEqual(self.demo.processes.stopped, [self.demo.window])

    def test_a_window_that_was_closed(self):
        self.reboots = False
        self.demo.processes.lasts = 2
        self.assertEqual(self.follow(), "The window was closed\n")
        self.assertEqual(self.naps, [0, 0])
        self.assertEqual(self.demo.processes.stopped, [])


class InBrowser(Served):
    """Ports that serve the screen."""

    def serve(self, *words):
        """Serves the panel; returns all commands but the window's."""
        self.demo.options = self.stage(*words, claimed=False).options
        with self.told():
            demo_served.serve(self.demo)
        return self.commands()[1:]

    def test_a_viewer(self):
        self.assertEqual(self.serve("--vnc", "8002", "--size", "640x480"), [[
            "socat", "TCP-LISTEN:8002,bind=127.0.0.1,reuseaddr,fork",
            f"UNIX-CONNECT:{self.demo.short('screen')}"]])
        self.assertEqual(self.commands()[0][-4:],
                         ["--serve", "/run/screen", "--size", "640x480"])
        self.assertEqual(self.demo.processes.calls[1][2],
                         {"log": self.demo.folder / "forwarder-8002.log"})
        self.assertEqual(self.out, f"""
== Plugging the drive in

== The panel, in a VNC viewer: 127.0.0.1:8002
Only this machine can connect, but every user of it. From another one, ask for a tunnel:
  ssh -L 8002:127.0.0.1:8002 THIS-MACHINE
{self.explained}Ctrl-C ends the demonstration.

== Reboot was pressed
""")

    def test_a_browser(self):
        self.assertEqual(self.serve("--web", "8001"), [[
            "websockify", "--web", "/usr/share/novnc", "127.0.0.1:8001",
            f"--unix-target={self.demo.short('screen')}"]])
        self.assertIn("\n== The panel, in a browser: "
                      "http://127.0.0.1:8001/vnc.html?autoconnect=true&resize=scale\n", self.out)
        self.assertNotIn("VNC viewer", self.out)

    def test_both(self):
        self.assertEqual([words[0] for words in self.serve("--web", "8001", "--vnc", "8002")],
                         ["socat", "websockify"])
        self.assertIn("  ssh -L 8001:127.0.0.1:8001 THIS-MACHINE\n"
                      "  ssh -L 8002:127.0.0.1:8002 THIS-MACHINE\n", self.out)

    def test_the_screen_is_taken_from_the_panel_so_that_it_cannot_put_another_in_its_place(self):
        self.serve("--vnc", "8002")
        inside = self.demo.state / "root/run/screen"
        self.assertTrue(inside.samefile(self.demo.folder / "screen"))

    def test_a_port_that_cannot_be_served(self):
        does = self.play
        self.demo.processes.lasts = 3

        def play(words, more):
            if words[0] == "socat":
                more["log"].write_text("first\ntaken\n", encoding="utf-8")
            else:
                does(words, more)
        self.demo.processes.does = play
        with self.assertRaisesRegex(Failed, "^port 8002 cannot be served: taken$"):
            self.serve("--vnc", "8002")

    def test_a_screen_that_does_not_start(self):
        def play(words, more):
            more["log"].write_text("no screen\n", encoding="utf-8")
        self.demo.processes.does = play
        self.demo.processes.lasts = 1
        with self.assertRaisesRegex(Failed, "^the panel's screen did not start$"):
            self.serve("--vnc", "8002")
        self.assertEqual(self.err, "no screen\n")

    def test_a_link_in_the_place_of_the_screen_is_not_served(self):
        make_socket(self.root / "host")

        def play(_words, _more):
            inside = self.demo.state / "root/run/screen"
            inside.parent.mkdir(parents=True)
            inside.symlink_to(self.root / "host")
        self.demo.processes.does = play
        with self.assertRaisesRegex(Failed, "^the panel's screen is no socket$"):
            self.serve("--vnc", "8002")
        self.assertEqual(len(self.commands()), 1)


class Waiting(Served):
    """A forwarder counts when it listens."""

    def test_it_is_waited_for(self):
        self.patch(demo_served, "is_taken", lambda port: polls.append(port) or len(polls) > 3)
        polls = []
        # pylint: disable=protected-access
        demo_served._forward(self.demo, 8001, "true", "x")
        self.assertEqual(polls, [8001] * 4)
        self.assertIsInstance(self.demo.processes.start("true", "x"), Process)
        self.assertTrue(pathlib.Path(self.demo.folder).is_dir())


if __name__ == "__main__":
    unittest.main()
