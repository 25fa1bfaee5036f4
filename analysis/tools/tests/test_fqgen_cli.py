"""genostat-fqgen as the samples and the benchmark call it: one text to a file, to standard output
and through gzip; exit 64 with the reason and the usage, 73 naming an output it cannot write."""
import gzip
import os
import subprocess
import tempfile
import unittest

FQGEN = os.environ["GENOSTAT_FQGEN"]


def fqgen(*args):
    return subprocess.run([FQGEN] + list(args), stdout=subprocess.PIPE, stderr=subprocess.PIPE, timeout=60)


class FqgenCommandLineTest(unittest.TestCase):
    def test_outputs_and_failures(self):
        with tempfile.TemporaryDirectory() as tmp:
            options = ["--reads", "500", "--seed", "9", "--tiles", "2", "--adapter-rate", "0.2"]
            text = fqgen(*options).stdout
            self.assertEqual(text.count(b"\n"), 2000)
            self.assertEqual(fqgen(*options, "--output", os.path.join(tmp, "x.fq")).returncode, 0)
            self.assertEqual(fqgen(*options, "--gzip", "--output", os.path.join(tmp, "x.fq.gz")).returncode, 0)
            with open(os.path.join(tmp, "x.fq"), "rb") as plain, gzip.open(os.path.join(tmp, "x.fq.gz")) as packed:
                self.assertEqual((plain.read(), packed.read()), (text, text))
            self.assertEqual(gzip.decompress(fqgen(*options, "--gzip=1", "--output", "-").stdout), text)
            bad = fqgen("--reads", "many")
            self.assertEqual((bad.returncode, bad.stdout), (64, b""))
            self.assertEqual(bad.stderr.decode().splitlines()[:2],
                             ["genostat-fqgen: error: invalid value for --reads: many", "usage: genostat-fqgen [options]"])
            for extra in ([], ["--gzip"]):
                target = os.path.join(tmp, "no", "dir.fq")
                result = fqgen("--reads", "5", "--output", target, *extra)
                self.assertEqual(result.returncode, 73)
                self.assertTrue(result.stderr.decode().startswith("genostat-fqgen: error: %s: " % target))
        self.assertIn(b"--duplicate-rate F", fqgen("--reads", "5", "--help").stdout)


if __name__ == "__main__":
    unittest.main()
