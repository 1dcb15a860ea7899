# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
"""Child processes that end with the script, however it ends: each is the first of a session of its
own, so that it can be ended with all that it has started."""
import contextlib
import os
import signal
import subprocess
import threading
import time

PATIENCE = 10  # seconds from the request to end until force

_lock = threading.Lock()
_running = set()
_stopping = False
_holding = False  # whether the main thread starts a command
_held = None  # the signal that came meanwhile


class Interrupted(BaseException):
    """A signal asked the script to end; its number is `number`."""

    def __init__(self, number):
        super().__init__(signal.Signals(number).name)
        self.number = number


class Stopped(Exception):
    """The script ends: nothing is started any more."""


@contextlib.contextmanager
def _uninterrupted():
    """Lets a signal interrupt this thread behind the body only: a command that has begun but is not
    yet known would go on. Signals interrupt the main thread alone."""
    global _holding, _held  # pylint: disable=global-statement
    if threading.current_thread() is not threading.main_thread():
        yield
        return
    _holding, _held = True, None
    try:
        yield
    finally:
        _holding = False
        if _held is not None:
            raise Interrupted(_held)


def run(command, *, cwd, output=None, env=None):
    """Runs a command to its end, without input.

    output   a file for both of its outputs; None: those of the script
    Returns the exit status, negative for the signal that ended it; 127 when there is no such
    program. Raises Stopped after `stop_all`. When the waiting is interrupted, ends the command."""
    child = None
    try:
        with _uninterrupted(), _lock:
            if _stopping:
                raise Stopped
            # pylint: disable=consider-using-with
            child = subprocess.Popen(command, cwd=cwd, env=env, stdin=subprocess.DEVNULL,
                                     stdout=output, stderr=subprocess.STDOUT if output else None,
                                     start_new_session=True)
            _running.add(child)
        return child.wait()
    except FileNotFoundError:
        _tell(output, f"{command[0]}: not found; scripts/setup installs what is missing\n")
        return 127
    except BaseException:
        if child is not None:
            _end([child])
        raise
    finally:
        with _lock:
            _running.discard(child)


def _tell(output, text):
    if output is None:
        os.write(2, text.encode())
    else:
        output.write(text.encode())
        output.flush()


def signal_group(child, number):
    """Sends a signal to the group of a child; tells whether anybody was there."""
    child.poll()  # one that has ended and was not asked for its status would still count
    try:
        os.killpg(child.pid, number)
    except ProcessLookupError:
        return False
    except PermissionError:
        pass
    return True


def _end(children):
    """Ends groups of processes, by force those that do not go by themselves."""
    children = [child for child in children if signal_group(child, signal.SIGTERM)]
    until = time.monotonic() + PATIENCE
    while children and time.monotonic() < until:
        time.sleep(0.05)
        children = [child for child in children if signal_group(child, 0)]
    for child in children:
        signal_group(child, signal.SIGKILL)


def stop_all():
    """Ends every command that runs, and lets no further one start."""
    global _stopping  # pylint: disable=global-statement
    with _lock:
        _stopping = True
        children = list(_running)
    _end(children)


@contextlib.contextmanager
def signals_end_the_script():
    """While the body runs, a signal that asks to end raises Interrupted in it, once.

    A script that nohup or the background of another one has started ignores some of these signals
    and goes on doing so; its children would inherit that, and the tests of what a signal does would
    fail. Handlers are not inherited, so every signal gets one, and the children begin like those of
    a terminal."""
    def interrupt(number, _frame):
        global _held  # pylint: disable=global-statement
        for other in earlier:
            signal.signal(other, lambda *_: None)
        if not _holding:
            raise Interrupted(number)
        _held = number

    earlier = {}
    for number in (signal.SIGHUP, signal.SIGINT, signal.SIGQUIT, signal.SIGTERM):
        ignored = signal.getsignal(number) == signal.SIG_IGN
        earlier[number] = signal.signal(number, (lambda *_: None) if ignored else interrupt)
    try:
        yield
    finally:
        for number, handler in earlier.items():
            signal.signal(number, handler)
