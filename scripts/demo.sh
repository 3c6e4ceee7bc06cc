#!/usr/bin/env bash
# Builds the program and shows it at work on data that every Debian machine has: its installed packages.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
source scripts/packages.sh

requirePackages g++:g++ cmake:cmake ninja:ninja-build
cmake --preset release >/dev/null
cmake --build --preset release --target tarnvale
tarnvale=$PWD/build/release/tarnvale

folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
cd "$folder"
export LC_ALL=C # columns are bytes

headline() { printf '\n== %s\n' "$*"; }
run() {
  printf '$ tarnvale %s\n' "$*"
  "$tarnvale" "$@"
}
number() { od -An -v -tu"$3" --endian=little -j"$2" -N"$3" "$1" | tr -d ' '; } # file, offset, bytes
textAt() { dd if="$1" iflag=skip_bytes,count_bytes skip="$2" count="$3" status=none; }
hexDump() { if command -v xxd >/dev/null; then xxd -l "$2" "$1"; else od -A x -t x1z -N "$2" "$1"; fi; }

# Nodes of 512 bytes stand from byte 2048 on; the first to be complete is the leaf with the lowest keys. An entry holds
# the record's number, a child pointer, the number among equal keys, the record's length and, from byte 12 on, the key.
leaf=2048
showLeaf() { # index file, key length
  local at=$leaf count
  count=$(number "$1" $((leaf + 500)) 1)
  echo 'record  among equals  length  key'
  while ((count-- > 0)); do
    printf '%6d  %12d  %6d  %s\n' "$(number "$1" $at 4)" "$(number "$1" $((at + 8)) 2)" \
      "$(number "$1" $((at + 10)) 2)" "$(textAt "$1" $((at + 12)) "$2")"
    at=$((at + ($2 + 15) / 4 * 4))
  done
}

headline '1. The data: one record of 100 bytes and a line end for each package, the largest package first'
dpkg-query -W -f '${Package}\t${Version}\t${Section}\t${Installed-Size}\n' | sort -t $'\t' -k 4,4nr |
  awk -F '\t' '{ printf "%-40.40s%-30.30s%-20.20s%10.10s\n", $1, $2, $3, $4 }' >packages.txt
echo "$(wc -l <packages.txt) records: name in columns 1-40, version 41-70, section 71-90, size in KiB 91-100"
sed -n 1,3p packages.txt

headline '2. An index over the name: columns 1 to 40 are the key'
run packages.txt,names.isi -1-40
ls -l names.isi | awk '{ print $5 " bytes in " $9 }'

headline '3. How the index begins: magic, byte order, flags, record length 100 (64 00), key length 40 (28 00)'
hexDump names.isi 64

headline '4. Its keys in order: the first leaf of the tree, read with od and dd (records are counted from 0)'
showLeaf names.isi 40 | tee leaf.list
tail -n +2 leaf.list | cut -c 31- >keys.list
cut -c 1-40 packages.txt | sort >sorted.list
head -n "$(wc -l <keys.list)" sorted.list | cmp - keys.list
echo 'sort(1) puts the same names first.'

headline '5. An index over the section, columns 71 to 90, with option e: equal keys are listed in sections.ERR'
run packages.txt,sections.isi -e,71-90
echo "The first of $(wc -l <sections.ERR) lines in sections.ERR (position of the record in hexadecimal, key):"
sed -n 's/\r$//; 1,3p' sections.ERR

headline '6. Equal keys in the index: numbered from 0, in the order of the data'
showLeaf sections.isi 20
