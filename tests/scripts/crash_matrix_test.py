"""What the table of docs/crashes.md must say, and what scripts/crash-matrix counts as a skip."""

import contextlib
import io
import os
import pathlib
import tempfile
import unittest
import unittest.mock

import script


class Table(unittest.TestCase):
    def setUp(self):
        self.matrix = script.load("crash-matrix")
        self.cells, self.reasons = self.matrix.all_cells()

    def results(self):
        """The results of a run in which every cell ends as expected."""
        return [(cell, self.matrix.Result(self.matrix.expected_end(cell)[0], "", 0,
                                          self.dotnet_end(cell))) for cell in self.cells]

    def dotnet_end(self, cell):
        """Without the plug-in, the signal of the cause ends the process."""
        if not cell.moment.has_counterpart:
            return None
        end = -cell.cause.signal or cell.cause.status
        return self.matrix.DOTNET_DIFFERS.get(cell.cause.name, end)

    def check_page(self, text, writes=False):
        with tempfile.TemporaryDirectory() as folder, \
                contextlib.redirect_stdout(io.StringIO()) as self.printed:
            self.matrix.PAGE = pathlib.Path(folder) / "crashes.md"
            self.matrix.PAGE.write_text(text)
            good = self.matrix.check_page(self.results(), self.reasons, writes)
            return good, self.matrix.PAGE.read_text()

    def test_of_the_page_follows_the_rules(self):
        page = self.matrix.PAGE.read_text()
        self.maxDiff = None
        self.assertEqual(self.matrix.page_with(page, self.results(), self.reasons), page)

    def test_of_the_page_is_compared(self):
        page = self.matrix.PAGE.read_text()
        self.assertEqual(self.check_page(page), (True, page))
        other = page.replace("| SIGKILL | 137 |", "| SIGKILL | 0 |")
        self.assertNotEqual(other, page)
        self.assertEqual(self.check_page(other), (False, other))
        self.assertIn("scripts/crash-matrix --docs", self.printed.getvalue())
        self.assertEqual(self.check_page(other, writes=True), (True, page))


class Skips(unittest.TestCase):
    """Runs the matrix with a shell script instead of the command."""

    def run_with(self, command, **variables):
        matrix = script.load("crash-matrix")
        matrix.LONGEST = 1
        with tempfile.TemporaryDirectory() as folder:
            build = pathlib.Path(folder)
            (build / "CMakeCache.txt").write_text("QUILLON_DOTNET:FILEPATH=/bin/true\n")
            script.write_program(build / "bin/quillon", command)
            arguments = ["crash-matrix", "--build", folder, "--sample", "1", "--only", "prepared"]
            with unittest.mock.patch.dict(os.environ, variables), \
                    unittest.mock.patch("sys.argv", arguments), \
                    contextlib.redirect_stdout(io.StringIO()), \
                    contextlib.redirect_stderr(io.StringIO()) as self.printed:
                if not variables:
                    os.environ.pop("QUILLON_TESTS_MAY_NOT_SKIP", None)
                return matrix.main()

    def test_if_the_machine_allows_no_device_root(self):
        command = "echo 'no namespace' >&2; exit 102"
        self.assertEqual(self.run_with(command), 77)
        self.assertRegex(self.printed.getvalue(), "no device root: (.*\n)*no namespace")
        self.assertEqual(self.run_with(command, QUILLON_TESTS_MAY_NOT_SKIP="1"), 1)

    def test_not_if_a_device_root_cannot_be_made(self):
        self.assertEqual(self.run_with("echo broken >&2; exit 1"), 1)
        self.assertIn("broken", self.printed.getvalue())

    def test_not_if_the_launch_pad_never_gets_ready(self):
        self.assertEqual(self.run_with('mkdir -p "$HOME/device/tmp"'), 1)
        self.assertIn("becomes ready", self.printed.getvalue())


if __name__ == "__main__":
    unittest.main()
