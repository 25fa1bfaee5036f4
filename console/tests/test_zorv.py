"""zorv driven as a user drives it: -e texts, files, standard input, the event stream, the
console commands, the module's command errors as the user reads them, and the exit status.

Run by CTest, which sets ZORV (the built console) and ZORV_INSTALL_DIR (the build's installation
folder). Jobs run against a stand-in launcher that sleeps, so that a job stays queued or running
for as long as a test needs it; every test ends its jobs with --no-wait or :quit.
"""

import json
import os
import select
import shutil
import stat
import subprocess
import tempfile
import time
import unittest

ZORV = os.environ.get("ZORV", "")
DEFAULT_INSTALL_DIR = os.environ.get("ZORV_INSTALL_DIR", "")

TEXT_15 = "Job queue threshold exceeded. Maximum allowed jobs in queue is : 10"
TEXT_16 = "Maximum limit for automatic job names exceeded. It should not be more than 100"
TEXT_19 = ("GENOSTAT procedure is not supported in command-line mode. "
           "Please use the interactive ZORV Statistics client.")


def events_of(text):
    """Every line of `text` as JSON; fails the caller when a line is not JSON."""
    return [json.loads(line) for line in text.splitlines() if line.strip()]


@unittest.skipUnless(ZORV and os.path.exists(ZORV), "ZORV does not name the built console")
class ZorvTestCase(unittest.TestCase):
    def setUp(self):
        self.dir = tempfile.mkdtemp(prefix="zorv-test-")
        self.addCleanup(shutil.rmtree, self.dir, True)
        self.install = os.path.join(self.dir, "install")
        os.makedirs(os.path.join(self.install, "scripts"))
        launcher = os.path.join(self.install, "statisticspython3")
        with open(launcher, "w") as f:
            f.write("#!/bin/sh\nexec sleep 120\n")
        os.chmod(launcher, stat.S_IRWXU)
        self.temp = os.path.join(self.dir, "temp")
        os.makedirs(self.temp)
        self.good = self.write("good.fq", "@r1\nACGTACGT\n+\nIIIIIIII\n")
        self.empty = self.write("empty.fq", "")

    def write(self, name, text):
        path = os.path.join(self.dir, name)
        with open(path, "w", encoding="utf-8") as f:
            f.write(text)
        return path

    def zorv(self, *args, stdin="", setup=True, timeout=60):
        cmd = [ZORV]
        if setup:
            cmd += ["--install-dir", self.install, "--temp-dir", self.temp]
        cmd += list(args)
        return subprocess.run(cmd, input=stdin, capture_output=True, text=True,
                              timeout=timeout)

    def job(self, name, path=None):
        return "GENOSTAT /JOB FILE='%s' NAME='%s'." % (path or self.good, name)


