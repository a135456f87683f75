# SPDX-License-Identifier: MIT
"""What a program may do wrong: an exception, and never a crash."""
import gc
import multiprocessing
import os
import shutil
import threading
import weakref

import pytest

import zorbe
from zorbe import _table
from conftest import output_of


def uses_of(table):
    yield from (lambda: table["a"], lambda: table.get("a"), lambda: "a" in table,
                lambda: len(table), lambda: list(table), lambda: list(table.items()),
                lambda: table._copy_records(), lambda: table.info, lambda: table.fields)
    if isinstance(table, zorbe.Reader):
        yield from (lambda: next(table.changes(timeout=0)), lambda: table.fileno(),
                    lambda: table.process(), lambda: table.refresh())
    else:
        yield from (lambda: table.__setitem__("a", (1, 2)), lambda: table.__delitem__("a"),
                    lambda: table.publish(), lambda: table.clear())


def test_a_closed_table(quotes):
    quotes["a"] = (1, 2)
    quotes.publish()  # not by itself, while it is read
    reader = zorbe.Reader("quotes")
    for table in (reader, quotes):
        iterator, is_closed = iter(table), table.closed
        assert not is_closed
        table.close()
        table.close()
        assert table.closed
        for use in (*uses_of(table), lambda: next(iterator)):
            with pytest.raises(zorbe.Error) as error:
                use()
            assert error.value.code == zorbe.ErrorCode.CLOSED


def test_a_table_that_was_never_opened():
    for type_ in (zorbe.Reader, zorbe.Writer, _table.Table):
        table = type_.__new__(type_)
        assert table.closed
        table.close()
        with pytest.raises(RuntimeError):
            table["a"]
        with pytest.raises(RuntimeError):
            iter(table)


def test_a_table_that_is_opened_again(quotes):
    reader = zorbe.Reader("quotes")
    for table in (reader, quotes):
        with pytest.raises(RuntimeError, match="open already"):
            table.__init__("quotes")
    reader.close()
    reader.__init__("quotes")
    assert len(reader) == 0
    reader.close()


def test_types_of_the_extension_are_not_for_programs():
    for type_ in (_table.Scan, _table.Memory):
        with pytest.raises(TypeError):
            type_()
    for arguments in ((), (1,), (b"a",), (b"a", b"", 0)):
        with pytest.raises(TypeError):
            _table.ReaderTable()._open(*arguments)
        with pytest.raises(TypeError):
            _table.WriterTable()._open(*arguments)


class Closing:
    """Becomes a key or a number, and closes the table before."""

    def __init__(self, table):
        self.table = table

    def __index__(self):
        self.table.close()
        return 1


@pytest.mark.parametrize("use", [
    lambda table, one: table[one], lambda table, one: one in table, lambda table, one: table.get(one),
    lambda table, one: table.__setitem__(one, (1,)), lambda table, one: table.__delitem__(one),
    lambda table, one: table.__setitem__(1, (one,))])
def test_a_key_or_value_that_closes_the_table(use):
    with zorbe.Writer("closing", key="u4", fields="u4") as table:
        table[1] = (1,)
        with pytest.raises(zorbe.Error) as error:
            use(table, Closing(table))
        assert error.value.code == zorbe.ErrorCode.CLOSED


def test_a_reader_in_two_threads(quotes):
    """While one thread waits, calls of another one are refused, and the first is not disturbed."""
    refused, found = [], []
    with zorbe.Reader("quotes") as reader:
        list(reader.changes(timeout=0))

        def follow():
            found.append(next(reader.changes()).key)

        thread = threading.Thread(target=follow)
        thread.start()
        while not refused and thread.is_alive():
            try:
                reader.get("a")
            except zorbe.Error as error:
                refused.append(error)
        quotes["a"] = (1, 2)
        quotes.publish()
        thread.join()
    assert refused[0].code == zorbe.ErrorCode.USAGE and "another thread" in str(refused[0])
    assert found == ["a"]


def test_a_writer_in_many_threads(quotes):
    def store(number):
        for i in range(500):
            quotes[f"{number}.{i}"] = (i, number)
            assert quotes[f"{number}.{i}"] == (i, number)
            if i % 50 == 0:
                quotes.publish()
                quotes._copy_records()

    threads = [threading.Thread(target=store, args=(number,)) for number in range(4)]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    assert len(quotes) == 2000


