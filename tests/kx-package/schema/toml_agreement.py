#!/usr/bin/python3
# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
"""Asks the schemas of panel.toml and package.toml and their readers about the same files.

  toml_agreement.py --tool build/dev/kx-package --panel SCHEMA --manifest SCHEMA MANIFEST...

Each of the files below is either taken by both or by none; the manifests named must be taken.
"""
import argparse
import json
import pathlib
import re
import subprocess
import sys
import tempfile
import tomllib

import jsonschema

PANELS = {
    "": True,
    "format = 1": True,
    "format = 2": False,
    "format = '1'": False,
    "models = ['a', 'b']\nos-versions = []": True,
    "models = 'a'": False,
    "model = ['a']": False,
    "processor = 'armhf'": True,
    "processor = 'arn'": False,
    "processor = 'arm'\nfloat-abi = 'soft'": True,
    "processor = 'arm'\nfloat-abi = 'softfp'": False,
    "float-abi = 'soft'": False,
    "c-library = '2.31'": True,
    "c-library = '2'": True,
    "c-library = 2.31": False,
    "c-library = '2.'": False,
    "c-library = ''": False,
    "root = '.'": True,
    "root = ''": False,
    "libraries = ['libc.so.6']": True,
    "libraries = [1]": False,
    "interpreters = ['/bin/sh']": True,
    "interpreters = ['sh']": False,
    "shell = 'dash'": True,
    "shell = 'fish'": False,
    "users = ['root']": True,
    "protected = ['/boot']": True,
    "protected = ['boot']": False,
    "[[places]]\npath = '/mnt'\nsize-mib = 0": True,
    "[[places]]\npath = '/mnt'": False,
    "[[places]]\npath = '/mnt'\nsize-mib = -1": False,
    "[[places]]\npath = '/mnt'\nsize-mib = 1.5": False,
    "[[places]]\npath = 'mnt'\nsize-mib = 1": False,
    "[[places]]\npath = '/mnt'\nsize-mib = 1\nfree = 1": False,
    "[places]\npath = '/mnt'": False,
    "models = ['a', 'b', 'a']": False,
    "models = ['']": False,
    "os-versions = ['1', '1']": False,
    "libraries = ['l', 'l']": False,
    "interpreters = ['/a', '/a']": False,
    "users = ['']": False,
    "[settings]\nA = { values = ['x', 'x'] }": False,
    "[settings]\nA = { values = ['x', ''] }": True,
    "signatures = 'required'": True,
    "signatures = 'optional'": True,
    "signatures = 'none'": False,
    "signatures = false": False,
    "downgrade = 'allow'": True,
    "downgrade = 'refuse'": True,
    "downgrade = 'warn'": False,
    "state = '/mnt/user/kx-panel'": True,
    "state = '/a.b/_/-/...'": True,
    "state = '/tmpfs'": True,
    f"state = '/{'x' * 199}'": True,
    f"state = '/{'x' * 200}'": False,
    "state = ''": False,
    "state = '/'": False,
    "state = 'var/lib'": False,
    "state = '/var/'": False,
    "state = '//var'": False,
    "state = '/var//lib/x'": False,
    "state = '/var/./x'": False,
    "state = '/var/../x'": False,
    "state = '/var/x/..'": False,
    "state = '/a b'": False,
    "state = '/$a'": False,
    "state = '/tmp'": False,
    "state = '/tmp/x'": False,
    "state = '/var/tmp/x'": False,
    "state = '/mnt/usb/x'": False,
    "state = '/run'": False,
    "state = 1": False,
    "updater = '/opt/kx_Updater'": True,
    "updater = '/proc/self/exe'": False,
    "updater = '/opt/`a`'": False,
    "limits = {}": True,
    "[limits]\npackage-bytes = 1\nentries = 1000000\nreader-seconds = 86400": True,
    "[limits]\nentries = 0": False,
    "[limits]\nentries = 1000001": False,
    "[limits]\nentries = '5'": False,
    "[limits]\nentries = 5.5": False,
    "[limits]\nreader-memory-bytes = 16777216\nhistory-bytes = 16384": True,
    "[limits]\nreader-memory-bytes = 16777215": False,
    "[limits]\nhistory-bytes = 16383": False,
    "[limits]\nentry = 5": False,
    "limits = 5": False,
    "[settings]": True,
    "[settings]\nLevel = { range = [0, 15] }\nA = {}\nB = { values = ['x'] }": True,
    "[settings]\nLevel = { range = [0] }": False,
    "[settings]\nLevel = { range = [0, 1], values = [] }": False,
    "[settings]\nLevel = { values = [1] }": False,
    "[settings]\nLevel = { most = 1 }": False,
    "[settings]\nLevel = 8": False,
}

