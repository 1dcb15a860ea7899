#!/usr/bin/python3 -IS
# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
"""Compares the commands that kx-package plans for the installer with those of a trace.

  compare_plan.py PLAN.json TRACE FOLDER INSTALLED_FROM

FOLDER is where the plan has the package unpacked, INSTALLED_FROM where the installation had it.
Behind a command whose result is not known before the panel has run it, the installation may have
gone on in another way. Exit status 0: they agree; 1: one line says where they do not.
"""
import json
import os
import re
import sys

SIGNS = {b"\\": b"\\", b"t": b"\t", b"n": b"\n"}


def letter_for_letter(command):
    """The bytes of a planned command."""
    if command["commandHex"]:
        return bytes.fromhex(command["commandHex"])
    return command["command"].encode()


def planned(plan, folder, installed_from):
    """The planned commands as (whether its result is known, bytes)."""
    if plan["aborted"]:
        return [(True, b"sync")]
    return [
        (not (command["unknownResult"] or command["readDifferently"] or command["afterScript"]),
         letter_for_letter(command).replace(os.fsencode(folder), os.fsencode(installed_from)))
        for command in plan["commands"] if command["process"] == "installer"]


def run(trace):
    """The shell commands of a trace."""
    with open(trace, "rb") as file:
        return [re.sub(rb"\\(.)", lambda escape: SIGNS[escape[1]], line[len(b"shell\t"):])
                for line in file.read().split(b"\n") if line.startswith(b"shell\t")]


def difference(plan, commands):
    """Where they first differ, or nothing."""
    is_known = True
    for i, command in enumerate(commands):
        if i >= len(plan):
            return f"run but not planned: {command!r}" if is_known else None
        if plan[i][1] != command:
            return f"planned {plan[i][1]!r}\nbut run {command!r}" if is_known else None
        is_known = is_known and plan[i][0]
    if len(commands) < len(plan) and is_known:
        return f"planned but not run: {plan[len(commands)][1]!r}"
    return None


def main():
    """Compares."""
    with open(sys.argv[1], encoding="utf-8") as file:
        plan = json.load(file)
    found = difference(planned(plan, sys.argv[3], sys.argv[4]), run(sys.argv[2]))
    sys.stdout.buffer.write(os.fsencode(found + "\n" if found else ""))
    return 1 if found else 0


sys.exit(main())
