"""GENOSTAT analysis script: checks a job, runs the QC engine, leaves one result CSV.

The module starts this script (compiled to genostat.pyc, through the host's Python launcher) with
exactly one argument: the base64 text of a compact JSON document

    {"fastq_data":[{"adapter":"NONE|ILLUMINA|NEXTERA|CUSTOM","custom_sequence":"...",
                    "CSV_Path":"/tmp/123.csv","files":["a.fastq",...]}]}

where "folder" may stand in place of "files". The script resolves the input, runs the engine
`genostat-qc` that sits beside it, and ends with one of the exit codes below. The module turns the
code into a message template; for codes with a placeholder the script writes the value beside the
CSV (the CSV path up to its last ".", then ".error") as a JSON object, e.g. {"FILE_PATH": " /x.fq"}.
Each value starts with the separator that makes "<template><value>" read well.

The result CSV is written as CSV_Path + ".part" and renamed only when the engine has finished, so a
failed, interrupted or killed run never leaves a CSV at CSV_Path.

Standard library only: the host's Python installation is all there is.
"""

import base64
import binascii
import collections
import csv
import json
import os
import re
import signal
import subprocess
import sys
import time

# Exit codes, as the module maps them to messages.
EXIT_OK = 0
EXIT_GENERAL = 1
EXIT_NOT_FOUND = 2
EXIT_BAD_PAYLOAD = 3
EXIT_BAD_SHAPE = 4
EXIT_BAD_FASTQ = 5
EXIT_NO_ENGINE = 6
EXIT_PERMISSION = 7
EXIT_EMPTY_FOLDER = 8
EXIT_WRITE = 9
EXIT_BAD_ADAPTER = 10
EXIT_PARALLEL = 11
EXIT_MEMORY = 12
EXIT_ARGUMENTS = 13

# The placeholder each code fills; codes 3, 4, 11 and 13 have none and write no details file.
PLACEHOLDERS = {
    EXIT_GENERAL: "ERROR_MESSAGE",
    EXIT_NOT_FOUND: "FILE_PATH",
    EXIT_BAD_FASTQ: "FILE_NAME",
    EXIT_NO_ENGINE: "DEPENDENCIES",
    EXIT_PERMISSION: "RESOURCE_PATH",
    EXIT_EMPTY_FOLDER: "FOLDER_PATH",
    EXIT_WRITE: "OUTPUT_PATH",
    EXIT_BAD_ADAPTER: "ADAPTER_SEQUENCE",
    EXIT_MEMORY: "RESOURCE_NAME",
}

ADAPTERS = ("NONE", "ILLUMINA", "NEXTERA", "CUSTOM")

# File names a folder contributes (compared case-insensitively).
FASTQ_SUFFIXES = (".fastq", ".fq", ".fastq.gz", ".fq.gz", ".fastq.bz2", ".fq.bz2")

# The engine's exit codes (sysexits values).
ENGINE_OK = 0
ENGINE_USAGE = 64
ENGINE_DATA = 65
ENGINE_NO_INPUT = 66
ENGINE_SOFTWARE = 70
ENGINE_CANT_CREATE = 73
ENGINE_OUT_OF_MEMORY = 75
ENGINE_NO_PERMISSION = 77

ENGINE_ERROR_PREFIX = "genostat-qc: error: "
ENGINE_LEFT_OUT_PREFIX = "genostat-qc: left out: "
ENGINE_NAME = "genostat-qc.exe" if os.name == "nt" else "genostat-qc"

# How long the engine gets to stop after SIGTERM before it is killed outright.
ENGINE_STOP_GRACE_SECONDS = 5.0
# Redraw the terminal progress line at most this often.
PROGRESS_INTERVAL_SECONDS = 0.2


class JobError(Exception):
    """Ends the job with `code`; `value` fills the code's placeholder (None: no details file)."""

    def __init__(self, code, value=None, diagnostic=None):
        super().__init__(diagnostic or value or "")
        self.code = code
        self.value = value
        self.diagnostic = diagnostic


class Interrupted(Exception):
    """Raised from the signal handler so the engine is stopped and the partial CSV removed."""

    def __init__(self, signum):
        super().__init__(signum)
        self.signum = signum


# ---------------------------------------------------------------------------------------------
# Paths


def error_file_path(csv_path):
    """The details file beside the CSV: cut at the last "." of the whole path, add ".error"."""
    cut = csv_path.rfind(".")
    return (csv_path if cut < 0 else csv_path[:cut]) + ".error"


