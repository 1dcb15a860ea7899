# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
"""What the stand-ins do, and the USB drive: the supervisor's side of both."""

import errno
import os
import stat

from kxdevice import linux, names, state, trees

USAGE = 2
WPROTECT_OFF, USB_UMOUNT, DRIVE_TOOL, REBOOT = map(os.path.basename, (
    names.WPROTECT_OFF, names.USB_UMOUNT, names.DRIVE_TOOL, names.REBOOT))
*MOUNT_PARENTS, MOUNT_POINT = names.DRIVE_FOLDER.strip("/").split("/")
MOST_SETTINGS = 1 << 20  # bytes of all names and values


class Drive:
    """The USB drive of the panel."""

    def __init__(self, panel, trace):
        self.panel = panel
        self.trace = trace
        self.facts = state.read_json(panel.folder, "drive.json", {})
        self.next_mount = panel.drive_mount  # detached, for the next plug
        self.mount_folder = -1  # the folder that holds the mount point: its name may change
        self.on_new_drive = lambda: None

    def start(self, booting):
        """Brings the drive to where it was, or plugs in the one given for this start."""
        if self.panel.has_new_drive:
            self.facts = {"present": True, "plugged": False, "mounted": False}
            self.plug(False)
        elif self.facts.get("plugged"):
            self._node(True)
            if self.facts.get("mounted") or booting:
                self._mount()
                self._save()

    def plug(self, new):
        """Plugs in the drive that was there, or the one that waits in the incoming folder."""
        if self.facts.get("plugged"):
            return "a drive is plugged in already; pull it first"
        if new:
            take_incoming(self.panel.drive, self.panel.incoming)
            self.facts["present"] = True
        elif not self.facts.get("present"):
            return "there has been no drive yet; name a folder to plug in"
        self._mount()
        self._node(True)
        self.facts["plugged"] = True
        self._save()
        self.on_new_drive()
        self.trace.event(b"drive", b"plug")
        return ""

    def pull(self):
        """Takes the drive away, mounted or not."""
        if not self.facts.get("plugged"):
            return "no drive is plugged in"
        if self.facts.get("mounted"):
            self._unmount(linux.MNT_DETACH)
        self._node(False)
        self.facts["plugged"] = False
        self._save()
        self.trace.event(b"drive", b"pull")
        return ""

    def unmount(self):
        """Unmounts the drive, which stays plugged in."""
        if not self.facts.get("mounted"):
            return f"{names.DRIVE_FOLDER} is not mounted"
        try:
            self._unmount(0)
        except OSError as error:
            if error.errno != errno.EBUSY:
                raise
            return f"{names.DRIVE_FOLDER} is busy"
        self._save()
        self.trace.event(b"drive", b"unmount")
        return ""

    def _mount(self):
        folder = _mount_folder()
        linux.move_mount(self.next_mount, MOUNT_POINT, folder)
        # The attached mount gives the next one, and must be closed: it would keep itself busy.
        spare = linux.open_tree("", linux.OPEN_TREE_CLONE | linux.AT_EMPTY_PATH, self.next_mount)
        os.close(self.next_mount)
        self.next_mount = spare
        self.mount_folder = folder
        self.facts["mounted"] = True

    def _unmount(self, flags):
        os.fchdir(self.mount_folder)
        try:
            linux.umount(MOUNT_POINT, flags | linux.UMOUNT_NOFOLLOW)
        finally:
            os.chdir("/")
        os.close(self.mount_folder)
        self.mount_folder = -1
        self.facts["mounted"] = False

    def _node(self, there):
        parent, name = os.path.split(names.DRIVE_DEVICE)
        folder = os.open(parent, trees.DIR_FLAGS)
        try:
            trees.remove(folder, name)
            if there:
                os.close(os.open(name, os.O_WRONLY | os.O_CREAT | os.O_EXCL | os.O_CLOEXEC,
                                 0o660, dir_fd=folder))
        finally:
            os.close(folder)

    def _save(self):
        state.write_json(self.panel.folder, "drive.json", self.facts)


def _mount_folder():
    """Opens the folder of the mount point, which is made when it is missing."""
    folder = os.open("/", trees.DIR_FLAGS)
    for part in MOUNT_PARENTS:
        above = folder
        try:
            _make_folder(above, part)
            folder = os.open(part, trees.DIR_FLAGS, dir_fd=above)
        finally:
            os.close(above)
    try:
        os.mkdir(MOUNT_POINT, 0o755, dir_fd=folder)
    except FileExistsError:
        if not stat.S_ISDIR(os.lstat(MOUNT_POINT, dir_fd=folder).st_mode):
            os.close(folder)
            raise
    return folder


