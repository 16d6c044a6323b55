#!/usr/bin/env bash
# One process against two shards on this machine, over a generated tree
# (FILES MP3 files of CLIP_SECONDS each, default 3000 of 5 s, in 100
# folders, made with ffmpeg and lame), from a warm page cache. Prints the wall
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
seconds="${CLIP_SECONDS:-5}"
work="$(mktemp -d)"
trap '[ -n "${KEEP:-}" ] || rm -rf "$work"' EXIT
export XDG_CONFIG_HOME="$work/config" XDG_CACHE_HOME="$work/cachehome"

# One real MP3 clip (lame), copied under a different ID3v2 title each time.
ffmpeg -v error -f lavfi -i "anoisesrc=d=$seconds:c=pink:a=0.2" -ac 2 -ar 44100 "$work/src.wav"
lame --quiet -b 128 "$work/src.wav" "$work/clip.mp3"
python3 - "$work/music" "$files" "$work/clip.mp3" <<'PY'
import os, sys
root, files, clip = sys.argv[1], int(sys.argv[2]), open(sys.argv[3], "rb").read()
for i in range(files):
    d = os.path.join(root, "Album %03d" % (i % 100))
    os.makedirs(d, exist_ok=True)
    title = b"\x00Track %d" % i
    frame = b"TIT2" + len(title).to_bytes(4, "big") + b"\x00\x00" + title
    with open(os.path.join(d, "track %04d.mp3" % i), "wb") as f:
        f.write(b"ID3\x03\x00\x00" + bytes([0, 0, 0, len(frame)]) + frame + clip)
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
measure() {  # $1: a label, the rest: sondrel options for every run
    local label=$1
    shift
    two_shards() {
        "$bin" "$@" --shard 0/2 -j1 -q --format jsonl "$work/music" > "$work/s0.jsonl" &
        "$bin" "$@" --shard 1/2 -j1 -q --format jsonl "$work/music" > "$work/s1.jsonl" &
        wait
        "$bin" merge --log "$work/merged.log" "$work/s0.jsonl" "$work/s1.jsonl"
    }
    local one_j1 one_j2 two s e merge same
    one_j1=$(best "$bin" "$@" -j1 -q --log "$work/single.log" "$work/music")
    one_j2=$(best "$bin" "$@" -j2 -q --log "$work/single.log" "$work/music")
    two=$(best two_shards "$@")
    s=$(now); "$bin" merge --log "$work/merged.log" "$work/s0.jsonl" "$work/s1.jsonl" || true; e=$(now)
    merge=$(printf '%.2f' "$(echo "$e - $s" | bc)")
    cmp -s <(strip "$work/merged.log") <(strip "$work/single.log") && same=identical || same=DIFFERENT
    echo "$label: 1 process -j1 ${one_j1}s, 1 process -j2 ${one_j2}s, 2 shards -j1 + merge ${two}s" \
        "(merge alone ${merge}s); merged log $same"
}
strip() { sed '1s/[0-9T:-]\{19\}$//' "$1"; }
echo "$files MP3 files of ${seconds}s in 100 folders, $(nproc) processors"
measure "check" 
measure "check --verify full" --verify full
