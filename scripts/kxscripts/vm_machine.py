# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
"""The virtual machine while it lives: qemu as a child that ends with this process, and the channels
over which commands go in and outputs come back. It has no network and no disk, sees nothing of this
computer but the files that were given to it, and is played by software: neither its speed nor what it
can do depends on the processor."""
import base64
import collections
import contextlib
import json
import os
import select
import shlex
import socket
import time

from kxscripts import common
from kxscripts.common import Failed
from kxscripts.demo_processes import Processes

QEMU = "qemu-system-x86_64"
PATIENCE = 2        # seconds from the request to end until force
OVERHEAD = 2048     # MiB of address space that qemu needs besides the machine's memory and its drive
TRANSLATED = 128    # MiB for translated code
CONSOLE = 65536     # bytes of the console that are kept
SHOWN = 60          # lines of them that are told
LETTING_GO = 5      # seconds until qemu lets go of a drive that was pulled out
CHUNK = 65536
# No restart after a panic, which ends the machine; a fault of the kernel is one, too. What slows the
# kernel down and protects nothing here is off.
KERNEL_LINE = ("console=ttyS0 quiet panic=-1 oops=panic mitigations=off nokaslr nowatchdog audit=0 "
               "apparmor=0 random.trust_cpu=on")
CHANNELS = ("console", "qmp", "control", "out", "err", "drive")
DRIVE = {"driver": "usb-storage", "id": "stick", "drive": "stick", "removable": True}


class Ended(Failed):
    """The machine ended, or does not answer as it should; the text has the end of its console."""


