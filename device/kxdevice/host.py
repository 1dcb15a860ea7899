# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
"""What a panel shows or copies of the machine, taken hold of before the machine is out of reach."""

import errno
import os
from typing import NamedTuple

from kxdevice import etc, linux, trees, usr
from kxdevice.linux import SandboxError

NODES = ("null", "zero", "full", "random", "urandom")


class Standing(NamedTuple):
    """What the process that builds the panel is on the machine."""

    user_namespace: int = -1  # descriptor of the panel's, or -1 for one that is in it already
    first_namespace: bool = False  # real root of the machine

    def is_outside(self):
        """Tells whether the panel's user namespace is still to be entered."""
        return self.user_namespace >= 0


class Share(NamedTuple):
    """Something of the machine that the panel shows."""

    tree: int  # detached mount
    is_dir: bool
    path: str  # inside


class Taken(NamedTuple):
    """What was taken hold of. Whoever copies a source closes it."""

    usr: usr.Machine
    links: dict  # name in the root: target
    nodes: tuple  # (name, detached mount)
    etc: tuple  # (source, name in /etc)
    shares: tuple
    puts: tuple  # (source, path inside)
    usb: object  # source, or None


def take(options, standing):
    """Takes hold of everything; the caller is in a mount namespace of its own. Returns Taken."""
    shares = tuple(_share(host, inside, standing) for host, inside in options.share)
    puts = tuple((_source(host), inside) for host, inside in options.put)
    usb = _source(options.usb) if options.usb else None
    nodes = tuple((name, linux.open_tree(f"/dev/{name}")) for name in NODES)
    from_etc = tuple((trees.Source(f"/etc/{name}"), name) for name in etc.FROM_HOST
                     if os.path.exists(f"/etc/{name}"))
    return Taken(_usr(standing), _links(), nodes, from_etc, shares, puts, usb)


def _source(host):
    try:
        return trees.Source(host)
    except OSError as error:
        raise SandboxError(f"{host} cannot be read ({error.strerror})") from None


def _share(host, inside, standing):
    flags = linux.MOUNT_ATTR_RDONLY | linux.MOUNT_ATTR_NOSUID | linux.MOUNT_ATTR_NODEV
    is_dir = os.path.isdir(host)
    try:
        tree = linux.open_tree(host, linux.OPEN_TREE_CLONE | (linux.AT_RECURSIVE if is_dir else 0))
        linux.mount_setattr(tree, flags, is_dir)
    except OSError as error:
        raise SandboxError(f"{host} cannot be shared ({error.strerror})") from None
    _give_ids(tree, standing, is_dir)
    return Share(tree, is_dir, inside)


def _give_ids(tree, standing, recursive=False):
    """Shows files of the host's root as files of root inside, where the kernel can do that.

    Returns whether it does; elsewhere root's files show as nobody's, and only public ones can be
    read.
    """
    if not standing.is_outside():
        return False
    try:
        linux.mount_setattr(tree, 0, recursive, standing.user_namespace)
    except OSError as error:
        if error.errno not in (errno.EINVAL, errno.EPERM, errno.EOPNOTSUPP):
            raise
        return False
    return True


def _links():
    """Returns the links that lead from the root into /usr."""
    links = {}
    for name in sorted(os.listdir("/")):
        if name in ("bin", "sbin") or name.startswith("lib"):
            if not os.path.islink(f"/{name}"):
                raise SandboxError(f"/{name} of this machine is no link into /usr; "
                                   "use a system with a merged /usr")
            links[name] = os.readlink(f"/{name}")
    return links


def _usr(standing):
    path = os.path.realpath("/usr")
    if not standing.is_outside():
        return usr.Machine(path, -1, False)
    tree = linux.open_tree(path)
    has_ids = _give_ids(tree, standing)
    linux.mount_setattr(tree, linux.MOUNT_ATTR_RDONLY)
    return usr.Machine(path, tree, has_ids)
