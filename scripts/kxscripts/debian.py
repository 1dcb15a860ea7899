# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
"""Packages of Debian that are unpacked and not installed: apt fetches and verifies them, for this
computer or, with settings of its own, for another processor."""
import fnmatch
import os
import pathlib
import re
import subprocess
import tarfile

from kxscripts import common, processes, sysroot
from kxscripts.common import Failed

# With a sandbox of its own apt could not write into a folder that is closed to others.
SETTINGS = """\
APT::Architecture "{arch}";
APT::Architectures {{ "{arch}"; }};
APT::Sandbox::User "root";
Acquire::Languages "none";
Dir::Cache "{folder}/cache";
Dir::Etc::sourcelist "{folder}/sources.list";
Dir::Etc::sourceparts "/dev/null";
Dir::State "{folder}";
Dir::State::lists "{folder}/lists";
Dir::State::status "/dev/null";
"""


def folders(name):
    """Where what was made of packages may lie: the computer's folder, and the user's."""
    own = os.environ.get("XDG_CACHE_HOME") or pathlib.Path.home() / ".cache"
    return [pathlib.Path(folder) / "kx-updater" / name for folder in ("/var/cache", own)]


def source():
    """The line that tells apt where Debian's packages are, as this computer's apt has it. The part
    with the security fixes is left out: what is made of packages is tried, and not handed out."""
    return f"deb {sysroot.archive_address()} {sysroot.SUITE} {sysroot.COMPONENT}\n"


def settings_for(arch, folder):
    """Lets apt know the packages for a processor, with all that it keeps in an empty folder; returns
    the environment that apt's tools are started with. Raises Failed."""
    for name in ("lists/partial", "cache/archives/partial"):
        (folder / name).mkdir(parents=True)
    (folder / "sources.list").write_text(source(), encoding="utf-8")
    settings = folder / "apt.conf"
    settings.write_text(SETTINGS.format(arch=arch, folder=folder), encoding="utf-8")
    environment = {**os.environ, "APT_CONFIG": str(settings)}
    log = folder / "update.log"
    with log.open("wb") as output:
        status = processes.run(["apt-get", "update", "-q"], cwd=folder, output=output,
                               env=environment)
    if status != 0:
        raise Failed(f"apt-get could not read the list of packages for {arch}:\n"
                     f"{common.tail_of(log, 10)}")
    return environment


def newest(metapackage, env=None):
    """The package with its version that a metapackage depends on, as apt-get takes it; `env` is the
    environment of apt. Raises Failed."""
    done = subprocess.run(["apt-cache", "show", "--no-all-versions", metapackage], env=env,
                          capture_output=True, text=True, check=False)
    named = re.search(r"^Depends: (linux-image-\S+) \(= (\S+?)\)", done.stdout, flags=re.M)
    if not named:
        raise Failed(f"apt knows no {metapackage}, which names the kernel: {done.stderr.strip()}")
    return "=".join(named.groups())


def download(package, folder, env=None):
    """Lets apt fetch and verify a package into an empty folder; returns its file. Raises Failed."""
    log = folder / "apt.log"
    with log.open("wb") as output:
        status = processes.run(["apt-get", "download", "-q", package], cwd=folder, output=output,
                               env=env)
    files = list(folder.glob("*.deb"))
    if status != 0 or len(files) != 1:
        raise Failed(f"apt-get could not download {package}:\n{common.tail_of(log, 10)}")
    return files[0]


def unpack(package, folder, wanted):
    """Unpacks the files of a package whose names match one of the patterns `wanted`, without owners
    and modes. Raises Failed."""
    with subprocess.Popen(["dpkg-deb", "--fsys-tarfile", package],
                          stdout=subprocess.PIPE) as reader:
        with tarfile.open(fileobj=reader.stdout, mode="r|") as members:
            for member in members:
                name = os.path.normpath(member.name)
                if member.isfile() and any(fnmatch.fnmatchcase(name, pattern) for pattern in wanted):
                    member.name = name
                    members.extract(member, folder, set_attrs=False)
    if reader.returncode != 0:
        raise Failed(f"dpkg-deb could not read {package}")
