# SPDX-License-Identifier: MIT
"""What turns a changed source of one of the libraries into test programs, and runs them."""
import json
import os
import pathlib
import re
import shlex
import shutil
import signal
import subprocess
import tempfile
import time
from dataclasses import dataclass

ROOT = pathlib.Path(__file__).resolve().parents[3]
# More than one run takes without a fault: this is for faults that never end.
LEAST_SECONDS = 10
TIMES_LONGER = 4
# They end with this process, too, when something ends that.
LIMITED = ("setpriv", "--pdeathsig=KILL", "--", "prlimit", "--cpu=5", f"--as={2 << 30}", "--core=0",
           "--")


@dataclass(frozen=True)
class Library:
    """One of the libraries that faults are put into, and the tests that have to notice."""
    name: str        # of its folder
    programs: tuple  # of test programs; those of one entry are linked into one
    archives: tuple  # what they need besides, below the build's tests/
    by_folder: bool  # the tests of a folder are below one of the same name

    @property
    def sources(self):
        return ROOT / self.name

    def files(self):
        return sorted(p for p in self.sources.rglob("*") if p.suffix in (".cpp", ".h"))

    def tests_of(self, path):
        """The folder of a program's objects with the tests that can notice a fault there."""
        return f"unit/{self.name}/{path.split('/')[0]}" if self.by_folder else ""


LIBRARIES = (
    Library("src", (("library_unit_tests", "library_fault_tests"),), ("libzorbe_fake_platform.a", "libzorbe_kernel_model.a"),
            by_folder=False),
    # Each of the two has an operator new of its own.
    Library("platform", (("platform_fault_tests",), ("platform_unit_tests",)), (), by_folder=True),
)


class Workshop:
    """A copy of a library's sources with everything that turns it into test programs."""

    def __init__(self, library, build, folder):
        self.library = library
        self.build = build
        self.folder = pathlib.Path(folder)
        self.sources = self.folder / library.name
        self.seconds = None  # that the tests may take, not known before the first run
        shutil.copytree(library.sources, self.sources)
        self.commands, self.objects = compile_commands(library, build)
        self.link = link_command(self.commands)
        self.precompile()

    def precompile(self):
        """What the sources include from elsewhere, so that it is compiled once only."""
        lines = {line for source in self.library.sources.rglob("*.cpp")
                 for line in source.read_text().splitlines() if line.startswith("#include <")}
        own = {str(path.relative_to(self.library.sources)) for path in self.library.files()}
        header = self.folder / "elsewhere.h"
        header.write_text("\n".join(sorted(line for line in lines if line[10:-1] not in own)))
        words = next(iter(self.commands.values()))
        words = words[:words.index("-c")]
        subprocess.run([*words, "-x", "c++-header", header, "-o", f"{header}.gch"], cwd=self.build,
                       check=True)
        self.commands = {source: [*command, "-include", str(header)]
                         for source, command in self.commands.items()}

    def compile(self, source):
        """The object made of a source of the library, or None."""
        made = self.folder / (source.replace("/", "_") + ".o")
        command = [word.replace(str(self.library.sources), str(self.sources))
                   for word in self.commands[source]]
        done = subprocess.run([*command, "-o", made], cwd=self.build, stdin=subprocess.DEVNULL,
                              capture_output=True, check=False)
        return made if done.returncode == 0 else None

    def test(self, replaced, tests=""):
        """Whether the tests below that folder pass with these objects, by their sources, in place
        of the library's own; None when they cannot be linked."""
        for targets in self.library.programs:
            program = self.linked(targets, {**self.objects, **replaced}, tests)
            if program is None:
                return None
            if not self.passes(program):
                return False
        return True

    def linked(self, targets, objects, tests):
        program = self.folder / "tests"
        program.unlink(missing_ok=True)
        folders = [self.build / "tests/CMakeFiles" / f"{target}.dir" for target in targets]
        archives = ["libzorbe_test_support.a", *self.library.archives, "libzorbe_test_support.a"]
        # The library first, so that what is inline in a header comes from there, too.
        subprocess.run([*self.link, *objects.values(), *test_objects(folders, tests),
                        *objects_below(self.build / "tests/CMakeFiles/zorbe_fault.dir"),
                        *(self.build / "tests" / archive for archive in archives),
                        "-lgmock_main", "-lgmock", "-lgtest", "-ldl", "-pthread", "-o", program],
                       cwd=self.build, stderr=subprocess.DEVNULL, check=False)
        return program if program.exists() else None

    def passes(self, program):
        with tempfile.TemporaryDirectory() as scratch:
            os.chmod(scratch, 0o777)
            # A session of its own, so that what a test has started ends with it.
            child = subprocess.Popen(
                [*LIMITED, program, "--gtest_brief=1", "--gtest_fail_fast"],
                start_new_session=True, env={**os.environ, "TMPDIR": scratch}, cwd=scratch,
                stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL,
                **harmless())
            try:
                return child.wait(self.seconds) == 0
            except subprocess.TimeoutExpired:
                return False
            finally:
                end(child)

    def passes_without_fault(self):
        """Measures, too, how long the tests take."""
        began = time.monotonic()
        passed = self.test({})
        self.seconds = max(LEAST_SECONDS, TIMES_LONGER * (time.monotonic() - began))
        return passed

    def survives(self, mutant):
        """True, False when the tests notice it, None when it does not compile."""
        file = self.sources / mutant.path
        text = (self.library.sources / mutant.path).read_text()
        file.write_text(mutant.applied(text))
        try:
            replaced = {}
            for source in dependants(self.library, mutant.path, self.commands):
                replaced[source] = self.compile(source)
                if replaced[source] is None:
                    return None
            return self.test(replaced, self.library.tests_of(mutant.path))
        finally:
            file.write_text(text)


