"""The analysis script against a stand-in engine: the jobs of jobs.json (every exit code with its
details file and no leftovers), then what a table cannot hold: progress, signals, the OS's
permission errors, the result's rename and its details file."""
import base64
import importlib.util
import json
import os
import pty
import select
import shutil
import signal
import subprocess
import sys
import tempfile
import time
import unittest
from unittest import mock

HERE = os.path.dirname(os.path.abspath(__file__))
SCRIPT_SOURCE = os.environ.get("GENOSTAT_SCRIPT_SOURCE", os.path.join(os.path.dirname(HERE), "genostat.py"))
# The placeholder each exit code fills in the details file.
PLACEHOLDER_OF = {1: "ERROR_MESSAGE", 2: "FILE_PATH", 5: "FILE_NAME", 6: "DEPENDENCIES",
                  7: "RESOURCE_PATH", 8: "FOLDER_PATH", 9: "OUTPUT_PATH", 10: "ADAPTER_SEQUENCE",
                  12: "RESOURCE_NAME"}


def load_script_module():
    location = importlib.util.spec_from_file_location("genostat_under_test", SCRIPT_SOURCE)
    module = importlib.util.module_from_spec(location)
    location.loader.exec_module(module)
    return module


genostat = load_script_module()


def payload_of(document):
    """The module's encoding: compact JSON, then standard base64 on one line."""
    text = json.dumps(document, separators=(",", ":"), ensure_ascii=False)
    return base64.b64encode(text.encode("utf-8", "surrogateescape")).decode("ascii")


def job(csv_path, files=None, folder=None, adapter="NONE"):
    entry = {"adapter": adapter, "custom_sequence": "", "CSV_Path": csv_path}
    entry.update({"files": files} if files is not None else {"folder": folder})
    return {"fastq_data": [entry]}


def write_fastq(path):
    with open(path, "w") as handle:
        handle.write("@r\nACGT\n+\nIIII\n")
    return path


class ScriptCase(unittest.TestCase):
    """An installation (scripts/genostat.py and the stand-in engine), a data and a result folder."""

    def setUp(self):
        self.tmp = tempfile.mkdtemp(prefix="genostat-script-")
        self.addCleanup(shutil.rmtree, self.tmp, True)
        self.scripts, self.data, self.out = (os.path.join(self.tmp, d) for d in ("install/scripts", "data", "out"))
        for folder in (self.scripts, self.data, self.out):
            os.makedirs(folder)
        self.script = shutil.copy(SCRIPT_SOURCE, self.scripts)
        self.engine = os.path.join(self.scripts, "genostat-qc")
        with open(os.path.join(HERE, "fake_engine.py")) as source, open(self.engine, "w") as engine:
            engine.write("#!%s\n%s" % (sys.executable, source.read()))
        os.chmod(self.engine, 0o755)
        self.csv = os.path.join(self.out, "1731721138.csv")
        self.error_file = os.path.join(self.out, "1731721138.error")
        self.log = os.path.join(self.tmp, "engine.log")

    def run_script(self, args, mode=None):
        env = dict(os.environ, FAKE_ENGINE_LOG=self.log, FAKE_ENGINE_MODE=mode or "ok")
        return subprocess.run([sys.executable, self.script] + args, env=env, timeout=60, cwd=self.data,
                              stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.PIPE)

    def start(self, document, stderr, **env):
        env = dict(os.environ, FAKE_ENGINE_LOG=self.log, **env)
        return subprocess.Popen([sys.executable, self.script, payload_of(document)], env=env,
                                stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=stderr)

    def engine_calls(self):
        if not os.path.exists(self.log):
            return []
        with open(self.log) as handle:
            return [json.loads(line) for line in handle]

    def details(self):
        with open(self.error_file, "rb") as handle:
            return json.loads(handle.read().decode("utf-8", "surrogateescape"))

    def assertFailed(self, result, code, value=None):
        """Exit `code`, the details file holding `value` when the code has a placeholder, and
        nothing else left beside the CSV's place."""
        self.assertEqual(result.returncode, code, result.stderr.decode(errors="replace"))
        expected = {os.path.basename(self.error_file)} if code in PLACEHOLDER_OF else set()
        self.assertEqual(set(os.listdir(self.out)), expected)
        if code in PLACEHOLDER_OF:
            self.assertEqual(self.details(), {PLACEHOLDER_OF[code]: value})