def test_a_child_process_after_fork(quotes):
    quotes["a"] = (1, 2)
    quotes.publish()  # not by itself, while it is read
    with zorbe.Reader("quotes") as reader:
        assert reader["a"] == (1, 2)
        pid = os.fork()
        if pid == 0:
            status = 1
            try:
                assert reader["a"] == (1, 2)
                for use in (lambda: quotes["a"], lambda: quotes.publish(),
                            lambda: quotes.__setitem__("a", (3, 4)),
                            lambda: next(reader.changes()), lambda: reader.fileno()):
                    with pytest.raises(zorbe.Error) as error:
                        use()
                    assert error.value.code == zorbe.ErrorCode.CLOSED
                reader.close()
                quotes.close()
                status = 0
            finally:
                os._exit(status)
        assert os.waitstatus_to_exitcode(os.waitpid(pid, 0)[1]) == 0
        quotes["b"] = (3, 4)
        quotes.publish()
        assert reader["b"] == (3, 4)


def test_a_child_process_while_another_thread_waits(quotes):
    """That thread is not in the child."""
    quotes["a"] = (1, 2)
    quotes.publish()  # not by itself, while it is read
    with zorbe.Reader("quotes") as reader:
        list(reader.changes(timeout=0))
        thread = threading.Thread(target=lambda: next(reader.changes()))
        thread.start()
        refused = False
        while not refused and thread.is_alive():
            try:
                reader.get("a")
            except zorbe.Error:
                refused = True
        assert refused
        pid = os.fork()
        if pid == 0:
            status = 1
            try:
                status = 0 if reader.get("a") == (1, 2) else 2
            finally:
                os._exit(status)
        assert os.waitstatus_to_exitcode(os.waitpid(pid, 0)[1]) == 0
        quotes["b"] = (3, 4)
        quotes.publish()
        thread.join()


def look_up(name):
    with zorbe.Reader(name) as reader:
        return reader["a"]


def test_multiprocessing(quotes):
    """Records go from process to process, tables by their names."""
    quotes["a"] = (1, 2)
    with multiprocessing.get_context("spawn").Pool(1) as pool:
        assert pool.apply(look_up, ("quotes",)) == quotes["a"]
        with pytest.raises(TypeError, match="cannot pickle"):
            pool.apply(len, (quotes,))


def test_a_removed_table(quotes, root):
    quotes["a"] = (1, 2)
    quotes.publish()  # not by itself, while it is read
    reader = zorbe.Reader("quotes")
    list(reader.changes(timeout=0))
    quotes.close()
    shutil.rmtree(root / "quotes")
    assert reader["a"] == (1, 2)
    with zorbe.Writer("quotes", key=zorbe.text(15), fields={"price": "i8", "size": "u4"}) as table:
        table["b"] = (3, 4)
        table.publish()
        for change in reader.changes(timeout=60):  # perhaps the old table's once more, before
            if change.key == "b":
                break
        assert reader.get("a") is None and reader["b"] == (3, 4)
    reader.close()


@pytest.mark.parametrize("end", ["", "import os; os.kill(os.getpid(), 0)", "raise SystemExit"])
def test_the_interpreter_ends_with_everything_open(end):
    assert output_of(f"""
        import threading, zorbe
        table = zorbe.Writer("ending", key="u4", fields="u4")
        table.update({{i: (i,) for i in range(100)}})
        table.publish()
        reader = zorbe.Reader("ending")
        scan, changes = iter(reader.items()), reader.changes()
        print(len([next(scan), next(changes)]), flush=True)
        cycle = [table, reader, scan, changes]
        cycle.append(cycle)
        other = zorbe.Reader("ending")
        def follow():
            for change in other.changes():
                pass
        threading.Thread(target=follow, daemon=True).start()
        {end}
    """) == "2\n"


def test_iterators_keep_their_table():
    with zorbe.Writer("kept", key="u4", fields="u4") as table:
        table[1] = (1,)
        reader = zorbe.Reader("kept")
        scan, gone = iter(reader), weakref.ref(reader)
        del reader
        assert list(scan) == [1]
        gc.collect()
        assert gone() is None


def test_a_subinterpreter_has_types_of_its_own(quotes):
    """It ends with a table open, and this one goes on."""
    interpreters = pytest.importorskip("_xxsubinterpreters")
    quotes["a"] = (1, 2)
    one = interpreters.create(isolated=False)
    interpreters.run_string(one, "import zorbe; table = zorbe.Reader('quotes'); "
                                 "assert table['a'] == (1, 2); scan = iter(table)")
    interpreters.destroy(one)
    with zorbe.Reader("quotes") as reader:
        assert reader["a"].price == 1
