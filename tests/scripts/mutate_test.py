"""Which failures kill a mutant, which do not count, and which end the run of scripts/mutate."""

import contextlib
import io
import os
import pathlib
import shutil
import tempfile
import unittest
import unittest.mock

import script

SOURCE = "int f() { return g() + 1; }\n"


class Attempt(unittest.TestCase):
    """Tries one mutant with a build and a test program that are shell scripts."""

    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = pathlib.Path(folder.name)
        self.mutate = script.load("mutate")
        self.mutate.COPIES = self.folder / "copies"
        self.mutate.PROGRAMS = {"a-test": ()}
        self.copy = self.mutate.Copy(1)
        self.copy.limits = {"a-test": 30}
        self.copy.build.mkdir(parents=True)
        (self.copy.path / "a.h").write_text(SOURCE)
        script.write_program(self.copy.path / "scripts/compiler-cache", "")
        self.at_build("true")
        self.at_test("true")

    def at_build(self, commands):
        script.write_program(self.folder / "bin/cmake",
                             f'target=$(eval echo "\\${{$#}}")\n{commands}')

    def at_test(self, commands):
        script.write_program(self.copy.build / "tests/a-test", commands)

    def with_own_programs(self):
        """Programs in bin/ take the place of the machine's."""
        path = f"{self.folder}/bin:{os.environ['PATH']}"
        return unittest.mock.patch.dict(os.environ, PATH=path)

    def attempt(self):
        at = SOURCE.index("+")
        mutant = self.mutate.Mutant("a.h", at, at + 1, "-", SOURCE)
        with self.with_own_programs(), \
                contextlib.redirect_stdout(io.StringIO()) as self.printed:
            return self.copy.attempt(mutant)

    def prepare(self):
        self.mutate.ROOT = self.folder / "tree"
        script.write_program(self.mutate.ROOT / "scripts/compiler-cache", "compiler_cache=()")
        script.write_program(self.folder / "bin/git", "printf 'scripts/compiler-cache\\0'")
        with self.with_own_programs():
            self.copy.prepare()

    def test_starts_only_if_all_programs_pass_without_a_mutant(self):
        self.prepare()
        self.at_test("exit 1")
        with self.assertRaisesRegex(self.mutate.Failed, "a-test fails without a mutant"):
            self.prepare()

    def test_survives_if_all_pass(self):
        self.assertEqual(self.attempt(), "")

    def test_is_killed_by_a_test_that_fails_twice(self):
        self.at_test("exit 1")
        self.assertEqual(self.attempt(), "a-test")

    def test_is_killed_by_a_program_that_hangs_twice(self):
        self.copy.limits = {"a-test": 0.1}
        self.at_test("sleep 30")
        self.assertEqual(self.attempt(), "the time limit of a-test")

    def test_is_not_killed_by_a_test_that_fails_once(self):
        self.at_test(f"mkdir {self.folder}/once || exit 0; exit 1")
        self.assertEqual(self.attempt(), "")
        self.assertIn("did not happen again: failure of a-test", self.printed.getvalue())

    def test_does_not_count_if_a_test_does_not_compile(self):
        self.at_build("case $target in a-test) echo 'a.h:1:18: error: no g'; exit 1; esac")
        self.assertIsNone(self.attempt())

    def test_does_not_count_if_a_test_cannot_be_linked(self):
        self.at_build("case $target in a-test)\n"
                      "echo 'a.cc: undefined reference to `g()'; exit 1; esac")
        self.assertIsNone(self.attempt())

    def test_ends_the_run_if_the_compiler_is_killed(self):
        for target in ("quillon-tv-plugin-static", "a-test"):
            self.at_build(f"case $target in {target})\n"
                          "echo 'g++: fatal error: Killed signal terminated program cc1plus'\n"
                          "exit 1; esac")
            with self.assertRaisesRegex(self.mutate.Failed, f"cannot build {target}"):
                self.attempt()

    def test_ends_the_run_if_the_disk_is_full(self):
        self.at_build("echo 'a.s: Fatal error: a.o: No space left on device'; exit 1")
        with self.assertRaisesRegex(self.mutate.Failed, "cannot build"):
            self.attempt()
        self.at_build("true")
        self.at_test("exit 1")
        usage = shutil.disk_usage(self.folder)._replace(free=4096)
        with unittest.mock.patch("shutil.disk_usage", return_value=usage):
            with self.assertRaisesRegex(self.mutate.Failed, "the disk of .* is full"):
                self.attempt()

    def test_ends_the_run_if_a_test_program_is_killed(self):
        self.at_test("kill -9 $$")
        with self.assertRaisesRegex(self.mutate.Failed, "a-test was killed"):
            self.attempt()

    def tearDown(self):
        self.assertEqual((self.copy.path / "a.h").read_text(), SOURCE)


class Mutants(unittest.TestCase):
    def mutants_of(self, source):
        """Returns what the mutants of a source make of it."""
        with tempfile.TemporaryDirectory() as folder:
            mutate = script.load("mutate")
            mutate.ROOT = pathlib.Path(folder)
            (mutate.ROOT / "a.cc").write_text(source)
            return {mutant.applied(source) for mutant in mutate.Maker("a.cc").make()}

    def test_change_a_number_by_one(self):
        self.assertEqual(self.mutants_of("int a = 10;\n"), {"int a = 11;\n", "int a = 9;\n"})

    def test_set_a_time_to_nothing(self):
        self.assertEqual(self.mutants_of("int a = 10;  // milliseconds\n"),
                         {"int a = 0;  // milliseconds\n"})

    def test_keep_deleted_functions(self):
        self.assertEqual(self.mutants_of("{\n  A& operator=(const A&) = delete;\n}\n"), set())


if __name__ == "__main__":
    unittest.main()
