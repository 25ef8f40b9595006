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

if [ ! -f "$WINEPREFIX/.ready" ]; then
  mkdir -p "$WINEPREFIX"
  (
    flock 9 # tests that start at once make one prefix
    if [ ! -f "$WINEPREFIX/.ready" ]; then
      wine wineboot -i >/dev/null 2>&1
      touch "$WINEPREFIX/.ready"
    fi
  ) 9>"$WINEPREFIX.lock"
fi
exec wine "$@"
