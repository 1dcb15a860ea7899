# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
"""Which of the panel's own programs are started, what they are made for, and whether they can run.

A program of another processor runs where the machine's kernel does that by itself, where the
machine's administrator registered an emulator, and where the machine has an emulator that can be
registered for the panel alone (Linux 6.7 and later).
"""

import errno
import os
import resource
import signal
import stat
import struct
from typing import NamedTuple

from kxdevice import linux

HEAD = 64  # bytes of the longest ELF head
MOST_SEGMENTS = 256
LONGEST_LINE = 256  # of a script: the kernel reads no more of it
MOST_INTERPRETERS = 5  # of scripts for scripts, as the kernel counts
PAGE = 4096
EXECUTABLE, SHARED = 2, 3
LOADED, LOADER = 1, 3  # kinds of segments


class Kind(NamedTuple):
    """A kind of processor, as the head of a program tells it."""

    is_64_bit: bool
    is_big_endian: bool
    machine: int

    def order(self):
        """Returns the byte order, as struct writes it."""
        return ">" if self.is_big_endian else "<"


KINDS = {  # as linux.machine names them: what their programs tell, and the name of the emulator
    "aarch64": (Kind(True, False, 183), "qemu-aarch64"),
    "arm": (Kind(False, False, 40), "qemu-arm"),
    "i386": (Kind(False, False, 3), "qemu-i386"),
    "riscv64": (Kind(True, False, 243), "qemu-riscv64"),
    "x86_64": (Kind(True, False, 62), "qemu-x86_64"),
}
EMULATOR_FOLDER = "/usr/bin"
EMULATOR_ENDINGS = ("-static", "")


class Elf(NamedTuple):
    """What an ELF file tells of itself."""

    kind: Kind
    flags: int
    loader: bytes  # path of what loads it, or b""

    def processor(self):
        """Returns the name of the processor, or that it is none of those that are known."""
        return next((name for name, (kind, _) in KINDS.items() if kind == self.kind),
                    "another processor")


def read_elf(descriptor):
    """Returns what an open file tells, or None when it is no ELF file that could be started."""
    head = os.pread(descriptor, HEAD, 0)
    if head[:4] != b"\x7fELF" or len(head) < 16 or head[4] not in (1, 2) or head[5] not in (1, 2):
        return None
    kind = Kind(head[4] == 2, head[5] == 2, 0)
    layout = "HHIQQQIHHHH" if kind.is_64_bit else "HHIIIIIHHHH"
    size = struct.calcsize(f"={layout}")
    if len(head) < 16 + size:
        return None
    _, machine, _, _, segments, _, flags, _, length, count, _ = struct.unpack(
        kind.order() + layout, head[16:16 + size])
    return Elf(kind._replace(machine=machine), flags,
               _loader(descriptor, kind, segments, length, min(count, MOST_SEGMENTS)))


def _loader(descriptor, kind, place, length, count):
    """Returns the path that the segment of the loader holds, or b""."""
    layout = "II6Q" if kind.is_64_bit else "8I"
    size = struct.calcsize(f"={layout}")
    if length != size:
        return b""
    table = _read(descriptor, length * count, place)
    for start in range(0, len(table) - size + 1, length):
        fields = struct.unpack(kind.order() + layout, table[start:start + size])
        offset, stored = (fields[2], fields[5]) if kind.is_64_bit else (fields[1], fields[4])
        if fields[0] == LOADER:
            return _read(descriptor, min(stored, PAGE), offset).split(b"\0")[0]
    return b""


def _read(descriptor, size, place):
    """Reads from a file whatever a program's head tells; b"" where no file has anything."""
    try:
        return os.pread(descriptor, size, place)
    except (OSError, OverflowError):
        return b""


def read_interpreter(descriptor):
    """Returns the path of a script's interpreter, or b"" when the file is no script with one."""
    line = os.pread(descriptor, LONGEST_LINE, 0).partition(b"\n")[0]
    words = line[2:].split() if line.startswith(b"#!") else []
    return words[0] if words else b""


