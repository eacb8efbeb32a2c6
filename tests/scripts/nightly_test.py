"""What scripts/nightly counts as a failure, and what its summary says of each step."""

import contextlib
import io
import os
import pathlib
import sys
import tempfile
import unittest
import unittest.mock

import script


class Night(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.nightly = script.load("nightly")
        self.nightly.ROOT = pathlib.Path(folder.name)
        self.nightly.RESULTS = self.nightly.ROOT / "results"

    def run_step(self, text, needs=()):
        """The exit status and the summary of a night with one step."""
        step = self.nightly.ROOT / "step"
        script.write_program(step, text)
        self.nightly.STEPS = (("step", str(step), needs),)
        with contextlib.redirect_stdout(io.StringIO()), \
                unittest.mock.patch.object(sys, "argv", ["nightly"]):
            status = self.nightly.main()
        return status, (self.nightly.RESULTS / "summary.md").read_text()

    def test_a_step_that_meets_its_goals_passes(self):
        status, summary = self.run_step("echo 'figure: launches | 7 | 5 | met'")
        self.assertEqual(status, 0)
        self.assertIn("## Fell short\n\nNothing.", summary)
        self.assertIn("| step | launches | 7 | 5 | met |", summary)

    def test_a_missed_goal_falls_short(self):
        status, summary = self.run_step("echo 'figure: launches | 4 | 5 | missed'")
        self.assertEqual(status, 1)
        self.assertIn("- step: launches: 4; the goal is 5", summary)

    def test_a_failure_falls_short_and_its_last_lines_are_shown(self):
        status, summary = self.run_step("echo why; exit 3")
        self.assertEqual(status, 1)
        self.assertIn("- step: failed: status 3", summary)
        self.assertIn("## The end of step.log\n\n```\nwhy\n```", summary)

    def test_a_step_that_hangs_is_ended(self):
        self.nightly.LONGEST_STEP = 0.1
        status, summary = self.run_step("exec sleep 60")
        self.assertEqual(status, 1)
        self.assertIn("- step: ended after", summary)

    def test_a_step_that_says_that_it_cannot_run_is_no_failure(self):
        status, summary = self.run_step("echo no browser; exit 77")
        self.assertEqual(status, 0)
        self.assertIn("- step: not run: no browser", summary)

    def test_a_step_without_what_it_needs_does_not_run(self):
        status, summary = self.run_step("exit 1", ("no-such-program",))
        self.assertEqual(status, 0)
        self.assertIn("- step: not run: this machine lacks no-such-program", summary)

    def test_neither_git_nor_a_clone_is_needed(self):
        self.assertIn("\nCommit unknown, ", self.run_step("true")[1])  # the folder is no clone
        with unittest.mock.patch.dict(os.environ, {"PATH": "/no-such-folder"}):
            self.assertIn("\nCommit unknown, ", self.run_step("true")[1])

    def test_a_long_night_falls_short(self):
        self.nightly.LONGEST_NIGHT = 0
        status, summary = self.run_step("true")
        self.assertEqual(status, 1)
        self.assertIn("- All steps together took", summary)


if __name__ == "__main__":
    unittest.main()
