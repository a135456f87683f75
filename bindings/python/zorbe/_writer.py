"""The writing side."""

from __future__ import annotations

import os
import time
from collections.abc import MutableMapping
from typing import Any, Optional, Union

from ._errors import DuplicateWriter
from ._layout import Layout, Types, layout
from ._table import WriterTable
from ._views import Opened, file_name

_REPLACE_SCHEMA, _POPULATE, _HUGE_PAGES = 1, 2, 4
_SLICE = 0.1  # seconds, after which signal handlers run


class Writer(Opened, WriterTable, MutableMapping):
    """The one writer of a table: a MutableMapping from keys to records.

    `table[key] = record` stores a record as a whole: from a tuple, a mapping, or bytes of the exact
    size. It is visible to lookups at once, and to readers that follow after publish(), or by itself
    after a millisecond. Any thread may use it. In a child process after fork every call raises Error
    (CLOSED)."""

    __slots__ = ("_name", "__weakref__")

    def __init__(self, name: str, key: Optional[Types] = None, fields: Optional[Types] = None, *,
                 root: Union[str, os.PathLike, None] = None, key_name: str = "key",
                 records: int = 0, max_records: int = 0, log_entries: int = 0, mode: int = 0o644,
                 wait_for_lock: float = 0, replace_other_schema: bool = False,
                 populate: bool = False, huge_pages: bool = False) -> None:
        """Becomes the writer of the table `name` below `root` (None: from the environment): creates
        it, or continues the one that is there.

        `key` and `fields`: types by name, such as {"price": "i8", "sizes": "u4[3]"}, or one type;
        text(n) is a text. Without both, those of the table that is there. A table with others
        raises Error (SCHEMA), unless `replace_other_schema` replaces it by an empty one.

        `records`: room from the start; `max_records`: the most (0: as memory allows);
        `log_entries`: changes that a follower may be behind (0: by `records`); `mode`: of new files.
        DuplicateWriter: another process writes the table, and still did after `wait_for_lock`
        seconds."""
        if (key is None) != (fields is None):
            raise TypeError("key and fields: give both, or none for those of the table")
        for name_, number in (("records", records), ("max_records", max_records),
                              ("log_entries", log_entries)):
            if number < 0:
                raise ValueError(f"{name_}: {number} is negative")
        self._name = name
        found = Layout([], 0, 0) if key is None else layout(key, fields or {}, key_name)
        flags = _REPLACE_SCHEMA * bool(replace_other_schema) | _POPULATE * bool(populate)
        flags |= _HUGE_PAGES * bool(huge_pages)
        self._wait_and_open(wait_for_lock, (
            file_name(name), file_name(root), flags, tuple(found.fields), mode, found.key_bytes,
            found.value_bytes, records, max_records, log_entries))

    def _wait_and_open(self, seconds: float, arguments: tuple) -> None:
        end = time.monotonic() + seconds
        while True:
            left = end - time.monotonic()
            try:
                return self._open(*arguments, int(max(0, min(left, _SLICE)) * 1e9), left > 0)
            except DuplicateWriter:
                if left <= 0:
                    raise

    def clear(self) -> None:
        """Erases every record."""
        for key in list(self):
            self.pop(key, None)
