"""Validates the output of qrx --json with docs/qrx-output.schema.json."""

import copy
import json
import pathlib

import jsonschema

FILE = pathlib.Path(__file__).resolve().parents[2] / "docs" / "qrx-output.schema.json"


def refuse_other_fields(schema):
    """Makes objects with undocumented fields invalid."""
    if isinstance(schema, list):
        for part in schema:
            refuse_other_fields(part)
    elif isinstance(schema, dict):
        if schema.get("type") == "object" and "properties" in schema:
            schema["additionalProperties"] = False
        for part in schema.values():
            refuse_other_fields(part)


def load_validator():
    schema = json.loads(FILE.read_text())
    jsonschema.Draft202012Validator.check_schema(schema)
    strict = copy.deepcopy(schema)
    for definition in strict["$defs"].values():
        refuse_other_fields(definition)
    return jsonschema.Draft202012Validator(strict)


VALIDATOR = load_validator()


def json_objects(output):
    """Returns the objects in the standard output of qrx --json.

    Raises an exception unless each is one line of ASCII, valid, and has documented fields only.
    """
    objects = []
    for line in output.decode("ascii").splitlines():
        objects.append(json.loads(line))
        VALIDATOR.validate(objects[-1])
    return objects
