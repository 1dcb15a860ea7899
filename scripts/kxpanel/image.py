# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
"""Makes the image of a panel that an emulator starts: Debian, the packages of scripts/packages, the
panel's own tools and an application, as packaging/image says it. The image stands on a desk: its serial
line is a root shell without a password. What is made of Debian's packages is kept; when nothing has
changed, nothing is made."""
import argparse
import json
import os
import shutil
import sys
import tempfile
import pathlib
import time

from kxpanel import desk, parts, plan
from kxpanel.machine import read_image
from kxscripts import common, cross, debs, foreign, processes, sysroot
from kxscripts.common import ROOT, Failed

RESULTS = ROOT / "build/panel-image"
PACKAGES = ("kx-updater", "kx-panel")
# What of the sources gets onto the panel with our packages: all but their documents.
PACKAGED = ("CMakeLists.txt", "CMakePresets.json", "cmake/*", "lib/*", "packaging/debian/*", "res/*", "src/*",
            "tools/*")
APPLICATION = plan.IMAGE / "application"


def own_packages(arch, folder):
    """Our packages for a processor; they are made when their sources have changed. Raises Failed."""
    made_of = plan.digest(*(text for name in common.sources(*PACKAGED)
                            for text in (name, ROOT / name)))
    note = folder / "packages.json"
    try:
        known = json.loads(note.read_text(encoding="utf-8"))
        files = [pathlib.Path(file) for file in known["files"]]
        if known["made-of"] == made_of and all(file.exists() for file in files):
            return files
    except (FileNotFoundError, KeyError, ValueError):
        pass
    made = debs.make(ROOT, arch)
    files = [file for name in PACKAGES for file in made
             if file.name.startswith(f"{name}_") and file.suffix == ".deb"]
    if len(files) != len(PACKAGES):
        raise Failed(f"scripts/packages {arch} did not make {' and '.join(PACKAGES)}")
    note.write_text(json.dumps({"made-of": made_of, "files": [str(file) for file in files]}),
                    encoding="utf-8")
    return files


def application(arch, folder):
    """The files of the application of the machine; it is built when it is not. Raises Failed."""
    made_of = plan.digest(APPLICATION, ROOT / "cmake/toolchains", sysroot.name_of(arch))
    build = folder / f"application-{made_of}"
    program = build / "application"
    if not program.exists():
        log = folder / "application.log"
        with log.open("wb") as output:
            for step in (["cmake", "-G", "Ninja", "-S", APPLICATION, "-B", build,
                          f"--toolchain={ROOT}/cmake/toolchains/{arch}.cmake",
                          f"-DKX_SYSROOT={sysroot.find_or_make(arch)}", "-DCMAKE_BUILD_TYPE=Release"],
                         ["cmake", "--build", build],
                         [f"{sysroot.TRIPLES[arch]}-strip", program]):
                if processes.run(step, cwd=ROOT, output=output) != 0:
                    program.unlink(missing_ok=True)
                    raise Failed(f"{common.tail_of(log, 20)}\nthe application could not be built")
    return [program, APPLICATION / "version"]


def key(folder):
    """The private key that the panel trusts, made when it is missing; returns the public one's file."""
    private, public = folder / "key.pem", folder / "key.pub.pem"
    log = folder / "key.log"
    with log.open("wb") as output:
        if not private.exists():
            made = folder / "key.new"
            made.unlink(missing_ok=True)
            os.close(os.open(made, os.O_CREAT | os.O_EXCL, 0o600))
            if processes.run(["openssl", "genpkey", "-algorithm", "ed25519", "-out", made], cwd=folder,
                             output=output) != 0:
                raise Failed(f"openssl could not make a key: {common.tail_of(log, 5)}")
            made.rename(private)
        if processes.run(["openssl", "pkey", "-in", private, "-pubout", "-out", public], cwd=folder,
                         output=output) != 0:
            raise Failed(f"openssl could not read {private}: {common.tail_of(log, 5)}; remove it")
    log.unlink()
    return public


def description(wanted, made_of):
    """What image.json tells of an image."""
    return {"processor": wanted.arch, "kernel": "kernel", "initrd": "initrd", "append": wanted.append,
            "drives": [{"file": f"{name}.img", "format": "raw", "serial": name}
                       for name in wanted.sizes],
            "key": "key.pem", "machine": wanted.machine, "made-of": made_of}


