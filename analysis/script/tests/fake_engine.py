"""Stand-in for the QC engine, installed as genostat-qc in a test's installation folder.

It follows the engine's command line and is steered by environment variables:
  FAKE_ENGINE_LOG      append the argument list (JSON, one line) to this file
  FAKE_ENGINE_MODE     ok (default): write a header and one row per input to --output
                       exit:<code>:<last stderr line>: end with <code>; "{0}" in the line becomes
                         the first input path; writes a partial output first
                       no-output: end with 0 without writing anything
                       progress: emit progress lines for every input, then as ok
                       hang: write a partial output, create FAKE_ENGINE_STARTED, sleep
"""
import json
import os
import sys
import time

HEADER = "Sample,Adapter_Type,Total_Sequences"


def main(argv):
    log = os.environ.get("FAKE_ENGINE_LOG")
    if log:
        with open(log, "a") as handle:
            handle.write(json.dumps(argv) + "\n")
    output, adapter, files, i = None, "NONE", [], 0
    while i < len(argv):
        arg = argv[i]
        if arg in ("--output", "--adapter", "--custom-sequence", "--threads"):
            if arg == "--output":
                output = argv[i + 1]
            elif arg == "--adapter":
                adapter = argv[i + 1]
            i += 2
            continue
        if arg != "--progress":
            files.append(arg)
        i += 1
    if output is None or not files:
        sys.stderr.write("genostat-qc: error: usage: --output is required\n")
        return 64

    mode = os.environ.get("FAKE_ENGINE_MODE", "ok")
    if mode == "no-output":
        return 0
    if mode.startswith("exit:"):
        _, code, line = mode.split(":", 2)
        try:
            with open(output, "w") as handle:
                handle.write(HEADER + "\npartial")
        except OSError:
            pass  # the failure being imitated may be that very write
        sys.stderr.write("some earlier diagnostic\n" + line.replace("{0}", files[0]) + "\n")
        return int(code)
    if mode == "hang":
        with open(output, "w") as handle:
            handle.write(HEADER + "\npartial")
        with open(os.environ["FAKE_ENGINE_STARTED"], "w") as handle:
            handle.write(str(os.getpid()))
        time.sleep(60)
        return 0
    if mode == "progress":
        for index in range(len(files)):
            for done in (0, 500, 1000):
                sys.stderr.write("progress %d %d 1000 12345.5\n" % (index + 1, done))
                sys.stderr.flush()
                time.sleep(0.25)
    with open(output, "w") as handle:
        handle.write(HEADER + "\n")
        for path in files:
            handle.write("%s,%s,1\n" % (os.path.basename(path), adapter))
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
