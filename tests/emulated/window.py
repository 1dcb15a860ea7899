# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
"""The described roads: a drive is plugged in, the window comes up by itself, and a user goes on from
there."""
import time

from emulated import packages as contents
from emulated.messages import (ASKS, DONE, REBOOTS, REMOVE, TEXTS, colour)
from kxpanel.panel import Setting
from kxpanel.road import Road

RECORDS = "/var/lib/KxUserPackages"
MARK = b"\xef\xbb\xbf"  # how every description begins
RESTART = 240  # seconds


class Window(Road):
    """What the roads have in common."""

    def says(self, panel, message):
        """Asserts that the window and the screen say it."""
        self.sees(panel, TEXTS[panel.setting.language][message], colour(message))

    def plug_until_asked(self, panel, stick):
        """Plugs a drive in; the question must come by itself."""
        begin = time.monotonic()
        panel.plug(stick)
        self.says(panel, ASKS)
        panel.note(f"the question came after {time.monotonic() - begin:.1f} seconds")

    def touch(self, panel, *names):
        """Touches buttons, each with the caption that the screen shows."""
        captions = {"InstallButton": "Install", "CancelButton": "Cancel", "OkButton": "OK",
                    "RebootButton": "reboot", "InstalledListButton": "Installed list"}
        for name in names:
            panel.play(f"wait button {name}")
            self.reads(panel, captions[name], name)
            panel.play(f"press {name}")

    def install_until_removal(self, panel):
        """From the question to the message that asks for the drive's removal; the package installs."""
        self.touch(panel, "InstallButton")
        panel.play("wait button OkButton")
        self.says(panel, DONE)
        self.touch(panel, "OkButton")
        self.says(panel, REMOVE)

    def pull_and_restart(self, panel):
        """From the message that asks for the drive's removal to the restarted machine."""
        self.says(panel, REMOVE)
        panel.play("wait no-button RebootButton")
        panel.pull()
        panel.play("wait button RebootButton")
        self.restart(panel)

    def restart(self, panel, version=None):
        """Presses reboot; the machine must really restart."""
        since = panel.monitor.mark()
        begin = time.monotonic()
        self.touch(panel, "RebootButton")
        self.says_last(panel, REBOOTS)
        panel.monitor.wait_for("RESET", since=since, seconds=RESTART)
        panel.note(f"it restarted {time.monotonic() - begin:.1f} seconds after the touch")

    def says_last(self, panel, message):
        """Asserts that the screen shows a message of a window that answers no more."""
        until = time.monotonic() + 20
        place = panel.probe.state["widgets"]["labelMsg"]["at"]
        text = TEXTS[panel.setting.language][message]
        while not panel.screen.look().shows(place, text, panel.setting.language):
            self.assertLess(time.monotonic(), until, f"the screen never showed '{text}'")

    def assert_installed(self, panel, version="2.0.0", ballast=False):
        """Asserts that the storage of a panel that is off holds a package and its record.

        ballast   whether the package has a large file besides, which must be there"""
        user, root = self.disk(panel, "user"), self.disk(panel, "root")
        prefix = "/mnt/user"
        self.assertEqual(user.read(contents.APPLICATION.removeprefix(prefix)),
                         f"{version}\n".encode())
        self.assertEqual(user.read(contents.SCRIPTED.removeprefix(prefix)), f"{version}\n".encode())
        folder = contents.FOLDER.removeprefix(prefix)
        wanted = contents.text_contents(version)
        self.assertEqual(user.names(folder), sorted([*wanted, *(["ballast"] if ballast else [])]))
        for name, content in wanted.items():
            self.assertEqual(user.read(f"{folder}/{name}"), content, name)
        self.assert_recorded(root, user, contents.NAME)

    def assert_recorded(self, root, user, name):
        """Asserts that a record is whole, and names only what is there."""
        self.assertEqual(root.names(f"{RECORDS}/{name}"),
                         ["UserPackage.kx-project", "installedFile.list"])
        self.assert_record_is_true(root, user, name)
        self.assertTrue(root.read(f"{RECORDS}/{name}/UserPackage.kx-project").startswith(MARK))
        self.assertIn(b"\n #file\n", root.read(f"{RECORDS}/{name}/installedFile.list"))

    def assert_record_is_true(self, root, user, name=contents.NAME):
        """Asserts that no record names what is not there; there may be none."""
        listed = root.read(f"{RECORDS}/{name}/installedFile.list") or b""
        for path in listed.decode().splitlines():
            if path.startswith("/mnt/user/"):
                self.assertTrue(user.exists(path.removeprefix("/mnt/user").rstrip("/")), path)
            elif path.startswith("/"):
                self.assertTrue(root.exists(path.rstrip("/")), path)
            else:
                self.assertIn(path, (" #dir", " #file"))


class Described(Window):
    """A package is installed, the drive is pulled, and the machine restarts with what is new."""

    seconds = 600

    def road(self, setting=Setting()):
        """The whole road."""
        stick = self.stick(self.packages.good())
        with self.panel(setting) as panel:
            self.assertEqual(panel.application(), "1.0.0")
            self.plug_until_asked(panel, stick)
            panel.play("state\ntexts\ncut\npicture asks")
            self.touch(panel, "InstallButton")
            panel.play("wait tab Log\nwait log 'Trying the application'\nwait button OkButton")
            panel.play("press tab Log\nlog\npicture log\npress tab Install")
            self.says(panel, DONE)
            panel.play("state\ncut\npicture done")
            self.touch(panel, "OkButton")
            panel.play("cut\npicture remove")
            self.pull_and_restart(panel)
            panel.come_up("2.0.0")
            panel.power_off()
            self.assert_installed(panel)

    def test_described(self):
        """In English, on 800 x 480."""
        self.road()

    def test_japanese(self):
        """In Japanese."""
        self.road(Setting(language="ja"))

    def test_small_screen(self):
        """On 480 x 272."""
        self.road(Setting(size=(480, 272)))

    def test_large_screen(self):
        """On 1024 x 600."""
        self.road(Setting(size=(1024, 600)))
