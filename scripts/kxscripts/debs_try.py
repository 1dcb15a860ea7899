# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
"""Tries the Debian packages in fresh minimal systems of each processor: these are folders that are
thrown away, and what runs there runs in namespaces of its own, where programs of another processor
are emulated. Nothing is installed on the computer, and nothing is mounted or registered for others."""
import hashlib
import os
import pathlib
import re
import shutil
import subprocess
import tempfile

from kxscripts import common, debian, foreign, sysroot
from kxscripts.common import Failed

TIME = 3600  # seconds for one step: making a system, or trying the packages in it
OLDER = "0.0.1"  # of each number of an older version
GONE = "usr/share/doc/{package}/of-an-older-version"  # what only the older packages bring
REGISTER = pathlib.Path("/proc/sys/fs/binfmt_misc")


def field(package, name):
    """A field of a package file; empty when it has none."""
    return subprocess.run(["dpkg-deb", "--field", package, name], capture_output=True, text=True,
                          check=True).stdout.strip()


def dependencies(packages):
    """What package files depend on besides each other: the first of each alternatives, by name."""
    own = {field(package, "Package") for package in packages}
    named = (re.match(r"[^\s:(|]+", relation.strip())[0] for package in packages
             for relation in field(package, "Depends").split(","))
    return sorted(set(named) - own)


def left(folder):
    """What of a trial is left outside of its namespaces, and must not be: mounts below its folder, and
    emulators that it could have registered."""
    mounts = pathlib.Path("/proc/self/mountinfo").read_text(encoding="utf-8")
    below = re.findall(rf"^(?:\S+ ){{4}}({re.escape(str(folder))}\S*) ", mounts, flags=re.M)
    return below, sorted(os.listdir(REGISTER)) if REGISTER.is_dir() else []


def run(words, work, what):
    """Runs a command in namespaces of its own, with its output in a file. Raises Failed with the end
    of that."""
    log = work / "log"
    with log.open("wb") as output:
        status = foreign.run(["timeout", str(TIME), *words], cwd=work, output=output)
    if status != 0:
        raise Failed(f"{common.tail_of(log)}\n{what} ended with {status}")
    return log


def system(arch, names):
    """The archive of a minimal system with these packages besides; it is made the first time, and kept
    under the name of what it is made of. Raises Failed."""
    content = "\n".join((arch, sysroot.SUITE, *names))
    name = f"{arch}-{hashlib.sha256(content.encode()).hexdigest()[:12]}.tar"
    folders = debian.folders("systems")
    for folder in folders:
        if (folder / name).exists():
            return folder / name
    folder = folders[0 if os.geteuid() == 0 else 1]
    folder.mkdir(parents=True, exist_ok=True)
    common.say(f"a minimal system for {arch}, which takes minutes the first time")
    with tempfile.TemporaryDirectory(dir=folder, prefix="make.") as made:
        work = pathlib.Path(made)
        work.chmod(0o755)
        run(["env", f"TMPDIR={work}", "mmdebstrap", "--mode=root", f"--architectures={arch}",
             "--variant=minbase", f"--include={','.join(names)}", "--skip=check/qemu,output/dev",
             sysroot.SUITE, str(work / "system.tar"), debian.source().strip()], work, "mmdebstrap")
        (work / "system.tar").rename(folder / name)
    return folder / name


def older(package, folder):
    """Makes an older version of a package in a folder: with lower numbers, and a file that newer ones
    do not bring."""
    tree = folder / "tree"
    subprocess.run(["dpkg-deb", "--raw-extract", package, tree], check=True)
    control = tree / "DEBIAN/control"
    text = control.read_text(encoding="utf-8")
    text = re.sub(r"^Version: .*", lambda found: re.sub(r"[0-9.]+", OLDER, found[0]), text, flags=re.M)
    text = re.sub(r"kx-updater \(>= [0-9.]+\)", f"kx-updater (>= {OLDER})", text)
    control.write_text(text, encoding="utf-8")
    gone = tree / GONE.format(package=field(package, "Package"))
    gone.write_text("Of an older version.\n", encoding="utf-8")
    subprocess.run(["dpkg-deb", "--root-owner-group", "--build", tree, folder], check=True,
                   stdout=subprocess.DEVNULL)
    shutil.rmtree(tree)


def try_packages(arch, packages, work):
    """Installs, upgrades, removes and purges the packages of a processor in a fresh minimal system
    below the empty folder `work`, and runs their programs there. Returns the lines that tell what was
    tried. Raises Failed."""
    before = left(work)
    archive = system(arch, dependencies(packages))
    for name in ("older", "newer", "root"):
        (work / name).mkdir()
    for package in packages:
        shutil.copy(package, work / "newer")
        older(package, work / "older")
    log = run(["/usr/bin/python3", "-B", "-m", "kxscripts.debs_root", arch, str(archive), str(work)],
              work, f"trying the packages for {arch}")
    if left(work) != before:
        raise Failed(f"something of the trial is left: a mount below {work}, or an emulator in "
                     f"{REGISTER}; umount the one, and write -1 into the other")
    return log.read_text(encoding="utf-8").splitlines()


def remove(folder):
    """Removes a system, whose files may have other owners than the caller. Raises Failed."""
    if folder.exists() and foreign.run(["rm", "-rf", folder], cwd=folder.parent) != 0:
        raise Failed(f"{folder} could not be removed")
