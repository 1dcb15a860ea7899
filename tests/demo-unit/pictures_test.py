# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
"""The pictures of every state: which are taken, how, and what is told of them."""

import argparse
import importlib.machinery
import importlib.util
import json
import os
import pathlib
import re
import shutil
import subprocess
import sys
import threading
import types
import unittest
import zipfile
from unittest import mock

from kxoperate.script import Player
from kxscripts.common import ROOT
from scene import Scene

CAPTIONS = {
    "confirm": "the question (ER_MSG01)",
    "installing": "installing (ER_MSG10_INSTALL_START)",
    "installing-log": "the same, with the log in front",
    "finished": "installed (ER_MSG90)",
    "log": "the log after it",
    "failed": "a step has failed (ER_MSG91)",
    "failed-log": "the log after it",
    "remove-drive": "the drive is still plugged in (ER_MSG99)",
    "reboot": "the drive is gone",
    "rebooting": "reboot was pressed (ER_MSG92_REBOOTING)",
    "error-two-packages": "two packages on the drive (ER_MSG02)",
    "error-no-package": "no package (ER_MSG03)",
    "error-broken-package": "a package that cannot be unpacked (ER_MSG04)",
    "error-no-drive": "the folder of the drive is missing (ER_MSG05)",
    "installed-list": "the list of installed software",
}
STATES = list(CAPTIONS)
SIZES = ["480x272", "640x480", "800x480", "1024x600"]
RUNS = {"road": {"confirm", "installed-list", "installing-log", "installing", "finished", "log",
                 "remove-drive", "reboot", "rebooting"},
        "failure": {"failed", "failed-log"}, "two": {"error-two-packages"},
        "none": {"error-no-package"}, "broken": {"error-broken-package"},
        "missing": {"error-no-drive"}}
LOOK = """\
-- confirm
left -1,0 10x10
edge 0,0 100x50
top 0,-2 10x10
right 93,0 10x10
bottom 0,44 10x10
both 95,48 10x10
tabLog 0,0 200x200
label is cut: some: text
closeButton -5,0 10x10
dialogTitle is cut: no
no widget at all
-- installed-list
left -1,0 10x10
closeButton -5,0 10x10
dialogTitle is cut: title
tableWidget 0,41 10x10
MainWindow -9,0 10x10
"""


def load():
    """Loads the program, which has no name that could be imported."""
    loader = importlib.machinery.SourceFileLoader("pictures", str(ROOT / "scripts/pictures"))
    module = importlib.util.module_from_spec(importlib.util.spec_from_loader("pictures", loader))
    with mock.patch.object(sys, "dont_write_bytecode", True):
        loader.exec_module(module)
    return module


pictures = load()


class Use(Scene):
    """The command line."""

    def parse(self, *words):
        """Parses words; returns the options."""
        with self.told(), mock.patch.object(sys, "argv", ["pictures", *words]):
            return pictures.parse()

    def refused(self, *words):
        """Returns why words are refused."""
        with self.assertRaises(SystemExit) as end:
            self.parse(*words)
        self.assertEqual(end.exception.code, 2)
        return self.err.splitlines()[-1].split(": error: ")[1]

    def test_everything_unless_a_choice_is_made(self):
        options = self.parse()
        self.assertEqual(vars(options), {
            "lang": ["en", "ja"], "size": SIZES, "state": STATES, "docs": False,
            "out": ROOT / "build/pictures"})

    def test_a_choice_each_thing_once_and_states_in_their_order(self):
        options = self.parse("--lang", "ja", "--lang", "en", "--lang", "ja", "--size", "10x9999",
                             "--size=800x480", "--size", "10x9999", "--state", "log", "--state",
                             "confirm", "--state", "log", "out")
        self.assertEqual(vars(options), {
            "lang": ["ja", "en"], "size": ["10x9999", "800x480"], "state": ["confirm", "log"],
            "docs": False, "out": self.root / "out"})

    def test_the_pictures_of_the_documents(self):
        options = self.parse("--docs")
        self.assertEqual(vars(options), {
            "lang": ["en", "ja"], "size": ["800x480"], "docs": True,
            "out": ROOT / "build/pictures",
            "state": ["confirm", "installing-log", "finished", "failed", "reboot",
                      "installed-list"]})
        for choice in (["--lang", "en"], ["--size", "10x10"], ["--state", "log"]):
            self.assertEqual(self.refused("--docs", *choice), "--docs goes with no other choice")

    def test_what_is_refused(self):
        for text in ("80", "0x10", "10x0", "9x10", "10x9", "10000x10", "10x10000", "10x10x"):
            self.assertEqual(self.refused("--size", text), f"argument --size: '{text}' is no size; "
                                                           "write for example 800x480")
            self.assertRaises(argparse.ArgumentTypeError, pictures.size, text)
        self.assertIn("argument --lang: invalid choice: 'fr'", self.refused("--lang", "fr"))
        self.assertIn("argument --state: invalid choice", self.refused("--state", "none"))
        self.assertIn("unrecognized arguments: b", self.refused("a", "b"))
        self.assertIn("unrecognized arguments", self.refused("--sta", "log"))

    def test_the_help_names_what_there_is(self):
        with self.assertRaises(SystemExit):
            self.parse("--help")
        for state, caption in CAPTIONS.items():
            self.assertRegex(self.out, rf"(?m)^  {state} +{re.escape(caption)}$")
        text = " ".join(self.out.split())
        for part in ("OUT gets a folder per language and screen, index.html", "--lang {en,ja} both unless given",
                     "of the screen; 480x272 640x480 800x480 1024x600 unless given",
                     "all of the list below unless given", "--size WxH", "--state NAME",
                     "takes those of the documents anew, into docs/images",
                     "OUT build/pictures unless given"):
            self.assertIn(part, text)


