#!/usr/bin/python3 -IS
# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
"""Makes packages for the device tests, with kx-package.

  make_package.py FOLDER <RECIPE           an unpacked package
  make_package.py --update FILE <RECIPE    a package file

The recipe becomes a manifest and a payload, which kx-package builds. What no manifest can say, as
these tests are about odd and broken packages, too, is changed afterwards in what was built.
KX_PACKAGE is the kx-package that builds.

RECIPE is Python; each call adds a step, in order, and lays its payload where the updater looks:

  copy_file(item(r"C:\\work\\app.bin", "/opt/demo/app.bin", "755", "payload"), record=True)
  copy_folder(folder("/opt/tree", {"a.txt": "A", "sub": {"run": file("#!", 0o755)}}), skip=True)
  script("#!/bin/sh\\necho hello\\n")
  hardware(setting("Backlight", ("Level", "8")), setting("Sound", used=False))
  step(typed("DB_CopyStepSet", ...))     any object, also a wrong one
  root(Title="other")                    fields of the root
  change(lambda project: ...)            anything, at the end, once the tree is there
  description(b"...")                    the whole description file, byte for byte
  put("kx_Updater", data, 0o755)         a further file of the package

Texts may hold any byte: raw(b"\\xff").
"""
import json
import os
import pathlib
import platform
import re
import shutil
import stat
import subprocess
import sys
import tempfile

BYTE_ORDER_MARK = b"\xef\xbb\xbf"
PROJECT = "UserPackage.kx-project"
UPDATER = "kx_Updater"
# What a manifest takes as a path, as it stands.
SAFE_PATH = re.compile(r"[A-Za-z0-9_./ -]*[A-Za-z0-9_-]\Z")
SAFE_NAME = re.compile(r"[A-Za-z0-9_-][A-Za-z0-9_. -]*\Z")
MODE = re.compile(r"[0-7]{3,4}\Z")

TYPES = {
    "DB_KxUserProject": "Zt.Plugins.DB_KxUserProject, Plexa",
    "DB_StepSets": "Zt.Plugins.DB_StepSets, Plexa",
    "DB_CopyStepSet": "Zt.Plugins.DB_CopyStepSet, Plexa",
    "DB_ScriptStepSet": "Zt.Plugins.DB_ScriptStepSet, Plexa",
    "DB_HardSettingStepSet": "Zt.Plugins.DB_HardSettingStepSet, Plexa",
    "DB_CopyFunctionDatas": "Zt.Plugins.DB_CopyFunctionDatas, Plexa",
    "DB_CopyFunctionData": "Zt.Plugins.DB_CopyFunctionData, Plexa",
    "DB_ScriptFunctionData": "Zt.Plugins.DB_ScriptFunctionData, Plexa",
    "DB_HardSettingFunctionData": "Zt.Plugins.DB_HardSettingFunctionData, Plexa",
    "DB_HardwareConfigs": "Zt.DB_HardwareConfigs, Ruvelo",
    "DB_HardwareConfig": "Zt.DB_HardwareConfig, Ruvelo",
    "DB_HardwareItems": "Zt.DB_HardwareItems, Drovic",
    "DB_HardwareItem": "Zt.DB_HardwareItem, Drovic",
}
STEPS = {
    "CopyFile": "Zt.Plugins.SS_CopyFileStepSet,  Plexa",
    "CopyFolder": "Zt.Plugins.SS_CopyFolderStepSet,  Plexa",
    "Script": "Zt.Plugins.SS_ScriptStepSet,  Plexa",
    "HardSetting": "Zt.Plugins.SS_HardSettingStepSet,  Plexa",
}
SETTINGS = {
    "AutoStartupMode": "Zt.Plugins.HW_AutoStartupModeConfigSet,  Plexa",
    "Backlight": "Zt.Plugins.HW_BacklightConfigSet,  Plexa",
    "Cursor": "Zt.Plugins.HW_CursorConfigSet,  Plexa",
    "Language": "Zt.Plugins.HW_LanguageConfigSet,  Plexa",
    "Lan": "Zt.Plugins.HW_LanConfigSet,  Plexa",
    "Sound": "Zt.Plugins.HW_SoundConfigSet,  Plexa",
    "SStart": "Zt.Plugins.HW_SStartConfigSet,  Plexa",
    "TouchBeep": "Zt.Plugins.HW_TouchBeepConfigSet,  Plexa",
    "User": "Zt.Plugins.HW_UserConfigSet,  Plexa",
}
SETTING_WORDS = {
    "AutoStartupMode": "auto-start", "Backlight": "backlight", "Cursor": "cursor",
    "Language": "language", "Lan": "lan", "Sound": "sound", "SStart": "s-start",
    "TouchBeep": "touch-beep", "User": "user",
}


