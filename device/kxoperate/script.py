# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
"""What the user does: a script, one line an action.

  wait message TEXT    until the message area shows TEXT (\\n is a line break)
  wait button NAME     until the button is shown; wait no-button NAME: until it is not
  wait front NAME      until the window is in front: MainWindow or InstalledListDialog
  wait tab NAME        until the tab is in front: Install or Log
  wait log TEXT        until the log holds TEXT
  wait size WxH        until the main window has that size
  wait end             until the program has ended
  press NAME           waits for the button and presses it with the mouse; press tab NAME
  state                notes in the transcript what is shown
  texts                notes the texts of the package
  log                  notes the text of the log, of a very long one the end
  log-size             notes how long the log is and whether its end is in view
  list                 notes the rows of the list of installed software
  fonts, places        notes each widget's font size, or its place on the screen
  cut                  notes each text that its widget does not show whole
  picture NAME         takes a picture, NAME.png
  run COMMAND ARG...   runs a command of the panel and waits for its end
  quit                 lets the program end as it does when its event loop ends

Blank lines and lines that begin with # do nothing. An action that is not possible in time ends
everything. Words are split as by a shell: a TEXT of several words stands in quotes.
"""

import os
import shlex
import subprocess

COLOURS = {"* {background-color : rgb(199, 253, 255)}": "normal",
           "* {background-color : rgb(255, 85, 127)}": "error"}
BUTTONS = ("InstallButton", "CancelButton", "OkButton", "RebootButton")
PACKAGE_LABELS = ("labelTitle", "textTitle", "labelVersion", "textVersion", "labelComment",
                  "textComment")


# How many words an action takes, the fewest and the most; those not named take none.
WORDS_BEHIND = {"wait": (1, 2), "press": (1, 2), "picture": (1, 1), "run": (1, 1 << 16)}


class ScriptError(Exception):
    """An action was not possible; the text says which and why."""


def _widget(state, name):
    return state["widgets"].get(name, {})


def _is_shown(state, name):
    return _widget(state, name).get("shown", False)


def escaped(text):
    """Returns a text as one line."""
    return text.replace("\\", "\\\\").replace("\n", "\\n")


def describe(state):
    """Returns what the user sees: message, its colour, the buttons, the tab, the package."""
    if state is None:
        return "nothing is shown"
    message = _widget(state, "labelMsg")
    style = message.get("style", "")
    # What a tab covers is still there; only what was hidden is not.
    buttons = [name for name in BUTTONS if not _widget(state, name).get("hidden", True)]
    labels = [name for name in PACKAGE_LABELS if not _widget(state, name).get("hidden", True)]
    package = {0: "no package", len(PACKAGE_LABELS): "package"}.get(len(labels), "half a package")
    return " | ".join([escaped(message.get("text", "")), COLOURS.get(style, style),
                       " ".join(buttons) or "no button",
                       _widget(state, "tabsCenter").get("current", ""), package])


def _size(state):
    return "{2}x{3}".format(*_widget(state, "MainWindow").get("at", (0, 0, 0, 0)))


CONDITIONS = {
    "message": lambda state, text: _widget(state, "labelMsg").get("text") == text,
    "button": _is_shown,
    "no-button": lambda state, name: not _is_shown(state, name),
    "front": lambda state, name: state["front"] == name,
    "tab": lambda state, name: _widget(state, "tabsCenter").get("current") == name,
    "log": lambda state, text: text in _widget(state, "logArea").get("text", ""),
    "size": lambda state, size: _size(state) == size,
}


