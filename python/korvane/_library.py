"""The library behind the package, its C interface, and errors."""

from __future__ import annotations

import ctypes
import glob
import os
import sys
import threading
from ctypes import POINTER, c_char_p, c_double, c_int32, c_size_t, c_uint64, c_void_p
from typing import Any, Callable, Optional

# The functions themselves: those of `signal` wrap them, which would cost more than the call.
_signal: Any = sys.modules["_signal"]

VERSION = 1  # of the C interface

FUNCTION = ctypes.CFUNCTYPE(c_int32, c_void_p, c_void_p, c_size_t, c_void_p, c_void_p)
EVENTS = ctypes.CFUNCTYPE(c_int32, c_void_p)
PROBE = ctypes.CFUNCTYPE(c_int32, c_void_p, c_int32, c_double, c_double, c_double, c_double)
DESTROY = ctypes.CFUNCTYPE(None, c_void_p)


class ErrorStruct(ctypes.Structure):
    _fields_ = [("number", c_int32), ("kind", c_int32), ("source", c_char_p), ("description", c_char_p),
                ("cause", c_char_p)]


class Options(ctypes.Structure):
    _fields_ = [("size", c_size_t), ("base_folder", c_char_p), ("scene", c_char_p), ("replay", c_char_p),
                ("instrument", c_char_p), ("layer", c_uint64), ("seed", c_uint64), ("events", EVENTS),
                ("context", c_void_p)]


class Entry(ctypes.Structure):
    _fields_ = [("member", c_char_p), ("function", FUNCTION)]


class ClassTable(ctypes.Structure):
    _fields_ = [("version", c_int32), ("name", c_char_p), ("entries", POINTER(Entry)), ("count", c_size_t),
                ("destroy", DESTROY)]


def _load() -> ctypes.CDLL:
    """KORVANE_LIBRARY, else the library inside the package, else the system's."""
    here = os.path.dirname(os.path.abspath(__file__))
    named = os.environ.get("KORVANE_LIBRARY")
    inside = sorted(glob.glob(os.path.join(here, "libkorvane.so*")) + glob.glob(os.path.join(here, "Korvane.dll")))
    candidates = [named] if named else inside or ["libkorvane.so.0.1", "Korvane.dll"]
    faults = []
    for candidate in candidates:
        try:
            library = ctypes.CDLL(candidate)
            break
        except OSError as fault:
            faults.append(str(fault))
    else:
        raise ImportError("the Korvane library cannot be loaded; KORVANE_LIBRARY may name it: " + "; ".join(faults))
    try:
        found = library.korvane_c_version()
    except AttributeError:
        found = 0
    if found != VERSION:
        raise ImportError(f"{candidate} has version {found} of the C interface; this package needs {VERSION}")
    return library


library = _load()
library.korvane_version.restype = c_char_p
for _name, _arguments in {
        "last_error": [POINTER(ErrorStruct)], "clear": [c_void_p], "free": [c_uint64],
        "copy": [c_uint64, POINTER(c_uint64)], "open": [POINTER(Options), POINTER(c_uint64)],
        "create_base_folder": [c_char_p], "guard": [c_uint64, POINTER(c_uint64)],
        "give_back": [c_uint64, c_int32, c_void_p], "last_spectrum": [c_uint64, c_void_p, c_void_p, c_void_p],
        "create": [c_uint64, c_char_p, POINTER(c_uint64)], "class_name": [c_uint64, c_void_p],
        "call": [c_uint64, c_int32, c_int32, c_void_p, c_size_t, POINTER(c_char_p), c_size_t, c_uint64, c_void_p],
        "token": [POINTER(c_uint64)], "abort": [c_uint64], "on_probe": [c_uint64, PROBE, c_void_p],
        "last_search": [c_uint64, c_void_p], "last_errors": [c_uint64, c_void_p], "tables": [c_void_p],
        "implement": [POINTER(ClassTable), c_void_p, POINTER(c_uint64)], "check_layer": [c_uint64, c_void_p]}.items():
    getattr(library, "korvane_" + _name).argtypes = _arguments
