#!/usr/bin/env bash
# Builds the programs and shows all that they do, on data that every Debian machine has: its installed packages.
# Usage: scripts/demo.sh [build folder]; without one, the release is built.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
source scripts/packages.sh

if (($# == 0)); then
  requireBuildTools
  cmake --preset release >/dev/null
  cmake --build --preset release --target tarnvale tarnvale-check tarnvale-read
fi
programs=$(realpath "${1:-build/release}")

folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
cd "$folder"
export LC_ALL=C # columns are bytes

stepNumber=0
step() { printf '\n== %d. %s\n' $((++stepNumber)) "$*"; }
# Shows and runs a command, without the four lines that the messages of tarnvale begin with.
run() {
  local skipped=0 word
  [[ $1 != tarnvale ]] || skipped=4
  printf '$'
  for word in "$@"; do
    [[ ! $word =~ [^[:alnum:].,=-] ]] || word="\"$word\""
    printf ' %s' "$word"
  done
  printf '\n'
  "$programs/$1" "${@:2}" | tail -n +$((skipped + 1))
}
refused() { if run "$@"; then echo 'This should have failed.'; exit 1; else echo "(exit status $?)"; fi; }
listEntries() { "$programs/tarnvale-read" "$1"; }
entries() { # index, how many: the first entries, as the reading program lists them
  echo 'record  offset  length  among equals  key'
  listEntries "$1" >entries.list
  head -n "$2" entries.list | awk -F '\t' '{ printf "%6d  %6d  %6d  %12d  %s\n", $1, $2, $3, $4, $5 }'
}
hexDump() { if command -v xxd >/dev/null; then xxd -l "$2" "$1"; else od -A x -t x1z -N "$2" "$1"; fi; }
sizeOf() { stat -c %s "$1"; }

step 'The data: a record of 100 bytes and a line end for each package of this machine, the largest package first'
dpkg-query -W -f '${Package}\t${Version}\t${Section}\t${Installed-Size}\n' | sort -t $'\t' -k 4,4nr |
  awk -F '\t' '{ printf "%-40.40s%-30.30s%-20.20s%10.10s\n", $1, $2, $3, $4 }' >packages.txt
count=$(wc -l <packages.txt)
echo "$count records: name in columns 1-40, version 41-70, section 71-90, size in KiB 91-100"
sed -n 1,3p packages.txt

step 'A build: columns 1 to 40 are the key, so the index holds the names in order'
run tarnvale packages.txt,names.isi -1-40
entries names.isi 5
cut -f 5 entries.list | cmp - <(cut -c 1-40 packages.txt | sort)
echo 'sort(1) puts all names in the same order.'

step 'The file: it begins with a magic, flags, record length 100 (64 00) and key length 40 (28 00)'
hexDump names.isi 32
echo "$(sizeOf names.isi) bytes; docs/isi-format.md tells what each of them is"

step 'Duplicates: the key is the section; option e lists equal keys in an error file, with the offset of each record'
run tarnvale packages.txt,sections.isi -e,71-90
echo "The first of $(wc -l <sections.ERR) lines in sections.ERR:"
sed -n 's/\r$//; 1,2p' sections.ERR
entries sections.isi 3

step 'Duplicates refused: with n there is no index when two keys are equal, and with n$ only the first record counts'
refused tarnvale packages.txt,once.isi -n,71-90 >refused.log
sed -n 1p refused.log
tail -n 2 refused.log
run tarnvale packages.txt,once.isi '-n$,71-90'
run tarnvale-check once.isi

step 'Option i: an index knows the command that built it'
run tarnvale sections.isi -i

step 'Selection: p keeps the packages of 10 MiB and more that are no libraries, by size and name'
run tarnvale packages.txt,large.isi "-p=91>='     10240'&71<>'libs',91-100,1-40"
entries large.isi 3

step 'Deleted records: every third record becomes NUL bytes; option r runs the stored command again'
for ((i = 0; i < count; i += 3)); do
  dd if=/dev/zero of=packages.txt bs=101 seek=$i count=1 conv=notrunc status=none
done
run tarnvale names.isi -r

step 'Compaction in place: an index built with half-full nodes (m50) becomes half as large; its entries stay the same'
run tarnvale packages.txt,half.isi -m50,1-40
listEntries half.isi >before.list
before=$(sizeOf half.isi)
run tarnvale half.isi -c
echo "$before bytes before, $(sizeOf half.isi) bytes after"
listEntries half.isi | cmp - before.list

step 'A proof: tarnvale-check scans the data again and holds every record, node and count against the index'
run tarnvale-check names.isi
run tarnvale-check half.isi

step 'Damage: one byte of a key in the last node is changed; the check finds it, and option r repairs the index'
at=$(($(sizeOf names.isi) - 512 + 14))
echo "\$ printf '~' | dd of=names.isi bs=1 seek=$at conv=notrunc"
printf '~' | dd of=names.isi bs=1 seek=$at conv=notrunc status=none
refused tarnvale-check names.isi
run tarnvale names.isi -r
run tarnvale-check names.isi
