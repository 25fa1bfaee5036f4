#!/bin/sh
# Writes the sample runs of the main job into OUTDIR, all from fixed seeds: fourteen runs of
# 50,000 reads that spread over the levels a QC user meets, so that the statistics over them mean
# something. The first three are the ones a newcomer looks at first:
#   clean.fastq.gz     a good run: high quality, few duplicates
#   adapters.fastq.gz  short inserts: a third of the reads run into the Illumina adapter
#   degraded.fastq.gz  quality falling along the reads, N calls, many duplicates, ragged lengths
# and run04 .. run14 mix quality profiles, adapter read-through, duplication, N calls and GC
# content (40 to 63 %).
# usage: samples/make-samples.sh OUTDIR   (GENOSTAT_FQGEN names the generator; default: the
#        genostat-fqgen of build/; GENOSTAT_SAMPLE_READS the reads per run, default 50000)
set -eu
if [ $# -ne 1 ]; then
  echo "usage: $0 OUTDIR" >&2
  exit 64
fi
out=$1
here=$(cd "$(dirname "$0")" && pwd)
fqgen=${GENOSTAT_FQGEN:-$here/../build/bin/genostat-fqgen}
if [ ! -x "$fqgen" ]; then
  echo "$0: no generator at $fqgen (build the genostat-fqgen target or set GENOSTAT_FQGEN)" >&2
  exit 69
fi
mkdir -p "$out"
reads=${GENOSTAT_SAMPLE_READS:-50000}

# name seed length quality adapter-rate duplicate-rate n-rate gc
while read -r name seed length quality adapters duplicates n gc; do
  "$fqgen" --reads "$reads" --tiles 8 --gzip --seed "$seed" --length "$length" --quality "$quality" \
    --adapter-rate "$adapters" --duplicate-rate "$duplicates" --n-rate "$n" --gc "$gc" \
    --output "$out/$name.fastq.gz"
  printf '%s ' "$out/$name.fastq.gz"
done <<'RUNS'
clean     101 150    high   0     0.05 0     0.50
adapters  202 150    high   0.35  0.10 0     0.48
degraded  303 35-150 decay  0     0.60 0.07  0.55
run04     404 150    high   0.02  0.08 0     0.42
run05     505 150    medium 0.05  0.15 0.002 0.46
run06     606 100    medium 0.10  0.20 0.005 0.52
run07     707 150    low    0.03  0.30 0.01  0.58
run08     808 75-150 decay  0.20  0.25 0.02  0.61
run09     909 150    high   0.50  0.05 0     0.44
run10     1010 150   medium 0     0.45 0     0.49
run11     1111 50-150 low   0.15  0.35 0.03  0.63
run12     1212 150   decay  0.08  0.12 0.001 0.40
run13     1313 100   high   0.25  0.70 0     0.53
run14     1414 150   low    0.40  0.50 0.05  0.57
RUNS
echo
