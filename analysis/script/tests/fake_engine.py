"""Stand-in for the QC engine, installed as genostat-qc in a test's installation folder. It logs
its arguments (JSON, one line) to FAKE_ENGINE_LOG and acts as FAKE_ENGINE_MODE says:
  ok            a header and one row per input written to --output
  exit:C:LINE   a partial output, then LINE ("{0}": the first input) on stderr and exit code C
  no-output     exit 0 without writing anything
  progress      progress lines for every input, then as ok
  hang          a partial output, FAKE_ENGINE_STARTED made holding the pid, then a long sleep
"""
import json
import os
import sys
import time

HEADER = "Sample,Adapter_Type,Total_Sequences"


def main(argv):
    with open(os.environ["FAKE_ENGINE_LOG"], "a") as log:
        log.write(json.dumps(argv) + "\n")
    options, files, i = {}, [], 0
    while i < len(argv):
        if argv[i] in ("--output", "--adapter", "--custom-sequence", "--threads"):
            options[argv[i]] = argv[i + 1]
            i += 1
        elif argv[i] not in ("--progress", "--leave-out-damaged"):
            files.append(argv[i])
        i += 1
    output, mode = options["--output"], os.environ.get("FAKE_ENGINE_MODE", "ok")
    if mode == "no-output":
        return 0
    if mode.startswith("exit:") or mode == "hang":
        try:
            with open(output, "w") as handle:
                handle.write(HEADER + "\npartial")
        except OSError:
            pass  # the failure imitated may be that very write
    if mode.startswith("exit:"):
        _, code, line = mode.split(":", 2)
        sys.stderr.write("some earlier diagnostic\n" + line.replace("{0}", files[0]) + "\n")
        return int(code)
    if mode == "hang":
        with open(os.environ["FAKE_ENGINE_STARTED"], "w") as handle:
            handle.write(str(os.getpid()))
        time.sleep(60)
    for index in range(len(files) if mode == "progress" else 0):
        for done in (0, 500, 1000):
            sys.stderr.write("progress %d %d 1000 12345.5\n" % (index + 1, done))
            sys.stderr.flush()
            time.sleep(0.25)
    with open(output, "w") as handle:
        handle.write(HEADER + "\n" + "".join("%s,%s,1\n" % (os.path.basename(p), options.get("--adapter"))
                                             for p in files))
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
