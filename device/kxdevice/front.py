# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
"""The process that the caller sees: prepares, waits, reports.

It starts a keeper outside the panel, and the keeper starts process 1 of the panel.
"""

import errno
import json
import os
import select
import signal
import socket
import stat
import time
from typing import Callable, NamedTuple

from kxdevice import cgroups, ids as ids_module, keeper, launch, linux, options as options_module
from kxdevice import state as state_module, supervisor, trees
from kxdevice.link import Link
from kxdevice.linux import SandboxError

USAGE, TIME_OVER, NO_SANDBOX = 2, 124, 125
GRACE = 15  # seconds for the panel to end and report after it was told to
BUILD = 300  # seconds to build the panel: copies of --put may be large


class Fetch(NamedTuple):
    """What the caller wants of the panel at its end."""

    path: str = ""  # of a folder on the panel
    take: Callable = None  # gets its descriptor; raises SandboxError or OSError
    problem: str = ""  # begins the line that says why it could not be had


def run(arguments, home):
    """Runs device/run; returns the exit status."""
    status = play(arguments, home)
    if status < 0:
        signal.signal(-status, signal.SIG_DFL)
        os.kill(os.getpid(), -status)
    return status


def play(arguments, home, fetch=Fetch()):
    """Does what device/run does with these arguments, and fetches a folder of the panel when one is
    named; returns the exit status, or the number below zero of the signal that ended the panel."""
    closed = _fill_standard_streams()
    linux.expect_children()
    try:
        options = options_module.parse(arguments)
        if options.help:
            return options_module.show_help(options_module.HELP)
        _refuse_folders_as_streams(closed)
    except options_module.UsageError as error:
        options_module.complain(f"device/run: {error}; see device/run --help")
        return USAGE
    try:
        if options.erase:
            return _erase(options)
        return _run_command(options, home, closed, fetch)
    except (SandboxError, OSError) as error:
        options_module.complain("device/run: cannot make the sandboxed device: "
                                + linux.reason(error))
        return NO_SANDBOX


def _erase(options):
    if not os.path.lexists(options.state):
        return 0
    state_module.erase(options.state)
    return 0


def _fill_standard_streams():
    """Puts something harmless on closed standard streams, where files would end up otherwise."""
    closed = []
    for number in (0, 1, 2):
        try:
            os.fstat(number)
        except OSError as error:
            if error.errno != errno.EBADF:
                raise
            closed.append(number)
            opened = os.open("/dev/null", os.O_RDWR)
            if opened != number:
                os.dup2(opened, number)
                os.close(opened)
    return tuple(closed)


def _refuse_folders_as_streams(closed):
    for number in (0, 1, 2):
        if number not in closed and stat.S_ISDIR(os.fstat(number).st_mode):
            raise options_module.UsageError(
                f"standard stream {number} is a folder, which would be a way out of the panel")


def _run_command(options, home, closed, fetch):
    """Runs the command on a panel; returns the same as play."""
    ids = ids_module.for_caller()
    outputs = {field: _open_output(getattr(options, field))
               for field in ("trace", "summary", "summary_json")
               if getattr(options, field) not in ("", "-")}
    lock = -1
    if options.state:
        state = state_module.make_state(options.state, ids)
        ids = state.ids
        if not state.try_lock():
            raise SandboxError(f"another panel is running in {options.state}; "
                               "wait for its end, or use another folder")
        lock = state.lock
    with open(os.path.join(home, "bin", "stand-in"), "rb") as file:
        stand_in = file.read()
    if options.wants_summary():
        # Loaded only when wanted, as that takes its time; process 1 could not read it any more.
        from kxdevice import summary as _  # pylint: disable=import-outside-toplevel
    groups = cgroups.Groups()
    front = Front(options, outputs, groups, fetch)
    try:
        groups.make(f"kx-device-{os.getpid()}", options.memory << 20, options.processes)
        terms = launch.Terms(options_module.environment(options), options.processes,
                             options.ignore_sigchld, closed, groups.open_members())
        front.start(supervisor.Order(options, ids, stand_in, terms, outputs.get("trace", -1),
                                     not groups.has_memory, fetch.path), lock)
        status = front.wait()
    finally:
        front.clean_up()
    return -front.ended_by or status