class SourcesAndEvents(ZorvTestCase):
    def test_e_text_queues_a_job_and_ends_it_at_the_end_of_input(self):
        r = self.zorv("--no-wait", "--events", "-", "-e", self.job("run1"))
        self.assertEqual(r.returncode, 0, r.stderr)
        events = events_of(r.stdout)
        self.assertEqual(events[0], {"event": "job_start", "job": "run1", "started": False})
        # --no-wait cancels what is left: one end with an empty syntax, the last event.
        self.assertEqual(events[-1], {"event": "job_end", "job": "run1", "syntax": "",
                                      "csv": events[-1]["csv"], "workbook": -1,
                                      "paragraph": -1})
        self.assertEqual([e["event"] for e in events].count("job_end"), 1)
        self.assertIn("Job run1 queued.", r.stderr)

    def test_events_dash_leaves_only_json_on_standard_output(self):
        r = self.zorv("--no-wait", "--events", "-", "-e",
                      "DESCRIPTIVES VARIABLES=GC.\n" + self.job("a") + "\n"
                      "GENOSTAT /PRINT SAMPLE_COUNT=1 /JOB NAME='a'.\n"
                      "GENOSTAT /JOB FILE='%s'.\n" % os.path.join(self.dir, "missing.fq"))
        self.assertEqual(r.returncode, 1)
        events = events_of(r.stdout)  # raises if anything else got onto stdout
        self.assertIn({"event": "error", "command": "GENOSTAT",
                       "text": "File not found: " + os.path.join(self.dir, "missing.fq")},
                      events)
        # The human side went to standard error.
        self.assertIn("DESCRIPTIVES: there is no active dataset to analyse", r.stderr)
        self.assertIn("Job a queued.", r.stderr)

    def test_events_file_and_human_output(self):
        log = os.path.join(self.dir, "events.jsonl")
        r = self.zorv("--no-wait", "--events", log, "-e", self.job("b"))
        self.assertEqual(r.returncode, 0, r.stderr)
        self.assertIn("Job b queued.", r.stdout)
        with open(log, encoding="utf-8") as f:
            events = events_of(f.read())
        self.assertEqual(events[0], {"event": "job_start", "job": "b", "started": False})
        self.assertEqual(events[-1]["event"], "job_end")

    def test_files_run_in_order_and_errors_name_file_and_line(self):
        first = self.write("first.sps", "\n" + self.job("f1") + "\n\nGENOSTAT /JOB\n"
                           "   FILE='%s'\n   NAME='f2'.\n" % self.empty)
        second = self.write("second.sps", "GENOSTAT /JOB NAME='ALL' FILE='%s'.\n" % self.good)
        r = self.zorv("--no-wait", first, second)
        self.assertEqual(r.returncode, 1)
        self.assertIn("%s:4: GENOSTAT: Error processing FASTQ file: %s" % (first, self.empty),
                      r.stderr)
        self.assertIn("%s:1: GENOSTAT: Invalid job name" % second, r.stderr)
        self.assertIn("Job f1 queued.", r.stdout)
        self.assertNotIn("f2", r.stdout)

    def test_a_missing_file_is_a_failure_and_the_next_source_still_runs(self):
        missing = os.path.join(self.dir, "nope.sps")
        r = self.zorv("--no-wait", missing, "-e", self.job("after"))
        self.assertEqual(r.returncode, 1)
        self.assertIn("%s: zorv: cannot open file: No such file or directory" % missing, r.stderr)
        self.assertIn("Job after queued.", r.stdout)

    def test_standard_input_runs_each_command_before_the_end_of_input(self):
        p = subprocess.Popen([ZORV, "--install-dir", self.install, "--temp-dir", self.temp,
                              "--no-wait", "--events", "-"],
                             stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                             stderr=subprocess.PIPE, text=True, bufsize=1)
        # Lines are read from the descriptor itself: a buffered reader could hold a second event
        # (the worker's "started" message comes right after the queued one) where select cannot
        # see it.
        fd = p.stdout.fileno()
        pending = bytearray()
        try:
            def next_event():
                while b"\n" not in pending:
                    ready, _, _ = select.select([fd], [], [], 20)
                    self.assertTrue(ready, "no event before the end of input")
                    chunk = os.read(fd, 65536)
                    self.assertTrue(chunk, "zorv closed its standard output")
                    pending.extend(chunk)
                line, _, rest = bytes(pending).partition(b"\n")
                pending[:] = rest
                return json.loads(line)

            # A command spread over two lines runs when its second line arrives.
            p.stdin.write("GENOSTAT /JOB FILE='%s'\n" % self.good)
            p.stdin.flush()
            ready, _, _ = select.select([fd], [], [], 0.5)
            self.assertFalse(ready, "ran before the command was complete")
            p.stdin.write("  NAME='s1'.\n")
            p.stdin.flush()
            self.assertEqual(next_event(), {"event": "job_start", "job": "s1", "started": False})
            p.stdin.write(self.job("s2") + "\n")
            p.stdin.flush()
            event = next_event()
            while event.get("job") == "s1":  # a worker may have started s1 meanwhile
                event = next_event()
            self.assertEqual(event, {"event": "job_start", "job": "s2", "started": False})
            p.stdin.close()
            rest = events_of(bytes(pending).decode() + p.stdout.read())
            self.assertEqual(p.wait(timeout=30), 0)
            ends = sorted(e["job"] for e in rest if e["event"] == "job_end")
            self.assertEqual(ends, ["s1", "s2"])
        finally:
            if p.poll() is None:
                p.kill()
                p.wait()
            p.stdout.close()
            p.stderr.close()

    def test_exit_status_zero_when_every_command_succeeded(self):
        r = self.zorv("--no-wait", "-e", self.job("ok") + "\nSET DECIMAL DOT.")
        self.assertEqual(r.returncode, 0, r.stderr)
        self.assertIn("Job ok queued.", r.stdout)
        self.assertEqual(r.stderr, "")

    def test_metadata_reaches_the_job(self):
        meta = '{"job_metadata":{"workbook_id":"7","paragraph_id":"9"}}'
        r = self.zorv("--no-wait", "--events", "-", "--metadata", meta, "-e",
                      self.job("m1") + "\n" + self.job("m2"))
        self.assertEqual(r.returncode, 0, r.stderr)
        ends = {e["job"]: e for e in events_of(r.stdout) if e["event"] == "job_end"}
        # Each command of the user's input gets the metadata, not just the first.
        for name in ("m1", "m2"):
            self.assertEqual((ends[name]["workbook"], ends[name]["paragraph"]), (7, 9))


