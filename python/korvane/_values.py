"""Values between Python and the library. Arrays of numbers come as read-only NumPy views of the library's memory, which
the view keeps alive; NumPy arrays that go in are copied."""

from __future__ import annotations

import atexit
import collections
import ctypes
import operator
import struct
import weakref
from typing import Any, Deque, Dict, List, Tuple

import numpy as np

from ._library import check, handle_from, library

_INTEGER = struct.Struct("@iiqNPNQ")  # kind, element, content, count, bounds, rank, owner
_REAL = struct.Struct("@iidNPNQ")
_OWNER = struct.Struct("@Q")
_KIND = struct.Struct("@i")
_CONTENT = struct.Struct("@d")
_BOUND = struct.Struct("@iN")
assert _INTEGER.size == _REAL.size
SIZE = _INTEGER.size
_OWNER_AT = SIZE - _OWNER.size

EMPTY, MISSING_KIND, NULL, BOOLEAN, INT16, INT32, SINGLE, DOUBLE, DATE, TEXT, OBJECT, RECORD, ARRAY = range(13)
_NUMBERS: Dict[int, Any] = {INT16: np.dtype(np.int16), INT32: np.dtype(np.int32), SINGLE: np.dtype(np.float32),
            DOUBLE: np.dtype(np.float64)}
_KINDS = {dtype: kind for kind, dtype in _NUMBERS.items()}

RECORDS: List[Any] = []  # by their number, filled in by the tables
CLASSES: Dict[str, Any] = {}  # by name, likewise


class Missing:
    """An argument left out."""

    def __repr__(self) -> str:
        return "..."


MISSING = Missing()


class _Gone(weakref.ref):
    """Of a handle: keeps its number beyond its end."""

    __slots__ = ("number",)
    number: int


_held: Dict[_Gone, bool] = {}  # whether at the end of the program; references tell of an end only while they live
_gone: Deque[Any] = collections.deque()


class Handle:
    """A handle. Freed when the next one is made after the end of this object, or with the program: a finaliser in Python
    would swallow a Ctrl-C that comes while it runs, so that the end is only noted, by a function in C."""

    __slots__ = ("number", "__weakref__")

    def __init__(self, number: int, is_memory: bool = False):
        self.number = number
        note = _Gone(self, _gone.append)
        note.number = number
        _held[note] = not is_memory  # which views may need to the very end
        free_handles()


def free_handles() -> None:
    """Those whose objects are gone."""
    while _gone:
        note = _gone.popleft()
        _held.pop(note, None)
        if note.number:
            library.korvane_free(note.number)


@atexit.register
def _free_all() -> None:
    free_handles()
    for note, is_to_end in reversed(list(_held.items())):
        if is_to_end:
            library.korvane_free(note.number)


class _Memory:
    """The library's memory, for NumPy."""

    __slots__ = ("owner", "__array_interface__")

    def __init__(self, owner, address, shape, dtype):
        self.owner = owner
        self.__array_interface__ = {"version": 3, "shape": shape, "typestr": dtype.str, "data": (address, True)}


def _address(data: bytes) -> int:
    return ctypes.cast(ctypes.c_char_p(data), ctypes.c_void_p).value or 0


def _shape_and_items(value) -> tuple:
    """Of nested sequences: one dimension, or two where all elements are equally long sequences that are no records."""
    items = list(value)
    rows = [hasattr(item, "__len__") and not isinstance(item, str) and not hasattr(item, "_number") for item in items]
    if not items or not all(rows) or len({len(item) for item in items}) != 1:
        return (len(items),), items
    return (len(items), len(items[0])), [cell for row in items for cell in row]


def _is_number(item) -> bool:
    return isinstance(item, (int, float, np.number)) and not isinstance(item, bool)


def _pack_array(value, kept: list, buffer, offset: int) -> None:
    """Numbers become one block of memory, everything else a value an element."""
    numbers: Any = None
    if isinstance(value, np.ndarray) and value.dtype.kind in "iuf":
        shape, numbers = value.shape, value if value.dtype in _KINDS else value.astype(np.float64)
    else:
        shape, items = (value.shape, value.ravel().tolist()) if isinstance(value, np.ndarray) else \
            _shape_and_items(value)
        numbers = np.array(items, np.float64) if items and all(map(_is_number, items)) else None
    bounds = b"".join(_BOUND.pack(0, count) for count in shape)
    if numbers is not None:
        numbers = np.ascontiguousarray(numbers)
        kept += [bounds, numbers]
        element, address, count = _KINDS[numbers.dtype], numbers.__array_interface__["data"][0], numbers.size
    else:
        memory = ctypes.create_string_buffer(max(1, SIZE * len(items)))
        kept += [bounds, memory]
        for place, item in enumerate(items):
            pack(item, kept, memory, place * SIZE)
        texts = bool(items) and all(isinstance(item, str) for item in items)
        element, address, count = TEXT if texts else EMPTY, ctypes.addressof(memory), len(items)
    _INTEGER.pack_into(buffer, offset, ARRAY, element, address, count, _address(bounds), len(shape), 0)


