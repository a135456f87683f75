# SPDX-License-Identifier: MIT
"""The examples, and programs in C++: what one side writes the other one reads."""
import os
import pathlib
import subprocess
import sys

import pytest

import zorbe

EXAMPLES = pathlib.Path(__file__).resolve().parents[3] / "examples" / "python"
PROGRAMS = os.environ.get("ZORBE_EXAMPLE_PROGRAMS")


@pytest.mark.skipif(not PROGRAMS, reason="the examples are not built")
def test_a_table_of_a_program_in_cpp():
    subprocess.run([f"{PROGRAMS}/table-writer"], input="ABC 99.5 100.5\nXYZ 1 2\n", text=True,
                   check=True)
    with zorbe.Reader("prices") as reader:
        assert reader["ABC"].bid == 99.5 and reader["ABC"].ask == 100.5
        assert dict(reader) == {"ABC": (99.5, 100.5), "XYZ": (1, 2)}
    with zorbe.Writer("prices") as table:
        assert table["XYZ"] == (1, 2)
    with zorbe.Writer("prices", key=zorbe.text(8), fields={"bid": "f8", "ask": "f8"}) as table:
        assert len(table) == 2


@pytest.mark.skipif(not PROGRAMS, reason="the examples are not built")
def test_a_program_in_cpp_reads_a_table_of_python():
    with zorbe.Writer("prices", key=zorbe.text(8), fields={"bid": "f8", "ask": "f8"}) as table:
        table["ABC"] = (99.5, 100.5)
        table.publish()
        reader = subprocess.Popen([f"{PROGRAMS}/table-reader"], stdout=subprocess.PIPE, text=True)
        try:
            assert reader.stdout.readline() == "ABC 99.5 100.5\n"
            table["XYZ"] = {"bid": 1, "ask": 2}
            table.publish()
            assert reader.stdout.readline() == "XYZ 1 2\n"
        finally:
            reader.kill()
            reader.communicate()


def start(name, *arguments):
    """An example, whose standard input and output are pipes."""
    return subprocess.Popen([sys.executable, EXAMPLES / name, *arguments], text=True,
                            stdin=subprocess.PIPE, stdout=subprocess.PIPE)


def end(process):
    process.kill()
    process.communicate()


def enter(process, line):
    process.stdin.write(line)
    process.stdin.flush()


def test_the_first_programs():
    reader, writer = start("reader.py"), start("writer.py")
    try:
        enter(writer, "ABC 99.5 100.5\n")
        assert reader.stdout.readline() == "ABC 99.5 100.5\n"
        enter(writer, "XYZ 1 2\n")
        assert reader.stdout.readline() == "XYZ 1.0 2.0\n"
        writer.communicate(timeout=60)
        assert writer.returncode == 0
    finally:
        end(reader)
        end(writer)


def test_the_program_that_looks_up():
    pytest.importorskip("numpy")
    start("writer.py").communicate("ABC 99.5 100.5\nXYZ 101 103\n", timeout=60)
    output, _ = start("lookup.py", "ABC", "NONE").communicate(timeout=60)
    assert output == ("ABC 99.5 100.5\nNONE has no record\nspreads {'ABC': 1.0, 'XYZ': 2.0}\n"
                      "highest XYZ\n")


def test_the_program_that_follows():
    with zorbe.Writer("prices", key=zorbe.text(8), fields={"bid": "f8", "ask": "f8"}) as table:
        table["ABC"] = (1, 2)
        table.publish()
        program = start("follow.py")
        try:
            found = ""
            while found != "[('ABC', 1.0, 2.0)]\n":  # it has begun to follow
                enter(program, "\n")
                found = program.stdout.readline()
            del table["ABC"]
            table["XYZ"] = (3, 4)
            table.publish()
            while found != "[('XYZ', 3.0, 4.0)]\n":
                enter(program, "\n")
                found = program.stdout.readline()
            program.communicate(timeout=60)
            assert program.returncode == 0
        finally:
            end(program)
