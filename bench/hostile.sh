#!/bin/sh
# Runs every hostile shape through the command line at 100 MB and 1 GB and
# prints one table: file size, wall time, peak resident memory, log lines and
# the first problem line. Each file is made, checked with one job and deleted
# before the next, so the run needs free disk space for the largest file only.
# Usage: [SHAPES="name ..."] bench/hostile.sh [build dir] [sizes in MB...]
#   e.g. bench/hostile.sh build/release 100 1000
set -eu
BUILD=${1:-build/release}
shift 2>/dev/null || true
SIZES=${*:-100 1000}
SONDREL=$BUILD/cli/sondrel
MAKER=$BUILD/bench/make_hostile
for tool in "$SONDREL" "$MAKER" /usr/bin/time; do
    [ -x "$tool" ] || { echo "missing: $tool (build the sondrel and make_hostile targets)" >&2; exit 1; }
done
WORK=$(mktemp -d "${TMPDIR:-/tmp}/hostile.XXXXXX")
trap 'rm -rf "$WORK"' EXIT
mkdir -p "$WORK/config"
printf '%-18s %6s %11s %9s %9s %9s  %s\n' shape MB "file bytes" "time s" "peak MB" lines "first problem"
"$MAKER" --list | while IFS="$(printf '\t')" read -r shape ext what; do
    if [ -n "${SHAPES:-}" ]; then
        case " $SHAPES " in *" $shape "*) ;; *) continue ;; esac
    fi
    for mb in $SIZES; do
        file="$WORK/$shape.$ext"
        "$MAKER" "$shape" $((mb * 1000000)) "$file"
        bytes=$(stat -c %s "$file")
        /usr/bin/time -f "%e %M" -o "$WORK/time.txt" \
            env XDG_CONFIG_HOME="$WORK/config" HOME="$WORK/config" \
            "$SONDREL" --quiet --jobs 1 --log "$WORK/log.txt" "$file" >/dev/null 2>&1 || true
        # The last line holds the figures (a failing exit adds a line before it).
        set -- $(tail -n 1 "$WORK/time.txt")
        secs=$1 kb=$2
        # The first line and, for a file with problems, a blank line and its heading.
        lines=$(($(wc -l < "$WORK/log.txt") - 3))
        [ "$lines" -ge 0 ] || lines=0
        first=$(sed -n 4p "$WORK/log.txt" | cut -c1-70)
        printf '%-18s %6s %11s %9s %9s %9s  %s\n' "$shape" "$mb" "$bytes" "$secs" $((kb / 1024)) "$lines" "$first"
        rm -f "$file"
    done
done
