# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
"""The parts of a panel's image that come from Debian and are kept: the installed packages as an archive,
the kernel, and the archive of files that it begins with. Each has a name that tells what it was made
of, so other packages make another one, and takes its place when it is complete."""
import contextlib
import fcntl
import os
import pathlib
import shutil
import struct
import tempfile
import time
import zlib

from kxpanel import plan
from kxscripts import common, debian, foreign, sysroot, vm_image, vm_kernel
from kxscripts.common import Failed

BUSYBOX = "busybox-static"
TOOLS = ("cat", "insmod", "mount", "sh", "sleep", "switch_root", "umount")
TIME = 3600     # seconds for the packages
# Where Debian's 32-bit ARM kernel is loaded and begins: memory of the board begins at 0x40000000, and
# the kernel's own first 0x208000 are for its tables and for firmware of other boards.
KERNEL_PLACE = 0x40208000


def cache():
    """The folder in which parts are kept, made when it is missing: the computer's for root, otherwise
    the user's."""
    folder = debian.folders("panel-image")[0 if os.geteuid() == 0 else 1]
    folder.mkdir(parents=True, exist_ok=True)
    return folder


@contextlib.contextmanager
def making(name):
    """Yields the place of a part and an empty folder to make it in, and lets one process at a time
    make it; the folder goes with all that is in it, and what a process that was killed left, too."""
    folder = cache()
    with (folder / f"{name}.lock").open("w", encoding="utf-8") as lock:
        fcntl.flock(lock, fcntl.LOCK_EX)
        for left in folder.glob(f"make.{name}.*"):
            shutil.rmtree(left)
        with tempfile.TemporaryDirectory(dir=folder, prefix=f"make.{name}.") as work:
            yield folder / name, pathlib.Path(work)


def base_command(wanted, target):
    """The command that makes an archive of the installed packages of a plan."""
    command = ["mmdebstrap", "--mode=root", f"--architectures={wanted.arch}", "--variant=essential",
               "--format=tar", "--aptopt=APT::Install-Recommends \"false\"",
               f"--include={','.join(wanted.packages)}"]
    command += [f"--dpkgopt=path-exclude={pattern}" for pattern in wanted.left_out]
    command += [f"--dpkgopt=path-include={pattern}" for pattern in wanted.kept]
    # Emulated file system checks and syncs take their time, and a half-made base is thrown away.
    command += ["--dpkgopt=force-unsafe-io", sysroot.SUITE, str(target), debian.source().strip()]
    return ["timeout", str(TIME), *command]


def base(wanted):
    """The archive with the installed packages of a plan. Raises Failed."""
    name = "base-" + wanted.arch + "-" + plan.digest(repr((wanted.packages, wanted.left_out, wanted.kept)))
    with making(name) as (place, work):
        if place.exists():
            return place
        common.say(f"installing Debian's packages for {wanted.arch} in a folder, which takes some minutes")
        began, made, log = time.monotonic(), work / "base.tar", work / "log"
        with log.open("wb") as output:
            status = foreign.run(base_command(wanted, made), cwd=work, output=output)
        if status != 0:
            raise Failed(f"{common.tail_of(log, 20)}\nmmdebstrap for {wanted.arch} ended with {status}")
        made.rename(place)
        print(f"{place}: {place.stat().st_size >> 20} MiB, {time.monotonic() - began:.0f} s")
    return place


def kernel(wanted):
    """The unpacked kernel of a plan, and BusyBox beside it. Raises Failed."""
    name = "kernel-" + wanted.arch + "-" + plan.digest(repr((wanted.metapackage, wanted.modules)))
    with making(name) as (place, work):
        if not place.exists():
            common.say(f"fetching the kernel for {wanted.arch}")
            apt, made = work / "apt", work / "made"
            made.mkdir()
            environment = debian.settings_for(wanted.arch, apt)
            vm_kernel.make(made, wanted.metapackage, [
                "boot/vmlinuz-*", *(f"lib/modules/*/{pattern}" for pattern in wanted.modules)],
                environment)
            fetched = work / "busybox"
            fetched.mkdir()
            debian.unpack(debian.download(BUSYBOX, fetched, environment), made, ["bin/busybox"])
            made.chmod(0o755)
            made.rename(place)
    return vm_kernel.Kernel(place)


def bootable(found, arch):
    """The bytes of a kernel as the emulator starts it at once: one that was packed is unpacked
    beforehand, because the emulated processor takes its time for that, at every start."""
    data = found.image.read_bytes()
    if arch != "armhf" or found.image.name != "vmlinux":
        return data
    return legacy_head(data, KERNEL_PLACE) + data


def legacy_head(data, place):
    """The head that tells a boot loader that a 32-bit ARM Linux, not packed, belongs to a place in
    memory and begins there."""
    head = struct.pack(">7I4B32s", 0x27051956, 0, 0, len(data), place, place, zlib.crc32(data),
                       5, 2, 2, 0, b"Linux")
    return head[:4] + struct.pack(">I", zlib.crc32(head)) + head[8:]


def make_first_files(found, wanted, target, work):
    """Makes the archive of the files that the kernel begins with, in the empty folder `work`."""
    folder = work / "first"
    for name in ("bin", "dev", "modules", "proc", "root", "sys"):
        (folder / name).mkdir(parents=True)
    shutil.copy(found.modules.parents[3] / "bin/busybox", folder / "bin")
    (folder / "bin/busybox").chmod(0o755)
    for tool in TOOLS:
        (folder / "bin" / tool).symlink_to("busybox")
    shutil.copy(plan.IMAGE / "init", folder)
    order = []
    for name in wanted.first:
        order += [module for module in reversed(in_order(found, name)) if module not in order]
    for module in order:
        shutil.copy(found.modules / module, folder / "modules")
    (folder / "modules/order").write_text("".join(f"{pathlib.Path(module).name}\n" for module in order),
                                          encoding="utf-8")
    for path in [folder, *folder.rglob("*")]:
        os.utime(path, (0, 0), follow_symlinks=False)
    vm_image.pack(folder, target)
    shutil.rmtree(folder)


def in_order(found, name):
    """The module of that name and those that it depends on, each before those that it needs itself."""
    for line in (found.modules / "modules.dep").read_text(encoding="utf-8").splitlines():
        file, _, others = line.partition(":")
        if pathlib.PurePath(file).stem.replace("-", "_") == name:
            return [file, *others.split()]
    raise Failed(f"the kernel in {found.modules} lacks {name}, which packaging/image/image.toml names")
