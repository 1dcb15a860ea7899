#!/usr/bin/python3
# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
"""Runs programs in turn on the sandboxed device and prints what each run cost, a JSON line a run.

Standard input holds the job as JSON:
  programs  name -> command line; all run in every round, one after the other
  rounds    how often at most
  seconds   no further round begins that would probably not end within them
  clean     folders that are removed before every run
"""
import json
import os
import resource
import shutil
import sys
import time

NANO = 1e-9


def own_cpu_seconds(pid):
    """The time the ended, not yet reaped process itself was on a cpu, without its children."""
    with open(f"/proc/{pid}/schedstat", encoding="ascii") as stat:
        return int(stat.read().split()[0]) * NANO


def run(command):
    """Runs one program with its output thrown away and returns what it cost."""
    silence = [(os.POSIX_SPAWN_OPEN, fd, "/dev/null", os.O_RDWR, 0) for fd in (0, 1, 2)]
    start = time.monotonic()
    pid = os.posix_spawn(command[0], command, os.environ, file_actions=silence)
    os.waitid(os.P_PID, pid, os.WEXITED | os.WNOWAIT)
    wall = time.monotonic() - start
    own = own_cpu_seconds(pid)
    _, status, usage = os.wait4(pid, 0)
    total = usage.ru_utime + usage.ru_stime
    return {
        "status": os.waitstatus_to_exitcode(status),
        "wall": wall,
        "own": own,
        "children": max(total - own, 0.0),
        "cpu": max(total, own),
        "peak_kib": usage.ru_maxrss,
    }


def main():
    if not os.path.exists("/.kx-device"):
        sys.exit("measure: only on the sandboxed device")
    job = json.load(sys.stdin)
    # The peak of a fresh process must not be that of this one.
    resource.setrlimit(resource.RLIMIT_CORE, (0, 0))
    names = list(job["programs"])
    begin = time.monotonic()
    for number in range(1, job["rounds"] + 1):
        for name in names:
            for folder in job["clean"]:
                shutil.rmtree(folder, ignore_errors=True)
            result = run(job["programs"][name])
            print(json.dumps({"round": number, "name": name, **result}), flush=True)
        # Whoever comes first meets other caches: each does in its turn.
        names = names[1:] + names[:1]
        used = time.monotonic() - begin
        if used + used / number > job["seconds"]:
            break


if __name__ == "__main__":
    main()
