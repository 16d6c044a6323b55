#!/bin/bash
# The speed figures of the command-line program, each side by side with its
# peer, in one run on one generated library:
#   1. Ogg page walk with CRC, one job, against ogginfo on the same files;
#   2. the whole library, one job, against cat of every file, and with all
#      processors (the speed-up);
#   3. start-up: --version, and one 300-byte FLAC per process (the log
#      written to a file, and to standard output as mp3val reports), against
#      mp3val on a small MP3 (the shape of a tool run once per file);
#   4. what must not regress: MP3 frames against mp3val on files without a
#      Xing header (every frame followed), the 20,000-file tree (files per
#      second), and peak memory (maximum resident set size) of the runs.
# Start-up and peers are measured in CPU time as well as wall time.
# The library is written by the real encoders (lame, flac, oggenc, opusenc,
# ffmpeg's AAC, wavpack, sox) from pink noise with a tone that differs per
# file, with a JPEG cover in the MP3 and FLAC files, and deleted afterwards.
# Times are hyperfine means over warm runs (page cache filled first), with
# the CPU time beside them: on a busy machine the CPU time is the steadier.
#
#   bench/speed.sh [SONDREL_BINARY] [FILES_PER_FORMAT] [SECONDS_PER_FILE]
#
# Defaults: build/release/cli/sondrel, 12 files per format, 90 s each.
# The tree of part 4 is skipped with TREE=0; BIG_MB sizes its large MP3.
set -euo pipefail
bin=$(realpath "${1:-build/release/cli/sondrel}")
files=${2:-12}
seconds=${3:-90}
tree=${TREE:-20000}
big_mb=${BIG_MB:-256}
cd "$(dirname "$0")/.."
for tool in sox lame flac oggenc opusenc ffmpeg wavpack ogginfo mp3val hyperfine python3 /usr/bin/time "$bin"; do
    command -v "$tool" >/dev/null 2>&1 || { echo "missing: $tool" >&2; exit 1; }
done
jobs=$(nproc)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT INT TERM
mkdir -p "$work"/{lib,ogg,mp3cbr,config,one}
export XDG_CONFIG_HOME="$work/config" HOME="$work/config"

# --- the library
ffmpeg -v error -f lavfi -i "testsrc2=s=600x600:d=1" -frames:v 1 -q:v 3 "$work/cover.jpg"
audio() {  # file number -> 44.1 kHz stereo WAV on stdout
    sox -n -r 44100 -c 2 -b 16 -t wav - synth "$seconds" pinknoise sine $((200 + $1 * 37)) vol 0.5 2>/dev/null
}
i=1
while [ "$i" -le "$files" ]; do
    n=$(printf %03d "$i")
    audio "$i" > "$work/src.wav"
    lame --quiet -V 2 --ti "$work/cover.jpg" --tt "Track $n" "$work/src.wav" "$work/lib/vbr$n.mp3"
    lame --quiet -t -b 192 "$work/src.wav" "$work/mp3cbr/cbr$n.mp3"  # no Xing: every frame is walked
    cp "$work/mp3cbr/cbr$n.mp3" "$work/lib/"
    flac -s --picture="$work/cover.jpg" -T "TITLE=Track $n" -o "$work/lib/t$n.flac" "$work/src.wav"
    oggenc -Q -q 6 -o "$work/ogg/v$n.ogg" "$work/src.wav"
    opusenc --quiet --bitrate 160 "$work/src.wav" "$work/ogg/o$n.opus"
    ffmpeg -v error -i "$work/src.wav" -c:a aac -b:a 192k "$work/lib/a$n.m4a"
    wavpack -q -y "$work/src.wav" -o "$work/lib/w$n.wv"
    [ $((i % 4)) -eq 0 ] && cp "$work/src.wav" "$work/lib/p$n.wav"
    i=$((i + 1))
