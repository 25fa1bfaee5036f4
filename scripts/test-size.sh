#!/usr/bin/env bash
# Prints the size of the test suite against the code it tests, in non-blank lines of the tracked
# C/C++/Python/shell/CMake files. A file counts as a test when it lives under a tests/ or fuzz/
# folder or its name says test. Golden files (expected outputs) are data and not counted.
# With -v, prints the figures per top-level folder too. The owner's target is a ratio of 0.35 or less.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

git ls-files | grep -E '\.(c|cc|cpp|h|hpp|py|sh|cmake)$|CMakeLists\.txt$' | while IFS= read -r f; do
  n=$(grep -cv '^\s*$' "$f" || true)
  if grep -qiE '(^|/)(tests?|fuzz)/|test[^/]*$|_test\.|^test_' <<<"$f"; then kind=test; else kind=code; fi
  area=${f%%/*}
  [[ $area == "$f" ]] && area=.
  rest=${f#*/}
  [[ ($area == analysis || $area == refhost) && $rest == */* ]] && area=$area/${rest%%/*}
  printf '%s %s %s\n' "$kind" "$n" "$area"
done | awk -v verbose="${1:-}" '
  { lines[$1] += $2; per[$3, $1] += $2; areas[$3] = 1 }
  END {
    if (verbose == "-v")
      for (a in areas) printf "  %-22s tests %6d  code %6d\n", a, per[a, "test"], per[a, "code"] | "sort"
    close("sort")
    printf "tests %d, code %d non-blank lines: ratio %.2f (target 0.35 or less)\n",
           lines["test"], lines["code"], lines["test"] / lines["code"]
  }'
