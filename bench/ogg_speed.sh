#!/bin/sh
# Times the Ogg page walk of the sondrel command line (one job) against
# ogginfo and against plain reading (cat) of the same files, in one run, and
# sondrel on an empty folder to tell its start-up from the walk. The set is
# made here by the real encoders: Vorbis (oggenc) and Opus (opusenc) files
# from a few minutes each of sox-generated audio, deleted afterwards.
# Usage: bench/ogg_speed.sh [path/to/sondrel] [files per codec] [seconds per file]
set -eu
SONDREL=${1:-build/release/cli/sondrel}
FILES=${2:-8}
SECONDS_EACH=${3:-240}
ROUNDS=10
for tool in sox oggenc opusenc ogginfo hyperfine python3 "$SONDREL"; do
    command -v "$tool" >/dev/null 2>&1 || { echo "missing: $tool" >&2; exit 1; }
done
WORK=$(mktemp -d)
trap 'rm -rf "$WORK"' EXIT
mkdir -p "$WORK/set" "$WORK/config" "$WORK/empty"

# Noise mixed with a tone that differs per file, so that the encoders spend
# many bits (large pages, as with dense music) and no two files are alike.
audio() {
    sox -n -r 48000 -c 2 -b 16 -t wav - synth "$SECONDS_EACH" pinknoise sine $((200 + $1 * 97)) vol 0.5 2>/dev/null
}
i=1
while [ "$i" -le "$FILES" ]; do
    audio "$i" | oggenc -Q -q 8 -o "$WORK/set/vorbis$i.ogg" -
    audio "$((i + 50))" | opusenc --quiet --bitrate 256 - "$WORK/set/opus$i.opus"
    i=$((i + 1))
done
COUNT=$(ls "$WORK/set" | wc -l)
BYTES=$(cat "$WORK/set"/* | wc -c)
echo "set: $COUNT files, $BYTES bytes (oggenc -q 8 and opusenc 256 kbit/s, $SECONDS_EACH s each)"
# Warm the page cache so every tool reads from memory.
cat "$WORK/set"/* >/dev/null

# hyperfine runs each command repeatedly (after a warm-up run) and gives the
# mean wall time and the mean user and system time per run.
hyperfine --style none --warmup 1 --min-runs "$ROUNDS" --export-json "$WORK/times.json" \
    -n sondrel "env XDG_CONFIG_HOME='$WORK/config' HOME='$WORK/config' '$SONDREL' --log '$WORK/log.txt' -j 1 '$WORK/set'" \
    -n ogginfo "ogginfo $WORK/set/*" \
    -n cat "cat $WORK/set/*" \
    -n start-up "env XDG_CONFIG_HOME='$WORK/config' HOME='$WORK/config' '$SONDREL' --log '$WORK/empty.txt' -j 1 '$WORK/empty'" \
    >/dev/null
python3 - "$WORK/times.json" "$BYTES" <<'PY'
import json, sys
runs = {r["command"]: r for r in json.load(open(sys.argv[1]))["results"]}
size = int(sys.argv[2])
print(f"{'tool':<10} {'wall s':>9} {'cpu s':>9} {'MB/s wall':>10}")
for name, r in runs.items():
    cpu = r["user"] + r["system"]
    print(f"{name:<10} {r['mean']:9.4f} {cpu:9.4f} {size / 1e6 / r['mean']:10.0f}")
s, o, c = runs["sondrel"], runs["ogginfo"], runs["cat"]
print(f"ogginfo / sondrel: {o['mean'] / s['mean']:.1f}x wall, "
      f"{(o['user'] + o['system']) / (s['user'] + s['system']):.1f}x cpu; "
      f"sondrel / cat: {s['mean'] / c['mean']:.2f}x wall")
# sondrel on an empty folder: the cost of starting the program (loading its
# libraries), which the page walk itself does not include.
u = runs["start-up"]
walk, walkCpu = s["mean"] - u["mean"], s["user"] + s["system"] - u["user"] - u["system"]
if walk > 0 and walkCpu > 0:
    print(f"page walk alone (sondrel minus its start-up): {walk:.4f} s wall, {walkCpu:.4f} s cpu, "
          f"{size / 1e6 / walk:.0f} MB/s; ogginfo / walk: {o['mean'] / walk:.1f}x wall, "
          f"{(o['user'] + o['system']) / walkCpu:.1f}x cpu")
PY
echo "sondrel log (problems found):"
tail -n +2 "$WORK/log.txt"
