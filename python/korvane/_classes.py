"""The classes of the library, made from its own member tables."""

from __future__ import annotations

import collections
import ctypes
import enum
import functools
import json
import keyword
import os
import struct
from typing import Any, Dict, Optional

from . import _values
from ._library import Options, events, handle_from, library, state, waiting
from ._values import MISSING, SIZE, Handle, pack, unpack, value_from

TABLES: Dict[str, Any] = json.loads(value_from(library.korvane_tables))

_FORMATS = {"double": "d", "long": "i"}


def _make_record(name: str, fields: list) -> type:
    record = collections.namedtuple(name, [field["name"] for field in fields], defaults=[0] * len(fields))  # type: ignore
    record._struct = struct.Struct("@" + "".join(_FORMATS[field["type"]["sort"]] for field in fields))  # type: ignore
    record.__module__ = "korvane"
    return record


def open_platform(base=None, seed=None, scene=None, replay=None, instrument=None, layer=0) -> Handle:
    def text(path) -> Optional[bytes]:
        return None if path is None else os.fsencode(path)

    options = Options(ctypes.sizeof(Options), text(base), text(scene), text(replay), text(instrument), layer, seed or 0,
                      events, None)
    return Handle(handle_from(library.korvane_open, options))


_own_platform: Optional[Handle] = None


def own_platform() -> Handle:
    """Of classes made without an Instrument: what KORVANE_INSTRUMENT and KORVANE_BASE name."""
    global _own_platform
    if _own_platform is None:
        _own_platform = open_platform()
    return _own_platform


class LateBound:
    """An object of the library."""

    __slots__ = ("_handle",)
    _handle: Handle

    def __init__(self, _platform: Optional[Handle] = None):
        platform = _platform or own_platform()
        self._handle = Handle(handle_from(library.korvane_create, platform.number, type(self).__name__.encode()))

    @classmethod
    def _of(cls, handle: Handle):
        made = cls.__new__(cls)
        made._handle = handle
        return made


class Foreign(LateBound):
    """An object that somebody else has made."""


def _invoke(self: Any, member: Any, arguments: tuple) -> Any:
    places = member.places
    buffer = member.memory()
    kept: list = []
    for offset, sort, value in zip(places, member.sorts, arguments):
        pack(value, kept, buffer, offset, sort)
    before = buffer.raw if member.changed else b""
    try:
        waiting(library.korvane_call, self._handle.number, member.number, member.access, buffer, member.count, None, 0,
                state.calls.token, ctypes.byref(buffer, member.result_at))
    except BaseException:
        for offset in range(0, member.size, SIZE):
            library.korvane_clear(ctypes.byref(buffer, offset))
        raise
    result = unpack(buffer, member.result_at)
    if not member.changed:
        return result
    changed = [arguments[place] if before[offset:offset + SIZE] == buffer[offset:offset + SIZE]
               else unpack(buffer, offset) for place, offset in member.changed]
    return member.results(*([result] if member.returns else []), *changed)


class _Member:
    """One line of a member table, ready for calls."""

    def __init__(self, table: dict):
        self.number = table["number"]
        self.access = {"method": 0, "get": 1, "put": 2}[table["kind"]]
        parameters = table["parameters"]
        self.count = len(parameters)
        self.places = range(0, SIZE * self.count, SIZE)
        self.sorts = [parameter["type"]["sort"] for parameter in parameters]
        self.result_at = SIZE * self.count
        self.size = self.result_at + SIZE
        self.memory = ctypes.c_char * self.size
        self.changed = [(place, SIZE * place) for place, parameter in enumerate(parameters) if parameter["changes"]]
        self.returns = table["result"]["sort"] != "none"
        self.table = table

    @functools.cached_property
    def results(self) -> Any:
        """The tuple of the result and of the arguments that the member changes."""
        names = (["result"] if self.returns else []) + [self.table["parameters"][place]["name"]
                                                        for place, _ in self.changed]
        return collections.namedtuple(self.table["name"] + "Results", names)  # type: ignore


def parameter_name(parameter: dict) -> str:
    name = parameter["name"]
    return name + "_" if keyword.iskeyword(name) else name


def default_text(parameter: dict) -> str:
    """The default as Python writes it; empty for a required parameter."""
    if not parameter["optional"]:
        return ""
    return "MISSING" if parameter["default"] is None else repr(parameter["default"])


def _source_of(table: dict, name: str) -> str:
    """The function of a member: parameters that are mere results are not asked for."""
    asked, given = [], []
    for parameter in table["parameters"]:
        if parameter["direction"] == "result":
            given.append("None")
            continue
        default = default_text(parameter)
        asked.append(parameter_name(parameter) + ("=" + default if default else ""))
        given.append(parameter_name(parameter))
    return (f"def {name}({', '.join(['self'] + asked)}):\n    {table['help']!r}\n"
            f"    return _invoke(self, {name}_member, ({', '.join(given)}{',' if given else ''}))\n")


def _make_class(description: dict) -> type:
    namespace: Dict[str, Any] = {"__doc__": description["help"], "__slots__": (), "__module__": "korvane"}
    scope: Dict[str, Any] = {"_invoke": _invoke, "MISSING": MISSING}
    source = ""
    for table in description["members"]:
        name = table["name"] if table["kind"] == "method" else f"{table['name']}_{table['kind']}"
        scope[name + "_member"] = _Member(table)
        source += _source_of(table, name)
    exec(compile(source, f"<korvane.{description['name']}>", "exec"), scope)
    for table in description["members"]:
        name = table["name"]
        if table["kind"] == "method":
            namespace[name] = scope[name]
            scope[name].__qualname__ = f"{description['name']}.{name}"
        else:
            namespace[name] = property(scope[name + "_get"], scope.get(name + "_put"), doc=table["help"])
    if not description["creatable"] and description["name"] != "MassTimeCalibration":
        namespace["__init__"] = _not_creatable
    return type(description["name"], (LateBound,), namespace)


def _not_creatable(self, *_):
    raise TypeError(f"{type(self).__name__} objects are what members return")


def make_layer_class(name: str) -> type:
    description = next(each for each in TABLES["layer"] if each["name"] == name)
    _values.CLASSES[name] = _make_class(dict(description, creatable=True))
    return _values.CLASSES[name]


class _Classes(dict):
    """Those of a layer's objects are made when they are asked for; what nobody knows is foreign."""

    def __missing__(self, name: str) -> type:
        known = any(each["name"] == name for each in TABLES["layer"])
        return make_layer_class(name) if known else Foreign


records = {name: _make_record(name, fields) for name, fields in TABLES["records"].items()}
_values.RECORDS[:] = list(records.values())
for _number, _record in enumerate(_values.RECORDS):
    _record._number = _number  # type: ignore
enumerations = {name: enum.IntEnum(name, members, module="korvane") for name, members in TABLES["enumerations"].items()}
classes = {each["name"]: _make_class(each) for each in TABLES["classes"]}
_values.CLASSES = _Classes(classes)
