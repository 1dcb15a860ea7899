# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
"""Debian's kernel for the virtual machine: apt fetches and verifies its package, and the kernel and
the modules that the machine could need are unpacked into a folder of their own. The package is not
installed: this computer would get a further kernel to start with."""
import contextlib
import lzma
import os
import pathlib
import platform
import shutil
import tempfile

from kxscripts import debian, processes
from kxscripts.common import Failed

METAPACKAGE = "linux-image-amd64"  # depends on the newest kernel, with its exact version
WANTED = ("boot/vmlinuz-*", "lib/modules/*/modules.*", *(
    f"lib/modules/*/kernel/{pattern}" for pattern in (
        "arch/x86/crypto/*", "block/*", "crypto/*", "lib/*", "fs/exfat/*", "fs/ext4/*", "fs/fat/*", "fs/jbd2/*",
        "fs/mbcache.ko", "fs/nls/nls_*", "drivers/block/loop.ko", "drivers/md/dm-*",
        "drivers/scsi/scsi_*", "drivers/scsi/sd_mod.ko", "drivers/usb/common/*",
        "drivers/usb/core/*", "drivers/usb/host/xhci-*", "drivers/usb/storage/usb-storage.ko",
        "drivers/virtio/*", "drivers/char/virtio_console.ko")))
XZ = b"\xfd7zXZ\0"
REMEDY = "scripts/setup vm fetches it"


def folders():
    """Where a kernel may lie: the computer's folder, and the user's."""
    return debian.folders("vm")


class Kernel:
    """An unpacked kernel in a folder: `image` is the file that is started, `version` its name, and
    `modules` the folder with its modules and what depends on what."""

    def __init__(self, folder):
        """Raises Failed when the folder has no complete kernel."""
        modules = sorted((folder / "kernel" / "lib" / "modules").glob("*/modules.dep"))
        if not modules:
            raise Failed(f"there is no kernel for the virtual machine in {folder}; {REMEDY}")
        self.modules = modules[-1].parent
        self.version = self.modules.name
        self.image = folder / "kernel" / "boot" / f"vmlinuz-{self.version}"
        unpacked = self.image.with_name("vmlinux")
        if unpacked.exists():
            self.image = unpacked

    def needed(self, names):
        """The files of modules and of all that they depend on, relative to `modules`, sorted.
        Raises Failed for a module that was not unpacked."""
        depends = {}
        for line in (self.modules / "modules.dep").read_text(encoding="utf-8").splitlines():
            file, _, others = line.partition(":")
            depends[pathlib.PurePath(file).stem.replace("-", "_")] = [file, *others.split()]
        missing = [name for name in names if name.replace("-", "_") not in depends]
        if missing:
            raise Failed(f"the kernel in {self.modules} lacks {' '.join(missing)}; remove the folder, "
                         f"and {REMEDY}")
        return sorted({file for name in names for file in depends[name.replace("-", "_")]})


def find():
    """The kernel that was unpacked on this computer. Raises Failed when there is none."""
    for folder in folders():
        try:
            return Kernel(folder)
        except Failed:
            continue
    raise Failed("there is no kernel for the virtual machine in "
                 f"{' or '.join(map(str, folders()))}; {REMEDY}")


def check_computer():
    """Raises Failed where the programs of this computer could not run in the machine."""
    if platform.machine() != "x86_64":
        raise Failed(f"the virtual machine has an amd64 processor, and this computer's programs are "
                     f"for {platform.machine()}: it needs a Debian for amd64")


def _unpack_image(image):
    """Puts the kernel that an image unpacks when it starts beside it: the machine, which is slow,
    needs half the time without that. An image that is not packed with xz has to do as it is."""
    data = image.read_bytes()
    begin = data.find(XZ)
    while begin >= 0:
        reader = lzma.LZMADecompressor()
        with contextlib.suppress(lzma.LZMAError):
            unpacked = reader.decompress(data[begin:])
            if reader.eof:
                image.with_name("vmlinux").write_bytes(unpacked)
                return
        # What knows how to unpack has these bytes, too.
        begin = data.find(XZ, begin + 1)


def _list_modules(kernel):
    """Makes the lists of what modules depend on, in an unpacked kernel."""
    for version in (kernel / "lib" / "modules").glob("*"):
        # BusyBox's, because it is the one that reads it.
        status = processes.run(["busybox", "depmod", "-b", kernel, version.name], cwd=kernel)
        if status != 0:
            raise Failed(f"busybox depmod ended with {status}")


def make(folder, metapackage, wanted, env=None):
    """Fetches the kernel that a metapackage names and unpacks the files that match the patterns
    `wanted` beside its place, `kernel` in the folder, which it takes when it is complete. Raises
    Failed.

    env   the environment of apt"""
    with tempfile.TemporaryDirectory(dir=folder, prefix="fetch.") as name:
        work = pathlib.Path(name)
        package = debian.download(debian.newest(metapackage, env), work, env)
        made = work / "kernel"
        debian.unpack(package, made, wanted)
        for image in (made / "boot").glob("vmlinuz-*"):
            _unpack_image(image)
        _list_modules(made)
        made.chmod(0o755)
        shutil.rmtree(folder / "kernel", ignore_errors=True)
        made.rename(folder / "kernel")


def fetch():
    """Unpacks the newest kernel of Debian unless there is one already: into /var/cache for root, into
    the user's cache otherwise. Returns the kernel. Raises Failed."""
    check_computer()
    try:
        return find()
    except Failed:
        folder = folders()[0 if os.geteuid() == 0 else 1]
        folder.mkdir(parents=True, exist_ok=True)
        make(folder, METAPACKAGE, WANTED)
        return Kernel(folder)
