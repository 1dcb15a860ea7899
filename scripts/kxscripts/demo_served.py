# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
"""The demonstration with a person who presses the buttons: in a window on the display, in a
browser, or in a VNC viewer."""
import os
import socket
import time

from kxscripts.common import Failed, say
from kxscripts.demo_stage import is_socket, last_lines

NOVNC = "/usr/share/novnc"
SCREEN = "/run/screen"  # the socket of the screen, on the panel
_ANY_DISPLAY = b"\xff\xff\0\0\0\0\0\x12MIT-MAGIC-COOKIE-1\0\x10"  # and a secret of 16 bytes


def is_taken(port):
    """Tells whether somebody serves a port of this machine."""
    try:
        socket.create_connection(("127.0.0.1", port)).close()
    except OSError:
        return False
    return True


def _explain(stage, text):
    """Tells the person what to do."""
    print(f"""
The window asks whether to install. Press Install and watch; press OK. Then pull the drive out, and
the button to reboot comes up; put the drive back, and it goes. Press it to see the panel start
again.

  {stage.command("device/drive", "pull")}
  {stage.command("device/drive", "plug")}

{text}""")


def _follow(stage):
    """Stays until the button to reboot is pressed, or the window has ended."""
    if not stage.wait_until(stage.has_rebooted, stage.window):
        say("The window was closed")
        return
    say("Reboot was pressed")
    time.sleep(2)  # the window says so, too
    stage.processes.stop(stage.window)


# -- on a display ----------------------------------------------------------------------------


def open_display(stage):
    """Starts an X server in a window of the display, for the panel alone.

    Returns False after it has printed why it cannot be. Raises Failed when the server is there and
    cannot be handed to the panel."""
    cookie, log, folder = (stage.folder / name for name in ("cookie", "xephyr.log", "x11"))
    # Any name of a display, one secret: only who has the file gets in.
    with open(os.open(cookie, os.O_WRONLY | os.O_CREAT | os.O_EXCL, 0o600), "wb") as file:
        file.write(_ANY_DISPLAY + os.urandom(16))
    told, tell = os.pipe()
    with open(told, "rb") as number:
        try:
            # Memory is not shared with the panel, so drawing cannot use it.
            stage.processes.start(
                "Xephyr", "-screen", stage.options.size, "-title", "kx_Updater: the panel",
                "-noreset", "-no-host-grab", "-nolisten", "tcp", "-extension", "MIT-SHM",
                "-auth", cookie, "-displayfd", str(tell), log=log, keep=(tell,))
        finally:
            os.close(tell)
        display = number.readline().decode().strip()
    if not display:
        print(last_lines(log, 2))
        return False
    # The panel gets this one socket, not the folder with those of the user's own displays.
    folder.mkdir()
    forwarder_log = stage.folder / "forwarder.log"
    forwarder = stage.processes.start(
        "socat", f"UNIX-LISTEN:{stage.short('x11/X1')},mode=666,fork",
        f"UNIX-CONNECT:/tmp/.X11-unix/X{display}", log=forwarder_log)
    if not stage.wait_until(lambda: is_socket(folder / "X1"), forwarder):
        raise Failed(f"socat did not start; see {stage.shown(forwarder_log)}")
    return True


def show_on_display(stage):
    """Shows the panel on the X server of `open_display` until its user is done."""
    say("Plugging the drive in; the panel is in the window that opens")
    stage.open_window("--display", ":1", "--share", f"{stage.folder / 'x11'}=/tmp/.X11-unix",
                      "--put", f"{stage.folder / 'cookie'}=/run/cookie",
                      "--env", "XAUTHORITY=/run/cookie")
    _explain(stage, "Closing the panel's window ends the demonstration, and so does Ctrl-C.")
    _follow(stage)


# -- in a browser, in a viewer ---------------------------------------------------------------


def _forward(stage, port, *command):
    """Starts a forwarder; returns when it listens. Raises Failed."""
    log = stage.folder / f"forwarder-{port}.log"
    forwarder = stage.processes.start(*command, log=log)
    if not stage.wait_until(lambda: is_taken(port), forwarder):
        raise Failed(f"port {port} cannot be served: {last_lines(log, 1)}")


def _take_screen(stage):
    """Waits for the panel's screen and takes its socket to the folder; returns a short path of it.
    Raises Failed."""
    inside = stage.state / "root" / SCREEN.lstrip("/")
    if not stage.wait_until(lambda: is_socket(inside), stage.window):
        raise stage.window_failed("the panel's screen did not start")
    # What the panel may put in its place later is not served.
    screen = stage.folder / "screen"
    os.link(inside, screen, follow_symlinks=False)
    if not is_socket(screen, follow=False):
        raise Failed("the panel's screen is no socket")
    return stage.short("screen")


def serve(stage):
    """Shows the panel in a browser, in a viewer or in both until its user is done. Raises Failed.
    """
    web, vnc = stage.options.web, stage.options.vnc
    say("Plugging the drive in")
    stage.open_window("--serve", SCREEN, "--size", stage.options.size)
    screen = _take_screen(stage)
    if vnc:
        _forward(stage, vnc, "socat", f"TCP-LISTEN:{vnc},bind=127.0.0.1,reuseaddr,fork",
                 f"UNIX-CONNECT:{screen}")
        say(f"The panel, in a VNC viewer: 127.0.0.1:{vnc}")
    if web:
        _forward(stage, web, "websockify", "--web", NOVNC, f"127.0.0.1:{web}",
                 f"--unix-target={screen}")
        say("The panel, in a browser: "
            f"http://127.0.0.1:{web}/vnc.html?autoconnect=true&resize=scale")
    print("Only this machine can connect, but every user of it. From another one, ask for a "
          "tunnel:")
    for port in stage.options.ports():
        print(f"  ssh -L {port}:127.0.0.1:{port} THIS-MACHINE")
    _explain(stage, "Ctrl-C ends the demonstration.")
    _follow(stage)
