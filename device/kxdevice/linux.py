# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
"""System calls that Python's library does not offer: namespaces, mounts, capabilities, seccomp."""

import ctypes
import errno
import os
import signal
import struct

_LIBC = ctypes.CDLL(None, use_errno=True)

CLONE_NEWNS = 0x00020000
CLONE_NEWCGROUP = 0x02000000
CLONE_NEWUTS = 0x04000000
CLONE_NEWIPC = 0x08000000
CLONE_NEWUSER = 0x10000000
CLONE_NEWPID = 0x20000000
CLONE_NEWNET = 0x40000000

MS_RDONLY = 0x1
MS_NOSUID = 0x2
MS_NODEV = 0x4
MS_NOEXEC = 0x8
MS_REMOUNT = 0x20
MS_BIND = 0x1000
MS_REC = 0x4000
MS_PRIVATE = 0x40000
MNT_DETACH = 0x2
UMOUNT_NOFOLLOW = 0x8

AT_FDCWD = -100
AT_EMPTY_PATH = 0x1000
AT_RECURSIVE = 0x8000
OPEN_TREE_CLONE = 0x1
FSOPEN_CLOEXEC = 0x1
FSCONFIG_CMD_CREATE = 6
FSMOUNT_CLOEXEC = 0x1
MOVE_MOUNT_F_EMPTY_PATH = 0x4
MOUNT_ATTR_RDONLY = 0x1
MOUNT_ATTR_NOSUID = 0x2
MOUNT_ATTR_NODEV = 0x4
MOUNT_ATTR_IDMAP = 0x00100000

PR_SET_PDEATHSIG = 1
PR_SET_DUMPABLE = 4
PR_CAPBSET_DROP = 24
PR_SET_NO_NEW_PRIVS = 38
PR_CAP_AMBIENT = 47
PR_CAP_AMBIENT_CLEAR_ALL = 4
KEYCTL_JOIN_SESSION_KEYRING = 1

SECCOMP_SET_MODE_FILTER = 1
SECCOMP_FILTER_FLAG_NEW_LISTENER = 0x8
SECCOMP_FILTER_FLAG_WAIT_KILLABLE_RECV = 0x20
SECCOMP_RET_ALLOW = 0x7FFF0000
SECCOMP_RET_USER_NOTIF = 0x7FC00000

# Numbers below 424 differ between the processors, later ones are the same everywhere.
_COMMON = {"open_tree": 428, "move_mount": 429, "fsopen": 430, "fsconfig": 431, "fsmount": 432,
           "openat2": 437, "mount_setattr": 442}
_NUMBERS = {
    "x86_64": {"pivot_root": 155, "keyctl": 250, "seccomp": 317, "execve": 59, "execveat": 322,
               "audit": 0xC000003E},
    "i386": {"pivot_root": 217, "keyctl": 288, "seccomp": 354, "execve": 11, "execveat": 358,
             "audit": 0x40000003},
    "arm": {"pivot_root": 218, "keyctl": 311, "seccomp": 383, "execve": 11, "execveat": 387,
            "audit": 0x40000028},
    "aarch64": {"pivot_root": 41, "keyctl": 219, "seccomp": 277, "execve": 221, "execveat": 281,
                "audit": 0xC00000B7},
    "riscv64": {"pivot_root": 41, "keyctl": 219, "seccomp": 277, "execve": 221, "execveat": 281,
                "audit": 0xC00000F3},
}


RESOLVE_NO_MAGICLINKS = 0x02
RESOLVE_IN_ROOT = 0x10


class SandboxError(Exception):
    """The sandbox cannot be made; the text says why and what helps."""


def reason(error):
    """Returns the text of an error without its number."""
    if isinstance(error, OSError) and error.strerror:
        return f"{error.filename}: {error.strerror}" if error.filename else error.strerror
    return str(error)


def is_first_user_namespace():
    """Tells whether the caller's ids are those of the machine itself."""
    with open("/proc/self/uid_map", encoding="ascii") as file:
        return file.read().split() == ["0", "0", "4294967295"]


def machine():
    """Returns the processor as the running program sees it (32-bit programs on 64-bit kernels)."""
    name = os.uname().machine
    if struct.calcsize("P") == 4:
        if name in ("x86_64", "i486", "i586", "i686"):
            return "i386"
        if name == "aarch64" or name.startswith("arm"):
            return "arm"
    return name


