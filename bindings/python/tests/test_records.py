# SPDX-License-Identifier: MIT
"""Values: each type there and back, and what does not fit."""
import copy
import math
import pickle
import struct

import pytest

import zorbe

LIMITS = {"i1": (-2**7, 2**7 - 1), "i2": (-2**15, 2**15 - 1), "i4": (-2**31, 2**31 - 1),
          "i8": (-2**63, 2**63 - 1), "u1": (0, 2**8 - 1), "u2": (0, 2**16 - 1),
          "u4": (0, 2**32 - 1), "u8": (0, 2**64 - 1)}


def stored(type_, value):
    """What comes back from a table whose records have this one field between two others."""
    fields = {"a": "u1", "field": type_, "z": "u1"}
    with zorbe.Writer("one", key="u4", fields=fields, replace_other_schema=True) as table:
        table[1] = (255, value, 255)
        record = table[1]
        assert (record.a, record.z) == (255, 255)
        return record.field


@pytest.mark.parametrize("type_", LIMITS)
def test_integers_within_their_limits(type_):
    for limit in LIMITS[type_]:
        assert stored(type_, limit) == limit


@pytest.mark.parametrize("type_", LIMITS)
def test_integers_beyond_their_limits(type_):
    low, high = LIMITS[type_]
    for number in (low - 1, high + 1, 2**80, -2**80):
        with pytest.raises(OverflowError, match=f"field: {number} does not fit into {type_}"):
            stored(type_, number)


@pytest.mark.parametrize("type_, value", [
    ("f8", 1.1), ("f8", math.inf), ("f8", 3), ("f4", 0.5), ("f4", -math.inf), ("b1", True),
    ("b1", False), ("S5", ""), ("S5", "abcde"), ("S5", "aé"), ("S5", "\udcff"), ("S5", "a\0b\0"),
    ("S300", "x" * 300), ("V3", b"\0a\0"), ("i2[3]", (1, -2, 3)), ("f4[1]", (0.5,)),
    ("b1[2]", (True, False)), ("V2[2]", (b"ab", b"cd"))])
def test_other_types(type_, value):
    back = stored(type_, value)
    assert back == value
    assert type(back) is type(value) or type_ == "f8"


def test_not_a_number():
    assert math.isnan(stored("f8", math.nan))
    assert math.isnan(stored("f4", math.nan))


@pytest.mark.parametrize("type_, value, error, text", [
    ("i4", "1", TypeError, "field: str is no integer"),
    ("i4", 1.0, TypeError, "field: float is no integer"),
    ("u8", None, TypeError, "field: NoneType is no integer"),
    ("f8", "1", TypeError, "field: str is no number"),
    ("f8", 10**400, OverflowError, ""),
    ("f4", 1e39, OverflowError, "field: 1e.39 does not fit into f4"),
    ("b1", 2, TypeError, "field: int is no bool"),
    ("b1", "", TypeError, "field: str is no bool"),
    ("S5", b"abc", TypeError, "field: bytes is no str"),
    ("S5", "abcdef", ValueError, "field: 'abcdef' has 6 bytes, and there is room for 5"),
    ("S5", "\ud800", ValueError, "surrogates not allowed"),
    ("V3", "abc", TypeError, "field: str is no bytes"),
    ("V3", b"ab", ValueError, "field: 2 bytes, and it has 3"),
    ("i2[3]", (1, 2), ValueError, "field: 2 elements, and it has 3"),
    ("i2[3]", 5, TypeError, "field: int is no sequence"),
    ("i2[3]", (1, 2, 2**15), OverflowError, "field: 32768 does not fit into i2")])
def test_values_that_do_not_fit(type_, value, error, text):
    with pytest.raises(error, match=text):
        stored(type_, value)


@pytest.mark.parametrize("record", [
    (7, 8), [7, 8], {"price": 7, "size": 8}, {"size": 8, "price": 7}, struct.pack("=qI4x", 7, 8),
    bytearray(struct.pack("=qI4x", 7, 8)), memoryview(struct.pack("=qI4x", 7, 8))])
def test_forms_of_a_record(quotes, record):
    quotes["a"] = record
    assert quotes["a"] == (7, 8)
    assert quotes["a"].price == 7 and quotes["a"].size == 8
    quotes["b"] = quotes["a"]
    assert quotes["b"] == (7, 8)


@pytest.mark.parametrize("record, error, text", [
    ((1,), ValueError, "1 fields, and the table has 2: .'price', 'size'."),
    ((1, 2, 3), ValueError, "3 fields"),
    ({"price": 1}, ValueError, "size: missing"),
    ({"price": 1, "size": 2, "other": 3}, ValueError, "3 fields"),
    ({"price": 1, "other": 3}, ValueError, "size: missing"),
    (b"short", ValueError, "5 bytes, and the table has 16"),
    (7, TypeError, "a tuple, a mapping or bytes"),
    ("ab", TypeError, "a tuple, a mapping or bytes"),
    (None, TypeError, "a tuple, a mapping or bytes"),
    ((-1, -1), OverflowError, "size: -1 does not fit into u4")])
def test_records_that_do_not_fit(quotes, record, error, text):
    with pytest.raises(error, match=text):
        quotes["a"] = record
    assert "a" not in quotes


def test_a_value_of_one_field_is_a_named_tuple():
    with zorbe.Writer("one", key="u4", fields="f8") as table:
        table[1] = (2.5,)
        assert table[1].value == 2.5
        assert table[1]._fields == ("value",)


@pytest.mark.parametrize("size", [5, 300])
def test_a_length_that_is_damaged(size):
    """Another program may store anything: the text then has all of its room."""
    with zorbe.Writer("damaged", key="u4", fields={"text": zorbe.text(size)}) as table:
        table[1] = b"x" * size + b"\xff" * (1 if size <= 255 else 2)
        assert table[1].text == "x" * size


def test_fields_that_python_cannot_name():
    with zorbe.Writer("odd", key="u4", fields={"class": "u1", "ok": "u1", "1st": "u1"}) as table:
        table[1] = (1, 2, 3)
        assert table[1]._fields == ("_0", "ok", "_2")
        table[2] = {"class": 4, "ok": 5, "1st": 6}
        assert table[2]._0 == 4
        table[3] = table[2]._asdict()
        assert table[3] == table[2]


def test_large_records():
    with zorbe.Writer("large", key="V900", fields={"a": "V100000", "b": "u1"}) as table:
        key, value = bytes(range(90)) * 10, b"0123456789" * 10000
        table[key] = (value, 7)
        assert table[key] == (value, 7)
        assert list(table.items()) == [(key, (value, 7))]


def test_records_pickle_and_copy(quotes):
    quotes["a"] = (1, 2)
    record = quotes["a"]
    for again in [copy.copy(record), copy.deepcopy(record)] + [
            pickle.loads(pickle.dumps(record, protocol)) for protocol in range(6)]:
        assert again == record and type(again) is type(record)


def test_records_of_equal_fields_are_of_one_class(quotes):
    with zorbe.Writer("other", key="u4", fields={"price": "f8", "size": "f8"}) as other:
        other[1] = (1, 2)
        quotes["a"] = (1, 2)
        assert type(other[1]) is type(quotes["a"])


def test_handles_refuse_to_pickle(quotes):
    with zorbe.Reader("quotes") as reader:
        for handle in (quotes, reader):
            with pytest.raises(TypeError, match="cannot pickle"):
                pickle.dumps(handle)
            with pytest.raises(TypeError, match="cannot pickle"):
                copy.copy(handle)
