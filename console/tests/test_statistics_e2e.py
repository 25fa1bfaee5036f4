"""The whole road with real parts: generated FASTQ runs through the installed analysis script and
engine, all five statistics procedures on the result, and the session's HTML page loaded in a real
browser (headless Chromium), which must draw every chart with marks in it.

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

# seed, quality, adapter rate, duplicate rate, GC: enough spread for every procedure.
RUNS = [(1, "high", "0", "0.05", "0.40"), (2, "medium", "0.1", "0.2", "0.45"),
        (3, "low", "0.3", "0.4", "0.50"), (4, "decay", "0.05", "0.6", "0.55"),
        (5, "high", "0.2", "0.1", "0.60"), (6, "medium", "0", "0.3", "0.47")]

JOB = """GENOSTAT /JOB FOLDER='%s' NAME='qc week' ADAPTERS=ILLUMINA
  /DESCRIPTIVES VARIABLES=qc_score GC mean_phred_all_reads SKEWNESS KURTOSIS
  /FREQUENCIES VARIABLES=qc_score adapter_content QUARTILES PERCENTILES=10 90 HISTOGRAM
  /CORRELATIONS VARIABLES=qc_score GC mean_phred_all_reads SPEARMAN KENDALL TWOTAIL
  /REGRESSION DEPENDENT=qc_score INDEPENDENT=mean_phred_all_reads GC METHOD=ENTER CI=95
              NORMALPROBABILITYPLOT.
"""


@unittest.skipUnless(ZORV and INSTALL and FQGEN, "ZORV, ZORV_INSTALL_DIR or FQGEN is not set")
class StatisticsEndToEnd(unittest.TestCase):
    def test_six_samples_through_every_procedure_onto_a_page_a_browser_draws(self):
        work = tempfile.mkdtemp(prefix="zorv-stats-")
        self.addCleanup(shutil.rmtree, work, True)
        samples = os.path.join(work, "samples")
        os.makedirs(samples)
        for seed, quality, adapters, duplicates, gc in RUNS:
            subprocess.run([FQGEN, "--reads", "3000", "--seed", str(seed), "--quality", quality,
                            "--adapter-rate", adapters, "--duplicate-rate", duplicates, "--gc", gc,
                            "--output", os.path.join(samples, "r%d.fastq" % seed)], check=True)
        page = os.path.join(work, "session.html")
        r = subprocess.run([ZORV, "--install-dir", INSTALL, "--events", "-", "--output", page,
                            "-e", JOB % samples], capture_output=True, text=True, timeout=300)
        self.assertEqual(r.returncode, 0, r.stderr)
        events = [json.loads(line) for line in r.stdout.splitlines()]
        tables = [e["title"] for e in events if e["event"] == "table"]
        for title in ("QC results by sample (qc_week)", "Descriptive Statistics", "Statistics",
                      "Correlations: Kendall's tau_b", "Coefficients"):
            self.assertIn(title, tables)
        by_sample = [e for e in events if e["event"] == "table" and e["title"].startswith("QC")][0]
        self.assertEqual(sorted(by_sample["row_labels"]), ["r%d" % run[0] for run in RUNS])
        charts = [e["title"] for e in events if e["event"] == "chart"]
        self.assertEqual(charts[4:], ["Histogram of qc_score",
                                      "Normal P-P Plot of Regression Standardized Residual (qc_score)"])

        browser = shutil.which("chromium") or shutil.which("chromium-browser")
        if browser is None:
            self.skipTest("no chromium here: the page is not checked in a browser")
        common = [browser, "--headless", "--no-sandbox", "--disable-gpu",
                  "--user-data-dir=" + os.path.join(work, "profile"), "--allow-file-access-from-files"]
        dom = subprocess.run(common + ["--dump-dom", "file://" + page], capture_output=True,
                             text=True, timeout=120)
        self.assertEqual(dom.returncode, 0, dom.stderr[-2000:])
        drawn = re.findall(r"<svg[^>]*zorv-chart.*?</svg>", dom.stdout, re.S)
        self.assertEqual(len(drawn), len(charts), "charts in the page as the browser parsed it")
        for svg in drawn:
            self.assertGreater(len(re.findall(r'class="(bar|point|curve)"', svg)), 2,
                               "a chart without marks: " + svg[:300])
        shot = os.path.join(work, "page.png")
        subprocess.run(common + ["--screenshot=" + shot, "--window-size=1200,3000", "file://" + page],
                       capture_output=True, timeout=120)
        self.assertGreater(os.path.getsize(shot), 20000, "the page renders as a near-empty picture")


if __name__ == "__main__":
    unittest.main()