class Programs:
    """The programs that are started on a panel."""

    def __init__(self, changed, shares):
        """changed is a descriptor of the folder with what differs from the machine's /usr; shares
        are the places of the panel where something of the machine is shown."""
        self.root = os.open("/", os.O_PATH | os.O_CLOEXEC)
        self.changed = changed
        self.shares = tuple(os.fsencode(place) for place in shares)
        self.can_run = {}  # Kind: bool
        self.registered = None  # descriptor that keeps the registered emulators

    def look(self, process, path):
        """Looks at a program that a process is about to start.

        Returns None for what is no program of the panel's own, and for what cannot be started for
        another reason than its processor. Otherwise its path, its processor's name, whether a
        processor of that kind is at hand (b"yes" or b"no"), and the path of the loader that the
        panel does not have, or b"".
        """
        for _ in range(MOST_INTERPRETERS):
            opened = self._open(process, path)
            if opened < 0:
                return None
            try:
                real = os.readlink(f"/proc/self/fd/{opened}".encode())
                elf = read_elf(opened)
                if elf is not None:
                    return self._told(process, real, elf) if self._is_own(real) else None
                path = read_interpreter(opened)
            finally:
                os.close(opened)
            if not path:
                return None
        return None

    def _told(self, process, real, elf):
        can_run = self._can_run(elf)
        missing = b""
        if elf.loader:
            loader = self._open(process, elf.loader)
            if loader < 0:
                missing = elf.loader
            else:
                os.close(loader)
        return real, elf.processor().encode(), b"yes" if can_run else b"no", missing

    def _open(self, process, path):
        """Opens a file that a process could start, without waiting; returns -1 when it is none."""
        try:
            if not path.startswith(b"/"):
                path = os.readlink(f"/proc/{process}/cwd".encode()) + b"/" + path
            place = linux.open_inside(path, self.root, os.O_PATH)
        except OSError:
            return -1
        try:
            info = os.fstat(place)
            if not stat.S_ISREG(info.st_mode) or not info.st_mode & 0o111:
                return -1
            return os.open(f"/proc/self/fd/{place}", os.O_RDONLY | os.O_CLOEXEC)
        except OSError:
            return -1
        finally:
            os.close(place)

    def _is_own(self, real):
        """Tells whether a file is the panel's own, and not one of the machine's."""
        if any(real == place or real.startswith(place + b"/") for place in self.shares):
            return False
        if not real.startswith(b"/usr/"):
            return True
        try:
            return stat.S_ISREG(os.stat(real[len(b"/usr/"):], dir_fd=self.changed,
                                        follow_symlinks=False).st_mode)
        except OSError:
            return False

    def _can_run(self, elf):
        native = KINDS.get(linux.machine())
        if native and elf.kind == native[0]:
            return True
        if elf.kind not in self.can_run:
            self.can_run[elf.kind] = starts(elf) or self._register() and starts(elf)
        return self.can_run[elf.kind]

    def _register(self):
        """Registers the machine's emulators for the panel, the first time; what the machine itself
        has registered no longer counts then. Returns whether something is registered."""
        if self.registered is not None:
            return False
        self.registered = -1
        emulators = [(kind, path) for kind, path in _emulators() if path]
        if not emulators:
            return False
        try:
            self.registered = linux.mount_detached("binfmt_misc")
        except OSError:
            return False  # the kernel has one list for all, or none
        self.can_run.clear()
        for kind, path in emulators:
            try:
                register = os.open("register", os.O_WRONLY | os.O_CLOEXEC, dir_fd=self.registered)
                try:
                    os.write(register, entry(kind, path))
                finally:
                    os.close(register)
            except OSError:
                pass  # that the emulator cannot be used shows when it is tried
        return True


