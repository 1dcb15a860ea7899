# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
"""What the window says, in both languages."""

ASKS, NONE, SEVERAL, DAMAGED, INSTALLS, DONE, FAILED, REMOVE, REBOOTS = (
    "asks", "none", "several", "damaged", "installs", "done", "failed", "remove", "reboots")

TEXTS = {
    "en": {
        ASKS: "Install the software on this device.\nAre you sure?",
        NONE: "There is no installation software in the USB flash drive.",
        SEVERAL: ("Installation could not be started\n"
                  "because multiple update files were found on the USB flash drive.\n"),
        DAMAGED: ("Failed to load the installation file in the USB flash drive.\n"
                  "The file may be corrupted."),
        DONE: "The installation completed successfully.",
        FAILED: "The installation failed.",
        REMOVE: "Remove the USB flash drive.\nIf you remove, this will reboot.",
        REBOOTS: "Reboot....",
    },
    "ja": {
        ASKS: "この機器にソフトウェアをインストールします。\nよろしいですか？",
        DONE: "インストールは正常に完了しました。",
        FAILED: "インストールに失敗しました。",
        REMOVE: "USBメモリを抜いてください。\n再起動します",
        REBOOTS: "再起動....",
    },
}
# The colours behind them: red, green and blue.
NORMAL, ERROR = (199, 253, 255), (255, 85, 127)
COLOURS = {NONE: ERROR, SEVERAL: ERROR, DAMAGED: ERROR, FAILED: ERROR}


def colour(message):
    """The colour behind a message."""
    return COLOURS.get(message, NORMAL)
