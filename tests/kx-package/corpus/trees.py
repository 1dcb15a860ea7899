#!/usr/bin/python3
# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
"""Checks real software: packages of Debian for armhf, unpacked as the payload of a package.

All of it is made to work together, so every error that `kx-package check` finds is a false alarm: for
a panel that has the packages' dependencies no error may be found; for one of another processor, or
without their libraries, errors must be found in each. Needs the network, and apt; nothing is
installed, and apt's own state stays as it is.

  trees.py --tool build/dev/kx-package [--keep DIR] [PACKAGE...]

Exit status 0: as it should be. 1: otherwise.
"""
import argparse
import collections
import json
import os
import pathlib
import subprocess
import sys
import tempfile

TREES = ("nano", "lighttpd", "python3.11-minimal")
# What a panel has anyway: a shell, the usual tools, an interpreter that scripts name.
PANEL = ("dash", "coreutils", "perl-base", "bash", "passwd")
MANIFEST = """[package]
name = "tree"
title = "{name}"
version = "1"
model = "TP"
os-version = "1"
date = 2026-11-21
processor = "armhf"
panel = "../panel.toml"

[[steps]]
kind = "copy-folder"
[[steps.folders]]
source = "payload"
target = "/"
executable = {executable}
"""


def apt(folder, command, *arguments):
    """Runs apt for armhf with a state of its own, in which nothing is installed."""
    for part in ("state/lists/partial", "cache/archives/partial", "etc"):
        (folder / part).mkdir(parents=True, exist_ok=True)
    (folder / "status").touch()
    options = [f"Dir::State={folder}/state", f"Dir::State::status={folder}/status",
               f"Dir::Cache={folder}/cache", "APT::Architecture=armhf",
               "APT::Architectures::=armhf", "APT::Install-Recommends=false",
               "APT::Sandbox::User=root", "Debug::NoLocking=1"]
    words = [word for option in options for word in ("-o", option)]
    # An archive that is just being changed leaves some of its lists out: the others will do.
    subprocess.run(["apt-get", "-q", "-y", *words, command, *arguments], check=command != "update",
                   stdout=subprocess.DEVNULL)


def unpack(archive, folder):
    """Unpacks a Debian package's files."""
    folder.mkdir(parents=True, exist_ok=True)
    subprocess.run(["dpkg-deb", "-x", archive, folder], check=True)


def merge_usr(root):
    """Lets /bin, /lib and /sbin lead to /usr, as they do on a panel of Debian."""
    for name in ("bin", "lib", "sbin"):
        (root / "usr" / name).mkdir(parents=True, exist_ok=True)
        if (root / name).is_dir() and not (root / name).is_symlink():
            subprocess.run(["cp", "-a", f"{root}/{name}/.", f"{root}/usr/{name}/"], check=True)
            subprocess.run(["rm", "-r", root / name], check=True)
        if not (root / name).is_symlink():
            (root / name).symlink_to(f"usr/{name}")


def make_source(folder, name):
    """Makes the manifest of an unpacked tree. Links that lead out of it, or to folders, are left out:
    no package holds them."""
    payload = folder / "payload"
    executable = []
    for path in sorted(payload.rglob("*")):
        if path.is_symlink() and (not path.exists() or path.is_dir()):
            path.unlink()
        elif path.is_file() and os.access(path, os.X_OK):
            executable.append(str(path.relative_to(payload)))
    (folder / "package.toml").write_text(
        MANIFEST.format(name=name, executable=json.dumps(executable)), encoding="utf-8")


def findings(tool, source, *options):
    """What the check finds: a count of each (severity, identifier), and the errors."""
    done = subprocess.run([tool, "check", "--json", source, *options], capture_output=True,
                          text=True, check=False)
    if done.returncode not in (0, 1):
        sys.exit(f"{source}: exit {done.returncode} {done.stderr}")
    found = json.loads(done.stdout)["findings"]
    return (collections.Counter((each["severity"], each["id"]) for each in found),
            [each["message"] for each in found if each["severity"] == "error"])


def judge(tool, work, name):
    """Checks a tree for three panels; whether all is as it should be."""
    source = work / name
    counts, errors = findings(tool, source)
    programs = sum(1 for path in (source / "payload").rglob("*") if path.is_file()
                   and not path.is_symlink() and path.read_bytes()[:4] == b"\x7fELF")
    print(f"{name}: {sum(1 for path in (source / 'payload').rglob('*') if path.is_file())} files, "
          f"{programs} programs and libraries; " + (", ".join(
              f"{count} x {severity} {ident}" for (severity, ident), count in sorted(counts.items()))
              or "nothing found"))
    for error in errors:
        print(f"  false alarm: {error}")
    other, _ = findings(tool, source, "--processor", "aarch64")
    # An aarch64 may run programs of 32 bits: x86_64 does not run these.
    foreign, _ = findings(tool, source, "--processor", "x86_64")
    bare, _ = findings(tool, source, "--panel", work / "bare.toml")
    print(f"  on other panels: aarch64 {other['warning', 'program-processor']} warnings, "
          f"x86_64 {foreign['error', 'program-processor']} errors, "
          f"without libraries {bare['error', 'program-library']} errors")
    return not errors and foreign["error", "program-processor"] > 0 and \
        bare["error", "program-library"] > 0


def main():
    """Downloads, unpacks, checks."""
    parser = argparse.ArgumentParser()
    parser.add_argument("--tool", required=True)
    parser.add_argument("--keep", help="work in this folder, and keep it")
    parser.add_argument("packages", nargs="*", default=TREES)
    options = parser.parse_args()
    tool = os.path.abspath(options.tool)
    with tempfile.TemporaryDirectory() as temporary:
        work = pathlib.Path(options.keep or temporary).resolve()
        archives = work / "cache" / "archives"
        if not list(archives.glob("*.deb")):
            apt(work, "update")
            apt(work, "install", "--download-only", *options.packages, *PANEL)
        for archive in sorted(archives.glob("*.deb")):
            name = archive.name.split("_")[0]
            place = work / name / "payload" if name in options.packages else work / "root"
            unpack(archive, place)
        merge_usr(work / "root")
        (work / "root/usr/bin/sh").unlink(missing_ok=True)
        (work / "root/usr/bin/sh").symlink_to("dash")
        (work / "panel.toml").write_text('processor = "armhf"\nroot = "root"\n', encoding="utf-8")
        (work / "bare.toml").write_text('processor = "armhf"\nlibraries = []\n', encoding="utf-8")
        for name in options.packages:
            make_source(work / name, name)
        good = [judge(tool, work, name) for name in options.packages]
        return 0 if good and all(good) else 1


if __name__ == "__main__":
    sys.exit(main())
