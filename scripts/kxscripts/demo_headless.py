# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
"""The demonstration without a display: it presses the buttons itself."""
import re

from kxscripts.common import say
from kxscripts.demo_stage import text_of

_SCRIPT = """\
wait size {size}
wait button InstallButton
state
texts
picture 1-confirm
run touch /run/look
press InstallButton
wait log "part 4 of 4"
state
picture 2-installing-log
press tab Install
wait tab Install
state
picture 3-installing
run rm /run/look
wait button OkButton
state
picture 4-finished
press InstalledListButton
wait front InstalledListDialog
list
picture 5-installed-list
press closeButton
wait front MainWindow
press tab Log
wait tab Log
picture 6-log
press tab Install
wait tab Install
press OkButton
wait no-button OkButton
state
picture 7-remove-the-drive
run /usr/bin/kxsystem/drive pull
wait button RebootButton
state
picture 8-reboot
press RebootButton
wait no-button RebootButton
state
picture 9-rebooting
run echo "-- log"
log
"""


def show(stage):
    """Plays the user, and leaves pictures, transcript and log in the folder. Raises Failed."""
    script, panel = stage.folder / "script", stage.folder / "panel"
    script.write_text(_SCRIPT.format(size=stage.options.size), encoding="utf-8")
    say("Plugging the drive in, and pressing the buttons")
    stage.open_window("--script", script, "--size", stage.options.size)
    if stage.window.wait() != 0:
        raise stage.window_failed("the window did not get to its end; what there is: "
                                  f"{stage.shown(panel)}")
    pictures = stage.folder / "pictures"
    pictures.mkdir()
    for picture in panel.glob("*.png"):
        picture.rename(pictures / picture.name)
    told = re.split("^-- log\n", text_of(panel / "transcript"), maxsplit=1, flags=re.MULTILINE)
    for name, text, headline in (
            ("transcript", told[0],
             "What the window showed: message | colour | buttons | tab | package"),
            ("log", "".join(told[1:]), "Its log")):
        (stage.folder / name).write_bytes(text.encode(errors="surrogateescape"))
        say(headline)
        print(text, end="")


def tell_files(stage):
    """Names the files that `show` has left."""
    say("Pictures of every state")
    for file in (*sorted((stage.folder / "pictures").glob("*.png")), stage.folder / "transcript",
                 stage.folder / "log"):
        print(f"  {stage.shown(file)}")