def raw(data):
    """A text that stands for these bytes, valid UTF-8 or not."""
    return data.decode("utf-8", "surrogateescape")


def _bytes(text):
    return text if isinstance(text, bytes) else text.encode("utf-8", "surrogateescape")


def typed(name, **fields):
    """An object of the class."""
    return {"$type": TYPES[name], **fields}


def listed(name, values):
    """A list object of the class."""
    return {"$type": TYPES[name], "$values": list(values)}


class File:
    """A payload file with a mode."""

    def __init__(self, data, mode=0o644):
        self.data = _bytes(data)
        self.mode = mode


class Link:
    """A symbolic link in a payload."""

    def __init__(self, target):
        self.target = target


def _is_plain(text):
    """Whether a manifest can have the text."""
    return isinstance(text, str) and "\0" not in text and "\r" not in text and \
        text.isprintable() | ("\n" in text or "\t" in text) and \
        not any("\ud800" <= sign <= "\udfff" for sign in text)


def _toml(text):
    return json.dumps(text, ensure_ascii=False).replace("\x7f", "\\u007f")


def _flag(value):
    return "true" if value is True else "false"


def _write(path, content):
    path = os.fsencode(path)
    os.makedirs(os.path.dirname(path), exist_ok=True)
    if isinstance(content, Link):
        os.symlink(_bytes(content.target), path)
        return
    if isinstance(content, dict):
        os.makedirs(path, exist_ok=True)
        for name, entry in content.items():
            _write(path + b"/" + _bytes(name), entry)
        return
    entry = content if isinstance(content, File) else File(content)
    with open(path, "wb") as target:
        target.write(entry.data)
    os.chmod(path, entry.mode)


