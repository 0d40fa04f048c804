"""Writes __init__.pyi from the member tables: python3 -m korvane stubs."""

from __future__ import annotations

from ._classes import TABLES, default_text, parameter_name
from ._layer import layer_methods

# What a parameter takes, and what a result is.
_TAKEN = {"variant": "Any", "boolean": "bool", "long": "int", "single": "float", "double": "float", "text": "str",
          "enumeration": "int", "doubles": "ArrayLike", "texts": "Sequence[str]"}
_GIVEN = {**_TAKEN, "none": "None", "doubles": "NDArray[np.float64]", "texts": "List[str]"}

_HEAD = '''# Made from the member tables of the library: python3 -m korvane stubs.
from enum import IntEnum
from typing import Any, List, NamedTuple, Optional, Sequence, Union

import numpy as np
from numpy.typing import ArrayLike, NDArray

from ._classes import LateBound as _LateBound
from ._instrument import (AbortToken as AbortToken, Adjustment as Adjustment, Instrument as Instrument,
                          Measurement as Measurement, Probe as Probe, Row as Row, Setpoint as Setpoint,
                          Setpoints as Setpoints, Spectrum as Spectrum, create_base_folder as create_base_folder)
from ._layer import Acquired as Acquired, Check as Check
from ._library import (Aborted as Aborted, ConfigurationError as ConfigurationError, Error as Error,
                       InstrumentError as InstrumentError, InternalError as InternalError, NotFound as NotFound,
                       TimeOut as TimeOut, UsageError as UsageError)
from ._values import MISSING as MISSING, Missing as _Missing

__version__: str
'''


def _type(given: dict, names: dict) -> str:
    sort = given["sort"]
    return f"Optional[{given['name']}]" if sort == "object" else given["name"] if sort == "record" else names[sort]


def _member(class_name: str, member: dict) -> tuple:
    """The function, and the tuple that it returns where it changes arguments."""
    asked = ["self"]
    for parameter in member["parameters"]:
        if parameter["direction"] != "result":
            default = default_text(parameter)
            taken = _type(parameter["type"], _TAKEN)
            taken = f"Union[{taken}, _Missing]" if default == "MISSING" and taken != "Any" else taken
            asked.append(f"{parameter_name(parameter)}: {taken}" + (f" = {default}" if default else ""))
    result = _type(member["result"], _GIVEN)
    changed = [parameter for parameter in member["parameters"] if parameter["changes"]]
    results = ""
    if changed:
        fields = ([] if result == "None" else [f"    result: {result}\n"]) + \
            [f"    {parameter['name']}: {_type(parameter['type'], _GIVEN)}\n" for parameter in changed]
        name = f"_{class_name}_{member['name']}"
        results, result = f"class {name}(NamedTuple):\n{''.join(fields)}\n", name
    return f"({', '.join(asked)}) -> {result}: ...\n", results


def stub_text() -> str:
    text = _HEAD
    for name, fields in TABLES["records"].items():
        types = {"double": "float", "long": "int"}
        text += f"\nclass {name}(NamedTuple):\n" + "".join(
            f"    {field['name']}: {types[field['type']['sort']]} = ...\n" for field in fields)
    for name, members in TABLES["enumerations"].items():
        text += f"\nclass {name}(IntEnum):\n" + "".join(f"    {key} = {value}\n" for key, value in members.items())
    for description in TABLES["classes"]:
        body = ""
        for member in description["members"]:
            function, results = _member(description["name"], member)
            text += "\n" + results if results else ""
            name = member["name"]
            before = {"method": "", "get": "    @property\n", "put": f"    @{name}.setter\n"}[member["kind"]]
            body += f"{before}    def {name}{function}"
        text += f"\nclass {description['name']}(_LateBound):\n    __slots__ = ()\n{body}"
    text += ("\nclass Layer:\n    def __init__(self, base: Any = None, seed: Optional[int] = None,\n"
             "                 scene: Any = None) -> None: ...\n")
    for _, member, name, parameters in layer_methods():
        result = "Acquired" if name == "next_spectrum" else _GIVEN.get(member["result"]["sort"], "Any")
        given = "".join(f", {parameter}: {_GIVEN.get(each['type']['sort'], 'Any')}" for parameter, each in parameters)
        text += f"    def {name}(self{given}) -> {result}: ...\n"
    return text + "\ndef conform(layer: Layer) -> List[Check]: ...\n"
