# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
"""The process between the caller and the panel: makes the namespaces and starts process 1.

It outlives a killed front just long enough to end the panel and to remove its control groups.
"""

import errno
import os
import select
import signal
import socket
from typing import NamedTuple

from kxdevice import host, ids as ids_module, linux, supervisor
from kxdevice.linux import SandboxError

NAMESPACES = linux.CLONE_NEWPID | linux.CLONE_NEWNET | linux.CLONE_NEWIPC | linux.CLONE_NEWUTS
ENDING_SIGNALS = (signal.SIGINT, signal.SIGTERM, signal.SIGHUP)


class Ends(NamedTuple):
    """The keeper's ends of what connects it with the front."""

    life: int  # descriptor to read; its end is that of the front
    start: socket.socket  # tells whether the panel could be started
    control: object  # link.Link for process 1


def keep(order, ends, groups, lock):
    """The life of the keeper: namespaces, process 1, then waiting for the end of either side.

    order is the supervisor's; groups are removed at the end; lock is a descriptor that holds the
    state for that long, or -1. Never returns.
    """
    os.setsid()
    for number in (*ENDING_SIGNALS, signal.SIGQUIT, signal.SIGPIPE, signal.SIGTSTP):
        signal.signal(number, signal.SIG_IGN)
    _close_others({ends.life, ends.start.fileno(), ends.control.fileno(), lock,
                   *order.descriptors()})
    try:
        standing = _enter_namespaces(order.ids, ends.start)
        socket.sethostname("panel")
        process = os.fork()
        if process == 0:
            try:
                os.close(ends.life)
                ends.start.close()
                supervisor.main(order, standing, ends.control)
            finally:
                os._exit(1)
        ends.start.sendall(b"started")
    except (SandboxError, OSError) as error:
        ends.start.sendall(linux.reason(error).encode(errors="replace"))
        os._exit(1)
    ends.start.close()
    ends.control.close()
    _wait_for_end(process, ends.life)
    groups.remove()
    os._exit(0)


def _enter_namespaces(ids, start):
    """Enters the namespaces that process 1 is to be born in; returns its host.Standing."""
    standing = host.Standing()
    if os.geteuid() == 0:
        standing = host.Standing(_make_user_namespace(ids), linux.is_first_user_namespace())
    else:
        _namespaces(linux.CLONE_NEWUSER)
        start.sendall(b"map")
        if start.recv(2) != b"go":
            os._exit(1)
    _namespaces(NAMESPACES)
    try:
        linux.unshare(linux.CLONE_NEWCGROUP)
    except OSError as error:
        if error.errno != errno.EINVAL:  # a kernel without such namespaces
            raise
    return standing


def _wait_for_end(process, life):
    null = os.open("/dev/null", os.O_RDWR)
    for number in (0, 1, 2):
        os.dup2(null, number)
    watched = os.pidfd_open(process)
    poll = select.poll()
    poll.register(watched, select.POLLIN)
    poll.register(life, select.POLLIN | select.POLLHUP)
    poll.poll()
    # Process 1 takes every process of the panel with it.
    os.kill(process, signal.SIGKILL)
    os.waitpid(process, 0)
    # The front still reads from the control groups what ended the command.
    os.read(life, 1)


def _close_others(kept):
    for name in os.listdir("/proc/self/fd"):
        descriptor = int(name)
        if descriptor > 2 and descriptor not in kept:
            try:
                os.close(descriptor)
            except OSError:
                pass  # the descriptor of the listing itself


def _namespaces(flags):
    try:
        linux.unshare(flags)
    except OSError as error:
        what = "user namespaces" if flags & linux.CLONE_NEWUSER else "namespaces"
        raise SandboxError(
            f"this system gives no {what} ({error.strerror}); allow them (sysctl "
            "user.max_user_namespaces, kernel.unprivileged_userns_clone, "
            "kernel.apparmor_restrict_unprivileged_userns; in a container: its seccomp profile)"
        ) from None


def _make_user_namespace(ids):
    """Returns a descriptor of a user namespace with the panel's ids (started by root only)."""
    ready, go = os.pipe(), os.pipe()
    process = os.fork()
    if process == 0:
        try:
            os.close(go[1])
            _namespaces(linux.CLONE_NEWUSER)
            os.write(ready[1], b"x")
            os.read(go[0], 1)
        except SandboxError as error:
            os.write(ready[1], str(error).encode())
        finally:
            os._exit(0)
    os.close(ready[1])
    os.close(go[0])
    try:
        answer = os.read(ready[0], 4096)
        if answer != b"x":
            raise SandboxError(answer.decode() or "the user namespace could not be made")
        ids_module.write_map(process, ids)
        return os.open(f"/proc/{process}/ns/user", os.O_RDONLY | os.O_CLOEXEC)
    finally:
        os.close(ready[0])
        os.close(go[1])
        os.waitpid(process, 0)
