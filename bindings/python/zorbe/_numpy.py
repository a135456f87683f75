"""Structured arrays from copies of records. Imports NumPy, which nothing else here does."""

from __future__ import annotations

import re
from typing import Any, Iterable, Optional

import numpy

from ._records import Field, Info


def _format(type_: str) -> Any:
    element, count = re.fullmatch(r"(\w+)(?:\[(\d+)\])?", type_).groups()  # type: ignore[union-attr]
    return element if count is None else (element, (int(count),))


def _fields_of(fields: Iterable[Field], info: Info) -> list[Field]:
    """Without a description key and value are bytes."""
    known = list(fields)
    if not any(field.part == "key" for field in known):
        known.insert(0, Field("key", "key", f"V{info.key_bytes}", 0))
    if not any(field.part == "value" for field in known) and info.value_bytes:
        known.append(Field("value", "value", f"V{info.value_bytes}", 0))
    return known


def dtype_of(fields: Iterable[Field], info: Info, value_at: int, size: int) -> numpy.dtype:
    """The type of one copy. A field of the value with the name of one of the key gets the prefix
    "value."."""
    names, formats, offsets = [], [], []
    for field in _fields_of(fields, info):
        is_value = field.part == "value"
        names.append(f"value.{field.name}" if is_value and field.name in names else field.name)
        formats.append(_format(field.type))
        offsets.append(field.offset + (value_at if is_value else 0))
    return numpy.dtype({"names": names, "formats": formats, "offsets": offsets, "itemsize": size})


def array_of(fields: Iterable[Field], copies: Optional[tuple], info: Info) -> Any:
    """The array of Table._copy_records(); empty where there is no table."""
    if copies is None:
        return numpy.empty(0)
    memory, value_at, size = copies
    dtype = dtype_of(fields, info, value_at, size)
    if len(memoryview(memory)) == 0:
        return numpy.empty(0, dtype)
    return numpy.frombuffer(memory, dtype)
