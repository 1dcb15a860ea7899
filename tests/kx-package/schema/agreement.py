#!/usr/bin/python3
# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
"""Compares the schema's verdict on package descriptions with the reader's.

An independent validator applies the schema; reader_verdict asks the updater's reader. Descriptions
are the good ones that are named, and many bad ones made from them one change after the other, and
in random pairs. The two must agree on every one of them, but for what the schema is strict about
and the reader is not:

- the class of an object in its place,
- the kinds of steps and settings: those that there are, and in steps of their class,
- type strings and kinds to their end: the reader stops at a zero byte.

Classes and kinds are written out once more below. At the end every constraint of the schema must
have been the only one to refuse some description, so that none could be missing unnoticed.
"""

import argparse
import copy
import itertools
import json
import pathlib
import random
import subprocess
import sys
import tempfile

import jsonschema

MARK = b"\xef\xbb\xbf"
PLUGINS = ["DB_KxUserProject", "DB_StepSets", "DB_CopyStepSet", "DB_ScriptStepSet",
           "DB_HardSettingStepSet", "DB_CopyFunctionDatas", "DB_CopyFunctionData",
           "DB_ScriptFunctionData", "DB_HardSettingFunctionData"]
TYPES = {name: f"Zt.Plugins.{name}, Plexa" for name in PLUGINS}
TYPES.update({name: f"Zt.{name}, Ruvelo" for name in ["DB_HardwareConfigs", "DB_HardwareConfig"]})
TYPES.update({name: f"Zt.{name}, Drovic" for name in ["DB_HardwareItems", "DB_HardwareItem"]})
STEPS = ["DB_CopyStepSet", "DB_ScriptStepSet", "DB_HardSettingStepSet"]
# The classes that belong into a field of objects.
BELOW = {
    ("DB_KxUserProject", "DB_StepSets"): ["DB_StepSets"],
    ("DB_StepSets", "$values"): STEPS,
    ("DB_CopyStepSet", "PathSetDatas"): ["DB_CopyFunctionDatas"],
    ("DB_CopyFunctionDatas", "$values"): ["DB_CopyFunctionData"],
    ("DB_ScriptStepSet", "InstallScriptFunctionData"): ["DB_ScriptFunctionData"],
    ("DB_ScriptStepSet", "UninstallScriptFunctionData"): ["DB_ScriptFunctionData"],
    ("DB_HardSettingStepSet", "HardSettingDatas"): ["DB_HardSettingFunctionData"],
    ("DB_HardSettingFunctionData", "DB_HardwareConfigs"): ["DB_HardwareConfigs"],
    ("DB_HardwareConfigs", "$values"): ["DB_HardwareConfig"],
    ("DB_HardwareConfig", "HardwareItems"): ["DB_HardwareItems"],
    ("DB_HardwareItems", "$values"): ["DB_HardwareItem"],
}
# The kinds that a field may name.
KINDS = {
    ("DB_CopyStepSet", "SS_StepSetId"): ["SS_CopyFileStepSet", "SS_CopyFolderStepSet"],
    ("DB_ScriptStepSet", "SS_StepSetId"): ["SS_ScriptStepSet"],
    ("DB_HardSettingStepSet", "SS_StepSetId"): ["SS_HardSettingStepSet"],
    ("DB_HardwareConfig", "ConfigId"): [
        f"HW_{kind}ConfigSet" for kind in ["AutoStartupMode", "Backlight", "Cursor", "Language",
                                           "Lan", "Sound", "SStart", "TouchBeep", "User"]],
}
KIND_IDS = {name: f"Zt.Plugins.{name},  Plexa" for name in itertools.chain(*KINDS.values())}
# A step is an object with a class already when that class looks at it: its list sees to that.
NEVER_ALONE = {(name,) + about for name in STEPS
               for about in [("const",), ("object",), ("required", "$type")]}


def is_as_expected(value, classes):
    """Tells whether a description that the reader takes has the right classes and kinds."""
    found = [name for name in classes if value["$type"] == TYPES[name]]
    if not found:
        return False
    name = found[0]
    for (owner, key), kinds in KINDS.items():
        if owner == name and value[key] not in [KIND_IDS[kind] for kind in kinds]:
            return False
    for (owner, key), below in BELOW.items():
        if owner == name:
            parts = value[key] if key == "$values" else [value[key]]
            if not all(is_as_expected(part, below) for part in parts):
                return False
    return True


