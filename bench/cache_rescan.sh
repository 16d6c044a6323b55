#!/usr/bin/env bash
# First scan against an unchanged re-scan with the result cache, over a tree
# of 20,000 files in 200 folders: short clips made by the real encoders
# (FLAC, MP3, WavPack, Ogg Vorbis, Opus) and, every fourth file, a file of
# the sample library with known problems. For the plain check and for
# --verify=full it prints the scan without the cache, the first scan that
# fills it, and the re-scan from it (best of three), and compares the logs.
#
#   bench/cache_rescan.sh [build-dir]    (default build/release)
#
# FILES (20000), CLIP_SECONDS (length of each clip, 1) and JOBS (all processors)
# change the tree and the run.
set -euo pipefail
cd "$(dirname "$0")/.."
build="${1:-build/release}"
files="${FILES:-20000}"
seconds="${CLIP_SECONDS:-1}"
jobs="${JOBS:-$(nproc)}"
bin="$build/cli/sondrel"
[ -x "$bin" ] || { echo "no sondrel binary at $bin" >&2; exit 1; }
for tool in ffmpeg flac lame wavpack oggenc opusenc python3; do
    command -v "$tool" >/dev/null || { echo "$tool is needed" >&2; exit 1; }
done
work="$(mktemp -d)"
trap 'rm -rf "$work"' EXIT
export XDG_CONFIG_HOME="$work/config" XDG_CACHE_HOME="$work/cachehome"

mkdir -p "$work/clips"
ffmpeg -v error -f lavfi -i "anoisesrc=d=$seconds:c=pink:a=0.2" -ac 2 -ar 44100 "$work/src.wav"
flac -s -o "$work/clips/c.flac" "$work/src.wav"
lame --quiet -V 2 "$work/src.wav" "$work/clips/c.mp3"
wavpack -q -y "$work/src.wav" -o "$work/clips/c.wv"
oggenc -Q -o "$work/clips/c.ogg" "$work/src.wav"
opusenc --quiet "$work/src.wav" "$work/clips/c.opus"
"$build/samples/sondrel_samples" "$work/samples" >/dev/null
python3 - "$work/clips" "$work/samples" "$work/tree" "$files" <<'PY'
import os, sys
clips, samples, dst, n = sys.argv[1], sys.argv[2], sys.argv[3], int(sys.argv[4])
def load(folder):
    out = []
    for d, _, fs in sorted(os.walk(folder)):
        for f in sorted(fs):
            if not f.endswith('.txt'):
                out.append((f, open(os.path.join(d, f), 'rb').read()))
    return out
clip, sample = load(clips), load(samples)
for i in range(n):
    name, data = sample[(i // 4) % len(sample)] if i % 4 == 3 else clip[i % len(clip)]
    folder = os.path.join(dst, 'artist%03d' % (i % 200))
    os.makedirs(folder, exist_ok=True)
    open(os.path.join(folder, '%05d %s' % (i, name)), 'wb').write(data)
PY
# Files changed in the last seconds before a scan are not kept; let them settle.
sleep 4
cat -- "$work"/tree/*/* >/dev/null

seconds_of() {  # command... -> wall seconds
    local t0 t1
    t0=$(date +%s.%N)
    "$@" >/dev/null 2>&1 || true
    t1=$(date +%s.%N)
    echo "$t1 - $t0" | bc -l
}

printf 'tree: %d files, %s, %d jobs\n\n' "$files" "$(du -sh "$work/tree" | cut -f1)" "$jobs"
printf '%-16s %12s %12s %12s %10s  %s\n' "check" "no cache" "first scan" "re-scan" "speed-up" "logs"
for mode in plain full; do
    extra=()
    [ "$mode" = full ] && extra=(--verify=full)
    db="$work/$mode.sqlite"
    run() { "$bin" --quiet --jobs "$jobs" "${extra[@]}" "$@" "$work/tree"; }
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
    label="check only"
    [ "$mode" = full ] && label="--verify=full"
    printf '%-16s %10.2f s %10.2f s %10.2f s %9.0f×  %s\n' "$label" "$plain" "$first" "$best" \
        "$(echo "$first / $best" | bc -l)" "$same"
    [ "$same" = identical ] || exit 1
done
printf '\ncache: %s\n' "$(du -h "$work"/*.sqlite | tr '\n' ' ')"
