#!/usr/bin/python3
"""Fails when a JSON document of amporactl is not as its schema says: validate_json.py SCHEMA DOCUMENT"""
import json
import sys

import jsonschema


def main():
    with open(sys.argv[1], encoding="utf-8") as file:
        schema = json.load(file)
    with open(sys.argv[2], encoding="utf-8") as file:
        document = json.load(file)
    jsonschema.Draft202012Validator.check_schema(schema)
    # That of the verb alone tells more than "none of these".
    verb = document["schema"].removeprefix("amporactl.")
    for reference in (f"#/$defs/{verb}", "#"):
        part = {"$ref": reference, "$defs": schema["$defs"]} if reference != "#" else schema
        for error in jsonschema.Draft202012Validator(part).iter_errors(document):
            print(f"{reference}: {error.json_path}: {error.message}")
            return 1
    return 0


sys.exit(main())
