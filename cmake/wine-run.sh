#!/bin/sh
# Runs a Windows program under Wine, without a display, in a Wine prefix of its own that is made on first use.
#
#   cmake/wine-run.sh PROGRAM.exe [ARGUMENT...]
#
# WINEPREFIX names another prefix.
set -eu
: "${WINEPREFIX:=${XDG_CACHE_HOME:-${HOME:-/tmp}/.cache}/md_message-wine}"
: "${WINEDEBUG:=-all}"
: "${WINEDLLOVERRIDES:=mscoree,mshtml=}" # no offer to install what nothing here needs
WINEARCH=win64
# In the plain C locale Wine cannot name files outside ASCII.
LC_ALL=C.UTF-8
# Where Debian keeps the DLLs of the compiler's runtime.
runtime=$(dirname -- "$(x86_64-w64-mingw32-g++-posix -print-file-name=libstdc++-6.dll)")
WINEPATH="$runtime;/usr/x86_64-w64-mingw32/lib${WINEPATH:+;$WINEPATH}"
export WINEPREFIX WINEDEBUG WINEDLLOVERRIDES WINEARCH WINEPATH LC_ALL
unset DISPLAY WAYLAND_DISPLAY

# Without address space randomisation: Linux puts a program's heap anywhere in the gigabyte in which Wine 8 needs one fixed
# page, so that about one start in 7,700 fails. Where the system refuses that, containers for instance, such starts remain.
start=
if setarch -R true 2>/dev/null; then
  start='setarch -R'
fi

# The first program that runs starts Wine's server and services, which outlive it and would keep its standard output
# open: a program that reads it would wait for them. So they are started apart. The prefix is made by the way; the lock is for
# programs that start at the same time.
if [ ! -d "$WINEPREFIX" ] || ! wineserver -k0 2>/dev/null; then
  mkdir -p "$WINEPREFIX"
  (
    flock 9
    wineserver -k0 || { $start wineserver -p30 9>&- && $start wine cmd /c exit 9>&-; }
  ) 9>"$WINEPREFIX.lock" </dev/null >/dev/null 2>&1
fi
exec $start wine "$@"
