# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
"""The command line of device/window, what it hands on to the panel, and what it brings back."""

import contextlib
import io
import os
import pathlib
import stat
import tempfile
import unittest
from unittest import mock

from kxdevice import front
from kxoperate import shared, window

PATH = "PATH=/opt/kx_Updater:/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin"
OPERATE = ["--", "/opt/kx_Updater/device/operate", "--plugins", "/opt/kx_Updater/plugins", "--out",
           "/var/log/operate"]
HELP = """\
Starts the updater's window on the sandboxed device, on a screen of the panel's own, and plays the
user's part by a script.

  device/window [OPTION...] [OPTION of device/run...] [-- COMMAND...]

  --script FILE   what the user does; device/operate --help explains it. Without it the window
                  stays until device/window is ended
  --out DIR       gets pictures, transcript, and the updater's output as updater.out, updater.err
  --size WxH      of the screen; 800x480
  --lang LANG     en or ja
  --no-wm         no window manager: the window keeps its design size
  --display :N    shows the window on this X server of the panel instead of a new one
  --serve SOCKET  lets VNC viewers see the screen and press; SOCKET is a path on the panel
  --patience SEC  the longest wait for anything that the script waits for; 30
  --updater FILE  the updater; build/release/kx_Updater
  --probe DIR     the built folder "plugins" of the probe; build/release/plugins

COMMAND is "kx_Updater -upDir /mnt/usb" unless given. The updater is /opt/kx_Updater/kx_Updater on
the panel, kx_Updater for short.

Exit status: as of device/run; the updater's own, 3 when the script could not go on (one line says
where, and failed.png shows what the screen showed), 4 when there is no screen.
"""
UPDATER = ["--", "kx_Updater", "-upDir", "/mnt/usb"]


class Windows(unittest.TestCase):
    """Runs device/window in a copy of the project; the panel is played."""

    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = folder.name
        self.home = os.path.join(self.folder, "device")
        self.release = os.path.join(self.folder, "build", "release")
        os.makedirs(os.path.join(self.release, "plugins", "generic"))
        self.touch("build/release/kx_Updater", "build/release/plugins/generic/libkxprobe.so",
                   "script")
        self.played = []
        self.status = 0
        self.fetch = None
        self.cache = os.path.join(self.folder, "cache")
        for change in (mock.patch.object(front, "play", self.play),
                       mock.patch.object(shared, "FONT_CACHE", self.cache)):
            change.start()
            self.addCleanup(change.stop)

    def touch(self, *paths):
        """Makes files without content."""
        for path in paths:
            pathlib.Path(self.folder, path).touch()

    def play(self, words, home, fetch):
        """Stands for the panel."""
        self.assertEqual(home, self.home)
        self.played = words
        self.fetch = fetch
        return self.status

    def show(self, *words):
        """Runs device/window; returns its exit status and what it said."""
        told, complained = io.StringIO(), []
        with contextlib.redirect_stdout(told), \
                mock.patch.object(window.options_module, "complain", complained.append):
            status = window.run(words, self.home)
        return status, told.getvalue() + "".join(complained)

    def words(self, *words):
        """Returns what device/run gets behind what it always gets: options, then what operate gets
        behind the same."""
        self.played = []
        self.assertEqual(self.show(*words), (0, ""))
        shares = self.shares()
        self.assertEqual(self.played[:len(shares)], shares)
        rest = self.played[len(shares):]
        self.assertEqual(rest[:2], ["--env", PATH])
        at = rest.index("--")
        self.assertEqual(rest[at:at + len(OPERATE)], OPERATE)
        return rest[2:at], rest[at + len(OPERATE):]

    def shares(self):
        """Returns what every panel with a window is shown."""
        return ["--share", f"{self.home}=/opt/kx_Updater/device",
                "--share", f"{self.release}/kx_Updater=/opt/kx_Updater/kx_Updater",
                "--share", f"{self.release}/plugins=/opt/kx_Updater/plugins"]


