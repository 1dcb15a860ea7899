# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
"""Builds the panel's root: runs as process 1 of the panel, before anything of the panel runs.

The order keeps files that an earlier run may have left on the panel harmless. Until the root is
changed, only folders whose names nothing inside can change are used; after it, links lead nowhere
but into the panel; /proc comes last, as its links could lead out.
"""

import errno
import os
from typing import NamedTuple

from kxdevice import etc, files, host, ids as ids_module, linux, names, state, trees, usr
from kxdevice.linux import SandboxError

CARRIERS = ("/tmp", "/var/tmp", "/mnt", "/run")


class Panel(NamedTuple):
    """A panel that was built: descriptors that lead where no path of the panel may be trusted."""

    root: int
    layers: usr.Layers
    drive: int  # the drive's files
    incoming: int  # those of the drive to come
    folder: int  # settings and notes
    drive_mount: int  # detached mount of the drive, for its first plug
    has_new_drive: bool
    kept: tuple  # descriptors that only have to stay open


def build(options, ids, standing, stand_in):
    """Builds the panel that the options ask for and makes it the root of the caller.

    ids are the panel's; standing is what the caller is on the machine; stand_in is the program that
    stands for the panel's own tools. Returns the Panel.
    """
    linux.unshare(linux.CLONE_NEWNS)
    linux.mount(None, "/", None, linux.MS_REC | linux.MS_PRIVATE)
    os.umask(0o022)
    owners = ids_module.Owners(ids, standing.is_outside())
    taken = host.take(options, standing)
    _enter_state(options, owners.root)
    tools = usr.Tools(stand_in, frozenset(tool for tool, _, _ in options.fail), options.missing)
    layers = usr.lay(taken.usr, tools, owners.root, standing.first_namespace)
    linux.mount("proc", "proc", "proc", linux.MS_NOSUID | linux.MS_NODEV | linux.MS_NOEXEC)
    proc = linux.open_tree("proc")
    root, drive, incoming, folder = (os.open(name, trees.DIR_FLAGS)
                                     for name in ("root", "drive", "incoming", "panel"))
    drive_mount = linux.open_tree("drive")
    linux.mount_setattr(drive_mount, _drive_attributes(options))
    if taken.usb:
        trees.empty(drive)
        trees.copy_dir(taken.usb.fd, drive, *owners.root, taken.usb.path)
        os.close(taken.usb.fd)
    linux.mount("root", "root", None, linux.MS_BIND)
    _change_root()
    maker = files.Maker(owners)
    _fill(maker, taken, folder, owners.root)
    if options.boot:
        _forget_by_reboot(maker, folder)
    linux.move_mount(layers.merged, "/usr")
    _make_devices(maker, taken.nodes, owners.root, options.disk)
    for source, path in taken.puts:
        maker.copy(source, path)
        os.close(source.fd)
    for share in taken.shares:
        _show(maker, share)
    linux.move_mount(proc, "/proc")
    _drop_to_panel(standing, ids)
    kept = (*(share.tree for share in taken.shares), *_make_trouble(options))
    return Panel(root, layers, drive, incoming, folder, drive_mount, bool(taken.usb), kept)


# -- on the host's root ----------------------------------------------------------------------


def _enter_state(options, owner):
    """Goes to the state folder, or to a file system in memory."""
    if options.state:
        os.chdir(options.state)
        return
    carrier = next((path for path in CARRIERS if os.path.isdir(path)), None)
    if carrier is None:
        raise SandboxError("this machine has no /tmp")
    linux.mount("tmpfs", carrier, "tmpfs", linux.MS_NOSUID | linux.MS_NODEV,
                f"size={options.disk}m,nr_inodes=400k,mode=700")
    os.chdir(carrier)
    here = os.open(".", trees.DIR_FLAGS)
    state.make_folders(here, *owner)
    os.close(here)


def _drive_attributes(options):
    """Returns what the drive's mount forbids; a read-only place is made before it gets there."""
    attributes = linux.MOUNT_ATTR_NOSUID | linux.MOUNT_ATTR_NODEV
    if any(f"{names.DRIVE_FOLDER}/".startswith(f"{path}/") for path in options.read_only):
        attributes |= linux.MOUNT_ATTR_RDONLY
    return attributes


def _change_root():
    """Leaves the host's root for good."""
    os.chdir("root")
    old = os.open("/", os.O_RDONLY | os.O_DIRECTORY | os.O_CLOEXEC)
    linux.pivot_root(".", ".")
    os.fchdir(old)
    linux.umount(".", linux.MNT_DETACH)
    os.close(old)
    os.chdir("/")


# -- on the panel's root ---------------------------------------------------------------------