library.korvane_last_error.restype = None
library.korvane_clear.restype = None
library.korvane_free.restype = None

version: str = library.korvane_version().decode()


class Error(Exception):
    """An automation error: `number`, `source` and `description` as the library raised them, and what lies behind it."""

    def __init__(self, number: int, source: str = "", description: str = "", cause: str = ""):
        super().__init__(number, source, description)
        self.number, self.source, self.description, self.cause = number, source, description, cause

    def __str__(self) -> str:
        text = f"{self.source}: error {self.number}: {self.description}"
        return f"{text} ({self.cause})" if self.cause else text


class UsageError(Error):
    """The call itself: arguments, names, types."""


class ConfigurationError(Error):
    """A file or its content."""


class NotFound(ConfigurationError):
    """A file, an element or a parameter that is not there."""


class InstrumentError(Error):
    """What the instrument raised."""


class TimeOut(Error):
    """A wait that ended without its condition."""


class Aborted(Error):
    """Ended by the abort flag or an abort token."""


class InternalError(Error):
    """A fault of the process: memory, or a bug."""


KINDS = (Error, UsageError, ConfigurationError, InstrumentError, TimeOut, Aborted, InternalError)
_NOT_FOUND = (-904, -905, 53, 76)  # element or file, group, file not found, path not found


_main = threading.main_thread().ident


class Calls:
    """Those of one thread."""

    __slots__ = ("depth", "interrupted", "token", "stop", "fault", "is_main")

    def __init__(self) -> None:
        self.depth, self.interrupted, self.is_main = 0, False, threading.get_ident() == _main
        self.token = 0
        self.stop: Optional[BaseException] = None  # what a callback raised that the whole call is to raise
        self.fault: Optional[Exception] = None  # what a layer in Python raised last


class _State(threading.local):
    def __init__(self) -> None:
        self.calls = Calls()


state = _State()


def _note_interrupt(_number, _frame) -> None:
    state.calls.interrupted = True


def _events(_context) -> int:
    calls = state.calls
    return calls.interrupted or calls.stop is not None


events = EVENTS(_events)


def raise_last_error() -> None:
    """Raises the library's last error of this thread; from what a layer in Python raised, where that is its reason."""
    last = ErrorStruct()
    library.korvane_last_error(last)
    kind = KINDS[last.kind]
    if kind is ConfigurationError and last.number in _NOT_FOUND:
        kind = NotFound
    texts = [text.decode("utf-8", "replace") for text in (last.source, last.description, last.cause)]
    fault, state.calls.fault = state.calls.fault, None
    raise kind(last.number, *texts) from (fault if fault and str(fault) in texts[1] else None)


def check(status: int) -> None:
    if status:
        raise_last_error()


def waiting(function: Callable[..., int], *arguments) -> None:
    """Calls a function that may wait for long. In the main thread Ctrl-C is noted while it runs, ends it by the events
    hook, and is raised after it: an exception inside a callback would be lost."""
    calls = state.calls
    previous = None
    if calls.depth == 0:
        calls.stop = calls.fault = None
        if calls.is_main:
            previous = _signal.getsignal(2)  # SIGINT
            if callable(previous):
                calls.interrupted = False
                _signal.signal(2, _note_interrupt)
            else:
                previous = None
    calls.depth += 1
    try:
        status = function(*arguments)
    finally:
        calls.depth -= 1
        if previous is not None:
            _signal.signal(2, previous)
    if previous is not None and calls.interrupted:
        calls.interrupted = False
        previous(2, None)
    if calls.stop is not None:
        stop = calls.stop
        if calls.depth == 0:
            calls.stop = None
        raise stop
    if status:
        raise_last_error()


def handle_from(function: Callable[..., int], *arguments) -> int:
    """The handle that a function of the interface makes."""
    handle = c_uint64()
    check(function(*arguments, handle))
    return handle.value
