# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
"""The packages that the roads install, made when they are wanted."""
import pathlib
import random
import shutil
import textwrap

from kxpanel.drives import run
from kxscripts import common

NAME = "machine"
SIGNED = "signed"
TEXTS = 60          # small files: each is a command of the installer's
TEXT_BYTES = 700
PROCESSORS = {"armhf": "arm", "arm64": "aarch64"}
# Where a package puts what it brings.
APPLICATION = "/mnt/user/application/version"
FOLDER = "/mnt/user/share/machine"
SCRIPTED = "/mnt/user/share/machine.done"

_HEAD = """\
[package]
name = "{name}"
title = "Machine"
version = "{version}"
comment = "A new application"
model = "TP-0700"
os-version = "2.1.0"
date = 2026-11-22
processor = "{processor}"
updater = "{updater}"
"""
_STEPS = f"""\
[[steps]]
kind = "copy-files"
comment = "its version"
files = [{{ source = "version", target = "{APPLICATION}", mode = "644" }}]

[[steps]]
kind = "copy-folder"
comment = "texts"
folders = [{{ source = "texts", target = "{FOLDER}" }}]
"""
_SCRIPT = """\
[[steps]]
kind = "script"
comment = "try it"
install = '''
#!/bin/sh
{}
'''
"""
DONE = f"""
echo "Trying the application"
cat {APPLICATION} >{SCRIPTED}
"""


class Packages:
    """Makes packages for the processor of an image, signed with the key that it trusts.

    tool      the program kx-package
    updater   the updater for that processor
    folder    gets the packages"""

    def __init__(self, image, tool, updater, folder):
        self._image = image
        self._tool = pathlib.Path(tool).resolve()
        self._updater = pathlib.Path(updater).resolve()
        self._folder = pathlib.Path(folder)
        self._made = {}

    def _once(self, word, make):
        """The file of a package, which is made the first time."""
        if word not in self._made:
            folder = self._folder / word
            shutil.rmtree(folder, ignore_errors=True)
            folder.mkdir(parents=True)
            self._made[word] = make(folder)
        return self._made[word]

    def _build(self, folder, version, script=DONE, name=NAME, ballast=0):
        """Builds a package in an empty folder.

        ballast   bytes of a file that cannot be made smaller"""
        source = folder / "source"
        texts(source / "texts", version)
        if ballast:
            (source / "texts" / "ballast").write_bytes(random.Random(ballast).randbytes(ballast))
        (source / "version").write_text(version + "\n", encoding="utf-8")
        manifest = _HEAD.format(name=name, version=version, updater=self._updater,
                                processor=PROCESSORS[self._image.processor])
        manifest += _STEPS + _SCRIPT.format(script.strip())
        (source / "package.toml").write_text(manifest, encoding="utf-8")
        file = folder / f"{name}.kx-update"
        run([self._tool, "build", source, "-o", file], "build")
        return file

    def good(self, version="2.0.0"):
        """A package that brings the application in a version."""
        return self._once(f"good-{version}", lambda folder: self._build(folder, version))

    def large(self, mebibytes=12):
        """One that takes a while to be unpacked and to be copied."""
        return self._once(f"large-{mebibytes}", lambda folder: self._build(
            folder, "2.0.0", ballast=mebibytes << 20))

    def failing(self):
        """One whose last step fails."""
        return self._once("failing", lambda folder: self._build(
            folder, "2.0.0", 'echo "The board does not answer"\nexit 3'))

    def waiting(self):
        """One whose last step waits as long as there is a file /run/kx-tests/wait."""
        return self._once("waiting", lambda folder: self._build(
            folder, "2.0.0", "while [ -e /run/kx-tests/wait ]; do sleep 0.2; done\n" + DONE))

    def signed(self, version="2.0.0", mebibytes=0):
        """A good one with the signature of the key that the image trusts."""
        def make(folder):
            file = self._build(folder, version, ballast=mebibytes << 20)
            run([self._tool, "sign", "--key", self._image.key, file], "build")
            return file
        return self._once(f"{SIGNED}-{version}-{mebibytes}", make)

    def unknown(self):
        """One that is signed by somebody whom the panel does not know."""
        def make(folder):
            file = self._build(folder, "2.0.0")
            run([self._tool, "key", "new", "stranger"], "build", cwd=folder)
            run([self._tool, "sign", "--key", folder / "stranger.key.pem", file], "build")
            return file
        return self._once("unknown", make)

    def damaged(self, good):
        """A copy of a package with another byte in the middle."""
        def make(folder):
            data = bytearray(good.read_bytes())
            data[len(data) // 2] ^= 0x55
            file = folder / good.name
            file.write_bytes(data)
            return file
        return self._once(f"damaged-{good.parent.name}", make)


def texts(folder, version):
    """Makes the small files that a package of that version brings; returns their contents by name."""
    folder.mkdir(parents=True)
    made = text_contents(version)
    for name, content in made.items():
        (folder / name).write_bytes(content)
    return made


def text_contents(version):
    """What the small files of a version hold, by name."""
    numbers = random.Random(version)
    return {f"text-{number:03}": textwrap.fill(numbers.randbytes(TEXT_BYTES // 2).hex(), 70).encode()
            for number in range(TEXTS)}


def tools():
    """Where the build leaves kx-package."""
    return common.ROOT / "build" / "release" / "kx-package"
