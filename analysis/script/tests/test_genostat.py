"""The analysis script against a stand-in engine: every exit code, its details file, no leftovers."""
import base64
import importlib.util
import os
import pty
import select
import signal
import subprocess
import sys
import time
import unittest
from unittest import mock

from harness import ScriptCase, SCRIPT_SOURCE, job, payload_of, write_fastq


def load_script_module():
    spec = importlib.util.spec_from_file_location("genostat_under_test", SCRIPT_SOURCE)
    module = importlib.util.module_from_spec(spec)
    spec.loader.exec_module(module)
    return module


genostat = load_script_module()


class CommandLineAndPayloadTest(ScriptCase):
    def test_not_exactly_one_argument_is_13(self):
        good = payload_of(job(self.csv, files=[write_fastq(os.path.join(self.data, "a.fq"))]))
        for args in ([], [good, good], [good, ""]):
            with self.subTest(count=len(args)):
                self.assertFailed(self.run_script(args), 13)
        self.assertEqual(self.engine_calls(), [])

    def test_payload_that_is_not_base64_or_not_json_is_3(self):
        cases = {
            "not base64": "this is not base64!",
            "missing padding": "eyJhIjoxfQ",
            "empty": "",
            "base64 of text": base64.b64encode(b"fastq_data: none").decode(),
            "base64 of cut JSON": base64.b64encode(b'{"fastq_data":[{"adapter":').decode(),
            "url-safe alphabet": base64.urlsafe_b64encode(b'{"a":"\xfb\xff"}').decode(),
        }
        for name, argument in cases.items():
            with self.subTest(name):
                self.assertFailed(self.run_script([argument]), 3)
        self.assertEqual(self.engine_calls(), [])

    def test_document_of_the_wrong_shape_is_4(self):
        fq = write_fastq(os.path.join(self.data, "a.fq"))
        entry = {"adapter": "NONE", "custom_sequence": "", "CSV_Path": self.csv, "files": [fq]}

        def without(key):
            return {k: v for k, v in entry.items() if k != key}

        cases = {
            "top level array": [entry],
            "no fastq_data": {"data": [entry]},
            "fastq_data object": {"fastq_data": entry},
            "fastq_data empty": {"fastq_data": []},
            "two entries": {"fastq_data": [entry, entry]},
            "entry not object": {"fastq_data": ["x"]},
            "no adapter": {"fastq_data": [without("adapter")]},
            "unknown adapter": {"fastq_data": [dict(entry, adapter="TRUSEQ")]},
            "lower-case adapter": {"fastq_data": [dict(entry, adapter="illumina")]},
            "adapter number": {"fastq_data": [dict(entry, adapter=1)]},
            "no custom_sequence": {"fastq_data": [without("custom_sequence")]},
            "custom_sequence null": {"fastq_data": [dict(entry, custom_sequence=None)]},
            "no CSV_Path": {"fastq_data": [without("CSV_Path")]},
            "empty CSV_Path": {"fastq_data": [dict(entry, CSV_Path="")]},
            "CSV_Path list": {"fastq_data": [dict(entry, CSV_Path=[self.csv])]},
            "no input": {"fastq_data": [without("files")]},
            "files and folder": {"fastq_data": [dict(entry, folder=self.data)]},
            "files string": {"fastq_data": [dict(entry, files=fq)]},
            "files empty": {"fastq_data": [dict(entry, files=[])]},
            "files number": {"fastq_data": [dict(entry, files=[fq, 3])]},
            "files empty name": {"fastq_data": [dict(entry, files=[""])]},
            "empty folder": {"fastq_data": [dict(without("files"), folder="")]},
            "folder list": {"fastq_data": [dict(without("files"), folder=[self.data])]},
        }
        for name, document in cases.items():
            with self.subTest(name):
                self.assertFailed(self.run_job(document), 4)
        self.assertEqual(self.engine_calls(), [])

    def test_unknown_extra_members_are_ignored(self):
        fq = write_fastq(os.path.join(self.data, "a.fq"))
        document = job(self.csv, files=[fq])
        document["fastq_data"][0]["jobName"] = "x"
        document["version"] = 2
        self.assertEqual(self.run_job(document).returncode, 0)


