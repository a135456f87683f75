"""Named tuples: of records, and of what describes a table."""

from __future__ import annotations

import collections
import enum
import functools
from typing import Any, NamedTuple


class Field(NamedTuple):
    """A field of a table's records, as its description says."""

    part: str  #: "key" or "value"
    name: str
    type: str  #: NumPy's code: "i8", "u4[3]", "S15" (text), "V4" (bytes)
    offset: int  #: in bytes, from the beginning of key or value


class Change(NamedTuple):
    """What has changed in a table."""

    kind: str  #: "put", "erased", "reset" (every record follows) or "complete" (all have followed)
    key: Any  #: of "put" and "erased"
    value: Any  #: of "put": the newest one
    sequence: int  #: of the record's last change; of the table for "reset" and "complete"


class State(enum.IntEnum):
    """The state of a table that was opened."""

    WAITING = 0  #: there is no table yet: nothing is found
    CONNECTED = 1  #: the writer is there, and followed
    ORPHANED = 2  #: there is no writer: the records stay as they are
    REFUSED = 3  #: the table cannot be read: changes() raises why
    WRITING = 4  #: this is the writer


class Origin(enum.IntEnum):
    """Where the records come from."""

    LOCAL = 0  #: this host's writer
    MIRRORED = 1  #: another host's, which is connected
    MIRRORED_LOST = 2  #: another host's, to which the connection is lost


class Info(NamedTuple):
    """What is known about a table. Of a writer: state, sizes and records; the rest is zero."""

    state: State
    origin: Origin
    key_bytes: int
    value_bytes: int
    incarnation: int  #: another one after the table was replaced; 0: no table
    published: int  #: the sequence of the last change that was published
    position: int  #: up to which changes() has delivered
    lag: int  #: published - position
    records: int  #: of a reader: slots, not all of which hold a record
    published_at: int  #: nanoseconds since 1970 of the last publish; 0: none yet
    origin_since: int  #: nanoseconds since 1970; 0: from the start


@functools.lru_cache(maxsize=256)
def record_class(name: str, fields: tuple[str, ...]) -> type:
    """The named tuple with these fields; names that Python cannot have are renamed. The same one
    for the same fields, so that records of several tables, and unpickled ones, are of one class."""
    made = collections.namedtuple(name, fields, rename=True, module="zorbe")

    def __reduce__(self: Any) -> tuple:
        return make_record, (name, fields, *self)

    made.__reduce__ = __reduce__  # type: ignore[attr-defined]
    made.__doc__ = f"A {name.lower()} with the fields {', '.join(made._fields)}."
    return made


def make_record(name: str, fields: tuple[str, ...], *values: Any) -> Any:
    """A record from its pickle."""
    return record_class(name, fields)(*values)
