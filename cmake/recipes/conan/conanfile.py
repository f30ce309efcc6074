"""Untried; see README.md."""

import os

from conan import ConanFile
from conan.tools.cmake import CMake, CMakeDeps, CMakeToolchain


class Kestrel(ConanFile):
    name = "kestrel"
    version = "7.5.0"
    description = "Embeddable script engine for record processing"
    package_type = "shared-library"
    settings = "os", "arch", "compiler", "build_type"
    requires = "asmjit/cci.20230325", "re2/20230301", "simdjson/3.6.3", "zlib/1.3", "zstd/1.5.5", \
        "libutf8proc/2.8.0"  # the module codec, which needs nettle, is left out

    def layout(self):
        self.folders.root = os.path.join("..", "..", "..")
        self.folders.build = "build-conan"

    def generate(self):
        CMakeDeps(self).generate()
        toolchain = CMakeToolchain(self)
        for part in ("CLI", "PYTHON", "POSTGRESQL", "TESTS"):
            toolchain.cache_variables["KESTREL_" + part] = False
        toolchain.generate()

    def build(self):
        cmake = CMake(self)
        cmake.configure()
        cmake.build()

    def package(self):
        CMake(self).install()

    def package_info(self):
        self.cpp_info.libs = ["kestrel"]
        self.cpp_info.includedirs = [os.path.join("include", "kestrel")]
