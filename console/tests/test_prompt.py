"""zorv's prompt at a real terminal (a pseudo-terminal): keys edit the line, history recalls it
and is kept in a file, and Ctrl-C takes back a half-typed line before it ends the session."""

import os
import pty
import select
import tempfile
import time
import unittest

ZORV = os.environ.get("ZORV", "")
LEFT, UP = b"\x1b[D", b"\x1b[A"


@unittest.skipUnless(ZORV and os.path.exists(ZORV), "ZORV does not name the built console")
class PromptTest(unittest.TestCase):
    def setUp(self):
        self.history = tempfile.mktemp(prefix="zorv-history-")
        self.addCleanup(lambda: os.path.exists(self.history) and os.remove(self.history))
        env = dict(os.environ, TERM="xterm", ZORV_HISTORY=self.history)
        self.pid, self.fd = pty.fork()
        if self.pid == 0:
            os.execve(ZORV, [ZORV], env)
        self.seen = b""

    def tearDown(self):
        try:
            os.kill(self.pid, 9)
            os.waitpid(self.pid, 0)
        except OSError:
            pass
        os.close(self.fd)

    def expect(self, text, count=1, timeout=10):
        deadline = time.monotonic() + timeout
        while self.seen.count(text) < count:
            left = deadline - time.monotonic()
            self.assertGreater(left, 0, "no %r in %r" % (text, self.seen))
            if select.select([self.fd], [], [], left)[0]:
                try:
                    self.seen += os.read(self.fd, 4096)
                except OSError:
                    break
        self.assertGreaterEqual(self.seen.count(text), count, self.seen)

    def type(self, *keys):
        for key in keys:  # one write per key, as a terminal delivers them
            os.write(self.fd, key)
            time.sleep(0.05)

    def test_editing_history_and_interrupt(self):
        self.expect(b"zorv> ")
        self.type(b":jbs", LEFT, LEFT, b"o", b"\r")  # the missing letter typed in the middle
        self.expect(b"No jobs.")
        self.type(UP, b"\r")  # recalled from history
        self.expect(b"No jobs.", 2)
        self.type(b"LIST", b"\x03")  # Ctrl-C on a half-typed line: the line goes, zorv stays
        self.expect(b"^C")
        self.type(b"LIST\r", b"\x03")  # an open command is taken back the same way
        self.expect(b"^C", 2)
        self.type(b":jobs\r")
        self.expect(b"No jobs.", 3)
        self.type(b"\x03")  # nothing typed: Ctrl-C ends the session
        _, status = os.waitpid(self.pid, 0)
        self.assertTrue(os.WIFEXITED(status), status)
        with open(self.history, encoding="utf-8") as kept:
            self.assertIn(":jobs", kept.read())
        self.assertNotIn(b"unrecognized", self.seen)


if __name__ == "__main__":
    unittest.main()
