# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
"""What is left of a demonstration: the updater's commands, the panel's changes, its next start."""
import os

from kxdevice import names
from kxscripts.common import Failed, say
from kxscripts.demo_stage import lines_of

_RECORD = f"{names.REGISTRY}/Hello/{names.FILE_LIST}"
# What the screen and the fonts need is not the updater's doing.
_OF_SCREEN = ("xkbcomp",)
_FILES_OF_SCREEN = (" /var/log/operate", " /var/cache/fontconfig")


def tell(stage, must_be_recorded):
    """Tells what the installation did to the panel, and plays the reboot that was asked for.

    Raises Failed when it is not recorded and must be."""
    say("The commands that the updater ran")
    for line in lines_of(stage.trace):
        kind, _, command = line.partition("\t")
        if kind == "shell" and not _names_any(command, _OF_SCREEN):
            print(f"  {command}")
    say("What changed on the device")
    for line in lines_of(stage.summary):
        if not _names_any(line, _FILES_OF_SCREEN):
            print(line)
    if os.path.exists(f"{stage.state}/root{_RECORD}"):
        say("The record of the installation")
        stage.need("device/run", "--state", stage.state, "--", "cat", _RECORD)
    elif must_be_recorded:
        raise Failed("the installation was not recorded")
    if stage.has_rebooted():
        say("Rebooting: the start-up script greets")
        stage.need("device/run", "--state", stage.state, "--boot", "--", "true",
                   together=True)


def _names_any(line, parts):
    return any(part in line for part in parts)


def tell_way_in(stage):
    """Tells how to look around on the panel that is kept."""
    print(f"""
The panel is kept in {stage.shown(stage.state)}. Have a look around:
  {stage.command("device/run")} -- sh
  scripts/demo --help        the window in a browser, in Japanese, on another screen""")
