# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
"""What the player of a window's user presses, notes and waits for, and how it says what went wrong.
"""

import copy
import os
import tempfile
import unittest
from unittest import mock

from kxoperate import script
from kxoperate.screen import ScreenError
from kxoperate.script import Player, ScriptError, describe

NORMAL = "* {background-color : rgb(199, 253, 255)}"
ERROR = "* {background-color : rgb(255, 85, 127)}"
ASKING = "Sure? | normal | InstallButton CancelButton | Install | package"


def asking():
    """Returns the state of a window that asks whether to install."""
    shown = {"shown": True, "hidden": False}
    return {"front": "MainWindow", "widgets": {
        "MainWindow": {**shown, "at": [3, 4, 800, 480]},
        "labelMsg": {**shown, "text": "Sure?", "style": NORMAL, "points": 24, "at": [-20, 70, 7, 9]},
        "InstallButton": {**shown, "text": "Install", "at": [200, 310, 171, 61], "points": 16,
                          "cut": ["Install", "two\nlines"]},
        "CancelButton": {**shown, "at": [0, 0, 10, 10]},
        "OkButton": {"shown": False, "hidden": True, "at": [1, 2, 3, 4], "points": 9, "cut": ["OK"]},
        "RebootButton": {"shown": False, "hidden": True},
        "tabsCenter": {**shown, "current": "Install", "at": [10, 50, 780, 430],
                       "tabs": {"Install": [10, 50, 100, 30], "Log": [110, 50, 61, 31]}},
        "logArea": {"shown": False, "hidden": False, "text": "one\ntwo", "length": 7,
                    "atEnd": False},
        "tableWidget": {**shown, "rows": [["A", "1", "two\nlines"], ["back\\slash", "", "x"]]},
        **{name: {**shown, "text": name} for name in script.PACKAGE_LABELS}}}


class FakeProbe:
    """A program that tells one state and answers at once, unless it is told otherwise."""

    def __init__(self):
        self.state = asking()
        self.ended = False
        self.answers = True
        self.calls = []

    def wait_for(self, condition, seconds):
        """Notes how long one would have waited."""
        self.calls.append(("wait_for", seconds))
        return bool(condition(self.state))

    def wait_for_end(self, seconds):
        """As above."""
        self.calls.append(("wait_for_end", seconds))
        return self.ended

    def sync(self, seconds):
        """As above."""
        self.calls.append(("sync", seconds))
        return self.answers

    def ask(self, request):
        """Whoever is asked to quit does."""
        self.calls.append(("ask", request))
        self.ended = self.answers
        return self.answers


class Playing(unittest.TestCase):
    """A window that asks whether to install, in front of a player with the patience of 2.5 s."""

    def setUp(self):
        self.probe = FakeProbe()
        self.calls = self.probe.calls
        self.screen = mock.Mock()
        self.screen.click.side_effect = lambda place: self.calls.append(("click", place))
        self.screen.move_away.side_effect = lambda: self.calls.append(("move_away",))
        self.screen.take_picture.side_effect = lambda path: self.calls.append(("picture", path))
        self.noted = []
        self.player = Player(self.screen, self.probe, "/pictures", self.noted.append, 2.5)
        self.widgets = self.probe.state["widgets"]

    def play(self, text):
        """Plays a text; returns what it notes."""
        del self.noted[:]
        del self.calls[:]
        self.player.play(text)
        return self.noted

    def complaint(self, text):
        """Returns why a text cannot be played."""
        with self.assertRaises(ScriptError) as caught:
            self.play(text)
        return str(caught.exception)


