#!/usr/bin/env bash
# Compares what the shared library exports with the list tools/exports.txt: every name of the interface has to
# be there, and nothing of the inside may show. With --write the list is made anew.
#
#     tools/check_exports.sh [--write] <libtessmarU.so>
set -euo pipefail

list=$(dirname "${BASH_SOURCE[0]}")/exports.txt

# Without addresses and kinds. Weak functions (W) are copies of inline ones: which of them a build has is its
# compiler's choice, and a caller does not depend on them.
exports()
{
    nm -D --defined-only -C "$1" | sed -nE 's/^[0-9a-f]+ [^W] (.*)$/\1/p' | LC_ALL=C sort -u
}

if [ "$1" = --write ]; then
    exports "$2" >"$list"
    echo "check_exports: $(wc -l <"$list") names"
    exit
fi
if ! diff -u --label "exports.txt" --label "the library" <(LC_ALL=C sort -u "$list") <(exports "$1"); then
    echo "check_exports: the exports are not those of $list (./dev exports writes it anew)" >&2
    exit 1
fi
