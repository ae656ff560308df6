"""The trained build: what it refuses, that counts of one build folder are used in another, and the runs it learns from.

The arguments are cmake, the C++ compiler and the built program."""

import os
import re
import subprocess
import sys
import tempfile
import unittest

CMAKE, COMPILER, CORVANE = sys.argv[1:4]
del sys.argv[1:4]
ROOT = os.path.abspath(os.path.join(os.path.dirname(__file__), "../.."))
RUNS = os.path.join(ROOT, "scripts", "training-runs.sh")

# One source that is counted, one that is not, and the rules of the real project.
PROJECT = f"""cmake_minimum_required(VERSION 3.25)
project(tiny LANGUAGES CXX)
set(CORVANE_OPTIMIZE_LINKS ON)
list(APPEND CMAKE_MODULE_PATH {ROOT}/cmake)
include(CorvaneProfile)
include(CorvaneTarget)
add_library(hot STATIC Hot.cpp)
corvane_target(hot)
corvane_hot_library(hot)
add_executable(plain main.cpp)
target_link_libraries(plain PRIVATE hot)
add_executable(program main.cpp)
corvane_optimize_link(program)
target_link_libraries(program PRIVATE hot)
"""
HOT = "int hot(int i) {\n  if (i > 1) {\n    return i * 3;\n  }\n  return i / 7;\n}\n"
CHANGED = HOT.replace("i > 1", "i > 1 && i % 5 > 0")
MAIN = ("int hot(int i);\nint main(int count, char**) {\n  int sum = 0;\n"
        "  for (int i = 0; i < 1000; ++i) sum += hot(i + count);\n  return sum == 0;\n}\n")


def run(*words):
    """(exit status, all that it said, line breaks and all other space made one space)"""
    ended = subprocess.run(words, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, timeout=200)
    return ended.returncode, re.sub(r"\s+", " ", ended.stdout)


def compiler_is_gcc_12():
    said = run(COMPILER, "-dM", "-E", "-x", "c++", "/dev/null")[1]
    version = re.search(r"#define __GNUC__ (\d+)", said)
    return "__clang__" not in said and version and int(version[1]) >= 12


