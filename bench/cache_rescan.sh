#!/usr/bin/env bash
# First scan against an unchanged re-scan with the result cache, over trees
# of 20,000 files in 200 folders. For each it prints the scan without the
# cache, the first scan that fills it, and the re-scan from it (best of
# three), and compares the three logs.
#   - copies of 1-second clips made by the real encoders (FLAC, MP3, WavPack,
#     Ogg Vorbis, Opus) and, every fourth file, a file of the sample library
#     with known problems: checked, then verified (--verify=full);
#   - hard links to 30-second clips of the same encoders with a 1000x1000
#     JPEG cover (Ogg Vorbis without), closer to what a real library's files
#     cost to check (the frame and page walks read the whole file, the cover
#     is decoded), without writing gigabytes: checked.
#
#   bench/cache_rescan.sh [build-dir]    (default build/release)
#
# FILES (20000), CLIP_SECONDS (1), LONG_SECONDS (30) and JOBS (all
# processors) change the trees and the run.
set -euo pipefail
cd "$(dirname "$0")/.."
build="${1:-build/release}"
files="${FILES:-20000}"
seconds="${CLIP_SECONDS:-1}"
long="${LONG_SECONDS:-30}"
jobs="${JOBS:-$(nproc)}"
bin="$build/cli/sondrel"
[ -x "$bin" ] || { echo "no sondrel binary at $bin" >&2; exit 1; }
for tool in ffmpeg flac metaflac lame wavpack oggenc opusenc python3; do
    command -v "$tool" >/dev/null || { echo "$tool is needed" >&2; exit 1; }
done
work="$(mktemp -d)"
trap 'rm -rf "$work"' EXIT
export XDG_CONFIG_HOME="$work/config" XDG_CACHE_HOME="$work/cachehome"

encode() {  # seconds folder [cover]
    mkdir -p "$2"
    ffmpeg -v error -f lavfi -i "anoisesrc=d=$1:c=pink:a=0.2" -ac 2 -ar 44100 "$work/src.wav"
    flac -s -o "$2/c.flac" "$work/src.wav" 2>/dev/null
    lame --quiet -V 2 ${3:+--ti "$3"} "$work/src.wav" "$2/c.mp3"
    wavpack -q -y ${3:+--write-binary-tag "Cover Art (Front)=@$3"} "$work/src.wav" -o "$2/c.wv" 2>/dev/null
    oggenc -Q -o "$2/c.ogg" "$work/src.wav"
    opusenc --quiet ${3:+--picture "$3"} "$work/src.wav" "$2/c.opus"
    [ -z "${3:-}" ] || metaflac --import-picture-from="$3" "$2/c.flac"
    rm "$work/src.wav"
}
ffmpeg -v error -f lavfi -i "testsrc2=size=1000x1000" -frames:v 1 -q:v 3 "$work/cover.jpg"
encode "$seconds" "$work/clips"
encode "$long" "$work/long" "$work/cover.jpg"
"$build/samples/sondrel_samples" "$work/samples" >/dev/null
python3 - "$work" "$files" <<'PY'
import os, sys
work, n = sys.argv[1], int(sys.argv[2])
def load(folder):
    out = []
    for d, _, fs in sorted(os.walk(folder)):
        for f in sorted(fs):
            if not f.endswith('.txt'):
                out.append((f, os.path.join(d, f)))
    return out
clip, sample, long = load(work + '/clips'), load(work + '/samples'), load(work + '/long')
for i in range(n):
    name, path = sample[(i // 4) % len(sample)] if i % 4 == 3 else clip[i % len(clip)]
    folder = os.path.join(work, 'tree', 'artist%03d' % (i % 200))
    os.makedirs(folder, exist_ok=True)
    open(os.path.join(folder, '%05d %s' % (i, name)), 'wb').write(open(path, 'rb').read())
    name, path = long[i % len(long)]
    folder = os.path.join(work, 'links', 'artist%03d' % (i % 200))
    os.makedirs(folder, exist_ok=True)
    os.link(path, os.path.join(folder, '%05d %s' % (i, name)))
PY
# Files changed in the last seconds before a scan are not kept; let them settle.
sleep 4
cat -- "$work"/tree/*/* "$work"/long/* >/dev/null

seconds_of() {  # command... -> wall seconds
    local t0 t1
    t0=$(date +%s.%N)
    "$@" >/dev/null 2>&1 || true
    t1=$(date +%s.%N)
    echo "$t1 - $t0" | bc -l
}

printf '%d files per tree, %d jobs; clips %s (%s s each), links to %s (%s s each, %s cover)\n\n' "$files" "$jobs" \
    "$(du -sh "$work/tree" | cut -f1)" "$seconds" "$(du -sh "$work/long" | cut -f1)" "$long" "$(du -h "$work/cover.jpg" | cut -f1)"
printf '%-26s %12s %12s %12s %10s  %s\n' "tree, check" "no cache" "first scan" "re-scan" "speed-up" "logs"
for mode in plain full links; do
    extra=()
    tree="$work/tree"
    [ "$mode" = full ] && extra=(--verify=full)
    [ "$mode" = links ] && tree="$work/links"
    db="$work/$mode.sqlite"
    run() { "$bin" --quiet --jobs "$jobs" "${extra[@]}" "$@" "$tree"; }
    plain=$(seconds_of run --no-cache --log "$work/$mode-plain.txt")
    first=$(seconds_of run --cache-file "$db" --log "$work/$mode-first.txt")
    best=""
    for _ in 1 2 3; do
        t=$(seconds_of run --cache-file "$db" --log "$work/$mode-again.txt")
        if [ -z "$best" ] || [ "$(echo "$t < $best" | bc -l)" = 1 ]; then best=$t; fi
    done
    same="identical"
    for f in first again; do
        cmp -s <(tail -n +2 "$work/$mode-plain.txt") <(tail -n +2 "$work/$mode-$f.txt") || same="DIFFER ($f)"
    done
    label="${seconds}-s clips, check only"
    [ "$mode" = full ] && label="${seconds}-s clips, --verify=full"
    [ "$mode" = links ] && label="${long}-s + cover, check only"
    printf '%-26s %10.2f s %10.2f s %10.2f s %9.0f×  %s\n' "$label" "$plain" "$first" "$best" \
        "$(echo "$first / $best" | bc -l)" "$same"
    [ "$same" = identical ] || exit 1
done
printf '\ncache: %s\n' "$(du -h "$work"/*.sqlite | tr '\n' ' ')"