def number(name):
    """Returns the number of a system call, or of the processor itself for "audit"."""
    if name in _COMMON:
        return _COMMON[name]
    try:
        return _NUMBERS[machine()][name]
    except KeyError:
        raise SandboxError(
            f"processor {machine()} is unknown to the sandbox; "
            "add its system call numbers to kxdevice/linux.py") from None


def _bytes(path):
    return None if path is None else os.fsencode(path)


def _failed(what):
    code = ctypes.get_errno()
    raise OSError(code, f"{what}: {os.strerror(code)}")


def _syscall(name, *arguments):
    values = [ctypes.c_long(a) if isinstance(a, int) else a for a in arguments]
    _LIBC.syscall.restype = ctypes.c_long
    result = _LIBC.syscall(ctypes.c_long(number(name)), *values)
    if result < 0:
        _failed(name)
    return result


def unshare(flags):
    """Moves the caller into new namespaces."""
    if _LIBC.unshare(ctypes.c_int(flags)) != 0:
        _failed("unshare")


def setns(descriptor, kind):
    """Moves the caller into the namespace behind a descriptor."""
    if _LIBC.setns(ctypes.c_int(descriptor), ctypes.c_int(kind)) != 0:
        _failed("setns")


def prctl(option, value=0, third=0):
    """Calls prctl with up to three numbers."""
    if _LIBC.prctl(ctypes.c_int(option), ctypes.c_ulong(value), ctypes.c_ulong(third),
                   ctypes.c_ulong(0), ctypes.c_ulong(0)) < 0:
        _failed("prctl")


def mount(source, target, kind, flags=0, data=None):
    """Mounts a file system, or changes a mount, in the caller's mount namespace."""
    if _LIBC.mount(_bytes(source), _bytes(target), _bytes(kind), ctypes.c_ulong(flags),
                   _bytes(data)) != 0:
        _failed(f"mount {kind or source} at {target}")


def umount(target, flags=0):
    """Unmounts what is mounted at a path."""
    if _LIBC.umount2(_bytes(target), ctypes.c_int(flags)) != 0:
        _failed(f"umount {target}")


def pivot_root(new_root, put_old):
    """Makes new_root the root of the mount namespace."""
    _syscall("pivot_root", ctypes.c_char_p(_bytes(new_root)), ctypes.c_char_p(_bytes(put_old)))


def open_tree(path, flags=OPEN_TREE_CLONE, directory=AT_FDCWD):
    """Returns a descriptor of a detached copy of the mount at a path."""
    return _syscall("open_tree", directory, ctypes.c_char_p(_bytes(path)),
                    flags | os.O_CLOEXEC)


def open_inside(path, directory=AT_FDCWD, flags=os.O_PATH | os.O_DIRECTORY):
    """Opens a folder of the panel as a place, or what the flags say; returns its descriptor.

    Links are followed inside the panel's root, but not those of /proc, which lead to wherever a
    process holds something open.
    """
    how = struct.pack("=QQQ", flags | os.O_CLOEXEC, 0,
                      RESOLVE_NO_MAGICLINKS | RESOLVE_IN_ROOT)
    return _syscall("openat2", directory, ctypes.c_char_p(_bytes(path)),
                    ctypes.c_char_p(how), len(how))


def mount_detached(kind):
    """Returns a descriptor of a new file system that is mounted nowhere."""
    opened = _syscall("fsopen", ctypes.c_char_p(_bytes(kind)), FSOPEN_CLOEXEC)
    try:
        _syscall("fsconfig", opened, FSCONFIG_CMD_CREATE, None, None, 0)
        return _syscall("fsmount", opened, FSMOUNT_CLOEXEC,
                        MOUNT_ATTR_NOSUID | MOUNT_ATTR_NODEV)
    finally:
        os.close(opened)


def move_mount(descriptor, path, directory=AT_FDCWD):
    """Attaches a detached mount at a path."""
    _syscall("move_mount", descriptor, ctypes.c_char_p(b""), directory,
             ctypes.c_char_p(_bytes(path)), MOVE_MOUNT_F_EMPTY_PATH)


