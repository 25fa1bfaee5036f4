"""Shared helpers: installation folders with a stand-in engine, payloads, script runs."""
import base64
import json
import os
import shutil
import subprocess
import sys
import tempfile
import unittest

HERE = os.path.dirname(os.path.abspath(__file__))
SCRIPT_SOURCE = os.environ.get("GENOSTAT_SCRIPT_SOURCE",
                               os.path.join(os.path.dirname(HERE), "genostat.py"))
FAKE_ENGINE = os.path.join(HERE, "fake_engine.py")

# Every exit code with a placeholder and the member it writes.
PLACEHOLDER_OF = {1: "ERROR_MESSAGE", 2: "FILE_PATH", 5: "FILE_NAME", 6: "DEPENDENCIES",
                  7: "RESOURCE_PATH", 8: "FOLDER_PATH", 9: "OUTPUT_PATH",
                  10: "ADAPTER_SEQUENCE", 12: "RESOURCE_NAME"}


def payload_of(document):
    """The module's encoding: compact JSON, then standard base64 on one line."""
    text = json.dumps(document, separators=(",", ":"), ensure_ascii=False)
    return base64.b64encode(text.encode("utf-8", "surrogateescape")).decode("ascii")


def job(csv_path, files=None, folder=None, adapter="NONE", custom=""):
    entry = {"adapter": adapter, "custom_sequence": custom, "CSV_Path": csv_path}
    if files is not None:
        entry["files"] = files
    else:
        entry["folder"] = folder
    return {"fastq_data": [entry]}


def install_fake_engine(scripts_dir):
    engine = os.path.join(scripts_dir, "genostat-qc")
    with open(engine, "w") as handle:
        handle.write("#!%s\n" % sys.executable)
        with open(FAKE_ENGINE) as source:
            handle.write(source.read())
    os.chmod(engine, 0o755)
    return engine


def write_fastq(path, records=1):
    with open(path, "w") as handle:
        for i in range(records):
            handle.write("@r%d\nACGT\n+\nIIII\n" % i)
    return path


class ScriptCase(unittest.TestCase):
    """A temporary installation (scripts/genostat.py + stand-in engine) and a data folder."""

    def setUp(self):
        self.tmp = tempfile.mkdtemp(prefix="genostat-script-")
        self.addCleanup(shutil.rmtree, self.tmp, True)
        self.scripts = os.path.join(self.tmp, "install", "scripts")
        os.makedirs(self.scripts)
        self.script = os.path.join(self.scripts, "genostat.py")
        shutil.copy(SCRIPT_SOURCE, self.script)
        self.engine = install_fake_engine(self.scripts)
        self.data = os.path.join(self.tmp, "data")
        self.out = os.path.join(self.tmp, "out")
        os.makedirs(self.data)
        os.makedirs(self.out)
        self.csv = os.path.join(self.out, "1731721138.csv")
        self.error_file = os.path.join(self.out, "1731721138.error")
        self.log = os.path.join(self.tmp, "engine.log")

    def run_script(self, args, mode=None, timeout=60):
        env = dict(os.environ, FAKE_ENGINE_LOG=self.log)
        env.pop("FAKE_ENGINE_MODE", None)
        if mode is not None:
            env["FAKE_ENGINE_MODE"] = mode
        return subprocess.run([sys.executable, self.script] + args, env=env, timeout=timeout,
                              stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                              stderr=subprocess.PIPE)

    def run_job(self, document, mode=None):
        return self.run_script([payload_of(document)], mode)

    def engine_calls(self):
        if not os.path.exists(self.log):
            return []
        with open(self.log) as handle:
            return [json.loads(line) for line in handle]

    def details(self):
        with open(self.error_file, "rb") as handle:
            return json.loads(handle.read().decode("utf-8", "surrogateescape"))

    def assertFailed(self, result, code, value=None):
        """Exit `code`; the details file holds exactly `value` (or does not exist); no result left."""
        self.assertEqual(result.returncode, code, result.stderr.decode(errors="replace"))
        self.assertFalse(os.path.exists(self.csv), "a CSV was left behind")
        self.assertFalse(os.path.exists(self.csv + ".part"), "a .part file was left behind")
        if code in PLACEHOLDER_OF:
            self.assertEqual(self.details(), {PLACEHOLDER_OF[code]: value})
        else:
            self.assertFalse(os.path.exists(self.error_file), "unexpected details file")
        # Whatever the code, nothing else may appear beside the CSV.
        allowed = {os.path.basename(self.error_file)} if code in PLACEHOLDER_OF else set()
        self.assertEqual(set(os.listdir(self.out)), allowed)