def pack(value: Any, kept: list, buffer, offset: int, sort: str = "variant") -> None:
    """Writes a value as the library reads it; `kept` keeps alive what it points to."""
    kind = type(value)
    if kind is float:
        _REAL.pack_into(buffer, offset, DOUBLE, 0, value, 0, 0, 0, 0)
    elif kind is int or kind is bool:
        if -0x80000000 <= value <= 0x7FFFFFFF:
            _INTEGER.pack_into(buffer, offset, INT32 if kind is int else BOOLEAN, 0, value, 0, 0, 0, 0)
        else:
            _REAL.pack_into(buffer, offset, DOUBLE, 0, float(value), 0, 0, 0, 0)
    elif kind is str:
        data = value.encode("utf-8", "surrogateescape")
        kept.append(data)
        _INTEGER.pack_into(buffer, offset, TEXT, 0, _address(data), len(data), 0, 0, 0)
    elif value is None:
        _INTEGER.pack_into(buffer, offset, OBJECT if sort == "object" else NULL, 0, 0, 0, 0, 0, 0)
    elif value is MISSING:
        _INTEGER.pack_into(buffer, offset, MISSING_KIND, 0, 0, 0, 0, 0, 0)
    elif hasattr(value, "_handle"):
        kept.append(value)
        _INTEGER.pack_into(buffer, offset, OBJECT, 0, value._handle.number, 0, 0, 0, 0)
    elif hasattr(value, "_number"):
        data = value._struct.pack(*value)
        kept.append(data)
        _INTEGER.pack_into(buffer, offset, RECORD, value._number, _address(data), 0, 0, 0, 0)
    elif isinstance(value, (float, np.floating)):
        _REAL.pack_into(buffer, offset, DOUBLE, 0, float(value), 0, 0, 0, 0)
    elif isinstance(value, (bool, np.bool_)):
        _INTEGER.pack_into(buffer, offset, BOOLEAN, 0, bool(value), 0, 0, 0, 0)
    elif isinstance(value, str):
        pack(str(value), kept, buffer, offset)
    elif hasattr(value, "__index__") and not isinstance(value, np.ndarray):
        pack(operator.index(value), kept, buffer, offset)
    elif hasattr(value, "__iter__"):
        _pack_array(value, kept, buffer, offset)
    elif hasattr(value, "__fspath__"):
        pack(value.__fspath__(), kept, buffer, offset)
    else:
        raise TypeError(f"{kind.__name__} is nothing that the library knows")


def adopt(handle: int):
    """The Python object of a handle, which is taken over."""
    own = Handle(handle)
    buffer = ctypes.create_string_buffer(SIZE)
    check(library.korvane_class_name(handle, buffer))
    return CLASSES[unpack(buffer)]._of(own)


def _unpack(buffer, offset: int, owner) -> Any:
    kind, element, content, count, bounds, rank, _ = _INTEGER.unpack_from(buffer, offset)
    if kind == DOUBLE or kind == SINGLE or kind == DATE:
        return _REAL.unpack_from(buffer, offset)[2]
    if kind == INT32 or kind == INT16:
        return _KIND.unpack_from(buffer, offset + 8)[0]
    if kind == BOOLEAN:
        return content & 0xFFFFFFFF != 0
    if kind == TEXT:
        return ctypes.string_at(content, count).decode("utf-8", "surrogateescape")
    if kind == OBJECT:
        return adopt(handle_from(library.korvane_copy, content)) if content else None
    if kind == RECORD:
        record = RECORDS[element]
        return record._make(record._struct.unpack(ctypes.string_at(content, record._struct.size)))
    if kind != ARRAY:
        return None
    shape: Tuple[int, ...] = (count,)
    if bounds and rank != 1:
        memory = ctypes.string_at(bounds, rank * _BOUND.size)
        shape = tuple(_BOUND.unpack_from(memory, place * _BOUND.size)[1] for place in range(rank))
    if element in _NUMBERS:
        if not content or not count:
            return np.empty(shape, _NUMBERS[element])
        view = np.asarray(_Memory(owner, content, shape, _NUMBERS[element]))
        return view if owner else view.copy()
    memory = ctypes.string_at(content, count * SIZE) if count else b""
    items = [_unpack(memory, place * SIZE, owner) for place in range(count)]
    for extent in shape[:0:-1]:
        items = [items[place:place + extent] for place in range(0, len(items), extent)] if extent else []
    return items


def borrowed(address: int, count: int) -> list:
    """Copies of values that somebody else keeps for the moment."""
    memory = ctypes.string_at(address, count * SIZE) if count else b""
    return [_unpack(memory, place * SIZE, None) for place in range(count)]


def unpack(buffer, offset: int = 0) -> Any:
    """The value that the library put there; what it points to is freed with the last view of it."""
    kind = _KIND.unpack_from(buffer, offset)[0]
    if kind == INT32:
        return _KIND.unpack_from(buffer, offset + 8)[0]
    if kind == DOUBLE:
        return _CONTENT.unpack_from(buffer, offset + 8)[0]
    owner = _OWNER.unpack_from(buffer, offset + _OWNER_AT)[0]
    if not owner:
        return _unpack(buffer, offset, None)
    _OWNER.pack_into(buffer, offset + _OWNER_AT, 0)
    return _unpack(buffer, offset, Handle(owner, True))


def value_from(function, *arguments) -> Any:
    """The value that a function of the interface hands out last."""
    buffer = ctypes.create_string_buffer(SIZE)
    check(function(*arguments, buffer))
    return unpack(buffer)
