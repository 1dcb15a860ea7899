# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
"""Package descriptions: ways to spoil them, and what each promises to do."""

import copy
import json

MARK = b"\xef\xbb\xbf"
COLLECTED = ["Backlight", "Cursor", "Language", "Lan", "Sound", "SStart", "TouchBeep"]


def nodes(value, path=()):
    """All values of a document, with their paths."""
    yield path, value
    items = value.items() if isinstance(value, dict) else \
        enumerate(value) if isinstance(value, list) else []
    for key, below in items:
        yield from nodes(below, path + (key,))


def at(document, path):
    """The value at a path."""
    for key in path:
        document = document[key]
    return document


def texts(document, key):
    """Paths of all texts of a key."""
    return [path for path, value in nodes(document)
            if path and path[-1] == key and isinstance(value, str)]


def put(document, path, value):
    """Replaces the value at a path."""
    at(document, path[:-1])[path[-1]] = value


def drop_key(document, rng):
    path = rng.choice([path for path, _ in nodes(document) if path])
    del at(document, path[:-1])[path[-1]]


def change_type(document, rng):
    path = rng.choice([path for path, _ in nodes(document) if path])
    put(document, path, rng.choice([None, 0, 1.5, "", "text", True, False, [], {}, [{}],
                                    {"$type": "Zt.Plugins.DB_StepSets, Plexa", "$values": []}]))


def change_class(document, rng):
    paths = texts(document, "$type")
    put(document, rng.choice(paths), at(document, rng.choice(paths)))


def spoil_class(document, rng):
    path = rng.choice(texts(document, rng.choice(["$type", "SS_StepSetId", "ConfigId"])))
    old = at(document, path)
    put(document, path, rng.choice([old.replace(", ", ",  ", 1), old.replace(",  ", ", "),
                                    old.lower(), old + " ", old[:-1], "", old + "\0x"]))


def swap_objects(document, rng):
    found = [path for path, value in nodes(document) if path and isinstance(value, dict)]
    put(document, rng.choice(found), copy.deepcopy(at(document, rng.choice(found))))


def swap_kinds(document, rng):
    paths = texts(document, rng.choice(["SS_StepSetId", "ConfigId"]))
    put(document, rng.choice(paths), at(document, rng.choice(paths)))


def change_flag(document, rng):
    path = rng.choice([path for path, value in nodes(document) if isinstance(value, bool)])
    put(document, path, not at(document, path))


def change_target(document, rng):
    put(document, rng.choice(texts(document, "DestinationPath")), rng.choice(
        ["", "/", "bin/hello", "/opt/", "/opt", "/mnt/user/a b/c", "/mnt/user/$HOME/x", "/opt/a\"b",
         "/opt/`id`", "/opt/a$", "/opt/a\\b", "/opt/a\\", "/opt/C:x", "/opt/x/y/z/", "/opt/a\nb",
         "/opt/" + "n" * 300, "/opt//./x/../y", "/tmp/x", "/opt/$", "/opt/a'b", "/opt/*", "/opt/~",
         "/opt/" + "/".join(["d" * 100] * 25), "/etc/hostname/x", "/opt/a;b", "/opt/a&b", "~/x"]))


def change_mode(document, rng):
    put(document, rng.choice(texts(document, "Permissions")), rng.choice(
        ["", "755", "0644", "7777", "10000", "00000755", "888", "u+x", "a=rx", "u=rw,go=r", "+x",
         "-w", "u=g", "x", "rwx", "7 5", "755;", "$X", "u+", "ug+rwX", "755 ", "--help", "u+q",
         "+t", "o-r", "u+x,", ",u+x", "=755", "u+x-w"]))


def change_source(document, rng):
    put(document, rng.choice(texts(document, "SourcePath")), rng.choice(
        ["hello", "C:\\work\\hello", "bin:hello", "", "bin/", "Hello", "hello ", "he$llo", "x",
         "greeting.txt", ".", ".."]))


def change_script(document, rng):
    put(document, rng.choice(texts(document, "ScriptData")), rng.choice(
        ["", "#!/bin/sh\n", "echo hello\n", "#!/bin/sh\r\necho x\r\n", "#!/bin/sh\r\r\necho x\n",
         "\ufeff#!/bin/sh\necho x\n", "#!sh\ntrue\n", "#!/nowhere/sh\ntrue\n", "#!/bin/bash\ntrue\n",
         "#! /bin/sh -e\ntrue\n", "#!\ntrue\n", "\n#!/bin/sh\ntrue\n", "true\0false\n", " \n"]))


def change_value(document, rng):
    put(document, rng.choice(texts(document, "Value")), rng.choice(
        ["", "1 2", "a;b", "a&b", "a|b", "a>b", "$HOME", "a$", "`id`", "a'b", "a\"b", "a\\b", "a\\",
         "a\nb", "a#b", "#b", "a*b", "a?b", "[ab]", "~", "{a,b}", "(a)", "a=b", "a:b", "ä", "a\tb",
         "!", "a\\nb", "-x", "$1", "$(id)", "x" * 2100, "%s", "a,b"]))