class Reading(Playing):
    """How lines are read."""

    def test_blank_lines_and_remarks_do_nothing_and_count(self):
        self.assertEqual(self.play("\n# press x\n   \nstate # a remark\n\tstate"), [ASKING, ASKING])
        self.assertTrue(self.complaint("\n#\nno").startswith("line 3: no: "))

    def test_actions_that_nobody_knows_or_with_too_few_or_too_many_words(self):
        for line in ("dance", "wait", "wait message a b", "press", "press tab Log x", "picture",
                     "picture a b", "run", "state x", "texts x", "log x", "log-size x", "list x",
                     "fonts x", "places x", "cut x", "quit x"):
            self.assertEqual(
                self.complaint("state\n" + line),
                f"line 2: {line}: there is no such action; a text of several words needs quotes; "
                "see device/operate --help")
            self.assertEqual(self.noted, [ASKING])

    def test_words_are_split_as_by_a_shell(self):
        self.play("run sh -c 'exit 0' \"a b\"\nwait message 'Sure?'")
        self.assertEqual(self.complaint("log\nwait message 'Sure"),
                         "line 2: wait message 'Sure: No closing quotation")

    def test_a_problem_of_the_screen_goes_on_to_the_caller(self):
        self.screen.click.side_effect = ScreenError("no hand")
        with self.assertRaisesRegex(ScreenError, "^no hand$"):
            self.play("press InstallButton")

    def test_a_problem_is_told_with_what_is_shown(self):
        self.assertEqual(self.complaint("wait for x"),
                         "line 1: wait for x: there is nothing like that to wait for; shown: "
                         + ASKING)
        self.probe.state = None
        self.assertEqual(self.complaint("wait tab"),
                         "line 1: wait tab: there is nothing like that to wait for; shown: "
                         "nothing is shown")


class Waiting(Playing):
    """What can be waited for."""

    def test_each_condition_holds_for_what_is_so_and_for_nothing_else(self):
        for so, not_so in (
                ("message 'Sure?'", "message Sure"), ("button InstallButton", "button OkButton"),
                ("button tabsCenter", "button logArea"),
                ("no-button OkButton", "no-button InstallButton"),
                ("no-button none", "button none"),
                ("front MainWindow", "front InstalledListDialog"), ("tab Install", "tab Log"),
                ("log 'two'", "log three"), ("log 'one\\ntwo'", "log 'one two'"),
                ("size 800x480", "size 3x4")):
            self.assertEqual(self.play("wait " + so), [])
            self.assertEqual(self.calls, [("wait_for", 2.5)])
            self.assertEqual(self.complaint("wait " + not_so),
                             f"line 1: wait {not_so}: still not so after 2.5 seconds; shown: {ASKING}")

    def test_nothing_holds_of_widgets_that_are_not_there(self):
        del self.widgets["MainWindow"], self.widgets["labelMsg"], self.widgets["logArea"]
        del self.widgets["tabsCenter"]
        self.widgets["InstallButton"].pop("shown")
        self.play("wait size 0x0\nwait no-button InstallButton")
        for what in ("size 800x480", "message ''", "log x", "tab Install"):
            self.assertIn("still not so", self.complaint("wait " + what))

    def test_a_program_that_has_ended_makes_nothing_so(self):
        self.probe.ended = True
        self.assertEqual(self.complaint("wait tab Log"),
                         "line 1: wait tab Log: the program has ended; shown: " + ASKING)

    def test_the_end_of_the_program(self):
        self.assertEqual(self.complaint("wait end"),
                         "line 1: wait end: the program has not ended after 2.5 seconds; shown: "
                         + ASKING)
        self.probe.ended = True
        self.play("wait end")
        self.assertEqual(self.calls, [("wait_for_end", 2.5)])
        self.assertIn("nothing like that to wait for", self.complaint("wait end now"))


