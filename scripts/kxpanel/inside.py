# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
"""Puts the files of a panel together and makes the images of its drives. Runs as root of namespaces in
which the panel's programs run (kxscripts.foreign), with what it makes in memory.

    python3 -m kxpanel.inside JSON"""
import json
import os
import pathlib
import shutil
import subprocess
import sys

from kxpanel import plan

UNITS = "etc/systemd/system"
# Identities that stay the same, so that images of the same files differ in their times alone.
IDENTITIES = {"root": "5f1c2d1e-7d0b-4b1c-9a52-6b782d726f74", "user": "5f1c2d1e-7d0b-4b1c-9a52-6b7875736572"}


def call(*words, **keywords):
    """Runs a tool to its good end."""
    subprocess.run([str(word) for word in words], check=True, **keywords)


def install(root, order):
    """Puts everything into the root: the packages of Debian and ours, the kernel's modules, the files
    of the image and what starts the updater."""
    wanted = plan.Plan(**order["plan"])
    call("tar", "--extract", f"--file={order['base']}", f"--directory={root}", "--exclude=./dev/*")
    for name in wanted.removed:
        path = root / name
        if path.is_dir() and not path.is_symlink():
            shutil.rmtree(path)
        else:
            path.unlink(missing_ok=True)
    modules = pathlib.Path(order["modules"])
    shutil.copytree(modules, root / "usr/lib/modules" / modules.name)
    call("chroot", root, "depmod", modules.name)
    install_packages(root, order["packages"])
    list_fonts(root)
    copy_tree(plan.IMAGE / "root", root)
    panel_toml = root / "etc/kx_Updater/panel.toml"
    panel_toml.write_text(panel_toml.read_text(encoding="utf-8").replace("@PROCESSOR@", wanted.processor),
                          encoding="utf-8")
    give(plan.PANEL / "90-kx-updater.rules", root / "etc/udev/rules.d/90-kx-updater.rules")
    give(plan.PANEL / "kx-updater@.service", root / UNITS / "kx-updater@.service")
    give(plan.PANEL / "start", root / "usr/libexec/kx-updater/start")
    give(pathlib.Path(order["key"]), root / "etc/kx_Updater/keys/desk.pub.pem")
    set_up_units(root / UNITS, wanted)
    for name in ("dev", "mnt/usb", "mnt/user", "proc", "run", "sys", "tmp", "var/log", "var/tmp",
                 "var/lib/KxUserPackages"):
        (root / name).mkdir(parents=True, exist_ok=True)
    # Without one of its own the panel makes one up at each start, and keeps it in memory.
    (root / "etc/machine-id").write_bytes(b"")


def list_fonts(root):
    """Lists the fonts, which otherwise every program of Qt does anew at its start. The lists hold the
    times of folders, of which the drive's image keeps whole seconds."""
    fonts = root / "usr/share/fonts"
    for folder in [fonts, *(path for path in fonts.rglob("*") if path.is_dir())]:
        seconds = int(folder.stat().st_mtime)
        os.utime(folder, (seconds, seconds))
    call("chroot", root, "fc-cache", "--system-only", "--force")


def install_packages(root, packages):
    """Installs packages with the panel's own dpkg."""
    place = root / "tmp/packages"
    place.mkdir(parents=True)
    for package in packages:
        shutil.copy(package, place)
    names = [f"/tmp/packages/{pathlib.Path(package).name}" for package in packages]
    call("chroot", root, "dpkg", "--install", *names, env={**os.environ, "LC_ALL": "C",
                                                           "DEBIAN_FRONTEND": "noninteractive"})
    shutil.rmtree(place)


def copy_tree(source, target):
    """Copies a folder into one that may be there; files are root's, as they are in the sources, where
    nobody keeps more of their modes than whether they can be run."""
    for path in sorted(source.rglob("*")):
        place = target / path.relative_to(source)
        if path.is_dir():
            place.mkdir(exist_ok=True)
        elif path.name != ".gitkeep":
            give(path, place)


def give(source, target):
    """Copies a file to a place whose folders are made; the mode tells whether it can be run."""
    for folder in reversed(target.parents):
        folder.mkdir(exist_ok=True)
    shutil.copyfile(source, target)
    target.chmod(0o755 if os.access(source, os.X_OK) else 0o644)


def set_up_units(folder, wanted):
    """Enables and masks units as systemctl does."""
    (folder / "default.target").unlink(missing_ok=True)
    (folder / "default.target").symlink_to("/usr/lib/systemd/system/multi-user.target")
    wants = folder / "multi-user.target.wants"
    wants.mkdir(exist_ok=True)
    for unit in wanted.enabled:
        (wants / unit).symlink_to(f"/{UNITS}/{unit}")
    for unit in wanted.masked:
        (folder / unit).unlink(missing_ok=True)
        (folder / unit).symlink_to("/dev/null")


def make_drive(name, folder, target, size):
    """Makes the image of a drive, of `size` MiB, with the files of a folder. What is written at the
    first start otherwise is written now, because it costs nothing here."""
    file = pathlib.Path(target) / f"{name}.img"
    with file.open("wb") as image:
        image.truncate(size << 20)
    identity = IDENTITIES[name]
    call("mke2fs", "-q", "-t", "ext4", "-L", name, "-m", "0", "-U", identity, "-E",
         f"hash_seed={identity},lazy_itable_init=0,lazy_journal_init=0", "-d", folder, file)


def main():
    """Makes what the order tells."""
    order = json.loads(sys.argv[1])
    os.umask(0o022)
    work = pathlib.Path(os.environ["TMPDIR"])
    root, user = work / "root", work / "user"
    for folder in (root, user):
        folder.mkdir()
    install(root, order)
    copy_tree(plan.IMAGE / "user", user)
    for file in order["application"]:
        give(pathlib.Path(file), user / "application" / pathlib.Path(file).name)
    for name, folder in (("root", root), ("user", user)):
        make_drive(name, folder, order["target"], order["plan"]["sizes"][name])
    return 0


if __name__ == "__main__":
    sys.exit(main())
