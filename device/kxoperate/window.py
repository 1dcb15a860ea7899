# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
"""The command line of device/window: device/operate on a panel, with the updater and the probe."""

import os
import shutil
import signal
import subprocess
import tempfile
from typing import NamedTuple

from kxdevice import linux, names, options as options_module, state as state_module, trees
from kxdevice.linux import SandboxError
from kxoperate import shared

USAGE = 2
KIT = "/opt/kx_Updater"  # on the panel: what is brought along
OUT = "/var/log/operate"  # on the panel
PROBE = "generic/libkxprobe.so"
LANGUAGES = {"en": "en_US.UTF-8", "ja": "ja_JP.UTF-8"}
PATH = f"{KIT}:/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin"
COMMAND = (names.UPDATER, "-upDir", names.DRIVE_FOLDER)

_HELP = {
    "--script": ("FILE", "what the user does; device/operate --help explains it. Without it the "
                         "window\nstays until device/window is ended"),
    "--out": ("DIR", "gets pictures, transcript, and the updater's output as updater.out, "
                     "updater.err"),
    "--size": shared.OPTIONS["--size"],
    "--lang": ("LANG", " or ".join(LANGUAGES)),
    **shared.OPTIONS,
    "--updater": ("FILE", f"the updater; build/release/{names.UPDATER}"),
    "--probe": ("DIR", 'the built folder "plugins" of the probe; build/release/plugins'),
}


def _help():
    lines = ["Starts the updater's window on the sandboxed device, on a screen of the panel's own, "
             "and plays the",
             "user's part by a script.", "",
             "  device/window [OPTION...] [OPTION of device/run...] [-- COMMAND...]", ""]
    for name, (value, text) in _HELP.items():
        head, *more = text.split("\n")
        lines += [f"  {f'{name} {value}':<15} {head}", *(" " * 18 + line for line in more)]
    lines += ["",
              f'COMMAND is "{" ".join(COMMAND)}" unless given. The updater is '
              f"{KIT}/{names.UPDATER} on",
              f"the panel, {names.UPDATER} for short.", "",
              "Exit status: as of device/run; the updater's own, "
              f"{shared.FAILED} when the script could not go on (one line says",
              f"where, and failed.png shows what the screen showed), {shared.NO_SCREEN} when there "
              "is no screen."]
    return "\n".join(lines) + "\n"


class Options(NamedTuple):
    """What the command line asks for."""

    updater: str
    probe: str
    script: str = ""
    out: str = ""
    state: str = ""
    run: tuple = ()  # for device/run
    operate: tuple = ()  # for device/operate
    command: tuple = COMMAND


def run(arguments, home):
    """Runs device/window from the folder of the device; returns the exit status."""
    try:
        options = _parse(arguments, os.path.join(os.path.dirname(home), "build", "release"))
    except options_module.UsageError as error:
        options_module.complain(f"device/window: {error}")
        return USAGE
    if options is None:
        return options_module.show_help(_help())
    if not options.out or options.state:
        return _show(options, home, options.state)
    temporary = tempfile.mkdtemp(prefix="kx-window.")
    try:
        return _show(options, home, os.path.join(temporary, "state"))
    finally:
        _forget(temporary)


# -- the command line ------------------------------------------------------------------------


