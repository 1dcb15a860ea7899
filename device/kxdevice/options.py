# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
"""The command line of device/run."""

import os
import re
import sys
from typing import NamedTuple

from kxdevice.names import DRIVE_DEVICE, DRIVE_FOLDER, MARKER, STARTUP_SCRIPT, UPDATER, USB_UMOUNT

_UMOUNT = os.path.basename(USB_UMOUNT)

HELP = f"""\
usage: device/run [options] [--] COMMAND [ARG...]
       device/run --erase --state DIR

Starts COMMAND on a throw-away panel: its own root file system, users, processes and
network, as root inside, without rights outside. Never runs COMMAND anywhere else.

The panel
  --state DIR          keep the panel's files in DIR and start from them the next time
                       (without it everything is gone at the end)
  --boot               play a reboot first: empty /tmp and /run, run {STARTUP_SCRIPT}
  --no-startup         with --boot: leave the script to COMMAND
  --erase              remove the folder of --state and end
  --share HOST=INSIDE  show a file or folder of the host inside, read-only (repeatable)
  --put HOST=INSIDE    copy a file or folder into the panel's own files: owner root, modes
                       kept; INSIDE is the full name of the copy, or ends in / (repeatable)
  --usb DIR            plug in a USB drive holding a copy of DIR: {DRIVE_FOLDER} and {DRIVE_DEVICE}
                       (see also device/drive --help)

The command
  --env NAME=VALUE     add to the environment, which is otherwise only PATH, HOME=/root and
                       LANG, LC_ALL, TERM as given (repeatable)
  --chdir DIR          working directory inside (default /)
  --ignore-sigchld     start COMMAND with the signal SIGCHLD ignored

Trouble made to order
  --fail TOOL=STATUS[@N]  TOOL only exits with STATUS; with @N only its Nth call (repeatable)
  --fail-shell N=TEXT  the Nth time that COMMAND itself hands exactly TEXT to sh -c, no shell
                       starts, which system() tells as status 127 (repeatable)
  --missing TOOL       the panel has no such tool (repeatable)
  --full PATH          a file system without free space is mounted at PATH (repeatable)
  --read-only PATH     PATH and everything below cannot be changed (repeatable)

Reports
  --trace FILE         write one line per call of a stand-in and per drive event, fields
                       separated by tabs; \\\\, \\t and \\n inside a field are written as such
  --trace-shell        also one line per command string handed to sh -c
  --trace-programs     also one line per command string that COMMAND itself hands to sh -c,
                       and per start of a program of the panel's own files: what processor
                       it is for, and whether it can run here
  --summary[=FILE]     tell people what the run changed (on stderr, or in FILE)
  --summary-json FILE  the same for programs

Limits
  --memory MIB         memory of all processes together (default 4096)
  --processes N        number of processes (default 256)
  --seconds N          time (default 600)
  --disk MIB           size of a throw-away panel's files (default 2048)

Exit status: that of COMMAND (128 + signal number when a signal ended it), 2 wrong use,
124 time limit reached, 125 the panel cannot be made, 126 COMMAND cannot be executed,
127 COMMAND not found.

Started by root, the ids 0 to 65535 inside are unprivileged ids outside. Started by another
user, they are that user's own id and the ranges of /etc/subuid and /etc/subgid; without
such ranges only root exists inside and chown to others fails.

Examples
  device/run -- sh -c 'id; ls /'
  device/run --put build/dev/{UPDATER}=/usr/bin/{UPDATER} --share pkg=/mnt/user/pkg \\
      --trace calls.tsv --trace-shell --summary -- {UPDATER} -unzipedDir /mnt/user/pkg
  device/run --state panel --usb stick -- sh -c 'ls {DRIVE_FOLDER}'
  device/run --state panel --boot --fail {_UMOUNT}=1 --full /mnt/user -- sleep 5
  device/run --erase --state panel
"""


