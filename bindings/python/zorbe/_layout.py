"""From the types that a program names to the fields of a table, laid out as C++ does."""

from __future__ import annotations

import re
from typing import Iterable, List, Mapping, NamedTuple, Tuple, Union

#: A type, or types by name; an iterable of pairs is taken as well.
Types = Union[str, Mapping[str, str], Iterable[Tuple[str, str]]]

_TYPE = re.compile(r"([iufbSV])(\d{1,7})(?:\[(\d{1,7})\])?", re.ASCII)
_SIZES = {"i": (1, 2, 4, 8), "u": (1, 2, 4, 8), "f": (4, 8), "b": (1,)}
_KEY, _VALUE = 1, 2


class Layout(NamedTuple):
    """Fields as the extension takes them, and the bytes of key and value."""

    fields: list
    key_bytes: int
    value_bytes: int


def text(size: int) -> str:
    """The type of a text of at most `size` bytes (1 to 65535): Zorbe::Table::Text in C++."""
    if not 1 <= size <= 65535:
        raise ValueError(f"a text has room for 1 to 65535 bytes, not {size}")
    return f"S{size}"


def _parse(name: str, type_: str) -> tuple[str, int, int]:
    match = _TYPE.fullmatch(type_) if isinstance(type_, str) else None
    if not match:
        raise ValueError(f"{name}: {type_!r} is no type: use i1, i2, i4, i8, u1, u2, u4, u8, f4, f8, "
                         "b1, S<n> (text), V<n> (bytes), and [n] after it for an array")
    letter, size, count = match[1], int(match[2]), int(match[3] or 0)
    if size == 0 or match[3] == "0" or size not in _SIZES.get(letter, (size,)):
        raise ValueError(f"{name}: there is no type {type_!r}")
    if letter == "S" and (match[3] or size > 65535):
        raise ValueError(f"{name}: a text has at most 65535 bytes, and there are no arrays of it")
    return letter, size, count


def _up(offset: int, alignment: int) -> int:
    return (offset + alignment - 1) // alignment * alignment


def _lay_out(part: int, types: list[tuple[str, str]]) -> tuple[list, int]:
    fields: list = []
    end, widest = 0, 1
    for name, type_ in types:
        letter, size, count = _parse(name, type_)
        alignment = {"S": 1 if size <= 255 else 2, "V": 1}.get(letter, size)
        end = _up(end, alignment)
        fields.append((part, name, letter, size, count, end))
        end += size * max(count, 1)
        if letter == "S":
            end = _up(end, alignment)
            fields.append((part, name + ".length", "u", alignment, 0, end))
            end += alignment
        widest = max(widest, alignment)
    return fields, _up(end, widest)


def _pairs(types: Types, name: str) -> list[tuple[str, str]]:
    if isinstance(types, str):
        return [(name, types)]
    pairs: List[Tuple[str, str]] = list(types.items() if isinstance(types, Mapping) else types)
    names = [pair[0] for pair in pairs]
    for field in names:
        if names.count(field) > 1 or (isinstance(field, str) and field.endswith(".length")):
            raise ValueError(f"{field!r}: two fields have this name, or it ends in '.length'")
    return pairs


def layout(key: Types, fields: Types, key_name: str) -> Layout:
    """The layout of a new table. A key of one type is a field `key_name`, a value one "value"."""
    key_fields, key_bytes = _lay_out(_KEY, _pairs(key, key_name))
    value_fields, value_bytes = _lay_out(_VALUE, _pairs(fields, "value"))
    if not key_fields or not value_fields:
        raise ValueError("key and value have at least one field each")
    return Layout(key_fields + value_fields, key_bytes, value_bytes)
