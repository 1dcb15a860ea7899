# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
"""The screen of an emulated panel as a user meets it: pictures, what can be read on them, and touches.
"""
import collections
import difflib
import os
import pathlib
import subprocess
import tempfile
import time
import unicodedata

from kxpanel.qmp import Monitor
from kxscripts.common import Failed

AXIS = 0x7fff       # what the emulator calls the right and the lower edge
PRESSED = 0.15      # seconds that a finger stays
STILL = 1.0         # seconds without a change after which the screen shows all that was drawn
NEVER_STILL = 15.0  # seconds after which it is taken as it is
LARGER = 4          # times, so that letters have the size that is read best
ALIKE = 0.85        # the part of the letters that must be read right; some are hard to tell apart
LANGUAGES = {"en": "eng", "ja": "jpn"}


class ScreenError(Failed):
    """The screen could not be looked at; the text says why."""


class Picture:
    """What the screen shows at a moment, from the emulator's file in the format PPM."""

    def __init__(self, data):
        """Raises ScreenError where the data is no such picture."""
        words = data[:64].split(maxsplit=4)
        if len(words) < 5 or words[0] != b"P6" or words[3] != b"255":
            raise ScreenError("the emulator's picture of the screen is damaged")
        self.size = int(words[1]), int(words[2])
        self.data = data
        self._pixels = data[len(data) - 3 * self.size[0] * self.size[1]:]

    def colours(self, place):
        """How often each colour, (red, green, blue), occurs in a place; the most frequent first."""
        left, top, width, height = place
        counts = collections.Counter()
        for row in range(max(0, top), min(self.size[1], top + height)):
            begin = 3 * (row * self.size[0] + max(0, left))
            end = 3 * (row * self.size[0] + min(self.size[0], left + width))
            line = self._pixels[begin:end]
            counts.update(zip(line[0::3], line[1::3], line[2::3]))
        return counts.most_common()

    def background(self, place):
        """The colour of most of a place. Raises ScreenError for one that is not on the screen."""
        colours = self.colours(place)
        if not colours:
            raise ScreenError(f"the place {place} is not on the screen")
        return colours[0][0]

    def read(self, place, language="en"):
        """The text in a place, as a program for that reads it. Raises ScreenError."""
        left, top, width, height = place
        larger = _run(["convert", "ppm:-", "-crop", f"{width}x{height}+{left}+{top}", "+repage",
                       "-colorspace", "gray", "-normalize", "-filter", "Lanczos",
                       "-resize", f"{100 * LARGER}%", "-bordercolor", "white", "-border", "20",
                       "png:-"], self.data, "demo")
        text = _run(["tesseract", "stdin", "stdout", "--psm", "6", "-l", LANGUAGES[language]],
                    larger, "emulator")
        return text.decode("utf-8", "replace").strip()

    def shows(self, place, text, language="en"):
        """Tells whether a text can be read in a place."""
        return is_alike(self.read(place, language), text)

    def save(self, path):
        """Writes a PNG file. Raises ScreenError."""
        _run(["convert", "ppm:-", f"png:{path}"], self.data, "demo")


def _run(command, data, group):
    # One thread: the emulator needs the processors itself.
    try:
        done = subprocess.run(command, input=data, capture_output=True, check=False,
                              env={**os.environ, "OMP_THREAD_LIMIT": "1"}, timeout=60)
    except FileNotFoundError as error:
        raise ScreenError(f"{command[0]} is missing; scripts/setup {group} installs it") from error
    except subprocess.TimeoutExpired as error:
        raise ScreenError(f"{command[0]} has not ended after {error.timeout} seconds") from error
    if done.returncode != 0:
        raise ScreenError(f"{command[0]} ended with {done.returncode}: "
                          f"{done.stderr.decode(errors='replace').strip()}")
    return done.stdout


def letters(text):
    """The letters and digits of a text, large and small ones alike."""
    return "".join(letter for letter in unicodedata.normalize("NFKC", text).casefold()
                   if letter.isalnum())


def is_alike(read, wanted):
    """Tells whether a text that was read is the wanted one, but for single letters."""
    read, wanted = letters(read), letters(wanted)
    return difflib.SequenceMatcher(None, read, wanted, autojunk=False).ratio() >= ALIKE


class Screen:
    """The screen behind a monitor, `size` in pixels."""

    def __init__(self, monitor: Monitor, size):
        self._monitor = monitor
        self._size = size

    def look(self):
        """What the screen shows now. Raises ScreenError, Refused, Gone."""
        with tempfile.TemporaryDirectory(prefix="kx-screen.") as folder:
            file = pathlib.Path(folder) / "screen.ppm"
            self._monitor.ask("screendump", filename=str(file))
            return Picture(file.read_bytes())

    def look_when_still(self):
        """What the screen shows once it has not changed for a while: what a program has drawn comes
        to the screen later. Raises as look()."""
        picture, until = self.look(), time.monotonic() + NEVER_STILL
        since = time.monotonic()
        while time.monotonic() < min(until, since + STILL):
            time.sleep(0.2)
            newer = self.look()
            if newer.data != picture.data:
                picture, since = newer, time.monotonic()
        return picture

    def take_picture(self, path):
        """Writes what the screen shows, once it is still, to a PNG file. Raises as look()."""
        self.look_when_still().save(path)

    def click(self, place):
        """Touches the screen at (x, y), as a finger would. Raises Refused, Gone."""
        self._point(place)
        for down in (True, False):
            self._monitor.ask("input-send-event",
                              events=[{"type": "btn", "data": {"down": down, "button": "left"}}])
            time.sleep(PRESSED)

    def move_away(self):
        """Puts the pointer into a corner, where it lights up nothing. Raises Refused, Gone."""
        self._point((self._size[0] - 1, self._size[1] - 1))

    def _point(self, place):
        self._monitor.ask("input-send-event", events=[
            {"type": "abs", "data": {"axis": axis, "value": axis_value(at, length)}}
            for axis, at, length in zip("xy", place, self._size)])


def axis_value(at, length):
    """A pixel's middle as the emulator's pointer counts."""
    return min(AXIS, max(0, (2 * at + 1) * AXIS // (2 * length)))
