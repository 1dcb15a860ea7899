# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
"""What the tests of the scripts share: folders that stand for the project, and commands that are
played instead of started."""
import importlib.machinery
import importlib.util
import os
import pathlib
from unittest import mock

from in_folder import InFolder
from kxscripts import common, processes

PROJECT = pathlib.Path(__file__).resolve().parent.parent.parent


def program(path):
    """Loads a program of the project, which has no name that could be imported."""
    name = path.replace("/", "_").replace("-", "_").replace(".", "_")
    loader = importlib.machinery.SourceFileLoader(name, str(PROJECT / path))
    module = importlib.util.module_from_spec(importlib.util.spec_from_loader(name, loader))
    loader.exec_module(module)
    return module


class Commands:
    r"""Stands for processes.run: notes each command, with what it adds to the environment, and plays
    it.

    statuses   what commands end with, by their first words; all others end well
    printed    what they print, in the same way; "\udcff" is the byte ff, which is no text
    does       called with the words of each command, for what it leaves behind"""

    def __init__(self, statuses=None, printed=None, does=None):
        self.statuses, self.printed = statuses or {}, printed or {}
        self.does = does or (lambda words: None)
        self.seen = []     # words
        self.folders = []  # where each was started
        self.added = []    # what each found in its environment that this program lacks
        self.lost = set()  # what this program has in its environment and one of them lacked

    def _of(self, table, line, otherwise):
        return next((value for begin, value in table.items() if line.startswith(begin)), otherwise)

    def __call__(self, command, *, cwd, output=None, env=None):
        words = [os.fspath(word) for word in command]
        line = " ".join(words)
        self.seen.append(words)
        self.folders.append(cwd)
        self.added.append({name: value for name, value in (env or {}).items()
                           if os.environ.get(name) != value})
        self.lost.update(os.environ.keys() - (os.environ if env is None else env).keys())
        if output is not None:
            output.write(self._of(self.printed, line, "").encode(errors="surrogateescape"))
            output.flush()
        self.does(words)
        return self._of(self.statuses, line, 0)

    @property
    def lines(self):
        """The commands, each as one text."""
        return [" ".join(words) for words in self.seen]


class InProject(InFolder):
    """A test whose folder stands for the project's root; commands can be played in it."""

    def setUp(self):
        super().setUp()
        self.addCleanup(common._all_sources.cache_clear)  # pylint: disable=protected-access

    def played(self, **keywords):
        """Plays the commands from here on; returns what they were."""
        return self.patch(processes, "run", Commands(**keywords))

    def write(self, name, text="", mode=None):
        """Makes a file below the root, with its folders."""
        path = self.root / name
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_text(text, encoding="utf-8")
        if mode is not None:
            path.chmod(mode)
        return path

    def tell(self, work, *words, **keywords):
        """Does something and keeps what it prints; returns its result."""
        with self.told():
            return work(*words, **keywords)

    def main(self, module, *words):
        """Starts a script's program with a command line; returns its exit status."""
        with mock.patch("sys.argv", ["script", *words]), self.told():
            try:
                return module.main()
            except SystemExit as end:
                return end.code

    def expect_failed(self, text, work, *words, **keywords):
        """Does something that must raise Failed with this text."""
        with self.assertRaises(common.Failed) as raised:
            self.tell(work, *words, **keywords)
        self.assertEqual(str(raised.exception), text)
