# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
"""What is seen on the screen of an emulated panel and where it is touched; the emulator and the program
that reads texts are played."""
import os
import pathlib
import tempfile
import unittest
from unittest import mock

from kxpanel import screen as screen_module
from kxpanel.screen import Picture, Screen, ScreenError, axis_value, is_alike

RED, BLUE, BLACK = (255, 85, 127), (199, 253, 255), (0, 0, 0)


def picture(rows):
    """A picture, from a tuple of colours for each row."""
    pixels = b"".join(bytes(colour) for row in rows for colour in row)
    return b"P6\n%d %d\n255\n" % (len(rows[0]), len(rows)) + pixels


QUARTERS = picture([(RED, RED, BLUE, BLUE)] * 2 + [(RED, BLACK, BLUE, BLUE)] * 2)


class Looking(unittest.TestCase):
    """Colours and texts."""

    def test_colours_are_those_of_the_place(self):
        seen = Picture(QUARTERS)
        self.assertEqual(seen.size, (4, 4))
        self.assertEqual(seen.colours((0, 0, 2, 4)), [(RED, 6), (BLACK, 2)])
        self.assertEqual(seen.background((1, 0, 3, 4)), BLUE)
        self.assertEqual(seen.colours((-5, 2, 7, 90)), [(RED, 2), (BLACK, 2)])

    def test_a_place_outside_is_told(self):
        with self.assertRaisesRegex(ScreenError, "the place .9, 9, 1, 1. is not on the screen"):
            Picture(QUARTERS).background((9, 9, 1, 1))

    def test_what_is_no_picture_is_told(self):
        for data in (b"", b"P5 1 1 255 x", b"P6 1 1 15 xxx"):
            with self.assertRaisesRegex(ScreenError, "damaged"):
                Picture(data)

    def test_texts_are_alike_but_for_single_letters(self):
        wanted = "Install the software on this device.\nAre you sure?"
        for read, alike in (("Install the software on this device. Are you sure?", True),
                            ("lnstall the sof tware on this devıce . Are you sure", True),
                            ("The installation failed.", False), ("", False),
                            ("Install", False)):
            self.assertEqual(is_alike(read, wanted), alike, read)
        self.assertTrue(is_alike("インストールに失敗 しました", "インストールに失敗しました。"))
        self.assertFalse(is_alike("インストールは正常に完了しました", "インストールに失敗しました。"))

    def test_a_text_is_read_in_its_place_and_language(self):
        with tempfile.TemporaryDirectory() as folder:
            path = pathlib.Path(folder)
            for name, work in (("convert", 'echo "$*" >"$0.words"; cat'),
                               ("tesseract", 'echo "$* $OMP_THREAD_LIMIT"; head -c 2')):
                (path / name).write_text(f"#!/bin/sh\n{work}\n", encoding="utf-8")
                (path / name).chmod(0o755)
            with mock.patch.dict(os.environ, PATH=f"{folder}:{os.environ['PATH']}"):
                read = Picture(QUARTERS).read((1, 2, 3, 4), "ja")
            self.assertIn("-crop 3x4+1+2 ", (path / "convert.words").read_text(encoding="utf-8"))
        self.assertEqual(read, "stdin stdout --psm 6 -l jpn 1\nP6")

    def test_a_reader_that_is_missing_or_fails_is_told(self):
        with tempfile.TemporaryDirectory() as folder:
            with mock.patch.dict(os.environ, PATH=folder):
                with self.assertRaisesRegex(ScreenError, "convert is missing; scripts/setup demo"):
                    Picture(QUARTERS).read((0, 0, 1, 1))
                file = pathlib.Path(folder) / "convert"
                file.write_text("#!/bin/sh\necho 'no luck' >&2\nexit 3\n", encoding="utf-8")
                file.chmod(0o755)
                with self.assertRaisesRegex(ScreenError, "convert ended with 3: no luck"):
                    Picture(QUARTERS).save("x.png")


class FakeMonitor:
    """An emulator whose screen shows one picture after the other, and then the last one."""

    def __init__(self, *pictures):
        self.pictures = list(pictures)
        self.asked = []

    def ask(self, command, **arguments):
        """Takes a picture, or notes what is asked for."""
        if command == "screendump":
            one = self.pictures.pop(0) if len(self.pictures) > 1 else self.pictures[0]
            pathlib.Path(arguments["filename"]).write_bytes(one)
        else:
            self.asked.append(arguments["events"])


class Touching(unittest.TestCase):
    """The pointer, and when a picture is taken."""

    def test_a_touch_goes_down_and_up_in_its_place(self):
        monitor = FakeMonitor(QUARTERS)
        with mock.patch.object(screen_module, "PRESSED", 0):
            Screen(monitor, (800, 480)).click((400, 479))
        place, down, up = monitor.asked
        self.assertEqual([(one["data"]["axis"], one["data"]["value"]) for one in place],
                         [("x", axis_value(400, 800)), ("y", axis_value(479, 480))])
        self.assertEqual([down[0]["data"]["down"], up[0]["data"]["down"]], [True, False])

    def test_the_axis_leads_back_to_every_pixel(self):
        for length in (272, 480, 800, 1024):
            for at in range(length):
                self.assertEqual(axis_value(at, length) * length // 0x8000, at)
        self.assertEqual((axis_value(-5, 100), axis_value(500, 100)), (0, 0x7fff))

    def test_a_picture_is_taken_when_the_screen_is_still(self):
        other = picture([(RED,) * 4] * 4)
        monitor = FakeMonitor(other, other, QUARTERS, other, QUARTERS)
        with mock.patch.object(screen_module, "STILL", 0.5):
            seen = Screen(monitor, (4, 4)).look_when_still()
        self.assertEqual(seen.data, QUARTERS)
        self.assertEqual(monitor.pictures, [QUARTERS])

    def test_a_screen_that_is_never_still_is_taken_as_it_is(self):
        other = picture([(RED,) * 4] * 4)
        monitor = FakeMonitor(*[QUARTERS, other] * 50)
        with mock.patch.object(screen_module, "NEVER_STILL", 0.5):
            Screen(monitor, (4, 4)).look_when_still()
        self.assertGreater(len(monitor.pictures), 90)


if __name__ == "__main__":
    unittest.main()
