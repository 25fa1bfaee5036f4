#!/usr/bin/env bash
# The main job: installs the dependencies, builds the product, generates three sample FASTQ files
# (clean, with adapters, degraded), runs the analysis script on them exactly as the module would
# start it (launcher, script, base64 parameter JSON) and shows the result CSV; then runs sample
# GENOSTAT commands in the console client and shows what the host's client receives.
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
echo "== 1. Sample data"
"$root/samples/make-samples.sh" "$work/samples" "$build/bin/genostat-fqgen"
ls -l "$work/samples"

echo
echo "== 2. The analysis script, started as the module starts it"
csv="$work/tmp/main-job.csv"
payload=$(python3 - "$csv" "$work/samples" <<'PY'
import base64, json, os, sys
csv, folder = sys.argv[1], sys.argv[2]
files = sorted(os.path.join(folder, f) for f in os.listdir(folder))
doc = {"fastq_data": [{"adapter": "ILLUMINA", "custom_sequence": "", "CSV_Path": csv, "files": files}]}
print(base64.b64encode(json.dumps(doc, separators=(",", ":")).encode()).decode())
PY
)
echo "\$ $install/statisticspython3 $install/scripts/genostat.pyc <base64 payload>"
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
    print(f"  {name:<{width}}  " + "  ".join(f"{r[i]:>12}" for r in data))
PY

echo
echo "== 3. GENOSTAT commands in the console client (events as JSON lines)"
cat > "$work/sample.sps" <<SPS
GENOSTAT /JOB FILE='$work/samples/clean.fastq' NAME='clean run' ADAPTERS=ILLUMINA
  /DESCRIPTIVES VARIABLES=GC qc_score SKEWNESS
  /CORRELATIONS VARIABLES=GC qc_score mean_phred_all_reads SPEARMAN.
GENOSTAT /JOB FOLDER='$work/samples' NAME='AUTO' ADAPTERS=CUSTOM(agatcggaagagc)
  /FREQUENCIES VARIABLES=qc_score NTILES=4 HISTOGRAM.
GENOSTAT /JOB FILE='$work/samples/missing.fastq' NAME='broken'.
GENOSTAT /JOB FILE='' NAME='clean run' ADAPTERS=NONE
  /PRINT SAMPLE_COUNT=3 VARIABLE_COUNT=25 MESSAGE=100.
SPS
cat "$work/sample.sps"
echo
"$build/bin/zorv" --temp-dir "$work/tmp" --events - "$work/sample.sps" || true
