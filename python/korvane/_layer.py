"""An instrument layer in Python."""

from __future__ import annotations

import ctypes
import re
import threading
from typing import Any, Dict, Iterator, List, NamedTuple, Optional

from . import _values
from ._classes import TABLES, Foreign, open_platform
from ._library import (DESTROY, FUNCTION, KINDS, VERSION, ClassTable, Entry, Error, ErrorStruct, handle_from, library,
                       state)
from ._values import SIZE, Handle, borrowed, pack, value_from

_PREFIXES = {"SetpointTable": "setpoint_", "FirmwareChannels": "firmware_", "PeakFinder": "finder_"}
_NAMES = {"GetNextSpectrum": "next_spectrum", "GetMetaDescription": "meta_description", "Store": "store_calibration",
          "LogbookEntry.Write": "write_logbook"}
_CLASSES = {each["name"]: each for each in TABLES["layer"]}


class Acquired(NamedTuple):
    """What `next_spectrum` returns: masses (amu) and counts of every sample, a value an entry of the metadata
    description, and the flight time of the first sample."""

    mz: Any
    counts: Any
    metadata: Any
    start_time_ns: float
    experiment: int = 0
    retention_time: float = 0.0


def method_name(class_name: str, member: str) -> str:
    """"setpoint_lower_limit" of SetpointTable.LowerLimit."""
    known = _NAMES.get(f"{class_name}.{member}") or _NAMES.get(member)
    return known or _PREFIXES.get(class_name, "") + _snake(member)


def _snake(name: str) -> str:
    return re.sub("(?<=[a-z0-9])(?=[A-Z])", "_", name).lower()


def _is_part(member: dict) -> bool:
    return member["result"]["name"] in _CLASSES


class _Offered:
    """One object of a layer in Python; it lives as long as the library holds it."""

    __slots__ = ("layer", "behind", "name", "kept")
    alive: Dict[int, "_Offered"] = {}
    tables: Dict[str, tuple] = {}

    def __init__(self, layer: "Layer", name: str, behind):
        self.layer, self.name, self.behind = layer, name, behind
        self.kept: list = []  # what the library may read until the next call

    @classmethod
    def offer(cls, layer: "Layer", name: str, behind) -> Foreign:
        if name not in cls.tables:
            cls.tables[name] = _make_table(name)
        made = cls(layer, name, behind)
        cls.alive[id(made)] = made
        return Foreign._of(Handle(handle_from(library.korvane_implement, cls.tables[name][0], id(made))))

    def answer(self, member: dict, arguments: list):
        if _is_part(member):
            behind = getattr(self.behind, member["name"]) if self.behind is not None else None
            behind = behind() if callable(behind) else behind
            return _Offered.offer(self.layer, member["result"]["name"], behind)
        setattr(self.layer._behind, self.name, self.behind)
        answer = getattr(self.layer, method_name(self.name, member["name"]))
        if member["name"] != "GetNextSpectrum":
            return answer(*arguments)
        return Acquired(*answer())


def _fill(error, fault: BaseException, offered: Optional[_Offered], where: str) -> None:
    number, kind, text = -1, 3, f"{type(fault).__name__}: {fault}"
    if isinstance(fault, Error):
        number, text = fault.number, fault.description
        kind = next((place for place, each in enumerate(KINDS) if place and isinstance(fault, each)), 0)
    elif isinstance(fault, IndexError) or (isinstance(fault, KeyError) and isinstance(fault.args[0], int)):
        number, kind = 9, 0
    elif isinstance(fault, KeyError):
        number, kind = 5, 0
    source = fault.source if isinstance(fault, Error) and fault.source else where
    texts = [each.encode("utf-8", "replace") for each in (source, text)]
    if offered is not None:
        offered.kept = texts
    error.number, error.kind, error.source, error.description = number, kind, texts[0], texts[1]


