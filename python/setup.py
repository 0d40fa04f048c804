"""KORVANE_WHEEL_LIBRARY names a library that the wheel is to carry; without it the package uses an installed one."""

import os
import shutil

from setuptools import setup
from setuptools.command.build_py import build_py

carried = os.environ.get("KORVANE_WHEEL_LIBRARY")
commands = {}

if carried:
    from wheel.bdist_wheel import bdist_wheel

    class BuildWithLibrary(build_py):
        def run(self):
            super().run()
            shutil.copyfile(carried, os.path.join(self.build_lib, "korvane", "libkorvane.so"))

    class PlatformWheel(bdist_wheel):
        def finalize_options(self):
            super().finalize_options()
            self.root_is_pure = False

        def get_tag(self):
            return "py3", "none", super().get_tag()[2]

    commands = {"build_py": BuildWithLibrary, "bdist_wheel": PlatformWheel}

setup(cmdclass=commands)
