#!/bin/sh
# Runs one Windows program under 64-bit Wine for ctest.
#
# The first Wine program of a session starts the wineserver and its helper processes, and they
# inherit that program's standard streams: ctest, reading the test's output until end of file,
# would then wait for helpers that linger. So the server and its helpers are started here first,
# detached from every pipe, and the server is told to stay a while between tests.
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
exec wine "$@"
