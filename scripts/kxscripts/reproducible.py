# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
"""Checks that the updater, kx-package and kx-panel are the same bytes wherever and beside whatever
they are built, hold no path of the machine that built them, and that the updater and the other two
ask for nothing that only the other side needs: builds each alone, from a copy of the sources in
another folder and with the other side's libraries hidden, and compares them with those of the
release build."""
import argparse
import os
import pathlib
import re
import shutil
import sys
import tempfile

from kxscripts import common, processes

# program: the preset that builds it alone, and where the other side looks for its libraries
ALONE = {
    "kx_Updater": ("panel", ("lib/", "tools/")),
    "kx-package": ("tools", ("CMakeLists.txt", "src/", "res/", "device/")),
    "kx-panel": ("tools", ("CMakeLists.txt", "src/", "res/", "device/")),
}


def copied(root, target):
    """Copies the sources."""
    for name in common.sources(root=root):
        (target / name).parent.mkdir(parents=True, exist_ok=True)
        shutil.copy2(root / name, target / name, follow_symlinks=False)


def hidden(root, places):
    """The options by which nothing is found that is looked for in these folders and files."""
    options = set()
    for name in common.sources("CMakeLists.txt", "*/CMakeLists.txt", root=root):
        if name.startswith(places):
            text = (root / name).read_text(encoding="utf-8")
            for package in re.findall(r"^ *find_package\((\w*)", text, flags=re.M):
                options.add(f"-DCMAKE_DISABLE_FIND_PACKAGE_{package}=ON")
    if not options:
        raise common.Failed(f"no find_package in {' '.join(places)}: there is nothing to hide")
    return sorted(options)


def built_alone(copy, preset, program, options, log):
    """Builds one program in the copy; tells whether that went well."""
    # This build does its own work, whatever was compiled before.
    env = os.environ | {"CCACHE_DISABLE": "1"}
    with log.open("wb") as output:
        for step in (["cmake", "--preset", preset, "-DKX_UNITY=ON", *options],
                     ["cmake", "--build", "--preset", preset, "--target", program]):
            if processes.run(step, cwd=copy, output=output, env=env) != 0:
                return False
    return True


def differences(program, shipped, other, folders):
    """What is wrong with two builds of a program."""
    if shipped.read_bytes() != other.read_bytes():
        yield f"{program} depends on where or with what it is built"
    for file in (shipped, other):
        text = file.read_bytes()
        for folder in folders:
            found = re.search(re.escape(os.fsencode(folder)) + rb"[\x20-\x7e]*", text)
            if found:
                yield f"{program} holds paths of the machine that built it: {found[0].decode()}"


def check(root):
    """Returns 0, or raises Failed after it has told what is wrong, on standard error."""
    common.build("release", *ALONE, root=root)
    failed = False
    with tempfile.TemporaryDirectory() as name:
        folder = pathlib.Path(name)
        copy = folder / "another" / "folder" / "of" / "sources"
        copied(root, copy)
        for program, (preset, places) in ALONE.items():
            log = folder / "log"
            if built_alone(copy, preset, program, hidden(root, places), log):
                problems = list(differences(program, root / "build/release" / program,
                                            copy / "build" / preset / program, (root, folder)))
            else:
                problems = [f"{common.tail_of(log)}\n{program} cannot be built alone"]
            for problem in problems:
                failed = True
                *lines, reason = problem.splitlines()
                print("\n".join([*lines, f"check-reproducible: {reason}"]), file=sys.stderr)
    if failed:
        raise common.Failed("the programs cannot be reproduced")
    return 0


def main():
    """Checks the project's folder that is named, or this one."""
    parser = argparse.ArgumentParser(prog="scripts/check-reproducible", description=__doc__)
    parser.add_argument("root", nargs="?", type=pathlib.Path, default=common.ROOT,
                        help="the project's folder; this one by default")
    root = parser.parse_args().root.resolve()
    return common.run_script("check-reproducible", lambda: check(root))


if __name__ == "__main__":
    sys.exit(main())
