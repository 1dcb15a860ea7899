# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
"""Makes the Debian packages of the updater and the companion programs, for this machine's processor or
for others, from a copy of the sources; build/packages holds them in the end, and lintian has nothing
to say about them. Nothing is installed."""
import argparse
import os
import pathlib
import re
import shutil
import subprocess
import sys

from kxscripts import common, processes, reproducible, sysroot
from kxscripts.common import ROOT, Failed

ARCHITECTURES = ("amd64", "arm64", "armhf")
SOURCE = "kx-updater"
RESULTS = "build/packages"
REMEDY = "scripts/setup packages installs what is missing"
# What decides about the packages' bytes comes from the sources alone.
NOT_INHERITED = re.compile(r"(DEB|DH)_|(C|CPP|CXX|LD)FLAGS$|SOURCE_DATE_EPOCH$|KX_|CMAKE_(?!.*_LAUNCHER$)")


def own_architecture():
    """What dpkg calls this machine's processor. Raises Failed where there is no dpkg."""
    try:
        done = subprocess.run(["dpkg", "--print-architecture"], capture_output=True, text=True,
                              check=True)
    except (FileNotFoundError, subprocess.CalledProcessError) as error:
        raise Failed("dpkg does not tell this machine's processor; packages are made on Debian") from error
    return done.stdout.strip()


def version_of(root):
    """The release's number, from the changelog of the packages. Raises Failed."""
    changelog = root / "packaging/debian/changelog"
    found = re.match(rf"{SOURCE} \(([^)]+)\) ", changelog.read_text(encoding="utf-8"))
    if found is None:
        raise Failed(f"{changelog}: the first line does not begin with '{SOURCE} (VERSION) '")
    return found[1]


def copied(root, folder):
    """Copies the sources into a folder that is made for it, as Debian's tools want them: with what is
    about packages in `debian`. Returns the copy."""
    copy = folder / f"{SOURCE}-{version_of(root)}"
    copy.mkdir(parents=True)
    reproducible.copied(root, copy)
    (copy / "packaging/debian").rename(copy / "debian")
    return copy


def records_of(root, folder):
    """Copies dpkg's records of a sysroot's packages into a folder that is made for it, with every file
    named by where it is in this machine. Returns the folder."""
    shutil.copytree(root / "var/lib/dpkg", folder)
    # The processor stands in the names of the files.
    (folder / "info/format").write_text("1\n", encoding="utf-8")
    for file in (folder / "info").glob("*.list"):
        names = file.read_text(encoding="utf-8").splitlines()
        file.write_text("".join(f"{root}{name}\n" for name in names), encoding="utf-8")
    return folder


def environment(arch, work):
    """The environment in which packages are made; for another processor than this machine's with its
    sysroot, which is made where there is none."""
    kept = {name: value for name, value in os.environ.items() if not NOT_INHERITED.match(name)}
    kept["LC_ALL"] = "C.UTF-8"
    # Symbols for a debugger are for who looks for a mistake, and builds the programs for that; they
    # would be ten times as big as the packages, and take their time here.
    kept["DEB_BUILD_OPTIONS"] = f"parallel={os.cpu_count()} nocheck noautodbgsym"
    if arch != own_architecture():
        libraries = sysroot.find_or_make(arch)
        kept["KX_SYSROOT"] = str(libraries)
        kept["KX_ADMINDIR"] = str(records_of(libraries, work / "dpkg"))
    return kept


def made(root, arch, work):
    """Makes the packages for a processor below the empty folder `work`; returns the files that came
    out, for this machine's processor with the packaged sources among them. Raises Failed."""
    copy = copied(root, work)
    variables = environment(arch, work)
    own = arch == own_architecture()
    command = ["dpkg-buildpackage", f"--build={'full' if own else 'any'}", f"--host-arch={arch}",
               "--unsigned-source", "--unsigned-changes", "--no-pre-clean",
               # This machine has the other processor's libraries in the sysroot, not installed.
               *([] if own else ["--no-check-builddeps"])]
    log = root / RESULTS / f"{arch}.log"
    with log.open("wb") as output:
        status = processes.run(command, cwd=copy, output=output, env=variables)
    if status != 0:
        print(common.tail_of(log), file=sys.stderr, flush=True)
        raise Failed(f"dpkg-buildpackage for {arch} ended with {status}; all of it: "
                     f"{log.relative_to(root)}. {REMEDY}")
    shutil.rmtree(copy)
    files = sorted(path for path in work.iterdir() if path.is_file())
    if not any(file.suffix == ".deb" for file in files):
        raise Failed(f"dpkg-buildpackage for {arch} made no package")
    return files


def judge(changes, root):
    """Has lintian look at packages. Raises Failed when it has anything to say."""
    status = processes.run(
        ["lintian", "--fail-on", "error,warning,info,pedantic,experimental", "--display-info",
         "--display-experimental", "--pedantic", "--tag-display-limit", "0", "--no-cfg",
         "--allow-root", *changes], cwd=root)
    if status != 0:
        raise Failed("lintian is not content; what is right as it is gets an override in "
                     "packaging/debian, with its reason")


def make(root, arch):
    """Makes the packages for a processor, and puts them into build/packages. Returns the files."""
    results = root / RESULTS
    work = results / "work" / arch
    shutil.rmtree(work, ignore_errors=True)
    work.mkdir(parents=True)
    common.say(f"packages for {arch}")
    files = []
    for file in made(root, arch, work):
        files.append(file.replace(results / file.name))
    shutil.rmtree(work)
    return files


def tell(files):
    """Prints the packages with their sizes."""
    for file in files:
        if file.suffix == ".deb":
            print(f"{file.relative_to(ROOT)}: {file.stat().st_size / 1024:.1f} KiB", flush=True)


def work_on(chosen):
    """Does the work of the script; returns its exit status."""
    for arch in chosen:
        files = make(ROOT, arch)
        judge([file for file in files if file.suffix == ".changes"], ROOT)
        tell(files)
    return 0


def main():
    """Makes what is asked for."""
    parser = argparse.ArgumentParser(prog="scripts/packages", description=__doc__)
    parser.add_argument("architectures", nargs="*", metavar="ARCH",
                        help=f"{', '.join(ARCHITECTURES)}; this machine's by default")
    chosen = parser.parse_args().architectures
    for arch in chosen:
        if arch not in ARCHITECTURES:
            parser.error(f"there are no packages for '{arch}', only for {', '.join(ARCHITECTURES)}")

    def work():
        return work_on(list(dict.fromkeys(chosen)) or [own_architecture()])
    return common.run_script("scripts/packages", work)


if __name__ == "__main__":
    sys.exit(main())