def _make_function(class_name: str, member: dict):
    where = f"{class_name}.{member['name']}"

    def call(context: int, arguments: int, count: int, result: int, error: int) -> int:
        offered = None
        try:
            offered = _Offered.alive[context]
            kept: list = []
            answer = offered.answer(member, borrowed(arguments, count))
            if isinstance(answer, Acquired):
                filled = (0.0, answer.retention_time, answer.experiment, answer.mz, answer.counts, answer.metadata,
                          float(answer.start_time_ns), 0.0)
                memory = (ctypes.c_char * (SIZE * count)).from_address(arguments)
                for place, value in enumerate(filled):
                    pack(value, kept, memory, place * SIZE)
            elif answer is not None or member["result"]["sort"] == "object":
                memory = (ctypes.c_char * SIZE).from_address(result)
                pack(answer, kept, memory, 0, member["result"]["sort"])
                kept.append(answer)
            offered.kept = kept
            return 0
        except BaseException as fault:  # what leaves a callback of C is lost
            if isinstance(fault, Exception):
                state.calls.fault = fault
            else:
                state.calls.stop = fault
            _fill(ErrorStruct.from_address(error), fault, offered, where)
            return 1

    return FUNCTION(call)


def _forget(context) -> None:
    _Offered.alive.pop(context, None)


_forget_function = DESTROY(_forget)


def _make_table(name: str) -> tuple:
    members = _CLASSES[name]["members"]
    functions = [_make_function(name, member) for member in members]
    entries = (Entry * len(members))(*[Entry(member["name"].encode(), function)
                                       for member, function in zip(members, functions)])
    return ClassTable(VERSION, name.encode(), entries, len(members), _forget_function), functions


class Layer:
    """Connects an instrument: override the calls that it answers, `setpoint_value`, `next_spectrum` and so on; the
    others are those of the embedded instrument on the base folder, which `super()` reaches, too. What a method raises
    reaches the caller as an error with its text; a KeyError of a number and an IndexError have number 9, other KeyErrors
    5. Methods may be called by any thread."""

    def __init__(self, base=None, seed=None, scene=None):
        self._platform = open_platform(base=base, seed=seed, scene=scene)
        self._behind = threading.local()  # the object behind the one that is called, by class

    def _offer(self) -> Foreign:
        """The layer as an object for the library."""
        if not hasattr(self, "_behind"):
            Layer.__init__(self)
        return _Offered.offer(self, "InstrumentLayer", _values.CLASSES["InstrumentLayer"](self._platform))


def _forward(layer: Layer, class_name: str, name: str, arguments: tuple):
    """To the object behind the one that is called."""
    found = getattr(getattr(layer._behind, class_name), name)
    answer = found(*arguments) if callable(found) else found
    if name != "GetNextSpectrum":
        return answer
    return Acquired(answer.MassData, answer.YData, answer.MetaData, answer.StartTime, answer.Experiment,
                    answer.RetentionTime)


def layer_methods() -> Iterator[tuple]:
    """(class, member, name, parameters) of every method of a layer."""
    for description in TABLES["layer"]:
        for member in description["members"]:
            if not _is_part(member):
                asked = [] if member["name"] == "GetNextSpectrum" else member["parameters"]
                yield (description["name"], member, method_name(description["name"], member["name"]),
                       [(_snake(parameter["name"]), parameter) for parameter in asked])


def _add_methods() -> None:
    source = ""
    for class_name, member, name, parameters in layer_methods():
        names = "".join(f"{parameter}, " for parameter, _ in parameters)
        source += (f"def {name}(self, {names}):\n    '{class_name}.{member['name']} of docs/instrument-objects.md.'\n"
                   f"    return _forward(self, {class_name!r}, {member['name']!r}, ({names}))\n")
    made: Dict[str, Any] = {}
    exec(compile(source, "<korvane.Layer>", "exec"), {"_forward": _forward}, made)
    for name, method in made.items():
        setattr(Layer, name, method)


_add_methods()


class Check(NamedTuple):
    """One check of a layer."""

    operation: str
    check: str
    passed: bool
    detail: str


def conform(layer: Layer) -> List[Check]:
    """Runs the checks of `korvane conform` on a layer."""
    offered = layer._offer()
    rows = value_from(library.korvane_check_layer, offered._handle.number)
    return [Check(operation, check, result == "passed", detail) for operation, check, result, detail in rows]
