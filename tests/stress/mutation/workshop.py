# SPDX-License-Identifier: MIT
"""What turns a changed source of one of the libraries into test programs, and runs them."""
import functools
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
# They end with this process, too, when something ends that. Their address space has no limit, of
# which a table reserves much.
LIMITED = ("setpriv", "--pdeathsig=KILL", "--", "prlimit", "--cpu=15", f"--data={2 << 30}",
           "--core=0", "--")
# What the tests write is in memory where there is room for it.
MEMORY = pathlib.Path("/dev/shm")
ENOUGH_MEMORY = 1 << 30


@dataclass(frozen=True)
class Library:
    """One of the libraries that faults are put into, and the tests that have to notice."""
    name: str         # of its folder
    programs: tuple   # of test programs; those of one entry are linked into one
    others: tuple     # what they need besides, below the build: archives and folders of objects
    tests: str        # the folder with the tests that can notice a fault in {folder}
    late: str = ""    # the filter of tests that only a fault has to pass that the others miss
    roots: tuple = ("",)  # folders in which the compiler looks for headers
    public: str = None    # the folder of headers with templates, which the tests instantiate

    @property
    def sources(self):
        return ROOT / self.name

    def files(self):
        return sorted(p for p in self.sources.rglob("*") if p.suffix in (".cpp", ".h"))

    def tests_of(self, path):
        """The folder of a program's objects with the tests that can notice a fault there."""
        return self.tests.format(folder=path.split("/")[0])

    def spelled(self, path):
        """How a file is named where it is included."""
        return next(path[len(root):] for root in self.roots if path.startswith(root))

    def is_public(self, path):
        return self.public is not None and path.startswith(self.public)


LIBRARIES = (
    Library("src", (("library_unit_tests", "library_fault_tests"),),
            ("tests/libzorbe_fake_platform.a", "tests/libzorbe_kernel_model.a"), tests=""),
    # Each of the two has an operator new of its own.
    Library("platform", (("platform_fault_tests",), ("platform_unit_tests",)), (),
            tests="unit/platform/{folder}"),
    # In the late ones, a writer and its readers wait for one another's timers.
    Library("table", (("thread_tests", "table_fault_tests", "table_unit_tests"),),
            ("platform/CMakeFiles/ZorbePlatformObjects.dir",
             "tests/CMakeFiles/zorbe_c_program.dir", "src/libZorbe.a"), tests="unit/table",
            late="InLoop*:*LiveHeader.*:TableDisk.*:TableHostile.*:TableKill.*:TableLog.*",
            roots=("include/", "src/"), public="include/"),
)


class Workshop:
    """A copy of a library's sources with everything that turns it into test programs."""

    def __init__(self, library, build, folder):
        self.library = library
        self.build = build
        self.folder = pathlib.Path(folder)
        self.sources = self.folder / library.name
        self.seconds = None  # that the tests may take, not known before the first run
        self.output = subprocess.DEVNULL  # of the tests
        shutil.copytree(library.sources, self.sources)
        self.commands, self.objects = compile_commands(library, build)
        self.tests = test_commands(library, build)
        self.link = link_command(self.commands)
        self.precompile()

    def precompile(self):
        """What the sources include from elsewhere, so that it is compiled once only."""
        lines = {line for source in self.library.sources.rglob("*.cpp")
                 for line in source.read_text().splitlines() if line.startswith("#include <")}
        own = {self.library.spelled(str(path.relative_to(self.library.sources)))
               for path in self.library.files()}
        header = self.folder / "elsewhere.h"
        header.write_text("\n".join(sorted(line for line in lines if line[10:-1] not in own)))
        words = next(iter(self.commands.values()))
        words = words[:words.index("-c")]
        subprocess.run([*words, "-x", "c++-header", header, "-o", f"{header}.gch"], cwd=self.build,
                       check=True)
        self.commands = {source: [*command, "-include", str(header)]
                         for source, command in self.commands.items()}

    def compile(self, source, commands):
        """The object made of a source, or None."""
        made = self.folder / (source.replace("/", "_") + ".o")
        command = [word.replace(str(self.library.sources), str(self.sources))
                   for word in commands[source]]
        done = subprocess.run([*command, "-o", made], cwd=self.build, stdin=subprocess.DEVNULL,
                              capture_output=True, check=False)
        return made if done.returncode == 0 else None

    def test(self, replaced, tests=""):
        """Whether the tests below that folder pass with these objects, by their sources, in place
        of the library's own; None when they cannot be linked."""
        for targets in self.library.programs:
            program = self.linked(test_objects(self.folders(targets), tests), replaced)
            if program is None:
                return None
            if not self.passes(program):
                return False
        return True

    def test_instances(self, path, replaced):
        """Likewise, with the tests of a library that make something of the templates in a header:
        each in a program of its own, because most faults are noticed by the first."""
        support = test_objects(self.folders(*self.library.programs), None)
        for test in dependants(self.library, path, self.tests):
            made = self.compile(test, self.tests)
            program = made and self.linked([made, *support], replaced)
            if not program:
                return None
            if not self.passes(program):
                return False
        return True

    def folders(self, targets):
        return [self.build / "tests/CMakeFiles" / f"{target}.dir" for target in targets]

    def linked(self, tests, replaced):
        program = self.folder / "tests"
        program.unlink(missing_ok=True)
        others = [self.build / other for other in self.library.others]
        archives = [path for path in others if path.suffix == ".a"]
        folders = [path for path in others if path.suffix == ".dir"]
        folders.append(self.build / "tests/CMakeFiles/zorbe_fault.dir")
        support = self.build / "tests/libzorbe_test_support.a"
        # The library first, so that what is inline in a header comes from there, too.
        subprocess.run([*self.link, *{**self.objects, **replaced}.values(), *tests,
                        *(path for folder in folders for path in objects_below(folder)),
                        support, *archives, support,
                        "-lgmock_main", "-lgmock", "-lgtest", "-ldl", "-pthread", "-o", program],
                       cwd=self.build, stderr=subprocess.DEVNULL, check=False)
        return program if program.exists() else None

    def passes(self, program):
        late = self.library.late
        filters = (f"-{late}", late) if late else ("*",)
        return all(self.passes_tests(program, chosen) for chosen in filters)

    def passes_tests(self, program, chosen):
        with tempfile.TemporaryDirectory(dir=memory()) as scratch:
            os.chmod(scratch, 0o777)
            # A session of its own, so that what a test has started ends with it.
            child = subprocess.Popen(
                [*LIMITED, program, "--gtest_brief=1", "--gtest_fail_fast",
                 f"--gtest_filter={chosen}"],
                start_new_session=True, env={**os.environ, "TMPDIR": scratch}, cwd=scratch,
                stdin=subprocess.DEVNULL, stdout=self.output, stderr=self.output, **harmless())
            try:
                return child.wait(self.seconds) == 0
            except subprocess.TimeoutExpired:
                return False
            finally:
                end(child)

    def passes_without_fault(self):
        """Measures, too, how long the tests take, and shows what they say."""
        began = time.monotonic()
        self.output = None
        passed = self.test({}, self.library.tests.partition("{")[0])
        self.output = subprocess.DEVNULL
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
                replaced[source] = self.compile(source, self.commands)
                if replaced[source] is None:
                    return None
            if self.library.is_public(mutant.path):
                passed = self.test_instances(mutant.path, replaced)
                if not passed or not replaced:
                    return passed
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


