# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
"""Which ids outside stand for the ids inside."""

import os

from kxdevice import linux

ALL = 65536  # ids 0..65535 inside
ROOT_BASE = 524288


class Ids:
    """The id map of one panel: a list of (inside, outside, count) per kind, users and groups."""

    def __init__(self, users, groups):
        self.users = [tuple(line) for line in users]
        self.groups = [tuple(line) for line in groups]

    def root(self):
        """Returns the outer user and group id of root inside."""
        return self.users[0][1], self.groups[0][1]

    def only_root(self):
        """Tells whether root is the only id inside."""
        return len(self.users) == 1 and self.users[0][2] == 1

    def has(self, uid, gid):
        """Tells whether both ids exist inside."""
        return (any(i <= uid < i + n for i, _, n in self.users)
                and any(i <= gid < i + n for i, _, n in self.groups))

    def text(self, kind):
        """Returns the map in the form of /proc/PID/uid_map."""
        return "".join(f"{i} {o} {n}\n" for i, o, n in getattr(self, kind))

    def as_dict(self):
        """Returns the map for the state's record."""
        return {"users": self.users, "groups": self.groups}


class Owners:
    """Who owns what is made for a panel, seen from where it is made.

    Real root of the machine makes it with the ids outside, before entering the panel's ids.
    """

    def __init__(self, ids, is_outside):
        self._ids = ids
        self._is_outside = is_outside
        self.root = ids.root() if is_outside else (0, 0)  # user and group

    def give(self, path, uid, gid):
        """Gives a path to a user and a group inside, or to root where the panel lacks them."""
        if not self._ids.has(uid, gid):
            uid = gid = 0
        if self._is_outside:
            uid, gid = _outside(self._ids.users, uid), _outside(self._ids.groups, gid)
        os.chown(path, uid, gid, follow_symlinks=False)


def _outside(spans, number):
    return next(o + number - i for i, o, n in spans if i <= number < i + n)


def _available(kind):
    with open(f"/proc/self/{kind}_map", encoding="ascii") as file:
        return [tuple(map(int, line.split())) for line in file]


def _range_of_root(name, kind):
    """Picks unprivileged outer ids for a caller that is root: never its own id 0."""
    spans = _available(kind)
    wanted = [(start, count) for start, count in _subordinate(name, "root", 0) if count >= ALL]
    wanted.append((ROOT_BASE, ALL))
    for start, count in wanted:
        if start > 0 and any(s <= start and start + ALL <= s + n for s, _, n in spans):
            return start, min(count, ALL)
    start, _, count = max(spans, key=lambda span: span[2])
    if start == 0:
        start, count = 1, count - 1
    if count < 1:
        raise linux.SandboxError("root has no unprivileged ids to give to the panel; "
                                 "start it as an ordinary user")
    return start, min(count, ALL)


def _subordinate(path, user, number):
    try:
        with open(path, encoding="utf-8", errors="replace") as file:
            lines = [line.strip().split(":") for line in file]
    except OSError:
        return []
    return [(int(line[1]), int(line[2])) for line in lines
            if len(line) == 3 and line[0] in (user, str(number))
            and line[1].isdigit() and line[2].isdigit()]


def _own_name():
    import pwd  # pylint: disable=import-outside-toplevel
    try:
        return pwd.getpwuid(os.getuid()).pw_name
    except KeyError:
        return str(os.getuid())


def for_caller():
    """Chooses the map for whoever started device/run."""
    if os.geteuid() == 0:
        user, users = _range_of_root("/etc/subuid", "uid")
        group, groups = _range_of_root("/etc/subgid", "gid")
        return Ids([(0, user, users)], [(0, group, groups)])
    users, groups = [(0, os.geteuid(), 1)], [(0, os.getegid(), 1)]
    more_users = _subordinate("/etc/subuid", _own_name(), os.getuid())
    more_groups = _subordinate("/etc/subgid", _own_name(), os.getuid())
    tools = all(any(os.access(f"{folder}/{name}", os.X_OK) for folder in ("/usr/bin", "/bin"))
                for name in ("newuidmap", "newgidmap"))
    if more_users and more_groups and tools:
        users.append((1, more_users[0][0], min(more_users[0][1], ALL - 1)))
        groups.append((1, more_groups[0][0], min(more_groups[0][1], ALL - 1)))
    return Ids(users, groups)


def write_map(process, ids):
    """Gives a process that has just entered a new user namespace its ids."""
    if os.geteuid() == 0 or ids.only_root():
        if os.geteuid() != 0:
            _put(process, "setgroups", "deny")
        _put(process, "gid_map", ids.text("groups"))
        _put(process, "uid_map", ids.text("users"))
        return
    import subprocess  # pylint: disable=import-outside-toplevel
    for tool, kind in (("newgidmap", "groups"), ("newuidmap", "users")):
        words = ids.text(kind).split()
        result = subprocess.run([tool, str(process), *words], env={"PATH": "/usr/bin:/bin"},
                                stdin=subprocess.DEVNULL, capture_output=True, check=False)
        if result.returncode != 0:
            reason = result.stderr.decode(errors="replace").strip().split("\n")[0]
            raise linux.SandboxError(f"{tool} refused the id ranges of /etc/sub{kind[0]}id "
                                     f"({reason}); correct or remove them")


def _put(process, name, text):
    descriptor = os.open(f"/proc/{process}/{name}", os.O_WRONLY | os.O_CLOEXEC)
    try:
        os.write(descriptor, text.encode())
    finally:
        os.close(descriptor)
