# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
"""The headers and libraries of a panel, a sysroot: Debian's packages for the panel's processor, which
apt fetches and verifies, unpacked into a folder of their own. Nothing of them is installed, and none
of their programs and scripts is run.

A sysroot has the name of what it was made of, so another list of packages makes another one, and it
takes its place when it is whole."""
import contextlib
import fcntl
import hashlib
import os
import pathlib
import shutil
import subprocess
import tempfile

from kxscripts import common, processes
from kxscripts.common import Failed

SUITE = "bookworm"
COMPONENT = "main"
TRIPLES = {"armhf": "arm-linux-gnueabihf", "arm64": "aarch64-linux-gnu"}  # in the names of the tools
# What the programs and their tests are compiled with and linked to.
PACKAGES = (
    "libarchive-dev", "libbz2-dev", "libc6-dev", "libcli11-dev", "libdtl-dev", "libelf-dev",
    "libgcc-12-dev", "libgmock-dev", "libgtest-dev", "libseccomp-dev", "libssl-dev",
    "libstdc++-12-dev", "libtomlplusplus-dev", "libutfcpp-dev", "libzip-dev", "linux-libc-dev",
    "picojson-dev", "qtbase5-dev", "zlib1g-dev")
NOT_UNPACKED = ("./dev/*", "./usr/share/doc/*", "./usr/share/locale/*", "./usr/share/man/*",
                "./var/cache/*", "./var/lib/apt/*")
LAYOUT = 1  # counts how what is unpacked is changed afterwards
TIME = 1800  # seconds for fetching and unpacking
HOOK = common.ROOT / "scripts/kxscripts/sysroot_database.sh"
REMEDY = ("name a folder with the panel's headers and libraries with --sysroot or in KX_SYSROOT, or "
          f"work on Debian 12 ({SUITE})")


def folders():
    """Where sysroots may lie: the computer's folder, and the user's."""
    own = os.environ.get("XDG_CACHE_HOME") or pathlib.Path.home() / ".cache"
    return [pathlib.Path(folder) / "kx-updater" / "sysroots" for folder in ("/var/cache", own)]


def name_of(arch):
    """The name of a processor's sysroot, which tells what it is made of."""
    content = "\n".join((SUITE, COMPONENT, *PACKAGES, *NOT_UNPACKED, str(LAYOUT),
                         HOOK.read_text(encoding="utf-8")))
    return f"{arch}-{hashlib.sha256(content.encode()).hexdigest()[:12]}"


def find(arch):
    """The whole sysroot of a processor, or None."""
    places = (folder / name_of(arch) for folder in folders())
    return next((place for place in places if place.is_dir()), None)


def is_one(folder):
    """Tells whether a folder is a sysroot that was made here."""
    return pathlib.Path(folder).parent in folders()


def archive_address():
    """The address of Debian's archive that this machine's apt uses. Raises Failed without one."""
    done = subprocess.run(
        ["apt-get", "indextargets", "--format", "$(REPO_URI) $(RELEASE) $(COMPONENT) $(ORIGIN)",
         "Created-By: Packages"], capture_output=True, text=True, check=False)
    for line in done.stdout.splitlines():
        address, *rest = line.split()
        if rest[:3] == [SUITE, COMPONENT, "Debian"]:
            return address
    raise Failed(f"apt knows no archive of Debian {SUITE}: {done.stderr.strip()}\n{REMEDY}")


def _fetch_command(arch, archive):
    """The command that makes an archive of the unpacked packages. It mounts, so it has mounts of its
    own: as root by a namespace here, otherwise by one that mmdebstrap makes."""
    command = ["mmdebstrap", f"--arch={arch}", "--variant=extract", "--format=tar",
               f"--include={','.join(PACKAGES)}", "--skip=output/dev",
               # The text, since who runs it need not reach the file.
               f"--extract-hook={HOOK.read_text(encoding='utf-8')}",
               SUITE, str(archive), f"deb {archive_address()} {SUITE} {COMPONENT}"]
    if os.geteuid() == 0:
        return ["unshare", "--mount", "--propagation", "private", "--", *command, "--mode=root"]
    return [*command, "--mode=unshare"]


def _run(command, work, what):
    """Runs a command with its output in a file. Raises Failed with the end of that."""
    log = work / "log"
    with log.open("wb") as output:
        status = processes.run(["timeout", str(TIME), *command], cwd=work, output=output)
    if status != 0:
        raise Failed(f"{common.tail_of(log, 20)}\n{what} failed with {status}")


def relink(root):
    """Lets links of a folder that name an absolute path, which is one on the panel, name the same
    file in the folder."""
    for folder, folders_there, files in os.walk(root):
        for name in (*folders_there, *files):
            path = pathlib.Path(folder, name)
            if not path.is_symlink() or not os.path.isabs(target := os.readlink(path)):
                continue
            path.unlink()
            path.symlink_to(os.path.relpath(f"{root}{target}", folder))


def _make(arch, folder):
    """Makes a sysroot beside its place, which it takes when it is whole; returns it."""
    place = folder / name_of(arch)
    with tempfile.TemporaryDirectory(dir=folder, prefix=f"make.{arch}.") as name:
        work = pathlib.Path(name)
        archive = work / "packages.tar"
        common.say(f"fetching Debian's headers and libraries for {arch}")
        _run(_fetch_command(arch, archive), work,
             f"mmdebstrap for {arch} (for users without root's rights it needs uidmap, and numbers "
             "of their own in /etc/subuid)")
        root = work / "root"
        root.mkdir()
        _run(["tar", "--extract", f"--file={archive}", f"--directory={root}", "--no-same-owner",
              "--delay-directory-restore", *(f"--exclude={pattern}" for pattern in NOT_UNPACKED)],
             work, "unpacking the sysroot")
        relink(root)
        root.chmod(0o755)
        root.rename(place)
    return place


@contextlib.contextmanager
def _alone(folder, arch):
    """Lets one process at a time make a sysroot, and removes what one that was killed left."""
    with (folder / f"{arch}.lock").open("w", encoding="utf-8") as lock:
        fcntl.flock(lock, fcntl.LOCK_EX)
        for left in folder.glob(f"make.{arch}.*"):
            shutil.rmtree(left)
        yield


def find_or_make(arch):
    """The sysroot of a processor, `armhf` or `arm64`; it is made where there is none, below
    /var/cache for root and in the user's cache otherwise. Raises Failed."""
    found = find(arch)
    if found is not None:
        return found
    folder = folders()[0 if os.geteuid() == 0 else 1]
    folder.mkdir(parents=True, exist_ok=True)
    with _alone(folder, arch):
        return find(arch) or _make(arch, folder)
