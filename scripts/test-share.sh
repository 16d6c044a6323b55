#!/usr/bin/env bash
# Prints the share of test code: non-blank lines of C++ (.cpp, .h) under tests/
# against the same under the program's own folders (those that exist).
# Usage: scripts/test-share.sh [-v]   (-v: lines per folder)
set -euo pipefail
cd "$(dirname "$0")/.."
count() { find "$@" -type f \( -name '*.cpp' -o -name '*.h' \) -print0 | xargs -0r cat | grep -c '[^[:space:]]' || true; }
code=0
for d in core codes formats verify cli app printers store modules samples; do
  [ -d "$d" ] || continue
  n=$(count "$d")
  code=$((code + n))
  [ "${1:-}" = -v ] && printf '  %-10s %6d\n' "$d" "$n"
done
tests=$(count tests)
if [ "${1:-}" = -v ]; then
  for d in tests/*/; do printf '  %-18s %6d\n' "$d" "$(count "$d")"; done
fi
awk -v t="$tests" -v c="$code" 'BEGIN { printf "tests %d lines, code %d lines: %.1f %%\n", t, c, c ? 100 * t / c : 0 }'