IDENTITY = """[package]
name = "m"
title = "t"
version = "1"
model = "m"
os-version = "1"
date = 2026-11-21
processor = "x86_64"
"""
FILES = "[[steps]]\nkind = 'copy-files'\n"
FOLDERS = "[[steps]]\nkind = 'copy-folder'\n"
SCRIPT = "[[steps]]\nkind = 'script'\n"
SETTINGS = "[[steps]]\nkind = 'settings'\n"
MANIFESTS = {  # behind the identity
    "": True,
    FILES + "files = [{ source = 'f', target = '/f' }]": True,
    FILES + "skip = true\nrecord = false\nfiles = [{ source = 'f', target = '/f', mode = '0755' }]":
        True,
    FILES: False,
    FILES + "files = []": False,
    FILES + "files = [{ source = '', target = '/f' }]": False,
    FILES + "files = [{ source = 'f', target = 'f' }]": False,
    FILES + "files = [{ source = 'f', target = '/f', mode = '79' }]": False,
    FILES + "files = [{ source = 'f', target = '/f', mode = 755 }]": False,
    FILES + "files = [{ source = 'f', targets = '/f' }]": False,
    FILES + "skip = 'yes'\nfiles = [{ source = 'f', target = '/f' }]": False,
    FOLDERS + "folders = [{ source = 'd', target = '/d', exclude = ['f'], executable = [] }]": True,
    FOLDERS + "folders = [{ source = 'd', target = '/d', exclude = 'x' }]": False,
    FOLDERS + "fast = true\nfolders = [{ source = 'd', target = '/d' }]": True,
    FOLDERS + "fast = true\nfolders = [{ source = 'd', target = '/d', archive = '/d.tar' }]": True,
    FOLDERS + "fast = false\nfolders = [{ source = 'd', target = '/d', archive = '/d.tar' }]": False,
    FOLDERS + "folders = [{ source = 'd', target = '/d', archive = '/d.tar' }]": False,
    FOLDERS + "fast = true\nfolders = [{ source = 'd', target = '/d', archive = 'd.tar' }]": False,
    FOLDERS + "fast = true\nfolders = [{ source = 'd', target = '/d', archive = '/tmp/' }]": False,
    FOLDERS + "fast = 1\nfolders = [{ source = 'd', target = '/d' }]": False,
    FILES + "fast = true\nfiles = [{ source = 'f', target = '/f' }]": False,
    FOLDERS + "files = [{ source = 'f', target = '/f' }]": False,
    SCRIPT + "install = '#!/bin/sh'": True,
    SCRIPT + "install-file = 'f'\nuninstall = ''": True,
    SCRIPT: False,
    SCRIPT + "install = ''\ninstall-file = 'f'": False,
    SCRIPT + "install = ''\nuninstall = ''\nuninstall-file = 'f'": False,
    SCRIPT + "install = ''\nrecord = true": False,
    SETTINGS + "settings = [{ kind = 'sound', used = false, values = { Volume = '5' } }]": True,
    SETTINGS + "settings = [{ kind = 'auto-start', script = '#!/bin/sh' }]": True,
    SETTINGS + "settings = [{ kind = 'sound', script = '#!/bin/sh' }]": False,
    SETTINGS + "settings = [{ kind = 'auto-start', script = '', script-file = 'f' }]": False,
    SETTINGS + "settings = [{ kind = 'sounds' }]": False,
    SETTINGS + "settings = [{ kind = 'sound', values = { Volume = 5 } }]": False,
    SETTINGS + "settings = [{ values = {} }]": False,
    SETTINGS: False,
    FOLDERS + "folders = [{ source = 'd', target = '/d', modes = { f = '600' }, "
              "names = { f = 'g' }, origin = 'x' }]": True,
    FOLDERS + "folders = [{ source = 'd', target = '/d', modes = { f = '9' } }]": False,
    "[[steps]]\nkind = 'verbatim'": False,
    "[[steps]]\nkind = 'copy'": False,
    "[[steps]]\ncomment = 'c'": False,
    "[[step]]": False,
}
IDENTITIES = {  # what in the identity stands instead
    ("name = \"m\"\n", ""): True,
    ("\"m\"\ntitle", "\"m 1\"\ntitle"): False,
    ("title = \"t\"\n", ""): False,
    ("\"x86_64\"", "\"amd64\""): True,
    ("\"x86_64\"", "\"vax\""): False,
    ("title = \"t\"\n", "title = \"t\"\ntimestamp = 2026-11-21T10:20:30Z\n"): True,
    ("title = \"t\"\n", "title = \"t\"\nextra = { source = 'd' }\n"): True,
    ("title = \"t\"\n", "title = \"t\"\nextra = { sources = 'd' }\n"): False,
    ("title", "titles"): False,
    ("version = \"1\"\nmodel", "version = 1\nmodel"): False,
}


