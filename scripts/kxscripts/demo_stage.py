# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
"""What every way to show the panel shares: the demonstration's folder, its panel, its window."""
import os
import pathlib
import shlex
import shutil
import stat
import sys
import time

from kxscripts.common import Failed, ROOT
from kxscripts.demo_options import FOLDER
from kxscripts.demo_processes import Processes

FILE_OF_PACKAGE = "Hello.kx-update"
MARK = ".kx-demo"  # in a folder that a demonstration has made
TICK = 0.1  # seconds between two looks


def text_of(file):
    """Returns the text of a file, as it is; bytes that are no UTF-8 survive printing."""
    return pathlib.Path(file).read_bytes().decode(errors="surrogateescape")


def lines_of(file):
    """Returns the lines of a file; none when there is no file."""
    if not os.path.exists(file):
        return []
    return text_of(file).removesuffix("\n").split("\n")


def last_lines(file, count):
    """Returns the last lines of a file as one text."""
    return "\n".join(lines_of(file)[-count:])


def is_socket(path, follow=True):
    """Tells whether a path leads to a socket."""
    try:
        return stat.S_ISSOCK(os.stat(path, follow_symlinks=follow).st_mode)
    except OSError:
        return False


class Stage:
    """A demonstration; the working directory is the project's root while it lasts.

    window is the process of device/window as soon as it is opened."""

    def __init__(self, options, caller):
        """caller is the folder in which the command was typed."""
        self.options = options
        self.folder = options.folder
        self.state = self.folder / "state"
        self.drive = self.folder / "drive"
        self.package = self.drive / FILE_OF_PACKAGE
        self.trace = self.folder / "trace"
        self.summary = self.folder / "summary"
        self.processes = Processes()
        self.window = None
        self._caller = caller
        self._is_claimed = False
        self._link = None

    # -- the folder --

    def claim_folder(self):
        """Makes the folder anew; only what an earlier demonstration made is removed. Raises Failed.
        """
        if os.path.lexists(self.folder):
            if not self._is_ours():
                raise Failed(f"{self.folder} holds something else; name a new folder behind --dir")
            if os.path.isdir(self.state):
                # Its files have owners whom only the device can act for.
                self.need("device/run", "--state", self.state, "--erase")
            if self.folder.is_symlink():
                self.folder.unlink()
            else:
                shutil.rmtree(self.folder)
        self.drive.mkdir(parents=True)
        (self.folder / MARK).touch()
        self._is_claimed = True

    def _is_ours(self):
        if not self.folder.is_dir():
            return False
        return (self.folder == FOLDER or os.path.lexists(self.folder / MARK)
                or not os.listdir(self.folder))

    def short(self, name):
        """Returns a short path of a file in the folder, valid while this process lives: the path of
        a socket must be short, that of the folder need not be."""
        if self._link is None:
            self._link = os.open(self.folder, os.O_RDONLY | os.O_DIRECTORY)
        return f"/proc/{os.getpid()}/fd/{self._link}/{name}"

    def clear(self):
        """Ends all processes and removes what was needed for as long as they ran. Nothing that is
        not of this demonstration is touched."""
        self.processes.stop_all()
        if not self._is_claimed:
            return
        shutil.rmtree(self.folder / "x11", ignore_errors=True)
        for name in ("cookie", "screen"):
            (self.folder / name).unlink(missing_ok=True)

    # -- words for the user --

    def shown(self, path):
        """Returns a path of the project or of the folder as it reads where the command was typed.
        """
        return str(path) if self._caller == ROOT else str(ROOT / path)

    def command(self, *words):
        """Returns a command for the user to type: a program of the project, then what it gets to
        find the panel, then further words."""
        program, *more = words
        return shlex.join([self.shown(program), *more, "--state", self.shown(self.state)])

    # -- processes --

    def need(self, *command, **more):
        """Runs a command that must succeed, with the arguments of Processes.start; raises Failed.
        """
        if self.processes.run(*command, **more) != 0:
            raise Failed(f"{command[0]} has failed")

    def open_window(self, *options):
        """Starts the panel with the drive plugged in and the updater's window on it; options are
        further ones of device/window."""
        self.trace.touch()
        self.window = self.processes.start(
            "device/window", "--state", self.state, "--usb", self.drive, "--out",
            self.folder / "panel", "--lang", self.options.lang, "--seconds", "1000000",
            "--trace", self.trace, "--trace-shell", f"--summary={self.summary}", *options,
            log=self.window_log())

    def window_log(self):
        """Returns the file that tells why the window could not be opened."""
        return self.folder / "window.log"

    def window_failed(self, text):
        """Prints what the window has complained of; returns what to raise."""
        print(text_of(self.window_log()), end="", file=sys.stderr, flush=True)
        return Failed(text)

    @staticmethod
    def wait_until(is_so, process):
        """Waits until something is so; tells whether it has come before the process ended."""
        while not is_so():
            if process.poll() is not None:
                return False
            time.sleep(TICK)
        return True

    # -- what has happened --

    def has_rebooted(self):
        """Tells whether the panel was asked to reboot."""
        return any(line.startswith("tool\treboot") for line in lines_of(self.trace))
