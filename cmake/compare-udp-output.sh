#!/bin/sh
# Runs a program that receives datagrams, then one that sends to it, and compares what they print.
#
#   compare-udp-output.sh EXPECTED SENDER RECEIVER [ARGUMENT...]
#
# RECEIVER prints "listening on ADDRESS:PORT" first. SENDER is a shell command, in which $at is that place. EXPECTED holds
# what RECEIVER prints after this line, then what SENDER prints.
set -eu
expected=$1
sender=$2
shift 2
folder=$(mktemp -d)
receiver=
finish() {
  status=$?
  [ -z "$receiver" ] || kill "$receiver" 2>/dev/null || true
  [ $status -eq 0 ] || tail -n 20 "$folder"/*
  rm -r "$folder"
}
trap finish EXIT

: >"$folder/received"
"$@" >"$folder/received" 2>"$folder/reports" &
receiver=$!
at=
while [ -z "$at" ]; do
  kill -0 $receiver
  # A line that is written, and whole.
  [ "$(wc -l <"$folder/received")" -eq 0 ] || at=$(sed -n '1s/^listening on //p' "$folder/received")
  [ -n "$at" ] || sleep 0.02
done
eval "$sender" >"$folder/sent"
wait $receiver
receiver=
sed 1d "$folder/received" | cat - "$folder/sent" >"$folder/printed"
diff -u "$expected" "$folder/printed"
