# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
"""The packages that are measured: their descriptions, their files, and the commands that their
installation must run."""
import json
from dataclasses import dataclass
from typing import Callable

INSIDE = "/opt/bench"
TARGET = "/mnt/user/target"
REGISTRY = "/var/lib/KxUserPackages"
RECORD = f"{REGISTRY}/package"
DESCRIPTION = "UserPackage.kx-project"
MIB = 1 << 20
BOM = b"\xef\xbb\xbf"


# ---- descriptions ----

def typed(name, **fields):
    return {"$type": f"Zt.Plugins.{name}, Plexa", **fields}


def listed(type_string, values):
    return {"$type": type_string, "$values": values}


def copy_step(kind, items):
    paths = [typed("DB_CopyFunctionData", SourcePath=source, DestinationPath=target,
                   Permissions=mode) for source, target, mode in items]
    return typed("DB_CopyStepSet", SS_StepSetId=f"Zt.Plugins.{kind},  Plexa", Comment="",
                 CanSkip=False, IsRelativePath=True, IsRemove=True,
                 PathSetDatas=listed("Zt.Plugins.DB_CopyFunctionDatas, Plexa", paths))


def script_step(text):
    script = typed("DB_ScriptFunctionData", ScriptData=text)
    return typed("DB_ScriptStepSet", SS_StepSetId="Zt.Plugins.SS_ScriptStepSet,  Plexa",
                 Comment="a script", CanSkip=False, InstallScriptFunctionData=script,
                 UninstallScriptFunctionData=script)


def hardware_step(configs, items):
    item_list = listed("Zt.DB_HardwareItems, Drovic",
                       [{"$type": "Zt.DB_HardwareItem, Drovic", "ItemName": f"Item{number}",
                         "Value": f"value {number}"} for number in range(items)])
    config_list = [{"$type": "Zt.DB_HardwareConfig, Ruvelo",
                    "ConfigId": "Zt.Plugins.HW_BacklightConfigSet,  Plexa", "IsUsed": True,
                    "HardwareItems": item_list} for _ in range(configs)]
    return typed("DB_HardSettingStepSet", SS_StepSetId="Zt.Plugins.SS_HardSettingStepSet,  Plexa",
                 Comment="settings", CanSkip=False,
                 HardSettingDatas=typed(
                     "DB_HardSettingFunctionData",
                     DB_HardwareConfigs=listed("Zt.DB_HardwareConfigs, Ruvelo", config_list)))


def write_description(path, steps):
    root = typed("DB_KxUserProject", ModelName="bench", OsVersion="1", PackageVersion="1",
                 Title="Bench", Comment="", Date="",
                 DB_StepSets=listed("Zt.Plugins.DB_StepSets, Plexa", steps))
    path.write_bytes(BOM + json.dumps(root, indent=2).encode())


# ---- package folders ----

def fill(path, size):
    path.parent.mkdir(parents=True, exist_ok=True)
    block = bytes(range(256)) * 4096
    with path.open("wb") as file:
        for start in range(0, size, len(block)):
            file.write(block[:min(len(block), size - start)])


def folder_step(package, folders, files, size):
    """One folder step of folders x files; returns its steps and its commands."""
    commands = [f'mkdir -p "{TARGET}"']
    for folder in (f"d{number:04}" for number in range(folders)):
        commands.append(f'mkdir -p "{TARGET}/{folder}"')
        for name in (f"f{number:04}" for number in range(files)):
            fill(package / "0" / "0" / folder / name, size)
            commands.append(f'cp -f "{INSIDE}/package/0/0/{folder}/{name}" '
                            f'"{TARGET}/{folder}/{name}" ')
    return [copy_step("SS_CopyFolderStepSet", [("payload", TARGET, "")])], commands


def item_steps(package, files, size):
    """One file step of single items; returns its steps and its commands."""
    commands, items = [f'mkdir -p "{TARGET}/"'], []
    for number in range(files):
        name = f"f{number:04}"
        fill(package / "0" / str(number) / name, size)
        items.append((f"C:\\payload\\{name}", f"{TARGET}/{name}", "644"))
        commands.append(f'cp -f "{INSIDE}/package/0/{number}/{name}" "{TARGET}/{name}" ')
        commands.append(f'chmod 644 "{TARGET}/{name}" ')
    return [copy_step("SS_CopyFileStepSet", items)], commands