class JobTableTest(ScriptCase):
    def test_jobs(self):
        with open(os.path.join(HERE, "jobs.json"), encoding="utf-8") as handle:
            cases = json.load(handle)["jobs"]
        for case in cases:
            with self.subTest(case["name"]):
                self.setUp()
                self.check(case)

    def check(self, case):
        def expand(value):
            text = json.dumps(value)
            for key, path in (("$DATA", self.data), ("$CSV", self.csv), ("$ENGINE", self.engine)):
                text = text.replace(key, path)
            return json.loads(text)

        for name in case.get("files", ["a.fq"]):
            path = os.path.join(self.data, name.rstrip("/|"))
            os.mkdir(path) if name.endswith("/") else os.mkfifo(path) if name.endswith("|") else write_fastq(path)
        document = job("$CSV", files=["$DATA/a.fq"])
        for key, value in case.get("entry", {}).items():
            document["fastq_data"][0][key] = value
            if value is None:
                del document["fastq_data"][0][key]
        document = expand(case.get("document", document))
        args = [payload_of(document) if a == "$JOB" else a for a in case.get("argv", ["$JOB"])]
        replacement = {"missing": None, "not-executable": "#!/bin/sh\n", "garbage": "\x7fELF-but-not",
                       "killed": "#!/bin/sh\nkill -9 $$\n"}
        if "engine_file" in case:
            os.remove(self.engine)
            if replacement[case["engine_file"]] is not None:
                with open(self.engine, "w") as handle:
                    handle.write(replacement[case["engine_file"]])
                os.chmod(self.engine, 0o644 if case["engine_file"] == "not-executable" else 0o755)
        result = self.run_script(args, expand(case.get("engine")))
        if case["code"] != 0:
            value = expand(case.get("details"))
            if "details_start" in case:
                value = self.details()[PLACEHOLDER_OF[case["code"]]]
                self.assertTrue(value.startswith(case["details_start"]), value)
            self.assertFailed(result, case["code"], value)
        else:
            self.assertEqual(result.returncode, 0, result.stderr)
            self.assertEqual(os.listdir(self.out), [os.path.basename(self.csv)])
        if case["code"] in (2, 3, 4, 7, 8, 10, 13) and "engine" not in case:
            self.assertEqual(self.engine_calls(), [])
        if "engine_call" in case:
            self.assertEqual(self.engine_calls(), [expand(case["engine_call"])])
        if "stderr" in case:  # the engine's reason shown once, in the job's one error line
            self.assertEqual(result.stderr.decode(), expand(case["stderr"]))


class InProcessTest(ScriptCase):
    """Failures the operating system or the interpreter raise, also when the tests run as root."""

    def test_errors_raised_inside_the_script(self):
        fq = write_fastq(os.path.join(self.data, "a.fq"))
        real_open = os.open

        def guarded_open(path, *args):
            if path == fq:
                raise PermissionError(13, "denied", path)
            return real_open(path, *args)

        denied = mock.Mock(side_effect=PermissionError(13, "denied"))
        cases = [(job(self.csv, folder=self.data), genostat.os, "listdir", denied, {"RESOURCE_PATH": " " + self.data}),
                 (job(self.csv, files=[fq]), genostat.os, "open", guarded_open, {"RESOURCE_PATH": " " + fq}),
                 (job(self.csv, files=[fq]), genostat, "resolve_inputs", mock.Mock(side_effect=MemoryError),
                  {"RESOURCE_NAME": " the analysis script"}),
                 (job(self.csv, files=[fq]), genostat, "run_engine", mock.Mock(side_effect=KeyError("boom")),
                  {"ERROR_MESSAGE": " KeyError: 'boom'"})]
        for document, target, name, replacement, details in cases:
            with mock.patch.object(genostat, "engine_path", return_value=self.engine), \
                    mock.patch.object(target, name, replacement), mock.patch.object(sys, "stderr"):
                genostat.run([payload_of(document)])
            self.assertEqual(self.details(), details)  # its member names the exit code

    def test_engine_error_lines_and_progress_lines(self):
        line = "genostat-qc: error: /d/x: y.fq: record 1, line 2: reason: more"
        self.assertEqual(genostat.split_engine_error(line, ["/d/x: y.fq", "/d/x"]),
                         ("/d/x: y.fq", "record 1, line 2: reason: more"))  # known paths first
        self.assertEqual(genostat.split_engine_error("genostat-qc: error: /o.csv: denied", []), ("/o.csv", "denied"))
        self.assertEqual(genostat.split_engine_error("genostat-qc: error: alone", []), (None, "alone"))
        for bad in ("progress 1 50 200", "progress a 50 200 1", "progress 1 50 200 1 extra"):
            self.assertIsNone(genostat.parse_progress(bad))
        self.assertEqual(genostat.format_progress((1, 250_000_000, 1_000_000_000, 2e6), ["/d/a.fq"]),
                         "a.fq: 250.0 of 1000.0 MB (25%), 2000000 reads/s")
        with mock.patch.object(os, "name", "nt"):
            windows = load_script_module()
        self.assertEqual(windows.engine_path(), os.path.join(os.path.dirname(os.path.abspath(SCRIPT_SOURCE)),
                                                             "genostat-qc.exe"))


