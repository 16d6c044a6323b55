#!/usr/bin/env bash
# One process against two shards on this machine, over a generated tree
# (FILES files of SIZE_KB each in 100 folders: an ID3v2 tag and noise, which
# the MP3 checker walks in full), from a warm page cache. Prints the wall
# time of: one run with one job, one run with two jobs, two shards with one
# job each (started together, plus the merge), and checks that the merged
# log equals the single run's.
#
#   bench/shards.sh [build-dir]    (default build/release)
set -euo pipefail
cd "$(dirname "$0")/.."
build="${1:-build/release}"
bin="$(realpath "$build/cli/sondrel")"
files="${FILES:-3000}"
size_kb="${SIZE_KB:-64}"
work="$(mktemp -d)"
trap 'rm -rf "$work"' EXIT
export XDG_CONFIG_HOME="$work/config" XDG_CACHE_HOME="$work/cachehome"

python3 - "$work/music" "$files" "$size_kb" <<'PY'
import os, random, sys
root, files, size = sys.argv[1], int(sys.argv[2]), int(sys.argv[3]) * 1024
rng = random.Random(7)
noise = bytes(rng.getrandbits(8) for _ in range(size + 4096))
for i in range(files):
    d = os.path.join(root, "Album %03d" % (i % 100))
    os.makedirs(d, exist_ok=True)
    with open(os.path.join(d, "track %04d.mp3" % i), "wb") as f:
        start = (i * 37) % 4096
        f.write(b"ID3\x03\x00\x00\x00\x00\x00\x0aTIT2\x00\x00\x00\x00\x00\x00" + noise[start:start + size])
PY
cat "$work"/music/*/* > /dev/null  # warm cache

now() { date +%s.%N; }
best() {  # best of three wall times of "$@"
    local b=
    for _ in 1 2 3; do
        local s e t
        s=$(now); "$@" > /dev/null 2>&1 || true; e=$(now)
        t=$(echo "$e - $s" | bc)
        if [ -z "$b" ] || [ "$(echo "$t < $b" | bc)" = 1 ]; then b=$t; fi
    done
    printf '%.2f' "$b"
}
two_shards() {
    "$bin" --shard 0/2 -j1 -q --format jsonl --log "$work/s0.jsonl" "$work/music" &
    "$bin" --shard 1/2 -j1 -q --format jsonl --log "$work/s1.jsonl" "$work/music" &
    wait
    "$bin" merge --log "$work/merged.log" "$work/s0.jsonl" "$work/s1.jsonl"
}
one_j1=$(best "$bin" -j1 -q --log "$work/single.log" "$work/music")
one_j2=$(best "$bin" -j2 -q --log "$work/single.log" "$work/music")
two=$(best two_shards)
s=$(now); "$bin" merge --log "$work/merged.log" "$work/s0.jsonl" "$work/s1.jsonl" || true; e=$(now)
merge=$(printf '%.2f' "$(echo "$e - $s" | bc)")
strip() { sed '1s/[0-9T:-]\{19\}$//' "$1"; }
cmp -s <(strip "$work/merged.log") <(strip "$work/single.log") && same=identical || same=DIFFERENT
echo "$files files of $size_kb KiB, $(nproc) processors: 1 process -j1 ${one_j1}s, 1 process -j2 ${one_j2}s," \
    "2 shards -j1 + merge ${two}s (merge alone ${merge}s); merged log $same"