def is_made(folder, told):
    """Whether the folder has the image of that description."""
    try:
        known = json.loads((folder / "image.json").read_text(encoding="utf-8"))
    except (FileNotFoundError, ValueError):
        return False
    files = [told["kernel"], told["initrd"], *(drive["file"] for drive in told["drives"])]
    return known == told and all((folder / name).exists() for name in files)


def put_together(wanted, order, found, told, folder):
    """Makes the files of an image beside their places, which they take when all are complete. Raises
    Failed."""
    with tempfile.TemporaryDirectory(dir=folder, prefix="make.") as name:
        work = pathlib.Path(name)
        log = folder / "image.log"
        with log.open("wb") as output:
            status = foreign.run(["/usr/bin/python3", "-B", "-m", "kxpanel.inside",
                                  json.dumps({**order, "target": str(work)})], cwd=ROOT, output=output)
        if status != 0:
            raise Failed(f"{common.tail_of(log, 20)}\nthe image could not be made; all of it: {log}")
        (work / "kernel").write_bytes(parts.bootable(found, wanted.arch))
        parts.make_first_files(found, wanted, work / "initrd", work)
        (folder / "image.json").unlink(missing_ok=True)
        for file in work.iterdir():
            file.rename(folder / file.name)
        (folder / "image.json").write_text(json.dumps(told, indent=2) + "\n", encoding="utf-8")


def make(arch):
    """Makes the image for a processor; returns 0. Raises Failed."""
    began = time.monotonic()
    common.setup("emulator", "packages", *cross.groups_of(arch))
    folder = RESULTS / arch
    folder.mkdir(parents=True, exist_ok=True)
    for left in folder.glob("make.*"):
        shutil.rmtree(left)
    wanted = plan.read(arch)
    own, program, public = own_packages(arch, folder), application(arch, folder), key(folder)
    base, found = parts.base(wanted), parts.kernel(wanted)
    made_of = plan.digest(plan.IMAGE, plan.PANEL, pathlib.Path(__file__).parent / "inside.py", base.name,
                          str(found.modules), found.image, *own, *program, public)
    told = description(wanted, made_of)
    if is_made(folder, told):
        print(f"{folder.relative_to(ROOT)}: nothing has changed")
        return 0
    common.say(f"putting the image for {arch} together")
    order = {"plan": wanted._asdict(), "base": str(base), "modules": str(found.modules),
             "packages": [str(file) for file in own], "key": str(public),
             "application": [str(file) for file in program]}
    put_together(wanted, order, found, told, folder)
    for name in ("root.img", "user.img", "kernel", "initrd"):
        size = (folder / name).stat()
        print(f"{(folder / name).relative_to(ROOT)}: {size.st_size >> 20} MiB, "
              f"{size.st_blocks * 512 >> 20} MiB of them written")
    print(f"made in {time.monotonic() - began:.0f} s")
    return 0


def main():
    """Does what the command line asks for."""
    parser = argparse.ArgumentParser(prog="scripts/panel-image", description=__doc__)
    parser.add_argument("--processor", choices=plan.PROCESSORS, default="armhf",
                        help="the panel's processor, as Debian calls it; armhf by default")
    parser.add_argument("--start", action="store_true",
                        help="start the panel afterwards, with its serial line on the terminal")
    parser.add_argument("--display", metavar="WHERE", default="none",
                        help="where the started panel's screen is shown, as QEMU's option -display says "
                             "it: vnc=localhost:1, or gtk, which needs qemu-system-gui; nowhere by default")
    parser.add_argument("--screen", metavar="WIDTHxHEIGHT", default="800x480",
                        help="the size of the started panel's screen; 800x480 by default")
    parser.add_argument("--drive", metavar="FILE",
                        help="the image of a USB drive, which can be plugged into the started panel")
    options = parser.parse_args()

    def work():
        size = desk.size_of(options.screen)
        status = make(options.processor)
        if options.start:
            image = read_image(RESULTS / options.processor / "image.json")
            desk.start(image, options.display, size, options.drive)
        return status
    return common.run_script("scripts/panel-image", work)


if __name__ == "__main__":
    sys.exit(main())
