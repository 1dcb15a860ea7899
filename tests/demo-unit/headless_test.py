# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
"""The demonstration without a display: what it presses, and what it leaves."""

import os
import pathlib
import unittest

from kxoperate.script import Player
from kxscripts import demo_headless
from kxscripts.common import Failed
from scene import Process, Scene

# What the user sees, in order: the picture of it, and what was pressed since the one before. A list
# that was opened and closed is seen no more.
ROAD = [
    ("1-confirm", []),
    ("2-installing-log", ["InstallButton"]),
    ("3-installing", ["tab Install"]),
    ("4-finished", []),
    ("5-installed-list", ["InstalledListButton"]),
    ("6-log", ["closeButton", "tab Log"]),
    ("7-remove-the-drive", ["tab Install", "OkButton"]),
    ("8-reboot", []),
    ("9-rebooting", ["RebootButton"]),
]


class Headless(Scene):
    """Plays the window."""

    def setUp(self):
        super().setUp()
        self.demo = self.stage("--size", "640x480")
        self.said = b"state one\n-- log\nlog \xff\n-- log\n"
        self.demo.processes.does = self.play

    def play(self, words, more):
        """Leaves what the window leaves."""
        panel = pathlib.Path(words[words.index("--out") + 1])
        panel.mkdir()
        for name in ("2-b.png", "1-a.png", "updater.out"):
            (panel / name).write_text(name, encoding="utf-8")
        (panel / "transcript").write_bytes(self.said)
        more["log"].write_text("it complains\n", encoding="utf-8")

    def show(self):
        """Shows the panel."""
        with self.told():
            demo_headless.show(self.demo)

    def steps(self):
        """What the script does, each as its verb and the rest."""
        self.show()
        text = (self.demo.folder / "script").read_text(encoding="utf-8")
        return [tuple(line.partition(" ")[::2]) for line in text.splitlines()]

    def test_the_script_is_the_whole_road_on_the_screen_that_is_asked_for(self):
        steps, road, pressed = self.steps(), [], []
        for verb, rest in steps:
            if verb == "press":
                pressed.append(rest)
            elif verb == "picture":
                road.append((rest, pressed))
                pressed = []

        self.assertEqual(steps[0], ("wait", "size 640x480"))
        self.assertEqual((road, pressed), (ROAD, []))
        ((kind, words, _),) = self.demo.processes.calls
        self.assertEqual((kind, words[-4:]), ("start", [
            "--script", str(self.demo.folder / "script"), "--size", "640x480"]))

    def test_what_a_press_or_the_drive_changes_is_waited_for_before_anything_is_shown(self):
        changed = False
        for verb, rest in self.steps():
            if verb == "press" or rest.endswith("drive pull"):
                changed = True
            elif verb == "wait":
                changed = False
            elif verb in ("state", "texts", "list", "picture"):
                self.assertFalse(changed, (verb, rest))

    def test_the_package_goes_on_once_it_was_seen_at_work(self):
        steps = self.steps()
        held, let_go = steps.index(("run", "touch /run/look")), steps.index(("run", "rm /run/look"))
        self.assertLess(held, steps.index(("press", "InstallButton")))
        self.assertLess(steps.index(("picture", "3-installing")), let_go)
        self.assertLess(let_go, steps.index(("wait", "button OkButton")))

    def test_every_action_of_it_can_be_played(self):
        class Anything:
            """Says yes."""
            ended = True

            def __getattr__(self, name):
                return lambda *_: True

        player = Player(Anything(), Anything(), "", print, 1)
        # pylint: disable=protected-access
        for name in player._actions:
            player._actions[name] = lambda *_: None
        self.show()
        player.play((self.demo.folder / "script").read_text(encoding="utf-8"))

    def test_pictures_transcript_and_log_are_left(self):
        self.show()
        self.assertEqual(sorted(os.listdir("demo/pictures")), ["1-a.png", "2-b.png"])
        self.assertEqual(sorted(os.listdir("demo/panel")), ["transcript", "updater.out"])
        self.assertEqual(pathlib.Path("demo/transcript").read_bytes(), b"state one\n")
        self.assertEqual(pathlib.Path("demo/log").read_bytes(), b"log \xff\n-- log\n")

    def test_it_tells_what_the_window_showed(self):
        self.show()
        self.assertEqual(self.out, """
== Plugging the drive in, and pressing the buttons

== What the window showed: message | colour | buttons | tab | package
state one

== Its log
log \udcff
-- log
""")

    def test_without_a_log_the_log_is_empty(self):
        self.said = b"state one\nx -- log\n"
        self.show()
        self.assertEqual(pathlib.Path("demo/transcript").read_bytes(), self.said)
        self.assertEqual(pathlib.Path("demo/log").read_bytes(), b"")

    def test_a_window_that_does_not_get_to_its_end(self):
        self.demo.processes.start = lambda *words, **more: (self.play(
            [os.fspath(word) for word in words], more), Process(3))[1]
        with self.assertRaises(Failed) as caught:
            self.show()
        self.assertEqual(str(caught.exception), "the window did not get to its end; what there is: "
                                                f"{self.root}/demo/panel")
        self.assertEqual(self.err, "it complains\n")
        self.assertFalse(os.path.exists("demo/pictures"))

    def test_the_files_are_named_in_order(self):
        self.show()
        with self.told():
            demo_headless.tell_files(self.demo)
        self.assertEqual(self.out, "\n== Pictures of every state\n" + "".join(
            f"  {self.root}/demo/{name}\n" for name in (
                "pictures/1-a.png", "pictures/2-b.png", "transcript", "log")))


if __name__ == "__main__":
    unittest.main()