def taken_by_schema(schema, text):
    """Whether the schema takes a TOML file. JSON has no dates."""
    document = json.loads(json.dumps(tomllib.loads(text), default=str))
    return jsonschema.Draft202012Validator(schema).is_valid(document)


def taken_by_reader(tool, name, text):
    """Whether kx-package reads the file: what it then does with it is another matter."""
    with tempfile.TemporaryDirectory() as folder:
        path = pathlib.Path(folder)
        (path / "d").mkdir()
        (path / "d" / "f").touch()
        (path / "f").write_text("#!/bin/sh\n", encoding="utf-8")
        (path / name).write_text(text, encoding="utf-8")
        if name == "panel.toml":
            identity = IDENTITY.replace("x86_64", "arm") if "'arm" in text else IDENTITY
            (path / "package.toml").write_text(identity + "panel = 'panel.toml'\n",
                                               encoding="utf-8")
        done = subprocess.run([tool, "build", folder, "-o", f"{folder}/m.kx-update", "--updater",
                               "/usr/bin/true"], capture_output=True, text=True, check=False)
        return not re.search(r"^kx-package: .*(panel|package)\.toml", done.stderr, re.M), done.stderr


def main():
    """Compares; exit status 1 where a schema and a reader are of two minds."""
    parser = argparse.ArgumentParser()
    parser.add_argument("--tool", required=True)
    parser.add_argument("--panel", required=True)
    parser.add_argument("--manifest", required=True)
    parser.add_argument("manifests", nargs="+")
    options = parser.parse_args()
    with open(options.panel, encoding="utf-8") as file:
        panel = json.load(file)
    with open(options.manifest, encoding="utf-8") as file:
        manifest = json.load(file)
    for schema in (panel, manifest):
        jsonschema.Draft202012Validator.check_schema(schema)
    rows = [("panel.toml", panel, text, wanted) for text, wanted in PANELS.items()]
    rows += [("package.toml", manifest, IDENTITY + text, wanted)
             for text, wanted in MANIFESTS.items()]
    rows += [("package.toml", manifest, IDENTITY.replace(*change), wanted)
             for change, wanted in IDENTITIES.items()]
    wrong = 0
    for name, schema, text, wanted in rows:
        read, said = taken_by_reader(options.tool, name, text)
        found = (taken_by_schema(schema, text), read)
        if found != (wanted, wanted):
            wrong += 1
            print(f"{name}: schema {found[0]}, reader {found[1]}, should be {wanted}:\n{text}\n{said}")
    for path in options.manifests:
        if not taken_by_schema(manifest, pathlib.Path(path).read_text(encoding="utf-8")):
            wrong += 1
            print(f"{path}: not taken by the schema")
    print(f"{len(rows)} files compared, {wrong} times of two minds")
    return 1 if wrong or len(rows) < 60 else 0


if __name__ == "__main__":
    sys.exit(main())
