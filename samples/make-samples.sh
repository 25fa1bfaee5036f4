#!/bin/sh
# Writes the three sample runs a newcomer looks at first, all from fixed seeds, into OUTDIR:
#   clean.fastq.gz     a good run: high quality, few duplicates
#   adapters.fastq.gz  short inserts: a third of the reads run into the Illumina adapter
#   degraded.fastq.gz  quality falling along the reads, N calls, many duplicates, ragged lengths
# usage: samples/make-samples.sh OUTDIR   (GENOSTAT_FQGEN names the generator; default: the
#        genostat-fqgen of build/)
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
common="--reads 200000 --tiles 8 --gzip"
# shellcheck disable=SC2086 # $common is a list of options
"$fqgen" $common --seed 101 --length 150 --quality high --duplicate-rate 0.05 \
  --output "$out/clean.fastq.gz"
# shellcheck disable=SC2086
"$fqgen" $common --seed 202 --length 150 --quality high --duplicate-rate 0.10 \
  --adapter-rate 0.35 --output "$out/adapters.fastq.gz"
# shellcheck disable=SC2086
"$fqgen" $common --seed 303 --length 35-150 --quality decay --duplicate-rate 0.60 \
  --n-rate 0.07 --output "$out/degraded.fastq.gz"
echo "$out/clean.fastq.gz $out/adapters.fastq.gz $out/degraded.fastq.gz"