class AdapterTest(ScriptCase):
    def test_invalid_custom_sequence_is_10_with_the_sequence(self):
        fq = write_fastq(os.path.join(self.data, "a.fq"))
        for sequence, shown in (("ACGTX", " ACGTX"), ("ACG TT", " ACG TT"), ("ACGN", " ACGN"),
                                ("", " (empty)"), ("AGATCGGAAGAGC\n", " AGATCGGAAGAGC\n")):
            with self.subTest(sequence=sequence):
                result = self.run_job(job(self.csv, files=[fq], adapter="CUSTOM", custom=sequence))
                self.assertFailed(result, 10, shown)
                os.remove(self.error_file)
        self.assertEqual(self.engine_calls(), [])

    def test_custom_sequence_reaches_the_engine_upper_cased(self):
        fq = write_fastq(os.path.join(self.data, "a.fq"))
        result = self.run_job(job(self.csv, files=[fq], adapter="CUSTOM", custom="agatCGGaag"))
        self.assertEqual(result.returncode, 0, result.stderr)
        (call,) = self.engine_calls()
        self.assertEqual(call[call.index("--adapter") + 1], "CUSTOM")
        self.assertEqual(call[call.index("--custom-sequence") + 1], "AGATCGGAAG")

    def test_custom_sequence_is_ignored_for_other_adapters(self):
        fq = write_fastq(os.path.join(self.data, "a.fq"))
        for adapter in ("NONE", "ILLUMINA", "NEXTERA"):
            with self.subTest(adapter):
                result = self.run_job(job(self.csv, files=[fq], adapter=adapter, custom="not dna"))
                self.assertEqual(result.returncode, 0, result.stderr)
                call = self.engine_calls()[-1]
                self.assertEqual(call[call.index("--adapter") + 1], adapter)
                self.assertNotIn("--custom-sequence", call)


class InputTest(ScriptCase):
    def test_missing_file_is_2_naming_it(self):
        fq = write_fastq(os.path.join(self.data, "a.fq"))
        missing = os.path.join(self.data, "missing.fastq")
        self.assertFailed(self.run_job(job(self.csv, files=[fq, missing])), 2, " " + missing)
        self.assertEqual(self.engine_calls(), [])

    def test_folder_given_as_file_is_2(self):
        folder = os.path.join(self.data, "dir.fastq")
        os.mkdir(folder)
        self.assertFailed(self.run_job(job(self.csv, files=[folder])), 2, " " + folder)

    def test_missing_folder_is_2_and_a_file_given_as_folder_too(self):
        missing = os.path.join(self.tmp, "nowhere")
        self.assertFailed(self.run_job(job(self.csv, folder=missing)), 2, " " + missing)
        os.remove(self.error_file)
        fq = write_fastq(os.path.join(self.data, "a.fq"))
        self.assertFailed(self.run_job(job(self.csv, folder=fq)), 2, " " + fq)

    def test_folder_without_fastq_files_is_8(self):
        for name in ("notes.txt", "a.fastq.zip", "b.fa", "fastq", "c.gz"):
            write_fastq(os.path.join(self.data, name))
        os.mkdir(os.path.join(self.data, "sub.fastq"))  # a folder, whatever its name
        write_fastq(os.path.join(self.data, "sub.fastq", "inner.fq"))  # sub-folders not entered
        self.assertFailed(self.run_job(job(self.csv, folder=self.data)), 8, " " + self.data)
        self.assertEqual(self.engine_calls(), [])

    def test_folder_gives_its_fastq_files_in_byte_order_of_names(self):
        names = ["b.fq", "B.FASTQ", "a10.fastq.gz", "a2.fq.GZ", "c.fastq.bz2", "d.FQ.BZ2",
                 "_x.fastq", "é.fq"]
        for name in names + ["skip.txt", "skip.fastq.xz"]:
            write_fastq(os.path.join(self.data, name))
        os.mkdir(os.path.join(self.data, "dir.fq"))
        result = self.run_job(job(self.csv, folder=self.data))
        self.assertEqual(result.returncode, 0, result.stderr)
        (call,) = self.engine_calls()
        given = call[call.index("--output") + 2:]
        expected = sorted(names, key=lambda n: n.encode("utf-8"))
        self.assertEqual(given, [os.path.join(self.data, n) for n in expected])
        self.assertEqual(expected[:3], ["B.FASTQ", "_x.fastq", "a10.fastq.gz"])

    def test_files_reach_the_engine_in_the_given_order(self):
        paths = [write_fastq(os.path.join(self.data, n)) for n in ("z.fq", "a.fq", "m.fastq")]
        paths.append(paths[1])  # the same file twice is two samples
        self.assertEqual(self.run_job(job(self.csv, files=paths)).returncode, 0)
        (call,) = self.engine_calls()
        self.assertEqual(call[call.index("--output") + 1], self.csv + ".part")
        self.assertEqual(call[call.index("--output") + 2:], paths)

    def test_named_pipe_is_checked_without_waiting_for_a_writer(self):
        fifo = os.path.join(self.data, "live.fq")
        os.mkfifo(fifo)
        result = self.run_job(job(self.csv, files=[fifo]))  # the run's time-out catches a hang
        self.assertEqual(result.returncode, 0, result.stderr)

    def test_relative_name_starting_with_a_dash_is_not_an_option(self):
        write_fastq(os.path.join(self.data, "-n.fq"))
        env_cwd = os.getcwd()
        os.chdir(self.data)
        self.addCleanup(os.chdir, env_cwd)
        self.assertEqual(self.run_job(job(self.csv, files=["-n.fq"])).returncode, 0)
        self.assertEqual(self.engine_calls()[0][-1], "./-n.fq")

    @unittest.skipIf(hasattr(os, "geteuid") and os.geteuid() == 0, "root reads every file")
    def test_unreadable_file_and_folder_are_7(self):
        fq = write_fastq(os.path.join(self.data, "a.fq"))
        os.chmod(fq, 0)
        self.assertFailed(self.run_job(job(self.csv, files=[fq])), 7, " " + fq)
        os.remove(self.error_file)
        os.chmod(self.data, 0o300)
        self.addCleanup(os.chmod, self.data, 0o755)
        self.assertFailed(self.run_job(job(self.csv, folder=self.data)), 7, " " + self.data)


