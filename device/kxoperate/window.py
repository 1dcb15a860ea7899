# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
"""The command line of device/window: device/operate on a panel, with the updater and the probe."""

import os
import signal
from typing import NamedTuple

from kxdevice import front, names, options as options_module, trees
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
    fetch = front.Fetch()
    if options.out:
        fetch = front.Fetch(OUT, lambda folder: _copy_out(folder, options.out),
                            f"device/window: {options.out}")
    status = front.play(_words_of_run(options, home), home, fetch)
    # Whatever asked for the end, the panel is ended in one way.
    return 128 + signal.SIGTERM if status < 0 else status


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


def _words_of_run(options, home):
    """Returns the arguments of device/run."""
    shares = [(home, "device"), (options.updater, names.UPDATER), (options.probe, "plugins")]
    if options.script:
        shares.append((options.script, "script"))
    words = []
    for host, inside in shares:
        words += ["--share", f"{host}={KIT}/{inside}"]
    words += [*_font_cache(), "--env", f"PATH={PATH}", *options.run]
    words += ["--", f"{KIT}/device/operate", "--plugins", f"{KIT}/plugins", "--out", OUT]
    if options.script:
        words += ["--script", f"{KIT}/script"]
    return [*words, *options.operate, "--", *options.command]


def _font_cache():
    """Returns the words that bring what the machine knows of its fonts.

    The panel has the same fonts, and the first program with windows would read every one of them.
    """
    try:
        with os.scandir(shared.FONT_CACHE) as entries:
            if all(entry.is_file() and os.access(entry.path, os.R_OK) for entry in entries):
                return ["--put", f"{shared.FONT_CACHE}={shared.FONT_CACHE}"]
    except OSError:
        pass
    return []


def _copy_out(folder, out):
    """Copies what operate left in an open folder of the panel."""
    os.makedirs(out, exist_ok=True)
    target = os.open(out, trees.DIR_FLAGS & ~os.O_NOFOLLOW)
    try:
        trees.copy_content(folder, target, os.geteuid(), os.getegid(), OUT)
    finally:
        os.close(target)
