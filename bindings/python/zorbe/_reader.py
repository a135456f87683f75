"""The reading side."""

from __future__ import annotations

import os
from collections.abc import Mapping
from typing import Any, Optional, Union

from ._changes import Changes
from ._table import ReaderTable
from ._views import Opened, file_name

_POPULATE, _HUGE_PAGES, _CHECK_OWNER = 2, 4, 8


class Reader(Opened, ReaderTable, Mapping):
    """Reads a table: a Mapping from keys to records.

    The table need not exist yet; its description is taken as found. Text keys are `str`, integers
    `int`, other keys of one field what that field is; keys of several fields, and values, are named
    tuples. Both are `bytes` where there is no description.

    A reader is for one thread at a time: while a thread waits in it or copies from it, calls of
    others raise Error (USAGE). In a child process after fork, lookups go on and everything else
    raises Error (CLOSED)."""

    __slots__ = ("_name", "_is_awaited", "__weakref__")

    def __init__(self, name: str, *, root: Union[str, os.PathLike, None] = None,
                 owner: Optional[int] = None, populate: bool = False,
                 huge_pages: bool = False) -> None:
        """Opens the table `name` below `root` (None: from the environment). `owner`: refuses files
        of other users than this one. `populate`: maps every page at once."""
        self._name = name
        self._is_awaited = False
        flags = _POPULATE * bool(populate) | _HUGE_PAGES * bool(huge_pages)
        flags |= _CHECK_OWNER * (owner is not None)
        self._open(file_name(name), file_name(root), flags, owner or 0)

    def changes(self, timeout: Optional[float] = None) -> Changes:
        """What changes, each key once in a pass, with its newest value: an iterator, also for
        `async for`. It ends when nothing has changed for `timeout` seconds (None: never; 0: what is
        there). The first change is "reset": every record follows, and "complete" after the last one.
        Waiting releases the GIL, and signal handlers run. Raises Error once for each table that
        cannot be read, and may be used further."""
        return Changes(self, timeout)
