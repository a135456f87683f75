"""The exceptions of the package."""

from __future__ import annotations

import enum


class ErrorCode(enum.IntEnum):
    """What kind of failure an Error reports: the negative codes of the interface in C."""

    FULL = -1  #: the table holds as many records as it may
    NO_SPACE = -2  #: the file system, a quota or a limit leaves no room
    TOO_LARGE = -3  #: the text is longer than the table's keys
    SCHEMA = -4  #: the table has another description
    VERSION = -5  #: the files are of another version or byte order
    DENIED = -6  #: the directory or a file may not be written, read or trusted
    USAGE = -7  #: an argument is wrong, or the reader is in use by another thread
    CLOSED = -8  #: the table was closed, or belongs to the parent process
    SYSTEM = -9  #: another system call failed
    DUPLICATE = -10  #: another process writes the table: DuplicateWriter
    CORRUPT = -11  #: the files contradict themselves
    NO_TABLE = -13  #: a writer without fields found no table


class Error(Exception):
    """A failure of a table. `code` says which kind, the text what failed and what to do."""

    code: ErrorCode

    def __init__(self, text: str, code: int = ErrorCode.USAGE) -> None:
        super().__init__(text)
        try:
            self.code = ErrorCode(code)
        except ValueError:  # of a later version of the library
            self.code = code  # type: ignore[assignment]

    def __reduce__(self) -> tuple:
        return type(self), (self.args[0], int(self.code))


class DuplicateWriter(Error):
    """Another process writes the table: its `pid` (0: not found), and its executable, `owner`."""

    pid: int
    owner: str

    def __init__(self, text: str, pid: int = 0, owner: str = "") -> None:
        super().__init__(text, ErrorCode.DUPLICATE)
        self.pid = pid
        self.owner = owner

    def __reduce__(self) -> tuple:
        return type(self), (self.args[0], self.pid, self.owner)


def make_error(code: int, text: bytes, pid: int, owner: bytes) -> Error:
    """The exception of a negative code; the extension calls this."""
    words = text.decode("utf-8", "surrogateescape")
    if code == ErrorCode.DUPLICATE:
        return DuplicateWriter(words, pid, owner.decode("utf-8", "surrogateescape"))
    return Error(words, code)
