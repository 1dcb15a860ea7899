# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
"""The end of a demonstration: the package, signed, is decided on and installed without a window, on
a fresh panel; one with a changed byte is refused."""
import os
import pathlib
import shutil
import tempfile

from kxscripts.common import say

_RELEASE = "build/release"
_PANEL_FILE = """\
format = 1
models = ["TP-0700"]
os-versions = ["2.1.0"]
processor = "{processor}"
"""
# What is typed on the panel, and how it must end.
_SCRIPT = """\
shown() {
    expected=$1
    shift
    printf '\\n$ %s\\n' "$*"
    "$@"
    status=$?
    [ "$status" -eq 0 ] || echo "(exit status $status)"
    [ "$status" -eq "$expected" ] || exit 1
}
cd /mnt/user/updates || exit
shown 0 kx-panel check Hello.kx-update
shown 0 kx-panel install Hello.kx-update
shown 1 kx-panel install Changed.kx-update
shown 0 kx-panel status
"""
_LOCALES = {"ja": "ja_JP.UTF-8"}


def show(stage):
    """Signs the package with a key that is made for this and thrown away, and shows what a panel
    that trusts the key does with it. Raises Failed."""
    with tempfile.TemporaryDirectory(prefix="signed.", dir=stage.folder) as name:
        folder = pathlib.Path(name).resolve()
        updates, panel = folder / "updates", folder / "panel"
        say("Signing the package, for panels that ask who has made it")
        _sign(stage, folder, updates)
        _make_panel(folder, panel)
        _change_a_byte(updates / stage.package.name, updates / "Changed.kx-update")
        say("Deciding on it and installing it without a window, on a fresh panel")
        stage.need("device/run", "--put", f"{panel}=/etc/kx_Updater",
                   "--put", f"{_RELEASE}/kx-panel=/usr/bin/kx-panel",
                   "--put", f"{_RELEASE}/kx_Updater=/usr/bin/kx_Updater",
                   "--share", f"{updates}=/mnt/user/updates",
                   "--env", f"LC_ALL={_LOCALES.get(stage.options.lang, 'C.UTF-8')}",
                   "--", "/bin/sh", "-c", _SCRIPT, together=True)


def _sign(stage, folder, updates):
    updates.mkdir()
    package = updates / stage.package.name
    shutil.copy(stage.package, package)
    tool = os.path.abspath(f"{_RELEASE}/kx-package")
    stage.need("env", "-C", folder, tool, "key", "new", "demonstration")
    stage.need("env", "-C", updates, tool, "sign", "--key", "../demonstration.key.pem", package.name)


def _make_panel(folder, panel):
    """Makes the folder that says what the panel is, and whom it trusts: its owner's alone."""
    keys = panel / "keys"
    keys.mkdir(parents=True)
    shutil.copy(folder / "demonstration.pub.pem", keys)
    (panel / "panel.toml").write_text(_PANEL_FILE.format(processor=os.uname().machine),
                                      encoding="utf-8")
    for path in (panel, *panel.rglob("*")):
        path.chmod(0o755 if path.is_dir() else 0o644)


def _change_a_byte(source, target):
    """Copies a file with another byte in its middle."""
    data = bytearray(source.read_bytes())
    data[len(data) // 2] ^= 1
    target.write_bytes(data)
