# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
"""File trees by directory descriptor: no symbolic link inside a tree is ever followed."""

import errno
import os
import stat

from kxdevice.linux import SandboxError

DIR_FLAGS = os.O_RDONLY | os.O_DIRECTORY | os.O_NOFOLLOW | os.O_CLOEXEC
CHUNK = 1 << 20


def empty(directory):
    """Removes everything in an open directory; mount points in it stay."""
    with os.scandir(directory) as entries:
        names = [(entry.name, entry.is_dir(follow_symlinks=False)) for entry in entries]
    for name, is_dir in names:
        _remove(directory, name, is_dir)


def _remove(directory, name, is_dir):
    try:
        if is_dir:
            inner = os.open(name, DIR_FLAGS, dir_fd=directory)
            try:
                empty(inner)
            finally:
                os.close(inner)
            os.rmdir(name, dir_fd=directory)
        else:
            os.unlink(name, dir_fd=directory)
    except OSError as error:
        # A mount point, or one further down.
        if error.errno not in (errno.EBUSY, errno.ENOTEMPTY):
            raise


def remove(directory, name):
    """Removes a file, a link or a whole folder; a missing one is fine."""
    try:
        mode = os.lstat(name, dir_fd=directory).st_mode
    except FileNotFoundError:
        return
    _remove(directory, name, stat.S_ISDIR(mode))


class Source:
    """A file or folder opened early, so that it can be copied after its path is out of reach."""

    def __init__(self, path):
        self.path = path
        self.fd = os.open(path, os.O_RDONLY | os.O_NONBLOCK | os.O_CLOEXEC)
        self.mode = os.fstat(self.fd).st_mode
        if not (stat.S_ISDIR(self.mode) or stat.S_ISREG(self.mode)):
            os.close(self.fd)
            raise SandboxError(f"{path} is neither a file nor a folder")

    def is_dir(self):
        """Tells whether the source is a folder."""
        return stat.S_ISDIR(self.mode)


def _make(directory, name, action):
    """Does an action that makes something of a name, in place of whatever has it; returns its
    result. Looking first would cost as much as making, and nearly always nothing is there."""
    try:
        return action()
    except FileExistsError:
        remove(directory, name)
        return action()


def copy_file(source, directory, name, uid, gid):
    """Copies an open file to a name in an open directory, replacing what is there."""
    facts = os.fstat(source)
    target = _make(directory, name, lambda: os.open(
        name, os.O_WRONLY | os.O_CREAT | os.O_EXCL | os.O_NOFOLLOW | os.O_CLOEXEC, 0o600,
        dir_fd=directory))
    try:
        while True:
            data = os.read(source, CHUNK)
            if not data:
                break
            view = memoryview(data)
            while view:
                view = view[os.write(target, view):]
        os.fchown(target, uid, gid)
        os.fchmod(target, stat.S_IMODE(facts.st_mode))
        os.utime(target, ns=(facts.st_atime_ns, facts.st_mtime_ns))
    finally:
        os.close(target)


def copy_dir(source, target, uid, gid, path):
    """Copies the content and the mode of one open directory into another, all with one owner."""
    facts = os.fstat(source)
    os.fchown(target, uid, gid)
    copy_content(source, target, uid, gid, path)
    os.fchmod(target, stat.S_IMODE(facts.st_mode))
    os.utime(target, ns=(facts.st_atime_ns, facts.st_mtime_ns))


def copy_content(source, target, uid, gid, path):
    """Copies the content of one open directory into another, whose own mode and owner stay.

    path is the name of the source in messages.
    """
    with os.scandir(source) as entries:
        found = sorted(entries, key=lambda entry: entry.name)
    for entry in found:
        name, where = entry.name, f"{path}/{entry.name}"
        if entry.is_symlink():
            _copy_link(source, target, name)
            os.chown(name, uid, gid, dir_fd=target, follow_symlinks=False)
        elif entry.is_dir(follow_symlinks=False):
            inner = os.open(name, DIR_FLAGS, dir_fd=source)
            try:
                made = open_or_make(target, name)
                try:
                    copy_dir(inner, made, uid, gid, where)
                finally:
                    os.close(made)
            finally:
                os.close(inner)
        elif entry.is_file(follow_symlinks=False):
            inner = os.open(name, os.O_RDONLY | os.O_NOFOLLOW | os.O_CLOEXEC, dir_fd=source)
            try:
                copy_file(inner, target, name, uid, gid)
            finally:
                os.close(inner)
        else:
            raise SandboxError(f"{where} is neither a file, a folder nor a link")


def _copy_link(source, target, name):
    link = os.readlink(name, dir_fd=source)
    _make(target, name, lambda: os.symlink(link, name, dir_fd=target))


def open_or_make(directory, name):
    """Opens a folder in an open directory; anything else of that name is replaced by a new one."""
    try:
        return os.open(name, DIR_FLAGS, dir_fd=directory)
    except FileNotFoundError:
        pass
    except NotADirectoryError:
        os.unlink(name, dir_fd=directory)
    except OSError as error:
        if error.errno != errno.ELOOP:  # what a symbolic link gives
            raise
        os.unlink(name, dir_fd=directory)
    os.mkdir(name, 0o755, dir_fd=directory)
    return os.open(name, DIR_FLAGS, dir_fd=directory)


def write_all(descriptor, data):
    """Writes every byte."""
    view = memoryview(data)
    while view:
        view = view[os.write(descriptor, view):]


def write_file(directory, name, data, mode=0o644):
    """Writes a whole file in an open directory, in one step as seen by readers."""
    draft = name + ".new"
    remove(directory, draft)
    descriptor = os.open(draft, os.O_WRONLY | os.O_CREAT | os.O_EXCL | os.O_NOFOLLOW
                         | os.O_CLOEXEC, mode, dir_fd=directory)
    try:
        write_all(descriptor, data)
    finally:
        os.close(descriptor)
    os.rename(draft, name, src_dir_fd=directory, dst_dir_fd=directory)


def read_file(directory, name, limit=CHUNK * 16):
    """Returns the content of a plain file in an open directory, or None when there is none."""
    try:
        descriptor = os.open(name, os.O_RDONLY | os.O_NOFOLLOW | os.O_NONBLOCK | os.O_CLOEXEC,
                             dir_fd=directory)
    except OSError:
        return None
    try:
        if not stat.S_ISREG(os.fstat(descriptor).st_mode):
            return None
        data = b""
        while len(data) < limit:
            more = os.read(descriptor, CHUNK)
            if not more:
                break
            data += more
        return data
    finally:
        os.close(descriptor)
