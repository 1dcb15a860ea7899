# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
"""Makes the Debian packages of the updater and the companion programs, for this machine's processor or
for others, from a copy of the sources; build/packages holds them in the end, and lintian has nothing
to say about them. Nothing is installed."""
import argparse
import email.utils
import os
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile

from kxscripts import common, cross, debs_try, processes, reproducible, sysroot
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


def time_of(root):
    """The time of the release in seconds, from the changelog of the packages. Raises Failed."""
    changelog = root / "packaging/debian/changelog"
    found = re.search(r"^ -- .*>  (.*)$", changelog.read_text(encoding="utf-8"), flags=re.M)
    try:
        return int(email.utils.parsedate_to_datetime(found[1]).timestamp())
    except (TypeError, ValueError) as error:
        raise Failed(f"{changelog}: the first entry does not end with ' -- NAME <ADDRESS>  TIME'") from error


def copied(root, folder):
    """Copies the sources into a folder that is made for it, as Debian's tools want them: with what is
    about packages in `debian`. All of them get the time of the release, for that of a file on this
    computer would go into the packages. Returns the copy."""
    copy = folder / f"{SOURCE}-{version_of(root)}"
    copy.mkdir(parents=True)
    reproducible.copied(root, copy)
    (copy / "packaging/debian").rename(copy / "debian")
    seconds = time_of(root)
    for path in copy.rglob("*"):
        os.utime(path, (seconds, seconds), follow_symlinks=False)
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


def made(root, arch, work, added=None):
    """Makes the packages for a processor in the empty folder `work`; returns the files that came out,
    for this machine's processor with the packaged sources among them. Raises Failed.

    added   variables of the environment besides"""
    copy = copied(root, work)
    variables = environment(arch, work) | (added or {})
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


def refuse_trust(packages):
    """Raises Failed when a package brings a key, or anything below /etc: what a panel is, and whom it
    trusts, is the business of who makes the panel."""
    for package in packages:
        listed = subprocess.run(["dpkg-deb", "--contents", package], capture_output=True, text=True,
                                check=True).stdout
        for name in re.findall(r" (\./\S.*)$", listed, flags=re.M):
            if name.startswith("./etc") or re.search(r"\.(pem|key|der)$|/keys/", name):
                raise Failed(f"{package.name} brings {name}; no package may bring a key, or anything "
                             "below /etc")


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
    came_out = made(root, arch, work)
    for earlier in results.glob(f"*_{arch}.*"):
        earlier.unlink()
    files = [file.replace(results / file.name) for file in came_out]
    shutil.rmtree(work)
    return files


def compare(root, arch, files):
    """Makes the packages for a processor a second time, in another folder and at another time, and
    without what was compiled before. Raises Failed for a package that has other bytes then."""
    common.say(f"the packages for {arch} a second time")
    with tempfile.TemporaryDirectory(prefix="kx-packages.") as name:
        again = {file.name: file for file in
                 made(root, arch, pathlib.Path(name), {"CCACHE_DISABLE": "1", "TZ": "Asia/Tokyo"})}
        different = [file.name for file in files if file.suffix == ".deb"
                     and file.read_bytes() != again[file.name].read_bytes()]
    if different:
        raise Failed(f"made twice, these packages differ: {' '.join(different)}; diffoscope tells in what")


def tell(files):
    """Prints the packages with their sizes."""
    for file in files:
        if file.suffix == ".deb":
            print(f"{file.relative_to(ROOT)}: {file.stat().st_size / 1024:.1f} KiB", flush=True)


def in_results(root, arch):
    """The packages for a processor that build/packages holds. Raises Failed when there are none."""
    files = sorted((root / RESULTS).glob(f"*_{arch}.deb"))
    if not files:
        raise Failed(f"{RESULTS} holds no packages for {arch}; scripts/packages {arch} makes them")
    return files


def try_out(root, arch):
    """Tries the packages for a processor that build/packages holds, and tells what was tried."""
    common.say(f"trying the packages for {arch} in a fresh system")
    work = root / RESULTS / "try" / arch
    debs_try.remove(work)
    work.mkdir(parents=True)
    print("\n".join(debs_try.try_packages(arch, in_results(root, arch), work)), flush=True)
    debs_try.remove(work)


def groups(architectures, tried):
    """The groups of scripts/setup that the work needs."""
    wanted = {"packages", *(["cross"] if tried else [])}
    for arch in set(architectures) - {own_architecture()}:
        wanted.update(cross.groups_of(arch))
    return sorted(wanted)


def work_on(asked):
    """Does the work of the script; returns its exit status."""
    architectures = list(dict.fromkeys(asked.architectures)) or [own_architecture()]
    common.setup(*groups(architectures, asked.tried))
    (ROOT / RESULTS).mkdir(parents=True, exist_ok=True)
    for arch in architectures:
        if not asked.made:
            files = make(ROOT, arch)
            refuse_trust(file for file in files if file.suffix == ".deb")
            judge([file for file in files if file.suffix == ".changes"], ROOT)
            if asked.twice:
                compare(ROOT, arch, files)
            tell(files)
        if asked.tried:
            try_out(ROOT, arch)
    return 0


def main():
    """Makes what is asked for."""
    parser = argparse.ArgumentParser(prog="scripts/packages", description=__doc__)
    parser.add_argument("architectures", nargs="*", metavar="ARCH",
                        help=f"{', '.join(ARCHITECTURES)}; this machine's by default")
    parser.add_argument("--twice", action="store_true",
                        help="makes them a second time, in another folder, and compares the bytes")
    parser.add_argument("--try", dest="tried", action="store_true",
                        help="then installs, upgrades, removes and purges them in a fresh minimal system, "
                        "a folder that is thrown away, and runs their programs there")
    parser.add_argument("--made", action="store_true",
                        help="takes the packages that build/packages holds instead of making them")
    asked = parser.parse_args()
    for arch in asked.architectures:
        if arch not in ARCHITECTURES:
            parser.error(f"there are no packages for '{arch}', only for {', '.join(ARCHITECTURES)}")
    return common.run_script("scripts/packages", lambda: work_on(asked))


if __name__ == "__main__":
    sys.exit(main())