def _fill(maker, taken, folder, owner):
    """Makes the files of a new panel, and what every start needs."""
    if state.read_json(folder, "made.json", None) is None:
        if os.listdir("/"):
            raise SandboxError("the state was left unfinished; erase it")
        _make_first_files(maker, taken)
        state.write_json(folder, "made.json", {"format": state.FORMAT})
        os.chown("made.json", *owner, dir_fd=folder)
    for source, _ in taken.etc:
        os.close(source.fd)
    maker.file(names.MARKER, b"sandboxed device\n", 0o444, 0)
    for path in ("/usr", "/dev", "/proc"):
        maker.folders(path)


def _make_first_files(maker, taken):
    os.chmod("/", 0o755)
    for path, mode, uid, gid in etc.FOLDERS:
        maker.folder(path, mode, uid, gid)
    for name, target in taken.links.items():
        maker.link(f"/{name}", target)
    for path, target in etc.LINKS:
        maker.link(path, target)
    for source, name in taken.etc:
        maker.copy(source, f"/etc/{name}")
    for path, text, mode, gid in etc.FILES:
        maker.file(path, text.encode(), mode, gid)


def _forget_by_reboot(maker, folder):
    """Removes what does not outlive a reboot."""
    for path in ("/tmp", "/run"):
        maker.folders(path)
        opened = os.open(path, trees.DIR_FLAGS)
        trees.empty(opened)
        os.close(opened)
    trees.remove(folder, "reboot")


def _make_devices(maker, nodes, owner, disk):
    """Makes /dev with the given nodes of the machine, and with disk MiB of shared memory."""
    owned = "uid={},gid={}".format(*owner)
    linux.mount("tmpfs", "/dev", "tmpfs", linux.MS_NOSUID | linux.MS_NOEXEC,
                f"size=4m,nr_inodes=4k,mode=755,{owned}")
    for name, tree in nodes:
        maker.place(f"/dev/{name}")
        linux.move_mount(tree, f"/dev/{name}")
    for name, target in (("fd", "/proc/self/fd"), ("stdin", "/proc/self/fd/0"),
                         ("stdout", "/proc/self/fd/1"), ("stderr", "/proc/self/fd/2")):
        maker.link(f"/dev/{name}", target)
    os.mkdir("/dev/shm")
    linux.mount("tmpfs", "/dev/shm", "tmpfs", linux.MS_NOSUID | linux.MS_NODEV,
                f"size={disk}m,nr_inodes=400k,mode=1777,{owned}")


def _show(maker, share):
    """Mounts something of the machine."""
    if share.is_dir:
        maker.folders(share.path)
    elif not os.path.exists(share.path):
        maker.parents(share.path)
        maker.place(share.path)
    elif os.path.isdir(share.path):
        raise SandboxError(f"{share.path} of the panel is a folder, the shared one a file")
    linux.move_mount(share.tree, share.path)


# -- without rights outside ------------------------------------------------------------------


def _drop_to_panel(standing, ids):
    """Enters the user namespace: from here on even full rights are rights inside only."""
    if standing.is_outside():
        os.setgroups([])
        linux.setns(standing.user_namespace, linux.CLONE_NEWUSER)
        os.setresgid(0, 0, 0)
        os.setresuid(0, 0, 0)
        linux.unshare(linux.CLONE_NEWNS)
    elif not ids.only_root():
        os.setgroups([])
    linux.prctl(linux.PR_SET_DUMPABLE, 0)
    with open("/proc/sys/user/max_user_namespaces", "w", encoding="ascii") as file:
        file.write("0")
    _make_read_only("/proc/sys")


def _make_read_only(path):
    linux.mount(path, path, None, linux.MS_BIND | linux.MS_REC)
    tree = os.open(path, os.O_PATH | os.O_CLOEXEC)
    linux.mount_setattr(tree, linux.MOUNT_ATTR_RDONLY, recursive=True)
    os.close(tree)


def _make_trouble(options):
    """Mounts the full and the read-only places; returns descriptors to be kept open."""
    kept = []
    for path in options.full:
        files.make_plain_folders(path)
        linux.mount("tmpfs", path, "tmpfs", linux.MS_NOSUID | linux.MS_NODEV,
                    "size=64k,mode=755")
        kept.append(_fill_up(path))
    for path in options.read_only:
        if not os.path.exists(path) or os.path.isdir(path):
            files.make_plain_folders(path)
        elif os.path.realpath(path).startswith("/proc/"):
            raise SandboxError(f"{path} leads into /proc and cannot be made read-only")
        _make_read_only(path)
    return kept


def _fill_up(path):
    """Uses all space of a file system with a file that has no name, so nothing can free it."""
    name = f"{path}/.filler"
    descriptor = os.open(name, os.O_WRONLY | os.O_CREAT | os.O_EXCL | os.O_CLOEXEC, 0o600)
    os.unlink(name)
    try:
        while True:
            os.write(descriptor, bytes(4096))
    except OSError as error:
        if error.errno != errno.ENOSPC:
            raise
    return descriptor
