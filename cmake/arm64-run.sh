#!/bin/sh
# Runs a program for 64-bit ARM under qemu, with the libraries that scripts/arm64-libraries has unpacked.
#
#   cmake/arm64-run.sh FOLDER/PROGRAM [ARGUMENT...]
set -eu
program=$1
shift
# A program that starts itself again finds this as its own name; see cmake/RunnableProgram.cmake.
name=${program%/*}/emulated/${program##*/}
[ -x "$name" ] || name=$program
exec qemu-aarch64-static -L "${0%/*}/../build-arm64-deps/root" -0 "$name" "$program" "$@"
