#!/usr/bin/env bash
# What JSON Lines output costs over the text log: the same generated library
# (copies of the sample library spread over 200 folders, as scan_tree.sh
# makes it) scanned with --format text and --format jsonl, best wall time of
# seven runs each, one worker and all. Every file gets a record in JSON Lines,
# clean or not, so this is the format's whole cost.
# Usage: bench/jsonl_cost.sh [build-dir]   (default build/release)
set -euo pipefail
cd "$(dirname "$0")/.."
build="${1:-build/release}"
files="${FILES:-20000}"
work="$(mktemp -d)"
trap 'rm -rf "$work"' EXIT

"$build/samples/sondrel_samples" "$work/src" >/dev/null
python3 bench/make_tree.py "$work/src" "$work/tree" "$files"

# One run's wall time and processor time (user + system), in seconds. The
# processor time is what the format costs; the wall time on a shared
# machine mostly measures the other programs running.
once() {  # format jobs
    rm -f "$work/log.$1"
    /usr/bin/time -f '%e %U %S' -o "$work/time" \
        "$build/cli/sondrel" --quiet --jobs "$2" --format "$1" --log "$work/log.$1" "$work/tree" || true
    tail -n 1 "$work/time" | awk '{ printf "%s %.2f\n", $1, $2 + $3 }'
}

best() {  # format jobs -> best wall and best processor time of seven runs
    local w="" c=""
    for _ in 1 2 3 4 5 6 7; do
        read -r ww cc < <(once "$1" "$2")
        if [ -z "$w" ] || [ "$(echo "$ww < $w" | bc -l)" = 1 ]; then w=$ww; fi
        if [ -z "$c" ] || [ "$(echo "$cc < $c" | bc -l)" = 1 ]; then c=$cc; fi
    done
    echo "$w $c"
}

printf 'files: %d (%s)\n' "$files" "$(du -sh "$work/tree" | cut -f1)"
status=0
for jobs in 1 "$(nproc)"; do
    read -r tw tc < <(best text "$jobs")
    read -r jw jc < <(best jsonl "$jobs")
    cost=$(echo "($jc - $tc) * 100 / $tc" | bc -l)
    wall=$(echo "($jw - $tw) * 100 / $tw" | bc -l)
    printf '%d worker(s): processor time text %.2f s, jsonl %.2f s, cost %+.1f %%' "$jobs" "$tc" "$jc" "$cost"
    printf ' (wall time text %.2f s, jsonl %.2f s, %+.1f %%)\n' "$tw" "$jw" "$wall"
    if [ "$(echo "$cost >= 5" | bc -l)" = 1 ]; then status=1; fi
done
printf 'log sizes: text %s, jsonl %s\n' "$(du -h "$work/log.text" | cut -f1)" "$(du -h "$work/log.jsonl" | cut -f1)"
[ "$status" = 0 ] && echo "JSON Lines costs under 5 % of processor time" || echo "JSON Lines costs 5 % or more"
exit "$status"
