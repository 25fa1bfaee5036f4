"""genostat-fqgen as the samples and the benchmark call it: output, exit codes, messages."""
import gzip
import os
import shutil
import subprocess
import tempfile
import unittest

FQGEN = os.environ.get("GENOSTAT_FQGEN", "")


@unittest.skipUnless(os.access(FQGEN, os.X_OK), "GENOSTAT_FQGEN does not name the generator")
class FqgenCommandLineTest(unittest.TestCase):
    def setUp(self):
        self.tmp = tempfile.mkdtemp(prefix="fqgen-cli-")
        self.addCleanup(shutil.rmtree, self.tmp, True)

    def run_fqgen(self, *args):
        return subprocess.run([FQGEN] + list(args), stdout=subprocess.PIPE,
                              stderr=subprocess.PIPE, timeout=60)

    def test_standard_output_file_and_gzip_carry_the_same_reads(self):
        options = ["--reads", "500", "--seed", "9", "--tiles", "2", "--adapter-rate", "0.2"]
        to_stdout = self.run_fqgen(*options)
        self.assertEqual(to_stdout.returncode, 0, to_stdout.stderr)
        self.assertEqual(to_stdout.stdout.count(b"\n"), 2000)
        plain = os.path.join(self.tmp, "x.fq")
        packed = os.path.join(self.tmp, "x.fq.gz")
        self.assertEqual(self.run_fqgen(*options, "--output", plain).returncode, 0)
        self.assertEqual(self.run_fqgen(*options, "--gzip", "--output", packed).returncode, 0)
        with open(plain, "rb") as handle:
            self.assertEqual(handle.read(), to_stdout.stdout)
        with gzip.open(packed, "rb") as handle:
            self.assertEqual(handle.read(), to_stdout.stdout)
        piped = self.run_fqgen(*options, "--gzip=1", "--output", "-")
        self.assertEqual(gzip.decompress(piped.stdout), to_stdout.stdout)

    def test_bad_option_is_64_with_the_reason_and_usage(self):
        result = self.run_fqgen("--reads", "many")
        self.assertEqual(result.returncode, 64)
        self.assertEqual(result.stdout, b"")
        lines = result.stderr.decode().splitlines()
        self.assertEqual(lines[0], "genostat-fqgen: error: invalid value for --reads: many")
        self.assertEqual(lines[1], "usage: genostat-fqgen [options]")

    def test_unwritable_output_is_73_naming_it(self):
        target = os.path.join(self.tmp, "no", "such", "dir.fq")
        for extra in ([], ["--gzip"]):
            with self.subTest(extra=extra):
                result = self.run_fqgen("--reads", "5", "--output", target, *extra)
                self.assertEqual(result.returncode, 73)
                self.assertTrue(result.stderr.decode().startswith(
                    "genostat-fqgen: error: %s: " % target))
                self.assertFalse(os.path.exists(target))

    def test_help_prints_the_options(self):
        result = self.run_fqgen("--reads", "5", "--help")
        self.assertEqual(result.returncode, 0)
        self.assertIn(b"--duplicate-rate F", result.stdout)


if __name__ == "__main__":
    unittest.main()
