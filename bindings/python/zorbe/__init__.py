"""Tables in shared memory: one process writes records, any number of processes read them.

    import zorbe

    with zorbe.Writer("quotes", key=zorbe.text(15), fields={"price": "i8", "size": "u4"}) as table:
        table["IBM"] = (101250, 300)
        table.publish()

    with zorbe.Reader("quotes") as table:           # in another process
        print(table["IBM"].price)
        for change in table.changes(timeout=5):
            print(change.kind, change.key, change.value)

A reader never waits for the writer, and gets each record as a whole.
"""

from ._changes import Changes
from ._errors import DuplicateWriter, Error, ErrorCode
from ._layout import text
from ._reader import Reader
from ._records import Change, Field, Info, Origin, State
from ._writer import Writer

__all__ = ["Reader", "Writer", "text", "Change", "Changes", "Field", "Info", "State", "Origin",
           "Error", "ErrorCode", "DuplicateWriter"]

for _name in __all__:
    globals()[_name].__module__ = "zorbe"  # where users find them, also in help() and pickles
del _name
