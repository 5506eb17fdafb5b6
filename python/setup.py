"""Builds the package; when the C libraries have been built beside it
(build/lib of the checkout, or ZR_API_LIBRARY_DIR), they go into the
package, where it looks first."""
import os
import shutil

from setuptools import setup
from setuptools.command.build_py import build_py

HERE = os.path.dirname(os.path.abspath(__file__))


class BuildWithLibraries(build_py):
    def run(self):
        super().run()
        folder = os.environ.get("ZR_API_LIBRARY_DIR") or os.path.join(HERE, "..", "build", "lib")
        for name in ("libzr_api.so", "libzr_sim.so"):
            source = os.path.join(folder, name)
            if os.path.exists(source):
                shutil.copy2(os.path.realpath(source), os.path.join(self.build_lib, "zr_api", name))


setup(cmdclass={"build_py": BuildWithLibraries})