def mount_setattr(descriptor, attributes, recursive=False, user_namespace=0):
    """Adds attributes to a detached mount, and the ids of a user namespace when one is given."""
    if user_namespace:
        attributes |= MOUNT_ATTR_IDMAP
    request = struct.pack("=QQQQ", attributes, 0, 0, user_namespace)
    flags = AT_EMPTY_PATH | (AT_RECURSIVE if recursive else 0)
    _syscall("mount_setattr", descriptor, ctypes.c_char_p(b""), flags,
             ctypes.c_char_p(request), len(request))


def join_own_keyring():
    """Leaves the caller's session keyring; kernels without keyrings have nothing to leave."""
    try:
        _syscall("keyctl", KEYCTL_JOIN_SESSION_KEYRING, 0, 0, 0, 0)
    except OSError as error:
        if error.errno != errno.ENOSYS:
            raise


def expect_children():
    """Lets the ends of children be noticed, which the caller may have blocked or ignored."""
    signal.signal(signal.SIGCHLD, signal.SIG_DFL)
    signal.pthread_sigmask(signal.SIG_UNBLOCK, [signal.SIGCHLD])


def keep_capabilities(kept):
    """Reduces the bounding, permitted and effective sets to the given numbers, for good."""
    prctl(PR_CAP_AMBIENT, PR_CAP_AMBIENT_CLEAR_ALL)
    for capability in range(64):
        if capability in kept:
            continue
        try:
            prctl(PR_CAPBSET_DROP, capability)
        except OSError as error:
            if error.errno == errno.EINVAL:  # past the last capability this kernel has
                break
            raise
    mask = sum(1 << capability for capability in kept)
    low, high = mask & 0xFFFFFFFF, mask >> 32
    header = struct.pack("=Ii", 0x20080522, 0)
    data = struct.pack("=IIIIII", low, low, 0, high, high, 0)
    if _LIBC.capset(ctypes.c_char_p(header), ctypes.c_char_p(data)) != 0:
        _failed("capset")


def forget_command_line(name):
    """Overwrites the arguments and the environment that /proc shows of this process."""
    with open("/proc/self/stat", encoding="utf-8", errors="replace") as file:
        fields = file.read().rpartition(")")[2].split()
    spans = [(int(fields[45]), int(fields[46])), (int(fields[47]), int(fields[48]))]
    os.environ.clear()
    for start, end in spans:
        if start and end > start:
            ctypes.memset(start, 0, end - start)
    start, end = spans[0]
    text = name.encode()[:max(0, end - start - 1)]
    if start:
        ctypes.memmove(start, text, len(text))


class _SockFprog(ctypes.Structure):
    _fields_ = [("length", ctypes.c_ushort), ("filter", ctypes.c_void_p)]


def install_exec_listener():
    """Asks for a notice of every program start; returns the descriptor the notices come from.

    Needs no_new_privs. The caller and all its children then wait at each start until the reader of
    the descriptor lets them go on.
    """
    load, jump_equal, give = 0x20, 0x15, 0x06
    program = [
        (load, 0, 0, 4),
        (jump_equal, 0, 4, number("audit")),
        (load, 0, 0, 0),
        (jump_equal, 1, 0, number("execve")),
        (jump_equal, 0, 1, number("execveat")),
        (give, 0, 0, SECCOMP_RET_USER_NOTIF),
        (give, 0, 0, SECCOMP_RET_ALLOW),
    ]
    code = b"".join(struct.pack("=HBBI", *line) for line in program)
    buffer = ctypes.create_string_buffer(code, len(code))
    fprog = _SockFprog(len(program), ctypes.cast(buffer, ctypes.c_void_p))
    flags = SECCOMP_FILTER_FLAG_NEW_LISTENER
    try:
        return _syscall("seccomp", SECCOMP_SET_MODE_FILTER,
                        flags | SECCOMP_FILTER_FLAG_WAIT_KILLABLE_RECV, ctypes.byref(fprog))
    except OSError as error:
        if error.errno != errno.EINVAL:
            raise
    # Kernels before 5.19: a signal during the wait shows the same start twice.
    return _syscall("seccomp", SECCOMP_SET_MODE_FILTER, flags, ctypes.byref(fprog))