def harmless():
    """A fault may remove and write what it should not: not as root."""
    return {"user": 65534, "group": 65534, "extra_groups": []} if os.geteuid() == 0 else {}


def end(child):
    try:
        os.killpg(child.pid, signal.SIGKILL)
    except ProcessLookupError:
        pass  # it has ended, and left nobody
    child.wait()


def compile_commands(library, build):
    """Of each source of the library: how it is compiled without optimisation, without what names
    its object; and the object that the build has made of it."""
    commands, objects = {}, {}
    for entry in json.loads((build / "compile_commands.json").read_text()):
        source = pathlib.Path(entry["file"])
        if library.sources not in source.parents:
            continue
        words = shlex.split(entry["command"])
        at = words.index("-o")
        name = str(source.relative_to(library.sources))
        objects[name] = str(build / words[at + 1])
        words[at:at + 2] = ["-O0", "-g0", "-w", "-Wno-error"]
        commands[name] = words
    return commands, objects


def objects_below(folder):
    """Those whose sources are still there: a build keeps the objects of removed ones."""
    def is_current(path):
        source = str(path.relative_to(folder))[:-len(".o")].replace("__/", "../")
        return not source.startswith(("unit/", "stress/")) or (ROOT / "tests" / source).exists()
    return sorted(str(path) for path in folder.rglob("*.o") if is_current(path))


def test_objects(folders, tests):
    """Those below the folder of tests, and what is not a test of any."""
    return [path for folder in folders for path in objects_below(folder)
            if not path.endswith("_test.cpp.o") or path.startswith(f"{folder}/{tests}")]


def link_command(commands):
    compiler = next(iter(commands.values()))[0]
    fast = ["-fuse-ld=lld"] if shutil.which("ld.lld") else []
    return [compiler, *fast, "-s"]


def dependants(library, path, sources):
    """The sources that have to be compiled again when this file has changed."""
    if path.endswith(".cpp"):
        return [path]
    changed = {path}
    headers = sorted(library.sources.rglob("*.h"))
    for header in headers * 3:  # headers may include one another
        if any(includes(header, name) for name in changed):
            changed.add(str(header.relative_to(library.sources)))
    return [s for s in sources if any(includes(library.sources / s, name) for name in changed)]


def includes(file, name):
    return re.search(rf'^#include ["<]{re.escape(name)}[">]', file.read_text(), re.MULTILINE)
