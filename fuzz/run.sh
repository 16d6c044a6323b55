#!/usr/bin/env bash
# Fuzzing and its coverage report.
#
#   fuzz/run.sh fuzz [seconds per target] [target...]
#       Builds the "fuzz" preset and its seed corpora, then runs each target
#       (all by default) one after the other, one process each, for the given
#       time (300 s by default) from its seeds, the saved crash inputs and the
#       corpus grown by earlier runs (build/fuzz-corpus/<target>/), with its
#       dictionary. A crash is saved under fuzz/regressions/<target>/.
#   fuzz/run.sh coverage [target...]
#       Builds the "coverage" preset (clang source-based coverage), replays
#       each target over its seeds, saved crash inputs and grown corpus, and
#       prints the share of lines reached per file, per checker folder and in
#       total for formats/ and core/; HTML pages in build/coverage/html/.
#
# FUZZ_KEEP_GOING=1 makes libFuzzer go on after a crash (one forked worker).
# SONDREL_SHARED_DIR names the folder holding the shared examples/ when it is
# not ../shared beside the sources.
# Targets are named as the binaries: fuzz_mp3, fuzz_flac, ... The machine is
# shared: every step uses one process (libFuzzer's -jobs/-workers stay at 1).
set -euo pipefail
cd "$(dirname "$0")/.."
root="$PWD"
export CMAKE_CXX_COMPILER_LAUNCHER="${CMAKE_CXX_COMPILER_LAUNCHER:-ccache}"
export CMAKE_C_COMPILER_LAUNCHER="${CMAKE_C_COMPILER_LAUNCHER:-ccache}"
mode="${1:-}"
shift || true
corpus="$root/build/fuzz-corpus"
skiplist="$root/fuzz/regressions/skip.txt"
# SONDREL_SHARED_DIR: the folder holding examples/ when it is not ../shared.
shared=()
[ -z "${SONDREL_SHARED_DIR:-}" ] || shared=(-DSONDREL_SHARED_DIR="$SONDREL_SHARED_DIR")

all_targets() {
  for f in fuzz/fuzz_*.cpp; do basename "$f" .cpp; done
}
inputs_for() {  # the seed folder, the grown corpus and saved crashes that exist
  local seeds="$1" t="$2"
  for d in "$corpus/$t" "$seeds/$t" "$root/fuzz/regressions/$t"; do
    [ -d "$d" ] && echo "$d"
  done
  return 0
}
skipped() {  # true when the path ends with a line of the skip list
  local entry
  while IFS= read -r entry; do
    [ -n "$entry" ] && [ "${entry:0:1}" != "#" ] && [[ "$1" == *"$entry" ]] && return 0
  done <"$skiplist"
  return 1
}
llvm_tool() {  # the versioned tool when the plain name is missing
  if command -v "$1-14" >/dev/null 2>&1; then echo "$1-14"; else echo "$1"; fi
}

