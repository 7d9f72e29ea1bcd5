#!/bin/sh
# Runs a command of the host while a Windows session is up:
#
#   scripts/wine-session.sh PREFIX COMMAND [ARGUMENT...]
#
# Wine starts a session with the first program and ends it with the last one. A program that waits
# for input all the time saves the others from that, one after the other.
set -eu

prefix=$1
shift
runner=$(dirname "$0")/wine-run.sh

mkdir -p "$prefix"
pipe=$prefix/.session
rm -f "$pipe"
mkfifo "$pipe"
"$runner" "$prefix" cmd.exe <"$pipe" >/dev/null 2>&1 &
holder=$!
exec 3>"$pipe"
# Up when a second program has run in it.
"$runner" "$prefix" cmd.exe /c exit </dev/null >/dev/null 2>&1 3>&-

status=0
"$@" 3>&- || status=$?
exec 3>&-
wait "$holder" || true
exit "$status"
