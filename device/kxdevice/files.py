# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
"""Makes files and folders on the panel's own root, owned by users inside."""

import os
import stat

from kxdevice import linux, trees
from kxdevice.linux import SandboxError


class Maker:
    """Makes them for the given ids.Owners. Works where "/" is the panel's root already: links that
    an earlier run left on a kept panel lead nowhere but into it."""

    def __init__(self, owners):
        self._owners = owners

    def folder(self, path, mode, uid, gid):
        """Makes a folder that is not there yet."""
        os.mkdir(path)
        self._owners.give(path, uid, gid)
        os.chmod(path, mode)

    def folders(self, path):
        """Makes a folder, and those above it, unless there is one."""
        made = ""
        for part in path.strip("/").split("/"):
            made += "/" + part
            try:
                os.mkdir(made)
                self._owners.give(made, 0, 0)
            except FileExistsError:
                if not os.path.isdir(made):
                    raise SandboxError(f"{made} of the panel is not a folder") from None

    def parents(self, path):
        """Makes the folders above a path, unless they are there."""
        if os.path.dirname(path) != "/":
            self.folders(os.path.dirname(path))

    def link(self, path, target):
        """Makes a symbolic link."""
        os.symlink(target, path)
        self._owners.give(path, 0, 0)

    def file(self, path, data, mode, gid):
        """Writes a file of root and a group, in place of whatever has its name."""
        folder = os.open(os.path.dirname(path), trees.DIR_FLAGS)
        try:
            name = os.path.basename(path)
            if _is_dir(folder, name):
                trees.remove(folder, name)
            trees.write_file(folder, name, data)
        finally:
            os.close(folder)
        self._owners.give(path, 0, gid)
        os.chmod(path, mode)

    def place(self, path):
        """Makes an empty file for something to be mounted on."""
        os.close(os.open(path, os.O_WRONLY | os.O_CREAT | os.O_EXCL | os.O_CLOEXEC, 0o644))
        self._owners.give(path, 0, 0)

    def copy(self, source, path):
        """Copies a trees.Source to a path, into a folder where there is one already."""
        self.parents(path)
        if source.is_dir() and os.path.isdir(path):
            path = os.path.realpath(path)
        folder = os.open(os.path.dirname(path), os.O_RDONLY | os.O_DIRECTORY | os.O_CLOEXEC)
        name = os.path.basename(path)
        try:
            if source.is_dir():
                target = trees.open_or_make(folder, name)
                trees.copy_dir(source.fd, target, *self._owners.root, source.path)
                os.close(target)
            else:
                trees.copy_file(source.fd, folder, name, *self._owners.root)
        finally:
            os.close(folder)


def make_plain_folders(path):
    """Makes a folder with those above it, never through a link of /proc."""
    try:
        made = ""
        for part in path.strip("/").split("/"):
            parent = linux.open_inside(made or "/")
            try:
                os.mkdir(part, dir_fd=parent)
            except FileExistsError:
                pass
            finally:
                os.close(parent)
            made += "/" + part
        os.close(linux.open_inside(path))
    except OSError as error:
        raise SandboxError(f"{path} cannot be a folder of the panel "
                           f"({error.strerror})") from None


def _is_dir(directory, name):
    try:
        return stat.S_ISDIR(os.lstat(name, dir_fd=directory).st_mode)
    except FileNotFoundError:
        return False