case "$mode" in
  fuzz)
    seconds="${1:-300}"
    shift || true
    targets=("$@")
    [ "${#targets[@]}" -gt 0 ] || mapfile -t targets < <(all_targets)
    cmake --preset fuzz "${shared[@]}" >/dev/null
    cmake --build build/fuzz -j 2 --target fuzz_seeds "${targets[@]}"
    seeds="$root/build/fuzz/fuzz/seeds"
    mkdir -p "$root/build/fuzz-logs"
    # FUZZ_KEEP_GOING=1: one forked worker that goes on after a crash (each
    # crash is still saved), for a target whose known crash is not fixed yet.
    keep_going=()
    [ -z "${FUZZ_KEEP_GOING:-}" ] || keep_going=(-fork=1 -ignore_crashes=1)
    printf '%-12s %10s %8s %8s %s\n' target executions exec/s corpus result
    for t in "${targets[@]}"; do
      mkdir -p "$corpus/$t" "$root/fuzz/regressions/$t"
      log="$root/build/fuzz-logs/$t.log"
      # libFuzzer stops at the first input that crashes, so the inputs on
      # the skip list are left out of the starting corpus.
      start="$root/build/fuzz-start/$t"
      rm -rf "$start"
      mkdir -p "$start"
      for f in "$seeds/$t"/* "$root/fuzz/regressions/$t"/*; do
        [ -f "$f" ] && ! skipped "$f" && cp "$f" "$start/"
      done
      dirs=("$corpus/$t" "$start")
      status=0
      "build/fuzz/fuzz/$t" "${dirs[@]}" -dict="fuzz/dict/${t#fuzz_}.dict" -max_total_time="$seconds" \
        -rss_limit_mb=2048 -timeout=10 -print_final_stats=1 "${keep_going[@]}" \
        -artifact_prefix="$root/fuzz/regressions/$t/" >"$log" 2>&1 || status=$?
      runs="$(sed -n 's/^stat::number_of_executed_units: *//p' "$log" | tail -1)"
      # Fork mode prints no final statistics: take its last progress line.
      [ -n "$runs" ] || runs="$(sed -n 's/^#\([0-9]*\): cov.*/\1/p' "$log" | tail -1)"
      speed="$(sed -n 's/^stat::average_exec_per_sec: *//p' "$log" | tail -1)"
      [ -n "$speed" ] || speed="$(sed -n 's/^#[0-9]*: cov.* exec\/s \([0-9]*\).*/\1/p' "$log" | tail -1)"
      result=clean
      [ "$status" -eq 0 ] || result="CRASH (exit $status), see $log and fuzz/regressions/$t/"
      printf '%-12s %10s %8s %8s %s\n' "$t" "${runs:-?}" "${speed:-?}" "$(find "$corpus/$t" -type f | wc -l)" "$result"
    done
    ;;
  coverage)
    targets=("$@")
    [ "${#targets[@]}" -gt 0 ] || mapfile -t targets < <(all_targets)
    replays=()
    for t in "${targets[@]}"; do replays+=("${t/fuzz_/fuzz_replay_}"); done
    cmake --preset coverage "${shared[@]}" >/dev/null
    cmake --build build/coverage -j 2 --target fuzz_seeds "${replays[@]}"
    seeds="$root/build/coverage/fuzz/seeds"
    profiles="$root/build/coverage/profiles"
    rm -rf "$profiles"
    mkdir -p "$profiles"
    objects=()
    for t in "${targets[@]}"; do
      bin="build/coverage/fuzz/${t/fuzz_/fuzz_replay_}"
      mapfile -t dirs < <(inputs_for "$seeds" "$t")
      printf '%-12s ' "$t"
      LLVM_PROFILE_FILE="$profiles/$t.profraw" "$bin" --skip "$skiplist" "${dirs[@]}"
      objects+=(-object "$bin")
    done
    "$(llvm_tool llvm-profdata)" merge -sparse "$profiles"/*.profraw -o "$profiles/merged.profdata"
    cov="$(llvm_tool llvm-cov)"
    # Sources are named as the compiler saw them (build/coverage/../../core/...).
    ignore='/\.\./\.\./(fuzz|tests)/|^/usr/'
    "$cov" export -summary-only -instr-profile="$profiles/merged.profdata" "${objects[@]:1}" \
      -ignore-filename-regex="$ignore" >"$profiles/summary.json"
    "$cov" show -format=html -output-dir="$root/build/coverage/html" -instr-profile="$profiles/merged.profdata" \
      "${objects[@]:1}" -ignore-filename-regex="$ignore" >/dev/null
    python3 - "$profiles/summary.json" "$root/" <<'PY'
import json, os, sys, collections
data = json.load(open(sys.argv[1]))["data"][0]["files"]
root = sys.argv[2]
files, groups = [], collections.OrderedDict()
for f in sorted(data, key=lambda f: f["filename"]):
    name = os.path.normpath(f["filename"]).replace(root, "")
    if not (name.startswith("formats/") or name.startswith("core/")):
        continue
    lines = f["summary"]["lines"]
    files.append((name, lines["covered"], lines["count"]))
    parts = name.split("/")
    for g in ("/".join(parts[:2]) + "/" if parts[0] == "formats" else None, parts[0] + "/"):
        if g:
            c = groups.setdefault(g, [0, 0])
            c[0] += lines["covered"]
            c[1] += lines["count"]
def row(name, covered, count):
    share = 100.0 * covered / count if count else 100.0
    print(f"{name:<44} {covered:>6} / {count:<6} {share:5.1f} %")
print(f"{'file':<44} lines reached")
for f in files:
    row(*f)
print()
for g, (covered, count) in sorted(groups.items()):
    row(g, covered, count)
total = [sum(v[0] for k, v in groups.items() if k in ("formats/", "core/")),
         sum(v[1] for k, v in groups.items() if k in ("formats/", "core/"))]
row("formats/ and core/", *total)
PY
    ;;
  *)
    sed -n '2,/^set -euo/p' "$0" | grep '^#' | sed 's/^# \{0,1\}//'
    exit 2
    ;;
esac
