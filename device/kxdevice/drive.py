# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
"""Plugs and pulls the USB drive of a panel from outside, while it runs or between two runs."""

import errno
import fcntl
import json
import os
import socket

from kxdevice import linux, options as options_module, state as state_module, tools, trees
from kxdevice.linux import SandboxError
from kxdevice.names import DRIVE_DEVICE, DRIVE_FOLDER

USAGE = 2
PATIENCE = 30  # seconds for a running panel to answer
HELP = f"""\
usage: device/drive plug [DIR] --state STATE
       device/drive pull --state STATE

Plugs a USB drive into the panel whose files are kept in STATE (device/run --state), or pulls
it out, like a hand would: while a command runs on the panel, or before the next one starts.

  plug DIR   the drive holds a copy of DIR: {DRIVE_DEVICE} appears, its files show at {DRIVE_FOLDER}
  plug       the drive that was pulled comes back with its files as they were
  pull       the drive is gone, also while it is in use

The drive's files can be looked at in STATE/drive.
Exit status: 0 done, 1 not possible now (one line says why), 2 wrong use.

Example
  device/run --state panel -- sleep 60 &
  device/drive plug stick --state panel
  device/drive pull --state panel
"""


def run(arguments):
    """Runs device/drive; returns the exit status."""
    linux.expect_children()
    try:
        if arguments and arguments[0] in ("--help", "-h"):
            return options_module.show_help(HELP)
        action, folder, path = _parse(list(arguments))
    except options_module.UsageError as error:
        options_module.complain(f"device/drive: {error}; see device/drive --help")
        return USAGE
    try:
        problem = _act(action, folder, path)
    except (SandboxError, OSError) as error:
        problem = linux.reason(error)
    if problem:
        options_module.complain(f"device/drive: {problem}")
        return 1
    return 0


def _parse(words):
    path, rest = "", []
    while words:
        word = words.pop(0)
        if word == "--state" and words:
            path = words.pop(0)
        elif word.startswith("--state=") and word != "--state=":
            path = word[len("--state="):]
        elif word.startswith("-"):
            raise options_module.UsageError(f"unknown option {word}, or its value is missing")
        else:
            rest.append(word)
    if rest[:1] not in (["plug"], ["pull"]) or len(rest) > (2 if rest[0] == "plug" else 1):
        raise options_module.UsageError("give plug [DIR] or pull")
    if not path:
        raise options_module.UsageError("--state is missing")
    folder = rest[1] if len(rest) > 1 else ""
    if folder and not os.path.isdir(folder):
        raise options_module.UsageError(f"{folder} is not a folder")
    return rest[0], folder, os.path.abspath(path)


def _act(action, folder, path):
    state = state_module.open_state(path)
    turn = os.open(os.path.join(path, "drive.lock"),
                   os.O_RDWR | os.O_CREAT | os.O_NOFOLLOW | os.O_CLOEXEC, 0o600)
    fcntl.flock(turn, fcntl.LOCK_EX)
    running = not state.try_lock()
    facts = _facts(path)
    if folder:
        if facts.get("plugged"):
            return "a drive is plugged in already; pull it first"
        _bring(state, folder)
    if running:
        return _ask(path, {"drive": action, "new": bool(folder)})
    return _change(state, facts, action, bool(folder))


def _facts(path):
    directory = os.open(os.path.join(path, "panel"), trees.DIR_FLAGS)
    try:
        return state_module.read_json(directory, "drive.json", {})
    finally:
        os.close(directory)


def _bring(state, folder):
    """Copies the files of the new drive next to those of the old one."""
    source = trees.Source(folder)

    def copy():
        target = os.open(os.path.join(state.path, "incoming"), trees.DIR_FLAGS)
        trees.empty(target)
        # The folder itself belongs to root inside, seen from wherever this child is.
        owner = os.fstat(target)
        trees.copy_dir(source.fd, target, owner.st_uid, owner.st_gid, source.path)

    state_module.run_as_panel(state.ids, copy)


def _ask(path, request):
    directory = os.open(path, os.O_RDONLY | os.O_DIRECTORY | os.O_CLOEXEC)
    link = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
    link.settimeout(PATIENCE)
    try:
        link.connect(f"/proc/self/fd/{directory}/control")
        link.sendall(json.dumps(request).encode())
        answer = json.loads(link.recv(4096))
    except (OSError, ValueError) as error:
        if getattr(error, "errno", 0) in (errno.ENOENT, errno.ECONNREFUSED):
            return "the panel is just starting or ending; try again"
        return f"the running panel does not answer ({linux.reason(error)})"
    finally:
        link.close()
        os.close(directory)
    return answer["problem"]


def _change(state, facts, action, new):
    """Plugs or pulls while nothing runs: takes effect when the panel starts."""
    if action == "pull" and not facts.get("plugged"):
        return "no drive is plugged in"
    if action == "plug" and facts.get("plugged"):
        return "a drive is plugged in already; pull it first"
    if action == "plug" and not new and not facts.get("present"):
        return "there has been no drive yet; name a folder to plug in"
    facts = {"present": True, "plugged": action == "plug", "mounted": action == "plug"}

    def change():
        folders = {name: os.open(os.path.join(state.path, name), trees.DIR_FLAGS)
                   for name in ("drive", "incoming", "panel")}
        if new:
            tools.take_incoming(folders["drive"], folders["incoming"])
        state_module.write_json(folders["panel"], "drive.json", facts)
        owner = os.fstat(folders["panel"])
        os.chown("drive.json", owner.st_uid, owner.st_gid, dir_fd=folders["panel"])

    state_module.run_as_panel(state.ids, change)
    return ""