def _emulators():
    """Returns the kinds of processors with the path of the machine's emulator, or ""."""
    native = linux.machine()
    for name, (kind, emulator) in KINDS.items():
        places = (f"{EMULATOR_FOLDER}/{emulator}{ending}" for ending in EMULATOR_ENDINGS)
        if name != native:
            yield kind, next((place for place in places if os.access(place, os.X_OK)), "")


def entry(kind, path):
    """Returns the line that lets an emulator run the programs of a kind of processor.

    The emulator is opened at once (F), and programs get the name that they were called by (P).
    """
    order = kind.order()
    magic = (b"\x7fELF" + bytes((2 if kind.is_64_bit else 1, 2 if kind.is_big_endian else 1, 1))
             + bytes(9) + struct.pack(f"{order}HH", EXECUTABLE, kind.machine))
    # The system (byte 7), its version and the padding say nothing; the type is 2 or 3.
    mask = b"\xff" * 7 + bytes(9) + struct.pack(f"{order}HH", 0xfffe, 0xffff)
    quoted = ["".join(f"\\x{byte:02x}" for byte in part) for part in (magic, mask)]
    return f":{os.path.basename(path)}:M::{quoted[0]}:{quoted[1]}:{path}:PF".encode()


def smallest(elf):
    """Returns a program of the same kind with nothing in it but its head."""
    kind, base = elf.kind, 0x10000
    ident = (b"\x7fELF" + bytes((2 if kind.is_64_bit else 1, 2 if kind.is_big_endian else 1, 1))
             + bytes(9))
    head, part = (64, 56) if kind.is_64_bit else (52, 32)
    word = "Q" if kind.is_64_bit else "I"
    file = ident + struct.pack(f"{kind.order()}HHI3{word}IHHHHHH", EXECUTABLE, kind.machine, 1,
                               base + head + part, head, 0, elf.flags, head, part, 1, 0, 0, 0)
    size = head + part + PAGE
    if kind.is_64_bit:
        file += struct.pack(f"{kind.order()}II6Q", LOADED, 5, 0, base, base, size, size, PAGE)
    else:
        file += struct.pack(f"{kind.order()}8I", LOADED, 0, base, base, size, size, 5, PAGE)
    return file.ljust(size, b"\0")


def starts(elf):
    """Tells whether the machine starts programs of that kind, by starting an empty one for a moment,
    without any rights."""
    opened = []
    try:
        program = os.memfd_create("program", 0)
        opened.append(program)
        reader, writer = os.pipe2(os.O_CLOEXEC)
        opened += (reader, writer)
        os.write(program, smallest(elf))
        child = os.fork()
        if child == 0:
            try:
                _become_empty(program, writer)
            finally:
                os._exit(1)
        opened.remove(writer)
        os.close(writer)
        refused = os.read(reader, 1)
        os.kill(child, signal.SIGKILL)
        os.waitpid(child, 0)
        return not refused
    except OSError:
        return False
    finally:
        for descriptor in opened:
            os.close(descriptor)


def _become_empty(program, writer):
    """Becomes the program; tells at the other end of writer when that is not possible."""
    try:
        os.set_inheritable(program, True)
        null = os.open("/dev/null", os.O_RDWR)
        for number in (0, 1, 2):
            os.dup2(null, number)
        low, high = sorted((program, writer))
        for first, end in ((3, low), (low + 1, high), (high + 1, 65536)):
            os.closerange(first, end)
        resource.setrlimit(resource.RLIMIT_CORE, (0, 0))
        resource.setrlimit(resource.RLIMIT_CPU, (1, 1))
        linux.keep_capabilities(())
        linux.prctl(linux.PR_SET_NO_NEW_PRIVS, 1)
        os.execve(program, ["program"], {})
    except BaseException as error:  # pylint: disable=broad-except
        code = error.errno if isinstance(error, OSError) else errno.EIO
        os.write(writer, bytes((code & 0xff or 1,)))
