#!/usr/bin/python3
# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
"""Makes packages for the device tests.

  make_package.py FOLDER <RECIPE           an unpacked package
  make_package.py --update FILE <RECIPE    a package file, packed by zip

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
import subprocess
import sys
import tempfile

BYTE_ORDER_MARK = b"\xef\xbb\xbf"
PROJECT = "UserPackage.kx-project"

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

    def step(self, value):
        """Adds a step as it is."""
        self.steps.append(value)

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
                      Permissions=mode) for source, target, mode, _ in items])))

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
                                                          ScriptData=uninstall)))

    def hardware(self, *configs, skip=False):
        """Adds a step that applies hardware settings."""
        self.step(typed("DB_HardSettingStepSet", SS_StepSetId=STEPS["HardSetting"],
                        Comment="hardware", CanSkip=skip,
                        HardSettingDatas=typed("DB_HardSettingFunctionData", DB_HardwareConfigs=(
                            listed("DB_HardwareConfigs", configs)))))

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

    def project(self):
        """Returns the description file's bytes."""
        if self.text is not None:
            return self.text
        tree = typed("DB_KxUserProject", **self.fields,
                     DB_StepSets=listed("DB_StepSets", self.steps))
        for function in self.changes:
            function(tree)
        return BYTE_ORDER_MARK + _bytes(json.dumps(tree, ensure_ascii=False, indent=2))

    def write(self, folder):
        """Writes the unpacked package."""
        pathlib.Path(folder).mkdir(parents=True)
        self.files.setdefault(PROJECT, File(self.project()))
        for path, content in self.files.items():
            _write(os.path.join(folder, path), content)


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
    if sys.argv[1] == "--update":
        with tempfile.TemporaryDirectory() as folder:
            package.write(folder + "/package")
            subprocess.run(["zip", "-q", "-X", "-r", os.path.abspath(sys.argv[2]), "."],
                           cwd=folder + "/package", check=True)
    else:
        package.write(sys.argv[1])


main()
