#!/bin/sh
# Times the check of a ~100 MB Ogg Vorbis file with the sondrel command line
# against ogginfo on the same file, in the same run. The file is made from
# noise (so it does not compress) and deleted afterwards.
# Usage: bench/ogg_check.sh [path/to/sondrel]
set -eu
SONDREL=${1:-build/release/cli/sondrel}
for tool in sox oggenc ogginfo "$SONDREL"; do
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
seconds() { python3 -c 'import time; print(time.monotonic())'; }
for round in 1 2 3; do
    t0=$(seconds)
    XDG_CONFIG_HOME="$WORK/config" HOME="$WORK/config" "$SONDREL" --log "$WORK/log.txt" -j 1 "$WORK/noise.ogg" >/dev/null
    t1=$(seconds)
    ogginfo "$WORK/noise.ogg" >/dev/null
    t2=$(seconds)
    python3 -c "s=$t1-$t0; o=$t2-$t1; mb=$SIZE/1e6; print(f'round $round: sondrel {s:.3f} s ({mb/s:.0f} MB/s), ogginfo {o:.3f} s ({mb/o:.0f} MB/s)')"
done
echo "sondrel log:"
tail -n +2 "$WORK/log.txt"
