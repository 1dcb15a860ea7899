# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
"""Builds the panel's root: runs as process 1 of the panel, before anything of the panel runs.

The order keeps files that an earlier run may have left on the panel harmless. Until the root is
changed, only folders whose names nothing inside can change are used; after it, links lead nowhere
but into the panel; /proc comes last, as its links could lead out.
"""

import errno
import os
import stat

from kxdevice import etc, linux, state, trees, usr
from kxdevice.linux import SandboxError

CARRIERS = ("/tmp", "/var/tmp", "/mnt", "/run")
NODES = ("null", "zero", "full", "random", "urandom")
MARKER = "/.kx-device"


class Panel:
    """Descriptors and facts that the supervisor needs after the panel has been built."""

    def __init__(self):
        self.root = self.usr = self.lower = self.middle = -1
        self.drive = self.incoming = self.folder = -1
        self.drive_mount = -1  # detached mount of the drive, in reserve for the next plug
        self.stubbed = {}  # tool: path of the real one inside
        self.new_drive = False
        self.kept = []  # descriptors that only have to stay open


class _Builder:
    def __init__(self, job):
        self.job = job
        self.options = job.options
        self.ids = job.ids
        self.privileged = job.user_namespace >= 0  # real root until the user namespace is entered
        self.panel = Panel()
        self.owner = self.ids.root() if self.privileged else (0, 0)
        self.umask = os.umask(0o022)

    # -- on the host's root ------------------------------------------------------------------

    def collect(self):
        """Takes hold of everything of the host that the panel shows or copies."""
        self.shares = [(self._share(host), os.path.isdir(host), inside)
                       for host, inside in self.options.share]
        self.puts = [(self._source(host), inside) for host, inside in self.options.put]
        self.usb = self._source(self.options.usb) if self.options.usb else None
        self.nodes = [(name, linux.open_tree(f"/dev/{name}")) for name in NODES]
        self.from_host = []
        for name in etc.FROM_HOST:
            if os.path.exists(f"/etc/{name}"):
                self.from_host.append((trees.Source(f"/etc/{name}"), name))
        self.links = {}
        for name in sorted(os.listdir("/")):
            if name in ("bin", "sbin") or name.startswith("lib"):
                if not os.path.islink(f"/{name}"):
                    raise SandboxError(f"/{name} of this machine is no link into /usr; "
                                       "use a system with a merged /usr")
                self.links[name] = os.readlink(f"/{name}")
        self.usr_source = os.path.realpath("/usr")
        self.usr_tree = linux.open_tree(self.usr_source) if self.privileged else -1

    def _source(self, host):
        try:
            return trees.Source(host)
        except OSError as error:
            raise SandboxError(f"{host} cannot be read ({error.strerror})") from None

    def _share(self, host):
        flags = linux.MOUNT_ATTR_RDONLY | linux.MOUNT_ATTR_NOSUID | linux.MOUNT_ATTR_NODEV
        recursive = os.path.isdir(host)
        try:
            tree = linux.open_tree(host, linux.OPEN_TREE_CLONE
                                   | (linux.AT_RECURSIVE if recursive else 0))
            linux.mount_setattr(tree, flags, recursive)
        except OSError as error:
            raise SandboxError(f"{host} cannot be shared ({error.strerror})") from None
        self._give_ids(tree, recursive)
        return tree

    def _give_ids(self, tree, recursive=False):
        """Shows files of the host's root as files of root inside, where the kernel can do that."""
        if not self.privileged:
            return False
        try:
            linux.mount_setattr(tree, 0, recursive, self.job.user_namespace)
        except OSError as error:
            if error.errno not in (errno.EINVAL, errno.EPERM, errno.EOPNOTSUPP):
                raise
            return False  # root's files then show as nobody's, and only public ones can be read
        return True

    def enter_state(self):
        """Goes to the state folder, or to a file system in memory, and mounts /usr and /proc."""
        if self.job.state:
            os.chdir(self.job.state)
        else:
            carrier = next((path for path in CARRIERS if os.path.isdir(path)), None)
            if carrier is None:
                raise SandboxError("this machine has no /tmp")
            linux.mount("tmpfs", carrier, "tmpfs", linux.MS_NOSUID | linux.MS_NODEV,
                        f"size={self.options.disk}m,nr_inodes=400k,mode=700")
            os.chdir(carrier)
            here = os.open(".", trees.DIR_FLAGS)
            state.make_folders(here, *self.owner)
            os.close(here)
        layers = usr.Layers(self.job, self.owner)
        mapped = False
        if self.privileged:
            mapped = self._give_ids(self.usr_tree)
            linux.mount_setattr(self.usr_tree, linux.MOUNT_ATTR_RDONLY)
        layers.build(self.usr_tree, self.usr_source, mapped)
        self.panel.lower = layers.lower_fd
        self.panel.stubbed = layers.stubbed
        self.merged = layers.merged
        linux.mount("proc", "proc", "proc", linux.MS_NOSUID | linux.MS_NODEV | linux.MS_NOEXEC)
        self.proc = linux.open_tree("proc")
        panel = self.panel
        panel.root = os.open("root", trees.DIR_FLAGS)
        panel.usr = os.open("usr", trees.DIR_FLAGS)
        panel.middle = os.open("mid", trees.DIR_FLAGS)
        panel.drive = os.open("drive", trees.DIR_FLAGS)
        panel.incoming = os.open("incoming", trees.DIR_FLAGS)
        panel.folder = os.open("panel", trees.DIR_FLAGS)
        panel.drive_mount = linux.open_tree("drive")
        linux.mount_setattr(panel.drive_mount,
                            linux.MOUNT_ATTR_NOSUID | linux.MOUNT_ATTR_NODEV)
        if self.usb:
            trees.empty(panel.drive)
            trees.copy_dir(self.usb.fd, panel.drive, *self.owner, self.usb.path)
            panel.new_drive = True
        linux.mount("root", "root", None, linux.MS_BIND)

    def change_root(self):
        """Leaves the host's root for good."""
        os.chdir("root")
        old = os.open("/", os.O_RDONLY | os.O_DIRECTORY | os.O_CLOEXEC)
        linux.pivot_root(".", ".")
        os.fchdir(old)
        linux.umount(".", linux.MNT_DETACH)
        os.close(old)
        os.chdir("/")

    # -- on the panel's root -----------------------------------------------------------------

    def fill(self):
        """Makes the files of a new panel, and what every start needs."""
        if state.read_json(self.panel.folder, "made.json", None) is None:
            if os.listdir("/"):
                raise SandboxError("the state was left unfinished; erase it")
            self._first_files()
            self._record("made.json", {"format": state.FORMAT})
        self._file(MARKER, b"sandboxed device\n", 0o444, 0)
        for path in ("/usr", "/dev", "/proc"):
            self._folder(path)
        if self.options.boot:
            for path in ("/tmp", "/run"):
                self._folder(path)
                folder = os.open(path, trees.DIR_FLAGS)
                trees.empty(folder)
                os.close(folder)
            trees.remove(self.panel.folder, "reboot")

    def _record(self, name, value):
        state.write_json(self.panel.folder, name, value)
        os.chown(name, *self.owner, dir_fd=self.panel.folder)

    def _first_files(self):
        os.chmod("/", 0o755)
        for path, mode, uid, gid in etc.FOLDERS:
            os.mkdir(path)
            self._chown(path, uid, gid)
            os.chmod(path, mode)
        for name, target in self.links.items():
            self._link(f"/{name}", target)
        for path, target in etc.LINKS:
            self._link(path, target)
        for source, name in self.from_host:
            self._copy(source, f"/etc/{name}")
        for path, text, mode, gid in etc.FILES:
            self._file(path, text.encode(), mode, gid)

    def _chown(self, path, uid, gid):
        if not self.ids.has(uid, gid):
            uid = gid = 0
        users, groups = self.ids.users, self.ids.groups
        os.chown(path, _outside(users, uid) if self.privileged else uid,
                 _outside(groups, gid) if self.privileged else gid, follow_symlinks=False)

    def _link(self, path, target):
        os.symlink(target, path)
        self._chown(path, 0, 0)

    def _file(self, path, data, mode, gid):
        folder = os.open(os.path.dirname(path), trees.DIR_FLAGS)
        try:
            name = os.path.basename(path)
            if stat.S_ISDIR(_mode(folder, name)):
                trees.remove(folder, name)
            trees.write_file(folder, name, data)
        finally:
            os.close(folder)
        self._chown(path, 0, gid)
        os.chmod(path, mode)

    def _folder(self, path):
        """Makes a folder, and those above it, unless there is one."""
        made = ""
        for part in path.strip("/").split("/"):
            made += "/" + part
            try:
                os.mkdir(made)
                self._chown(made, 0, 0)
            except FileExistsError:
                if not os.path.isdir(made):
                    raise SandboxError(f"{made} of the panel is not a folder") from None

    def _parents(self, path):
        if os.path.dirname(path) != "/":
            self._folder(os.path.dirname(path))

    def _copy(self, source, path):
        self._parents(path)
        if source.is_dir() and os.path.isdir(path):
            path = os.path.realpath(path)
        folder = os.open(os.path.dirname(path), os.O_RDONLY | os.O_DIRECTORY | os.O_CLOEXEC)
        uid, gid = self.owner
        name = os.path.basename(path)
        try:
            if source.is_dir():
                target = trees.open_or_make(folder, name)
                trees.copy_dir(source.fd, target, uid, gid, source.path)
                os.close(target)
            else:
                trees.copy_file(source.fd, folder, name, uid, gid)
        finally:
            os.close(folder)

    def mount_all(self):
        """Mounts /usr, /dev, the shares and /proc, and copies what was asked for."""
        linux.move_mount(self.merged, "/usr")
        self._devices()
        for source, path in self.puts:
            self._copy(source, path)
        for tree, is_dir, path in self.shares:
            if is_dir:
                self._folder(path)
            elif not os.path.exists(path):
                self._parents(path)
                self._file_for_mount(path)
            elif os.path.isdir(path):
                raise SandboxError(f"{path} of the panel is a folder, the shared one a file")
            linux.move_mount(tree, path)
            self.panel.kept.append(tree)
        for source, _ in self.from_host + self.puts:
            os.close(source.fd)
        if self.usb:
            os.close(self.usb.fd)
        linux.move_mount(self.proc, "/proc")

    def _file_for_mount(self, path):
        os.close(os.open(path, os.O_WRONLY | os.O_CREAT | os.O_EXCL | os.O_CLOEXEC, 0o644))
        self._chown(path, 0, 0)

    def _devices(self):
        uid, gid = self.owner
        owner = f"uid={uid},gid={gid}"
        linux.mount("tmpfs", "/dev", "tmpfs", linux.MS_NOSUID | linux.MS_NOEXEC,
                    f"size=4m,nr_inodes=4k,mode=755,{owner}")
        for name, tree in self.nodes:
            self._file_for_mount(f"/dev/{name}")
            linux.move_mount(tree, f"/dev/{name}")
        for name, target in (("fd", "/proc/self/fd"), ("stdin", "/proc/self/fd/0"),
                             ("stdout", "/proc/self/fd/1"), ("stderr", "/proc/self/fd/2")):
            self._link(f"/dev/{name}", target)
        os.mkdir("/dev/shm")
        linux.mount("tmpfs", "/dev/shm", "tmpfs", linux.MS_NOSUID | linux.MS_NODEV,
                    f"size={self.options.disk}m,nr_inodes=400k,mode=1777,{owner}")

    # -- without rights outside --------------------------------------------------------------

    def drop_to_panel(self):
        """Enters the user namespace: from here on even full rights are rights inside only."""
        if self.privileged:
            os.setgroups([])
            linux.setns(self.job.user_namespace, linux.CLONE_NEWUSER)
            os.setresgid(0, 0, 0)
            os.setresuid(0, 0, 0)
            linux.unshare(linux.CLONE_NEWNS)
        elif not self.ids.only_root():
            os.setgroups([])
        linux.prctl(linux.PR_SET_DUMPABLE, 0)
        with open("/proc/sys/user/max_user_namespaces", "w", encoding="ascii") as file:
            file.write("0")
        self._read_only("/proc/sys")

    def _read_only(self, path):
        linux.mount(path, path, None, linux.MS_BIND | linux.MS_REC)
        tree = os.open(path, os.O_PATH | os.O_CLOEXEC)
        linux.mount_setattr(tree, linux.MOUNT_ATTR_RDONLY, recursive=True)
        os.close(tree)

    def make_trouble(self):
        """Mounts the full and the read-only places."""
        for path in self.options.full:
            self._plain_folder(path)
            linux.mount("tmpfs", path, "tmpfs", linux.MS_NOSUID | linux.MS_NODEV,
                        "size=64k,mode=755")
            self.panel.kept.append(_fill_up(path))
        for path in self.options.read_only:
            if not os.path.exists(path) or os.path.isdir(path):
                self._plain_folder(path)
            elif os.path.realpath(path).startswith("/proc/"):
                raise SandboxError(f"{path} leads into /proc and cannot be made read-only")
            self._read_only(path)

    def _plain_folder(self, path):
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


def _mode(directory, name):
    try:
        return os.lstat(name, dir_fd=directory).st_mode
    except FileNotFoundError:
        return 0


def _outside(spans, number):
    return next(o + number - i for i, o, n in spans if i <= number < i + n)


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


def build(job):
    """Builds the panel of a job and makes it the root of the caller; returns the Panel."""
    linux.unshare(linux.CLONE_NEWNS)
    linux.mount(None, "/", None, linux.MS_REC | linux.MS_PRIVATE)
    builder = _Builder(job)
    builder.collect()
    builder.enter_state()
    builder.change_root()
    builder.fill()
    builder.mount_all()
    builder.drop_to_panel()
    builder.make_trouble()
    return builder.panel
