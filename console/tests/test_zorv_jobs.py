"""Jobs run through zorv from command to result: each test builds its own installation folder,
with a launcher that runs python3 and a compiled stand-in analysis script whose behaviour the
test chooses (write a result CSV of N samples, fail with an exit code and a details file, write no
CSV, hang), and points zorv --install-dir at it.

Run by CTest, which sets ZORV (the built console) and ZORV_STRINGS_DIR (the string tables'
sources). Every wait has a time limit, so that a job that never ends fails the test instead of
hanging it.
"""

import base64
import json
import os
import py_compile
import select
import shutil
import signal
import stat
import subprocess
import tempfile
import time
import unittest

ZORV = os.environ.get("ZORV", "")
STRINGS_DIR = os.environ.get("ZORV_STRINGS_DIR", "")

COLUMNS = ["Sample", "Adapter_Type", "Total_Sequences", "Total_Bases", "Sequence_length", "GC",
           "total_deduplicated_percentage", "avg_sequence_length", "median_sequence_length",
           "basic_statistics", "per_base_sequence_quality", "per_sequence_quality_scores",
           "per_base_sequence_content", "per_sequence_gc_content", "per_base_n_content",
           "sequence_length_distribution", "sequence_duplication_levels",
           "overrepresented_sequences", "adapter_content", "per_tile_sequence_quality",
           "qc_score", "median_phred_first_10bp", "median_phred_last_10bp",
           "mean_phred_all_reads", "low_complexity_percentage", "unexpected_bases_percentage",
           "overrepresented_seq_count"]

# The stand-in analysis script. MODE and LOG are filled in per test. It logs "start <job>" and
# "end <job>" lines (the job is the input file's base name) and its process id.
STAND_IN = r'''
import base64, json, os, sys, time
MODE = %(mode)r
LOG = %(log)r
COLUMNS = %(columns)r

def log(line):
    with open(LOG, "a") as f:
        f.write(line + "\n")

def main():
    job = json.loads(base64.b64decode(sys.argv[-1]))["fastq_data"][0]
    csv = job["CSV_Path"]
    name = os.path.basename(job["files"][0]) if job.get("files") else ""
    log("start %%s %%d" %% (name, os.getpid()))
    kind = MODE[0]
    if kind == "sleep":
        time.sleep(MODE[1])
        kind, MODE_ROWS = "ok", MODE[2]
    else:
        MODE_ROWS = MODE[1] if len(MODE) > 1 else 0
    if kind == "ok":
        with open(csv, "w", encoding="utf-8", newline="") as f:
            f.write(",".join(COLUMNS) + "\n")
            for i in range(MODE_ROWS):
                values = ['"sample,%%d"' %% (i + 1), "NONE", str(1000 + i), str(100000 + i), "100",
                          str(40 + i)]
                values += ["%%.1f" %% (90.5 + i), "100.0", "100"]
                values += ["PASS", "WARN", "PASS", "FAIL", "PASS", "PASS", "PASS", "PASS", "PASS",
                           "PASS", "PASS"]
                values += [str(80 + i), "38", "30", "35.5", "0.1", "", str(i)]
                f.write(",".join(values) + "\n")
        log("end %%s" %% name)
        return 0
    if kind == "fail":
        base = csv[:csv.rfind(".")] if "." in csv else csv
        with open(base + ".error", "w", encoding="utf-8") as f:
            json.dump(MODE[2], f)
        log("end %%s" %% name)
        return MODE[1]
    if kind == "nocsv":
        log("end %%s" %% name)
        return 0
    if kind == "hang":
        time.sleep(600)
    return 99

sys.exit(main())
'''


def events_of(text):
    return [json.loads(line) for line in text.splitlines() if line.strip()]


def alive(pid):
    try:
        os.kill(pid, 0)
    except ProcessLookupError:
        return False
    except PermissionError:
        return True
    # A zombie is gone for our purpose; only a reaped or running process matters.
    try:
        with open("/proc/%d/stat" % pid) as f:
            return f.read().split(")")[-1].split()[0] != "Z"
    except OSError:
        return False


