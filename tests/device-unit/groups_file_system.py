# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
"""A folder that stands for /sys/fs/cgroup, and notes what is done to it.

It behaves like the kernel's in what kxdevice.cgroups relies on: a new group has its files at once,
those of memory and processes only where the group above hands them down; no other file can be made;
a group is removed together with its files, but not while it has processes.
"""

import errno
import io
import os
import tempfile
from unittest import mock

from kxdevice import cgroups

_MKDIR, _RMDIR, _EXIT = os.mkdir, os.rmdir, os._exit  # pylint: disable=protected-access
_V1 = {"memory": ("memory.limit_in_bytes", "memory.swappiness", "memory.memsw.limit_in_bytes",
                  "memory.oom_control"),
       "pids": ("pids.max",)}
_V2 = ("memory.max", "memory.swap.max", "memory.events", "pids.max")


class GroupsFileSystem:
    """Used in a with statement; paths are relative to it."""

    def __init__(self, own, folders, hands_down=()):
        """own is the text of /proc/self/cgroup; folders are the groups that exist; hands_down are
        those of version 2 whose subgroups have files of memory and processes."""
        self._own = own
        self._folders = folders
        self._hands_down = hands_down
        self.errors = {}  # "mkdir PATH", "rmdir PATH", "write PATH": error numbers, used one by one
        self.lacking = ()  # names of files that this kernel does not have
        self.sleeps = []
        self._stack = []

    def __enter__(self):
        folder = tempfile.TemporaryDirectory()  # pylint: disable=consider-using-with
        self.root = os.path.realpath(folder.name)
        self._journal = f"{self.root}/journal"  # a file: a child's entries must get here, too
        with open(self._journal, "x", encoding="ascii"):
            pass
        for group in self._folders:
            os.makedirs(f"{self.root}/{group}", exist_ok=True)
            self._make_file(f"{self.root}/{group}/cgroup.procs")
        patches = (mock.patch.object(cgroups, "ROOT", self.root),
                   mock.patch.object(cgroups, "open", self._open, create=True),
                   mock.patch.object(cgroups.os, "mkdir", self._mkdir),
                   mock.patch.object(cgroups.os, "rmdir", self._rmdir),
                   mock.patch.object(cgroups.os, "_exit", self._exit),
                   mock.patch.object(cgroups.time, "sleep", self.sleeps.append))
        self._stack = [folder, *patches]
        self._process = os.getpid()
        for patch in patches:
            patch.start()
        return self

    def __exit__(self, *_):
        for patch in self._stack[1:]:
            patch.stop()
        self._stack[0].cleanup()

    def journal(self):
        """Returns what was done so far: mkdir, rmdir, and what was written by whom."""
        with open(self._journal, encoding="ascii") as file:
            return file.read().splitlines()

    def forget(self):
        """Empties the journal."""
        os.truncate(self._journal, 0)

    def text(self, path):
        """Returns what a file holds."""
        with open(f"{self.root}/{path}", encoding="ascii") as file:
            return file.read()

    def put(self, path, text):
        """Lets a file hold a text, as the kernel would."""
        with open(f"{self.root}/{path}", "w", encoding="ascii") as file:
            file.write(text)

    def groups(self):
        """Returns all groups that there are."""
        return sorted(os.path.relpath(path, self.root) for path, _, _ in os.walk(self.root)
                      if path != self.root and os.path.exists(f"{path}/cgroup.procs"))

    def _note(self, text):
        with open(self._journal, "a", encoding="ascii") as file:
            file.write(text + "\n")

    def _fail(self, action, path):
        numbers = self.errors.get(f"{action} {path}")
        if numbers:
            raise OSError(numbers.pop(0), action)

    @staticmethod
    def _make_file(path):
        with open(path, "x", encoding="ascii"):
            pass

    def _relative(self, path):
        return os.path.relpath(path, self.root)

    def _mkdir(self, path):
        where = self._relative(path)
        self._note(f"mkdir {where}")
        self._fail("mkdir", where)
        _MKDIR(path)
        above = os.path.dirname(where)
        kind = where.split("/")[0]
        names = _V1.get(kind, _V2 if above in self._hands_down else ())
        for name in ("cgroup.procs", *names):
            if name not in self.lacking:
                self._make_file(f"{path}/{name}")

    def _rmdir(self, path):
        where = self._relative(path)
        self._note(f"rmdir {where}")
        self._fail("rmdir", where)
        if not os.path.isdir(path):
            raise FileNotFoundError(errno.ENOENT, "rmdir")
        for name in os.listdir(path):
            if os.path.isdir(f"{path}/{name}"):
                raise OSError(errno.EBUSY, "rmdir")
            os.unlink(f"{path}/{name}")
        _RMDIR(path)

    def _exit(self, status):
        if os.getpid() == self._process:
            raise AssertionError("not the child, but the caller ends")
        _EXIT(status)

    def _open(self, path, mode="r", **options):
        if path == "/proc/self/cgroup":
            if self._own is None:
                raise FileNotFoundError(errno.ENOENT, path)
            return io.StringIO(self._own)
        if mode == "r":
            return open(path, mode, **options)
        if not os.path.exists(path):
            raise PermissionError(errno.EACCES, path)
        return _Written(self, path)

    def wrote(self, path, text):
        """Takes what was written when a file is closed, or fails then."""
        where = self._relative(path)
        who = "" if os.getpid() == self._process else "child: "
        self._note(f"{who}{where} = {text}")
        self._fail("write", where)
        self.put(where, text)


class _Written:
    """An open file, whose errors show when it is closed."""

    def __init__(self, owner, path):
        self._owner, self._path, self._text = owner, path, ""

    def __enter__(self):
        return self

    def write(self, text):
        """Takes some text."""
        self._text += text

    def __exit__(self, *_):
        self._owner.wrote(self._path, self._text)
