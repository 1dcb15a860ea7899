# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
"""Runs commands in a small virtual machine with Debian's kernel, for tests that need a file system or
a drive which this computer's kernel may not have. The machine has BusyBox, tools to make and to check
file systems (vfat, exfat, ext4), dmsetup and what is added. It has no disk and no network, sees no
file of this computer but those, and ends with the script.

In the machine `drive plug` puts a USB drive in (--drive) and tells its name; `drive pull` pulls it out
as a hand does."""
import argparse
import contextlib
import json
import os
import pathlib
import signal
import socket
import sys
import tempfile

from kxscripts import common, vm_image, vm_kernel
from kxscripts.common import Failed
from kxscripts.vm_machine import Ended, Machine

TROUBLE = 3   # there is no machine, or it ended before the command
TOO_LATE = 124
EXITS = f"""exit status:
  that of COMMAND, 128 and the signal's number when one ended it;
  {TROUBLE} with one line or more on standard error when the machine cannot be made, or ended first;
  {TOO_LATE} when the time was over; 2 for a wrong command line"""


class TimeIsOver(Exception):
    """The machine has used its time."""


@contextlib.contextmanager
def time_limit(seconds):
    """Raises TimeIsOver in the body after some seconds, whatever it waits for."""
    def over(*_):
        raise TimeIsOver(f"the time of the virtual machine, {seconds} seconds, is over")
    earlier = signal.signal(signal.SIGALRM, over)
    signal.setitimer(signal.ITIMER_REAL, seconds)
    try:
        yield
    finally:
        signal.setitimer(signal.ITIMER_REAL, 0)
        signal.signal(signal.SIGALRM, earlier)


@contextlib.contextmanager
def machine(options):
    """A machine as the options say, while the body runs."""
    vm_kernel.check_computer()
    kernel = vm_kernel.find()
    added = [vm_image.parse_added(word) for word in options.add]
    with tempfile.TemporaryDirectory(prefix="kx-vm.") as work:
        archive = vm_image.make(kernel, added, pathlib.Path(work))
        # While it starts, the machine has the archive and what is unpacked of it in its memory.
        needed = (2 * archive.stat().st_size >> 20) + 64
        if options.memory < needed:
            raise Failed(f"the files of the virtual machine need --memory {needed}")
        with Machine(kernel, archive, memory=options.memory, seconds=2 * options.seconds,
                     drive=options.drive, console=2 if options.console else None) as started:
            yield started


def run(options):
    """One command in a machine of its own."""
    with time_limit(options.seconds), machine(options) as started:
        return started.execute(options.command, 1, 2)


def answer(started, caller):
    """Does what `exec` asks for on a connection; returns nothing. Raises Ended."""
    data, descriptors, _, _ = socket.recv_fds(caller, 1 << 20, 2)
    try:
        if len(descriptors) != 2:
            return
        status = started.execute(json.loads(data), *descriptors, watched=[caller])
        caller.sendall(json.dumps({"status": status}).encode())
    except BrokenPipeError:
        return
    except (Ended, TimeIsOver) as failure:
        with contextlib.suppress(OSError):
            caller.sendall(json.dumps({"failure": str(failure)}).encode())
        raise
    finally:
        for descriptor in descriptors:
            os.close(descriptor)


def serve(options):
    """One machine for many commands, which `exec` sends over a socket, one after the other."""
    with contextlib.ExitStack() as stack:
        stack.enter_context(time_limit(options.seconds))
        started = stack.enter_context(machine(options))
        listener = stack.enter_context(socket.socket(socket.AF_UNIX, socket.SOCK_SEQPACKET))
        listener.bind(options.socket)
        stack.callback(os.unlink, options.socket)
        listener.listen()
        while True:
            caller, _ = listener.accept()
            with caller:
                answer(started, caller)


def execute(options):
    """One command in the machine behind a socket."""
    with socket.socket(socket.AF_UNIX, socket.SOCK_SEQPACKET) as keeper:
        try:
            keeper.connect(options.socket)
            socket.send_fds(keeper, [json.dumps(options.command).encode()], [1, 2])
            said = keeper.recv(1 << 20)
        except OSError as error:
            raise Failed(f"there is no virtual machine behind {options.socket}: {error}") from error
    if not said:
        raise Failed("the virtual machine was ended")
    result = json.loads(said)
    if "failure" in result:
        raise Failed(result["failure"])
    return result["status"]


def kernel(options):
    """Fetches the kernel of the machine from Debian, unless it is there."""
    if options.there:
        vm_kernel.check_computer()
        vm_kernel.find()
    else:
        vm_kernel.fetch()
    return 0


def positive(text):
    """A number of the command line that is above 0."""
    number = int(text)
    if number <= 0:
        raise argparse.ArgumentTypeError(f"{text} is not above 0")
    return number


def add_machine_options(parser):
    """The options of what starts a machine."""
    parser.add_argument("--seconds", type=positive, default=120, metavar="N",
                        help="end the machine after this time (120)")
    parser.add_argument("--memory", type=positive, default=256, metavar="MiB",
                        help="memory of the machine, for its files and its programs (256)")
    parser.add_argument("--drive", type=positive, default=0, metavar="MiB",
                        help="size of a USB drive that can be plugged in; it is empty, and kept in "
                             "this computer's memory")
    parser.add_argument("--add", action="append", default=[], metavar="HOST[:GUEST]",
                        help="add a file or a folder, with the libraries of its programs; without "
                             "GUEST it has the same place in the machine")
    parser.add_argument("--console", action="store_true",
                        help="show on standard error what the kernel says")


def split(words):
    """A command line as what stands before its first "--", and the command behind it."""
    place = words.index("--") if "--" in words else len(words)
    return words[:place], words[place + 1:]


def parse(words):
    """The options of a command line; ends the script where it is wrong."""
    parser = argparse.ArgumentParser(prog="scripts/vm", description=__doc__, epilog=EXITS,
                                     formatter_class=argparse.RawDescriptionHelpFormatter)
    actions = parser.add_subparsers(required=True, metavar="ACTION")
    for name, work in (("run", run), ("serve", serve), ("exec", execute), ("kernel", kernel)):
        action = actions.add_parser(name, help=work.__doc__, description=work.__doc__,
                                    epilog=EXITS if name != "kernel" else None,
                                    formatter_class=argparse.RawDescriptionHelpFormatter)
        action.set_defaults(work=work)
        if name in ("serve", "exec"):
            action.add_argument("socket", metavar="SOCKET", help="the name of the socket")
        if name in ("run", "serve"):
            add_machine_options(action)
        if name in ("run", "exec"):
            action.usage = f"{action.format_usage().split(' ', 1)[1].rstrip()} -- COMMAND..."
        if name == "kernel":
            action.add_argument("--there", action="store_true", help="only look whether it is there")
    before, command = split(words)
    options = parser.parse_args(before)
    if (options.work in (run, execute)) != bool(command):
        parser.error("a command stands behind -- for run and exec, and for nothing else")
    options.command = command
    return options


def work_of(options):
    """Does what the options say. Returns the exit status."""
    try:
        return options.work(options)
    except TimeIsOver as end:
        print(f"scripts/vm: {end}", file=sys.stderr, flush=True)
        return TOO_LATE
    except (Failed, OSError) as failure:
        print(f"scripts/vm: {failure}", file=sys.stderr, flush=True)
        return TROUBLE


def main():
    """Starts the script."""
    options = parse(sys.argv[1:])
    return common.run_script("scripts/vm", lambda: work_of(options))


if __name__ == "__main__":
    sys.exit(main())
