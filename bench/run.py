#!/usr/bin/env python3
"""Engine throughput and memory, measured against `cat` and `zcat` on the same files.

usage: bench/run.py [BUILDDIR] [--reads N] [--small-reads N] [--repeat K]

Builds nothing: BUILDDIR (default build/release) must hold bin/genostat-fqgen and the engine
(zorv-install/scripts/genostat-qc or bin/genostat-qc). The input files are generated once into
bench/out/ (kept between runs, never committed) and re-made when their parameters change.

Prints one table (wall time, reads/s, MB/s of uncompressed FASTQ, peak resident memory, speed
relative to the floor) and the verdict on each target. Every run is a separate child process
whose peak memory GNU time reports (/usr/bin/time, Debian package "time"); with --repeat the
fastest of K runs counts.
"""
import argparse
import os
import resource
import shutil
import subprocess
import sys
import time

HERE = os.path.dirname(os.path.abspath(__file__))
OUT = os.path.join(HERE, "out")
READ_LENGTH = 150
# Fixed content: a modern run with tile headers, a few adapters and duplicates.
GENERATOR_OPTIONS = ["--seed", "7", "--length", str(READ_LENGTH), "--tiles", "16",
                     "--adapter-rate", "0.05", "--duplicate-rate", "0.10", "--n-rate", "0.001"]

TARGET_PLAIN_MBPS = 400.0
TARGET_GZIP_VS_ZCAT = 3.0
TARGET_TWO_FILES_SPEEDUP = 1.8
TARGET_PEAK_MB = 256.0
# Memory "does not grow with reads" when a file ten times larger peaks at most this much higher.
GROWTH_TOLERANCE = 1.20
GROWTH_SLACK_MB = 8.0


def fail(message):
    sys.stderr.write("bench: %s\n" % message)
    sys.exit(2)


def find_tools(build):
    fqgen = os.path.join(build, "bin", "genostat-fqgen")
    engines = [os.path.join(build, "zorv-install", "scripts", "genostat-qc"),
               os.path.join(build, "bin", "genostat-qc")]
    engine = next((e for e in engines if os.access(e, os.X_OK)), None)
    if not os.access(fqgen, os.X_OK):
        fail("no generator at %s (build the genostat-fqgen target)" % fqgen)
    if engine is None:
        fail("no engine in %s (build the genostat-qc target)" % build)
    return fqgen, engine


def generated(fqgen, name, reads):
    """bench/out/<name>.fastq for `reads` reads; kept while its parameters stay the same."""
    path = os.path.join(OUT, name + ".fastq")
    stamp = path + ".params"
    params = " ".join(GENERATOR_OPTIONS + ["--reads", str(reads)])
    if os.path.exists(path) and os.path.exists(stamp):
        with open(stamp) as handle:
            if handle.read() == params:
                return path
    print("generating %s (%d reads) ..." % (path, reads), flush=True)
    subprocess.run([fqgen, "--reads", str(reads), "--output", path] + GENERATOR_OPTIONS,
                   check=True)
    with open(stamp, "w") as handle:
        handle.write(params)
    if os.path.exists(path + ".gz"):
        os.remove(path + ".gz")
    return path


def gzipped(path):
    target = path + ".gz"
    if os.path.exists(target) and os.path.getmtime(target) >= os.path.getmtime(path):
        return target
    compressor = shutil.which("pigz") or shutil.which("gzip")
    if compressor is None:
        fail("neither pigz nor gzip found for the compressed copy")
    print("compressing %s with %s ..." % (path, os.path.basename(compressor)), flush=True)
    with open(target + ".tmp", "wb") as handle:
        subprocess.run([compressor, "-c", "-6", path], stdout=handle, check=True)
    os.replace(target + ".tmp", target)
    return target


GNU_TIME = "/usr/bin/time"
PEAK_FILE = os.path.join(OUT, "peak.txt")


def measure(command):
    """(wall seconds, peak resident MB) of one child process; its output goes to /dev/null.

    The peak comes from GNU time, which starts the command from its own small process: a child
    forked straight from this Python interpreter would report the interpreter's size as its peak
    whenever the command itself stays smaller.
    """
    use_time = os.access(GNU_TIME, os.X_OK)
    full = ([GNU_TIME, "-f", "%M", "-o", PEAK_FILE] if use_time else []) + command
    with open(os.devnull, "wb") as null:
        start = time.monotonic()
        process = subprocess.run(full, stdout=null, stderr=subprocess.PIPE)
        wall = time.monotonic() - start
    if process.returncode != 0:
        fail("%s ended with %d: %s" % (" ".join(command), process.returncode,
                                       process.stderr.decode(errors="replace").strip()))
    if use_time:
        with open(PEAK_FILE) as handle:
            peak_kb = int(handle.read().split()[-1])
        os.remove(PEAK_FILE)
    else:
        peak_kb = resource.getrusage(resource.RUSAGE_CHILDREN).ru_maxrss  # an upper bound
    return wall, peak_kb / 1024.0