@unittest.skipUnless(ZORV and os.path.exists(ZORV), "ZORV does not name the built console")
class JobRun(unittest.TestCase):
    def setUp(self):
        self.dir = tempfile.mkdtemp(prefix="zorv-jobs-")
        self.addCleanup(shutil.rmtree, self.dir, True)
        self.temp = os.path.join(self.dir, "temp")
        os.makedirs(self.temp)
        self.log = os.path.join(self.dir, "script.log")
        self.fastq = {}
        for name in ("a", "b", "c"):
            path = os.path.join(self.dir, name + ".fq")
            with open(path, "w") as f:
                f.write("@r1\nACGTACGT\n+\nIIIIIIII\n")
            self.fastq[name] = path

    def install(self, mode, lang_tables=False):
        """An installation folder whose stand-in script behaves as `mode` says."""
        install = os.path.join(self.dir, "install")
        shutil.rmtree(install, True)
        os.makedirs(os.path.join(install, "scripts"))
        launcher = os.path.join(install, "statisticspython3")
        with open(launcher, "w") as f:
            f.write('#!/bin/sh\nexec python3 "$@"\n')
        os.chmod(launcher, stat.S_IRWXU)
        source = os.path.join(self.dir, "genostat.py")
        with open(source, "w") as f:
            f.write(STAND_IN % {"mode": mode, "log": self.log, "columns": COLUMNS})
        py_compile.compile(source, cfile=os.path.join(install, "scripts", "genostat.pyc"),
                           doraise=True)
        if lang_tables:
            if not STRINGS_DIR or not os.path.isdir(STRINGS_DIR):
                self.skipTest("ZORV_STRINGS_DIR does not name the string tables")
            shutil.copytree(STRINGS_DIR, os.path.join(install, "strings"))
        return install

    def zorv(self, install, *args, timeout=90):
        cmd = [ZORV, "--install-dir", install, "--temp-dir", self.temp, "--events", "-"]
        return subprocess.run(cmd + list(args), capture_output=True, text=True, timeout=timeout)

    def job(self, name, fastq="a", extra=""):
        return "GENOSTAT /JOB FILE='%s' NAME='%s'%s." % (self.fastq[fastq], name, extra)

    def script_log(self):
        if not os.path.exists(self.log):
            return []
        with open(self.log) as f:
            return [line.split() for line in f.read().splitlines()]

    def tables(self, events, title):
        return [e for e in events if e["event"] == "table" and e["title"] == title]

    # ---- a job from command to result ----

    def test_a_job_runs_to_its_tables_its_dataset_and_a_removed_csv(self):
        install = self.install(("ok", 3))
        r = self.zorv(install, "-e", self.job(
            "my run", extra=" /DESCRIPTIVES VARIABLES=GC qc_score SKEWNESS"
                            " /FREQUENCIES VARIABLES=GC QUARTILES"))
        self.assertEqual(r.returncode, 0, r.stderr)
        events = events_of(r.stdout)
        kinds = [e["event"] for e in events]
        self.assertEqual(kinds[:3], ["job_start", "job_start", "job_end"])
        self.assertEqual([e.get("started") for e in events[:2]], [False, True])
        end = events[2]
        self.assertIn("GET DATA", end["syntax"])
        self.assertTrue(end["csv"].startswith(self.temp), end["csv"])
        summary = self.tables(events, "Summary")
        self.assertEqual(len(summary), 1)
        self.assertEqual(summary[0]["row_labels"], ["Samples", "Variables"])
        self.assertEqual(summary[0]["cells"], [["3"], ["25"]])
        details = self.tables(events, "Details")
        self.assertEqual(details[0]["cells"],
                         [["Valid:3 fastQ file(s) detected."], ["my_run"]])
        datasets = [e for e in events if e["event"] == "dataset"]
        self.assertEqual(datasets, [
            {"event": "dataset", "name": "", "cases": 3, "variables": 27},
            {"event": "dataset", "name": "my_run", "cases": 3, "variables": 27},
            {"event": "dataset", "name": "my_run", "cases": 3, "variables": 27}])
        self.assertNotIn("error", kinds)
        self.assertEqual(len(self.tables(events, "Descriptive Statistics")), 1)
        self.assertEqual(len(self.tables(events, "Statistics")), 1)
        # /DELETE ran: the result CSV is gone and nothing else is left in the folder.
        self.assertEqual(os.listdir(self.temp), [])

    def test_the_dataset_name_is_then_taken_for_a_later_job_in_any_case(self):
        install = self.install(("ok", 1))
        # Within one session: the second job is submitted once the first one's dataset is named.
        p = subprocess.Popen([ZORV, "--install-dir", install, "--temp-dir", self.temp,
                              "--events", "-"], stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                             stderr=subprocess.PIPE, text=True)
        try:
            p.stdin.write(self.job("Run1") + "\n")
            p.stdin.flush()
            # Read the events unbuffered: select() knows nothing of a file object's buffer.
            fd = p.stdout.fileno()
            pending = b""
            seen = []
            deadline = time.time() + 60
            while time.time() < deadline and \
                    sum(1 for e in seen if e["event"] == "dataset") < 3:
                ready, _, _ = select.select([fd], [], [], 1)
                if not ready:
                    continue
                chunk = os.read(fd, 65536)
                if not chunk:
                    break
                pending += chunk
                while b"\n" in pending:
                    line, pending = pending.split(b"\n", 1)
                    seen.append(json.loads(line))
            self.assertEqual(seen[-1].get("name"), "Run1", seen)
            p.stdin.write(self.job("RUN1", "b") + "\n")
            p.stdin.close()
            out = pending.decode() + p.stdout.read()
            self.assertEqual(p.wait(timeout=60), 1)
            errors = [e["text"] for e in events_of(out) if e["event"] == "error"]
            self.assertEqual(errors, ["Duplicate job name"])
        finally:
            if p.poll() is None:
                p.kill()
                p.wait()
            p.stdout.close()
            p.stderr.close()

    def test_a_failed_job_shows_its_filled_message_and_fails_the_run(self):
        install = self.install(("fail", 5, {"FILE_NAME": " bad.fq"}))
        r = self.zorv(install, "-e", self.job("f"))
        self.assertEqual(r.returncode, 1)
        events = events_of(r.stdout)
        end = [e for e in events if e["event"] == "job_end"][0]
        self.assertNotIn("GET DATA", end["syntax"])
        details = self.tables(events, "Details")
        self.assertEqual(len(details), 1)
        self.assertIn("Error processing FASTQ file", details[0]["cells"][0][0])
        self.assertEqual(self.tables(events, "Summary")[0]["cells"], [["0"], ["0"]])
        self.assertIn({"event": "error", "command": "GENOSTAT",
                       "text": "the job failed (message code 205); its Details table gives the "
                               "reason"}, events)
        self.assertFalse([e for e in events if e["event"] == "dataset"])

    def test_a_job_without_a_result_file_is_a_failure(self):
        install = self.install(("nocsv",))
        r = self.zorv(install, "-e", self.job("n"))
        self.assertEqual(r.returncode, 1)
        events = events_of(r.stdout)
        details = self.tables(events, "Details")
        self.assertEqual(details[0]["cells"][0], ["Error:Generic Error."])
        self.assertIn("message code 101", r.stderr)

    def test_german_tables_with_lang_de(self):
        install = self.install(("ok", 2), lang_tables=True)
        r = self.zorv(install, "--lang", "de", "-e", self.job("d"))
        self.assertEqual(r.returncode, 0, r.stderr)
        titles = [e["title"] for e in events_of(r.stdout) if e["event"] == "table"]
        self.assertEqual(titles[:2], ["Zusammenfassung", "Details"])

    def test_jobs_run_one_at_a_time_in_submission_order(self):
        install = self.install(("sleep", 0.5, 1))
        r = self.zorv(install, "-e", "\n".join([self.job("j1", "a"), self.job("j2", "b"),
                                               self.job("j3", "c")]))
        self.assertEqual(r.returncode, 0, r.stderr)
        lines = self.script_log()
        self.assertEqual([(l[0], l[1]) for l in lines],
                         [("start", "a.fq"), ("end", "a.fq"), ("start", "b.fq"), ("end", "b.fq"),
                          ("start", "c.fq"), ("end", "c.fq")])
        events = events_of(r.stdout)
        started = [e["job"] for e in events if e["event"] == "job_start" and e["started"]]
        self.assertEqual(started, ["j1", "j2", "j3"])
        names = [e["name"] for e in events if e["event"] == "dataset" and e["name"]]
        self.assertEqual(names, ["j1", "j1", "j2", "j2", "j3", "j3"])

    def test_a_job_dropped_without_an_end_message_is_reported_not_awaited(self):
        install = self.install(("ok", 1))
        gone = os.path.join(self.dir, "gone")
        os.makedirs(gone)
        p = subprocess.Popen([ZORV, "--install-dir", install, "--temp-dir", gone,
                              "--events", "-"], stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                             stderr=subprocess.PIPE, text=True)
        try:
            # Once zorv answers, it has checked its folders; then the folder goes and the module
            # finds no place for the result: it drops the job.
            p.stdin.write(":jobs\n")
            p.stdin.flush()
            fd, said = p.stderr.fileno(), b""
            deadline = time.time() + 30
            while b"No jobs." not in said and time.time() < deadline:
                ready, _, _ = select.select([fd], [], [], 1)
                if ready:
                    said += os.read(fd, 4096)
            self.assertIn(b"No jobs.", said)
            os.rmdir(gone)
            out, err = p.communicate(self.job("lost") + "\n", timeout=60)
        finally:
            if p.poll() is None:
                p.kill()
                p.wait()
        self.assertEqual(p.returncode, 1)
        self.assertIn("job lost: GENOSTAT: the job ended without a result and sent no end "
                      "message; likely causes: the temporary folder is missing", err)
        self.assertEqual(self.script_log(), [])

    # ---- cancellation ----

    def start_hanging_session(self, names):
        install = self.install(("hang",))
        tmp = os.path.join(self.dir, "tmp")
        os.makedirs(tmp)
        env = dict(os.environ, TMPDIR=tmp)  # zorv makes its own temporary folder here
        p = subprocess.Popen([ZORV, "--install-dir", install, "--events", "-"],
                             stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                             stderr=subprocess.PIPE, text=True, env=env)
        def cleanup():
            if p.poll() is None:
                p.kill()
            p.wait()
            for f in (p.stdin, p.stdout, p.stderr):
                if not f.closed:
                    f.close()
        self.addCleanup(cleanup)
        for i, name in enumerate(names):
            p.stdin.write(self.job(name, "abc"[i]) + "\n")
        p.stdin.flush()
        deadline = time.time() + 30
        while time.time() < deadline and not self.script_log():
            time.sleep(0.05)
        self.assertTrue(self.script_log(), "the first job's process never started")
        return p, tmp

    def check_cancelled(self, out, tmp, names):
        events = events_of(out)
        ends = [e for e in events if e["event"] == "job_end"]
        self.assertEqual(sorted(e["job"] for e in ends), sorted(names))
        self.assertTrue(all(e["syntax"] == "" for e in ends), ends)
        pid = int(self.script_log()[0][2])
        self.assertFalse(alive(pid), "the analysis process outlived zorv")
        self.assertEqual(os.listdir(tmp), [], "zorv left its temporary folder behind")

    def test_interrupt_cancels_the_running_and_the_queued_job_and_leaves_nothing(self):
        p, tmp = self.start_hanging_session(["h1", "h2"])
        p.send_signal(signal.SIGINT)
        out, err = p.communicate(timeout=60)
        self.assertEqual(p.returncode, 0, err)
        self.check_cancelled(out, tmp, ["h1", "h2"])
        self.assertEqual(len(self.script_log()), 1)  # the queued job never started

    def test_quit_cancels_like_an_interrupt(self):
        p, tmp = self.start_hanging_session(["q1"])
        p.stdin.write(":quit\n")
        p.stdin.close()
        out = p.stdout.read()
        self.assertEqual(p.wait(timeout=60), 0)
        self.check_cancelled(out, tmp, ["q1"])

    def test_a_terminal_shows_the_running_jobs_elapsed_time(self):
        import pty
        install = self.install(("sleep", 2.5, 1))
        master, slave = pty.openpty()
        p = subprocess.Popen([ZORV, "--install-dir", install, "--temp-dir", self.temp,
                              "-e", self.job("t")], stdin=subprocess.DEVNULL, stdout=slave,
                             stderr=slave, close_fds=True)
        os.close(slave)
        seen = b""
        try:
            deadline = time.time() + 60
            while time.time() < deadline:
                ready, _, _ = select.select([master], [], [], 1)
                if ready:
                    try:
                        chunk = os.read(master, 4096)
                    except OSError:
                        break
                    if not chunk:
                        break
                    seen += chunk
                elif p.poll() is not None:
                    break
            self.assertEqual(p.wait(timeout=30), 0, seen)
        finally:
            if p.poll() is None:
                p.kill()
                p.wait()
            os.close(master)
        self.assertIn(b"Job t running, 0:01", seen)
        self.assertIn(b"Active dataset t: 1 case, 27 variables.", seen)


if __name__ == "__main__":
    unittest.main()