class Machine:
    """A machine that runs while the body of `with` does.

    archive   its files; what qemu has to say is kept beside it
    memory    MiB of the machine
    seconds   of processor time that it may use
    drive     MiB of the drive that can be plugged in; 0: there is none
    console   the descriptor that gets what the kernel says; None: it is told only when it matters"""

    def __init__(self, kernel, archive, *, memory, seconds, drive=0, console=None):
        self._kernel, self._archive = kernel, archive
        self._memory, self._seconds, self._drive = memory, seconds, drive
        self._echo = console
        self._log = archive.with_name("qemu.log")
        self._processes = Processes(PATIENCE)
        self._ours = {}
        self._said = bytearray()
        self._lines = collections.deque()
        self._half = {"control": b"", "drive": b""}
        self._answers = None
        self._plugged = False

    def command(self, numbers, drive):
        """The command line of qemu.

        numbers   the descriptor of each channel
        drive     the descriptor of the drive's memory, None without one"""
        words = ["prlimit", "--core=0", f"--cpu={self._seconds}",
                 f"--as={(self._memory + self._drive + TRANSLATED + OVERHEAD) << 20}", "--",
                 QEMU, "-accel", f"tcg,tb-size={TRANSLATED}", "-machine", "pc",
                 "-cpu", "qemu64", "-m", str(self._memory), "-nodefaults", "-no-user-config",
                 "-nic", "none", "-display", "none", "-no-reboot",
                 "-sandbox", "on,obsolete=deny,elevateprivileges=deny,spawn=deny",
                 "-kernel", str(self._kernel.image), "-initrd", str(self._archive),
                 "-append", KERNEL_LINE, "-device", "virtio-serial"]
        for name, number in numbers.items():
            words += ["-chardev", f"socket,id={name},fd={number}"]
        words += ["-serial", "chardev:console", "-mon", "chardev=qmp,mode=control"]
        for name in CHANNELS[2:]:
            words += ["-device", f"virtserialport,chardev={name},name=kx.{name}"]
        if drive is not None:
            words += ["-device", "qemu-xhci", "-add-fd", f"fd={drive},set=1", "-blockdev",
                      "driver=file,node-name=stick,filename=/dev/fdset/1,locking=off"]
        return words

    def __enter__(self):
        with contextlib.ExitStack() as stack:
            stack.callback(self._end)
            self._start()
            while not self._lines:
                self._hear()
            if self._lines.popleft() != b"ready":
                raise Ended(self._why("the virtual machine did not begin as it should"))
            stack.pop_all()
        return self

    def __exit__(self, *_):
        self._end()

    def _start(self):
        with contextlib.ExitStack() as theirs:
            numbers = {}
            for name in CHANNELS:
                self._ours[name], other = socket.socketpair()
                theirs.enter_context(other)
                numbers[name] = other.fileno()
            drive = None
            if self._drive:
                # Pages that were never written take no memory.
                drive = os.memfd_create("drive")
                theirs.callback(os.close, drive)
                os.truncate(drive, self._drive << 20)
            keep = [*numbers.values(), *([] if drive is None else [drive])]
            self._processes.start(*self.command(numbers, drive), log=self._log, keep=keep)
        self._answers = iter(self._ours["qmp"].makefile())
        self._qmp("qmp_capabilities")

    def _end(self):
        self._processes.stop_all()
        for channel in self._ours.values():
            channel.close()
        self._ours.clear()

    def execute(self, words, out, err, watched=()):
        """Runs a command as root in the machine to its end; returns its exit status, 128 and the
        signal's number for one that a signal ended.

        out, err  descriptors that get its outputs, byte by byte as it writes them
        watched   sockets whose end means that nobody waits for the command any more
        Raises Ended when the machine ends first or nobody waits; what was running still does then, so
        the machine is of no more use."""
        line = base64.b64encode(os.fsencode(shlex.join(["exec", *words])))
        self._ours["control"].sendall(line + b"\n")
        while not self._lines:
            self._hear({"out": out, "err": err}, watched)
        # The machine hands each output over before it tells the end, so all of it has come.
        self._drain({"out": out, "err": err})
        word, _, status = self._lines.popleft().partition(b" ")
        if word != b"ended":
            raise Ended(self._why("the virtual machine does not answer as it should"))
        return int(status)

    def _hear(self, outputs=None, watched=()):
        """Waits until a channel has something, and takes it."""
        names = {self._ours[name].fileno(): name for name in CHANNELS if name != "qmp"}
        gone = {one.fileno() for one in watched}
        poller = select.poll()
        for number in (*names, *gone):
            poller.register(number, select.POLLIN)
        for number, _ in poller.poll():
            if number in gone:
                raise Ended("nobody waits for the command any more")
            if not self._take(names[number], outputs or {}):
                self._drain(outputs or {})
                raise Ended(self._why("the virtual machine has ended by itself"))

    def _take(self, name, outputs):
        """Takes what a channel has; returns whether there was anything: a channel that is told to
        have something and has nothing was closed."""
        try:
            data = self._ours[name].recv(CHUNK, socket.MSG_DONTWAIT)
        except (BlockingIOError, ConnectionResetError):
            return False
        if name == "console":
            self._said = (self._said + data)[-CONSOLE:]
            if self._echo is not None:
                write_all(self._echo, data)
        elif name in self._half:
            *lines, self._half[name] = (self._half[name] + data).split(b"\n")
            for line in lines:
                self._line(name, line)
        elif name in outputs:
            write_all(outputs[name], data)
        return data != b""

    def _line(self, name, line):
        if name == "control":
            self._lines.append(line)
        elif name == "drive":
            self._ours["drive"].sendall(self._move(line.decode(errors="replace")).encode() + b"\n")

    def _drain(self, outputs):
        """Takes what has come of the outputs and of the console, without waiting."""
        for name in ("console", *outputs):
            while self._take(name, outputs):
                pass

    def _move(self, wish):
        """Plugs the drive in or pulls it out; returns what the machine is told."""
        if wish not in ("plug", "pull"):
            return "drive plug and drive pull are what there is"
        if not self._drive:
            return "this machine was started without a drive"
        if self._plugged == (wish == "plug"):
            return "it is plugged in already" if self._plugged else "it is not plugged in"
        if wish == "pull":
            problem = self._qmp("device_del", id=DRIVE["id"])
        else:
            until = time.monotonic() + LETTING_GO
            problem = self._qmp("device_add", **DRIVE)
            while problem and time.monotonic() < until:
                time.sleep(0.05)
                problem = self._qmp("device_add", **DRIVE)
        if problem is None:
            self._plugged = wish == "plug"
        return problem or "done"

    def _qmp(self, command, **arguments):
        """Asks qemu for something; returns None, or why it could not be done."""
        question = {"execute": command, "arguments": arguments}
        try:
            self._ours["qmp"].sendall(json.dumps(question).encode())
            while True:
                answer = json.loads(next(self._answers))
                if "return" in answer:
                    return None
                if "error" in answer:
                    return answer["error"]["desc"]
        except (ConnectionError, StopIteration):
            raise Ended(self._why(f"{QEMU} ended, or could not be started")) from None

    def _why(self, text):
        """The text, and the end of what the kernel said."""
        lines = self._said.decode(errors="replace").splitlines()[-SHOWN:]
        if b"Kernel panic" in self._said:
            text = "the kernel of the virtual machine panicked"
        lines += common.tail_of(self._log, SHOWN).splitlines()
        return "\n".join([text + (":" if lines else ""), *lines])


def write_all(descriptor, data):
    """Writes all bytes, however few are taken at once."""
    while data:
        data = data[os.write(descriptor, data):]