class PermissionInProcessTest(ScriptCase):
    """Permission errors as the operating system reports them, also when the tests run as root."""

    def run_in_process(self, document):
        with mock.patch.object(genostat, "engine_path", return_value=self.engine):
            with mock.patch.object(sys, "stderr", open(os.devnull, "w")) as sink:
                try:
                    return genostat.run([payload_of(document)])
                finally:
                    sink.close()

    def test_unlistable_folder_is_7(self):
        write_fastq(os.path.join(self.data, "a.fq"))
        with mock.patch.object(genostat.os, "listdir", side_effect=PermissionError(13, "denied")):
            code = self.run_in_process(job(self.csv, folder=self.data))
        self.assertEqual(code, 7)
        self.assertEqual(self.details(), {"RESOURCE_PATH": " " + self.data})

    def test_unreadable_file_is_7(self):
        fq = write_fastq(os.path.join(self.data, "a.fq"))
        real_open = os.open

        def guarded_open(path, *args, **kwargs):
            if path == fq:
                raise PermissionError(13, "denied", path)
            return real_open(path, *args, **kwargs)

        with mock.patch.object(genostat.os, "open", guarded_open):
            code = self.run_in_process(job(self.csv, files=[fq]))
        self.assertEqual(code, 7)
        self.assertEqual(self.details(), {"RESOURCE_PATH": " " + fq})

    def test_memory_exhaustion_in_the_script_is_12(self):
        fq = write_fastq(os.path.join(self.data, "a.fq"))
        with mock.patch.object(genostat, "resolve_inputs", side_effect=MemoryError):
            code = self.run_in_process(job(self.csv, files=[fq]))
        self.assertEqual(code, 12)
        self.assertEqual(self.details(), {"RESOURCE_NAME": " the analysis script"})

    def test_unforeseen_failure_is_1_with_its_text(self):
        fq = write_fastq(os.path.join(self.data, "a.fq"))
        with mock.patch.object(genostat, "run_engine", side_effect=KeyError("boom")):
            code = self.run_in_process(job(self.csv, files=[fq]))
        self.assertEqual(code, 1)
        self.assertEqual(self.details(), {"ERROR_MESSAGE": " KeyError: 'boom'"})


