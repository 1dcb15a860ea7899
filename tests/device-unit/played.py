# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
"""Plays what the device asks of the machine, so that no test makes a namespace, mounts or kills.

    played = play(self, panel, "linux", mount=None, open_tree=7)
    panel._change_root()
    self.assertEqual(played, [("mount", ...)])
"""

from unittest import mock


class Played:
    """Stands for a module: the functions that are played are noted with their arguments, and give
    their answer, or what it returns, or raise it; all else of the module stays real."""

    def __init__(self, real, journal, answers):
        self._real, self._journal, self._answers = real, journal, answers

    def __getattr__(self, name):
        if name not in self._answers:
            return getattr(self._real, name)
        answer = self._answers[name]

        def played(*arguments, **named):
            self._journal.append((name, *arguments, *([named] if named else [])))
            if isinstance(answer, BaseException):
                raise answer
            return answer(*arguments, **named) if callable(answer) else answer
        return played


def play(test, user, name, journal=None, **answers):
    """Lets a module use the played functions of another until the test ends; returns the journal,
    which several calls may share."""
    journal = [] if journal is None else journal
    patch = mock.patch.object(user, name, Played(getattr(user, name), journal, answers))
    patch.start()
    test.addCleanup(patch.stop)
    return journal


class Ended(BaseException):
    """Raised in place of the end of a process, with its exit status."""

    def __init__(self, status):
        super().__init__(status)
        self.status = status


def end(status):
    """Plays os._exit."""
    raise Ended(status)
