#!/usr/bin/python3
# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
"""Compares what the programs say of a panel with what the sandboxed device says and makes.

  names.py PRINT_PANEL [REPORT]     the program that prints lib/panel's description; a file for a
                                    JUnit report of the comparison, which is one case

The names of src/osa/PanelNames.h and lib/panel/Names.h are those of device/kxdevice/names.py, in both
directions, but for those that only a panel's image brings; the folders of a fresh panel are the same
ones; its links and files are there on a panel that the device makes. Exit status 0: all agree; 1: it tells where not; 77: all that can be compared
agrees, but there is no sandboxed device here.
"""
import pathlib
import re
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent.parent
sys.dont_write_bytecode = True
sys.path.insert(0, str(ROOT / "device"))

# pylint: disable=wrong-import-position
from kxdevice import names  # noqa: E402

PAIRS = {  # in C++: on the device
    "kPackageExtension": names.PACKAGE_ENDING,
    "kUnpackedSuffix": names.UNPACKED_ENDING,
    "kDescription": names.DESCRIPTION,
    "kUpdater": names.UPDATER,
    "kRegistry": names.REGISTRY,
    "kInstalledList": names.FILE_LIST,
    "kDrive": names.DRIVE_DEVICE,
    "kDriveFolder": names.DRIVE_FOLDER,
    "kStartupScript": names.STARTUP_SCRIPT,
    "kStepScriptFolder": names.SCRIPT_FOLDER + "/",
    "kStepScript": names.SCRIPT_FILE,
    "kWriteProtectOff": names.WPROTECT_OFF,
    "kUnmountDrive": names.USB_UMOUNT,
    "kSettingTool": names.SETTING_TOOL,
    "kReboot": names.REBOOT,
    "kSync": "sync",  # the device has the machine's
}
# What a panel's image brings, and the device does not.
ALONE_IN_THE_PROGRAMS = {"kPanelDescription", "kTrustedKeys", "kPanelState", "kPanelUpdater"}
# The device's own, or parts of the others.
ALONE_ON_THE_DEVICE = {"TOOL_FOLDER", "DRIVE_TOOL", "FOLDERS", "MARKER", "ADDRESS"}


def constants():
    """The names in C++."""
    found = {}
    for path in ("src/osa/PanelNames.h", "lib/panel/Names.h"):
        text = (ROOT / path).read_text(encoding="utf-8")
        found.update(re.findall(r'inline constexpr const char\* (\w+) =\s+"([^"]*)";', text))
    return found


def wrong_names():
    """Where the names differ."""
    found = constants()
    for name in sorted(ALONE_IN_THE_PROGRAMS - found.keys()):
        yield f"{name} is no name in C++"
    for name in sorted((found.keys() | PAIRS.keys()) - ALONE_IN_THE_PROGRAMS):
        if found.get(name) != PAIRS.get(name):
            yield f"{name} is {found.get(name)!r} in C++, and {PAIRS.get(name)!r} on the device"
    theirs = {name: value for name, value in vars(names).items() if name.isupper()}
    for name, value in theirs.items():
        if name in ALONE_ON_THE_DEVICE:
            continue
        if value not in PAIRS.values() and value + "/" not in PAIRS.values():
            yield f"device/kxdevice/names.py has {name}, which no program knows"
    for tool in (names.WPROTECT_OFF, names.USB_UMOUNT):
        if not tool.startswith(names.TOOL_FOLDER + "/"):
            yield f"{tool} is not in {names.TOOL_FOLDER}"


def described(program):
    """The description of a fresh panel: folders, links with their targets, files."""
    printed = subprocess.run([program], check=True, capture_output=True, text=True).stdout
    panel = {"folder": [], "link": [], "file": []}
    for line in printed.splitlines():
        kind, *words = line.split("\t")
        panel[kind].append(words if kind == "link" else words[0])
    return panel


def wrong_folders(panel):
    """Where the folders differ from those that the device says it makes."""
    ways = {path for path, _ in panel["link"]} & set(names.FOLDERS)
    ours = (set(panel["folder"]) - {"/"}) | ways
    for folder in sorted(ours ^ set(names.FOLDERS)):
        where = "lib/panel" if folder in ours else "device/kxdevice/names.py"
        yield f"the folder {folder} is in {where} alone"
    if not set(panel["file"]).isdisjoint(panel["folder"]):
        yield "something is a folder and a file"


def wrong_on_the_device(panel):
    """What of the description a fresh panel lacks; None when no panel can be made."""
    asked = [("-d", path, "") for path in panel["folder"]]
    asked += [("-h", path, target) for path, target in panel["link"]]
    asked += [("-e", path, "") for path in panel["file"]]
    script = 'while read -r flag path target; do\n' \
        '  test "$flag" "$path" || echo "$path is not there"\n' \
        '  test -z "$target" || test "$(readlink "$path")" = "$target" || ' \
        'echo "$path leads elsewhere"\n' \
        '  test "$flag" != -e || test ! -d "$path" || echo "$path is a folder"\n' \
        'done; echo end'
    done = subprocess.run([str(ROOT / "device/run"), "--", "/bin/sh", "-c", script], text=True,
                          input="".join(" ".join(words) + "\n" for words in asked),
                          capture_output=True, check=False)
    lines = done.stdout.splitlines()
    return lines[:-1] if lines and lines[-1] == "end" else None


def main():
    """Compares."""
    panel = described(sys.argv[1])
    wrong = [*wrong_names(), *wrong_folders(panel)]
    found = wrong_on_the_device(panel)
    print("\n".join(wrong + (found or [])))
    if wrong or found:
        return 1
    if found is None:
        return 77
    if len(sys.argv) > 2:
        pathlib.Path(sys.argv[2]).write_text(
            '<testsuite tests="1"><testcase name="names and folders agree"/></testsuite>\n',
            encoding="utf-8")
    return 0


sys.exit(main())