class Pressing(Playing):
    """Where the finger goes, and when."""

    def test_a_button_is_pressed_in_its_middle_once_it_is_there_and_all_is_drawn(self):
        self.play("press InstallButton")
        self.assertEqual(self.calls, [("wait_for", 2.5), ("sync", 2.5), ("click", (285, 340))])

    def test_a_tab_is_pressed_in_its_middle(self):
        self.play("press tab Log")
        self.assertEqual(self.calls, [("wait_for", 2.5), ("sync", 2.5), ("click", (140, 65))])

    def test_the_place_is_that_of_the_last_state(self):
        def move(_seconds):
            self.probe.state = copy.deepcopy(self.probe.state)
            self.probe.state["widgets"]["InstallButton"]["at"] = [0, 100, 20, 40]
            return True
        self.probe.sync = move
        self.play("press InstallButton")
        self.assertIn(("click", (10, 120)), self.calls)

    def test_what_cannot_be_pressed(self):
        self.assertIn("still not so after 2.5 seconds", self.complaint("press OkButton"))
        self.assertIn(": there is no such tab; shown", self.complaint("press tab None"))
        for line in ("press tab", "press InstallButton tab"):
            self.assertIn(": a button is pressed by its NAME, a tab by 'tab' and its name; shown",
                          self.complaint(line))
        for widget in (self.widgets["tabsCenter"], self.widgets["InstallButton"]):
            widget.pop("tabs", None)
        self.assertIn(": there is no such tab; shown", self.complaint("press tab Log"))
        self.widgets["tabsCenter"]["shown"] = False
        self.assertIn("still not so after 2.5 seconds", self.complaint("press tab Log"))
        self.assertEqual(self.screen.click.mock_calls, [])

    def test_a_program_that_does_not_answer_is_neither_pressed_nor_described(self):
        self.probe.answers = False
        for line in ("press InstallButton", "state", "texts", "log", "log-size", "list", "fonts",
                     "places", "cut", "picture x"):
            self.assertIn(": the program gave no answer within 2.5 seconds; shown: ",
                          self.complaint(line))
            self.assertEqual(self.noted, [])
        self.assertEqual(self.screen.click.mock_calls, [])
        self.assertEqual(self.screen.take_picture.mock_calls, [])


class Noting(Playing):
    """What comes into the transcript."""

    def test_the_state(self):
        self.assertEqual(self.play("state"), [ASKING])
        self.assertEqual(self.calls, [("sync", 2.5)])

    def test_the_texts_of_the_package_each_in_one_line(self):
        self.assertEqual(self.play("texts"), ["textTitle | textVersion | textComment"])
        self.widgets["textComment"]["text"] = "a\\b\nc"
        del self.widgets["textVersion"]
        self.assertEqual(self.play("texts"), ["textTitle |  | a\\\\b\\nc"])

    def test_the_log_as_it_is_and_its_size(self):
        self.assertEqual(self.play("log"), ["one\ntwo"])
        self.assertEqual(self.play("log-size"), ["7 characters, not at the end"])
        self.widgets["logArea"]["atEnd"] = True
        self.assertEqual(self.play("log-size"), ["7 characters, at the end"])
        del self.widgets["logArea"]
        self.assertEqual(self.play("log\nlog-size"), ["", "0 characters, not at the end"])

    def test_the_rows_of_the_list(self):
        self.assertEqual(self.play("list"), ["A | 1 | two\\nlines", "back\\\\slash |  | x"])
        del self.widgets["tableWidget"]
        self.assertEqual(self.play("list"), [])

    def test_fonts_places_and_cut_texts_of_what_is_shown_by_name(self):
        self.assertEqual(self.play("fonts"), ["InstallButton 16", "labelMsg 24"])
        self.assertEqual(self.play("places"), [
            "CancelButton 0,0 10x10", "InstallButton 200,310 171x61", "MainWindow 3,4 800x480",
            "labelMsg -20,70 7x9", "tabsCenter 10,50 780x430"])
        self.assertEqual(self.play("cut"), ["InstallButton is cut: Install",
                                            "InstallButton is cut: two\\nlines"])

    def test_a_picture_is_taken_when_the_pointer_is_away_and_all_is_drawn(self):
        self.assertEqual(self.play("picture one"), [])
        self.assertEqual(self.calls, [("move_away",), ("sync", 2.5),
                                      ("picture", "/pictures/one.png")])