def part_file_path(csv_path):
    return csv_path + ".part"


def engine_path():
    return os.path.join(os.path.dirname(os.path.abspath(__file__)), ENGINE_NAME)


def is_fastq_name(name):
    lower = name.lower()
    return any(lower.endswith(suffix) for suffix in FASTQ_SUFFIXES)


# ---------------------------------------------------------------------------------------------
# The parameter document


class Job:
    def __init__(self, adapter, custom_sequence, csv_path, files, folder):
        self.adapter = adapter
        self.custom_sequence = custom_sequence
        self.csv_path = csv_path
        self.files = files  # list, or None when a folder was given
        self.folder = folder


def decode_payload(argument):
    """base64 -> JSON value; anything undecodable is code 3."""
    try:
        raw = base64.b64decode(argument.encode("ascii"), validate=True)
    except (UnicodeEncodeError, binascii.Error, ValueError):
        raise JobError(EXIT_BAD_PAYLOAD, diagnostic="the argument is not base64 text")
    # Paths travel as the module's bytes, which need not be UTF-8: keep undecodable bytes as
    # surrogates, the way the operating system's file names are kept (os.fsdecode).
    text = raw.decode("utf-8", "surrogateescape")
    try:
        return json.loads(text)
    except ValueError as exc:
        raise JobError(EXIT_BAD_PAYLOAD, diagnostic="the argument is not JSON (%s)" % exc)


def _shape_error(what):
    return JobError(EXIT_BAD_SHAPE, diagnostic="invalid parameter document: " + what)


def parse_job(document):
    """Checks the document's shape; returns a Job. Unknown extra members are ignored."""
    if not isinstance(document, dict):
        raise _shape_error("the top level is not an object")
    entries = document.get("fastq_data")
    if not isinstance(entries, list) or len(entries) != 1:
        raise _shape_error('"fastq_data" must be an array with exactly one element')
    entry = entries[0]
    if not isinstance(entry, dict):
        raise _shape_error('"fastq_data[0]" is not an object')

    for key in ("adapter", "custom_sequence", "CSV_Path"):
        if not isinstance(entry.get(key), str):
            raise _shape_error('"%s" is missing or not a string' % key)
    adapter = entry["adapter"]
    if adapter not in ADAPTERS:
        raise _shape_error('unknown adapter "%s"' % adapter)
    csv_path = entry["CSV_Path"]
    if not csv_path:
        raise _shape_error('"CSV_Path" is empty')

    has_files = "files" in entry
    has_folder = "folder" in entry
    if has_files == has_folder:
        raise _shape_error('exactly one of "files" and "folder" must be given')
    files = folder = None
    if has_files:
        files = entry["files"]
        if not isinstance(files, list) or not files:
            raise _shape_error('"files" must be a non-empty array of strings')
        if not all(isinstance(name, str) and name for name in files):
            raise _shape_error('"files" must hold non-empty strings only')
    else:
        folder = entry["folder"]
        if not isinstance(folder, str) or not folder:
            raise _shape_error('"folder" must be a non-empty string')
    return Job(adapter, entry["custom_sequence"], csv_path, files, folder)


def checked_custom_sequence(job):
    """The CUSTOM adapter upper-cased; it must be non-empty A/C/G/T (code 10 otherwise)."""
    sequence = job.custom_sequence.upper()
    if not sequence or any(base not in "ACGT" for base in sequence):
        shown = job.custom_sequence if job.custom_sequence else "(empty)"
        raise JobError(EXIT_BAD_ADAPTER, " " + shown)
    return sequence


# ---------------------------------------------------------------------------------------------
# Input resolution


def check_readable_file(path):
    """Code 2 for a missing path or a folder given as a file, code 7 when it cannot be read."""
    if os.path.isdir(path):  # before opening: Windows calls opening a folder "permission denied"
        raise JobError(EXIT_NOT_FOUND, " " + path)
    try:
        # Non-blocking, so that a named pipe given as input cannot hang the check.
        os.close(os.open(path, os.O_RDONLY | getattr(os, "O_NONBLOCK", 0)))
    except (FileNotFoundError, NotADirectoryError):
        raise JobError(EXIT_NOT_FOUND, " " + path)
    except PermissionError:
        raise JobError(EXIT_PERMISSION, " " + path)


