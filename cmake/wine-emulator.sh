#!/bin/sh
# Runs one Windows program under Wine for CTest and test discovery:
#   wine-emulator.sh <prefix> <wine loader> <program.exe> [arguments...]
# A wineserver that wine starts by itself inherits the caller's output pipe,
# and so do the prefix's services, so CTest would wait seconds after every
# test for them to exit. Started here with their output elsewhere, they stay
# up for the runs that follow and hold no pipe of CTest's.
export WINEPREFIX="$1" WINEDEBUG=-all
wine=$2
shift 2
wineserver="$(dirname "$wine")/wineserver"
[ -x "$wineserver" ] || wineserver=wineserver
# The server refuses to start for a prefix that does not exist yet.
mkdir -p "$WINEPREFIX"
# Status 0: no server was running, this one is new. The first wineboot of a
# prefix creates it, which takes tens of seconds once; the lock makes runs
# started meanwhile (parallel builds and tests) wait for it to finish.
(
  flock 9
  # The lock's descriptor stays here: a server holding it would hold the lock.
  if "$wineserver" -p30 </dev/null >/dev/null 2>&1 9>&-; then
    "$wine" wineboot </dev/null >/dev/null 2>&1 9>&-
  fi
) 9>"$WINEPREFIX.lock"
exec "$wine" "$@"