class ModuleErrors(ZorvTestCase):
    def error_texts(self, r):
        return [e["text"] for e in events_of(r.stdout) if e["event"] == "error"]

    def test_batch_refuses_every_genostat_command_with_code_19(self):
        r = self.zorv("--batch", "--events", "-", "-e", self.job("x") + "\nGENOSTAT /PRINT.")
        self.assertEqual(r.returncode, 1)
        self.assertEqual(self.error_texts(r), [TEXT_19, TEXT_19])
        self.assertNotIn("job_start", r.stdout)
        self.assertIn("-e:1: GENOSTAT: " + TEXT_19, r.stderr)

    def test_file_errors_5_and_8_with_the_path(self):
        missing = os.path.join(self.dir, "dir with blank", "m\u00e4.fq")
        r = self.zorv("--events", "-", "-e",
                      "GENOSTAT /JOB FILE='%s'.\nGENOSTAT /JOB FILE='%s' '%s'."
                      % (missing, self.good, self.empty))
        self.assertEqual(r.returncode, 1)
        self.assertEqual(self.error_texts(r), ["File not found: " + missing,
                                               "Error processing FASTQ file: " + self.empty])
        self.assertNotIn("job_start", r.stdout)

    def test_code_15_after_ten_queued_jobs_keeps_its_blank_before_the_colon(self):
        text = "\n".join(self.job("q%d" % i) for i in range(1, 13))
        r = self.zorv("--no-wait", "--events", "-", "-e", text)
        self.assertEqual(r.returncode, 1)
        events = events_of(r.stdout)
        queued = [e["job"] for e in events if e["event"] == "job_start" and not e["started"]]
        # Ten wait in the queue; a job a worker has already taken does not count.
        self.assertIn(len(queued), (10, 11))
        self.assertEqual(self.error_texts(r), [TEXT_15] * (12 - len(queued)))

    def test_code_17_invalid_job_names(self):
        r = self.zorv("--events", "-", "-e",
                      self.job("ALL") + "\n" + self.job("LT") + "\n" + self.job("x" * 256))
        self.assertEqual(r.returncode, 1)
        self.assertEqual(self.error_texts(r), ["Invalid job name"] * 3)

    def test_code_18_duplicate_of_a_dataset_and_of_a_queued_job(self):
        r = self.zorv("--no-wait", "--events", "-", "--dataset", "DATA", "-e",
                      self.job("data") + "\n" + self.job("j") + "\n" + self.job("j"))
        self.assertEqual(r.returncode, 1)
        self.assertEqual(self.error_texts(r), ["Duplicate job name"] * 2)
        queued = [e["job"] for e in events_of(r.stdout) if e["event"] == "job_start"]
        self.assertEqual(queued[0], "j")

    def test_code_20_carries_the_generators_message(self):
        args = []
        for n in range(1, 101):
            args += ["--dataset", "Genomic_analysis_job_%d" % n]
        r = self.zorv("--events", "-", *args, "-e",
                      "GENOSTAT /JOB FILE='%s' NAME='AUTO'." % self.good)
        self.assertEqual(r.returncode, 1)
        self.assertEqual(self.error_texts(r),
                         ["Error generating automatic job name: " + TEXT_16])

    def test_automatic_name_skips_a_dataset_name(self):
        r = self.zorv("--no-wait", "--events", "-", "--dataset", "genomic_analysis_job_1",
                      "-e", "GENOSTAT /JOB FILE='%s' NAME='AUTO'." % self.good)
        self.assertEqual(r.returncode, 0, r.stderr)
        self.assertEqual(events_of(r.stdout)[0]["job"], "Genomic_analysis_job_2")

    def test_parser_errors_name_the_token_and_its_position(self):
        r = self.zorv("--events", "-", "-e",
                      "GENOSTAT /JOB FILE='%s'\n  ADAPTERS=FOO." % self.good)
        self.assertEqual(r.returncode, 1)
        errors = [e for e in events_of(r.stdout) if e["event"] == "error"]
        self.assertEqual(len(errors), 1)
        # The position counts within the command; the prefix names the command's first line.
        self.assertEqual(errors[0], {
            "event": "error", "command": "GENOSTAT",
            "text": "Line 2, column 12, at FOO: ADAPTERS accepts only NONE, ILLUMINA, NEXTERA, "
                    "CUSTOM."})
        self.assertIn("-e:1: GENOSTAT: Line 2, column 12, at FOO", r.stderr)
        self.assertNotIn("job_start", r.stdout)