class Package:
    """What a recipe adds to."""

    def __init__(self):
        self.fields = {"ModelName": "TP-0700", "OsVersion": "2.1.0", "PackageVersion": "1.0.0",
                       "Title": "Test package", "Comment": "made by a test",
                       "Date": "2026/01/02"}
        self.steps = []
        self.tables = []  # for each step: its part of the manifest, or what stands for it
        self.sources = {}  # path beside the manifest: content
        self.files = {}  # path inside the package: content
        self.changes = []
        self.text = None

    # -- payload items -----------------------------------------------------------------------

    @staticmethod
    def item(source, target, mode="", data="payload\n"):
        """A file to copy; without data (None) the package lacks it."""
        name = source.replace("\\", "/").replace(":", "/").rpartition("/")[2]
        return source, target, mode, None if data is None else {name: data}

    @staticmethod
    def folder(target, tree, mode=""):
        """A folder whose contents are to be copied."""
        return "C:\\work\\folder", target, mode, tree

    # -- steps -------------------------------------------------------------------------------

    def step(self, value, table='kind = "script"\ninstall = ""'):
        """Adds a step as it is."""
        self.steps.append(value)
        self.tables.append(table)

    def _source(self, number, index, source, payload):
        """Lays an item's payload beside the manifest; returns its path there."""
        names = list(payload or {})
        plain = source if SAFE_PATH.match(source) and ".." not in source and \
            not source.startswith("/") and names == [source.rpartition("/")[2]] and \
            SAFE_NAME.match(names[0]) and not isinstance(payload[names[0]], (dict, Link)) else None
        if plain is None or self.sources.get(plain, payload[names[0]]) != payload[names[0]]:
            name = names[0] if plain else "payload"
            plain = f"{number}-{index}/{name}"
        self.sources[plain] = next(iter(payload.values())) if payload and len(payload) == 1 and \
            not isinstance(next(iter(payload.values())), (dict, Link)) else "payload\n"
        return plain

    def _copy_table(self, kind, number, items, record, skip):
        if not items:
            return 'kind = "script"\ninstall = ""'
        lines = [f'comment = "copy"\nskip = {_flag(skip)}\nrecord = {_flag(record)}']
        for index, (source, target, mode, payload) in enumerate(items):
            target = target if SAFE_PATH.match(target) and target[0] == "/" else "/placeholder"
            if kind == "CopyFile":
                source = self._source(number, index, source, payload)
                mode = mode if MODE.match(mode) else "644"
                lines.append(f"[[steps.files]]\nsource = {_toml(source)}\n"
                             f"target = {_toml(target)}\nmode = {_toml(mode)}")
            else:
                folder = f"{number}-{index}-folder"
                programs = self._folder(folder, payload)
                lines.append(f"[[steps.folders]]\nsource = {_toml(folder)}\n"
                             f"target = {_toml(target)}\nexecutable = {json.dumps(programs)}")
        word = {"CopyFile": "copy-files", "CopyFolder": "copy-folder"}[kind]
        return f'kind = "{word}"\n' + "\n".join(lines)

    def _folder(self, folder, tree):
        """Lays a tree beside the manifest, as far as a manifest takes it; returns its programs."""
        programs = []
        self.sources[folder] = {}

        def add(path, below):
            for name, entry in below.items():
                if not isinstance(name, str) or not SAFE_NAME.match(name) or \
                        isinstance(entry, Link):
                    continue
                if isinstance(entry, dict):
                    self.sources[f"{folder}/{path}{name}"] = {}
                    add(f"{path}{name}/", entry)
                    continue
                self.sources[f"{folder}/{path}{name}"] = entry
                if isinstance(entry, File) and entry.mode & 0o111:
                    programs.append(path + name)

        add("", tree or {})
        return programs

    def _copy(self, kind, items, record, skip):
        number = len(self.steps)
        for index, (_, _, _, payload) in enumerate(items):
            if payload is not None:
                self.files[f"{number}/{index}"] = payload
        self.step(typed(
            "DB_CopyStepSet", SS_StepSetId=STEPS[kind], Comment="copy", CanSkip=skip,
            IsRelativePath=True, IsRemove=record,
            PathSetDatas=listed("DB_CopyFunctionDatas", [
                typed("DB_CopyFunctionData", SourcePath=source, DestinationPath=target,
                      Permissions=mode) for source, target, mode, _ in items])),
            self._copy_table(kind, number, items, record, skip))

    def copy_file(self, *items, record=False, skip=False):
        """Adds a step that copies single files."""
        self._copy("CopyFile", items, record, skip)

    def copy_folder(self, *items, record=False, skip=False):
        """Adds a step that copies the contents of folders."""
        self._copy("CopyFolder", items, record, skip)

    def script(self, text, skip=False, uninstall="exit 99\n"):
        """Adds a step that runs a script."""
        self.step(typed("DB_ScriptStepSet", SS_StepSetId=STEPS["Script"], Comment="script",
                        CanSkip=skip,
                        InstallScriptFunctionData=typed("DB_ScriptFunctionData", ScriptData=text),
                        UninstallScriptFunctionData=typed("DB_ScriptFunctionData",
                                                          ScriptData=uninstall)),
                  f'kind = "script"\ncomment = "script"\nskip = {_flag(skip)}\n' +
                  "".join(f"{key} = {_toml(value)}\n" if _is_plain(value) else f'{key} = ""\n'
                          for key, value in [("install", text), ("uninstall", uninstall)]))

    def hardware(self, *configs, skip=False):
        """Adds a step that applies hardware settings."""
        self.step(typed("DB_HardSettingStepSet", SS_StepSetId=STEPS["HardSetting"],
                        Comment="hardware", CanSkip=skip,
                        HardSettingDatas=typed("DB_HardSettingFunctionData", DB_HardwareConfigs=(
                            listed("DB_HardwareConfigs", configs)))),
                  "\n".join([f'kind = "settings"\ncomment = "hardware"\n'
                             f'skip = {_flag(skip)}', *map(self._setting_table, configs)])
                  if configs else 'kind = "script"\ninstall = ""')

    @staticmethod
    def _setting_table(config):
        """A setting's part of the manifest; another one where a manifest cannot say it."""
        words = {SETTINGS[name]: word for name, word in SETTING_WORDS.items()}
        try:
            word = words[config["ConfigId"]]
            items = [(item["ItemName"], item["Value"]) for item in
                     config["HardwareItems"]["$values"]]
            if len(dict(items)) == len(items) and all(
                    name and _is_plain(name) and _is_plain(value) for name, value in items):
                values = ", ".join(f"{_toml(name)} = {_toml(value)}" for name, value in items)
                return (f'[[steps.settings]]\nkind = "{word}"\n'
                        f'used = {_flag(config["IsUsed"])}\nvalues = {{ {values} }}')
        except (KeyError, TypeError, AttributeError):
            pass
        return '[[steps.settings]]\nkind = "sound"\nvalues = {}'

    @staticmethod
    def setting(kind, *items, used=True):
        """A hardware setting; kind is a name of the table or any other identity string."""
        return typed("DB_HardwareConfig", ConfigId=SETTINGS.get(kind, kind), IsUsed=used,
                     HardwareItems=listed("DB_HardwareItems", [
                         typed("DB_HardwareItem", ItemName=name, Value=value)
                         for name, value in items]))

    # -- the rest ----------------------------------------------------------------------------

    def root(self, **fields):
        """Sets fields of the root; None removes one."""
        self.fields.update(fields)
        self.fields = {key: value for key, value in self.fields.items() if value is not None}

    def change(self, function):
        """Calls function with the whole project at the end."""
        self.changes.append(function)

    def description(self, text):
        """Sets the whole description file."""
        self.text = text

    def put(self, path, data, mode=0o644):
        """Adds a file to the package."""
        self.files[path] = File(data, mode)

    # -- building ----------------------------------------------------------------------------

    def wish(self):
        """Returns the description that the recipe wants: an object, or the file's bytes."""
        if self.text is not None:
            return self.text
        tree = typed("DB_KxUserProject", **self.fields,
                     DB_StepSets=listed("DB_StepSets", self.steps))
        for function in self.changes:
            function(tree)
        return tree

    def _lay_out(self, folder):
        """Writes manifest and payload."""
        keys = {"ModelName": "model", "OsVersion": "os-version", "PackageVersion": "version",
                "Title": "title", "Comment": "comment", "Date": "date"}
        lines = ["[package]", 'name = "package"', f'processor = "{platform.machine()}"']
        for field, key in keys.items():
            value = self.fields.get(field)
            lines.append(f"{key} = {_toml(value) if _is_plain(value) and value else _toml('none')}")
        for table in self.tables:
            lines += ["[[steps]]", table]
        _write(f"{folder}/package.toml", "\n".join(lines) + "\n")
        for path, content in self.sources.items():
            _write(f"{folder}/{path}", content)

    def _build(self, source, package, updater):
        environment = {**os.environ, "LC_ALL": "C.UTF-8"}
        done = subprocess.run([os.environ["KX_PACKAGE"], "build", source, "-o", package,
                               "--updater", updater], stdout=subprocess.DEVNULL,
                              stderr=subprocess.PIPE, env=environment, check=False)
        # The package is there, too, when the check at the end finds something wrong with it.
        if done.returncode not in (0, 1) or not os.path.exists(package):
            manifest = pathlib.Path(source, "package.toml").read_text(encoding="utf-8")
            sys.exit(f"{done.stderr.decode(errors='replace')}{manifest}")

    def make(self, target, is_archive):
        """Builds the package, and changes in it what a manifest cannot say."""
        with tempfile.TemporaryDirectory() as work:
            source, package, folder = f"{work}/source", f"{work}/package.kx-update", f"{work}/tree"
            self._lay_out(source)
            self._build(source, package, "/usr/bin/true")
            subprocess.run(["unzip", "-q", package, "-d", folder], check=True)
            is_as_built = self._change(folder)
            own = self.files.get(UPDATER)
            native = pathlib.Path("/usr/bin/true").read_bytes()[:20]  # the head of a program
            if not is_archive:
                shutil.copytree(folder, target, symlinks=True)
            elif is_as_built and own is not None and own.data[:20] == native:
                self._build(source, target, f"{folder}/{UPDATER}")
            else:
                # Fast rather than small: most of it is the updater.
                subprocess.run(["zip", "-q", "-1", "-X", "-y", "-r", os.path.abspath(target), "."],
                               cwd=folder, check=True)

    def _change(self, folder):
        """Makes of what was built what the recipe wants; tells whether only the updater differs."""
        os.unlink(f"{folder}/{UPDATER}")
        is_as_built = True
        wish = self.wish()
        path = f"{folder}/{PROJECT}"
        with open(path, "rb") as file:
            built = json.loads(file.read()[len(BYTE_ORDER_MARK):])
        if wish != built:
            is_as_built = False
            text = wish if isinstance(wish, bytes) else BYTE_ORDER_MARK + _bytes(
                json.dumps(wish, ensure_ascii=False, indent=2))
            _write(path, text)
        for name in sorted(os.listdir(folder)):
            if name != PROJECT:
                wanted = {path: content for path, content in self.files.items()
                          if path == name or path.startswith(name + "/")}
                if not _is_there(folder, name, wanted):
                    is_as_built = False
                    shutil.rmtree(f"{folder}/{name}")
        for path, content in self.files.items():
            if not os.path.lexists(os.fsencode(f"{folder}/{path}")):
                is_as_built = is_as_built and path == UPDATER
                _write(f"{folder}/{path}", content)
            elif path == PROJECT:
                is_as_built = False
                _write(f"{folder}/{path}", content)
        return is_as_built