def expected_commands(step_commands):
    """All commands of an installation whose steps run these."""
    return (["sync", "/usr/bin/kxsystem/wprotect_off"] + step_commands +
            [f'mkdir -p "{RECORD}"', f'cp -f "{INSIDE}/package/{DESCRIPTION}" '
             f'"{RECORD}/{DESCRIPTION}" ', "sync"])


@dataclass(frozen=True)
class Installation:
    """A package that the updater installs, against the floor."""
    text: str
    make: Callable  # of the package's folder; returns the steps and their commands
    rounds: int  # at most
    seconds: int  # no further round begins that would probably not end within them
    files: int = 0
    is_long: bool = False  # has no second floor, and a smaller one of its kind proves its commands
    parts: tuple = ()  # what a floor of its own does besides, "+" between several


@dataclass(frozen=True)
class Reading:
    """A description that is read, against the JSON library alone."""
    text: str
    make: Callable  # returns the steps
    rounds: int
    goal: float  # reader/library at most


@dataclass(frozen=True)
class Window:
    """What the window does, against a bare one."""
    text: str
    rounds: int
    seconds: int


@dataclass(frozen=True)
class Packing:
    """A package that is built and checked, against zip and unzip."""
    text: str
    files: int
    size: int
    rounds: int
    seconds: int


@dataclass(frozen=True)
class Archived:
    """A folder whose files travel in one archive, against its plain copy and against unzip and
    tar."""
    text: str
    folders: int
    files: int  # in each
    size: int
    rounds: int
    seconds: int


@dataclass(frozen=True)
class Deciding:
    """A signed package on which a panel decides, against reading it, and against other updaters
    that verify the same files."""
    text: str
    files: int
    size: int
    rounds: int
    seconds: int


WORKLOADS = {
    "no-steps": Installation("a package without steps", lambda package: ([], []), 30, 30),
    "items-1k": Installation("1,000 single file items of 4 KiB",
                             lambda package: item_steps(package, 1000, 4096), 3, 60, 1000),
    "one-512m": Installation("one file of 512 MiB",
                             lambda package: item_steps(package, 1, 512 * MIB), 5, 60, 1),
    "files-300": Installation("300 files, 60 MiB together",
                              lambda package: folder_step(package, 3, 100, 60 * MIB // 300),
                              9, 40, 300),
    "folder-1k": Installation("1,000 files of 4 KiB in 10 folders, one folder step",
                              lambda package: folder_step(package, 10, 100, 4096), 7, 60, 1000),
    "folder-parts": Installation("1,000 files as before, and floors with parts of the updater's work",
                                 lambda package: folder_step(package, 10, 100, 4096), 9, 240, 1000,
                                 parts=("nothing", "format", "look", "record",
                                        "format+look+record")),
    "folder-10k": Installation("10,000 files of 4 KiB in 100 folders, one folder step",
                               lambda package: folder_step(package, 100, 100, 4096), 3, 160, 10000),
    "folder-50k": Installation("50,000 files of 64 bytes in 100 folders, one folder step",
                               lambda package: folder_step(package, 100, 500, 64), 1, 300, 50000,
                               is_long=True),
    "read-20k": Reading("description of 20,000 steps",
                        lambda: [step for number in range(10000) for step in (
                            copy_step("SS_CopyFileStepSet",
                                      [(f"C:\\work\\a{number}.bin", f"/opt/app/a{number}.bin",
                                        "644")]),
                            script_step(f"#!/bin/sh\necho step {number}\n"))], 15, 2.0),
    "read-hardware": Reading("description of 50 hardware steps, 20 settings of 20 items each",
                             lambda: [hardware_step(20, 20) for _ in range(50)], 15, 4.5),
    "window-start": Window(
        "from the start to the question, a package of 300 files, 60 MiB together", 9, 60),
    "window-log": Window("10,000 pieces of a child's output", 5, 60),
    "pack-300": Packing("a package of 300 files, 60 MiB together", 300, 60 * MIB // 300, 5, 40),
    "pack-512m": Packing("a package of one file of 512 MiB", 1, 512 * MIB, 3, 100),
    "fast-10k": Archived("10,000 files of 4 KiB in 100 folders, in one archive", 100, 100, 4096, 5,
                         240),
    "panel-300": Deciding("a signed package of 300 files, 60 MiB together", 300, 60 * MIB // 300, 9,
                          60),
    "panel-512m": Deciding("a signed package of one file of 512 MiB", 1, 512 * MIB, 7, 90),
}
# Of different sizes and otherwise alike: what each file costs must not depend on their number.
GROWING = ("folder-1k", "folder-10k", "folder-50k")
