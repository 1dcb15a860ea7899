# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
"""The panel's /usr: the machine's, below the stand-ins, below the panel's own changes.

The layers are folders of the working directory: "lower" (unless the machine's folder is used in
place), "mid", "usr".
"""

import errno
import os
import stat
from typing import NamedTuple

from kxdevice import linux, names, trees
from kxdevice.linux import SandboxError

STAND_INS = {  # tool: its folder below /usr
    **{os.path.basename(path): os.path.dirname(path)[len("/usr/"):]
       for path in (names.WPROTECT_OFF, names.USB_UMOUNT, names.DRIVE_TOOL)},
    names.SETTING_TOOL: "bin",
    os.path.basename(names.REBOOT): "sbin",
}
TOOL_FOLDERS = ("local/sbin", "local/bin", "sbin", "bin", names.TOOL_FOLDER[len("/usr/"):])
REAL_TOOLS = "lib/kx-device"  # below /usr: the real ones of tools that may fail


class Machine(NamedTuple):
    """The machine's /usr."""

    path: str
    tree: int  # detached mount, or -1 for an ordinary user, who cannot have one
    has_ids: bool  # its files already belong to ids inside


class Tools(NamedTuple):
    """How the panel's tools differ from the machine's."""

    stand_in: bytes  # the program that stands for all of the panel's own, and for the failing
    failing: frozenset
    missing: tuple


class Layers(NamedTuple):
    """The panel's /usr, as descriptors."""

    lower: int
    middle: int
    upper: int
    merged: int  # detached mount of all layers
    stubbed: dict  # tool that may fail: path of the real one inside


def lay(machine, tools, owner, as_machine_root):
    """Builds the layers in the working directory and mounts them over each other; returns Layers.

    owner is the user and group of root, seen from here; as_machine_root says that the caller is
    real root of the machine, which alone may keep the notes of overlays as the system does.
    """
    linux.mount("tmpfs", "mid", "tmpfs", linux.MS_NOSUID | linux.MS_NODEV,
                "size=64m,mode=755")
    lower = _lower(machine)
    lower_fd = os.open(lower, trees.DIR_FLAGS & ~os.O_NOFOLLOW)
    os.chown("mid", *owner)
    if not machine.has_ids:
        _own_folders(lower, "mid", owner, 2)
    stubbed = _install_tools(tools, lower, machine.path, _Middle(owner))
    data = f"lowerdir=mid:{lower},upperdir=usr,workdir=work"
    if not as_machine_root:
        data += ",userxattr"
    try:
        linux.mount("overlay", "merged", "overlay", linux.MS_NODEV, data)
    except OSError as error:
        raise SandboxError(f"the layers of /usr cannot be mounted ({error.strerror}); the kernel "
                           "needs overlay mounts, and --state a plain local file system") from None
    return Layers(lower_fd, os.open("mid", trees.DIR_FLAGS), os.open("usr", trees.DIR_FLAGS),
                  linux.open_tree("merged"), stubbed)


def _lower(machine):
    """Returns the path of the lowest layer."""
    if machine.tree >= 0:
        linux.move_mount(machine.tree, "lower")
        return "lower"
    if any(character in machine.path for character in ":,\\"):
        raise SandboxError(f"the name {machine.path} of /usr holds : , or a backslash")
    return machine.path


def _own_folders(lower, middle, owner, depth):
    """Lays folders owned by root inside over those of the host, so that files can be added."""
    with os.scandir(lower) as entries:
        folders = [entry.name for entry in entries if entry.is_dir(follow_symlinks=False)]
    for name in folders:
        below, above = f"{lower}/{name}", f"{middle}/{name}"
        try:
            mode = stat.S_IMODE(os.lstat(below).st_mode)
            os.mkdir(above, 0o700)
            os.chown(above, *owner)
            os.chmod(above, mode)
            if depth > 1 or "-linux-" in name or name == "local":
                _own_folders(below, above, owner, depth - 1 if depth > 1 else 1)
        except OSError as error:
            if error.errno not in (errno.EACCES, errno.ENOENT):
                raise


class _Middle:
    """Changes the layer of the stand-ins; paths are relative to /usr."""

    def __init__(self, owner):
        self._owner = owner

    def _folder(self, folder):
        """Makes a folder of the layer and those above it, with the host's modes."""
        path = "mid"
        for part in folder.split("/"):
            path += "/" + part
            try:
                os.mkdir(path, 0o755)
                os.chown(path, *self._owner)
            except FileExistsError:
                pass
        return path

    def place(self, folder, tool, program):
        """Writes a program."""
        path = f"{self._folder(folder)}/{tool}"
        with open(path, "wb") as file:
            file.write(program)
        os.chown(path, *self._owner)
        os.chmod(path, 0o755)

    def hide(self, folder, tool):
        """Lets a tool look as if it were not there."""
        path = f"{self._folder(folder)}/{tool}"
        if os.path.lexists(path):
            os.unlink(path)
        os.mknod(path, stat.S_IFCHR | 0o000, os.makedev(0, 0))

    def keep_real(self, path, tool):
        """Copies a tool out of the way; returns the copy's path."""
        source = os.open(path, os.O_RDONLY | os.O_CLOEXEC)
        folder = os.open(self._folder(REAL_TOOLS), trees.DIR_FLAGS)
        trees.copy_file(source, folder, tool, *self._owner)
        os.close(source)
        os.close(folder)
        return f"{REAL_TOOLS}/{tool}"


def _install_tools(tools, lower, machine_path, middle):
    """Installs the stand-ins; returns the tools that may fail, with the paths of the real ones."""
    interpreter = os.path.realpath("/usr/bin/python3")
    client = b"#!" + os.fsencode(interpreter) + b" -IS\n" + tools.stand_in.partition(b"\n")[2]
    changed = (*sorted(tools.failing), *tools.missing)
    if os.path.basename(interpreter) in changed:
        raise SandboxError(f"{os.path.basename(interpreter)} is needed by the stand-ins; "
                           "choose another tool")
    for name, folder in STAND_INS.items():
        middle.place(folder, name, client)
    stubbed = {}
    for tool in changed:
        if _places("usr", tool):
            raise SandboxError(f"{tool} was installed or changed by an earlier run on this "
                               "panel; only tools that no run has touched can fail or be missing")
        places = _places(lower, tool)
        own = STAND_INS.get(tool)
        if not places and not own:
            raise SandboxError(f"the panel has no tool {tool} that could fail or be missing")
        if tool in tools.missing:
            for folder in {*places, *([own] if own else [])}:
                middle.hide(folder, tool)
        elif not own:
            real = _real(f"{lower}/{places[0]}/{tool}", lower, machine_path)
            if any(real == f"{folder}/{tool}" for folder in places):
                real = middle.keep_real(f"{lower}/{real}", tool)
            stubbed[tool] = "/usr/" + real
            for folder in places:
                middle.place(folder, tool, client)
    return stubbed


def _places(base, tool):
    """Returns the folders of tools, below a folder, that have something of that name."""
    return [folder for folder in TOOL_FOLDERS if os.path.lexists(f"{base}/{folder}/{tool}")]


def _real(path, lower, machine_path):
    """Returns the file that a path of the lowest layer leads to, relative to /usr."""
    real = os.path.realpath(path)
    # Absolute links (alternatives) are read with the host's /etc, as the panel has a copy.
    for base in (os.path.realpath(lower), machine_path):
        if real.startswith(base + "/"):
            return real[len(base) + 1:]
    return real[len("/usr/"):]