class UsageError(Exception):
    """The command line is wrong; the text says what."""


class Options(NamedTuple):
    """What the command line asks for."""

    state: str = ""
    boot: bool = False
    no_startup: bool = False
    erase: bool = False
    help: bool = False
    share: tuple = ()  # (host, inside)
    put: tuple = ()  # (host, inside)
    usb: str = ""
    env: tuple = ()  # (name, value)
    chdir: str = "/"
    ignore_sigchld: bool = False
    fail: tuple = ()  # (tool, status, nth or 0)
    fail_shell: tuple = ()  # (nth, text)
    missing: tuple = ()
    full: tuple = ()
    read_only: tuple = ()
    trace: str = ""
    trace_shell: bool = False
    trace_programs: bool = False
    summary: str = ""  # "-" is stderr
    summary_json: str = ""
    memory: int = 4096
    processes: int = 256
    seconds: float = 600
    disk: int = 2048
    command: tuple = ()

    def wants_summary(self):
        """Tells whether the panel is compared with what it was before."""
        return bool(self.summary or self.summary_json)


def _pair(name, text):
    left, equals, right = text.partition("=")
    if not equals or not left:
        raise UsageError(f"--{name} needs NAME=VALUE, not '{text}'")
    return left, right


def _host_and_inside(name, text):
    # The last "=" with a "/" behind it: names of the host may hold "=" themselves.
    host, equals, inside = text.rpartition("=/")
    if not equals or not host:
        raise UsageError(f"--{name} needs HOST=INSIDE with a full path inside, not '{text}'")
    inside = "/" + inside
    ends_in_slash = inside.endswith("/")
    inside = os.path.normpath("/" + inside.lstrip("/"))
    if ends_in_slash:
        if name == "share":
            raise UsageError(f"--{name} {text}: INSIDE must not end in /")
        inside = os.path.join(inside, os.path.basename(os.path.abspath(host)))
    if inside == "/" or inside.split("/")[1] in ("proc", "dev", MARKER[1:]):
        raise UsageError(f"--{name} {text}: {inside} belongs to the panel itself")
    if not os.path.exists(host):
        raise UsageError(f"--{name} {text}: there is no {host}")
    return os.path.realpath(host), inside


def _inside(name, text):
    path = os.path.normpath("/" + text.lstrip("/"))
    if not text.startswith("/") or path == "/" or path.split("/")[1] in ("proc", "dev"):
        raise UsageError(f"--{name} needs a full path of the panel's files, not '{text}'")
    return path


def _number(name, text, smallest, largest):
    if not re.fullmatch(r"[0-9]{1,9}", text) or not smallest <= int(text) <= largest:
        raise UsageError(f"--{name} needs a number from {smallest} to {largest}, not '{text}'")
    return int(text)


def _tool(name, text):
    if not re.fullmatch(r"[^/\s=@]+", text) or text in (".", ".."):
        raise UsageError(f"--{name} needs the plain name of a tool, not '{text}'")
    return text


def _failure(text):
    match = re.fullmatch(r"([^/\s=@]+)=([0-9]{1,3})(?:@([0-9]{1,9}))?", text)
    if not match or int(match[2]) > 255 or match[3] is not None and int(match[3]) < 1:
        raise UsageError(f"--fail needs TOOL=STATUS or TOOL=STATUS@N, not '{text}'")
    return _tool("fail", match[1]), int(match[2]), int(match[3] or 0)


def _shell_failure(text):
    number, _, command = text.partition("=")
    if not re.fullmatch(r"[0-9]{1,9}", number) or int(number) < 1 or not command:
        raise UsageError(f"--fail-shell needs N=TEXT, not '{text}'")
    return int(number), command


def _env(text):
    name, value = _pair("env", text)
    if not re.fullmatch(r"[A-Za-z_][A-Za-z0-9_]*", name):
        raise UsageError(f"--env: '{name}' is not a name of a variable")
    return name, value


