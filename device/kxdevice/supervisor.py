# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
"""Process 1 of the panel: starts the command, serves the stand-ins, and ends everything."""

import array  # the socket module asks for it late, when nothing can be imported any more
import codecs
import os
import resource
import select
import signal
import socket
import sys
import time
from typing import NamedTuple

from kxdevice import launch, linux, names, panel as panel_module
from kxdevice import programs as programs_module, tools, trace as trace_module, trees, usr
from kxdevice.linux import SandboxError

LONGEST_CALL = 1 << 22
MOST_CLIENTS = 64
PATIENCE = 10  # seconds for a client to send its call
MEMORY_PERIOD = 0.1
LATE = (array, [codecs.lookup(name) for name in ("ascii", "utf-8", "latin-1")])


class Order(NamedTuple):
    """What process 1 is to do, as the front knows it."""

    options: object  # options.Options
    ids: object  # ids.Ids
    stand_in: bytes  # the program that stands for the panel's own tools
    terms: launch.Terms
    trace: int  # descriptor of the open file, or -1
    watch_memory: bool  # no control group does
    fetched: str  # path of the folder that the front gets at the end, or ""

    def descriptors(self):
        """Returns the descriptors that process 1 needs of the front's."""
        return {self.trace, *self.terms.groups}


class Supervisor:
    """Serves one panel until its command has ended."""

    def __init__(self, order, control, panel):
        """Takes the picture to compare with at the end; control is the link to the front."""
        self.options = order.options
        self.terms = order.terms
        self.watch_memory = order.watch_memory
        self.fetched = order.fetched
        self.control = control
        self.panel = panel
        self.trace = trace_module.Trace(order.trace)
        self.drive = tools.Drive(panel, self.trace)
        self.tools = tools.Tools(self.options, panel, self.drive, self.trace)
        self.programs = None
        if self.options.trace_programs:
            self.programs = programs_module.Programs(
                panel.layers.upper, [inside for _, inside in self.options.share])
        self.drive.start(self.options.boot)
        _refuse_missing(self.options.chdir)
        self.before = None
        if self.options.wants_summary():
            from kxdevice import summary  # pylint: disable=import-outside-toplevel
            self.before = summary.Picture(panel, self.tools.settings)
            self.drive.on_new_drive = lambda: self.before.take_drive(panel)
        self.poll = select.poll()
        self.handlers = {}
        self.clients = {}
        self.command = 0
        self.status = None  # wait status of the command
        self.reason = ""
        self.server = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM | socket.SOCK_NONBLOCK)
        self.server.bind(names.ADDRESS.encode())
        self.server.listen(MOST_CLIENTS)
        self.wake, writer = os.pipe2(os.O_NONBLOCK | os.O_CLOEXEC)
        signal.signal(signal.SIGCHLD, lambda *_: None)
        signal.set_wakeup_fd(writer, warn_on_full_buffer=False)
        self._watch(self.wake, self._reap)
        self._watch(control.fileno(), self._obey)
        self._watch(self.server.fileno(), self._accept)

    def _watch(self, descriptor, handler, events=select.POLLIN):
        self.poll.register(descriptor, events)
        self.handlers[descriptor] = handler

    def _unwatch(self, descriptor):
        self.poll.unregister(descriptor)
        del self.handlers[descriptor]

    # -- starting ----------------------------------------------------------------------------

    def start(self, words, chdir="/", startup=False):
        """Starts a program of the panel; returns its process."""
        refusals = [] if startup else self.options.fail_shell
        wants_listener = bool(self.options.trace_shell or self.programs or refusals
                              or self.options.trace and self.options.missing)
        ours, theirs = socket.socketpair(socket.AF_UNIX, socket.SOCK_STREAM)
        process = os.fork()
        if process == 0:
            try:
                ours.close()
                launch.become(self.terms, words, chdir, startup, theirs, wants_listener)
            finally:
                os._exit(125)
        theirs.close()
        try:
            self._follow(process, ours, wants_listener, refusals)
        finally:
            ours.close()
        return process

    def _follow(self, process, link, wants_listener, refusals):
        """Waits until the child is ready to go, and lets it go."""
        if wants_listener:
            message, descriptors, _, _ = socket.recv_fds(link, 4096, 1)
        else:
            message, descriptors = link.recv(4096), []
        if not message.startswith(b"ready"):
            raise SandboxError(message.decode(errors="replace")
                               or "the command's process ended before it could start")
        if wants_listener:
            missing = {f"{base}{folder}/{tool}".encode(): tool.encode()
                       for tool in self.options.missing for folder in usr.TOOL_FOLDERS
                       for base in ("/usr/", "/")}
            listener = trace_module.ExecListener(descriptors[0], self.trace,
                                                 self.options.trace_shell, missing)
            listener.first.add(process)
            listener.refuse(process, refusals)
            if self.programs:
                listener.tell_starts(process, self.programs)
            self._watch(descriptors[0], listener.handle)
        link.sendall(b"go")

    # -- serving -----------------------------------------------------------------------------

    def run(self):
        """Plays the reboot, starts the command and serves until it has ended."""
        if self.options.boot and not self.options.no_startup:
            startup = names.STARTUP_SCRIPT
            if os.path.isfile(startup) and os.stat(startup).st_mode & 0o111:
                self.serve_until(self.start([startup], startup=True))
        self.status = None
        if not self.reason:
            self.serve_until(self.start(self.options.command, self.options.chdir))
        self.finish()

    def serve_until(self, process):
        """Serves until a process has ended or the end was asked for."""
        self.command = process
        self.status = None
        next_look = time.monotonic()
        while self.status is None and not self.reason:
            timeout = None
            if self.watch_memory:
                if time.monotonic() >= next_look:
                    next_look = time.monotonic() + MEMORY_PERIOD
                    self._look_at_memory()
                timeout = MEMORY_PERIOD * 1000
            if self.clients:
                timeout = min(timeout or 1000, 1000)
                self._drop_slow_clients()
            for descriptor, _ in self.poll.poll(timeout):
                handler = self.handlers.get(descriptor)
                if handler:
                    handler()

    def _look_at_memory(self):
        page = resource.getpagesize()
        used = 0
        for name in os.listdir("/proc"):
            if name.isdigit() and name != "1":
                try:
                    with open(f"/proc/{name}/statm", encoding="ascii") as file:
                        fields = file.read().split()
                    used += (int(fields[1]) - int(fields[2])) * page
                except (OSError, IndexError):
                    pass
        if used > self.options.memory << 20:
            self.reason = "memory"

    def _reap(self):
        try:
            while os.read(self.wake, 4096):
                pass
        except BlockingIOError:
            pass
        while True:
            try:
                process, status = os.waitpid(-1, os.WNOHANG)
            except ChildProcessError:
                return
            if process == 0:
                return
            if process == self.command:
                self.status = status

    def _obey(self):
        messages = self.control.receive()
        if messages is None:
            os._exit(1)  # the front is gone, and with this process everything on the panel
        for message in messages:
            if "stop" in message:
                self.reason = message["stop"]
            elif message.get("drive") == "plug":
                problem = self._safely(lambda new=message["new"]: self.drive.plug(new))
                self.control.send(drive=problem)
            elif message.get("drive") == "pull":
                self.control.send(drive=self._safely(self.drive.pull))

    @staticmethod
    def _safely(action):
        try:
            return action()
        except OSError as error:
            return linux.reason(error)

    def _accept(self):
        try:
            client, _ = self.server.accept()
        except OSError:
            return
        if len(self.clients) >= MOST_CLIENTS:
            client.close()
            return
        client.setblocking(False)
        self.clients[client.fileno()] = [client, b"", time.monotonic() + PATIENCE]
        self._watch(client.fileno(), lambda number=client.fileno(): self._client(number))

    def _drop(self, number):
        self._unwatch(number)
        self.clients.pop(number)[0].close()

    def _drop_slow_clients(self):
        now = time.monotonic()
        for number in [n for n, entry in self.clients.items() if entry[2] < now]:
            self._drop(number)

    def _client(self, number):
        client, data, _ = self.clients[number]
        try:
            more = client.recv(1 << 16)
        except BlockingIOError:
            return
        except OSError:
            more = b""
        if not more:
            self._drop(number)
            return
        data = self.clients[number][1] = data + more
        length = int.from_bytes(data[:4], "big") if len(data) >= 4 else 0
        if length > LONGEST_CALL:
            self._drop(number)
        elif len(data) >= 4 and len(data) >= 4 + length:
            self._answer(client, data[4:4 + length].split(b"\0"))
            self._drop(number)

    def _answer(self, client, words):
        try:
            answer = self.tools.call(words)
        except OSError as error:
            line = words[0] + b": " + os.fsencode(linux.reason(error)) + b"\n"
            answer = [b"exit", b"1", b"", line]
        try:
            client.settimeout(PATIENCE)
            client.sendall(b"\0".join(answer))
        except OSError:
            pass  # the caller was killed meanwhile

    # -- ending ------------------------------------------------------------------------------

    def finish(self):
        """Ends every process of the panel and reports."""
        try:
            os.kill(-1, signal.SIGKILL)
        except ProcessLookupError:
            pass
        while True:
            try:
                process, status = os.waitpid(-1, 0)
            except ChildProcessError:
                break
            if process == self.command and self.status is None:
                self.status = status
        result = None
        if self.before:
            from kxdevice import summary  # pylint: disable=import-outside-toplevel
            after = summary.Picture(self.panel, self.tools.settings)
            result = summary.compare(self.before, after, self.tools.reboot_asked)
        self.control.send(end=self.status, reason=self.reason, summary=result,
                          trace_failed=self.trace.failed, fetch_failed=self._hand_over())

    def _hand_over(self):
        """Hands the folder that is wanted to the front; returns what is wrong with it.

        No link that the panel may have laid is followed. A folder that is missing is not wrong: the
        command may have ended before it was made.
        """
        if not self.fetched:
            return ""
        folder = os.dup(self.panel.root)
        try:
            for name in self.fetched.strip("/").split("/"):
                above = folder
                try:
                    folder = os.open(name, trees.DIR_FLAGS, dir_fd=above)
                finally:
                    os.close(above)
            self.control.hand_over(folder)
            os.close(folder)
        except FileNotFoundError:
            pass
        except OSError as error:
            return linux.reason(error)
        return ""


