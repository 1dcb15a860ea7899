# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
"""The command line of scripts/demo."""
import argparse
import os
import pathlib
import re
from typing import Callable, NamedTuple, Optional

from kxoperate.window import LANGUAGES

FOLDER = pathlib.Path("build/demo")  # below the project's root
_HEAD = """\
Shows the main job: packs the example package, puts it on a USB flash drive, and installs it from
there on the sandboxed device, with the real window. Installs what is missing and builds first.
Nothing of this machine is touched outside the demonstration's folder.

  scripts/demo [OPTION...]

On a display the panel shows itself in a window of its own and you press the buttons. Without one
the demonstration presses them itself and leaves a picture of every state. In the end the package
is signed, decided on and installed without a window, by kx-panel; a changed one is refused.
"""
_FOOT = """\
Exit status: 0 shown to the end, 1 not possible (one line says why), 2 wrong use.
"""


class UsageError(Exception):
    """The command line is wrong; the text says what."""


class Options(NamedTuple):
    """What the command line asks for."""

    headless: bool
    web: Optional[int]  # the port
    vnc: Optional[int]  # the port
    lang: str
    size: str  # WIDTHxHEIGHT
    folder: pathlib.Path  # absolute, or FOLDER

    def ports(self):
        """Returns the ports of this machine that serve the panel."""
        return [port for port in (self.web, self.vnc) if port]


def _port(option, text):
    if not re.fullmatch("[0-9]{1,5}", text) or not 1 <= int(text) <= 65535:
        raise UsageError(f"{option}: {text} is no port; use 1 to 65535")
    return int(text)


def _language(option, text):
    if text not in LANGUAGES:
        raise UsageError(f"{option}: '{text}' is neither {' nor '.join(LANGUAGES)}")
    return text


def _size(option, text):
    if not re.fullmatch("[1-9][0-9]{1,3}x[1-9][0-9]{1,3}", text):
        raise UsageError(f"{option}: '{text}' is no size such as 800x480")
    return text


def _folder(_option, text):
    return pathlib.Path(os.path.realpath(text))


class _Row(NamedTuple):
    """An option of the command line."""

    value: str  # what the help calls it; "" for none
    text: str
    check: Optional[Callable] = None  # takes the option and the text; raises UsageError
    unsaid: str = ""  # the value when none follows; "": one must follow


_OPTIONS = {
    "--headless": _Row("", "without a display, even when there is one"),
    "--web": _Row("[PORT]", "you press the buttons in a browser of this machine; 6080", _port,
                  "6080"),
    "--vnc": _Row("[PORT]", "you press them in a VNC viewer of this machine; 5900", _port, "5900"),
    "--lang": _Row("LANG", f"what the panel speaks: {' or '.join(LANGUAGES)}", _language),
    "--size": _Row("WxH", "the panel's screen; 800x480", _size),
    "--dir": _Row("DIR", f"the demonstration's folder; {FOLDER}", _folder),
    "--help": _Row("", "this text"),
}


def usage():
    """Returns the help text."""
    lines = [f"  {f'{name} {row.value}':<14} {row.text}" for name, row in _OPTIONS.items()]
    return "\n".join([_HEAD, *lines, "", _FOOT])


def parse(arguments):
    """Turns the arguments behind the program's name into Options; returns None when help is wanted.

    What the panel speaks unless it is told is the language of LANG. Raises UsageError."""
    # Sentences of its own, and one line for each, are what argparse does not give.
    parser = argparse.ArgumentParser(allow_abbrev=False, add_help=False, exit_on_error=False)
    for name, row in _OPTIONS.items():
        if row.value:
            parser.add_argument(name, nargs="?", const=row.unsaid, type=_checked(name, row))
        else:
            parser.add_argument(name, *(["-h"] if name == "--help" else []), action="store_true")
    spoken = next((name for name, locale in LANGUAGES.items() if locale == os.environ.get("LANG")),
                  "en")
    parser.set_defaults(lang=spoken, size="800x480", dir=FOLDER)
    try:
        found, unknown = parser.parse_known_args(arguments)
    except argparse.ArgumentError as error:
        raise UsageError(f"{error.argument_name} takes no value") from None
    if unknown:
        raise UsageError(f"unknown option '{unknown[0]}'")
    if found.help:
        return None
    options = Options(found.headless, found.web, found.vnc, found.lang, found.size, found.dir)
    if options.headless and options.ports():
        raise UsageError("--headless goes with neither --web nor --vnc")
    if options.web and options.web == options.vnc:
        raise UsageError("--web and --vnc need two ports")
    return options


def _checked(name, row):
    def check(text):
        if not text:
            raise UsageError(f"{name} needs a value")
        return row.check(name, text)
    return check
