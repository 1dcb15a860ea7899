#!/usr/bin/python3
# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
"""Makes hostile packages, signed and unsigned, and compares what kx-panel decided on them with what
kx-package says of the same files.

  panel_corpus.py make FOLDER TOOL KEY.pem [--archives N] [--descriptions N] [--seed N]
  panel_corpus.py compare FOLDER DECISIONS

FOLDER gets unsigned/N.kx-update and signed/N.kx-update. Where kx-package refuses to sign one, a block
is put in as a careless signer would, if the archive has a place for one. DECISIONS has a JSON
document of kx-panel check a line, for the files in the order of FOLDER/order.
"""
import argparse
import concurrent.futures
import hashlib
import json
import os
import pathlib
import shutil
import struct
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent.parent
sys.path.insert(0, str(ROOT / "tests/kx-package/corpus"))
sys.dont_write_bytecode = True

# pylint: disable=wrong-import-position
from packages import Corpus  # noqa: E402

MARK = b"KX-SIGNATURES 1\n"
# What kx-package finds and a panel need not: what is wrong with the updater in the package, which is
# never started, and what ends an installation, or does another thing than was meant.
LEFT = ("updater-", "payload-", "setting-", "source-", "step-", "target-", "user-",
        "permissions")
# The contents of a signed package are unpacked when it is installed, and not before.
CONTENTS = ("entry-crc", "entry-damaged")


def signed_by_hand(data, name, key):
    """The bytes with a block of signatures; None when there is no place for one."""
    end = len(data) - 22
    if end < 0 or data[end:end + 4] != b"PK\5\6":
        return None
    place, = struct.unpack("<I", data[end + 16:end + 20])
    if place > end:
        return None
    statement = (f"kx-update package signature, version 1\nname: {name}\nlength: {len(data)}\n"
                 f"sha256: {hashlib.sha256(data).hexdigest()}\n").encode()
    public = subprocess.check_output(["openssl", "pkey", "-in", key, "-pubout", "-outform", "DER"])
    told = key.parent / "statement"
    told.write_bytes(statement)
    signature = subprocess.check_output(
        ["openssl", "pkeyutl", "-sign", "-rawin", "-inkey", key, "-in", told])
    body = MARK + struct.pack("<H", len(statement)) + statement + b"\1" + \
        hashlib.sha256(public).digest() + signature
    block = body + struct.pack("<I", len(body) + 20) + MARK
    return data[:place] + block + data[place:end + 16] + \
        struct.pack("<I", (place + len(block)) & 0xffffffff) + data[end + 20:]


def sign(tool, file, target, key):
    """Signs a package; tells whether kx-package did, or None when nobody can."""
    shutil.copyfile(file, target)
    done = subprocess.run([tool, "sign", "--key", key, target], check=False, timeout=60,
                          stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    if done.returncode == 0:
        return True
    data = signed_by_hand(file.read_bytes(), target.name.removesuffix(".kx-update"), key)
    if data is None:
        target.unlink()
        return None
    target.write_bytes(data)
    return False


def findings(tool, file):
    """What kx-package finds in a package: words of errors, and of remarks on the archive."""
    done = subprocess.run([tool, "check", "--json", file], capture_output=True, timeout=60,
                          check=False)
    found = json.loads(done.stdout)["findings"]
    return ({each["id"] for each in found if each["severity"] == "error"},
            {each["id"] for each in found if each["severity"] != "error"
             and each["id"].startswith(("archive-", "entry-"))})


def expectation(errors, remarks, left, is_signable):
    """Whether a panel must accept; None when it may do either: of what is left to the installation,
    and where kx-package only remarks on what a panel may take for an attack."""
    if not is_signable or any(not error.startswith(left) for error in errors):
        return False
    return None if errors or remarks else True


def make(options):
    """Makes the packages, and notes what is expected of each."""
    options.folder = pathlib.Path(options.folder).resolve()
    work = options.folder / "work"
    work.mkdir(parents=True)
    corpus = Corpus(str(work), options.seed, options.tool)
    corpus.add_built()
    corpus.add_damaged(options.archives)
    corpus.add_spoiled(options.descriptions)
    folders = {kind: pathlib.Path(options.folder, kind) for kind in ("unsigned", "signed")}
    for folder in folders.values():
        folder.mkdir()
    rows = []

    def add(number, job):
        file = pathlib.Path(job["file"])
        errors, remarks = findings(options.tool, file)
        name = f"{number}.kx-update"
        row = {"how": job["how"], "ids": sorted(errors | remarks)}
        signature = sign(options.tool, file, folders["signed"] / name, pathlib.Path(options.key))
        file.rename(folders["unsigned"] / name)
        mine = [{**row, "file": f"unsigned/{name}",
                 "expected": expectation(errors, remarks, LEFT, signature)}]
        if signature is not None:
            mine.append({**row, "file": f"signed/{name}",
                         "expected": expectation(errors, remarks, LEFT + CONTENTS, signature)})
        return mine

    with concurrent.futures.ThreadPoolExecutor(2) as pool:
        for mine in pool.map(add, range(len(corpus.jobs)), corpus.jobs):
            rows += mine
    shutil.rmtree(work)
    text = json.dumps(rows)
    pathlib.Path(options.folder, "expected.json").write_text(text, encoding="utf-8")
    pathlib.Path(options.folder, "order").write_text(
        "".join(f"{row['file']}\n" for row in rows), encoding="utf-8")


def compare(options):
    """Compares; prints how many of each there were, and what differs."""
    rows = json.loads(pathlib.Path(options.folder, "expected.json").read_text(encoding="utf-8"))
    decisions = pathlib.Path(options.decisions).read_text(encoding="utf-8").splitlines()
    if len(rows) != len(decisions):
        sys.exit(f"{len(decisions)} decisions on {len(rows)} packages")
    counts = {}
    status = 0
    for row, line in zip(rows, decisions):
        decision = json.loads(line)
        ids = [reason["id"] for reason in decision["reasons"]]
        counts[row["file"].split("/")[0], decision["accepted"]] = counts.get(
            (row["file"].split("/")[0], decision["accepted"]), 0) + 1
        if row["expected"] not in (None, decision["accepted"]) or bool(ids) == decision["accepted"] or \
                "unread" in ids:
            print(f"{row['file']} ({row['how']}): kx-package {row['ids']}, kx-panel {ids}")
            status = 1
    for kind in ("unsigned", "signed"):
        for accepted in (True, False):
            # A table that holds nothing of a kind has shown nothing about it.
            if counts.get((kind, accepted), 0) < 5:
                print(f"only {counts.get((kind, accepted), 0)} {kind} packages, "
                      f"accepted: {accepted}")
                status = 1
    return status


def main():
    """Does what the command line asks for."""
    parser = argparse.ArgumentParser()
    words = parser.add_subparsers(dest="command", required=True)
    one = words.add_parser("make")
    one.add_argument("folder")
    one.add_argument("tool")
    one.add_argument("key")
    one.add_argument("--archives", type=int, default=30)
    one.add_argument("--descriptions", type=int, default=12)
    one.add_argument("--seed", type=int, default=1)
    other = words.add_parser("compare")
    other.add_argument("folder")
    other.add_argument("decisions")
    options = parser.parse_args()
    os.umask(0o022)
    return make(options) if options.command == "make" else compare(options)


if __name__ == "__main__":
    sys.exit(main())