def nodes(value, path=()):
    """All values of a document, with their paths."""
    yield path, value
    items = value.items() if isinstance(value, dict) else \
        enumerate(value) if isinstance(value, list) else []
    for key, below in items:
        yield from nodes(below, path + (key,))


def changed(document, path, value):
    """A copy of the document with another value at the path."""
    if not path:
        return copy.deepcopy(value)
    document = copy.deepcopy(document)
    at = document
    for key in path[:-1]:
        at = at[key]
    at[path[-1]] = copy.deepcopy(value)
    return document


def removed(document, path):
    """A copy of the document without the value at the path."""
    document = copy.deepcopy(document)
    at = document
    for key in path[:-1]:
        at = at[key]
    del at[path[-1]]
    return document


def objects_by_class(document):
    """One good object of every class."""
    found = {}
    for _, value in nodes(document):
        if isinstance(value, dict):
            found.setdefault(value["$type"], value)
    assert set(found) == set(TYPES.values()), "the document lacks a class"
    return list(found.values())


def spoiled_texts(text):
    """Other spellings of a type string or kind."""
    return [text + " ", " " + text, text.lower(), text[:-1], text.replace(", ", ","),
            text.replace(", ", ",  ", 1), text.replace(",  ", ", "), text + "\0", text + "\0x",
            "\0" + text, "", "Zt.Plugins.DB_Nothing, Plexa", "Zt.Plugins.SS_Nothing,  Plexa"]


def changes(document):
    """Every single change: what it is, and the changed document."""
    plain = [None, True, False, 0, 1, -1.5, "", "false", "text", [], {}, [{}], ["text"],
             {"$type": TYPES["DB_StepSets"]}, {"$values": []}]
    classes = objects_by_class(document)
    names = list(TYPES.values()) + list(KIND_IDS.values())
    for path, value in nodes(document):
        others = list(plain)
        if isinstance(value, dict):
            others += classes
            yield f"{path} with an unknown field", changed(document, path + ("Unknown",), None)
            yield f"{path} in another order", changed(
                document, path, dict(reversed(list(value.items()))))
        elif isinstance(value, list):
            others += [value + value, [value], list(reversed(value)), value + [None],
                       value + [value], value + ["text"]]
        elif path[-1] in ("$type", "SS_StepSetId", "ConfigId"):
            others += names + spoiled_texts(value)
        if path:
            yield f"{path} is missing", removed(document, path)
        for other in others:
            yield f"{path} is {json.dumps(other)[:60]}", changed(document, path, other)


def pairs(document, count, rng):
    """Random pairs of changes."""
    singles = list(itertools.islice(changes(document), None))
    for _ in range(count):
        what, once = rng.choice(singles)
        if not isinstance(once, dict) or not once:
            continue
        path, value = rng.choice(list(nodes(once)))
        if not path:
            continue
        other = rng.choice([None, 0, "text", [], {}, rng.choice(objects_by_class(document)),
                            rng.choice(list(TYPES.values())), value])
        yield f"{what}; {path} is {json.dumps(other)[:60]}", changed(once, path, other)


def reduced(document):
    """The document with one step of every kind, one setting and one item: nothing twice."""
    document = copy.deepcopy(document)
    kinds = set()
    steps = []
    for step in document["DB_StepSets"]["$values"]:
        if step["SS_StepSetId"] not in kinds:
            kinds.add(step["SS_StepSetId"])
            steps.append(step)
    document["DB_StepSets"]["$values"] = steps
    for _, value in list(nodes(steps)):
        if isinstance(value, dict) and "$values" in value:
            value["$values"] = value["$values"][:1]
    return document


def read_good(path):
    """The JSON of a description file: behind its mark."""
    data = pathlib.Path(path).read_bytes()
    assert data.startswith(MARK), f"{path} has no byte order mark"
    return json.loads(data[len(MARK):])


def read_corpus(folder):
    """The descriptions of a folder that are JSON: behind the first three bytes, to a zero byte."""
    for path in sorted(pathlib.Path(folder).iterdir()):
        text = path.read_bytes()[len(MARK):].split(b"\0")[0].decode(errors="replace").lstrip()
        try:
            document, _ = json.JSONDecoder().raw_decode(text)
            json.dumps(document, allow_nan=False)
        except (ValueError, RecursionError):
            continue
        yield path.name, document


