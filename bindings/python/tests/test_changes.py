# SPDX-License-Identifier: MIT
"""Following a table."""
import asyncio
import signal
import threading
import time

import pytest

import zorbe
from conftest import child


def kinds_and_keys(changes):
    return [(change.kind, change.key) for change in changes]


def test_a_reader_gets_all_records_and_then_what_changes(quotes):
    quotes["a"] = (1, 2)
    quotes.publish()  # not by itself, while it is read
    with zorbe.Reader("quotes") as reader:
        changes = list(reader.changes(timeout=0))
        assert kinds_and_keys(changes) == [("reset", None), ("put", "a"), ("complete", None)]
        assert changes[1].value == (1, 2) and changes[1].value.size == 2
        assert changes[0].value is None
        quotes["b"] = (3, 4)
        del quotes["a"]
        quotes.publish()
        changes = list(reader.changes(timeout=0))
        assert sorted(kinds_and_keys(changes)) == [("erased", "a"), ("put", "b")]
        assert changes[0].sequence < changes[1].sequence
        assert list(reader.changes(timeout=0)) == []


def test_an_iterator_that_has_ended_stays_so(quotes):
    with zorbe.Reader("quotes") as reader:
        changes = reader.changes(timeout=0)
        assert kinds_and_keys(changes) == [("reset", None), ("complete", None)]
        quotes["a"] = (1, 2)
        quotes.publish()
        assert list(changes) == []
        assert kinds_and_keys(reader.changes(timeout=0)) == [("put", "a")]


def test_waiting_releases_the_interpreter(quotes):
    """Otherwise this thread would never store what the other one waits for."""
    found = []
    is_complete = threading.Event()

    def follow():
        with zorbe.Reader("quotes") as reader:
            for change in reader.changes():
                if change.kind == "complete":
                    is_complete.set()
                if change.kind == "put":
                    found.append(change)
                    return

    thread = threading.Thread(target=follow)
    thread.start()
    is_complete.wait()
    quotes["a"] = (1, 2)
    quotes.publish()
    thread.join()
    assert found[0].key == "a"


def test_a_reader_follows_a_table_that_is_made_later():
    with zorbe.Reader("later") as reader:
        assert list(reader.changes(timeout=0)) == []
        with zorbe.Writer("later", key="u4", fields={"n": "u4"}) as table:
            table[7] = (8,)
            table.publish()
            changes = reader.changes(timeout=60)
            assert [next(changes).kind for _ in range(3)] == ["reset", "put", "complete"]
            assert reader[7].n == 8


@pytest.mark.parametrize("timeout, error", [("1", TypeError), (float("nan"), ValueError)])
def test_timeouts_that_are_none(quotes, timeout, error):
    with zorbe.Reader("quotes") as reader:
        with pytest.raises(error):
            next(reader.changes(timeout=timeout))


def test_timeouts_at_their_limits(quotes):
    with zorbe.Reader("quotes") as reader:
        assert next(reader.changes(timeout=float("inf"))).kind == "reset"
        assert next(reader.changes(timeout=1e300)).kind == "complete"
        assert list(reader.changes(timeout=-1)) == []
        assert list(reader.changes(timeout=0.01)) == []


def wait_until_asleep(process):
    """Its first thread waits in a system call."""
    deadline = time.monotonic() + 60
    while time.monotonic() < deadline:
        with open(f"/proc/{process.pid}/task/{process.pid}/stat", encoding="ascii") as file:
            if file.read().rpartition(")")[2].split()[0] == "S":
                return
    pytest.fail("it does not wait")


def test_an_interrupt_ends_waiting(quotes):
    process = child("""
        import sys, zorbe
        changes = zorbe.Reader("quotes").changes()
        print([next(changes).kind, next(changes).kind], flush=True)
        try:
            next(changes)
        except KeyboardInterrupt:
            print("interrupted")
    """)
    assert process.stdout.readline() == "['reset', 'complete']\n"
    wait_until_asleep(process)
    process.send_signal(signal.SIGINT)
    output, errors = process.communicate(timeout=60)
    assert (output, errors, process.returncode) == ("interrupted\n", "", 0)


