# SPDX-License-Identifier: MIT
"""Keys: forms, limits, and what no record can have."""
import pytest

import zorbe


def table_of(key, **options):
    return zorbe.Writer("keys", key=key, fields={"n": "u4"}, **options)


@pytest.mark.parametrize("key, keys", [
    (zorbe.text(15), ["", "IBM", "x" * 15, "é" * 7, "\udcff\udc80", "a\0b"]),
    (zorbe.text(300), ["", "IBM", "x" * 300]),
    ("i8", [0, -1, 2**63 - 1, -2**63]), ("u1", [0, 255]), ("u8", [0, 2**64 - 1]),
    ("b1", [False, True]), ("V4", [b"\0\0\0\0", b"abcd"]),
    ("i2[2]", [(1, 2), (-1, 0)]),
    ({"venue": "S3", "id": "u4"}, [("X", 1), ("XYZ", 2**32 - 1)])])
def test_keys_come_back(key, keys):
    with table_of(key) as table, zorbe.Reader("keys") as reader:
        for number, one in enumerate(keys):
            table[one] = (number,)
        for mapping in (table, reader):
            assert sorted(mapping) == sorted(keys)
            for number, one in enumerate(keys):
                assert mapping[one].n == number
                assert one in mapping
                assert mapping.get(one).n == number


def test_a_key_of_several_fields_is_a_named_tuple():
    with table_of({"venue": "S3", "id": "u4"}) as table:
        table["X", 1] = (5,)
        key, = table
        assert (key.venue, key.id) == ("X", 1)
        assert table[key].n == 5
        assert table[{"venue": "X", "id": 1}].n == 5


@pytest.mark.parametrize("key, absent", [
    (zorbe.text(3), ["abcd", "é" * 2, "\ud800"]), ("u1", [256, -1, 2**70]), ("V4", [b"", b"abcde"]),
    ({"venue": "S3", "id": "u4"}, [("abcd", 1), ("a", -1), ("a",)])])
def test_a_key_that_cannot_be_is_not_found(key, absent):
    with table_of(key) as table:
        for one in absent:
            assert one not in table
            assert table.get(one) is None
            assert table.get(one, 5) == 5
            with pytest.raises(KeyError) as error:
                table[one]
            assert error.value.args == (one,)
            with pytest.raises(KeyError):
                del table[one]
            with pytest.raises((ValueError, OverflowError)):
                table[one] = (1,)


@pytest.mark.parametrize("key, wrong", [
    (zorbe.text(3), 5), (zorbe.text(3), b"a"), ("u4", "a"), ("u4", 1.0), ("u4", None), ("V4", "abcd"),
    ({"venue": "S3", "id": "u4"}, 5), ({"venue": "S3", "id": "u4"}, "ab")])
def test_a_key_of_another_type_is_an_error(key, wrong):
    with table_of(key) as table:
        for use in (lambda: table[wrong], lambda: table.get(wrong), lambda: wrong in table,
                    lambda: table.__setitem__(wrong, (1,)), lambda: table.__delitem__(wrong)):
            with pytest.raises(TypeError):
                use()


def test_the_name_of_a_key(root):
    with table_of("u4", key_name="id") as table:
        assert table.fields[0] == ("key", "id", "u4", 0)


def test_a_key_is_looked_up_by_what_it_is_when_it_is_looked_up():
    """A subclass, and an object that becomes an integer."""
    class Id(int):
        pass

    class Name(str):
        pass

    with table_of("u4") as table:
        table[Id(3)] = (1,)
        assert table[3].n == 1
    with zorbe.Writer("names", key="S5", fields="u1") as table:
        table[Name("a")] = (1,)
        assert table["a"].value == 1


@pytest.mark.parametrize("key, fields, text", [
    ("u3", "u4", "key: there is no type 'u3'"), ("x4", "u4", "key: 'x4' is no type"),
    ("u4", {"a": "u4[0]"}, "a: there is no type"), ("u4", {"a": "S0"}, "a: there is no type"),
    ("u4", {"a": "S5[2]"}, "a: a text has"), ("u4", {"a": 4}, "a: 4 is no type"),
    ("u4", [("a", "u4"), ("a", "u4")], "'a': two fields"), ("u4", {}, "at least one field"),
    ({}, "u4", "at least one field"), ("u4", {"a.length": "u1"}, "ends in '.length'")])
def test_descriptions_that_are_none(key, fields, text):
    with pytest.raises(ValueError, match=text):
        zorbe.Writer("none", key=key, fields=fields)


def test_a_description_that_the_library_refuses():
    for key, fields in [("f8", "u4"), ("u4", {"a b": "u4"}), ("V2000", "u4"), ("u4", "V2000000")]:
        with pytest.raises(zorbe.Error) as error:
            zorbe.Writer("none", key=key, fields=fields)
        assert error.value.code == zorbe.ErrorCode.USAGE


def test_text_sizes():
    assert zorbe.text(15) == "S15"
    for size in (0, -1, 65536):
        with pytest.raises(ValueError):
            zorbe.text(size)
