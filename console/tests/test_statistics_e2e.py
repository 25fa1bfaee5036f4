"""The whole road with real parts: generated FASTQ runs through the installed analysis script and
engine, the import, all five statistics procedures on the result, and the session's HTML page
loaded in a real browser (headless Chromium), which must show every chart with marks in it.

Environment: ZORV, ZORV_INSTALL_DIR (the build's installation folder), FQGEN (genostat-fqgen).
The browser part skips, saying so, where no `chromium` is installed.
"""
import json
import os
import re
import shutil
import subprocess
import tempfile
import unittest

ZORV = os.environ.get("ZORV", "")
INSTALL = os.environ.get("ZORV_INSTALL_DIR", "")
FQGEN = os.environ.get("FQGEN", "")

# name, seed, quality, adapter rate, duplicate rate, GC: enough spread for every procedure.
RUNS = [("r1", 1, "high", "0", "0.05", "0.40"), ("r2", 2, "medium", "0.1", "0.2", "0.45"),
        ("r3", 3, "low", "0.3", "0.4", "0.50"), ("r4", 4, "decay", "0.05", "0.6", "0.55"),
        ("r5", 5, "high", "0.2", "0.1", "0.60"), ("r6", 6, "medium", "0", "0.3", "0.47")]

JOB = """GENOSTAT /JOB FOLDER='%s' NAME='qc week' ADAPTERS=ILLUMINA
  /DESCRIPTIVES VARIABLES=qc_score GC mean_phred_all_reads SKEWNESS KURTOSIS
  /FREQUENCIES VARIABLES=qc_score adapter_content QUARTILES PERCENTILES=10 90 HISTOGRAM
  /CORRELATIONS VARIABLES=qc_score GC mean_phred_all_reads SPEARMAN KENDALL TWOTAIL
  /REGRESSION DEPENDENT=qc_score INDEPENDENT=mean_phred_all_reads GC METHOD=ENTER CI=95
              NORMALPROBABILITYPLOT.
"""


