#!/bin/sh
# Runs a Windows program of the build under Wine (the tests' emulator):
#   wine-run.sh WINESERVER WINE PROGRAM [ARGUMENTS...]
# The first program in a Wine prefix starts the Wine server and Wine's own
# background programs (services, devices, explorer), which inherit its output
# and keep it open until the server exits: CTest would count that test as
# running until then. So the server (kept 30 s after its last client) and the
# background programs are started here first, detached from any test's output,
# one caller at a time.
server="$1"
wine="$2"
shift 2
lock="${WINEPREFIX:-$HOME/.wine}"
(
  flock 9
  # (The lock's descriptor is not handed on: the server would hold the lock.)
  if "$server" -p30 < /dev/null > /dev/null 2>&1 9>&-; then
    "$wine" cmd /c exit < /dev/null > /dev/null 2>&1 9>&- || true
  fi
) 9> "${lock%/}.start-lock"
exec "$wine" "$@"
