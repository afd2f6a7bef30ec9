#!/usr/bin/env bash
# Rules that hold for the tree as a whole. Prints each breach and fails if there is one.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

breaches=0
breach()
{
    echo "check_tree: $1" >&2
    breaches=$((breaches + 1))
}

files() { git ls-files -z --cached --others --exclude-standard -- "$@"; }

# The sources do not know the platform: only its own directory and platform.h ask which one it is.
platform='_WIN32|_WIN64|WIN32|WINNT|__linux|linux|__unix|unix|__gnu_linux__|__MINGW|__CYGWIN__|_MSC_VER|__ELF__|__GLIBC__'
while IFS= read -r line; do
    breach "the platform is asked for: $line"
done < <(files '*.cpp' '*.h' '*.in' ':!platform/' ':!include/tessmaru/platform.h' |
    xargs -0 -r grep -nHE "^[[:space:]]*#[[:space:]]*(if|ifdef|ifndef|elif)\b.*\b($platform)" || true)

limit=$((1024 * 1024))
while IFS= read -r -d '' file; do
    if [ -f "$file" ] && [ "$(stat -c %s "$file")" -gt "$limit" ]; then
        breach "larger than 1 MB: $file"
    fi
done < <(files)

[ "$breaches" -eq 0 ]
