# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
"""What device/window, on the machine, and device/operate, on the panel, both know."""

# Options that device/window hands on: the value's name, "" for none, and what it is for.
OPTIONS = {
    "--size": ("WxH", "of the screen; 800x480"),
    "--no-wm": ("", "no window manager: the window keeps its design size"),
    "--display": (":N", "shows the window on this X server of the panel instead of a new one"),
    "--serve": ("SOCKET",
                "lets VNC viewers see the screen and press; SOCKET is a path on the panel"),
    "--patience": ("SEC", "the longest wait for anything that the script waits for; 30"),
}
FAILED, NO_SCREEN = 3, 4  # exit statuses
FONT_CACHE = "/var/cache/fontconfig"  # on the panel and, as a rule, on the machine
