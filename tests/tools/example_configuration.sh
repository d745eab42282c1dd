#!/bin/sh
# The program loads the example configuration: it takes the log where that says, and keeps standard output clean.
set -eu
program=$(realpath "$1")
configuration=$(realpath "$2")
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
cd "$folder"
status=0
"$program" -c "$configuration" >output 2>errors || status=$?
[ "$status" = 1 ] # no recording was named
[ ! -s output ] && [ ! -s errors ]
grep -q '\[main\]: ERROR No input file specified, aborting\.\.$' tracemill.log
