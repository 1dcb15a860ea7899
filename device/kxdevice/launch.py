# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
"""Turns a forked child of process 1 into a command of the panel."""

import errno
import os
import resource
import signal
import socket
from typing import NamedTuple

from kxdevice import linux
from kxdevice.linux import SandboxError

CAPABILITIES = (0, 1, 3, 4, 5, 6, 7)  # CHOWN DAC_OVERRIDE FOWNER FSETID KILL SETGID SETUID
SH = "/bin/sh"


class Terms(NamedTuple):
    """The terms on which programs run on a panel."""

    environment: dict
    processes: int  # the most at one time
    ignore_sigchld: bool  # the command does from its start
    closed: tuple  # standard streams that the caller had closed
    groups: tuple  # descriptors of the control groups to join


def become(terms, words, chdir, startup, link, wants_listener):
    """Turns the forked child into a program: gives up all rights step by step; never returns.

    startup says that it is the start-up script. link takes one message, "ready" or what went wrong,
    with the descriptor of the exec listener when one is wanted, and gives the word to go.
    """
    try:
        signal.set_wakeup_fd(-1)
        os.setsid()
        linux.join_own_keyring()
        for group in terms.groups:
            os.write(group, b"0")
        resource.setrlimit(resource.RLIMIT_NPROC, (terms.processes, terms.processes))
        resource.setrlimit(resource.RLIMIT_CORE, (0, 0))
        os.umask(0o022)
        # What process 1 holds open leads out of the panel: it is let go of before any path is used
        # that something inside may have laid out.
        os.closerange(3, link.fileno())
        os.closerange(link.fileno() + 1, 65536)
        linux.keep_capabilities(CAPABILITIES)
        linux.prctl(linux.PR_SET_NO_NEW_PRIVS, 1)
        place = linux.open_inside(chdir)
        os.fchdir(place)
        os.close(place)
        program = _find(words[0], terms.environment["PATH"])
        if wants_listener:
            descriptor = linux.install_exec_listener()
            socket.send_fds(link, [b"ready"], [descriptor])
            os.close(descriptor)
        else:
            link.sendall(b"ready")
        link.recv(2)
    except (OSError, SandboxError) as error:
        link.sendall(f"the command cannot be started safely "
                     f"({linux.reason(error)})".encode(errors="replace"))
        os._exit(125)
    _standard_signals(terms.ignore_sigchld and not startup)
    if startup:
        _streams_of_startup(terms.closed)
    os.closerange(3, 65536)
    complaint = os.dup(2) if 2 not in terms.closed else -1
    if complaint >= 0:
        os.set_inheritable(complaint, False)
    for descriptor in terms.closed:
        os.close(descriptor)
    os._exit(_execute(program, words, terms.environment, complaint))


def _find(word, path):
    """Finds a program like the shell does; returns its path, or "" when there is none."""
    if "/" in word:
        return word
    found = ""
    for folder in path.split(":"):
        candidate = os.path.join(folder or ".", word)
        if os.path.isfile(candidate):
            if os.access(candidate, os.X_OK):
                return candidate
            found = found or candidate
    return found


def _standard_signals(ignore_sigchld):
    for number in range(1, signal.NSIG):
        try:
            signal.signal(number, signal.SIG_DFL)
        except (OSError, ValueError):
            pass  # SIGKILL, SIGSTOP and those the C library keeps to itself
    if ignore_sigchld:
        signal.signal(signal.SIGCHLD, signal.SIG_IGN)
    signal.pthread_sigmask(signal.SIG_SETMASK, [])


def _streams_of_startup(closed):
    """The start-up script has no input, and speaks where errors are spoken of."""
    null = os.open("/dev/null", os.O_RDWR)
    os.dup2(null, 0)
    if 2 in closed:
        os.dup2(null, 2)
    os.dup2(2, 1)


def _execute(program, words, environment, complaint):
    """Becomes the program; returns an exit status when that is not possible."""
    problem, status = "not found on the panel", 127
    if program:
        try:
            os.execve(program, words, environment)
        except OSError as error:
            if error.errno == errno.ENOEXEC:
                try:
                    os.execve(SH, [SH, program, *words[1:]], environment)
                except OSError as other:
                    error = other
            if error.errno not in (errno.ENOENT, errno.ENOTDIR) or os.path.exists(program):
                problem, status = f"cannot be executed ({error.strerror})", 126
    if complaint >= 0:
        line = f"device/run: {words[0]}: {problem}\n".encode(errors="surrogateescape")
        try:
            os.write(complaint, line)
        except OSError:
            pass
    return status
