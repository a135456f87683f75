# SPDX-License-Identifier: MIT
"""Reader and Writer as mappings."""
from collections.abc import Mapping, MutableMapping

import pytest

import zorbe


def test_what_they_are(quotes):
    with zorbe.Reader("quotes") as reader:
        assert isinstance(quotes, MutableMapping)
        assert isinstance(reader, Mapping) and not isinstance(reader, MutableMapping)
        with pytest.raises(TypeError, match="does not support item assignment"):
            reader["a"] = (1, 2)
        with pytest.raises(TypeError, match="does not support item deletion"):
            del reader["a"]


def test_a_dict_and_its_table_are_equal(quotes):
    wanted = {f"key{i}": (i, 2 * i) for i in range(100)}
    quotes.update(wanted)
    with zorbe.Reader("quotes") as reader:
        for mapping in (quotes, reader):
            assert len(mapping) == 100
            assert dict(mapping) == wanted
            assert mapping == wanted
            assert dict(mapping.items()) == wanted
            assert sorted(mapping.values()) == sorted(wanted.values())
            assert set(mapping.keys()) == set(wanted)
            assert len(mapping.items()) == len(mapping.values()) == 100
            assert (5, 10) in mapping.values() and (5, 11) not in mapping.values()
            assert ("key5", (5, 10)) in mapping.items()


def test_erasing(quotes):
    quotes.update({"a": (1, 1), "b": (2, 2), "c": (3, 3)})
    del quotes["a"]
    assert "a" not in quotes and len(quotes) == 2
    with pytest.raises(KeyError, match="'a'"):
        del quotes["a"]
    assert quotes.pop("b") == (2, 2)
    assert quotes.pop("b", None) is None
    assert quotes.popitem() == ("c", (3, 3))
    with pytest.raises(KeyError):
        quotes.popitem()
    assert quotes.setdefault("d", (4, 4)) == (4, 4)
    quotes.clear()
    assert dict(quotes) == {} and len(quotes) == 0


def test_get(quotes):
    quotes["a"] = (1, 1)
    assert quotes.get("a").price == 1
    assert quotes.get("b") is None
    assert quotes.get("b", 7) == 7
    for arguments in ((), ("a", 1, 2)):
        with pytest.raises(TypeError):
            quotes.get(*arguments)


def test_a_table_that_is_not_there():
    with zorbe.Reader("nothing") as reader:
        assert reader.state == zorbe.State.WAITING
        assert reader.fields == ()
        assert len(reader) == 0 and dict(reader) == {}
        assert reader.get("a") is None and "a" not in reader
        with pytest.raises(KeyError):
            reader["a"]
        assert not reader.refresh()
        with zorbe.Writer("nothing", key=zorbe.text(3), fields="u4") as table:
            table["a"] = (1,)
            assert reader.refresh()
            assert reader["a"].value == 1
            assert reader.state in (zorbe.State.CONNECTED, zorbe.State.ORPHANED)


def test_fields(quotes):
    assert quotes.fields == (("key", "key", "S15", 0), ("value", "price", "i8", 0),
                             ("value", "size", "u4", 8))
    assert quotes.fields[1].type == "i8"
    with zorbe.Writer("more", key="u4", fields={"a": "u1", "b": "f8[3]", "c": "S300"}) as more:
        assert [field.type for field in more.fields] == ["u4", "u1", "f8[3]", "S300"]
        assert [field.offset for field in more.fields] == [0, 0, 8, 32]


def test_info(quotes):
    quotes["a"] = (1, 1)
    quotes.publish()
    assert quotes.info.state == zorbe.State.WRITING
    assert (quotes.info.key_bytes, quotes.info.value_bytes) == (16, 16)
    with zorbe.Reader("quotes") as reader:
        before = reader.info
        assert before.origin == zorbe.Origin.LOCAL
        assert before.incarnation != 0 and before.published >= 1 and before.published_at > 0
        quotes["b"] = (1, 1)
        quotes.publish()
        assert reader.info.published == before.published + 1


def test_scans_of_one_table_do_not_disturb_one_another(quotes):
    quotes.update({f"key{i}": (i, i) for i in range(10)})
    assert len([1 for _ in quotes for _ in quotes.items()]) == 100
    iterator = iter(quotes)
    assert len(list(iterator)) == 10
    assert list(iterator) == []


def test_a_writer_takes_the_description_as_found(quotes):
    quotes["a"] = (1, 2)
    quotes.close()
    with zorbe.Writer("quotes") as again:
        assert again["a"].size == 2
        again["b"] = (3, 4)
        assert len(again) == 2


def test_records_stay_when_the_writer_ends(quotes):
    quotes["a"] = (1, 2)
    quotes.close()
    with zorbe.Reader("quotes") as reader:
        assert reader["a"] == (1, 2)


def test_repr(quotes):
    assert repr(quotes) == "<zorbe.Writer 'quotes', open>"
    quotes.close()
    assert repr(quotes) == "<zorbe.Writer 'quotes', closed>"
