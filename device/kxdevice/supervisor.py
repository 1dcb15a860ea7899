# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
"""Process 1 of the panel: starts the command, serves the stand-ins, and ends everything."""

import array  # the socket module asks for it late, when nothing can be imported any more
import codecs
import json
import os
import resource
import select
import signal
import socket
import sys
import time

from kxdevice import launch, linux, panel as panel_module
from kxdevice import summary, tools, trace as trace_module, usr
from kxdevice.linux import SandboxError

ADDRESS = b"\0kx-device"
LONGEST_CALL = 1 << 22
MOST_CLIENTS = 64
PATIENCE = 10  # seconds for a client to send its call
MEMORY_PERIOD = 0.1
LATE = (array, [codecs.lookup(name) for name in ("ascii", "utf-8", "latin-1")])


class Job:
    """What process 1 gets from outside."""

    def __init__(self, options, ids):
        self.options = options
        self.ids = ids
        self.state = options.state
        self.stand_in = b""
        self.environment = {}
        self.control = None  # socket to the front
        self.trace = -1
        self.closed = ()  # standard streams that the caller had closed
        self.user_namespace = -1  # descriptor, or -1 when already inside
        self.groups = []  # descriptors of control groups to join
        self.watch_memory = False
        self.first_namespace = False  # real root of the machine started it


class Supervisor:
    """Serves one panel until its command has ended."""

    def __init__(self, job):
        self.job = job
        self.options = job.options
        self.trace = trace_module.Trace(job.trace)
        self.poll = select.poll()
        self.handlers = {}
        self.clients = {}
        self.pending = b""
        self.command = 0
        self.status = None  # wait status of the command
        self.reason = ""

    def prepare(self):
        """Builds the panel and takes the picture to compare with at the end."""
        self.panel = panel_module.build(self.job)
        # Nothing below the panel's own /usr may become part of this process from here on.
        sys.path[:] = []
        sys.meta_path[:] = []
        self.drive = tools.Drive(self.panel, self.trace)
        self.tools = tools.Tools(self.options, self.panel, self.drive, self.trace)
        self.drive.start(self.options.boot)
        try:
            os.close(linux.open_inside(self.options.chdir))
        except OSError:
            raise SandboxError(
                f"the panel has no folder {self.options.chdir} to start in") from None
        self.wants_summary = bool(self.options.summary or self.options.summary_json)
        if self.wants_summary:
            self.before = summary.Picture(self.panel, self.tools.settings)
            self.drive.on_new_drive = lambda: self.before.take_drive(self.panel)
        self.server = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM | socket.SOCK_NONBLOCK)
        self.server.bind(ADDRESS)
        self.server.listen(MOST_CLIENTS)
        reader, writer = os.pipe2(os.O_NONBLOCK | os.O_CLOEXEC)
        signal.signal(signal.SIGCHLD, lambda *_: None)
        signal.set_wakeup_fd(writer, warn_on_full_buffer=False)
        self.wake = reader
        self._watch(reader, self._reap)
        self._watch(self.job.control.fileno(), self._control)
        self._watch(self.server.fileno(), self._accept)

    def _watch(self, descriptor, handler, events=select.POLLIN):
        self.poll.register(descriptor, events)
        self.handlers[descriptor] = handler

    def _unwatch(self, descriptor):
        self.poll.unregister(descriptor)
        del self.handlers[descriptor]

    def send(self, **message):
        """Tells the front something."""
        self.job.control.setblocking(True)
        self.job.control.sendall(json.dumps(message).encode() + b"\n")

    # -- starting ----------------------------------------------------------------------------

    def start(self, words, chdir="/", startup=False):
        """Starts a program of the panel; returns its process."""
        refusals = [] if startup else self.options.fail_shell
        wants_listener = bool(self.options.trace_shell or refusals
                              or self.options.trace and self.options.missing)
        ours, theirs = socket.socketpair(socket.AF_UNIX, socket.SOCK_STREAM)
        process = os.fork()
        if process == 0:
            try:
                ours.close()
                launch.become(self.job, words, chdir, startup, theirs, wants_listener)
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
            missing = {}
            for tool in self.options.missing:
                for folder in usr.TOOL_FOLDERS:
                    for base in ("/usr/", "/"):
                        missing[f"{base}{folder}/{tool}".encode()] = tool.encode()
            listener = trace_module.ExecListener(descriptors[0], self.trace,
                                                 self.options.trace_shell, missing)
            listener.first.add(process)
            listener.refuse(process, refusals)
            self._watch(descriptors[0], listener.handle)
        link.sendall(b"go")

    # -- serving -----------------------------------------------------------------------------

    def run(self):
        """Plays the reboot, starts the command and serves until it has ended."""
        if self.options.boot:
            startup = "/mnt/user/startup.sh"
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
            if self.job.watch_memory:
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

    def _control(self):
        data = self.job.control.recv(65536)
        if not data:
            os._exit(1)  # the front is gone, and with this process everything on the panel
        self.pending += data
        while b"\n" in self.pending:
            line, _, self.pending = self.pending.partition(b"\n")
            message = json.loads(line)
            if "stop" in message:
                self.reason = message["stop"]
            elif message.get("drive") == "plug":
                self.send(drive=self._safely(lambda new=message["new"]: self.drive.plug(new)))
            elif message.get("drive") == "pull":
                self.send(drive=self._safely(self.drive.pull))

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
        if self.wants_summary:
            after = summary.Picture(self.panel, self.tools.settings)
            result = summary.compare(self.before, after, self.tools.reboot_asked)
        self.send(end=self.status, reason=self.reason, summary=result,
                  trace_failed=self.trace.failed)


def main(job):
    """The life of process 1; never returns."""
    status = 1
    try:
        linux.prctl(linux.PR_SET_PDEATHSIG, signal.SIGKILL)
        os.setsid()
        for number in (signal.SIGINT, signal.SIGTERM, signal.SIGHUP, signal.SIGQUIT,
                       signal.SIGPIPE, signal.SIGUSR1, signal.SIGUSR2, signal.SIGALRM):
            signal.signal(number, signal.SIG_IGN)
        linux.forget_command_line("kx-device")
        supervisor = Supervisor(job)
        try:
            supervisor.prepare()
            # Changing the ids may have cleared it.
            linux.prctl(linux.PR_SET_PDEATHSIG, signal.SIGKILL)
            supervisor.send(ready=True)
            supervisor.run()
            status = 0
        except SandboxError as error:
            supervisor.send(fail=str(error))
        except OSError as error:
            supervisor.send(fail=f"{linux.reason(error)}; it needs Linux 5.14 or later with "
                                 "overlay mounts, and rights to mount in namespaces")
    except BaseException as error:  # pylint: disable=broad-except
        try:
            job.control.sendall(json.dumps({"fail": f"{type(error).__name__}: {error}"}).encode()
                                + b"\n")
        except OSError:
            pass
    finally:
        os._exit(status)
