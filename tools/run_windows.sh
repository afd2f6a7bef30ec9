#!/usr/bin/env bash
# Runs a program for Windows under wine: one for x86-64 directly, one for x86-32 in a chroot, because the packages of the
# two cannot be mixed. Both have their registry and drives below the folder `build`.
#
#     tools/run_windows.sh 64|32 <program.exe> [argument ...]
#
# The root for x86-32 is made by `./dev windows test`. TESSMARU_WINE32_ROOT names another place for it.
set -euo pipefail

bits=$1
shift
build=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)/build
mkdir -p "$build"

export WINEPREFIX=$build/wine$bits
# No messages of wine itself, no debugger, and no offers to download the runtimes of .NET and of web pages.
export WINEDEBUG=${WINEDEBUG--all}
export WINEDLLOVERRIDES='mscoree,mshtml,winedbg.exe='
unset DISPLAY

if [ "$bits" = 64 ]; then
    exec wine "$@"
fi

# The mounts end with the process that made them: no mount is left through which a removal of the root could reach other
# files.
root=${TESSMARU_WINE32_ROOT:-$build/wine32-root}
mkdir -p "$root$build"
# shellcheck disable=SC2016  # what is inside is expanded there
exec unshare --mount bash -euo pipefail -c '
    root=$1 build=$2 folder=$PWD
    shift 2
    mount --rbind /proc "$root/proc"
    mount --rbind /dev "$root/dev"
    mount --bind "$build" "$root$build"
    exec chroot "$root" bash -c "cd \"\$0\" && exec wine \"\$@\"" "$folder" "$@"
' run_windows "$root" "$build" "$@"
