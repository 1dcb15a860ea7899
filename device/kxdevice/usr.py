# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
"""The panel's /usr: the machine's, below the stand-ins, below the panel's own changes."""

import errno
import os
import stat

from kxdevice import linux, trees
from kxdevice.linux import SandboxError

STAND_INS = {  # tool: its folder below /usr
    "wprotect_off": "bin/kxsystem",
    "usb_umount": "bin/kxsystem",
    "drive": "bin/kxsystem",
    "kx-setting-cui": "bin",
    "reboot": "sbin",
}
TOOL_FOLDERS = ("local/sbin", "local/bin", "sbin", "bin", "bin/kxsystem")
REAL_TOOLS = "lib/kx-device"  # below /usr: the real ones of tools that may fail


class Layers:
    """The layers of one panel, in its state folder."""

    def __init__(self, job, owner):
        self.job = job
        self.options = job.options
        self.owner = owner
        self.source = ""
        self.stubbed = {}  # tool that may fail: path of the real one inside
        self.lower_fd = self.merged = -1

    def build(self, tree, source, mapped):
        """Builds the layers in the working directory and mounts them at "merged" there.

        tree is the detached mount of the machine's /usr, or -1 for an ordinary user; mapped says
        that its files already belong to ids inside.
        """
        linux.mount("tmpfs", "mid", "tmpfs", linux.MS_NOSUID | linux.MS_NODEV,
                    "size=64m,mode=755")
        self.source = source
        if tree >= 0:
            linux.move_mount(tree, "lower")
            lower = "lower"
        else:
            lower = source
            if ":" in lower or "," in lower or "\\" in lower:
                raise SandboxError(f"the name {lower} of /usr holds : , or a backslash")
        self.lower_fd = os.open(lower, trees.DIR_FLAGS & ~os.O_NOFOLLOW)
        os.chown("mid", *self.owner)
        if not mapped:
            self._own_folders(lower, "mid", 2)
        self._install_tools(lower)
        data = f"lowerdir=mid:{lower},upperdir=usr,workdir=work"
        if not self.job.first_namespace:
            data += ",userxattr"
        try:
            linux.mount("overlay", "merged", "overlay", linux.MS_NODEV, data)
        except OSError as error:
            raise SandboxError(f"/usr cannot be laid over ({error.strerror}); the kernel needs "
                               "overlay mounts, and the state a plain local file system") from None
        self.merged = linux.open_tree("merged")

    def _own_folders(self, lower, middle, depth):
        """Lays folders owned by root inside over those of the host, so that files can be added."""
        with os.scandir(lower) as entries:
            names = [entry.name for entry in entries if entry.is_dir(follow_symlinks=False)]
        for name in names:
            below, above = f"{lower}/{name}", f"{middle}/{name}"
            try:
                mode = stat.S_IMODE(os.lstat(below).st_mode)
                os.mkdir(above, 0o700)
                os.chown(above, *self.owner)
                os.chmod(above, mode)
                if depth > 1 or "-linux-" in name or name == "local":
                    self._own_folders(below, above, depth - 1 if depth > 1 else 1)
            except OSError as error:
                if error.errno not in (errno.EACCES, errno.ENOENT):
                    raise

    def _middle(self, folder):
        """Makes a folder of the middle layer and those above it, with the host's modes."""
        path = "mid"
        for part in folder.split("/"):
            path += "/" + part
            try:
                os.mkdir(path, 0o755)
                os.chown(path, *self.owner)
            except FileExistsError:
                pass
        return path

    def _place(self, folder, name, data):
        path = f"{self._middle(folder)}/{name}"
        with open(path, "wb") as file:
            file.write(data)
        os.chown(path, *self.owner)
        os.chmod(path, 0o755)

    def _hide(self, folder, name):
        path = f"{self._middle(folder)}/{name}"
        if os.path.lexists(path):
            os.unlink(path)
        os.mknod(path, stat.S_IFCHR | 0o000, os.makedev(0, 0))

    def _install_tools(self, lower):
        interpreter = os.path.realpath("/usr/bin/python3")
        client = b"#!" + os.fsencode(interpreter) + b" -IS\n" + \
            self.job.stand_in.partition(b"\n")[2]
        failing = sorted({tool for tool, _, _ in self.options.fail})
        for tool in failing + self.options.missing:
            if tool == os.path.basename(interpreter):
                raise SandboxError(f"{tool} is needed by the stand-ins; choose another tool")
        for name, folder in STAND_INS.items():
            self._place(folder, name, client)
        for tool in failing + self.options.missing:
            places = _places(lower, tool)
            kept = _places("usr", tool)
            own = STAND_INS.get(tool)
            if kept:
                raise SandboxError(f"{tool} was installed or changed by an earlier run on this "
                                   "panel; only its first tools can fail or be missing")
            if not places and not own:
                raise SandboxError(f"the panel has no tool {tool} that could fail or be missing")
            if tool in self.options.missing:
                for folder in set(places + ([own] if own else [])):
                    self._hide(folder, tool)
            elif not own:
                self._stub(lower, places, tool, client)

    def _stub(self, lower, places, tool, client):
        first = places[0]
        real = os.path.realpath(f"{lower}/{first}/{tool}")
        base = os.path.realpath(lower)
        # Absolute links (alternatives) are read with the host's /etc, as the panel has a copy.
        if real.startswith(base + "/"):
            real = "/usr" + real[len(base):]
        elif real.startswith(self.source + "/"):
            real = "/usr" + real[len(self.source):]
        inner = real[len("/usr/"):]
        if any(inner == f"{folder}/{tool}" for folder in places):
            inner = self._keep_real(f"{lower}/{inner}", tool)
        self.stubbed[tool] = "/usr/" + inner
        for folder in places:
            self._place(folder, tool, client)

    def _keep_real(self, path, tool):
        target = f"{self._middle(REAL_TOOLS)}/{tool}"
        source = os.open(path, os.O_RDONLY | os.O_CLOEXEC)
        folder = os.open(os.path.dirname(target), trees.DIR_FLAGS)
        trees.copy_file(source, folder, tool, *self.owner)
        os.close(source)
        os.close(folder)
        return f"{REAL_TOOLS}/{tool}"


def _places(base, tool):
    """Returns the folders of tools, below a folder, that have something of that name."""
    return [folder for folder in TOOL_FOLDERS if os.path.lexists(f"{base}/{folder}/{tool}")]
