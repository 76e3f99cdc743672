"""The bill of materials, the comparison and the release's checks, on a small program of no use, and
the reproducible build on a small project. No SDK is needed.

usage: release_test.py
"""
import hashlib
import json
import os
import pathlib
import plistlib
import re
import struct
import subprocess
import sys
import tempfile
import unittest

ROOT = pathlib.Path(__file__).resolve().parents[2]
VERSION = re.search(r"project\(KorvelHelper VERSION ([\d.]+)",
                    (ROOT / "CMakeLists.txt").read_text(encoding="utf-8")).group(1)
COMMIT = "0123456789abcdef" * 2 + "01234567"
HEADER = """// SPDX-FileCopyrightText: 2013 Somebody <https://example.com>
// SPDX-License-Identifier: MIT
"""
LICENCES = ("Copyright 2013 Somebody <https://example.com>\n"
            "Permission is hereby granted, free of charge\n")
VERSIONS = "".join(f"#define NLOHMANN_JSON_VERSION_{part} {number}\n"
                   for part, number in (("MAJOR", 3), ("MINOR", 99), ("PATCH", 7)))
# One object is the helper's and one is a test's, which reads a header that the helper does not.
DEPENDENCIES = """KorvelHelper/core.o: #deps 3, deps mtime 1 (VALID)
    host/nlohmann/json.hpp
    {headers}/nlohmann/detail/output.hpp
    sdk/usr/include/a.h

Tests/test.o: #deps 1, deps mtime 1 (VALID)
    host/nlohmann/only_for_tests.hpp
"""


def run(*words, **more):
    return subprocess.run([str(word) for word in words], text=True, capture_output=True,
                          check=False, timeout=300, **more)


def made_program(version=VERSION, code=b"\x1f\x20\x03\xd5" * 8):
    """A file that counts as a program with a property list and no symbols."""
    facts = plistlib.dumps({"CFBundleShortVersionString": version})
    sections = ((b"__text", code), (b"__info_plist", facts))
    size = 72 + 80 * len(sections)
    symbols = struct.pack("<6I", 2, 24, 0, 0, 0, 0)
    offset = start = 32 + size + len(symbols)
    described, content = b"", b""
    for name, data in sections:
        described += struct.pack("<16s16s2Q8I", name, b"__TEXT", offset, len(data), offset,
                                 *[0] * 7)
        content += data
        offset += len(data)
    commands = size + len(symbols)
    header = struct.pack("<8I", 0xFEEDFACF, 0x0100000C, 0, 2, 2, commands, 0x200000, 0)
    segment = struct.pack("<2I16s4Q4I", 0x19, size, b"__TEXT", 0, offset, 0, offset, 5, 5,
                          len(sections), 0)
    assert len(header + segment + described + symbols) == start
    return header + segment + described + symbols + content


