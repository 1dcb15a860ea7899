#!/usr/bin/python3
# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
"""Runs on the sandboxed device: unpacks packages, installs them, and tells what came of it.

Standard input has one JSON object a line: the package's file, what it promises (or null), and
whether to install it. Standard output has one line for each.
"""

import hashlib
import json
import os
import re
import resource
import shutil
import stat
import subprocess
import sys

UNPACKED = b"/mnt/user/corpus.temp"
UPDATER = "/opt/kx/kx_Updater"
REGISTRY = "/var/lib/KxUserPackages"
KIT = "/opt/kx"
ENVIRONMENT = {"PATH": os.environ["PATH"], "HOME": "/root"}


def bounds():
    """Limits of what a hostile package can make a tool do."""
    resource.setrlimit(resource.RLIMIT_CPU, (20, 20))
    resource.setrlimit(resource.RLIMIT_FSIZE, (1 << 28, 1 << 28))


def tool(*command, locale="C"):
    """Runs a tool and returns its exit status."""
    try:
        return subprocess.run(command, stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
                              stderr=subprocess.DEVNULL, timeout=60, preexec_fn=bounds,
                              check=False, env={**ENVIRONMENT, "LC_ALL": locale}).returncode
    except (OSError, subprocess.TimeoutExpired):
        return -1


def install():
    """Runs the installer; returns its exit status and the step that it says has failed."""
    try:
        done = subprocess.run([UPDATER, "-unzipedDir", UNPACKED], stdin=subprocess.DEVNULL,
                              stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, timeout=60,
                              preexec_fn=bounds, check=False, env={**ENVIRONMENT, "LC_ALL": "C"})
    except (OSError, subprocess.TimeoutExpired):
        return -1, None
    failed = re.findall(rb"^Installation failed in step (\d+)\.$", done.stdout, re.M)
    return done.returncode, int(failed[-1]) if failed else None


def record():
    """What the record lists: folders and files; None when there is none."""
    try:
        with open(REGISTRY + "/corpus/installedFile.list", "rb") as file:
            lines = file.read().decode("latin1").split("\n")
    except OSError:
        return None
    files = lines.index(" #file")
    return [lines[1:files], lines[files + 1:-1]]


def tree(folder):
    """Every file below a folder: kind, content, and whether it can be executed."""
    found = {}
    for place, folders, names in os.walk(folder):
        for name in folders + names:
            path = os.path.join(place, name)
            info = os.lstat(path)
            if stat.S_ISDIR(info.st_mode):
                continue
            if stat.S_ISLNK(info.st_mode):
                content = b"link " + os.readlink(path)
            else:
                with open(path, "rb") as file:
                    content = file.read()
            found[os.path.relpath(path, folder).decode("latin1")] = [
                hashlib.sha1(content).hexdigest(), bool(info.st_mode & 0o100)]
    return found


def clear():
    """Takes away what the packages before left, wherever their targets were."""
    left = [os.path.join(folder, name) for folder in ("/opt", "/mnt/user")
            for name in os.listdir(folder)]
    for path in left:
        if path == KIT:
            continue
        if os.path.isdir(path) and not os.path.islink(path):
            shutil.rmtree(path, ignore_errors=True)
        elif os.path.lexists(path):
            os.unlink(path)
    shutil.rmtree(REGISTRY, ignore_errors=True)


def has_arrived(source, target, mode):
    """Tells whether a file is at its target, with its mode where that is a number."""
    if b"\0" in target or not target.startswith(b"/") or not os.path.isfile(target):
        return False
    with open(target, "rb") as one, open(source, "rb") as other:
        if one.read() != other.read():
            return False
    mode = (mode or "").strip()
    return not mode or not set(mode) <= set("01234567") or \
        stat.S_IMODE(os.stat(target).st_mode) == int(mode, 8)


def is_kept(promise):
    """Tells whether files and settings are as promised."""
    for target, said in promise["files"].items():
        source = os.path.join(UNPACKED, os.fsencode(said["source"]))
        if not has_arrived(source, os.fsencode(target), said["mode"]):
            return False
    for folder, target in promise["folders"]:
        folder = os.path.join(UNPACKED, os.fsencode(folder))
        found = [os.path.join(place, name) for place, _, names in os.walk(folder)
                 for name in names]
        # A folder without files keeps no promise.
        if not found or not all(has_arrived(
                source, os.path.join(os.fsencode(target), os.path.relpath(source, folder)), None)
                for source in found):
            return False
    listed = subprocess.run(["kx-setting-cui", "list"], capture_output=True, check=False).stdout
    settings = listed.decode("utf-8", "surrogateescape").splitlines()
    return all(f"{name}={value}" in settings for name, value in promise["settings"].items())


def main():
    """Takes one package after the other."""
    for line in sys.stdin:
        job = json.loads(line)
        result = {"unzip": [], "trees": [], "runs": None, "install": None, "kept": None,
                  "failedStep": None, "record": None}
        for locale in ["C.UTF-8", "C"]:
            clear()
            os.mkdir(UNPACKED)
            result["unzip"].append(tool("unzip", "-o", job["file"], "-d", UNPACKED, locale=locale))
            result["trees"].append(tree(UNPACKED))
        if result["unzip"] == [0, 0]:
            result["runs"] = tool(os.path.join(UNPACKED, b"kx_Updater")) == 0
            if job["install"]:
                result["install"], result["failedStep"] = install()
                result["record"] = record()
                if result["install"] == 0 and job["promise"] is not None:
                    try:
                        result["kept"] = is_kept(job["promise"])
                    except OSError:
                        result["kept"] = False
        print(json.dumps(result), flush=True)


main()
