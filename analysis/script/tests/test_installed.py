"""The built installation: the launcher runs the compiled script alone, with the real engine
beside it, on files made by the generator."""
import importlib.util
import os
import shutil
import subprocess
import unittest

from test_genostat import SCRIPT_SOURCE, ScriptCase, job, payload_of

INSTALL = os.environ["GENOSTAT_INSTALL_DIR"]
PYC = os.path.join(INSTALL, "scripts", "genostat.pyc")
FQGEN = os.environ["GENOSTAT_FQGEN"]
COLUMNS = ["Sample", "Adapter_Type", "Total_Sequences", "Total_Bases", "Sequence_length"]


class InstalledScriptTest(ScriptCase):
    def setUp(self):
        super().setUp()
        # A copy of the installation under a name with a blank: launcher, .pyc and engine only.
        root = os.path.join(self.tmp, "zorv install")
        os.makedirs(os.path.join(root, "scripts"))
        self.launcher = shutil.copy(os.path.join(INSTALL, "statisticspython3"), root)
        self.pyc = shutil.copy(PYC, os.path.join(root, "scripts"))
        shutil.copy(os.path.join(INSTALL, "scripts", "genostat-qc"), os.path.join(root, "scripts"))

    def launch(self, *args):
        return subprocess.run([self.launcher] + list(args), timeout=300, stdin=subprocess.DEVNULL,
                              stdout=subprocess.PIPE, stderr=subprocess.PIPE)

    def generate(self, name, *options):
        path = os.path.join(self.data, name)
        subprocess.run([FQGEN, "--output", path] + list(options), check=True)
        return path

    def rows(self):
        with open(self.csv, newline="") as handle:
            lines = handle.read().split("\n")
        self.assertEqual((lines[0].split(",")[:5], lines[-1]), (COLUMNS, ""))
        return [dict(zip(lines[0].split(","), line.split(","))) for line in lines[1:-1]]

    def test_launcher_runs_the_python_that_compiled_the_unchecked_pyc_of_this_source(self):
        result = self.launch("-c", "import importlib.util, sys; sys.stdout.write(importlib.util.MAGIC_NUMBER.hex())")
        with open(PYC, "rb") as handle:
            header = handle.read(16)
        with open(SCRIPT_SOURCE, "rb") as handle:
            source = handle.read()
        self.assertEqual((result.returncode, result.stdout.decode()), (0, header[:4].hex()))
        self.assertEqual(int.from_bytes(header[4:8], "little"), 0b01, "expected an unchecked hash-based .pyc")
        self.assertEqual(header[8:16], importlib.util.source_hash(source), "the .pyc is older than genostat.py")

    def test_a_refused_file_is_left_out_of_a_batch_and_fails_a_job_alone(self):
        self.generate("b.fq.gz", "--reads", "2000", "--seed", "1", "--adapter-rate", "0.4", "--gzip")
        for name, seed in (("s1.fq", "2"), ("c.txt", "3")):
            self.generate(name, "--reads", "50", "--seed", seed)
        os.mkdir(os.path.join(self.data, "bad"))
        bad = os.path.join(self.data, "bad", "S1.fastq")
        with open(bad, "w") as handle:
            handle.write("@a\nACGT\n+\nIIII\n@b\nACGT\n+\nIIII\n@c\nACGTAC\n+\nIIIII\n")
        # The folder's own FASTQ files; then the refused file gets its row, its name numbered.
        result = self.launch(self.pyc, payload_of(job(self.csv, folder=self.data, adapter="ILLUMINA")))
        self.assertEqual(result.returncode, 0, result.stderr)
        self.assertEqual([[r[c] for c in COLUMNS + ["adapter_content"]] for r in self.rows()],
                         [["b", "ILLUMINA", "2000", "300000", "150", "fail"], ["s1", "ILLUMINA", "50", "7500", "150", "pass"]])
        os.remove(self.csv)
        result = self.launch(self.pyc, payload_of(job(self.csv, files=[bad, os.path.join(self.data, "s1.fq")])))
        self.assertEqual(result.returncode, 0, result.stderr)
        rows = self.rows()
        self.assertEqual([(r["Sample"], r["basic_statistics"]) for r in rows], [("s1", "pass"), ("S1_2", "fail")])
        self.assertEqual(set(rows[1].values()) - {"S1_2", "NONE", "fail"}, {""})
        # The script ran from its .pyc alone and wrote nothing beside itself.
        self.assertEqual(sorted(os.listdir(os.path.dirname(self.pyc))), ["genostat-qc", "genostat.pyc"])
        self.assertEqual(result.stderr.decode().count("record 3, line 12"), 1, result.stderr)
        os.remove(self.csv)
        self.assertFailed(self.launch(self.pyc, payload_of(job(self.csv, files=[bad]))), 5,
                          ": %s: record 3, line 12: quality length 5 differs from sequence length 6" % bad)
        os.remove(self.error_file)
        self.assertFailed(self.launch(self.pyc), 13)
        self.assertFailed(self.launch(self.pyc, "%%%"), 3)


if __name__ == "__main__":
    unittest.main()
