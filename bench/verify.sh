#!/bin/sh
# Audio verification against the formats' own test tools, on one generated
# library (FLAC, WavPack, MP3, Ogg Vorbis and Opus made from the same noise):
#   sondrel --verify=full, 1 job, against the sum of flac -t, wvunpack -vv,
#   mpg123 -t, ogginfo and opusinfo over the same files (the full tier
#   decodes FLAC, WavPack and MP3; Ogg is checked page by page, not decoded,
#   as ogginfo and opusinfo check them);
#   sondrel --verify=quick, 1 job, against cat of the same bytes;
#   both again with all processors.
# Wall and CPU time and peak memory (maximum resident set size) per run.
#
#   bench/verify.sh [SONDREL_BINARY] [MINUTES_PER_FILE] [COPIES]
#
# Defaults: build/release/cli/sondrel, 5 minutes, 4 copies of each file.
set -eu

bin=${1:-build/release/cli/sondrel}
minutes=${2:-5}
copies=${3:-4}
[ -x "$bin" ] || { echo "no sondrel binary at $bin" >&2; exit 1; }
for tool in ffmpeg flac wavpack wvunpack lame mpg123 oggenc ogginfo opusenc opusinfo /usr/bin/time; do
    command -v "$tool" >/dev/null 2>&1 || { echo "$tool is needed" >&2; exit 1; }
done

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT INT TERM
mkdir -p "$work/lib" "$work/config"
export XDG_CONFIG_HOME="$work/config"

ffmpeg -v error -f lavfi -i "anoisesrc=d=$((minutes * 60)):c=pink:a=0.2" -ac 2 -ar 44100 "$work/src.wav"
flac -s -o "$work/lib/a.flac" "$work/src.wav"
wavpack -q -y "$work/src.wav" -o "$work/lib/a.wv"
lame --quiet -V 2 "$work/src.wav" "$work/lib/a.mp3"
oggenc -Q -o "$work/lib/a.ogg" "$work/src.wav"
opusenc --quiet "$work/src.wav" "$work/lib/a.opus"
rm "$work/src.wav"
i=1
while [ $i -lt "$copies" ]; do
    for f in "$work"/lib/a.*; do cp "$f" "$work/lib/c$i.${f##*.}"; done
    i=$((i + 1))
done
bytes=$(cat "$work"/lib/* | wc -c)
echo "library: $(ls "$work/lib" | wc -l) files, $bytes bytes"
cat "$work"/lib/* > /dev/null

# label, command...: prints wall seconds, CPU seconds, MB/s and peak memory.
measure() {
    label=$1
    shift
    /usr/bin/time -f "%e %U %S %M" -o "$work/t" "$@" > /dev/null 2>&1 || true
    read -r wall user sys rss < "$work/t"
    awk -v l="$label" -v w="$wall" -v u="$user" -v s="$sys" -v r="$rss" -v b="$bytes" 'BEGIN {
        printf "%-38s %7.2f s wall %7.2f s CPU %8.1f MB/s %7.1f MB peak\n", l, w, u + s, b / 1e6 / (w > 0 ? w : 0.01), r / 1024 }'
}

# The reference tools run one after the other, as one command.
cat > "$work/tools.sh" <<TOOLS
for f in "$work"/lib/*.flac; do flac -s -t "\$f"; done
for f in "$work"/lib/*.wv; do wvunpack -q -vv "\$f"; done
for f in "$work"/lib/*.mp3; do mpg123 -q -t "\$f"; done
for f in "$work"/lib/*.ogg; do ogginfo -q "\$f"; done
for f in "$work"/lib/*.opus; do opusinfo -q "\$f"; done
TOOLS

jobs=$(nproc)
measure "reference tools (sum)" sh "$work/tools.sh"
measure "sondrel --verify=full, 1 job" "$bin" -q --log - --verify=full -j1 "$work/lib"
measure "sondrel --verify=full, $jobs jobs" "$bin" -q --log - --verify=full -j"$jobs" "$work/lib"
measure "cat" sh -c "cat '$work'/lib/*"
measure "sondrel --verify=quick, 1 job" "$bin" -q --log - --verify=quick -j1 "$work/lib"
measure "sondrel --verify=quick, $jobs jobs" "$bin" -q --log - --verify=quick -j"$jobs" "$work/lib"
measure "sondrel (no verification), 1 job" "$bin" -q --log - -j1 "$work/lib"
