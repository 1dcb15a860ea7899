# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
"""Shell scripts in the place of programs, which note how they are called."""

import os
import pathlib
import subprocess
import tempfile
import unittest
from unittest import mock

SHELL = "/bin/sh"


class FakePrograms(unittest.TestCase):
    """A folder `folder` of the test's own, and `programs`, which comes first on the PATH. What the
    test has started ends with it."""

    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = folder.name
        self.programs = os.path.join(folder.name, "programs")
        os.mkdir(self.programs)
        path = f"{self.programs}:/usr/bin:/bin"
        self.started = []
        for change in (mock.patch.dict(os.environ, {"PATH": path}),
                       mock.patch.object(subprocess, "Popen", self._starting(subprocess.Popen))):
            change.start()
            self.addCleanup(change.stop)
        self.addCleanup(self._end_all)

    def _starting(self, start):
        def noted(*words, **more):
            process = start(*words, **more)
            self.started.append(process)
            return process
        return noted

    def _end_all(self):
        for process in self.started:
            process.kill()
            process.wait()

    def put(self, name, text):
        """Makes a program: first it writes its arguments, one a line, and its environment to
        FOLDER/NAME.called and .env, then it does what the text says."""
        file = pathlib.Path(self.programs, name)
        called = os.path.join(self.folder, name)
        file.write_text(f"#!{SHELL}\nprintf '%s\\n' \"$@\" >>'{called}.called'\n"
                        f"env >'{called}.env'\n{text}\n", encoding="utf-8")
        file.chmod(0o755)

    def called(self, name):
        """Returns the arguments of all calls, or None when there was none."""
        try:
            text = pathlib.Path(self.folder, name + ".called").read_text(encoding="utf-8")
        except FileNotFoundError:
            return None
        return text.splitlines()

    def environment_of(self, name):
        """Returns the environment of the last call."""
        text = pathlib.Path(self.folder, name + ".env").read_text(encoding="utf-8")
        return dict(line.split("=", 1) for line in text.splitlines() if "=" in line)
