#!/usr/bin/python3
# SPDX-FileCopyrightText: The kx_Updater authors
# SPDX-License-Identifier: MIT
"""Compares documents with a schema: json_document.py SCHEMA DOCUMENT..."""

import json
import sys

import jsonschema


def main():
    """Tells every difference; the exit status is 1 when there is one."""
    schema, *documents = (json.load(open(path, encoding="utf-8")) for path in sys.argv[1:])
    jsonschema.Draft202012Validator.check_schema(schema)
    validator = jsonschema.Draft202012Validator(schema)
    differences = [error for document in documents for error in validator.iter_errors(document)]
    for error in differences:
        print(error, file=sys.stderr)
    return 1 if differences or not documents else 0


if __name__ == "__main__":
    sys.exit(main())
