# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
"""Processes that end with the demonstration, whatever ends it, and the signals that do."""
import contextlib
import os
import signal
import subprocess
import time

from kxscripts.processes import Interrupted, signal_group

PATIENCE = 15  # seconds from the request to end until force
FORCE = 5  # seconds that force may take
_SIGNALS = (signal.SIGINT, signal.SIGTERM, signal.SIGHUP)


def end_on_signals():
    """From now on the first of these signals raises Interrupted, and further ones are ignored, so
    that nothing cuts the clearing away short. Signals that are ignored already, as nohup makes
    them, stay so."""
    def interrupt(number, _frame):
        ignore_signals()
        raise Interrupted(number)

    for number in _SIGNALS:
        if signal.getsignal(number) != signal.SIG_IGN:
            signal.signal(number, interrupt)


def ignore_signals():
    """From now on these signals are ignored."""
    for number in _SIGNALS:
        signal.signal(number, signal.SIG_IGN)


class Processes:
    """Processes without input, each the first of a session and of a group of its own.

    They get SIGTERM when this process dies, even by force."""

    def __init__(self, patience=PATIENCE):
        self._patience = patience
        self._started = []

    def start(self, *command, log=None, together=False, keep=()):
        """Starts a command in the background; returns its subprocess.Popen. Raises OSError.

        log       the file for its output and its errors; unless given they go where this process's
                  own go
        together  its errors go where its output goes
        keep      descriptors that it inherits"""
        # pylint: disable=consider-using-with
        with contextlib.nullcontext() if log is None else open(log, "wb") as output:
            child = subprocess.Popen(
                ["setpriv", "--pdeathsig", "TERM", *command], stdin=subprocess.DEVNULL,
                stdout=output, stderr=subprocess.STDOUT if log or together else None,
                start_new_session=True, pass_fds=keep)
        self._started.append(child)
        return child

    def run(self, *command, **more):
        """Runs a command to its end, with the arguments of `start`, and ends what it leaves in its
        group; returns its exit status, that of a signal negative."""
        child = self.start(*command, **more)
        status = child.wait()
        self.stop(child)
        return status

    def stop(self, child):
        """Ends what `start` has started, and all that this has started in its group, and waits
        until it is gone."""
        asked = time.monotonic()
        forced = False
        there = signal_group(child, signal.SIGTERM)
        while there and time.monotonic() < asked + self._patience + FORCE:
            if not forced and time.monotonic() >= asked + self._patience:
                forced = True
                signal_group(child, signal.SIGKILL)
            time.sleep(0.05)
            there = signal_group(child, 0)
        if child in self._started:
            self._started.remove(child)

    def stop_all(self):
        """Ends all that `start` has started, the last one first."""
        while self._started:
            self.stop(self._started[-1])
