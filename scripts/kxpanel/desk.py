# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
"""A panel that stands on a desk: the emulator with the image, a screen to look at and the serial line
on the terminal. What the panel writes is gone afterwards."""
import os
import re

from kxpanel.machine import board
from kxscripts.common import Failed

PLUG = "device_add usb-storage,id=stick,drive=stick,bus=usb.0,removable=on"
PULL = "device_del stick"
HINT = f"""The serial line of the panel is here, a root shell. Ctrl-a c leads to the emulator's monitor and back,
Ctrl-a x switches the panel off. A drive is plugged in and pulled in the monitor:
  {PLUG}
  {PULL}"""


def size_of(text):
    """The size of a screen from WIDTHxHEIGHT. Raises Failed."""
    found = re.fullmatch(r"(\d{3,4})x(\d{3,4})", text)
    if not found:
        raise Failed(f"'{text}' is no size of a screen; write it as 800x480")
    return int(found[1]), int(found[2])


def command(image, display, size, drive=None):
    """The command line of the emulator.

    image     as kxpanel.machine reads it
    display   where the screen is shown, as the emulator's option -display says it
    size      of the screen in pixels
    drive     the file of a drive that can be plugged in, or None"""
    words = [*board(image, size), "-display", display, "-serial", "mon:stdio"]
    for serial, file in image.drives.items():
        words += ["-drive", f"if=none,id={serial},format=raw,snapshot=on,file={file}",
                  "-device", f"virtio-blk-device,drive={serial},serial={serial}"]
    if drive:
        words += ["-blockdev", f"driver=raw,node-name=stick,file.driver=file,file.filename={drive}"]
    return words


def start(image, display, size, drive):
    """Becomes the emulator. Raises Failed where there is none."""
    if drive and not os.path.isfile(drive):
        raise Failed(f"{drive}: there is no such file to plug in as a drive")
    words = command(image, display, size, drive)
    print(HINT, flush=True)
    try:
        os.execvp(words[0], words)
    except FileNotFoundError as error:
        raise Failed(f"{words[0]} is missing; scripts/setup emulator installs it") from error
