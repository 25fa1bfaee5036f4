"""The built installation folder: the launcher runs the compiled script with no .py beside it."""
import importlib.util
import os
import shutil
import subprocess
import unittest

from harness import SCRIPT_SOURCE, ScriptCase, install_fake_engine, job, payload_of, write_fastq

INSTALL = os.environ.get("GENOSTAT_INSTALL_DIR", "")
LAUNCHER = os.path.join(INSTALL, "statisticspython3")
PYC = os.path.join(INSTALL, "scripts", "genostat.pyc")


@unittest.skipUnless(INSTALL, "GENOSTAT_INSTALL_DIR is not set (run through ctest)")
class InstalledScriptTest(ScriptCase):
    def setUp(self):
        super().setUp()
        # A copy of the installation: launcher, scripts/genostat.pyc and a stand-in engine only.
        self.root = os.path.join(self.tmp, "zorv")
        os.makedirs(os.path.join(self.root, "scripts"))
        self.launcher = shutil.copy(LAUNCHER, os.path.join(self.root, "statisticspython3"))
        self.pyc = shutil.copy(PYC, os.path.join(self.root, "scripts", "genostat.pyc"))
        self.engine = install_fake_engine(os.path.join(self.root, "scripts"))

    def launch(self, *args):
        env = dict(os.environ, FAKE_ENGINE_LOG=self.log)
        return subprocess.run([self.launcher] + list(args), env=env, timeout=60,
                              stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                              stderr=subprocess.PIPE)

    def test_launcher_is_executable_and_runs_the_python_that_compiled_the_script(self):
        self.assertTrue(os.access(LAUNCHER, os.X_OK))
        result = self.launch("-c", "import importlib.util, sys; "
                                   "sys.stdout.write(importlib.util.MAGIC_NUMBER.hex())")
        self.assertEqual(result.returncode, 0, result.stderr)
        with open(PYC, "rb") as handle:
            self.assertEqual(handle.read(4).hex(), result.stdout.decode())

    def test_pyc_is_compiled_from_the_current_source_and_never_checks_it(self):
        with open(PYC, "rb") as handle:
            header = handle.read(16)
        with open(SCRIPT_SOURCE, "rb") as handle:
            source = handle.read()
        flags = int.from_bytes(header[4:8], "little")
        self.assertEqual(flags, 0b01, "expected an unchecked hash-based .pyc")
        self.assertEqual(header[8:16], importlib.util.source_hash(source),
                         "the installed .pyc is older than genostat.py: rebuild")

    def test_job_runs_through_the_launcher_with_a_base64_payload(self):
        fq = write_fastq(os.path.join(self.data, "S1.fastq"), records=3)
        result = self.launch(self.pyc, payload_of(job(self.csv, files=[fq], adapter="NEXTERA")))
        self.assertEqual(result.returncode, 0, result.stderr)
        with open(self.csv) as handle:
            self.assertEqual(handle.read().splitlines()[1], "S1.fastq,NEXTERA,1")
        (call,) = self.engine_calls()
        self.assertEqual(call[call.index("--output") + 1], self.csv + ".part")
        # The script ran from its .pyc alone and wrote nothing beside itself.
        self.assertEqual(sorted(os.listdir(os.path.join(self.root, "scripts"))),
                         ["genostat-qc", "genostat.pyc"])

    def test_failure_code_and_details_pass_through_the_launcher(self):
        missing = os.path.join(self.data, "absent.fq")
        self.assertFailed(self.launch(self.pyc, payload_of(job(self.csv, files=[missing]))),
                          2, " " + missing)
        os.remove(self.error_file)
        self.assertFailed(self.launch(self.pyc), 13)
        self.assertFailed(self.launch(self.pyc, "%%%"), 3)


if __name__ == "__main__":
    unittest.main()
