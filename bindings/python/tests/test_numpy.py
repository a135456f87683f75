# SPDX-License-Identifier: MIT
"""Structured arrays."""
import threading

import pytest

import zorbe

numpy = pytest.importorskip("numpy")


def test_an_array_has_every_record(quotes):
    quotes.update({f"key{i}": (i, 2 * i) for i in range(1000)})
    with zorbe.Reader("quotes") as reader:
        for table in (quotes, reader):
            array = table.to_numpy()
            assert array.dtype.names == ("key", "price", "size")
            assert len(array) == 1000
            found = {one["key"].decode(): (one["price"], one["size"]) for one in array}
            assert found == dict(quotes)
            assert array["price"].sum() == sum(range(1000))


def test_an_array_is_the_callers(quotes):
    quotes["a"] = (1, 2)
    array = quotes.to_numpy()
    array["price"] = 99
    assert quotes["a"].price == 1
    quotes["a"] = (5, 6)
    quotes.close()
    assert array["price"][0] == 99 and array.flags.writeable


def test_no_records(quotes):
    array = quotes.to_numpy()
    assert len(array) == 0 and array.dtype.names == ("key", "price", "size")
    with zorbe.Reader("nothing") as reader:
        assert len(reader.to_numpy()) == 0


def test_types():
    fields = {"a": "i1", "b": "u2[3]", "c": "f4", "d": "b1", "e": "S5", "f": "V3", "key": "f8"}
    with zorbe.Writer("types", key={"key": "u4", "x": "i4"}, fields=fields) as table:
        record = (-1, (1, 2, 3), 0.5, True, "abc", b"xyz", 2.5)
        table[7, 8] = record
        one, = table.to_numpy()
        assert (one["key"], one["x"]) == (7, 8)
        assert (one["a"], tuple(one["b"]), one["c"], one["d"]) == record[:4]
        assert (one["e"], bytes(one["f"]), one["value.key"]) == (b"abc", b"xyz", 2.5)


def test_values_of_an_array_can_be_stored(quotes):
    quotes["a"] = (1, 2)
    array = quotes.to_numpy()
    row = array[["price", "size"]][0]
    quotes["b"] = tuple(row)
    assert quotes["b"] == (1, 2)
    with zorbe.Writer("flags", key="u4", fields={"is_open": "b1", "rate": "f4"}) as flags:
        flags[numpy.int64(1)] = (numpy.bool_(True), numpy.float32(0.5))
        assert flags[1] == (True, 0.5)


def test_a_writer_stores_while_another_thread_copies(quotes):
    """Each record is whole: both numbers are equal."""
    quotes.update({f"key{i}": (0, 0) for i in range(2000)})
    is_over = threading.Event()

    def store():
        number = 0
        while not is_over.is_set():
            number += 1
            quotes[f"key{number % 2000}"] = (number, number)

    thread = threading.Thread(target=store)
    thread.start()
    try:
        with zorbe.Reader("quotes") as reader:
            for table in (quotes, reader) * 20:
                array = table.to_numpy()
                assert len(array) == 2000 and (array["price"] == array["size"]).all()
    finally:
        is_over.set()
        thread.join()
