"""zorv while it runs: commands from a pipe and from a terminal as they arrive, the prompt, a running
job's elapsed time, and Ctrl-C or SIGTERM cancelling the jobs and ending their processes.

Run by CTest, which sets ZORV. Jobs run against golden/data/sleeper, a launcher that sleeps (and
logs its process id to $ZORV_TEST_PIDS), so that a job stays running until it is cancelled.
"""
import json
import os
import pty
import select
import shutil
import signal
import subprocess
import tempfile
import time
import unittest

ZORV = os.environ.get("ZORV", "")
SLEEPER = os.path.join(os.path.dirname(os.path.abspath(__file__)), "golden", "data", "sleeper")


def alive(pid):
    try:
        with open("/proc/%d/stat" % pid) as f:
            return f.read().rsplit(")", 1)[1].split()[0] != "Z"  # a zombie has ended
    except OSError:
        return False


@unittest.skipUnless(ZORV and os.path.exists(ZORV), "ZORV does not name the built console")
class Live(unittest.TestCase):
    def setUp(self):
        self.dir = tempfile.mkdtemp(prefix="zorv-live-")
        self.addCleanup(shutil.rmtree, self.dir, True)
        self.fastq = os.path.join(self.dir, "a.fq")
        with open(self.fastq, "w") as f:
            f.write("@r1\nACGT\n+\nIIII\n")
        self.tmp = os.path.join(self.dir, "tmp")
        os.makedirs(self.tmp)
        self.pids = os.path.join(self.dir, "pids")
        self.env = dict(os.environ, TMPDIR=self.tmp, ZORV_TEST_PIDS=self.pids)

    def start(self, *args, **streams):
        p = subprocess.Popen([ZORV, "--install-dir", SLEEPER] + list(args), env=self.env, **streams)
        self.addCleanup(lambda: p.poll() is None and (p.kill(), p.wait()))
        return p

    def read_until(self, fd, text, seen=b"", timeout=20):
        """Reads `fd` until `text` has come; returns what came after it."""
        deadline = time.time() + timeout
        while text.encode() not in seen:
            ready, _, _ = select.select([fd], [], [], max(0, deadline - time.time()))
            self.assertTrue(ready, "waited for %r, saw %r" % (text, seen))
            seen += os.read(fd, 65536)
        return seen[seen.index(text.encode()) + len(text):]

    def job(self, name):
        return "GENOSTAT /JOB FILE='%s' NAME='%s'." % (self.fastq, name)

    def wait_for_process(self):
        deadline = time.time() + 20
        while not os.path.exists(self.pids) and time.time() < deadline:
            time.sleep(0.02)
        self.assertTrue(os.path.exists(self.pids), "the job's process never started")

    def assert_all_ended(self):
        """The jobs' processes are gone and so is zorv's temporary folder."""
        with open(self.pids) as f:
            pids = [int(line) for line in f]
        for pid in pids:
            self.assertFalse(alive(pid), "the job's process %d outlived zorv" % pid)
        self.assertEqual(os.listdir(self.tmp), [], "zorv left its temporary folder behind")
        return pids

    def test_piped_commands_run_as_their_last_line_arrives_and_sigterm_cancels(self):
        p = self.start("--events", "-", stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                       stderr=subprocess.DEVNULL)
        fd = p.stdout.fileno()
        p.stdin.write(b"GENOSTAT /PRINT\n")
        p.stdin.flush()
        self.assertEqual(select.select([fd], [], [], 0.5)[0], [], "ran before its last line came")
        p.stdin.write(b"  MESSAGE=100.\n")
        p.stdin.flush()
        rest = self.read_until(fd, '{"event":"table","title":"Summary"')
        p.stdin.write((self.job("s1") + "\n").encode())
        p.stdin.flush()
        rest = self.read_until(fd, '{"event":"job_start","job":"s1","started":true}', rest)
        self.wait_for_process()
        p.send_signal(signal.SIGTERM)  # while zorv waits for more input
        out, _ = p.communicate(timeout=30)
        self.assertEqual(p.returncode, 0)
        ends = [json.loads(line) for line in (rest + out).decode().splitlines()
                if '"job_end"' in line]
        self.assertEqual([(e["job"], e["syntax"]) for e in ends], [("s1", "")])
        self.assert_all_ended()

    def test_a_terminal_session_prompts_shows_the_running_job_and_ctrl_c_cancels_all(self):
        master, slave = pty.openpty()
        p = self.start(stdin=slave, stdout=slave, stderr=slave, close_fds=True)
        os.close(slave)
        self.addCleanup(os.close, master)
        seen = self.read_until(master, "zorv> ")
        os.write(master, ("GENOSTAT /JOB FILE='%s'\n" % self.fastq).encode())
        seen = self.read_until(master, "   ...> ", seen)
        os.write(master, b"  NAME='p1'.\n" + (self.job("p2") + "\n").encode())
        seen = self.read_until(master, "Job p2 queued.", seen)
        # Ctrl-D at the prompt, as a user types it: the line editor reads keys only while it shows one.
        seen = self.read_until(master, "zorv> ", seen)
        os.write(master, b"\x04")  # end of input: zorv waits for the jobs and shows the time
        seen = self.read_until(master, "Job p1 running, 0:01", seen)
        self.wait_for_process()
        p.send_signal(signal.SIGINT)
        seen = self.read_until(master, "Job p2 cancelled.", seen)
        self.assertEqual(p.wait(timeout=30), 0)
        self.assertEqual(len(self.assert_all_ended()), 1, "the queued job's process started")


if __name__ == "__main__":
    unittest.main()
