# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
"""The packages of the corpus: good ones by several programs, and ones damaged by chance, the same
chance every time."""

import json
import os
import platform
import random
import subprocess
import sys

HERE = os.path.dirname(os.path.realpath(__file__))
ROOT = os.path.dirname(os.path.dirname(os.path.dirname(HERE)))
sys.path[:0] = [HERE, os.path.join(ROOT, "scripts")]

# pylint: disable=wrong-import-position
import archives  # noqa: E402
import descriptions  # noqa: E402
from kxscripts import hello  # noqa: E402


def base_package(folder, tool):
    """A package of the first two examples, with a small program in the updater's place."""
    source, package = folder + ".source", folder + ".kx-update"
    hello.source(source)
    subprocess.run([tool, "build", source, "-o", package, "--updater", "/usr/bin/true",
                    "--processor", platform.machine()], check=True, stdout=subprocess.DEVNULL)
    subprocess.run(["unzip", "-q", package, "-d", folder], check=True)


class Corpus:
    """The packages, each with how it was made and whether it is to be installed."""

    def __init__(self, folder, seed, tool):
        self.folder = os.path.join(folder, "packages")
        self.base = os.path.join(folder, "base")
        self.rng = random.Random(seed)
        self.jobs = []
        os.mkdir(self.folder)
        base_package(self.base, tool)
        with open(os.path.join(self.base, "UserPackage.kx-project"), "rb") as file:
            self.description = file.read()
        self.document = json.loads(self.description[3:])

    def path(self):
        """A file for the next package."""
        folder = os.path.join(self.folder, str(len(self.jobs)))
        os.mkdir(folder)
        return os.path.join(folder, "corpus.kx-update")

    def add(self, path, how, description, install=True):
        """Notes a package that was built."""
        self.jobs.append({"file": path, "how": how, "install": install,
                          "promise": descriptions.promises(description)})

    def add_built(self):
        """One package by each way to build one."""
        for name, build in archives.BUILDERS.items():
            path = self.path()
            build(self.base, path)
            self.add(path, name, self.description)

    def add_damaged(self, count):
        """Damaged archives."""
        sources = []
        for job in self.jobs:
            with open(job["file"], "rb") as file:
                sources.append((job["how"], file.read()))
        # Most by the usual programs' usual ways.
        for _ in range(count):
            how, data = self.rng.choice(sources)
            path = self.path()
            data, done = archives.damaged(data, self.rng)
            with open(path, "wb") as file:
                file.write(data)
            self.add(path, f"{how}: {done}", self.description, install=False)

    def add_spoiled(self, count):
        """Archives of packages with spoiled descriptions."""
        for _ in range(count):
            path = self.path()
            data, done = descriptions.spoiled(self.document, self.rng)
            with open(os.path.join(self.base, "UserPackage.kx-project"), "wb") as file:
                file.write(data)
            archives.by_zip("-X", "-1")(self.base, path)
            self.add(path, done, data)