def folder_fastq_files(folder, report=None):
    """The folder's own FASTQ files (sub-folders are not entered), in byte order of their names.

    `report`, when given, receives one line that says which files were taken and which entries
    were left out, and why."""
    if not os.path.isdir(folder):
        raise JobError(EXIT_NOT_FOUND, " " + folder)
    try:
        names = os.listdir(folder)
    except PermissionError:
        raise JobError(EXIT_PERMISSION, " " + folder)
    except FileNotFoundError:
        raise JobError(EXIT_NOT_FOUND, " " + folder)
    chosen = [name for name in names
              if is_fastq_name(name) and os.path.isfile(os.path.join(folder, name))]
    if not chosen:
        raise JobError(EXIT_EMPTY_FOLDER, " " + folder)
    chosen.sort(key=os.fsencode)
    if report is not None:
        left = []
        for name in sorted(set(names) - set(chosen), key=os.fsencode):
            full = os.path.join(folder, name)
            if os.path.isdir(full):
                left.append("%s/ (a folder: sub-folders are not read)" % name)
            elif not os.path.isfile(full):
                left.append("%s (not a regular file)" % name)
            else:
                left.append("%s (not a FASTQ file name: %s)" % (name, "/".join(FASTQ_SUFFIXES)))
        report("genostat: folder %s: reading %d FASTQ file(s)%s" % (
            folder, len(chosen), "; left out: " + ", ".join(left) if left else ""))
    return [os.path.join(folder, name) for name in chosen]


def resolve_inputs(job, report=None):
    files = list(job.files) if job.files is not None else folder_fastq_files(job.folder, report)
    for path in files:
        check_readable_file(path)
    return files


def check_engine(path):
    if not os.path.isfile(path) or not os.access(path, os.X_OK):
        raise JobError(EXIT_NO_ENGINE, " %s (no runnable program at %s)" % (ENGINE_NAME, path))


# ---------------------------------------------------------------------------------------------
# The engine run


def engine_command(engine, job, custom_sequence, files, output, progress):
    command = [engine, "--adapter", job.adapter]
    if job.adapter == "CUSTOM":
        command += ["--custom-sequence", custom_sequence]
    if progress:
        command.append("--progress")
    if len(files) > 1:
        command.append("--leave-out-damaged")
    command += ["--output", output] + files
    return command


def split_engine_error(line, files, prefix=ENGINE_ERROR_PREFIX):
    """(path, message) from "genostat-qc: error: <path>: <message>" (or another `prefix`), or
    (None, line).

    Paths may hold ": " themselves, so the known input paths are tried first, longest first.
    """
    if not line.startswith(prefix):
        return None, line
    rest = line[len(prefix):]
    for path in sorted(set(files), key=len, reverse=True):
        if rest.startswith(path + ": "):
            return path, rest[len(path) + 2:]
    path, sep, message = rest.partition(": ")
    return (path, message) if sep else (None, rest)


def map_engine_failure(returncode, last_line, files, csv_path):
    """The script's JobError for an engine that ended with `returncode`."""
    path, message = split_engine_error(last_line, files)
    if returncode == ENGINE_DATA:
        name = path if path is not None else "(unknown file)"
        return JobError(EXIT_BAD_FASTQ, ": %s: %s" % (name, message))
    if returncode == ENGINE_NO_INPUT and path is not None:
        return JobError(EXIT_NOT_FOUND, " " + path)
    if returncode == ENGINE_NO_PERMISSION and path is not None:
        return JobError(EXIT_PERMISSION, " " + path)
    if returncode == ENGINE_CANT_CREATE:
        return JobError(EXIT_WRITE, " " + csv_path)
    if returncode == ENGINE_SOFTWARE:
        return JobError(EXIT_PARALLEL, None)
    if returncode == ENGINE_OUT_OF_MEMORY:
        return JobError(EXIT_MEMORY, " " + (path if path is not None else "the QC engine"))
    if returncode < 0:
        reason = "the QC engine was stopped by signal %d" % -returncode
    elif returncode == ENGINE_USAGE:
        reason = "the QC engine refused its arguments"
    else:
        reason = "the QC engine ended with exit code %d" % returncode
    if last_line:
        reason += " (%s)" % last_line
    return JobError(EXIT_GENERAL, " " + reason)


