# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
"""The command line of the demonstration, whole."""

import os
import pathlib
import unittest
from unittest import mock

from kxscripts.demo_options import Options, UsageError, parse, usage

HELP = """\
Shows the main job: packs the example package, puts it on a USB flash drive, and installs it from
there on the sandboxed device, with the real window. Installs what is missing and builds first.
Nothing of this machine is touched outside the demonstration's folder.

  scripts/demo [OPTION...]

On a display the panel shows itself in a window of its own and you press the buttons. Without one
the demonstration presses them itself and leaves a picture of every state. In the end the package
is signed, decided on and installed without a window, by kx-panel; a changed one is refused.

  --headless     without a display, even when there is one
  --web [PORT]   you press the buttons in a browser of this machine; 6080
  --vnc [PORT]   you press them in a VNC viewer of this machine; 5900
  --lang LANG    what the panel speaks: en or ja
  --size WxH     the panel's screen; 800x480
  --dir DIR      the demonstration's folder; build/demo
  --help         this text

Exit status: 0 shown to the end, 1 not possible (one line says why), 2 wrong use.
"""
UNSAID = Options(False, None, None, "en", "800x480", pathlib.Path("build/demo"))


class CommandLine(unittest.TestCase):
    """What is asked for, and what is refused."""

    def parse(self, *words, lang="C"):
        """Parses where LANG is this."""
        with mock.patch.dict(os.environ, {"LANG": lang}):
            return parse(words)

    def test_what_is_not_said(self):
        self.assertEqual(self.parse(), UNSAID)
        with mock.patch.dict(os.environ):
            os.environ.pop("LANG", None)
            self.assertEqual(parse([]), UNSAID)

    def test_the_panel_speaks_as_its_user_unless_it_is_told(self):
        for lang, words, spoken in (
                ("ja_JP.UTF-8", [], "ja"), ("en_US.UTF-8", [], "en"), ("de_DE.UTF-8", [], "en"),
                ("ja_JP.UTF-8", ["--lang", "en"], "en"), ("C", ["--lang", "ja"], "ja")):
            self.assertEqual(self.parse(*words, lang=lang).lang, spoken)

    def test_what_is_said(self):
        folder = pathlib.Path(os.path.realpath("."))
        for words, found in (
                (["--headless"], UNSAID._replace(headless=True)),
                (["--web"], UNSAID._replace(web=6080)), (["--vnc"], UNSAID._replace(vnc=5900)),
                (["--web", "--vnc", "--lang=ja"],
                 UNSAID._replace(web=6080, vnc=5900, lang="ja")),
                (["--web", "1", "--vnc=65535"], UNSAID._replace(web=1, vnc=65535)),
                (["--size", "10x9999"], UNSAID._replace(size="10x9999")),
                (["--dir", "x/.."], UNSAID._replace(folder=folder)),
                (["--dir=/a/b"], UNSAID._replace(folder=pathlib.Path("/a/b")))):
            self.assertEqual(self.parse(*words), found)

    def test_the_ports_that_serve_the_panel(self):
        for words, ports in (([], []), (["--web"], [6080]), (["--vnc", "7"], [7]),
                             (["--vnc", "7", "--web", "8"], [8, 7])):
            self.assertEqual(self.parse(*words).ports(), ports)

    def test_what_is_refused(self):
        for words, problem in (
                (["--nonsense"], "unknown option '--nonsense'"), (["x", "y"], "unknown option 'x'"),
                (["--head"], "unknown option '--head'"),
                (["--headless=1"], "--headless takes no value"),
                (["--lang"], "--lang needs a value"), (["--size"], "--size needs a value"),
                (["--dir"], "--dir needs a value"), (["--dir="], "--dir needs a value"),
                (["--web="], "--web needs a value"),
                (["--lang", "fr"], "--lang: 'fr' is neither en nor ja"),
                (["--web", "0"], "--web: 0 is no port; use 1 to 65535"),
                (["--vnc", "65536"], "--vnc: 65536 is no port; use 1 to 65535"),
                (["--web", "100000"], "--web: 100000 is no port; use 1 to 65535"),
                (["--web", "80x"], "--web: 80x is no port; use 1 to 65535"),
                *((["--size", text], f"--size: '{text}' is no size such as 800x480") for text in (
                    "800", "0x480", "800x0", "9x10", "10x9", "10000x10", "10x10000", "10x10x")),
                (["--headless", "--web"], "--headless goes with neither --web nor --vnc"),
                (["--vnc", "--headless"], "--headless goes with neither --web nor --vnc"),
                (["--web", "7000", "--vnc", "7000"], "--web and --vnc need two ports")):
            with self.assertRaises(UsageError) as caught:
                self.parse(*words)
            self.assertEqual(str(caught.exception), problem)

    def test_help_is_wanted(self):
        for words in (["--help"], ["-h"], ["--headless", "--web", "-h"]):
            self.assertIsNone(self.parse(*words))

    def test_the_help(self):
        self.assertEqual(usage(), HELP)


if __name__ == "__main__":
    unittest.main()