class EngineTest(ScriptCase):
    def setUp(self):
        super().setUp()
        self.fq = write_fastq(os.path.join(self.data, "reads: run 1.fastq"))
        self.document = job(self.csv, files=[self.fq])

    def test_missing_engine_is_6(self):
        os.remove(self.engine)
        self.assertFailed(self.run_job(self.document), 6,
                          " genostat-qc (no runnable program at %s)" % self.engine)

    def test_engine_that_is_not_executable_is_6(self):
        os.chmod(self.engine, 0o644)
        self.assertFailed(self.run_job(self.document), 6,
                          " genostat-qc (no runnable program at %s)" % self.engine)

    def test_engine_that_cannot_start_is_6(self):
        with open(self.engine, "wb") as handle:
            handle.write(b"\x7fELF-but-not-really")
        result = self.run_job(self.document)
        self.assertFailed(result, 6, self.details().get("DEPENDENCIES"))
        self.assertTrue(self.details()["DEPENDENCIES"].startswith(" genostat-qc (cannot start "))

    def test_engine_exit_codes_map_to_script_codes(self):
        line = "genostat-qc: error: {0}: "
        cases = [
            (65, line + "record 3, line 11: quality length 5 differs from sequence length 6", 5,
             ": %s: record 3, line 11: quality length 5 differs from sequence length 6" % self.fq),
            (65, line + "record 2, line 5: damaged gzip stream", 5,
             ": %s: record 2, line 5: damaged gzip stream" % self.fq),
            (66, line + "no such file", 2, " " + self.fq),
            (77, line + "permission denied", 7, " " + self.fq),
            (73, "genostat-qc: error: %s.part: cannot write" % self.csv, 9, " " + self.csv),
            (70, line + "worker failed", 11, None),
            (75, line + "out of memory", 12, " " + self.fq),
            (64, "genostat-qc: error: unknown option --x", 1,
             " the QC engine refused its arguments (genostat-qc: error: unknown option --x)"),
            (99, "strange", 1, " the QC engine ended with exit code 99 (strange)"),
        ]
        for engine_code, last_line, code, value in cases:
            with self.subTest(engine_code=engine_code, line=last_line):
                result = self.run_job(self.document, mode="exit:%d:%s" % (engine_code, last_line))
                self.assertFailed(result, code, value)
                if os.path.exists(self.error_file):
                    os.remove(self.error_file)

    def test_engine_killed_by_a_signal_is_1(self):
        with open(self.engine, "w") as handle:
            handle.write("#!/bin/sh\nkill -9 $$\n")
        self.assertFailed(self.run_job(self.document), 1,
                          " the QC engine was stopped by signal 9")

    def test_success_without_a_result_is_1(self):
        self.assertFailed(self.run_job(self.document, mode="no-output"), 1,
                          " the QC engine reported success but wrote no result")

    def test_failure_in_the_second_file_writes_no_rows_of_the_first(self):
        second = write_fastq(os.path.join(self.data, "b.fq"))
        document = job(self.csv, files=[self.fq, second])
        result = self.run_job(document, mode="exit:65:genostat-qc: error: %s: record 1, line 4: "
                                              "quality length 3 differs from sequence length 4"
                                              % second)
        self.assertFailed(result, 5, ": %s: record 1, line 4: quality length 3 differs from "
                                     "sequence length 4" % second)