class ConsoleCommands(ZorvTestCase):
    def test_cancel_a_queued_job_sends_one_end(self):
        r = self.zorv("--events", "-", "-e",
                      self.job("c1") + "\n" + self.job("c2") + "\n:jobs\n:cancel c2\n:jobs\n:quit")
        self.assertEqual(r.returncode, 0, r.stderr)
        events = events_of(r.stdout)
        c2 = [e for e in events if e.get("job") == "c2"]
        self.assertEqual(c2[0], {"event": "job_start", "job": "c2", "started": False})
        self.assertEqual([e for e in c2 if e["event"] == "job_end"],
                         [{"event": "job_end", "job": "c2", "syntax": "", "csv": "",
                           "workbook": -1, "paragraph": -1}])
        # :quit cancels the rest.
        self.assertEqual(events[-1]["event"], "job_end")
        self.assertEqual(events[-1]["job"], "c1")
        # :jobs before and after the cancel
        self.assertRegex(r.stderr, r"(?s)  c2  queued.*Job c2 cancelled\..*  c2  ended \(cancelled\)")

    def test_console_command_mistakes_are_failures(self):
        r = self.zorv("--events", "-", "-e", ":cancel nobody\n:cancel\n:frobnicate\n:jobs")
        self.assertEqual(r.returncode, 1)
        errors = [(e["command"], e["text"]) for e in events_of(r.stdout)]
        self.assertEqual(errors, [
            (":cancel", "no job named 'nobody' is queued or running"),
            (":cancel", "a job name is needed: :cancel NAME"),
            (":frobnicate", "unknown console command (known: :jobs, :cancel NAME, :quit)"),
        ])
        self.assertIn("No jobs.", r.stderr)

    def test_quit_stops_reading(self):
        r = self.zorv("-e", ":quit\nGENOSTAT /JOB FILE='/nonexistent'.")
        self.assertEqual(r.returncode, 0, r.stderr)
        self.assertEqual(r.stderr, "")

    def test_terminal_gets_a_prompt_and_a_continuation_prompt(self):
        import pty
        master, slave = pty.openpty()
        p = subprocess.Popen([ZORV, "--install-dir", self.install, "--temp-dir", self.temp],
                             stdin=slave, stdout=slave, stderr=slave, close_fds=True)
        os.close(slave)
        seen = b""

        def expect(text):
            nonlocal seen
            deadline = time.time() + 20
            while text.encode() not in seen:
                ready, _, _ = select.select([master], [], [], max(0, deadline - time.time()))
                self.assertTrue(ready, "waited for %r, saw %r" % (text, seen))
                seen += os.read(master, 4096)
            seen = seen[seen.index(text.encode()) + len(text):]

        try:
            expect("zorv> ")
            os.write(master, ("GENOSTAT /JOB FILE='%s'\n" % self.good).encode())
            expect("...> ")
            os.write(master, b"  NAME='p1'.\n")
            expect("Job p1 queued.")
            expect("zorv> ")
            os.write(master, b":quit\n")
            expect("Job p1 cancelled.")
            self.assertEqual(p.wait(timeout=30), 0)
        finally:
            if p.poll() is None:
                p.kill()
                p.wait()
            os.close(master)

    def test_interrupt_cancels_and_exits(self):
        p = subprocess.Popen([ZORV, "--install-dir", self.install, "--temp-dir", self.temp,
                              "--events", "-"],
                             stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                             stderr=subprocess.DEVNULL, text=True)
        try:
            p.stdin.write(self.job("i1") + "\n")
            p.stdin.flush()
            ready, _, _ = select.select([p.stdout], [], [], 20)
            self.assertTrue(ready)
            p.send_signal(2)  # SIGINT, while zorv waits for input
            out, _ = p.communicate(timeout=30)
            ends = [e for e in events_of(out) if e["event"] == "job_end"]
            self.assertEqual([e["job"] for e in ends], ["i1"])
        finally:
            if p.poll() is None:
                p.kill()
                p.wait()


