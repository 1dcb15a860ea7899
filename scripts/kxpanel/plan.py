# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
"""What a panel's image is made of: packaging/image/image.toml, for one processor."""
import hashlib
import os
import pathlib
import tomllib
from typing import NamedTuple

from kxscripts.common import ROOT, Failed

IMAGE = ROOT / "packaging/image"
PANEL = ROOT / "packaging/panel"
PROCESSORS = ("armhf", "arm64")


class Plan(NamedTuple):
    """What is to be made; lists are of texts, as image.toml explains them."""

    arch: str         # as Debian calls the processor
    processor: str    # as packages call it
    packages: list
    left_out: list    # patterns of files that are not unpacked from them, but those of kept
    kept: list
    removed: list
    enabled: list     # units of systemd
    masked: list
    metapackage: str  # of the kernel
    modules: list     # patterns of the kernel's modules
    first: list       # names of those that are loaded before the root is mounted
    append: str       # the kernel's command line
    machine: list     # the emulator's options for the board
    sizes: dict       # of the drives in MiB, by their names


def read(arch, file=IMAGE / "image.toml"):
    """Reads the plan for a processor. Raises Failed."""
    try:
        told = tomllib.loads(file.read_text(encoding="utf-8"))
        base, units, kernel, board = (told[name] for name in ("base", "units", "kernel", "processors"))
        board = board[arch]
        return Plan(arch, board["processor"], base["packages"], base["left-out"], base["kept"],
                    base["removed"], units["enabled"], units["masked"], board["kernel"],
                    kernel["modules"], kernel["first"], kernel["append"], board["machine"],
                    told["sizes"])
    except (KeyError, tomllib.TOMLDecodeError) as error:
        raise Failed(f"{file} does not tell what the image for {arch} is made of: {error!r}") from error


def digest(*contents):
    """A short name for contents: texts, and files and folders with their names and modes below."""
    taken = hashlib.sha256()
    for content in contents:
        if isinstance(content, pathlib.Path):
            for path in sorted([content, *content.rglob("*")]) if content.is_dir() else [content]:
                _take_file(taken, path, path.relative_to(content))
        else:
            taken.update(f"text {len(content)} {content}\n".encode())
    return taken.hexdigest()[:16]


def _take_file(taken, path, name):
    if path.is_symlink():
        taken.update(f"link {name} {os.readlink(path)}\n".encode())
    elif path.is_file():
        data = path.read_bytes()
        taken.update(f"file {name} {path.stat().st_mode & 0o111:o} {len(data)}\n".encode() + data)
