# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
"""What the demonstration's tests share: a folder that stands for the project, and a stage whose
processes are played."""

import os
from unittest import mock

from in_folder import InFolder
from kxscripts import demo_options, demo_stage


class Process:
    """A process that ends with a status, at once or when it was polled some times."""

    def __init__(self, status=0, polls=0):
        self.status = status
        self.polls = polls

    def wait(self):
        """Returns the status."""
        return self.status

    def poll(self):
        """Returns the status once it has ended."""
        self.polls -= 1
        return None if self.polls >= 0 else self.status


class Processes:
    """Notes what would be started and stopped."""

    def __init__(self):
        self.calls = []     # ("start" or "run", words, options)
        self.stopped = []   # processes, or "all"
        self.statuses = {}  # by the first words of a command; all others end well
        self.lasts = 1 << 30  # how often a started process is found running
        self.does = lambda words, options: None  # what a started command does

    def _note(self, kind, command, more):
        words = [os.fspath(word) for word in command]
        self.calls.append((kind, words, more))
        self.does(words, more)
        line = " ".join(words)
        return next((status for begin, status in self.statuses.items() if line.startswith(begin)), 0)

    def start(self, *command, **more):
        """As the real one."""
        return Process(self._note("start", command, more), self.lasts)

    def run(self, *command, **more):
        """As the real one."""
        return self._note("run", command, more)

    def stop(self, process):
        """As the real one."""
        self.stopped.append(process)

    def stop_all(self):
        """As the real one."""
        self.stopped.append("all")


class Scene(InFolder):
    """A test that stands in its folder, and may have a stage there."""

    def setUp(self):
        super().setUp()
        self.addCleanup(os.chdir, os.getcwd())
        os.chdir(self.root)

    def stage(self, *words, claimed=True):
        """Returns a stage with these options; its folder is there when it is claimed."""
        with mock.patch.dict(os.environ, {"LANG": "C"}):
            options = demo_options.parse(["--dir", str(self.root / "demo"), *words])
        made = demo_stage.Stage(options, self.root)
        made.processes = Processes()
        if claimed:
            made.claim_folder()
        return made
