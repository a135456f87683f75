# SPDX-License-Identifier: MIT
"""Opening and closing leaves neither memory nor descriptors behind."""
import ctypes
import gc
import os
import sys
import threading

import pytest

import zorbe
from zorbe import _table

# scripts/verify --long tries a hundred thousand.
TIMES = int(os.environ.get("ZORBE_PYTHON_OPENS", "240"))
ROUNDS = 4


class MallInfo(ctypes.Structure):
    """struct mallinfo2, see mallinfo(3)."""
    _fields_ = [(name, ctypes.c_size_t) for name in (
        "arena", "ordblks", "smblks", "hblks", "hblkhd", "usmblks", "fsmblks", "uordblks",
        "fordblks", "keepcost")]


def allocated():
    """Bytes that the C library has given out, blocks of the interpreter, and references to what is
    never released."""
    gc.collect()
    mallinfo2 = ctypes.CDLL(None).mallinfo2
    mallinfo2.restype = MallInfo
    found = mallinfo2()
    references = sum(map(sys.getrefcount, (_table, _table.Table, zorbe.Reader, zorbe.Writer)))
    return found.uordblks + found.hblkhd, sys.getallocatedblocks(), references


def descriptors():
    gc.collect()  # of earlier tests
    return len(os.listdir("/proc/self/fd"))


def open_writer():
    with zorbe.Writer("growth", key="S15", fields={"a": "i8", "b": "u4[3]"}) as table:
        table["x"] = (1, (1, 2, 3))
        return table["x"], list(table.items()), table.get("y")


def open_reader():
    with zorbe.Reader("growth") as reader:
        return reader["x"], list(reader.changes(timeout=0)), len(reader)


def drop():
    """Without close()."""
    table = zorbe.Writer("dropped", key="u4", fields="u4")
    reader = zorbe.Reader("dropped")
    iterators = [iter(table), iter(reader.items()), reader.changes()]
    table[1] = (1,)
    return [next(one) for one in iterators]


def is_refused(use):
    """Without what pytest.raises() keeps."""
    try:
        use()
    except (zorbe.Error, KeyError, TypeError, ValueError, OverflowError):
        return True
    return False


def refused():
    for arguments in (("growth", "u4", "u4"), ("none",), ("growth", "f8", "u4")):
        assert is_refused(lambda: zorbe.Writer(*arguments))
    with zorbe.Writer("growth") as table:
        for value in ((1,), (1, (1, 2)), {"a": 1}, b"short", "text", (2**70, (1, 2, 3))):
            assert is_refused(lambda: table.__setitem__("x", value))
        assert is_refused(lambda: table["absent"])


def growth(step, times):
    """What `times` steps leave of that: the least of four rounds, since caches and
    free lists are filled now and then."""
    rounds = []
    for _ in range(ROUNDS):
        before = allocated()
        for _ in range(times):
            step()
        rounds.append([after - first for after, first in zip(allocated(), before)])
    return [min(one) for one in zip(*rounds)]


@pytest.mark.parametrize("step", [open_writer, open_reader, drop, refused])
def test_no_growth(step):
    open_writer()
    for _ in range(20):
        step()
    open_before = descriptors()
    grown_bytes, grown_blocks, references = growth(step, TIMES // ROUNDS)
    assert descriptors() == open_before
    assert threading.active_count() == 1
    assert grown_blocks < TIMES / ROUNDS
    assert grown_bytes < 16 * TIMES
    assert references == 0


def test_nothing_stays_of_lookups():
    """A reference too many for each use would keep a block for each."""
    with zorbe.Writer("large", key={"a": "S3", "b": "u4"}, fields={"a": "V700", "b": "f8[3]"}) as table:
        key, value = ("x", 70000), (bytes(700), (1.5, 2.5, 3.5))
        table[key] = value
        for use in (lambda: table[key], lambda: list(table.items()), lambda: table.get(key),
                    lambda: table.__setitem__(key, value), lambda: table._copy_records(),
                    lambda: table.fields, lambda: table.info, lambda: table.get(("y", 70000))):
            use()
            grown_bytes, grown_blocks, references = growth(use, 200)
            assert references == 0
            assert grown_blocks < 200
            assert grown_bytes < 16 * 200