class Player:
    """Plays a script. note(text) takes each line for the transcript."""

    def __init__(self, screen, probe, pictures, note, patience):
        """patience is the longest wait for anything, in seconds."""
        self._screen = screen
        self._probe = probe
        self._pictures = pictures
        self._note = note
        self._patience = patience
        self._actions = {
            "wait": self._wait, "press": self._press, "state": self._state, "texts": self._texts,
            "log": self._log, "log-size": self._log_size, "list": self._list,
            "fonts": self._fonts, "places": self._places,
            "cut": self._cut, "picture": self._picture, "run": self._run, "quit": self._quit}

    def play(self, script):
        """Plays all lines of a text; raises ScriptError at the first that is not possible."""
        for number, line in enumerate(script.splitlines(), 1):
            try:
                words = shlex.split(line, comments=True)
            except ValueError as error:
                raise ScriptError(f"line {number}: {line}: {error}") from error
            if not words:
                continue
            fewest, most = WORDS_BEHIND.get(words[0], (0, 0))
            if words[0] not in self._actions or not fewest <= len(words) - 1 <= most:
                raise ScriptError(f"line {number}: {line}: there is no such action; a text of "
                                  "several words needs quotes; see device/operate --help")
            try:
                self._actions[words[0]](*words[1:])
            except ScriptError as error:
                raise ScriptError(f"line {number}: {line}: {error}; shown: "
                                  f"{describe(self._probe.state)}") from error

    def _wait(self, what, *text):
        if [what, *text] == ["end"]:
            self._wait_for_end()
            return
        if what not in CONDITIONS or not text:
            raise ScriptError("there is nothing like that to wait for")
        condition, wanted = CONDITIONS[what], text[0].replace("\\n", "\n")
        if not self._probe.wait_for(lambda state: condition(state, wanted), self._patience):
            raise ScriptError("the program has ended" if self._probe.ended
                              else f"still not so after {self._patience:g} seconds")

    def _wait_for_end(self):
        if not self._probe.wait_for_end(self._patience):
            raise ScriptError(f"the program has not ended after {self._patience:g} seconds")

    def _settle(self):
        if not self._probe.sync(self._patience):
            raise ScriptError(f"the program gave no answer within {self._patience:g} seconds")
        return self._probe.state

    def _press(self, name, tab=None):
        if (name == "tab") != (tab is not None):
            raise ScriptError("a button is pressed by its NAME, a tab by 'tab' and its name")
        # A window takes no press before it is on the screen.
        widget = "tabsCenter" if name == "tab" else name
        self._wait("button", widget)
        shown = _widget(self._settle(), widget)
        place = shown["at"] if tab is None else shown.get("tabs", {}).get(tab)
        if place is None:
            raise ScriptError("there is no such tab")
        self._screen.click((place[0] + place[2] // 2, place[1] + place[3] // 2))

    def _state(self):
        self._note(describe(self._settle()))

    def _texts(self):
        state = self._settle()
        self._note(" | ".join(escaped(_widget(state, name).get("text", ""))
                              for name in ("textTitle", "textVersion", "textComment")))

    def _log(self):
        self._note(_widget(self._settle(), "logArea").get("text", ""))

    def _log_size(self):
        area = _widget(self._settle(), "logArea")
        place = "at the end" if area.get("atEnd") else "not at the end"
        self._note(f"{area.get('length', 0)} characters, {place}")

    def _list(self):
        for row in _widget(self._settle(), "tableWidget").get("rows", []):
            self._note(" | ".join(escaped(cell) for cell in row))

    def _each(self, field):
        for name, widget in sorted(self._settle()["widgets"].items()):
            if widget["shown"] and field in widget:
                yield name, widget[field]

    def _fonts(self):
        for name, points in self._each("points"):
            self._note(f"{name} {points}")

    def _places(self):
        for name, place in self._each("at"):
            self._note("{} {},{} {}x{}".format(name, *place))

    def _cut(self):
        for name, texts in self._each("cut"):
            for text in texts:
                self._note(f"{name} is cut: {escaped(text)}")

    def _picture(self, name):
        self._screen.move_away()
        self._settle()
        self._screen.take_picture(os.path.join(self._pictures, name + ".png"))

    def _run(self, *command):
        try:
            result = subprocess.run(command, stdin=subprocess.DEVNULL, timeout=self._patience,
                                    stdout=subprocess.PIPE, stderr=subprocess.STDOUT, check=False)
        except (OSError, subprocess.TimeoutExpired) as error:
            raise ScriptError(str(error)) from error
        output = result.stdout.decode("utf-8", "replace").rstrip("\n")
        if output:
            self._note(output)
        if result.returncode != 0:
            raise ScriptError(f"the command ended with {result.returncode}")

    def _quit(self):
        if not self._probe.ask("quit"):
            raise ScriptError("the program cannot be asked to end")
        self._wait_for_end()