class InFolder(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory(prefix="corvane-training-test.")
        self.addCleanup(folder.cleanup)
        self.folder = folder.name

    def path(self, *names):
        return os.path.join(self.folder, *names)

    def write(self, name, text):
        with open(self.path(name), "w", encoding="utf-8") as file:
            file.write(text)


class Refusing(InFolder):
    def configured(self, *options):
        return run(CMAKE, "-S", ROOT, "-B", self.path("build"), f"-DCMAKE_CXX_COMPILER={COMPILER}", *options)

    def read_with(self, *options):
        """What the file of the profiles alone says to another compiler."""
        return run(CMAKE, *options, "-P", os.path.join(ROOT, "cmake", "CorvaneProfile.cmake"))

    def test_a_value_that_is_neither_record_nor_use(self):
        for value in ("recrod", "records", "USE", "OFF"):
            status, said = self.configured(f"-DCORVANE_PROFILE={value}")
            self.assertIn(f"CORVANE_PROFILE is '{value}', but may only be record, use or empty", said)
            self.assertNotEqual(status, 0)

    @unittest.skipUnless(compiler_is_gcc_12(), "needs GCC 12")
    def test_a_use_without_profiles_and_names_the_script_that_records_them(self):
        status, said = self.configured("-DCORVANE_PROFILE=use", f"-DCORVANE_PROFILE_DIR={self.path('none')}")
        self.assertIn(f"CORVANE_PROFILE is use, but {self.path('none')} has no profiles (*.gcda): scripts/train.sh "
                      "records them", said)
        self.assertNotEqual(status, 0)

    def test_other_and_older_compilers(self):
        for name, version in (("Clang", "14.0.6"), ("GNU", "11.3.0")):
            status, said = self.read_with(f"-DCMAKE_CXX_COMPILER_ID={name}", f"-DCMAKE_CXX_COMPILER_VERSION={version}",
                                          "-DCORVANE_PROFILE=record")
            self.assertIn(f"CORVANE_PROFILE needs GCC 12 or newer, and the compiler is {name} {version}", said)
            self.assertNotEqual(status, 0)

    def test_no_compiler_when_nothing_is_trained(self):
        compiler = ("-DCMAKE_CXX_COMPILER_ID=Clang", "-DCMAKE_CXX_COMPILER_VERSION=14.0.6")
        self.assertEqual(self.read_with(*compiler), (0, ""))


@unittest.skipUnless(compiler_is_gcc_12(), "needs GCC 12")
class Learning(InFolder):
    def setUp(self):
        super().setUp()
        os.makedirs(self.path("source"))
        self.write("source/CMakeLists.txt", PROJECT)
        self.write("source/Hot.cpp", HOT)
        self.write("source/main.cpp", MAIN)

    def configure(self, build, profile):
        status, said = run(CMAKE, "-S", self.path("source"), "-B", self.path(build), "-DCMAKE_BUILD_TYPE=Release",
                           f"-DCMAKE_CXX_COMPILER={COMPILER}", f"-DCORVANE_PROFILE={profile}",
                           f"-DCORVANE_PROFILE_DIR={self.path('profile')}")
        self.assertEqual(status, 0, said)

    def build(self, build):
        return run(CMAKE, "--build", self.path(build))

    def must_build(self, build):
        status, said = self.build(build)
        self.assertEqual(status, 0, said)
        return said

    def record(self):
        """Runs the counting program, after building it if it is not there; the profiles."""
        if not os.path.exists(self.path("counting")):
            self.configure("counting", "record")
            self.must_build("counting")
        self.assertEqual(run(self.path("counting", "program")), (0, ""))
        return [os.path.join(self.path("profile"), name) for name in os.listdir(self.path("profile"))]

    def knows_what_is_hot(self, build):
        """Whether the compiler knew from counts that the function is called often, and put it with such others."""
        with open(self.path(build, "CMakeFiles", "hot.dir", "Hot.cpp.o"), "rb") as file:
            return b".text.hot" in file.read()

    def test_what_one_folder_counted_another_uses(self):
        self.assertEqual([os.path.basename(path) for path in self.record()], ["CMakeFiles#hot.dir#Hot.cpp.gcda"])
        for build, profile, knows in (("trained", "use", True), ("plain", "", False)):
            self.configure(build, profile)
            self.must_build(build)
            self.assertEqual(self.knows_what_is_hot(build), knows, build)

    def test_other_counts_compile_anew_what_was_counted(self):
        self.record()
        self.configure("trained", "use")
        self.must_build("trained")
        self.assertNotIn("Hot.cpp.o", self.must_build("trained"))
        self.record()
        said = self.must_build("trained")
        self.assertIn("Hot.cpp.o", said)
        self.assertNotIn("main.cpp.o", said)

    def test_a_source_without_counts_is_an_error(self):
        os.rename(self.record()[0], self.path("profile", "other.gcda"))
        self.configure("trained", "use")
        status, said = self.build("trained")
        self.assertNotEqual(status, 0)
        self.assertRegex(said, "Hot.cpp.*-Werror=missing-profile")

    def test_a_source_that_changed_since_is_an_error(self):
        self.record()
        self.write("source/Hot.cpp", CHANGED)
        self.configure("trained", "use")
        status, said = self.build("trained")
        self.assertNotEqual(status, 0)
        self.assertIn("-Werror=coverage-mismatch", said)


class Runs(InFolder):
    def fake(self, status):
        """A program that keeps the name of the folder that it was given, and ends like this."""
        self.write("fake", f"#!/bin/sh\nwhile [ \"$1\" != --output ]; do shift; done\n"
                           f"echo \"$2\" >>{self.path('folders')}\nmkdir -p \"$2\"\necho fake speaks\nexit {status}\n")
        os.chmod(self.path("fake"), 0o755)
        return self.path("fake")

    def folders(self):
        with open(self.path("folders"), encoding="utf-8") as file:
            return [os.path.dirname(line.strip()) for line in file]

    def test_end_clean_with_the_program_of_this_build(self):
        self.assertEqual(run(RUNS, CORVANE, "100"), (0, ""))

    def test_leave_nothing_behind(self):
        self.assertEqual(run(RUNS, self.fake(0)), (0, ""))
        self.assertGreater(len(self.folders()), 20)
        self.assertEqual([folder for folder in self.folders() if os.path.exists(folder)], [])

    def test_stop_at_one_that_does_not_end_clean_and_leave_nothing_behind(self):
        status, said = run(RUNS, self.fake(3))
        self.assertEqual(status, 1)
        self.assertRegex(said, "^fake speaks training-runs.sh: exit status 3 of: corvane run --drive file:")
        self.assertEqual(len(self.folders()), 1)
        self.assertFalse(os.path.exists(self.folders()[0]))

    def test_want_a_program(self):
        self.assertEqual(run(RUNS, self.path("none"))[0], 2)
        self.assertEqual(run(RUNS)[0], 2)
        self.assertEqual(run(RUNS, CORVANE, "0")[0], 2)


if __name__ == "__main__":
    unittest.main()