class InAFolder(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = pathlib.Path(folder.name)

    def put(self, name, content):
        path = self.folder / name
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_bytes(content if isinstance(content, bytes) else content.encode())
        return path


class Bill(InAFolder):
    TOOLS = ("--tool", "clang", "clang 1", "--tool", "lld", "lld 1", "--tool", "cmake", "cmake 1")

    def make_build(self, place):
        self.put(f"{place}/host/nlohmann/json.hpp", HEADER + VERSIONS)
        self.put(f"{place}/host/nlohmann/only_for_tests.hpp", HEADER)
        self.put(f"{place}/elsewhere/nlohmann/detail/output.hpp", HEADER + "// Output\n")
        self.put(f"{place}/sdk/usr/include/a.h", "int a(void);\n")
        self.put(f"{place}/sdk/SDKSettings.json", '{"Version": "14.5"}')
        self.put(f"{place}/deps", DEPENDENCIES.format(headers=self.folder / place / "elsewhere"))
        self.put(f"{place}/KorvelHelper", made_program())

    def describe(self, place):
        build = self.folder / place
        return run(ROOT / "script/macos-sbom", "--commit", COMMIT, "--epoch", 1700000000, "--sdk",
                   build / "sdk", "--dependencies", build / "deps", *self.TOOLS, build,
                   build / "KorvelHelper")

    def release(self, place="build"):
        """A folder as script/macos-release writes it, of a made build."""
        self.make_build(place)
        done = self.describe(place)
        self.assertEqual(done.returncode, 0, done.stderr)
        self.put("out/KorvelHelper", made_program())
        self.put("out/KorvelHelper.spdx.json", done.stdout)
        self.put("out/third-party-licences.txt", LICENCES)
        self.put("out/SHA256SUMS", "".join(
            f"{hashlib.sha256((self.folder / 'out' / name).read_bytes()).hexdigest()}  {name}\n"
            for name in ("KorvelHelper", "KorvelHelper.spdx.json", "third-party-licences.txt")))
        return self.folder / "out"

    def check(self, *words):
        return run(ROOT / "script/macos-release-check", *words)

    def test_names_what_was_compiled_in_and_nothing_of_the_tests(self):
        bill = json.loads((self.release() / "KorvelHelper.spdx.json").read_text(encoding="utf-8"))
        self.assertEqual([f["fileName"] for f in bill["files"]],
                         ["./KorvelHelper", "./include/nlohmann/detail/output.hpp",
                          "./include/nlohmann/json.hpp"])
        library = next(p for p in bill["packages"] if p["name"] == "nlohmann-json")
        self.assertEqual((library["versionInfo"], library["licenseDeclared"]), ("3.99.7", "MIT"))
        self.assertEqual(library["copyrightText"], "Copyright 2013 Somebody <https://example.com>")
        sdk = next(p for p in bill["packages"] if p["name"] == "macOS SDK")
        self.assertEqual(sdk["versionInfo"], "14.5")
        self.assertTrue(sdk["comment"].startswith("1 headers were read"), sdk["comment"])
        self.assertEqual(bill["creationInfo"]["created"], "2023-11-14T22:13:20Z")

    def test_is_the_same_for_builds_in_two_places(self):
        bills = []
        for place in ("one", "another/place"):
            self.make_build(place)
            bills.append(self.describe(place).stdout)
        self.assertEqual(*bills)
        self.assertNotIn(str(self.folder), bills[0])
        self.put("one/sdk/usr/include/a.h", "int b(void);\n")
        self.assertNotEqual(self.describe("one").stdout, bills[0])

    def test_passes_the_checks_which_notice_each_spoiled_copy(self):
        out = self.release()
        done = self.check("--headers", self.folder / "build/host", out)
        self.assertIn("output.hpp is not among the headers to compare with", done.stdout)
        self.put("build/host/nlohmann/detail/output.hpp", HEADER + "// Output\n")
        done = self.check("--headers", self.folder / "build/host", out)
        self.assertEqual((done.returncode, done.stdout.count("ok ")), (0, 10), done.stdout)
        done = self.check("--self-test", out)
        self.assertEqual(done.returncode, 0, done.stdout)
        self.assertRegex(done.stdout, r"^(\d+) of \1 spoiled copies noticed\n$")

    def test_of_another_program_or_another_header_is_refused(self):
        out = self.release()
        self.put("build/host/nlohmann/detail/output.hpp", HEADER + "// Other\n")
        done = self.check("--headers", self.folder / "build/host", out)
        self.assertEqual(done.returncode, 1)
        self.assertIn("output.hpp: the SHA256 is not that of the header", done.stdout)
        self.put("out/KorvelHelper", made_program(version="9.9.9"))
        done = self.check("--self-test", out)
        self.assertEqual(done.returncode, 1)
        self.assertIn("MISSED nothing is spoiled yet", done.stdout)

    def test_is_not_made_of_headers_that_do_not_say_enough(self):
        for header, missing in (("", "a header of the library names no licence"),
                                (HEADER + VERSIONS.replace("99", "98"), "name 2 versions")):
            self.make_build("build")
            self.put("build/elsewhere/nlohmann/detail/output.hpp", header)
            done = self.describe("build")
            self.assertEqual((done.returncode, done.stdout), (1, ""))
            self.assertIn(missing, done.stderr)
        self.put("build/deps", "Tests/test.o: #deps 1\n    host/nlohmann/json.hpp\n")
        self.assertIn("not recorded that the helper's", self.describe("build").stderr)


class Comparison(InAFolder):
    def compare(self, first, second):
        return run(ROOT / "script/macos/compare.py", self.folder / first, self.folder / second)

    def test_says_nothing_of_equal_programs(self):
        for side in ("one", "two"):
            self.put(f"{side}/program", made_program())
        done = self.compare("one", "two")
        self.assertEqual((done.returncode, done.stdout), (0, ""))

    def test_says_offset_and_section_of_the_first_difference(self):
        first = made_program()
        self.put("one", first)
        second = self.put("two", made_program(code=b"\x1f\x20\x03\xd5" * 7 + b"\xc0\x03\x5f\xd6"))
        done = self.compare("one", "two")
        self.assertEqual(done.returncode, 1)
        offset = 32 + 72 + 160 + 24 + 28
        self.assertIn(f"first difference at offset {offset:#x}, in section __TEXT,__text\n",
                      done.stdout)
        self.assertNotIn("differs: section __TEXT,__info_plist", done.stdout)
        second.write_bytes(first + b"more")
        self.assertIn(f"first difference at offset {len(first):#x}\n",
                      self.compare("one", "two").stdout)

    def test_names_a_file_that_one_side_lacks(self):
        self.put("one/a", "a")
        self.put("one/b", "b")
        self.put("two/a", "a")
        done = self.compare("one", "two")
        self.assertEqual((done.returncode, done.stdout), (1, "b: only in the first\n"))


PROJECT = f"""cmake_minimum_required(VERSION 3.25)
project(Small LANGUAGES CXX)
if(REPRODUCIBLE)
  include({ROOT}/cmake/macos/Reproducible.cmake)
endif()
add_library(part STATIC part.cpp)
add_executable(small main.cpp)
target_link_libraries(small PRIVATE part)
"""
PART = "#include <place.h>\nconst char *part(bool here) { return here ? __FILE__ : place(); }\n"
MAIN = "const char *part(bool);\nint main(int count, char **) { return part(count > 1)[0]; }\n"


class ReproducibleBuild(InAFolder):
    """A program without any library, linked for a Mac by the project's own toolchain file."""

    def build(self, place, reproducible):
        sdk = f"{place}/sdk"
        self.put(f"{sdk}/usr/include/place.h", "inline const char *place() { return __FILE__; }\n")
        (self.folder / sdk / "System/Library/Frameworks").mkdir(parents=True, exist_ok=True)
        for name, text in (("CMakeLists.txt", PROJECT), ("part.cpp", PART), ("main.cpp", MAIN)):
            self.put(f"{place}/tree/{name}", text)
        tree = self.folder / place / "tree"
        environment = {**os.environ, "CCACHE_DISABLE": "1"}
        environment.pop("CMAKE_CXX_COMPILER_LAUNCHER", None)
        for words in (("cmake", "-G", "Ninja", "-S", tree, "-B", tree / "build", "-Wno-dev",
                       "-DCMAKE_BUILD_TYPE=RelWithDebInfo", f"-DREPRODUCIBLE={reproducible}",
                       f"-DMACOSX_SDK={self.folder / sdk}",
                       f"-DCMAKE_TOOLCHAIN_FILE={ROOT}/cmake/macos/cross-toolchain.cmake"),
                      ("cmake", "--build", tree / "build")):
            done = run(*words, env=environment)
            self.assertEqual(done.returncode, 0, done.stdout + done.stderr)
        return tree / "build/small"

    def compare(self, *programs):
        return run(ROOT / "script/macos/compare.py", *programs)

    def test_gives_the_same_bytes_in_two_places_and_names_neither(self):
        programs = [self.build(place, "ON") for place in ("one", "another place, a longer name")]
        done = self.compare(*programs)
        self.assertEqual((done.returncode, done.stdout), (0, ""))
        data = programs[0].read_bytes()
        self.assertNotIn(str(self.folder).encode(), data)
        self.assertIn(b"/korvel/part.cpp\0", data)
        self.assertIn(b"/sdk/usr/include/place.h\0", data)

    def test_keeps_the_lines_of_the_sources(self):
        program = self.build("one", "ON")
        symbols = self.folder / "small.dSYM"
        done = run("dsymutil-19", "-o", symbols, "small", cwd=program.parent)
        self.assertEqual((done.returncode, done.stderr), (0, ""))
        listed = run("llvm-dwarfdump-19", "--debug-info", symbols).stdout
        for name in ("/korvel/part.cpp", "/korvel/main.cpp"):
            self.assertIn(f'DW_AT_name\t("{name}")', listed)
        lines = run("llvm-dwarfdump-19", "--debug-line", symbols).stdout
        self.assertIn('name: "part.cpp"', lines)
        self.assertIn("is_stmt", lines)

    def test_would_differ_without_its_rules(self):
        done = self.compare(*(self.build(place, "OFF") for place in ("one", "two")))
        self.assertEqual(done.returncode, 1)
        self.assertIn("differs: names of symbols, sources and object files", done.stdout)


# Its helper is a file that its own tree may get into, and its client is empty.
SMALL_TREE = """cmake_minimum_required(VERSION 3.25)
project(KorvelHelper VERSION 2.0.0 LANGUAGES CXX)
include_directories(${CMAKE_SOURCE_DIR})
add_subdirectory(KorvelHelper)
file(MAKE_DIRECTORY ${CMAKE_BINARY_DIR}/KorvelHelper/macOS ${CMAKE_BINARY_DIR}/Packaging)
add_custom_target(korvel_helper_macos VERBATIM
  COMMAND ${CMAKE_COMMAND} -E copy ${CMAKE_SOURCE_DIR}/program KorvelHelper/macOS/KorvelHelper
  COMMAND sh -c "printf '%s' '@added@' >>KorvelHelper/macOS/KorvelHelper")
add_custom_target(korvel_client COMMAND ${CMAKE_COMMAND} -E touch Packaging/korvel-client)
add_dependencies(korvel_helper_macos core)
"""
PRESETS = """{"version": 6, "configurePresets": [
  {"name": "macos-cross", "generator": "Ninja", "binaryDir": "${sourceDir}/build/macos-cross"}]}"""


class Release(InAFolder):
    def small_release(self, added):
        """The script in a small tree of its own, whose helper ends in the text `added`."""
        for name in (path.relative_to(ROOT) for pattern in ("common.sh", "macos*", "macos/*.py")
                     for path in (ROOT / "script").glob(pattern) if path.is_file()):
            self.put(f"tree/{name}", (ROOT / name).read_bytes()).chmod(0o755)
        for name, content in (("CMakeLists.txt", SMALL_TREE.replace("@added@", added)),
                              ("CMakePresets.json", PRESETS), ("program", made_program()),
                              ("KorvelHelper/CMakeLists.txt",
                               "add_library(core OBJECT core.cpp)\n"),
                              ("KorvelHelper/core.cpp", "#include <nlohmann/json.hpp>\n"),
                              ("Packaging/third-party-licences.txt", LICENCES),
                              ("nlohmann/json.hpp", HEADER + VERSIONS)):
            self.put(f"tree/{name}", content)
        for folder in ("usr/include", "System/Library/Frameworks"):
            (self.folder / "sdk" / folder).mkdir(parents=True, exist_ok=True)
        git = ("git", "-C", self.folder / "tree", "-c", "user.name=A",
               "-c", "user.email=a@example.com")
        for words in (("init", "-q"), ("add", "."), ("commit", "-q", "-m", "All")):
            done = run(*git, *words)
            self.assertEqual(done.returncode, 0, done.stderr)
        return run(self.folder / "tree/script/macos-release", self.folder / "out",
                   env={**os.environ, "MACOSX_SDK": str(self.folder / "sdk")})

    def test_of_builds_that_differ_says_where_and_writes_nothing(self):
        done = self.small_release("${CMAKE_SOURCE_DIR}")
        self.assertEqual(done.returncode, 1, done.stdout + done.stderr)
        self.assertRegex(done.stdout, r"KorvelHelper: first difference at offset 0x[0-9a-f]+\n")
        self.assertIn("the builds differ, as said above; nothing was written", done.stderr)
        self.assertFalse((self.folder / "out").exists())

    def test_of_builds_that_are_the_same_goes_on_to_check_the_program(self):
        done = self.small_release("equal")
        self.assertEqual(done.returncode, 1, done.stdout + done.stderr)
        self.assertIn("the same: KorvelHelper ", done.stdout, done.stderr)
        self.assertIn("FAIL loads the seven expected libraries and no others", done.stdout)
        self.assertFalse((self.folder / "out").exists())

    def release(self, *words, **variables):
        return run(ROOT / "script/macos-release", *words,
                   env={**os.environ, "MACOSX_SDK": "", **variables})

    def test_is_refused_before_anything_is_built(self):
        out = self.folder / "out"
        (self.folder / "sdk/usr/include").mkdir(parents=True)
        sdk = {"MACOSX_SDK": str(self.folder / "sdk")}
        self.assertIn("MACOSX_SDK is not set", self.release(out).stderr)
        self.assertIn("is no macOS SDK", self.release(out, **sdk).stderr)
        (self.folder / "sdk/System/Library/Frameworks").mkdir(parents=True)
        done = self.release(self.folder, **sdk)
        self.assertEqual(done.returncode, 1)
        self.assertIn(f"{self.folder} is not an empty folder", done.stderr)
        done = self.release(out, SOURCE_DATE_EPOCH="today", **sdk)
        self.assertIn("SOURCE_DATE_EPOCH=today is no number of seconds", done.stderr)
        self.assertEqual(self.release().returncode, 2)
        self.assertFalse(out.exists())

    def test_explains_itself(self):
        done = self.release("--help")
        self.assertEqual(done.returncode, 0)
        self.assertIn("usage: MACOSX_SDK=DIRECTORY script/macos-release FOLDER", done.stdout)


if __name__ == "__main__":
    sys.dont_write_bytecode = True
    unittest.main(verbosity=2)