done
rm "$work/src.wav"
cp "$work"/ogg/* "$work/lib/"
count=$(ls "$work/lib" | wc -l)
bytes=$(cat "$work"/lib/* | wc -c)
echo "load average at the start: $(cut -d' ' -f1-3 /proc/loadavg)"
echo "library: $count files, $((bytes / 1000000)) MB ($files per format, $seconds s each; MP3 VBR and CBR, FLAC, Vorbis, Opus, AAC, WavPack, WAV)"
cat "$work"/lib/* > /dev/null

# hyperfine over named commands; prints one line per command and keeps the
# means in $work/<name>.json.
time_them() {  # json-name, then name command pairs
    local out=$1
    shift
    local args=()
    while [ $# -gt 0 ]; do args+=(-n "$1" "$2"); shift 2; done
    hyperfine -N --style none --warmup 2 --min-runs 10 --export-json "$work/$out.json" "${args[@]}" > /dev/null
}
report() {  # json, then pairs "numerator denominator" of names to compare
    python3 - "$@" <<'PY'
import json, sys
runs = {r["command"]: r for r in json.load(open(sys.argv[1]))["results"]}
for name, r in runs.items():
    print(f"  {name:<34} {r['mean'] * 1000:9.2f} ms ± {r['stddev'] * 1000:6.2f}  (cpu {(r['user'] + r['system']) * 1000:8.2f} ms)")
for pair in sys.argv[2:]:
    a, b = pair.split("/")
    cpu = lambda r: r["user"] + r["system"]
    print(f"  {a} / {b}: {runs[a]['mean'] / runs[b]['mean']:.2f}x by wall time, {cpu(runs[a]) / cpu(runs[b]):.2f}x by CPU time")
PY
}
sondrel() {  # the command line for a run of sondrel with the given arguments
    echo "$bin --quiet --log $work/log.txt $*"
}

echo "1. Ogg page walk with CRC, one job ($(ls "$work/ogg" | wc -l) files, $(($(cat "$work"/ogg/* | wc -c) / 1000000)) MB)"
time_them ogg sondrel "$(sondrel -j 1 "$work/ogg")" ogginfo "ogginfo $(echo "$work"/ogg/*)"
report "$work/ogg.json" ogginfo/sondrel

echo "2. The whole library"
time_them lib "sondrel -j 1" "$(sondrel -j 1 "$work/lib")" "sondrel -j $jobs" "$(sondrel -j "$jobs" "$work/lib")" \
    cat "cat $(echo "$work"/lib/*)"
report "$work/lib.json" "sondrel -j 1/cat" "sondrel -j 1/sondrel -j $jobs"
/usr/bin/time -v -o "$work/rss" "$bin" --quiet --log "$work/lib.txt" -j 1 "$work/lib" 2> /dev/null || true
echo "  peak memory, one job: $(($(sed -n 's/.*Maximum resident set size (kbytes): //p' "$work/rss") / 1024)) MB; problems logged: $(($(wc -l < "$work/lib.txt") - 1)) lines"

echo "3. Start-up, one process per file"
sox -n -r 8000 -c 1 -b 16 "$work/tiny.wav" synth 0.025 sine 440
flac -s --no-padding -o "$work/one/small.flac" "$work/tiny.wav"
lame --quiet -b 32 "$work/tiny.wav" "$work/one/small.mp3"
echo "  small FLAC: $(stat -c %s "$work/one/small.flac") bytes, small MP3: $(stat -c %s "$work/one/small.mp3") bytes"
hyperfine -N --style none --warmup 20 --min-runs 200 --export-json "$work/one.json" \
    -n "sondrel --version" "$bin --version" \
    -n "sondrel one FLAC" "$bin --quiet --log $work/one.txt $work/one/small.flac" \
    -n "sondrel one FLAC, log on stdout" "$bin --quiet --log - $work/one/small.flac" \
    -n "mp3val one MP3" "mp3val $work/one/small.mp3" > /dev/null
report "$work/one.json" "sondrel one FLAC/mp3val one MP3" "sondrel one FLAC, log on stdout/mp3val one MP3"
echo "  shared libraries loaded at start: $(ldd "$bin" | wc -l)"
decoders=$(dirname "$bin")/../lib/sondrel/sondrel_decoders.so
if [ -f "$decoders" ]; then
    echo "  verification libraries (loaded on first use): $(ldd "$decoders" | wc -l), missing: $(ldd "$decoders" | grep -c 'not found' || true)"
fi

echo "4. Regressions"
# One large CBR file without a Xing header, made by joining whole encoded
# files end to end (still one valid stream): every frame is followed.
while [ "$(stat -c %s "$work/big.mp3" 2>/dev/null || echo 0)" -lt $((big_mb * 1000000)) ]; do
    cat "$work"/mp3cbr/*.mp3 >> "$work/big.mp3"
done
cat "$work/big.mp3" > /dev/null
echo "  MP3 frames, one $(($(stat -c %s "$work/big.mp3") / 1000000)) MB CBR file without a Xing header:"
time_them mp3 sondrel "$(sondrel -j 1 "$work/big.mp3")" mp3val "mp3val $work/big.mp3"
report "$work/mp3.json" mp3val/sondrel
for tool in sondrel mp3val; do
    if [ $tool = sondrel ]; then set -- "$bin" --quiet --log "$work/mp3.txt" -j 1 "$work/big.mp3"; else set -- mp3val "$work/big.mp3"; fi
    /usr/bin/time -v -o "$work/rss" "$@" > /dev/null 2>&1 || true
    echo "  peak memory, $tool on the large MP3: $(($(sed -n 's/.*Maximum resident set size (kbytes): //p' "$work/rss") / 1024)) MB"
done
if [ "$tree" -gt 0 ] && [ -x "$(dirname "$bin")/../samples/sondrel_samples" ]; then
    FILES=$tree bash bench/scan_tree.sh "$(dirname "$bin")/.." | sed 's/^/  tree: /'
fi
echo "load average at the end: $(cut -d' ' -f1-3 /proc/loadavg)"
