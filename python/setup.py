# SPDX-License-Identifier: MIT
"""Packs a folder that python/make_wheel has filled: nothing is compiled here."""

import os

from setuptools import Distribution, setup
from wheel.bdist_wheel import bdist_wheel


class Built(Distribution):
    """It has an extension, though none is built here: what is installed depends on the machine."""

    def has_ext_modules(self):
        return True


class Wheel(bdist_wheel):
    def finalize_options(self):
        self.py_limited_api = "cp311"
        super().finalize_options()

    def get_tag(self):
        return "cp311", "abi3", os.environ["KA_PLATFORM"]


setup(
    name="kahost",
    version=os.environ["KA_VERSION"],
    description="Calls function modules, native code in processes of their own",
    license="MIT",
    python_requires=">=3.11",
    packages=["kahost"],
    package_data={"kahost": ["*.so", "*.pyi", "py.typed", "include/**/*", "lib*/*", "bin/*", "examples/*"]},
    entry_points={"console_scripts": ["ka = kahost.__main__:run_ka"]},
    distclass=Built,
    cmdclass={"bdist_wheel": Wheel},
    zip_safe=False,
)
