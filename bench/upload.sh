#!/bin/sh
# Uploads one file to a local server with the web client and with `curl -F`, side by side, and prints the
# ratios of wall and processor time and the memory beyond the file's size.
# usage: bench/upload.sh [upload_bench program] [MiB]
set -eu
bench=${1:-build/release/bench/upload_bench}
size=${2:-512}

folder=$(mktemp -d)
trap 'kill $server 2>/dev/null || true; rm -rf "$folder"' EXIT
head -c "${size}M" /dev/urandom >"$folder/archive.zip"
"$bench" serve >"$folder/port" &
server=$!
until [ -s "$folder/port" ]; do sleep 0.05; done
url=http://127.0.0.1:$(cat "$folder/port")/upload

hyperfine -N --warmup 2 --runs 12 --export-csv "$folder/times.csv" \
    -n client "$bench upload $url $folder/archive.zip" \
    -n curl "curl -sS -F file=@$folder/archive.zip;type=application/zip $url"
# command,mean,stddev,median,user,system,min,max
awk -F, 'NR == 2 { wall = $4; cpu = $5 + $6 }
    NR == 3 { printf "client / curl -F: wall %.2f, processor %.2f (wanted: at most 1.15)\n", wall / $4, cpu / ($5 + $6) }' \
    "$folder/times.csv"
/usr/bin/time -f %M -o "$folder/memory" "$bench" upload "$url" "$folder/archive.zip"
awk -v size="$size" '{ printf "memory beyond the file: %.1f MiB (wanted: at most 40)\n", $1 / 1024 - size }' \
    "$folder/memory"