def ask_reader(program, cases):
    """The reader's verdicts: for every case whether it takes it, and its reason."""
    with tempfile.TemporaryDirectory() as folder:
        paths = []
        for number, (_, document) in enumerate(cases):
            paths.append(pathlib.Path(folder, str(number)))
            paths[-1].write_bytes(MARK + json.dumps(document).encode())
        told = subprocess.run([program], input="".join(f"{path}\n" for path in paths), check=True,
                              stdout=subprocess.PIPE, text=True, errors="replace").stdout
    lines = told.splitlines()
    assert len(lines) == len(cases), "reader_verdict did not answer every question"
    return [(line == "yes", line[3:]) for line in lines]


def leaves(errors):
    """The errors that stand behind an error."""
    for error in errors:
        if error.context:
            yield from leaves(error.context)
        else:
            yield error


def constraints_of(schema):
    """Every constraint of the schema: (class, keyword, detail), by its place."""
    found = {}
    for name, about in schema["$defs"].items():
        found[id(about), "type"] = (name, "object")
        for key in about["required"]:
            found[id(about), "required", key] = (name, "required", key)
        for key, part in about["properties"].items():
            detail = () if key == "$type" else (key,)
            for keyword in {"type", "enum", "const"} & set(part):
                found[id(part), keyword] = (name, keyword) + detail
            items = part.get("items", {})
            if "type" in items:
                found[id(items), "type"] = (name, "element", "object")
                found[id(items), "required", "$type"] = (name, "element", "required")
                found[id(items["properties"]["$type"]), "enum"] = (name, "element", "enum")
    return found


def key_of(error):
    """The place of the constraint that made an error."""
    key = (id(error.schema), error.validator)
    if error.validator == "required":
        missing = [name for name in error.validator_value if error.message.startswith(repr(name))]
        key += (missing[0],)
    return key


def judge(cases, schema, verdicts):
    """Compares; returns the disagreements and the constraints that were proven."""
    validator = jsonschema.Draft202012Validator(schema)
    wrong = []
    alone = set()
    counts = {"both take": 0, "both refuse": 0, "only the schema refuses": 0}
    for (what, document), (is_read, reason) in zip(cases, verdicts):
        errors = list(leaves(validator.iter_errors(document)))
        keys = {key_of(error) for error in errors}
        if len(keys) == 1:
            alone |= keys
        expected = is_read and is_as_expected(document, ["DB_KxUserProject"])
        if expected != (not errors):
            told = errors[0].message[:100] if errors else "nothing"
            wrong.append(f"{what}: the reader says {reason or 'yes'}, the schema {told}")
        counts["both take" if not errors else
               "only the schema refuses" if is_read else "both refuse"] += 1
    return wrong, alone, counts


def arguments():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--schema", required=True, help="the schema")
    parser.add_argument("--reader", required=True, help="reader_verdict")
    parser.add_argument("--corpus", action="append", default=[], help="a folder of descriptions")
    parser.add_argument("--pairs", type=int, default=1500)
    parser.add_argument("--seed", type=int, default=1)
    parser.add_argument("good", nargs="+", help="good descriptions; the first has every class")
    return parser.parse_args()


def main():
    options = arguments()
    schema = json.loads(pathlib.Path(options.schema).read_text())
    jsonschema.Draft202012Validator.check_schema(schema)
    goods = [(path, read_good(path)) for path in options.good]
    base = reduced(goods[0][1])
    cases = list(changes(base)) + list(pairs(base, options.pairs, random.Random(options.seed)))
    for folder in options.corpus:
        cases += read_corpus(folder)
    assert len(cases) > 2000, "there are too few cases"
    wrong, alone, counts = judge(cases, schema, ask_reader(options.reader, cases))
    wrong_good, _, good_counts = judge(goods, schema, ask_reader(options.reader, goods))
    wrong += wrong_good
    if good_counts["both take"] != len(goods):
        wrong.append("a good description is refused")
    for what in wrong[:20]:
        print("disagreement:", what)
    constraints = constraints_of(schema)
    unproven = {constraints[key] for key in set(constraints) - alone} - NEVER_ALONE
    for constraint in sorted(unproven):
        print("never the only one to refuse:", constraint)
    unknown = alone - set(constraints)
    print(f"{len(goods)} good descriptions, {len(cases)} others: {counts}; "
          f"{len(wrong)} disagreements; {len(constraints)} constraints, {len(unproven)} unproven, "
          f"{len(unknown)} not known")
    return 1 if wrong or unproven or unknown else 0


if __name__ == "__main__":
    sys.exit(main())