class Use(Windows):
    """The command line."""

    def test_without_any_word(self):
        self.assertEqual(self.words(), ([], UPDATER))
        self.assertEqual(self.fetch, front.Fetch())

    def test_the_users_options_go_to_the_panel_those_of_the_player_to_the_player(self):
        self.assertEqual(
            self.words("--size", "10x20", "--env", "A=b", "--no-wm", "--boot", "--patience=2",
                       "--keep-it=x", "--display=:1", "--serve", "/s", "--usb", "stick",
                       "--summary", "--trace-shell"),
            (["--env", "A=b", "--boot", "--keep-it", "x", "--usb", "stick", "--summary",
              "--trace-shell"],
             ["--size", "10x20", "--no-wm", "--patience", "2", "--display", ":1", "--serve", "/s",
              *UPDATER]))

    def test_a_value_is_taken_as_it_is(self):
        self.assertEqual(self.words("--env=A=b=c", "--env", "--no-wm", "--usb", "--help"),
                         (["--env", "A=b=c", "--env", "--no-wm", "--usb", "--help"], UPDATER))
        self.assertEqual(self.words("--patience="), ([], ["--patience", "", *UPDATER]))

    def test_the_command_is_what_follows_the_dashes(self):
        self.assertEqual(self.words("--boot", "--", "sh", "-c", "--size", "--"),
                         (["--boot"], ["--", "sh", "-c", "--size", "--"]))
        self.assertEqual(self.words("--"), ([], UPDATER))

    def test_what_the_panel_speaks(self):
        self.assertEqual(self.words("--lang", "en"), (["--env", "LANG=en_US.UTF-8"], UPDATER))
        self.assertEqual(self.words("--lang=ja"), (["--env", "LANG=ja_JP.UTF-8"], UPDATER))
        self.assertEqual(self.show("--lang", "de"),
                         (2, "device/window: --lang: 'de' is neither en nor ja"))

    def test_what_needs_a_value(self):
        for name in ("--lang", "--script", "--out", "--updater", "--probe", "--size", "--serve",
                     "--display", "--patience", "--usb"):
            self.assertEqual(
                self.show(name),
                (2, f"device/window: {name} needs a value; see device/window --help"))
        self.assertEqual(self.played, [])

    def test_a_script_is_brought_along(self):
        script = f"{self.folder}/script"
        shares = ["--share", f"{script}=/opt/kx_Updater/script"]
        self.show("--script", script)
        self.assertEqual(self.played, [
            *self.shares(), *shares, "--env", PATH, *OPERATE,
            "--script", "/opt/kx_Updater/script", *UPDATER])

    def test_another_updater_and_another_probe(self):
        os.makedirs(f"{self.folder}/mine/generic")
        self.touch("mine/generic/libkxprobe.so", "mine/updater")
        self.show("--updater", f"{self.folder}/mine/updater", f"--probe={self.folder}/mine")
        self.assertEqual(self.played[:6], [
            "--share", f"{self.home}=/opt/kx_Updater/device",
            "--share", f"{self.folder}/mine/updater=/opt/kx_Updater/kx_Updater",
            "--share", f"{self.folder}/mine=/opt/kx_Updater/plugins"])

    def test_files_that_are_missing(self):
        def refused(name, *words):
            self.assertEqual(
                self.show(*words),
                (2, f"device/window: there is no {name}; scripts/demo builds what is missing"))
        refused("none", "--script", "none")
        refused("none", "--updater", "none")
        refused(f"{self.folder}/generic/libkxprobe.so", "--probe", self.folder)
        os.unlink(f"{self.release}/plugins/generic/libkxprobe.so")
        refused(f"{self.release}/plugins/generic/libkxprobe.so")
        os.unlink(f"{self.release}/kx_Updater")
        refused(f"{self.release}/kx_Updater")
        self.assertEqual(self.played, [])

    def test_the_help(self):
        for word in ("--help", "-h"):
            self.assertEqual(self.show("--boot", word, "--nonsense"), (0, HELP))
        self.assertEqual(self.played, [])


