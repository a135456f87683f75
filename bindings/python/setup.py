# SPDX-License-Identifier: MIT
"""The extension with the libraries inside: those of the tree around, which CMake builds for it, or
outside of the tree the installed ones, which pkg-config finds."""
import glob
import os
import pathlib
import subprocess

from setuptools import Extension, setup
from setuptools.command.build_ext import build_ext

try:
    from setuptools.command.bdist_wheel import bdist_wheel
except ImportError:  # before setuptools 70.1
    from wheel.bdist_wheel import bdist_wheel

LIBRARIES = ["ZorbeTable", "Zorbe", "ZorbePlatform"]  # each needs those after it
TREE = pathlib.Path(__file__).resolve().parents[2]


def is_in_tree():
    return (TREE / "table" / "include" / "zorbe" / "table.h").exists()


def build_libraries(folder):
    """Those of the tree, below `folder`. Returns the folders of headers and the archives."""
    options = ["-DCMAKE_BUILD_TYPE=Release", "-DZORBE_HARDENED=ON"]
    options += [f"-DZORBE_BUILD_{part}=OFF" for part in ("EXAMPLES", "PYTHON", "TESTS", "TOOLS")]
    subprocess.run(["cmake", "-S", TREE, "-B", folder, *options], check=True)
    subprocess.run(["cmake", "--build", folder, "--parallel", str(os.cpu_count()), "--target",
                    "ZorbeStatic", "ZorbePlatformStatic", "ZorbeTableStatic"], check=True)
    archives = [next(pathlib.Path(folder).rglob(f"lib{name}.a")) for name in LIBRARIES]
    return [str(TREE / part) for part in ("include", "platform", "table/include")], archives


def find_libraries():
    """The installed ones."""
    def ask(*question):
        command = [os.environ.get("PKG_CONFIG", "pkg-config"), *question, "zorbe-table"]
        return subprocess.run(command, check=True, capture_output=True, text=True).stdout.split()

    headers = [flag[2:] for flag in ask("--cflags-only-I", "--keep-system-cflags")]
    folder, = ask("--variable=libdir")
    return headers, [pathlib.Path(folder) / f"lib{name}.a" for name in LIBRARIES]


class BuildWithLibraries(build_ext):
    """Links the archives, so that the wheel needs no library but the C and C++ ones."""

    def build_extension(self, ext):
        if is_in_tree():
            headers, archives = build_libraries(os.path.join(self.build_temp, "libraries"))
        else:
            headers, archives = find_libraries()
        ext.include_dirs += headers
        ext.extra_objects += [str(archive) for archive in archives]
        super().build_extension(ext)


class WheelForLaterVersions(bdist_wheel):
    """The limited API: one wheel for this version of Python and every later one."""

    def finalize_options(self):
        self.py_limited_api = "cp311"
        super().finalize_options()


# The exception tables and the thread of a writer need the C++ library; its symbols stay inside.
EXTENSION = Extension(
    "zorbe._table", sorted(glob.glob("src/*.c")), py_limited_api=True, libraries=["stdc++"],
    define_macros=[("Py_LIMITED_API", "0x030B0000")],
    extra_compile_args=["-std=c11", "-fvisibility=hidden"],
    extra_link_args=["-Wl,--exclude-libs,ALL", "-Wl,-z,now"])

setup(ext_modules=[EXTENSION],
      cmdclass={"build_ext": BuildWithLibraries, "bdist_wheel": WheelForLaterVersions})
