# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
"""The files of the virtual machine, one archive that its kernel unpacks into memory: BusyBox, the
tools for drives, the kernel's modules, and what the user adds, each program with the libraries that it
is loaded with."""
import os
import pathlib
import re
import shutil
import subprocess

from kxscripts.common import Failed

INIT = pathlib.Path(__file__).resolve().parent / "vm_init.sh"
BUSYBOX = "/bin/busybox"
TOOLS = ("dmsetup", "fsck.exfat", "fsck.fat", "fsck.vfat", "mkfs.exfat", "mkfs.ext4", "mkfs.fat",
         "mkfs.vfat")
TOOL_FOLDERS = ("/usr/sbin", "/sbin", "/usr/bin", "/bin")
MODULES = ("virtio_pci", "virtio_console",                    # what the machine is spoken to over
           "vfat", "exfat", "ext4", "nls_cp437", "nls_ascii", "nls_utf8", "nls_iso8859_1",
           "crc32c_generic", "libcrc32c",                     # which ext4 asks for by another name
           "xhci_pci", "usb_storage", "sd_mod",               # the drive
           "loop", "dm_mod", "dm_flakey", "dm_delay", "scsi_debug")
DEPENDENCIES = ("modules.alias", "modules.builtin", "modules.dep", "modules.symbols")


def parse_added(word):
    """HOST[:GUEST] of the command line as (Path, absolute name in the machine). Without GUEST a file
    has the same place there. Raises Failed when there is no such file, or GUEST is not absolute."""
    host, colon, guest = word.rpartition(":")
    if not colon or os.path.lexists(word):
        host, guest = word, os.path.abspath(word)
    if not os.path.exists(host):
        raise Failed(f"{host}: there is no such file to add to the virtual machine")
    if not guest.startswith("/"):
        raise Failed(f"{word}: behind the colon stands the place in the virtual machine, which "
                     "begins with '/'")
    return pathlib.Path(host), os.path.normpath(guest)


def libraries(program):
    """The shared libraries of a program, the loader among them, as absolute names; none for a static
    one and for what is no program of this computer. The loader is started for this, so the program
    must be one that is trusted. Raises Failed when a library is missing."""
    with open(program, "rb") as file:
        if file.read(4) != b"\x7fELF":
            return []
    done = subprocess.run(["ldd", program], capture_output=True, text=True, check=False,
                          env={"PATH": os.environ.get("PATH", os.defpath), "LC_ALL": "C"})
    missing = re.findall(r"^\s*(\S+) => not found", done.stdout, flags=re.M)
    if missing:
        raise Failed(f"{program} needs {' '.join(missing)}, which this computer lacks")
    return re.findall(r"^\s*(?:\S+ => )?(/\S+) \(0x[0-9a-f]+\)$", done.stdout, flags=re.M)


class Stage:
    """A folder that gets what the machine's root has."""

    def __init__(self, folder):
        self.folder = folder

    def place(self, guest):
        """Where a file of the machine lies in the folder, whose folders are made."""
        target = self.folder / guest.lstrip("/")
        target.parent.mkdir(parents=True, exist_ok=True)
        return target

    def add(self, host, guest):
        """Adds a file or a folder, and the libraries of its programs. Links are followed."""
        target = self.place(guest)
        if host.is_dir():
            shutil.copytree(host, target, dirs_exist_ok=True)
            files = [path for path in sorted(host.rglob("*")) if path.is_file()]
        else:
            shutil.copy(host, target)
            files = [host]
        for file in files:
            self._add_libraries(file)

    def _add_libraries(self, file):
        for library in libraries(file):
            if not (self.folder / library.lstrip("/")).exists():
                shutil.copy(library, self.place(library))

    def add_tools(self):
        """Adds BusyBox, the tools for drives and the program that the kernel starts."""
        for tool in ("busybox", *TOOLS):
            found = shutil.which(tool, path=":".join(TOOL_FOLDERS))
            if found is None:
                raise Failed(f"{tool} is missing; scripts/setup vm installs it")
            self.add(pathlib.Path(found), BUSYBOX if tool == "busybox" else f"/usr/sbin/{tool}")
        (self.folder / "bin" / "sh").symlink_to("busybox")
        shutil.copy(INIT, self.folder / "init")
        (self.folder / "init").chmod(0o755)

    def add_modules(self, kernel):
        """Adds the modules of MODULES with all they depend on."""
        for file in (*DEPENDENCIES, *kernel.needed(MODULES)):
            shutil.copy(kernel.modules / file,
                        self.place(f"/lib/modules/{kernel.version}/{file}"))


def pack(folder, archive):
    """Packs all that is in a folder into an archive that a kernel unpacks into memory; everything
    belongs to root there. Raises Failed."""
    names = sorted(path.relative_to(folder) for path in folder.rglob("*"))
    with archive.open("wb") as output:
        done = subprocess.run(
            ["cpio", "--create", "--quiet", "--null", "--format=newc", "--owner=0:0"],
            input=b"".join(os.fsencode(name) + b"\0" for name in names), cwd=folder, stdout=output,
            stderr=subprocess.PIPE, check=False)
    if done.returncode != 0:
        raise Failed(f"cpio could not make {archive}: {done.stderr.decode(errors='replace')}")


def make(kernel, added, work):
    """Makes the archive in the empty folder `work`; returns its file. The machine's files belong to
    root. Raises Failed, and OSError for a file that cannot be read.

    added   pairs as parse_added returns them"""
    folder = work / "root"
    folder.mkdir()
    stage = Stage(folder)
    stage.add_tools()
    stage.add_modules(kernel)
    for host, guest in added:
        stage.add(host, guest)
    archive = work / "initramfs"
    pack(folder, archive)
    shutil.rmtree(folder)
    return archive
