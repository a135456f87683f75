# SPDX-License-Identifier: MIT
"""A root directory of its own for each test, and a process to try things in."""
import subprocess
import sys
import textwrap

import pytest

import zorbe


@pytest.fixture(autouse=True)
def root(tmp_path, monkeypatch):
    """Where the tables of this test are."""
    monkeypatch.setenv("SHMEM_ROOT", str(tmp_path / "tables"))
    return tmp_path / "tables"


@pytest.fixture
def quotes():
    """A writer with text keys and two numbers."""
    with zorbe.Writer("quotes", key=zorbe.text(15), fields={"price": "i8", "size": "u4"}) as table:
        yield table


def child(code):
    """A Python process that runs this; its standard input and output are pipes."""
    return subprocess.Popen([sys.executable, "-c", textwrap.dedent(code)], stdin=subprocess.PIPE,
                            stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)


def output_of(code):
    """What such a process prints; it has to succeed, and to write no errors."""
    process = child(code)
    output, errors = process.communicate(timeout=120)
    assert (process.returncode, errors) == (0, "")
    return output