class ResultTest(ScriptCase):
    def test_success_renames_the_result_into_place_quietly(self):
        fq = write_fastq(os.path.join(self.data, "S1_R1.fastq"))
        with open(self.error_file, "w") as handle:
            handle.write('{"FILE_PATH": " stale"}')  # an earlier run's, not this one's
        result = self.run_script([payload_of(job(self.csv, files=[fq], adapter="ILLUMINA"))])
        self.assertEqual((result.returncode, result.stdout, result.stderr), (0, b"", b""))
        with open(self.csv) as handle:
            self.assertEqual(handle.read(), "Sample,Adapter_Type,Total_Sequences\nS1_R1.fastq,ILLUMINA,1\n")
        self.assertEqual(os.listdir(self.out), [os.path.basename(self.csv)])

    def test_result_that_cannot_be_placed_is_9(self):
        fq = write_fastq(os.path.join(self.data, "a.fq"))
        os.mkdir(self.csv)  # the rename onto a folder fails
        result = self.run_script([payload_of(job(self.csv, files=[fq]))])
        self.assertEqual((result.returncode, self.details()), (9, {"OUTPUT_PATH": " " + self.csv}))
        self.assertEqual(sorted(os.listdir(self.out)), sorted(os.path.basename(p) for p in (self.csv, self.error_file)))
        # Without a folder for the result there is nowhere for the details either.
        csv = os.path.join(self.tmp, "gone", "out.csv")
        result = self.run_script([payload_of(job(csv, files=[fq]))], "exit:73:genostat-qc: error: x: cannot create")
        self.assertEqual(result.returncode, 9)
        self.assertIn(b"cannot write the error details", result.stderr)

    def test_details_file_name_and_bytes(self):
        self.assertEqual([genostat.error_file_path(p) for p in ("/tmp/1.csv", "/tmp/run.2/out", "/tmp/out", "a.b.csv")],
                         ["/tmp/1.error", "/tmp/run.error", "/tmp/out.error", "a.b.error"])
        missing = os.path.join(self.data, os.fsdecode(b"caf\xe9.fq"))  # Latin-1 bytes, as the module may pass
        csv = os.path.join(self.out, "result")
        self.assertEqual(self.run_script([payload_of(job(csv, files=[missing]))]).returncode, 2)
        self.assertEqual(os.listdir(self.out), ["result.error"])
        with open(os.path.join(self.out, "result.error"), "rb") as handle:
            self.assertIn(b"caf\xe9.fq", handle.read())


class TerminalAndSignalTest(ScriptCase):
    def test_progress_only_on_a_terminal(self):
        paths = [write_fastq(os.path.join(self.data, n)) for n in ("first.fq", "second.fq")]
        quiet = self.run_script([payload_of(job(self.csv, files=paths))], "progress")
        self.assertEqual((quiet.returncode, quiet.stderr), (0, b""))
        self.assertNotIn("--progress", self.engine_calls()[0])
        master, slave = pty.openpty()
        process = self.start(job(self.csv, files=paths), slave, FAKE_ENGINE_MODE="progress")
        os.close(slave)
        shown = b""
        while select.select([master], [], [], 30)[0]:
            try:
                chunk = os.read(master, 4096)
            except OSError:  # the terminal closes with the last writer
                break
            if not chunk:
                break
            shown += chunk
        os.close(master)
        self.assertEqual(process.wait(timeout=30), 0)
        self.assertIn("--progress", self.engine_calls()[1])
        text = shown.decode()
        self.assertIn("[1/2] first.fq: 0.0 of 0.0 MB (0%), 12346 reads/s", text)
        self.assertIn("[2/2] second.fq:", text)
        self.assertTrue(text.endswith("\r\x1b[K"), "the progress line is not cleared")

    def test_terminated_run_stops_the_engine_and_leaves_nothing(self):
        fq = write_fastq(os.path.join(self.data, "a.fq"))
        started = os.path.join(self.tmp, "started")
        process = self.start(job(self.csv, files=[fq]), subprocess.PIPE, FAKE_ENGINE_MODE="hang", FAKE_ENGINE_STARTED=started)
        deadline = time.monotonic() + 30
        while not os.path.exists(started) and time.monotonic() < deadline:
            time.sleep(0.05)
        self.assertTrue(os.path.exists(self.csv + ".part"))
        time.sleep(0.1)
        with open(started) as handle:
            engine_pid = int(handle.read())
        process.send_signal(signal.SIGTERM)
        _, stderr = process.communicate(timeout=30)
        self.assertFailed(subprocess.CompletedProcess([], process.returncode, b"", stderr), 1,
                          " the analysis was interrupted by signal %d" % signal.SIGTERM)
        with self.assertRaises(ProcessLookupError):  # reaped by the script, so gone entirely
            os.kill(engine_pid, 0)


if __name__ == "__main__":
    unittest.main()