class ResultTest(ScriptCase):
    def test_success_renames_the_result_into_place(self):
        fq = write_fastq(os.path.join(self.data, "S1_R1.fastq"))
        with open(self.error_file, "w") as handle:
            handle.write('{"FILE_PATH": " stale"}')
        result = self.run_job(job(self.csv, files=[fq], adapter="ILLUMINA"))
        self.assertEqual(result.returncode, 0, result.stderr)
        self.assertEqual(result.stdout, b"")
        self.assertEqual(result.stderr, b"")  # not a terminal: quiet
        with open(self.csv) as handle:
            self.assertEqual(handle.read(),
                             "Sample,Adapter_Type,Total_Sequences\nS1_R1.fastq,ILLUMINA,1\n")
        self.assertEqual(os.listdir(self.out), [os.path.basename(self.csv)])

    def test_unwritable_result_path_is_9(self):
        fq = write_fastq(os.path.join(self.data, "a.fq"))
        os.mkdir(self.csv)  # the rename onto a folder fails
        result = self.run_job(job(self.csv, files=[fq]))
        self.assertEqual(result.returncode, 9)
        self.assertEqual(self.details(), {"OUTPUT_PATH": " " + self.csv})
        self.assertFalse(os.path.exists(self.csv + ".part"))
        self.assertTrue(os.path.isdir(self.csv))

    def test_an_engine_failure_reaches_stderr_once_as_one_readable_line(self):
        # Before, the engine's line was echoed and then repeated as "genostat: error 5:: ...".
        fq = write_fastq(os.path.join(self.data, "a.fq"))
        reason = "%s: record 1, line 4: quality length 3 differs from sequence length 4" % fq
        result = self.run_job(job(self.csv, files=[fq]), mode="exit:65:genostat-qc: error: " + reason)
        self.assertEqual(result.returncode, 5)
        stderr = result.stderr.decode()
        self.assertEqual(stderr.count(reason), 1, stderr)
        self.assertTrue(stderr.endswith("\ngenostat: error 5: %s\n" % reason), stderr)

    def test_result_folder_that_does_not_exist_is_9_with_nowhere_for_details(self):
        fq = write_fastq(os.path.join(self.data, "a.fq"))
        csv = os.path.join(self.tmp, "gone", "out.csv")
        result = self.run_job(job(csv, files=[fq]),
                              mode="exit:73:genostat-qc: error: %s.part: cannot create" % csv)
        self.assertEqual(result.returncode, 9)
        self.assertFalse(os.path.exists(os.path.dirname(csv)))
        self.assertIn(b"cannot write the error details", result.stderr)

    def test_error_file_name_cuts_at_the_last_dot_of_the_whole_path(self):
        self.assertEqual(genostat.error_file_path("/tmp/1.csv"), "/tmp/1.error")
        self.assertEqual(genostat.error_file_path("/tmp/run.2/out"), "/tmp/run.error")
        self.assertEqual(genostat.error_file_path("/tmp/out"), "/tmp/out.error")
        self.assertEqual(genostat.error_file_path("a.b.csv"), "a.b.error")

    def test_details_file_beside_a_csv_path_without_a_dot(self):
        folder = os.path.join(self.tmp, "plain")
        os.mkdir(folder)
        csv = os.path.join(folder, "result")
        missing = os.path.join(self.data, "gone.fq")
        result = self.run_job(job(csv, files=[missing]))
        self.assertEqual(result.returncode, 2)
        self.assertEqual(os.listdir(folder), ["result.error"])

    def test_non_utf8_path_bytes_come_back_unchanged_in_the_details(self):
        name = os.fsdecode(b"caf\xe9.fq")  # Latin-1 bytes, as the module may pass them
        missing = os.path.join(self.data, name)
        result = self.run_job(job(self.csv, files=[missing]))
        self.assertEqual(result.returncode, 2)
        with open(self.error_file, "rb") as handle:
            raw = handle.read()
        self.assertIn(b"caf\xe9.fq", raw)


class ProgressTest(ScriptCase):
    def test_no_progress_requested_off_a_terminal(self):
        fq = write_fastq(os.path.join(self.data, "a.fq"))
        result = self.run_job(job(self.csv, files=[fq]), mode="progress")
        self.assertEqual(result.returncode, 0)
        self.assertNotIn("--progress", self.engine_calls()[0])
        self.assertEqual(result.stderr, b"")

    def test_progress_shown_on_a_terminal(self):
        paths = [write_fastq(os.path.join(self.data, n)) for n in ("first.fq", "second.fq")]
        master, slave = pty.openpty()
        env = dict(os.environ, FAKE_ENGINE_MODE="progress", FAKE_ENGINE_LOG=self.log)
        process = subprocess.Popen(
            [sys.executable, self.script, payload_of(job(self.csv, files=paths))],
            stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=slave, env=env)
        os.close(slave)
        shown = b""
        while True:
            ready, _, _ = select.select([master], [], [], 30)
            if not ready:
                break
            try:
                chunk = os.read(master, 4096)
            except OSError:  # the terminal closes with the last writer
                break
            if not chunk:
                break
            shown += chunk
        os.close(master)
        self.assertEqual(process.wait(timeout=30), 0)
        self.assertIn("--progress", self.engine_calls()[0])
        text = shown.decode()
        self.assertIn("[1/2] first.fq: 0.0 of 0.0 MB (0%), 12346 reads/s", text)
        self.assertIn("[2/2] second.fq:", text)
        self.assertTrue(text.endswith("\r\x1b[K"), "the progress line is not cleared")

    def test_progress_lines_parse_and_read(self):
        self.assertEqual(genostat.parse_progress("progress 1 50 200 1500.5"), (1, 50, 200, 1500.5))
        for bad in ("progress 1 50 200", "progress a 50 200 1", "genostat-qc: error: x: y",
                    "progress 1 50 200 1 extra"):
            self.assertIsNone(genostat.parse_progress(bad))
        self.assertEqual(genostat.format_progress((1, 250_000_000, 1_000_000_000, 2e6),
                                                  ["/d/a.fq"]),
                         "a.fq: 250.0 of 1000.0 MB (25%), 2000000 reads/s")
        self.assertEqual(genostat.format_progress((2, 1, 2, 0.0), ["/d/a.fq", "/d/b.fq"]),
                         "[2/2] b.fq: 0.0 of 0.0 MB (50%), 0 reads/s")
        self.assertEqual(genostat.format_progress((3, 1, 0, 0.0), ["/d/a.fq", "/d/b.fq"]),
                         "[3/2] file 3: 0.0 of 0.0 MB, 0 reads/s")


