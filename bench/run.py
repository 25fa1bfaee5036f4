#!/usr/bin/env python3
"""Engine throughput and memory, measured against `cat`, `igzip -d` and `zcat` on the same files.

usage: bench/run.py [BUILDDIR] [--reads N] [--small-reads N] [--files N] [--bzip2-reads N]
                    [--repeat K]

Builds nothing: BUILDDIR (default build/release) must hold bin/genostat-fqgen and the engine
(zorv-install/scripts/genostat-qc or bin/genostat-qc). The input files are generated once into
bench/out/ (kept between runs, never committed) and re-made when their parameters change.

Prints one table (wall time, reads/s, MB/s of uncompressed FASTQ, peak resident memory, speed
relative to the floor: `cat` for plain input, `igzip -d` on the same file for compressed input)
and the verdict on each target. A BGZF copy of the 150 bp file (bgzip, Debian package "tabix")
measures inflating on several threads; `igzip` comes from Debian package "isal". Besides the
150 bp files it reads a long-read file (20,000 reads of 5-20 kb with three 4 Mb reads among them) and --files small
files of 1,000 reads, once as separate files in one process and once joined into one file: the
difference is what each file costs on top of its reads. Every run is a separate child process
whose peak memory GNU time reports (/usr/bin/time, Debian package "time"); with --repeat the
fastest of K runs counts.

bzip2 decodes some 25 times slower than gzip, so its runs read a smaller file of --bzip2-reads
reads (the same content as the 150 bp files), compressed by `bzip2 -9` (Debian package "bzip2"),
with `bzcat` as its floor.
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
CONTENT_OPTIONS = ["--length", str(READ_LENGTH), "--tiles", "16", "--adapter-rate", "0.05",
                   "--duplicate-rate", "0.10", "--n-rate", "0.001"]
GENERATOR_OPTIONS = ["--seed", "7"] + CONTENT_OPTIONS

TARGET_PLAIN_MBPS = 1300.0
# BGZF and the igzip floor: the engine against ISA-L's own command inflating the same file.
TARGET_GZIP_VS_IGZIP = 0.95
TARGET_BGZF_VS_IGZIP = 1.2
TARGET_TWO_FILES_SPEEDUP = 1.8
TARGET_PEAK_MB = 256.0
TARGET_LONG_PEAK_MB = 256.0
TARGET_LONG_VS_SHORT = 1.0  # MB/s of the long-read file over that of the 150 bp file
TARGET_FILE_COST_MS = 0.3
# bzip2: blocks decoded on two threads against the engine's own one-thread time on the same file.
TARGET_BZIP2_TWO_THREADS = 1.6
FILE_READS = 1000
# The long-read file: 20,000 reads of 5-20 kb in four parts, a 4 Mb read after each of the first
# three. Tile headers and adapters as in the short files.
LONG_OPTIONS = ["--tiles", "16", "--adapter-rate", "0.05"]
LONG_PARTS = [(11, 5000, "5000-20000"), (12, 1, "4000000"), (13, 5000, "5000-20000"),
              (14, 1, "4000000"), (15, 5000, "5000-20000"), (16, 1, "4000000"),
              (17, 5000, "5000-20000")]
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


def joined(fqgen, path, parts, announce=True):
    """`path` made of one generator run per (seed, reads, options) part, kept while the parts
    stay the same; returns the number of reads."""
    stamp = path + ".params"
    params = repr(parts)
    reads = sum(r for _, r, _ in parts)
    if os.path.exists(path) and os.path.exists(stamp):
        with open(stamp) as handle:
            if handle.read() == params:
                return reads
    if announce:
        print("generating %s (%d reads) ..." % (path, reads), flush=True)
    with open(path + ".tmp", "wb") as out:
        for seed, count, options in parts:
            subprocess.run([fqgen, "--seed", str(seed), "--reads", str(count)] + options,
                           stdout=out, check=True)
    os.replace(path + ".tmp", path)
    with open(stamp, "w") as handle:
        handle.write(params)
    return reads


def long_reads(fqgen):
    path = os.path.join(OUT, "long.fastq")
    parts = [(seed, count, ["--length", length] + LONG_OPTIONS)
             for seed, count, length in LONG_PARTS]
    return path, joined(fqgen, path, parts)


def small_files(fqgen, count):
    """`count` files of FILE_READS reads each, and one file holding all of them in order."""
    folder = os.path.join(OUT, "files")
    os.makedirs(folder, exist_ok=True)
    print("checking %d files of %d reads in %s ..." % (count, FILE_READS, folder), flush=True)
    files = []
    for k in range(count):
        path = os.path.join(folder, "f%04d.fastq" % k)
        joined(fqgen, path, [(1000 + k, FILE_READS, CONTENT_OPTIONS)], announce=False)
        files.append(path)
    together = os.path.join(OUT, "files-joined.fastq")
    stamp = together + ".params"
    current = None
    if os.path.exists(stamp):
        with open(stamp) as handle:
            current = handle.read()
    if current != repr(files):
        with open(together, "wb") as out:
            for path in files:
                with open(path, "rb") as part:
                    shutil.copyfileobj(part, out)
        with open(stamp, "w") as handle:
            handle.write(repr(files))
    return files, together


def tool(name, package):
    path = shutil.which(name)
    if path is None:
        fail("%s not found (Debian package %s)" % (name, package))
    return path


def compressed_copy(path, suffix, command):
    """`path` + `suffix`, made by `command` + [path] writing to its standard output, and kept while
    newer than `path`."""
    target = path + suffix
    if os.path.exists(target) and os.path.getmtime(target) >= os.path.getmtime(path):
        return target
    print("compressing %s with %s ..." % (path, os.path.basename(command[0])), flush=True)
    with open(target + ".tmp", "wb") as handle:
        subprocess.run(command + [path], stdout=handle, check=True)
    os.replace(target + ".tmp", target)
    return target


def gzipped(path):
    compressor = shutil.which("pigz") or tool("gzip", "gzip")
    return compressed_copy(path, ".gz", [compressor, "-c", "-6"])


def bgzipped(path):
    """A BGZF copy of `path`, as htslib's bgzip writes it (blocks of 65,280 bytes of text)."""
    return compressed_copy(path, ".bgz", [tool("bgzip", "tabix"), "-@2", "-c"])