class Fonts(Windows):
    """What the machine knows of its fonts is copied, when the panel's root may read all of it."""

    def put(self):
        """Returns the options that the panel gets for it."""
        self.assertEqual(self.show("--boot"), (0, ""))
        words = self.played[len(self.shares()):self.played.index("--")]
        self.assertEqual(words[-3:], ["--env", PATH, "--boot"])
        return words[:-3]

    def test_a_cache_of_files_is_brought(self):
        os.mkdir(self.cache)
        self.assertEqual(self.put(), ["--put", f"{self.cache}={self.cache}"])
        self.touch("cache/a", "cache/b")
        self.assertEqual(self.put(), ["--put", f"{self.cache}={self.cache}"])

    def test_a_cache_with_something_else_or_none_is_not(self):
        self.assertEqual(self.put(), [])
        os.mkdir(self.cache)
        self.touch("cache/a")
        with mock.patch.object(os, "access", return_value=False) as access:
            self.assertEqual(self.put(), [])
        access.assert_called_with(f"{self.cache}/a", os.R_OK)
        os.mkdir(f"{self.cache}/b")
        self.assertEqual(self.put(), [])


class End(Windows):
    """What is brought back, and the exit status."""

    def test_the_status_is_that_of_the_panel_and_a_signal_is_a_request_to_end(self):
        for ended, status in ((0, 0), (7, 7), (3, 3), (137, 137), (-2, 143), (-15, 143)):
            self.status = ended
            self.assertEqual(self.show(), (status, ""))

    def fetched(self, out):
        """Brings back what a panel has left; returns the names in the folder."""
        self.show("--out", out)
        self.assertEqual(self.fetch.path, "/var/log/operate")
        self.assertEqual(self.fetch.problem, f"device/window: {out}")
        left = os.open(f"{self.folder}/left", os.O_RDONLY | os.O_DIRECTORY)
        try:
            self.fetch.take(left)
        finally:
            os.close(left)
        return sorted(os.listdir(out))

    def test_what_the_player_left_comes_into_the_folder(self):
        os.makedirs(f"{self.folder}/left/more")
        pathlib.Path(self.folder, "left/transcript").write_text("new", encoding="utf-8")
        out = f"{self.folder}/deep/out"
        self.assertEqual(self.fetched(out), ["more", "transcript"])

        pathlib.Path(out, "mine").touch()
        pathlib.Path(out, "transcript").write_text("older", encoding="utf-8")
        os.chmod(out, 0o700)
        before = len(os.listdir("/proc/self/fd"))
        os.symlink(out, f"{self.folder}/link")
        self.assertEqual(self.fetched(f"{self.folder}/link"), ["mine", "more", "transcript"])
        self.assertEqual(pathlib.Path(out, "transcript").read_text(encoding="utf-8"), "new")
        self.assertEqual(stat.S_IMODE(os.stat(out).st_mode), 0o700)
        self.assertEqual(os.stat(f"{out}/transcript").st_uid, os.geteuid())
        self.assertEqual(len(os.listdir("/proc/self/fd")), before)

    def test_it_belongs_to_who_asked(self):
        os.makedirs(f"{self.folder}/left")
        with mock.patch.object(window.trees, "copy_content") as copied, \
                mock.patch.object(os, "geteuid", return_value=12), \
                mock.patch.object(os, "getegid", return_value=34):
            self.fetched(f"{self.folder}/out")
        (_, _, *rest), _ = copied.call_args
        self.assertEqual(rest, [12, 34, "/var/log/operate"])

    def test_a_folder_that_cannot_be_made_is_a_problem_of_the_caller(self):
        os.mkdir(f"{self.folder}/left")
        self.touch("file")
        with self.assertRaises(OSError):
            self.fetched(f"{self.folder}/file")


if __name__ == "__main__":
    unittest.main()
