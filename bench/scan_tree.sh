#!/usr/bin/env bash
# Files per second for a tree of 20,000 small audio files (copies of the
# sample library spread over 200 folders), with one worker and with N.
# Usage: bench/scan_tree.sh [build-dir]   (default build/release)
set -euo pipefail
cd "$(dirname "$0")/.."
build="${1:-build/release}"
files="${FILES:-20000}"
work="$(mktemp -d)"
trap 'rm -rf "$work"' EXIT

"$build/samples/sondrel_samples" "$work/src"
python3 bench/make_tree.py "$work/src" "$work/tree" "$files"

run() {  # jobs -> best wall time of three runs, in seconds
    local best=""
    for _ in 1 2 3; do
        local t0 t1 dt
        t0=$(date +%s.%N)
        "$build/cli/sondrel" --quiet --jobs "$1" --log "$work/log.txt" "$work/tree" || true
        t1=$(date +%s.%N)
        dt=$(echo "$t1 - $t0" | bc -l)
        if [ -z "$best" ] || [ "$(echo "$dt < $best" | bc -l)" = 1 ]; then best=$dt; fi
    done
    echo "$best"
}

n=$(nproc)
t1=$(run 1)
tn=$(run "$n")
printf 'files: %d (%s)\n' "$files" "$(du -sh "$work/tree" | cut -f1)"
printf '1 worker:  %.2f s  %.0f files/s\n' "$t1" "$(echo "$files / $t1" | bc -l)"
printf '%d workers: %.2f s  %.0f files/s\n' "$n" "$tn" "$(echo "$files / $tn" | bc -l)"
"$build/cli/sondrel" --quiet --jobs 1 --log "$work/a.txt" "$work/tree" || true
"$build/cli/sondrel" --quiet --jobs "$n" --log "$work/b.txt" "$work/tree" || true
if cmp -s <(tail -n +2 "$work/a.txt") <(tail -n +2 "$work/b.txt"); then echo "logs identical"; else echo "LOGS DIFFER"; exit 1; fi
