#!/usr/bin/env bash
# Checks the rules that hold for single files of the tree. Prints each breach; fails if there is one.
# tools/check_rooms.py checks how the files use each other.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

breaches=0
breach()
{
    echo "check_tree: $1" >&2
    breaches=$((breaches + 1))
}

files() { git ls-files -z --cached --others --exclude-standard -- "$@"; }

# The sources are the same for every platform. Only the platform folders and platform.h distinguish them.
platform='_WIN32|_WIN64|WIN32|WINNT|__linux|linux|__unix|unix|__gnu_linux__|__MINGW|__CYGWIN__|_MSC_VER|__ELF__|__GLIBC__'
while IFS= read -r line; do
    breach "$line: this depends on the platform; move it to platform/"
done < <(files '*.cpp' '*.h' '*.c' '*.def' '*.in' ':!platform/' ':!apps/tessmaru/platform/' ':!include/tessmaru/platform.h' |
    xargs -0 -r grep -nHE "^[[:space:]]*#[[:space:]]*(if|ifdef|ifndef|elif)\b.*\b($platform)" || true)

while IFS= read -r -d '' file; do
    [ -f "$file" ] || continue
    first=
    IFS= read -r first <"$file" || true
    # Headers for C and for resource scripts use the older form.
    case $first in
        "// "* | "/* "*) ;;
        *) breach "$file:1: the first line does not say what the file is for; begin with a comment" ;;
    esac
done < <(files '*.cpp' '*.h' '*.c' '*.def')

# Each module of the library has the vocabulary of the tag specification. The forms of the cipher have not: they are
# compiled for instructions that not every processor has, and static initialisation would run them at load.
while IFS= read -r file; do
    breach "does not include settings/tag_specification.h: $file"
done < <(files 'src/*.cpp' ':!src/frame/cipher_*.cpp' ':!src/frame/choice_*.cpp' ':!src/frame/crc32.cpp' |
    xargs -0 -r grep -L '^#include "settings/tag_specification.h"$' || true)

# What the library and its platform share knows neither of them.
while IFS= read -r line; do
    breach "common/ includes more than the standard library: $line"
done < <(files 'common/' | xargs -0 -r grep -nHE '^#include "' || true)

limit=$((1024 * 1024))
while IFS= read -r -d '' file; do
    if [ -f "$file" ] && [ "$(stat -c %s "$file")" -gt "$limit" ]; then
        breach "$file: larger than 1 MB; keep it out of the tree"
    fi
done < <(files)

[ "$breaches" -eq 0 ]