def _open_output(name):
    try:
        return os.open(name, os.O_WRONLY | os.O_CREAT | os.O_TRUNC | os.O_CLOEXEC, 0o644)
    except OSError as error:
        raise SandboxError(f"{name} cannot be written ({error.strerror})") from None


class Front:
    """The side of one running panel that is not on the panel."""

    def __init__(self, options, outputs, groups, fetch):
        """outputs are descriptors of the files to write, by field of the options; groups are
        removed at the end; fetch is a Fetch."""
        self.options = options
        self.outputs = outputs
        self.groups = groups
        self.fetch = fetch
        self.keeper = 0
        self.life = -1  # its end ends the keeper, and it the panel
        self.wake = -1
        self.control = None
        self.ended_by = 0  # the signal that ended this process
        self.drive_socket = None
        self.drive_client = None

    # -- starting ----------------------------------------------------------------------------

    def start(self, order, lock):
        """Starts the keeper with an order for process 1; lock is a descriptor, or -1."""
        for number in keeper.ENDING_SIGNALS:
            if signal.getsignal(number) != signal.SIG_IGN:
                signal.signal(number, self._note_signal)
        self.wake, wake_writer = os.pipe2(os.O_NONBLOCK | os.O_CLOEXEC)
        signal.set_wakeup_fd(wake_writer, warn_on_full_buffer=False)
        control, control_inside = socket.socketpair(socket.AF_UNIX, socket.SOCK_STREAM)
        self.control = Link(control)
        life_reader, self.life = os.pipe2(os.O_CLOEXEC)
        ours, theirs = socket.socketpair(socket.AF_UNIX, socket.SOCK_STREAM)
        ends = keeper.Ends(life_reader, theirs, Link(control_inside))
        self.keeper = os.fork()
        if self.keeper == 0:
            try:
                signal.set_wakeup_fd(-1)
                keeper.keep(order, ends, self.groups, lock)
            finally:
                os._exit(1)
        control_inside.close()
        theirs.close()
        os.close(life_reader)
        for descriptor in order.terms.groups:
            os.close(descriptor)
        self._give_ids(order.ids, ours)
        ours.close()

    def _give_ids(self, ids, link):
        """Writes the id map of an ordinary user's keeper, which cannot do that itself."""
        message = link.recv(4096)
        if message == b"map":
            ids_module.write_map(self.keeper, ids)
            link.sendall(b"go")
            message = link.recv(4096)
        if message != b"started":
            raise SandboxError(message.decode(errors="replace")
                               or "the process that keeps the panel ended at once")

    def _note_signal(self, number, _):
        self.ended_by = self.ended_by or number

    # -- waiting -----------------------------------------------------------------------------

    def wait(self):
        """Serves the panel from outside until it has ended; returns the exit status."""
        poll = select.poll()
        poll.register(self.control.fileno(), select.POLLIN)
        poll.register(self.wake, select.POLLIN)
        deadline = time.monotonic() + BUILD
        time_over = stopped = False
        ready = False
        while True:
            left = deadline - time.monotonic()
            if left <= 0:
                if stopped or not ready:
                    raise SandboxError("the panel does not answer; its processes were ended")
                time_over = stopped = True
                self._tell(stop="time")
                deadline = time.monotonic() + GRACE
                continue
            if self.ended_by and not stopped:
                stopped = True
                if not ready:
                    return NO_SANDBOX
                self._tell(stop="signal")
                deadline = time.monotonic() + GRACE
                continue
            for message in self._next_messages(poll, left):
                if "fail" in message:
                    raise SandboxError(message["fail"])
                if "ready" in message:
                    ready = True
                    deadline = time.monotonic() + self.options.seconds
                    self._listen_for_drive(poll)
                elif "drive" in message:
                    self._answer_drive(message["drive"])
                elif "end" in message:
                    return self._report(message, time_over)

    def _next_messages(self, poll, seconds):
        """Waits for something to happen; returns what the panel told, if that is it."""
        messages = []
        for descriptor, _ in poll.poll(seconds * 1000 + 1):
            if descriptor == self.wake:
                self._drain(self.wake)
            elif descriptor == self.control.fileno():
                messages = self.control.receive()
                if messages is None:
                    raise SandboxError("the panel's supervisor was ended from outside")
            elif self.drive_socket and descriptor == self.drive_socket.fileno():
                self._hear_drive()
        return messages

    @staticmethod
    def _drain(descriptor):
        try:
            while os.read(descriptor, 4096):
                pass
        except BlockingIOError:
            pass

    def _tell(self, **message):
        try:
            self.control.send(**message)
        except OSError:
            pass  # its end is seen when reading

    def _listen_for_drive(self, poll):
        if not self.options.state:
            return
        folder = os.open(self.options.state, os.O_RDONLY | os.O_DIRECTORY | os.O_CLOEXEC)
        try:
            try:
                os.unlink("control", dir_fd=folder)
            except FileNotFoundError:
                pass
            self.drive_socket = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
            # The name of a socket is short, that of a folder need not be.
            self.drive_socket.bind(f"/proc/self/fd/{folder}/control")
            self.drive_socket.listen(4)
        finally:
            os.close(folder)
        poll.register(self.drive_socket.fileno(), select.POLLIN)

    def _hear_drive(self):
        client, _ = self.drive_socket.accept()
        client.settimeout(5)
        try:
            request = json.loads(client.recv(4096))
        except (OSError, ValueError):
            client.close()
            return
        if self.drive_client is not None:
            client.close()
            return
        self.drive_client = client
        self._tell(drive=request.get("drive"), new=bool(request.get("new")))

    def _answer_drive(self, problem):
        client, self.drive_client = self.drive_client, None
        if client is None:
            return
        try:
            client.sendall(json.dumps({"problem": problem}).encode() + b"\n")
        except OSError:
            pass
        client.close()

    # -- ending ------------------------------------------------------------------------------

    def _report(self, message, time_over):
        """Writes what was asked for; returns the exit status."""
        options = self.options
        say = options_module.complain
        status = 0
        if message["summary"] is not None:
            from kxdevice import summary  # pylint: disable=import-outside-toplevel
            text = summary.text(message["summary"]).encode(errors="surrogateescape")
            data = (json.dumps(message["summary"], indent=2, sort_keys=True) + "\n").encode()
            for field, content in (("summary", text), ("summary_json", data)):
                if getattr(options, field):
                    try:
                        trees.write_all(self.outputs.get(field, 2), content)
                    except OSError as error:
                        say(f"device/run: the summary cannot be written ({error.strerror})")
                        status = 1
        if message["trace_failed"]:
            say(f"device/run: the trace {options.trace} is incomplete "
                f"({message['trace_failed']})")
            status = 1
        status = self._take_fetched(message["fetch_failed"]) or status
        memory_over = message["reason"] == "memory" or self.groups.killed_for_memory()
        if time_over:
            say(f"device/run: ended after the time limit of {options.seconds} seconds")
            return TIME_OVER
        if memory_over:
            say(f"device/run: the memory limit of {options.memory} MiB was reached")
        if message["end"] is None:
            return 128 + signal.SIGKILL
        if os.WIFSIGNALED(message["end"]):
            return 128 + os.WTERMSIG(message["end"])
        return os.WEXITSTATUS(message["end"]) or status

    def _take_fetched(self, problem):
        """Lets the caller take the folder; returns 1 when that is not possible."""
        folder = self.control.take()
        try:
            if folder >= 0:
                self.fetch.take(folder)
        except (SandboxError, OSError) as error:
            problem = linux.reason(error)
        finally:
            if folder >= 0:
                os.close(folder)
        if problem:
            options_module.complain(f"{self.fetch.problem}: {problem}")
        return 1 if problem else 0

    def clean_up(self):
        """Ends the panel, if it has not ended, and removes what it needed outside."""
        if self.keeper:
            os.close(self.life)
            while True:
                try:
                    os.waitpid(self.keeper, 0)
                    break
                except InterruptedError:
                    continue
        self.groups.remove()
        if self.drive_socket is not None:
            self.drive_socket.close()
            try:
                os.unlink(os.path.join(self.options.state, "control"))
            except OSError:
                pass
