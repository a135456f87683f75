# SPDX-License-Identifier: MIT
"""What is raised."""
import os
import pickle
import sys

import pytest

import zorbe
from conftest import child


def test_a_second_writer(quotes):
    with pytest.raises(zorbe.DuplicateWriter) as error:
        zorbe.Writer("quotes")
    assert error.value.code == zorbe.ErrorCode.DUPLICATE
    assert isinstance(error.value, zorbe.Error)
    assert error.value.pid == os.getpid()
    assert os.path.realpath(sys.executable) == os.path.realpath(error.value.owner)
    assert str(os.getpid()) in str(error.value)


def test_waiting_for_another_writer():
    process = child("""
        import zorbe
        table = zorbe.Writer("quotes", key="u4", fields="u4")
        table[1] = (2,)
        print("writing", flush=True)
        input()
    """)
    assert process.stdout.readline() == "writing\n"
    with pytest.raises(zorbe.DuplicateWriter) as error:
        zorbe.Writer("quotes", wait_for_lock=0.01)
    assert error.value.pid == process.pid
    process.stdin.close()
    with zorbe.Writer("quotes", wait_for_lock=60) as table:
        assert table[1].value == 2
    assert process.wait(60) != 77


def test_codes(quotes):
    with pytest.raises(zorbe.Error) as error:
        zorbe.Writer("nothing")
    assert error.value.code == zorbe.ErrorCode.NO_TABLE
    quotes.close()
    with pytest.raises(zorbe.Error) as error:
        zorbe.Writer("quotes", key="u4", fields="u4")
    assert error.value.code == zorbe.ErrorCode.SCHEMA
    for name, root in [("", None), ("x" * 200, None), ("quotes", "relative")]:
        for open_ in (zorbe.Reader, lambda *a, **k: zorbe.Writer(*a, "u4", "u4", **k)):
            with pytest.raises(zorbe.Error) as error:
                open_(name, root=root)
            assert error.value.code == zorbe.ErrorCode.USAGE


def test_a_full_table(root):
    with zorbe.Writer("full", key="u4", fields="u4", records=2, max_records=2) as table:
        table[1] = table[2] = (1,)
        with pytest.raises(zorbe.Error) as error:
            table[3] = (1,)
        assert error.value.code == zorbe.ErrorCode.FULL
        assert "full" in str(error.value)
        assert len(table) == 2


def test_a_foreign_owner(quotes):
    with zorbe.Reader("quotes", owner=os.getuid()) as reader:
        assert reader.fields
    with zorbe.Reader("quotes", owner=os.getuid() + 1) as reader:
        assert not reader.fields
        with pytest.raises(zorbe.Error) as error:
            next(reader.changes(timeout=60))
        assert error.value.code == zorbe.ErrorCode.DENIED


def test_a_damaged_table(quotes, root):
    quotes["a"] = (1, 2)
    quotes.close()
    path = root / "quotes" / "slots"
    path.write_bytes(b"\xff" * path.stat().st_size)
    with zorbe.Reader("quotes") as reader:
        assert reader.get("a") is None
        with pytest.raises(zorbe.Error):
            next(reader.changes(timeout=60))


def test_arguments_that_are_wrong():
    for arguments in ((5,), (None, "u4"), (b"a\0b",)):
        with pytest.raises((TypeError, ValueError)):
            zorbe.Reader(*arguments)
    with pytest.raises(TypeError, match="give both"):
        zorbe.Writer("a", key="u4")
    for option in ({"records": -1}, {"mode": "x"}, {"wait_for_lock": "x"}, {"root": 5}):
        with pytest.raises((TypeError, ValueError, OverflowError)):
            zorbe.Writer("a", "u4", "u4", **option)


def test_options_reach_the_table(root, tmp_path):
    with zorbe.Writer("options", "u4", "u4", root=tmp_path / "other", mode=0o640, populate=True,
                      huge_pages=True, log_entries=64, records=10):
        slots = tmp_path / "other" / "options" / "slots"
        assert slots.stat().st_mode & 0o777 == 0o640
    with zorbe.Reader("options", root=str(tmp_path / "other"), populate=True) as reader:
        assert reader.fields


def test_errors_pickle():
    errors = [zorbe.Error("text", zorbe.ErrorCode.FULL), zorbe.DuplicateWriter("text", 5, "owner")]
    for error in errors:
        again = pickle.loads(pickle.dumps(error))
        assert type(again) is type(error) and again.__dict__ == error.__dict__
        assert str(again) == "text"


def test_a_code_of_a_later_library():
    assert zorbe.Error("text", -99).code == -99
