# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
"""The record of what happened on the panel, one line per event."""

import errno
import fcntl
import os
import struct

from kxdevice import linux, trees

SHELLS = (b"/bin/sh", b"/usr/bin/sh")
PAGE = 4096
LONGEST = 1 << 22
MOST_TOLD = 10000  # programs that are known to have been told
MOST = 1 << 28  # bytes of a whole trace: a runaway command must not fill the caller's disk

_NOTICE = struct.Struct("=QIIiIQ6Q")
_ANSWER = struct.Struct("=QqiI")
_RECEIVE = 0xC0502100
_SEND = 0xC0182101
_STILL_THERE = 0x40082102
_CONTINUE = 1


class Trace:
    """Writes events to an open file; without one it does nothing."""

    def __init__(self, descriptor):
        self.descriptor = descriptor
        self.failed = ""
        self.written = 0

    def event(self, *fields):
        """Adds a line of fields, given as bytes."""
        if self.descriptor < 0 or self.failed:
            return
        line = b"\t".join(escaped(field) for field in fields) + b"\n"
        self.written += len(line)
        if self.written > MOST:
            self.failed = f"more than {MOST >> 20} MiB"
            return
        try:
            trees.write_all(self.descriptor, line)
        except OSError as error:
            self.failed = os.strerror(error.errno)


def escaped(field):
    """Returns a field without tabs and line ends; all other bytes stay as they are."""
    return (field.replace(b"\\", b"\\\\").replace(b"\t", b"\\t").replace(b"\n", b"\\n"))


class ExecListener:
    """Sees every program start on the panel, before it happens."""

    def __init__(self, descriptor, trace, with_shell, missing):
        self.descriptor = descriptor
        self.trace = trace
        self.with_shell = with_shell
        self.missing = missing  # path as it is called: tool
        self.first = set()  # processes whose first start is the panel's own doing
        self.last_missing = (0, b"")
        self.refusals = None
        self.starts = None

    def refuse(self, parent, failures):
        """Keeps shells that the process starts itself from starting; failures: (nth, text)."""
        if failures:
            self.refusals = _Refusals(parent, failures)

    def tell_starts(self, parent, programs):
        """Traces the shells that the process starts itself, and the starts of programs.Programs."""
        self.starts = _Starts(parent, programs, self.trace)

    def handle(self):
        """Handles one notice; a process that is gone meanwhile is fine."""
        buffer = bytearray(_NOTICE.size)
        try:
            fcntl.ioctl(self.descriptor, _RECEIVE, buffer)
        except OSError as error:
            if error.errno in (errno.ENOENT, errno.EINTR, errno.EAGAIN):
                return
            raise
        identity, process, _, call, _, _, *arguments = _NOTICE.unpack(buffer)
        is_refused = False
        try:
            is_refused = self._look(identity, process, call, arguments)
        finally:
            answer = (-errno.EACCES, 0) if is_refused else (0, _CONTINUE)
            try:
                fcntl.ioctl(self.descriptor, _SEND, _ANSWER.pack(identity, 0, *answer))
            except OSError as error:
                if error.errno != errno.ENOENT:
                    raise

    def _look(self, identity, process, call, arguments):
        """Traces the start; returns whether it is to be refused."""
        if process in self.first:
            self.first.discard(process)
            return False
        skip = 1 if call == linux.number("execveat") else 0
        try:
            memory = os.open(f"/proc/{process}/mem", os.O_RDONLY | os.O_CLOEXEC)
        except OSError:
            return False
        try:
            path = _string(memory, arguments[skip], PAGE)
            if self.starts is not None and self._is_there(identity):
                self.starts.program(process, path)
            if path in self.missing:
                words = _words(memory, arguments[skip + 1], LONGEST // 8)
                fields = (b"tool", self.missing[path], *words[1:])
                if (process, path) != self.last_missing and self._is_there(identity):
                    self.trace.event(*fields)
                self.last_missing = (process, path)
            elif (self.with_shell or self.refusals or self.starts) and path in SHELLS:
                words = _words(memory, arguments[skip + 1], 4)
                if len(words) > 3 and words[1] == b"-c" and words[2] == b"--":
                    del words[2]
                if len(words) > 2 and words[1] == b"-c" and self._is_there(identity):
                    return self._shell(process, words[2])
        except OSError:
            return False
        finally:
            os.close(memory)
        return False

    def _shell(self, process, command):
        if self.with_shell:
            self.trace.event(b"shell", command)
        if self.starts is not None:
            self.starts.shell(process, command)
        if self.refusals is None or not self.refusals.apply_to(process, command):
            return False
        self.trace.event(b"refused", command)
        return True

    def _is_there(self, identity):
        try:
            fcntl.ioctl(self.descriptor, _STILL_THERE, struct.pack("=Q", identity))
        except OSError:
            return False
        return True


class _Refusals:
    """Which of a process's own shells may not start."""

    def __init__(self, parent, failures):
        self.parent = parent
        self.failures = [(nth, os.fsencode(text)) for nth, text in failures]
        self.counts = {}
        self.last = (0, False)

    def apply_to(self, process, command):
        """Counts a start; tells whether it is one of those.

        Only the first start of a process counts: the kernel may show it twice, and what the shell
        itself becomes is the shell's doing.
        """
        if process == self.last[0]:
            return self.last[1]
        if _parent(process) != self.parent:
            return False
        count = self.counts[command] = self.counts.get(command, 0) + 1
        self.last = (process, (count, command) in self.failures)
        return self.last[1]


class _Starts:
    """Tells which shells a process starts itself, and which programs are started meanwhile."""

    def __init__(self, parent, programs, trace):
        self.parent = parent
        self.programs = programs
        self.trace = trace
        self.last = 0
        self.told = set()

    def shell(self, process, command):
        """Tells a shell of the process; the first start of each child, as the kernel may show it
        twice, and what the shell itself becomes is the shell's doing."""
        if process != self.last and _parent(process) == self.parent:
            self.last = process
            self.told.clear()
            self.trace.event(b"command", command)

    def program(self, process, path):
        """Tells a program, once for each of those shells."""
        fields = self.programs.look(process, path)
        if fields is None or fields in self.told:
            return
        if len(self.told) < MOST_TOLD:
            self.told.add(fields)
        self.trace.event(b"program", *fields)


def _parent(process):
    with open(f"/proc/{process}/stat", "rb") as file:
        # The name before it may hold anything, brackets included.
        return int(file.read().rpartition(b")")[2].split()[1])


def _string(memory, address, longest):
    """Returns the text at an address of another process."""
    found = b""
    while len(found) < longest:
        part = os.pread(memory, PAGE - address % PAGE, address)
        end = part.find(b"\0")
        if end >= 0:
            return found + part[:end]
        if not part:
            break
        found += part
        address += len(part)
    return found


def _words(memory, address, most):
    """Returns the texts that an argument array of another process points to."""
    size = struct.calcsize("P")
    words, length = [], 0
    while len(words) < most and length < LONGEST:
        pointer = int.from_bytes(os.pread(memory, size, address), "little")
        if pointer == 0:
            break
        words.append(_string(memory, pointer, LONGEST))
        length += len(words[-1])
        address += size
    return words
