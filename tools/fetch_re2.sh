#!/usr/bin/env bash
# Gets the source of RE2 from the package sources of this machine, for targets without a package of it (Windows).
#
#     tools/fetch_re2.sh <folder>
#
# Leaves the source in <folder>/source. Does nothing if it is there. Needs no root: apt gets its own state folders.
# Needs unicode-data, python3-six and perl: the packaged source contains no generated tables.
set -euo pipefail

mkdir -p "$1"
folder=$(cd "$1" && pwd)
[ ! -e "$folder/made" ] || exit 0

rm -rf "$folder"/{parts,state,cache,download,source}
mkdir -p "$folder"/{parts,state/lists/partial,cache/archives/partial,download,source}

# The same sources as apt uses, for source packages.
for file in /etc/apt/sources.list.d/*.sources; do
    [ ! -f "$file" ] || sed -E 's/^Types:.*/Types: deb-src/' "$file" >"$folder/parts/${file##*/}"
done
for file in /etc/apt/sources.list /etc/apt/sources.list.d/*.list; do
    [ ! -f "$file" ] || sed -nE 's/^deb(-src)? /deb-src /p' "$file" | sort -u >"$folder/parts/${file##*/}.list"
done

own_apt()
{
    apt-get -qq -o Dir::Etc::sourcelist=/dev/null -o Dir::Etc::sourceparts="$folder/parts" \
        -o Dir::State::lists="$folder/state/lists" -o Dir::Cache="$folder/cache" -o APT::Sandbox::User=root "$@"
}

cd "$folder/download"
own_apt update
own_apt source --download-only re2
tar -xf re2_*.orig.tar.* --strip-components=1 -C "$folder/source"

cd "$folder/source"
sed -i 's|^_UNICODE_DIR = .*|_UNICODE_DIR = "/usr/share/unicode"|' re2/unicode.py
/usr/bin/perl re2/make_perl_groups.pl >re2/perl_groups.cc
for table in casefold groups; do
    /usr/bin/python3 re2/make_unicode_$table.py >re2/unicode_$table.cc
done
touch "$folder/made"
