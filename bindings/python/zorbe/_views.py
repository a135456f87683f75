"""Records by the scan of a table: what Reader and Writer have in common."""

from __future__ import annotations

import os
from collections.abc import ItemsView, KeysView, ValuesView
from typing import Any, Iterator

from ._records import Info, Origin, State

_KEYS, _VALUES = 1, 2


class Values(ValuesView):
    """The records of a table, by a scan."""

    __slots__ = ()

    def __iter__(self) -> Iterator[Any]:
        return self._mapping._scan(_VALUES)

    def __contains__(self, value: object) -> bool:
        return any(value == other for other in self)


class Items(ItemsView):
    """Keys and records of a table, by a scan."""

    __slots__ = ()

    def __iter__(self) -> Iterator[Any]:
        return self._mapping._scan(_KEYS | _VALUES)


class Opened:
    """What Reader and Writer have besides the extension's types."""

    __slots__ = ()

    def __enter__(self: Any) -> Any:
        return self

    def __exit__(self: Any, *exception: object) -> None:
        self.close()

    def __repr__(self: Any) -> str:
        state = "closed" if self.closed else "open"
        return f"<zorbe.{type(self).__name__} {getattr(self, '_name', None)!r}, {state}>"

    @property
    def name(self: Any) -> str:
        """The name that the table was opened by."""
        return self._name

    def keys(self: Any) -> KeysView:
        """The keys, by a scan."""
        return KeysView(self)

    def values(self: Any) -> ValuesView:
        """The records, by a scan: each is whole, and together they are no snapshot."""
        return Values(self)

    def items(self: Any) -> ItemsView:
        """Keys and records, by a scan: each is whole, and together they are no snapshot."""
        return Items(self)

    @property
    def info(self: Any) -> Info:
        """What is known about the table now."""
        state, origin, *numbers = self._info()
        return Info(State(state), Origin(origin), *numbers)

    @property
    def state(self: Any) -> State:
        """The state of the table, as in `info`."""
        return self.info.state

    def to_numpy(self: Any) -> Any:
        """All records as one structured array, which is the caller's: the fields of the key, then
        those of the value. A text is of type S, without its length. The GIL is released."""
        from ._numpy import array_of

        return array_of(self.fields, self._copy_records(), self.info)


def file_name(path: Any) -> bytes:
    """A name or a root as the library takes it; empty for None."""
    return b"" if path is None else os.fsencode(path)
