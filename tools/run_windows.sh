#!/usr/bin/env bash
# Runs a program for Windows here, under wine: one for x86-64 as it is, one for x86-32 inside a root of its own,
# because the packages of the two cannot be mixed. Both keep their registry and drives below the folder `build`.
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
# Neither messages of wine itself, nor its debugger, nor its offers to fetch what it would run .NET or web pages with.
export WINEDEBUG=${WINEDEBUG--all}
export WINEDLLOVERRIDES='mscoree,mshtml,winedbg.exe='
unset DISPLAY

if [ "$bits" = 64 ]; then
    exec wine "$@"
fi

# The mounts end with the process that made them: nothing is left in the root that a removal could follow.
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
