#!/bin/sh
# Runs one Windows program under 64-bit Wine for ctest.
#
# The first Wine program of a session starts the wineserver and its helper processes, and they
# inherit that program's standard streams: ctest, reading the test's output until end of file,
# would then wait for helpers that linger. So the server and its helpers are started here first,
# detached from every pipe, and the server is told to stay a while between tests.
#
# Wine itself fails now and then when two tests start together (the program never runs: a non-zero
# status and not one byte of output). That is not the test's failure: it is reported as Wine's and
# the program is run once more. A program that ran and failed says something, at least the test
# framework's first line, and is never run again.
set -e
: "${WINEPREFIX:=${TMPDIR:-/tmp}/wine-$(id -u)-genostat}"
: "${WINEDEBUG:=-all}"
: "${WINEDLLOVERRIDES:=mscoree,mshtml=}"   # no Mono or Gecko installer prompts
: "${WINE_CI_LINGER:=30}"
export WINEPREFIX WINEDEBUG WINEDLLOVERRIDES WINE_CI_LINGER WINEARCH=win64
unset DISPLAY WAYLAND_DISPLAY
mkdir -p "$(dirname "$WINEPREFIX")"
# flock serialises the prefix's creation under ctest -j; -o keeps the lingering server from
# holding the lock.
flock -o "$WINEPREFIX.lock" sh -c '
    if [ ! -f "$WINEPREFIX/system.reg" ]; then
        wineboot -i && wineserver -w   # system.reg appears only when the server exits
    fi
    if wineserver -p"$WINE_CI_LINGER"; then   # 0: started one, 2: one runs already
        wine cmd /c exit                      # the helpers come up on /dev/null
    fi' </dev/null >/dev/null 2>&1 || true
out=$(mktemp "${TMPDIR:-/tmp}/wine-run.XXXXXX")
trap 'rm -f "$out" "$out.err"' EXIT
for attempt in 1 2; do
    status=0
    wine "$@" >"$out" 2>"$out.err" || status=$?
    if [ "$status" -eq 0 ] || [ -s "$out" ] || [ -s "$out.err" ] || [ "$attempt" -eq 2 ]; then
        break
    fi
    echo "wine-run: Wine failed to run $1 (exit status $status, no output from the program); running it once more" >&2
done
cat "$out"
cat "$out.err" >&2
if [ "$status" -ne 0 ] && [ ! -s "$out" ] && [ ! -s "$out.err" ]; then
    echo "wine-run: Wine failed to run $1 twice (exit status $status, no output): a failure of Wine, not of the test" >&2
fi
exit "$status"