@pytest.mark.parametrize("receiver", ["main", "other"])
def test_a_signal_handler_runs_while_the_reader_waits_on(quotes, receiver):
    """Also where another thread has received the signal."""
    process = child(f"""
        import signal, threading, zorbe
        def handle(number, frame):
            print("handled", flush=True)
        signal.signal(signal.SIGUSR1, handle)
        threading.Thread(target=threading.Event().wait, daemon=True).start()
        if "{receiver}" == "other":
            signal.pthread_sigmask(signal.SIG_BLOCK, [signal.SIGUSR1])
        changes = zorbe.Reader("quotes").changes()
        print([next(changes).kind, next(changes).kind], flush=True)
        print(next(changes).key, flush=True)
    """)
    assert process.stdout.readline() == "['reset', 'complete']\n"
    wait_until_asleep(process)
    process.send_signal(signal.SIGUSR1)
    assert process.stdout.readline() == "handled\n"
    quotes["a"] = (1, 2)
    quotes.publish()
    assert process.communicate(timeout=60) == ("a\n", "")


def test_a_reader_follows_the_next_table_of_its_name(quotes):
    with zorbe.Reader("quotes") as reader:
        list(reader.changes(timeout=0))
        quotes.close()
        with zorbe.Writer("quotes", key=zorbe.text(15),
                          fields={"price": "i8", "size": "u4", "more": "u4"},
                          replace_other_schema=True) as table:
            table["b"] = (3, 4, 5)
            table.publish()
            changes = reader.changes(timeout=60)
            assert [next(changes).kind for _ in range(3)] == ["reset", "put", "complete"]
            assert reader["b"] == (3, 4)


def test_a_table_that_cannot_be_read_is_reported_once(quotes):
    with zorbe.Reader("quotes") as reader:
        list(reader.changes(timeout=0))
        quotes.close()
        with zorbe.Writer("quotes", key="u4", fields="u4", replace_other_schema=True):
            with pytest.raises(zorbe.Error) as error:
                next(reader.changes(timeout=60))
            assert error.value.code == zorbe.ErrorCode.SCHEMA
            assert "quotes" in str(error.value)
            assert reader.state == zorbe.State.REFUSED
            assert list(reader.changes(timeout=0)) == []


def test_another_loop_drives_a_reader(quotes):
    import select
    with zorbe.Reader("quotes") as reader:
        list(reader.changes(timeout=0))
        poll = select.poll()
        poll.register(reader.fileno(), select.POLLIN)
        quotes["a"] = (1, 2)
        quotes.publish()
        found = []
        while not found:
            assert poll.poll(60000)
            reader.process()
            found = kinds_and_keys(reader.changes(timeout=0))
        assert found == [("put", "a")]


def test_asyncio_follows_while_other_tasks_run(quotes):
    async def follow(reader, is_complete):
        async for change in reader.changes():
            if change.kind == "complete":
                is_complete.set()
            if change.kind == "put":
                return change.key, change.value

    async def main():
        is_complete = asyncio.Event()
        with zorbe.Reader("quotes") as reader:
            task = asyncio.create_task(follow(reader, is_complete))
            await is_complete.wait()
            quotes["a"] = (1, 2)
            quotes.publish()
            return await task

    assert asyncio.run(main()) == ("a", (1, 2))


def test_asyncio_ends_with_the_timeout(quotes):
    async def main():
        with zorbe.Reader("quotes") as reader:
            found = [change.kind async for change in reader.changes(timeout=0)]
            assert found == ["reset", "complete"]
            return [change async for change in reader.changes(timeout=0.01)]

    assert asyncio.run(main()) == []


def test_asyncio_can_be_cancelled_and_the_reader_used_further(quotes):
    async def main():
        with zorbe.Reader("quotes") as reader:
            list(reader.changes(timeout=0))
            task = asyncio.create_task(reader.changes().__anext__())
            await asyncio.sleep(0)
            with pytest.raises(zorbe.Error, match="another task"):
                await reader.changes().__anext__()
            task.cancel()
            with pytest.raises(asyncio.CancelledError):
                await task
            quotes["a"] = (1, 2)
            quotes.publish()
            return (await reader.changes(timeout=60).__anext__()).key

    assert asyncio.run(main()) == "a"
