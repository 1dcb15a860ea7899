# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
"""USB drives as users have them, each a file, and what lies on them afterwards."""
import gzip
import os
import pathlib
import subprocess
import tempfile
from typing import NamedTuple

from kxscripts import common
from kxscripts.common import Failed

MIB = 1 << 20
SECTOR = 512
FIRST = MIB           # where the partition of a drive begins, as partitioning programs have it
TYPES = {"vfat": "c", "exfat": "7"}  # how the table calls a partition with such a file system
CLUSTER = "1"         # sectors; with small ones a small file system is FAT 32, as that of a large drive
TIME = 300            # seconds


class Kind(NamedTuple):
    """How a drive was made."""

    filesystem: str = "vfat"  # or exfat
    table: bool = True        # whether there is a table of partitions
    mebibytes: int = 64


def run(command, group="emulator", **more):
    """Runs a tool; returns its output as bytes. Raises Failed when it does not succeed."""
    try:
        done = subprocess.run([str(word) for word in command], capture_output=True, check=False,
                              timeout=TIME, env={**os.environ, "LC_ALL": "C.UTF-8"}, **more)
    except FileNotFoundError as error:
        raise Failed(f"{command[0]} is missing; scripts/setup {group} installs it") from error
    if done.returncode != 0:
        raise Failed(f"{command[0]} ended with {done.returncode}: "
                     f"{done.stderr.decode(errors='replace').strip()}")
    return done.stdout


def make(path, files, kind=Kind()):
    """Makes a drive, `path`, with files at its top. Raises Failed, OSError.

    files   where each file of this computer lies, by its name on the drive"""
    begin = FIRST if kind.table else 0
    with tempfile.TemporaryDirectory(prefix="kx-drive.") as folder:
        partition = pathlib.Path(folder) / "partition"
        with partition.open("wb") as file:
            file.truncate(kind.mebibytes * MIB - begin)
        _FILL[kind.filesystem](partition, files)
        with open(path, "wb") as file:
            file.truncate(kind.mebibytes * MIB)
        if kind.table:
            run(["sfdisk", "--quiet", "--label", "dos", path],
                input=f"start={FIRST // SECTOR}, type={TYPES[kind.filesystem]}\n".encode())
        run(["dd", f"if={partition}", f"of={path}", "bs=1M", f"seek={begin // MIB}",
             "conv=notrunc,sparse", "status=none"])


def _fill_vfat(partition, files):
    run(["mkfs.vfat", "-F", "32", "-s", CLUSTER, "-n", "KX", partition], "vm")
    for name, file in files.items():
        run(["mcopy", "-i", partition, file, f"::/{name}"])


def _fill_exfat(partition, files):
    """The kernel of the virtual machine fills it: no program without one does."""
    command = [common.ROOT / "scripts" / "vm", "run", "--drive", partition.stat().st_size // MIB,
               "--memory", 512]
    for name, file in files.items():
        command += ["--add", f"{file}:/files/{name}"]
    made = run([*command, "--", "sh", "-c", (
        "exec 3>&1 >&2; mkdir -p /files; drive=$(drive plug) && mkfs.exfat -L KX \"$drive\" && "
        "mount -t exfat \"$drive\" /mnt && cp -R /files/. /mnt && umount /mnt && "
        "gzip -1 <\"$drive\" >&3")], "vm")
    partition.write_bytes(gzip.decompress(made))


_FILL = {"vfat": _fill_vfat, "exfat": _fill_exfat}


def listing(path, kind=Kind()):
    """The names of all files and folders on a drive with vfat, sorted, folders with a '/' at their
    end. Raises Failed."""
    begin = FIRST if kind.table else 0
    lines = run(["mdir", "-b", "-/", "-a", "-i", f"{path}@@{begin}", "::/"]).decode().splitlines()
    return sorted(line.removeprefix("::/") for line in lines if line)


def check(path, kind=Kind()):
    """What is wrong with the file system of a drive with vfat, as text; none when all is well. A mark
    that it was not unmounted is not looked at."""
    partition = pathlib.Path(f"{path}.partition")
    with open(path, "rb") as file, partition.open("wb") as copy:
        file.seek(FIRST if kind.table else 0)
        while data := file.read(MIB):
            copy.write(data)
    done = subprocess.run(["fsck.vfat", "-n", partition], capture_output=True, text=True, check=False,
                          timeout=TIME)
    partition.unlink()
    return "" if done.returncode == 0 else done.stdout
