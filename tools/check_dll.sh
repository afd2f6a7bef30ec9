#!/usr/bin/env bash
# Checks a built tessmarU.dll with independent tools: its exports, the libraries that it needs, and its resources. Prints
# each fault, and fails if there is one.
#
#     tools/check_dll.sh <tessmarU.dll>
set -euo pipefail

dll=$1
folder=$(dirname "${BASH_SOURCE[0]}")
faults=0

# expect <what> <text> <regular expression ...>: the text has to match each expression.
expect()
{
    local what=$1 text=$2 pattern
    shift 2
    for pattern in "$@"; do
        if ! grep -qE -- "$pattern" <<<"$text"; then
            printf 'check_dll: %s of %s lacks %s:\n%s\n' "$what" "$dll" "$pattern" "$text" >&2
            faults=$((faults + 1))
        fi
    done
}

resource() { wrestool --extract --raw --language=1033 "$@" "$dll"; }
units() { od -An -v -w2 -tu2 | tr -d ' '; }
words() { od -An -v -w4 -tx4 | tr -d ' '; }

# The rows of a block of the string table, one per line. In the block each row is preceded by its length.
rows()
{
    local -a unit
    mapfile -t unit < <(resource --type=6 --name="$1" | units)
    local at=0 row length text
    for ((row = (($1 - 1) * 16); at < ${#unit[@]}; row++)); do
        length=${unit[at]}
        text=
        for ((at++; length > 0; length--, at++)); do
            text+=$(printf '%b' "\\x$(printf %x "${unit[at]}")")
        done
        echo "$row $text"
    done
}

"$folder/check_exports.sh" "$dll" || faults=$((faults + 1))

imports=$(x86_64-w64-mingw32-objdump -p "$dll" | sed -n 's/^.*DLL Name: //p' | tr '[:upper:]' '[:lower:]')
foreign=$(grep -vxE '(advapi32|kernel32|msvcrt|ole32|oleaut32|user32|version)\.dll' <<<"$imports" || true)
if [ -n "$foreign" ]; then
    echo "check_dll: $dll needs more than the system has: $foreign" >&2
    faults=$((faults + 1))
fi

expect "the string table" "$(rows 17)" \
    '^256 SOFTWARE\\Orvane Electronics Limited\\Veltrix\\$' '^257 Tag Server\\$' '^258 Protocol\\$' \
    '^259 Log\\Application$' '^260 Token Processing$' '^261 UDP$' '^270 4\.09\.00$' '^271 en$'

# The block of numbers, from its signature on, follows the header and the name VS_VERSION_INFO.
expect "the version block" "$(resource --type=16 --name=1 | words | sed -n '11,18p' | paste -sd ' ')" \
    '^feef04bd 00010000 0003000a 00000000 00040009 00000000 '
expect "the version texts" "$(resource --type=16 --name=1 | iconv -f UTF-16LE -t UTF-8 | tr '\0\n' '|' )" \
    '140904B0\|' 'FileVersion\|+3\.10\.00\|' 'ProductVersion\|+4\.09\.00\|' 'FileDescription\|+tessmarU\|' \
    'InternalName\|+tessmarU\|' 'OriginalFilename\|+tessmarU\.dll\|' 'ProductName\|+Veltrix Logging Module\|'
expect "the translation" "$(resource --type=16 --name=1 | words | tail -1)" '^04b01409$'

expect "the manifest" "$(resource --type=24 --name=2 | tr -d '\r\n')" \
    '<assemblyIdentity name="tessmarU" processorArchitecture="x86" type="win32" version="1\.0\.0\.0"/>' \
    '<file name="tessmarU\.dll" hashalg="SHA1"/>'

[ "$faults" -eq 0 ]
