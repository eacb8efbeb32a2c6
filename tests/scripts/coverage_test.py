"""Which uncovered lines have a reason, and whose counters scripts/coverage reports as lost."""

import contextlib
import io
import pathlib
import socket
import tempfile
import time
import unittest

import script

SOURCE = """bool f() {
  if (a()) {
    return false;
  }
  if (b()) {
    return false;
  }
  return true;
}
"""


class Reasons(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.coverage = script.load("coverage")
        self.coverage.ROOT = pathlib.Path(folder.name)
        self.coverage.REASONS = self.coverage.ROOT / "uncovered.txt"
        (self.coverage.ROOT / "a.cc").write_text(SOURCE)

    def check(self, *lines, function="entries_are_true", arguments=()):
        self.coverage.REASONS.write_text("\n".join(lines) + "\n")
        with contextlib.redirect_stdout(io.StringIO()) as self.printed:
            return getattr(self.coverage, function)(*arguments)

    def test_an_entry_of_one_line_is_good(self):
        self.assertTrue(self.check("# Reason.", "a.cc: if (a()) {"))

    def test_an_entry_of_two_lines_fails(self):
        self.assertFalse(self.check("# Reason.", "a.cc: return false;"))
        self.assertIn("lines 3, 6: add the line before", self.printed.getvalue())

    def test_the_line_before_tells_equal_lines_apart(self):
        entry = "a.cc: return false;  // after: if (b()) {"
        self.assertTrue(self.check("# Reason.", entry))
        gaps = {"a.cc": {6: ["never ran"]}}
        self.assertTrue(self.check("# Reason.", entry, function="compare", arguments=(gaps,)))
        gaps["a.cc"][3] = ["never ran"]
        self.assertFalse(self.check("# Reason.", entry, function="compare", arguments=(gaps,)))
        self.assertIn("a.cc:3: never ran: return false;", self.printed.getvalue())
        self.assertNotIn("a.cc:6:", self.printed.getvalue())

    def test_an_entry_of_no_line_fails(self):
        self.assertFalse(self.check("# Reason.", "a.cc: return false;  // after: if (c()) {"))
        self.assertFalse(self.check("# Reason.", "b.cc: return false;"))

    def test_an_entry_without_a_reason_fails(self):
        self.assertFalse(self.check("a.cc: if (a()) {"))


class Counters(unittest.TestCase):
    NAME = b"0123456789abcdef"

    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.coverage = script.load("coverage")
        self.coverage.BUILD = self.coverage.COUNTERS = pathlib.Path(folder.name)
        self.files = self.coverage.CounterFiles()
        self.addCleanup(self.files.listener.close)

    def connect(self):
        client = socket.socket(socket.AF_UNIX, socket.SOCK_SEQPACKET)
        client.connect(f"\0{self.coverage.BUILD}/coverage")
        client.send(self.NAME)
        return client

    def expect(self, shared, lost):
        deadline = time.monotonic() + 60
        while (self.files.shared, self.files.lost) != (shared, lost):
            self.assertLess(time.monotonic(), deadline, (self.files.shared, self.files.lost))
            time.sleep(0.01)

    def test_are_shared(self):
        with self.connect() as client:
            _, descriptors, _, _ = socket.recv_fds(client, 1, 1)
            self.assertEqual(len(descriptors), 1)
            open(descriptors[0], "rb").close()
        self.expect(1, 0)

    def test_are_lost_if_the_process_cannot_use_the_file(self):
        with self.connect() as client:
            client.recv(1)
            client.send(b"\0")
        self.expect(0, 1)

    def test_are_lost_if_the_file_cannot_be_opened(self):
        self.coverage.COUNTERS = pathlib.Path("/no/such/folder")
        with self.connect() as client:
            self.assertEqual(client.recv(1), b"")
        self.expect(0, 1)


if __name__ == "__main__":
    unittest.main()