def _tree(folder):
    """What is below a folder: paths with kind, content, and mode."""
    found = {}
    for place, folders, names in os.walk(os.fsencode(folder)):
        for name in folders + names:
            path = os.path.join(place, name)
            mode = os.lstat(path).st_mode
            content = None
            if stat.S_ISLNK(mode):
                content = os.readlink(path)
            elif stat.S_ISREG(mode):
                with open(path, "rb") as file:
                    content = file.read()
            found[os.path.relpath(path, os.fsencode(folder))] = (mode, content)
    return found


def _is_there(folder, name, wanted):
    """Whether a part of the package is what the recipe wants."""
    with tempfile.TemporaryDirectory() as other:
        os.mkdir(f"{other}/{name}")
        for path, content in wanted.items():
            _write(f"{other}/{path}", content)
        return _tree(f"{other}/{name}") == _tree(f"{folder}/{name}")


def read_recipe(text):
    """Runs a recipe and returns its package."""
    package = Package()
    names = {name: getattr(package, name) for name in dir(package) if not name.startswith("_")}
    exec(compile(text, "recipe", "exec"), {  # pylint: disable=exec-used
        **names, "typed": typed, "listed": listed, "raw": raw, "file": File, "link": Link,
        "TYPES": TYPES, "STEPS": STEPS, "SETTINGS": SETTINGS, "PROJECT": PROJECT, "os": os})
    return package


def main():
    """Makes one package."""
    os.umask(0o022)
    sys.setrecursionlimit(10000)  # for objects nested deep
    package = read_recipe(sys.stdin.read())
    is_archive = sys.argv[1] == "--update"
    package.make(sys.argv[-1], is_archive)


main()