def _refuse_missing(folder):
    try:
        os.close(linux.open_inside(folder))
    except OSError:
        raise SandboxError(f"the panel has no folder {folder} to start in") from None


def main(order, standing, control):
    """The life of process 1; never returns.

    standing is the host.Standing that the process was born with, control its link to the front.
    """
    status = 1
    try:
        linux.prctl(linux.PR_SET_PDEATHSIG, signal.SIGKILL)
        os.setsid()
        for number in (signal.SIGINT, signal.SIGTERM, signal.SIGHUP, signal.SIGQUIT,
                       signal.SIGPIPE, signal.SIGUSR1, signal.SIGUSR2, signal.SIGALRM):
            signal.signal(number, signal.SIG_IGN)
        linux.forget_command_line("kx-device")
        try:
            if os.getpid() != 1:  # its end, and what it ends, would not be the panel's alone
                raise SandboxError("the panel has no processes of its own")
            panel = panel_module.build(order.options, order.ids, standing, order.stand_in)
            # Nothing below the panel's own /usr may become part of this process from here on.
            sys.path[:] = []
            sys.meta_path[:] = []
            supervisor = Supervisor(order, control, panel)
            # Changing the ids may have cleared it.
            linux.prctl(linux.PR_SET_PDEATHSIG, signal.SIGKILL)
            control.send(ready=True)
            supervisor.run()
            status = 0
        except SandboxError as error:
            control.send(fail=str(error))
        except OSError as error:
            control.send(fail=f"{linux.reason(error)}; it needs Linux 5.14 or later with "
                              "overlay mounts, and rights to mount in namespaces")
    except BaseException as error:  # pylint: disable=broad-except
        try:
            control.send(fail=f"{type(error).__name__}: {error}")
        except OSError:
            pass
    finally:
        os._exit(status)