def change_name(document, rng):
    put(document, rng.choice(texts(document, "ItemName")), rng.choice(
        ["", "User", "user", "Password", "CustomScript", "A B", "A=B", "#A", "A$B", "-A", "A;B", "*"]))


def drop_element(document, rng):
    found = [value for _, value in nodes(document) if isinstance(value, list) and value]
    value = rng.choice(found)
    del value[rng.randrange(len(value))]


def repeat_element(document, rng):
    found = [value for _, value in nodes(document) if isinstance(value, list) and value]
    value = rng.choice(found)
    value.append(copy.deepcopy(rng.choice(value)))


def add_key(document, rng):
    rng.choice([value for _, value in nodes(document) if isinstance(value, dict)])["More"] = \
        rng.choice([1, None, "x", {}, [[]]])


TREE_CHANGES = [drop_key, change_type, change_class, spoil_class, swap_objects, swap_kinds,
                change_flag, change_target, change_target, change_mode, change_mode, change_source,
                change_script, change_script, change_value, change_value, change_value,
                change_name, drop_element, repeat_element, add_key]


def no_mark(data, _rng):
    return data[3:]


def other_mark(data, rng):
    return rng.choice([b"   ", b"abc", b"\n\n\n", b"{}}"]) + data[3:]


def utf16(data, _rng):
    return data[3:].decode().encode("utf-16")


def flip(data, rng):
    place = rng.randrange(len(data))
    return data[:place] + bytes([rng.choice(b"\0{}[]\",:x \xff\\")]) + data[place + 1:]


def shorten(data, rng):
    return data[:rng.randrange(len(data))]


def trail(data, rng):
    return data + rng.choice([b"}", b" ", b"\0\0", b"{}", b"// x"])


def comment(data, rng):
    return data.replace(b"{", rng.choice([b"{/* x */", b"{\"a\": 1e999,", b"{\"a\": [1,],",
                                          b"{\"Title\": \"x\",",
                                          b"{\"deep\":" + b"[" * 120 + b"]" * 120 + b","]), 1)


def crlf(data, _rng):
    return data.replace(b"\n", b"\r\n")


def array(data, _rng):
    return MARK + b"[" + data[3:] + b"]"


TEXT_CHANGES = [no_mark, other_mark, utf16, flip, flip, shorten, trail, comment, crlf, array]


def spoiled(document, rng):
    """Returns the bytes of a spoiled description and what was done."""
    document = copy.deepcopy(document)
    if rng.random() < 0.2:
        change = rng.choice(TEXT_CHANGES)
        data = MARK + json.dumps(document, indent=1, ensure_ascii=False).encode()
        return change(data, rng), change.__name__
    names = []
    for _ in range(rng.choice([1, 1, 1, 2])):
        change = rng.choice(TREE_CHANGES)
        names.append(change.__name__)
        try:
            change(document, rng)
        except (IndexError, KeyError, TypeError):
            names[-1] += " (impossible)"
    return MARK + json.dumps(document, indent=1, ensure_ascii=False).encode(), " ".join(names)


def promises(data):
    """What a description says that an installation leaves: files and their modes, and settings.

    Says nothing for steps that may fail, and nothing for what is no description.
    """
    try:
        # The updater reads up to a zero byte, and ignores what follows the document.
        text = data[3:].split(b"\0")[0].decode("utf-8", "surrogateescape")
        root, _ = json.JSONDecoder().raw_decode(text.lstrip(" \t\r\n"))
        told = {"files": {}, "folders": [], "settings": {}}
        for i, step in enumerate(root["DB_StepSets"]["$values"]):
            promise_of(i, step, told)
        return told
    except (ValueError, KeyError, TypeError, AttributeError, RecursionError):
        return None


def promise_of(i, step, told):
    """Adds what one step promises."""
    kind = step["SS_StepSetId"].split(".")[-1].split(",")[0]
    if step["CanSkip"]:
        return
    if kind == "SS_CopyFileStepSet":
        for j, item in enumerate(step["PathSetDatas"]["$values"]):
            name = item["SourcePath"].replace("\\", "/").replace(":", "/").split("/")[-1]
            target = item["DestinationPath"]
            is_folder = target.endswith("/")
            told["files"][target + name if is_folder else target] = {
                "source": f"{i}/{j}/{name}",
                "mode": None if is_folder else item["Permissions"] or "777"}
    elif kind == "SS_CopyFolderStepSet":
        for j, item in enumerate(step["PathSetDatas"]["$values"]):
            told["folders"].append([f"{i}/{j}", item["DestinationPath"]])
    elif kind == "SS_HardSettingStepSet":
        for config in step["HardSettingDatas"]["DB_HardwareConfigs"]["$values"]:
            for item in config["HardwareItems"]["$values"] if config["IsUsed"] else []:
                kind = config["ConfigId"]
                is_script = "HW_Auto" in kind and item["ItemName"] == "CustomScript"
                if "HW_User" not in kind and not is_script:
                    told["settings"][item["ItemName"]] = item["Value"]