def parse_progress(line):
    """(file_index, bytes_done, bytes_total, reads_per_second) or None."""
    fields = line.split()
    if len(fields) != 5 or fields[0] != "progress":
        return None
    try:
        return int(fields[1]), int(fields[2]), int(fields[3]), float(fields[4])
    except ValueError:
        return None


def format_progress(progress, files):
    """The terminal line for one progress report; the engine counts files from 1."""
    index, done, total, rate = progress
    name = os.path.basename(files[index - 1]) if 1 <= index <= len(files) else "file %d" % index
    text = "%s: %.1f of %.1f MB" % (name, done / 1e6, total / 1e6)
    if total > 0:
        text += " (%d%%)" % min(100, done * 100 // total)
    text += ", %.0f reads/s" % rate
    if len(files) > 1:
        text = "[%d/%d] %s" % (index, len(files), text)
    return text


class ProgressLine:
    """One self-overwriting line on the terminal's standard error."""

    def __init__(self, stream):
        self.stream = stream
        self.shown = False
        self.last = 0.0

    def show(self, text):
        now = time.monotonic()
        if now - self.last < PROGRESS_INTERVAL_SECONDS:
            return
        self.last = now
        self.stream.write("\r\033[K" + text)
        self.stream.flush()
        self.shown = True

    def clear(self):
        if self.shown:
            self.stream.write("\r\033[K")
            self.stream.flush()
            self.shown = False


def stop_engine(process):
    if process.poll() is not None:
        return
    try:
        process.terminate()
        process.wait(timeout=ENGINE_STOP_GRACE_SECONDS)
    except subprocess.TimeoutExpired:
        process.kill()
        process.wait()
    except OSError:
        pass


def run_engine(command, files, csv_path, progress_stream):
    """Runs the engine to its end; raises JobError on failure. Progress goes to `progress_stream`.
    Returns the (path, reason) of each file the engine left out."""
    try:
        process = subprocess.Popen(command, stdin=subprocess.DEVNULL,
                                   stdout=subprocess.DEVNULL, stderr=subprocess.PIPE)
    except OSError as exc:
        raise JobError(EXIT_NO_ENGINE, " %s (cannot start %s: %s)"
                       % (ENGINE_NAME, command[0], exc.strerror or exc))
    messages = collections.deque(maxlen=20)
    left_out = []
    display = ProgressLine(progress_stream) if progress_stream is not None else None
    try:
        for raw in process.stderr:
            line = raw.decode("utf-8", "surrogateescape").rstrip("\r\n")
            progress = parse_progress(line)
            if line.startswith(ENGINE_LEFT_OUT_PREFIX):
                path, reason = split_engine_error(line, files, ENGINE_LEFT_OUT_PREFIX)
                if path is not None:
                    left_out.append((path, reason))
                    sys.stderr.write("genostat: %s: left out: %s\n" % (path, reason))
                    continue
            if progress is None:
                if line:
                    messages.append(line)
            elif display is not None:
                display.show(format_progress(progress, files))
        returncode = process.wait()
    except BaseException:
        stop_engine(process)
        raise
    finally:
        process.stderr.close()
        if display is not None:
            display.clear()
    if returncode != ENGINE_OK:
        # The engine's last message is the reason, which the job's one error line below carries;
        # what came before it is shown too, but never the reason twice.
        for line in list(messages)[:-1]:
            sys.stderr.write(line + "\n")
        raise map_engine_failure(returncode, messages[-1] if messages else "", files, csv_path)
    return left_out


# ---------------------------------------------------------------------------------------------
# The job


def write_error_details(csv_path, code, value):
    if csv_path is None or value is None or code not in PLACEHOLDERS:
        return
    text = json.dumps({PLACEHOLDERS[code]: value}, ensure_ascii=False)
    try:
        with open(error_file_path(csv_path), "wb") as handle:
            handle.write(text.encode("utf-8", "surrogateescape"))
    except OSError as exc:
        sys.stderr.write("genostat: cannot write the error details: %s\n" % exc)


def remove_quietly(path):
    try:
        os.remove(path)
    except OSError:
        pass


def sample_name(path):
    """The Sample column's name of an input file, as the engine forms it."""
    base = re.split(r"[\\/]", path)[-1]
    name = base
    for group in ((".gz", ".bz2"), (".fastq", ".fq")):
        for suffix in group:
            if name.lower().endswith(suffix):
                name = name[:-len(suffix)]
                break
    return name or base


def add_refused_rows(part, refused, adapter):
    """Appends a row per refused file: its name, basic_statistics = fail, every other cell empty
    (missing to the statistics), so one bad file shows in the results instead of ending them."""
    with open(part, "r", encoding="utf-8", newline="") as handle:
        rows = list(csv.reader(handle))
    header = rows[0]
    taken = {row[0].lower() for row in rows[1:] if row}
    with open(part, "a", encoding="utf-8", newline="") as handle:
        writer = csv.writer(handle, lineterminator="\n")
        for path, _ in refused:
            name = sample_name(path)
            candidate, n = name, 2
            while candidate.lower() in taken:
                candidate, n = "%s_%d" % (name, n), n + 1
            taken.add(candidate.lower())
            row = [""] * len(header)
            row[0], row[1] = candidate, adapter
            if "basic_statistics" in header:
                row[header.index("basic_statistics")] = "fail"
            writer.writerow(row)


def analyse(job, progress_stream):
    custom_sequence = checked_custom_sequence(job) if job.adapter == "CUSTOM" else ""
    report = lambda line: sys.stderr.write(line + "\n")
    # A relative name that starts with "-" would read as an option.
    files = ["./" + path if path.startswith("-") else path for path in resolve_inputs(job, report)]
    engine = engine_path()
    check_engine(engine)

    part = part_file_path(job.csv_path)
    # A file the reader refuses is left out and the batch goes on (peers report the good files and
    # flag the bad one), in the same engine run; the job fails only when no file can be read.
    command = engine_command(engine, job, custom_sequence, files, part,
                             progress=progress_stream is not None)
    refused = run_engine(command, files, job.csv_path, progress_stream)
    if not os.path.isfile(part):
        raise JobError(EXIT_GENERAL, " the QC engine reported success but wrote no result")
    if refused:
        add_refused_rows(part, refused, job.adapter)
    try:
        os.replace(part, job.csv_path)
    except OSError as exc:
        raise JobError(EXIT_WRITE, " " + job.csv_path, "cannot rename the result: %s" % exc)


def run(argv, progress_stream=None):
    """The whole job for the script's arguments `argv` (without the program name); the exit code."""
    csv_path = None
    try:
        if len(argv) != 1:
            raise JobError(EXIT_ARGUMENTS,
                           diagnostic="expected exactly one argument, got %d" % len(argv))
        job = parse_job(decode_payload(argv[0]))
        csv_path = job.csv_path
        # A details file left by an earlier run with the same name must not describe this one.
        remove_quietly(error_file_path(csv_path))
        analyse(job, progress_stream)
        return EXIT_OK
    except JobError as failure:
        code, value, diagnostic = failure.code, failure.value, failure.diagnostic
    except Interrupted as interruption:
        code, value = EXIT_GENERAL, " the analysis was interrupted by signal %d" % interruption.signum
        diagnostic = None
    except MemoryError:
        code, value, diagnostic = EXIT_MEMORY, " the analysis script", None
    except Exception as exc:  # the contract's code 1: anything unforeseen, with its text
        code, value, diagnostic = EXIT_GENERAL, " %s: %s" % (type(exc).__name__, exc), None
    if csv_path is not None:
        remove_quietly(part_file_path(csv_path))
    write_error_details(csv_path, code, value)
    # The details value is written to be appended to a template (" path" or ": path: reason"); the
    # line reads "genostat: error 5: path: reason" either way.
    reason = diagnostic if diagnostic else (value or "").lstrip(": ")
    sys.stderr.write("genostat: error %d%s\n" % (code, (": " + reason) if reason else ""))
    return code


STOP_SIGNALS = tuple(getattr(signal, name) for name in ("SIGTERM", "SIGINT", "SIGHUP")
                     if hasattr(signal, name))


def _ignore_stop_signals():
    for signum in STOP_SIGNALS:
        signal.signal(signum, signal.SIG_IGN)


def _raise_interrupted(signum, _frame):
    # One interruption is enough: a second one must not cut the clean-up short.
    _ignore_stop_signals()
    raise Interrupted(signum)


def main():
    for signum in STOP_SIGNALS:
        signal.signal(signum, _raise_interrupted)
    progress_stream = sys.stderr if sys.stderr is not None and sys.stderr.isatty() else None
    code = run(sys.argv[1:], progress_stream)
    _ignore_stop_signals()  # a finished job ends with its own code, not a traceback
    return code


if __name__ == "__main__":
    sys.exit(main())
