# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
"""Limits memory and processes of a panel by control groups, where the caller may make some."""

import os
import time

ROOT = "/sys/fs/cgroup"


class Groups:
    """The control groups of one panel; none when the machine offers none."""

    def __init__(self):
        self.paths = []
        self.has_memory = False
        self.oom_files = []

    def make(self, name, memory, processes):
        """Makes the groups below the caller's own, whose limits stay in force."""
        for controllers, path in _own():
            if controllers == [""]:
                self._make_v2(path, name, memory, processes)
            elif "memory" in controllers and not self.has_memory:
                self._make_v1_memory(f"{ROOT}/memory{path}/{name}", memory)
            elif "pids" in controllers:
                self._make_v1_pids(f"{ROOT}/pids{path}/{name}", processes)

    def _make_v1_memory(self, path, memory):
        if not self._add(path):
            return
        if not _write(f"{path}/memory.limit_in_bytes", memory) or not _can_join(path):
            self._take_back(path)
            return
        _write(f"{path}/memory.swappiness", 0)
        _write(f"{path}/memory.memsw.limit_in_bytes", memory)
        self.has_memory = True
        self.oom_files.append(f"{path}/memory.oom_control")

    def _make_v1_pids(self, path, processes):
        if self._add(path) and not (_write(f"{path}/pids.max", processes) and _can_join(path)):
            self._take_back(path)

    def _make_v2(self, own, name, memory, processes):
        base = f"{ROOT}/unified" if os.path.isdir(f"{ROOT}/unified") else ROOT
        if not os.path.exists(f"{base}/cgroup.procs"):
            return
        # A group with processes hands no controller down, so one further up may have to do.
        while True:
            path = f"{base}{own.rstrip('/')}/{name}"
            if not self.has_memory and self._add(path):
                if (_write(f"{path}/memory.max", memory)
                        and _write(f"{path}/pids.max", processes) and _can_join(path)):
                    _write(f"{path}/memory.swap.max", 0)
                    self.has_memory = True
                    self.oom_files.append(f"{path}/memory.events")
                    return
                self._take_back(path)
            if own in ("", "/"):
                return
            own = os.path.dirname(own)

    def _add(self, path):
        try:
            os.mkdir(path)
        except OSError:
            return False
        self.paths.append(path)
        return True

    def _take_back(self, path):
        self.paths.remove(path)
        try:
            os.rmdir(path)
        except OSError:
            pass

    def open_members(self):
        """Returns descriptors through which a process joins the groups."""
        return tuple(os.open(f"{path}/cgroup.procs", os.O_WRONLY | os.O_CLOEXEC)
                     for path in self.paths)

    def killed_for_memory(self):
        """Tells whether a process was ended because the memory limit was reached."""
        for path in self.oom_files:
            try:
                with open(path, encoding="ascii") as file:
                    words = [line.split() for line in file]
            except OSError:
                continue
            if any(line[0] == "oom_kill" and int(line[1]) > 0 for line in words if len(line) > 1):
                return True
        return False

    def remove(self):
        """Removes the groups; their processes may need a moment to be gone."""
        for path in self.paths:
            for _ in range(200):
                try:
                    os.rmdir(path)
                except FileNotFoundError:
                    break
                except OSError:
                    time.sleep(0.01)
                    continue
                break
        self.paths = []


def _own():
    try:
        with open("/proc/self/cgroup", encoding="utf-8", errors="surrogateescape") as file:
            lines = [line.rstrip("\n").split(":", 2) for line in file]
    except OSError:
        return []
    return [(line[1].split(","), line[2]) for line in lines if len(line) == 3]


def _can_join(path):
    """Tells whether a process may enter a group; the command must not fail on that later."""
    process = os.fork()
    if process == 0:
        os._exit(0 if _write(f"{path}/cgroup.procs", 0) else 1)
    return os.waitpid(process, 0)[1] == 0


def _write(path, value):
    try:
        with open(path, "w", encoding="ascii") as file:
            file.write(str(value))
    except OSError:
        return False
    return True