def bzipped(path):
    """A bzip2 copy of `path` (900,000-byte blocks, one stream)."""
    return compressed_copy(path, ".bz2", [tool("bzip2", "bzip2"), "-c", "-9"])


def floor_of(label):
    """The run a run is compared with: igzip inflating the same file, bzcat, or cat."""
    if "bz" in label:
        return "bzcat bz.fastq.bz2"
    if "bgz" in label:
        return "igzip -d big.fastq.bgz"
    if "gz" in label or "gzip" in label:
        return "igzip -d big.fastq.gz"
    return "cat big.fastq"


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
    parser.add_argument("--files", type=int, default=500)
    parser.add_argument("--bzip2-reads", type=int, default=300_000)
    parser.add_argument("--repeat", type=int, default=1)
    args = parser.parse_args()
    if (args.reads <= 0 or args.small_reads <= 0 or args.files <= 0 or args.bzip2_reads <= 0
            or args.repeat <= 0):
        fail("--reads, --small-reads, --files, --bzip2-reads and --repeat must be positive")

    fqgen, engine = find_tools(os.path.abspath(args.build))
    os.makedirs(OUT, exist_ok=True)
    big = generated(fqgen, "big", args.reads)
    big_gz = gzipped(big)
    big_bgz = bgzipped(big)
    igzip = tool("igzip", "isal")
    small = generated(fqgen, "small", args.small_reads)
    long_file, long_count = long_reads(fqgen)
    files, files_joined = small_files(fqgen, args.files)
    # bzip2: its own smaller file.
    bz_plain = generated(fqgen, "bz", args.bzip2_reads)
    bz = bzipped(bz_plain)
    bz_mb = os.path.getsize(bz_plain) / 1e6
    csv = os.path.join(OUT, "result.csv")
    size_mb = os.path.getsize(big) / 1e6
    small_mb = os.path.getsize(small) / 1e6
    long_mb = os.path.getsize(long_file) / 1e6
    files_mb = os.path.getsize(files_joined) / 1e6
    files_reads = args.files * FILE_READS

    def qc(threads, *files):
        return [engine, "--threads", str(threads), "--output", csv] + list(files)

    measure(["cat", big])  # warm the page cache before anything is timed
    # (label, command, uncompressed MB processed, reads processed)
    runs = [
        ("cat big.fastq", ["cat", big], size_mb, args.reads),
        ("igzip -d big.fastq.gz", [igzip, "-d", "-c", big_gz], size_mb, args.reads),
        ("igzip -d big.fastq.bgz", [igzip, "-d", "-c", big_bgz], size_mb, args.reads),
        ("zcat big.fastq.gz", ["zcat", big_gz], size_mb, args.reads),
        ("engine plain, 1 thread", qc(1, big), size_mb, args.reads),
        ("engine plain, 2 threads", qc(2, big), size_mb, args.reads),
        ("engine gzip, 1 thread", qc(1, big_gz), size_mb, args.reads),
        ("engine gzip, 2 threads", qc(2, big_gz), size_mb, args.reads),
        ("engine bgzf, 1 thread", qc(1, big_bgz), size_mb, args.reads),
        ("engine bgzf, 2 threads", qc(2, big_bgz), size_mb, args.reads),
        ("engine 2 files, 2 threads", qc(2, big, big), 2 * size_mb, 2 * args.reads),
        ("engine small plain, 1 thread", qc(1, small), small_mb, args.small_reads),
        ("engine long reads, 1 thread", qc(1, long_file), long_mb, long_count),
        ("engine %d files, 1 thread" % args.files, qc(1, *files), files_mb, files_reads),
        ("engine them joined, 1 thread", qc(1, files_joined), files_mb, files_reads),
        # bzip2
        ("bzcat bz.fastq.bz2", ["bzcat", bz], bz_mb, args.bzip2_reads),
        ("engine bzip2, 1 thread", qc(1, bz), bz_mb, args.bzip2_reads),
        ("engine bzip2, 2 threads", qc(2, bz), bz_mb, args.bzip2_reads),
    ]
    results = {}
    print()
    print("%-30s %8s %12s %9s %9s %9s" % ("run", "wall s", "reads/s", "MB/s", "peak MB",
                                          "vs floor"))
    for label, command, megabytes, reads in runs:
        wall, peak = best_of(command, args.repeat)
        mbps = megabytes / wall
        results[label] = (wall, peak, mbps)
        floor = results[floor_of(label)][2]
        print("%-30s %8.2f %12.0f %9.1f %9.1f %8.2fx" % (label, wall, reads / wall, mbps, peak,
                                                         mbps / floor), flush=True)
    if os.path.exists(csv):
        os.remove(csv)

    engine_runs = [label for label, *_ in runs if label.startswith("engine")]
    plain1 = results["engine plain, 1 thread"][2]
    gzip2_vs_igzip = results["engine gzip, 2 threads"][2] / results["igzip -d big.fastq.gz"][2]
    bgzf2_vs_igzip = results["engine bgzf, 2 threads"][2] / results["igzip -d big.fastq.bgz"][2]
    two_files = results["engine 2 files, 2 threads"][2] / plain1
    peak = max(results[label][1] for label in engine_runs)
    big_peak = results["engine plain, 1 thread"][1]
    small_peak = results["engine small plain, 1 thread"][1]
    growth_limit = small_peak * GROWTH_TOLERANCE + GROWTH_SLACK_MB
    long_peak = results["engine long reads, 1 thread"][1]
    long_vs_short = results["engine long reads, 1 thread"][2] / plain1
    file_cost_ms = 1000.0 * (results["engine %d files, 1 thread" % args.files][0] -
                             results["engine them joined, 1 thread"][0]) / args.files
    bzip2_two = results["engine bzip2, 1 thread"][0] / results["engine bzip2, 2 threads"][0]
    verdicts = [
        ("plain, 1 thread >= %.0f MB/s" % TARGET_PLAIN_MBPS, "%.1f MB/s" % plain1,
         plain1 >= TARGET_PLAIN_MBPS),
        ("gzip, 2 threads >= %.2fx igzip -d" % TARGET_GZIP_VS_IGZIP, "%.2fx" % gzip2_vs_igzip,
         gzip2_vs_igzip >= TARGET_GZIP_VS_IGZIP),
        ("bgzf, 2 threads >= %.1fx igzip -d" % TARGET_BGZF_VS_IGZIP, "%.2fx" % bgzf2_vs_igzip,
         bgzf2_vs_igzip >= TARGET_BGZF_VS_IGZIP),
        ("2 files, 2 threads >= %.1fx 1 file, 1 thread" % TARGET_TWO_FILES_SPEEDUP,
         "%.2fx" % two_files, two_files >= TARGET_TWO_FILES_SPEEDUP),
        ("peak memory < %.0f MB" % TARGET_PEAK_MB, "%.1f MB" % peak, peak < TARGET_PEAK_MB),
        ("memory flat: %d reads vs %d reads" % (args.reads, args.small_reads),
         "%.1f vs %.1f MB" % (big_peak, small_peak), big_peak <= growth_limit),
        ("longest read 4 Mb: peak memory < %.0f MB" % TARGET_LONG_PEAK_MB, "%.1f MB" % long_peak,
         long_peak < TARGET_LONG_PEAK_MB),
        ("long reads >= %.1fx MB/s of 150 bp, 1 thread" % TARGET_LONG_VS_SHORT,
         "%.2fx" % long_vs_short, long_vs_short >= TARGET_LONG_VS_SHORT),
        ("%d files of %d reads: <= %.1f ms a file" % (args.files, FILE_READS, TARGET_FILE_COST_MS),
         "%.3f ms" % file_cost_ms, file_cost_ms <= TARGET_FILE_COST_MS),
        ("bzip2, 2 threads >= %.1fx 1 thread" % TARGET_BZIP2_TWO_THREADS, "%.2fx" % bzip2_two,
         bzip2_two >= TARGET_BZIP2_TWO_THREADS),
    ]
    print()
    for name, value, ok in verdicts:
        print("%-48s %-22s %s" % (name, value, "met" if ok else "MISSED"))
    print("\nfiles: %s (%.0f MB), its gzip and BGZF copies (%.0f and %.0f MB), %s (%.0f MB), "
          "%d files in %s; %d cores"
          % (big, size_mb, os.path.getsize(big_gz) / 1e6, os.path.getsize(big_bgz) / 1e6,
             long_file, long_mb, args.files, os.path.dirname(files[0]), os.cpu_count() or 0))
    print("bzip2: %s (%.0f MB), %d reads, its bzip2 -9 copy (%.0f MB)"
          % (bz_plain, bz_mb, args.bzip2_reads, os.path.getsize(bz) / 1e6))
    return 0


if __name__ == "__main__":
    sys.exit(main())
