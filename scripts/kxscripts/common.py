# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
"""What the project's scripts share: headlines, setting up, building, the list of sources."""
import pathlib
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent.parent
TAIL = 60  # lines of a log that tell why a build failed


class Failed(Exception):
    """Something that the script needs did not work; the text says what, and where to look."""


def say(text):
    """Prints a headline."""
    print(f"\n== {text}", flush=True)


def setup(*groups):
    """Installs what the groups of scripts/setup need and this machine lacks. Raises Failed."""
    if subprocess.run([ROOT / "scripts" / "setup", *groups], check=False).returncode != 0:
        raise Failed("what is missing could not be installed")


def build(preset, *targets):
    """Configures and builds, quietly when all is well; the output is kept in build/PRESET.log.

    Raises Failed after it has printed the end of the log on standard error."""
    log = ROOT / "build" / f"{preset}.log"
    log.parent.mkdir(exist_ok=True)
    command = ["cmake", "--build", "--preset", preset]
    if targets:
        command += ["--target", *targets]
    with log.open("wb") as output:
        for step in (["cmake", "--preset", preset], command):
            if subprocess.run(step, cwd=ROOT, stdout=output, stderr=subprocess.STDOUT,
                              check=False).returncode != 0:
                break
        else:
            return
    lines = log.read_text(encoding="utf-8", errors="replace").splitlines()
    print("\n".join(lines[-TAIL:]), file=sys.stderr, flush=True)
    raise Failed(f"building the preset {preset} failed; all of it: {log.relative_to(ROOT)}")