def memory():
    """The folder for what tests write, None for the usual one."""
    is_usable = os.access(MEMORY, os.W_OK) and shutil.disk_usage(MEMORY).free > ENOUGH_MEMORY
    return MEMORY if is_usable else None


def entries(build, folder):
    """How each source below a folder is compiled: its path, the words up to that of its object,
    the name of that, the words that follow."""
    for entry in json.loads((build / "compile_commands.json").read_text()):
        source = pathlib.Path(entry["file"])
        if folder in source.parents:
            words = shlex.split(entry["command"])
            at = words.index("-o")
            yield source, words[:at], words[at + 1], words[at + 2:]


def compile_commands(library, build):
    """Of each source of the library: how it is compiled without optimisation, without what names
    its object; and the object that the build has made of it."""
    commands, objects = {}, {}
    for source, before, made, after in entries(build, library.sources):
        name = str(source.relative_to(library.sources))
        objects[name] = str(build / made)
        commands[name] = [*before, "-O0", "-g0", "-w", "-Wno-error", *after]
    return commands, objects


def test_commands(library, build):
    """How the tests of a library's templates are compiled."""
    if library.public is None:
        return {}
    tests = ROOT / "tests"
    return {str(source.relative_to(tests)): [*before, "-w", "-Wno-error", *after]
            for source, before, _, after in entries(build, tests / library.tests)}


def objects_below(folder):
    """Those whose sources are still there: a build keeps the objects of removed ones."""
    def is_current(path):
        source = str(path.relative_to(folder))[:-len(".o")].replace("__/", "../")
        return not source.startswith(("unit/", "stress/")) or (ROOT / "tests" / source).exists()
    return sorted(str(path) for path in folder.rglob("*.o") if is_current(path))


def test_objects(folders, tests):
    """Those below the folder of tests, and what is not a test of any, once."""
    found = {path[len(str(folder)):]: path for folder in folders for path in objects_below(folder)}
    return [path for name, path in found.items()
            if not name.endswith("_test.cpp.o")
            or tests is not None and name.startswith(f"/{tests}")]


def link_command(commands):
    compiler = next(iter(commands.values()))[0]
    fast = ["-fuse-ld=lld"] if shutil.which("ld.lld") else []
    return [compiler, *fast, "-s"]


def dependants(library, path, sources):
    """The sources, of the library or of its tests, that have to be compiled again when this file
    of the library has changed."""
    if path.endswith(".cpp"):
        return [path] if path in sources else []
    files = {library.spelled(str(header.relative_to(library.sources))): header
             for header in library.files()}
    tests = ROOT / "tests"
    files.update({str(header.relative_to(tests)): header
                  for folder in ("support", "unit") for header in (tests / folder).rglob("*.h")})
    changed, more = set(), {library.spelled(path)}
    while more:  # headers may include one another
        changed |= more
        more = {name for name, file in files.items()
                if file.suffix == ".h" and included(file) & changed} - changed
    def origin(source):
        return next(p for p in (library.sources / source, tests / source) if p.exists())
    return [source for source in sources if included(origin(source)) & changed]


@functools.lru_cache(maxsize=None)
def included(file):
    """What a file includes."""
    return frozenset(re.findall(r'^#include ["<]([^">]+)[">]', file.read_text(), re.MULTILINE))