class StatisticsEndToEnd(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        for name, value in (("ZORV", ZORV), ("ZORV_INSTALL_DIR", INSTALL), ("FQGEN", FQGEN)):
            if not value:
                raise unittest.SkipTest(name + " is not set")
        cls.dir = tempfile.mkdtemp(prefix="zorv-stats-")
        samples = os.path.join(cls.dir, "samples")
        os.makedirs(samples)
        os.makedirs(os.path.join(cls.dir, "temp"))
        for name, seed, quality, adapters, duplicates, gc in RUNS:
            subprocess.run([FQGEN, "--reads", "3000", "--seed", str(seed), "--quality", quality,
                            "--adapter-rate", adapters, "--duplicate-rate", duplicates, "--gc", gc,
                            "--output", os.path.join(samples, name + ".fastq")], check=True)
        syntax = os.path.join(cls.dir, "job.sps")
        with open(syntax, "w") as f:
            f.write(JOB % samples)
        cls.page = os.path.join(cls.dir, "session.html")
        cls.result = subprocess.run([ZORV, "--install-dir", INSTALL, "--temp-dir", os.path.join(cls.dir, "temp"),
                                  "--events", "-", "--output", cls.page, syntax],
                                 capture_output=True, text=True, timeout=300)
        cls.events = [json.loads(line) for line in cls.result.stdout.splitlines()]

    @classmethod
    def tearDownClass(cls):
        shutil.rmtree(cls.dir, True)

    def table(self, title):
        found = [e for e in self.events if e["event"] == "table" and e["title"] == title]
        self.assertEqual(len(found), 1, "table %r: %d found" % (title, len(found)))
        t = found[0]
        return {row: dict(zip(t["column_labels"], cells)) for row, cells in zip(t["row_labels"], t["cells"])}

    def test_every_procedure_shows_its_tables_over_the_samples(self):
        self.assertEqual(self.result.returncode, 0, self.result.stderr)
        self.assertNotIn("error", [e["event"] for e in self.events], self.result.stderr)
        n = str(len(RUNS))
        descriptives = self.table("Descriptive Statistics")
        for variable in ("qc_score", "GC", "mean_phred_all_reads"):
            row = descriptives[variable]
            self.assertEqual(row["N"], n)
            self.assertLessEqual(float(row["Minimum"]), float(row["Mean"]))
            self.assertLessEqual(float(row["Mean"]), float(row["Maximum"]))
        # GC as generated: 40 to 60 %, so the dataset really holds the engine's figures.
        self.assertAlmostEqual(float(descriptives["GC"]["Minimum"]), 40, delta=2)
        self.assertAlmostEqual(float(descriptives["GC"]["Maximum"]), 60, delta=2)
        statistics = self.table("Statistics")
        self.assertEqual(statistics["N Valid"], {"qc_score": n, "adapter_content": n})
        self.assertIn("Percentile 90", statistics)
        verdicts = self.table("adapter_content")
        self.assertEqual(verdicts["Total"]["Frequency"], n)
        self.assertTrue(all(re.match(r"Valid (pass|warn|fail|Total)$", row)
                            for row in verdicts if row != "Total"), verdicts)
        pearson = self.table("Correlations")
        self.assertEqual(pearson["GC: Pearson Correlation"]["GC"], "1.000")
        self.assertEqual(pearson["qc_score: N"]["GC"], n)
        self.table("Correlations: Kendall's tau_b")
        self.table("Correlations: Spearman's rho")
        coefficients = self.table("Coefficients")
        self.assertEqual(set(coefficients), {"Model 1 (Constant)", "Model 1 mean_phred_all_reads", "Model 1 GC"})
        self.assertIn("95.0% CI Lower Bound", coefficients["Model 1 GC"])
        self.assertEqual(self.table("ANOVA")["Model 1 Total"]["df"], str(len(RUNS) - 1))
        charts = [e["title"] for e in self.events if e["event"] == "chart"]
        self.assertEqual(len(charts), 6, charts)  # four overviews of the samples, then the procedures'
        self.assertEqual(charts[4:], ["Histogram of qc_score",
                                      "Normal P-P Plot of Regression Standardized Residual (qc_score)"])

    def test_the_samples_show_as_a_table_and_as_values_once_the_dataset_is_named(self):
        samples = self.table("QC results by sample (qc_week)")
        self.assertEqual(sorted(samples), [name for name, *_ in RUNS])
        for row in samples.values():
            self.assertEqual(row["Reads"], "3000")
            verdicts = list(row.values())[4:]
            self.assertEqual(len(verdicts), 11)
            # No tile in these headers: the per-tile module has no verdict, and its cell stays empty.
            self.assertTrue(set(verdicts[:10]) <= {"pass", "warn", "fail"}, verdicts)
            self.assertEqual(verdicts[10], "")
        values = [e for e in self.events if e["event"] == "dataset_values"]
        self.assertEqual(len(values), 1)
        self.assertEqual(values[0]["name"], "qc_week")
        self.assertEqual(len(values[0]["cases"]), len(RUNS))
        self.assertEqual(values[0]["variables"][:2], ["Sample", "Adapter_Type"])

    def test_the_page_loads_in_a_browser_with_every_chart_drawn(self):
        browser = shutil.which("chromium") or shutil.which("chromium-browser")
        if browser is None:
            self.skipTest("no chromium here: the page is not checked in a browser")
        self.assertTrue(os.path.exists(self.page), self.result.stderr)
        profile = os.path.join(self.dir, "profile")
        common = [browser, "--headless", "--no-sandbox", "--disable-gpu", "--user-data-dir=" + profile,
                  "--allow-file-access-from-files"]
        dom = subprocess.run(common + ["--dump-dom", "file://" + self.page], capture_output=True, text=True,
                             timeout=120)
        self.assertEqual(dom.returncode, 0, dom.stderr[-2000:])
        charts = re.findall(r"<svg[^>]*zorv-chart.*?</svg>", dom.stdout, re.S)
        self.assertEqual(len(charts), 6, "charts in the page as the browser parsed it")
        for svg in charts:
            marks = len(re.findall(r'class="(bar|point|curve)"', svg))
            self.assertGreater(marks, 2, "a chart without marks: " + svg[:300])
        shot = os.path.join(self.dir, "page.png")
        subprocess.run(common + ["--screenshot=" + shot, "--window-size=1200,3000", "file://" + self.page],
                       capture_output=True, timeout=120)
        self.assertGreater(os.path.getsize(shot), 20000, "the page renders as a near-empty picture")


if __name__ == "__main__":
    unittest.main()
