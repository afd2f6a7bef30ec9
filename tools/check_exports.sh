#!/usr/bin/env bash
# Compares the exports of the library with the list tools/exports.txt: every name of the interface has to be exported, and
# no internal name. With --write the list is regenerated from the library for Linux.
#
#     tools/check_exports.sh [--write] <libtessmarU.so | tessmarU.dll>
set -euo pipefail

list=$(dirname "${BASH_SOURCE[0]}")/exports.txt

# Without addresses and kinds. Weak functions (W) are copies of inline ones: the compiler decides which of them a build
# contains, and a caller does not depend on them.
elf_exports()
{
    nm -D --defined-only -C "$1" | sed -nE 's/^[0-9a-f]+ [^W] (.*)$/\1/p' | LC_ALL=C sort -u
}

# LONG is long on Windows.
dll_exports()
{
    x86_64-w64-mingw32-objdump -p "$1" | sed -n '/Name Pointer\] Table/,/^$/p' |
        sed -nE 's/^[[:space:]]*\[ *[0-9]+\] //p' | c++filt | sed 's/\blong\b/int/g' | LC_ALL=C sort -u
}

# The list for Windows: there the platform provides its own functions and classes, the names in type information and
# nested classes are not exported, and argument lists are plain pointers. All plain names are the platform's, except the
# library's three.
expected_of_dll()
{
    sed -E '/^GetVersionNumber/b; /^([A-Z][A-Za-z]*|_set_se_translator)$/d' "$list" | grep -vE '^IID_|^_com_|^typeinfo for _com_error|^vtable for _com_error|^_variant_t::|^typeinfo name for |::(InstanceDeleter|Blocks)::' |
        sed -E 's/__va_list_tag \(\*\) \[1\]/char**/; s/__va_list_tag\*/char*/' | LC_ALL=C sort -u
}

if [ "$1" = --write ]; then
    elf_exports "$2" >"$list"
    echo "check_exports: $(wc -l <"$list") names"
    exit
fi
case $1 in
    *.dll)
        expected=$(expected_of_dll)
        exports=$(dll_exports "$1")
        ;;
    *)
        expected=$(LC_ALL=C sort -u "$list")
        exports=$(elf_exports "$1")
        ;;
esac
if ! diff -u --label "exports.txt" --label "the library" <(echo "$expected") <(echo "$exports"); then
    echo "check_exports: $1 does not export what $list says (./dev exports regenerates it)" >&2
    exit 1
fi
