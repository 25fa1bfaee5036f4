#!/bin/sh
# The Wine runner tells Wine's own failure (no output, non-zero status) from a failing test, and
# runs only the former once more. A fake `wine` on the PATH plays both parts.
set -eu
runner=$(cd "$(dirname "$0")" && pwd)/wine-run.sh
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
mkdir "$work/bin"
for tool in wineserver wineboot flock; do printf '#!/bin/sh\nexit 0\n' >"$work/bin/$tool"; done
cat >"$work/bin/wine" <<'FAKE'
#!/bin/sh
n=$(cat "$COUNT" 2>/dev/null || echo 0); n=$((n + 1)); echo "$n" >"$COUNT"
case "$1" in
  flaky) [ "$n" -eq 1 ] && exit 53; echo "[  PASSED  ] 1 test."; exit 0 ;;
  failing) echo "[  FAILED  ] 1 test."; exit 1 ;;
  broken) exit 53 ;;
esac
FAKE
chmod +x "$work/bin/"*
export PATH="$work/bin:$PATH" WINEPREFIX="$work/prefix" COUNT="$work/count"
fail() { echo "wine-run-test: $1" >&2; exit 1; }

rm -f "$COUNT"; out=$("$runner" flaky 2>"$work/err") || fail "a Wine hiccup failed the test"
[ "$out" = "[  PASSED  ] 1 test." ] && [ "$(cat "$COUNT")" = 2 ] || fail "flaky: ran $(cat "$COUNT") times: $out"
grep -q "Wine failed to run flaky" "$work/err" || fail "flaky: the retry was not reported"

rm -f "$COUNT"; status=0; "$runner" failing >/dev/null 2>&1 || status=$?
[ "$status" = 1 ] && [ "$(cat "$COUNT")" = 1 ] || fail "failing: status $status after $(cat "$COUNT") runs"

rm -f "$COUNT"; status=0; "$runner" broken 2>"$work/err" >/dev/null || status=$?
[ "$status" = 53 ] && [ "$(cat "$COUNT")" = 2 ] || fail "broken: status $status after $(cat "$COUNT") runs"
grep -q "a failure of Wine, not of the test" "$work/err" || fail "broken: not named Wine's failure"
echo "wine-run-test: passed"