class Runs(Scene):
    """What the user does for a state."""

    def test_each_state_is_seen_by_one_run(self):
        self.assertEqual(set(pictures.RUNS), set(RUNS))
        for run, states in RUNS.items():
            for state in STATES:
                script = pictures.script_of(run, "1x1", [state])
                self.assertEqual(bool(script), state in states, (run, state))

    def test_the_way_is_the_same_whatever_is_taken(self):
        whole = pictures.script_of("road", "800x480", STATES).splitlines()
        ways = [line for line in whole if not re.match("picture|cut|places|run echo", line)]
        for state in RUNS["road"]:
            script = pictures.script_of("road", "800x480", [state]).splitlines()
            at = script.index(f"picture {state}")
            self.assertEqual(script[at - 3:at], [f"run echo '-- {state}'", "cut", "places"])
            self.assertEqual(script[:at - 3] + script[at + 1:], ways)
        self.assertEqual(ways[:3], ["wait size 800x480", "wait button InstallButton",
                                    "press InstalledListButton"])
        self.assertTrue(pictures.script_of("two", "1x1", STATES).endswith(
            "picture error-two-packages\n"))

    def test_each_picture_is_taken_where_its_state_is_reached(self):
        whole = pictures.script_of("road", "800x480", STATES)
        expected = iter(whole.splitlines())
        for line in """\
wait button InstallButton
picture confirm
press InstalledListButton
wait front InstalledListDialog
picture installed-list
press closeButton
wait front MainWindow
run touch /run/look
press InstallButton
wait log "part 4 of 4"
picture installing-log
press tab Install
wait tab Install
picture installing
run rm /run/look
wait button OkButton
picture finished
press tab Log
wait tab Log
picture log
press tab Install
wait tab Install
press OkButton
wait no-button OkButton
picture remove-drive
run /usr/bin/kxsystem/drive pull
wait button RebootButton
picture reboot
press RebootButton
wait no-button RebootButton
picture rebooting""".splitlines():
            self.assertIn(line, expected)  # behind the one before
        self.assertEqual(pictures.script_of("failure", "9x9", ["failed-log"]), """\
wait size 9x9
press InstallButton
wait button OkButton
press tab Log
wait tab Log
run echo '-- failed-log'
cut
places
picture failed-log
""")

    def test_every_action_can_be_played(self):
        player = Player(None, types.SimpleNamespace(state=None), "", print, 1)
        # pylint: disable=protected-access
        for name in player._actions:
            player._actions[name] = lambda *_: None
        for run in RUNS:
            player.play(pictures.script_of(run, "800x480", STATES))

    def take(self, run, status=0):
        """Takes the pictures of a run; returns the result and what device/window got."""
        seen = []

        def window(command, **more):
            seen.append(([os.fspath(word) for word in command], more))
            return subprocess.CompletedProcess(command, status, b"complaint\xff\n\n")
        with mock.patch.object(subprocess, "run", window):
            result = pictures.take(self.root, "ja", "10x20", run, STATES)
        ((words, more),) = seen
        return result, words, more

    def test_what_the_window_gets(self):
        options = {"road": ["--put", f"{self.root}/records=/var/lib/KxUserPackages"],
                   "failure": ["--full", "/mnt/user"],
                   "missing": ["--", "kx_Updater", "-upDir", "/mnt/usb/folder"]}
        drives = {"two": "two", "none": "none", "broken": "broken"}
        for run in RUNS:
            folder = self.root / f"ja-10x20-{run}"
            result, words, more = self.take(run)
            self.assertEqual(result, (folder / "out", ""))
            self.assertEqual(words, [
                str(ROOT / "device/window"), "--script", str(folder / "script"), "--out",
                str(folder / "out"), "--lang", "ja", "--size", "10x20", "--usb",
                str(self.root / drives.get(run, "hello")), "--seconds", "120",
                *options.get(run, [])])
            self.assertEqual(more, {"stdin": subprocess.DEVNULL, "stdout": subprocess.PIPE,
                                    "stderr": subprocess.STDOUT, "check": False})
            self.assertEqual((folder / "script").read_text(encoding="utf-8"),
                             pictures.script_of(run, "10x20", STATES))

    def test_a_window_that_fails_is_a_problem(self):
        self.assertEqual(self.take("two", 3)[0], (
            self.root / "ja-10x20-two/out", "ja 10x20 two: ended with 3: complaint\ufffd"))