class Running(Playing):
    """Commands of the panel."""

    def test_what_a_command_says_is_noted_without_the_last_line_breaks(self):
        self.assertEqual(self.play("run sh -c 'echo out; echo err >&2; echo'"), ["out\nerr"])
        self.assertEqual(self.play("run printf ' X \\n'"), [" X "])
        self.assertEqual(self.play("run true"), [])
        self.assertEqual(self.play(r"run printf 'a\377b'"), ["a\ufffdb"])

    def test_a_command_has_no_input(self):
        self.assertEqual(self.play("run readlink /proc/self/fd/0"), ["/dev/null"])

    def test_a_command_that_fails_is_told_behind_what_it_said(self):
        self.assertIn(": the command ended with 3; shown: ",
                      self.complaint("run sh -c 'echo no; exit 3'"))
        self.assertEqual(self.noted, ["no"])

    def test_a_command_that_is_not_there_or_does_not_end(self):
        self.assertIn("No such file or directory: 'no-such-command'; shown: ",
                      self.complaint("run no-such-command"))
        self.player = Player(self.screen, self.probe, "", self.noted.append, 0.05)
        self.assertIn("timed out after 0.05 seconds", self.complaint("run sleep 20"))

    def test_a_program_that_is_asked_to_quit_is_waited_for(self):
        self.play("quit")
        self.assertEqual(self.calls, [("ask", "quit"), ("wait_for_end", 2.5)])

        self.probe.answers = False
        self.assertIn(": the program cannot be asked to end; shown: ", self.complaint("quit"))

        self.probe.ask = lambda request: True
        self.assertIn(": the program has not ended after 2.5 seconds; shown: ",
                      self.complaint("quit"))


class Describing(unittest.TestCase):
    """The line that tells what the user sees."""

    def setUp(self):
        self.state = asking()
        self.widgets = self.state["widgets"]

    def test_nothing(self):
        self.assertEqual(describe(None), "nothing is shown")
        self.assertEqual(describe({"front": "", "widgets": {}}),
                         " |  | no button |  | no package")

    def test_the_message_is_one_line_and_its_colour_has_a_name(self):
        self.widgets["labelMsg"].update(text="a\\b\nc", style=ERROR)
        self.assertEqual(describe(self.state),
                         "a\\\\b\\nc | error | InstallButton CancelButton | Install | package")
        self.widgets["labelMsg"]["style"] = "pink"
        self.assertIn(" | pink | ", describe(self.state))

    def test_buttons_that_a_tab_covers_are_still_there(self):
        for name in script.BUTTONS:
            self.widgets[name].update(shown=False, hidden=False)
        self.widgets["tabsCenter"]["current"] = "Log"
        self.assertEqual(describe(self.state), "Sure? | normal | "
                         "InstallButton CancelButton OkButton RebootButton | Log | package")
        for name in script.BUTTONS:
            self.widgets[name]["hidden"] = True
        self.assertIn(" | no button | ", describe(self.state))

    def test_the_package_is_there_when_all_of_its_six_texts_are(self):
        names = ("labelTitle", "textTitle", "labelVersion", "textVersion", "labelComment",
                 "textComment")
        for name in names:
            self.widgets[name]["hidden"] = True
            self.assertTrue(describe(self.state).endswith(" | half a package"), name)
            self.widgets[name]["hidden"] = False
        for name in names:
            self.widgets[name]["hidden"] = True
        self.assertTrue(describe(self.state).endswith(" | no package"))


class Pictures(unittest.TestCase):
    """Where pictures go."""

    def test_into_the_folder_that_is_named(self):
        with tempfile.TemporaryDirectory() as folder:
            screen = mock.Mock()
            Player(screen, FakeProbe(), folder, print, 1).play("picture a")
            screen.take_picture.assert_called_once_with(os.path.join(folder, "a.png"))


if __name__ == "__main__":
    unittest.main()
