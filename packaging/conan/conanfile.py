"""Builds the tree in which it lies: conan create packaging/conan"""

import os
import re

from conan import ConanFile
from conan.errors import ConanInvalidConfiguration
from conan.tools.build import check_min_cppstd
from conan.tools.cmake import CMake, CMakeToolchain, cmake_layout
from conan.tools.files import copy, load

ROOT = os.path.join("..", "..")
SOURCES = ("CMakeLists.txt", "LICENSE", "README.md", "00shcode/*", "client/*", "cmake/*", "docs/*",
           "examples/*", "packaging/*", "platform/*", "sockif/*", "tools/gdb/*")


class FtclientRecipe(ConanFile):
    name = "ftclient"
    description = "Client-side communication library: one TCP link to one of a few servers"
    package_type = "library"
    settings = "os", "arch", "compiler", "build_type"
    options = {"shared": [True, False]}
    default_options = {"shared": True}

    def set_version(self):
        text = load(self, os.path.join(self.recipe_folder, ROOT, "CMakeLists.txt"))
        self.version = re.search(r"project\(ftclient VERSION ([0-9.]+)", text).group(1)

    def export_sources(self):
        for pattern in SOURCES:
            copy(self, pattern, os.path.join(self.recipe_folder, ROOT), self.export_sources_folder)

    def validate(self):
        check_min_cppstd(self, 17)
        windows = self.settings.os == "Windows"
        if windows and (self.settings.arch != "x86" or self.settings.compiler != "gcc"):
            raise ConanInvalidConfiguration("On Windows, it is built by g++ for 32-bit x86.")
        if not windows and self.settings.os != "Linux":
            raise ConanInvalidConfiguration("There is a backend for Linux and one for Windows.")

    def layout(self):
        cmake_layout(self)

    def generate(self):
        toolchain = CMakeToolchain(self)
        for part in "TOOLS", "TESTS", "EXAMPLES":
            toolchain.cache_variables[f"FTCLIENT_BUILD_{part}"] = False
        toolchain.generate()

    def build(self):
        cmake = CMake(self)
        cmake.configure()
        cmake.build()

    def package(self):
        CMake(self).install()
        copy(self, "LICENSE", self.source_folder, os.path.join(self.package_folder, "licenses"))

    def package_info(self):
        # Hosts get the library's own CMake package.
        self.cpp_info.set_property("cmake_find_mode", "none")
        self.cpp_info.builddirs = [os.path.join("lib", "cmake", "ftclient")]
        self.cpp_info.includedirs = [os.path.join("include", "ftclient")]
        self.cpp_info.libs = ["ftclient"]
        if not self.options.shared:
            self.cpp_info.defines = ["FTCLIENT_STATIC"]
            self.cpp_info.system_libs = ["ws2_32" if self.settings.os == "Windows" else "pthread"]
