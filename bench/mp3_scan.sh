#!/bin/sh
# Measures the MP3 frame scan of the command-line program on a large
# constant-bitrate file without a Xing/Info frame, so every frame is followed:
# throughput in MB/s and peak memory (maximum resident set size), with the
# MPEG checker mp3val run on the same file in the same run for comparison.
#
#   bench/mp3_scan.sh [SONDREL_BINARY] [SIZE_MB]
#
# Defaults: build/release/cli/sondrel and 1024 MB. Needs sox, lame and
# /usr/bin/time; mp3val is optional. The big file lives in a temporary folder
# that is removed at the end.
set -eu

bin=${1:-build/release/cli/sondrel}
size_mb=${2:-1024}
[ -x "$bin" ] || { echo "no sondrel binary at $bin" >&2; exit 1; }
for tool in sox lame /usr/bin/time; do
    command -v "$tool" >/dev/null 2>&1 || { echo "$tool is needed" >&2; exit 1; }
done

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT INT TERM
mkdir -p "$work/home" "$work/config"

# One minute of 128 kbit/s CBR without the summary frame (-t), repeated:
# whole frames joined end to end still form one valid stream.
sox -n -r 44100 -c 2 -b 16 "$work/tone.wav" synth 60 sine 440 sine 660
lame --quiet --noreplaygain -t -b 128 "$work/tone.wav" "$work/piece.mp3"
rm "$work/tone.wav"
piece=$(stat -c %s "$work/piece.mp3")
copies=$(( size_mb * 1024 * 1024 / piece + 1 ))
i=0
while [ $i -lt "$copies" ]; do cat "$work/piece.mp3"; i=$((i + 1)); done > "$work/big.mp3"
bytes=$(stat -c %s "$work/big.mp3")
echo "file: $bytes bytes ($copies copies of $piece), 128 kbit/s CBR, no Xing/Info frame"

# Warm the page cache so both programs read from memory, not the disk.
cat "$work/big.mp3" > /dev/null

measure() {  # label, command...
    label=$1
    shift
    /usr/bin/time -f '%e %M' -o "$work/time" "$@" > "$work/out" 2>&1 || true
    read -r secs rss_kb < "$work/time"
    mbs=$(awk -v b="$bytes" -v s="$secs" 'BEGIN { if (s > 0) printf "%.0f", b / 1048576 / s; else print "inf" }')
    echo "$label: ${secs} s, ${mbs} MB/s, max RSS $((rss_kb / 1024)) MB"
}

HOME="$work/home" XDG_CONFIG_HOME="$work/config" \
    measure "sondrel" "$bin" -j1 --log "$work/log.txt" "$work/big.mp3"
lines=$(grep -c '^    ' "$work/log.txt" || true)
echo "sondrel problem lines: $lines"
if command -v mp3val >/dev/null 2>&1; then
    measure "mp3val" mp3val "$work/big.mp3"
else
    echo "mp3val: not installed"
fi
