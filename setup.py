"""Builds the native module with the repository's CMake build and lays it
out beside the package, with the shared library it loads and the face
detector."""

import glob
import os
import shutil
import subprocess
import sys

from setuptools import Extension, setup
from setuptools.command.build_ext import build_ext

ROOT = os.path.dirname(os.path.abspath(__file__))


class CMakeBuild(build_ext):
    def build_extension(self, ext):
        build = os.path.join(os.path.abspath(self.build_temp), "cmake")
        generator = ["-G", "Ninja"] if shutil.which("ninja") else []
        subprocess.check_call(
            ["cmake", "-S", ROOT, "-B", build, *generator, "-DCMAKE_BUILD_TYPE=Release",
             "-DSMARTCROP_BUILD_TESTS=OFF", "-DSMARTCROP_BUILD_BENCH=OFF",
             f"-DPython3_EXECUTABLE={sys.executable}",
             # The module finds the library beside it ($ORIGIN), wherever installed.
             "-DCMAKE_BUILD_WITH_INSTALL_RPATH=ON"])
        subprocess.check_call(["cmake", "--build", build, "--target", "smartcrop_python",
                               "-j", str(os.cpu_count() or 1)])
        target = os.path.dirname(os.path.abspath(self.get_ext_fullpath(ext.name)))
        os.makedirs(os.path.join(target, "data"), exist_ok=True)
        built = os.path.join(build, "python", "smartcrop")
        for module in glob.glob(os.path.join(built, "_native*.so")):
            shutil.copy2(module, os.path.join(target, os.path.basename(self.get_ext_fullpath(ext.name))))
        for data in glob.glob(os.path.join(built, "data", "*")):
            shutil.copy2(data, os.path.join(target, "data"))
        # The shared library by its soname, which the module asks for.
        library = os.path.realpath(os.path.join(build, "libsmartcrop.so"))
        soname = subprocess.check_output(["objdump", "-p", library], text=True)
        name = next(line.split()[1] for line in soname.splitlines() if "SONAME" in line)
        shutil.copy2(library, os.path.join(target, name))


setup(ext_modules=[Extension("smartcrop._native", sources=[])], cmdclass={"build_ext": CMakeBuild})
