# SPDX-License-Identifier: MIT
"""What the package says about itself."""
import ast
import inspect
import pathlib
import pydoc

import zorbe
from zorbe import _table

FOLDER = pathlib.Path(zorbe.__file__).parent


def test_help_is_readable():
    text = pydoc.plain(pydoc.render_doc(zorbe))
    for words in ("one process writes records", "class Reader", "class Writer", "changes(self, timeout",
                  "to_numpy", "class DuplicateWriter", "text(size"):
        assert words in text, words
    assert "_zorbe" not in text


def test_everything_public_is_documented():
    for name in zorbe.__all__:
        thing = getattr(zorbe, name)
        assert thing.__module__ == "zorbe"
        assert inspect.getdoc(thing), name
    for class_ in (zorbe.Reader, zorbe.Writer):
        for name, member in inspect.getmembers(class_):
            if not name.startswith("_"):
                assert inspect.getdoc(member), f"{class_.__name__}.{name}"


def test_the_extension_is_of_the_limited_api():
    assert _table.__file__.endswith("/_table.abi3.so")


def test_the_stubs_name_what_the_extension_has():
    assert (FOLDER / "py.typed").exists()
    stubs = {node.name: {one.name for one in node.body if isinstance(one, ast.FunctionDef)}
             for node in ast.parse((FOLDER / "_table.pyi").read_text()).body
             if isinstance(node, ast.ClassDef)}
    for name, class_ in inspect.getmembers(_table, inspect.isclass):
        ordinary = {"__doc__", "__new__", "__module__", "__buffer__"}  # the last from 3.12 on
        assert stubs.pop(name) == set(vars(class_)) - ordinary, name
    assert not stubs