def _make_folder(directory, name):
    """Makes a folder in an open directory unless something of that name is there."""
    try:
        os.mkdir(name, 0o755, dir_fd=directory)
    except FileExistsError:
        pass


def take_incoming(drive, incoming):
    """Replaces the files of the drive by those that wait."""
    trees.empty(drive)
    for name in os.listdir(incoming):
        os.rename(name, name, src_dir_fd=incoming, dst_dir_fd=drive)
    os.fchmod(drive, os.fstat(incoming).st_mode & 0o7777)


class Tools:
    """Answers the calls of the stand-ins and of the tools that are to fail."""

    def __init__(self, options, panel, drive, trace):
        self.failures = options.fail
        self.stubbed = panel.layers.stubbed
        self.panel = panel
        self.drive = drive
        self.trace = trace
        self.calls = {}
        self.settings = state.read_json(panel.folder, "settings.json", {})
        self.reboot_asked = False
        self.handlers = {WPROTECT_OFF: self._wprotect_off, USB_UMOUNT: self._usb_umount,
                         DRIVE_TOOL: self._drive, names.SETTING_TOOL: self._setting,
                         REBOOT: self._reboot}

    def call(self, words):
        """Handles one call, given as the tool's name and arguments; returns the answer's fields."""
        tool = os.fsdecode(words[0])
        if tool not in self.handlers and tool not in self.stubbed:
            return _exit(126, error=f"{tool}: the panel has no such stand-in")
        count = self.calls[tool] = self.calls.get(tool, 0) + 1
        for name, status, nth in self.failures:
            if name == tool and nth in (0, count):
                self.trace.event(b"tool", *words)
                return _exit(status)
        if tool in self.handlers:
            self.trace.event(b"tool", *words)
            return self.handlers[tool](words[1:])
        return [b"run", os.fsencode(self.stubbed[tool])]

    def _wprotect_off(self, words):
        if words:
            return _exit(USAGE, error=f"usage: {WPROTECT_OFF}")
        return _exit(0)

    def _usb_umount(self, words):
        if words:
            return _exit(USAGE, error=f"usage: {USB_UMOUNT}")
        return _done(USB_UMOUNT, self.drive.unmount())

    def _drive(self, words):
        if words == [b"plug"]:
            return _done(DRIVE_TOOL, self.drive.plug(False))
        if words == [b"pull"]:
            return _done(DRIVE_TOOL, self.drive.pull())
        return _exit(USAGE, error=f"usage: {DRIVE_TOOL} plug|pull")

    def _reboot(self, words):
        # Options such as -f are those of the real tool; all of them ask for a reboot.
        del words
        self.reboot_asked = True
        trees.write_file(self.panel.folder, "reboot", b"asked\n")
        return _exit(0)

    def _setting(self, words):
        tool = names.SETTING_TOOL
        usage = f"usage: {tool} set NAME=VALUE... | list"
        if words == [b"list"]:
            lines = [f"{name}={value}\n" for name, value in sorted(self.settings.items())]
            return _exit(0, os.fsencode("".join(lines)))
        pairs = [os.fsdecode(word).partition("=") for word in words[1:]]
        if words[:1] != [b"set"] or not pairs:
            return _exit(USAGE, error=usage)
        for name, equals, value in pairs:
            if not name or not equals:
                return _exit(USAGE, error=f"{tool}: '{name}{equals}{value}' is not "
                                          f"NAME=VALUE; {usage}")
        wanted = {**self.settings, **{name: value for name, _, value in pairs}}
        if sum(len(name) + len(value) for name, value in wanted.items()) > MOST_SETTINGS:
            return _exit(1, error=f"{tool}: no room for more settings")
        self.settings.update(wanted)
        state.write_json(self.panel.folder, "settings.json", self.settings)
        return _exit(0)


def _exit(status, output=b"", error=""):
    line = os.fsencode(error + "\n") if error else b""
    return [b"exit", str(status).encode(), output, line]


def _done(tool, problem):
    return _exit(1, error=f"{tool}: {problem}") if problem else _exit(0)
