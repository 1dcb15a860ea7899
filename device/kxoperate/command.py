# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
"""The command line of device/operate."""

import argparse
import os
import re
import shutil
import signal
import subprocess
import sys
import threading

from kxdevice import names
from kxoperate import script as script_module, shared
from kxoperate.probe import Probe
from kxoperate.screen import Screen, ScreenError

WORK = "/run/operate"
NOT_STARTED = 127
DESCRIPTION = """\
Starts COMMAND, a program with windows, on a screen of the panel, and plays its user. Works only on
the sandboxed device; device/window brings it there.
"""


class _StartError(Exception):
    """The program cannot be started; the text says why."""


def _size(text):
    match = re.fullmatch(r"([1-9]\d{1,3})x([1-9]\d{1,3})", text)
    if not match:
        raise argparse.ArgumentTypeError(f"'{text}' is no size; write for example 800x480")
    return int(match[1]), int(match[2])


def _text(path):
    try:
        with open(path, encoding="utf-8") as file:
            return file.read()
    except (OSError, UnicodeError) as error:
        raise argparse.ArgumentTypeError(f"{path}: {error}") from None


def _parse(arguments):
    parser = argparse.ArgumentParser(
        prog="operate", description=DESCRIPTION, allow_abbrev=False,
        epilog="The script:\n" + script_module.__doc__.split("\n", 1)[1],
        formatter_class=argparse.RawDescriptionHelpFormatter)
    checks = {"--size": {"type": _size, "default": (800, 480)},
              "--patience": {"type": float, "default": 30}}
    for name, (value, text) in shared.OPTIONS.items():
        kind = {"metavar": value} if value else {"action": "store_true"}
        parser.add_argument(name, help=text, **kind, **checks.get(name, {}))
    parser.add_argument("--script", type=_text, metavar="FILE",
                        help="the file of actions; without it people press")
    parser.add_argument("--plugins", required=True, help="the folder that holds the probe")
    parser.add_argument("--out", required=True,
                        help="the folder for pictures, transcript and what the program prints")
    parser.add_argument("command", nargs=argparse.REMAINDER, metavar="-- COMMAND ...")
    options = parser.parse_args(arguments)
    if options.command[:1] == ["--"]:
        options.command = options.command[1:]
    if not options.command:
        parser.error("there is no command")
    return options


def _start(options, screen, path, plugins):
    runtime = os.path.join(WORK, "runtime")
    os.mkdir(runtime, 0o700)
    environment = {**os.environ, "DISPLAY": screen.display, "XDG_RUNTIME_DIR": runtime,
                   **Probe.environment(path, plugins)}
    out = open(os.path.join(options.out, "updater.out"), "wb")
    err = open(os.path.join(options.out, "updater.err"), "wb")
    with out, err:
        try:
            return subprocess.Popen(options.command, env=environment, stdin=subprocess.DEVNULL,
                                    stdout=out, stderr=err)
        except OSError as error:
            raise _StartError(error.strerror) from error


def _end(program, patience=0.0):
    """Ends the program, if it does not end by itself, and returns its exit status as a shell tells
    it."""
    try:
        program.wait(patience)
    except subprocess.TimeoutExpired:
        program.terminate()
    status = program.wait()
    return 128 - status if status < 0 else status


def _play(options, screen, transcript):
    path = os.path.join(WORK, "probe")
    probe = Probe(path)
    program = _start(options, screen, path, options.plugins)

    def watch():
        program.wait()
        probe.note_end()

    threading.Thread(target=watch, daemon=True).start()
    if options.script is None:
        return _end_after(program)
    player = script_module.Player(screen, probe, options.out, lambda text: print(
        text, file=transcript, flush=True), options.patience)
    try:
        player.play(options.script)
        if not probe.ended:
            player.play("quit")
    except script_module.ScriptError as error:
        print(f"operate: {error}", file=sys.stderr)
        if program.poll() is None:
            screen.take_picture(os.path.join(options.out, "failed.png"))
        _end(program)
        return shared.FAILED
    return _end(program, options.patience)


def _end_after(program):
    """Waits for the program, which people use, or for a signal that ends all."""
    signal.signal(signal.SIGTERM, lambda number, frame: program.terminate())
    signal.signal(signal.SIGINT, lambda number, frame: program.terminate())
    program.wait()
    return _end(program)


def run(arguments):
    """Runs device/operate; returns the program's exit status, 127 when it cannot be started, 3 for
    a script that failed, 4 when there is no screen, 2 for wrong use."""
    options = _parse(arguments)
    if not os.path.exists(names.MARKER):
        print(f"operate: this is not the sandboxed device ({names.MARKER} is missing); "
              "use device/window", file=sys.stderr)
        return 126
    shutil.rmtree(WORK, ignore_errors=True)
    os.makedirs(WORK)
    os.makedirs(options.out, exist_ok=True)
    try:
        screen = Screen(WORK, options.size, options.serve, options.display)
        try:
            if not options.no_wm:
                screen.start_window_manager()
            with open(os.path.join(options.out, "transcript"), "w", encoding="utf-8") as transcript:
                return _play(options, screen, transcript)
        finally:
            screen.close()
    except ScreenError as error:
        print(f"operate: {error}", file=sys.stderr)
        return shared.NO_SCREEN
    except _StartError as error:
        print(f"operate: {options.command[0]}: {error}", file=sys.stderr)
        return NOT_STARTED