def _parse(arguments, built):
    """Returns Options, or None when help is wanted.

    built is the folder where updater and probe are unless others are named.
    """
    own = {"updater": os.path.join(built, names.UPDATER), "probe": os.path.join(built, "plugins")}
    to_run, to_operate = [], []
    rest = list(arguments)
    while rest:
        word = rest.pop(0)
        if word == "--":
            break
        if word in ("-h", "--help"):
            return None
        name, equals, value = word.partition("=")
        is_shared = name in shared.OPTIONS
        if is_shared and not shared.OPTIONS[name][0]:
            to_operate.append(word)
            continue
        if not is_shared and not options_module.needs_value(name):
            to_run.append(word)
            continue
        if not equals:
            if not rest:
                raise options_module.UsageError(f"{name} needs a value; see device/window --help")
            value = rest.pop(0)
        if is_shared:
            to_operate += [name, value]
        elif name == "--lang":
            to_run += ["--env", f"LANG={_language(value)}"]
        elif name in ("--script", "--out", "--updater", "--probe"):
            own[name[2:]] = value
        else:
            if name == "--state":
                own["state"] = value
            to_run += [name, value]
    options = Options(**own, run=tuple(to_run), operate=tuple(to_operate),
                      command=tuple(rest) or COMMAND)
    for file in (options.updater, os.path.join(options.probe, PROBE), options.script):
        if file and not os.path.exists(file):
            raise options_module.UsageError(
                f"there is no {file}; scripts/demo builds what is missing")
    return options


def _language(name):
    if name not in LANGUAGES:
        raise options_module.UsageError(f"--lang: '{name}' is neither en nor ja")
    return LANGUAGES[name]


# -- the panel -------------------------------------------------------------------------------


def _show(options, home, state):
    """Shows the window on a panel that is kept in `state`, unless that is empty."""
    status = _wait_for(_start(options, home, state))
    if options.out and os.path.isdir(state):
        try:
            _copy_out(state, options.out)
        except (SandboxError, OSError) as error:
            options_module.complain(f"device/window: {options.out}: {linux.reason(error)}")
            return status or 1
    return status


def _start(options, home, state):
    shares = [(home, "device"), (options.updater, names.UPDATER), (options.probe, "plugins")]
    if options.script:
        shares.append((options.script, "script"))
    command = [os.path.join(home, "run")]
    for host, inside in shares:
        command += ["--share", f"{host}={KIT}/{inside}"]
    command += ["--env", f"PATH={PATH}", *options.run]
    if state and not options.state:
        command += ["--state", state]
    command += ["--", f"{KIT}/device/operate", "--plugins", f"{KIT}/plugins", "--out", OUT]
    if options.script:
        command += ["--script", f"{KIT}/script"]
    return subprocess.Popen([*command, *options.operate, "--", *options.command],
                            preexec_fn=_leave_interrupts_to_parent)


def _leave_interrupts_to_parent():
    # The terminal sends them to both, and the panel is to be ended in one way only.
    for number in (signal.SIGINT, signal.SIGQUIT):
        signal.signal(number, signal.SIG_IGN)


def _wait_for(panel):
    """Waits for the end of device/run, which a signal brings about earlier. Returns its exit status
    as a shell tells it."""
    def end(_number, _frame):
        panel.terminate()

    for number in (signal.SIGHUP, signal.SIGINT, signal.SIGTERM):
        if signal.getsignal(number) != signal.SIG_IGN:
            signal.signal(number, end)
    status = panel.wait()
    return 128 - status if status < 0 else status


def _copy_out(state, out):
    """Copies what operate left on the panel, following no link that the panel may have laid."""
    folder = os.open(state, trees.DIR_FLAGS & ~os.O_NOFOLLOW)
    for name in ("root", *OUT.strip("/").split("/")):
        above = folder
        try:
            folder = os.open(name, trees.DIR_FLAGS, dir_fd=above)
        except FileNotFoundError:
            return  # the panel ended before
        finally:
            os.close(above)
    os.makedirs(out, exist_ok=True)
    target = os.open(out, trees.DIR_FLAGS & ~os.O_NOFOLLOW)
    try:
        trees.copy_content(folder, target, os.geteuid(), os.getegid(), OUT)
    finally:
        os.close(target)
        os.close(folder)


def _forget(temporary):
    state = os.path.join(temporary, "state")
    try:
        if os.path.lexists(state):
            state_module.erase(state)
    except (SandboxError, OSError) as error:
        options_module.complain(f"device/window: {temporary} is left: {linux.reason(error)}")
        return
    shutil.rmtree(temporary, ignore_errors=True)
