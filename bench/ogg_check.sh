#!/bin/sh
# Times the check of a ~100 MB Ogg Vorbis file with the sondrel command line
# against ogginfo on the same file, in the same run. The file is made from
# noise (so it does not compress) and deleted afterwards.
# Usage: bench/ogg_check.sh [path/to/sondrel]
set -eu
SONDREL=${1:-build/release/cli/sondrel}
for tool in sox oggenc ogginfo /usr/bin/time "$SONDREL"; do
    command -v "$tool" >/dev/null 2>&1 || { echo "missing: $tool" >&2; exit 1; }
done
WORK=$(mktemp -d)
trap 'rm -rf "$WORK"' EXIT
# Stereo white noise at quality 10 comes out at roughly 49 kB a second, so
# 35 minutes make about 100 MB. The audio goes through a pipe, not a file.
sox -n -r 44100 -c 2 -b 16 -t wav - synth 2100 whitenoise vol 0.5 | oggenc -Q -q 10 -o "$WORK/noise.ogg" -
SIZE=$(stat -c %s "$WORK/noise.ogg")
echo "file: $SIZE bytes"
mkdir -p "$WORK/config"
# Warm the page cache so both tools read from memory.
cat "$WORK/noise.ogg" >/dev/null
# Wall time and processor time (user + system) of each tool; on a busy
# machine the processor time is the steadier figure.
measure() {
    /usr/bin/time -f "%e %U %S" -o "$WORK/time.txt" "$@" >/dev/null 2>&1
    awk -v b="$SIZE" '{ cpu = $2 + $3; printf "%.3f s wall, %.3f s cpu (%.0f MB/s of cpu)", $1, cpu, (cpu > 0 ? b / 1e6 / cpu : 0) }' "$WORK/time.txt"
}
for round in 1 2 3; do
    s=$(measure env XDG_CONFIG_HOME="$WORK/config" HOME="$WORK/config" "$SONDREL" --log "$WORK/log.txt" -j 1 "$WORK/noise.ogg")
    o=$(measure ogginfo "$WORK/noise.ogg")
    echo "round $round: sondrel $s; ogginfo $o"
done
echo "sondrel log:"
tail -n +2 "$WORK/log.txt"
