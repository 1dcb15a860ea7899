# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
"""The folder that keeps a panel between two runs.

    kx-device-state   says what the folder is, and whose ids own its files
    lock              held while a panel runs
    control           socket of the running panel, for device/drive
    root/             the panel's own files        usr/, work/   its changes below /usr
    drive/            the files of the USB drive   incoming/     those of the drive to come
    panel/            settings.json, drive.json, reboot
"""

import errno
import fcntl
import json
import os
import stat
import time

from kxdevice import ids as ids_module
from kxdevice import linux, trees

RECORD = "kx-device-state"
FORMAT = 1
PATIENCE = 2  # seconds for a panel that is ending
FOLDERS = ("root", "usr", "drive", "incoming", "panel")  # owned by root inside
OWN_FOLDERS = ("work", "mid", "lower", "merged", "proc")  # for mounts of the builder


class State:
    """An existing state folder."""

    def __init__(self, path, ids):
        self.path = path
        self.ids = ids
        self.lock = -1

    def try_lock(self):
        """Takes the lock; returns False when a panel runs in this folder."""
        self.lock = os.open(os.path.join(self.path, "lock"),
                            os.O_RDWR | os.O_CREAT | os.O_NOFOLLOW | os.O_CLOEXEC, 0o600)
        try:
            fcntl.flock(self.lock, fcntl.LOCK_EX | fcntl.LOCK_NB)
        except OSError as error:
            os.close(self.lock)
            self.lock = -1
            if error.errno not in (errno.EWOULDBLOCK, errno.EACCES):
                raise
            return False
        return True


def open_state(path):
    """Opens a state folder; raises SandboxError when the folder is none or is not ours."""
    _check_owner(path)
    try:
        with open(os.path.join(path, RECORD), encoding="utf-8") as file:
            record = json.load(file)
        ids = ids_module.Ids(record["ids"]["users"], record["ids"]["groups"])
        owner = record["owner"]
        known = record["format"] == FORMAT
    except (OSError, ValueError, KeyError, TypeError):
        raise linux.SandboxError(f"{path} is not the state of a panel; "
                                 "name a new or an empty folder") from None
    if not known:
        raise linux.SandboxError(f"{path} was made by another version; erase it")
    if owner != os.geteuid():
        raise linux.SandboxError(f"{path} was made by user {owner}; use it as that user")
    if owner == 0 and any(outside == 0 for _, outside, _ in [*ids.users, *ids.groups]):
        raise linux.SandboxError(f"{path} would make root inside the machine's root; erase it")
    return State(path, ids)


def _check_owner(path):
    """Refuses a state that somebody else could have prepared or can change."""
    for name in (path, os.path.join(path, RECORD)):
        try:
            facts = os.lstat(name) if name != path else os.stat(name)
        except OSError:
            continue  # told when it is read
        if facts.st_uid != os.geteuid() or facts.st_mode & 0o022 or stat.S_ISLNK(facts.st_mode):
            raise linux.SandboxError(f"{name} belongs to somebody else, or somebody else can "
                                     "change it; use a folder of your own")


def make_state(path, ids):
    """Opens a state folder, or makes a new one of a missing or empty folder."""
    try:
        os.makedirs(path, 0o700, exist_ok=True)
        if os.listdir(path):
            return open_state(path)
        os.chmod(path, 0o700)
        record = {"format": FORMAT, "owner": os.geteuid(), "ids": ids.as_dict()}
        folder = os.open(path, trees.DIR_FLAGS)
        try:
            make_folders(folder, *ids.root())
            trees.write_file(folder, RECORD, (json.dumps(record) + "\n").encode())
        finally:
            os.close(folder)
    except OSError as error:
        raise linux.SandboxError(f"the state {path} cannot be made ({error.strerror}); "
                                 "name a folder that you can write") from None
    return State(path, ids)


def make_folders(folder, uid, gid):
    """Makes the folders of a state in an open, empty folder."""
    for name in FOLDERS:
        os.mkdir(name, 0o755, dir_fd=folder)
        os.chown(name, uid, gid, dir_fd=folder)
    for name in OWN_FOLDERS:
        os.mkdir(name, 0o755, dir_fd=folder)


def erase(path):
    """Removes a state folder, when its panel has ended or does so at once."""
    state = open_state(path)
    deadline = time.monotonic() + PATIENCE
    while not state.try_lock():
        # A panel whose front was killed is about to end.
        if time.monotonic() < deadline:
            time.sleep(0.01)
            continue
        raise linux.SandboxError(f"a panel is running in {path}; end it first")
    run_as_panel(state.ids, lambda: _erase_content(path))
    os.rmdir(path)


def _erase_content(path):
    folder = os.open(path, trees.DIR_FLAGS)
    # The record goes last: what is left by an interrupted removal can be erased again.
    for name in os.listdir(folder):
        if name != RECORD:
            _open_up(folder, name)
            trees.remove(folder, name)
    trees.remove(folder, RECORD)
    os.close(folder)


def _open_up(folder, name):
    """Makes folders of a tree enterable again; their owner may have locked himself out."""
    try:
        if not stat.S_ISDIR(os.lstat(name, dir_fd=folder).st_mode):
            return
        try:
            inner = os.open(name, trees.DIR_FLAGS, dir_fd=folder)
        except PermissionError:
            os.chmod(name, 0o700, dir_fd=folder)
            inner = os.open(name, trees.DIR_FLAGS, dir_fd=folder)
    except OSError:
        return
    try:
        if os.fstat(inner).st_mode & 0o700 != 0o700:
            os.fchmod(inner, 0o700)
        with os.scandir(inner) as entries:
            names = [entry.name for entry in entries if entry.is_dir(follow_symlinks=False)]
        for child in names:
            _open_up(inner, child)
    finally:
        os.close(inner)


def run_as_panel(ids, action):
    """Runs an action in a child that may change files of every id inside the panel."""
    ready, go = os.pipe(), os.pipe()
    child = os.fork()
    if child == 0:
        status = 1
        try:
            os.close(go[1])
            if os.geteuid() != 0:
                linux.unshare(linux.CLONE_NEWUSER)
            os.write(ready[1], b"x")
            if os.read(go[0], 1) == b"x":
                action()
                status = 0
        except (OSError, linux.SandboxError) as error:
            os.write(2, f"device: {linux.reason(error)}\n".encode(errors="surrogateescape"))
        finally:
            os._exit(status)
    os.close(ready[1])
    os.close(go[0])
    try:
        if os.read(ready[0], 1) == b"x":
            if os.geteuid() != 0:
                ids_module.write_map(child, ids)
            os.write(go[1], b"x")
    finally:
        os.close(ready[0])
        os.close(go[1])
        _, status = os.waitpid(child, 0)
    if status != 0:
        raise linux.SandboxError("the files of the panel cannot be changed")


def read_json(directory, name, fallback):
    """Returns what a JSON file in an open directory holds, or the fallback."""
    data = trees.read_file(directory, name)
    try:
        return fallback if data is None else json.loads(data)
    except ValueError:
        return fallback


def write_json(directory, name, value):
    """Writes a JSON file in an open directory."""
    trees.write_file(directory, name, (json.dumps(value, sort_keys=True) + "\n").encode())