def best_of(command, repeat):
    runs = [measure(command) for _ in range(repeat)]
    return min(r[0] for r in runs), max(r[1] for r in runs)


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n\n")[0])
    parser.add_argument("build", nargs="?", default=os.path.join(HERE, "..", "build", "release"))
    parser.add_argument("--reads", type=int, default=2_000_000)
    parser.add_argument("--small-reads", type=int, default=200_000)
    parser.add_argument("--repeat", type=int, default=1)
    args = parser.parse_args()
    if args.reads <= 0 or args.small_reads <= 0 or args.repeat <= 0:
        fail("--reads, --small-reads and --repeat must be positive")

    fqgen, engine = find_tools(os.path.abspath(args.build))
    os.makedirs(OUT, exist_ok=True)
    big = generated(fqgen, "big", args.reads)
    big_gz = gzipped(big)
    small = generated(fqgen, "small", args.small_reads)
    csv = os.path.join(OUT, "result.csv")
    size_mb = os.path.getsize(big) / 1e6
    small_mb = os.path.getsize(small) / 1e6

    def qc(threads, *files):
        return [engine, "--threads", str(threads), "--output", csv] + list(files)

    measure(["cat", big])  # warm the page cache before anything is timed
    # (label, command, uncompressed MB processed, reads processed)
    runs = [
        ("cat big.fastq", ["cat", big], size_mb, args.reads),
        ("zcat big.fastq.gz", ["zcat", big_gz], size_mb, args.reads),
        ("engine plain, 1 thread", qc(1, big), size_mb, args.reads),
        ("engine plain, 2 threads", qc(2, big), size_mb, args.reads),
        ("engine gzip, 1 thread", qc(1, big_gz), size_mb, args.reads),
        ("engine gzip, 2 threads", qc(2, big_gz), size_mb, args.reads),
        ("engine 2 files, 2 threads", qc(2, big, big), 2 * size_mb, 2 * args.reads),
        ("engine small plain, 1 thread", qc(1, small), small_mb, args.small_reads),
    ]
    results = {}
    print()
    print("%-30s %8s %12s %9s %9s %9s" % ("run", "wall s", "reads/s", "MB/s", "peak MB",
                                          "vs floor"))
    for label, command, megabytes, reads in runs:
        wall, peak = best_of(command, args.repeat)
        mbps = megabytes / wall
        results[label] = (wall, peak, mbps)
        floor = results["zcat big.fastq.gz" if "gzip" in label else "cat big.fastq"][2]
        print("%-30s %8.2f %12.0f %9.1f %9.1f %8.2fx" % (label, wall, reads / wall, mbps, peak,
                                                         mbps / floor), flush=True)
    if os.path.exists(csv):
        os.remove(csv)

    engine_runs = [label for label, *_ in runs if label.startswith("engine")]
    plain1 = results["engine plain, 1 thread"][2]
    gzip2_vs_zcat = results["engine gzip, 2 threads"][2] / results["zcat big.fastq.gz"][2]
    two_files = results["engine 2 files, 2 threads"][2] / plain1
    peak = max(results[label][1] for label in engine_runs)
    big_peak = results["engine plain, 1 thread"][1]
    small_peak = results["engine small plain, 1 thread"][1]
    growth_limit = small_peak * GROWTH_TOLERANCE + GROWTH_SLACK_MB
    verdicts = [
        ("plain, 1 thread >= %.0f MB/s" % TARGET_PLAIN_MBPS, "%.1f MB/s" % plain1,
         plain1 >= TARGET_PLAIN_MBPS),
        ("gzip, 2 threads >= %.1fx zcat" % TARGET_GZIP_VS_ZCAT, "%.2fx" % gzip2_vs_zcat,
         gzip2_vs_zcat >= TARGET_GZIP_VS_ZCAT),
        ("2 files, 2 threads >= %.1fx 1 file, 1 thread" % TARGET_TWO_FILES_SPEEDUP,
         "%.2fx" % two_files, two_files >= TARGET_TWO_FILES_SPEEDUP),
        ("peak memory < %.0f MB" % TARGET_PEAK_MB, "%.1f MB" % peak, peak < TARGET_PEAK_MB),
        ("memory flat: %d reads vs %d reads" % (args.reads, args.small_reads),
         "%.1f vs %.1f MB" % (big_peak, small_peak), big_peak <= growth_limit),
    ]
    print()
    for name, value, ok in verdicts:
        print("%-48s %-22s %s" % (name, value, "met" if ok else "MISSED"))
    print("\nfiles: %s (%.0f MB), its gzip copy (%.0f MB); %d cores"
          % (big, size_mb, os.path.getsize(big_gz) / 1e6, os.cpu_count() or 0))
    return 0


if __name__ == "__main__":
    sys.exit(main())