class Drives(Scene):
    """What the panels get."""

    def test_drives_and_records(self):
        def pack(file):
            with zipfile.ZipFile(file, "w") as archive:
                archive.writestr("UserPackage.kx-project", b"\xef\xbb\xbf" + json.dumps(
                    {"Title": "x", "PackageVersion": "y", "Comment": "z", "Kept": [1]}).encode())
        with mock.patch.object(pictures.hello, "pack", pack):
            pictures.make_drives(self.root)
        names = sorted(str(file.relative_to(self.root)) for file in self.root.rglob("*")
                       if file.is_file())
        self.assertEqual(names, [
            "broken/Hello.kx-update", "hello/Hello.kx-update",
            *(f"records/package{i}/UserPackage.kx-project" for i in range(6)),
            "two/Hello.kx-update", "two/Other.kx-update"])
        self.assertEqual(os.listdir("none"), [])
        whole = pathlib.Path("hello/Hello.kx-update").read_bytes()
        self.assertEqual(pathlib.Path("two/Hello.kx-update").read_bytes(), whole)
        self.assertEqual(pathlib.Path("two/Other.kx-update").read_bytes(), whole)
        self.assertEqual(pathlib.Path("broken/Hello.kx-update").read_bytes(),
                         whole[:len(whole) // 2])
        records = []
        for i in range(6):
            file = pathlib.Path(f"records/package{i}/UserPackage.kx-project").read_bytes()
            self.assertTrue(file.startswith(b"\xef\xbb\xbf"))
            record = json.loads(file.decode("utf-8-sig"))
            self.assertEqual(record.pop("Kept"), [1])
            self.assertEqual(list(record), ["Title", "PackageVersion", "Comment"])
            records.append(tuple(record.values()))
        self.assertEqual(records[0], ("Hello panel", "1.0.0", "A greeting"))
        self.assertEqual(records[3], ("画面データ", "2.0.5", "第4ライン用の操作画面"))
        self.assertEqual(records[5], ("Clock", "0.9", ""))
        self.assertEqual(tuple(records), pictures.RECORDS)


class Looking(Scene):
    """What is not shown whole."""

    def test_of_each_state_what_is_cut_or_reaches_beyond_the_screen(self):
        transcript = self.root / "transcript"
        transcript.write_text(LOOK, encoding="utf-8")
        self.assertEqual(pictures.look(transcript, "100x50"), [
            ("confirm", "left", "off screen", "1 pixels"),
            ("confirm", "top", "off screen", "2 pixels"),
            ("confirm", "right", "off screen", "3 pixels"),
            ("confirm", "bottom", "off screen", "4 pixels"),
            ("confirm", "both", "off screen", "8 pixels"),
            ("confirm", "label", "cut text", "some: text"),
            ("installed-list", "closeButton", "off screen", "5 pixels"),
            ("installed-list", "dialogTitle", "cut text", "title"),
            ("installed-list", "tableWidget", "off screen", "1 pixels")])

    def test_what_only_holds_others_may_reach_beyond_the_screen(self):
        transcript = self.root / "transcript"
        for name in ("MainWindow", "InstalledListDialog", "centralWidget", "tabsCenter", "tabMain",
                     "tabLog"):
            transcript.write_text(f"-- confirm\n{name} -1,-1 999x999\n", encoding="utf-8")
            self.assertEqual(pictures.look(transcript, "10x10"), [])

    def test_the_table(self):
        row = ("w", "cut text", "text")
        pictures.write_table(pathlib.Path("cut"), [
            ("en", "9x9", "log", *row), ("en", "9x9", "failed", *row), ("ja", "9x9", "log", *row),
            ("ja", "9x9", "failed", *row), ("en", "10x10", "log", *row), ("ja", "10x10", "x", *row),
            ("ja", "9x9", "log", "wide-name", "off screen", "1 pixels")])
        self.assertEqual(pathlib.Path("cut").read_text(encoding="utf-8"), """\
screen  widget     what        text      language: states
9x9     w          cut text    text      en ja: log failed
10x10   w          cut text    text      en: log; ja: x
9x9     wide-name  off screen  1 pixels  ja: log
""")
        pictures.write_table(pathlib.Path("cut"), [])
        self.assertEqual(pathlib.Path("cut").read_text(encoding="utf-8"),
                         "screen  widget  what  text  language: states\n")

    def test_the_page(self):
        options = types.SimpleNamespace(state=["failed", "log"], size=["9x9", "8x8"],
                                        lang=["en", "ja"])
        with mock.patch.dict(pictures.STATES, {"failed": "a <step> & more"}):
            pictures.write_index(pathlib.Path("page"), options)
        text = pathlib.Path("page").read_text(encoding="utf-8")
        self.assertTrue(text.startswith('<!DOCTYPE html>\n<html lang="en"><meta charset="utf-8">\n'
                                        "<title>kx_Updater, every state</title>\n<style>"))
        head, *parts = text.split("<h2>")
        self.assertTrue(head.endswith("</style>\n"))
        self.assertEqual(parts, [f"{state}: {what}</h2>\n" + "".join(
            f'<figure><img src="{lang}-{size}/{state}.png" alt="{state}">'
            f"<figcaption>{lang} {size}</figcaption></figure>\n"
            for size in ("9x9", "8x8") for lang in ("en", "ja"))
            for state, what in (("failed", "a &lt;step&gt; &amp; more"),
                                ("log", "the log after it"))])


class Taking(Scene):
    """All that is asked for, and the exit status."""

    def setUp(self):
        super().setUp()
        self.options = types.SimpleNamespace(
            lang=["en", "ja"], size=["9x9"], state=["confirm", "failed"], docs=False,
            out=self.root / "out")
        self.problems = {}
        self.done = []
        self.at_once = [0, 0]
        self.lock = threading.Lock()
        self.patch(pictures, "take", self.take)
        self.patch(pictures, "bring", lambda source, target: self.done.append(
            (source.relative_to(self.root).as_posix(), target.relative_to(self.root).as_posix())))

    def take(self, _work, language, screen, run, states):
        """Plays a window."""
        self.assertEqual(states, self.options.state)
        with self.lock:
            self.at_once[0] += 1
            self.at_once[1] = max(self.at_once)
        folder = self.root / f"{language}-{run}"
        folder.mkdir(exist_ok=True)
        for name in ("b.png", "a.png", "updater.out"):
            (folder / name).touch()
        (folder / "transcript").write_text(f"-- {run}\nw is cut: x\n", encoding="utf-8")
        with self.lock:
            self.at_once[0] -= 1
        return folder, self.problems.get((language, screen, run), "")

    def test_each_run_that_has_a_state_for_each_language_and_screen(self):
        rows, problems = pictures.take_all(self.options, self.root)
        runs = [(lang, run) for lang in ("en", "ja") for run in ("road", "failure")]
        self.assertEqual(rows, [(lang, "9x9", run, "w", "cut text", "x") for lang, run in runs])
        self.assertEqual(problems, [])
        self.assertEqual(self.done, [(f"{lang}-{run}/{name}", f"out/{lang}-9x9/{name}")
                                     for lang, run in runs for name in ("a.png", "b.png")])
        self.assertLessEqual(self.at_once[1], 2)

    def test_two_panels_at_a_time(self):
        with mock.patch.object(pictures.concurrent.futures, "ThreadPoolExecutor",
                               side_effect=ZeroDivisionError) as pool:
            self.assertRaises(ZeroDivisionError, pictures.take_all, self.options, self.root)
        pool.assert_called_once_with(2)

    def test_a_run_with_a_problem_has_no_pictures_the_others_have(self):
        self.problems["en", "9x9", "road"] = "en road: no"
        rows, problems = pictures.take_all(self.options, self.root)
        self.assertEqual(problems, ["en road: no"])
        self.assertEqual(len(rows), 3)
        self.assertNotIn("en-road/a.png", [source for source, _ in self.done])

    def main(self, rows=(), problems=()):
        """Runs the program with parts that are played; returns its exit status."""
        self.patch(pictures, "parse", lambda: self.options)
        for name in ("setup", "build"):
            self.patch(pictures, name, lambda *words, name=name: self.done.append((name, *words)))
        self.patch(pictures, "make_drives", lambda work: self.done.append(("drives", work)))
        def take_all(options, work):
            self.assertEqual((options, "drives", work), (self.options, *self.done[-1]))
            return rows, problems
        self.patch(pictures, "take_all", take_all)
        with self.told():
            return pictures.main()

    def test_the_whole_way(self):
        self.assertEqual(self.main(rows=[("en", "9x9", "log", "w", "cut text", "x")]), 0)
        self.assertEqual(self.done[:2], [
            ("setup", "build", "tools", "demo"),
            ("build", "release", "kx_Updater", "kx-package", "kx_probe")])
        work = self.done[2][1]
        self.assertFalse(work.exists())
        table = ("screen  widget  what      text  language: states\n"
                 "9x9     w       cut text  x     en: log\n")
        self.assertEqual(self.out, f"{table}\nAll pictures: {self.root}/out/index.html\n")
        self.assertEqual(sorted(os.listdir("out")), ["cut.txt", "index.html"])

    def test_problems_are_told_and_there_is_no_page(self):
        self.assertEqual(self.main(problems=["one", "two"]), 1)
        self.assertEqual((self.out, self.err),
                         ("", "scripts/pictures: one\nscripts/pictures: two\n"))
        self.assertEqual(os.listdir("out"), [])

    def test_what_it_needs_and_cannot_have_is_told(self):
        shutil.copytree(ROOT / "scripts", self.root / "scripts",
                        ignore=shutil.ignore_patterns("__pycache__"))
        setup = self.root / "scripts/setup"
        setup.write_text("#!/bin/sh\nexit 1\n", encoding="utf-8")
        done = subprocess.run([self.root / "scripts/pictures", "out"], capture_output=True,
                              encoding="utf-8", check=False)
        self.assertEqual((done.returncode, done.stdout, done.stderr), (
            1, "", "scripts/pictures: what is missing could not be installed\n"))
        self.assertEqual(list(self.root.rglob("__pycache__")), [])

    def test_those_of_the_documents_get_their_names(self):
        self.options.docs = True
        copied = []
        self.patch(pictures.shutil, "copy", lambda source, target: copied.append(
            (source.relative_to(self.root).as_posix(), target.relative_to(ROOT).as_posix())))
        self.assertEqual(self.main(), 0)
        self.assertEqual(copied, [
            (f"out/{lang}-800x480/{state}.png", f"docs/images/{name}.png")
            for name, lang, state in (
                ("confirm", "en", "confirm"), ("confirm-ja", "ja", "confirm"),
                ("installing-log", "en", "installing-log"), ("finished", "en", "finished"),
                ("failed", "en", "failed"), ("reboot", "en", "reboot"),
                ("installed-list", "en", "installed-list"))])

    def test_each_picture_of_the_documents_is_there(self):
        for name, *_ in pictures.DOCUMENTS:
            self.assertTrue((ROOT / "docs/images" / f"{name}.png").is_file(), name)


class Bringing(Scene):
    """A picture on its way to its place."""

    def test_it_gets_small_and_loses_its_date(self):
        seen = []
        with mock.patch.object(subprocess, "run", lambda *words, **more: seen.append((words, more))):
            pictures.bring(self.root / "a.png", self.root / "x/y/b.png")
            pictures.bring(self.root / "a.png", self.root / "x/y/c.png")
        self.assertEqual(seen[0], ((
            ["convert", self.root / "a.png", "-strip", "+dither", "-colors", "128", "-define",
             "png:compression-level=9", f"PNG8:{self.root}/x/y/b.png"],), {"check": True}))
        self.assertTrue(os.path.isdir("x/y"))


if __name__ == "__main__":
    unittest.main()