class StartUp(ZorvTestCase):
    def test_usage_errors_exit_2(self):
        cases = [
            (["--frob"], "zorv: unknown option '--frob' (try --help)"),
            (["--metadata", "[]"], "zorv: --metadata must be a JSON object"),
            (["--install-dir", os.path.join(self.dir, "none")],
             "zorv: installation folder not found: " + os.path.join(self.dir, "none")),
        ]
        for args, message in cases:
            r = self.zorv(*args, setup=False, stdin="")
            self.assertEqual(r.returncode, 2, args)
            self.assertEqual(r.stderr.strip(), message)
        r = self.zorv("--temp-dir", os.path.join(self.dir, "none"), setup=False)
        self.assertEqual(r.returncode, 2)
        self.assertEqual(r.stderr.strip(),
                         "zorv: temporary folder not found: " + os.path.join(self.dir, "none"))
        r = self.zorv("--events", os.path.join(self.dir, "no", "such", "dir"), setup=False)
        self.assertEqual(r.returncode, 2)
        self.assertIn("zorv: cannot write events to", r.stderr)
        page = os.path.join(self.dir, "no", "page.html")
        r = self.zorv("--output", page, setup=False)
        self.assertEqual(r.returncode, 2)
        self.assertEqual(r.stderr.strip(), "zorv: cannot write the output page %s: "
                         "No such file or directory" % page)

    def test_help(self):
        r = self.zorv("--help", setup=False)
        self.assertEqual(r.returncode, 0)
        self.assertIn("usage: zorv", r.stdout)

    def test_default_folders_the_build_made_and_a_temporary_folder_removed_at_exit(self):
        if not DEFAULT_INSTALL_DIR:
            self.skipTest("ZORV_INSTALL_DIR not set")
        tmp = os.path.join(self.dir, "tmp")
        os.makedirs(tmp)
        env = dict(os.environ, TMPDIR=tmp)
        r = subprocess.run([ZORV, "-e", "GENOSTAT /JOB FILE='%s'." % self.empty],
                           capture_output=True, text=True, env=env, timeout=60)
        self.assertEqual(r.returncode, 1)
        self.assertIn("Error processing FASTQ file", r.stderr)
        self.assertEqual(os.listdir(tmp), [])
        # A folder given with --temp-dir is the user's: it stays.
        r = self.zorv("-e", "GENOSTAT /PRINT /JOB NAME='x'.")
        self.assertTrue(os.path.isdir(self.temp))

    def test_string_tables_are_installed(self):
        if not DEFAULT_INSTALL_DIR:
            self.skipTest("ZORV_INSTALL_DIR not set")
        for lang in ("en", "de"):
            path = os.path.join(DEFAULT_INSTALL_DIR, "strings", lang, "GENOSTAT.txt")
            self.assertTrue(os.path.isfile(path), path)


if __name__ == "__main__":
    unittest.main()
