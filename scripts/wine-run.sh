#!/bin/sh
# Runs a Windows program under Wine:
#
#   scripts/wine-run.sh PREFIX PROGRAM [ARGUMENT...]
#
# PREFIX is the folder of the Windows installation that the program sees. It is made on first use,
# by one of however many callers there are at that time; the others wait.
set -eu

mkdir -p "$1"
WINEPREFIX=$(cd "$1" && pwd)
shift
# No messages of Wine's own, no display, and no offers to install what a prefix could also have.
WINEDEBUG=-all
WINEDLLOVERRIDES="mscoree,mshtml,winemenubuilder.exe="
export WINEPREFIX WINEDEBUG WINEDLLOVERRIDES
unset DISPLAY
# File names and arguments are UTF-8.
LC_ALL=C.UTF-8
export LC_ALL

wine=$(PATH=$PATH:/usr/lib/wine command -v wine64) ||
  { echo "wine-run: no wine64 on this system" >&2; exit 127; }

if [ ! -f "$WINEPREFIX/.made" ]; then
  (
    flock 9
    if [ ! -f "$WINEPREFIX/.made" ]; then
      "$wine" wineboot --init </dev/null >/dev/null 2>&1 9>&-
      touch "$WINEPREFIX/.made"
    fi
  ) 9>"$WINEPREFIX/.lock"
fi
exec "$wine" "$@"
