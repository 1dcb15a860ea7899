# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
"""An emulated panel as the tests use it: booted once for each screen and language and saved, then
plugged into, touched, looked at and switched off."""
import hashlib
import pathlib
import re
import shutil
import tarfile
import time
from typing import NamedTuple

from kxoperate.script import Player, ScriptError
from kxpanel.drives import run
from kxpanel.machine import TOOLS, Machine, board, make_overlays
from kxpanel.probe import PORT
from kxpanel.screen import letters
from kxscripts.common import Failed

BOOT = 240       # seconds from power to a shell, and from there to the application
PATIENCE = 150   # seconds for what the window is to show: the processor is played
SAVED = "booted"
FOLDER = "/run/kx-tests"  # on the panel: what the tests bring along
LANGUAGES = {"en": "C.UTF-8", "ja": "ja_JP.UTF-8"}
APPLICATION = "Machine application"
# Brought along at each start, since nothing of it is on the image; the root stays write-protected.
EQUIP = f"""
set -e
mkdir -p {FOLDER}
mountpoint -q {FOLDER} || mount -t tmpfs -o mode=755 tmpfs {FOLDER}
for drive in /sys/block/vd*; do
    [ "$(cat "$drive/serial")" != {TOOLS} ] || tar -x -C {FOLDER} -f "/dev/${{drive##*/}}"
done
test -e {FOLDER}/plugins/generic/libkxprobe.so
test -c {PORT}
unit=/run/systemd/system/kx-updater@.service.d
mkdir -p $unit
cat >$unit/kx-tests.conf <<END
[Service]
Environment=KX_PROBE={PORT} QT_PLUGIN_PATH={FOLDER}/plugins QT_QPA_GENERIC_PLUGINS=kxprobe
END
systemctl daemon-reload
"""
SPEAK = """
set -e
mount -o remount,rw /
sed -i 's/^LANG=.*/LANG={}/' /etc/default/kx-updater
grep -qx 'LANG={}' /etc/default/kx-updater
sync
mount -o remount,ro /
"""


class Setting(NamedTuple):
    """What a panel is switched on with."""

    size: tuple = (800, 480)
    language: str = "en"

    def name(self):
        """One word for it."""
        return "{}x{}-{}".format(*self.size, self.language)


class PanelPlayer(Player):
    """Plays a script on an emulated panel; `run` runs a command of the panel."""

    def __init__(self, panel, pictures, note):
        super().__init__(panel.screen, panel.probe, pictures, note, PATIENCE)
        self._console = panel.console
        self._lines = note

    def _run(self, *command):
        done = self._console.run(" ".join(command), PATIENCE)
        if done.output:
            self._lines(done.output.rstrip("\n"))
        if done.status != 0:
            raise ScriptError(f"the command ended with {done.status}")


class Panel(Machine):
    """An emulated panel with the tests' probe. `folder` gets its storage, logs, pictures and the
    transcript."""

    def __init__(self, bench, folder, setting, overlays):
        super().__init__(bench.image, overlays, folder, size=setting.size, tools=bench.tools)
        self._bench = bench
        self.folder = pathlib.Path(folder)
        self.setting = setting
        self.overlays = overlays

    def note(self, text):
        """Writes a line into the transcript, with the time."""
        with (self.folder / "transcript").open("a", encoding="utf-8") as file:
            file.write(f"{time.strftime('%H:%M:%S')} {text}\n")

    def boot(self, version=None):
        """Switches it on and waits until its application is on the screen, in a version if one is
        given. Raises Failed."""
        self.start()
        self.come_up(version)

    def come_up(self, version=None):
        """Waits until a panel that starts has its application on the screen. Raises Failed."""
        self.console.wait_for_prompt(BOOT)
        self.console.find_shell(BOOT)
        self.equip()
        self.wait_for_application(version)

    def equip(self):
        """Puts what the tests need beside the system. Raises ConsoleError."""
        self.console.check(EQUIP)

    def application(self, picture=None):
        """The version of the application that the screen shows; None when it shows none."""
        width, height = self.setting.size
        picture = picture or self.screen.look()
        text = picture.read((0, height // 4, width, height // 2))
        if letters(APPLICATION) not in letters(text):
            return None
        found = re.search(r"version\s*(\S+)", text)
        return found[1] if found else None

    def wait_for_application(self, version=None, seconds=BOOT):
        """Waits until the screen shows the application, in a version if one is given. Raises
        Failed."""
        until = time.monotonic() + seconds
        shown = None
        while time.monotonic() < until:
            shown = self.application()
            if shown is not None and version in (None, shown):
                self.note(f"the screen shows the application {shown}")
                return
            time.sleep(1)
        raise Failed(f"the screen does not show the application {version or ''} after {seconds} "
                     f"seconds, but {shown or 'none'}")

    def play(self, script):
        """Plays lines of a script, as device/operate --help explains them. Raises ScriptError."""
        PanelPlayer(self, str(self.folder), self.note).play(script)


class Bench:
    """What all panels of a run share.

    image    as read_image() returns it
    plugins  the built folder "plugins" with the probe for the panel's processor
    work     a folder that keeps saved panels from one run to the next"""

    def __init__(self, image, plugins, work):
        self.image = image
        self.work = pathlib.Path(work)
        self.work.mkdir(parents=True, exist_ok=True)
        self.tools = self.work / "tools.tar"
        self._plugin = pathlib.Path(plugins) / "generic" / "libkxprobe.so"
        if not self._plugin.exists():
            raise Failed(f"there is no {self._plugin}; scripts/cross {image.processor} builds it")
        with tarfile.open(self.tools, "w") as archive:
            archive.add(self._plugin, "plugins/generic/libkxprobe.so")

    def _key(self, setting):
        """What a saved panel depends on."""
        parts = [self._plugin.read_bytes(), repr((setting, self.image)).encode(), EQUIP.encode(),
                 SPEAK.encode(), repr(board(self.image, setting.size)).encode()]
        for file in (self.image.kernel, self.image.initrd, *self.image.drives.values()):
            found = file.stat()
            parts.append(f"{file} {found.st_size} {found.st_mtime_ns}".encode())
        return hashlib.sha256(b"\0".join(parts)).hexdigest()

    def saved(self, setting):
        """The folder with a panel that has booted, which is made when there is none yet. Raises
        Failed."""
        folder = self.work / setting.name()
        key = self._key(setting)
        mark = folder / "key"
        if not mark.exists() or mark.read_text(encoding="utf-8") != key:
            shutil.rmtree(folder, ignore_errors=True)
            folder.mkdir(parents=True)
            self._save(setting, folder)
            mark.write_text(key, encoding="utf-8")
        return folder

    def _save(self, setting, folder):
        with Panel(self, folder, setting, make_overlays(self.image, folder)) as panel:
            panel.boot()
            language = LANGUAGES[setting.language]
            panel.console.check(SPEAK.format(language, language))
            panel.save(SAVED)

    def panel(self, folder, setting=Setting()):
        """A panel that goes on from where the saved one was; ended by the body of `with`. Its
        storage is its own, in `folder`. Raises Failed."""
        saved = self.saved(setting)
        folder = pathlib.Path(folder)
        folder.mkdir(parents=True, exist_ok=True)
        overlays = {}
        for serial in self.image.drives:
            overlays[serial] = folder / f"{serial}.qcow2"
            run(["cp", "--sparse=always", saved / f"{serial}.qcow2", overlays[serial]])
        panel = Panel(self, folder, setting, overlays)
        panel.start(SAVED)
        try:
            panel.console.find_shell(BOOT)
        except BaseException:
            panel.stop()
            raise
        return panel
