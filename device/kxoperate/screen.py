# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
"""The panel's screen: an X server, and a window manager that makes full-screen windows full."""

import os
import select
import subprocess

from kxoperate import shared

PATIENCE = 30  # seconds for a server to get ready
WINDOW_MANAGER = """\
<?xml version="1.0" encoding="UTF-8"?>
<openbox_config xmlns="http://openbox.org/3.4/rc">
  <theme><animateIconify>no</animateIconify></theme>
  <desktops><number>1</number><popupTime>0</popupTime></desktops>
</openbox_config>
"""

# Full-screen windows have no titles: the manager need not read every font of the machine.
WINDOW_MANAGER_FONTS = """\
<?xml version="1.0"?>
<!DOCTYPE fontconfig SYSTEM "fonts.dtd">
<fontconfig><dir>/usr/share/fonts/truetype/dejavu</dir><cachedir>%s</cachedir></fontconfig>
""" % shared.FONT_CACHE


class ScreenError(Exception):
    """The screen could not be made; the text says why."""


class Screen:
    """One X server, ended by close(). Its display's name is in `display`."""

    def __init__(self, folder, size, serve=None, display=None):
        """Starts a server of its own, unless there is one at `display` already.

        size is (width, height) in pixels; serve is the path of a socket for VNC viewers, or None.
        """
        self._folder = folder
        self._processes = []
        self.display = display or self._start_server(size, serve)

    def _start_server(self, size, serve):
        picture = f"{size[0]}x{size[1]}"
        reader, writer = os.pipe()
        command = ["Xvfb", "-screen", "0", picture + "x24"]
        if serve:
            command = ["Xvnc", "-geometry", picture, "-depth", "24", "-rfbport", "-1",
                       "-rfbunixpath", serve, "-SecurityTypes", "None", "-AlwaysShared",
                       "-AcceptSetDesktopSize=0", "-DisconnectClients=0"]
        # A panel has no OpenGL, and loading it is half of the server's start.
        command += ["-extension", "GLX", "-displayfd", str(writer), "-nolisten", "tcp", "-noreset"]
        self._start(command, pass_fds=[writer])
        os.close(writer)
        number = _read(reader, PATIENCE)
        if not number.strip().isdigit():
            raise ScreenError(f"{command[0]} did not start{self._remark()}")
        return ":" + number.strip()

    def start_window_manager(self):
        """Returns when it manages the screen."""
        configuration = os.path.join(self._folder, "openbox.xml")
        with open(configuration, "w", encoding="utf-8") as file:
            file.write(WINDOW_MANAGER)
        fonts = os.path.join(self._folder, "fonts.conf")
        with open(fonts, "w", encoding="utf-8") as file:
            file.write(WINDOW_MANAGER_FONTS)
        ready = os.path.join(self._folder, "ready")
        os.mkfifo(ready)
        reader = os.open(ready, os.O_RDONLY | os.O_NONBLOCK)
        keeper = os.open(ready, os.O_WRONLY)  # so that only what is written counts
        # Its caches and menus go where nobody looks for them.
        home = {"HOME": self._folder, "DISPLAY": self.display, "XDG_CONFIG_DIRS": self._folder,
                "FONTCONFIG_FILE": fonts}
        manager = self._start(["openbox", "--sm-disable", "--config-file", configuration,
                               "--startup", f"cp {configuration} {ready}"], environment=home)
        told = _read(reader, PATIENCE, manager)
        os.close(keeper)
        if not told:
            raise ScreenError(f"openbox did not start{self._remark()}")

    def _remark(self):
        """Returns what the servers said last, which nobody can look up after the panel's end."""
        with open(os.path.join(self._folder, "screen.err"), encoding="utf-8",
                  errors="replace") as file:
            # X servers put (EE) before errors, and before nothing.
            said = [text for line in file if (text := line.replace("(EE)", "").strip())]
        return f": {said[-1]}" if said else ""

    def _start(self, command, pass_fds=(), environment=None):
        with open(os.path.join(self._folder, "screen.err"), "ab") as remarks:
            try:
                process = subprocess.Popen(
                    command, stdin=subprocess.DEVNULL, stdout=remarks, stderr=remarks,
                    pass_fds=pass_fds, env={**os.environ, **(environment or {})})
            except OSError as error:
                raise ScreenError(f"{command[0]}: {error.strerror}; "
                                  "scripts/setup demo installs it") from error
        self._processes.append(process)
        return process

    def take_picture(self, path):
        """Writes what the screen shows to a PNG file; ScreenError when the screen is gone."""
        self._run("import", "-display", self.display, "-window", "root", path)

    def click(self, place):
        """Presses the left mouse button at (x, y), as a finger would; ScreenError as above."""
        self._run("xdotool", "mousemove", str(place[0]), str(place[1]), "click", "1")

    def move_away(self):
        """Puts the pointer into a corner, where it lights up nothing; ScreenError as above."""
        self._run("xdotool", "mousemove", "4000", "4000")

    def _run(self, *command):
        result = subprocess.run(command, env={**os.environ, "DISPLAY": self.display}, check=False,
                                stdout=subprocess.DEVNULL, stderr=subprocess.PIPE)
        if result.returncode != 0:
            said = result.stderr.decode("utf-8", "replace").strip().split("\n")[-1]
            raise ScreenError(f"{command[0]} ended with {result.returncode}: {said}")

    def close(self):
        """Ends the servers."""
        for process in reversed(self._processes):
            process.terminate()
        for process in reversed(self._processes):
            process.wait()


def _read(descriptor, seconds, writer=None):
    """Returns the first line that arrives, or what there is of it when it does not come in time or
    the process `writer` has ended."""
    watched = [descriptor]
    if writer:
        watched.append(os.pidfd_open(writer.pid))
    text = b""
    while not text.endswith(b"\n") and descriptor in select.select(watched, [], [], seconds)[0]:
        piece = os.read(descriptor, 1)
        if not piece:
            break
        text += piece
    for each in watched:
        os.close(each)
    return text.decode()