def _folder(name, text):
    if not os.path.isdir(text):
        raise UsageError(f"--{name}: {text} is not a folder")
    return os.path.realpath(text)


_FLAGS = {"boot", "erase", "help", "ignore-sigchld", "no-startup", "trace-programs",
          "trace-shell"}
_LISTS = {
    "share": lambda text: _host_and_inside("share", text),
    "put": lambda text: _host_and_inside("put", text),
    "env": _env,
    "fail": _failure,
    "fail-shell": _shell_failure,
    "missing": lambda text: _tool("missing", text),
    "full": lambda text: _inside("full", text),
    "read-only": lambda text: _inside("read-only", text),
}
_VALUES = {
    "state": os.path.abspath,
    "usb": lambda text: _folder("usb", text),
    "chdir": lambda text: text,
    "trace": lambda text: text,
    "summary-json": lambda text: text,
    "memory": lambda text: _number("memory", text, 16, 1 << 20),
    "processes": lambda text: _number("processes", text, 4, 30000),
    "seconds": lambda text: _number("seconds", text, 1, 1000000),
    "disk": lambda text: _number("disk", text, 16, 1 << 20),
}


def parse(arguments):
    """Turns the arguments behind the program name into Options; raises UsageError."""
    asked = {}
    rest = list(arguments)
    while rest and rest[0].startswith("-"):
        word = rest.pop(0)
        if word == "--":
            break
        name, equals, value = word[2:].partition("=")
        if word == "-h":
            name = "help"
        elif not word.startswith("--"):
            raise UsageError(f"unknown option {word}")
        field = name.replace("-", "_")
        if name in _FLAGS:
            if equals:
                raise UsageError(f"--{name} takes no value")
            asked[field] = True
            continue
        if name == "summary":
            if equals and not value:
                raise UsageError("--summary= needs the name of a file")
            asked[field] = value or "-"
            continue
        if name not in _LISTS and name not in _VALUES:
            raise UsageError(f"unknown option {word}")
        if not equals:
            if not rest:
                raise UsageError(f"--{name} needs a value")
            value = rest.pop(0)
        if not value:
            raise UsageError(f"--{name} needs a value")
        if name in _LISTS:
            asked[field] = (*asked.get(field, ()), _LISTS[name](value))
        else:
            asked[field] = _VALUES[name](value)
    options = Options(**asked, command=tuple(rest))
    _check(options)
    return options


def needs_value(word):
    """Tells whether an option, given as --name, must be followed by a value; so must an unknown."""
    return word[2:] not in _FLAGS and word != "--summary"


def _check(options):
    if options.help:
        return
    if options.erase:
        if not options.state or options.command:
            raise UsageError("--erase needs --state DIR and no COMMAND")
        return
    if options.no_startup and not options.boot:
        raise UsageError("--no-startup needs --boot")
    for name in ("trace-shell", "trace-programs"):
        if getattr(options, name.replace("-", "_")) and not options.trace:
            raise UsageError(f"--{name} needs --trace FILE")
    if not options.chdir.startswith("/"):
        raise UsageError("--chdir needs a full path")
    if not options.command:
        raise UsageError("COMMAND is missing")


def environment(options):
    """Returns the whole environment of the command."""
    result = {"PATH": "/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin",
              "HOME": "/root"}
    for name in ("LANG", "LC_ALL", "TERM"):
        if name in os.environ:
            result[name] = os.environ[name]
    result.update(options.env)
    return result


def complain(text):
    """Writes one line to stderr, which may be closed or full."""
    line = " ".join(text.split("\n")) + "\n"
    try:
        os.write(2, line.encode(errors="surrogateescape"))
    except OSError:
        pass


def show_help(text):
    """Prints a help text; returns the exit status."""
    try:
        sys.stdout.write(text)
        sys.stdout.flush()
    except (OSError, AttributeError):
        return 1
    return 0