class EngineErrorLineTest(unittest.TestCase):
    def test_known_paths_win_over_colons_inside_them(self):
        files = ["/d/x: y.fq", "/d/x"]
        line = "genostat-qc: error: /d/x: y.fq: record 1, line 2: reason: more"
        self.assertEqual(genostat.split_engine_error(line, files),
                         ("/d/x: y.fq", "record 1, line 2: reason: more"))

    def test_unknown_path_splits_at_the_first_separator(self):
        self.assertEqual(genostat.split_engine_error("genostat-qc: error: /o.csv: denied", []),
                         ("/o.csv", "denied"))
        self.assertEqual(genostat.split_engine_error("free text", ["/a"]), (None, "free text"))
        self.assertEqual(genostat.split_engine_error("genostat-qc: error: alone", []),
                         (None, "alone"))


class PlatformEngineTest(unittest.TestCase):
    def test_on_windows_the_engine_is_the_exe_beside_the_script(self):
        with mock.patch.object(os, "name", "nt"):
            windows = load_script_module()
        self.assertEqual(windows.ENGINE_NAME, "genostat-qc.exe")
        self.assertEqual(windows.engine_path(),
                         os.path.join(os.path.dirname(os.path.abspath(SCRIPT_SOURCE)),
                                      "genostat-qc.exe"))
        self.assertEqual(genostat.ENGINE_NAME, "genostat-qc")

    def test_a_build_without_bzip2_reaches_the_user_as_a_bad_fastq_file(self):
        path = "C:\\data\\r 1.fq.bz2"
        line = ("genostat-qc: error: %s: is compressed with bzip2, which this build of genostat-qc "
                "cannot read; decompress it, or compress it with gzip instead" % path)
        error = genostat.map_engine_failure(genostat.ENGINE_DATA, line, [path], "C:\\o.csv")
        self.assertEqual(error.code, genostat.EXIT_BAD_FASTQ)
        self.assertEqual(error.value, ": %s: is compressed with bzip2, which this build of "
                         "genostat-qc cannot read; decompress it, or compress it with gzip "
                         "instead" % path)


class SignalTest(ScriptCase):
    def test_terminated_run_stops_the_engine_and_leaves_nothing(self):
        fq = write_fastq(os.path.join(self.data, "a.fq"))
        started = os.path.join(self.tmp, "started")
        env = dict(os.environ, FAKE_ENGINE_MODE="hang", FAKE_ENGINE_STARTED=started)
        process = subprocess.Popen([sys.executable, self.script,
                                    payload_of(job(self.csv, files=[fq]))],
                                   stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
                                   stderr=subprocess.PIPE, env=env)
        deadline = time.monotonic() + 30
        while not os.path.exists(started) and time.monotonic() < deadline:
            time.sleep(0.05)
        self.assertTrue(os.path.exists(self.csv + ".part"))
        time.sleep(0.1)
        with open(started) as handle:
            engine_pid = int(handle.read())
        process.send_signal(signal.SIGTERM)
        _, stderr = process.communicate(timeout=30)
        self.assertEqual(process.returncode, 1, stderr)
        self.assertEqual(self.details(),
                         {"ERROR_MESSAGE": " the analysis was interrupted by signal %d"
                          % signal.SIGTERM})
        self.assertFalse(os.path.exists(self.csv + ".part"))
        self.assertFalse(os.path.exists(self.csv))
        with self.assertRaises(ProcessLookupError):  # reaped by the script, so gone entirely
            os.kill(engine_pid, 0)


if __name__ == "__main__":
    unittest.main()
