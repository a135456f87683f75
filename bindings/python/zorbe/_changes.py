"""The changes of a table, for threads and for asyncio."""

from __future__ import annotations

import asyncio
from typing import Any, Optional

from ._errors import Error, ErrorCode
from ._records import Change


class Changes:
    """What Reader.changes() returns: an iterator, also for `async for`."""

    __slots__ = ("_table", "_timeout", "_is_over")

    def __init__(self, table: Any, timeout: Optional[float]) -> None:
        self._table = table
        self._timeout = timeout
        self._is_over = False

    def __iter__(self) -> "Changes":
        return self

    def __next__(self) -> Change:
        change = None if self._is_over else self._table._next(self._timeout)
        if change is None:
            self._is_over = True
            raise StopIteration
        return change

    def __aiter__(self) -> "Changes":
        return self

    async def __anext__(self) -> Change:
        change = None if self._is_over else await _next_in_loop(self._table, self._timeout)
        if change is None:
            self._is_over = True
            raise StopAsyncIteration
        return change


async def _next_in_loop(table: Any, timeout: Optional[float]) -> Optional[Change]:
    change = table._next(0)
    if change is not None:
        return change
    loop = asyncio.get_running_loop()
    end = None if timeout is None else loop.time() + timeout
    while change is None and (end is None or loop.time() < end):
        await _readable(loop, table, end)
        change = table._next(0)
    return change


async def _readable(loop: Any, table: Any, end: Optional[float]) -> None:
    """Returns when the reader's descriptor is readable, or at `end`."""
    if table._is_awaited:
        raise Error("another task waits for this reader's changes: open one for each",
                    ErrorCode.USAGE)
    done = loop.create_future()

    def finish() -> None:
        if not done.done():
            done.set_result(None)

    descriptor = table.fileno()
    loop.add_reader(descriptor, finish)
    timer = None if end is None else loop.call_at(end, finish)
    table._is_awaited = True
    try:
        await done
    finally:
        table._is_awaited = False
        loop.remove_reader(descriptor)
        if timer is not None:
            timer.cancel()
