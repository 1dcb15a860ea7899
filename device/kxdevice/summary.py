# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
"""What a run changed on the panel."""

import hashlib
import os
import stat

from kxdevice import names, trees

# Not the panel's files, or noise of every run.
LEFT_OUT = ("proc", "dev", "run", "usr", names.DRIVE_FOLDER[1:], names.MARKER[1:])
KINDS = {stat.S_IFREG: "-", stat.S_IFDIR: "d", stat.S_IFLNK: "l", stat.S_IFIFO: "p",
         stat.S_IFSOCK: "s", stat.S_IFCHR: "c", stat.S_IFBLK: "b"}


class Entry:
    """One file, folder or link."""

    def __init__(self, directory, name):
        facts = os.lstat(name, dir_fd=directory)
        self.mode = facts.st_mode
        self.uid, self.gid = facts.st_uid, facts.st_gid
        self.size = 0 if stat.S_ISDIR(facts.st_mode) else facts.st_size
        self.whiteout = stat.S_ISCHR(facts.st_mode) and facts.st_rdev == 0
        self.content = ""
        if stat.S_ISLNK(facts.st_mode):
            self.content = os.readlink(name, dir_fd=directory)
        elif stat.S_ISREG(facts.st_mode):
            self.content = _digest(directory, name)

    def is_dir(self):
        """Tells whether this is a folder."""
        return stat.S_ISDIR(self.mode)

    def same(self, other):
        """Tells whether a user would see no difference."""
        return ((self.mode, self.uid, self.gid, self.size, self.content)
                == (other.mode, other.uid, other.gid, other.size, other.content))


def _digest(directory, name):
    try:
        descriptor = os.open(name, os.O_RDONLY | os.O_NOFOLLOW | os.O_NONBLOCK | os.O_CLOEXEC,
                             dir_fd=directory)
    except OSError:
        return "unreadable"
    digest = hashlib.blake2b(digest_size=16)
    try:
        while True:
            data = os.read(descriptor, trees.CHUNK)
            if not data:
                return digest.hexdigest()
            digest.update(data)
    finally:
        os.close(descriptor)


def _walk(directory, path, found, left_out):
    with os.scandir(directory) as entries:
        names = sorted(entry.name for entry in entries)
    for name in names:
        where = f"{path}/{name}" if path else name
        if where in left_out or path == "tmp" and name.startswith(".X"):
            continue
        try:
            entry = found[where] = Entry(directory, name)
        except FileNotFoundError:
            continue
        if entry.is_dir():
            try:
                inner = os.open(name, trees.DIR_FLAGS, dir_fd=directory)
            except OSError:
                continue
            try:
                _walk(inner, where, found, left_out)
            finally:
                os.close(inner)


class Picture:
    """All files of the panel, its settings and its users at one moment."""

    def __init__(self, panel, settings):
        self.files = {}
        _walk(panel.root, "", self.files, LEFT_OUT)
        self.changes = {}  # the layer of changes below /usr
        _walk(panel.layers.upper, "", self.changes, ())
        self.usr = _usr(panel, self.changes)
        self.layers = [panel.layers.middle, panel.layers.lower]
        self.drive = {}
        self.take_drive(panel)
        self.settings = dict(settings)
        self.passwd = _table(_text(panel, "passwd"))
        self.shadow = _table(_text(panel, "shadow"))
        self.group = _table(_text(panel, "group"))

    def take_drive(self, panel):
        """Looks at the files of the drive anew: another one was plugged in."""
        self.drive = {}
        _walk(panel.drive, "", self.drive, ())

    def machine_has(self, path):
        """Tells whether a path below /usr exists without the panel's changes."""
        return _first(self.layers, path) is not None

    def all(self):
        """Returns everything by its full path on the panel."""
        result = {f"/{path}": entry for path, entry in self.files.items()}
        result.update((f"/usr/{path}", entry) for path, entry in self.usr.items())
        result.update((f"{names.DRIVE_FOLDER}/{path}", entry) for path, entry in self.drive.items())
        return result


def _usr(panel, changes):
    """Returns what differs from the machine's /usr: entries, or None for a removed path."""
    layers = [panel.layers.middle, panel.layers.lower]
    result = {}
    for path, entry in changes.items():
        first = _first(layers, path)
        if entry.whiteout:
            if first is not None:
                result[path] = None
            continue
        if first is None or not entry.is_dir() or not first.is_dir() or not entry.same(first):
            result[path] = entry
        if entry.is_dir() and first is not None and first.is_dir():
            for name in _gone(panel, layers, path):
                result[f"{path}/{name}"] = None
    for path in [path for path, entry in result.items() if entry is not None]:
        if not result[path].is_dir():
            first = _first(layers, path)
            if first is not None and result[path].same(first):
                del result[path]
    return result


def _first(layers, path):
    for layer in layers:
        try:
            entry = Entry(layer, path)
        except (FileNotFoundError, NotADirectoryError):
            continue
        return None if entry.whiteout else entry
    return None


def _gone(panel, layers, path):
    """Returns the names of a folder of the machine's /usr that the panel no longer shows."""
    below, hidden = set(), set()
    for layer in layers:
        try:
            directory = os.open(path, trees.DIR_FLAGS, dir_fd=layer)
        except OSError:
            continue
        with os.scandir(directory) as entries:
            for item in entries:
                if item.name not in below and _is_whiteout(directory, item.name):
                    hidden.add(item.name)
                elif item.name not in hidden:
                    below.add(item.name)
        os.close(directory)
    try:
        shown = set(os.listdir(f"/usr/{path}"))
    except OSError:
        return []
    return sorted(below - shown)


