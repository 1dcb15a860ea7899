# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
"""The package that the demonstration, the pictures and some tests install: the first two examples
in one.

  cd scripts && python3 -B -m kxscripts.hello FOLDER    makes its sources in FOLDER
"""
import os
import pathlib
import shutil
import subprocess
import sys
import tempfile

from kxscripts.common import Failed, ROOT

PACKER = ROOT / "build/release/kx-package"
COMMENTS = ('comment = "Installs a greeting and its texts"',
            'comment = "Installs a greeting, its texts and a start-up script"')
# A step that takes a few seconds, so that there is something to look at while it installs. It lasts
# as long as the panel has a file /run/look.
LOOK_AROUND = '''
[[steps]]
kind = "script"
comment = "look around"
install = """
#!/bin/sh
for part in 1 2 3 4; do
    echo "Checking the panel, part $part of 4"
    sleep 0.5
done
while [ -e /run/look ]; do
    sleep 0.1
done
"""
'''


def source(folder):
    """Makes the sources in a folder, which may be new.

    Raises Failed when the examples are others than this module knows."""
    folder = pathlib.Path(folder)
    for name in ("settings", "hello"):
        shutil.copytree(ROOT / "examples" / name, folder, copy_function=shutil.copy,
                        dirs_exist_ok=True)
    manifest = folder / "package.toml"
    text = manifest.read_text(encoding="utf-8")
    before, after = COMMENTS
    settings = (ROOT / "examples/settings/package.toml").read_text(encoding="utf-8")
    _, start, steps = settings.partition("\n[[steps]]\n")
    if text.count(before) != 1 or not start:
        raise Failed("the examples hello and settings do not go together any more; "
                     "see scripts/kxscripts/hello.py")
    manifest.write_text(text.replace(before, after) + start.lstrip("\n") + steps, encoding="utf-8")


def pack(file):
    """Packs the sources and LOOK_AROUND with packer and updater of the release build, which must be
    there, for the processor of this machine. Tells what it made on standard output. Raises Failed.
    """
    with tempfile.TemporaryDirectory(prefix="kx-hello.") as folder:
        source(folder)
        with open(os.path.join(folder, "package.toml"), "a", encoding="utf-8") as manifest:
            manifest.write(LOOK_AROUND)
        command = [PACKER, "build", folder, "-o", file, "--processor", os.uname().machine]
        if subprocess.run(command, check=False).returncode != 0:
            raise Failed(f"{file} cannot be made")


def main(arguments):
    """The command line; returns the exit status."""
    if len(arguments) != 1:
        print("hello: needs one FOLDER", file=sys.stderr)
        return 2
    try:
        source(arguments[0])
    except (Failed, OSError) as error:
        print(f"hello: {error}", file=sys.stderr)
        return 1
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
