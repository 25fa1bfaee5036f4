#!/bin/sh
# The main job end to end without the host: generates the samples, hands them to the installed
# analysis script exactly as the module does (launcher, script, base64 parameter JSON) and prints
# the result CSV.
# usage: samples/run-samples.sh [BUILDDIR [OUTDIR]]   (defaults: build, BUILDDIR/samples)
set -eu
here=$(cd "$(dirname "$0")" && pwd)
build=$(cd "${1:-$here/../build}" && pwd)
out=${2:-$build/samples}
install=$build/zorv-install
GENOSTAT_FQGEN=${GENOSTAT_FQGEN:-$build/bin/genostat-fqgen} "$here/make-samples.sh" "$out" >/dev/null
csv=$out/samples.csv
payload=$(python3 - "$out" "$csv" <<'PY'
import base64, json, sys
folder, csv = sys.argv[1], sys.argv[2]
doc = {"fastq_data": [{"adapter": "ILLUMINA", "custom_sequence": "", "CSV_Path": csv,
                       "folder": folder}]}
print(base64.b64encode(json.dumps(doc, separators=(",", ":")).encode()).decode())
PY
)
status=0
"$install/statisticspython3" "$install/scripts/genostat.pyc" "$payload" || status=$?
if [ "$status" -ne 0 ]; then
  echo "$0: the analysis script ended with exit code $status" >&2
  exit "$status"
fi
cat "$csv"
