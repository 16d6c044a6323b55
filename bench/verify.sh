#!/bin/sh
# Audio verification against the formats' own test tools, on one generated
# library (FLAC, WavPack, MP3, Ogg Vorbis, Opus, AAC and ALAC in MPEG-4, all
# made from the same noise; no Debian package writes Monkey's Audio):
#   per format, sondrel --verify=full with 1 job beside that format's tool
#   (flac -t, wvunpack -vv, mpg123 -t and mp3val, ogginfo and oggdec,
#   opusinfo and opusdec, ffmpeg -v error -f null - for MPEG-4);
#   the whole library: sondrel --verify=full, 1 job, against the sum of the
#   tools that decode (flac -t, wvunpack -vv, mpg123 -t, oggdec, opusdec,
#   ffmpeg); sondrel --verify=quick against cat of the same bytes; both again
#   with all processors.
# Wall and CPU time, throughput and peak memory (maximum resident set size)
# per run.
#
#   bench/verify.sh [SONDREL_BINARY] [MINUTES_PER_FILE] [COPIES]
#
# Defaults: build/release/cli/sondrel, 5 minutes, 4 copies of each file.
set -eu

bin=${1:-build/release/cli/sondrel}
minutes=${2:-5}
copies=${3:-4}
[ -x "$bin" ] || { echo "no sondrel binary at $bin" >&2; exit 1; }
for tool in ffmpeg flac wavpack wvunpack lame mpg123 mp3val oggenc oggdec ogginfo opusenc opusdec opusinfo \
    /usr/bin/time; do
    command -v "$tool" >/dev/null 2>&1 || { echo "$tool is needed" >&2; exit 1; }
done

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT INT TERM
mkdir -p "$work/config"
export XDG_CONFIG_HOME="$work/config"
for d in flac wv mp3 ogg opus aac alac; do mkdir -p "$work/lib/$d"; done

ffmpeg -v error -f lavfi -i "anoisesrc=d=$((minutes * 60)):c=pink:a=0.2" -ac 2 -ar 44100 "$work/src.wav"
flac -s -o "$work/lib/flac/a.flac" "$work/src.wav"
wavpack -q -y "$work/src.wav" -o "$work/lib/wv/a.wv"
lame --quiet -V 2 "$work/src.wav" "$work/lib/mp3/a.mp3"
oggenc -Q -o "$work/lib/ogg/a.ogg" "$work/src.wav"
opusenc --quiet "$work/src.wav" "$work/lib/opus/a.opus"
ffmpeg -v error -i "$work/src.wav" -c:a aac -b:a 192k "$work/lib/aac/a.m4a"
ffmpeg -v error -i "$work/src.wav" -c:a alac "$work/lib/alac/a.m4a"
rm "$work/src.wav"
i=1
while [ $i -lt "$copies" ]; do
    for f in "$work"/lib/*/a.*; do cp "$f" "${f%/a.*}/c$i.${f##*.}"; done
    i=$((i + 1))
done
bytes=$(cat "$work"/lib/*/* | wc -c)
echo "library: $(ls "$work"/lib/* | grep -c '\.') files, $bytes bytes"
cat "$work"/lib/*/* > /dev/null

# label, bytes, command...: prints wall seconds, CPU seconds, MB/s and peak memory.
measure() {
    label=$1
    size=$2
    shift 2
    /usr/bin/time -f "%e %U %S %M" -o "$work/t" "$@" > /dev/null 2>&1 || true
    read -r wall user sys rss < "$work/t"
    awk -v l="$label" -v w="$wall" -v u="$user" -v s="$sys" -v r="$rss" -v b="$size" 'BEGIN {
        printf "%-44s %7.2f s wall %7.2f s CPU %8.1f MB/s %7.1f MB peak\n", l, w, u + s, b / 1e6 / (w > 0 ? w : 0.01), r / 1024 }'
}

# One format's files through a tool, one file at a time: a script per tool.
tool() {
    printf 'for f in "%s"/*; do %s; done\n' "$work/lib/$2" "$3" > "$work/$1.sh"
    echo "$work/$1.sh"
}

echo
echo "per format, 1 job:"
for row in "flac|flac -t|flac -s -t \"\$f\"" \
    "wv|wvunpack -vv|wvunpack -q -vv \"\$f\"" \
    "mp3|mpg123 -t|mpg123 -q -t \"\$f\"" \
    "mp3|mp3val|mp3val \"\$f\"" \
    "ogg|ogginfo|ogginfo -q \"\$f\"" \
    "ogg|oggdec|oggdec -Q -o /dev/null \"\$f\"" \
    "opus|opusinfo|opusinfo -q \"\$f\"" \
    "opus|opusdec|opusdec --quiet \"\$f\" /dev/null" \
    "aac|ffmpeg -f null|ffmpeg -v error -i \"\$f\" -f null -" \
    "alac|ffmpeg -f null|ffmpeg -v error -i \"\$f\" -f null -"; do
    # (measure sets "label" and "size" itself: these names stay apart)
    fmt=${row%%|*}
    rest=${row#*|}
    name=${rest%%|*}
    command=${rest#*|}
    fmtBytes=$(cat "$work"/lib/"$fmt"/* | wc -c)
    if [ "$fmt" != "${previous:-}" ]; then
        measure "$fmt: sondrel --verify=full" "$fmtBytes" "$bin" -q --log - --verify=full -j1 "$work/lib/$fmt"
        measure "$fmt: sondrel --verify=quick" "$fmtBytes" "$bin" -q --log - --verify=quick -j1 "$work/lib/$fmt"
        previous=$fmt
    fi
    script=$(tool "$fmt-$(echo "$name" | tr ' ' '_')" "$fmt" "$command")
    measure "$fmt: $name" "$fmtBytes" sh "$script"
done

# The decoding tools one after the other, as one command.
cat > "$work/tools.sh" <<TOOLS
for f in "$work"/lib/flac/*; do flac -s -t "\$f"; done
for f in "$work"/lib/wv/*; do wvunpack -q -vv "\$f"; done
for f in "$work"/lib/mp3/*; do mpg123 -q -t "\$f"; done
for f in "$work"/lib/ogg/*; do oggdec -Q -o /dev/null "\$f"; done
for f in "$work"/lib/opus/*; do opusdec --quiet "\$f" /dev/null; done
for f in "$work"/lib/aac/* "$work"/lib/alac/*; do ffmpeg -v error -i "\$f" -f null -; done
TOOLS

jobs=$(nproc)
echo
echo "the whole library:"
measure "reference tools (sum)" "$bytes" sh "$work/tools.sh"
measure "sondrel --verify=full, 1 job" "$bytes" "$bin" -q --log - --verify=full -j1 "$work/lib"
measure "sondrel --verify=full, $jobs jobs" "$bytes" "$bin" -q --log - --verify=full -j"$jobs" "$work/lib"
measure "cat" "$bytes" sh -c "cat '$work'/lib/*/*"
measure "sondrel --verify=quick, 1 job" "$bytes" "$bin" -q --log - --verify=quick -j1 "$work/lib"
measure "sondrel --verify=quick, $jobs jobs" "$bytes" "$bin" -q --log - --verify=quick -j"$jobs" "$work/lib"
measure "sondrel (no verification), 1 job" "$bytes" "$bin" -q --log - -j1 "$work/lib"
