# SPDX-License-Identifier: MIT
"""With programs in C++: what one side writes the other one reads."""
import os
import subprocess

import pytest

import zorbe

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
