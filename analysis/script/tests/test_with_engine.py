"""The installed script with the real engine, on generated and malformed FASTQ files."""
import glob
import gzip
import os
import re
import shutil
import subprocess
import unittest

from harness import ScriptCase, job, payload_of

INSTALL = os.environ.get("GENOSTAT_INSTALL_DIR", "")
LAUNCHER = os.path.join(INSTALL, "statisticspython3")
PYC = os.path.join(INSTALL, "scripts", "genostat.pyc")
ENGINE = os.path.join(INSTALL, "scripts", "genostat-qc")
FQGEN = os.environ.get("GENOSTAT_FQGEN", "")
SHARED = os.environ.get("GENOSTAT_SHARED_TESTDATA", "")

COLUMNS = ("Sample,Adapter_Type,Total_Sequences,Total_Bases,Sequence_length,GC,"
           "total_deduplicated_percentage,avg_sequence_length,median_sequence_length,"
           "basic_statistics,per_base_sequence_quality,per_sequence_quality_scores,"
           "per_base_sequence_content,per_sequence_gc_content,per_base_n_content,"
           "sequence_length_distribution,sequence_duplication_levels,overrepresented_sequences,"
           "adapter_content,per_tile_sequence_quality,qc_score,median_phred_first_10bp,"
           "median_phred_last_10bp,mean_phred_all_reads,low_complexity_percentage,"
           "unexpected_bases_percentage,overrepresented_seq_count")


@unittest.skipUnless(os.access(ENGINE, os.X_OK), "the engine is not built into the installation")
@unittest.skipUnless(os.access(FQGEN, os.X_OK), "GENOSTAT_FQGEN does not name the generator")
class RealEngineTest(ScriptCase):
    def launch(self, document):
        return subprocess.run([LAUNCHER, PYC, payload_of(document)], timeout=300,
                              stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                              stderr=subprocess.PIPE)

    def generate(self, name, *options):
        path = os.path.join(self.data, name)
        subprocess.run([FQGEN, "--output", path] + list(options), check=True)
        return path

    def rows(self):
        with open(self.csv, newline="") as handle:
            lines = handle.read().split("\n")
        self.assertEqual(lines[0], COLUMNS)
        self.assertEqual(lines[-1], "")
        return [line.split(",") for line in lines[1:-1]]

    def test_generated_samples_give_one_row_each(self):
        clean = self.generate("clean.fastq", "--reads", "3000", "--seed", "1")
        adapters = self.generate("adapters.fq.gz", "--reads", "2000", "--seed", "2",
                                 "--adapter-rate", "0.4", "--gzip=1")
        degraded = self.generate("degraded.fq", "--reads", "1000", "--seed", "3",
                                 "--length", "50-150", "--quality", "decay", "--n-rate", "0.03")
        result = self.launch(job(self.csv, files=[clean, adapters, degraded], adapter="ILLUMINA"))
        self.assertEqual(result.returncode, 0, result.stderr)
        rows = self.rows()
        self.assertEqual([r[:5] for r in rows],
                         [["clean", "ILLUMINA", "3000", "450000", "150"],
                          ["adapters", "ILLUMINA", "2000", "300000", "150"],
                          ["degraded", "ILLUMINA", "1000", rows[2][3], "50-150"]])
        adapter_column = COLUMNS.split(",").index("adapter_content")
        self.assertEqual(rows[0][adapter_column], "pass")
        self.assertEqual(rows[1][adapter_column], "fail")
        self.assertEqual(os.listdir(self.out), [os.path.basename(self.csv)])

    def test_folder_input_with_the_real_engine(self):
        for name, seed in (("b.fq", "1"), ("a.fastq", "2"), ("c.txt", "3")):
            self.generate(name, "--reads", "50", "--seed", seed)
        result = self.launch(job(self.csv, folder=self.data))
        self.assertEqual(result.returncode, 0, result.stderr)
        self.assertEqual([r[0] for r in self.rows()], ["a", "b"])

    def test_a_malformed_file_is_left_out_of_a_batch_and_is_5_alone(self):
        good = self.generate("good.fq", "--reads", "10")
        bad = os.path.join(self.data, "bad.fastq")
        with open(bad, "w") as handle:
            handle.write("@a\nACGT\n+\nIIII\n@b\nACGT\n+\nIIII\n@c\nACGTAC\n+\nIIIII\n")
        # Before, one bad file failed the whole batch: now it gets its row and its reason, once.
        result = self.launch(job(self.csv, files=[bad, good]))
        self.assertEqual(result.returncode, 0, result.stderr)
        rows = self.rows()
        self.assertEqual([r[0] for r in rows], ["good", "bad"])
        verdict = COLUMNS.split(",").index("basic_statistics")
        self.assertEqual(rows[1][verdict], "fail")
        self.assertEqual(set(rows[1][2:]) - {"fail"}, {""})
        self.assertEqual(result.stderr.decode().count("record 3, line 12"), 1, result.stderr)
        # Alone it is the job's failure, naming the file, the record and the line.
        os.remove(self.csv)
        result = self.launch(job(self.csv, files=[bad]))
        self.assertFailed(result, 5, self.details().get("FILE_NAME"))
        self.assertRegex(self.details()["FILE_NAME"],
                         "^: " + re.escape(bad) + r": record 3, line 12: .*5.*6")

    def test_damaged_gzip_stream_is_5(self):
        path = self.generate("cut.fq.gz", "--reads", "2000", "--gzip")
        with open(path, "rb") as handle:
            data = handle.read()
        with open(path, "wb") as handle:
            handle.write(data[: len(data) // 2])
        result = self.launch(job(self.csv, files=[path]))
        self.assertFailed(result, 5, self.details().get("FILE_NAME"))
        self.assertTrue(self.details()["FILE_NAME"].startswith(": %s: record " % path))

    @unittest.skipUnless(os.path.isdir(SHARED), "the shared FASTQ test data is not beside the project")
    def test_every_malformed_example_file_is_5(self):
        paths = sorted(glob.glob(os.path.join(SHARED, "error_*.fastq")))
        self.assertGreater(len(paths), 10)
        for path in paths:
            with self.subTest(os.path.basename(path)):
                result = self.launch(job(self.csv, files=[path]))
                self.assertFailed(result, 5, self.details().get("FILE_NAME"))
                self.assertRegex(self.details()["FILE_NAME"],
                                 "^: " + re.escape(path) + r": record \d+, line \d+: .+")
                os.remove(self.error_file)

    @unittest.skipUnless(os.path.isdir(SHARED), "the shared FASTQ test data is not beside the project")
    def test_valid_example_files_pass_plain_and_compressed(self):
        names = ["example.fastq", "example.fastq.gz", "example.fastq.bgz", "example_dos.fastq",
                 "zero_length.fastq"]
        result = self.launch(job(self.csv, files=[os.path.join(SHARED, n) for n in names]))
        self.assertEqual(result.returncode, 0, result.stderr)
        rows = self.rows()
        self.assertEqual([r[0] for r in rows],
                         ["example", "example_2", "example.fastq.bgz", "example_dos",
                          "zero_length"])
        self.assertEqual(rows[0][2:], rows[1][2:])  # gzip reads like plain text


if __name__ == "__main__":
    unittest.main()
