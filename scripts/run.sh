#!/usr/bin/env bash
# The main job: installs the dependencies, builds the product, generates fourteen sample FASTQ runs
# (clean, with adapters, degraded and eleven more across quality, adapter, duplication and GC
# levels), runs the analysis script on them exactly as the module starts it and shows the result
# CSV; then runs them as a GENOSTAT job in the console client, which shows the job's messages, its
# summary tables, the imported dataset and the five statistics procedures the job asks for.
set -euo pipefail

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
cd "$root"
"$root/scripts/setup-deps.sh"

build="$root/build/main"
cmake -S "$root" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release -DBUILD_TESTING=OFF >/dev/null
cmake --build "$build" -j "$(nproc)"

install="$build/zorv-install"
work="$build/main-job"
rm -rf "$work"
mkdir -p "$work/samples" "$work/tmp"

echo
echo "== 1. Sample data (fourteen runs of 50,000 reads from fixed seeds)"
GENOSTAT_FQGEN="$build/bin/genostat-fqgen" "$root/samples/make-samples.sh" "$work/samples" >/dev/null
ls -l "$work/samples"

echo
echo "== 2. The analysis script alone, started as the module starts it"
csv="$work/script-only.csv"
payload=$(python3 - "$csv" "$work/samples" <<'PY'
import base64, json, sys
csv, folder = sys.argv[1], sys.argv[2]
doc = {"fastq_data": [{"adapter": "ILLUMINA", "custom_sequence": "", "CSV_Path": csv, "folder": folder}]}
print(base64.b64encode(json.dumps(doc, separators=(",", ":")).encode()).decode())
PY
)
echo "\$ zorv-install/statisticspython3 zorv-install/scripts/genostat.pyc <base64 parameter JSON>"
status=0
"$install/statisticspython3" "$install/scripts/genostat.pyc" "$payload" || status=$?
echo "exit code: $status"
if [[ $status -ne 0 ]]; then
  err="${csv%.*}.error"
  [[ -f $err ]] && { echo "error details:"; cat "$err"; echo; }
  exit "$status"
fi
echo "result CSV: $csv"
python3 - "$csv" <<'PY'
import csv, sys
rows = list(csv.reader(open(sys.argv[1], newline="", encoding="utf-8")))
header, data = rows[0], rows[1:]
width = max(len(h) for h in header)
for i, name in enumerate(header):
    print(f"  {name:<{width}}  " + "  ".join(f"{r[i]:>14}" for r in data))
PY

echo
echo "== 3. The same samples as a GENOSTAT job in the console client"
cat > "$work/main-job.sps" <<SPS
GENOSTAT /JOB FOLDER='$work/samples' NAME='sample runs' ADAPTERS=ILLUMINA
  /DESCRIPTIVES VARIABLES=qc_score GC mean_phred_all_reads total_deduplicated_percentage SKEWNESS KURTOSIS
  /FREQUENCIES VARIABLES=qc_score adapter_content per_base_sequence_quality QUARTILES PERCENTILES=10 90 HISTOGRAM
  /CORRELATIONS VARIABLES=qc_score GC mean_phred_all_reads total_deduplicated_percentage SPEARMAN KENDALL TWOTAIL
  /REGRESSION DEPENDENT=qc_score INDEPENDENT=mean_phred_all_reads total_deduplicated_percentage GC
              METHOD=STEPWISE CI=95 NORMALPROBABILITYPLOT.
GENOSTAT /JOB FILE='$work/samples/missing.fastq.gz' NAME='no such file'.
SPS
echo "--- $work/main-job.sps"
cat "$work/main-job.sps"
echo "---"
status=0
"$build/bin/zorv" --temp-dir "$work/tmp" --output "$work/main-job.html" "$work/main-job.sps" || status=$?
echo
echo "zorv exit status: $status (1: a command above was refused, as the second one is meant to be)"
echo "the session's output as one HTML page: $work/main-job.html"