def _is_whiteout(directory, name):
    facts = os.lstat(name, dir_fd=directory)
    return stat.S_ISCHR(facts.st_mode) and facts.st_rdev == 0


def _text(panel, name):
    try:
        folder = os.open("etc", trees.DIR_FLAGS, dir_fd=panel.root)
    except OSError:
        return ""
    try:
        return os.fsdecode(trees.read_file(folder, name) or b"")
    finally:
        os.close(folder)


def _table(text):
    rows = [line.split(":") for line in text.split("\n") if ":" in line]
    return {row[0]: row[1:] for row in rows}


def _names(table):
    names = {}
    for name, row in table.items():
        if len(row) > 1 and row[1].isdigit():
            names.setdefault(int(row[1]), name)
    return names


def _describe(entry, users, groups):
    kind = KINDS.get(stat.S_IFMT(entry.mode), "?")
    facts = {"kind": kind, "mode": stat.filemode(entry.mode), "octal": f"{entry.mode & 0o7777:04o}",
             "owner": users.get(entry.uid, str(entry.uid)),
             "group": groups.get(entry.gid, str(entry.gid)), "size": entry.size}
    if kind == "l":
        facts["target"] = entry.content
    return facts


def compare(before, after, reboot):
    """Returns what changed between two pictures, ready for JSON."""
    old, new = before.all(), after.all()
    users, groups = _names(after.passwd), _names(after.group)
    files = []
    for path in sorted(old.keys() | new.keys(), key=lambda text: text.split("/")):
        first, last = old.get(path), new.get(path)
        if path.startswith("/usr/"):
            change = _usr_change(path, old, new, after)
        elif first is None:
            change = "added"
        elif last is None:
            change = "removed"
        else:
            change = "" if first.same(last) else "changed"
        if change:
            shown = last if change != "removed" else first
            facts = {} if shown is None else _describe(shown, users, groups)
            files.append({"change": change, "path": path, **facts})
    return {"files": files, "settings": _settings(before.settings, after.settings),
            "users": _users(before, after), "packages": _packages(files),
            "reboot": bool(reboot)}


def _usr_change(path, old, new, after):
    """Says what happened to a path below /usr, of which only differences are known."""
    def state(table):
        if path not in table:
            return "as on the machine"
        return "gone" if table[path] is None else "own"
    first, last = state(old), state(new)
    if first == last:
        if first != "own" or old[path].same(new[path]):
            return ""
        return "changed"
    if last == "gone":
        return "removed"
    if first == "gone":
        return "added"
    if after.machine_has(path[len("/usr/"):]):
        return "changed"
    return "removed" if first == "own" else "added"


def _settings(before, after):
    result = []
    for name in sorted(before.keys() | after.keys()):
        if before.get(name) != after.get(name):
            result.append({"name": name, "before": before.get(name), "after": after.get(name)})
    return result


def _users(before, after):
    result = []
    names = before.passwd.keys() | after.passwd.keys() | before.shadow.keys() | after.shadow.keys()
    for name in sorted(names):
        if name not in before.passwd and name in after.passwd:
            result.append({"name": name, "change": "added"})
            continue
        if name in before.passwd and name not in after.passwd:
            result.append({"name": name, "change": "removed"})
            continue
        if before.shadow.get(name, [""])[:1] != after.shadow.get(name, [""])[:1]:
            result.append({"name": name, "change": "password changed"})
        if before.passwd.get(name) != after.passwd.get(name):
            result.append({"name": name, "change": "entry changed"})
    return result


def _packages(files):
    result = {}
    for item in files:
        path = item["path"]
        if not path.startswith(names.REGISTRY + "/"):
            continue
        name, _, below = path[len(names.REGISTRY) + 1:].partition("/")
        if not below:
            result[name] = item["change"]
        else:
            result.setdefault(name, "changed")
    return [{"name": name, "change": result[name]} for name in sorted(result)]


def text(result):
    """Returns the summary for people."""
    lines = ["What the run changed on the panel", "", "Files and folders"]
    files = result["files"]
    if not files:
        lines.append("  none")
    owners = [f"{f['owner']}:{f['group']}" if "owner" in f else "" for f in files]
    owner_width = max([len(owner) for owner in owners], default=0)
    size_width = max([len(str(f.get("size", ""))) for f in files], default=0)
    for facts, owner in zip(files, owners):
        size = "" if facts.get("kind") in ("d", None) else str(facts["size"])
        target = f" -> {_plain(facts['target'])}" if "target" in facts else ""
        lines.append(f"  {facts['change']:<7}  {facts.get('mode', ''):<10}  "
                     f"{owner:<{owner_width}}  {size:>{size_width}}  "
                     f"{_plain(facts['path'])}{target}")
    lines += ["", "Settings"]
    for item in result["settings"]:
        was = "" if item["before"] is None else f"  (was {_plain(item['before'])})"
        lines.append(f"  {_plain(item['name'])}={_plain(item['after'] or '')}{was}")
    lines += [] if result["settings"] else ["  none"]
    lines += ["", "Users"]
    lines += [f"  {_plain(item['name'])}: {item['change']}"
              for item in result["users"]] or ["  none"]
    lines += ["", "Installed packages"]
    lines += [f"  {_plain(item['name'])}: record {item['change']}"
              for item in result["packages"]] or ["  none"]
    lines += ["", "Reboot", "  asked for" if result["reboot"] else "  not asked for"]
    return "\n".join(lines) + "\n"


def _plain(value):
    """Keeps a name on one line and free of control characters."""
    return "".join(c if c.isprintable() or 0xDC80 <= ord(c) <= 0xDCFF
                   else c.encode("unicode_escape").decode() for c in value)
